// TGA decoding in megapixels per second: TWImageExt::tgaFromQByteArray beside
// stb_image (stbi_load_from_memory) on the same bytes, in one program. Pictures
// of 2048 x 2048 at 24 and 32 bits: uncompressed, run-length encoded from a
// photo-like picture (smooth shading with grain: short runs and short raw
// packets, three pixels a packet) and from one with large flat areas (long runs), and, when the shared
// corpus is there, a real photo (fireworks.jpeg) tiled. The rows of the two
// decoders alternate; run with --benchmark_repetitions=N and
// --benchmark_enable_random_interleaving=true to mix them further. At the end
// the ratio of the two decoders is printed for each file (medians when
// repeated).
#include "twimagebuilders.h"

#include <twimageext.h>

#include <QtCore/QRandomGenerator>

#include "benchrates.h"

#include <benchmark/benchmark.h>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_TGA
#include <stb/stb_image.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

namespace {

constexpr int Side = 2048;

enum Content { Photo, Flat, Corpus };

QImage makePicture(Content content, QImage::Format format)
{
    QImage image(Side, Side, format);
    QRandomGenerator rng(20240616u + content);
    const int bpp = image.depth() / 8;
    for (int y = 0; y < Side; ++y) {
        uchar* p = image.scanLine(y);
        for (int x = 0; x < Side; ++x, p += bpp) {
            int r, g, b;
            if (content == Photo) {
                // Slow shading in steps of 4, and grain on about a third of
                // the pixels, so that equal neighbours come in short runs.
                const int grain = rng.bounded(3) == 0 ? rng.bounded(9) - 4 : 0;
                r = int(128 + 100 * std::sin(x / 150.0) * std::cos(y / 210.0)) / 4 * 4 + grain;
                g = int(120 + 90 * std::sin((x + y) / 170.0)) / 4 * 4 + grain;
                b = int(110 + 80 * std::cos((x - y) / 130.0)) / 4 * 4 + grain;
            } else {
                // Boxes of flat colour over a flat background, like a drawing or a screen.
                const int cell = ((x / 256) * 7 + (y / 192) * 3) % 5;
                const bool inBox = (x % 256) > 24 && (y % 192) > 16;
                r = inBox ? 40 * cell : 230, g = inBox ? 200 - 30 * cell : 230, b = inBox ? 60 + 35 * cell : 235;
            }
            p[0] = uchar(std::clamp(r, 0, 255)), p[1] = uchar(std::clamp(g, 0, 255)), p[2] = uchar(std::clamp(b, 0, 255));
            if (bpp == 4)
                p[3] = 255;
        }
    }
    return image;
}

// Packets in a run-length encoded file, and the share of pixels in run packets.
QString packetStats(const QByteArray& file, int bpp)
{
    qint64 packets = 0, pixels = 0, runPixels = 0;
    for (qsizetype at = 18; at < file.size(); ++packets) {
        const int header = uchar(file[at]), count = (header & 0x7F) + 1;
        at += 1 + (header & 0x80 ? bpp : count * bpp);
        pixels += count;
        runPixels += header & 0x80 ? count : 0;
    }
    return QStringLiteral("%1 pixels per packet, %2% of pixels in runs")
        .arg(double(pixels) / double(packets), 0, 'f', 1)
        .arg(100.0 * double(runPixels) / double(pixels), 0, 'f', 0);
}

// A real photo from the shared corpus, when it is there, tiled over the whole picture.
QImage corpusPhoto(QImage::Format format)
{
    const QImage photo = QImage(QStringLiteral(TW_CORPUS_DIR "/fireworks.jpeg")).convertToFormat(format);
    if (photo.isNull())
        return photo;
    QImage image(Side, Side, format);
    const int bpp = image.depth() / 8;
    for (int y = 0; y < Side; ++y) {
        for (int x = 0; x < Side; x += photo.width())
            std::memcpy(image.scanLine(y) + x * bpp, photo.constScanLine(y % photo.height()),
                        size_t(std::min(photo.width(), Side - x) * bpp));
    }
    return image;
}

void decodeWithLibrary(benchmark::State& state, const QByteArray& file)
{
    QImage image;
    for (auto _ : state) {
        const QString error = TW::TWImageExt::tgaFromQByteArray(file, image);
        if (!error.isEmpty()) {
            state.SkipWithError(qPrintable(error));
            break;
        }
        benchmark::DoNotOptimize(image.constBits());
    }
    state.counters["Mpx/s"] = benchmark::Counter(double(Side) * Side / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

void decodeWithStb(benchmark::State& state, const QByteArray& file)
{
    for (auto _ : state) {
        int width = 0, height = 0, channels = 0;
        stbi_uc* pixels = stbi_load_from_memory(reinterpret_cast<const stbi_uc*>(file.constData()), int(file.size()),
                                                &width, &height, &channels, 0);
        if (!pixels) {
            state.SkipWithError(stbi_failure_reason());
            break;
        }
        benchmark::DoNotOptimize(pixels);
        stbi_image_free(pixels);
    }
    state.counters["Mpx/s"] = benchmark::Counter(double(Side) * Side / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

// Prints the usual table, then each file's two rates and their ratio.
class RatioReporter : public TWBench::MedianRates
{
public:
    RatioReporter() : MedianRates("Mpx/s") {}

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        std::printf("\n%-22s %12s %12s %8s\n", "file", "TWImageExt", "stb_image", "ratio");
        for (const auto& [file, rates] : bySide()) { // "<file>/<decoder>"
            const auto ours = rates.find("TWImageExt"), theirs = rates.find("stb_image");
            if (ours != rates.end() && theirs != rates.end())
                std::printf("%-22s %8.0f Mpx/s %6.0f Mpx/s %7.2fx\n", file.c_str(), ours->second, theirs->second,
                            ours->second / theirs->second);
        }
    }
};

} // namespace

int main(int argc, char** argv)
{
    struct Sample
    {
        const char* name;
        Content content;
        bool rle;
    };
    const Sample samples[] = {{"raw", Photo, false}, {"rle_photo", Photo, true}, {"rle_flat", Flat, true},
                              {"rle_fireworks", Corpus, true}};
    for (const QImage::Format format : {QImage::Format_RGB888, QImage::Format_RGBA8888}) {
        for (const Sample& sample : samples) {
            const QImage picture = sample.content == Corpus ? corpusPhoto(format) : makePicture(sample.content, format);
            if (picture.isNull())
                continue;
            const QByteArray file = TWTest::tgaFile(picture, sample.rle, false);
            const std::string name = std::to_string(QImage::toPixelFormat(format).bitsPerPixel()) + "bit_" + sample.name;
            std::printf("%s: %lld bytes%s\n", name.c_str(), static_cast<long long>(file.size()),
                        sample.rle ? qPrintable(QStringLiteral(", ") + packetStats(file, format == QImage::Format_RGB888 ? 3 : 4)) : "");
            benchmark::RegisterBenchmark((name + "/TWImageExt").c_str(), decodeWithLibrary, file)->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark((name + "/stb_image").c_str(), decodeWithStb, file)->Unit(benchmark::kMillisecond);
        }
    }
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
