#include "commandline.h"
#include "commands.h"
#include "toollogger.h"

#include <twbitmapfont.h>
#include <twimageext.h>
#include <twutils.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QFileInfo>
#include <QtCore/QSet>
#include <QtGui/QImageWriter>

namespace {

const QString command = QStringLiteral("font");
// The largest picture drawn: 16384 pixels a side, 64 megapixels in all.
const qint64 maxSide = 16384;
const qint64 maxPixels = qint64(64) << 20;

// The font's loaders answer their failure; TWUtils would only log it again.
class QuietLogger : public TWLoggerIface
{
public:
    bool writeLog(const QString&, QtMsgType, const QString&, int, const QString&) override { return true; }
    bool writeLog(QtMsgType, const QMessageLogContext&, const QString&) override { return true; }
};

bool colorOption(const QCommandLineParser& parser, const QString& name, QColor& color)
{
    if (!parser.isSet(name))
        return true;
    color = QColor::fromString(parser.value(name));
    if (color.isValid())
        return true;
    Tool::usageError(command, QStringLiteral("--%1 takes a colour such as red, #f00, #ff0000 or #80ff0000, not '%2'.")
                                  .arg(name, parser.value(name)));
    return false;
}

// An opaque colour that no cell of \a font uses and that is none of \a avoid.
QColor unusedColor(const TW::TWBitmapFont& font, const QList<QColor>& avoid)
{
    QSet<QRgb> used;
    for (const QImage& cell : font.fontBitmaps()) {
        const QImage argb = cell.convertToFormat(QImage::Format_ARGB32);
        for (int y = 0; y < argb.height(); ++y) {
            const QRgb* line = reinterpret_cast<const QRgb*>(argb.constScanLine(y));
            for (int x = 0; x < argb.width(); ++x)
                used.insert(line[x]);
        }
    }
    for (const QColor& color : avoid) {
        if (color.isValid())
            used.insert(color.rgba());
    }
    QRgb candidate = qRgb(1, 2, 3);
    while (used.contains(candidate))
        candidate = qRgb(qRed(candidate) + 1, 2, 3);
    return QColor::fromRgba(candidate);
}

int draw(const QStringList& args, const QCommandLineParser& parser, bool force)
{
    const QString sheet = args.at(0), chartable = args.at(1), text = args.at(4), out = args.at(5);
    bool okWidth = false, okHeight = false;
    const int cellWidth = args.at(2).toInt(&okWidth), cellHeight = args.at(3).toInt(&okHeight);
    if (!okWidth || !okHeight || cellWidth <= 0 || cellHeight <= 0 || cellWidth > maxSide || cellHeight > maxSide)
        return Tool::usageError(command, QStringLiteral("CELLW and CELLH are whole numbers from 1 to %1.").arg(maxSide));
    if (text.isEmpty())
        return Tool::usageError(command, QStringLiteral("TEXT is empty: there is nothing to draw."));
    QColor textColor, background;
    qint64 alpha = -1, columns = 0, rows = 0;
    if (!colorOption(parser, QStringLiteral("color"), textColor) || !colorOption(parser, QStringLiteral("background"), background)
        || !Tool::intOption(parser, command, QStringLiteral("transparent"), 0, 255, alpha)
        || !Tool::intOption(parser, command, QStringLiteral("columns"), 0, maxSide, columns)
        || !Tool::intOption(parser, command, QStringLiteral("rows"), 0, maxSide, rows))
        return Tool::UsageError;
    const QString outFormat = QFileInfo(out).suffix().toLower();
    if (!QImageWriter::supportedImageFormats().contains(outFormat.toLatin1()))
        return Tool::usageError(command, QStringLiteral("OUT's suffix names no format that Qt writes here."));
    if (QFileInfo::exists(out) && !force)
        return Tool::failure(command, QStringLiteral("'%1' exists; use -f to overwrite it.").arg(out));

    // The picture holds the text's cells: as many columns as fit before
    // --columns wraps them, as many rows as that takes, up to --rows.
    const qint64 length = text.size();
    const qint64 across = columns > 0 ? std::min(length, columns) : length;
    qint64 down = columns > 0 ? (length + columns - 1) / columns : 1;
    if (rows > 0)
        down = std::min(down, rows);
    const qint64 width = across * cellWidth, height = down * cellHeight;
    if (width > maxSide || height > maxSide || width * height > maxPixels)
        return Tool::failure(command, QStringLiteral("the text would make a picture of %1x%2 pixels, more than this tool draws "
                                                     "(%3 a side, %4 megapixels); use --columns and --rows.")
                                          .arg(width).arg(height).arg(maxSide).arg(maxPixels >> 20));

    // The library reports bad chartable lines, each with its number, and
    // duplicates as warnings, through the tool's logger on standard error.
    TW::TWBitmapFont font;
    font.setLogger(Tool::logger());
    if (!font.loadBitmaps(sheet, cellWidth, cellHeight))
        return Tool::Failure;
    if (!font.loadChartable(chartable))
        return Tool::failure(command, TW::TWUtils::lastError());
    if (font.isThereError())
        return Tool::failure(command, QStringLiteral("the chartable '%1' has bad lines (above); nothing was written.").arg(chartable));
    if (font.fontBitmaps().isEmpty())
        return Tool::failure(command, QStringLiteral("the sheet '%1' has no cells.").arg(sheet));

    QString missing;
    QSet<QChar> seen;
    for (const QChar c : text) {
        const int index = font.chartables().value(c, -1);
        if (index < 0 && !seen.contains(c)) {
            seen.insert(c);
            missing += QStringLiteral(" '%1'").arg(c.isPrint() ? QString(c) : QStringLiteral("U+%1").arg(c.unicode(), 4, 16, QLatin1Char('0')));
        }
    }
    if (!missing.isEmpty())
        Tool::err(QStringLiteral("twtool font: warning: not in the chartable, left empty:%1").arg(missing));

    // The sheet is black text on white. The library repaints one exact colour
    // at a time, so a new colour that the cells already use for the other
    // part would merge the two for good (white text on the white sheet, a
    // black background behind black text). The text therefore waits in a
    // colour that no cell uses while the background changes, and takes its
    // own colour last.
    if (textColor.isValid() || background.isValid()) {
        const QColor finalText = textColor.isValid() ? textColor : font.textColor();
        font.setTextColor(unusedColor(font, {finalText, background}));
        if (background.isValid())
            font.setBackgroundColor(background);
        if (alpha >= 0)
            font.setTransparent(int(alpha));
        font.setTextColor(finalText);
    } else if (alpha >= 0) {
        font.setTransparent(int(alpha));
    }

    QImage picture(int(width), int(height), QImage::Format_ARGB32);
    if (picture.isNull())
        return Tool::failure(command, QStringLiteral("not enough memory for a %1x%2 picture.").arg(width).arg(height));
    picture.fill(Qt::transparent);
    font.outText(picture, 0, 0, text, int(columns), int(rows));

    QByteArray data;
    QString error;
    if (!TW::TWImageExt::imageToQByteArray(picture, outFormat, data) || data.isEmpty())
        return Tool::failure(command, QStringLiteral("Qt could not write the picture as %1.").arg(outFormat));
    if (!Tool::saveFile(out, data, error))
        return Tool::failure(command, error);
    Tool::out(QStringLiteral("%1: %2x%3, %4 character(s) in %5 column(s) and %6 row(s) of %7x%8 cells")
                  .arg(out).arg(width).arg(height).arg(length).arg(across).arg(down).arg(cellWidth).arg(cellHeight));
    return Tool::Success;
}

} // namespace

int runFontCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Draws TEXT with a bitmap font into the picture OUT, in the format that its suffix\n"
        "names. SHEET is a picture of equal cells of CELLW x CELLH pixels, numbered row by\n"
        "row from the top left; CHARTABLE is a UTF-8 file with a character, a tab and a\n"
        "cell number on each line. The sheet is taken as black text on white.\n"
        "Lines break only after --columns cells; a character that the chartable lacks\n"
        "leaves an empty cell. Bad chartable lines are reported and nothing is written."));
    const QCommandLineOption force({QStringLiteral("f"), QStringLiteral("force")}, QStringLiteral("Overwrite OUT if it exists."));
    const QCommandLineOption color(QStringLiteral("color"), QStringLiteral("The text's colour (red, #f00, #80ff0000)."), QStringLiteral("C"));
    const QCommandLineOption background(QStringLiteral("background"), QStringLiteral("The background's colour."), QStringLiteral("C"));
    const QCommandLineOption transparent(QStringLiteral("transparent"),
                                         QStringLiteral("The background's alpha, 0 (see-through) to 255."), QStringLiteral("ALPHA"));
    const QCommandLineOption columns(QStringLiteral("columns"), QStringLiteral("Cells in a row before the next row (0: one row)."),
                                     QStringLiteral("N"));
    const QCommandLineOption rows(QStringLiteral("rows"), QStringLiteral("Rows at most; the rest of the text is left out (0: all)."),
                                  QStringLiteral("N"));
    parser.addOptions({force, color, background, transparent, columns, rows});
    parser.addPositionalArgument(QStringLiteral("SHEET"), QStringLiteral("The font's picture (PNG, TGA, ...)."));
    parser.addPositionalArgument(QStringLiteral("CHARTABLE"), QStringLiteral("Character, tab, cell number per line."));
    parser.addPositionalArgument(QStringLiteral("CELLW"), QStringLiteral("Width of a cell in pixels."));
    parser.addPositionalArgument(QStringLiteral("CELLH"), QStringLiteral("Height of a cell in pixels."));
    parser.addPositionalArgument(QStringLiteral("TEXT"), QStringLiteral("What to draw."));
    parser.addPositionalArgument(QStringLiteral("OUT"), QStringLiteral("The picture to write."));
    if (const auto done = Tool::parse(parser, arguments))
        return *done;
    const QStringList args = parser.positionalArguments();
    if (args.size() != 6)
        return Tool::usageError(command, QStringLiteral("font takes SHEET, CHARTABLE, CELLW, CELLH, TEXT and OUT."));

    QuietLogger quiet;
    TW::TWUtils::setLogger(&quiet);
    const int status = draw(args, parser, parser.isSet(force));
    TW::TWUtils::setLogger(nullptr);
    return status;
}
