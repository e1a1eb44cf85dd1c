// Lines per second of four writers of the same 611-byte log line, each line
// flushed to the file at once:
//
//   TWLogger::writeLog   the library, 500-character messages, default settings
//   spdlog               a rotating file sink (libspdlog-dev), the same line shape,
//                        flushed at every line; built in when the package is found
//   fprintf + fflush     a line formatted beforehand, under a mutex
//   write(2)             a constant line on a descriptor opened for appending: the
//                        floor of what a line costs
//
// Each run is a process of its own (fork), so that no writer inherits the heap,
// the caches or the file system state that another left behind, and the writers
// take turns: every round starts with another one. A run writes --lines lines,
// split over the threads, into a fresh folder that is removed afterwards. The
// report gives each writer's median lines/s and the medians of its ratios to
// fprintf + fflush and to spdlog in the same round (paired ratios, so that a
// slow moment of the machine weighs on both sides), at 1 and at 4 threads.
//
//   bench_logger [--rounds N] [--lines N] [--threads 1,4] [--dir FOLDER] [--only WRITER] [--verbose]
//
// --only runs one writer (library, spdlog, fprintf or write), for a profiler.
// The folder defaults to a temporary one (TMPDIR); give --dir /dev/shm to
// measure on tmpfs.
#include "benchrates.h"

#include <twlogger.h>

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

#ifdef TW_HAVE_SPDLOG
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#endif

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using TWBench::loadAverage;
using TWBench::median;

enum Writer { Library, Spdlog, Fprintf, Write, WriterCount };
const char* const writerNames[WriterCount] = {"TWLogger::writeLog", "spdlog", "fprintf + fflush", "write(2)"};

// The same source location for every writer; with the default date format the
// line is 611 bytes with its "\r\n".
const char* const SourceFile = "bench/bench_logger.cpp";
constexpr int SourceLine = 12345;
const char* const SourceFunction = "void work(int)";
constexpr qint64 MaxFileSize = 10485760; // the logger's default, given to spdlog too

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

// A logger line as TWLogger writes it at this moment, for the writers that
// write a line made beforehand.
QByteArray preformattedLine()
{
    return (QDateTime::currentDateTime().toString(QStringLiteral("dd/MM/yy hh:mm:ss.zzz"))
            + QStringLiteral(" INFO     - %1 - in '%2' file, line: %3, function: '%4'\r\n")
                  .arg(message(), QLatin1String(SourceFile), QString::number(SourceLine), QLatin1String(SourceFunction)))
        .toLocal8Bit();
}

struct Result
{
    double linesPerSecond = -1; // negative: the run failed
    double cpuMicrosPerLine = 0;
};

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
        + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Runs \a writeOne \a lines times over \a threads threads, all released at once.
template<typename WriteOne>
Result timeThreads(int threads, qint64 lines, WriteOne writeOne)
{
    std::atomic<int> ready{0};
    std::atomic<bool> go{false}, failed{false};
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        const qint64 share = lines / threads + (t < lines % threads ? 1 : 0);
        pool.emplace_back([&, share] {
            ready.fetch_add(1);
            while (!go.load())
                std::this_thread::yield();
            for (qint64 i = 0; i < share; ++i) {
                if (!writeOne())
                    failed.store(true);
            }
        });
    }
    while (ready.load() < threads)
        std::this_thread::yield();
    const double cpuBefore = cpuSeconds();
    const auto start = std::chrono::steady_clock::now();
    go.store(true);
    for (std::thread& thread : pool)
        thread.join();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    Result result;
    if (!failed.load()) {
        result.linesPerSecond = double(lines) / elapsed.count();
        result.cpuMicrosPerLine = (cpuSeconds() - cpuBefore) * 1e6 / double(lines);
    }
    return result;
}

Result runWriter(Writer writer, int threads, qint64 lines, const QString& folder)
{
    const QString path = QDir(folder).filePath(QStringLiteral("bench.log"));
    switch (writer) {
    case Library: {
        TW::TWLogger logger;
        logger.setFilePath(folder);
        logger.setFileName(QStringLiteral("bench.log"));
        logger.setConsoleOutput(false);
        logger.setMaxFileSize(MaxFileSize);
        const QString& msg = message();
        const QString file = QString::fromLatin1(SourceFile);
        const QString function = QString::fromLatin1(SourceFunction);
        return timeThreads(threads, lines, [&] { return logger.writeLog(msg, QtInfoMsg, file, SourceLine, function); });
    }
    case Spdlog: {
#ifdef TW_HAVE_SPDLOG
        // Enough files that a run never deletes one.
        auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(QFile::encodeName(path).toStdString(),
                                                                           size_t(MaxFileSize), 100);
        spdlog::logger logger("bench", sink);
        logger.set_formatter(std::make_unique<spdlog::pattern_formatter>(
            "%d/%m/%C %H:%M:%S.%e %-8l - %v - in '%g' file, line: %#, function: '%!'", spdlog::pattern_time_type::local,
            "\r\n"));
        logger.flush_on(spdlog::level::info);
        const std::string msg = message().toStdString();
        const spdlog::source_loc where{SourceFile, SourceLine, SourceFunction};
        return timeThreads(threads, lines, [&] {
            logger.log(where, spdlog::level::info, spdlog::string_view_t(msg));
            return true;
        });
#else
        return {};
#endif
    }
    case Fprintf: {
        FILE* file = std::fopen(QFile::encodeName(path).constData(), "a");
        if (!file)
            return {};
        QByteArray line = preformattedLine();
        line.chop(2); // the format adds the separator
        std::mutex mutex;
        const Result result = timeThreads(threads, lines, [&] {
            std::lock_guard<std::mutex> lock(mutex);
            std::fprintf(file, "%s\r\n", line.constData());
            return std::fflush(file) == 0;
        });
        std::fclose(file);
        return result;
    }
    case Write: {
        const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        if (fd < 0)
            return {};
        const QByteArray line = preformattedLine();
        const Result result = timeThreads(threads, lines, [&] {
            return ::write(fd, line.constData(), size_t(line.size())) == line.size();
        });
        ::close(fd);
        return result;
    }
    case WriterCount:
        break;
    }
    return {};
}

// One run in a child process, in a folder of its own below \a base.
Result runInChild(Writer writer, int threads, qint64 lines, const QString& base)
{
    int fds[2];
    if (::pipe(fds) != 0)
        return {};
    std::fflush(stdout);
    const pid_t pid = ::fork();
    if (pid < 0)
        return {};
    if (pid == 0) {
        ::close(fds[0]);
        const QString folder = QDir(base).filePath(QStringLiteral("run-%1").arg(::getpid()));
        Result result;
        if (QDir().mkpath(folder))
            result = runWriter(writer, threads, lines, folder);
        QDir(folder).removeRecursively();
        const bool sent = ::write(fds[1], &result, sizeof result) == ssize_t(sizeof result);
        ::_exit(sent ? 0 : 1);
    }
    ::close(fds[1]);
    Result result;
    if (::read(fds[0], &result, sizeof result) != ssize_t(sizeof result))
        result = {};
    ::close(fds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return result;
}

// The first line each writer puts in a file, written in a child as a run of one line.
QByteArray firstLine(Writer writer, const QString& base)
{
    const QString folder = QDir(base).filePath(QStringLiteral("sample-%1").arg(int(writer)));
    QDir().mkpath(folder);
    std::fflush(stdout);
    const pid_t pid = ::fork();
    if (pid == 0) {
        runWriter(writer, 1, 1, folder);
        ::_exit(0);
    }
    int status = 0;
    if (pid > 0)
        ::waitpid(pid, &status, 0);
    QByteArray line;
    const QDir dir(folder);
    for (const QString& name : dir.entryList(QDir::Files)) {
        QFile file(dir.filePath(name));
        if (file.open(QIODevice::ReadOnly))
            line += file.readAll();
    }
    QDir(folder).removeRecursively();
    return line;
}

bool writerBuilt(Writer writer)
{
#ifdef TW_HAVE_SPDLOG
    Q_UNUSED(writer)
    return true;
#else
    return writer != Spdlog;
#endif
}

} // namespace

int main(int argc, char** argv)
{
    int rounds = 5;
    qint64 lines = 200000;
    std::vector<int> threadCounts{1, 4};
    QString base;
    bool verbose = false;
    QByteArray only;
    for (int i = 1; i < argc; ++i) {
        const QByteArray arg(argv[i]);
        const QByteArray value = i + 1 < argc ? QByteArray(argv[i + 1]) : QByteArray();
        bool ok = true;
        if (arg == "--rounds")
            rounds = value.toInt(&ok), ++i;
        else if (arg == "--lines")
            lines = value.toLongLong(&ok), ++i;
        else if (arg == "--dir")
            base = QString::fromLocal8Bit(value), ++i;
        else if (arg == "--only")
            only = value, ++i;
        else if (arg == "--verbose")
            verbose = true;
        else if (arg == "--threads") {
            threadCounts.clear();
            for (const QByteArray& count : value.split(','))
                threadCounts.push_back(count.toInt(&ok));
            ++i;
        } else
            ok = false;
        if (!ok || rounds < 1 || lines < 1
            || std::any_of(threadCounts.begin(), threadCounts.end(), [](int n) { return n < 1; })) {
            std::fprintf(stderr, "usage: %s [--rounds N] [--lines N] [--threads 1,4] [--dir FOLDER] [--only WRITER] [--verbose]\n",
                         argv[0]);
            return 2;
        }
    }
    QTemporaryDir temporary(base.isEmpty() ? QDir::tempPath() + QStringLiteral("/bench_logger-XXXXXX")
                                           : QDir(base).filePath(QStringLiteral("bench_logger-XXXXXX")));
    if (!temporary.isValid()) {
        std::fprintf(stderr, "Cannot make a folder in %s\n", qPrintable(base.isEmpty() ? QDir::tempPath() : base));
        return 1;
    }

    static const char* const keys[WriterCount] = {"library", "spdlog", "fprintf", "write"};
    std::vector<Writer> writers;
    for (int w = 0; w < WriterCount; ++w) {
        if (writerBuilt(Writer(w)) && (only.isEmpty() || only == keys[w]))
            writers.push_back(Writer(w));
    }
    if (writers.empty()) {
        std::fprintf(stderr, "No writer called '%s' (library, spdlog, fprintf or write)\n", only.constData());
        return 2;
    }
    if (!writerBuilt(Spdlog))
        std::printf("spdlog (libspdlog-dev) was not found at build time: its row is left out\n");
    std::printf("%lld lines per run, %d rounds, folder %s\n", static_cast<long long>(lines), rounds,
                qPrintable(temporary.path()));
    for (Writer writer : writers) {
        const QByteArray line = firstLine(writer, temporary.path());
        std::printf("  %-20s line of %lld bytes: %.*s\n", writerNames[writer], static_cast<long long>(line.size()),
                    verbose ? int(line.size()) : 40, line.constData());
    }
    std::printf("load average at the start: %s\n", loadAverage().constData());

    // results[threads index][writer][round]
    std::vector<std::vector<std::vector<Result>>> results(
        threadCounts.size(), std::vector<std::vector<Result>>(WriterCount, std::vector<Result>(size_t(rounds))));
    for (int round = 0; round < rounds; ++round) {
        for (size_t t = 0; t < threadCounts.size(); ++t) {
            for (size_t k = 0; k < writers.size(); ++k) {
                const Writer writer = writers[(size_t(round) + k) % writers.size()];
                const Result result = runInChild(writer, threadCounts[t], lines, temporary.path());
                results[t][writer][size_t(round)] = result;
                if (verbose)
                    std::printf("round %d, %d thread(s), %-20s %9.0f lines/s, %.2f us CPU/line\n", round + 1,
                                threadCounts[t], writerNames[writer], result.linesPerSecond, result.cpuMicrosPerLine);
                if (result.linesPerSecond < 0) {
                    std::fprintf(stderr, "%s failed\n", writerNames[writer]);
                    return 1;
                }
            }
        }
    }
    std::printf("load average at the end: %s\n\n", loadAverage().constData());

    const auto ran = [&writers](Writer writer) {
        return std::find(writers.begin(), writers.end(), writer) != writers.end();
    };
    std::printf("%-7s %-20s %12s %10s %10s %9s %8s %12s\n", "threads", "writer", "lines/s", "min", "max", "/fprintf",
                "/spdlog", "CPU us/line");
    for (size_t t = 0; t < threadCounts.size(); ++t) {
        for (Writer writer : writers) {
            std::vector<double> rates, toFprintf, toSpdlog, cpu;
            for (size_t r = 0; r < size_t(rounds); ++r) {
                const double rate = results[t][writer][r].linesPerSecond;
                rates.push_back(rate);
                cpu.push_back(results[t][writer][r].cpuMicrosPerLine);
                toFprintf.push_back(rate / results[t][Fprintf][r].linesPerSecond);
                toSpdlog.push_back(rate / results[t][Spdlog][r].linesPerSecond);
            }
            const auto ratio = [](bool peerRan, const std::vector<double>& ratios) {
                return peerRan ? QByteArray::number(median(ratios), 'f', 2) : QByteArray("-");
            };
            std::printf("%-7d %-20s %12.0f %10.0f %10.0f %9s %8s %12.2f\n", threadCounts[t], writerNames[writer],
                        median(rates), *std::min_element(rates.begin(), rates.end()),
                        *std::max_element(rates.begin(), rates.end()), ratio(ran(Fprintf), toFprintf).constData(),
                        ratio(ran(Spdlog), toSpdlog).constData(), median(cpu));
        }
    }
    std::printf("\nlines/s: median of the rounds (min and max beside it); /fprintf, /spdlog: median of the\n"
                "ratios within each round; CPU: user and system time of the run's process per line\n");
    return 0;
}
