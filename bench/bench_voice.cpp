// Samples per second of TWVoiceUtils::voicesToAudioSample for 16-bit samples
// at 44100 Hz over a minute of tones, beside its floor: a plain loop of
// std::sin writing the same samples into a reserved buffer, which is as fast
// as exact samples can come (a sine table or a vectorised sine would change
// bytes). The two rows run as repetitions in random interleaved order, and
// the ratio of their medians is printed at the end.
//
// Also TWVoiceUtils::setDurationResolution over one long tone cut at 1 ms,
// for 1, 2.5 and 10 minutes: linear time shows as an equal rate of pieces per
// second at every length, and as the fitted complexity "N".
#include <twvoiceutils.h>

#include <QtCore/QRandomGenerator>
#include <QtCore/qmath.h>

#include "benchrates.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#ifdef __GLIBC__
#  include <malloc.h>
#endif
#include <map>
#include <string>
#include <vector>

using TW::TWVoice;
using TW::TWVoiceUtils;

namespace {

constexpr int Rate = 44100;

// 240 tones of a quarter of a second on random notes and velocities.
QList<TWVoice> minuteOfTones()
{
    QRandomGenerator rng(20240617u);
    QList<TWVoice> tones;
    for (int k = 0; k < 240; ++k) {
        TWVoice voice;
        voice.frequency = TWVoiceUtils::midiNoteToFrequency(48 + rng.bounded(36));
        voice.duration = 0.25;
        voice.velocity = 40 + rng.bounded(88);
        tones.append(voice);
    }
    return tones;
}

qint64 sampleCount(const QList<TWVoice>& tones)
{
    qint64 count = 0;
    for (const TWVoice& voice : tones)
        count += qint64(voice.duration * Rate);
    return count;
}

void BM_VoicesToAudioSample(benchmark::State& state)
{
    const QList<TWVoice> tones = minuteOfTones();
    for (auto _ : state) {
        const QByteArray samples = TWVoiceUtils::voicesToAudioSample(tones, Rate, 16, true, nullptr);
        benchmark::DoNotOptimize(samples.constData());
    }
    state.SetItemsProcessed(state.iterations() * sampleCount(tones));
}

void BM_SinFloor(benchmark::State& state)
{
    const QList<TWVoice> tones = minuteOfTones();
    const qint64 total = sampleCount(tones);
    for (auto _ : state) {
        std::vector<qint16> samples;
        samples.reserve(size_t(total));
        for (const TWVoice& voice : tones) {
            const int count = int(voice.duration * Rate);
            const double step = voice.frequency * 2.0 * M_PI / Rate;
            const double amplitude = voice.velocity / 127.0;
            for (int n = 0; n < count; ++n)
                samples.push_back(qint16(amplitude * std::sin(step * n) * 32767.0));
        }
        benchmark::DoNotOptimize(samples.data());
    }
    state.SetItemsProcessed(state.iterations() * total);
}

void BM_DurationResolution(benchmark::State& state)
{
    TWVoice tone;
    tone.frequency = 440;
    tone.duration = double(state.range(0));
    tone.velocity = 100;
    const QList<TWVoice> tones{tone};
    qsizetype pieces = 0;
    for (auto _ : state) {
        const QList<TWVoice> cut = TWVoiceUtils::setDurationResolution(tones, 0.0005, 0.001);
        pieces = cut.size();
        benchmark::DoNotOptimize(cut.constData());
    }
    state.SetItemsProcessed(state.iterations() * pieces);
    state.SetComplexityN(pieces);
}


} // namespace

BENCHMARK(BM_VoicesToAudioSample)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SinFloor)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DurationResolution)->Arg(60)->Arg(150)->Arg(600)->Complexity(benchmark::oN)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
#ifdef __GLIBC__
    // Keep freed blocks in the heap for the next iteration. Otherwise the
    // blocks of tens of megabytes go back to the system and every iteration
    // pays the page faults of fresh memory, which on a virtual machine cost
    // more than the work measured (65 ms for the 19 MB of 10 minutes cut).
    mallopt(M_MMAP_THRESHOLD, 512 << 20);
    mallopt(M_TRIM_THRESHOLD, 1024 << 20);
#endif
    // Repetitions in random order by default; flags given later win.
    std::vector<char*> args{argv[0], const_cast<char*>("--benchmark_repetitions=5"),
                            const_cast<char*>("--benchmark_enable_random_interleaving=true")};
    args.insert(args.end(), argv + 1, argv + argc);
    int count = int(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data()))
        return 1;
    TWBench::MedianRates reporter("items_per_second");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const auto library = reporter.rates.find("BM_VoicesToAudioSample");
    const auto floor = reporter.rates.find("BM_SinFloor");
    if (library != reporter.rates.end() && floor != reporter.rates.end())
        std::printf("\nvoicesToAudioSample / std::sin floor: %.1f M / %.1f M samples/s = %.2f\n",
                    library->second / 1e6, floor->second / 1e6, library->second / floor->second);
    return 0;
}
