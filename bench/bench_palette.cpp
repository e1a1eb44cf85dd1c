// Palette conversion in megapixels per second on a 1024 x 1024 photo-like
// picture (smooth shading with grain, the generator of bench_tga): 
// TWImageExt::toPaletteImage with the 16 CGA colours, the same with their
// 120 patterns (136 entries, patterns written), and a 256-colour palette
// (3-3-2 bits), each with a warm cache (filled by an earlier call, as a
// caller that converts frame after frame has it), a cold one (empty at each
// call) and none; TWImgFilters::dithering with the 16 colours; and, as the
// floor that the library's shortcuts are measured against, the steps written
// out plainly: closestColor() through the caller's cache for every pixel.
// Before anything is timed, every row's picture and cache are checked against
// those plain steps.
//
// bench_palette --write-inputs DIR writes the picture (photo.png) and the
// palettes, as standard RIFF files (cga.pal, rgb332.pal: the version and count
// words first, so read them with twtool's --skip-first) and as pictures of
// their colours (cga.png, rgb332.png) for ImageMagick's -remap, and exits.
#include "twimagebuilders.h"

#include <twimageext.h>
#include <twimgfilters.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QRandomGenerator>
#include <QtCore/QSet>
#include <QtCore/QtEndian>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

using TW::TWImageExt;

namespace {

using Cache = QHash<int, QHash<int, QHash<int, TWColor>>>;

constexpr int Side = 1024;

QImage photoLike()
{
    QImage image(Side, Side, QImage::Format_RGB32);
    QRandomGenerator rng(20240616u);
    for (int y = 0; y < Side; ++y) {
        QRgb* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < Side; ++x) {
            const int grain = rng.bounded(3) == 0 ? rng.bounded(9) - 4 : 0;
            const int r = int(128 + 100 * std::sin(x / 150.0) * std::cos(y / 210.0)) / 4 * 4 + grain;
            const int g = int(120 + 90 * std::sin((x + y) / 170.0)) / 4 * 4 + grain;
            const int b = int(110 + 80 * std::cos((x - y) / 130.0)) / 4 * 4 + grain;
            line[x] = qRgb(std::clamp(r, 0, 255), std::clamp(g, 0, 255), std::clamp(b, 0, 255));
        }
    }
    return image;
}

// The 16 colours of the CGA, as twtool's built-in palette "cga" has them.
QList<TWColor> cga()
{
    QList<TWColor> palette;
    for (QRgb word : {0x000000u, 0x0000AAu, 0x00AA00u, 0x00AAAAu, 0xAA0000u, 0xAA00AAu, 0xAA5500u, 0xAAAAAAu,
                      0x555555u, 0x5555FFu, 0x55FF55u, 0x55FFFFu, 0xFF5555u, 0xFF55FFu, 0xFFFF55u, 0xFFFFFFu})
        palette << TWColor(word);
    return palette;
}

// 3 bits of red, 3 of green, 2 of blue, each spread over 0 to 255.
QList<TWColor> rgb332()
{
    QList<TWColor> palette;
    for (int i = 0; i < 256; ++i)
        palette << TWColor((i >> 5) * 255 / 7, (i >> 2 & 7) * 255 / 7, (i & 3) * 255 / 3, 255);
    return palette;
}

// The cache with patterns, which TWColor's == leaves out.
QStringList cacheText(const Cache& cache)
{
    QStringList out;
    for (auto r = cache.cbegin(); r != cache.cend(); ++r)
        for (auto g = r->cbegin(); g != r->cend(); ++g)
            for (auto b = g->cbegin(); b != g->cend(); ++b)
                out << QStringLiteral("%1 %2 %3 %4 %5 %6")
                           .arg(r.key()).arg(g.key()).arg(b.key()).arg(b->rgba()).arg(b->patternFirst()).arg(b->patternSecond());
    out.sort();
    return out;
}

void setRate(benchmark::State& state)
{
    state.counters["Mpx/s"] = benchmark::Counter(double(Side) * Side / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

enum class CacheUse { Warm, Cold, None };

void convert(benchmark::State& state, const QImage& image, const QList<TWColor>& palette, bool usePattern, CacheUse use)
{
    Cache warm;
    if (use == CacheUse::Warm)
        TWImageExt::toPaletteImage(image, palette, usePattern, &warm);
    for (auto _ : state) {
        std::optional<Cache> cold;
        if (use == CacheUse::Cold)
            cold.emplace();
        const QImage result = TWImageExt::toPaletteImage(image, palette, usePattern,
                                                         use == CacheUse::Warm ? &warm : cold ? &*cold : nullptr);
        benchmark::DoNotOptimize(result.constBits());
        // The caller frees its cache when it likes: not part of the call.
        state.PauseTiming();
        cold.reset();
        state.ResumeTiming();
    }
    setRate(state);
}

void convertPlainSteps(benchmark::State& state, const QImage& image, const QList<TWColor>& palette)
{
    Cache warm;
    TWTest::paletteImageStepByStep(image, palette, false, &warm);
    for (auto _ : state) {
        const QImage result = TWTest::paletteImageStepByStep(image, palette, false, &warm);
        benchmark::DoNotOptimize(result.constBits());
    }
    setRate(state);
}

void dither(benchmark::State& state, const QImage& image, const QList<TWColor>& palette)
{
    TW::TWImgFilters filters;
    for (auto _ : state) {
        state.PauseTiming();
        filters.setImage(image, 1, false);
        state.ResumeTiming();
        filters.dithering(palette);
    }
    setRate(state);
}

bool writeFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

// A standard RIFF palette: version 0x0300 and the count, then red, green, blue and a flag per colour.
QByteArray riffPalette(const QList<TWColor>& palette)
{
    QByteArray data("\0\3", 2);
    data.append(char(palette.size() & 0xFF)).append(char(palette.size() >> 8));
    for (const TWColor& c : palette)
        data.append(char(c.red())).append(char(c.green())).append(char(c.blue())).append('\0');
    QByteArray file("RIFF....PAL data....");
    qToLittleEndian<quint32>(quint32(12 + data.size()), file.data() + 4);
    qToLittleEndian<quint32>(quint32(data.size()), file.data() + 16);
    return file + data;
}

QImage paletteImage(const QList<TWColor>& palette)
{
    QImage image(int(palette.size()), 1, QImage::Format_RGB32);
    for (int i = 0; i < palette.size(); ++i)
        image.setPixel(i, 0, palette.at(i).rgb());
    return image;
}

int writeInputs(const QString& dir)
{
    QDir().mkpath(dir);
    const QDir out(dir);
    const bool ok = photoLike().save(out.filePath(QStringLiteral("photo.png")))
                    && writeFile(out.filePath(QStringLiteral("cga.pal")), riffPalette(cga()))
                    && paletteImage(cga()).save(out.filePath(QStringLiteral("cga.png")))
                    && writeFile(out.filePath(QStringLiteral("rgb332.pal")), riffPalette(rgb332()))
                    && paletteImage(rgb332()).save(out.filePath(QStringLiteral("rgb332.png")));
    std::printf("%s: photo.png, cga.pal, cga.png, rgb332.pal, rgb332.png\n", ok ? "written" : "FAILED to write");
    return ok ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--write-inputs") == 0)
            return writeInputs(QString::fromLocal8Bit(argv[i + 1]));
    }

    const QImage image = photoLike();
    QSet<QRgb> distinct;
    for (int y = 0; y < Side; ++y)
        for (int x = 0; x < Side; ++x)
            distinct.insert(image.pixel(x, y));
    std::printf("photo-like %dx%d: %lld distinct colours\n", Side, Side, static_cast<long long>(distinct.size()));

    struct Row
    {
        const char* name;
        QList<TWColor> palette;
        bool usePattern;
    };
    const Row rows[] = {{"16", cga(), false},
                        {"136_patterned", TWImageExt::generatePatternedPalette(cga()), true},
                        {"256", rgb332(), false}};
    for (const Row& row : rows) {
        // Every row gives what the plain steps give, and leaves the same cache.
        Cache ours, plain;
        const bool same = TWImageExt::toPaletteImage(image, row.palette, row.usePattern, &ours)
                              == TWTest::paletteImageStepByStep(image, row.palette, row.usePattern, &plain)
                          && cacheText(ours) == cacheText(plain)
                          && TWImageExt::toPaletteImage(image, row.palette, row.usePattern, &ours)
                                 == TWTest::paletteImageStepByStep(image, row.palette, row.usePattern, &plain);
        std::printf("%s entries: %s the plain steps, %lld colours cached\n", row.name, same ? "same as" : "DIFFERENT FROM",
                    static_cast<long long>(cacheText(ours).size()));
        if (!same)
            return 1;
        const std::string base = std::string("toPaletteImage/") + row.name;
        benchmark::RegisterBenchmark((base + "/warm").c_str(), convert, image, row.palette, row.usePattern, CacheUse::Warm)
            ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
        benchmark::RegisterBenchmark((base + "/cold").c_str(), convert, image, row.palette, row.usePattern, CacheUse::Cold)
            ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
        benchmark::RegisterBenchmark((base + "/no_cache").c_str(), convert, image, row.palette, row.usePattern, CacheUse::None)
            ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
    }
    // dithering() leaves each pixel its nearest colour, exchanged as toPaletteImage() has it.
    TW::TWImgFilters filters;
    filters.setImage(image, 1, false);
    filters.dithering(cga());
    if (filters.image() != TWImageExt::toPaletteImage(image, cga(), false, nullptr).convertToFormat(QImage::Format_ARGB32)) {
        std::printf("dithering: DIFFERENT FROM toPaletteImage\n");
        return 1;
    }
    benchmark::RegisterBenchmark("plain_steps/16/warm", convertPlainSteps, image, cga())->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
    benchmark::RegisterBenchmark("dithering/16", dither, image, cga())->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
