#include "twtestsupport.h"

#include <twconfig.h>

#include <QtCore/QDir>
#include <QtTest/QTest>

using TW::TWConfig;
using TWTest::MessageCapture;
using TWTest::TempWorkDir;

namespace {

// Reads "k" with \a getter ("int", ..., "folder", or "range:" and a Qt type name) and
// renders the result: a range as "R" or "L" (isRange, which starts true) and its elements.
QString readAs(TWConfig& c, const QString& getter, const QString& def)
{
    const QString k = QStringLiteral("k");
    if (getter == QLatin1String("int"))
        return QString::number(c.getIntValue(k, def.toInt()));
    if (getter == QLatin1String("uint"))
        return QString::number(c.getUIntValue(k, def.toUInt()));
    if (getter == QLatin1String("longlong"))
        return QString::number(c.getLongLongValue(k, def.toLongLong()));
    if (getter == QLatin1String("ulonglong"))
        return QString::number(c.getULongLongValue(k, def.toULongLong()));
    if (getter == QLatin1String("bool"))
        return c.getBoolValue(k, def == QLatin1String("true")) ? QStringLiteral("true") : QStringLiteral("false");
    if (getter == QLatin1String("strlist"))
        return c.getStrListValue(k, def.split(QLatin1Char(','), Qt::SkipEmptyParts)).join(QLatin1Char('|'));
    if (getter == QLatin1String("folder"))
        return c.getFolder(k, def).replace(QDir::currentPath(), QStringLiteral("@"));
    if (getter == QLatin1String("str"))
        return c.getStrValue(k, def);
    bool isRange = true;
    const auto type = QMetaType::Type(QMetaType::fromName(getter.mid(6).toLatin1()).id());
    QStringList out;
    for (const QVariant& e : c.getValueRange(k, isRange, type, def))
        out << QString::fromLatin1(e.metaType().name()) + QLatin1Char(':') + e.toString();
    out.prepend(isRange ? QStringLiteral("R") : QStringLiteral("L"));
    return out.join(QLatin1Char(' '));
}

// Captured messages as "W text" (warning) or "C text" (critical).
QStringList leveled(const MessageCapture& capture)
{
    QStringList out;
    for (const auto& m : capture.messages())
        out << (m.type == QtWarningMsg ? QStringLiteral("W ") : m.type == QtCriticalMsg ? QStringLiteral("C ") : QStringLiteral("? ")) + m.text;
    return out;
}

} // namespace

class TstTWConfig : public QObject
{
    Q_OBJECT

private slots:
    void load();
    void read_data();
    void read();
    void syncAndGetValueRouting();
};

void TstTWConfig::load()
{
    TempWorkDir dir;
    QVERIFY(dir.writeFile(QStringLiteral("good.ini"), "k = 1\n"));
    QVERIFY(dir.writeFile(QStringLiteral("junk.ini"), QByteArray("\0\xff[[[=\n==", 9)));
    QVERIFY(QDir().mkdir(QStringLiteral("folder.ini")));
    const QDir cwd = QDir::current();
    MessageCapture capture;
    TWConfig config;
    config.sync(); // nothing loaded: silently nothing
    QCOMPARE(config.fileName(), QString());
    QVERIFY(config.load(QStringLiteral("junk.ini"))); // contents are never refused
    QVERIFY(config.load(QStringLiteral("good.ini")));
    QCOMPARE(config.fileName(), cwd.absoluteFilePath(QStringLiteral("good.ini")));
    QCOMPARE(readAs(config, QStringLiteral("int"), QStringLiteral("0")), QStringLiteral("1"));
    QVERIFY(capture.messages().isEmpty());

    // A failed load after a good one leaves nothing loaded: reads warn and give the default.
    QVERIFY(!config.load(QStringLiteral("missing.ini")));
    QVERIFY(!config.load(QStringLiteral("folder.ini")));
    QCOMPARE(config.fileName(), QString());
    QCOMPARE(readAs(config, QStringLiteral("int"), QStringLiteral("7")), QStringLiteral("7"));
    // The long long default travels unsigned; only this warning shows it.
    QCOMPARE(readAs(config, QStringLiteral("longlong"), QStringLiteral("-1")), QStringLiteral("-1"));
    const QStringList m = leveled(capture);
    QCOMPARE(m.size(), 4);
    QCOMPARE(m[0], QStringLiteral("C Config file not found! \"%1\"").arg(cwd.absoluteFilePath(QStringLiteral("missing.ini"))));
    QVERIFY(m[1].startsWith(QStringLiteral("C Couldn't open config file for read! \"%1\" \"")
                                .arg(cwd.absoluteFilePath(QStringLiteral("folder.ini")))));
    const QString prefix = QStringLiteral("W Config handler is not initialized! Key: \"k\" Used value: ");
    QCOMPARE(m.mid(2), QStringList({prefix + QStringLiteral("QVariant(int, 7)"),
                                    prefix + QStringLiteral("QVariant(qulonglong, 18446744073709551615)")}));
}

void TstTWConfig::read_data()
{
    QTest::addColumn<QByteArray>("value"); // right side of "k = ..." in the file; null: no such key
    QTest::addColumn<QString>("getter");
    QTest::addColumn<QString>("def");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QString>("message"); // a warning, or for ranges a critical message

    const auto row = [](const char* name, const char* value, const char* getter, const char* def,
                        const char* expected, const char* message = "") {
        QTest::newRow(name) << (value ? QByteArray(value) : QByteArray()) << QString::fromLatin1(getter)
                            << QString::fromLatin1(def) << QString::fromLatin1(expected) << QString::fromLatin1(message);
    };
    const char* const absent = nullptr;
    row("int", "-7", "int", "5", "-7");
    row("int bad", "abc", "int", "5", "5", "\"abc\" is not a valid integer value! Used value: 5");
    row("int too big", "3000000000", "int", "5", "5", "\"3000000000\" is not a valid integer value! Used value: 5");
    row("uint", "4000000000", "uint", "3", "4000000000");
    row("uint negative", "-1", "uint", "3", "3", "\"-1\" is not a valid unsigned integer value! Used value: 3");
    row("uint too big", "4294967296", "uint", "3", "3",
        "\"4294967296\" is not a valid unsigned integer value! Used value: 3");
    row("longlong", "-9000000000", "longlong", "-1", "-9000000000");
    row("longlong absent", absent, "longlong", "-1", "-1");
    row("longlong too big", "9223372036854775808", "longlong", "-1", "-1",
        "\"9223372036854775808\" is not a valid long long value! Used value: -1");
    row("ulonglong", "18446744073709551615", "ulonglong", "1", "18446744073709551615");
    row("ulonglong negative", "-1", "ulonglong", "1", "1",
        "\"-1\" is not a valid unsigned long long value! Used value: 1");
    row("bool zero", "0", "bool", "true", "false");
    row("bool unknown word", "banana", "bool", "false", "true");
    row("str quoted comma", "\"a, b\"", "str", "", "a, b");
    row("strlist unquoted commas", "a, b ,c", "strlist", "", "a|b|c");
    row("folder relative", "logs/run", "folder", "", "@/logs/run/");
    row("folder absolute", "/var/tmp", "folder", "", "/var/tmp/");
    row("folder empty value", "", "folder", "d", "/");
    row("folder absent, relative default", absent, "folder", "d", "@/d/");

    row("single", "13", "range:int", "", "L int:13");
    row("reversed range", "100 - 0", "range:qlonglong", "", "R qlonglong:100 qlonglong:0");
    row("list from file", "2, 3, 4", "range:uint", "", "L uint:2 uint:3 uint:4");
    row("list as default", absent, "range:int", "2, 3", "L int:2 int:3");
    row("empty item skipped", "2, , 4", "range:qulonglong", "", "L qulonglong:2 qulonglong:4");
    row("negative loses its sign", "-5", "range:int", "", "R int:5");
    row("open range", "5 -", "range:int", "", "R int:5");
    row("string range", "a-b", "range:QString", "", "R QString:a QString:b");
    row("negative list from file", "-1, -2", "range:int", "", "L int:-1 int:-2");
    row("range in string list", "1 - 2, 3", "range:QString", "", "L QString:1 - 2 QString:3");
    row("bool read as numbers", "0 - 1", "range:bool", "", "R int:0 int:1");
    row("blanks only", absent, "range:int", "   ", "L");
    row("two hyphens", "-5 - 10", "range:int", "", "L",
        "Wrong range format: \"-5 - 10\" Supported range format ex: 0 - 100. Must be min and max value. Key: \"k\"");
    row("negative list as default", absent, "range:int", "-1, -2", "L",
        "Unsupported value range format: \"-1, -2\" Supported formats ex: 13 or 0 - 100 or 2, 3, 4, 5 etc. Key: \"k\"");
    row("quoted hyphen and comma", "\"a-b, c\"", "range:QString", "", "L",
        "Unsupported value range format: \"a-b, c\" Supported formats ex: 13 or 0 - 100 or 2, 3, 4, 5 etc. Key: \"k\"");
    row("range in int list", "1 - 2, 3", "range:int", "", "L", "Value = \"1 - 2\" is not matched with type = 2 Key: \"k\"");
    row("bool word", "true", "range:bool", "", "L", "Value = \"true\" is not matched with type = 1 Key: \"k\"");
    row("uint overflow", "4294967296", "range:uint", "", "L",
        "Value = \"4294967296\" is not matched with type = 3 Key: \"k\"");
    row("failed range keeps isRange", "abc - 5", "range:int", "", "R",
        "Value = \"abc\" is not matched with type = 2 Key: \"k\"");
    row("failed list drops its items", "1, x", "range:qulonglong", "", "L",
        "Value = \"x\" is not matched with type = 5 Key: \"k\"");
    row("unsupported type", "1", "range:double", "", "L",
        "Unsupported value range type: 6 Supported types: bool, string, int, uint, longlong, ulonglong. Key: \"k\"");
}

void TstTWConfig::read()
{
    QFETCH(QByteArray, value);
    QFETCH(QString, getter);
    QFETCH(QString, def);
    QFETCH(QString, expected);
    QFETCH(QString, message);

    TempWorkDir dir;
    QVERIFY(dir.writeFile(QStringLiteral("c.ini"), value.isNull() ? QByteArray("j = 1\n") : "k = " + value + '\n'));
    TWConfig config;
    QVERIFY(config.load(QStringLiteral("c.ini")));
    MessageCapture capture;
    QCOMPARE(readAs(config, getter, def), expected);
    const QString level = getter.startsWith(QLatin1String("range:")) ? QStringLiteral("C ") : QStringLiteral("W ");
    QCOMPARE(leveled(capture), message.isEmpty() ? QStringList() : QStringList{level + message});
}

void TstTWConfig::syncAndGetValueRouting()
{
    TempWorkDir dir;
    QVERIFY(dir.writeFile(QStringLiteral("c.ini"), "k = 1\n"));
    TWConfig config;
    QVERIFY(config.load(QStringLiteral("c.ini")));
    QVERIFY(dir.writeFile(QStringLiteral("c.ini"), "k = 22\nj = 3\n"));
    config.sync();
    QCOMPARE(config.getIntValue(QStringLiteral("k"), 0) + config.getIntValue(QStringLiteral("j"), 0), 25);

    // A subclass that overrides getValue alone feeds every getter.
    TWTest::MapConfig map({{QStringLiteral("k"), QStringList{QStringLiteral("-1"), QStringLiteral("-2")}}});
    QCOMPARE(readAs(map, QStringLiteral("range:int"), QString()), QStringLiteral("L int:-1 int:-2"));
    map.values[QStringLiteral("k")] = QStringLiteral("/srv");
    QCOMPARE(readAs(map, QStringLiteral("folder"), QString()), QStringLiteral("/srv/"));
    map.values[QStringLiteral("k")] = QStringLiteral("12");
    QCOMPARE(readAs(map, QStringLiteral("ulonglong"), QString()), QStringLiteral("12"));
    QCOMPARE(map.keys.size(), 3);
}

QTEST_GUILESS_MAIN(TstTWConfig)
#include "tst_twconfig.moc"
