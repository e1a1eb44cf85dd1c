#include "twimageext.h"
#include "twimageext_p.h"
#include "twutils.h"

#include <QtCore/qbuffer.h>
#include <QtCore/qendian.h>
#include <QtCore/qfileinfo.h>
#include <QtGui/qpainter.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#if defined(__SSE2__)
#  include <emmintrin.h>
#endif

// ---------------------------------------------------------------------------
// TWColor
// ---------------------------------------------------------------------------

TWColor::TWColor() = default;

TWColor::TWColor(QRgb rgb) : QColor(rgb) {}

TWColor::TWColor(int r, int g, int b, int a) : QColor(r, g, b, a) {}

TWColor::TWColor(const QColor& color) : QColor(color) {}

TWColor::TWColor(const TWRgb& rgb) : QColor(rgb.r, rgb.g, rgb.b, rgb.a) {}

bool TWColor::isPatterned() const
{
    return pattern.size() == 2;
}

QRgb TWColor::patternFirst() const
{
    return isPatterned() ? pattern.at(0) : 0;
}

QRgb TWColor::patternSecond() const
{
    return isPatterned() ? pattern.at(1) : 0;
}

void TWColor::swapPattern()
{
    if (isPatterned())
        pattern.swapItemsAt(0, 1);
}

void TWColor::setPattern(const QList<QRgb>& pattern)
{
    if (pattern.size() == 2)
        this->pattern = pattern;
}

TWRgb& TWColor::toRgb(TWRgb& rgb) const
{
    rgb = TWRgb(uchar(red()), uchar(green()), uchar(blue()), uchar(alpha()));
    return rgb;
}

namespace {

// Palettes travel as slot arguments under this name whatever call a host makes first.
[[maybe_unused]] const int paletteMetaTypeId = qRegisterMetaType<TWPalette>();

// ---------------------------------------------------------------------------
// Reading bytes the way a QDataStream over a QByteArray does
// ---------------------------------------------------------------------------

class ByteReader
{
public:
    explicit ByteReader(const QByteArray& data)
        : _data(reinterpret_cast<const uchar*>(data.constData())), _size(quint64(data.size()))
    {
    }

    // The next n bytes, or null when fewer are left; a short read, as
    // readRawData's, still takes what was there.
    const uchar* take(quint64 n)
    {
        if (n > _size - _pos) {
            _pos = _size;
            return nullptr;
        }
        const uchar* p = _data + _pos;
        _pos += n;
        return p;
    }
    // Like QBuffer::seek: a place past the end is refused and the position stays.
    void seek(quint64 pos)
    {
        if (pos <= _size)
            _pos = pos;
    }
    quint64 left() const { return _size - _pos; }
    const uchar* end() const { return _data + _size; }
    const uchar* current() const { return _data + _pos; }
    void setCurrent(const uchar* p) { _pos = quint64(p - _data); }
    bool atEnd() const { return _pos >= _size; }

private:
    const uchar* _data;
    quint64 _size;
    quint64 _pos = 0;
};

// ---------------------------------------------------------------------------
// TGA pixels
// ---------------------------------------------------------------------------

constexpr int TgaHeaderSize = 18;
// The largest pixel data decoded: it leaves the 32-bit write position room
// for a last packet that runs past the end, so that it never wraps.
constexpr quint64 LargestImageSize = 0xFFFFF000u;

struct TgaHeader
{
    quint8 idLength;
    quint8 colorMapType;
    quint8 imageType;
    quint16 firstEntryIndex;
    quint16 colorMapLength;
    quint8 colorMapEntrySize;
    quint16 xOrigin;
    quint16 yOrigin;
    quint16 width;
    quint16 height;
    quint8 pixelDepth;
    quint8 description;

    bool topDown() const { return description & 0x20; }
};

TgaHeader readTgaHeader(const uchar* p)
{
    const auto u16 = [p](int at) { return quint16(p[at] | p[at + 1] << 8); };
    return {p[0], p[1], p[2], u16(3), u16(5), p[7], u16(8), u16(10), u16(12), u16(14), p[16], p[17]};
}

// How a packet loop ended.
enum class PacketEnd { Done, NoPacketByte, ShortRun, ShortRaw };

// The file stores blue, green, red (and alpha); the image wants red, green,
// blue (and alpha). Every copy below exchanges the outer bytes as it goes, so
// the pixels are touched once.

#if defined(__SSE2__)
// Pixels in one 16-byte block: five of three bytes (the 16th byte is then
// garbage) or four of four bytes.
template <int Bpp>
constexpr int BlockPixels = Bpp == 3 ? 5 : 4;

// Exchanges the outer bytes of each pixel of a block. Shifting the block by
// two bytes either way lines each pixel's outer bytes up with each other.
template <int Bpp>
inline __m128i swapBlock(__m128i v)
{
    if constexpr (Bpp == 3) {
        const __m128i keep = _mm_setr_epi8(0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0);
        const __m128i fromRight = _mm_setr_epi8(-1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, 0);
        const __m128i fromLeft = _mm_setr_epi8(0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0);
        return _mm_or_si128(_mm_and_si128(v, keep), _mm_or_si128(_mm_and_si128(_mm_srli_si128(v, 2), fromRight),
                                                                 _mm_and_si128(_mm_slli_si128(v, 2), fromLeft)));
    } else {
        const __m128i low = _mm_set1_epi32(0xFF);
        return _mm_or_si128(_mm_and_si128(v, _mm_set1_epi32(int(0xFF00FF00u))),
                            _mm_or_si128(_mm_and_si128(_mm_srli_epi32(v, 16), low),
                                         _mm_slli_epi32(_mm_and_si128(v, low), 16)));
    }
}

inline __m128i load(const uchar* p)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

inline void store(uchar* p, __m128i v)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

// The first pixel of a block repeated over the whole block, by doubling.
template <int Bpp>
inline __m128i repeatFirst(__m128i v)
{
    if constexpr (Bpp == 3) {
        v = _mm_and_si128(v, _mm_setr_epi8(-1, -1, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
        v = _mm_or_si128(v, _mm_slli_si128(v, 3));
        v = _mm_or_si128(v, _mm_slli_si128(v, 6));
        return _mm_or_si128(v, _mm_slli_si128(v, 12));
    } else {
        return _mm_shuffle_epi32(v, 0);
    }
}

// Writes the pixel \a value (already in the image's order) n times, in whole
// 16-byte stores: up to 15 bytes past the pixels are written.
template <int Bpp>
inline void fillOver(uchar* dst, quint32 value, qsizetype n)
{
    const qsizetype bytes = n * Bpp;
    if constexpr (Bpp == 4) {
        const __m128i v = _mm_set1_epi32(int(value));
        for (qsizetype i = 0; i < bytes; i += 16)
            store(dst + i, v);
    } else {
        // Three-byte pixels line up with the blocks every 48 bytes: three
        // blocks, made of the three 64-bit words that repeat every 24 bytes.
        const quint64 v = value;
        const quint64 w0 = v | v << 24 | v << 48;
        const quint64 w1 = v >> 16 | v << 8 | v << 32 | v << 56;
        const quint64 w2 = v >> 8 | v << 16 | v << 40;
        const __m128i period[3] = {_mm_set_epi64x(qint64(w1), qint64(w0)), _mm_set_epi64x(qint64(w0), qint64(w2)),
                                   _mm_set_epi64x(qint64(w2), qint64(w1))};
        for (qsizetype i = 0, k = 0; i < bytes; i += 16, k = k == 2 ? 0 : k + 1)
            store(dst + i, period[k]);
    }
}
#endif

// Copies n pixels, exchanging the outer bytes of each.
template <int Bpp>
void swapCopy(uchar* dst, const uchar* src, qsizetype n)
{
#if defined(__SSE2__)
    // Whole blocks while they stay inside the n pixels.
    const qsizetype step = BlockPixels<Bpp>;
    for (; n * Bpp >= 16 + (Bpp == 3 ? 2 : 0); n -= step, src += step * Bpp, dst += step * Bpp)
        store(dst, swapBlock<Bpp>(load(src)));
#endif
    for (; n > 0; --n, src += Bpp, dst += Bpp) {
        const uchar first = src[0];
        dst[0] = src[2];
        dst[1] = src[1];
        dst[2] = first;
        if constexpr (Bpp == 4)
            dst[3] = src[3];
    }
}

// The pixel at \a src as a word of the image's bytes, first byte lowest.
template <int Bpp>
inline quint32 swappedPixel(const uchar* src)
{
    const quint32 rgb = quint32(src[2]) | quint32(src[1]) << 8 | quint32(src[0]) << 16;
    return Bpp == 4 ? rgb | quint32(src[3]) << 24 : rgb;
}

// Writes the pixel \a value n times: a long run doubles what is already written.
template <int Bpp>
void fill(uchar* dst, quint32 value, qsizetype n)
{
    uchar pixel[4];
    qToLittleEndian(value, pixel);
    const qsizetype first = std::min<qsizetype>(n, 8);
    for (qsizetype i = 0; i < first; ++i)
        std::memcpy(dst + i * Bpp, pixel, Bpp);
    for (qsizetype done = first; done < n;) {
        const qsizetype chunk = std::min(done, n - done);
        std::memcpy(dst + done * Bpp, dst, size_t(chunk * Bpp));
        done += chunk;
    }
}

/*
 * The packet loop of a run-length encoded picture, walked without keeping the
 * pixels: for depths that end in a refusal anyway, and for pictures that can't
 * be held. The write position is a 32-bit count of bytes and the end is tested
 * only after each packet, so the first packet is always read and a packet may
 * run past the image; such a packet is read whole. decodePackets(), which
 * keeps the pixels, takes the same steps.
 */
PacketEnd countPackets(ByteReader& in, quint32 imageSize, quint32 bpp)
{
    quint32 pos = 0;
    do {
        const uchar* packet = in.take(1);
        if (!packet)
            return PacketEnd::NoPacketByte;
        const quint32 count = (*packet & 0x7F) + 1u;
        if (!in.take(*packet & 0x80 ? bpp : quint64(count) * bpp))
            return *packet & 0x80 ? PacketEnd::ShortRun : PacketEnd::ShortRaw;
        pos += count * bpp;
    } while (pos < imageSize);
    return PacketEnd::Done;
}

/*
 * The packet loop of countPackets(), putting the pixels straight into the rows
 * of \a image: the file's row i lands on image row i when the file is stored
 * top down and on row height - 1 - i otherwise. A row holds a whole number of
 * pixels, so no pixel straddles two; what a packet holds past the last row is
 * dropped. The image is no larger than the 32-bit write position can count.
 *
 * Most packets go in whole 16-byte blocks (below); those near the end of a
 * row or of the input go pixel-exact, row by row. The state lives in locals,
 * since every store through a byte pointer could otherwise change a member in
 * the compiler's eyes.
 */
template <int Bpp>
PacketEnd decodePackets(ByteReader& in, quint32 imageSize, QImage& image, bool topDown)
{
    const uchar* p = in.current();
    const uchar* const end = in.end();
    const qsizetype rowBytes = qsizetype(image.width()) * Bpp;
    const qsizetype step = topDown ? image.bytesPerLine() : -image.bytesPerLine();
    qsizetype rowsLeft = rowBytes > 0 ? image.height() : 0;
    uchar* out = nullptr;
    uchar* rowEnd = nullptr;
    if (rowsLeft > 0) {
        out = image.bits() + (topDown ? 0 : (rowsLeft - 1) * image.bytesPerLine());
        rowEnd = out + rowBytes;
    }
    // Moves on by n pixels, to the next row when this one is full.
    const auto advance = [&](qsizetype n) {
        out += n * Bpp;
        if (out != rowEnd)
            return;
        if (--rowsLeft > 0) {
            out = rowEnd - rowBytes + step;
            rowEnd = out + rowBytes;
        } else {
            out = rowEnd = nullptr;
        }
    };

    quint32 pos = 0;
    do {
        if (p == end) {
            in.setCurrent(p);
            return PacketEnd::NoPacketByte;
        }
        const quint32 header = *p++;
        const qsizetype count = (header & 0x7F) + 1;
        const qsizetype bytes = count * Bpp;
#if defined(__SSE2__)
        // A packet that lies inside the row and the input with 32 bytes to
        // spare goes in whole 16-byte blocks, without a branch on its kind,
        // which is as good as random in a photo: each block is made both from
        // the input as it stands and from the first pixel repeated (a block
        // holds whole pixels, so the repeated block fits at any block's
        // place), and the header picks one. The bytes stored past the packet
        // belong to the same row and are overwritten by the packets that
        // follow.
        if (rowEnd - out >= bytes + 32 && end - p >= bytes + 32) {
            const quint32 run = header >> 7;
            const __m128i pick = _mm_set1_epi32(-int(run));
            const __m128i first = swapBlock<Bpp>(load(p));
            const __m128i repeated = _mm_and_si128(pick, repeatFirst<Bpp>(first));
            // Two blocks whatever the count, which covers nearly every
            // packet of a photo without a test.
            constexpr qsizetype blockBytes = BlockPixels<Bpp> * Bpp;
            store(out, _mm_or_si128(repeated, _mm_andnot_si128(pick, first)));
            store(out + blockBytes, _mm_or_si128(repeated, _mm_andnot_si128(pick, swapBlock<Bpp>(load(p + blockBytes)))));
            for (qsizetype at = 2 * blockBytes; at < bytes; at += blockBytes)
                store(out + at, _mm_or_si128(repeated, _mm_andnot_si128(pick, swapBlock<Bpp>(load(p + at)))));
            p += run ? Bpp : bytes;
            advance(count);
            pos += quint32(bytes);
            continue;
        }
#endif
        if (header & 0x80) {
            if (end - p < Bpp) {
                in.setCurrent(end);
                return PacketEnd::ShortRun;
            }
            const quint32 value = swappedPixel<Bpp>(p);
            p += Bpp;
#if defined(__SSE2__)
            if (rowEnd - out >= bytes + 16) {
                fillOver<Bpp>(out, value, count);
                advance(count);
            } else
#endif
            {
                for (qsizetype n = count; n > 0 && rowsLeft > 0;) {
                    const qsizetype k = std::min<qsizetype>(n, (rowEnd - out) / Bpp);
                    fill<Bpp>(out, value, k);
                    n -= k;
                    advance(k);
                }
            }
        } else {
            if (end - p < bytes) {
                in.setCurrent(end);
                return PacketEnd::ShortRaw;
            }
            const uchar* src = p;
            for (qsizetype n = count; n > 0 && rowsLeft > 0;) {
                const qsizetype k = std::min<qsizetype>(n, (rowEnd - out) / Bpp);
                swapCopy<Bpp>(out, src, k);
                src += k * Bpp;
                n -= k;
                advance(k);
            }
            p += bytes;
        }
        pos += quint32(bytes);
    } while (pos < imageSize);
    in.setCurrent(p);
    return PacketEnd::Done;
}

template <int Bpp>
void copyRows(const uchar* src, QImage& image, bool topDown)
{
    const qsizetype width = image.width();
    const qsizetype height = image.height();
    for (qsizetype i = 0; i < height; ++i)
        swapCopy<Bpp>(image.scanLine(int(topDown ? i : height - 1 - i)), src + i * width * Bpp, width);
}

} // namespace

namespace TW {

TWImageExt& TWImageExt::operator=(const TWImageExt& /*other*/)
{
    return *this;
}

TWImageExt& TWImageExt::operator=(TWImageExt&& /*other*/) noexcept
{
    return *this;
}

// ---------------------------------------------------------------------------
// Colour matching
// ---------------------------------------------------------------------------

int TWImageExt::colorDistance(const TWColor& a, const TWColor& b)
{
    if (a.rgb() == b.rgb())
        return 0;
    const int red = a.red() - b.red();
    const int green = a.green() - b.green();
    const int blue = a.blue() - b.blue();
    return red * red + green * green + blue * blue;
}

TWColor TWImageExt::closestColor(const TWColor& color, const QList<TWColor>& palette,
                                 QHash<int, QHash<int, QHash<int, TWColor>>>* cache)
{
    const int red = color.red(), green = color.green(), blue = color.blue();
    if (cache) {
        // Found through const lookups: a miss adds no empty level, and a
        // cache shared with a copy is not detached just to be read.
        const Internal::ColorCache& known = *cache;
        const auto byRed = known.constFind(red);
        if (byRed != known.cend()) {
            const auto byGreen = byRed->constFind(green);
            if (byGreen != byRed->cend()) {
                const auto byBlue = byGreen->constFind(blue);
                if (byBlue != byGreen->cend())
                    return *byBlue;
            }
        }
    }
    // 65025 (one channel all the way across) is where the search starts, so
    // only a nearer entry is ever taken; no entry that near leaves the
    // default colour, opaque black.
    TWColor best;
    int bestDistance = 65025;
    for (const TWColor& entry : palette) {
        const int distance = colorDistance(color, entry);
        if (distance == 0)
            return entry; // an exact match ends the walk and is never cached
        if (distance < bestDistance) {
            best = entry;
            bestDistance = distance;
        }
    }
    if (cache)
        (*cache)[red][green][blue] = best;
    return best;
}

TWColor TWImageExt::generatePattern(const TWColor& a, const TWColor& b)
{
    TWColor result((a.red() + b.red()) / 2, (a.green() + b.green()) / 2, (a.blue() + b.blue()) / 2, 255);
    result.setPattern({a.rgb(), b.rgb()});
    return result;
}

QList<TWColor> TWImageExt::generatePatternedPalette(const QList<TWColor>& palette)
{
    QList<TWColor> result = palette;
    const qsizetype n = palette.size();
    result.reserve(n + n * (n - 1) / 2);
    for (qsizetype i = 0; i < n; ++i) {
        for (qsizetype j = i + 1; j < n; ++j)
            result.append(generatePattern(palette.at(j), palette.at(i)));
    }
    return result;
}

namespace {

// How many pixels ahead toPaletteImage() asks for a colour's table entry.
constexpr int PrefetchAhead = 16;

} // namespace

QImage TWImageExt::toPaletteImage(const QImage& image, const QList<TWColor>& palette, const bool& usePattern,
                                  QHash<int, QHash<int, QHash<int, TWColor>>>* cache)
{
    QImage result = image.convertToFormat(QImage::Format_RGBA8888);
    const int width = result.width();
    const int height = result.height();
    if (width <= 0 || height <= 0)
        return result;
    Internal::ColorMatcher matcher(palette, cache, qint64(width) * height);
    // Pixels are read and written as QRgb words, whatever the format's own
    // byte order: that is what exchanges red and blue.
    uchar* const bits = result.bits();
    const qsizetype bytesPerLine = result.bytesPerLine();
    // No colour has a bit above the 24th: the first pixel always asks.
    QRgb lastColor = ~0u;
    Internal::PaletteAnswer last{};
    for (int y = 0; y < height; ++y) {
        QRgb* const line = reinterpret_cast<QRgb*>(bits + y * bytesPerLine);
        // The row above holds pixels already converted.
        const QRgb* const above = y > 0 ? reinterpret_cast<const QRgb*>(bits + (y - 1) * bytesPerLine) : nullptr;
        for (int x = 0; x < width;) {
            // The table's entries are far apart for far colours: asking for
            // one some pixels ahead lets the memory fetch them meanwhile.
            matcher.prefetch(line[std::min(x + PrefetchAhead, width - 1)]);
            const QRgb color = line[x] & 0xFFFFFFu; // alpha plays no part in the match
            if (color != lastColor) {
                last = matcher.match(color);
                lastColor = color;
            }
            if (!usePattern || !last.patterned) {
                line[x++] = last.rgba;
                continue;
            }
            // A pattern covers this pixel and the next, which is not looked at.
            // Its colours alternate along the row and fall out of step with
            // the row above.
            QRgb first = last.first, second = last.second;
            if (x > 0 && line[x - 1] == first)
                std::swap(first, second);
            if (above && above[x] == first && (x + 1 >= width || above[x + 1] != first))
                std::swap(first, second);
            line[x] = first;
            if (x + 1 < width)
                line[x + 1] = second;
            x += 2;
        }
    }
    return result;
}

namespace Internal {

namespace {

// The cache is read whole when it holds no more than one entry for this many
// pixels; larger caches are asked colour by colour.
constexpr qint64 PixelsPerCachedColor = 2;
// Clearing more entries than this one by one costs more than clearing all.
constexpr size_t ClearAllAbove = size_t(1) << 21;

// The thread's answer table of ColorMatcher, made at its first use.
struct ColorTable
{
    quint16* entries = nullptr;
    bool failed = false;
    bool busy = false;
    std::vector<quint32> touched;

    ~ColorTable() { std::free(entries); }
};

thread_local ColorTable threadTable;

// What isPatterned(), patternFirst() and patternSecond() answer, read
// straight from the list: those are exported calls that can't be inlined.
PaletteAnswer answerOf(const TWColor& color)
{
    const bool patterned = color.pattern.size() == 2;
    return {color.rgba(), patterned ? color.pattern.at(0) : 0u, patterned ? color.pattern.at(1) : 0u, patterned};
}

} // namespace

ColorMatcher::ColorMatcher(const QList<TWColor>& palette, ColorCache* cache, qint64 pixels)
    : _palette(palette)
    , _cache(cache)
{
    const qsizetype n = palette.size();
    _red.reserve(size_t(n));
    _green.reserve(size_t(n));
    _blue.reserve(size_t(n));
    _answers.reserve(size_t(n) + 1);
    for (const TWColor& entry : palette) {
        _red.push_back(entry.red());
        _green.push_back(entry.green());
        _blue.push_back(entry.blue());
        _answers.push_back(answerOf(entry));
    }
    _answers.push_back(answerOf(TWColor()));

    // One matcher at a time uses the thread's table; calloc'ed memory costs
    // only the pages that are touched.
    ColorTable& table = threadTable;
    if (!table.entries && !table.failed) {
        table.entries = static_cast<quint16*>(std::calloc(size_t(1) << 24, sizeof(quint16)));
        table.failed = !table.entries;
    }
    if (table.entries && !table.busy) {
        table.busy = true;
        _table = table.entries;
        _touched = &table.touched;
    }

    if (_cache && !_cache->isEmpty() && pixels >= 65536) {
        // Counting costs a pass over the first two levels: worth it only
        // when there are many more pixels than that.
        qint64 cached = 0;
        for (const auto& byGreen : std::as_const(*_cache)) {
            for (const auto& byBlue : byGreen)
                cached += byBlue.size();
        }
        if (cached * PixelsPerCachedColor <= pixels)
            readWholeCache();
    }
}

ColorMatcher::~ColorMatcher()
{
    if (!_table)
        return;
    if (_touched->size() > ClearAllAbove) {
        std::memset(_table, 0, (size_t(1) << 24) * sizeof(quint16));
        *_touched = std::vector<quint32>();
    } else {
        for (const quint32 at : *_touched)
            _table[at] = 0;
        _touched->clear();
    }
    threadTable.busy = false;
}

quint32 ColorMatcher::resolve(quint32 rgb)
{
    const int red = int(rgb >> 16 & 0xFF), green = int(rgb >> 8 & 0xFF), blue = int(rgb & 0xFF);
    quint32 id;
    bool found = false;
    if (_cache && !_cacheRead) {
        const ColorCache& known = *_cache;
        const auto byRed = known.constFind(red);
        if (byRed != known.cend()) {
            const auto byGreen = byRed->constFind(green);
            if (byGreen != byRed->cend()) {
                const auto byBlue = byGreen->constFind(blue);
                if (byBlue != byGreen->cend()) {
                    id = answerFor(*byBlue);
                    found = true;
                }
            }
        }
    }
    if (!found)
        id = walk(red, green, blue);
    if (_table)
        remember(entryOf(rgb), id);
    return id;
}

quint32 ColorMatcher::walk(int red, int green, int blue)
{
    // closestColor()'s walk: the first entry at the smallest distance, if
    // that is below 65025; an exact match ends it and is not cached.
    const int* const r = _red.data();
    const int* const g = _green.data();
    const int* const b = _blue.data();
    const quint32 n = quint32(_red.size());
    int bestDistance = 65025;
    quint32 best = n; // the default colour
    for (quint32 i = 0; i < n; ++i) {
        const int dr = red - r[i], dg = green - g[i], db = blue - b[i];
        const int distance = dr * dr + dg * dg + db * db;
        if (distance < bestDistance) {
            if (distance == 0)
                return i;
            bestDistance = distance;
            best = i;
        }
    }
    if (_cache)
        (*_cache)[red][green][blue] = best < n ? _palette.at(best) : TWColor();
    return best;
}

quint32 ColorMatcher::answerFor(const TWColor& color)
{
    // Colours from the cache are usually palette entries (or the default),
    // but a cache may come from another palette: each distinct one gets an
    // answer of its own. A small table of recent ones spares most lookups.
    const PaletteAnswer answer = answerOf(color);
    const std::pair<quint64, quint64> key(quint64(answer.rgba) << 32 | answer.first,
                                          quint64(answer.second) << 1 | quint64(answer.patterned));
    Recent& recent = _recent[((answer.rgba ^ answer.first) * 0x9E3779B1u) >> (32 - RecentBits)];
    if (recent.id != NoAnswer && recent.key == key)
        return recent.id;
    const auto known = _cachedAnswers.constFind(key);
    quint32 id;
    if (known != _cachedAnswers.cend()) {
        id = *known;
    } else {
        id = quint32(_answers.size());
        _answers.push_back(answer);
        _cachedAnswers.insert(key, id);
    }
    recent = {key, id};
    return id;
}

bool ColorMatcher::remember(quint32 at, quint32 id)
{
    // An answer past what an entry holds (a palette of some 65 000 colours)
    // is found again each time instead.
    if (id >= 0xFFFFu)
        return false;
    _table[at] = quint16(id + 1);
    _touched->push_back(at);
    return true;
}

void ColorMatcher::readWholeCache()
{
    if (!_table)
        return;
    // Keys outside 0 to 255 can't be asked for and are passed over. Should
    // an answer not fit in the table, the cache is asked colour by colour
    // after all.
    bool whole = true;
    const ColorCache& known = *_cache;
    for (auto byRed = known.cbegin(); byRed != known.cend(); ++byRed) {
        if (quint32(byRed.key()) > 255)
            continue;
        for (auto byGreen = byRed->cbegin(); byGreen != byRed->cend(); ++byGreen) {
            if (quint32(byGreen.key()) > 255)
                continue;
            const quint32 redGreen = quint32(byRed.key()) << 16 | quint32(byGreen.key()) << 8;
            for (auto byBlue = byGreen->cbegin(); byBlue != byGreen->cend(); ++byBlue) {
                if (quint32(byBlue.key()) <= 255) {
                    const quint32 rgb = redGreen | quint32(byBlue.key());
                    whole = remember(entryOf(rgb), answerFor(*byBlue)) && whole;
                }
            }
        }
    }
    _cacheRead = whole;
}

} // namespace Internal

// ---------------------------------------------------------------------------
// TGA
// ---------------------------------------------------------------------------

QString TWImageExt::tgaFromFile(const QString& fileName, QImage& image)
{
    QByteArray data;
    if (!TWUtils::readFile(fileName, data))
        return TWUtils::lastError();
    return tgaFromQByteArray(data, image);
}

QString TWImageExt::tgaHeaderToString(const QByteArray& header)
{
    const TgaHeader h = readTgaHeader(reinterpret_cast<const uchar*>(header.constData()));
    return QStringLiteral("IDLength: %1; ColorMapType: %2; Image type: %3; ColorMapSepc.firstEntryIndex: %4; "
                          "ColorMapSepc.length: %5; ColorMapSpec.entrySize: %6; imageSpec.xOrigin: %7; "
                          "imageSpec.yOrigin: %8; imageSpec.width: %9; imageSpec.height: %10; "
                          "imageSpec.pixelDepth: %11; imageSpec.description.attrib: %12; "
                          "imageSpec.description.reserved: %13; imageSpec.description.direction: %14; "
                          "imageSpec.description.flags: %15")
        .arg(h.idLength)
        .arg(h.colorMapType)
        .arg(h.imageType)
        .arg(h.firstEntryIndex)
        .arg(h.colorMapLength)
        .arg(h.colorMapEntrySize)
        .arg(h.xOrigin)
        .arg(h.yOrigin)
        .arg(h.width)
        .arg(h.height)
        .arg(h.pixelDepth)
        .arg(h.description & 0x0F)
        .arg((h.description >> 4) & 1)
        .arg((h.description >> 5) & 1)
        .arg((h.description >> 6) & 3);
}

QString TWImageExt::tgaFromQByteArray(const QByteArray& data, QImage& image)
{
    ByteReader in(data);
    const uchar* headerBytes = in.take(TgaHeaderSize);
    if (!headerBytes)
        return QStringLiteral("Couldn't read TGA header!");
    const TgaHeader h = readTgaHeader(headerBytes);
    const auto headerText = [&data] { return tgaHeaderToString(data.left(TgaHeaderSize)); };

    const quint32 bytesPerPixel = h.pixelDepth / 8u + (h.pixelDepth % 8u ? 1u : 0u);
    // The size is kept in 32 bits; trueSize tells when that wrapped.
    const quint64 trueSize = quint64(h.width) * h.height * bytesPerPixel;
    const quint32 imageSize = quint32(trueSize);

    in.seek(quint64(TgaHeaderSize) + h.idLength);

    if (h.colorMapType == 1) {
        const quint32 colorMapEntryBytes = h.colorMapEntrySize / 8u;
        if (colorMapEntryBytes == 0)
            return QStringLiteral("Invalid TGA header! Byte per Colormap Entry is 0. TGA header: %1")
                .arg(headerText());
        // The map is not used: reading over it is all it takes.
        if (!in.take(quint64(h.colorMapLength) * colorMapEntryBytes))
            return QStringLiteral("Couldn't read TGA color map! TGA header: %1").arg(headerText());
    } else if (h.colorMapType != 0) {
        return QStringLiteral("Unsupported TGA color map type: %1! TGA header: %2")
            .arg(h.colorMapType)
            .arg(headerText());
    }

    if (h.imageType == 0)
        return QString();
    if (h.imageType != 2 && h.imageType != 10)
        return QStringLiteral("Unsupported type: %1. TGA header: %2").arg(h.imageType).arg(headerText());

    const bool rle = h.imageType == 10;
    const bool knownDepth = h.pixelDepth == 24 || h.pixelDepth == 32;
    const QImage::Format format = h.pixelDepth == 24 ? QImage::Format_RGB888 : QImage::Format_RGBA8888;
    const bool topDown = h.topDown();
    // Pixels go straight into the image, so the image is only made when it
    // can be: a known depth, a size that did not wrap, and enough bytes left
    // for it (a packet of 1 + n bytes expands to at most 128 pixels of n
    // bytes). Otherwise the data is only walked to find the reason for the
    // refusal, and a short file never costs a large allocation.
    const quint64 largestExpansion = in.left() / (1u + bytesPerPixel) * 128u * bytesPerPixel;
    bool holdable = knownDepth && trueSize <= LargestImageSize && trueSize <= (rle ? largestExpansion : in.left());

    QImage result;
    if (holdable && trueSize > 0) {
        result = QImage(h.width, h.height, format);
        holdable = !result.isNull();
    }

    if (!rle) {
        const uchar* pixels = in.take(imageSize);
        if (!pixels)
            return QStringLiteral("Couldn't read TGA pixel data! TGA header: %1").arg(headerText());
        if (holdable && !result.isNull()) {
            if (h.pixelDepth == 24)
                copyRows<3>(pixels, result, topDown);
            else
                copyRows<4>(pixels, result, topDown);
        }
    } else {
        PacketEnd end;
        if (holdable && h.pixelDepth == 24) {
            end = decodePackets<3>(in, imageSize, result, topDown);
        } else if (holdable) {
            end = decodePackets<4>(in, imageSize, result, topDown);
        } else {
            end = countPackets(in, imageSize, bytesPerPixel);
        }
        switch (end) {
        case PacketEnd::NoPacketByte:
            return QStringLiteral("Couldn't read TGA compress header! TGA header: %1").arg(headerText());
        case PacketEnd::ShortRun:
            return QStringLiteral("Couldn't read TGA run-length encoded packets! TGA header: %1")
                .arg(headerText());
        case PacketEnd::ShortRaw:
            return QStringLiteral("Couldn't read TGA raw data packets! TGA header: %1").arg(headerText());
        case PacketEnd::Done:
            break;
        }
    }

    if (!knownDepth)
        return QStringLiteral("Unsupported TGA pixel depth! TGA header: %1").arg(headerText());
    if (!holdable)
        return QStringLiteral("Couldn't allocate image of %1x%2 pixels, %3 bytes! TGA header: %4")
            .arg(h.width)
            .arg(h.height)
            .arg(trueSize)
            .arg(headerText());
    image = result;
    return QString();
}

// ---------------------------------------------------------------------------
// Load and save
// ---------------------------------------------------------------------------

QString TWImageExt::imageFromFile(const QString& fileName, QString& format, QImage& image)
{
    if (format.isEmpty())
        format = QFileInfo(fileName).suffix().toUpper();
    QByteArray data;
    if (!TWUtils::readFile(fileName, data))
        return TWUtils::lastError();
    return imageFromQByteArray(data, format, image);
}

QString TWImageExt::imageFromQByteArray(const QByteArray& data, const QString& format, QImage& image)
{
    const QString upper = format.toUpper();
    if (upper == QLatin1String("TGA"))
        return tgaFromQByteArray(data, image);
    if (!image.loadFromData(data, upper.toLocal8Bit().constData()))
        return QStringLiteral("Unsupported image format!");
    return QString();
}

QString TWImageExt::imagesFromFile(const QString& fileName, QString& format, QList<QImage*>& images)
{
    if (format.isEmpty())
        format = QFileInfo(fileName).suffix().toUpper();
    QByteArray data;
    if (!TWUtils::readFile(fileName, data))
        return TWUtils::lastError();
    return imagesFromQByteArray(data, format, images);
}

QString TWImageExt::imagesFromQByteArray(const QByteArray& data, const QString& format, QList<QImage*>& images)
{
    images.clear();
    QImage* image = new (std::nothrow) QImage;
    if (!image)
        return QStringLiteral("Couldn't allocate QImage instance!");
    const QString error = imageFromQByteArray(data, format, *image);
    if (error.isEmpty())
        images.append(image);
    else
        delete image;
    return error;
}

bool TWImageExt::imageToQByteArray(const QImage& image, const QString& format, QByteArray& data)
{
    data.clear();
    QBuffer buffer(&data);
    if (!buffer.open(QIODevice::WriteOnly))
        return false;
    // What save() answers doesn't matter: a format Qt can't write leaves data empty.
    image.save(&buffer, format.toLocal8Bit().constData(), -1);
    return true;
}

// ---------------------------------------------------------------------------
// Transforms
// ---------------------------------------------------------------------------

QList<QImage> TWImageExt::splitImage(const QImage& image, const int& width, const int& height)
{
    QList<QImage> tiles;
    if (width <= 0 || height <= 0)
        return tiles;
    // Steps in 64 bits: a tile size near INT_MAX must not wrap the position.
    const qint64 across = (qint64(image.width()) + width - 1) / width;
    const qint64 down = (qint64(image.height()) + height - 1) / height;
    tiles.reserve(qsizetype(across * down));
    for (qint64 y = 0; y < image.height(); y += height) {
        for (qint64 x = 0; x < image.width(); x += width)
            tiles.append(image.copy(int(x), int(y), width, height));
    }
    return tiles;
}

QImage TWImageExt::borderingImg(const QImage& image, const int& border)
{
    // A frame that no int can measure can't be made either.
    const qint64 width = image.width() + 2 * qint64(border);
    const qint64 height = image.height() + 2 * qint64(border);
    if (width > std::numeric_limits<int>::max() || height > std::numeric_limits<int>::max()
        || width < std::numeric_limits<int>::min() || height < std::numeric_limits<int>::min())
        return QImage();
    QImage result = image.scaled(int(width), int(height), Qt::IgnoreAspectRatio, Qt::FastTransformation);
    copyImageToImage(result, border, border, image);
    return result;
}

void TWImageExt::copyImageToImage(QImage& target, const int& x, const int& y, const QImage& source)
{
    const qint64 neededWidth = source.width() + qint64(x);
    const qint64 neededHeight = source.height() + qint64(y);
    if (target.width() < neededWidth || target.height() < neededHeight) {
        const qint64 width = std::max<qint64>(neededWidth, target.width());
        const qint64 height = std::max<qint64>(neededHeight, target.height());
        if (width > std::numeric_limits<int>::max() || height > std::numeric_limits<int>::max())
            return;
        // Deliberately not filled: what neither image covers is left as allocated.
        QImage grown(int(width), int(height), QImage::Format_RGB32);
        if (grown.isNull())
            return;
        if (!target.isNull()) {
            QPainter painter(&grown);
            painter.drawImage(0, 0, target);
        }
        target = grown;
    }
    // A painter on a null image only complains; there is nothing to draw on or with.
    if (target.isNull() || source.isNull())
        return;
    QPainter painter(&target);
    painter.drawImage(x, y, source);
}

namespace {

// Walks the pixels of \a image as Format_ARGB32, each as the four bytes blue,
// green, red, alpha, and lets \a change rewrite them in place.
template <typename Change>
QImage changePixels(const QImage& image, Change change)
{
    QImage result = image.convertToFormat(QImage::Format_ARGB32);
    const int width = result.width();
    for (int y = 0; y < result.height(); ++y) {
        uchar* p = result.scanLine(y);
        for (int x = 0; x < width; ++x, p += 4)
            change(p);
    }
    return result;
}

} // namespace

QImage TWImageExt::convertColor(const QImage& image, QColor from, QColor to)
{
    const uchar f[4] = {uchar(from.blue()), uchar(from.green()), uchar(from.red()), uchar(from.alpha())};
    const uchar t[4] = {uchar(to.blue()), uchar(to.green()), uchar(to.red()), uchar(to.alpha())};
    return changePixels(image, [&](uchar* p) {
        if (std::memcmp(p, f, 4) == 0)
            std::memcpy(p, t, 4);
    });
}

QImage TWImageExt::convertToTransparent(const QImage& image, QColor color, const int& alpha)
{
    const uchar c[3] = {uchar(color.blue()), uchar(color.green()), uchar(color.red())};
    const uchar a = uchar(alpha);
    return changePixels(image, [&](uchar* p) {
        if (std::memcmp(p, c, 3) == 0)
            p[3] = a;
    });
}

QImage TWImageExt::disableTransparency(const QImage& image, QColor color)
{
    const uchar c[4] = {uchar(color.blue()), uchar(color.green()), uchar(color.red()), 255};
    return changePixels(image, [&](uchar* p) {
        if (p[3] < 255)
            std::memcpy(p, c, 4);
    });
}

QString TWImageExt::imageToASCII(QImage& image, QString lineEnd, QString chars)
{
    QString result;
    const QImage converted = image.convertToFormat(QImage::Format_RGBA8888);
    const qint64 len = chars.length();
    const int width = converted.width();
    result.reserve(qsizetype(converted.height()) * (width + lineEnd.size()));
    for (int y = 0; y < converted.height(); ++y) {
        const uchar* line = converted.constScanLine(y);
        for (int x = 0; x < width; ++x) {
            // Only the red byte is read, into the word's blue: the sum of the
            // three channels is the red, still divided as though all three counted.
            const QRgb word = line[x * 4];
            const qint64 level = qRed(word) + qGreen(word) + qBlue(word);
            const qint64 step = level * len / 768;
            const qint64 at = len - step;
            // Position len is one past the text: its terminating U+0000.
            result.append(at < len ? chars.at(qsizetype(at)) : QChar(0));
        }
        result.append(lineEnd);
    }
    return result;
}

// ---------------------------------------------------------------------------
// RIFF palettes
// ---------------------------------------------------------------------------

QString TWImageExt::loadPalFile(const QString& fileName, QList<TWColor>& palette)
{
    palette.clear();
    QByteArray data;
    if (!TWUtils::readFile(fileName, data))
        return QStringLiteral("Couldn't read file: '%1'").arg(fileName);
    return Internal::readPalette(data, fileName, palette);
}

namespace Internal {

QString readPalette(const QByteArray& data, const QString& fileName, QList<TWColor>& palette)
{
    if (data.size() < 20)
        return QStringLiteral("Invalid file: '%1' size(%2 bytes)! Minimum length is 20 bytes.")
            .arg(fileName)
            .arg(data.size());
    ByteReader in(data);
    if (std::memcmp(in.take(4), "RIFF", 4) != 0)
        return QStringLiteral("File: '%1' is not a RIFF document!").arg(fileName);
    in.take(4); // the size field, which says nothing that the data doesn't
    if (std::memcmp(in.take(4), "PAL ", 4) != 0)
        return QStringLiteral("File: '%1' is not a palette!").arg(fileName);

    while (!in.atEnd()) {
        const uchar* id = in.take(4);
        if (!id)
            return QStringLiteral("Error on read chunk header from file: '%1'!").arg(fileName);
        const uchar* sizeBytes = in.take(4);
        if (!sizeBytes)
            return QStringLiteral("Error on read chunk size from file: '%1'!").arg(fileName);
        const quint32 size = quint32(sizeBytes[0]) | quint32(sizeBytes[1]) << 8 | quint32(sizeBytes[2]) << 16
                             | quint32(sizeBytes[3]) << 24;

        if (std::memcmp(id, "data", 4) == 0) {
            // Four-byte records while the count stays below the size: a size
            // that is no multiple of 4 reads its last record past the chunk.
            palette.reserve(palette.size() + qsizetype(std::min<quint64>(size, in.left()) / 4));
            for (quint32 counter = 0; counter < size; counter += 4) {
                const quint64 left = in.left();
                if (left < 4) {
                    in.take(left);
                    switch (left) {
                    case 0: return QStringLiteral("Failed to read red color in chunk! File: '%1'!").arg(fileName);
                    case 1: return QStringLiteral("Failed to read green color in chunk! File: '%1'!").arg(fileName);
                    case 2: return QStringLiteral("Failed to read blue color in chunk! File: '%1'!").arg(fileName);
                    default: return QStringLiteral("Failed to read flag in chunk! File: '%1'!").arg(fileName);
                    }
                }
                const uchar* record = in.take(4);
                palette.append(TWColor(QColor(record[0], record[1], record[2], 255)));
            }
        } else {
            // Other chunks are padded to an even size. A size from 2 GiB up
            // is more than one read can take, whatever the data holds.
            const quint64 skip = quint64(size) + (size & 1u);
            if (skip >= 0x80000000u || !in.take(skip))
                return QStringLiteral("Failed to read enough data to match chunk size! File: '%1'!").arg(fileName);
        }
    }
    return QString();
}

} // namespace Internal

} // namespace TW
