// Feeds arbitrary bytes to the bounded ZX7 decoder and compares its answer
// with a decoder written as plainly as possible, one bit at a time. Whatever
// it accepts must also be exactly what the plain decoder gives (which is safe
// to call then: an accepted stream ends before the end of the input).
#include <twzx7.h>

#include <cstdint>
#include <cstdlib>

namespace {

// The bounded decoder's contract, bit by bit: empty for a read past the end,
// an output above the limit or a copy from before the start.
struct SlowDecoder
{
    const uint8_t* data;
    size_t size;
    size_t index = 0;
    int mask = 0;
    int value = 0;
    bool over = false;

    int byte()
    {
        if (index >= size) {
            over = true;
            return 0;
        }
        return data[index++];
    }
    int bit()
    {
        mask >>= 1;
        if (!mask) {
            mask = 128;
            value = byte();
        }
        return (value & mask) ? 1 : 0;
    }

    QByteArray run(qsizetype limit)
    {
        QByteArray out(1, char(byte()));
        if (over || limit < 1)
            return QByteArray();
        for (;;) {
            if (!bit()) {
                const int literal = byte();
                if (over || out.size() >= limit)
                    return QByteArray();
                out.append(char(literal));
                continue;
            }
            int zeros = 0;
            while (!bit()) {
                if (over)
                    return QByteArray();
                ++zeros;
            }
            if (zeros > 15)
                return over ? QByteArray() : out;
            int len = 1;
            while (zeros--)
                len = (len << 1) | bit();
            int offset = byte();
            if (offset >= 128) {
                int high = 0;
                for (int k = 0; k < 4; ++k)
                    high = (high << 1) | bit();
                offset = ((high << 7) | (offset & 127)) + 128;
            }
            ++len;
            ++offset;
            if (over || offset > out.size() || len > limit - out.size())
                return QByteArray();
            for (int k = 0; k < len; ++k)
                out.append(out.at(out.size() - offset));
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype limit = 1 << 20;
    bool ok = false;
    const QByteArray out = TW::TWZX7::decompress(input, limit, &ok);
    if (ok != !out.isEmpty() || out.size() > limit)
        std::abort();
    if (out != SlowDecoder{data, size}.run(limit))
        std::abort();
    if (ok && TW::TWZX7::decompress(input) != out)
        std::abort();
    return 0;
}
