#include "twtestsupport.h"

#include <QtCore/QDir>
#include <QtTest/QTest>

using TWTest::runTool;

// Runs the built twtool as a child process, each time in a fresh folder.
class TstTWTool : public QObject
{
    Q_OBJECT

private slots:
    void usageAndHelp_data()
    {
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("stdoutHas");
        QTest::addColumn<QByteArray>("stderrHas");
        QTest::newRow("no command") << "" << 2 << QByteArray() << QByteArray("Usage: twtool");
        QTest::newRow("tool help") << "--help" << 0 << QByteArray("Commands:") << QByteArray();
        QTest::newRow("version") << "--version" << 0 << QByteArray("twtool 1.") << QByteArray();
        QTest::newRow("unknown command") << "frobnicate" << 2 << QByteArray() << QByteArray("unknown command 'frobnicate'");
        QTest::newRow("log help") << "log --help" << 0 << QByteArray("Usage: twtool log [options] MESSAGE...") << QByteArray();
        QTest::newRow("demo help") << "demo --help" << 0 << QByteArray("--out <DIR>") << QByteArray();
        QTest::newRow("unknown option") << "log --bogus x" << 2 << QByteArray() << QByteArray("twtool log: Unknown option 'bogus'.");
        QTest::newRow("no message") << "log" << 2 << QByteArray() << QByteArray("no message given");
        QTest::newRow("bad level") << "log --level loud x" << 2 << QByteArray() << QByteArray("unknown level 'loud'");
        QTest::newRow("number that is no level") << "log --level 101 x" << 2 << QByteArray() << QByteArray("or a number from 0 to 4");
        QTest::newRow("bad size") << "log --max-size big x" << 2 << QByteArray() << QByteArray("--max-size takes a number");
        QTest::newRow("size 0") << "log --max-size 0 x" << 2 << QByteArray() << QByteArray("a number from 1 to");
        QTest::newRow("no suffix") << "log --file noext x" << 2 << QByteArray() << QByteArray("--file needs a name and a suffix");
        QTest::newRow("no name") << "log --file .hidden x" << 2 << QByteArray() << QByteArray("--file needs a name and a suffix");
    }

    void usageAndHelp()
    {
        QFETCH(QString, arguments);
        QFETCH(QByteArray, stdoutHas);
        QFETCH(QByteArray, stderrHas);
        TWTest::TempWorkDir dir;
        const auto result = runTool(arguments, dir.path());
        QTEST(result.exitCode, "exitCode");
        QVERIFY2(result.out.contains(stdoutHas), result.out.constData());
        QVERIFY2(result.err.contains(stderrHas), result.err.constData());
        QCOMPARE(dir.files(), QStringList()); // usage errors write nothing
    }

    void logWritesNumberedFiles()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(QDir().mkdir(QStringLiteral("logs")));
        auto result = runTool(QStringLiteral("log --dir logs --file app.log --max-size 1000 first second third"), dir.path());
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray("first\nsecond\nthird\n"));
        // Lines of about 640 bytes against a limit of 1000: two lines in the first file.
        QCOMPARE(QDir(QStringLiteral("logs")).entryList(QDir::Files), QStringList({"app_0000.log", "app_0001.log"}));
        QVERIFY(dir.readFile(QStringLiteral("logs/app_0001.log")).contains("INFO     - third "));

        // A second run, in that folder, continues the newest file quietly at the level asked.
        result = runTool(QStringLiteral("log --quiet --level debug --file app.log details"), dir.filePath(QStringLiteral("logs")));
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray());
        const QByteArray second = dir.readFile(QStringLiteral("logs/app_0001.log"));
        QVERIFY(second.count("\r\n") == 2 && second.contains("DEBUG    - details "));

        result = runTool(QStringLiteral("log --quiet --dir missing lost"), dir.path());
        QVERIFY(result.exitCode == 1 && result.err.contains("1 of 1 lines could not be written"));
    }

    void demoRunsTheTour()
    {
        TWTest::TempWorkDir dir;
        const auto result = runTool(QStringLiteral("demo --out tour"), dir.path());
        QVERIFY2(result.exitCode == 0, result.out.constData());
        QVERIFY(result.out.contains("Tour done"));
        QVERIFY(!result.out.contains("!!"));
        QVERIFY(QFile::exists(QStringLiteral("tour/objects/twoutput_0000.log")));
        QCOMPARE(dir.files(), QStringList()); // the logs stay in the tour's folder
        QCOMPARE(QDir(QStringLiteral("tour")).entryList({QStringLiteral("twoutput*")}, QDir::Files), QStringList()); // nothing strays
    }
};

QTEST_GUILESS_MAIN(TstTWTool)
#include "tst_twtool.moc"
