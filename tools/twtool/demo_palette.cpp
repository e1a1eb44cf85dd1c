#include "commandline.h"
#include "demo.h"
#include "toollogger.h"

#include <twbitmapfont.h>
#include <twimageext.h>
#include <twimgfilters.h>

#include <QtCore/QDir>
#include <QtCore/QSet>
#include <QtGui/QImage>
#include <QtGui/QPainter>

#include <cmath>

namespace {

const int Width = 128, Height = 80, Scale = 2;

// An evening over hills: a sky shading from blue to orange, a sun and two
// hills, smooth enough that six colours band it visibly.
QImage scene()
{
    QImage image(Width, Height, QImage::Format_ARGB32);
    for (int y = 0; y < Height; ++y) {
        for (int x = 0; x < Width; ++x) {
            const double t = y / double(Height);
            QRgb pixel = qRgb(int(40 + 200 * t), int(60 + 90 * t), int(150 - 110 * t));
            if (std::hypot(x - 92.0, y - 34.0) < 13)
                pixel = qRgb(250, 230, int(120 + 4 * (y - 21)));
            const double far = 52 + 8 * std::sin(x / 14.0), near = 62 + 6 * std::cos(x / 21.0 + 1);
            if (y > far)
                pixel = qRgb(40, int(110 - (y - far) * 2), 50);
            if (y > near)
                pixel = qRgb(20, int(80 - (y - near) * 2), 30);
            image.setPixel(x, y, pixel);
        }
    }
    return image;
}

const QList<QRgb> sixColours = {0x101820, 0x2840A0, 0x905878, 0xE07830, 0xF8E070, 0x306828};

// toPaletteImage() reads and writes RGBA8888 words as QRgb, which exchanges
// red and blue: handed the bytes of an ARGB32 picture as RGBA8888, it works
// on the true colours, and its words are again ARGB32.
QImage reduce(const QImage& argb, const QList<TWColor>& palette, bool usePattern)
{
    const QImage bytes(argb.constBits(), argb.width(), argb.height(), argb.bytesPerLine(), QImage::Format_RGBA8888);
    const QImage words = TW::TWImageExt::toPaletteImage(bytes, palette, usePattern, nullptr);
    return QImage(words.constBits(), words.width(), words.height(), words.bytesPerLine(), QImage::Format_ARGB32).copy();
}

// A 5 x 7 font, one row of five bits per byte, the leftmost pixel highest.
struct Glyph
{
    char c;
    uchar rows[7];
};
const Glyph glyphs[] = {
    {'A', {0x0E, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}}, {'B', {0x1E, 0x11, 0x11, 0x1E, 0x11, 0x11, 0x1E}},
    {'C', {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E}}, {'D', {0x1C, 0x12, 0x11, 0x11, 0x11, 0x12, 0x1C}},
    {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}}, {'F', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}},
    {'G', {0x0E, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0F}}, {'H', {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    {'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}}, {'J', {0x07, 0x02, 0x02, 0x02, 0x02, 0x12, 0x0C}},
    {'K', {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}}, {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}},
    {'M', {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11}}, {'N', {0x11, 0x11, 0x19, 0x15, 0x13, 0x11, 0x11}},
    {'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'P', {0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10, 0x10}},
    {'Q', {0x0E, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0D}}, {'R', {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}},
    {'S', {0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}}, {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
    {'U', {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'V', {0x11, 0x11, 0x11, 0x11, 0x11, 0x0A, 0x04}},
    {'W', {0x11, 0x11, 0x11, 0x15, 0x15, 0x15, 0x0A}}, {'X', {0x11, 0x11, 0x0A, 0x04, 0x0A, 0x11, 0x11}},
    {'Y', {0x11, 0x11, 0x11, 0x0A, 0x04, 0x04, 0x04}}, {'Z', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x10, 0x1F}},
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}}, {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}}, {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}}, {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}}, {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}}, {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {' ', {0, 0, 0, 0, 0, 0, 0}},                       {'.', {0, 0, 0, 0, 0, 0x0C, 0x0C}},
    {',', {0, 0, 0, 0, 0x0C, 0x04, 0x08}},              {'!', {0x04, 0x04, 0x04, 0x04, 0x04, 0, 0x04}},
    {'-', {0, 0, 0, 0x1F, 0, 0, 0}},                    {':', {0, 0x0C, 0x0C, 0, 0x0C, 0x0C, 0}},
    {'+', {0, 0x04, 0x04, 0x1F, 0x04, 0x04, 0}},        {'?', {0x0E, 0x11, 0x01, 0x02, 0x04, 0, 0x04}},
};
const int CellWidth = 6, CellHeight = 8, CellsAcross = 16;

// The font's sheet, black on white, cells of 6 x 8 row by row, and its
// chartable, a line per glyph in the order of the cells.
QImage fontSheet(QStringList& chartable)
{
    const int count = int(sizeof(glyphs) / sizeof(glyphs[0]));
    QImage sheet(CellsAcross * CellWidth, (count + CellsAcross - 1) / CellsAcross * CellHeight, QImage::Format_RGB32);
    sheet.fill(Qt::white);
    for (int i = 0; i < count; ++i) {
        const int left = i % CellsAcross * CellWidth, top = i / CellsAcross * CellHeight;
        for (int y = 0; y < 7; ++y)
            for (int x = 0; x < 5; ++x)
                if (glyphs[i].rows[y] & (0x10 >> x))
                    sheet.setPixel(left + x, top + y, qRgb(0, 0, 0));
        chartable << QStringLiteral("%1\t%2").arg(QLatin1Char(glyphs[i].c)).arg(i);
    }
    return sheet;
}

bool save(const QImage& image, const QString& path)
{
    QByteArray data;
    QString error;
    return TW::TWImageExt::imageToQByteArray(image, QStringLiteral("PNG"), data) && Tool::saveFile(path, data, error);
}

QImage scaled(const QImage& image)
{
    return image.scaled(image.width() * Scale, image.height() * Scale, Qt::IgnoreAspectRatio, Qt::FastTransformation);
}

} // namespace

bool demoPalette(DemoContext& context)
{
    bool ok = true;
    const QDir dir(context.stepDir(QStringLiteral("palette")));
    const QImage original = scene();
    QList<TWColor> palette;
    for (QRgb word : sixColours)
        palette << TWColor(word);
    const QList<TWColor> patterned = TW::TWImageExt::generatePatternedPalette(palette);
    const QImage plain = reduce(original, palette, false);
    const QImage withPatterns = reduce(original, patterned, true);

    say(QStringLiteral("A %1x%2 evening scene, reduced by TWImageExt::toPaletteImage to six colours,").arg(Width).arg(Height));
    say(QStringLiteral("then to the same six and their %1 pairs: generatePatternedPalette makes each").arg(patterned.size() - palette.size()));
    say(QStringLiteral("pair a pattern of its two colours in alternating pixels, a checkerboard that"));
    say(QStringLiteral("shows the tones between them. The library reads the pixels as QRgb words, so"));
    say(QStringLiteral("red and blue come out exchanged; handing it the bytes of an ARGB32 picture"));
    say(QStringLiteral("cancels that, as 'twtool image palette' does."));
    QSet<QRgb> plainColours, patternColours;
    for (int y = 0; y < Height; ++y) {
        for (int x = 0; x < Width; ++x) {
            plainColours.insert(plain.pixel(x, y));
            patternColours.insert(withPatterns.pixel(x, y));
        }
    }
    QSet<QRgb> six;
    for (QRgb word : sixColours)
        six.insert(word | 0xFF000000u);
    ok &= plainColours.size() <= 6 && (plainColours - six).isEmpty() && (patternColours - six).isEmpty();
    say(QStringLiteral("plain.png uses %1 colours, patterned.png %2, all of them from the six.")
            .arg(plainColours.size())
            .arg(patternColours.size()));
    ok &= save(original, dir.filePath(QStringLiteral("original.png"))) && save(plain, dir.filePath(QStringLiteral("plain.png")))
          && save(withPatterns, dir.filePath(QStringLiteral("patterned.png")));

    // The filter object maps onto a palette as well: its error diffusion has
    // weights of 0, so each pixel gets its nearest colour, as above.
    TW::TWImgFilters filters;
    const QImage bytes(original.constBits(), Width, Height, original.bytesPerLine(), QImage::Format_RGBA8888);
    filters.setImage(bytes, 1, true);
    filters.dithering(palette);
    const QImage filtered = filters.image();
    const bool same = QImage(filtered.constBits(), Width, Height, filtered.bytesPerLine(), QImage::Format_RGBA8888)
                          .convertToFormat(QImage::Format_ARGB32) == plain;
    ok &= same;
    say(QStringLiteral("TWImgFilters::dithering over the same six colours gives %1.")
            .arg(same ? QStringLiteral("the same picture") : QStringLiteral("A DIFFERENT picture")));

    say();
    QStringList chartable;
    const QImage sheet = fontSheet(chartable);
    ok &= save(sheet, dir.filePath(QStringLiteral("font.png")));
    QString error;
    ok &= Tool::saveFile(dir.filePath(QStringLiteral("font.chartable")), chartable.join(u'\n').toUtf8() + '\n', error);
    say(QStringLiteral("A bitmap font made here: font.png, %1 cells of %2x%3 pixels, black on white,")
            .arg(chartable.size()).arg(CellWidth).arg(CellHeight));
    say(QStringLiteral("and font.chartable, a character, a tab and a cell number on each line."));
    TW::TWBitmapFont font;
    font.setLogger(Tool::logger());
    ok &= font.loadBitmaps(dir.filePath(QStringLiteral("font.png")), CellWidth, CellHeight)
          && font.loadChartable(dir.filePath(QStringLiteral("font.chartable"))) && !font.isThereError();

    // The three pictures side by side, twice the size, each with a label in
    // the font: white letters on a transparent background. The background
    // goes first: recolouring repaints one exact colour, so white letters on
    // a white background could no longer be told apart.
    font.setTransparent(0);
    font.setTextColor(Qt::white);
    const QStringList labels{QStringLiteral("ORIGINAL"), QStringLiteral("6 COLOURS"), QStringLiteral("6 + 15 PATTERNS")};
    const QList<QImage> panels{original, plain, withPatterns};
    QImage tour(3 * Width * Scale + 2 * 4, Height * Scale + 2 * CellHeight + 4, QImage::Format_ARGB32);
    tour.fill(qRgb(16, 24, 32));
    QPainter painter(&tour);
    for (int i = 0; i < 3; ++i) {
        const int left = i * (Width * Scale + 4);
        painter.drawImage(left, 0, scaled(panels.at(i)));
        QImage label(int(labels.at(i).size()) * CellWidth, CellHeight, QImage::Format_ARGB32);
        label.fill(Qt::transparent);
        font.outText(label, 0, 0, labels.at(i), 0, 0);
        painter.drawImage(left + 2, Height * Scale + 4, scaled(label));
    }
    painter.end();
    ok &= save(tour, dir.filePath(QStringLiteral("tour.png")));

    QImage line(18 * CellWidth, CellHeight, QImage::Format_ARGB32);
    line.fill(Qt::transparent);
    font.outText(line, 0, 0, QStringLiteral("TWBASELIB PALETTES"), 0, 0);
    say(QStringLiteral("The font draws \"TWBASELIB PALETTES\" with outText():"));
    for (int y = 0; y < 7; ++y) {
        QString text;
        for (int x = 0; x < line.width(); ++x)
            text += qAlpha(line.pixel(x, y)) == 255 ? u'#' : u' ';
        say(QStringLiteral("  ") + text);
    }
    say(QStringLiteral("tour.png puts the three pictures side by side with labels in that font."));
    say(QStringLiteral("'twtool image palette IN OUT --palette cga --patterned' and 'twtool font %1 %2 %3 %4 TEXT OUT'")
            .arg(QDir(dir).filePath(QStringLiteral("font.png")), QDir(dir).filePath(QStringLiteral("font.chartable")))
            .arg(CellWidth)
            .arg(CellHeight));
    say(QStringLiteral("do the same on the command line."));
    return ok;
}
