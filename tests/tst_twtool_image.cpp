#include "twimagebuilders.h"
#include "twtestsupport.h"

#include <QtTest/QTest>

#ifdef Q_OS_LINUX
#  include <sys/mount.h>
#  include <unistd.h>
#else
#  define MS_RDONLY 1 // nothing is mounted there
#endif

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

// A tmpfs of 16 KiB on a temporary folder while it lives; mounted for root on Linux only.
struct Tmpfs
{
    QTemporaryDir dir;
    bool mounted = false;
#ifdef Q_OS_LINUX
    explicit Tmpfs(unsigned long flags) { mounted = geteuid() == 0 && ::mount("tmpfs", QFile::encodeName(dir.path()).constData(), "tmpfs", flags, "size=16k") == 0; }
    ~Tmpfs() { if (mounted) ::umount(QFile::encodeName(dir.path()).constData()); }
#else
    explicit Tmpfs(unsigned long) {}
#endif
};

} // namespace

class TstTWToolImage : public QObject
{
    Q_OBJECT

private slots:
    void actions()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("in.tga"), TWTest::tgaFile(sample(), true, false)) && dir.writeFile(QStringLiteral("out.png"), "keep"));
        auto result = image(dir, QStringLiteral("convert in.tga out.png"));
        QVERIFY(result.exitCode == 1 && result.err.contains("-f"));
        QCOMPARE(dir.readFile(QStringLiteral("out.png")), QByteArray("keep"));
        result = image(dir, QStringLiteral("convert -f in.tga out.png"));
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(QImage(dir.filePath(QStringLiteral("out.png"))).convertToFormat(QImage::Format_RGB888), sample());

        result = image(dir, QStringLiteral("info in.tga"));
        QCOMPARE(result.exitCode, 0);
        QVERIFY2(result.out.contains("format:             TGA\nsize:               10x6\ndepth:              24 bits")
                     && result.out.contains("image type:       10"), result.out.constData());

        // Wider than 5 columns: scaled to 5 first; the darkest column has no red and shows as a blank.
        result = image(dir, QStringLiteral("ascii --width 5 --chars abcdefghijkl in.tga"));
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out.split('\n').size(), 4);
        QVERIFY2(result.out.startsWith(" ") && result.out.split('\n').at(0).size() == 5, result.out.constData());

        result = image(dir, QStringLiteral("split in.tga 4 4 tiles"));
        QCOMPARE(result.exitCode, 0);
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
        auto result = image(dir, QStringLiteral("palette in.png plain.png --palette cga"));
        QVERIFY2(result.exitCode == 0 && result.out.contains("16 colours from cga"), result.err.constData());
        QImage out(dir.filePath(QStringLiteral("plain.png")));
        QVERIFY(out.pixel(0, 0) == qRgb(0, 0, 170) && out.pixel(1, 0) == qRgb(170, 0, 0));

        result = image(dir, QStringLiteral("palette in.png std.png --palette std.pal"));
        QVERIFY2(result.exitCode == 0 && result.err.contains("(0, 3, 2) is the file's version and count of 2 colours"), result.err.constData());
        result = image(dir, QStringLiteral("palette in.png std.png --palette std.pal --skip-first -f"));
        QVERIFY2(result.exitCode == 0 && result.out.contains("2 colours from 'std.pal'") && result.err.contains("dropped"), result.err.constData());
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
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message");    // on standard error
        QTest::addColumn<QSize>("size");         // of OUT, when written
        const QByteArray chartable = "A\t0\nB\t1\n";
        QTest::newRow("wrapped and cut") << "sheet.png chars.txt 4 4 ABBAB out.png --columns 2 --rows 2" << chartable << 0 << "" << QSize(8, 8);
        QTest::newRow("one row") << "sheet.png chars.txt 4 4 ABBA out.png --columns 0" << chartable << 0 << "" << QSize(16, 4);
        QTest::newRow("unknown character") << "sheet.png chars.txt 4 4 AxB out.png" << chartable << 0 << "not in the chartable, left empty: 'x'" << QSize(12, 4);
        QTest::newRow("twice: a warning") << "sheet.png chars.txt 4 4 A out.png" << QByteArray("A\t0\nA\t1\n") << 0 << "warning: The character: 'A' in line: 2 is already exist" << QSize(4, 4);
        QTest::newRow("overwrite with -f") << "sheet.png chars.txt 4 4 A old.png -f" << chartable << 0 << "" << QSize(4, 4);
        QTest::newRow("no -f") << "sheet.png chars.txt 4 4 A old.png" << chartable << 1 << "'old.png' exists; use -f" << QSize();
        QTest::newRow("bad chartable") << "sheet.png chars.txt 4 4 A out.png" << QByteArray("A\t0\nB\t7\n") << 1 << "Invalid index: 7 in line: 2! The index must be 0-1" << QSize();
        QTest::newRow("missing sheet") << "absent.png chars.txt 4 4 A out.png" << chartable << 1 << "Couldn't load font bitmap file: 'absent.png'! Couldn't open file" << QSize();
        QTest::newRow("missing chartable") << "sheet.png absent.txt 4 4 A out.png" << chartable << 1 << "Couldn't load chartable file: 'absent.txt'!" << QSize();
        QTest::newRow("cell does not fit") << "sheet.png chars.txt 3 4 A out.png" << chartable << 1 << "Font image size: 8x4 does not fit font size: 3x4!" << QSize();
        QTest::newRow("cell of 0") << "sheet.png chars.txt 0 4 A out.png" << chartable << 2 << "CELLW and CELLH" << QSize();
        QTest::newRow("bad colour") << "sheet.png chars.txt 4 4 A out.png --color nocolour" << chartable << 2 << "--color takes a colour" << QSize();
        QTest::newRow("missing folder") << "sheet.png chars.txt 4 4 A no/out.png" << chartable << 1 << "cannot write 'no/out.png'" << QSize();
        QTest::newRow("too large") << "sheet.png chars.txt 4 4 " + QString(5000, u'A') + " out.png" << chartable << 1 << "more than this tool draws" << QSize();
    }

    // Each run exits with its code and message, and writes OUT only on success.
    void font()
    {
        QFETCH(QString, arguments);
        QFETCH(QByteArray, chartable);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        QFETCH(QSize, size);
        TWTest::TempWorkDir dir;
        writeFont(dir, chartable);
        QVERIFY(dir.writeFile(QStringLiteral("old.png"), "keep"));
        const auto result = TWTest::runTool(QStringLiteral("font ") + arguments, dir.path());
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(result.err.contains(message.toUtf8()), result.err.constData());
        const QString out = arguments.section(u' ', 5, 5);
        if (size.isValid())
            QCOMPARE(QImage(dir.filePath(out)).size(), size);
        else if (!out.isEmpty())
            QVERIFY(out == QLatin1String("old.png") ? dir.readFile(out) == "keep" : !QFile::exists(dir.filePath(out)));
    }

    // The text takes its colour even when that is the sheet's background.
    void fontColours()
    {
        TWTest::TempWorkDir dir;
        writeFont(dir);
        const auto result = TWTest::runTool(QStringLiteral("font sheet.png chars.txt 4 4 B out.png --color white --background black --transparent 0"), dir.path());
        QVERIFY2(result.exitCode == 0 && result.out.contains("out.png: 4x4, 1 character(s)"), result.err.constData());
        const QImage out(dir.filePath(QStringLiteral("out.png")));
        QVERIFY(out.pixel(0, 0) == qRgb(255, 255, 255) && qAlpha(out.pixel(1, 1)) == 0);
    }

    // A full disk and a read-only one: the run fails, says so, and leaves nothing.
    void fullDisk()
    {
        Tmpfs full(0), readOnly(MS_RDONLY);
        if (!full.mounted || !readOnly.mounted)
            return QTest::qSkip("needs root to mount a small tmpfs", __FILE__, __LINE__);
        TWTest::TempWorkDir dir;
        writeFont(dir);
        QImage picture(100, 100, QImage::Format_RGB32);
        picture.fill(qRgb(1, 2, 3));
        QVERIFY(picture.save(dir.filePath(QStringLiteral("in.png"))));
        for (const QString& folder : {full.dir.path(), readOnly.dir.path()}) {
            auto result = image(dir, QStringLiteral("palette in.png %1/out.bmp --palette gray4").arg(folder));
            QVERIFY2(result.exitCode == 1 && result.err.contains("cannot write"), result.err.constData());
            result = TWTest::runTool(QStringLiteral("font sheet.png chars.txt 4 4 %1 %2/out.bmp").arg(QString(2000, u'A'), folder), dir.path());
            QVERIFY2(result.exitCode == 1 && result.err.contains("cannot write"), result.err.constData());
            QVERIFY(QDir(folder).entryList(QDir::Files | QDir::Hidden).isEmpty());
        }
    }

    void refuses_data()
    {
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message");
        QTest::newRow("no action") << "" << 2 << "say convert, info, ascii, split or palette";
        QTest::newRow("unknown action") << "show in.tga" << 2 << "unknown action 'show'";
        QTest::newRow("no OUT") << "convert in.tga" << 2 << "convert takes IN and OUT";
        QTest::newRow("unwritable format") << "convert in.tga out.tga" << 2 << "use one of:";
        QTest::newRow("option of another action") << "info --chars ab in.tga" << 2 << "ascii only";
        QTest::newRow("width of 0") << "ascii --width 0 in.tga" << 2 << "--width";
        QTest::newRow("tile of 0") << "split in.tga 0 4 tiles" << 2 << "above 0";
        QTest::newRow("missing input") << "info absent.tga" << 1 << "Couldn't open file: 'absent.tga'!";
        QTest::newRow("cut TGA") << "convert cut.tga out.png" << 1 << "Couldn't read TGA pixel data! TGA header: IDLength: 0;";
        QTest::newRow("unknown bytes") << "info junk.png" << 1 << "Unsupported image format!";
        QTest::newRow("too many tiles") << "split in.tga 1 1 tiles" << 1 << "more than 10000";
        QTest::newRow("missing folder") << "convert in.tga no/such/out.png" << 1 << "cannot write 'no/such/out.png'";
        QTest::newRow("palette: no --palette") << "palette in.tga out.png" << 2 << "palette needs --palette";
        QTest::newRow("palette: unknown") << "palette in.tga out.png --palette nope" << 1 << "'nope' is neither a palette file nor a built-in palette";
        QTest::newRow("palette: bad file") << "palette in.tga out.png --palette junk.png" << 1 << "File: 'junk.png' is not a RIFF document!";
        QTest::newRow("palette: no colours") << "palette in.tga out.png --palette empty.pal" << 1 << "has no colours";
        QTest::newRow("palette: fill without patterns") << "palette in.tga out.png --palette cga --no-pattern-fill" << 2 << "goes with --patterned";
        QTest::newRow("palette: skip a built-in") << "palette in.tga out.png --palette cga --skip-first" << 2 << "palette files only";
        QTest::newRow("palette: option elsewhere") << "info in.tga --dither" << 2 << "--dither applies to palette only";
        QTest::newRow("palette: missing input") << "palette absent.png out.png --palette cga" << 1 << "Couldn't open file: 'absent.png'!";
        QTest::newRow("palette: cut TGA") << "palette cut.tga out.png --palette bw" << 1 << "Couldn't read TGA pixel data!";
    }

    // Each refusal exits with its code and reason, and leaves the folder as it was.
    void refuses()
    {
        QFETCH(QString, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        TWTest::TempWorkDir dir;
        QImage big(200, 100, QImage::Format_RGB888);
        big.fill(Qt::gray);
        const QByteArray file = TWTest::tgaFile(big, false, false);
        QVERIFY(dir.writeFile(QStringLiteral("in.tga"), file) && dir.writeFile(QStringLiteral("cut.tga"), file.left(1000)));
        QVERIFY(dir.writeFile(QStringLiteral("junk.png"), "not a picture, nor a palette"));
        QVERIFY(dir.writeFile(QStringLiteral("empty.pal"), TWTest::riffPalette(TWTest::riffChunk("data", ""))));
        const QStringList before = dir.files();
        const auto result = image(dir, arguments);
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(result.err.contains(message.toUtf8()), result.err.constData());
        QCOMPARE(dir.files(), before);
    }
};

QTEST_GUILESS_MAIN(TstTWToolImage)
#include "tst_twtool_image.moc"
