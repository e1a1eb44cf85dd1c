#include "twtestsupport.h"

#include <twconfig.h>

#include <QtCore/QDir>
#include <QtTest/QTest>

using TW::TWConfig;
using TWTest::MessageCapture;
using TWTest::TempWorkDir;

namespace {

// Loads "k = <value>" (no key at all for a null value) from a fresh file in the current folder.
bool loadValue(TWConfig& config, const QByteArray& value)
{
    QFile file(QStringLiteral("c.ini"));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    file.write(value.isNull() ? QByteArray("other = 1\n") : "k = " + value + '\n');
    file.close();
    return config.load(QStringLiteral("c.ini"));
}

// The captured texts, after checking that each came at \a type.
QStringList textsAt(const MessageCapture& capture, QtMsgType type)
{
    QStringList texts;
    for (const auto& m : capture.messages()) {
        if (m.type != type)
            texts << QStringLiteral("wrong level: ") + m.text;
        else
            texts << m.text;
    }
    return texts;
}

QStringList listOf(const QString& text)
{
    return text.isEmpty() ? QStringList() : QStringList{text};
}

} // namespace

class TstTWConfig : public QObject
{
    Q_OBJECT

private slots:
    void notLoaded();
    void load();
    void typedGetters_data();
    void typedGetters();
    void lists();
    void getFolder_data();
    void getFolder();
    void syncPicksUpChanges();
    void gettersGoThroughGetValue();
    void valueRange_data();
    void valueRange();
};

void TstTWConfig::notLoaded()
{
    MessageCapture capture;
    TWConfig config;
    QCOMPARE(config.fileName(), QString());
    QCOMPARE(config.getIntValue(QStringLiteral("a.b"), 5), 5);
    // The long long default travels unsigned; only this warning shows it.
    QCOMPARE(config.getLongLongValue(QStringLiteral("c"), -1), -1LL);
    QCOMPARE(config.getStrValue(QStringLiteral("d"), QStringLiteral("x")), QStringLiteral("x"));
    config.sync();
    QCOMPARE(textsAt(capture, QtWarningMsg),
             QStringList({QStringLiteral("Config handler is not initialized! Key: \"a.b\" Used value: QVariant(int, 5)"),
                          QStringLiteral("Config handler is not initialized! Key: \"c\" Used value: "
                                         "QVariant(qulonglong, 18446744073709551615)"),
                          QStringLiteral("Config handler is not initialized! Key: \"d\" Used value: "
                                         "QVariant(QString, \"x\")")}));
}

void TstTWConfig::load()
{
    TempWorkDir dir;
    QVERIFY(dir.writeFile(QStringLiteral("good.ini"), "k = 1\n"));
    QVERIFY(dir.writeFile(QStringLiteral("junk.ini"), QByteArray("\0\xff[[[=\n==", 9)));
    QVERIFY(QDir().mkdir(QStringLiteral("folder.ini")));
    const QDir cwd = QDir::current();

    MessageCapture capture;
    TWConfig config;
    QVERIFY(config.load(QStringLiteral("junk.ini"))); // contents are never refused
    QVERIFY(config.load(QStringLiteral("good.ini")));
    QCOMPARE(config.fileName(), cwd.absoluteFilePath(QStringLiteral("good.ini")));
    QCOMPARE(config.getIntValue(QStringLiteral("k"), 0), 1);
    QVERIFY(capture.messages().isEmpty());

    // A failed load after a good one leaves nothing loaded.
    QVERIFY(!config.load(QStringLiteral("missing.ini")));
    QCOMPARE(config.fileName(), QString());
    QCOMPARE(config.getIntValue(QStringLiteral("k"), 7), 7);
    QVERIFY(!config.load(QStringLiteral("folder.ini")));

    const auto messages = capture.messages();
    QCOMPARE(messages.size(), 3);
    QCOMPARE(messages[0].type, QtCriticalMsg);
    QCOMPARE(messages[0].text, QStringLiteral("Config file not found! \"%1\"")
                                   .arg(cwd.absoluteFilePath(QStringLiteral("missing.ini"))));
    QCOMPARE(messages[1].type, QtWarningMsg);
    QCOMPARE(messages[2].type, QtCriticalMsg);
    QVERIFY2(messages[2].text.startsWith(QStringLiteral("Couldn't open config file for read! \"%1\" \"")
                                             .arg(cwd.absoluteFilePath(QStringLiteral("folder.ini")))),
             qPrintable(messages[2].text));
}

void TstTWConfig::typedGetters_data()
{
    QTest::addColumn<QString>("getter");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QVariant>("defaultValue");
    QTest::addColumn<QVariant>("expected");
    QTest::addColumn<QString>("warning");

    const auto row = [](const char* name, const char* getter, const QByteArray& value, const QVariant& def,
                        const QVariant& expected, const char* warning = "") {
        QTest::newRow(name) << QString::fromLatin1(getter) << value << def << expected << QString::fromUtf8(warning);
    };
    row("int", "int", "42", 5, 42);
    row("int negative", "int", "-7", 5, -7);
    row("int absent", "int", QByteArray(), 5, 5);
    row("int bad", "int", "abc", 5, 5, "\"abc\" is not a valid integer value! Used value: 5");
    row("int too big", "int", "3000000000", 5, 5, "\"3000000000\" is not a valid integer value! Used value: 5");
    row("uint", "uint", "4000000000", 3u, 4000000000u);
    row("uint negative", "uint", "-1", 3u, 3u, "\"-1\" is not a valid unsigned integer value! Used value: 3");
    row("uint too big", "uint", "4294967296", 3u, 3u,
        "\"4294967296\" is not a valid unsigned integer value! Used value: 3");
    row("longlong", "longlong", "-9000000000", -1LL, -9000000000LL);
    row("longlong absent", "longlong", QByteArray(), -1LL, -1LL);
    row("longlong too big", "longlong", "9223372036854775808", -1LL, -1LL,
        "\"9223372036854775808\" is not a valid long long value! Used value: -1");
    row("ulonglong", "ulonglong", "18446744073709551615", 1ULL, 18446744073709551615ULL);
    row("ulonglong negative", "ulonglong", "-1", 1ULL, 1ULL,
        "\"-1\" is not a valid unsigned long long value! Used value: 1");
    row("ulonglong too big", "ulonglong", "18446744073709551616", 1ULL, 1ULL,
        "\"18446744073709551616\" is not a valid unsigned long long value! Used value: 1");
    row("bool true", "bool", "true", false, true);
    row("bool zero", "bool", "0", true, false);
    row("bool unknown word", "bool", "banana", false, true);
    row("bool absent", "bool", QByteArray(), true, true);
    row("str quoted comma", "str", "\"a, b\"", QString(), QStringLiteral("a, b"));
    row("str absent", "str", QByteArray(), QStringLiteral("d"), QStringLiteral("d"));
}

void TstTWConfig::typedGetters()
{
    QFETCH(QString, getter);
    QFETCH(QByteArray, value);
    QFETCH(QVariant, defaultValue);
    QFETCH(QVariant, expected);
    QFETCH(QString, warning);

    TempWorkDir dir;
    TWConfig config;
    QVERIFY(loadValue(config, value));
    MessageCapture capture;
    const QString k = QStringLiteral("k");
    QVariant got;
    if (getter == QLatin1String("int"))
        got = config.getIntValue(k, defaultValue.toInt());
    else if (getter == QLatin1String("uint"))
        got = config.getUIntValue(k, defaultValue.toUInt());
    else if (getter == QLatin1String("longlong"))
        got = config.getLongLongValue(k, defaultValue.toLongLong());
    else if (getter == QLatin1String("ulonglong"))
        got = QVariant(qulonglong(config.getULongLongValue(k, defaultValue.toULongLong())));
    else if (getter == QLatin1String("bool"))
        got = config.getBoolValue(k, defaultValue.toBool());
    else
        got = config.getStrValue(k, defaultValue.toString());
    QCOMPARE(got, expected);
    QCOMPARE(textsAt(capture, QtWarningMsg), listOf(warning));
}

void TstTWConfig::lists()
{
    TempWorkDir dir;
    QVERIFY(dir.writeFile(QStringLiteral("c.ini"), "plain = a, b ,c\nquoted = \"a, b\"\none = x\n"));
    TWConfig config;
    QVERIFY(config.load(QStringLiteral("c.ini")));
    const QStringList none;
    QCOMPARE(config.getStrListValue(QStringLiteral("plain"), none),
             QStringList({QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}));
    QCOMPARE(config.getStrListValue(QStringLiteral("quoted"), none), QStringList{QStringLiteral("a, b")});
    QCOMPARE(config.getStrListValue(QStringLiteral("one"), none), QStringList{QStringLiteral("x")});
    QCOMPARE(config.getStrListValue(QStringLiteral("absent"), {QStringLiteral("d")}), QStringList{QStringLiteral("d")});
}

void TstTWConfig::getFolder_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("defaultValue");
    QTest::addColumn<QString>("expected"); // "@" stands for the current folder

    QTest::newRow("relative") << QByteArray("logs/run") << QString() << QStringLiteral("@/logs/run/");
    QTest::newRow("absolute") << QByteArray("/var/tmp") << QString() << QStringLiteral("/var/tmp/");
    QTest::newRow("empty value") << QByteArray("") << QStringLiteral("d") << QStringLiteral("/");
    QTest::newRow("absent, no default") << QByteArray() << QString() << QStringLiteral("/");
    QTest::newRow("absent, relative default") << QByteArray() << QStringLiteral("d") << QStringLiteral("@/d/");
}

void TstTWConfig::getFolder()
{
    QFETCH(QByteArray, value);
    QFETCH(QString, defaultValue);
    QFETCH(QString, expected);

    TempWorkDir dir;
    TWConfig config;
    QVERIFY(loadValue(config, value));
    expected.replace(QLatin1Char('@'), QDir::currentPath());
    QCOMPARE(config.getFolder(QStringLiteral("k"), defaultValue), expected);
}

void TstTWConfig::syncPicksUpChanges()
{
    TempWorkDir dir;
    TWConfig config;
    QVERIFY(loadValue(config, "1"));
    QVERIFY(dir.writeFile(QStringLiteral("c.ini"), "k = 22\nj = 3\n"));
    QCOMPARE(config.getIntValue(QStringLiteral("j"), 0), 0);
    config.sync();
    QCOMPARE(config.getIntValue(QStringLiteral("k"), 0), 22);
    QCOMPARE(config.getIntValue(QStringLiteral("j"), 0), 3);
}

void TstTWConfig::gettersGoThroughGetValue()
{
    TWTest::MapConfig config({{QStringLiteral("n"), QStringLiteral("12")},
                              {QStringLiteral("l"), QStringList{QStringLiteral("-1"), QStringLiteral("-2")}},
                              {QStringLiteral("f"), QStringLiteral("/srv")}});
    bool isRange = true;
    QCOMPARE(config.getIntValue(QStringLiteral("n"), 0), 12);
    QCOMPARE(config.getULongLongValue(QStringLiteral("n"), 0), 12ULL);
    QCOMPARE(config.getStrValue(QStringLiteral("n"), QString()), QStringLiteral("12"));
    QCOMPARE(config.getValueRange(QStringLiteral("l"), isRange, QMetaType::Int, QString()), QVariantList({-1, -2}));
    QVERIFY(!isRange);
    QCOMPARE(config.getFolder(QStringLiteral("f"), QString()), QStringLiteral("/srv/"));
    QCOMPARE(config.keys, QStringList({QStringLiteral("n"), QStringLiteral("n"), QStringLiteral("n"),
                                       QStringLiteral("l"), QStringLiteral("f")}));
}

void TstTWConfig::valueRange_data()
{
    QTest::addColumn<bool>("inFile");        // the text is the file's value, else the default of an absent key
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("type");
    QTest::addColumn<QVariantList>("expected");
    QTest::addColumn<bool>("isRange");
    QTest::addColumn<QString>("critical");

    const auto row = [](const char* name, bool inFile, const char* text, QMetaType::Type type,
                        const QVariantList& expected, bool isRange, const char* critical = "") {
        QTest::newRow(name) << inFile << QByteArray(text) << int(type) << expected << isRange
                            << QString::fromUtf8(critical);
    };
    using MT = QMetaType;
    const QVariantList none;
    row("single", true, "13", MT::Int, {13}, false);
    row("range", true, "0 - 100", MT::Int, {0, 100}, true);
    row("reversed range", true, "100 - 0", MT::LongLong, {100LL, 0LL}, true);
    row("list from file", true, "2, 3, 4, 5", MT::UInt, {2u, 3u, 4u, 5u}, false);
    row("list as default", false, "2, 3, 4, 5", MT::Int, {2, 3, 4, 5}, false);
    row("empty item skipped", true, "2, , 4", MT::ULongLong, {2ULL, 4ULL}, false);
    row("negative single loses its sign", true, "-5", MT::Int, {5}, true);
    row("negative long long default", false, "-9000000000", MT::LongLong, {9000000000LL}, true);
    row("open range", true, "5 -", MT::Int, {5}, true);
    row("string range", true, "a-b", MT::QString, {QStringLiteral("a"), QStringLiteral("b")}, true);
    row("negative list from file", true, "-1, -2", MT::Int, {-1, -2}, false);
    row("range inside string list", true, "1 - 2, 3", MT::QString, {QStringLiteral("1 - 2"), QStringLiteral("3")},
        false);
    row("bool as numbers", true, "0 - 100", MT::Bool, {0, 100}, true);
    row("ulonglong max", true, "18446744073709551615", MT::ULongLong, {18446744073709551615ULL}, false);
    row("absent and empty", false, "", MT::Int, none, false);
    row("blanks only", false, "   ", MT::Int, none, false);
    row("two hyphens", true, "-5 - 10", MT::Int, none, false,
        "Wrong range format: \"-5 - 10\" Supported range format ex: 0 - 100. Must be min and max value. Key: \"k\"");
    row("negative list as default", false, "-1, -2", MT::Int, none, false,
        "Unsupported value range format: \"-1, -2\" Supported formats ex: 13 or 0 - 100 or 2, 3, 4, 5 etc. "
        "Key: \"k\"");
    row("quoted hyphen and comma", true, "\"a-b, c\"", MT::QString, none, false,
        "Unsupported value range format: \"a-b, c\" Supported formats ex: 13 or 0 - 100 or 2, 3, 4, 5 etc. "
        "Key: \"k\"");
    row("range inside int list", true, "1 - 2, 3", MT::Int, none, false,
        "Value = \"1 - 2\" is not matched with type = 2 Key: \"k\"");
    row("bool word", true, "true", MT::Bool, none, false, "Value = \"true\" is not matched with type = 1 Key: \"k\"");
    row("uint overflow", true, "4294967296", MT::UInt, none, false,
        "Value = \"4294967296\" is not matched with type = 3 Key: \"k\"");
    row("failed range keeps isRange", true, "abc - 5", MT::Int, none, true,
        "Value = \"abc\" is not matched with type = 2 Key: \"k\"");
    row("failed list drops parsed items", true, "1, x, 3", MT::LongLong, none, false,
        "Value = \"x\" is not matched with type = 4 Key: \"k\"");
    row("unsupported type", true, "1", MT::Double, none, false,
        "Unsupported value range type: 6 Supported types: bool, string, int, uint, longlong, ulonglong. Key: \"k\"");
}

void TstTWConfig::valueRange()
{
    QFETCH(bool, inFile);
    QFETCH(QByteArray, text);
    QFETCH(int, type);
    QFETCH(QVariantList, expected);
    QFETCH(bool, isRange);
    QFETCH(QString, critical);

    TempWorkDir dir;
    TWConfig config;
    QVERIFY(loadValue(config, inFile ? text : QByteArray()));
    MessageCapture capture;
    bool gotRange = !isRange; // must be set whatever it held
    const QVariantList got = config.getValueRange(QStringLiteral("k"), gotRange, QMetaType::Type(type),
                                                  inFile ? QString() : QString::fromUtf8(text));
    QCOMPARE(got, expected);
    for (qsizetype i = 0; i < got.size(); ++i)
        QCOMPARE(got[i].metaType(), expected[i].metaType());
    QCOMPARE(gotRange, isRange);
    QCOMPARE(textsAt(capture, QtCriticalMsg), listOf(critical));
}

QTEST_GUILESS_MAIN(TstTWConfig)
#include "tst_twconfig.moc"
