// Feeds arbitrary bytes to TWImageExt::tgaFromQByteArray and compares its
// answer and its image with a reader written step by step over a QDataStream,
// as plainly as the format allows: a working array of the whole pixel data,
// packets copied pixel by pixel, rows copied one by one, and rgbSwapped() at
// the end. The plain reader is only asked about pictures that the input could
// fill; for the others (which can only fail) the safety of the library's
// reader is what counts.
#include <twimageext.h>

#include <QtCore/QBuffer>
#include <QtCore/QDataStream>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

QString headerText(const uchar* h)
{
    const auto u16 = [h](int at) { return h[at] | h[at + 1] << 8; };
    return QStringLiteral("IDLength: %1; ColorMapType: %2; Image type: %3; ColorMapSepc.firstEntryIndex: %4; "
                          "ColorMapSepc.length: %5; ColorMapSpec.entrySize: %6; imageSpec.xOrigin: %7; imageSpec.yOrigin: %8; "
                          "imageSpec.width: %9; imageSpec.height: %10; imageSpec.pixelDepth: %11; imageSpec.description.attrib: %12; "
                          "imageSpec.description.reserved: %13; imageSpec.description.direction: %14; imageSpec.description.flags: %15")
        .arg(h[0]).arg(h[1]).arg(h[2]).arg(u16(3)).arg(u16(5)).arg(h[7]).arg(u16(8)).arg(u16(10)).arg(u16(12))
        .arg(u16(14)).arg(h[16]).arg(h[17] & 15).arg(h[17] >> 4 & 1).arg(h[17] >> 5 & 1).arg(h[17] >> 6);
}

// Answers false when the picture is beyond what it can check.
bool plainReader(const QByteArray& data, QImage& image, QString& error)
{
    QDataStream stream(data);
    uchar h[18];
    if (stream.readRawData(reinterpret_cast<char*>(h), 18) != 18) {
        error = QStringLiteral("Couldn't read TGA header!");
        return true;
    }
    const QString text = headerText(h);
    const int width = h[12] | h[13] << 8, height = h[14] | h[15] << 8, depth = h[16];
    const quint32 bpp = depth / 8 + (depth % 8 ? 1 : 0);
    const quint64 trueSize = quint64(width) * height * bpp;
    // Enough for any picture that the input can expand to (a 5-byte packet
    // gives at most 512 bytes), and small enough to keep the runs quick.
    if (trueSize > quint64(data.size()) * 128 + (64u << 10))
        return false;
    const quint32 imageSize = quint32(trueSize);
    QByteArray work(imageSize, '\0');
    if (18 + h[0] <= data.size())
        stream.device()->seek(18 + h[0]);
    if (h[1] == 1) {
        const int entryBytes = h[7] / 8;
        if (entryBytes == 0) {
            error = QStringLiteral("Invalid TGA header! Byte per Colormap Entry is 0. TGA header: %1").arg(text);
            return true;
        }
        const int mapBytes = (h[5] | h[6] << 8) * entryBytes;
        if (stream.skipRawData(mapBytes) != mapBytes) {
            error = QStringLiteral("Couldn't read TGA color map! TGA header: %1").arg(text);
            return true;
        }
    } else if (h[1] != 0) {
        error = QStringLiteral("Unsupported TGA color map type: %1! TGA header: %2").arg(h[1]).arg(text);
        return true;
    }
    if (h[2] == 0) {
        error.clear();
        return true;
    }
    if (h[2] == 2) {
        if (stream.readRawData(work.data(), int(imageSize)) != int(imageSize)) {
            error = QStringLiteral("Couldn't read TGA pixel data! TGA header: %1").arg(text);
            return true;
        }
    } else if (h[2] == 10) {
        quint32 pos = 0;
        do {
            char packet = 0;
            if (stream.readRawData(&packet, 1) != 1) {
                error = QStringLiteral("Couldn't read TGA compress header! TGA header: %1").arg(text);
                return true;
            }
            const quint32 count = (uchar(packet) & 0x7F) + 1;
            QByteArray pixels(count * bpp, '\0');
            if (uchar(packet) & 0x80) {
                if (stream.readRawData(pixels.data(), int(bpp)) != int(bpp)) {
                    error = QStringLiteral("Couldn't read TGA run-length encoded packets! TGA header: %1").arg(text);
                    return true;
                }
                for (quint32 i = bpp; i < count * bpp; ++i)
                    pixels[i] = pixels[i - bpp];
            } else if (stream.readRawData(pixels.data(), int(count * bpp)) != int(count * bpp)) {
                error = QStringLiteral("Couldn't read TGA raw data packets! TGA header: %1").arg(text);
                return true;
            }
            for (quint32 i = 0; i < count * bpp && pos + i < imageSize; ++i)
                work[pos + i] = pixels[i];
            pos += count * bpp;
        } while (pos < imageSize);
    } else {
        error = QStringLiteral("Unsupported type: %1. TGA header: %2").arg(h[2]).arg(text);
        return true;
    }
    if (depth != 24 && depth != 32) {
        error = QStringLiteral("Unsupported TGA pixel depth! TGA header: %1").arg(text);
        return true;
    }
    QImage result(width, height, depth == 24 ? QImage::Format_RGB888 : QImage::Format_RGBA8888);
    const qsizetype rowBytes = qsizetype(width) * bpp;
    for (int i = 0; i < height && rowBytes > 0; ++i)
        std::memcpy(result.scanLine((h[17] & 0x20) ? i : height - 1 - i), work.constData() + i * rowBytes, size_t(rowBytes));
    image = result.rgbSwapped();
    error.clear();
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool quiet = [] {
        // QBuffer complains about seeks past the end; that is part of the input's game.
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        return true;
    }();
    (void)quiet;
    const QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    const QImage before(1, 1, QImage::Format_Mono);
    QImage image = before;
    const QString error = TW::TWImageExt::tgaFromQByteArray(input, image);
    if (!error.isEmpty() && image != before)
        std::abort(); // a failure must leave the image alone

    QImage expected = before;
    QString expectedError;
    if (plainReader(input, expected, expectedError) && (error != expectedError || image != expected))
        std::abort();
    return 0;
}
