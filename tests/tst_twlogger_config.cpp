#include "twtestsupport.h"

#include <twlogger.h>

#include <QtCore/QDir>
#include <QtTest/QTest>

using TW::TWLogger;
using TWTest::TempWorkDir;

namespace {

enum Setting { File, DateFormat, MaxSize, Separator, Echo, Levels };

// What readFromConfig may change, in the order of Setting.
QStringList settings(const TWLogger& logger)
{
    QStringList levels;
    for (int level : logger.acceptedLogLevelList())
        levels << QString::number(level);
    return {logger.file(), logger.dateFormat(), QString::number(logger.maxFileSize()), logger.lineEndSepa(),
            QString::number(logger.isConsoleOutput()), levels.join(u',')};
}

bool applyIni(const TempWorkDir& dir, TWLogger& logger, const QByteArray& ini)
{
    TW::TWConfig config;
    return dir.writeFile(QStringLiteral("log.ini"), ini) && config.load(QStringLiteral("log.ini"))
        && logger.readFromConfig(QStringLiteral("L"), &config);
}

} // namespace

class TstTWLoggerConfig : public QObject
{
    Q_OBJECT

private slots:
    void apply_data()
    {
        QTest::addColumn<QByteArray>("ini"); // null: no configuration handler at all
        QTest::addColumn<int>("setting");    // the one that changes, or -1
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("messages"); // "C " critical or "W " warning and the text
        const auto row = [](const char* name, const char* ini, int setting, const char* value, const char* messages = "") {
            QTest::newRow(name) << QByteArray(ini) << setting << QString::fromLatin1(value) << QString::fromLatin1(messages);
        };
        row("null handler", nullptr, -1, "", "C Config handler must be defined!");
        row("empty file", "", -1, "");
        row("CrLf", "L.LogLineEndSeparator = CrLf", Separator, "\r\n");
        row("Cr", "L.LogLineEndSeparator = Cr", Separator, "\r");
        row("lF", "L.LogLineEndSeparator = lF", Separator, "\n");
        row("other word keeps its case", "L.LogLineEndSeparator = Lf2", Separator, "Lf2");
        row("words, number, unknown", "L.LogAcceptedLevels = INFO, 7, bogus", Levels, "4,7", "W Unknown log level: 'BOGUS'!");
        row("any case, blanks, repeats", "L.LogAcceptedLevels = debug ,  Warning,critical, FATAL, 3", Levels, "0,1,2,3");
        row("present but empty", "L.LogAcceptedLevels =", Levels, "", "W Unknown log level: ''!");
        row("size", "L.LogMaxFileSize = 2048", MaxSize, "2048");
        row("size zero keeps", "L.LogMaxFileSize = 0", -1, "");
        row("size negative keeps", "L.LogMaxFileSize = -5", -1, "");
    }

    void apply()
    {
        QFETCH(QByteArray, ini);
        QFETCH(int, setting);
        QFETCH(QString, value);
        TempWorkDir dir;
        TWLogger logger;
        logger.setConsoleOutput(false); // the present value is the default of its key
        logger.addAcceptedLogLevel(QtDebugMsg); // a level list replaces, it does not merge
        QStringList expected = settings(logger);
        if (setting >= 0)
            expected[setting] = value;
        TWTest::MessageCapture capture;
        QCOMPARE(ini.isNull() ? logger.readFromConfig(QStringLiteral("L"), nullptr) : applyIni(dir, logger, ini), !ini.isNull());
        QCOMPARE(settings(logger), expected);
        QTEST(capture.lines().join(u'\n'), "messages");
    }

    void secondCallRotatesNothing()
    {
        TempWorkDir dir;
        QVERIFY(QDir().mkdir(QStringLiteral("logs")));
        const QByteArray ini = "L.LogFilePath = logs/app.log\nL.LogDateFormat = yyyy\nL.LogLineEndSeparator = LF\n"
                               "L.LogConsoleOutput = false\nL.LogAcceptedLevels = DEBUG\n";
        TWLogger logger;
        QVERIFY(applyIni(dir, logger, ini));
        logger.addAcceptedLogLevel(9); // rebuilt by the second call
        QVERIFY(applyIni(dir, logger, ini));
        const QString file = QDir::current().absoluteFilePath(QStringLiteral("logs/app.log"));
        QCOMPARE(settings(logger), QStringList({file, "yyyy", "10485760", "\n", "0", "0"}));
        QVERIFY(logger.writeLog(QStringLiteral("line"), QtDebugMsg, QString(), 1, QString()));
        // The new date format and separator each advanced the number once, at the first call only.
        QCOMPARE(QDir(QStringLiteral("logs")).entryList(QDir::Files), QStringList({"app_0000.log", "app_0001.log"}));
        QCOMPARE(dir.readFile(QStringLiteral("logs/app_0000.log")), QByteArray());
        const QByteArray written = dir.readFile(QStringLiteral("logs/app_0001.log"));
        QVERIFY(written.contains("DEBUG    - line ") && written.endsWith("'\n") && written.count('\n') == 1);
    }
};

QTEST_GUILESS_MAIN(TstTWLoggerConfig)
#include "tst_twlogger_config.moc"
