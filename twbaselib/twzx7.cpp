#include "twzx7.h"

#include <QtCore/qalgorithms.h>
#include <QtCore/qendian.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

namespace {

constexpr qsizetype MaxOffset = 2176;   // farthest a sequence reaches back
constexpr qsizetype MaxLength = 0x10000; // longest sequence
constexpr qint64 MaxInput = 0xFFFFFFFF; // positions are kept in 32 bits

/*
 * The output of a decoder: a QByteArray written through a raw pointer. The
 * array always holds Slack bytes more than `capacity`, so that short copies
 * can store whole words past the bytes they produce instead of counting them;
 * the extra bytes are cut off at the end. capacity never exceeds the caller's
 * limit. Growing may throw std::bad_alloc; the decoders turn that into an
 * empty result.
 */
constexpr qsizetype Slack = 32;

struct Output
{
    char* p;
    qsizetype size;
    qsizetype capacity;
};

// Room for `more` bytes past size, as far as the limit allows; at least doubles.
Q_NEVER_INLINE Output grow(QByteArray& buffer, Output out, qsizetype more, qsizetype limit)
{
    const qsizetype capacity = std::min(std::max(out.capacity * 2, out.size + more), limit);
    if (capacity > out.capacity) {
        buffer.resize(capacity + Slack);
        out.p = buffer.data();
        out.capacity = capacity;
    }
    return out;
}

Output start(QByteArray& buffer, qsizetype capacity)
{
    buffer.resize(capacity + Slack);
    return {buffer.data(), 0, capacity};
}

// The result, cut to its size. The buffer grew by guesses and doublings, so it
// may hold several times what the result needs: that is given back, where a
// shrink in place is cheap and the caller may keep the array for long.
QByteArray finish(QByteArray& buffer, qsizetype size)
{
    buffer.resize(size);
    if (buffer.capacity() - size > size / 8 + 64)
        buffer.squeeze();
    return buffer;
}

// Copies len bytes from offset bytes back. The source may run into the bytes
// that this copy writes, as if they were copied one at a time front to back: a
// short pattern then repeats (offset 1 repeats the last byte). Long repeats are
// built by doubling what is already written.
inline void copyBack(char* dst, qsizetype offset, qsizetype len)
{
    const char* src = dst - offset;
    if (offset >= len) {
        std::memcpy(dst, src, size_t(len));
    } else if (offset == 1) {
        std::memset(dst, *src, size_t(len));
    } else {
        std::memcpy(dst, src, size_t(offset));
        for (qsizetype done = offset; done < len;) {
            const qsizetype chunk = std::min(done, len - done);
            std::memcpy(dst + done, dst, size_t(chunk));
            done += chunk;
        }
    }
}

// The same for a sequence of at most 16 bytes, done by storing 16 bytes (the
// caller has room for them).
Q_ALWAYS_INLINE void copyShort(char* dst, qsizetype offset)
{
    const char* src = dst - offset;
    if (Q_LIKELY(offset >= 8)) {
        // Each move reads only bytes written before it.
        std::memcpy(dst, src, 8);
        std::memcpy(dst + 8, src + 8, 8);
        return;
    }
    // A pattern shorter than 8 bytes. Its first four bytes go one at a time,
    // so that a pattern shorter than four repeats; then each further block is
    // copied from the nearest earlier place with the same phase that lies
    // wholly in bytes already written: a multiple of the offset, at least 4
    // (then 8) bytes back.
    static constexpr qint8 back4[8] = {0, 4, 4, 6, 4, 5, 6, 7};
    static constexpr qint8 back8[8] = {0, 8, 8, 9, 8, 10, 12, 14};
    dst[0] = src[0];
    dst[1] = src[1];
    dst[2] = src[2];
    dst[3] = src[3];
    std::memcpy(dst + 4, dst + 4 - back4[offset], 4);
    std::memcpy(dst + 8, dst + 8 - back8[offset], 8);
}

/*
 * The state of a bit reader, as the stream's own readers keep it: the position
 * of the next stream byte, the bit of the current flag byte last handed out,
 * and that flag byte.
 */
struct ReaderState
{
    quint64 index = 0;
    int bitMask = 0;
    int bitValue = 0;
};

/*
 * The fast loop reads ahead without checks, so it runs only while FastMargin
 * bytes of input remain: one pass reads fewer than 24 bytes past its start.
 */
constexpr quint64 FastMargin = 32;

// A mask of the top `bits` bits of a word, 0 to 63 of them.
Q_ALWAYS_INLINE quint64 topBits(int bits)
{
    return ~(~quint64(0) >> bits);
}

// A first guess at the expanded size: ZX7 rarely does better than 4:1 on real data.
qsizetype initialOutputSize(qsizetype inputSize, qsizetype limit)
{
    const qsizetype guess = inputSize < std::numeric_limits<qsizetype>::max() / 4 ? std::max<qsizetype>(256, inputSize * 4)
                                                                                  : inputSize;
    return std::min(guess, std::max<qsizetype>(limit, 1));
}

/*
 * The tokens after the first byte, up to the end of the input less
 * FastMargin bytes, or up to a gamma code of more than 15 zeros. Answers
 * Tail or Marker with the state handed back in `st` and `out` (for Marker, the
 * 1 flag bit in front of the zeros has been read), or Failed when the stream
 * reaches before the start of the data or past `limit` bytes.
 *
 * The flag bits not yet handed out are kept at the top of a word (`hold`,
 * `left` of them; the bits below are 0). One pass of the loop decodes a run of
 * literals and the sequence that ends it with few branches: the run is the
 * count of 0 bits before the next 1 bit of the flag byte, and the bits of a
 * gamma code or of a far offset come from a 64-bit window, since no stream
 * byte stands between them (the next flag bytes follow in the input). The
 * state lives in locals of a function of its own, so that it stays in
 * registers.
 */
enum class FastEnd { Tail, Marker, Failed };

Q_NEVER_INLINE FastEnd fastTokens(const uchar* data, quint64 size, ReaderState& st, QByteArray& buffer,
                                  Output& out, qsizetype limit)
{
    quint64 index = st.index;
    int left = st.bitMask ? int(qCountTrailingZeroBits(quint32(st.bitMask))) : 0;
    quint64 hold = left ? quint64(st.bitValue & (st.bitMask - 1)) << (64 - left) : 0;
    char* p = out.p;
    qsizetype n = out.size;
    qsizetype capacity = out.capacity;
    FastEnd end = FastEnd::Tail;

    // Consumes `used` bits of a window that started with the `left` held bits.
    const auto consume = [&](quint64 window, int used) {
        const int bytes = (used - left + 7) >> 3;
        index += quint64(bytes);
        left += 8 * bytes - used;
        hold = (window << used) & topBits(left);
    };

    while (index + FastMargin <= size) {
        // One pass writes at most 24 bytes (8 literals and a short sequence).
        if (Q_UNLIKELY(capacity - n < 24)) {
            out = grow(buffer, {p, n, capacity}, 24, limit);
            p = out.p;
            capacity = out.capacity;
        }
        // A used-up flag byte is followed by the next one (hold is 0 then).
        if (left == 0) {
            hold = quint64(data[index++]) << 56;
            left = 8;
            if (hold == 0) {
                // Eight literals, as in data that does not compress: taken
                // apart from the general case so that the next pass does not
                // wait for a count of zeros.
                if (Q_UNLIKELY(limit - n < 8)) {
                    end = FastEnd::Failed;
                    break;
                }
                std::memcpy(p + n, data + index, 8);
                index += 8;
                n += 8;
                left = 0;
                continue;
            }
        }

        // Literals up to the next 1 bit; their bytes follow each other.
        const int run = std::min(int(qCountLeadingZeroBits(hold | 1)), left);
        if (Q_UNLIKELY(run > limit - n)) {
            end = FastEnd::Failed;
            break;
        }
        std::memcpy(p + n, data + index, 8);
        index += quint64(run);
        n += run;
        hold <<= run;
        left -= run;
        if (left == 0)
            continue;

        // A sequence: its 1 flag bit, then the gamma code of length minus 1.
        const quint64 window = hold | (qFromBigEndian<quint64>(data + index) >> left);
        const int zeros = int(qCountLeadingZeroBits((window << 1) | 1));
        if (Q_UNLIKELY(zeros > 15)) {
            hold <<= 1;
            --left;
            end = FastEnd::Marker;
            break;
        }
        // Length 2 is by far the commonest where data compresses poorly; a
        // branch on it lets the processor run ahead without waiting for the
        // count of zeros, which measured faster than the general formula.
        int len = 2;
        if (zeros == 0) {
            consume(window, 2);
        } else {
            len = int((window << 1) >> (63 - 2 * zeros)) + 1;
            consume(window, 2 * zeros + 2);
        }

        // The offset: a stream byte, and four more flag bits when its top bit is set.
        const int low = data[index++];
        const int isFar = low >> 7;
        const quint64 window2 = hold | (qFromBigEndian<quint64>(data + index) >> left);
        consume(window2, 4 * isFar);
        const int offset = (low & 127) + 1 + ((-isFar) & (128 + int(window2 >> 60) * 128));

        // The format's own test allows an offset of twice the bytes produced;
        // a source before the first byte is refused as well, so that nothing
        // outside the output is ever read.
        if (Q_UNLIKELY(offset > n || len > limit - n)) {
            end = FastEnd::Failed;
            break;
        }
        if (Q_LIKELY(len <= 16)) {
            copyShort(p + n, offset);
        } else {
            if (len > capacity - n) {
                out = grow(buffer, {p, n, capacity}, len, limit);
                p = out.p;
                capacity = out.capacity;
            }
            copyBack(p + n, offset, len);
        }
        n += len;
    }

    st.index = index;
    st.bitMask = 1 << left;
    st.bitValue = left ? int(hold >> (64 - left)) : 0;
    out = {p, n, capacity};
    return end;
}

/*
 * The tokens after the first byte, up to the end marker. Answers true at the
 * end marker, false when the stream reaches before the start of the data, past
 * `limit` bytes or past the end of the input.
 *
 * Near the end of the input, and for the end marker, Slow reads the bits one
 * at a time: bit(), byte(), gamma() (-1 for the end marker, -2 for a read past
 * the end), offset() and overrun(), on the ReaderState that it shares with this
 * function.
 */
template <class Slow>
Q_ALWAYS_INLINE bool decodeTokens(const uchar* data, quint64 size, ReaderState& st, Slow& slow,
                                  QByteArray& buffer, Output& out, qsizetype limit)
{
    switch (fastTokens(data, size, st, buffer, out, limit)) {
    case FastEnd::Failed:
        return false;
    case FastEnd::Marker:
        // More than 15 zeros can only end the stream; the bit reader counts
        // them, and they may run past the window (or the input).
        return slow.gamma() == -1;
    case FastEnd::Tail:
        break;
    }

    // The last bytes of the input, one bit at a time.
    for (;;) {
        const int flag = slow.bit();
        if (slow.overrun())
            return false;
        if (!flag) {
            const int literal = slow.byte();
            if (slow.overrun() || out.size >= limit)
                return false;
            if (out.size >= out.capacity)
                out = grow(buffer, out, 1, limit);
            out.p[out.size++] = char(literal);
            continue;
        }
        int len = slow.gamma();
        if (len < 0)
            return len == -1;
        int offset = slow.offset();
        if (slow.overrun())
            return false;
        ++len;
        ++offset;
        if (offset > 2 * out.size || offset > out.size || len > limit - out.size)
            return false;
        if (len > out.capacity - out.size)
            out = grow(buffer, out, len, limit);
        copyBack(out.p + out.size, offset, len);
        out.size += len;
    }
}

/*
 * The slow reads of the bounded decoder: the stream's own reader, but a read
 * past the end sets a flag instead of yielding zeros for ever.
 */
struct CheckedReader
{
    const uchar* data;
    quint64 size;
    ReaderState& st;
    bool over = false;

    Q_ALWAYS_INLINE int byte()
    {
        if (st.index >= size) {
            over = true;
            return 0;
        }
        return data[st.index++];
    }

    Q_ALWAYS_INLINE int bit()
    {
        st.bitMask >>= 1;
        if (st.bitMask == 0) {
            st.bitMask = 128;
            st.bitValue = byte();
        }
        return (st.bitValue & st.bitMask) ? 1 : 0;
    }

    int gamma()
    {
        int zeros = 0;
        while (!bit()) {
            if (over)
                return -2;
            if (zeros < 16)
                ++zeros;
        }
        if (zeros > 15)
            return -1;
        int value = 1;
        while (zeros-- > 0)
            value = (value << 1) | bit();
        return over ? -2 : value;
    }

    int offset()
    {
        const int value = byte();
        if (value < 128)
            return value;
        int high = 0;
        for (int k = 0; k < 4; ++k)
            high = (high << 1) | bit();
        return ((high << 7) | (value & 127)) + 128;
    }

    bool overrun() const { return over; }
};

// How many positions x, x-1, x-2, ... (at most maxCount) hold the same byte as
// the position offset bytes before them. Stops at the start of the data.
inline qsizetype equalBackward(const uchar* in, qsizetype x, qsizetype offset, qsizetype maxCount)
{
    const qsizetype limit = std::min(maxCount, x - offset + 1);
    qsizetype n = 0;
    while (n + 8 <= limit) {
        const quint64 a = qFromLittleEndian<quint64>(in + x - n - 7);
        const quint64 b = qFromLittleEndian<quint64>(in + x - offset - n - 7);
        if (a != b)
            return n + qsizetype(qCountLeadingZeroBits(a ^ b) >> 3);
        n += 8;
    }
    while (n < limit && in[x - n] == in[x - offset - n])
        ++n;
    return n;
}

/*
 * What the search knows about one offset: every position from start to end
 * holds the byte found offset positions earlier. exact says that start - 1 does
 * not (or lies too near the start of the data), so the run cannot be longer.
 * An end of 0 means nothing is known yet.
 */
struct OffsetRun
{
    quint32 start;
    quint32 end;
    bool exact;
};

constexpr quint32 Window = 4096; // chain entries kept: more than MaxOffset positions back
constexpr quint32 WindowMask = Window - 1;

inline quint32 key3(const uchar* in, qsizetype i)
{
    return quint32(in[i - 2]) | quint32(in[i - 1]) << 8 | quint32(in[i]) << 16;
}

inline quint32 key4(const uchar* in, qsizetype i)
{
    return qFromLittleEndian<quint32>(in + i - 3);
}

/*
 * Earlier positions whose last bytes hash alike, latest first, kept for the
 * last Window positions. An entry's base is the lowest entry of its stretch:
 * the entries below it down to the base follow each other at one step, the
 * period, and the bytes between them repeat with that period. The window
 * never holds more than Window entries, but the heads are four times as
 * many: an entry whose bytes only hash alike is one more step of a walk, and
 * with a quarter of the heads the whole encoder ran about 6% slower.
 */
constexpr int HeadBits = 14;

struct HashChain
{
    // An entry's link to the next one and its stretch's base, side by side:
    // the walk reads both at each step.
    struct Link
    {
        quint32 next;
        quint32 base;
    };

    quint32 heads[quint32(1) << HeadBits];
    Link link[Window];

    static quint32 hash(quint32 key) { return (key * 2654435761u) >> (32 - HeadBits); }

    // Enters position i. periodic says that the bytes from nearest + 1 to i
    // repeat with the period i - nearest; if nearest is also the previous entry
    // of this chain and its stretch has that period (or none yet), i extends it.
    void insert(qsizetype i, quint32 hash, bool periodic, quint32 nearest)
    {
        const quint32 previous = heads[hash];
        Link entry{previous, quint32(i)};
        if (periodic && previous == nearest && previous != 0) {
            const Link& p = link[previous & WindowMask];
            if (p.base == previous || p.next == previous - (quint32(i) - previous))
                entry.base = p.base;
        }
        link[quint32(i) & WindowMask] = entry;
        heads[hash] = quint32(i);
    }
};

// Set bits in a word, without relying on an instruction for it.
inline int popCount(quint64 v)
{
    v -= (v >> 1) & 0x5555555555555555;
    v = (v & 0x3333333333333333) + ((v >> 2) & 0x3333333333333333);
    v = (v + (v >> 4)) & 0x0F0F0F0F0F0F0F0F;
    return int((v * 0x0101010101010101) >> 56);
}

struct FreeDeleter
{
    void operator()(void* p) const { std::free(p); }
};

} // namespace

namespace TW {

TWZX7& TWZX7::operator=(const TWZX7& /*other*/)
{
    return *this;
}

TWZX7& TWZX7::operator=(TWZX7&& /*other*/) noexcept
{
    return *this;
}

// ---------------------------------------------------------------------------
// Decoding

// The stream's own bit readers. The members of the class hand on to these
// file-local copies, which the decoding loop, their only user here, gets
// inline without calls.

namespace {

Q_ALWAYS_INLINE int readByte(const QByteArray& input, quint64& inputIndex)
{
    // Past the end every byte reads as 0 and the index stays where it is.
    if (inputIndex >= quint64(input.size()))
        return 0;
    return uchar(input.constData()[inputIndex++]);
}

Q_ALWAYS_INLINE int readBit(const QByteArray& input, quint64& inputIndex, int& bitMask, int& bitValue)
{
    bitMask >>= 1;
    if (bitMask == 0) {
        bitMask = 128;
        bitValue = readByte(input, inputIndex);
    }
    return (bitValue & bitMask) ? 1 : 0;
}

Q_ALWAYS_INLINE int readEliasGamma(const QByteArray& input, quint64& inputIndex, int& bitMask, int& bitValue)
{
    // The count is not bounded while it runs (only 16 or more matters, so it
    // stops growing there rather than overflow).
    int zeros = 0;
    while (!readBit(input, inputIndex, bitMask, bitValue)) {
        if (zeros < 16)
            ++zeros;
    }
    if (zeros > 15)
        return -1; // the end marker
    int value = 1;
    while (zeros-- > 0)
        value = (value << 1) | readBit(input, inputIndex, bitMask, bitValue);
    return value;
}

Q_ALWAYS_INLINE int readOffset(const QByteArray& input, quint64& inputIndex, int& bitMask, int& bitValue)
{
    const int value = readByte(input, inputIndex);
    if (value < 128)
        return value;
    int high = 0;
    for (int k = 0; k < 4; ++k)
        high = (high << 1) | readBit(input, inputIndex, bitMask, bitValue);
    return ((high << 7) | (value & 127)) + 128;
}

} // namespace

int TWZX7::_readZX7Byte(const QByteArray& input, quint64& inputIndex)
{
    return readByte(input, inputIndex);
}

int TWZX7::_readZX7Bit(const QByteArray& input, quint64& inputIndex, int& bitMask, int& bitValue)
{
    return readBit(input, inputIndex, bitMask, bitValue);
}

int TWZX7::_readEliasGamma(const QByteArray& input, quint64& inputIndex, int& bitMask, int& bitValue)
{
    return readEliasGamma(input, inputIndex, bitMask, bitValue);
}

int TWZX7::_readZX7Offset(const QByteArray& input, quint64& inputIndex, int& bitMask, int& bitValue)
{
    return readOffset(input, inputIndex, bitMask, bitValue);
}

QByteArray TWZX7::decompress(const QByteArray& input)
{
    // Near the end of the input the stream's own readers take the bits, with
    // their rule that bytes past the end read as 0.
    struct Plain
    {
        const QByteArray& input;
        ReaderState& st;

        int bit() { return readBit(input, st.index, st.bitMask, st.bitValue); }
        int byte() { return readByte(input, st.index); }
        int gamma() { return readEliasGamma(input, st.index, st.bitMask, st.bitValue); }
        int offset() { return readOffset(input, st.index, st.bitMask, st.bitValue); }
        bool overrun() const { return false; }
    };

    try {
        ReaderState st;
        Plain slow{input, st};
        const qsizetype unlimited = std::numeric_limits<qsizetype>::max() / 4;
        QByteArray buffer;
        Output out = start(buffer, initialOutputSize(input.size(), unlimited));
        // The first byte is always a literal, with no flag bit before it.
        out.p[out.size++] = char(slow.byte());
        if (!decodeTokens(reinterpret_cast<const uchar*>(input.constData()), quint64(input.size()), st, slow,
                          buffer, out, unlimited))
            return QByteArray();
        return finish(buffer, out.size);
    } catch (const std::bad_alloc&) {
        return QByteArray();
    }
}

QByteArray TWZX7::decompress(const QByteArray& input, qsizetype maxOutputSize, bool* ok)
{
    if (ok)
        *ok = false;
    try {
        const uchar* data = reinterpret_cast<const uchar*>(input.constData());
        ReaderState st;
        CheckedReader slow{data, quint64(input.size()), st};
        const qsizetype limit = qBound<qsizetype>(0, maxOutputSize, std::numeric_limits<qsizetype>::max() / 4);
        QByteArray buffer;
        Output out = start(buffer, initialOutputSize(input.size(), limit));
        const int first = slow.byte();
        if (slow.overrun() || limit < 1)
            return QByteArray();
        out.p[out.size++] = char(first);
        if (!decodeTokens(data, quint64(input.size()), st, slow, buffer, out, limit))
            return QByteArray();
        QByteArray result = finish(buffer, out.size);
        if (ok)
            *ok = true;
        return result;
    } catch (const std::bad_alloc&) {
        return QByteArray();
    }
}

// ---------------------------------------------------------------------------
// Encoding

// The encoder's helpers, file-local and inline for the same reason as the
// readers; the members hand on to them.

namespace {

Q_ALWAYS_INLINE int eliasGammaBits(int value)
{
    // 1, and 2 more for each halving that leaves the value above 1.
    return value > 1 ? 1 + 2 * (31 - int(qCountLeadingZeroBits(quint32(value)))) : 1;
}

Q_ALWAYS_INLINE int countBits(int offset, int len)
{
    return 1 + (offset > 128 ? 12 : 8) + eliasGammaBits(len - 1);
}

Q_ALWAYS_INLINE void writeByte(QByteArray& output, long& diff, int value)
{
    output.append(char(value & 0xFF));
    --diff;
}

Q_ALWAYS_INLINE void writeBit(QByteArray& output, long& diff, quint64& bitIndex, int& bitMask, int value)
{
    if (bitMask == 0) {
        bitMask = 128;
        bitIndex = quint64(output.size());
        writeByte(output, diff, 0);
    }
    if (value > 0)
        output.data()[bitIndex] = char(uchar(output.constData()[bitIndex]) | bitMask);
    bitMask >>= 1;
}

Q_ALWAYS_INLINE void writeEliasGamma(QByteArray& output, long& diff, quint64& bitIndex, int& bitMask, int value)
{
    int test = 2;
    while (test <= value) {
        writeBit(output, diff, bitIndex, bitMask, 0);
        test <<= 1;
    }
    while ((test >>= 1) > 0)
        writeBit(output, diff, bitIndex, bitMask, value & test);
}

Q_ALWAYS_INLINE void readRawBytes(int count, long& diff, long& delta)
{
    // diff and delta track how far the output runs ahead of the input; the
    // stream does not depend on them.
    diff += count;
    if (diff > delta)
        delta = diff;
}

} // namespace

int TWZX7::_eliasGammaBits(int value)
{
    return eliasGammaBits(value);
}

int TWZX7::_countBits(const int& offset, const int& len)
{
    return countBits(offset, len);
}

void TWZX7::_writeZX7Byte(QByteArray& output, long& diff, const int& value)
{
    writeByte(output, diff, value);
}

void TWZX7::_writeZX7Bit(QByteArray& output, long& diff, quint64& bitIndex, int& bitMask, const int& value)
{
    writeBit(output, diff, bitIndex, bitMask, value);
}

void TWZX7::_writeEliasGamma(QByteArray& output, long& diff, quint64& bitIndex, int& bitMask, const int& value)
{
    writeEliasGamma(output, diff, bitIndex, bitMask, value);
}

void TWZX7::_readRawBytes(const int& count, long& diff, long& delta)
{
    readRawBytes(count, diff, delta);
}

/*
 * The optimal parse. For each position i, the earlier positions that end with
 * the same byte pair are the candidates, nearest first, up to 2176 back. Each
 * candidate offset offers every length from 2 up to its match length at i, but
 * a length is only costed at the first (nearest) offset that reaches it, so a
 * candidate offers the lengths above the longest one costed so far. A length
 * replaces the record of i only when strictly cheaper: a literal wins ties, and
 * among equal sequences the nearer offset and then the shorter length stay.
 *
 * Done naively this costs every length of a long match at every position, so
 * that a run of n equal bytes costs about n * min(n, 65536) steps, and it walks
 * every candidate. The search below gives exactly the same records faster:
 *
 * - Only a candidate that matches more bytes than the longest length costed so
 *   far (`reached`) can change anything. After the nearest candidate `reached`
 *   is at least 2, so the walk goes on along chains of positions whose last 3
 *   bytes (then, from a `reached` of 3, 4 bytes) hash alike: every candidate
 *   they leave out matches too few bytes to count. A candidate is then tested
 *   at the one byte that decides whether it can beat `reached`.
 * - Match lengths come from what earlier positions learnt about each offset
 *   (OffsetRun), so a long match is not compared again byte by byte.
 * - The cost of the lengths of one candidate is bits[i - len] plus a part that
 *   depends only on the offset and on the gamma band of len - 1 (lengths 2,
 *   3-4, 5-8, ..., 32769-65536). The fewest bits up to a position never drop as
 *   the position grows (an optimal parse up to i, with its last sequence cut by
 *   one byte or turned into a literal, encodes up to i - 1 for no more), so in
 *   each band the longest length is the cheapest, and the first length that
 *   costs as little is found by bisection.
 * - Bytes that repeat a short period (runs of one byte, flat pixels) put chain
 *   entries every period bytes: a stretch. Within a stretch only one entry can
 *   beat the first one met (see below), so the walk skips the rest.
 *
 * The walk only looks MaxOffset positions back, so the chains are rings of the
 * last Window positions; the fewest bits are kept for the last MaxLength
 * positions only, as far as a sequence reaches back. So the memory is fixed,
 * and the sink decides what is kept of each record.
 */
namespace {

constexpr qsizetype ShortInput = 8192;          // below this, the tables are cleared entry by entry
constexpr qsizetype BitsWindow = MaxLength;      // fewest bits kept: as far back as a sequence reaches
constexpr qsizetype BitsMask = BitsWindow - 1;

/*
 * The fixed tables of one search, allocated at once; parts of them start
 * zeroed (see optimalParse).
 *
 * The pair table holds, for each byte pair, two positions modulo 2^16: the
 * latest at which the pair ended (low half) and the first of the pair's
 * current run (high half), a run being occurrences each within reach of the
 * one before. A position is entered in the hash chains only when its pair ran
 * on, so where no pair repeats within reach (data that does not compress) a
 * position costs one look-up and one store. The one occurrence a walk then
 * misses is the oldest one in reach, the first of the run, which the walk
 * takes on at its end.
 *
 * The fewest bits are kept modulo 2^32: any two that are compared lie within
 * one longest sequence of each other, so their difference fits in 32 bits.
 */
struct SearchTables
{
    quint32 pairs[0x10000];
    OffsetRun runs[MaxOffset + 1];
    HashChain chains[2];               // of 3 and of 4 bytes
    quint32 bits[BitsWindow];          // fewest bits up to position p, at p & BitsMask
};

// The position among the last 2^16 before i that is p modulo 2^16.
inline qsizetype unwrap(qsizetype i, quint32 p)
{
    return i - qsizetype((quint32(i) - p) & 0xFFFF);
}

/*
 * The cheapest choice so far for one position: a literal, or a sequence at
 * some offset whose cost is that of the longest length of one of its gamma
 * bands (lengths 2, 3-4, 5-8, ..., 32769-65536). The cost of a length is
 * bits[i - len] plus a part that depends only on the offset and on the band;
 * the fewest bits up to a position never drop as the position grows, so in
 * each band the longest length is the cheapest. Which length of the band is
 * the shortest that costs as little is only worked out for the choice that
 * stays, by length().
 */
struct Best
{
    // The cheapest so far as one number, so that keeping it is one unsigned
    // minimum: its cost above 32 bits, as the difference to a literal's plus
    // Bias, which stays in range since any two costs compared lie within one
    // longest sequence of each other; below, the offset above 17 bits and the
    // band's longest length under them, both 0 for a literal. Equal costs
    // then keep the choice offered first, as they must: the literal comes
    // first, and the sequences come by growing offset, and at one offset by
    // growing length.
    static constexpr quint32 Bias = 0x80000000u;
    quint64 key;
    quint32 base; // subtracted from a cost: the literal's less Bias

    explicit Best(quint32 literal) : key(quint64(Bias) << 32), base(literal - Bias) {}

    quint32 bits() const { return quint32(key >> 32) + base; }
    bool literal() const { return quint32(key) == 0; }
    qint32 offset() const { return qint32((key >> 17) & 0xFFF); }

    // Costs the lengths from `from` to `to` at one offset for a sequence that
    // ends at i. A length replaces the choice only when strictly cheaper.
    void offer(const quint32* fewest, qsizetype i, qsizetype offset, qsizetype from, qsizetype to)
    {
        if (from > to)
            return;
        // The band of from - 1, its last length, and the bits of the sequence
        // but for bits[i - len]: the flag, the offset and the gamma code.
        const int band = 31 - int(qCountLeadingZeroBits(quint32(from - 1)));
        qsizetype top = qsizetype(2) << band;
        quint32 fixed = quint32(countBits(int(offset), int(from))) - base;
        const quint64 at = quint64(offset) << 17;
        for (;;) {
            const qsizetype end = std::min(to, top);
            key = std::min(key, quint64(fewest[(i - end) & BitsMask] + fixed) << 32 | at | quint64(end));
            if (end == to)
                return;
            top *= 2;
            fixed += 2;
        }
    }

    // The same for one length.
    void take(quint32 cost, qsizetype offset, qsizetype end)
    {
        key = std::min(key, quint64(cost - base) << 32 | quint64(offset) << 17 | quint64(end));
    }

    // The length of the sequence chosen: the shortest of its band whose
    // fewest bits before it are as few as those before the longest. Those
    // bits only fall as the length grows, so the equal ones come last. The
    // lengths of the band below the first one costed at this offset were
    // costed at nearer offsets, which cost no more, and lost: their bits
    // before them are more, so the whole band can be searched.
    qint32 length(const quint32* fewest, qsizetype i) const
    {
        const qint32 last = qint32(key & 0x1FFFF);
        if (last <= 2)
            return last;
        const quint32 floor = fewest[(i - last) & BitsMask];
        qint32 lo = (qint32(1) << (31 - qCountLeadingZeroBits(quint32(last - 1)))) + 1;
        qint32 hi = last;
        while (hi - lo > 4) {
            const qint32 mid = lo + (hi - lo) / 2;
            if (fewest[(i - mid) & BitsMask] == floor)
                hi = mid;
            else
                lo = mid + 1;
        }
        qint32 len = hi;
        for (qint32 k = lo; k < hi; ++k)
            len -= fewest[(i - k) & BitsMask] == floor;
        return len;
    }
};

/*
 * The sequences that end at one position i, when the byte pair that ends
 * there ended within reach before: the lengths of each candidate offset are
 * costed against the fewest bits so far, and `best` keeps the cheapest. Where
 * data compresses badly this case is the rarer one, so it stands apart from
 * the loop over the positions, which stays small.
 */
struct Candidates
{
    const uchar* in;
    qsizetype skip;
    SearchTables* tables;

    // The match length at an offset for a sequence that ends at i, at most
    // cap, covering no position below lowest, from what is known about the
    // offset and a comparison of what is not. Inline at each use: it is
    // short where called most, on text.
    Q_ALWAYS_INLINE qsizetype matchLength(qsizetype i, qsizetype lowest, qsizetype cap, qsizetype offset)
    {
        OffsetRun& run = tables->runs[offset];
        const qsizetype stop = std::max(qsizetype(run.end) + 1, lowest);
        const qsizetype fresh = equalBackward(in, i, offset, i - stop + 1);
        if (fresh < i - stop + 1) {
            run = {quint32(i - fresh + 1), quint32(i), true};
            return fresh;
        }
        if (run.end == 0 || stop > qsizetype(run.end) + 1) {
            run = {quint32(lowest), quint32(i), false};
            return cap;
        }
        // Verified down to the known run: join them.
        run.end = quint32(i);
        if (qsizetype(run.start) <= lowest)
            return cap;
        if (!run.exact) {
            const qsizetype below = qsizetype(run.start) - 1;
            const qsizetype more = equalBackward(in, below, offset, below - lowest + 1);
            run.exact = more < below - lowest + 1;
            run.start = quint32(run.exact ? below - more + 1 : lowest);
            if (!run.exact)
                return cap;
        }
        return i - qsizetype(run.start) + 1;
    }

    // The length of the match at the nearest offset. first is the first
    // position of the pair's run, if it is still within reach; known is that
    // length when the caller found it already, else 0.
    Q_NEVER_INLINE qsizetype search(qsizetype i, qsizetype nearest, qsizetype first, quint32 hash3, quint32 hash4,
                                    qsizetype known, Best& best)
    {
        const quint32* const bits = tables->bits;
        HashChain& chain3 = tables->chains[0];
        HashChain& chain4 = tables->chains[1];

        const qsizetype cap = std::min<qsizetype>(MaxLength, i - skip); // no sequence may start before skip
        const qsizetype lowest = i - cap + 1;                // lowest position a sequence may cover
        qsizetype reached = 1;                               // longest length costed so far

        const auto matchAt = [&](qsizetype offset) { return matchLength(i, lowest, cap, offset); };

        // Costs the lengths from reached + 1 to len at this offset.
        const auto offer = [&](qsizetype offset, qsizetype len) {
            best.offer(bits, i, offset, reached + 1, len);
            reached = len;
        };

        const qsizetype nearestLen = known ? known : matchAt(i - nearest);
        offer(i - nearest, nearestLen);

        HashChain* chain = reached >= 3 ? &chain4 : &chain3;
        quint32 c = chain->heads[reached >= 3 ? hash4 : hash3];
        while (c >= quint32(nearest)) // nearest itself, or nearer positions that only hash alike
            c = chain->link[c & WindowMask].next;
        // Entries come latest first. One older than MaxOffset is out of
        // reach, and one at a position below `reached` cannot match more
        // than `reached` bytes: nor can any after it, so the walk ends at
        // the first entry below `low`. Every entry walked has at least
        // `reached` bytes before it.
        const qsizetype reach = std::max<qsizetype>(i - MaxOffset, 1);
        while (reached < cap) {
            const quint32 low = quint32(std::max(reach, reached));
            if (c < low)
                break;
            if (chain == &chain3 && reached >= 3) {
                // From here on only 4-byte matches count: go on along their
                // chain, from the first entry not yet passed.
                chain = &chain4;
                quint32 d = chain4.heads[hash4];
                while (d > c)
                    d = chain4.link[d & WindowMask].next;
                c = d;
                continue;
            }

            // Entries that can neither match more than `reached` nor stand
            // in a stretch are passed in a loop of their own: on text most
            // entries are such.
            const uchar* const back = in - reached; // back[c] is the byte reached before c
            const uchar want = back[i];
            const HashChain::Link* const link = chain->link;
            HashChain::Link entry = link[c & WindowMask];
            while (entry.base == c && back[c] != want) {
                c = entry.next;
                if (c < low)
                    break;
                entry = link[c & WindowMask];
            }
            if (c < low)
                break;
            const qsizetype offset = i - qsizetype(c);
            quint32 next = entry.next;

            // Only a match longer than `reached` counts, and that needs this
            // byte to match first.
            const qsizetype x = i - reached;
            if (in[x] == in[x - offset]) {
                const qsizetype len = matchAt(offset);
                if (len > reached)
                    offer(offset, len);
            }

            // c stands in a stretch: the entries c - period, c - 2 * period,
            // ... down to b, with the bytes from b - period + 1 to c
            // repeating with that period. Against i, whose own bytes repeat
            // with the period for `here` positions, each of these entries
            // matches as far as the shorter of the two periodic depths, plus
            // one period, unless both depths are equal. Those matches only
            // fall as the entries go deeper, so none of them beats c, except
            // the one entry whose depth equals `here`.
            const quint32 b = entry.base;
            if (b != c && reached < cap) {
                const qsizetype period = qsizetype(c) - qsizetype(next);
                const qsizetype here = matchAt(period);
                if (here < cap) {
                    const qsizetype deeper = equalBackward(in, b, period, here + 1);
                    next = i - qsizetype(b) <= MaxOffset ? chain->link[b & WindowMask].next : 0;
                    if (deeper <= here) {
                        const qsizetype gap = qsizetype(c - b) + deeper - here;
                        if (gap > 0 && (period == 1 || gap % period == 0))
                            next = quint32(qsizetype(c) - gap);
                    }
                }
            }
            c = next;
        }

        // The first of the run is in no chain: it is the oldest candidate.
        const qsizetype offset = i - first;
        const qsizetype x = i - reached;
        if (first < nearest && offset <= MaxOffset && reached < cap && x >= offset && in[x] == in[x - offset]) {
            const qsizetype len = matchAt(offset);
            if (len > reached)
                offer(offset, len);
        }
        return nearestLen;
    }
};

/*
 * The search. For each encoded position, from skip on, it hands the sink the
 * fewest bits up to and including it and the sequence that ends there (an
 * offset and length of 0 for a literal), in order. Answers the fewest bits of
 * the whole input, or 0 when its tables cannot be allocated.
 */
template <class Sink>
quint64 optimalParse(const uchar* in, qsizetype size, qsizetype skip, Sink& sink)
{
    std::unique_ptr<SearchTables, FreeDeleter> tables(static_cast<SearchTables*>(std::malloc(sizeof(SearchTables))));
    if (!tables)
        return 0;
    // Only what is read before it is written starts zeroed. The fewest bits
    // are only read where they were written, from skip on, and a chain's
    // links only for entries reached from its heads, which were all entered.
    // Of the pair table and the chains' heads only the entries of pairs and
    // keys in the input are read: on a short input, zeroing just those spares
    // the whole tables' pages.
    std::memset(tables->runs, 0, sizeof(tables->runs));
    const qsizetype from = std::max<qsizetype>(1, skip - MaxOffset);
    if (size - from < ShortInput) {
        for (qsizetype i = from; i < size; ++i) {
            tables->pairs[quint32(in[i - 1]) << 8 | in[i]] = 0;
            if (i >= 2)
                tables->chains[0].heads[HashChain::hash(key3(in, i))] = 0;
            if (i >= 3)
                tables->chains[1].heads[HashChain::hash(key4(in, i))] = 0;
        }
    } else {
        std::memset(tables->pairs, 0, sizeof(tables->pairs));
        for (HashChain& chain : tables->chains)
            std::memset(chain.heads, 0, sizeof(chain.heads));
    }
    quint32* const pairs = tables->pairs;
    quint32* const bits = tables->bits;
    HashChain& chain3 = tables->chains[0];
    HashChain& chain4 = tables->chains[1];
    Candidates candidates{in, skip, tables.get()};

    // The latest earlier position that ends the pair that ends at i, if it
    // lies within reach, else 0. The table keeps positions modulo 2^16; the
    // one it names is the latest for certain when it holds the pair, since
    // every later occurrence would have been entered.
    const auto nearestOf = [&](qsizetype i, quint32 entry) -> qsizetype {
        const quint32 distance = (quint32(i) - entry) & 0xFFFF;
        if (distance - 1 >= quint32(MaxOffset) || qsizetype(distance) >= i)
            return 0;
        const qsizetype c = i - qsizetype(distance);
        return qFromUnaligned<quint16>(in + c - 1) == qFromUnaligned<quint16>(in + i - 1) ? c : 0;
    };

    // The commonest case where data compresses poorly: the nearest occurrence
    // of the pair matches a few bytes, and no other candidate in reach matches
    // more. The match at the nearest offset then gives the only sequences, and
    // this tells so without the search: a few steps along the chain that
    // holds every candidate that could match more, each tested at the one
    // byte it would need, and the run's first occurrence. Answers the
    // nearest match's length, or 0 when the search has to decide.
    // When it gives up after measuring that match, its length goes to known,
    // so that the search need not measure it again.
    const auto shortMatch = [&](qsizetype i, qsizetype nearest, qsizetype first, quint32 hash3, quint32 hash4,
                                qsizetype& known, Best& best) -> qsizetype {
        if (nearest < 7)
            return 0;
        const quint64 diff = qFromUnaligned<quint64>(in + i - 7) ^ qFromUnaligned<quint64>(in + nearest - 7);
        if (diff == 0)
            return 0;
        const qsizetype cap = std::min<qsizetype>(MaxLength, i - skip);
        const qsizetype len = std::min<qsizetype>(qCountLeadingZeroBits(diff) >> 3, cap);
        if (len < cap) {
            known = len;
            const uchar next = in[i - len];
            const HashChain& chain = tables->chains[len > 2];
            quint32 c = chain.heads[len > 2 ? hash4 : hash3];
            while (c >= quint32(nearest))
                c = chain.link[c & WindowMask].next;
            // As in the search, no entry below `low` can match more.
            const quint32 low = quint32(std::max(std::max<qsizetype>(i - MaxOffset, 1), len));
            for (int steps = 0; c >= low; c = chain.link[c & WindowMask].next) {
                if (++steps > 8 || in[c - len] == next)
                    return 0;
            }
            // Whether the first of the run is out of reach is as good as
            // random: tested without a branch, on a byte that always exists.
            const qsizetype at = std::max<qsizetype>(first - len, 0);
            if ((first < nearest) & (first >= qsizetype(low)) & (in[at] == next))
                return 0;
        }
        if (len == 2)
            best.take(bits[(i - 2) & BitsMask] + quint32(countBits(int(i - nearest), 2)), i - nearest, 2);
        else
            best.offer(bits, i, i - nearest, 2, len);
        return len;
    };

    // The first byte is always a literal.
    quint32 previousBits = 8;
    bits[skip & BitsMask] = previousBits;
    quint64 total = previousBits; // the same, in full
    sink.put(skip, total, 0, 0);

    // The skipped bytes only feed the tables; the older ones lie out of reach.
    for (qsizetype i = std::max<qsizetype>(1, skip - MaxOffset); i <= skip; ++i) {
        const quint32 pair = quint32(in[i - 1]) << 8 | in[i];
        const qsizetype nearest = nearestOf(i, pairs[pair]);
        if (nearest == 0) {
            pairs[pair] = quint32(i & 0xFFFF) * 0x10001;
            continue;
        }
        pairs[pair] = (pairs[pair] & 0xFFFF0000) | quint32(i & 0xFFFF);
        chain3.insert(i, HashChain::hash(key3(in, i)), false, quint32(nearest));
        if (i >= 3)
            chain4.insert(i, HashChain::hash(key4(in, i)), false, quint32(nearest));
    }

    quint32 pair = in[skip];
    for (qsizetype i = skip + 1; i < size; ++i) {
        // Literals, as long as no pair ran on: a loop of its own, for data
        // that does not compress.
        quint32 entry;
        qsizetype nearest;
        for (;;) {
            pair = (pair << 8 | in[i]) & 0xFFFF;
            entry = pairs[pair];
            nearest = nearestOf(i, entry);
            if (nearest != 0)
                break;
            // The pair starts a run here.
            pairs[pair] = quint32(i & 0xFFFF) * 0x10001;
            previousBits += 9;
            total += 9;
            bits[i & BitsMask] = previousBits;
            sink.put(i, total, 0, 0);
            if (++i == size)
                return total;
        }

        pairs[pair] = (entry & 0xFFFF0000) | quint32(i & 0xFFFF);
        // The last four bytes in one load, of which the last three are the
        // 3-byte key; near the start, only those three.
        const quint32 last4 = i >= 3 ? key4(in, i) : key3(in, i) << 8;
        const quint32 hash3 = HashChain::hash(last4 >> 8);
        const quint32 hash4 = i >= 3 ? HashChain::hash(last4) : 0;
        Best best(previousBits + 9); // a literal, unless a sequence is cheaper
        // The bytes from nearest + 1 to i repeat those (i - nearest) earlier:
        // i may continue the stretch of nearest.
        bool periodic = false;
        if (i - skip >= 2) {
            const qsizetype first = unwrap(i, entry >> 16);
            qsizetype known = 0;
            qsizetype nearestLen = shortMatch(i, nearest, first, hash3, hash4, known, best);
            if (nearestLen == 0)
                nearestLen = candidates.search(i, nearest, first, hash3, hash4, known, best);
            periodic = nearestLen >= i - nearest;
        }
        chain3.insert(i, hash3, periodic, quint32(nearest));
        if (i >= 3)
            chain4.insert(i, hash4, periodic, quint32(nearest));

        const qint32 len = best.literal() ? 0 : best.length(bits, i);
        const quint32 fewest = best.bits();
        bits[i & BitsMask] = fewest;
        total += quint64(qint64(qint32(fewest - previousBits)));
        previousBits = fewest;
        sink.put(i, total, best.offset(), len);
    }
    return total;
}

} // namespace

QList<TWCompOptimal> TWZX7::_optimize(const QByteArray& input, long skip)
{
    const qsizetype size = input.size();
    if (size == 0 || qint64(size) > MaxInput || skip < 0 || skip >= size)
        return QList<TWCompOptimal>();
    struct Records
    {
        TWCompOptimal* rec;
        void put(qsizetype i, quint64 bits, qint32 offset, qint32 len) { rec[i] = {bits, offset, len}; }
    };
    try {
        QList<TWCompOptimal> optimal(size); // the skipped bytes keep empty records
        if (optimal.size() != size)
            return QList<TWCompOptimal>();
        Records records{optimal.data()};
        if (optimalParse(reinterpret_cast<const uchar*>(input.constData()), size, skip, records) == 0)
            return QList<TWCompOptimal>();
        return optimal;
    } catch (const std::bad_alloc&) {
        return QList<TWCompOptimal>();
    }
}

namespace {

/*
 * The writer of a stream into room of a size known in advance. The flag bits
 * go into the open flag byte while it has room (`free` bits), and then into
 * new flag bytes at the end of the output; bits that follow each other with
 * no stream byte between them fill consecutive new flag bytes, so they are
 * stored as one big-endian word. Every write may store up to 8 bytes past
 * the end of what it writes, and the callers check for that room.
 */
struct StreamWriter
{
    uchar* out;
    const uchar* inEnd;     // the end of the input, for reads of 8 bytes at once
    qsizetype n = 0;
    qsizetype flags = 0;    // the open flag byte; no flag byte is open at first
    int free = 0;           // bits left in it

    // The low k bits of value, the highest first; 0 <= k <= 32.
    void bits(quint32 value, int k)
    {
        const quint64 left = (quint64(value) << 32) << (32 - k); // the bits at the top
        out[flags] = uchar(out[flags] | ((left >> 56) >> (8 - free)));
        qToBigEndian<quint64>(left << free, out + n);
        // Bits beyond the open flag byte open new ones; no branch, as whether
        // they do is as good as random.
        const int rest = k - free;
        const int added = ((rest & ~(rest >> 31)) + 7) >> 3;
        const qsizetype opened = -qsizetype(added != 0);
        flags += (n + added - 1 - flags) & opened;
        free = 8 * added - rest;
        n += added;
    }

    // Literals: their flag bits are 0, so each flag byte is followed by as
    // many of them as it had bits left.
    void literals(const uchar* data, qsizetype count)
    {
        qsizetype chunk = std::min<qsizetype>(count, free);
        for (;;) {
            copy(data, chunk);
            n += chunk;
            data += chunk;
            count -= chunk;
            free -= int(chunk);
            if (count == 0)
                return;
            flags = n;
            out[n++] = 0;
            chunk = std::min<qsizetype>(count, 8);
            free = 8;
        }
    }

    void sequence(int offset, int len)
    {
        // The flag bit 1, then the gamma code of len - 1: as many zeros as
        // len - 1 has bits behind its top one, then its bits.
        const int top = 31 - int(qCountLeadingZeroBits(quint32(len - 1)));
        bits(quint32(1) << (2 * top + 1) | quint32(len - 1), 2 * top + 2);
        const int o = offset - 1;
        const int far = o >> 7 != 0;
        out[n++] = uchar((o & 127) | far << 7);
        bits(quint32((o - 128) >> 7) & quint32(-far), 4 * far);
    }

    // A sequence flag and a gamma code with sixteen leading zeros.
    void endMarker() { bits(quint32(1) << 17 | 1, 18); }

private:
    // At most 8 bytes.
    void copy(const uchar* data, qsizetype count)
    {
        if (Q_LIKELY(inEnd - data >= 8))
            std::memcpy(out + n, data, 8);
        else
            std::memcpy(out + n, data, size_t(count));
    }
};

} // namespace

/*
 * compress does not keep the parse as TWCompOptimal records, only what the
 * stream needs: a bit for each input byte that says whether a sequence ends
 * there, and a word for each such sequence, in order, with the length less 1
 * above the low 12 bits and the offset less 1 in them. Where data does not
 * compress, the search then writes next to nothing.
 *
 * A walk back from the end finds the tokens of the cheapest parse: from a
 * position, the literals run down to the nearest sequence end at or below it,
 * and that sequence leads on to the byte before its first. The walk marks
 * the words of the sequences it takes and clears the bits of those it passes
 * over, so that the stream can then be written front to back.
 */
QByteArray TWZX7::compress(const QByteArray& input, long skip)
{
    const qsizetype size = input.size();
    if (size == 0 || qint64(size) > MaxInput || skip < 0 || skip >= size)
        return QByteArray();
    struct Tokens
    {
        quint64* ends;
        quint32* words;
        qsizetype count;
        void put(qsizetype i, quint64 /*bits*/, qint32 offset, qint32 len)
        {
            if (len == 0)
                return;
            ends[i >> 6] |= quint64(1) << (i & 63);
            words[count++] = quint32(len - 1) << 12 | quint32(offset - 1);
        }
    };
    try {
        const uchar* in = reinterpret_cast<const uchar*>(input.constData());
        const qsizetype endWords = (size + 63) / 64;
        std::unique_ptr<quint64[], FreeDeleter> endBits(static_cast<quint64*>(std::calloc(size_t(endWords), sizeof(quint64))));
        std::unique_ptr<quint32[], FreeDeleter> words(static_cast<quint32*>(std::malloc(size_t(size - skip) * sizeof(quint32))));
        if (!endBits || !words)
            return QByteArray();
        Tokens tokens{endBits.get(), words.get(), 0};
        const quint64 bits = optimalParse(in, size, skip, tokens);
        if (bits == 0)
            return QByteArray();
        quint64* const ends = endBits.get();
        quint32* const word = words.get();

        // The walk back. `count` is the number of set bits at or below the
        // position reached, so the word of the highest of them is
        // word[count - 1]; `m` holds those of them in word w. The words of
        // the sequences taken are gathered at the top of the list, in order:
        // each goes to the highest place not yet filled, which lies at or
        // above its own, so no word is overwritten before it is read.
        // Meanwhile the cost of the parse is counted again from its tokens,
        // less 9 bits for each byte they cover, which is what literals would
        // cost.
        qsizetype count = tokens.count;
        qsizetype taken = tokens.count;
        qint64 saved = 0;
        qsizetype w = (size - 1) >> 6;
        quint64 m = ends[w];
        while (count > 0) {
            while (m == 0)
                m = ends[--w]; // count > 0: a set bit lies below
            const int top = 63 - int(qCountLeadingZeroBits(m));
            const quint32 token = word[--count];
            word[--taken] = token;
            const int gamma = 2 * (31 - int(qCountLeadingZeroBits(quint32(token >> 12) | 1))) + 1;
            saved += 9 * qint64((token >> 12) + 1) - (9 + 4 * int((token & 0xFFF) >= 128) + gamma);
            // The ends from the sequence's first byte up to its last are
            // passed over: clear them.
            const qsizetype first = w * 64 + top - qsizetype(token >> 12);
            quint64 passed = m & ((quint64(1) << top) - 1);
            if (first >= w * 64) {
                const quint64 below = (quint64(1) << (first - w * 64)) - 1;
                passed &= ~below;
                m &= below;
            } else {
                for (ends[w] &= ~passed; --w > first >> 6;) {
                    count -= popCount(passed);
                    passed = ends[w];
                    ends[w] = 0;
                }
                count -= popCount(passed);
                const quint64 below = (quint64(1) << (first & 63)) - 1;
                passed = ends[w] & ~below;
                m = ends[w] & below;
            }
            count -= popCount(passed);
            ends[w] &= ~passed;
        }

        // 18 bits of end marker, 7 to round up: the exact size of the stream.
        // The tokens cost what the search found, so the writer, which writes
        // what they cost, fills the stream exactly; each write may store up
        // to 8 bytes beyond, into Spare. Were the costs to differ, the
        // result would be empty rather than written out of bounds.
        if (quint64(8 + 9 * qint64(size - 1 - skip) - saved) != bits)
            return QByteArray();
        const qsizetype streamSize = qsizetype((bits + 25) / 8);
        constexpr qsizetype Spare = 8;
        QByteArray output(streamSize + Spare, Qt::Uninitialized);
        if (output.size() != streamSize + Spare)
            return QByteArray();
        StreamWriter writer{reinterpret_cast<uchar*>(output.data()), in + size};

        writer.out[writer.n++] = in[skip];
        qsizetype pos = skip + 1;
        const quint32* next = word + taken;
        for (qsizetype w = (skip + 1) >> 6; w < endWords; ++w) {
            for (quint64 m = ends[w]; m != 0; m &= m - 1) {
                const qsizetype end = w * 64 + qsizetype(qCountTrailingZeroBits(m));
                const quint32 token = *next++;
                const int len = int(token >> 12) + 1;
                writer.literals(in + pos, end - len + 1 - pos);
                writer.sequence(int(token & 0xFFF) + 1, len);
                pos = end + 1;
            }
        }
        writer.literals(in + pos, size - pos);
        writer.endMarker();
        if (writer.n != streamSize)
            return QByteArray();
        output.resize(streamSize);
        return output;
    } catch (const std::bad_alloc&) {
        return QByteArray();
    }
}

} // namespace TW
