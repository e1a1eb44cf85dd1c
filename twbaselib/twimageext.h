#ifndef TWIMAGEEXT_H
#define TWIMAGEEXT_H

#include "twglobal.h"

#include <QtCore/qbytearray.h>
#include <QtCore/qhash.h>
#include <QtCore/qlist.h>
#include <QtCore/qmetatype.h>
#include <QtCore/qstring.h>
#include <QtGui/qcolor.h>
#include <QtGui/qimage.h>
#include <QtGui/qrgb.h>

/*!
 * One pixel as four bytes in the order r, g, b, a. The order is the record's
 * own, not that of any QImage format: laid over a Format_ARGB32 pixel on a
 * little-endian machine, \c r holds the blue byte and \c b the red one.
 */
struct TWRgb
{
    TWRgb() : r(0), g(0), b(0), a(255) {}
    TWRgb(uchar r, uchar g, uchar b, uchar a) : r(r), g(g), b(b), a(a) {}

    uchar r;
    uchar g;
    uchar b;
    uchar a;
};

/*!
 * A palette entry: a QColor, plain or patterned.
 *
 * A patterned colour stands for two plain colours printed side by side in
 * alternating pixels; \c pattern then holds exactly those two words, and the
 * QColor part is their mean. A plain colour has an empty \c pattern; no other
 * length ever stands in it. Equality, streaming and debug output are those of
 * QColor: the pattern takes no part in them.
 */
class TWBASELIB_EXPORT TWColor : public QColor
{
public:
    /*! An invalid colour, plain. */
    TWColor();
    /*! Red, green and blue of \a rgb, alpha 255; plain. */
    TWColor(QRgb rgb);
    TWColor(int r, int g, int b, int a);
    TWColor(const QColor& color);
    /*! The record's four bytes, in field order, as red, green, blue and alpha; plain. */
    TWColor(const TWRgb& rgb);

    /*! True when the pattern holds two words. */
    bool isPatterned() const;
    /*! The first pattern word; 0 for a plain colour. */
    QRgb patternFirst() const;
    /*! The second pattern word; 0 for a plain colour. */
    QRgb patternSecond() const;
    /*! Exchanges the two pattern words; a plain colour stays as it is. */
    void swapPattern();
    /*! Takes \a pattern when it holds exactly two words, and ignores any other list. */
    void setPattern(const QList<QRgb>& pattern);
    /*! Fills \a rgb with red, green, blue and alpha, in field order, and returns it. */
    TWRgb& toRgb(TWRgb& rgb) const;

    QList<QRgb> pattern;
};

/*! A palette; registered with Qt's meta-types as "QList<TWColor>", so it can travel through slots. */
typedef QList<TWColor> TWPalette;

namespace TW {

/*!
 * Static image helpers: colour matching against palettes, a TGA reader, a
 * RIFF palette reader, loading and saving through Qt, and pixel transforms
 * on QImage.
 *
 * The loaders answer a text: empty on success, otherwise the reason. They
 * neither log nor keep a last error, apart from what TWUtils::readFile records
 * when a file can't be opened. The colour operations and the transforms have
 * no failure path: a null image in gives a null image out. The class has no
 * state, so every helper may run in any number of threads at once on
 * different images, as long as no two of them share a colour cache.
 */
class TWBASELIB_EXPORT TWImageExt
{
public:
    TWImageExt() = default;
    TWImageExt(const TWImageExt& other) = default;
    /*! The class has no data: assignment does nothing. */
    TWImageExt& operator=(const TWImageExt& other);
    TWImageExt& operator=(TWImageExt&& other) noexcept;

    /*!
     * The squared distance of two colours: the sum of the squares of the
     * differences of red, green and blue, from 0 to 195075. Alpha and
     * patterns play no part.
     */
    static int colorDistance(const TWColor& a, const TWColor& b);
    /*!
     * The entry of \a palette nearest to \a color by colorDistance(): the
     * first of equally near entries, and only one nearer than 65025. When no
     * entry is that near (an empty palette included), the answer is a
     * default TWColor, which reads as opaque black.
     *
     * \a cache, which may be null, is the caller's memory of earlier answers,
     * keyed by red, then green, then blue. A colour found there is answered
     * from it without a look at the palette, so a cache belongs to one
     * palette: start a new one when the palette changes. Every other answer is
     * stored there, apart from exact matches.
     */
    static TWColor closestColor(const TWColor& color, const QList<TWColor>& palette,
                                QHash<int, QHash<int, QHash<int, TWColor>>>* cache);
    /*!
     * \a image reduced to the colours of \a palette, as Format_RGBA8888.
     *
     * Each pixel is matched with closestColor() (so \a cache fills as there).
     * With \a usePattern, a pixel that matches a patterned entry is written as
     * the entry's two pattern colours side by side, covering the next pixel
     * too, which is then not looked at; the two colours change places so that
     * they alternate along a row and fall out of step from one row to the
     * next, a checkerboard. Otherwise an entry's own colour and alpha are
     * written, pixel alpha is dropped.
     *
     * Red and blue come out exchanged, by design: the pixels are read and
     * written as QRgb words, whose byte order is not that of Format_RGBA8888.
     * A pixel that shows (10, 20, 30) is matched as (30, 20, 10), and the
     * palette colour (30, 20, 10) is written so that it shows (10, 20, 30).
     * Exchange red and blue around the call to see the palette's own colours.
     */
    static QImage toPaletteImage(const QImage& image, const QList<TWColor>& palette, const bool& usePattern,
                                 QHash<int, QHash<int, QHash<int, TWColor>>>* cache);
    /*!
     * A patterned colour standing for \a a and \a b side by side: the mean of
     * their red, green and blue (halves dropped), alpha 255, with the pattern
     * \a a, then \a b, as opaque words.
     */
    static TWColor generatePattern(const TWColor& a, const TWColor& b);
    /*!
     * \a palette followed by one patterned colour for every pair of its
     * entries: for i from the first entry and j after it,
     * generatePattern(palette[j], palette[i]). n entries give n + n(n - 1) / 2;
     * patterned entries pair by their mean, and duplicates are kept.
     */
    static QList<TWColor> generatePatternedPalette(const QList<TWColor>& palette);

    /*!
     * Reads a TGA file into \a image; see tgaFromQByteArray(). When the file
     * can't be read, answers TWUtils::lastError() and leaves \a image alone.
     */
    static QString tgaFromFile(const QString& fileName, QImage& image);
    /*!
     * Decodes the TGA picture in \a data into \a image.
     *
     * Uncompressed (type 2) and run-length encoded (type 10) true-colour
     * pictures of 24 or 32 bits per pixel come out as Format_RGB888 or
     * Format_RGBA8888, top row first unless the file's origin bit says the rows
     * are stored bottom up; alpha is taken as it is stored, columns are never
     * mirrored. An image ID and a colour map are read over. A file of type 0
     * (no image) is a success that leaves \a image as it was. Any other type,
     * another depth, or data that ends too soon answers the reason, which
     * quotes the header's fields; so does a picture too large to hold in
     * memory. \a image is only assigned on success.
     */
    static QString tgaFromQByteArray(const QByteArray& data, QImage& image);

    /*!
     * Reads an image file. An empty \a format becomes the upper-cased suffix of
     * \a fileName, written back so that the caller sees what was tried; a
     * given one wins over the suffix. Then as imageFromQByteArray(), or
     * TWUtils::lastError() when the file can't be read.
     */
    static QString imageFromFile(const QString& fileName, QString& format, QImage& image);
    /*!
     * Decodes \a data in \a format (any case): "TGA" goes to
     * tgaFromQByteArray(), anything else to Qt's readers (an empty format lets
     * Qt guess), whose failure answers "Unsupported image format!".
     */
    static QString imageFromQByteArray(const QByteArray& data, const QString& format, QImage& image);
    /*! As imageFromFile(), into a list; see imagesFromQByteArray(). */
    static QString imagesFromFile(const QString& fileName, QString& format, QList<QImage*>& images);
    /*!
     * As imageFromQByteArray(), but into a new heap image appended to
     * \a images, which the caller then owns and deletes. \a images is cleared
     * first, without deleting what it pointed to, and gets one image at most:
     * later frames of a multi-frame format are not read.
     */
    static QString imagesFromQByteArray(const QByteArray& data, const QString& format, QList<QImage*>& images);
    /*!
     * Saves \a image into \a data in \a format through Qt's writers. Answers
     * false only when the buffer can't be opened: a format that Qt can't write
     * answers true with an empty \a data.
     */
    static bool imageToQByteArray(const QImage& image, const QString& format, QByteArray& data);

    /*!
     * Cuts \a image into tiles of \a width by \a height, row by row, left to
     * right. Tiles that overhang the right or bottom edge keep their full size,
     * with zero bytes where the image ends. A size of 0 or below gives no tiles.
     */
    static QList<QImage> splitImage(const QImage& image, const int& width, const int& height);
    /*!
     * \a image framed by \a border pixels on each side. The frame is no flat
     * colour: the whole image is stretched (unsmoothed) to the framed size and
     * the image is painted over it at its own size, so the frame continues the
     * picture's edges.
     */
    static QImage borderingImg(const QImage& image, const int& border);
    /*!
     * Paints \a source onto \a target at (\a x, \a y), composing over what is
     * there. When \a source doesn't fit, \a target first grows to a
     * Format_RGB32 image holding the old one at (0, 0): it loses its alpha, and
     * what neither image covers is left as it comes from the allocator.
     */
    static void copyImageToImage(QImage& target, const int& x, const int& y, const QImage& source);

    /*!
     * \a image as Format_ARGB32, with every pixel of exactly the colour and
     * alpha of \a from replaced by \a to.
     */
    static QImage convertColor(const QImage& image, QColor from, QColor to);
    /*!
     * \a image as Format_ARGB32, with the alpha of every pixel of the colour
     * \a color (whatever its alpha) set to the low byte of \a alpha. Colour
     * bytes are not premultiplied.
     */
    static QImage convertToTransparent(const QImage& image, QColor color, const int& alpha);
    /*!
     * \a image as Format_ARGB32, with every pixel that is not fully opaque
     * replaced by the opaque \a color (not blended).
     */
    static QImage disableTransparency(const QImage& image, QColor color);

    /*!
     * One character of \a chars per pixel and \a lineEnd after each row. The
     * choice follows the pixel's red alone: with n characters, a red of r picks
     * the character at n - r * n / 768, so only the last third of \a chars is
     * used, the reddest pixels furthest toward the front, and a red of 0 gives
     * U+0000. \a image is not changed.
     */
    static QString imageToASCII(QImage& image, QString lineEnd, QString chars);

    /*!
     * Reads the colours of a RIFF palette file into \a palette (cleared first),
     * every "data" chunk in file order, each four-byte record as red, green,
     * blue and an ignored flag; every colour gets alpha 255. The chunk's size
     * alone decides how many records it has: a version and count at the
     * chunk's start, as some writers put there, come out as one more colour.
     * Other chunks are skipped. On failure the answer names the file, and
     * \a palette keeps the colours read before it.
     */
    static QString loadPalFile(const QString& fileName, QList<TWColor>& palette);

private:
    // The text that TGA failures quote: every header field by name.
    static QString tgaHeaderToString(const QByteArray& header);
};

} // namespace TW

#endif // TWIMAGEEXT_H
