#ifndef TWZX7_H
#define TWZX7_H

#include "twglobal.h"

#include <QtCore/qbytearray.h>
#include <QtCore/qlist.h>

/*!
 * One record of the optimal parse that the ZX7 encoder builds, one per input
 * byte; all fields are 0 in a value-initialised record.
 *
 * While the parse is searched, \c bits is the fewest bits that encode the input
 * from the first encoded byte up to and including this one; while the stream is
 * written it is reused as the position of the next token (0 at the last one).
 * \c offset and \c len describe the sequence that ends at this byte; a \c len
 * of 0 means the byte is a literal.
 */
struct TWCompOptimal
{
    quint64 bits;
    qint32 offset;
    qint32 len;
};

namespace TW {

/*!
 * ZX7 compression of blocks of bytes held in memory.
 *
 * The stream is the public ZX7 format, bit for bit: no header, no stored
 * length, no checksum. compress() finds the parse that spends the fewest bits
 * (not a greedy one), so its output decodes with any ZX7 decoder and is the
 * same as that of the classic optimal ZX7 compressor. All operations are
 * static and keep their state in the call, so any number of threads may use
 * them at once. The class reports no errors: a failure shows as an empty array.
 */
class TWBASELIB_EXPORT TWZX7
{
public:
    TWZX7() = default;
    TWZX7(const TWZX7& other) = default;
    /*! The class has no data: assignment does nothing. */
    TWZX7& operator=(const TWZX7& other);
    TWZX7& operator=(TWZX7&& other) noexcept;

    /*!
     * Expands a complete ZX7 stream from a trusted source.
     *
     * Returns an empty array when a sequence reaches back before the start of
     * the data. A stream that is cut short is not detected: bytes past the end
     * read as 0, so such a stream runs on until memory runs out (and then an
     * empty array comes back) or never ends. Bytes after the end marker are
     * ignored. Use the bounded overload for input that may be damaged.
     */
    static QByteArray decompress(const QByteArray& input);

    /*!
     * Expands a ZX7 stream from an untrusted source.
     *
     * Gives exactly what decompress(input) gives, but returns an empty array
     * and sets \a *ok to false as soon as the stream would read past the end of
     * \a input, produce more than \a maxOutputSize bytes, or copy from before
     * the start of the data (or when memory runs out). \a ok may be null.
     */
    static QByteArray decompress(const QByteArray& input, qsizetype maxOutputSize, bool* ok);

    /*!
     * Compresses \a input into a ZX7 stream, leaving out its first \a skip bytes.
     *
     * The stream covers the bytes from position \a skip to the end; with a skip
     * of 0 it is a plain ZX7 stream that decompress() expands back into
     * \a input. The skipped bytes still serve as a dictionary, so sequences may
     * reach back into them: such a stream expands only with a decoder primed
     * with those bytes. Returns an empty array for an empty input, for a
     * \a skip outside 0 to size - 1, for an input of 4 GiB or more, and when
     * memory runs out. Needs about 17 bytes of memory per input byte (the parse
     * and the stream) and under 1 MiB of tables.
     */
    static QByteArray compress(const QByteArray& input, long skip);

private:
    // Decoding.
    static int _readZX7Byte(const QByteArray& input, quint64& inputIndex);
    static int _readZX7Bit(const QByteArray& input, quint64& inputIndex, int& bitMask, int& bitValue);
    static int _readEliasGamma(const QByteArray& input, quint64& inputIndex, int& bitMask, int& bitValue);
    static int _readZX7Offset(const QByteArray& input, quint64& inputIndex, int& bitMask, int& bitValue);

    // Encoding.
    static QList<TWCompOptimal> _optimize(const QByteArray& input, long skip);
    static int _countBits(const int& offset, const int& len);
    static int _eliasGammaBits(int value);
    static void _writeZX7Byte(QByteArray& output, long& diff, const int& value);
    static void _writeZX7Bit(QByteArray& output, long& diff, quint64& bitIndex, int& bitMask, const int& value);
    static void _writeEliasGamma(QByteArray& output, long& diff, quint64& bitIndex, int& bitMask,
                                 const int& value);
    static void _readRawBytes(const int& count, long& diff, long& delta);
};

} // namespace TW

#endif // TWZX7_H
