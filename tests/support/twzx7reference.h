#ifndef TWZX7REFERENCE_H
#define TWZX7REFERENCE_H

// The classic optimal ZX7 encoder, written as plainly as it can be: the parse
// over chains of byte pairs with exact bit costs, then the stream written from
// it into a buffer of the size that the parse predicts. Nothing in it is tuned.
// The tests check TWZX7::compress against it bit for bit, and the benchmark
// measures it beside TWZX7::compress. It costs every length of every match,
// so a long run of one byte takes it quadratic time.

#include <QtCore/QByteArray>

#include <cstdlib>
#include <memory>

namespace TWTest {

struct Zx7Reference
{
    QByteArray stream;
    quint64 bits; // the cost of the parse, end marker not included
};

inline Zx7Reference zx7ReferenceCompress(const QByteArray& data, qsizetype skip)
{
    struct Optimal
    {
        size_t bits;
        int offset;
        int len;
    };
    struct Free
    {
        void operator()(void* p) const { std::free(p); }
    };
    const size_t size = size_t(data.size());
    const auto in = reinterpret_cast<const unsigned char*>(data.constData());
    std::unique_ptr<Optimal[], Free> optimal(static_cast<Optimal*>(std::calloc(size, sizeof(Optimal))));
    std::unique_ptr<size_t[], Free> minPos(static_cast<size_t*>(std::calloc(2177, sizeof(size_t))));
    std::unique_ptr<size_t[], Free> maxPos(static_cast<size_t*>(std::calloc(2177, sizeof(size_t))));
    std::unique_ptr<size_t[], Free> matches(static_cast<size_t*>(std::calloc(65536, sizeof(size_t))));
    std::unique_ptr<size_t[], Free> matchSlots(static_cast<size_t*>(std::calloc(size, sizeof(size_t))));
    if (size == 0 || !optimal || !minPos || !maxPos || !matches || !matchSlots)
        return {};
    const auto gammaBits = [](size_t value) {
        int bits = 1;
        while (value > 1) {
            bits += 2;
            value >>= 1;
        }
        return bits;
    };
    const auto countBits = [&](size_t offset, size_t len) { return 1 + (offset > 128 ? 12 : 8) + gammaBits(len - 1); };

    // The parse.
    for (size_t i = 1; i <= size_t(skip); ++i) {
        const size_t pair = size_t(in[i - 1]) << 8 | in[i];
        matchSlots[i] = matches[pair];
        matches[pair] = i;
    }
    optimal[skip].bits = 8;
    for (size_t i = size_t(skip) + 1; i < size; ++i) {
        optimal[i].bits = optimal[i - 1].bits + 9;
        const size_t pair = size_t(in[i - 1]) << 8 | in[i];
        size_t bestLen = 1;
        for (size_t match = matches[pair]; match != 0 && bestLen < 65536; match = matchSlots[match]) {
            const size_t offset = i - match;
            if (offset > 2176)
                break;
            size_t len = 2;
            for (; len <= 65536 && i >= size_t(skip) + len; ++len) {
                if (len > bestLen) {
                    bestLen = len;
                    const size_t bits = optimal[i - len].bits + size_t(countBits(offset, len));
                    if (optimal[i].bits > bits)
                        optimal[i] = {bits, int(offset), int(len)};
                } else if (maxPos[offset] != 0 && i + 1 == maxPos[offset] + len) {
                    len = i - minPos[offset];
                    if (len > bestLen)
                        len = bestLen;
                }
                if (i < offset + len || in[i - len] != in[i - len - offset])
                    break;
            }
            minPos[offset] = i + 1 - len;
            maxPos[offset] = i;
        }
        matchSlots[i] = matches[pair];
        matches[pair] = i;
    }

    // The stream, into room for what the parse costs: 18 bits of end marker,
    // 7 to round up. A parse whose cost were wrong would show as an empty stream.
    const size_t last = size - 1;
    const quint64 bits = optimal[last].bits;
    QByteArray stream(qsizetype((bits + 25) / 8), Qt::Uninitialized);
    const auto out = reinterpret_cast<unsigned char*>(stream.data());
    const size_t room = size_t(stream.size());
    size_t written = 0;
    size_t bitIndex = 0;
    int bitMask = 0;
    const auto writeByte = [&](int value) {
        if (written < room)
            out[written] = (unsigned char)value;
        ++written;
    };
    const auto writeBit = [&](int value) {
        if (bitMask == 0) {
            bitMask = 128;
            bitIndex = written;
            writeByte(0);
        }
        if (value > 0 && bitIndex < room)
            out[bitIndex] |= bitMask;
        bitMask >>= 1;
    };
    const auto writeGamma = [&](int value) {
        int test = 2;
        for (; test <= value; test <<= 1)
            writeBit(0);
        while ((test >>= 1) > 0)
            writeBit(value & test);
    };

    // bits becomes the link to the next token's last byte.
    optimal[last].bits = 0;
    for (size_t pos = last; pos > size_t(skip);) {
        const size_t previous = pos - (optimal[pos].len > 0 ? size_t(optimal[pos].len) : 1);
        optimal[previous].bits = pos;
        pos = previous;
    }
    writeByte(in[skip]);
    for (size_t pos = optimal[skip].bits; pos > 0; pos = optimal[pos].bits) {
        if (optimal[pos].len == 0) {
            writeBit(0);
            writeByte(in[pos]);
            continue;
        }
        writeBit(1);
        writeGamma(optimal[pos].len - 1);
        int offset = optimal[pos].offset - 1;
        if (offset < 128) {
            writeByte(offset);
        } else {
            offset -= 128;
            writeByte((offset & 127) | 128);
            for (int mask = 1024; mask > 127; mask >>= 1)
                writeBit(offset & mask);
        }
    }
    writeBit(1);
    for (int k = 0; k < 16; ++k)
        writeBit(0);
    writeBit(1);
    if (written != room)
        stream.clear();
    return {stream, bits};
}

} // namespace TWTest

#endif // TWZX7REFERENCE_H
