// Feeds arbitrary bytes to the RIFF palette reader (the parse of
// TWImageExt::loadPalFile, from memory) and compares its answer and its colours
// with a reader written step by step over a QDataStream.
#include <twimageext_p.h>

#include <QtCore/QDataStream>

#include <cstdint>
#include <cstdlib>

namespace {

QString plainReader(const QByteArray& data, const QString& name, QList<TWColor>& palette)
{
    if (data.size() < 20)
        return QStringLiteral("Invalid file: '%1' size(%2 bytes)! Minimum length is 20 bytes.").arg(name).arg(data.size());
    QDataStream stream(data);
    char word[4];
    stream.readRawData(word, 4);
    if (QByteArray(word, 4) != "RIFF")
        return QStringLiteral("File: '%1' is not a RIFF document!").arg(name);
    stream.readRawData(word, 4);
    stream.readRawData(word, 4);
    if (QByteArray(word, 4) != "PAL ")
        return QStringLiteral("File: '%1' is not a palette!").arg(name);
    while (!stream.atEnd()) {
        char id[4];
        uchar size[4];
        if (stream.readRawData(id, 4) != 4)
            return QStringLiteral("Error on read chunk header from file: '%1'!").arg(name);
        if (stream.readRawData(reinterpret_cast<char*>(size), 4) != 4)
            return QStringLiteral("Error on read chunk size from file: '%1'!").arg(name);
        quint32 length = size[0] | size[1] << 8 | size[2] << 16 | quint32(size[3]) << 24;
        if (QByteArray(id, 4) == "data") {
            for (quint32 counter = 0; counter < length; counter += 4) {
                char c[4];
                static const char* const what[] = {"red color", "green color", "blue color", "flag"};
                for (int k = 0; k < 4; ++k) {
                    if (stream.readRawData(c + k, 1) != 1)
                        return QStringLiteral("Failed to read %1 in chunk! File: '%2'!").arg(QLatin1String(what[k]), name);
                }
                palette.append(TWColor(QColor(uchar(c[0]), uchar(c[1]), uchar(c[2]), 255)));
            }
        } else {
            const qint64 skip = qint64(length) + (length & 1);
            if (skip >= 0x80000000LL || stream.skipRawData(int(skip)) != int(skip))
                return QStringLiteral("Failed to read enough data to match chunk size! File: '%1'!").arg(name);
        }
    }
    return QString();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    const QString name = QStringLiteral("fuzz.pal");
    QList<TWColor> palette, expected;
    const QString error = TW::Internal::readPalette(input, name, palette);
    if (error != plainReader(input, name, expected) || palette != expected)
        std::abort();
    for (const TWColor& color : palette) {
        if (color.alpha() != 255 || color.isPatterned())
            std::abort();
    }
    return 0;
}
