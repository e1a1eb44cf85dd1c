#include "twtestsupport.h"

#include <QtCore/QDir>
#include <QtTest/QTest>

using TWTest::TempWorkDir;

class TstTWToolConfig : public QObject
{
    Q_OBJECT

private slots:
    void config_data();
    void config();
    void logWithConfig();
};

void TstTWToolConfig::config_data()
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
    row("number", "MainLog.LogMaxFileSize --type longlong", 0, "1048576\n");
    row("bad number warns", "MainLog.LogConsoleOutput --type uint --default 7", 0, "7\n",
        "\"false\" is not a valid unsigned integer value! Used value: 7");
    row("range", "Worker.Ports --type range:uint", 0, "range: yes\n8000\n8010\n");
    row("range that does not parse", "MainLog.LogAcceptedLevels --type range:int", 1, "range: no\n",
        "Value = \"WARNING\" is not matched with type = 2 Key: \"MainLog.LogAcceptedLevels\"");
    row("default that does not fit", "Nope --type int --default x", 2, "", "does not fit");
    row("no key", "", 2, "", "takes a FILE and a KEY");
}

void TstTWToolConfig::config()
{
    QFETCH(QString, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, out);
    QFETCH(QString, err);

    const QStringList args = QStringList{QStringLiteral("config"), QStringLiteral(TW_EXAMPLE_INI)}
        + arguments.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    const auto result = TWTest::runProcess(QStringLiteral(TWTOOL_PATH), args);
    QCOMPARE(result.exitCode, exitCode);
    QCOMPARE(QString::fromLocal8Bit(result.out), out);
    QVERIFY2(result.err.contains(err.toUtf8()), result.err.constData());
}

void TstTWToolConfig::logWithConfig()
{
    TempWorkDir dir;
    QVERIFY(QDir().mkdir(QStringLiteral("logs")));
    QVERIFY(dir.writeFile(QStringLiteral("t.ini"), "T.LogFilePath = logs/t.log\nT.LogLineEndSeparator = |\n"
                                                   "T.LogConsoleOutput = false\nT.LogAcceptedLevels = WARNING\n"));
    const auto run = [&dir](const QString& more) {
        return TWTest::runProcess(QStringLiteral(TWTOOL_PATH), QStringLiteral("log %1").arg(more).split(u' '), dir.path());
    };
    const auto kept = run(QStringLiteral("--config t.ini --name T --level warning kept"));
    QCOMPARE(kept.exitCode, 0);
    QCOMPARE(kept.out, QByteArray()); // the file turned the echo off
    QCOMPARE(run(QStringLiteral("--config t.ini --name T dropped")).exitCode, 0);

    // Each start with a separator of its own begins a new number; the info line is filtered out.
    QCOMPARE(QDir(QStringLiteral("logs")).entryList(QDir::Files),
             QStringList({QStringLiteral("t_0000.log"), QStringLiteral("t_0001.log")}));
    const QByteArray first = dir.readFile(QStringLiteral("logs/t_0000.log"));
    QVERIFY(first.contains("WARNING  - kept") && first.endsWith('|'));
    QCOMPARE(dir.readFile(QStringLiteral("logs/t_0001.log")), QByteArray());

    const auto missing = run(QStringLiteral("--config none.ini x"));
    QCOMPARE(missing.exitCode, 1);
    QVERIFY(missing.err.contains("Config file not found!"));
    QCOMPARE(run(QStringLiteral("--name T x")).exitCode, 2);
}

QTEST_GUILESS_MAIN(TstTWToolConfig)
#include "tst_twtool_config.moc"
