#include "twtestsupport.h"

#include <QtCore/QDir>
#include <QtTest/QTest>

using TWTest::TempWorkDir;

namespace {

const QByteArray appIni = "name = Ada\nlist = a, b ,c\nflag = yes\nnum = 42\nbad = abc\nfolder = sub/dir\n"
                          "ports = 8000 - 8010\nodd = -1, -2\n";

TWTest::ProcessResult twtool(const TempWorkDir& dir, const QStringList& arguments)
{
    return TWTest::runProcess(QStringLiteral(TWTOOL_PATH), arguments, dir.path());
}

} // namespace

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
    QTest::addColumn<QStringList>("arguments"); // after "config app.ini"
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("out");          // "@" stands for the working folder
    QTest::addColumn<QString>("err");          // a part of standard error

    const auto row = [](const char* name, const char* args, int exit, const char* out, const char* err = "") {
        QTest::newRow(name) << QString::fromUtf8(args).split(u' ', Qt::SkipEmptyParts) << exit
                            << QString::fromUtf8(out) << QString::fromUtf8(err);
    };
    row("str", "name", 0, "Ada\n");
    row("absent key gives the default", "missing --default x", 0, "x\n");
    row("strlist", "list --type strlist", 0, "a\nb\nc\n");
    row("bool", "flag --type bool", 0, "true\n");
    row("int", "num --type int", 0, "42\n");
    row("bad int warns and gives the default", "bad --type int --default 7", 0, "7\n",
        "\"abc\" is not a valid integer value! Used value: 7");
    row("folder", "folder --type folder", 0, "@/sub/dir/\n");
    row("range", "ports --type range:uint", 0, "range: yes\n8000\n8010\n");
    row("list keeps signs", "odd --type range:longlong", 0, "range: no\n-1\n-2\n");
    row("range default", "missing --type range:str --default a-b", 0, "range: yes\na\nb\n");
    row("range that does not parse", "bad --type range:int", 1, "range: no\n",
        "Value = \"abc\" is not matched with type = 2 Key: \"bad\"");
    row("unknown type", "name --type float", 2, "", "unknown type 'float'");
    row("default that does not fit", "num --type uint --default -1", 2, "", "does not fit");
    row("no key", "", 2, "", "takes a FILE and a KEY");
}

void TstTWToolConfig::config()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, out);
    QFETCH(QString, err);

    TempWorkDir dir;
    QVERIFY(dir.writeFile(QStringLiteral("app.ini"), appIni));
    const auto result = twtool(dir, QStringList{QStringLiteral("config"), QStringLiteral("app.ini")} + arguments);
    QVERIFY(result.started);
    QCOMPARE(result.exitCode, exitCode);
    QCOMPARE(QString::fromLocal8Bit(result.out), out.replace(QLatin1Char('@'), QDir::currentPath()));
    QVERIFY2(result.err.contains(err.toUtf8()), result.err.constData());
}

void TstTWToolConfig::logWithConfig()
{
    TempWorkDir dir;
    QVERIFY(QDir().mkdir(QStringLiteral("logs")));
    QVERIFY(dir.writeFile(QStringLiteral("t.ini"), "T.LogFilePath = logs/t.log\nT.LogLineEndSeparator = |\n"
                                                   "T.LogConsoleOutput = false\nT.LogAcceptedLevels = WARNING\n"));
    const QStringList base{QStringLiteral("log"), QStringLiteral("--config"), QStringLiteral("t.ini"),
                           QStringLiteral("--name"), QStringLiteral("T")};

    auto result = twtool(dir, base + QStringList{QStringLiteral("--level"), QStringLiteral("warning"), QStringLiteral("kept")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.out, QByteArray()); // the file turned the echo off
    result = twtool(dir, base + QStringList{QStringLiteral("dropped")});
    QCOMPARE(result.exitCode, 0);

    // Each start with a separator of its own begins a new number; the info line is filtered out.
    QCOMPARE(QDir(QStringLiteral("logs")).entryList(QDir::Files),
             QStringList({QStringLiteral("t_0000.log"), QStringLiteral("t_0001.log")}));
    const QByteArray first = dir.readFile(QStringLiteral("logs/t_0000.log"));
    QVERIFY(first.contains("WARNING  - kept"));
    QVERIFY(first.endsWith('|'));
    QCOMPARE(dir.readFile(QStringLiteral("logs/t_0001.log")), QByteArray());

    result = twtool(dir, {QStringLiteral("log"), QStringLiteral("--config"), QStringLiteral("none.ini"), QStringLiteral("x")});
    QCOMPARE(result.exitCode, 1);
    QVERIFY(result.err.contains("Config file not found!"));
    QCOMPARE(twtool(dir, {QStringLiteral("log"), QStringLiteral("--name"), QStringLiteral("T"), QStringLiteral("x")}).exitCode, 2);
}

QTEST_GUILESS_MAIN(TstTWToolConfig)
#include "tst_twtool_config.moc"
