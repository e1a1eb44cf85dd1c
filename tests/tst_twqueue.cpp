#include <twqueue.h>

#include "twtestsupport.h"

#include <QtCore/QDir>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>
#include <QtCore/QTextStream>
#include <QtCore/QThread>
#include <QtTest/QTest>

#include <atomic>
#include <memory>
#include <vector>

#ifdef Q_OS_UNIX
#  include <unistd.h>
#endif

using TW::TWQueue;
using TWTest::TextItem;

namespace {

const QString Sep = QStringLiteral("|TWQ|");

std::unique_ptr<TWQueue> makeQueue(const QString& dir, unsigned int bound, TWTest::RecordingLogger* logger)
{
    auto queue = std::make_unique<TWQueue>(QStringLiteral("tst"), bound, dir);
    queue->setLogger(logger);
    return queue;
}

bool push(TWQueue& queue, const QString& text)
{
    TextItem item(text);
    return queue.enqueueItem(&item, QStringLiteral("kind"), QStringLiteral("name"));
}

void pushAll(TWQueue& queue, int from, int to)
{
    for (int i = from; i <= to; ++i)
        QVERIFY(push(queue, QString::number(i)));
}

// Takes and removes every reachable record; their texts in delivery order.
QStringList drain(TWQueue& queue)
{
    QStringList out;
    QString data;
    for (QString id = queue.dequeueItem(data, nullptr, nullptr, nullptr); !id.isEmpty();
         id = queue.dequeueItem(data, nullptr, nullptr, nullptr)) {
        out << data;
        queue.updateItem(id, true);
    }
    return out;
}

QStringList numbers(int from, int to)
{
    QStringList out;
    for (int i = from; i <= to; ++i)
        out << QString::number(i);
    return out;
}

QStringList cacheFiles(const TWTest::TempWorkDir& dir)
{
    return dir.files({QStringLiteral("*.cache")});
}

// The data field of every line of every cache file, in name order.
QStringList cachedData(const TWTest::TempWorkDir& dir)
{
    QStringList out;
    for (const QString& name : cacheFiles(dir))
        for (const QString& line : QString::fromUtf8(dir.readFile(name)).split(QLatin1Char('\n')))
            out << line.section(Sep, 4);
    return out;
}

QByteArray line(const QString& id, const QString& stamp, const QString& kind, const QString& name, const QString& data)
{
    return QStringList{id, stamp, kind, name, data}.join(Sep).toUtf8();
}

} // namespace

class TstTWQueue : public QObject
{
    Q_OBJECT

private slots:
    void recordFields();
    void unboundedQueueStaysInMemory();
    void overflowWaitsAndIsOvertaken();
    void boundAboveIntMaxSendsEverythingToFiles();
    void settling();
    void batchesAndTheDestructorsFiles();
    void restartBringsRecordsBack();
    void restartInTheMiddleLosesTheReadAhead();
    void readRules_data();
    void readRules();
    void lineEndsAsATextStreamReadsThem();
    void corruptFileComesBackAgain();
    void unreadableAndUndeletableFiles();
    void counterAvoidsTakenNames();
    void sharedFolderAndFailures();
    void crashKeepsExactlyTheFiles();
    void stressManyThreads();
};

void TstTWQueue::recordFields()
{
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    auto queue = makeQueue(dir.path(), 0, &logger);
    QCOMPARE(TWQueue::className(), QStringLiteral("TWQueue"));
    QCOMPARE(queue->name(), QStringLiteral("tst"));
    QVERIFY(queue->inherits("TW::TWQueue"));
    QVERIFY(queue->qt_metacast("TWObject"));

    TextItem item(QStringLiteral("same text"));
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    QVERIFY(queue->enqueueItem(&item, QStringLiteral("k"), QStringLiteral("n")));
    QVERIFY(queue->enqueueItem(&item, QString(), QString())); // empty kind and name are fine
    item.setText(QString());
    QVERIFY(!queue->enqueueItem(&item, QStringLiteral("k"), QStringLiteral("n")));
    QCOMPARE(queue->lastErrorStr(), QStringLiteral("Couldn't serialize item!"));

    QString data = QStringLiteral("stale"), kind = QStringLiteral("stale"), name = QStringLiteral("stale");
    quint64 stamp = 1;
    const QString first = queue->dequeueItem(data, &kind, &name, &stamp);
    static const QRegularExpression uuid(QStringLiteral("^\\{[0-9a-f]{8}-[0-9a-f]{4}-5[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}\\}$"));
    QVERIFY2(uuid.match(first).hasMatch(), qPrintable(first));
    QCOMPARE(data, QStringLiteral("same text"));
    QCOMPARE(kind, QStringLiteral("k"));
    QCOMPARE(name, QStringLiteral("n"));
    QVERIFY(stamp >= quint64(before) && stamp <= quint64(QDateTime::currentMSecsSinceEpoch()));

    const QString second = queue->dequeueItem(data, &kind, &name, &stamp);
    QVERIFY(!second.isEmpty() && second != first); // equal texts, different ids
    QCOMPARE(kind, QString());

    // Everything handed out: an empty id, out arguments cleared, no new error.
    queue->dequeueItem(data, &kind, &name, &stamp);
    QCOMPARE(data, QString());
    QCOMPARE(stamp, quint64(0));
    QCOMPARE(queue->lastErrorStr(), QStringLiteral("Couldn't serialize item!"));
}

void TstTWQueue::unboundedQueueStaysInMemory()
{
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    {
        auto queue = makeQueue(dir.path(), 0, &logger);
        pushAll(*queue, 1, 25);
        QCOMPARE(cacheFiles(dir), QStringList()); // no disk between start and end
        QCOMPARE(drain(*queue).size(), 25);
        pushAll(*queue, 26, 28);
    }
    QCOMPARE(cachedData(dir), numbers(26, 28));
}

void TstTWQueue::overflowWaitsAndIsOvertaken()
{
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    auto queue = makeQueue(dir.path(), 3, &logger);
    pushAll(*queue, 1, 7); // 4 to 7 wait for a batch, in memory alone
    QCOMPARE(cacheFiles(dir), QStringList());
    QCOMPARE(drain(*queue), numbers(1, 3));

    QString data;
    QVERIFY(queue->dequeueItem(data, nullptr, nullptr, nullptr).isEmpty());
    QVERIFY(push(*queue, QStringLiteral("8"))); // memory has room: it overtakes 4 to 7
    QCOMPARE(drain(*queue), QStringList{QStringLiteral("8")});
    queue.reset();
    QCOMPARE(cachedData(dir), numbers(4, 7)); // the destructor's last batch
}

void TstTWQueue::boundAboveIntMaxSendsEverythingToFiles()
{
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    auto queue = makeQueue(dir.path(), 3000000000u, &logger);
    pushAll(*queue, 1, 10);
    QCOMPARE(cacheFiles(dir).size(), 1);
    QString data;
    QVERIFY(queue->dequeueItem(data, nullptr, nullptr, nullptr).isEmpty());

    // At a restart the filling stops after the first record for the same reason;
    // the rest of the file waits and comes in one record per removal.
    queue.reset();
    queue = makeQueue(dir.path(), 3000000000u, &logger);
    const QString first = queue->dequeueItem(data, nullptr, nullptr, nullptr);
    QCOMPARE(data, QStringLiteral("1"));
    QVERIFY(queue->dequeueItem(data, nullptr, nullptr, nullptr).isEmpty());
    QVERIFY(queue->updateItem(first, true));
    QCOMPARE(drain(*queue), numbers(2, 10));
}

void TstTWQueue::settling()
{
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    auto queue = makeQueue(dir.path(), 0, &logger);
    pushAll(*queue, 1, 2);
    QString data;
    const QString id = queue->dequeueItem(data, nullptr, nullptr, nullptr);
    QVERIFY(queue->updateItem(id, false)); // put back: handed out again first
    QCOMPARE(queue->dequeueItem(data, nullptr, nullptr, nullptr), id);
    QCOMPARE(data, QStringLiteral("1"));
    QVERIFY(queue->updateItem(id, true));
    QVERIFY(!queue->updateItem(id, true));
    QCOMPARE(queue->lastErrorStr(), QStringLiteral("Item id: '%1' is not found in queue!").arg(id));
    QCOMPARE(logger.records().constLast().type, QtCriticalMsg);

    // A record that was never handed out can be settled too.
    const QString other = queue->dequeueItem(data, nullptr, nullptr, nullptr);
    QVERIFY(queue->updateItem(other, false));
    QVERIFY(queue->updateItem(other, true));
    QVERIFY(queue->dequeueItem(data, nullptr, nullptr, nullptr).isEmpty());
}

void TstTWQueue::batchesAndTheDestructorsFiles()
{
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    auto queue = makeQueue(dir.path(), 2, &logger);
    pushAll(*queue, 1, 2);
    pushAll(*queue, 3, 11); // nine waiting records: no file yet
    QCOMPARE(cacheFiles(dir).size(), 0);
    pushAll(*queue, 12, 15); // the tenth writes a batch of exactly ten
    QCOMPARE(cacheFiles(dir).size(), 1);
    static const QRegularExpression name(QStringLiteral("^\\d{17}_\\d{17}_000\\.cache$"));
    QVERIFY(name.match(cacheFiles(dir).first()).hasMatch());
    QVERIFY(!dir.readFile(cacheFiles(dir).first()).endsWith('\n'));
    QCOMPARE(cachedData(dir), numbers(3, 12));

    // The destructor puts the waiting records before the ones from memory.
    queue.reset();
    QCOMPARE(cacheFiles(dir).size(), 2);
    QCOMPARE(cachedData(dir).mid(10), (numbers(13, 15) << QStringLiteral("1") << QStringLiteral("2")));
}

void TstTWQueue::restartBringsRecordsBack()
{
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    QString firstId;
    {
        auto queue = makeQueue(dir.path(), 0, &logger);
        pushAll(*queue, 1, 3);
        QString data;
        firstId = queue->dequeueItem(data, nullptr, nullptr, nullptr); // handed out, never settled
    }
    auto queue = makeQueue(dir.path(), 0, &logger);
    QCOMPARE(cacheFiles(dir), QStringList()); // an unbounded queue reads every file at start
    QString data;
    quint64 stamp = 0;
    QCOMPARE(queue->dequeueItem(data, nullptr, nullptr, &stamp), firstId); // same id, waiting again
    QVERIFY(stamp > 0);
    QCOMPARE(data, QStringLiteral("1"));
    queue->updateItem(firstId, true);
    QCOMPARE(drain(*queue), numbers(2, 3));
}

void TstTWQueue::restartInTheMiddleLosesTheReadAhead()
{
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    {
        auto queue = makeQueue(dir.path(), 5, &logger);
        pushAll(*queue, 1, 50); // 1-5 in memory, four files of ten, 46-50 waiting
        QCOMPARE(cacheFiles(dir).size(), 4);
        QString data;
        const QString one = queue->dequeueItem(data, nullptr, nullptr, nullptr);
        const QString two = queue->dequeueItem(data, nullptr, nullptr, nullptr);
        queue->dequeueItem(data, nullptr, nullptr, nullptr); // 3 stays handed out
        QVERIFY(queue->updateItem(one, true)); // reads 6-15, moves 6 into memory
        QVERIFY(queue->updateItem(two, false));
    }
    auto queue = makeQueue(dir.path(), 0, &logger);
    QStringList all = drain(*queue);
    QCOMPARE(all.size(), 40); // 1 settled, 7-15 lost with the read-ahead batch
    all.sort();
    QStringList expected = numbers(2, 6) + numbers(16, 50);
    expected.sort();
    QCOMPARE(all, expected);
}

void TstTWQueue::readRules_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("expected"); // id|stamp|kind|name|data of each record read
    QTest::addColumn<bool>("corrupt");
    QTest::newRow("empty file") << QByteArray() << QStringList() << false;
    QTest::newRow("trimmed and untrimmed fields")
        << line(QStringLiteral(" {id} "), QStringLiteral(" 42 "), QStringLiteral(" k "), QStringLiteral(" n "), QStringLiteral(" d "))
        << QStringList{QStringLiteral("{id}|42|k| n | d ")} << false;
    QTest::newRow("timestamp that is no number")
        << line(QStringLiteral("a"), QStringLiteral("soon"), QString(), QString(), QStringLiteral("x"))
        << QStringList{QStringLiteral("a|0|||x")} << false;
    QTest::newRow("line feed at the end")
        << line(QStringLiteral("a"), QStringLiteral("1"), QString(), QString(), QStringLiteral("x")) + '\n'
        << QStringList{QStringLiteral("a|1|||x")} << false;
    QTest::newRow("empty line is corrupt")
        << line(QStringLiteral("a"), QStringLiteral("1"), QString(), QString(), QStringLiteral("x")) + "\n\n"
        << QStringList{QStringLiteral("a|1|||x")} << true;
    QTest::newRow("separator in the data")
        << line(QStringLiteral("a"), QStringLiteral("1"), QString(), QString(), QStringLiteral("x|TWQ|y"))
        << QStringList() << true;
    QTest::newRow("cut before the fourth separator")
        << line(QStringLiteral("a"), QStringLiteral("1"), QString(), QString(), QStringLiteral("x")) + "\n{b}|TWQ|2|TWQ|k"
        << QStringList{QStringLiteral("a|1|||x")} << true;
    QTest::newRow("utf-8 text") << line(QStringLiteral("a"), QStringLiteral("1"), QStringLiteral("\u00e9"), QString(), QStringLiteral("\u65e5"))
        << QStringList{QStringLiteral("a|1|\u00e9||\u65e5")} << false;
}

void TstTWQueue::readRules()
{
    QFETCH(QByteArray, content);
    QFETCH(QStringList, expected);
    QFETCH(bool, corrupt);
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    QVERIFY(dir.writeFile(QStringLiteral("a.cache"), content));
    QVERIFY(dir.writeFile(QStringLiteral("b.cache"), line(QStringLiteral("b"), QStringLiteral("2"), QString(), QString(), QStringLiteral("later"))));

    auto queue = makeQueue(dir.path(), 0, &logger);
    QStringList got;
    QString data, kind, name;
    quint64 stamp;
    for (QString id = queue->dequeueItem(data, &kind, &name, &stamp); !id.isEmpty();
         id = queue->dequeueItem(data, &kind, &name, &stamp))
        got << QStringList{id, QString::number(stamp), kind, name, data}.join(QLatin1Char('|'));
    if (corrupt) {
        // The start stops at the corrupt file: nothing reaches memory, later files wait.
        QCOMPARE(got, QStringList());
        QCOMPARE(queue->lastErrorStr(), QStringLiteral("Cache file: '%1' is corrupt! Separator: '|TWQ|' must be count 4.")
                                            .arg(dir.filePath(QStringLiteral("a.cache"))));
        QCOMPARE(cacheFiles(dir).size(), 2);
    } else {
        QCOMPARE(got, expected + QStringList{QStringLiteral("b|2|||later")});
        QCOMPARE(cacheFiles(dir), QStringList());
        QVERIFY(!queue->isThereError());
    }
}

void TstTWQueue::lineEndsAsATextStreamReadsThem()
{
    // Line ends and encodings as QTextStream::readLine sees them: CR LF, a
    // lone CR inside a field, a CR at the very end, a byte order mark.
    const QList<QByteArray> contents = {
        "\xef\xbb\xbf" "a|TWQ|1|TWQ|k|TWQ|n|TWQ|one\r\nb|TWQ|2|TWQ|k|TWQ|n|TWQ|tw\ro\r",
        "a|TWQ|1|TWQ|k|TWQ|n\r|TWQ|x\r\r\nb|TWQ|2|TWQ|k|TWQ|n|TWQ|\xff\xfe bad utf-8\n",
    };
    for (const QByteArray& content : contents) {
        TWTest::TempWorkDir dir;
        TWTest::RecordingLogger logger;
        QVERIFY(dir.writeFile(QStringLiteral("a.cache"), content));
        QStringList expected;
        QTextStream stream(content);
        stream.setEncoding(QStringConverter::Utf8);
        while (!stream.atEnd())
            expected << stream.readLine(0).section(Sep, 3);

        auto queue = makeQueue(dir.path(), 0, &logger);
        QStringList got;
        QString data, name;
        for (QString id = queue->dequeueItem(data, nullptr, &name, nullptr); !id.isEmpty();
             id = queue->dequeueItem(data, nullptr, &name, nullptr))
            got << name + Sep + data;
        QCOMPARE(got, expected);
    }
}

void TstTWQueue::corruptFileComesBackAgain()
{
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    QVERIFY(dir.writeFile(QStringLiteral("1.cache"), line(QStringLiteral("g1"), QStringLiteral("1"), QString(), QString(), QStringLiteral("good1")) + '\n'
                                                      + line(QStringLiteral("g2"), QStringLiteral("1"), QString(), QString(), QStringLiteral("good2")) + "\nbroken"));
    QVERIFY(dir.writeFile(QStringLiteral("2.cache"), line(QStringLiteral("l"), QStringLiteral("1"), QString(), QString(), QStringLiteral("later"))));
    auto queue = makeQueue(dir.path(), 0, &logger);
    QVERIFY(queue->isThereError());
    QCOMPARE(drain(*queue), QStringList()); // the good lines wait in the read-ahead list

    // A new record and its removal bring them in, one per removal. Once they
    // are drained, the next removal reads the same file again and fails again:
    // the removed record is gone all the same, and the same lines are back, with
    // the same ids.
    const auto round = [&queue](const QString& text, QStringList& results) {
        QStringList out;
        push(*queue, text);
        QString data;
        for (QString id = queue->dequeueItem(data, nullptr, nullptr, nullptr); !id.isEmpty();
             id = queue->dequeueItem(data, nullptr, nullptr, nullptr)) {
            out << id + data;
            results << (queue->updateItem(id, true) ? QStringLiteral("ok") : queue->lastErrorStr().left(12));
        }
        return out;
    };
    QStringList results;
    const QStringList first = round(QStringLiteral("new"), results);
    const QStringList second = round(QStringLiteral("newer"), results);
    QCOMPARE(first.size(), 3);
    QVERIFY(first.at(1).endsWith(QLatin1String("good1")) && first.at(2).endsWith(QLatin1String("good2")));
    QCOMPARE(second.mid(1), first.mid(1));
    QCOMPARE(results, QStringList({"ok", "ok", "Cache file: ", "ok", "ok", "Cache file: "}));
    QCOMPARE(cacheFiles(dir).size(), 2); // the later file is never reached
}

void TstTWQueue::unreadableAndUndeletableFiles()
{
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    for (int f = 1; f <= 3; ++f) {
        QByteArray content;
        for (int i = 0; i < 2; ++i)
            content += line(QStringLiteral("{%1-%2}").arg(f).arg(i), QStringLiteral("1"), QString(), QString(), QStringLiteral("%1-%2").arg(f).arg(i)) + '\n';
        QVERIFY(dir.writeFile(QStringLiteral("%1.cache").arg(f), content));
    }
    auto queue = makeQueue(dir.path(), 1, &logger); // 1-0 in memory, 1-1 read ahead
    QVERIFY(QFile::remove(dir.filePath(QStringLiteral("2.cache"))));
    QString data;
    QCOMPARE(drain(*queue), (QStringList{QStringLiteral("1-0"), QStringLiteral("1-1")}));
    QCOMPARE(queue->lastErrorStr(), QStringLiteral("Couldn't open cache file: '%1'! No such file or directory")
                                        .arg(dir.filePath(QStringLiteral("2.cache"))));
    // The missing file stays first and blocks the third one.
    QVERIFY(push(*queue, QStringLiteral("x")));
    QCOMPARE(drain(*queue), QStringList{QStringLiteral("x")});
    QCOMPARE(cacheFiles(dir), QStringList{QStringLiteral("3.cache")});
    queue.reset();

#ifdef Q_OS_UNIX
    // A file that cannot be deleted is read all the same, and read again at the
    // next start. Root deletes from a read-only folder, so it makes the file immutable.
    const QString target = dir.filePath(QStringLiteral("3.cache"));
    const bool root = ::geteuid() == 0;
    if (root && QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("+i"), target}) != 0)
        QSKIP("Cannot make a file undeletable here.");
    if (!root)
        QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::ExeOwner);
    queue = makeQueue(dir.path(), 0, &logger);
    if (root)
        QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("-i"), target});
    else
        QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QVERIFY(queue->lastErrorStr().startsWith(QStringLiteral("Couldn't delete cache file: '%1'! ").arg(target)));
    // The failure stopped the start: the records wait until a removal brings them in.
    QCOMPARE(drain(*queue), QStringList());
    QVERIFY(push(*queue, QStringLiteral("y")));
    QCOMPARE(drain(*queue), (QStringList{QStringLiteral("y"), QStringLiteral("3-0"), QStringLiteral("3-1")}));
    queue.reset();
    queue = makeQueue(dir.path(), 0, &logger);
    QCOMPARE(drain(*queue).size(), 2);
#endif
}

void TstTWQueue::counterAvoidsTakenNames()
{
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    const quint64 stamp = 1700000000123;
    QVERIFY(dir.writeFile(QStringLiteral("a.cache"), line(QStringLiteral("{a}"), QString::number(stamp), QString(), QString(), QStringLiteral("x"))));
    auto queue = makeQueue(dir.path(), 0, &logger);
    // Records keep their times through files, so the next batch would take this name.
    const QString time = QDateTime::fromMSecsSinceEpoch(qint64(stamp)).toString(QStringLiteral("yyyyMMddhhmmsszzz"));
    QVERIFY(dir.writeFile(QStringLiteral("%1_%1_000.cache").arg(time)));
    queue.reset();
    QCOMPARE(cacheFiles(dir), (QStringList{QStringLiteral("%1_%1_000.cache").arg(time), QStringLiteral("%1_%1_001.cache").arg(time)}));
}

void TstTWQueue::sharedFolderAndFailures()
{
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    {
        auto writer = makeQueue(dir.path(), 0, &logger);
        pushAll(*writer, 1, 3);
    }
    // Files carry no queue name: whichever queue starts first takes them.
    auto first = makeQueue(dir.path(), 0, &logger);
    auto second = makeQueue(dir.path(), 0, &logger);
    QCOMPARE(drain(*second), QStringList());
    QCOMPARE(drain(*first), numbers(1, 3));

    // A folder that cannot be made: the queue works in memory and reports on overflow.
    QVERIFY(dir.writeFile(QStringLiteral("plainfile")));
    auto broken = makeQueue(dir.filePath(QStringLiteral("plainfile/sub")), 1, &logger);
    const QString error = QStringLiteral("Couldn't create cahce direcoty: '%1'!").arg(dir.filePath(QStringLiteral("plainfile/sub")));
    QCOMPARE(broken->lastErrorStr(), error);
    pushAll(*broken, 1, 10);
    QVERIFY(!push(*broken, QStringLiteral("11"))); // the batch cannot be written and stays waiting
    QCOMPARE(broken->lastErrorStr(), error);
    QCOMPARE(drain(*broken), QStringList{QStringLiteral("1")});
}

void TstTWQueue::crashKeepsExactlyTheFiles()
{
#ifndef Q_OS_UNIX
    QSKIP("Needs SIGKILL");
#else
    TWTest::TempWorkDir dir;
    QProcess child;
    child.start(TWTest::helperPath(QStringLiteral("tw_queuecrash")), {dir.path(), QStringLiteral("4"), QStringLiteral("37")});
    QVERIFY(child.waitForReadyRead(60000));
    QCOMPARE(child.readAll(), QByteArray("ready\n"));
    child.kill(); // SIGKILL: no destructor runs
    QVERIFY(child.waitForFinished(60000));

    // 4 records in memory and 3 waiting are lost; 30 lie in three files.
    QStringList onDisk = cachedData(dir);
    QCOMPARE(onDisk.size(), 30);
    TWTest::RecordingLogger logger;
    auto queue = makeQueue(dir.path(), 0, &logger);
    QCOMPARE(drain(*queue), onDisk);
    QCOMPARE(onDisk.first(), QStringLiteral("item-4"));
#endif
}

void TstTWQueue::stressManyThreads()
{
    TWTest::TempWorkDir dir;
    TWTest::RecordingLogger logger;
    constexpr int Producers = 4;
    constexpr int Consumers = 4;
    constexpr int PerProducer = 25000;
    auto queue = makeQueue(dir.path(), 16, &logger);
    std::atomic<int> producing{Producers};
    std::vector<QStringList> seen(Consumers);
    std::vector<std::unique_ptr<QThread>> threads;
    for (int p = 0; p < Producers; ++p) {
        threads.emplace_back(QThread::create([&, p] {
            TextItem item;
            for (int i = 0; i < PerProducer; ++i) {
                item.setText(QStringLiteral("%1-%2").arg(p).arg(i));
                queue->enqueueItem(&item, QString(), QString());
            }
            --producing;
        }));
    }
    for (int c = 0; c < Consumers; ++c) {
        threads.emplace_back(QThread::create([&, c] {
            QString data;
            // Drain until the producers are done and nothing is reachable; every
            // seventh record is put back once and comes again.
            for (int taken = 1;; ++taken) {
                const bool done = producing == 0;
                const QString id = queue->dequeueItem(data, nullptr, nullptr, nullptr);
                if (id.isEmpty()) {
                    if (done)
                        break;
                    QThread::yieldCurrentThread();
                    continue;
                }
                const bool putBack = taken % 7 == 0;
                if (!putBack)
                    seen[c] << data;
                queue->updateItem(id, !putBack);
            }
        }));
    }
    for (auto& thread : threads)
        thread->start();
    for (auto& thread : threads)
        QVERIFY(thread->wait(600000));

    // The last partial batch reaches memory only through a restart.
    queue.reset();
    queue = makeQueue(dir.path(), 16, &logger);
    QStringList rest = drain(*queue);
    QSet<QString> all;
    qsizetype total = rest.size();
    for (const QString& s : std::as_const(rest))
        all.insert(s);
    for (const QStringList& list : std::as_const(seen)) {
        total += list.size();
        for (const QString& s : list)
            all.insert(s);
    }
    QCOMPARE(total, qsizetype(Producers * PerProducer));
    QCOMPARE(all.size(), Producers * PerProducer);
    QVERIFY(!queue->isThereError());
}

QTEST_GUILESS_MAIN(TstTWQueue)
#include "tst_twqueue.moc"
