// Enqueue + dequeue + remove cycles per second through TWQueue, items of 100
// bytes, in memory (bound 0) and with overflow to cache files (bound 100).
#include <twqueue.h>

#include <QtCore/QTemporaryDir>

#include <benchmark/benchmark.h>

#include <memory>
#include <mutex>

namespace {

class TextItem : public TWQueueItemIface
{
public:
    explicit TextItem(QString text) : _text(std::move(text)) {}
    QString serialize() override { return _text; }

private:
    QString _text;
};

const QString& payload()
{
    static const QString text = QString(100, QLatin1Char('q'));
    return text;
}

// One queue per bound, shared by the threads of a run and made afresh for each run.
struct Shared
{
    std::mutex mutex;
    std::unique_ptr<QTemporaryDir> dir;
    std::unique_ptr<TW::TWQueue> queue;
};

Shared& shared()
{
    static Shared s;
    return s;
}

void setUp(const benchmark::State& state)
{
    Shared& s = shared();
    s.dir = std::make_unique<QTemporaryDir>();
    s.queue = std::make_unique<TW::TWQueue>(QStringLiteral("bench"), unsigned(state.range(0)), s.dir->path());
    // Memory at its bound and as many again in cache files: with a bound, every
    // new item then takes the road through a file, and every removal brings one
    // record back from a file.
    TextItem item(payload());
    for (int i = 0; i < 2 * state.range(0); ++i)
        s.queue->enqueueItem(&item, QStringLiteral("bench"), QStringLiteral("item"));
}

void tearDown(const benchmark::State&)
{
    Shared& s = shared();
    s.queue.reset();
    s.dir.reset();
}

void BM_QueueCycle(benchmark::State& state)
{
    TW::TWQueue& queue = *shared().queue;
    TextItem item(payload());
    const QString kind = QStringLiteral("bench");
    const QString name = QStringLiteral("item");
    QString data;
    for (auto _ : state) {
        queue.enqueueItem(&item, kind, name);
        const QString id = queue.dequeueItem(data, nullptr, nullptr, nullptr);
        if (!id.isEmpty())
            queue.updateItem(id, true);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_QueueCycle)
    ->ArgName("bound")->Arg(0)->Arg(100)
    ->Threads(1)->Threads(4)->UseRealTime()
    ->Setup(setUp)->Teardown(tearDown);

} // namespace

BENCHMARK_MAIN();
