#include "twtestsupport.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QRandomGenerator>
#include <QtCore/QSet>
#include <QtTest/QTest>

#ifdef Q_OS_LINUX
#  include <sys/mount.h>
#  include <unistd.h>
#endif

using TWTest::runTool;

namespace {

/*! A small tmpfs on a temporary folder while it lives; mounted only when the test runs as root on Linux. */
class TmpfsMount
{
public:
    explicit TmpfsMount(const char* options, bool readOnly = false)
    {
#ifdef Q_OS_LINUX
        _mounted = geteuid() == 0
            && ::mount("tmpfs", QFile::encodeName(_dir.path()).constData(), "tmpfs", readOnly ? MS_RDONLY : 0, options) == 0;
#else
        Q_UNUSED(options)
        Q_UNUSED(readOnly)
#endif
    }
    ~TmpfsMount()
    {
#ifdef Q_OS_LINUX
        if (_mounted)
            ::umount(QFile::encodeName(_dir.path()).constData());
#endif
    }
    bool mounted() const { return _mounted; }
    QString path() const { return _dir.path(); }

    /*! Fills what is left of the file system with one file. */
    void fill() const
    {
        QFile filler(_dir.filePath(QStringLiteral("filler")));
        if (filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
            while (filler.write(QByteArray(4096, 'f')) == 4096) {}
    }

private:
    QTemporaryDir _dir;
    bool _mounted = false;
};

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
        const auto empty = queue(QStringLiteral("pop q"));
        QVERIFY(empty.exitCode == 1 && empty.err.contains("no item is reachable"));
        QCOMPARE(QDir(QStringLiteral("q")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
        QCOMPARE(queue(QStringLiteral("push q a|TWQ|b")).exitCode, 2);
        QCOMPARE(dir.files(), QStringList()); // no log file in the current folder

        const auto demo = queue(QStringLiteral("demo --items 300 --bound 10 --dir d"));
        QVERIFY2(demo.exitCode == 0, demo.out.constData());
        QVERIFY(demo.out.contains("each item settled at most once: yes; every item settled or in the read-ahead batch: yes"));
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
        const auto count = runTool(QStringLiteral("queue count q"), dir.path());
        QVERIFY2(count.exitCode == 1 && count.err.contains(problem), count.err.constData());
        for (int i = 0; i < pops; ++i)
            QCOMPARE(runTool(QStringLiteral("queue pop q"), dir.path()).out.contains("data: one"), true);
        const auto blocked = runTool(QStringLiteral("queue pop q"), dir.path());
        QVERIFY2(blocked.exitCode == 1 && blocked.err.contains(problem.left(9)), blocked.err.constData());
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
        TmpfsMount readOnly("size=64k", true);
        QString locked = readOnly.path();
        if (!readOnly.mounted()) {
            locked = dir.filePath(QStringLiteral("locked"));
            QVERIFY(QDir().mkdir(locked) && QFile::setPermissions(locked, QFile::ReadOwner | QFile::ExeOwner));
        }
        const auto result = runTool(QStringLiteral("queue push %1 x").arg(locked), dir.path());
        QVERIFY2(result.exitCode == 1 && result.out.isEmpty() && result.err.contains("cannot write in"), result.err.constData());
        QFile::setPermissions(locked, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    // Pushes of three items and pops, each killed at a random moment of its
    // run: every item whose push said "queued" was printed or is still queued.
    void killLoopLosesNothing()
    {
        TWTest::TempWorkDir dir;
        const QString q = dir.filePath(QStringLiteral("q"));
        // Kills fall anywhere in a run: up to a little more than the quickest
        // push or pop takes (a pop rewrites a file of three).
        QSet<QString> acknowledged;
        QSet<QString> popped;
        qint64 quickest[2] = {1000000, 1000000};
        for (int i = 0; i < 4; ++i) {
            QElapsedTimer timer;
            timer.start();
            const auto result = runTool(i < 3 ? QStringLiteral("queue push %1 early-%2-a early-%2-b early-%2-c").arg(q).arg(i)
                                              : QStringLiteral("queue pop %1").arg(q), dir.path());
            QCOMPARE(result.exitCode, 0);
            quickest[i / 3] = std::min(quickest[i / 3], timer.elapsed());
            for (const char* letter : {"a", "b", "c"})
                acknowledged += i < 3 ? QStringLiteral("early-%1-%2").arg(i).arg(QLatin1String(letter)) : QString();
            for (const QString& data : poppedData(result.out))
                popped += data;
        }
        acknowledged.remove(QString());
        const int spans[2] = {int(quickest[0] * 6 / 5) + 2, int(quickest[1] * 2) + 2}; // pops also clear what killed pushes left
        QRandomGenerator rng(15);
        int kills = 0;
        for (int i = 0; i < 40; ++i) {
            const QStringList items{QStringLiteral("item-%1-a").arg(i), QStringLiteral("item-%1-b").arg(i), QStringLiteral("item-%1-c").arg(i)};
            const KilledRun push = runAndKill(QStringList{QStringLiteral("queue"), QStringLiteral("push"), q} + items, rng.bounded(spans[0]));
            kills += push.killed;
            if (push.exitCode == 0 && push.out == "queued 3 item(s)\n")
                acknowledged += QSet<QString>(items.cbegin(), items.cend());
            if (i % 2) {
                const KilledRun pop = runAndKill({QStringLiteral("queue"), QStringLiteral("pop"), q}, rng.bounded(spans[1]));
                kills += pop.killed;
                for (const QString& data : poppedData(pop.out))
                    popped += data;
            }
        }
        qInfo("%d of 60 runs killed; %d items acknowledged, %d popped", kills, int(acknowledged.size()), int(popped.size()));
        QVERIFY(kills >= 20);
        // What the pops did not print is still in the files, whole.
        const auto count = runTool(QStringLiteral("queue count %1").arg(q), dir.path());
        QVERIFY2(count.exitCode == 0, count.err.constData());
        const QStringList left = recordData(q);
        QCOMPARE(acknowledged - popped - QSet<QString>(left.cbegin(), left.cend()), QSet<QString>());
    }

    // On a full file system a push fails, says so, and leaves no record
    // behind, whole or cut; a lone record can still be popped.
    void fullDisk()
    {
        TmpfsMount disk("size=64k");
        if (!disk.mounted())
            return QTest::qSkip("needs root to mount a small tmpfs", __FILE__, __LINE__);
        const QString q = disk.path() + QStringLiteral("/q");
        const QString text = QStringLiteral("x").repeated(300);
        QStringList acknowledged;
        int failures = 0;
        for (int i = 0; i < 200 && failures < 5; ++i) {
            const QString item = QStringLiteral("item-%1-").arg(i, 3, 10, QLatin1Char('0')) + text;
            const auto push = runTool(QStringLiteral("queue push %1 %2").arg(q, item), disk.path());
            if (push.exitCode == 0 && push.out == "queued 1 item(s)\n") {
                acknowledged << item;
                continue;
            }
            ++failures;
            QVERIFY2(push.exitCode == 1 && push.out.isEmpty() && push.err.contains("nothing was queued"), push.err.constData());
        }
        QCOMPARE(failures, 5);
        QCOMPARE(recordData(q), acknowledged);
        const auto log = runTool(QStringLiteral("log --quiet --dir %1 line").arg(disk.path()), disk.path());
        QVERIFY2(log.exitCode == 1 && log.err.contains("1 of 1 lines could not be written"), log.err.constData());
        const auto pop = runTool(QStringLiteral("queue pop %1").arg(q), disk.path());
        QVERIFY2(pop.exitCode == 0 && pop.out.contains(acknowledged.first().toUtf8()), pop.err.constData());
    }

    // A line cut short by a full disk is reported and taken back out.
    void logLineCutShort()
    {
        TmpfsMount disk("size=64k");
        if (!disk.mounted())
            return QTest::qSkip("needs root to mount a small tmpfs", __FILE__, __LINE__);
        QCOMPARE(runTool(QStringLiteral("log --quiet --dir %1 first").arg(disk.path()), disk.path()).exitCode, 0);
        const QString log = disk.path() + QStringLiteral("/twoutput_0000.log");
        const qint64 size = QFileInfo(log).size();
        disk.fill();
        const auto result = runTool(QStringLiteral("log --quiet --dir %1 %2 last").arg(disk.path(), QStringLiteral("y").repeated(5000)), disk.path());
        QVERIFY2(result.exitCode == 1 && result.err.contains("1 of 2 lines could not be written"), result.err.constData());
        QFile file(log);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray content = file.readAll();
        QVERIFY(content.size() == 2 * size && !content.contains('y') && content.count("\r\n") == 2);
    }
};

QTEST_GUILESS_MAIN(TstTWToolQueue)
#include "tst_twtool_queue.moc"
