#include "twtestsupport.h"

#include <twconfig.h>
#include <twlogger.h>

#include <QtCore/QDir>
#include <QtTest/QTest>

using TW::TWConfig;
using TW::TWLogger;
using TWTest::MessageCapture;
using TWTest::TempWorkDir;

namespace {

// What readFromConfig may change, in one comparable text.
QString settings(const TWLogger& logger)
{
    QStringList levels;
    for (int level : logger.acceptedLogLevelList())
        levels << QString::number(level);
    return QStringLiteral("%1|%2|%3|%4|%5|%6")
        .arg(logger.file(), logger.dateFormat(), QString::number(logger.maxFileSize()),
             QString::fromLatin1(logger.lineEndSepa().toUtf8().toHex()),
             logger.isConsoleOutput() ? QStringLiteral("echo") : QStringLiteral("quiet"), levels.join(u','));
}

// Loads \a ini (written to "log.ini" in the current folder) and applies it as the logger "L".
bool applyIni(TWLogger& logger, const QByteArray& ini)
{
    QFile file(QStringLiteral("log.ini"));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    file.write(ini);
    file.close();
    TWConfig config;
    return config.load(QStringLiteral("log.ini")) && logger.readFromConfig(QStringLiteral("L"), &config);
}

} // namespace

class TstTWLoggerConfig : public QObject
{
    Q_OBJECT

private slots:
    void nullHandler();
    void readsSixKeysInOrder();
    void emptyFileKeepsSettings();
    void separator_data();
    void separator();
    void levels_data();
    void levels();
    void maxFileSize_data();
    void maxFileSize();
    void secondCallRotatesNothing();
    void exampleFile();
};

void TstTWLoggerConfig::nullHandler()
{
    TWLogger logger;
    logger.setConsoleOutput(false);
    const QString before = settings(logger);
    MessageCapture capture;
    QVERIFY(!logger.readFromConfig(QStringLiteral("L"), nullptr));
    QCOMPARE(capture.messages().size(), 1);
    QCOMPARE(capture.messages()[0].type, QtCriticalMsg);
    QCOMPARE(capture.messages()[0].text, QStringLiteral("Config handler must be defined!"));
    QCOMPARE(settings(logger), before);
}

void TstTWLoggerConfig::readsSixKeysInOrder()
{
    TWTest::MapConfig config;
    TWLogger logger;
    logger.setConsoleOutput(false);
    QVERIFY(logger.readFromConfig(QStringLiteral("MainLog"), &config));
    QCOMPARE(config.keys, QStringList({QStringLiteral("MainLog.LogFilePath"), QStringLiteral("MainLog.LogDateFormat"),
                                       QStringLiteral("MainLog.LogMaxFileSize"),
                                       QStringLiteral("MainLog.LogLineEndSeparator"),
                                       QStringLiteral("MainLog.LogConsoleOutput"),
                                       QStringLiteral("MainLog.LogAcceptedLevels")}));
    // The console default is the present value, so an absent key keeps it.
    QCOMPARE(config.defaults, QVariantList({QString(), QString(), qulonglong(-1), QString(), false, QStringList()}));
}

void TstTWLoggerConfig::emptyFileKeepsSettings()
{
    TempWorkDir dir;
    for (bool echo : {false, true}) {
        TWLogger logger;
        logger.setConsoleOutput(echo);
        const QString before = settings(logger);
        MessageCapture capture;
        QVERIFY(applyIni(logger, QByteArray()));
        QCOMPARE(settings(logger), before);
        QVERIFY(capture.messages().isEmpty());
    }
    QCOMPARE(dir.files(), QStringList{QStringLiteral("log.ini")}); // nothing opened
}

void TstTWLoggerConfig::separator_data()
{
    QTest::addColumn<QByteArray>("word");
    QTest::addColumn<QString>("expected");
    QTest::newRow("CRLF") << QByteArray("CRLF") << QStringLiteral("\r\n");
    QTest::newRow("crlf") << QByteArray("crlf") << QStringLiteral("\r\n");
    QTest::newRow("CrLf") << QByteArray("CrLf") << QStringLiteral("\r\n");
    QTest::newRow("cr") << QByteArray("cr") << QStringLiteral("\r");
    QTest::newRow("Cr") << QByteArray("Cr") << QStringLiteral("\r");
    QTest::newRow("LF") << QByteArray("LF") << QStringLiteral("\n");
    QTest::newRow("lF") << QByteArray("lF") << QStringLiteral("\n");
    QTest::newRow("pipe as it stands") << QByteArray("|") << QStringLiteral("|");
    QTest::newRow("other word keeps its case") << QByteArray("Lf2") << QStringLiteral("Lf2");
}

void TstTWLoggerConfig::separator()
{
    QFETCH(QByteArray, word);
    QFETCH(QString, expected);
    TempWorkDir dir;
    TWLogger logger;
    QVERIFY(applyIni(logger, "L.LogLineEndSeparator = " + word + '\n'));
    QCOMPARE(logger.lineEndSepa(), expected);
    // Only a separator other than the present one starts a file, at once.
    QCOMPARE(dir.files({QStringLiteral("*.log")}),
             expected == QLatin1String("\r\n") ? QStringList() : QStringList{QStringLiteral("twoutput_0000.log")});
}

void TstTWLoggerConfig::levels_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QList<int>>("expected");
    QTest::addColumn<QStringList>("warnings");
    const QStringList none;
    QTest::newRow("words, a number and an unknown word")
        << QByteArray("INFO, 7, bogus") << QList<int>{QtInfoMsg, 7}
        << QStringList{QStringLiteral("Unknown log level: 'BOGUS'!")};
    QTest::newRow("any case, blanks around") << QByteArray("debug ,  Warning,FATAL") << QList<int>{0, 1, 3} << none;
    QTest::newRow("duplicates keep the first mention")
        << QByteArray("3, 3, fatal, critical, 0") << QList<int>{3, 2, 0} << none;
    QTest::newRow("one quoted word") << QByteArray("\" critical \"") << QList<int>{QtCriticalMsg} << none;
    QTest::newRow("negative number") << QByteArray("-1") << QList<int>{-1} << none;
    QTest::newRow("only unknown words")
        << QByteArray("verbose, trace") << QList<int>()
        << QStringList{QStringLiteral("Unknown log level: 'VERBOSE'!"), QStringLiteral("Unknown log level: 'TRACE'!")};
    QTest::newRow("present but empty") << QByteArray("") << QList<int>()
                                       << QStringList{QStringLiteral("Unknown log level: ''!")};
}

void TstTWLoggerConfig::levels()
{
    QFETCH(QByteArray, value);
    QFETCH(QList<int>, expected);
    QFETCH(QStringList, warnings);
    TempWorkDir dir;
    TWLogger logger;
    logger.addAcceptedLogLevel(QtDebugMsg); // replaced, not merged
    MessageCapture capture;
    QVERIFY(applyIni(logger, "L.LogAcceptedLevels = " + value + '\n'));
    QCOMPARE(logger.acceptedLogLevelList(), expected);
    QCOMPARE(capture.texts(), warnings);
    for (const auto& m : capture.messages())
        QCOMPARE(m.type, QtWarningMsg);
}

void TstTWLoggerConfig::maxFileSize_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<qint64>("expected");
    QTest::addColumn<QString>("warning");
    QTest::newRow("bytes") << QByteArray("2048") << qint64(2048) << QString();
    QTest::newRow("zero keeps") << QByteArray("0") << qint64(10485760) << QString();
    QTest::newRow("negative keeps") << QByteArray("-5") << qint64(10485760) << QString();
    QTest::newRow("no number keeps")
        << QByteArray("big") << qint64(10485760)
        << QStringLiteral("\"big\" is not a valid long long value! Used value: -1");
}

void TstTWLoggerConfig::maxFileSize()
{
    QFETCH(QByteArray, value);
    QFETCH(qint64, expected);
    QFETCH(QString, warning);
    TempWorkDir dir;
    TWLogger logger;
    MessageCapture capture;
    QVERIFY(applyIni(logger, "L.LogMaxFileSize = " + value + '\n'));
    QCOMPARE(logger.maxFileSize(), expected);
    QCOMPARE(capture.texts(), warning.isEmpty() ? QStringList() : QStringList{warning});
}

void TstTWLoggerConfig::secondCallRotatesNothing()
{
    TempWorkDir dir;
    QVERIFY(QDir().mkdir(QStringLiteral("logs")));
    const QByteArray ini = "L.LogFilePath = logs/app.log\nL.LogDateFormat = yyyy\nL.LogLineEndSeparator = LF\n"
                           "L.LogConsoleOutput = false\nL.LogAcceptedLevels = DEBUG\n";
    TWLogger logger;
    QVERIFY(applyIni(logger, ini));
    QCOMPARE(logger.file(), QDir::current().absoluteFilePath(QStringLiteral("logs/app.log")));
    QVERIFY(!logger.isConsoleOutput());
    // A new date format and a new separator each advanced the number; the first file stays empty.
    const QStringList files{QStringLiteral("app_0000.log"), QStringLiteral("app_0001.log")};
    QCOMPARE(QDir(QStringLiteral("logs")).entryList(QDir::Files), files);
    QVERIFY(logger.writeLog(QStringLiteral("one"), QtDebugMsg, QString(), 1, QString()));

    logger.addAcceptedLogLevel(9);
    QVERIFY(applyIni(logger, ini));
    QCOMPARE(logger.acceptedLogLevelList(), QList<int>{QtDebugMsg});
    QVERIFY(logger.writeLog(QStringLiteral("two"), QtDebugMsg, QString(), 2, QString()));
    QCOMPARE(QDir(QStringLiteral("logs")).entryList(QDir::Files), files);
    QCOMPARE(dir.readFile(QStringLiteral("logs/app_0000.log")), QByteArray());
    const QList<QByteArray> lines = dir.readFile(QStringLiteral("logs/app_0001.log")).split('\n');
    QCOMPARE(lines.size(), 3); // two lines, each ended by LF
    QVERIFY(lines[0].contains("DEBUG    - one"));
    QVERIFY(lines[1].contains("DEBUG    - two"));
}

void TstTWLoggerConfig::exampleFile()
{
    TempWorkDir dir;
    TWConfig config;
    QVERIFY(config.load(QStringLiteral(TW_EXAMPLE_INI)));
    TWLogger logger;
    MessageCapture capture;
    QVERIFY(logger.readFromConfig(QStringLiteral("MainLog"), &config));
    QVERIFY(capture.messages().isEmpty());
    QCOMPARE(logger.lineEndSepa(), QStringLiteral("\n"));
    QVERIFY(!logger.isConsoleOutput());
    bool isRange = false;
    QCOMPARE(config.getValueRange(QStringLiteral("Worker.Ports"), isRange, QMetaType::UInt, QString()),
             QVariantList({8000u, 8010u}));
    QVERIFY(isRange);
}

QTEST_GUILESS_MAIN(TstTWLoggerConfig)
#include "tst_twlogger_config.moc"
