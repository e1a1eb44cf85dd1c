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
 * The answers go into a table with an entry for every one of the 2^24
 * colours, at the colour's own word, so a colour that comes again costs one
 * read. There is one such table per thread, made at the first use and kept
 * until the thread ends (32 MiB of address space, of which only the pages
 * that colours touch take memory); a matcher clears the entries that it set
 * when it ends. When the table can't be had, every colour is resolved
 * afresh, with the same answers.
 *
 * The palette is walked over plain integers. When the caller's cache is small
 * beside the picture, it is read whole at the start instead of being asked
 * colour by colour, which costs less; either way each colour gets the answer
 * that the cache holds for it. Not for a palette or cache that changes while
 * the matcher lives.
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
        const quint16 known = _table ? _table[entryOf(rgb)] : 0;
        return _answers[known ? known - 1u : resolve(rgb & 0xFFFFFFu)];
    }

    /*! Starts fetching the table's entry of \a rgb, which will be asked for soon. */
    void prefetch(QRgb rgb) const
    {
#if defined(__GNUC__)
        if (_table)
            __builtin_prefetch(_table + entryOf(rgb));
#else
        Q_UNUSED(rgb)
#endif
    }

private:
    // The table's entry of a colour: the colour itself. Neighbouring colours
    // of a photo are then often close in memory too (measured faster than
    // orders that interleave the channels' bits, or a hash).
    static quint32 entryOf(QRgb rgb) { return rgb & 0xFFFFFFu; }

    quint32 resolve(quint32 rgb);
    quint32 walk(int r, int g, int b);
    quint32 answerFor(const TWColor& color);
    bool remember(quint32 at, quint32 id);
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
    static constexpr int RecentBits = 6;
    struct Recent
    {
        std::pair<quint64, quint64> key;
        quint32 id = NoAnswer;
    };
    Recent _recent[1 << RecentBits];
    // The thread's table (answer + 1 per colour, 0 for none yet), or null,
    // and the entries that this matcher has set.
    quint16* _table = nullptr;
    std::vector<quint32>* _touched = nullptr;
};

} // namespace Internal
} // namespace TW

#endif // TWIMAGEEXT_P_H
