// Lines per second through TWLogger::writeLog (500-character messages, flushed
// per line) beside fprintf + fflush of a line of the same length under a mutex.
#include <twlogger.h>

#include <QtCore/QDir>
#include <QtCore/QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <mutex>

namespace {

QTemporaryDir& workDir()
{
    static QTemporaryDir dir;
    return dir;
}

const QString& message()
{
    static const QString text = [] {
        QString s;
        for (int i = 0; s.size() < 500; ++i)
            s += QStringLiteral("lorem ipsum %1 ").arg(i);
        return s.left(500);
    }();
    return text;
}

TW::TWLogger& benchLogger()
{
    static TW::TWLogger* logger = [] {
        auto* l = new TW::TWLogger;
        l->setFilePath(workDir().path());
        l->setFileName(QStringLiteral("bench.log"));
        l->setConsoleOutput(false);
        return l;
    }();
    return *logger;
}

void BM_TWLoggerWriteLog(benchmark::State& state)
{
    TW::TWLogger& logger = benchLogger();
    const QString& msg = message();
    const QString file = QStringLiteral(__FILE__);
    const QString function = QStringLiteral("void BM_TWLoggerWriteLog(benchmark::State&)");
    for (auto _ : state)
        benchmark::DoNotOptimize(logger.writeLog(msg, QtInfoMsg, file, __LINE__, function));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TWLoggerWriteLog)->Threads(1)->Threads(4)->UseRealTime();

struct Baseline
{
    std::mutex mutex;
    FILE* file = nullptr;
    QByteArray line;
};

Baseline& baseline()
{
    static Baseline* b = [] {
        auto* result = new Baseline;
        const QString path = QDir(workDir().path()).filePath(QStringLiteral("baseline.log"));
        result->file = std::fopen(QFile::encodeName(path).constData(), "a");
        // Same length as a logger line: date, level, padded message, source location.
        const QString line = QStringLiteral("23/11/26 12:00:00.000 INFO     - %1 - in '%2' file, line: 00042, "
                                            "function: 'void BM_TWLoggerWriteLog(benchmark::State&)'")
                                 .arg(message(), QStringLiteral(__FILE__));
        result->line = line.toLocal8Bit();
        return result;
    }();
    return *b;
}

void BM_FprintfBaseline(benchmark::State& state)
{
    Baseline& b = baseline();
    for (auto _ : state) {
        std::lock_guard<std::mutex> lock(b.mutex);
        std::fprintf(b.file, "%s\r\n", b.line.constData());
        std::fflush(b.file);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FprintfBaseline)->Threads(1)->Threads(4)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
