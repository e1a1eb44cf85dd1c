#include "twtestsupport.h"

#include <QtCore/QDir>
#include <QtTest/QTest>

class TstTWToolConfig : public QObject
{
    Q_OBJECT

private slots:
    void config_data()
    {
        QTest::addColumn<QString>("arguments"); // after "config <the shipped example>"
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err"); // a part of standard error
        const auto row = [](const char* name, const char* args, int exit, const char* out, const char* err = "") {
            QTest::newRow(name) << QString::fromUtf8(args) << exit << QString::fromUtf8(out) << QString::fromUtf8(err);
        };
        row("str", "MainLog.LogFilePath", 0, "myapp.log\n");
        row("absent key gives the default", "Nope --default x", 0, "x\n");
        row("strlist", "Worker.RetryDelays --type strlist", 0, "100\n500\n2000\n");
        row("bad number warns", "MainLog.LogConsoleOutput --type uint --default 7", 0, "7\n",
            "\"false\" is not a valid unsigned integer value! Used value: 7");
        row("range", "Worker.Ports --type range:uint", 0, "range: yes\n8000\n8010\n");
        row("range that does not parse", "MainLog.LogAcceptedLevels --type range:int", 1, "range: no\n", "Value = \"WARNING\"");
        row("default that does not fit", "Nope --type int --default x", 2, "", "does not fit");
    }

    void config()
    {
        QFETCH(QString, arguments);
        const QStringList args = QStringList{QStringLiteral("config"), QStringLiteral(TW_EXAMPLE_INI)}
            + arguments.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        const auto result = TWTest::runProcess(QStringLiteral(TWTOOL_PATH), args);
        QTEST(result.exitCode, "exitCode");
        QTEST(QString::fromLocal8Bit(result.out), "out");
        QFETCH(QString, err);
        QVERIFY2(result.err.contains(err.toUtf8()), result.err.constData());
    }

    // The file turns the echo off and keeps warnings only; a separator of its
    // own makes each start begin a new number.
    void logWithConfig()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(QDir().mkdir(QStringLiteral("logs")));
        QVERIFY(dir.writeFile(QStringLiteral("t.ini"), "T.LogFilePath = logs/t.log\nT.LogLineEndSeparator = |\n"
                                                       "T.LogConsoleOutput = false\nT.LogAcceptedLevels = WARNING\n"));
        const auto run = [&dir](const char* arguments) { return TWTest::runTool(QLatin1String(arguments), dir.path()); };
        const auto kept = run("log --config t.ini --name T --level warning kept");
        QVERIFY(kept.exitCode == 0 && kept.out.isEmpty());
        QCOMPARE(run("log --config t.ini --name T dropped").exitCode, 0);
        QCOMPARE(QDir(QStringLiteral("logs")).entryList(QDir::Files), QStringList({"t_0000.log", "t_0001.log"}));
        QVERIFY(dir.readFile(QStringLiteral("logs/t_0000.log")).contains("WARNING  - kept"));
        QCOMPARE(dir.readFile(QStringLiteral("logs/t_0001.log")), QByteArray());
        const auto missing = run("log --config none.ini x");
        QVERIFY(missing.exitCode == 1 && missing.err.contains("Config file not found!"));
    }
};

QTEST_GUILESS_MAIN(TstTWToolConfig)
#include "tst_twtool_config.moc"
