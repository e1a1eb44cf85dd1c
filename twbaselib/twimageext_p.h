#ifndef TWIMAGEEXT_P_H
#define TWIMAGEEXT_P_H

// Not part of the installed headers: entry points of the image helpers for
// the library's own fuzzers and tests, and the colour matcher that the image
// filters share.

#include "twimageext.h"

#include <utility>
#include <vector>

namespace TW {
namespace Internal {

/*!
 * \internal
 * The palette reader of TWImageExt::loadPalFile() over bytes already in
 * memory: appends the colours of \a data to \a palette and answers the same
 * texts, naming \a fileName, from the size check on.
 */
TWBASELIB_EXPORT QString readPalette(const QByteArray& data, const QString& fileName, QList<TWColor>& palette);

/*! The colour cache of TWImageExt::closestColor(): red, then green, then blue. */
using ColorCache = QHash<int, QHash<int, QHash<int, TWColor>>>;

/*!
 * \internal
 * What writing a palette match takes: the chosen colour's word and, for a
 * patterned colour, its two pattern words.
 */
struct PaletteAnswer
{
    QRgb rgba;
    QRgb first;
    QRgb second;
    bool patterned;
};

/*!
 * \internal
 * TWImageExt::closestColor() for a whole picture: the same answers, and the
 * same entries added to the caller's cache, at the cost of one look at that
 * cache and at most one walk of the palette per distinct colour.
 *
 * A private table keyed by the 24-bit colour remembers every answer given,
 * exact matches too, so a colour that comes again costs one probe. The
 * palette is walked over plain integers. When the caller's cache is small
 * beside the picture, it is read whole at the start instead of being asked
 * colour by colour, which is several times cheaper; either way each colour
 * gets the answer that the cache holds for it. Not for a palette or cache
 * that changes while the matcher lives.
 */
class ColorMatcher
{
public:
    /*! \a pixels: how many pixels will be asked about, which decides how the cache is read. */
    ColorMatcher(const QList<TWColor>& palette, ColorCache* cache, qint64 pixels);
    ~ColorMatcher();
    ColorMatcher(const ColorMatcher&) = delete;
    ColorMatcher& operator=(const ColorMatcher&) = delete;

    /*! The answer for red, green and blue packed as a QRgb word (alpha ignored). */
    PaletteAnswer match(QRgb rgb)
    {
        const quint32 key = (rgb & 0xFFFFFFu) | Occupied;
        for (quint32 at = hashOf(key);; at = (at + 1) & _mask) {
            const quint64 slot = _slots[at];
            if (quint32(slot) == key)
                return _answers[quint32(slot >> 32)];
            if (quint32(slot) == 0)
                return _answers[resolve(key)];
        }
    }

private:
    // Set in every key kept in the table, so that no key is 0, the mark of a free slot.
    static constexpr quint32 Occupied = 1u << 24;

    quint32 hashOf(quint32 key) const { return (key * 0x9E3779B1u) >> _shift; }
    quint32 resolve(quint32 key);
    quint32 walk(int r, int g, int b);
    quint32 answerFor(const TWColor& color);
    void remember(quint32 key, quint32 id);
    bool grow();
    void readWholeCache();

    const QList<TWColor>& _palette;
    ColorCache* _cache;
    bool _cacheRead = false;
    // Red, green and blue of each entry, as closestColor() compares them.
    std::vector<int> _red, _green, _blue;
    // Answers 0 to n - 1 are the palette's entries, n the default colour,
    // and any further ones are colours that the cache held.
    std::vector<PaletteAnswer> _answers;
    QHash<std::pair<quint64, quint64>, quint32> _cachedAnswers;
    static constexpr quint32 NoAnswer = ~0u;
    static constexpr int RecentSize = 61;
    struct Recent
    {
        std::pair<quint64, quint64> key;
        quint32 id = NoAnswer;
    };
    Recent _recent[RecentSize];
    // Open addressing, linear probing: key in the low word, answer above it.
    quint64* _slots;
    quint32 _mask = 0;
    int _shift = 32;
    quint32 _count = 0;
    quint64 _spare[2] = {0, 0};
};

} // namespace Internal
} // namespace TW

#endif // TWIMAGEEXT_P_H
