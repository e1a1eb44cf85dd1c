// Throughput of TWZX7::compress, TWZX7::decompress and the bounded decompress
// on generated inputs of 64 KiB and 1 MiB: English-like text, a binary-like
// mix, smooth 24-bit pixels, random bytes and zeros. Each run reports the
// compressed size as the counter "packed" (bytes) and "ratio" (packed/input).
//
// The rows peer/<input>/reference and peer/<input>/TWZX7 compress the same
// bytes with the classic optimal encoder (tests/support/twzx7reference.h) and
// with TWZX7::compress, one after the other: the files of the shared corpus
// when it is there, and 1 MiB each of random bytes, of smooth 24-bit pixels
// and of a smooth 8-bit grey picture. Run them
// with --benchmark_filter=peer/ --benchmark_repetitions=5
// --benchmark_enable_random_interleaving=true to mix the rows further; at the
// end each input's two rates in MB/s and their ratio are printed (medians when
// repeated), with the load average before and after, since the rows are only
// as steady as the machine. The ratio is steadier measured in pairs:
// --pairs=N runs only that comparison, N pairs per input (see comparePaired).
#include "twzx7reference.h"

#include <twzx7.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QList>
#include <QtCore/QRandomGenerator>

#include "benchrates.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <string>
#include <vector>

namespace {

enum Kind { Text, Binary, Pixels, Random, Zeros };
const char* const kindNames[] = {"text", "binary", "pixels", "random", "zeros"};

QByteArray englishLike(QRandomGenerator& rng, qsizetype size)
{
    static const char* const words[] = {
        "the", "of", "and", "to", "a", "in", "is", "it", "you", "that", "he", "was", "for", "on", "are",
        "with", "as", "his", "they", "be", "at", "one", "have", "this", "from", "or", "had", "by", "word",
        "but", "what", "some", "we", "can", "out", "other", "were", "all", "there", "when", "up", "use",
        "your", "how", "said", "an", "each", "she", "which", "do", "their", "time", "if", "will", "way",
        "about", "many", "then", "them", "write", "would", "like", "so", "these", "her", "long", "make",
        "thing", "see", "him", "two", "has", "look", "more", "day", "could", "go", "come", "did", "number",
        "sound", "no", "most", "people", "my", "over", "know", "water", "than", "call", "first", "who",
        "may", "down", "side", "been", "now", "find", "compression", "library", "window", "picture",
        "thread", "queue", "logger", "morning", "question", "remember", "together", "important"};
    const int count = int(sizeof(words) / sizeof(words[0]));
    QByteArray out;
    out.reserve(size + 32);
    bool capital = true;
    while (out.size() < size) {
        // Frequent words come first in the list: favour them (roughly Zipf).
        const int index = std::min(count - 1, int(count * std::pow(rng.generateDouble(), 2.5)));
        QByteArray word(words[index]);
        if (capital)
            word[0] = char(word[0] - 'a' + 'A');
        out += word;
        capital = false;
        const int r = rng.bounded(100);
        if (r < 8) {
            out += r < 2 ? ".\n" : ". ";
            capital = true;
        } else if (r < 13) {
            out += ", ";
        } else {
            out += ' ';
        }
    }
    out.truncate(size);
    return out;
}

// Something like an executable: code-like bytes, tables of small 32-bit
// numbers, strings, and runs of zeros for padding.
QByteArray binaryLike(QRandomGenerator& rng, qsizetype size)
{
    static const uchar opcodes[] = {0x48, 0x89, 0x8B, 0xE8, 0xFF, 0x0F, 0x85, 0x84, 0xC3, 0x83, 0xC7, 0x45, 0x8D};
    QByteArray out;
    out.reserve(size + 4096);
    while (out.size() < size) {
        const int section = rng.bounded(10);
        const int length = 64 + rng.bounded(1024);
        if (section < 5) {
            for (int k = 0; k < length; ++k)
                out.append(char(rng.bounded(4) ? opcodes[rng.bounded(int(sizeof(opcodes)))] : rng.bounded(256)));
        } else if (section < 7) {
            for (int k = 0; k < length / 4; ++k) {
                const quint32 v = rng.bounded(1 << (4 * (1 + rng.bounded(4))));
                out.append(char(v)).append(char(v >> 8)).append(char(v >> 16)).append(char(v >> 24));
            }
        } else if (section < 9) {
            out += englishLike(rng, length / 4);
            out.append('\0');
        } else {
            out.append(QByteArray(16 << rng.bounded(7), '\0'));
        }
    }
    out.truncate(size);
    return out;
}

// A picture 512 pixels wide of slow waves in each channel, with a little noise.
QByteArray smoothPixels(QRandomGenerator& rng, qsizetype size)
{
    QByteArray out(size, '\0');
    const int width = 512;
    for (qsizetype k = 0; k < size; ++k) {
        const qsizetype pixel = k / 3;
        const double x = double(pixel % width), y = double(pixel / width);
        double v = 0;
        switch (k % 3) {
        case 0: v = 128 + 90 * std::sin(x / 53 + y / 71); break;
        case 1: v = 120 + 80 * std::sin(x / 97 - y / 43 + 1); break;
        default: v = 110 + 70 * std::cos((x + y) / 61); break;
        }
        out[k] = char(int(v) + (rng.bounded(8) == 0 ? 1 : 0));
    }
    return out;
}

// One channel of 8 bits, 1024 pixels wide, of the first channel's waves:
// a grey picture, whose pairs repeat far more than the interleaved channels'.
QByteArray smoothGrey(QRandomGenerator& rng, qsizetype size)
{
    QByteArray out(size, '\0');
    const int width = 1024;
    for (qsizetype k = 0; k < size; ++k) {
        const double x = double(k % width), y = double(k / width);
        out[k] = char(int(128 + 90 * std::sin(x / 53 + y / 71)) + (rng.bounded(8) == 0 ? 1 : 0));
    }
    return out;
}

QByteArray input(Kind kind, qsizetype size)
{
    QRandomGenerator rng(20240601u + quint32(kind));
    switch (kind) {
    case Text: return englishLike(rng, size);
    case Binary: return binaryLike(rng, size);
    case Pixels: return smoothPixels(rng, size);
    case Random: {
        QByteArray out(size, '\0');
        rng.fillRange(reinterpret_cast<quint32*>(out.data()), size / 4);
        return out;
    }
    case Zeros: break;
    }
    return QByteArray(size, '\0');
}

void report(benchmark::State& state, qsizetype size, qsizetype packed)
{
    state.SetBytesProcessed(state.iterations() * size);
    state.counters["packed"] = double(packed);
    state.counters["ratio"] = double(packed) / double(size);
    state.SetLabel(kindNames[state.range(0)]);
}

void BM_Compress(benchmark::State& state)
{
    const QByteArray data = input(Kind(state.range(0)), state.range(1));
    QByteArray packed;
    for (auto _ : state) {
        packed = TW::TWZX7::compress(data, 0);
        benchmark::DoNotOptimize(packed.constData());
    }
    report(state, data.size(), packed.size());
}

void BM_Decompress(benchmark::State& state)
{
    const QByteArray data = input(Kind(state.range(0)), state.range(1));
    const QByteArray packed = TW::TWZX7::compress(data, 0);
    for (auto _ : state) {
        const QByteArray out = TW::TWZX7::decompress(packed);
        benchmark::DoNotOptimize(out.constData());
    }
    report(state, data.size(), packed.size());
}

void BM_DecompressBounded(benchmark::State& state)
{
    const QByteArray data = input(Kind(state.range(0)), state.range(1));
    const QByteArray packed = TW::TWZX7::compress(data, 0);
    bool ok = false;
    for (auto _ : state) {
        const QByteArray out = TW::TWZX7::decompress(packed, data.size(), &ok);
        benchmark::DoNotOptimize(out.constData());
    }
    if (!ok)
        state.SkipWithError("the bounded decoder refused a valid stream");
    report(state, data.size(), packed.size());
}

void sizesAndKinds(benchmark::internal::Benchmark* b)
{
    b->ArgNames({"kind", "bytes"});
    for (int kind = Text; kind <= Zeros; ++kind)
        for (qsizetype size : {qsizetype(64) << 10, qsizetype(1) << 20})
            b->Args({kind, size});
    b->Unit(benchmark::kMillisecond);
}

void compressWithReference(benchmark::State& state, const QByteArray& data)
{
    for (auto _ : state) {
        const TWTest::Zx7Reference packed = TWTest::zx7ReferenceCompress(data, 0);
        benchmark::DoNotOptimize(packed.stream.constData());
    }
    state.counters["MB/s"] = benchmark::Counter(double(data.size()) / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

void compressWithLibrary(benchmark::State& state, const QByteArray& data)
{
    for (auto _ : state) {
        const QByteArray packed = TW::TWZX7::compress(data, 0);
        benchmark::DoNotOptimize(packed.constData());
    }
    state.counters["MB/s"] = benchmark::Counter(double(data.size()) / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

// Prints the usual table, then each input's two rates and their ratio.
class RatioReporter : public TWBench::MedianRates
{
public:
    RatioReporter() : MedianRates("MB/s") {}

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        const auto grouped = bySide("peer/"); // "peer/<input>/<encoder>"
        if (grouped.empty())
            return;
        std::printf("\n%-20s %10s %10s %10s %8s\n", "input", "bytes", "reference", "TWZX7", "ratio");
        for (const auto& [input, rates] : grouped) {
            const auto theirs = rates.find("reference"), ours = rates.find("TWZX7");
            if (ours != rates.end() && theirs != rates.end())
                std::printf("%-20s %10lld %5.1f MB/s %5.1f MB/s %7.2fx\n", input.c_str(), sizes[input], theirs->second,
                            ours->second, ours->second / theirs->second);
        }
        std::printf("load average before: %s, after: %s\n", loadBefore.constData(), TWBench::loadAverage().constData());
    }

    std::map<std::string, long long> sizes;
    QByteArray loadBefore = TWBench::loadAverage();
};

double threadSeconds()
{
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

/*
 * The ratio measured in pairs: the two encoders compress the same bytes one
 * right after the other, in turns, so that each pair shares the state of the
 * machine, and the order alternates from pair to pair. The median of the
 * pairs' ratios then stays put where the medians of each side, taken apart,
 * move with whatever else the machine runs. Prints the median rates, the
 * median ratio and the middle half of the ratios.
 */
void comparePaired(const QList<std::pair<QString, QByteArray>>& inputs, int pairs)
{
    std::printf("%-20s %10s %10s %10s %8s %14s\n", "input", "bytes", "reference", "TWZX7", "ratio", "middle half");
    for (const auto& [name, data] : inputs) {
        std::vector<double> theirs, ours, ratios;
        for (int k = 0; k < pairs; ++k) {
            double reference = 0, library = 0;
            for (int side = 0; side < 2; ++side) {
                const double start = threadSeconds();
                if ((side + k) % 2 == 0) {
                    benchmark::DoNotOptimize(TWTest::zx7ReferenceCompress(data, 0).stream.constData());
                    reference = threadSeconds() - start;
                } else {
                    benchmark::DoNotOptimize(TW::TWZX7::compress(data, 0).constData());
                    library = threadSeconds() - start;
                }
            }
            theirs.push_back(reference);
            ours.push_back(library);
            ratios.push_back(reference / library);
        }
        std::sort(ratios.begin(), ratios.end());
        const double megabytes = double(data.size()) / 1e6;
        std::printf("%-20s %10lld %5.1f MB/s %5.1f MB/s %7.2fx %6.2fx-%5.2fx\n", qPrintable(name), qint64(data.size()),
                    megabytes / TWBench::median(theirs), megabytes / TWBench::median(ours), TWBench::median(ratios),
                    ratios[ratios.size() / 4], ratios[(3 * ratios.size()) / 4]);
    }
    std::printf("load average after: %s\n", TWBench::loadAverage().constData());
}

} // namespace


BENCHMARK(BM_Compress)->Apply(sizesAndKinds);
BENCHMARK(BM_Decompress)->Apply(sizesAndKinds);
BENCHMARK(BM_DecompressBounded)->Apply(sizesAndKinds);

int main(int argc, char** argv)
{
    // --pairs=N: only the paired comparison with the reference, N pairs per input.
    int pairs = 0;
    for (int k = 1; k < argc; ++k) {
        if (std::strncmp(argv[k], "--pairs=", 8) == 0) {
            pairs = std::max(1, std::atoi(argv[k] + 8));
            std::copy(argv + k + 1, argv + argc, argv + k);
            --argc;
            break;
        }
    }
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;

    QList<std::pair<QString, QByteArray>> inputs;
    const QDir corpus(QStringLiteral(TW_CORPUS_DIR));
    for (const QString& name : corpus.entryList(QDir::Files, QDir::Name)) {
        QFile file(corpus.filePath(name));
        if (name != QLatin1String("README.md") && file.open(QIODevice::ReadOnly))
            inputs.append({name, file.readAll()});
    }
    if (inputs.isEmpty())
        std::printf("no corpus in %s: generated inputs only\n", TW_CORPUS_DIR);
    inputs.append({QStringLiteral("random_1MiB"), input(Random, qsizetype(1) << 20)});
    inputs.append({QStringLiteral("pixels_1MiB"), input(Pixels, qsizetype(1) << 20)});
    QRandomGenerator greyRng(20240601u + 5);
    inputs.append({QStringLiteral("grey_1MiB"), smoothGrey(greyRng, qsizetype(1) << 20)});

    // The two encoders must agree before their speeds mean anything.
    for (const auto& [name, data] : inputs) {
        const std::string key = name.toStdString();
        const QByteArray packed = TW::TWZX7::compress(data, 0);
        if (packed != TWTest::zx7ReferenceCompress(data, 0).stream) {
            std::fprintf(stderr, "%s: TWZX7::compress differs from the reference encoder\n", key.c_str());
            return 1;
        }
        if (pairs > 0)
            continue;
        reporter.sizes[key] = data.size();
        benchmark::RegisterBenchmark(("peer/" + key + "/reference").c_str(), compressWithReference, data)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("peer/" + key + "/TWZX7").c_str(), compressWithLibrary, data)
            ->Unit(benchmark::kMillisecond);
    }

    if (pairs > 0) {
        std::printf("load average before: %s\n", TWBench::loadAverage().constData());
        comparePaired(inputs, pairs);
        return 0;
    }
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
