// Throughput of TWZX7::compress, TWZX7::decompress and the bounded decompress
// on generated inputs of 64 KiB and 1 MiB: English-like text, a binary-like
// mix, smooth 24-bit pixels, random bytes and zeros. Each run reports the
// compressed size as the counter "packed" (bytes) and "ratio" (packed/input).
#include <twzx7.h>

#include <QtCore/QList>
#include <QtCore/QRandomGenerator>

#include <benchmark/benchmark.h>

#include <cmath>

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

} // namespace

BENCHMARK(BM_Compress)->Apply(sizesAndKinds);
BENCHMARK(BM_Decompress)->Apply(sizesAndKinds);
BENCHMARK(BM_DecompressBounded)->Apply(sizesAndKinds);

BENCHMARK_MAIN();
