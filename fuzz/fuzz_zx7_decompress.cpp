// Feeds arbitrary bytes to the bounded ZX7 decoder. Whatever it accepts must be
// within the limit, and must be exactly what the plain decoder gives (which is
// safe to call then: an accepted stream ends before the end of the input).
#include <twzx7.h>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype limit = 1 << 20;
    bool ok = false;
    const QByteArray out = TW::TWZX7::decompress(input, limit, &ok);
    if (ok != !out.isEmpty() || out.size() > limit)
        std::abort();
    if (ok && TW::TWZX7::decompress(input) != out)
        std::abort();
    return 0;
}
