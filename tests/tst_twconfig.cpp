#include "twtestsupport.h"

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
    bool isRange = true;
    const auto type = QMetaType::Type(QMetaType::fromName(getter.mid(6).toLatin1()).id());
    QStringList out;
    for (const QVariant& e : c.getValueRange(k, isRange, type, def))
        out << QString::fromLatin1(e.metaType().name()) + QLatin1Char(':') + e.toString();
    out.prepend(isRange ? QStringLiteral("R") : QStringLiteral("L"));
    return out.join(QLatin1Char(' '));
}

} // namespace

class TstTWConfig : public QObject
{
    Q_OBJECT

private slots:
    void load()
    {
        TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("good.ini"), "k = 1\n"));
        QVERIFY(dir.writeFile(QStringLiteral("junk.ini"), QByteArray("\0\xff[[[=\n==", 9)));
        QVERIFY(QDir().mkdir(QStringLiteral("folder.ini")));
        const QDir cwd = QDir::current();
        MessageCapture capture;
        TWConfig config;
        config.sync(); // nothing loaded: silently nothing
        QVERIFY(config.load(QStringLiteral("junk.ini"))); // contents are never refused
        QVERIFY(config.load(QStringLiteral("good.ini")));
        QCOMPARE(config.fileName(), cwd.absoluteFilePath(QStringLiteral("good.ini")));
        QVERIFY(dir.writeFile(QStringLiteral("good.ini"), "k = 22\n"));
        config.sync();
        QCOMPARE(config.getIntValue(QStringLiteral("k"), 0), 22);

        // A failed load after a good one leaves nothing loaded: reads warn and give the default.
        QVERIFY(!config.load(QStringLiteral("missing.ini")));
        QVERIFY(!config.load(QStringLiteral("folder.ini")));
        QCOMPARE(config.fileName(), QString());
        QCOMPARE(config.getIntValue(QStringLiteral("k"), 7), 7);
        QCOMPARE(config.getLongLongValue(QStringLiteral("k"), -1), -1); // its default travels unsigned
        const QStringList m = capture.lines();
        QCOMPARE(m.value(0), QStringLiteral("C Config file not found! \"%1\"").arg(cwd.absoluteFilePath(QStringLiteral("missing.ini"))));
        QVERIFY(m.value(1).startsWith(QStringLiteral("C Couldn't open config file for read! \"%1\" \"")
                                    .arg(cwd.absoluteFilePath(QStringLiteral("folder.ini")))));
        const QString prefix = QStringLiteral("W Config handler is not initialized! Key: \"k\" Used value: QVariant(");
        QCOMPARE(m.mid(2), QStringList({prefix + QStringLiteral("int, 7)"), prefix + QStringLiteral("qulonglong, 18446744073709551615)")}));
    }

    void read_data()
    {
        QTest::addColumn<QByteArray>("value"); // right side of "k = ..." in the file; null: no such key
        QTest::addColumn<QString>("getter");
        QTest::addColumn<QString>("def");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QString>("message"); // the start of a warning, or for ranges of a critical message

        const auto row = [](const char* name, const char* value, const char* getter, const char* def,
                            const char* expected, const char* message = "") {
            QTest::newRow(name) << (value ? QByteArray(value) : QByteArray()) << QString::fromLatin1(getter)
                                << QString::fromLatin1(def) << QString::fromLatin1(expected) << QString::fromLatin1(message);
        };
        row("int", "-7", "int", "5", "-7");
        row("int bad", "abc", "int", "5", "5", "\"abc\" is not a valid integer value!");
        row("uint", "4000000000", "uint", "3", "4000000000");
        row("uint negative", "-1", "uint", "3", "3", "\"-1\" is not a valid unsigned integer value!");
        row("longlong", "-9000000000", "longlong", "-1", "-9000000000");
        row("longlong too big", "9223372036854775808", "longlong", "-1", "-1",
            "\"9223372036854775808\" is not a valid long long value!");
        row("ulonglong", "18446744073709551615", "ulonglong", "1", "18446744073709551615");
        row("ulonglong negative", "-1", "ulonglong", "1", "1", "\"-1\" is not a valid unsigned long long value!");
        row("bool zero", "0", "bool", "true", "false");
        row("bool unknown word", "banana", "bool", "false", "true");
        row("strlist unquoted commas", "a, b ,c", "strlist", "", "a|b|c");
        row("folder relative", "logs/run", "folder", "", "@/logs/run/");
        row("folder absolute", "/var/tmp", "folder", "", "/var/tmp/");
        row("folder empty value", "", "folder", "d", "/");

        row("single", "13", "range:uint", "", "L uint:13");
        row("reversed range", "100 - 0", "range:qlonglong", "", "R qlonglong:100 qlonglong:0");
        row("list as default, empty item", nullptr, "range:qulonglong", "2, , 4", "L qulonglong:2 qulonglong:4");
        row("negative loses its sign", "-5", "range:int", "", "R int:5");
        row("open range", "5 -", "range:int", "", "R int:5");
        row("string range", "a-b", "range:QString", "", "R QString:a QString:b");
        row("negative list from file", "-1, -2", "range:int", "", "L int:-1 int:-2");
        row("bool read as numbers", "0 - 1", "range:bool", "", "R int:0 int:1");
        row("blanks only", nullptr, "range:int", "   ", "L");
        row("two hyphens", "-5 - 10", "range:int", "", "L",
            "Wrong range format: \"-5 - 10\" Supported range format ex: 0 - 100. Must be min and max value.");
        row("negative list as default", nullptr, "range:int", "-1, -2", "L",
            "Unsupported value range format: \"-1, -2\" Supported formats ex: 13 or 0 - 100 or 2, 3, 4, 5 etc.");
        row("bool word", "true", "range:bool", "", "L", "Value = \"true\" is not matched with type = 1");
        row("failed range keeps isRange", "abc - 5", "range:int", "", "R", "Value = \"abc\" is not matched with type = 2");
        row("failed list drops its items", "1, x", "range:qulonglong", "", "L", "Value = \"x\" is not matched with type = 5");
        row("unsupported type", "1", "range:double", "", "L",
            "Unsupported value range type: 6 Supported types: bool, string, int, uint, longlong, ulonglong.");
    }

    // Each message ends in the default used, or for ranges in the key.
    void read()
    {
        QFETCH(QByteArray, value);
        QFETCH(QString, getter);
        QFETCH(QString, def);
        QFETCH(QString, message);
        TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("c.ini"), value.isNull() ? QByteArray("j = 1\n") : "k = " + value + '\n'));
        TWConfig config;
        QVERIFY(config.load(QStringLiteral("c.ini")));
        MessageCapture capture;
        QTEST(readAs(config, getter, def), "expected");
        const bool range = getter.startsWith(QLatin1String("range:"));
        if (!message.isEmpty())
            message = (range ? QStringLiteral("C %1 Key: \"k\"") : QStringLiteral("W %1 Used value: ") + def).arg(message);
        QCOMPARE(capture.lines().join(u'\n'), message);
    }

    // A subclass that overrides getValue alone feeds every getter.
    void getValueRouting()
    {
        TWTest::MapConfig map({{QStringLiteral("k"), QStringLiteral("12")}});
        QStringList got;
        for (const char* getter : {"int", "uint", "longlong", "ulonglong", "bool", "strlist", "folder", "range:int"})
            got << readAs(map, QString::fromLatin1(getter), QString());
        QCOMPARE(got.join(u' '), QStringLiteral("12 12 12 12 true 12 @/12/ L int:12"));
    }
};

QTEST_GUILESS_MAIN(TstTWConfig)
#include "tst_twconfig.moc"
