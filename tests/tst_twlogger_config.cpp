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

QString levelsText(const TWLogger& logger)
{
    QStringList out;
    for (int level : logger.acceptedLogLevelList())
        out << QString::number(level);
    return out.join(QLatin1Char(','));
}

// What readFromConfig may change, in one comparable text.
QString settings(const TWLogger& logger)
{
    return QStringList({logger.file(), logger.dateFormat(), QString::number(logger.maxFileSize()), logger.lineEndSepa(),
                        QString::number(logger.isConsoleOutput()), levelsText(logger)})
        .join(QLatin1Char('|'));
}

// Loads \a ini from "log.ini" in the current folder and applies it as the logger "L".
bool applyIni(TWLogger& logger, const QByteArray& ini)
{
    QFile file(QStringLiteral("log.ini"));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(ini) != ini.size())
        return false;
    file.close();
    TWConfig config;
    return config.load(QStringLiteral("log.ini")) && logger.readFromConfig(QStringLiteral("L"), &config);
}

} // namespace

class TstTWLoggerConfig : public QObject
{
    Q_OBJECT

private slots:
    void nullOrEmptyChangesNothing();
    void apply_data();
    void apply();
    void secondCallRotatesNothing();
};

void TstTWLoggerConfig::nullOrEmptyChangesNothing()
{
    TempWorkDir dir;
    QVERIFY(dir.writeFile(QStringLiteral("log.ini")));
    TWConfig config;
    QVERIFY(config.load(QStringLiteral("log.ini")));
    for (bool echo : {false, true}) { // the console default is the present value
        TWLogger logger;
        logger.setConsoleOutput(echo);
        const QString before = settings(logger);
        MessageCapture capture;
        QVERIFY(!logger.readFromConfig(QStringLiteral("L"), nullptr));
        QVERIFY(logger.readFromConfig(QStringLiteral("L"), &config));
        QCOMPARE(settings(logger), before);
        QCOMPARE(capture.texts(), QStringList{QStringLiteral("Config handler must be defined!")});
        QCOMPARE(capture.messages()[0].type, QtCriticalMsg);
    }
    QCOMPARE(dir.files(), QStringList{QStringLiteral("log.ini")}); // nothing opened
}

void TstTWLoggerConfig::apply_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("expected");     // separator, level list or size, by the key
    QTest::addColumn<QStringList>("warnings");
    QTest::addColumn<bool>("opensFile");       // a new separator starts a file at once

    const auto row = [](const char* name, const char* line, const char* expected, const QStringList& warnings = {},
                        bool opensFile = false) {
        QTest::newRow(name) << QByteArray(line) << QString::fromUtf8(expected) << warnings << opensFile;
    };
    const auto unknown = [](const char* word) { return QStringLiteral("Unknown log level: '%1'!").arg(QLatin1String(word)); };
    row("crlf", "LogLineEndSeparator = crlf", "\r\n");
    row("CrLf", "LogLineEndSeparator = CrLf", "\r\n");
    row("Cr", "LogLineEndSeparator = Cr", "\r", {}, true);
    row("lF", "LogLineEndSeparator = lF", "\n", {}, true);
    row("pipe as it stands", "LogLineEndSeparator = |", "|", {}, true);
    row("other word keeps its case", "LogLineEndSeparator = Lf2", "Lf2", {}, true);
    row("words, number, unknown", "LogAcceptedLevels = INFO, 7, bogus", "4,7", {unknown("BOGUS")});
    row("any case and blanks", "LogAcceptedLevels = debug ,  Warning,FATAL", "0,1,3");
    row("first mention kept", "LogAcceptedLevels = 3, 3, fatal, critical, -1", "3,2,-1");
    row("only unknown words", "LogAcceptedLevels = verbose, trace", "", {unknown("VERBOSE"), unknown("TRACE")});
    row("present but empty", "LogAcceptedLevels =", "", {unknown("")});
    row("size", "LogMaxFileSize = 2048", "2048");
    row("size zero keeps", "LogMaxFileSize = 0", "10485760");
    row("size negative keeps", "LogMaxFileSize = -5", "10485760");
    row("size no number keeps", "LogMaxFileSize = big", "10485760",
        {QStringLiteral("\"big\" is not a valid long long value! Used value: -1")});
}

void TstTWLoggerConfig::apply()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, expected);
    QFETCH(QStringList, warnings);
    QFETCH(bool, opensFile);

    TempWorkDir dir;
    TWLogger logger;
    logger.addAcceptedLogLevel(QtDebugMsg); // a level list replaces, it does not merge
    MessageCapture capture;
    QVERIFY(applyIni(logger, "L." + line + '\n'));
    const QString got = line.contains("Separator") ? logger.lineEndSepa()
        : line.contains("Levels")                  ? levelsText(logger)
                                                   : QString::number(logger.maxFileSize());
    QCOMPARE(got, expected);
    QCOMPARE(capture.texts(), warnings);
    for (const auto& m : capture.messages())
        QCOMPARE(m.type, QtWarningMsg);
    QCOMPARE(dir.files({QStringLiteral("*.log")}).size(), opensFile ? 1 : 0);
}

void TstTWLoggerConfig::secondCallRotatesNothing()
{
    TempWorkDir dir;
    QVERIFY(QDir().mkdir(QStringLiteral("logs")));
    const QByteArray ini = "L.LogFilePath = logs/app.log\nL.LogDateFormat = yyyy\nL.LogLineEndSeparator = LF\n"
                           "L.LogConsoleOutput = false\nL.LogAcceptedLevels = DEBUG\n";
    const QStringList files{QStringLiteral("app_0000.log"), QStringLiteral("app_0001.log")};
    TWLogger logger;
    for (int call = 0; call < 2; ++call) {
        logger.addAcceptedLogLevel(9); // rebuilt by each call
        QVERIFY(applyIni(logger, ini));
        QCOMPARE(levelsText(logger), QStringLiteral("0"));
        // The new date format and separator each advanced the number once, at the first call only.
        QCOMPARE(QDir(QStringLiteral("logs")).entryList(QDir::Files), files);
        QVERIFY(logger.writeLog(QStringLiteral("call %1").arg(call), QtDebugMsg, QString(), 1, QString()));
    }
    QCOMPARE(logger.file(), QDir::current().absoluteFilePath(QStringLiteral("logs/app.log")));
    QVERIFY(!logger.isConsoleOutput());
    QCOMPARE(dir.readFile(QStringLiteral("logs/app_0000.log")), QByteArray());
    const QList<QByteArray> lines = dir.readFile(QStringLiteral("logs/app_0001.log")).split('\n');
    QCOMPARE(lines.size(), 3); // two lines, each ended by LF
    QVERIFY(lines[0].contains("DEBUG    - call 0") && lines[1].contains("DEBUG    - call 1"));
}

QTEST_GUILESS_MAIN(TstTWLoggerConfig)
#include "tst_twlogger_config.moc"
