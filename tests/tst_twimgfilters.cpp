#include "twimagebuilders.h"
#include "twtestsupport.h"

#include <twimageext.h>
#include <twimgfilters.h>

#include <QtTest/QTest>

#include <cmath>
#include <limits>

using TW::TWImgFilters;
using TWTest::colors;

namespace {

// Reaches the protected diffusion step.
struct Filters : TWImgFilters
{
    using TWImgFilters::_onePixelDither;
};

// 4 x 3, each pixel its own colour, every alpha as given.
QImage sample(int alpha = 255)
{
    QImage image(4, 3, QImage::Format_ARGB32);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x)
            image.setPixel(x, y, qRgba(10 + 60 * x, 20 + 80 * y, 30 + 10 * x * y, alpha));
    return image;
}

} // namespace

class TstTWImgFilters : public QObject
{
    Q_OBJECT

private slots:
    void metaObject()
    {
        QCOMPARE(TWTest::describe(TWImgFilters::staticMetaObject),
                 "TW::TWImgFilters : QObject; public slot void sanpshot(QString name); public slot void restore(QString name); "
                 "public slot void restore(); public slot void dithering(TWPalette palette)");
        TWImgFilters filters(QStringLiteral("f"));
        QVERIFY(filters.qt_metacast("TWObject") && filters.image().isNull() && !filters.pixel(0, 0));
        filters.dithering(colors({qRgb(1, 2, 3)})); // nothing to do, nothing to break
    }

    void setImage_data()
    {
        QTest::addColumn<int>("border");
        QTest::addColumn<int>("alpha");
        for (int border : {0, 1, 2, 5})
            for (int alpha : {255, 100})
                QTest::addRow("border %d, alpha %d", border, alpha) << border << alpha;
    }

    // The frame reaches border pixels out and no further; image() gives the
    // picture back in Format_ARGB32, blended over the stretched frame where
    // it is not opaque; the records hold blue in r and red in b.
    void setImage()
    {
        QFETCH(int, border);
        QFETCH(int, alpha);
        TWImgFilters filters;
        const QImage input = sample(alpha);
        filters.setImage(input, border, false);
        const QImage expected = TW::TWImageExt::borderingImg(input, border).copy(border, border, 4, 3);
        QCOMPARE(filters.image(), expected);
        QCOMPARE(filters.image().format(), QImage::Format_ARGB32);
        QVERIFY(filters.pixel(-border, -border) && filters.pixel(3 + border, 2 + border));
        QVERIFY(!filters.pixel(-border - 1, 0) && !filters.pixel(0, 3 + border) && !filters.pixel(4 + border, 0));
        const TWRgb* p = filters.pixel(1, 2);
        QCOMPARE(qRgba(p->b, p->g, p->r, p->a), expected.pixel(1, 2));
        if (alpha == 255)
            QVERIFY(p->r == 30 + 10 * 2 && p->b == 70);
        filters.setPixel(1, 2, TWRgb(1, 2, 3, 4));
        QCOMPARE(filters.image().pixel(1, 2), qRgba(3, 2, 1, 4));
        filters.setPixel(99, 0, TWRgb()); // outside: nothing
    }

    // Snapshots share the pixels: a later write shows in them, and only one
    // taken before the last setImage() holds other pixels.
    void snapshots()
    {
        TWImgFilters filters;
        filters.setImage(sample(), 1, true);
        filters.sanpshot(QString());
        filters.sanpshot(QStringLiteral("a"));
        filters.setPixel(0, 0, TWRgb(9, 9, 9, 255));
        filters.restore(QStringLiteral("a"));
        QCOMPARE(filters.image().pixel(0, 0), qRgb(9, 9, 9));
        filters.restore(); // "original" sees it as well
        QCOMPARE(filters.image().pixel(0, 0), qRgb(9, 9, 9));
        const QImage before = filters.image();
        filters.restore(QStringLiteral("nobody"));
        QCOMPARE(filters.image(), before);

        QImage other(4, 3, QImage::Format_ARGB32);
        other.fill(qRgb(200, 0, 0));
        filters.setImage(other, 1, false);
        filters.restore(QStringLiteral("a"));
        QCOMPARE(filters.image(), before); // the older picture is back in image()...
        // ...while pixel access goes on in the newer one, which no snapshot holds
        // and which must not have died.
        filters.setPixel(0, 0, TWRgb(7, 7, 7, 255));
        filters.dithering(colors({qRgb(0, 0, 0)}));
        QVERIFY(filters.image() == before && filters.pixel(0, 0)->r == 0);
    }

    void dithering_data()
    {
        QTest::addColumn<QRgb>("pixel"); // as the format shows it
        QTest::addColumn<QList<TWColor>>("palette");
        QTest::addColumn<QRgb>("expected");
        QTest::newRow("exchanged colour: exact") << qRgb(10, 20, 30) << colors({qRgb(30, 20, 10)}) << qRgb(10, 20, 30);
        QTest::newRow("same colour: 800 away, exchanged") << qRgb(10, 20, 30) << colors({qRgb(10, 20, 30)}) << qRgb(30, 20, 10);
        QTest::newRow("grey kept") << qRgb(77, 77, 77) << colors({qRgb(0, 0, 0), qRgb(77, 77, 77)}) << qRgb(77, 77, 77);
        QTest::newRow("nothing near: black") << qRgb(255, 255, 255) << colors({qRgb(255, 0, 0), qRgb(0, 0, 255)}) << qRgb(0, 0, 0);
        QTest::newRow("patterned entry: its mean") << qRgb(127, 127, 127) << TW::TWImageExt::generatePatternedPalette(colors({0xFF000000u, 0xFFFFFFFFu})) << qRgb(127, 127, 127);
        QTest::newRow("entry alpha") << qRgb(1, 1, 1) << QList<TWColor>{TWColor(1, 1, 1, 60)} << qRgba(1, 1, 1, 60);
    }

    // Every pixel gets its nearest colour and nothing else, through the slot
    // by name as well; the border keeps its colours, but the pixels right,
    // left and below of the picture get alpha 255; a border of 0 gives the same.
    void dithering()
    {
        QFETCH(QRgb, pixel);
        QFETCH(QList<TWColor>, palette);
        QFETCH(QRgb, expected);
        QImage input(5, 3, QImage::Format_ARGB32);
        input.fill(QColor::fromRgba(pixel).rgb() & 0x80FFFFFFu); // alpha 128 in the frame, too
        for (const int border : {2, 0}) {
            TWImgFilters filters;
            filters.setImage(input, border, false);
            QVERIFY(QMetaObject::invokeMethod(&filters, "dithering", Q_ARG(TWPalette, palette)));
            QImage all(5, 3, QImage::Format_ARGB32);
            all.fill(QColor::fromRgba(expected));
            QCOMPARE(filters.image(), all);
            if (border == 0)
                continue;
            for (int y = -2; y < 5; ++y) {
                for (int x = -2; x < 7; ++x) {
                    const TWRgb* p = filters.pixel(x, y);
                    const bool inside = x >= 0 && x < 5 && y >= 0 && y < 3;
                    const bool touched = (x == 5 && y >= 0 && y <= 3) || (x == -1 && y >= 1 && y <= 3) || (y == 3 && x >= -1 && x <= 5);
                    if (!inside)
                        QVERIFY2(p->a == (touched ? 255 : 128) && qRgb(p->b, p->g, p->r) == ((pixel & 0xFFFFFFu) | 0xFF000000u), qPrintable(QStringLiteral("%1,%2").arg(x).arg(y)));
                }
            }
        }
    }

    void onePixelDither_data()
    {
        QTest::addColumn<int>("channel");
        QTest::addColumn<int>("error");
        QTest::addColumn<double>("weight");
        QTest::addColumn<double>("divisor");
        QTest::addColumn<int>("expected");
        QTest::newRow("7/16 of 100 on 200: 243.75 truncated") << 200 << 100 << 7.0 << 16.0 << 243;
        QTest::newRow("-33.75 truncated, then 0") << 10 << -100 << 7.0 << 16.0 << 0;
        QTest::newRow("above 255") << 250 << 100 << 1.0 << 1.0 << 255;
        QTest::newRow("weight 0") << 123 << -100 << 0.0 << 1.0 << 123;
        QTest::newRow("divisor 0") << 100 << 5 << 1.0 << 0.0 << 255;
        QTest::newRow("0 / 0") << 100 << 0 << 1.0 << 0.0 << 0;
        QTest::newRow("infinite divisor") << 100 << 5 << 1.0 << std::numeric_limits<double>::infinity() << 100;
    }

    // Each channel the same way; alpha becomes 255; outside the frame nothing happens.
    void onePixelDither()
    {
        QFETCH(int, channel);
        QFETCH(int, error);
        QFETCH(double, weight);
        QFETCH(double, divisor);
        Filters filters;
        filters.setImage(QImage(1, 1, QImage::Format_ARGB32), 1, false);
        filters.setPixel(0, 0, TWRgb(uchar(channel), uchar(channel), uchar(channel), 9));
        filters._onePixelDither(TW::TWDitherOnePixelParams(0, 0, error, error, error, weight, divisor));
        filters._onePixelDither(TW::TWDitherOnePixelParams(0, 5, error, error, error, weight, divisor));
        const TWRgb* p = filters.pixel(0, 0);
        QTEST(int(p->r), "expected");
        QVERIFY(p->g == p->r && p->b == p->r && p->a == 255);
    }
};

QTEST_GUILESS_MAIN(TstTWImgFilters)
#include "tst_twimgfilters.moc"
