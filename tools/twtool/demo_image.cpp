#include "demo.h"

#include <twimageext.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QtEndian>
#include <QtGui/QImage>

#include <cmath>
#include <cstring>

namespace {

// An evening sky: red rising toward the horizon, a sun, and a dark flat
// ground with a house. The shapes live in the red channel, which is what
// imageToASCII() reads.
QImage generatedPicture()
{
    const int width = 64, height = 24;
    QImage image(width, height, QImage::Format_RGBA8888);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double sun = std::hypot((x - 44) / 2.0, y - 9.0);
            QRgb pixel = qRgba(20 + y * 4, 30 + y * 3, 120 - y * 3, 255);
            if (sun < 5)
                pixel = qRgba(255, 220, 120, 255);
            if (y >= 17)
                pixel = qRgba(0, 60, 20, 255);
            if (x >= 10 && x < 22 && y >= 12 && y < 20)
                pixel = (x >= 14 && x < 17 && y >= 15) ? qRgba(0, 0, 0, 255) : qRgba(190, 60, 40, 255);
            image.setPixel(x, y, pixel);
        }
    }
    return image;
}

// A small TGA writer: 32 bits, rows top down, blue-green-red-alpha bytes,
// uncompressed or in run-length packets that run on across rows.
QByteArray tgaFile(const QImage& image, bool rle)
{
    QByteArray file(18, '\0');
    file[2] = char(rle ? 10 : 2);
    qToLittleEndian<quint16>(quint16(image.width()), file.data() + 12);
    qToLittleEndian<quint16>(quint16(image.height()), file.data() + 14);
    file[16] = 32;
    file[17] = 0x28; // 8 bits of alpha, top row first
    QByteArray pixels;
    for (int y = 0; y < image.height(); ++y) {
        const uchar* p = image.constScanLine(y);
        for (int x = 0; x < image.width(); ++x, p += 4)
            pixels.append(char(p[2])).append(char(p[1])).append(char(p[0])).append(char(p[3]));
    }
    if (!rle)
        return file + pixels;
    const qsizetype count = pixels.size() / 4;
    const auto same = [&](qsizetype a, qsizetype b) { return std::memcmp(pixels.constData() + 4 * a, pixels.constData() + 4 * b, 4) == 0; };
    for (qsizetype i = 0; i < count;) {
        qsizetype n = 1;
        if (i + 1 < count && same(i, i + 1)) {
            while (i + n < count && n < 128 && same(i, i + n))
                ++n;
            file.append(char(0x80 | (n - 1))).append(pixels.mid(4 * i, 4));
        } else {
            while (i + n < count && n < 128 && !(i + n + 1 < count && same(i + n, i + n + 1)))
                ++n;
            file.append(char(n - 1)).append(pixels.mid(4 * i, 4 * n));
        }
        i += n;
    }
    return file;
}

} // namespace

bool demoImage(DemoContext& context)
{
    bool ok = true;
    const QDir dir(context.stepDir(QStringLiteral("image")));
    const QImage picture = generatedPicture();

    say(QStringLiteral("TWImageExt reads TGA files with its own reader: uncompressed or run-length"));
    say(QStringLiteral("encoded, 24 or 32 bits. A picture made in memory, written both ways by a small"));
    say(QStringLiteral("writer here, comes back through the library:"));
    for (const bool rle : {false, true}) {
        const QString name = rle ? QStringLiteral("sunset_rle.tga") : QStringLiteral("sunset_raw.tga");
        const QByteArray file = tgaFile(picture, rle);
        ok &= writeFile(dir.filePath(name), file);
        QImage back;
        const QString error = TW::TWImageExt::tgaFromFile(dir.filePath(name), back);
        const bool same = error.isEmpty() && back == picture;
        say(QStringLiteral("%1: %2 bytes, read back as %3x%4: %5")
                .arg(name)
                .arg(file.size())
                .arg(back.width())
                .arg(back.height())
                .arg(same ? QStringLiteral("identical to the original") : QStringLiteral("DIFFERENT ") + error));
        ok &= same;
    }

    QImage cut;
    const QString error = TW::TWImageExt::tgaFromQByteArray(tgaFile(picture, true).left(300), cut);
    say(QStringLiteral("The same file cut after 300 bytes is refused: \"%1\" and the header's fields.")
            .arg(error.section(QStringLiteral(" TGA header:"), 0, 0)));
    ok &= error.startsWith(QLatin1String("Couldn't read TGA"));

    say();
    say(QStringLiteral("imageToASCII() gives one character per pixel, chosen by the red channel alone:"));
    say(QStringLiteral("only the last third of the characters is used, and a pixel without red gives"));
    say(QStringLiteral("U+0000, shown here as a blank."));
    QImage copy = picture;
    const QString text = TW::TWImageExt::imageToASCII(copy, QStringLiteral("\n"), QString(20, u'@') + QStringLiteral("@%#*+=-:."));
    for (const QString& line : text.split(u'\n', Qt::SkipEmptyParts))
        say(QStringLiteral("  ") + QString(line).replace(QChar(0), u' '));
    ok &= text.size() == picture.height() * (picture.width() + 1);
    say(QStringLiteral("'twtool image info %1' describes the files; 'twtool image convert' turns them into PNG.")
            .arg(QDir(dir).filePath(QStringLiteral("sunset_rle.tga"))));
    return ok;
}
