#include "twimagebuilders.h"
#include "twtestsupport.h"

#include <QtTest/QTest>

namespace {

TWTest::ProcessResult image(const TWTest::TempWorkDir& dir, const QString& arguments)
{
    return TWTest::runTool(QStringLiteral("image ") + arguments, dir.path());
}

// 10 x 6, red rising to the right, so the text of each row is the same.
QImage sample()
{
    QImage picture(10, 6, QImage::Format_RGB888);
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            picture.setPixel(x, y, qRgb(x * 28, x * 28, x * 28));
    return picture;
}

// A standard RIFF palette: version and count first, then the colours.
QByteArray standardPalette(const QList<QRgb>& colours)
{
    QByteArray data("\0\3", 2);
    data.append(char(colours.size())).append('\0');
    for (QRgb c : colours)
        data.append(char(qRed(c))).append(char(qGreen(c))).append(char(qBlue(c))).append('\0');
    return TWTest::riffPalette(TWTest::riffChunk("data", data));
}

// A font of 4 x 4 cells, black on white: 'A' a filled square, 'B' a frame.
void writeFont(const TWTest::TempWorkDir& dir, const QByteArray& chartable = "A\t0\nB\t1\n")
{
    QImage sheet(8, 4, QImage::Format_RGB32);
    sheet.fill(Qt::black);
    for (int y = 1; y < 3; ++y)
        for (int x = 5; x < 7; ++x)
            sheet.setPixel(x, y, qRgb(255, 255, 255));
    QVERIFY(sheet.save(dir.filePath(QStringLiteral("sheet.png"))) && dir.writeFile(QStringLiteral("chars.txt"), chartable));
}

} // namespace

class TstTWToolImage : public QObject
{
    Q_OBJECT

private slots:
    void actions()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("in.tga"), TWTest::tgaFile(sample(), true, false)) && dir.writeFile(QStringLiteral("out.png"), "keep"));
        QVERIFY(TWTest::ended(image(dir, QStringLiteral("convert in.tga out.png")), 1, "-f"));
        QCOMPARE(dir.readFile(QStringLiteral("out.png")), QByteArray("keep"));
        QVERIFY(TWTest::ended(image(dir, QStringLiteral("convert -f in.tga out.png")), 0));
        QCOMPARE(QImage(dir.filePath(QStringLiteral("out.png"))).convertToFormat(QImage::Format_RGB888), sample());
        const auto info = image(dir, QStringLiteral("info in.tga"));
        QVERIFY(TWTest::ended(info, 0, "format:             TGA\nsize:               10x6\ndepth:              24 bits"));
        QVERIFY(info.out.contains("image type:       10"));

        // Wider than 5 columns: scaled to 5 first; the darkest column has no red and shows as a blank.
        const auto ascii = image(dir, QStringLiteral("ascii --width 5 --chars abcdefghijkl in.tga"));
        QVERIFY(TWTest::ended(ascii, 0, " "));
        QVERIFY(ascii.out.startsWith(" ") && ascii.out.split('\n').size() == 4 && ascii.out.split('\n').at(0).size() == 5);

        QVERIFY(TWTest::ended(image(dir, QStringLiteral("split in.tga 4 4 tiles")), 0));
        QCOMPARE(QDir(dir.filePath(QStringLiteral("tiles"))).entryList(QDir::Files),
                 QStringList({"in_0_0.png", "in_0_1.png", "in_0_2.png", "in_1_0.png", "in_1_1.png", "in_1_2.png"}));
        QCOMPARE(QImage(dir.filePath(QStringLiteral("tiles/in_1_2.png"))).size(), QSize(4, 4));
        QCOMPARE(image(dir, QStringLiteral("split in.tga 4 4 tiles")).exitCode, 1);
        QVERIFY(dir.files(QStringList{"twoutput_*"}).isEmpty());
    }

    // The picture written shows the palette's own colours; patterns alternate
    // in a checkerboard; a standard palette file's header colour is reported
    // and dropped on request.
    void palette()
    {
        TWTest::TempWorkDir dir;
        QImage picture(4, 2, QImage::Format_RGB32);
        picture.fill(qRgb(200, 10, 0));
        picture.setPixel(0, 0, qRgb(0, 20, 190));
        QVERIFY(picture.save(dir.filePath(QStringLiteral("in.png"))));
        QVERIFY(dir.writeFile(QStringLiteral("std.pal"), standardPalette({qRgb(170, 0, 0), qRgb(0, 0, 170)})));
        QVERIFY(TWTest::ended(image(dir, QStringLiteral("palette in.png plain.png --palette cga")), 0, "16 colours from cga"));
        QImage out(dir.filePath(QStringLiteral("plain.png")));
        QVERIFY(out.pixel(0, 0) == qRgb(0, 0, 170) && out.pixel(1, 0) == qRgb(170, 0, 0));

        auto result = image(dir, QStringLiteral("palette in.png std.png --palette std.pal"));
        QVERIFY(TWTest::ended(result, 0) && result.err.contains("(0, 3, 2) is the file's version and count of 2 colours"));
        result = image(dir, QStringLiteral("palette in.png std.png --palette std.pal --skip-first -f"));
        QVERIFY(TWTest::ended(result, 0, "2 colours from 'std.pal'") && result.err.contains("dropped"));
        QCOMPARE(QImage(dir.filePath(QStringLiteral("std.png"))), out);

        // Red and blue with patterns: the pair's mean (85, 0, 85) is nearer
        // to (100, 0, 100) than either colour.
        picture.fill(qRgb(100, 0, 100));
        QVERIFY(picture.save(dir.filePath(QStringLiteral("in.png"))));
        QCOMPARE(image(dir, QStringLiteral("palette in.png pattern.png --palette std.pal --skip-first --patterned")).exitCode, 0);
        out = QImage(dir.filePath(QStringLiteral("pattern.png")));
        QVERIFY(out.pixel(0, 0) == out.pixel(1, 1) && out.pixel(1, 0) == out.pixel(0, 1) && out.pixel(0, 0) != out.pixel(1, 0));
        QVERIFY(QList<QRgb>({qRgb(170, 0, 0), qRgb(0, 0, 170)}).contains(out.pixel(0, 0)));
        for (const char* options : {"--patterned --no-pattern-fill", "--patterned --dither"}) {
            QCOMPARE(image(dir, QStringLiteral("palette in.png mean.png -f --palette std.pal --skip-first ") + QLatin1String(options)).exitCode, 0);
            QCOMPARE(QImage(dir.filePath(QStringLiteral("mean.png"))).pixel(3, 1), qRgb(85, 0, 85));
        }
        QVERIFY(dir.files(QStringList{"twoutput_*"}).isEmpty());
    }

    void font_data()
    {
        QTest::addColumn<QString>("arguments");  // after "font"
        QTest::addColumn<QByteArray>("chartable");
        QTest::addColumn<QString>("warning");
        QTest::addColumn<QSize>("size");
        const QByteArray chartable = "A\t0\nB\t1\n";
        QTest::newRow("wrapped and cut") << "sheet.png chars.txt 4 4 ABBAB out.png --columns 2 --rows 2" << chartable << "" << QSize(8, 8);
        QTest::newRow("one row") << "sheet.png chars.txt 4 4 ABBA out.png --columns 0" << chartable << "" << QSize(16, 4);
        QTest::newRow("unknown character") << "sheet.png chars.txt 4 4 AxB out.png" << chartable << "not in the chartable, left empty: 'x'" << QSize(12, 4);
        QTest::newRow("twice: a warning") << "sheet.png chars.txt 4 4 A out.png" << QByteArray("A\t0\nA\t1\n") << "warning: The character: 'A' in line: 2 is already exist" << QSize(4, 4);
        QTest::newRow("overwrite with -f") << "sheet.png chars.txt 4 4 A old.png -f" << chartable << "" << QSize(4, 4);
    }

    // The picture is as large as the text asks; warnings go to standard error.
    // The tool's refusals are in tst_twtool.
    void font()
    {
        QFETCH(QString, arguments);
        QFETCH(QByteArray, chartable);
        QFETCH(QString, warning);
        TWTest::TempWorkDir dir;
        writeFont(dir, chartable);
        QVERIFY(dir.writeFile(QStringLiteral("old.png"), "keep"));
        const auto result = TWTest::runTool(QStringLiteral("font ") + arguments, dir.path());
        QVERIFY(TWTest::ended(result, 0) && result.err.contains(warning.toUtf8()));
        QTEST(QImage(dir.filePath(arguments.section(u' ', 5, 5))).size(), "size");
    }

    // The text takes its colour even when that is the sheet's background.
    void fontColours()
    {
        TWTest::TempWorkDir dir;
        writeFont(dir);
        const QString arguments = QStringLiteral("font sheet.png chars.txt 4 4 B out.png --color white --background black --transparent 0");
        QVERIFY(TWTest::ended(TWTest::runTool(arguments, dir.path()), 0, "out.png: 4x4, 1 character(s)"));
        const QImage out(dir.filePath(QStringLiteral("out.png")));
        QVERIFY(out.pixel(0, 0) == qRgb(255, 255, 255) && qAlpha(out.pixel(1, 1)) == 0);
    }

    // A full disk and a read-only one: the run fails, says so, and leaves nothing.
    void fullDisk()
    {
        TWTest::Tmpfs full("size=16k"), readOnly("size=16k", MS_RDONLY);
        if (!full.mounted() || !readOnly.mounted())
            return QTest::qSkip("needs root to mount a small tmpfs", __FILE__, __LINE__);
        TWTest::TempWorkDir dir;
        writeFont(dir);
        QImage picture(100, 100, QImage::Format_RGB32);
        picture.fill(qRgb(1, 2, 3));
        QVERIFY(picture.save(dir.filePath(QStringLiteral("in.png"))));
        for (const QString& folder : {full.path(), readOnly.path()}) {
            QVERIFY(TWTest::ended(image(dir, QStringLiteral("palette in.png %1/out.bmp --palette gray4").arg(folder)), 1, "cannot write"));
            const QString font = QStringLiteral("font sheet.png chars.txt 4 4 %1 %2/out.bmp").arg(QString(2000, u'A'), folder);
            QVERIFY(TWTest::ended(TWTest::runTool(font, dir.path()), 1, "cannot write"));
            QVERIFY(QDir(folder).entryList(QDir::Files | QDir::Hidden).isEmpty());
        }
    }
};

QTEST_GUILESS_MAIN(TstTWToolImage)
#include "tst_twtool_image.moc"
