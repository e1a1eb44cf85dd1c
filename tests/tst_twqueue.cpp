#include <twqueue.h>

#include "twtestsupport.h"

#include <QtCore/QDir>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>
#include <QtCore/QThread>
#include <QtTest/QTest>

#include <atomic>
#include <memory>
#include <vector>


using TW::TWQueue;
using Queue = std::unique_ptr<TWQueue>;

namespace {

const QString Sep = QStringLiteral("|TWQ|");

bool push(TWQueue& queue, const QString& text)
{
    TWTest::TextItem item(text);
    return queue.enqueueItem(&item, QStringLiteral("kind"), QStringLiteral("name"));
}

void pushAll(TWQueue& queue, int from, int to)
{
    for (int i = from; i <= to; ++i)
        QVERIFY(push(queue, QString::number(i)));
}

QString take(TWQueue& queue, QString* data = nullptr)
{
    QString text;
    return queue.dequeueItem(data ? *data : text, nullptr, nullptr, nullptr);
}

// Takes and removes every reachable record; their texts in delivery order.
QStringList drain(TWQueue& queue)
{
    QStringList out;
    QString data;
    for (QString id = take(queue, &data); !id.isEmpty(); id = take(queue, &data)) {
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

QByteArray line(const QString& id, const QString& stamp, const QString& kind, const QString& name, const QString& data)
{
    return QStringList{id, stamp, kind, name, data}.join(Sep).toUtf8();
}

QByteArray record(const QString& data)
{
    return line(QLatin1Char('{') + data + QLatin1Char('}'), QStringLiteral("1"), QString(), QString(), data);
}

} // namespace

class TstTWQueue : public QObject
{
    Q_OBJECT

    std::unique_ptr<TWTest::TempWorkDir> _dir;
    TWTest::RecordingLogger _logger;

    Queue open(unsigned int bound, const QString& folder = QString())
    {
        auto queue = std::make_unique<TWQueue>(QStringLiteral("tst"), bound, folder.isEmpty() ? _dir->path() : folder);
        queue->setLogger(&_logger);
        return queue;
    }
    // The old queue ends, and writes its records, before the new one starts.
    void reopen(Queue& queue, unsigned int bound, const QString& folder = QString()) { queue.reset(); queue = open(bound, folder); }
    QStringList cacheFiles() const { return _dir->files({QStringLiteral("*.cache")}); }
    // The data field of every line of every cache file, in name order.
    QStringList cachedData() const
    {
        QStringList out;
        for (const QString& name : cacheFiles())
            for (const QString& text : QString::fromUtf8(_dir->readFile(name)).split(QLatin1Char('\n')))
                out << text.section(Sep, 4);
        return out;
    }

private slots:
    void init() { _dir = std::make_unique<TWTest::TempWorkDir>(); _logger.clear(); }
    void cleanup() { _dir.reset(); }

    void recordsAndSettling()
    {
        Queue queue = open(0);
        TWTest::TextItem item(QStringLiteral("same"));
        QVERIFY(queue->enqueueItem(&item, QStringLiteral("k"), QStringLiteral("n")));
        QVERIFY(queue->enqueueItem(&item, QString(), QString())); // empty kind and name are fine
        item.setText(QString());
        QVERIFY(!queue->enqueueItem(&item, QStringLiteral("k"), QStringLiteral("n")));
        QCOMPARE(queue->lastErrorStr(), QStringLiteral("Couldn't serialize item!"));

        QString data, kind, name;
        quint64 stamp = 0;
        const QString first = queue->dequeueItem(data, &kind, &name, &stamp);
        static const QRegularExpression uuid(QStringLiteral("^\\{[0-9a-f]{8}-[0-9a-f]{4}-5[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}\\}$"));
        QVERIFY2(uuid.match(first).hasMatch(), qPrintable(first));
        QCOMPARE(QStringList({data, kind, name}), QStringList({"same", "k", "n"}));
        QVERIFY(qAbs(qint64(stamp) - QDateTime::currentMSecsSinceEpoch()) < 60000);

        // Put back, it is handed out first again, with its id; equal texts get other ids.
        QVERIFY(queue->updateItem(first, false));
        QCOMPARE(take(*queue), first);
        const QString second = queue->dequeueItem(data, &kind, &name, &stamp);
        QVERIFY(!second.isEmpty() && second != first);
        QCOMPARE(kind, QString());

        // All handed out: an empty id, cleared out arguments, and no new error.
        QVERIFY(queue->dequeueItem(data, &kind, &name, &stamp).isEmpty());
        QCOMPARE(data + QString::number(stamp), QStringLiteral("0"));
        QCOMPARE(queue->lastErrorStr(), QStringLiteral("Couldn't serialize item!"));

        QVERIFY(queue->updateItem(first, true));
        QVERIFY(!queue->updateItem(first, true));
        QCOMPARE(queue->lastErrorStr(), QStringLiteral("Item id: '%1' is not found in queue!").arg(first));
        QCOMPARE(_logger.records().constLast().type, QtCriticalMsg);
    }

    void listMoves()
    {
        // No bound: nothing touches the disk until the end.
        Queue queue = open(0);
        pushAll(*queue, 1, 25);
        QCOMPARE(drain(*queue).size(), 25);
        QCOMPARE(cacheFiles(), QStringList());
        queue.reset();
        QCOMPARE(cacheFiles(), QStringList());

        // Bound 3: 4 to 7 wait for a batch in memory alone, out of reach; an item
        // that finds room later overtakes them.
        queue = open(3);
        pushAll(*queue, 1, 7);
        QCOMPARE(drain(*queue), numbers(1, 3));
        QVERIFY(push(*queue, QStringLiteral("8")));
        QCOMPARE(drain(*queue), QStringList{QStringLiteral("8")});
        QCOMPARE(cacheFiles(), QStringList());
        queue.reset();
        QCOMPARE(cachedData(), numbers(4, 7)); // the destructor's last batch

        // Compared as a signed number, a bound above INT_MAX sends every new item
        // to the files, and a start moves just one record into memory.
        for (const QString& file : cacheFiles())
            QFile::remove(_dir->filePath(file));
        queue = open(3000000000u);
        pushAll(*queue, 1, 10);
        QCOMPARE(cacheFiles().size(), 1);
        QVERIFY(take(*queue).isEmpty());
        reopen(queue, 3000000000u);
        const QString first = take(*queue);
        QVERIFY(take(*queue).isEmpty());
        QVERIFY(queue->updateItem(first, true)); // the rest of the file comes one per removal
        QCOMPARE(drain(*queue), numbers(2, 10));
    }

    void batchesAndNames()
    {
        Queue queue = open(2);
        pushAll(*queue, 1, 11); // nine waiting records: no file yet
        QCOMPARE(cacheFiles().size(), 0);
        pushAll(*queue, 12, 15); // the tenth writes a batch of exactly ten
        QCOMPARE(cacheFiles().size(), 1);
        static const QRegularExpression name(QStringLiteral("^\\d{17}_\\d{17}_000\\.cache$"));
        QVERIFY(name.match(cacheFiles().first()).hasMatch());
        QVERIFY(!_dir->readFile(cacheFiles().first()).endsWith('\n'));
        QCOMPARE(cachedData(), numbers(3, 12));

        // The destructor puts the waiting records before the ones from memory. The
        // first batch goes first: a millisecond between record 2 and record 3 would
        // sort the destructor's file before it.
        QVERIFY(QFile::remove(_dir->filePath(cacheFiles().first())));
        queue.reset();
        QCOMPARE(cachedData(), numbers(13, 15) + numbers(1, 2));

        // Records keep their times, so a batch may want a name that is taken: the counter moves on.
        for (const QString& file : cacheFiles())
            QFile::remove(_dir->filePath(file));
        const quint64 stamp = 1700000000123;
        QVERIFY(_dir->writeFile(QStringLiteral("a.cache"), line(QStringLiteral("{a}"), QString::number(stamp), QString(), QString(), QStringLiteral("x"))));
        queue = open(0);
        const QString time = QDateTime::fromMSecsSinceEpoch(qint64(stamp)).toString(QStringLiteral("yyyyMMddhhmmsszzz"));
        QVERIFY(_dir->writeFile(QStringLiteral("%1_%1_000.cache").arg(time)));
        queue.reset();
        QCOMPARE(cacheFiles(), QStringList({QStringLiteral("%1_%1_000.cache").arg(time), QStringLiteral("%1_%1_001.cache").arg(time)}));
    }

    void restarts()
    {
        Queue queue = open(0);
        pushAll(*queue, 1, 3);
        const QString firstId = take(*queue); // handed out, never settled: it comes back as waiting
        reopen(queue, 0);
        QCOMPARE(cacheFiles(), QStringList()); // an unbounded queue reads every file at start
        QCOMPARE(take(*queue), firstId);
        queue->updateItem(firstId, true);
        QCOMPARE(drain(*queue), numbers(2, 3));

        // Two queues on one folder: whichever starts first takes the files.
        pushAll(*queue, 1, 3);
        reopen(queue, 0);
        Queue second = open(0);
        QCOMPARE(drain(*second), QStringList());
        QCOMPARE(drain(*queue), numbers(1, 3));

        // A clean restart in the middle loses the read-ahead batch, and only that.
        reopen(queue, 5);
        pushAll(*queue, 1, 50); // 1-5 in memory, four files of ten, 46-50 waiting
        QCOMPARE(cacheFiles().size(), 4);
        const QString one = take(*queue), two = take(*queue);
        take(*queue); // 3 stays handed out
        QVERIFY(queue->updateItem(one, true)); // reads 6-15, moves 6 into memory
        QVERIFY(queue->updateItem(two, false));
        reopen(queue, 0);
        QStringList all = drain(*queue);
        all.sort();
        QStringList expected = numbers(2, 6) + numbers(16, 50); // 7-15 were read ahead
        expected.sort();
        QCOMPARE(all, expected);

        // A folder that cannot be made: the queue works in memory and reports on overflow.
        QVERIFY(_dir->writeFile(QStringLiteral("plainfile")));
        reopen(queue, 1, _dir->filePath(QStringLiteral("plainfile/sub")));
        const QString error = QStringLiteral("Couldn't create cahce direcoty: '%1'!").arg(_dir->filePath(QStringLiteral("plainfile/sub")));
        QCOMPARE(queue->lastErrorStr(), error);
        pushAll(*queue, 1, 10);
        QVERIFY(!push(*queue, QStringLiteral("11"))); // the batch stays waiting
        QCOMPARE(drain(*queue), QStringList{QStringLiteral("1")});
    }

    void readRules_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QStringList>("expected"); // id|stamp|kind|name|data of each record read
        QTest::addColumn<bool>("corrupt");
        const QString a = QStringLiteral("a"), one = QStringLiteral("1"), x = QStringLiteral("x");
        QTest::newRow("empty file") << QByteArray() << QStringList() << false;
        QTest::newRow("trimmed and untrimmed fields")
            << line(QStringLiteral(" {id} "), QStringLiteral(" 42 "), QStringLiteral(" k "), QStringLiteral(" n "), QStringLiteral(" d "))
            << QStringList{QStringLiteral("{id}|42|k| n | d ")} << false;
        QTest::newRow("timestamp that is no number") << line(a, QStringLiteral("soon"), {}, {}, x) << QStringList{QStringLiteral("a|0|||x")} << false;
        // Written back under a name made from the time when the queue ends.
        QTest::newRow("timestamp past the signed range") << line(a, QStringLiteral("9223372036854775808"), {}, {}, x)
            << QStringList{QStringLiteral("a|9223372036854775808|||x")} << false;
        QTest::newRow("timestamp past 64 bits") << line(a, QStringLiteral("18446744073709551616"), {}, {}, x) << QStringList{QStringLiteral("a|0|||x")} << false;
        QTest::newRow("line feed at the end") << line(a, one, {}, {}, x) + '\n' << QStringList{QStringLiteral("a|1|||x")} << false;
        QTest::newRow("utf-8 text") << line(a, one, QStringLiteral("\u00e9"), {}, QStringLiteral("\u65e5")) << QStringList{QStringLiteral("a|1|\u00e9||\u65e5")} << false;
        QTest::newRow("empty line") << line(a, one, {}, {}, x) + "\n\n" << QStringList() << true;
        QTest::newRow("separator in the data") << line(a, one, {}, {}, QStringLiteral("x|TWQ|y")) << QStringList() << true;
        QTest::newRow("cut before the fourth separator") << line(a, one, {}, {}, x) + "\n{b}|TWQ|2|TWQ|k" << QStringList() << true;
        // Line ends as QTextStream::readLine sees them: CR LF, a lone CR in a
        // field, a CR at the very end; an initial byte order mark is skipped.
        QTest::newRow("line ends and BOM") << QByteArray("\xef\xbb\xbf" "a|TWQ|1|TWQ|k|TWQ|n\r|TWQ|one\r\nb|TWQ|2|TWQ|k|TWQ|n|TWQ|tw\ro\r")
            << QStringList({"a|1|k|n\r|one", "b|2|k|n|tw\ro"}) << false;
        QTest::newRow("bad utf-8") << QByteArray("a|TWQ|1|TWQ|k|TWQ|n|TWQ|\xff\xfe x\r\r\n")
            << QStringList{QStringLiteral("a|1|k|n|\ufffd\ufffd x\r")} << false;
    }

    void readRules()
    {
        QFETCH(QByteArray, content);
        QFETCH(QStringList, expected);
        QFETCH(bool, corrupt);
        QVERIFY(_dir->writeFile(QStringLiteral("a.cache"), content));
        QVERIFY(_dir->writeFile(QStringLiteral("b.cache"), line(QStringLiteral("b"), QStringLiteral("2"), {}, {}, QStringLiteral("later"))));

        Queue queue = open(0);
        QStringList got;
        QString data, kind, name;
        quint64 stamp;
        for (QString id = queue->dequeueItem(data, &kind, &name, &stamp); !id.isEmpty(); id = queue->dequeueItem(data, &kind, &name, &stamp))
            got << QStringList{id, QString::number(stamp), kind, name, data}.join(QLatin1Char('|'));
        if (corrupt) {
            // The start stops at the corrupt file: nothing reaches memory, later files wait.
            QCOMPARE(got, QStringList());
            QCOMPARE(queue->lastErrorStr(), QStringLiteral("Cache file: '%1' is corrupt! Separator: '|TWQ|' must be count 4.")
                                                .arg(_dir->filePath(QStringLiteral("a.cache"))));
            QCOMPARE(cacheFiles().size(), 2);
        } else {
            QCOMPARE(got, expected + QStringList{QStringLiteral("b|2|||later")});
            QCOMPARE(cacheFiles(), QStringList());
            QVERIFY(!queue->isThereError());
        }
    }

    void corruptFileComesBackAgain()
    {
        QVERIFY(_dir->writeFile(QStringLiteral("1.cache"), record(QStringLiteral("good1")) + '\n' + record(QStringLiteral("good2")) + "\nbroken"));
        QVERIFY(_dir->writeFile(QStringLiteral("2.cache"), record(QStringLiteral("later"))));
        Queue queue = open(0);
        QVERIFY(queue->isThereError());
        QCOMPARE(drain(*queue), QStringList()); // the good lines wait in the read-ahead list

        // A new record and its removal bring them in, one per removal. Once they
        // are drained, the next removal reads the same file again and fails again:
        // the removed record is gone all the same, and the same lines are back.
        QStringList results;
        const auto round = [&](const QString& text) {
            push(*queue, text);
            QStringList out;
            QString data;
            for (QString id = take(*queue, &data); !id.isEmpty(); id = take(*queue, &data)) {
                out << data;
                results << (queue->updateItem(id, true) ? QStringLiteral("ok") : queue->lastErrorStr().left(12));
            }
            return out;
        };
        QCOMPARE(round(QStringLiteral("new")), QStringList({"new", "good1", "good2"}));
        QCOMPARE(round(QStringLiteral("newer")), QStringList({"newer", "good1", "good2"}));
        QCOMPARE(results, QStringList({"ok", "ok", "Cache file: ", "ok", "ok", "Cache file: "}));
        QCOMPARE(cacheFiles().size(), 2); // the later file is never reached
    }

    void unreadableFileBlocksTheRest()
    {
        for (int f = 1; f <= 3; ++f)
            QVERIFY(_dir->writeFile(QStringLiteral("%1.cache").arg(f), record(QStringLiteral("%1-0").arg(f)) + '\n' + record(QStringLiteral("%1-1").arg(f))));
        Queue queue = open(1); // 1-0 in memory, 1-1 read ahead
        QVERIFY(QFile::remove(_dir->filePath(QStringLiteral("2.cache"))));
        QCOMPARE(drain(*queue), QStringList({"1-0", "1-1"}));
        QCOMPARE(queue->lastErrorStr(), QStringLiteral("Couldn't open cache file: '%1'! No such file or directory")
                                            .arg(_dir->filePath(QStringLiteral("2.cache"))));
        // The missing file stays first and blocks the third one.
        QVERIFY(push(*queue, QStringLiteral("x")));
        QCOMPARE(drain(*queue), QStringList{QStringLiteral("x")});
        QCOMPARE(cacheFiles(), QStringList{QStringLiteral("3.cache")});
    }

    // A host item that runs out of memory while it serialises: the queue
    // keeps no block of it, reports the allocation, and stays usable.
    void serializeThatThrows()
    {
        struct Throwing : TWQueueItemIface
        {
            QString serialize() override { throw std::bad_alloc(); }
        } throwing;
        Queue queue = open(0);
        QVERIFY(!queue->enqueueItem(&throwing, QStringLiteral("k"), QStringLiteral("big")));
        QCOMPARE(queue->lastErrorStr(), QStringLiteral("Couldn't allocate meta queue item instance for 'big'!"));
        QVERIFY(TWTest::runThreads(1, [&queue](int) { QVERIFY(push(*queue, QStringLiteral("after"))); }));
        QCOMPARE(drain(*queue), QStringList{QStringLiteral("after")});
    }

    // Out of memory for real, in a child: a record too large for its id and a
    // batch too large to write fail, and another thread still gets through.
    void outOfMemoryLeavesTheQueueUsable()
    {
#if defined(TW_SANITIZED) || !defined(Q_OS_LINUX)
        QSKIP("Caps the address space, which the sanitizers' shadow memory does not fit in");
#else
        const auto result = TWTest::runProcess(TWTest::helperPath(QStringLiteral("tw_lowmemory")), {_dir->path(), QStringLiteral("queue")});
        QCOMPARE(result.out, QByteArray("huge-refused ok\nbatch-refused ok\nqueue-usable ok\n"));
        QCOMPARE(result.exitCode, 0);
#endif
    }

    void crashKeepsExactlyTheFiles()
    {
#ifndef Q_OS_UNIX
        QSKIP("Needs SIGKILL");
#else
        QProcess child;
        child.start(TWTest::helperPath(QStringLiteral("tw_queuecrash")), {_dir->path(), QStringLiteral("4"), QStringLiteral("37")});
        QVERIFY(child.waitForReadyRead(60000));
        QCOMPARE(child.readAll(), QByteArray("ready\n"));
        child.kill(); // SIGKILL: no destructor runs
        QVERIFY(child.waitForFinished(60000));

        // 4 records in memory and 3 waiting are lost; 30 lie in three files.
        const QStringList onDisk = cachedData();
        QCOMPARE(onDisk.size(), 30);
        QCOMPARE(onDisk.first(), QStringLiteral("item-4"));
        Queue queue = open(0);
        QCOMPARE(drain(*queue), onDisk);
#endif
    }

    void stressManyThreads()
    {
        constexpr int Producers = 4, Consumers = 4, PerProducer = 25000;
        Queue queue = open(16);
        std::atomic<int> producing{Producers};
        std::vector<QStringList> seen(Consumers);
        QVERIFY(TWTest::runThreads(Producers + Consumers, [&](int t) {
            QString data;
            if (t < Producers) {
                TWTest::TextItem item;
                for (int i = 0; i < PerProducer; ++i) {
                    item.setText(QStringLiteral("%1-%2").arg(t).arg(i));
                    queue->enqueueItem(&item, QString(), QString());
                }
                --producing;
                return;
            }
            // Drain until the producers are done and nothing is reachable; every
            // seventh record is put back once and comes again.
            for (int taken = 1;; ++taken) {
                const bool done = producing == 0;
                const QString id = take(*queue, &data);
                if (id.isEmpty()) {
                    if (done)
                        break;
                    QThread::yieldCurrentThread();
                    continue;
                }
                if (taken % 7 != 0)
                    seen[t - Producers] << data;
                queue->updateItem(id, taken % 7 != 0);
            }
        }));

        // The last partial batch reaches memory only through a restart.
        reopen(queue, 16);
        QStringList all = drain(*queue);
        for (const QStringList& list : seen)
            all += list;
        QCOMPARE(all.size(), Producers * PerProducer);
        QCOMPARE(QSet<QString>(all.cbegin(), all.cend()).size(), Producers * PerProducer);
        QVERIFY(!queue->isThereError());
    }

    void poolFallbackAndWarnings()
    {
        TW::TWQueuePool pool(QStringLiteral("pool"));
        pool.setLogger(&_logger);
        QCOMPARE(TW::TWQueuePool::globalInstance()->name(), QStringLiteral("TWQueuePoolGlobal"));
        QVERIFY(!pool.contains(QStringLiteral("TWQueueDummy")));

        // A miss makes the shared fallback once, and warns every time.
        TWQueue* dummy = pool.queue(QStringLiteral("nope"));
        QVERIFY(dummy);
        QCOMPARE(dummy->name(), QStringLiteral("TWQueueDummy"));
        QCOMPARE(pool.queue(QStringLiteral("other")), dummy);
        QCOMPARE(_logger.messages(), QStringList({"nope queue is not in the queue pool! DummyQueue will be used.",
                                                  "other queue is not in the queue pool! DummyQueue will be used."}));
        QCOMPARE(_logger.records().constFirst().type, QtWarningMsg);
        QVERIFY(pool.contains(QStringLiteral("TWQueueDummy")));
        QCOMPARE(pool.queue(QStringLiteral("TWQueueDummy")), dummy); // asked by name: no warning
        QCOMPARE(_logger.records().size(), 2);

        // It is a whole queue in "./" with no bound; removing it lets the next miss make a new one.
        QVERIFY(push(*dummy, QStringLiteral("kept")));
        pool.remove(QStringLiteral("TWQueueDummy"));
        QCOMPARE(cacheFiles().size(), 1);
        QCOMPARE(drain(*pool.queue(QStringLiteral("again"))), QStringList{QStringLiteral("kept")});
    }

    void poolAddRemoveAndConfig()
    {
        TWTest::MapConfig config({{QStringLiteral("a.QueueMaxItemOnMemory"), 65535},
                                  {QStringLiteral("a.QueueCacheDir"), _dir->filePath(QStringLiteral("a"))},
                                  {QStringLiteral("b.QueueMaxItemOnMemory"), 65534}});
        {
            TW::TWQueuePool pool;
            pool.setLogger(&_logger);
            pool.addFromConfig(QStringLiteral("a"), &config);
            pool.addFromConfig(QStringLiteral("b"), &config);
            QCOMPARE(config.keys, QStringList({"a.QueueMaxItemOnMemory", "a.QueueCacheDir", "b.QueueMaxItemOnMemory", "b.QueueCacheDir"}));
            QCOMPARE(_logger.messages(), QStringList({"a.QueueMaxItemOnMemory not defined in config! Value: 0 (endless) will be used.",
                                                      "b.QueueCacheDir not defined in config! Value: './' will be used."}));
            TWQueue* a = pool.queue(QStringLiteral("a"));
            QCOMPARE(a->name(), QStringLiteral("TWQueuea"));
            pushAll(*a, 1, 12); // no bound: no file yet
            pushAll(*pool.queue(QStringLiteral("b")), 1, 1);

            // A taken name is taken over; the old queue lives on until the pool ends.
            pool.add(QStringLiteral("a"), 0, QString());
            QCOMPARE(pool.queue(QStringLiteral("a"))->name(), QStringLiteral("TWQueuea00001"));
            QCOMPARE(pool.queues().keys(), QStringList({"a", "b"}));

            _logger.clear();
            pool.remove(QStringLiteral("zzz"));
            QCOMPARE(_logger.messages(), QStringList{"Couldn't remove queue: 'zzz'! It is not in the queue pool."});
            QVERIFY(!pool.isThereError());
            pool.remove(QStringLiteral("b")); // writes its record into "./"
            QCOMPARE(cacheFiles().size(), 1);
            pool.removeAll();
            QCOMPARE(pool.queues(), (QMap<QString, TWQueue*>()));
            pool.add(QStringLiteral("c"), 3, QString()); // refilled: it takes the record "b" left in "./"
            QCOMPARE(drain(*pool.queue(QStringLiteral("c"))), QStringList{QStringLiteral("1")});
        }
        // The replaced queue was destroyed with the pool and wrote its twelve records.
        TWQueue reopened(QString(), 0, _dir->filePath(QStringLiteral("a")));
        QCOMPARE(drain(reopened), numbers(1, 12));
    }
};

QTEST_GUILESS_MAIN(TstTWQueue)
#include "tst_twqueue.moc"
