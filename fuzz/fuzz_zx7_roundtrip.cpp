// Compresses arbitrary bytes and expands them again with both decoders; also
// compresses with a skip taken from the input, whose stream must begin with the
// byte at the skip.
#include <twzx7.h>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    const QByteArray packed = TW::TWZX7::compress(input, 0);
    if (TW::TWZX7::decompress(packed) != input)
        std::abort();
    bool ok = false;
    if (TW::TWZX7::decompress(packed, input.size(), &ok) != input || !ok)
        std::abort();
    if (TW::TWZX7::decompress(packed, input.size() - 1, &ok).size() != 0 || ok)
        std::abort();

    const long skip = long(data[0]) * 7 % long(size);
    const QByteArray tail = TW::TWZX7::compress(input, skip);
    if (tail.isEmpty() || tail.at(0) != input.at(skip))
        std::abort();
    return 0;
}
