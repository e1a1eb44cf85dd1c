#include "commandline.h"
#include "commands.h"
#include "toollogger.h"

#include <twimageext.h>
#include <twimgfilters.h>
#include <twutils.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtGui/QImageWriter>

namespace {

const QString command = QStringLiteral("image");
const int maxTiles = 10000;

// Brightest first: the library picks from the last third of the text only,
// the reddest pixels furthest toward its front.
const QString defaultChars = QString(21, u'@') + QStringLiteral("@%#*+=-:.");

// The library's loaders answer their failure; the line TWUtils would also
// log about an unreadable file would only say it twice.
class QuietLogger : public TWLoggerIface
{
public:
    bool writeLog(const QString&, QtMsgType, const QString&, int, const QString&) override { return true; }
    bool writeLog(QtMsgType, const QMessageLogContext&, const QString&) override { return true; }
};

bool load(const QString& path, QString& format, QImage& image, QString& error)
{
    format.clear();
    error = TW::TWImageExt::imageFromFile(path, format, image);
    return error.isEmpty();
}

bool writableFormat(const QString& format)
{
    return QImageWriter::supportedImageFormats().contains(format.toLower().toLatin1());
}

QString writableFormats()
{
    QStringList names;
    for (const QByteArray& name : QImageWriter::supportedImageFormats())
        names << QString::fromLatin1(name);
    return names.join(QStringLiteral(", "));
}

// Encodes \a image in \a format and writes it to \a path.
// OUT must name, by its suffix, a format that Qt writes, and without -f a
// file that is not there yet. Answers Tool::Success with the format, or the
// exit status of the refusal.
int checkOutput(const QString& out, bool force, QString& outFormat)
{
    outFormat = QFileInfo(out).suffix().toUpper();
    if (!writableFormat(outFormat))
        return Tool::usageError(command, QStringLiteral("OUT's suffix names no format that Qt writes here; use one of: %1.")
                                             .arg(writableFormats()));
    if (QFileInfo::exists(out) && !force)
        return Tool::failure(command, QStringLiteral("'%1' exists; use -f to overwrite it.").arg(out));
    return Tool::Success;
}

bool save(const QImage& image, const QString& format, const QString& path, QString& error)
{
    QByteArray data;
    if (!TW::TWImageExt::imageToQByteArray(image, format, data) || data.isEmpty()) {
        error = QStringLiteral("Qt could not write the picture as %1.").arg(format);
        return false;
    }
    return Tool::saveFile(path, data, error);
}

QString describe(const QImage& image, const QString& format)
{
    return QStringLiteral("%1 %2x%3, %4 bits per pixel%5")
        .arg(format.isEmpty() ? QStringLiteral("?") : format)
        .arg(image.width())
        .arg(image.height())
        .arg(image.depth())
        .arg(image.hasAlphaChannel() ? QStringLiteral(", with alpha") : QString());
}

// The fields of a TGA file's header, read by the tool itself: the library
// shows them only in its failure texts.
QStringList tgaHeader(const QString& path)
{
    QFile file(path);
    const QByteArray h = file.open(QIODevice::ReadOnly) ? file.read(18) : QByteArray();
    if (h.size() < 18)
        return {};
    const auto u8 = [&h](int at) { return int(uchar(h[at])); };
    const auto u16 = [&](int at) { return u8(at) | u8(at + 1) << 8; };
    return {QStringLiteral("ID length:        %1").arg(u8(0)),
            QStringLiteral("colour map type:  %1 (%2 entries of %3 bits)").arg(u8(1)).arg(u16(5)).arg(u8(7)),
            QStringLiteral("image type:       %1").arg(u8(2)),
            QStringLiteral("origin:           %1, %2").arg(u16(8)).arg(u16(10)),
            QStringLiteral("size:             %1x%2").arg(u16(12)).arg(u16(14)),
            QStringLiteral("pixel depth:      %1").arg(u8(16)),
            QStringLiteral("description:      0x%1 (rows %2)")
                .arg(u8(17), 2, 16, QLatin1Char('0'))
                .arg(u8(17) & 0x20 ? QStringLiteral("top down") : QStringLiteral("bottom up"))};
}

int convert(const QStringList& args, bool force)
{
    if (args.size() != 3)
        return Tool::usageError(command, QStringLiteral("convert takes IN and OUT."));
    const QString in = args.at(1), out = args.at(2);
    QString outFormat;
    if (const int refused = checkOutput(out, force, outFormat); refused != Tool::Success)
        return refused;
    QString format, error;
    QImage image;
    if (!load(in, format, image, error) || !save(image, outFormat, out, error))
        return Tool::failure(command, error);
    Tool::out(QStringLiteral("%1 (%2) -> %3 (%4)").arg(in, describe(image, format), out, outFormat));
    return Tool::Success;
}

int info(const QStringList& args)
{
    if (args.size() != 2)
        return Tool::usageError(command, QStringLiteral("info takes IN."));
    QString format, error;
    QImage image;
    if (!load(args.at(1), format, image, error))
        return Tool::failure(command, error);
    Tool::out(QStringLiteral("file:               %1").arg(args.at(1)));
    Tool::out(QStringLiteral("format:             %1").arg(format.isEmpty() ? QStringLiteral("(guessed by Qt)") : format));
    Tool::out(QStringLiteral("size:               %1x%2").arg(image.width()).arg(image.height()));
    Tool::out(QStringLiteral("depth:              %1 bits per pixel%2")
                  .arg(image.depth())
                  .arg(image.hasAlphaChannel() ? QStringLiteral(", with alpha") : QString()));
    if (format == QLatin1String("TGA")) {
        Tool::out(QStringLiteral("TGA header:"));
        for (const QString& line : tgaHeader(args.at(1)))
            Tool::out(QStringLiteral("  ") + line);
    }
    return Tool::Success;
}

int ascii(const QStringList& args, const QString& chars, qint64 width)
{
    if (args.size() != 2)
        return Tool::usageError(command, QStringLiteral("ascii takes IN."));
    QString format, error;
    QImage image;
    if (!load(args.at(1), format, image, error))
        return Tool::failure(command, error);
    if (image.width() > width)
        image = image.scaledToWidth(int(width), Qt::SmoothTransformation);
    // The library reads the red channel alone: grey first, so that red carries the brightness.
    image = image.convertToFormat(QImage::Format_Grayscale8);
    QString text = TW::TWImageExt::imageToASCII(image, QStringLiteral("\n"), chars);
    text.replace(QChar(0), u' '); // the library's character for no red at all
    text.chop(1);
    Tool::out(text);
    return Tool::Success;
}

int split(const QStringList& args, bool force, const QString& tileFormat)
{
    if (args.size() != 5)
        return Tool::usageError(command, QStringLiteral("split takes IN, WIDTH, HEIGHT and OUTDIR."));
    bool okWidth = false, okHeight = false;
    const int width = args.at(2).toInt(&okWidth), height = args.at(3).toInt(&okHeight);
    if (!okWidth || !okHeight || width <= 0 || height <= 0)
        return Tool::usageError(command, QStringLiteral("WIDTH and HEIGHT are whole numbers above 0."));
    if (!writableFormat(tileFormat))
        return Tool::usageError(command, QStringLiteral("--format: Qt writes only %1 here.").arg(writableFormats()));

    const QString in = args.at(1);
    QString format, error;
    QImage image;
    if (!load(in, format, image, error))
        return Tool::failure(command, error);
    const qint64 across = (qint64(image.width()) + width - 1) / width;
    const qint64 down = (qint64(image.height()) + height - 1) / height;
    if (across * down > maxTiles)
        return Tool::failure(command, QStringLiteral("%1x%2 tiles of %3 would be %4 files, more than %5; choose larger tiles.")
                                          .arg(width).arg(height).arg(describe(image, format)).arg(across * down).arg(maxTiles));

    const QDir dir(args.at(4));
    if (!QDir().mkpath(dir.path()))
        return Tool::failure(command, QStringLiteral("cannot create the folder '%1'.").arg(dir.path()));
    const int rowDigits = int(QString::number(down - 1).size()), columnDigits = int(QString::number(across - 1).size());
    const QString stem = QFileInfo(in).completeBaseName(), suffix = tileFormat.toLower();
    const auto tilePath = [&](qint64 index) {
        return dir.filePath(QStringLiteral("%1_%2_%3.%4")
                                .arg(stem)
                                .arg(index / across, rowDigits, 10, QLatin1Char('0'))
                                .arg(index % across, columnDigits, 10, QLatin1Char('0'))
                                .arg(suffix));
    };
    for (qint64 i = 0; i < across * down && !force; ++i) {
        if (QFileInfo::exists(tilePath(i)))
            return Tool::failure(command, QStringLiteral("'%1' exists; use -f to overwrite it.").arg(tilePath(i)));
    }

    const QList<QImage> tiles = TW::TWImageExt::splitImage(image, width, height);
    const bool progress = Tool::stderrIsTerminal() && tiles.size() > 200;
    for (qsizetype i = 0; i < tiles.size(); ++i) {
        if (!save(tiles.at(i), tileFormat.toUpper(), tilePath(i), error))
            return Tool::failure(command, QStringLiteral("%1 (%2 of %3 tiles were written)").arg(error).arg(i).arg(tiles.size()));
        if (progress && i % 100 == 0)
            Tool::err(QStringLiteral("%1 of %2 tiles...").arg(i).arg(tiles.size()));
    }
    Tool::out(QStringLiteral("%1 tiles of %2x%3 (%4 across, %5 down) from %6 written to %7")
                  .arg(tiles.size()).arg(width).arg(height).arg(across).arg(down).arg(in, dir.path()));
    return Tool::Success;
}

// Palettes that need no file, by name.
struct BuiltInPalette
{
    const char* name;
    QList<QRgb> colours;
};

QList<QRgb> levels(const QList<int>& values, int channels)
{
    QList<QRgb> out;
    if (channels == 1) {
        for (int v : values)
            out << qRgb(v, v, v);
        return out;
    }
    for (int r : values)
        for (int g : values)
            for (int b : values)
                out << qRgb(r, g, b);
    return out;
}

const QList<BuiltInPalette>& builtInPalettes()
{
    static const QList<BuiltInPalette> palettes = {
        {"bw", {0x000000, 0xFFFFFF}},
        {"gray4", levels({0x00, 0x55, 0xAA, 0xFF}, 1)},
        {"gray16", levels({0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}, 1)},
        {"cga", {0x000000, 0x0000AA, 0x00AA00, 0x00AAAA, 0xAA0000, 0xAA00AA, 0xAA5500, 0xAAAAAA,
                 0x555555, 0x5555FF, 0x55FF55, 0x55FFFF, 0xFF5555, 0xFF55FF, 0xFFFF55, 0xFFFFFF}},
        {"cga4", {0x000000, 0x55FFFF, 0xFF55FF, 0xFFFFFF}},
        {"c64", {0x000000, 0xFFFFFF, 0x68372B, 0x70A4B2, 0x6F3D86, 0x588D43, 0x352879, 0xB8C76F,
                 0x6F4F25, 0x433900, 0x9A6759, 0x444444, 0x6C6C6C, 0x9AD284, 0x6C5EB5, 0x959595}},
        {"web", levels({0x00, 0x33, 0x66, 0x99, 0xCC, 0xFF}, 3)},
    };
    return palettes;
}

QString builtInNames()
{
    QStringList names;
    for (const BuiltInPalette& p : builtInPalettes())
        names << QStringLiteral("%1 (%2)").arg(QLatin1String(p.name)).arg(p.colours.size());
    return names.join(QStringLiteral(", "));
}

// The largest palette that --patterned pairs: 256 colours give 32 896 entries.
const int maxPatternedColours = 256;

struct PaletteOptions
{
    QString palette;
    bool patterned;
    bool noPatternFill;
    bool dither;
    bool skipFirst;
};

/*
 * The palette of --palette: a RIFF file when one exists by that name,
 * otherwise a built-in one. A standard RIFF palette starts its data with a
 * version (0x0300) and a count, which the library reads as one more colour
 * (0, 3, count): that is said, and --skip-first drops the first colour.
 */
int loadPalette(const PaletteOptions& options, QList<TWColor>& palette, QString& description)
{
    palette.clear();
    if (QFileInfo::exists(options.palette)) {
        const QString error = TW::TWImageExt::loadPalFile(options.palette, palette);
        if (!error.isEmpty())
            return Tool::failure(command, error);
        description = QStringLiteral("'%1'").arg(options.palette);
        const qsizetype count = palette.size() - 1;
        const bool header = !palette.isEmpty() && palette.first().red() == 0 && palette.first().green() == 3
                            && palette.first().blue() == (count & 0xFF);
        if (options.skipFirst) {
            if (!palette.isEmpty()) {
                Tool::err(QStringLiteral("twtool image: dropped the palette's first colour (%1, %2, %3)%4.")
                              .arg(palette.first().red()).arg(palette.first().green()).arg(palette.first().blue())
                              .arg(header ? QStringLiteral(", the file's version and count") : QString()));
                palette.removeFirst();
            }
        } else if (header) {
            Tool::err(QStringLiteral("twtool image: warning: the palette's first colour (0, 3, %1) is the file's version "
                                     "and count of %2 colours, read as a colour; --skip-first drops it.")
                          .arg(count & 0xFF).arg(count));
        }
    } else {
        for (const BuiltInPalette& builtIn : builtInPalettes()) {
            if (options.palette == QLatin1String(builtIn.name)) {
                for (QRgb word : builtIn.colours)
                    palette << TWColor(word);
            }
        }
        if (palette.isEmpty())
            return Tool::failure(command, QStringLiteral("'%1' is neither a palette file nor a built-in palette (%2).")
                                              .arg(options.palette, builtInNames()));
        if (options.skipFirst)
            return Tool::usageError(command, QStringLiteral("--skip-first applies to palette files only."));
        description = options.palette;
    }
    if (palette.isEmpty())
        return Tool::failure(command, QStringLiteral("the palette %1 has no colours.").arg(description));
    if (options.patterned && palette.size() > maxPatternedColours)
        return Tool::failure(command, QStringLiteral("--patterned pairs at most %1 colours; the palette has %2.")
                                          .arg(maxPatternedColours).arg(palette.size()));
    return Tool::Success;
}

// The bytes of a picture seen in another four-byte order, without a copy:
// the caller keeps \a image alive while the view is used. The library's
// palette conversion reads and writes the words of an RGBA8888 picture as
// QRgb, which exchanges red and blue; handed an ARGB32 picture's bytes as
// RGBA8888, it matches the true colours and writes words that are again
// ARGB32. The filter's records likewise hold red where ARGB32 has blue.
QImage view(const QImage& image, QImage::Format format)
{
    return QImage(image.constBits(), image.width(), image.height(), image.bytesPerLine(), format);
}

int palette(const QStringList& args, bool force, const PaletteOptions& options)
{
    if (args.size() != 3)
        return Tool::usageError(command, QStringLiteral("palette takes IN and OUT."));
    if (options.palette.isEmpty())
        return Tool::usageError(command, QStringLiteral("palette needs --palette FILE.pal or a built-in name: %1.").arg(builtInNames()));
    if (options.noPatternFill && !options.patterned)
        return Tool::usageError(command, QStringLiteral("--no-pattern-fill goes with --patterned."));
    const QString in = args.at(1), out = args.at(2);
    QString outFormat;
    if (const int refused = checkOutput(out, force, outFormat); refused != Tool::Success)
        return refused;

    QList<TWColor> colours;
    QString description;
    if (const int status = loadPalette(options, colours, description); status != Tool::Success)
        return status;
    const qsizetype plainCount = colours.size();
    if (options.patterned)
        colours = TW::TWImageExt::generatePatternedPalette(colours);

    QString format, error;
    QImage image;
    if (!load(in, format, image, error))
        return Tool::failure(command, error);
    const QImage source = image.convertToFormat(QImage::Format_ARGB32);
    if (source.isNull() && !image.isNull())
        return Tool::failure(command, QStringLiteral("not enough memory for a %1x%2 picture.").arg(image.width()).arg(image.height()));

    // One library call does it all, so the only progress to show is that it started.
    if (Tool::stderrIsTerminal() && qint64(source.width()) * source.height() * colours.size() > (qint64(1) << 32))
        Tool::err(QStringLiteral("Matching the colours of %1x%2 pixels against %3 palette entries...")
                      .arg(source.width()).arg(source.height()).arg(colours.size()));
    QImage converted, result;
    if (options.dither) {
        TW::TWImgFilters filters;
        filters.setLogger(Tool::logger());
        filters.setImage(view(source, QImage::Format_RGBA8888), 1, false);
        filters.dithering(colours);
        converted = filters.image();
        result = view(converted, QImage::Format_RGBA8888);
    } else {
        converted = TW::TWImageExt::toPaletteImage(view(source, QImage::Format_RGBA8888), colours,
                                                   options.patterned && !options.noPatternFill, nullptr);
        result = view(converted, QImage::Format_ARGB32);
    }
    if (converted.isNull() && !source.isNull())
        return Tool::failure(command, QStringLiteral("not enough memory to convert a %1x%2 picture.").arg(source.width()).arg(source.height()));
    if (!save(result, outFormat, out, error))
        return Tool::failure(command, error);

    QString how = QStringLiteral("%1 colours from %2").arg(plainCount).arg(description);
    if (options.patterned)
        how += options.noPatternFill || options.dither
                   ? QStringLiteral(", with %1 pattern means").arg(colours.size() - plainCount)
                   : QStringLiteral(", with %1 two-colour patterns").arg(colours.size() - plainCount);
    if (options.dither)
        how += QStringLiteral(", through the dithering filter");
    Tool::out(QStringLiteral("%1 (%2) -> %3 (%4): %5").arg(in, describe(image, format), out, outFormat, how));
    return Tool::Success;
}

} // namespace

int runImageCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Reads pictures through the library: TGA files (uncompressed or run-length\n"
        "encoded, 24 or 32 bits) with its own reader, other formats through Qt. The\n"
        "format comes from IN's suffix; without one, Qt guesses.\n\n"
        "  convert IN OUT                   writes IN in the format that OUT's suffix names\n"
        "  info IN                          format, size and depth (and a TGA file's header)\n"
        "  ascii IN                         the picture as text, one character per pixel\n"
        "  split IN WIDTH HEIGHT OUTDIR     cuts IN into tiles, OUTDIR/<name>_<row>_<column>.png;\n"
        "                                   tiles at the right and bottom edges keep the full size\n"
        "  palette IN OUT --palette PAL     reduces IN to the colours of PAL, each pixel to the\n"
        "                                   nearest (red, green and blue alike; a colour 255 or more\n"
        "                                   away from every entry turns black), written as OUT's\n"
        "                                   suffix says. PAL is a RIFF palette file or a built-in\n"
        "                                   palette: bw, gray4, gray16, cga, cga4, c64, web"));
    const QCommandLineOption force({QStringLiteral("f"), QStringLiteral("force")},
                                   QStringLiteral("convert, split, palette: overwrite files that exist."));
    const QCommandLineOption chars(QStringLiteral("chars"),
                                   QStringLiteral("ascii: the characters, of which the last third is used, brightest "
                                                  "first; pixels of no brightness show as blanks (default: \"%1\").")
                                       .arg(defaultChars),
                                   QStringLiteral("TEXT"));
    const QCommandLineOption width(QStringLiteral("width"),
                                   QStringLiteral("ascii: a wider picture is scaled down to N columns first (default: 80)."),
                                   QStringLiteral("N"));
    const QCommandLineOption tileFormat(QStringLiteral("format"), QStringLiteral("split: the tiles' format (default: png)."),
                                        QStringLiteral("FORMAT"));
    const QCommandLineOption paletteOption(QStringLiteral("palette"),
                                           QStringLiteral("palette: a RIFF palette file, or a built-in palette by name."),
                                           QStringLiteral("PAL"));
    const QCommandLineOption patterned(QStringLiteral("patterned"),
                                       QStringLiteral("palette: add every pair of colours as a pattern of the two, "
                                                      "printed in alternating pixels (a checkerboard), which shows the "
                                                      "tones between them."));
    const QCommandLineOption noPatternFill(QStringLiteral("no-pattern-fill"),
                                           QStringLiteral("palette, with --patterned: write each pair's mean colour "
                                                          "instead of its two colours."));
    const QCommandLineOption dither(QStringLiteral("dither"),
                                    QStringLiteral("palette: go through the library's dithering filter. Its error "
                                                   "diffusion has weights of 0, so each pixel still gets its nearest "
                                                   "colour (patterns as their mean); pixels that are not opaque are "
                                                   "laid over the picture's edge first."));
    const QCommandLineOption skipFirst(QStringLiteral("skip-first"),
                                       QStringLiteral("palette: drop the palette file's first colour, which for a "
                                                      "standard RIFF palette is its version and count."));
    parser.addOptions({force, chars, width, tileFormat, paletteOption, patterned, noPatternFill, dither, skipFirst});
    parser.addPositionalArgument(QStringLiteral("action"), QStringLiteral("convert, info, ascii, split or palette."));
    parser.addPositionalArgument(QStringLiteral("arguments"), QStringLiteral("The action's files and sizes."),
                                 QStringLiteral("ARGUMENTS..."));
    if (const auto done = Tool::parse(parser, arguments))
        return *done;

    const QStringList args = parser.positionalArguments();
    const QString action = args.value(0);
    const QStringList actions{QStringLiteral("convert"), QStringLiteral("info"), QStringLiteral("ascii"), QStringLiteral("split"),
                              QStringLiteral("palette")};
    if (!actions.contains(action))
        return Tool::usageError(command, action.isEmpty() ? QStringLiteral("say convert, info, ascii, split or palette.")
                                                          : QStringLiteral("unknown action '%1'.").arg(action));
    const bool paletteAction = action == QLatin1String("palette");
    for (const QCommandLineOption* option : {&paletteOption, &patterned, &noPatternFill, &dither, &skipFirst}) {
        if (parser.isSet(*option) && !paletteAction)
            return Tool::usageError(command, QStringLiteral("--%1 applies to palette only.").arg(option->names().constFirst()));
    }
    const bool asciiAction = action == QLatin1String("ascii");
    if ((parser.isSet(chars) || parser.isSet(width)) && !asciiAction)
        return Tool::usageError(command, QStringLiteral("--chars and --width apply to ascii only."));
    if (parser.isSet(tileFormat) && action != QLatin1String("split"))
        return Tool::usageError(command, QStringLiteral("--format applies to split only."));
    if (parser.isSet(force) && (asciiAction || action == QLatin1String("info")))
        return Tool::usageError(command, QStringLiteral("-f applies to convert and split only."));
    qint64 columns = 80;
    if (!Tool::intOption(parser, command, QStringLiteral("width"), 1, 100000, columns))
        return Tool::UsageError;
    const QString charText = parser.isSet(chars) ? parser.value(chars) : defaultChars;
    if (charText.isEmpty())
        return Tool::usageError(command, QStringLiteral("--chars needs at least one character."));

    QuietLogger quiet;
    TW::TWUtils::setLogger(&quiet);
    int status = Tool::Success;
    if (action == QLatin1String("convert"))
        status = convert(args, parser.isSet(force));
    else if (action == QLatin1String("info"))
        status = info(args);
    else if (asciiAction)
        status = ascii(args, charText, columns);
    else if (paletteAction)
        status = palette(args, parser.isSet(force),
                         {parser.value(paletteOption), parser.isSet(patterned), parser.isSet(noPatternFill), parser.isSet(dither),
                          parser.isSet(skipFirst)});
    else
        status = split(args, parser.isSet(force), parser.isSet(tileFormat) ? parser.value(tileFormat) : QStringLiteral("png"));
    TW::TWUtils::setLogger(nullptr);
    return status;
}
