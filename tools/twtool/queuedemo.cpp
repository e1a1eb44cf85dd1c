#include "queuedemo.h"

#include "commandline.h"
#include "demo.h"
#include "toollogger.h"

#include <twlogger.h>
#include <twqueue.h>
#include <twthreadpool.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QMutex>
#include <QtCore/QSet>
#include <QtCore/QTemporaryDir>
#include <QtCore/QThread>

#include <atomic>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

// What the consumers of one phase saw, shared between them.
struct Tally
{
    QMutex mutex;
    QStringList seen;
    std::atomic<int> settled{0};
};

// A consumer job: takes and settles items until \a stopAt items are settled in
// its phase, or until nothing is reachable once the producers are done.
class ConsumerWorker : public TWThreadWorkerIface
{
    Q_OBJECT

public:
    ConsumerWorker(TW::TWQueue* queue, Tally* tally, const std::atomic<int>* producing, int stopAt)
        : _queue(queue), _tally(tally), _producing(producing), _stopAt(stopAt)
    {
    }

public slots:
    void process() override
    {
        QString data;
        while (_tally->settled < _stopAt) {
            const bool done = *_producing == 0;
            const QString id = _queue->dequeueItem(data, nullptr, nullptr, nullptr);
            if (id.isEmpty()) {
                if (done)
                    break;
                QThread::yieldCurrentThread();
                continue;
            }
            {
                QMutexLocker locker(&_tally->mutex);
                _tally->seen << data;
            }
            _queue->updateItem(id, true);
            ++_tally->settled;
        }
        emit finished();
    }

private:
    TW::TWQueue* _queue;
    Tally* _tally;
    const std::atomic<int>* _producing;
    int _stopAt;
};

// Runs \a consumers consumer jobs on pooled threads until they have finished.
bool consume(TW::TWThreadPool& pool, TW::TWQueue* queue, Tally& tally, const std::atomic<int>& producing, int consumers,
             int stopAt, const std::function<void(int)>& progress)
{
    for (int c = 0; c < consumers; ++c) {
        TW::TWThread* thread = pool.waitingForReserveThread(30000);
        if (!thread)
            return false;
        thread->setWorker(new ConsumerWorker(queue, &tally, &producing, stopAt), true);
        thread->start();
    }
    while (!pool.waitForAllThreadFinished(200)) {
        if (progress)
            progress(tally.settled);
    }
    return true;
}

// The data of every record in the cache files of \a dir.
QStringList recordsOnDisk(const QString& dir, int& files)
{
    QStringList out;
    const QDir folder(dir);
    const QStringList names = folder.entryList({QStringLiteral("*.cache")}, QDir::Files, QDir::Name);
    files = int(names.size());
    for (const QString& name : names) {
        QFile file(folder.filePath(name));
        if (file.open(QIODevice::ReadOnly)) {
            for (const QString& line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n')))
                out << line.section(QStringLiteral("|TWQ|"), 4);
        }
    }
    return out;
}

QSet<QString> toSet(const QStringList& list)
{
    return QSet<QString>(list.cbegin(), list.cend());
}

} // namespace

bool runQueueScenario(const QueueScenario& s, const std::function<void(const QString&)>& say,
                      const std::function<void(int)>& progress)
{
    // The queue's remarks go where the caller says, or to a quiet logger in the folder.
    TW::TWLogger fileLogger;
    fileLogger.setFilePath(s.dir);
    fileLogger.setConsoleOutput(false);
    TWLoggerIface* const logger = s.logger ? s.logger : &fileLogger;
    TW::TWThreadPool pool(QStringLiteral("consumers"), quint16(s.consumers));
    pool.setLogger(logger);

    auto queue = std::make_unique<TW::TWQueue>(QStringLiteral("demo"), s.bound, s.dir);
    queue->setLogger(logger);
    say(QStringLiteral("%1 items, at most %2 in memory, %3 producer thread(s), %4 consumer job(s) on a pool; folder %5")
            .arg(s.items).arg(s.bound).arg(s.producers).arg(s.consumers).arg(QDir::toNativeSeparators(s.dir)));

    // Phase 1: producers queue everything while the consumers settle half.
    std::atomic<int> producing{s.producers};
    std::vector<std::unique_ptr<QThread>> producers;
    for (int p = 0; p < s.producers; ++p) {
        producers.emplace_back(QThread::create([&, p] {
            for (int i = p; i < s.items; i += s.producers) {
                TextItem item(QStringLiteral("item-%1").arg(i, 6, 10, QLatin1Char('0')));
                queue->enqueueItem(&item, QStringLiteral("demo"), QString());
            }
            --producing;
        }));
        producers.back()->start();
    }
    Tally first;
    if (!consume(pool, queue.get(), first, producing, s.consumers, s.items / 2, progress))
        return false;
    for (auto& producer : producers)
        producer->wait();
    int files = 0;
    const int filesBefore = int(QDir(s.dir).entryList({QStringLiteral("*.cache")}, QDir::Files).size());
    say(QStringLiteral("Phase 1: all %1 items queued; consumers settled %2 and stopped. %3 cache file(s) hold the overflow now.")
            .arg(s.items).arg(first.seen.size()).arg(filesBefore));

    // A clean restart: the queue writes what it holds to cache files.
    queue.reset();
    const QStringList onDisk = recordsOnDisk(s.dir, files);
    QSet<QString> all;
    for (int i = 0; i < s.items; ++i)
        all.insert(QStringLiteral("item-%1").arg(i, 6, 10, QLatin1Char('0')));
    const QSet<QString> lost = all - toSet(first.seen) - toSet(onDisk);
    say(QStringLiteral("Clean restart: the queue wrote what it held; %1 record(s) are in %2 cache file(s).")
            .arg(onDisk.size()).arg(files));
    say(QStringLiteral("%1 record(s) were in the batch read ahead from its (deleted) file, and are lost, as the queue promises.")
            .arg(lost.size()));

    // Phase 2: a new queue on the folder gets the records back; the last
    // partial batch reaches memory only through one more restart.
    Tally second;
    queue = std::make_unique<TW::TWQueue>(QStringLiteral("demo"), s.bound, s.dir);
    queue->setLogger(logger);
    if (!consume(pool, queue.get(), second, producing, s.consumers, s.items, progress))
        return false;
    queue.reset();
    queue = std::make_unique<TW::TWQueue>(QStringLiteral("demo"), s.bound, s.dir);
    queue->setLogger(logger);
    if (!consume(pool, queue.get(), second, producing, s.consumers, s.items, progress))
        return false;
    queue.reset();
    say(QStringLiteral("Phase 2: new queues on the folder read the files back; consumers settled %1 more.")
            .arg(second.seen.size()));

    // Every item was settled once, or was in the read-ahead batch (at most one file's worth).
    const QStringList delivered = first.seen + second.seen;
    const QSet<QString> deliveredSet = toSet(delivered);
    const bool once = deliveredSet.size() == delivered.size();
    const bool complete = deliveredSet + lost == all && toSet(second.seen) == toSet(onDisk);
    const bool leftover = QDir(s.dir).entryList({QStringLiteral("*.cache")}, QDir::Files).isEmpty();
    say(QStringLiteral("Check: each item settled at most once: %1; every item settled or in the read-ahead batch: %2; "
                       "no cache file left: %3.")
            .arg(once ? QStringLiteral("yes") : QStringLiteral("NO"), complete ? QStringLiteral("yes") : QStringLiteral("NO"),
                 leftover ? QStringLiteral("yes") : QStringLiteral("NO")));
    return once && complete && leftover && lost.size() <= 10 && !queue;
}

int runQueueDemo(const QStringList& arguments)
{
    const QString command = QStringLiteral("queue demo");
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Producer threads and consumer jobs on a thread pool move items through a queue whose\n"
        "memory bound is small, so that the overflow goes to cache files; a clean restart half\n"
        "way gets the records back. Checks that no item is lost or delivered twice beyond what\n"
        "the queue promises."));
    parser.addOptions({
        {QStringLiteral("items"), QStringLiteral("Items to move (default 2000)."), QStringLiteral("N")},
        {QStringLiteral("bound"), QStringLiteral("Records in memory at most (default 50; 0: no bound)."), QStringLiteral("B")},
        {QStringLiteral("producers"), QStringLiteral("Producer threads (default 2)."), QStringLiteral("P")},
        {QStringLiteral("consumers"), QStringLiteral("Consumer jobs on the pool (default 2)."), QStringLiteral("C")},
        {QStringLiteral("dir"), QStringLiteral("Folder of the cache files (default: a temporary one)."), QStringLiteral("DIR")},
    });
    if (const auto done = Tool::parse(parser, arguments))
        return *done;
    if (!parser.positionalArguments().isEmpty())
        return Tool::usageError(command, QStringLiteral("unexpected argument '%1'.").arg(parser.positionalArguments().constFirst()));

    QueueScenario s;
    qint64 items = s.items, bound = s.bound, producers = s.producers, consumers = s.consumers;
    if (!Tool::intOption(parser, command, QStringLiteral("items"), 1, 10000000, items)
        || !Tool::intOption(parser, command, QStringLiteral("bound"), 0, 1000000, bound)
        || !Tool::intOption(parser, command, QStringLiteral("producers"), 1, 64, producers)
        || !Tool::intOption(parser, command, QStringLiteral("consumers"), 1, 64, consumers))
        return Tool::UsageError;
    s.items = int(items);
    s.bound = unsigned(bound);
    s.producers = int(producers);
    s.consumers = int(consumers);

    s.logger = Tool::logger();
    QTemporaryDir temporary;
    if (parser.isSet(QStringLiteral("dir"))) {
        s.dir = QDir(parser.value(QStringLiteral("dir"))).absolutePath();
        if (!QDir().mkpath(s.dir))
            return Tool::failure(command, QStringLiteral("cannot create the folder '%1'.").arg(s.dir));
        if (!QDir(s.dir).entryList({QStringLiteral("*.cache")}, QDir::Files).isEmpty())
            return Tool::failure(command, QStringLiteral("'%1' holds cache files already; the demo needs an empty queue.").arg(s.dir));
    } else {
        s.dir = temporary.path();
    }

    const bool terminal = Tool::stderrIsTerminal();
    const auto progress = [terminal, &s](int settled) {
        if (terminal) {
            std::fprintf(stderr, "\rsettled %d of %d items ", settled, s.items);
            std::fflush(stderr);
        }
    };
    const bool ok = runQueueScenario(s, [terminal](const QString& text) {
        if (terminal)
            std::fputs("\r\033[K", stderr);
        Tool::out(text);
    }, progress);
    return ok ? Tool::Success : Tool::failure(command, QStringLiteral("the check failed."));
}

bool demoQueue(DemoContext& context)
{
    QueueScenario s;
    s.items = 400;
    s.bound = 20;
    s.dir = context.stepDir(QStringLiteral("queue"));
    say(QStringLiteral("A TWQueue keeps a bounded number of records in memory and moves the overflow to cache files."));
    return runQueueScenario(s, [](const QString& text) { say(text); }, {});
}

#include "queuedemo.moc"
