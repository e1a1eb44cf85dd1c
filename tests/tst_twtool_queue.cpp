#include "twtestsupport.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QRandomGenerator>
#include <QtCore/QSet>
#include <QtTest/QTest>

using TWTest::runTool;

namespace {

// The data of every record in the cache files of \a dir.
QStringList recordData(const QString& dir)
{
    QStringList data;
    for (const QFileInfo& file : QDir(dir).entryInfoList({QStringLiteral("*.cache")}, QDir::Files, QDir::Name)) {
        QFile f(file.filePath());
        if (f.open(QIODevice::ReadOnly))
            for (const QByteArray& line : f.readAll().split('\n'))
                data << QString::fromUtf8(line).section(QStringLiteral("|TWQ|"), 4);
    }
    return data;
}

struct KilledRun
{
    bool killed;
    int exitCode;
    QByteArray out;
};

// Runs twtool and kills it with SIGKILL after \a afterMs unless it ended before.
KilledRun runAndKill(const QStringList& arguments, int afterMs)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(QStringLiteral(TWTOOL_PATH), arguments);
    process.waitForStarted();
    const bool ended = process.waitForFinished(afterMs);
    if (!ended) {
        process.kill();
        process.waitForFinished();
    }
    return {!ended, ended ? process.exitCode() : -1, process.readAllStandardOutput()};
}

QStringList poppedData(const QByteArray& out)
{
    QStringList data;
    for (const QByteArray& line : out.split('\n'))
        if (line.startsWith("data: "))
            data << QString::fromUtf8(line.mid(6));
    return data;
}

} // namespace

class TstTWToolQueue : public QObject
{
    Q_OBJECT

private slots:
    // Pops keep the order of a push of twelve, whose files (of ten and two)
    // share their time stamps, while the rest of each file is written back;
    // --keep and count change nothing; nothing is left in the folders.
    void pushPopCount()
    {
        TWTest::TempWorkDir dir;
        const auto queue = [&dir](const QString& arguments) { return runTool(QStringLiteral("queue ") + arguments, dir.path()); };
        QStringList items;
        for (int i = 1; i <= 12; ++i)
            items << QStringLiteral("item-%1").arg(i);
        QCOMPARE(queue(QStringLiteral("push q --kind k ") + items.join(u' ')).out, QByteArray("queued 12 item(s)\n"));
        QCOMPARE(queue(QStringLiteral("push q last")).out, QByteArray("queued 1 item(s)\n"));
        items << QStringLiteral("last");
        const QStringList before = QDir(QStringLiteral("q")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
        QCOMPARE(queue(QStringLiteral("count q")).out, QByteArray("in cache files: 13 record(s) in 3 file(s)\nreachable by pop: 13 record(s)\n"));
        const QByteArray kept = queue(QStringLiteral("pop q --keep")).out;
        QVERIFY(kept.contains("kind: k\n") && kept.contains("data: item-1\n"));
        QCOMPARE(QDir(QStringLiteral("q")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), before);

        QStringList popped;
        for (int i = 0; i < 13; ++i) {
            const auto result = queue(QStringLiteral("pop q"));
            QCOMPARE(result.exitCode, 0);
            popped += poppedData(result.out);
        }
        QCOMPARE(popped, items);
        QVERIFY(TWTest::ended(queue(QStringLiteral("pop q")), 1, "no item is reachable"));
        QCOMPARE(QDir(QStringLiteral("q")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
        QCOMPARE(queue(QStringLiteral("push q a|TWQ|b")).exitCode, 2);
        QCOMPARE(dir.files(), QStringList()); // no log file in the current folder

        QVERIFY(TWTest::ended(queue(QStringLiteral("demo --items 300 --bound 10 --dir d")), 0,
                              "each item settled at most once: yes; every item settled or in the read-ahead batch: yes"));
        QCOMPARE(QDir(QStringLiteral("d")).entryList(QDir::Files), QStringList());
    }

    void blockedQueue_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QByteArray>("problem");
        QTest::addColumn<int>("pops");
        QTest::addColumn<QByteArray>("countAfter");
        QTest::newRow("garbage line") << QByteArray("{a}|TWQ|1|TWQ|k|TWQ|n|TWQ|one\ngarbage\n") << QByteArray("line 2 is no ") << 0
                                      << QByteArray("in cache files: 1 record(s) in 1 file(s)\nreachable by pop: 0 record(s)\n");
        QTest::newRow("empty id") << QByteArray("{a}|TWQ|1|TWQ|k|TWQ|n|TWQ|one\n |TWQ|2|TWQ|k|TWQ|n|TWQ|two")
                                  << QByteArray("is a record with an empty id") << 1
                                  << QByteArray("in cache files: 1 record(s) in 1 file(s)\nreachable by pop: 0 record(s)\n");
    }

    // count names the line that blocks the queue; pop stops there and loses nothing.
    void blockedQueue()
    {
        QFETCH(QByteArray, content);
        QFETCH(QByteArray, problem);
        QFETCH(int, pops);
        TWTest::TempWorkDir dir;
        QVERIFY(QDir().mkdir(QStringLiteral("q")) && dir.writeFile(QStringLiteral("q/20200101000000000_20200101000000000_000.cache"), content));
        QVERIFY(TWTest::ended(runTool(QStringLiteral("queue count q"), dir.path()), 1, problem));
        for (int i = 0; i < pops; ++i)
            QCOMPARE(runTool(QStringLiteral("queue pop q"), dir.path()).out.contains("data: one"), true);
        QVERIFY(TWTest::ended(runTool(QStringLiteral("queue pop q"), dir.path()), 1, problem.left(9)));
        QTEST(runTool(QStringLiteral("queue count q"), dir.path()).out, "countAfter");
    }

    // A folder that is a file, is missing or cannot be written: exit 1, no
    // "queued", and pop and count create nothing.
    void unusableFolder()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("file")));
        for (const char* arguments : {"push file x", "pop file", "count file", "pop missing", "count missing"}) {
            const auto result = runTool(QStringLiteral("queue ") + QLatin1String(arguments), dir.path());
            QVERIFY2(result.exitCode == 1 && result.out.isEmpty() && !result.err.isEmpty(), arguments);
        }
        QCOMPARE(dir.files(), QStringList({"file"}));
        QVERIFY(!QFileInfo::exists(dir.filePath(QStringLiteral("missing"))));

        // Root writes through permissions: a read-only file system then.
        TWTest::Tmpfs readOnly("size=64k", MS_RDONLY);
        QString locked = readOnly.path();
        if (!readOnly.mounted()) {
            locked = dir.filePath(QStringLiteral("locked"));
            QVERIFY(QDir().mkdir(locked) && QFile::setPermissions(locked, QFile::ReadOwner | QFile::ExeOwner));
        }
        const auto result = runTool(QStringLiteral("queue push %1 x").arg(locked), dir.path());
        QVERIFY(TWTest::ended(result, 1, "cannot write in") && result.out.isEmpty());
        QFile::setPermissions(locked, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    // Pushes of three items and pops, each killed at a random moment of its
    // run: every item whose push said "queued" was printed or is still queued.
    void killLoopLosesNothing()
    {
        TWTest::TempWorkDir dir;
        const QString q = dir.filePath(QStringLiteral("q"));
        // Kills fall anywhere in a run: up to a little more than one took
        // (twice for a pop, which also clears what killed pushes leave).
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(runTool(QStringLiteral("queue push %1 early-a early-b early-c").arg(q), dir.path()).exitCode, 0);
        const int pushSpan = int(timer.restart() * 6 / 5) + 2;
        const QStringList first = poppedData(runTool(QStringLiteral("queue pop %1").arg(q), dir.path()).out);
        const int popSpan = int(timer.elapsed() * 2) + 2;
        QSet<QString> acknowledged{QStringLiteral("early-a"), QStringLiteral("early-b"), QStringLiteral("early-c")};
        QSet<QString> popped(first.cbegin(), first.cend());
        QRandomGenerator rng(15);
        int kills = 0;
        for (int i = 0; i < 40; ++i) {
            const QStringList items{QStringLiteral("item-%1-a").arg(i), QStringLiteral("item-%1-b").arg(i), QStringLiteral("item-%1-c").arg(i)};
            const KilledRun push = runAndKill(QStringList{QStringLiteral("queue"), QStringLiteral("push"), q} + items, rng.bounded(pushSpan));
            kills += push.killed;
            if (push.exitCode == 0 && push.out == "queued 3 item(s)\n")
                acknowledged += QSet<QString>(items.cbegin(), items.cend());
            if (i % 2) {
                const KilledRun pop = runAndKill({QStringLiteral("queue"), QStringLiteral("pop"), q}, rng.bounded(popSpan));
                kills += pop.killed;
                for (const QString& data : poppedData(pop.out))
                    popped += data;
            }
        }
        qInfo("%d of 60 runs killed; %d items acknowledged, %d popped", kills, int(acknowledged.size()), int(popped.size()));
        QVERIFY(kills >= 20);
        // What the pops did not print is still in the files, whole.
        QVERIFY(TWTest::ended(runTool(QStringLiteral("queue count %1").arg(q), dir.path()), 0));
        const QStringList left = recordData(q);
        QCOMPARE(acknowledged - popped - QSet<QString>(left.cbegin(), left.cend()), QSet<QString>());
    }

    // On a full file system a push fails, says so, and leaves no record
    // behind, whole or cut; log reports a line that is lost or cut short (and
    // takes the cut part back out); a lone record can still be popped.
    void fullDisk()
    {
        TWTest::Tmpfs disk("size=64k");
        if (!disk.mounted())
            return QTest::qSkip("needs root to mount a small tmpfs", __FILE__, __LINE__);
        const QString q = disk.path() + QStringLiteral("/q");
        QStringList acknowledged;
        int failures = 0;
        for (int i = 0; i < 200 && failures < 5; ++i) {
            const QString item = QStringLiteral("item-%1-").arg(i, 3, 10, QLatin1Char('0')) + QStringLiteral("x").repeated(300);
            const auto push = runTool(QStringLiteral("queue push %1 %2").arg(q, item), disk.path());
            if (push.exitCode == 0 && push.out == "queued 1 item(s)\n") {
                acknowledged << item;
                continue;
            }
            ++failures;
            QVERIFY(TWTest::ended(push, 1, "nothing was queued") && push.out.isEmpty());
        }
        QCOMPARE(failures, 5);
        QCOMPARE(recordData(q), acknowledged);
        const QString logs = QStringLiteral("log --quiet --dir %1/logs ").arg(disk.path());
        QVERIFY(QDir().mkdir(disk.path() + QStringLiteral("/logs")));
        QVERIFY(TWTest::ended(runTool(logs + QStringLiteral("line"), disk.path()), 1, "1 of 1 lines could not be written"));

        // The pop frees the page that the first line takes; the long line then fills what is left of it.
        QVERIFY(runTool(QStringLiteral("queue pop %1").arg(q), disk.path()).out.contains(acknowledged.first().toUtf8()));
        const QString lines = QStringLiteral("first %1 last").arg(QStringLiteral("y").repeated(5000));
        QVERIFY(TWTest::ended(runTool(logs + lines, disk.path()), 1, "1 of 3 lines could not be written"));
        QFile log(disk.path() + QStringLiteral("/logs/twoutput_0000.log"));
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QByteArray content = log.readAll();
        QVERIFY(content.count("\r\n") == 2 && content.contains("INFO     - last ") && !content.contains('y'));
    }
};

QTEST_GUILESS_MAIN(TstTWToolQueue)
#include "tst_twtool_queue.moc"
