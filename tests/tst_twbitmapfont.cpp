#include "twimagebuilders.h"
#include "twtestsupport.h"

#include <twbitmapfont.h>
#include <twutils.h>

#include <QtTest/QTest>

using TW::TWBitmapFont;

namespace {

const QRgb Blue = qRgb(0, 0, 200);

// A sheet of 8 x 8 cells, black on white, cell i marked by one black pixel at
// (i % 8, i / 8 % 8).
QImage sheet(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::white);
    for (int i = 0; i < (width / 8) * (height / 8); ++i)
        image.setPixel(i % (width / 8) * 8 + i % 8, i / (width / 8) * 8 + i / 8 % 8, qRgb(0, 0, 0));
    return image;
}

// Which cell stands at each place of a picture made of cells: its number, or
// '.' where the picture still shows blue.
QStringList cellsIn(const QImage& image)
{
    QStringList rows;
    for (int y = 0; y < image.height(); y += 8) {
        rows << QString();
        for (int x = 0; x < image.width(); x += 8) {
            QChar found = u'.';
            for (int i = 0; i < 64; ++i) {
                const QRgb pixel = image.pixel(x + i % 8, y + i / 8);
                if (pixel == qRgb(0, 0, 0))
                    found = QChar(u'0' + i);
                else if (pixel != Blue && found == u'.')
                    found = u'?';
            }
            rows.last() += found;
        }
    }
    return rows;
}

QString mapText(const QMap<QChar, int>& map)
{
    QStringList out;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        out << QStringLiteral("%1=%2").arg(it.key().unicode(), 0, 16).arg(it.value());
    return out.join(u' ');
}

} // namespace

class TstTWBitmapFont : public QObject
{
    Q_OBJECT

    TWTest::RecordingLogger _log;

private slots:
    void initTestCase() { TW::TWUtils::setLogger(&_log); }

    // A new font: black on white, and no bitmaps, so it draws nothing.
    void newFont()
    {
        QCOMPARE(TWTest::describe(TWBitmapFont::staticMetaObject), QStringLiteral("TW::TWBitmapFont : QObject"));
        TWBitmapFont font;
        QVERIFY(font.qt_metacast("TWObject") && TWBitmapFont::className() == QLatin1String("TWBitmapFont"));
        QVERIFY(font.textColor() == QColor(0, 0, 0, 255) && font.backgroundColor() == QColor(255, 255, 255, 255));
        QImage target(8, 8, QImage::Format_RGB32);
        target.fill(Blue);
        font.outText(target, 0, 0, QStringLiteral("abc"), 0, 0);
        QCOMPARE(cellsIn(target), QStringList{"."});
    }

    void sheets_data()
    {
        QTest::addColumn<QSize>("sheet");
        QTest::addColumn<QSize>("cell");
        QTest::addColumn<int>("cells"); // -1: refused
        QTest::newRow("64x32 by 8x8") << QSize(64, 32) << QSize(8, 8) << 32;
        QTest::newRow("one cell") << QSize(64, 32) << QSize(64, 32) << 1;
        QTest::newRow("65 wide") << QSize(65, 32) << QSize(8, 8) << -1;
        QTest::newRow("33 high") << QSize(64, 33) << QSize(8, 8) << -1;
        QTest::newRow("cell 0 wide") << QSize(64, 32) << QSize(0, 8) << -1;
        QTest::newRow("cell below 0") << QSize(64, 32) << QSize(-8, 8) << -1;
        QTest::newRow("empty sheet") << QSize(0, 0) << QSize(8, 8) << 0;
    }

    // A sheet that doesn't fit is refused with its size and keeps the old
    // font, chartable included; one that fits wipes the chartable.
    void sheets()
    {
        QFETCH(QSize, sheet);
        QFETCH(QSize, cell);
        QFETCH(int, cells);
        TWBitmapFont font;
        font.setLogger(&_log);
        QVERIFY(font.setBitmaps(::sheet(16, 8), 8, 8) && font.setChartable({QStringLiteral("a\t1")}));
        const QImage image = sheet.isEmpty() ? QImage() : ::sheet(sheet.width(), sheet.height());
        QCOMPARE(font.setBitmaps(image, cell.width(), cell.height()), cells >= 0);
        if (cells < 0) {
            QCOMPARE(font.lastErrorStr(), QStringLiteral("Font image size: %1x%2 does not fit font size: %3x%4!")
                                              .arg(sheet.width()).arg(sheet.height()).arg(cell.width()).arg(cell.height()));
            QVERIFY(font.fontBitmaps().size() == 2 && font.chartables().size() == 1);
            return;
        }
        QVERIFY(!font.isThereError() && font.chartable().isEmpty() && font.chartables().isEmpty());
        QCOMPARE(font.fontBitmaps().size(), cells);
        QCOMPARE(font.fontBitmap(), image);
        if (cells == 32)
            QCOMPARE(font.fontBitmaps().at(9), image.copy(8, 8, 8, 8)); // second cell of the second row
    }

    void chartable_data()
    {
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<QString>("map");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("warning");
        const QString parts = QStringLiteral("Invalid line: %1! The line must be contain 2 parts: UTF-8 character and Bitmap index separated by tab");
        QTest::newRow("good") << QStringList{"A\t0", "b\t31"} << "41=0 62=31" << "" << "";
        QTest::newRow("empty line") << QStringList{"A\t1", ""} << "41=1" << parts.arg(2) << "";
        QTest::newRow("no tab") << QStringList{"A 1"} << "" << parts.arg(1) << "";
        QTest::newRow("second tab ends the line") << QStringList{"A\t1\t"} << "" << parts.arg(1) << "";
        QTest::newRow("no integer") << QStringList{"A\tx1"} << "" << "Invalid line: 1! The Bitmap index: 'x1' must be a valid integer value" << "";
        QTest::newRow("index 32 of 32") << QStringList{"A\t32", "B\t31"} << "42=31" << "Invalid index: 32 in line: 1! The index must be 0-31" << "";
        QTest::newRow("negative index taken") << QStringList{"A\t-1"} << "41=-1" << "" << "";
        QTest::newRow("last error wins") << QStringList{"A\t99", "", "B\t2"} << "42=2" << parts.arg(2) << "";
        QTest::newRow("twice: a warning, the last wins") << QStringList{"A\t1", "A\t2"} << "41=2" << ""
                                                         << "The character: 'A' in line: 2 is already exist in chartable with index: 1!";
        QTest::newRow("first of two letters") << QStringList{"AB\t3"} << "41=3" << "" << "";
        QTest::newRow("first surrogate") << QStringList{QStringLiteral("\U0001F600\t4")} << "d83d=4" << "" << "";
        QTest::newRow("no character: U+0000") << QStringList{"\t5"} << "0=5" << "" << "";
    }

    // Bad lines are skipped one by one with their message, all lines are
    // kept, and the answer is true.
    void chartable()
    {
        QFETCH(QStringList, lines);
        QFETCH(QString, error);
        QFETCH(QString, warning);
        TWBitmapFont font;
        TWTest::RecordingLogger log;
        font.setLogger(&log);
        QVERIFY(font.setBitmaps(sheet(64, 32), 8, 8));
        QVERIFY(font.setChartable(lines));
        QTEST(mapText(font.chartables()), "map");
        QCOMPARE(font.chartable(), lines);
        QCOMPARE(font.lastErrorStr(), error);
        QStringList warnings;
        for (const TWTest::LogRecord& r : log.records())
            if (r.type == QtWarningMsg)
                warnings << r.msg;
        QCOMPARE(warnings, warning.isEmpty() ? QStringList() : QStringList{warning});
    }

    // Files: the sheet in any format the library reads, TGA included; the
    // chartable as UTF-8 with blank lines left out.
    void files()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("font.tga"), TWTest::tgaFile(sheet(16, 8).convertToFormat(QImage::Format_RGB888), false, true)));
        QVERIFY(dir.writeFile(QStringLiteral("font.txt"), "\xC3\xA9\t1\r\n\r\nA\t0\n"));
        TWBitmapFont font;
        font.setLogger(&_log);
        QVERIFY(font.loadBitmaps(dir.filePath(QStringLiteral("font.tga")), 8, 8) && font.loadChartable(dir.filePath(QStringLiteral("font.txt"))));
        QVERIFY(font.fontBitmaps().size() == 2 && font.fontBitmaps().at(1).pixel(1, 0) == qRgb(0, 0, 0));
        QCOMPARE(mapText(font.chartables()), QStringLiteral("41=0 e9=1"));
        QVERIFY(!font.isThereError());

        const QString absent = dir.filePath(QStringLiteral("absent.png"));
        QVERIFY(!font.loadBitmaps(absent, 8, 8));
        QVERIFY2(font.lastErrorStr().startsWith(QStringLiteral("Couldn't load font bitmap file: '%1'! ").arg(absent)) && font.lastErrorStr().size() > absent.size() + 36, qPrintable(font.lastErrorStr()));
        QVERIFY(!font.loadChartable(absent));
        QCOMPARE(font.lastErrorStr(), QStringLiteral("Couldn't load chartable file: '%1'!").arg(absent));
        QVERIFY(font.fontBitmaps().size() == 2 && font.chartables().size() == 2);
    }

    void outText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("x");
        QTest::addColumn<int>("maxColumns");
        QTest::addColumn<int>("maxRows");
        QTest::addColumn<QStringList>("cells");
        QTest::newRow("one row") << "abc" << 0 << 0 << 0 << QStringList{"123...", "......", "......"};
        QTest::newRow("three columns") << "abcdef" << 0 << 3 << 0 << QStringList{"123...", "456...", "......"};
        QTest::newRow("three columns, one row") << "abcdef" << 0 << 3 << 1 << QStringList{"123...", "......", "......"};
        QTest::newRow("rows filled exactly") << "abcd" << 0 << 2 << 2 << QStringList{"12....", "34....", "......"};
        QTest::newRow("unknown, negative and line feed count") << "ax\nnb" << 0 << 0 << 0 << QStringList{"1...2.", "......", "......"};
        QTest::newRow("unknown in a column") << "abxdef" << 0 << 2 << 0 << QStringList{"12....", ".4....", "56...."};
        QTest::newRow("past the edge") << "abcdefabc" << 0 << 0 << 0 << QStringList{"123456", "......", "......"};
        QTest::newRow("from x, back to x") << "abc" << 16 << 2 << 0 << QStringList{"..12..", "..3...", "......"};
        QTest::newRow("from the left of the picture") << "abc" << -8 << 0 << 0 << QStringList{"23....", "......", "......"};
    }

    void outText()
    {
        QFETCH(QString, text);
        QFETCH(int, x);
        QFETCH(int, maxColumns);
        QFETCH(int, maxRows);
        TWBitmapFont font;
        font.setLogger(&_log);
        QVERIFY(font.setBitmaps(sheet(64, 32), 8, 8));
        font.setChartable({"a\t1", "b\t2", "c\t3", "d\t4", "e\t5", "f\t6", "n\t-1"});
        QImage target(48, 24, QImage::Format_RGB32);
        target.fill(Blue);
        font.outText(target, x, 0, text, maxColumns, maxRows);
        QTEST(cellsIn(target), "cells");
    }

    // Only the exact colour changes, in the cells alone; transparency lets the
    // picture show through, and the background can come back after it.
    void recolour()
    {
        TWBitmapFont font;
        QVERIFY(font.setBitmaps(sheet(16, 8), 8, 8));
        font.setChartable({"a\t1"});
        font.setTextColor(Qt::red);
        QVERIFY(font.textColor() == QColor(Qt::red) && font.fontBitmap().pixel(9, 0) == qRgb(0, 0, 0));
        QImage cell = font.fontBitmaps().at(1);
        QVERIFY(cell.format() == QImage::Format_ARGB32 && cell.pixel(1, 0) == qRgb(255, 0, 0) && cell.pixel(0, 0) == qRgb(255, 255, 255));
        font.setTransparent(0);
        QCOMPARE(font.backgroundColor(), QColor(255, 255, 255, 0));
        QImage target(8, 8, QImage::Format_RGB32);
        target.fill(Blue);
        font.outText(target, 0, 0, QStringLiteral("a"), 0, 0);
        QVERIFY(target.pixel(1, 0) == qRgb(255, 0, 0) && target.pixel(0, 0) == Blue);
        font.setBackgroundColor(Qt::yellow);
        font.outText(target, 0, 0, QStringLiteral("a"), 0, 0);
        QVERIFY(target.pixel(1, 0) == qRgb(255, 0, 0) && target.pixel(0, 0) == qRgb(255, 255, 0));
        font.setTextColor(Qt::yellow); // merged with the background for good
        font.setTextColor(Qt::red);
        QCOMPARE(font.fontBitmaps().at(1).pixel(0, 0), qRgb(255, 0, 0));
    }

    // A copy is a new named object with the source's parent; assignment keeps
    // the target's own name, logger and last error.
    void copies()
    {
        QObject parent, otherParent;
        TWBitmapFont font(QStringLiteral("source"), &parent);
        font.setObjectName(QStringLiteral("shown"));
        QVERIFY(font.setBitmaps(sheet(16, 8), 8, 8));
        font.setChartable({"a\t1"});
        font.setTextColor(Qt::red);
        TWBitmapFont copy(font);
        QVERIFY(copy.parent() == &parent && copy.name().startsWith(QStringLiteral("shown")) && copy.objectName().isEmpty());
        QVERIFY(copy.fontBitmaps() == font.fontBitmaps() && copy.chartables() == font.chartables() && copy.textColor() == QColor(Qt::red));

        TWBitmapFont target(QStringLiteral("target"), &otherParent);
        target.setLogger(&_log);
        target.setBitmaps(QImage(9, 9, QImage::Format_RGB32), 8, 8);
        const QString error = target.lastErrorStr(), name = target.name();
        target = font;
        const TWBitmapFont& same = target;
        target = same;
        QVERIFY(target.parent() == &parent && target.objectName() == QStringLiteral("shown"));
        QVERIFY(target.name() == name && target.lastErrorStr() == error && target.logger() == &_log);
        QVERIFY(target.fontBitmap() == font.fontBitmap() && target.chartable() == font.chartable() && target.textColor() == QColor(Qt::red));
    }
};

QTEST_GUILESS_MAIN(TstTWBitmapFont)
#include "tst_twbitmapfont.moc"
