#include "twimagebuilders.h"
#include "twtestsupport.h"

#include <twimageext.h>
#include <twutils.h>

#include <QtCore/QMetaType>
#include <QtCore/QRandomGenerator>
#include <QtTest/QTest>

#ifdef TW_HAVE_STB_IMAGE
#  define STB_IMAGE_IMPLEMENTATION
#  define STBI_ONLY_TGA
#  include <stb/stb_image.h>
#endif

using TW::TWImageExt;
using TWTest::TgaHeader;
using TWTest::colors;

namespace {

// The text that every TGA failure after the header quotes.
QString headerText(const QByteArray& file)
{
    const auto u8 = [&](int at) { return int(uchar(file[at])); };
    const auto u16 = [&](int at) { return u8(at) | u8(at + 1) << 8; };
    return QStringLiteral("IDLength: %1; ColorMapType: %2; Image type: %3; ColorMapSepc.firstEntryIndex: %4; "
                          "ColorMapSepc.length: %5; ColorMapSpec.entrySize: %6; imageSpec.xOrigin: %7; imageSpec.yOrigin: %8; "
                          "imageSpec.width: %9; imageSpec.height: %10; imageSpec.pixelDepth: %11; imageSpec.description.attrib: %12; "
                          "imageSpec.description.reserved: %13; imageSpec.description.direction: %14; imageSpec.description.flags: %15")
        .arg(u8(0)).arg(u8(1)).arg(u8(2)).arg(u16(3)).arg(u16(5)).arg(u8(7)).arg(u16(8)).arg(u16(10)).arg(u16(12))
        .arg(u16(14)).arg(u8(16)).arg(u8(17) & 15).arg(u8(17) >> 4 & 1).arg(u8(17) >> 5 & 1).arg(u8(17) >> 6);
}

TgaHeader tga(int type, int width, int height, int depth)
{
    TgaHeader h;
    h.imageType = type, h.width = width, h.height = height, h.depth = depth;
    return h;
}

TgaHeader withMap(TgaHeader h, int length, int entrySize, int mapType = 1)
{
    h.colorMapType = mapType, h.colorMapLength = length, h.colorMapEntrySize = entrySize;
    return h;
}

// A picture with flat areas wider than a row, a gradient and, at 32 bits, varied alpha.
QImage picture(int width, int height, QImage::Format format)
{
    QImage image(width, height, format);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, y < height / 3 ? qRgba(200, 40, 10, 255) : qRgba(x * 37, y * 11, (x * y) % 256, 50 + x % 200));
    return image;
}

QByteArray rgb(std::initializer_list<int> bytes)
{
    QByteArray out;
    for (int b : bytes)
        out.append(char(b));
    return out;
}


using Cache = QHash<int, QHash<int, QHash<int, TWColor>>>;

QString colorText(const TWColor& c)
{
    QString text = QStringLiteral("%1").arg(c.rgba(), 8, 16);
    for (QRgb word : c.pattern)
        text += QStringLiteral(" %1").arg(word, 8, 16);
    return text;
}

// Every leaf of a cache as "r,g,b rgba [pattern]", sorted; patterns count, unlike in TWColor's ==.
QStringList cacheText(const Cache& cache)
{
    QStringList out;
    for (auto r = cache.cbegin(); r != cache.cend(); ++r)
        for (auto g = r->cbegin(); g != r->cend(); ++g)
            for (auto b = g->cbegin(); b != g->cend(); ++b)
                out << QStringLiteral("%1,%2,%3 ").arg(r.key()).arg(g.key()).arg(b.key()) + colorText(*b);
    out.sort();
    return out;
}

} // namespace

class TstTWImageExt : public QObject
{
    Q_OBJECT

    TWTest::RecordingLogger _utilsLog; // keeps TWUtils' reports of missing files off the output

private slots:
    void initTestCase() { TW::TWUtils::setLogger(&_utilsLog); }

    void tgaFailures_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("message"); // followed by " TGA header: ..." once there is a header
        const QByteArray px(64, '\x11');
        QTest::newRow("17 bytes") << tga(2, 1, 1, 24).bytes().left(17) << "Couldn't read TGA header!";
        QTest::newRow("type 0: no image, no failure") << tga(0, 9, 9, 24).bytes() << "";
        QTest::newRow("map entry of 7 bits, no entries") << withMap(tga(2, 1, 1, 24), 0, 7).bytes() + px
                                                          << "Invalid TGA header! Byte per Colormap Entry is 0.";
        QTest::newRow("short map") << withMap(tga(2, 1, 1, 24), 2, 24).bytes() + "12345" << "Couldn't read TGA color map!";
        QTest::newRow("short map before the type") << withMap(tga(9, 1, 1, 8), 2, 24).bytes() << "Couldn't read TGA color map!";
        QTest::newRow("map type 2") << withMap(tga(2, 1, 1, 24), 0, 24, 2).bytes() + px << "Unsupported TGA color map type: 2!";
        QTest::newRow("colour-mapped type 1") << withMap(tga(1, 1, 1, 8), 2, 24).bytes() + px << "Unsupported type: 1.";
        QTest::newRow("grey type 3") << tga(3, 1, 1, 8).bytes() + px << "Unsupported type: 3.";
        QTest::newRow("short pixel data") << tga(2, 2, 2, 24).bytes() + px.left(11) << "Couldn't read TGA pixel data!";
        QTest::newRow("16 bits, short") << tga(2, 2, 2, 16).bytes() + px.left(7) << "Couldn't read TGA pixel data!";
        QTest::newRow("16 bits, whole") << tga(2, 2, 2, 16).bytes() + px.left(8) << "Unsupported TGA pixel depth!";
        QTest::newRow("16 bits, packed") << tga(10, 2, 2, 16).bytes() + "\x83\x01\x02" << "Unsupported TGA pixel depth!";
        QTest::newRow("no packet, width 0") << tga(10, 0, 5, 24).bytes() << "Couldn't read TGA compress header!";
        QTest::newRow("no packet after the first") << tga(10, 2, 1, 24).bytes() + "\x80\1\2\3" << "Couldn't read TGA compress header!";
        QTest::newRow("run without its pixel") << tga(10, 2, 1, 24).bytes() + "\x81\1\2" << "Couldn't read TGA run-length encoded packets!";
        QTest::newRow("32-byte pixel cut") << tga(10, 2, 1, 255).bytes() + "\x81" + px.left(31) << "Couldn't read TGA run-length encoded packets!";
        QTest::newRow("short raw packet") << tga(10, 2, 1, 24).bytes() + "\x01\1\2\3\4\5" << "Couldn't read TGA raw data packets!";
        // 65535 x 65535 x 4 wraps in 32 bits: the reader asks for the wrapped size and no more.
        QTest::newRow("wrapped size, no data") << tga(2, 65535, 65535, 32).bytes() + px << "Couldn't read TGA pixel data!";
        QTest::newRow("wrapped size, packed") << tga(10, 65535, 65535, 32).bytes() + "\xFF" + px.left(4) << "Couldn't read TGA compress header!";
        // 4 294 443 012 bytes after wrapping: 8 387 585 full runs of 128 pixels; the size needs 17 GB.
        QTest::newRow("wrapped size, whole") << tga(10, 65535, 65535, 32).bytes() + QByteArray("\xFF\1\2\3\4").repeated(8387585)
                                             << "Couldn't allocate image of 65535x65535 pixels, 17179344900 bytes!";
    }

    // Each failure answers its text with the header's fields, in the order of
    // the checks, and leaves the image alone (as does a file without an image).
    void tgaFailures()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, message);
        const QImage before = picture(2, 2, QImage::Format_RGB888);
        QImage image = before;
        const QString expected = file.size() < 18 || message.isEmpty() ? message : message + QStringLiteral(" TGA header: ") + headerText(file);
        QCOMPARE(TWImageExt::tgaFromQByteArray(file, image), expected);
        QCOMPARE(image, before);
    }

    void tgaDecodes_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QImage>("expected");
        QTest::addColumn<bool>("checkStb"); // stb_image reads it the same way
        QImage one(1, 1, QImage::Format_RGB888), two(2, 1, QImage::Format_RGB888), column(1, 2, QImage::Format_RGB888);
        one.setPixel(0, 0, qRgb(3, 2, 1));
        two.setPixel(0, 0, qRgb(3, 2, 1)), two.setPixel(1, 0, qRgb(6, 5, 4));
        column.setPixel(0, 0, qRgb(6, 5, 4)), column.setPixel(0, 1, qRgb(3, 2, 1)); // first stored row at the bottom
        QImage run(128, 1, QImage::Format_RGB888);
        run.fill(qRgb(3, 2, 1));
        QImage rgba(1, 1, QImage::Format_RGBA8888);
        rgba.setPixel(0, 0, qRgba(30, 20, 10, 40));
        TgaHeader skipped = withMap(tga(2, 1, 1, 24), 3, 15);
        skipped.idLength = 2;
        TgaHeader farId = tga(2, 1, 1, 24);
        farId.idLength = 200;
        QTest::newRow("bottom up") << tga(2, 1, 2, 24).bytes() + rgb({1, 2, 3, 4, 5, 6}) << column << false;
        QTest::newRow("ID and 15-bit map read over") << skipped.bytes() + "id" + "abc" + rgb({1, 2, 3}) << one << false;
        QTest::newRow("ID past the end") << farId.bytes() + rgb({1, 2, 3}) << one << false;
        QTest::newRow("trailing bytes ignored") << tga(2, 1, 1, 24).bytes() + rgb({1, 2, 3, 9, 9}) << one << false;
        QTest::newRow("32 bits, alpha kept") << tga(2, 1, 1, 32).bytes() + rgb({10, 20, 30, 40}) << rgba << false;
        QTest::newRow("0x80: run of one") << tga(10, 2, 1, 24).bytes() + rgb({0x80, 1, 2, 3, 0x80, 4, 5, 6}) << two << false;
        QTest::newRow("0x00: raw of one") << tga(10, 2, 1, 24).bytes() + rgb({0, 1, 2, 3, 0, 4, 5, 6}) << two << false;
        QTest::newRow("0xFF: run of 128") << tga(10, 128, 1, 24).bytes() + rgb({0xFF, 1, 2, 3}) << run << false;
        QTest::newRow("0x7F: raw of 128") << tga(10, 128, 1, 24).bytes() + "\x7F" + rgb({1, 2, 3}).repeated(128) << run << false;
        QTest::newRow("run past the end") << tga(10, 1, 1, 24).bytes() + rgb({0xFF, 1, 2, 3}) << one << false;
        QTest::newRow("raw past the end") << tga(10, 1, 1, 24).bytes() + "\x7F" + rgb({1, 2, 3}).repeated(128) << one << false;
        QTest::newRow("empty, packed") << tga(10, 0, 3, 32).bytes() + rgb({0x05}) + QByteArray(24, 'x') << QImage() << false;
        for (const QImage::Format format : {QImage::Format_RGB888, QImage::Format_RGBA8888}) {
            const QImage source = picture(301, 67, format); // runs of 128 that cross rows
            for (const bool rle : {false, true}) {
                for (const bool topDown : {false, true}) {
                    QTest::addRow("%d bits, %s, %s", source.depth(), rle ? "packed" : "raw", topDown ? "top down" : "bottom up")
                        << TWTest::tgaFile(source, rle, topDown) << source << true;
                }
            }
        }
    }

    void tgaDecodes()
    {
        QFETCH(QByteArray, file);
        QFETCH(QImage, expected);
        QImage image(3, 3, QImage::Format_Mono);
        QCOMPARE(TWImageExt::tgaFromQByteArray(file, image), QString());
        QCOMPARE(image.format(), expected.format());
        QCOMPARE(image, expected);
#ifdef TW_HAVE_STB_IMAGE
        QFETCH(bool, checkStb);
        if (!checkStb)
            return;
        int width = 0, height = 0, channels = 0;
        stbi_uc* stb = stbi_load_from_memory(reinterpret_cast<const stbi_uc*>(file.constData()), int(file.size()), &width, &height, &channels, 0);
        QVERIFY(stb && QSize(width, height) == image.size() && channels * 8 == image.depth());
        bool same = true;
        for (int y = 0; y < height; ++y)
            same &= std::memcmp(image.constScanLine(y), stb + y * width * channels, size_t(width * channels)) == 0;
        stbi_image_free(stb);
        QVERIFY(same);
#endif
    }

    void palette_data()
    {
        using TWTest::riffChunk;
        using TWTest::riffPalette;
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("message"); // %1 is the file's path
        QTest::addColumn<QList<int>>("reds"); // what stays in the palette
        const QByteArray two = rgb({10, 11, 12, 0xAA, 20, 21, 22, 0x55});
        const QByteArray published = rgb({0, 3, 2, 1}) + rgb({7, 8, 9, 0}).repeated(2);
        QTest::newRow("19 bytes") << QByteArray("RIFF").leftJustified(19, 'x') << "Invalid file: '%1' size(19 bytes)! Minimum length is 20 bytes." << QList<int>();
        QTest::newRow("20 bytes, empty data chunk") << riffPalette(riffChunk("data", "")) << "" << QList<int>();
        QTest::newRow("not RIFF") << riffPalette(riffChunk("data", "")).replace(0, 4, "RIFX") << "File: '%1' is not a RIFF document!" << QList<int>();
        QTest::newRow("not PAL") << riffPalette(riffChunk("data", ""), "PAL_") << "File: '%1' is not a palette!" << QList<int>();
        QTest::newRow("two colours, flags ignored") << riffPalette(riffChunk("data", two)) << "" << QList<int>{10, 20};
        QTest::newRow("version and count are a colour") << riffPalette(riffChunk("data", published)) << "" << QList<int>{0, 7, 7};
        QTest::newRow("wrong size field") << riffPalette(riffChunk("data", two)).replace(4, 4, QByteArray("\xFF\0\0\0", 4)) << "" << QList<int>{10, 20};
        QTest::newRow("two data chunks") << riffPalette(riffChunk("data", two) + riffChunk("data", two.left(4))) << "" << QList<int>{10, 20, 10};
        QTest::newRow("odd chunk padded") << riffPalette(riffChunk("info", "abc", -1, 1) + riffChunk("data", two)) << "" << QList<int>{10, 20};
        QTest::newRow("data chunk of 6 reads across its end") << riffPalette(riffChunk("data", two.left(6)) + "\1\2") << "" << QList<int>{10, 20};
        QTest::newRow("no data chunk") << riffPalette(riffChunk("info", "ab")) << "" << QList<int>();
        QTest::newRow("red missing") << riffPalette(riffChunk("data", two.left(4), 6)) << "Failed to read red color in chunk! File: '%1'!" << QList<int>{10};
        QTest::newRow("green missing") << riffPalette(riffChunk("data", two.left(5), 6)) << "Failed to read green color in chunk! File: '%1'!" << QList<int>{10};
        QTest::newRow("blue missing") << riffPalette(riffChunk("data", two.left(6))) << "Failed to read blue color in chunk! File: '%1'!" << QList<int>{10};
        QTest::newRow("flag missing") << riffPalette(riffChunk("data", two.left(7), 6)) << "Failed to read flag in chunk! File: '%1'!" << QList<int>{10};
        QTest::newRow("odd last chunk unpadded") << riffPalette(riffChunk("data", two) + riffChunk("info", "abc")) << "Failed to read enough data to match chunk size! File: '%1'!" << QList<int>{10, 20};
        QTest::newRow("chunk of 2 GiB") << riffPalette(riffChunk("info", QByteArray(8, 'x'), 0x80000000LL)) << "Failed to read enough data to match chunk size! File: '%1'!" << QList<int>();
        QTest::newRow("1 byte after the chunks") << riffPalette(riffChunk("data", two) + "d") << "Error on read chunk header from file: '%1'!" << QList<int>{10, 20};
        QTest::newRow("7 bytes after the chunks") << riffPalette(riffChunk("data", two) + "data\1\2\3") << "Error on read chunk size from file: '%1'!" << QList<int>{10, 20};
    }

    void palette()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, message);
        QFETCH(QList<int>, reds);
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("p.pal"), file));
        QList<TWColor> palette{TWColor(1, 1, 1, 1)};
        const QString path = dir.filePath(QStringLiteral("p.pal"));
        QCOMPARE(TWImageExt::loadPalFile(path, palette), message.isEmpty() ? message : message.arg(path));
        QList<int> got;
        for (const TWColor& c : palette) {
            got << c.red();
            QVERIFY(c.alpha() == 255 && c.green() == (c.red() ? c.red() + 1 : 3) && !c.isPatterned());
        }
        QCOMPARE(got, reds);

        QCOMPARE(TWImageExt::loadPalFile(dir.filePath(QStringLiteral("absent.pal")), palette),
                 QStringLiteral("Couldn't read file: '%1'").arg(dir.filePath(QStringLiteral("absent.pal"))));
        QVERIFY(palette.isEmpty());
    }

    void colorModel()
    {
        TWColor c(QColor(1, 2, 3, 4));
        c.setPattern({1u});
        c.setPattern({1u, 2u, 3u});
        QVERIFY(!c.isPatterned() && c.patternFirst() == 0 && c.patternSecond() == 0);
        c.setPattern({5u, 6u});
        c.swapPattern();
        QVERIFY(c.isPatterned() && c.patternFirst() == 6u && c.patternSecond() == 5u);
        TWRgb out;
        QVERIFY(TWColor(TWRgb(1, 2, 3, 4)).toRgb(out).b == 3 && out.a == 4 && TWRgb().a == 255);
        QCOMPARE(TWColor(0x80102030u).rgba(), 0xFF102030u);
        QCOMPARE(QMetaType::fromName("QList<TWColor>"), QMetaType::fromType<TWPalette>());
        // Squared differences of red, green and blue, whichever comes first; alpha does not count.
        for (const auto& [a, b] : {std::pair(QColor(10, 20, 30), QColor(30, 20, 10)), std::pair(QColor(1, 2, 3, 0), QColor(1, 2, 3))})
            QCOMPARE(QList<int>({TWImageExt::colorDistance(a, b), TWImageExt::colorDistance(b, a)}), a.alpha() ? QList<int>({800, 800}) : QList<int>({0, 0}));
        QCOMPARE(TWImageExt::colorDistance(QColor(0, 0, 0), QColor(255, 255, 255)), 195075);
    }

    void closestColor_data()
    {
        QTest::addColumn<QList<TWColor>>("palette");
        QTest::addColumn<QColor>("color");
        QTest::addColumn<int>("chosen"); // index in the palette, -1 for the default colour
        QTest::addColumn<bool>("cached");
        QTest::newRow("tie: the first") << colors({qRgb(90, 100, 100), qRgb(110, 100, 100)}) << QColor(100, 100, 100) << 0 << true;
        QTest::newRow("130050 from both: default") << colors({qRgb(255, 0, 0), qRgb(0, 0, 255)}) << QColor(255, 255, 255) << -1 << true;
        QTest::newRow("65025 away: default") << colors({qRgb(0, 0, 0)}) << QColor(255, 0, 0) << -1 << true;
        QTest::newRow("65024 away") << colors({qRgb(0, 0, 0)}) << QColor(32, 80, 240) << 0 << true;
        QTest::newRow("empty palette") << QList<TWColor>() << QColor(1, 2, 3) << -1 << true;
        QTest::newRow("exact, twice: first, not cached") << colors({qRgb(9, 9, 9), qRgb(1, 2, 3), qRgb(1, 2, 3)}) << QColor(1, 2, 3) << 1 << false;
        QTest::newRow("exact whatever the alpha") << QList<TWColor>{TWColor(1, 2, 3, 7)} << QColor(1, 2, 3, 200) << 0 << false;
    }

    // The answer, and a cache that keeps it (exact matches excepted) so that a
    // later call, even with another palette, gets the same.
    void closestColor()
    {
        QFETCH(QList<TWColor>, palette);
        QFETCH(QColor, color);
        QFETCH(int, chosen);
        QFETCH(bool, cached);
        const TWColor expected = chosen < 0 ? TWColor() : palette.at(chosen);
        Cache cache;
        const TWColor got = TWImageExt::closestColor(color, palette, &cache);
        QVERIFY(got == expected && got.isValid() == (chosen >= 0) && got.rgba() == (chosen < 0 ? qRgb(0, 0, 0) : expected.rgba()));
        QCOMPARE(cacheText(cache), cached ? QStringList{QStringLiteral("%1,%2,%3 %4").arg(color.red()).arg(color.green()).arg(color.blue()).arg(expected.rgba(), 8, 16)} : QStringList());
        const TWColor again = TWImageExt::closestColor(color, colors({qRgb(7, 7, 7)}), &cache);
        QCOMPARE(again == expected && again.isValid() == expected.isValid(), cached);
        QCOMPARE(TWImageExt::closestColor(color, palette, nullptr), expected);
    }

    void patterns()
    {
        const TWColor pattern = TWImageExt::generatePattern(TWColor(255, 0, 1, 9), TWColor(0, 0, 2, 255));
        QVERIFY(pattern.rgba() == qRgba(127, 0, 1, 255) && pattern.pattern == QList<QRgb>({qRgb(255, 0, 1), qRgb(0, 0, 2)}));
        QVERIFY(TWImageExt::generatePatternedPalette({}).isEmpty());
        const auto texts = [](const QList<TWColor>& palette) {
            QStringList out;
            for (const TWColor& c : palette)
                out << colorText(c);
            return out;
        };
        QCOMPARE(texts(TWImageExt::generatePatternedPalette(colors({qRgb(1, 1, 1)}))), QStringList{"ff010101"});
        const QList<TWColor> three = colors({qRgb(0, 0, 0), qRgb(100, 0, 0), qRgb(0, 200, 0)});
        const QList<TWColor> six = TWImageExt::generatePatternedPalette(three);
        const auto pair = [&](int a, int b) { return TWImageExt::generatePattern(three.at(a), three.at(b)); };
        QCOMPARE(texts(six), texts(three + QList<TWColor>{pair(1, 0), pair(2, 0), pair(2, 1)}));
        QCOMPARE(six.at(3).pattern, QList<QRgb>({qRgb(100, 0, 0), qRgb(0, 0, 0)}));
        // Patterned entries pair by their mean; duplicates stay.
        QCOMPARE(TWImageExt::generatePatternedPalette(six + six.mid(5)).size(), 7 + 21);
    }

    void toPaletteImage_data()
    {
        // K black, W white, g the grey between them: the pattern (W, K) of the
        // palette {K, W} with patterns. Greys look the same with red and blue exchanged.
        QTest::addColumn<QStringList>("input");
        QTest::addColumn<bool>("usePattern");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("along and across rows") << QStringList{"gggg", "gggg", "gggg"} << true << QStringList{"WKWK", "KWKW", "WKWK"};
        QTest::newRow("odd width") << QStringList{"ggg", "ggg"} << true << QStringList{"WKW", "KWK"};
        QTest::newRow("second of a pair not looked at") << QStringList{"gWgK"} << true << QStringList{"WKWK"};
        QTest::newRow("a plain pixel moves the pairs") << QStringList{"Kggg"} << true << QStringList{"KWKW"};
        QTest::newRow("same colour twice above: no swap") << QStringList{"WW", "gg"} << true << QStringList{"WW", "WK"};
        QTest::newRow("without patterns: the mean") << QStringList{"gK"} << false << QStringList{"gK"};
    }

    void toPaletteImage()
    {
        QFETCH(QStringList, input);
        QFETCH(bool, usePattern);
        const QMap<QChar, QRgb> colours{{u'K', qRgb(0, 0, 0)}, {u'W', qRgb(255, 255, 255)}, {u'g', qRgb(127, 127, 127)}};
        QImage image(int(input.at(0).size()), int(input.size()), QImage::Format_RGB32);
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                image.setPixel(x, y, colours.value(input.at(y).at(x)));
        const QImage result = TWImageExt::toPaletteImage(image, TWImageExt::generatePatternedPalette(colors({qRgb(0, 0, 0), qRgb(255, 255, 255)})), usePattern, nullptr);
        QCOMPARE(result.format(), QImage::Format_RGBA8888);
        QStringList got;
        for (int y = 0; y < result.height(); ++y) {
            got << QString();
            for (int x = 0; x < result.width(); ++x)
                got.last() += colours.key(result.pixel(x, y), u'?');
        }
        QTEST(got, "expected");
    }

    // Pixels are matched as their bytes read in RGBA order, so red and blue
    // trade places; the pixel's alpha gives way to the entry's, and an empty
    // palette gives opaque black.
    void toPaletteImageChannels()
    {
        QImage image(3, 1, QImage::Format_RGBA8888);
        image.fill(QColor(10, 20, 30, 40));
        QCOMPARE(TWImageExt::toPaletteImage(image, {TWColor(30, 20, 10, 77)}, true, nullptr).pixel(2, 0), qRgba(10, 20, 30, 77));
        QCOMPARE(TWImageExt::toPaletteImage(image, colors({qRgb(10, 20, 30)}), true, nullptr).pixel(2, 0), qRgba(30, 20, 10, 255));
        QCOMPARE(TWImageExt::toPaletteImage(image, {}, true, nullptr).pixel(2, 0), qRgba(0, 0, 0, 255));
    }

    // Against the steps written out plainly, per pixel through closestColor():
    // the same pixels, and the same cache afterwards, also when the cache came
    // from another palette; small pictures ask the cache colour by colour,
    // large ones (and small caches) read it whole first.
    void toPaletteImageAsWrittenOut_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<bool>("patterned");
        QTest::addColumn<int>("cacheKind"); // 0 none, 1 empty, 2 from another palette
        for (const QSize& size : {QSize(9, 7), QSize(301, 220)})
            for (const bool patterned : {false, true})
                for (int cacheKind = 0; cacheKind < 3; ++cacheKind)
                    QTest::addRow("%dx%d %s cache %d", size.width(), size.height(), patterned ? "patterned" : "plain", cacheKind) << size << patterned << cacheKind;
    }

    void toPaletteImageAsWrittenOut()
    {
        QFETCH(QSize, size);
        QFETCH(bool, patterned);
        QFETCH(int, cacheKind);
        QRandomGenerator rng(size.width() * 7 + cacheKind);
        QImage image(size, QImage::Format_ARGB32);
        for (int y = 0; y < size.height(); ++y)
            for (int x = 0; x < size.width(); ++x) // few colours, in runs, some exact, some far from all
                image.setPixel(x, y, rng.bounded(4) ? image.pixel(qMax(0, x - 1), y) : qRgba(rng.bounded(5) * 60, qMin(255, rng.bounded(3) * 128), rng.bounded(6) * 51, rng.bounded(256)));
        QList<TWColor> palette = colors({qRgb(0, 0, 0), qRgb(204, 128, 60), qRgb(51, 0, 180), qRgb(204, 128, 60)});
        palette.append(TWColor(255, 0, 102, 128));
        if (patterned)
            palette = TWImageExt::generatePatternedPalette(palette);
        Cache cache;
        if (cacheKind == 2)
            TWImageExt::toPaletteImage(image.copy(0, 0, 5, 5), TWImageExt::generatePatternedPalette(colors({qRgb(0, 255, 0), qRgb(0, 0, 9)})), true, &cache);
        Cache reference = cache;
        const bool withCache = cacheKind > 0;
        const QImage expected = TWTest::paletteImageStepByStep(image, palette, true, withCache ? &reference : nullptr);
        QCOMPARE(TWImageExt::toPaletteImage(image, palette, true, withCache ? &cache : nullptr), expected);
        QCOMPARE(cacheText(cache), cacheText(reference));
        QCOMPARE(TWImageExt::toPaletteImage(image, palette, false, nullptr), TWTest::paletteImageStepByStep(image, palette, false, nullptr));
    }

    // The format word: written back from the suffix in upper case, a given one winning.
    void loaders()
    {
        TWTest::TempWorkDir dir;
        const QByteArray file = tga(2, 1, 1, 24).bytes() + rgb({1, 2, 3});
        QVERIFY(dir.writeFile(QStringLiteral("a.TgA"), file));
        QImage image;
        QString format;
        QCOMPARE(TWImageExt::imageFromFile(dir.filePath(QStringLiteral("a.TgA")), format, image), QString());
        QVERIFY(format == QLatin1String("TGA") && image.pixel(0, 0) == qRgb(3, 2, 1));
        format = QStringLiteral("png");
        QCOMPARE(TWImageExt::imageFromFile(dir.filePath(QStringLiteral("a.TgA")), format, image), QStringLiteral("Unsupported image format!"));
        QCOMPARE(TWImageExt::imageFromQByteArray(file, QStringLiteral("tga"), image), QString());
        QVERIFY(!TWImageExt::tgaFromFile(QStringLiteral("/nonexistent/a.tga"), image).isEmpty() && image.pixel(0, 0) == qRgb(3, 2, 1));

        QImage held(1, 1, QImage::Format_RGB32);
        QList<QImage*> images{&held};
        format.clear();
        QCOMPARE(TWImageExt::imagesFromFile(dir.filePath(QStringLiteral("a.TgA")), format, images), QString());
        QCOMPARE(images.size(), 1);
        QCOMPARE(images.at(0)->pixel(0, 0), qRgb(3, 2, 1));
        delete images.at(0);
        QVERIFY(!TWImageExt::imagesFromQByteArray("junk", QString(), images).isEmpty() && images.isEmpty());

        QByteArray data("old");
        QVERIFY(TWImageExt::imageToQByteArray(image, QStringLiteral("nope"), data) && data.isEmpty());
        QVERIFY(TWImageExt::imageToQByteArray(image, QStringLiteral("png"), data) && data.startsWith("\x89PNG"));
        QCOMPARE(TWImageExt::imageFromQByteArray(data, QString(), held), QString());
        QCOMPARE(held.pixel(0, 0), qRgb(3, 2, 1));
    }

    void splitAndFrame()
    {
        const QImage image = picture(10, 10, QImage::Format_RGB888);
        const QList<QImage> tiles = TWImageExt::splitImage(image, 4, 4);
        QCOMPARE(tiles.size(), 9);
        QVERIFY(tiles.at(8).size() == QSize(4, 4) && tiles.at(8).pixel(1, 1) == image.pixel(9, 9) && tiles.at(8).pixel(2, 2) == qRgb(0, 0, 0));
        QCOMPARE(tiles.at(5).copy(0, 0, 2, 4), image.copy(8, 4, 2, 4));
        QCOMPARE(TWImageExt::splitImage(image, 20, 3).size(), 4);
        QVERIFY(TWImageExt::splitImage(image, 0, 3).isEmpty() && TWImageExt::splitImage(image, 3, -1).isEmpty());

        QCOMPARE(TWImageExt::borderingImg(image, 0), image);
        const QImage framed = TWImageExt::borderingImg(image, 3);
        QVERIFY(framed.size() == QSize(16, 16) && framed.copy(3, 3, 10, 10) == image);
        QVERIFY(framed.pixel(0, 0) == image.pixel(0, 0) && framed.pixel(15, 15) == image.pixel(9, 9));

        QImage target(2, 2, QImage::Format_ARGB32);
        target.fill(Qt::red);
        QImage source(2, 2, QImage::Format_ARGB32);
        source.fill(Qt::blue);
        TWImageExt::copyImageToImage(target, 0, 0, source.copy(0, 0, 1, 1));
        QVERIFY(target.format() == QImage::Format_ARGB32 && target.size() == QSize(2, 2) && target.pixel(0, 0) == qRgb(0, 0, 255));
        TWImageExt::copyImageToImage(target, 1, 1, source);
        QVERIFY(target.format() == QImage::Format_RGB32 && target.size() == QSize(3, 3));
        QVERIFY(target.pixel(1, 0) == qRgb(255, 0, 0) && target.pixel(2, 2) == qRgb(0, 0, 255));
    }

    void colorOperations_data()
    {
        QTest::addColumn<int>("operation"); // 0 convertColor, 1 convertToTransparent, 2 disableTransparency
        QTest::addColumn<QColor>("pixel");
        QTest::addColumn<QColor>("expected");
        const QColor white(255, 255, 255), from(10, 20, 30, 40);
        QTest::newRow("convert: every channel in place") << 0 << from << QColor(1, 2, 3, 4);
        QTest::newRow("convert: alpha counts") << 0 << QColor(10, 20, 30, 41) << QColor(10, 20, 30, 41);
        QTest::newRow("transparent: any alpha, colour kept") << 1 << from << QColor(10, 20, 30, 44);
        QTest::newRow("transparent: other colour") << 1 << QColor(30, 20, 10) << QColor(30, 20, 10);
        QTest::newRow("disable: alpha 254 replaced") << 2 << QColor(1, 2, 3, 254) << QColor(10, 20, 30);
        QTest::newRow("disable: opaque kept") << 2 << white << white;
    }

    void colorOperations()
    {
        QFETCH(int, operation);
        QFETCH(QColor, pixel);
        QImage image(2, 1, QImage::Format_ARGB32);
        image.setPixel(0, 0, pixel.rgba());
        image.setPixel(1, 0, qRgba(200, 100, 50, 255));
        const QColor color(10, 20, 30, 40);
        const QImage result = operation == 0   ? TWImageExt::convertColor(image, color, QColor(1, 2, 3, 4))
                              : operation == 1 ? TWImageExt::convertToTransparent(image, color, 300)
                                               : TWImageExt::disableTransparency(image, color);
        QCOMPARE(result.format(), QImage::Format_ARGB32);
        QTEST(QColor::fromRgba(result.pixel(0, 0)), "expected");
        QCOMPARE(result.pixel(1, 0), qRgba(200, 100, 50, 255));
    }

    // Red alone picks the character, divided as if all three channels counted; red 0 gives U+0000.
    void imageToAscii()
    {
        QImage image(3, 2, QImage::Format_RGB32);
        image.fill(qRgb(0, 255, 255));
        image.setPixel(1, 0, qRgb(255, 0, 0));
        image.setPixel(2, 0, qRgb(128, 0, 0));
        const QString chars = QString(47, u'.') + QStringLiteral("#") + QString(22, u'-');
        const QString text = TWImageExt::imageToASCII(image, QStringLiteral("\n"), chars);
        QCOMPARE(text, QString(QChar(0)) + QStringLiteral("#") + chars.at(70 - 128 * 70 / 768) + QStringLiteral("\n") +
                           QString(3, QChar(0)) + QStringLiteral("\n"));
        QCOMPARE(TWImageExt::imageToASCII(image, QStringLiteral("|"), QString()), QString(3, QChar(0)) + u'|' + QString(3, QChar(0)) + u'|');
    }
};

QTEST_GUILESS_MAIN(TstTWImageExt)
#include "tst_twimageext.moc"
