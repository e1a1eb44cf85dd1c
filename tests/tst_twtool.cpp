#include "twtestsupport.h"

#include <QtCore/QDir>
#include <QtTest/QTest>

// Runs the built twtool as a child process.
class TstTWTool : public QObject
{
    Q_OBJECT

    TWTest::ProcessResult tool(const QStringList& arguments, const QString& cwd = QString())
    {
        return TWTest::runProcess(QStringLiteral(TWTOOL_PATH), arguments, cwd);
    }

private slots:
    void usageAndHelp_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("stdoutHas");
        QTest::addColumn<QByteArray>("stderrHas");
        QTest::newRow("no command") << QStringList() << 2 << QByteArray() << QByteArray("Usage: twtool");
        QTest::newRow("tool help") << QStringList{"--help"} << 0 << QByteArray("Commands:") << QByteArray();
        QTest::newRow("version") << QStringList{"--version"} << 0 << QByteArray("twtool 1.") << QByteArray();
        QTest::newRow("unknown command") << QStringList{"frobnicate"} << 2 << QByteArray() << QByteArray("unknown command 'frobnicate'");
        QTest::newRow("log help") << QStringList{"log", "--help"} << 0 << QByteArray("Usage: twtool log [options] MESSAGE...") << QByteArray();
        QTest::newRow("demo help") << QStringList{"demo", "--help"} << 0 << QByteArray("--out <DIR>") << QByteArray();
        QTest::newRow("unknown option") << QStringList{"log", "--bogus", "x"} << 2 << QByteArray() << QByteArray("twtool log: Unknown option 'bogus'.");
        QTest::newRow("no message") << QStringList{"log"} << 2 << QByteArray() << QByteArray("no message given");
        QTest::newRow("bad level") << QStringList{"log", "--level", "loud", "x"} << 2 << QByteArray() << QByteArray("unknown level 'loud'");
        QTest::newRow("bad size") << QStringList{"log", "--max-size", "big", "x"} << 2 << QByteArray() << QByteArray("--max-size takes a number");
    }

    void usageAndHelp()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, stdoutHas);
        QFETCH(QByteArray, stderrHas);
        TWTest::TempWorkDir dir;
        const auto result = tool(arguments, dir.path());
        QVERIFY(result.started);
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(result.out.contains(stdoutHas), result.out.constData());
        QVERIFY2(result.err.contains(stderrHas), result.err.constData());
        QCOMPARE(dir.files(), QStringList()); // usage errors write nothing
    }

    void logWritesNumberedFiles()
    {
        TWTest::TempWorkDir dir;
        auto result = tool({QStringLiteral("log"), QStringLiteral("--dir"), dir.path(), QStringLiteral("--file"),
                            QStringLiteral("app.log"), QStringLiteral("--max-size"), QStringLiteral("1000"),
                            QStringLiteral("first"), QStringLiteral("second"), QStringLiteral("third")});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray("first\nsecond\nthird\n"));
        // Lines of about 640 bytes against a limit of 1000: two lines in the first file.
        QCOMPARE(dir.files(), (QStringList{QStringLiteral("app_0000.log"), QStringLiteral("app_0001.log")}));
        QVERIFY(dir.readFile(QStringLiteral("app_0001.log")).contains("INFO     - third "));

        // A second run, in the folder itself, continues the newest file at the level asked.
        result = tool(QStringLiteral("log --quiet --level debug --file app.log details").split(u' '), dir.path());
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray());
        const QByteArray second = dir.readFile(QStringLiteral("app_0001.log"));
        QVERIFY(second.count("\r\n") == 2 && second.contains("DEBUG    - details "));

        result = tool({QStringLiteral("log"), QStringLiteral("--quiet"), QStringLiteral("--dir"),
                       dir.filePath(QStringLiteral("missing")), QStringLiteral("lost")});
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.out.startsWith("Couldn't open log file:"));
        QVERIFY(result.err.contains("1 of 1 lines could not be written"));
    }

    void queueCommands()
    {
        TWTest::TempWorkDir dir;
        const QString q = dir.filePath(QStringLiteral("q"));
        const auto queue = [&](QStringList args) {
            args.prepend(QStringLiteral("queue"));
            return tool(args);
        };
        auto result = queue({"push", q, "one", "two", "--kind", "k"});
        QCOMPARE(result.out, QByteArray("queued 2 item(s)\n"));
        result = queue({"count", q});
        QCOMPARE(result.out, QByteArray("in cache files: 2 record(s) in 1 file(s)\nin memory reach: 2 record(s)\n"));
        const QList<QPair<QStringList, QByteArray>> pops = {
            {{"pop", q, "--keep"}, "data: one"}, {{"pop", q}, "data: one"}, {{"pop", q}, "data: two"}};
        for (const auto& [args, expected] : pops) {
            result = queue(args);
            QCOMPARE(result.exitCode, 0);
            QVERIFY2(result.out.contains(expected) && result.out.contains("kind: k\n"), result.out.constData());
        }
        result = queue({"pop", q});
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.err.contains("no item is reachable"));
        QCOMPARE(queue({"push", q, "a|TWQ|b"}).exitCode, 2);

        result = queue({"demo", "--items", "300", "--bound", "10", "--dir", dir.filePath(QStringLiteral("d"))});
        QVERIFY2(result.exitCode == 0, result.out.constData());
        QVERIFY(result.out.contains("each item settled at most once: yes; every item settled or in the read-ahead batch: yes"));
    }

    void demoRunsTheTour()
    {
        TWTest::TempWorkDir dir;
        const QString out = dir.filePath(QStringLiteral("tour"));
        const auto result = tool({QStringLiteral("demo"), QStringLiteral("--out"), out}, dir.path());
        QVERIFY2(result.exitCode == 0, result.out.constData());
        QVERIFY(result.out.contains("Tour done"));
        QVERIFY(!result.out.contains("!!"));
        QVERIFY(QFile::exists(out + QStringLiteral("/objects/twoutput_0000.log")));
        QCOMPARE(QDir(out).entryList({QStringLiteral("twoutput*")}, QDir::Files), QStringList()); // nothing strays
    }
};

QTEST_GUILESS_MAIN(TstTWTool)
#include "tst_twtool.moc"
