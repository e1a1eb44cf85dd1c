#ifndef TWIMAGEBUILDERS_H
#define TWIMAGEBUILDERS_H

// Builders for the image tests: TGA files from a QImage or field by field,
// RIFF palette files chunk by chunk, and palette pictures step by step.

#include <QtCore/QByteArray>
#include <QtCore/QtEndian>
#include <QtGui/QImage>

#include <twimageext.h>

#include <cstring>

namespace TWTest {

/*! A palette of the given colour words. */
inline QList<TWColor> colors(std::initializer_list<QRgb> words)
{
    QList<TWColor> out;
    for (QRgb w : words)
        out << TWColor(w);
    return out;
}

/*! An 18-byte TGA header; \a description carries the origin bit (0x20 = top down). */
struct TgaHeader
{
    int imageType = 2;
    int width = 1;
    int height = 1;
    int depth = 24;
    int description = 0;
    int idLength = 0;
    int colorMapType = 0;
    int colorMapLength = 0;
    int colorMapEntrySize = 0;

    QByteArray bytes() const
    {
        QByteArray h(18, '\0');
        const auto u16 = [&h](int at, int v) { qToLittleEndian<quint16>(quint16(v), h.data() + at); };
        h[0] = char(idLength), h[1] = char(colorMapType), h[2] = char(imageType);
        u16(3, 0), u16(5, colorMapLength), h[7] = char(colorMapEntrySize);
        u16(8, 0), u16(10, 0), u16(12, width), u16(14, height);
        h[16] = char(depth), h[17] = char(description);
        return h;
    }
};

/*!
 * The pixels of \a image (Format_RGB888 or Format_RGBA8888) as a TGA file's
 * pixel stream: blue, green, red (and alpha), rows top down or bottom up.
 */
inline QByteArray tgaPixels(const QImage& image, bool topDown)
{
    const int bpp = image.depth() / 8;
    QByteArray out;
    out.reserve(qsizetype(image.width()) * image.height() * bpp);
    for (int i = 0; i < image.height(); ++i) {
        const uchar* row = image.constScanLine(topDown ? i : image.height() - 1 - i);
        for (int x = 0; x < image.width(); ++x, row += bpp) {
            out.append(char(row[2])).append(char(row[1])).append(char(row[0]));
            if (bpp == 4)
                out.append(char(row[3]));
        }
    }
    return out;
}

/*!
 * Run-length packets over the whole pixel stream, so packets cross rows:
 * a run packet for two or more equal pixels, raw packets otherwise.
 */
inline QByteArray tgaPackets(const QByteArray& pixels, int bpp)
{
    QByteArray out;
    const qsizetype n = pixels.size() / bpp;
    const auto same = [&](qsizetype a, qsizetype b) {
        return std::memcmp(pixels.constData() + a * bpp, pixels.constData() + b * bpp, size_t(bpp)) == 0;
    };
    for (qsizetype i = 0; i < n;) {
        qsizetype run = 1;
        while (i + run < n && run < 128 && same(i, i + run))
            ++run;
        if (run > 1) {
            out.append(char(0x80 | (run - 1))).append(pixels.mid(i * bpp, bpp));
            i += run;
            continue;
        }
        qsizetype raw = 1;
        while (i + raw < n && raw < 128 && !(i + raw + 1 < n && same(i + raw, i + raw + 1)))
            ++raw;
        out.append(char(raw - 1)).append(pixels.mid(i * bpp, raw * bpp));
        i += raw;
    }
    return out;
}

/*! \a image as a whole TGA file of its own depth, uncompressed or run-length encoded. */
inline QByteArray tgaFile(const QImage& image, bool rle, bool topDown)
{
    TgaHeader h;
    h.imageType = rle ? 10 : 2;
    h.width = image.width();
    h.height = image.height();
    h.depth = image.depth();
    h.description = topDown ? 0x20 : 0;
    const QByteArray pixels = tgaPixels(image, topDown);
    return h.bytes() + (rle ? tgaPackets(pixels, image.depth() / 8) : pixels);
}

/*! A RIFF chunk: \a id, a size (by default that of \a data), the data, and \a pad bytes. */
inline QByteArray riffChunk(const QByteArray& id, const QByteArray& data, qint64 size = -1, int pad = 0)
{
    QByteArray out = id;
    out.resize(4 + 4);
    qToLittleEndian<quint32>(quint32(size < 0 ? data.size() : size), out.data() + 4);
    return out + data + QByteArray(pad, '\0');
}

/*! A RIFF palette file: "RIFF", a size field, "PAL ", then \a chunks as they are. */
inline QByteArray riffPalette(const QByteArray& chunks, const QByteArray& type = "PAL ")
{
    QByteArray out("RIFF");
    out.resize(8);
    qToLittleEndian<quint32>(quint32(4 + chunks.size()), out.data() + 4);
    return out + type + chunks;
}

/*!
 * TWImageExt::toPaletteImage() written out step by step: one closestColor()
 * per pixel, or per pair where the answer is a pattern, with the swaps that
 * keep a checkerboard against the pixel to the left and the ones above. The
 * tests and the palette benchmark hold the fast conversion against it.
 */
inline QImage paletteImageStepByStep(const QImage& image, const QList<TWColor>& palette, bool usePattern,
                                     QHash<int, QHash<int, QHash<int, TWColor>>>* cache)
{
    QImage result = image.convertToFormat(QImage::Format_RGBA8888);
    for (int y = 0; y < result.height(); ++y) {
        QRgb* line = reinterpret_cast<QRgb*>(result.scanLine(y));
        const QRgb* above = y ? reinterpret_cast<const QRgb*>(result.constScanLine(y - 1)) : nullptr;
        for (int x = 0; x < result.width();) {
            TWColor chosen = TW::TWImageExt::closestColor(TWColor(line[x]), palette, cache);
            if (!usePattern || !chosen.isPatterned()) {
                line[x++] = chosen.rgba();
                continue;
            }
            if (x > 0 && line[x - 1] == chosen.patternFirst())
                chosen.swapPattern();
            if (above && above[x] == chosen.patternFirst()
                && (x + 1 == result.width() || above[x + 1] != chosen.patternFirst()))
                chosen.swapPattern();
            line[x] = chosen.patternFirst();
            if (x + 1 < result.width())
                line[x + 1] = chosen.patternSecond();
            x += 2;
        }
    }
    return result;
}

} // namespace TWTest

#endif // TWIMAGEBUILDERS_H
