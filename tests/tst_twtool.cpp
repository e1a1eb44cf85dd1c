#include "twimagebuilders.h"
#include "twtestsupport.h"

#include <twvoiceutils.h>
#include <twzx7.h>

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QRandomGenerator>
#include <QtCore/QSet>
#include <QtTest/QTest>

#include <sys/stat.h>

using TWTest::runTool;

namespace {

const QByteArray sample = QByteArray("Sing a song of sixpence, a pocket full of rye. ").repeated(40);
const QByteArray tones = "# A and its octave\n440 0.5 100\n\nn81 0.25 64  # high A\n";

// \a value as \a bytes little-endian bytes.
QByteArray le(quint32 value, int bytes)
{
    QByteArray out;
    for (int k = 0; k < bytes; ++k)
        out.append(char(value >> (8 * k)));
    return out;
}

// What every file of \a dir holds, by name; folders hold nothing.
QMap<QString, QByteArray> contents(const TWTest::TempWorkDir& dir)
{
    QMap<QString, QByteArray> out;
    for (const QString& name : QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot))
        out.insert(name, dir.readFile(name));
    return out;
}

TWTest::ProcessResult image(const TWTest::TempWorkDir& dir, const QString& arguments)
{
    return TWTest::runTool(QStringLiteral("image ") + arguments, dir.path());
}

// 10 x 6, red rising to the right, so the text of each row is the same.
QImage ramp()
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

// The data of every record in the cache files of \a dir.
QStringList recordData(const QString& dir)
{
    QStringList data;
    for (const QFileInfo& file : QDir(dir).entryInfoList({QStringLiteral("*.cache")}, QDir::Files, QDir::Name)) {
        QFile f(file.filePath());
        if (f.open(QIODevice::ReadOnly))
            for (const QByteArray& line : f.readAll().split('\n'))
                data << QString::fromUtf8(line).section(QStringLiteral("|TWQ|"), 4);
    }
    return data;
}

struct KilledRun
{
    bool killed;
    int exitCode;
    QByteArray out;
};

// Runs twtool and kills it with SIGKILL after \a afterMs unless it ended before.
KilledRun runAndKill(const QStringList& arguments, int afterMs)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(QStringLiteral(TWTOOL_PATH), arguments);
    process.waitForStarted();
    const bool ended = process.waitForFinished(afterMs);
    if (!ended) {
        process.kill();
        process.waitForFinished();
    }
    return {!ended, ended ? process.exitCode() : -1, process.readAllStandardOutput()};
}

QStringList poppedData(const QByteArray& out)
{
    QStringList data;
    for (const QByteArray& line : out.split('\n'))
        if (line.startsWith("data: "))
            data << QString::fromUtf8(line.mid(6));
    return data;
}

} // namespace

// Runs the built twtool as a child process, each time in a fresh folder.
class TstTWTool : public QObject
{
    Q_OBJECT

private slots:
    // Usage, help and every command's refusals, run against one folder of inputs.
    void runs_data()
    {
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("shown"); // on standard output after a success, on standard error otherwise
        QTest::addColumn<QString>("warned"); // on standard error as well
        const auto row = [](const char* name, const QString& arguments, int exitCode, const char* shown, const char* warned = "") {
            QTest::newRow(name) << arguments << exitCode << QString::fromUtf8(shown) << QString::fromUtf8(warned);
        };
        row("no command", "", 2, "Usage: twtool");
        row("tool help", "--help", 0, "Commands:");
        row("version", "--version", 0, "twtool 1.");
        row("unknown command", "frobnicate", 2, "unknown command 'frobnicate'");
        row("log help", "log --help", 0, "Usage: twtool log [options] MESSAGE...");
        row("demo help", "demo --help", 0, "--out <DIR>");
        row("log: unknown option", "log --bogus x", 2, "twtool log: Unknown option 'bogus'.");
        row("log: no message", "log", 2, "no message given");
        row("log: bad level", "log --level loud x", 2, "unknown level 'loud'");
        row("log: number that is no level", "log --level 101 x", 2, "or a number from 0 to 4");
        row("log: bad size", "log --max-size big x", 2, "--max-size takes a number");
        row("log: size 0", "log --max-size 0 x", 2, "a number from 1 to");
        row("log: no suffix", "log --file noext x", 2, "--file needs a name and a suffix");
        row("log: no name", "log --file .hidden x", 2, "--file needs a name and a suffix");

        row("config: str", "config example.ini MainLog.LogFilePath", 0, "myapp.log\n");
        row("config: absent key gives the default", "config example.ini Nope --default x", 0, "x\n");
        row("config: strlist", "config example.ini Worker.RetryDelays --type strlist", 0, "100\n500\n2000\n");
        row("config: bad number warns", "config example.ini MainLog.LogConsoleOutput --type uint --default 7", 0, "7\n",
            "\"false\" is not a valid unsigned integer value! Used value: 7");
        row("config: range", "config example.ini Worker.Ports --type range:uint", 0, "range: yes\n8000\n8010\n");
        row("config: range that does not parse", "config example.ini MainLog.LogAcceptedLevels --type range:int", 1,
            "Value = \"WARNING\"");
        row("config: default that does not fit", "config example.ini Nope --type int --default x", 2, "does not fit");

        row("zx7: no action", "zx7", 2, "compress or decompress");
        row("zx7: unknown action", "zx7 pack packed.zx7", 2, "'pack'");
        row("zx7: no .zx7 and no OUT", "zx7 decompress plain.txt", 2, "give OUT");
        row("zx7: limit on compress", "zx7 compress --max-size 10 plain.txt", 2, "decompress only");
        row("zx7: limit of 0", "zx7 decompress --max-size 0 packed.zx7", 2, "--max-size");
        row("zx7: missing input", "zx7 compress absent", 1, "cannot read 'absent'");
        row("zx7: empty input", "zx7 compress empty", 1, "empty");
        row("zx7: cut stream", "zx7 decompress cut.zx7", 1, "not a complete ZX7 stream");
        row("zx7: over the limit", "zx7 decompress --max-size 100 packed.zx7 out", 1, "more than 100 (see --max-size)");
        row("zx7: FIFO", "zx7 compress fifo out", 1, "'fifo' is not a regular file");
        row("zx7: device", "zx7 decompress /dev/zero out", 1, "'/dev/zero' is not a regular file");

        row("voice: text", "voice text tones.txt N={c};\\n{f},{d},{v};", 0, "N=2;\n440.000,0.500,100;880.000,0.250,64;\n");
        row("voice: no action", "voice", 2, "say render or text");
        row("voice: bits", "voice render tones.txt x.wav --bits 24", 2, "--bits takes 8, 16, 32 or float");
        row("voice: min alone", "voice render tones.txt x.wav --min 0.1", 2, "go together");
        row("voice: missing tones", "voice render absent.txt x.wav", 1, "Couldn't open file: 'absent.txt'!");
        row("voice: bad line", "voice render bad.txt x.wav", 1, "bad.txt:3: 'loud' is no velocity");
        row("voice: bad table", "voice render tones.txt x.wav --table bad.txt", 1, "Invalid format in line: 1! File: 'bad.txt'");
        row("voice: missing table", "voice text tones.txt {f} --table absent.txt", 1,
            "Couldn't load frequency table file: 'absent.txt'! Couldn't open file");
        row("voice: over 4 GiB", "voice render long.txt x.wav", 1, "more than a WAV file holds");

        row("image: no action", "image", 2, "say convert, info, ascii, split or palette");
        row("image: unknown action", "image show in.tga", 2, "unknown action 'show'");
        row("image: no OUT", "image convert in.tga", 2, "convert takes IN and OUT");
        row("image: unwritable format", "image convert in.tga out.tga", 2, "use one of:");
        row("image: option of another action", "image info --chars ab in.tga", 2, "ascii only");
        row("image: width of 0", "image ascii --width 0 in.tga", 2, "--width");
        row("image: tile of 0", "image split in.tga 0 4 tiles", 2, "above 0");
        row("image: missing input", "image info absent.tga", 1, "Couldn't open file: 'absent.tga'!");
        row("image: cut TGA", "image convert cut.tga out.png", 1, "Couldn't read TGA pixel data! TGA header: IDLength: 0;");
        row("image: unknown bytes", "image info junk.png", 1, "Unsupported image format!");
        row("image: too many tiles", "image split in.tga 1 1 tiles", 1, "more than 10000");
        row("image: missing folder", "image convert in.tga no/such/out.png", 1, "cannot write 'no/such/out.png'");
        row("palette: no --palette", "image palette in.tga out.png", 2, "palette needs --palette");
        row("palette: unknown", "image palette in.tga out.png --palette nope", 1, "'nope' is neither a palette file nor a built-in palette");
        row("palette: bad file", "image palette in.tga out.png --palette junk.png", 1, "File: 'junk.png' is not a RIFF document!");
        row("palette: no colours", "image palette in.tga out.png --palette empty.pal", 1, "has no colours");
        row("palette: fill without patterns", "image palette in.tga out.png --palette cga --no-pattern-fill", 2, "goes with --patterned");
        row("palette: skip a built-in", "image palette in.tga out.png --palette cga --skip-first", 2, "palette files only");
        row("palette: option elsewhere", "image info in.tga --dither", 2, "--dither applies to palette only");
        row("palette: cut TGA", "image palette cut.tga out.png --palette bw", 1, "Couldn't read TGA pixel data!");

        // A queue folder that is a file or is missing: nothing is made.
        row("queue: push to a file", "queue push plain.txt x", 1, "'plain.txt' is not a folder.");
        row("queue: pop from a file", "queue pop plain.txt", 1, "'plain.txt' is not a folder.");
        row("queue: count a file", "queue count plain.txt", 1, "'plain.txt' is not a folder.");
        row("queue: pop from nowhere", "queue pop missing", 1, "no folder missing.");
        row("queue: count nowhere", "queue count missing", 1, "no folder missing.");

        const QString font = QStringLiteral("font sheet.png chars.txt ");
        row("font: no -f", font + "4 4 A old.png", 1, "'old.png' exists; use -f");
        row("font: bad chartable", "font sheet.png badchars.txt 4 4 A out.png", 1, "Invalid index: 7 in line: 2! The index must be 0-1");
        row("font: missing sheet", "font absent.png chars.txt 4 4 A out.png", 1, "Couldn't load font bitmap file: 'absent.png'! Couldn't open file");
        row("font: missing chartable", "font sheet.png absent.txt 4 4 A out.png", 1, "Couldn't load chartable file: 'absent.txt'!");
        row("font: cell does not fit", font + "3 4 A out.png", 1, "Font image size: 8x4 does not fit font size: 3x4!");
        row("font: cell of 0", font + "0 4 A out.png", 2, "CELLW and CELLH");
        row("font: bad colour", font + "4 4 A out.png --color nocolour", 2, "--color takes a colour");
        row("font: missing folder", font + "4 4 A no/out.png", 1, "cannot write 'no/out.png'");
        row("font: too large", font + "4 4 " + QString(5000, u'A') + " out.png", 1, "more than this tool draws");
    }

    // Each run exits with its code and texts, and leaves the folder as it was.
    void runs()
    {
        QFETCH(QString, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, shown);
        QFETCH(QString, warned);
        TWTest::TempWorkDir dir;
        const QByteArray packed = TW::TWZX7::compress(sample, 0);
        QVERIFY(dir.writeFile(QStringLiteral("plain.txt"), sample) && dir.writeFile(QStringLiteral("packed.zx7"), packed));
        QVERIFY(dir.writeFile(QStringLiteral("cut.zx7"), packed.left(packed.size() / 2)) && dir.writeFile(QStringLiteral("empty")));
        QVERIFY(::mkfifo("fifo", 0600) == 0);
        QVERIFY(dir.writeFile(QStringLiteral("tones.txt"), tones));
        QVERIFY(dir.writeFile(QStringLiteral("long.txt"), "440 50000 1") && dir.writeFile(QStringLiteral("bad.txt"), "# comment\n440 1 100\nn60 1 loud\n"));
        QImage grey(200, 100, QImage::Format_RGB888);
        grey.fill(Qt::gray);
        const QByteArray tga = TWTest::tgaFile(grey, false, false);
        QVERIFY(dir.writeFile(QStringLiteral("in.tga"), tga) && dir.writeFile(QStringLiteral("cut.tga"), tga.left(1000)));
        QVERIFY(dir.writeFile(QStringLiteral("junk.png"), "not a picture, nor a palette"));
        QVERIFY(dir.writeFile(QStringLiteral("empty.pal"), TWTest::riffPalette(TWTest::riffChunk("data", ""))));
        writeFont(dir);
        QVERIFY(dir.writeFile(QStringLiteral("badchars.txt"), "A\t0\nB\t7\n"));
        QVERIFY(dir.writeFile(QStringLiteral("old.png"), "keep") && QFile::copy(QStringLiteral(TW_EXAMPLE_INI), QStringLiteral("example.ini")));
        const auto before = contents(dir);
        const auto result = runTool(arguments, dir.path());
        QVERIFY(TWTest::ended(result, exitCode, shown.toUtf8()));
        QVERIFY2(result.err.contains(warned.toUtf8()), result.err.constData());
        QVERIFY(contents(dir) == before);
    }

    void logWritesNumberedFiles()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(QDir().mkdir(QStringLiteral("logs")));
        auto result = runTool(QStringLiteral("log --dir logs --file app.log --max-size 1000 first second third"), dir.path());
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray("first\nsecond\nthird\n"));
        // Lines of about 640 bytes against a limit of 1000: two lines in the first file.
        QCOMPARE(QDir(QStringLiteral("logs")).entryList(QDir::Files), QStringList({"app_0000.log", "app_0001.log"}));
        QVERIFY(dir.readFile(QStringLiteral("logs/app_0001.log")).contains("INFO     - third "));

        // A second run, in that folder, continues the newest file quietly at the level asked.
        result = runTool(QStringLiteral("log --quiet --level debug --file app.log details"), dir.filePath(QStringLiteral("logs")));
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray());
        const QByteArray second = dir.readFile(QStringLiteral("logs/app_0001.log"));
        QVERIFY(second.count("\r\n") == 2 && second.contains("DEBUG    - details "));
        QVERIFY(TWTest::ended(runTool(QStringLiteral("log --quiet --dir missing lost"), dir.path()), 1, "1 of 1 lines could not be written"));
    }

    // The file turns the echo off and keeps warnings only; a separator of its
    // own makes each start begin a new number.
    void logWithConfig()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(QDir().mkdir(QStringLiteral("logs")));
        QVERIFY(dir.writeFile(QStringLiteral("t.ini"), "T.LogFilePath = logs/t.log\nT.LogLineEndSeparator = |\n"
                                                       "T.LogConsoleOutput = false\nT.LogAcceptedLevels = WARNING\n"));
        QVERIFY(TWTest::ended(runTool(QStringLiteral("log --config t.ini --name T --level warning kept"), dir.path()), 0, ""));
        QCOMPARE(runTool(QStringLiteral("log --config t.ini --name T dropped"), dir.path()).out, QByteArray());
        QCOMPARE(QDir(QStringLiteral("logs")).entryList(QDir::Files), QStringList({"t_0000.log", "t_0001.log"}));
        QVERIFY(dir.readFile(QStringLiteral("logs/t_0000.log")).contains("WARNING  - kept"));
        QCOMPARE(dir.readFile(QStringLiteral("logs/t_0001.log")), QByteArray());
        QVERIFY(TWTest::ended(runTool(QStringLiteral("log --config none.ini x"), dir.path()), 1, "Config file not found!"));
    }

    void demoRunsTheTour()
    {
        TWTest::TempWorkDir dir;
        const auto result = runTool(QStringLiteral("demo --out tour"), dir.path());
        QVERIFY(TWTest::ended(result, 0, "Tour done"));
        QVERIFY(!result.out.contains("!!"));
        QVERIFY(QFile::exists(QStringLiteral("tour/objects/twoutput_0000.log")));
        QCOMPARE(dir.files(), QStringList()); // the logs stay in the tour's folder
        QCOMPARE(QDir(QStringLiteral("tour")).entryList({QStringLiteral("twoutput*")}, QDir::Files), QStringList()); // nothing strays
    }

    // Default names both ways, an existing output kept without -f, a limit
    // that the data just fits, and bytes after the end marker passed over with
    // a warning.
    void zx7RoundTrip()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("song.txt"), sample) && dir.writeFile(QStringLiteral("song.txt.zx7"), "keep"));
        QVERIFY(TWTest::ended(runTool(QStringLiteral("zx7 compress song.txt"), dir.path()), 1, "-f"));
        QCOMPARE(dir.readFile(QStringLiteral("song.txt.zx7")), QByteArray("keep"));

        const QByteArray packed = TW::TWZX7::compress(sample, 0);
        const QByteArray sizes = QByteArray::number(sample.size()) + " -> " + QByteArray::number(packed.size());
        QVERIFY(TWTest::ended(runTool(QStringLiteral("zx7 compress -f song.txt"), dir.path()), 0, sizes));
        QCOMPARE(dir.readFile(QStringLiteral("song.txt.zx7")), packed);

        QVERIFY(QFile::remove(dir.filePath(QStringLiteral("song.txt"))));
        QVERIFY(TWTest::ended(runTool(QStringLiteral("zx7 decompress song.txt.zx7"), dir.path()), 0));
        QCOMPARE(dir.readFile(QStringLiteral("song.txt")), sample);
        QVERIFY(dir.writeFile(QStringLiteral("tail.zx7"), packed + "tail"));
        const auto result = runTool(QStringLiteral("zx7 decompress --max-size %1 tail.zx7 copy.txt").arg(sample.size()), dir.path());
        QVERIFY(TWTest::ended(result, 0) && result.err.contains("has 4 byte(s) after the end of its stream"));
        QCOMPARE(dir.readFile(QStringLiteral("copy.txt")), sample);
    }

    // Under a cap on the address space, too large a job says "out of memory"
    // and writes nothing, rather than crash.
    void zx7OutOfMemory()
    {
#if defined(TW_SANITIZED) || !defined(Q_OS_LINUX)
        QTest::qSkip("needs Linux and no sanitizer (which reserves its own address space)", __FILE__, __LINE__);
#else
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("big"), QByteArray(40 << 20, 'a'))); // compress reserves about 5 bytes a byte
        // A stream of one literal and 40000 copies of 65536 bytes: 2.5 GB.
        QByteArray huge("A");
        for (int i = 0; i < 40000; ++i)
            huge += QByteArray::fromHex("8000ffff00");
        huge += QByteArray::fromHex("800040");
        QVERIFY(dir.writeFile(QStringLiteral("huge.zx7"), huge));
        for (const char* arguments : {"compress big", "decompress --max-size 4000000000 huge.zx7"}) {
            const auto result = TWTest::runProcess(QStringLiteral("/bin/sh"), {QStringLiteral("-c"),
                QStringLiteral("ulimit -v 250000 && exec \"$0\" zx7 %1").arg(QLatin1String(arguments)), QStringLiteral(TWTOOL_PATH)}, dir.path());
            QVERIFY(TWTest::ended(result, 1, "out of memory"));
        }
        QCOMPARE(dir.files(), QStringList({"big", "huge.zx7"}));
#endif
    }

    void voiceRender_data()
    {
        QTest::addColumn<QString>("bits");
        for (const char* bits : {"16", "8", "32", "float"})
            QTest::newRow(bits) << QString::fromLatin1(bits);
    }

    // The whole file, byte for byte: the header a player expects, then the
    // library's samples. Nothing else is left behind.
    void voiceRender()
    {
        QFETCH(QString, bits);
        const int sampleSize = bits == QLatin1String("float") ? 64 : bits.toInt(), format = sampleSize == 64 ? 3 : 1;
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("tones.txt"), tones) && dir.writeFile(QStringLiteral("out.wav"), "old"));
        QVERIFY(TWTest::ended(runTool(QStringLiteral("voice render tones.txt out.wav --rate 22050 --bits ") + bits, dir.path()), 1, "-f"));
        QCOMPARE(dir.readFile(QStringLiteral("out.wav")), QByteArray("old"));
        QVERIFY(TWTest::ended(runTool(QStringLiteral("voice render -f tones.txt out.wav --rate 22050 --bits ") + bits, dir.path()), 0, "2 tone(s), 0.750 s"));
        QCOMPARE(dir.files(), QStringList({"out.wav", "tones.txt"}));

        TW::TWVoice a, high;
        a.frequency = 440, a.duration = 0.5, high.frequency = 880, high.duration = 0.25;
        const float floatScale = TW::TWVoiceUtils::TWSSFMUL;
        TW::TWVoiceUtils::TWSSFMUL = 1.0f; // the tool writes float samples from -1 to 1, as players expect
        QByteArray samples = TW::TWVoiceUtils::voicesToAudioSample({a, high}, 22050, sampleSize, false, nullptr);
        TW::TWVoiceUtils::TWSSFMUL = floatScale;
        for (char& c : samples)
            c = sampleSize == 8 ? char(c ^ 0x80) : c; // WAV's 8-bit samples are unsigned
        const quint32 width = sampleSize == 64 ? 4 : quint32(sampleSize / 8);
        QByteArray fmt = le(quint32(format), 2) + le(1, 2) + le(22050, 4) + le(22050 * width, 4) + le(width, 2) + le(8 * width, 2);
        // Float takes the longer fmt chunk (with an empty extension) and a fact chunk that counts the samples.
        fmt = format == 3 ? le(18, 4) + fmt + le(0, 2) + "fact" + le(4, 4) + le(11025 + 5512, 4) : le(16, 4) + fmt;
        const QByteArray body = "WAVE" "fmt " + fmt + "data" + le(quint32(samples.size()), 4) + samples + QByteArray(samples.size() & 1, '\0');
        QCOMPARE(dir.readFile(QStringLiteral("out.wav")), "RIFF" + le(quint32(body.size()), 4) + body);
    }

    void imageActions()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("in.tga"), TWTest::tgaFile(ramp(), true, false)) && dir.writeFile(QStringLiteral("out.png"), "keep"));
        QVERIFY(TWTest::ended(image(dir, QStringLiteral("convert in.tga out.png")), 1, "-f"));
        QCOMPARE(dir.readFile(QStringLiteral("out.png")), QByteArray("keep"));
        QVERIFY(TWTest::ended(image(dir, QStringLiteral("convert -f in.tga out.png")), 0));
        QCOMPARE(QImage(dir.filePath(QStringLiteral("out.png"))).convertToFormat(QImage::Format_RGB888), ramp());
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
    void imagePalette()
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

    // Pops keep the order of a push of twelve, whose files (of ten and two)
    // share their time stamps, while the rest of each file is written back;
    // --keep and count change nothing; nothing is left in the folders.
    void queuePushPopCount()
    {
        TWTest::TempWorkDir dir;
        const auto queue = [&dir](const QString& arguments) { return runTool(QStringLiteral("queue ") + arguments, dir.path()); };
        QStringList items;
        for (int i = 1; i <= 12; ++i)
            items << QStringLiteral("item-%1").arg(i);
        QCOMPARE(queue(QStringLiteral("push q --kind k ") + items.join(u' ')).out, QByteArray("queued 12 item(s)\n"));
        QCOMPARE(queue(QStringLiteral("push q last")).out, QByteArray("queued 1 item(s)\n"));
        items << QStringLiteral("last");
        const QStringList before = QDir(QStringLiteral("q")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
        QCOMPARE(queue(QStringLiteral("count q")).out, QByteArray("in cache files: 13 record(s) in 3 file(s)\nreachable by pop: 13 record(s)\n"));
        const QByteArray kept = queue(QStringLiteral("pop q --keep")).out;
        QVERIFY(kept.contains("kind: k\n") && kept.contains("data: item-1\n"));
        QCOMPARE(QDir(QStringLiteral("q")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), before);

        QStringList popped;
        for (int i = 0; i < 13; ++i) {
            const auto result = queue(QStringLiteral("pop q"));
            QCOMPARE(result.exitCode, 0);
            popped += poppedData(result.out);
        }
        QCOMPARE(popped, items);
        QVERIFY(TWTest::ended(queue(QStringLiteral("pop q")), 1, "no item is reachable"));
        QCOMPARE(QDir(QStringLiteral("q")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
        QCOMPARE(queue(QStringLiteral("push q a|TWQ|b")).exitCode, 2);
        QCOMPARE(dir.files(), QStringList()); // no log file in the current folder

        QVERIFY(TWTest::ended(queue(QStringLiteral("demo --items 300 --bound 10 --dir d")), 0,
                              "each item settled at most once: yes; every item settled or in the read-ahead batch: yes"));
        QCOMPARE(QDir(QStringLiteral("d")).entryList(QDir::Files), QStringList());
    }

    void queueBlocked_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QByteArray>("problem");
        QTest::addColumn<int>("pops");
        QTest::addColumn<QByteArray>("countAfter");
        QTest::newRow("garbage line") << QByteArray("{a}|TWQ|1|TWQ|k|TWQ|n|TWQ|one\ngarbage\n") << QByteArray("line 2 is no ") << 0
                                      << QByteArray("in cache files: 1 record(s) in 1 file(s)\nreachable by pop: 0 record(s)\n");
        QTest::newRow("empty id") << QByteArray("{a}|TWQ|1|TWQ|k|TWQ|n|TWQ|one\n |TWQ|2|TWQ|k|TWQ|n|TWQ|two")
                                  << QByteArray("is a record with an empty id") << 1
                                  << QByteArray("in cache files: 1 record(s) in 1 file(s)\nreachable by pop: 0 record(s)\n");
    }

    // count names the line that blocks the queue; pop stops there and loses nothing.
    void queueBlocked()
    {
        QFETCH(QByteArray, content);
        QFETCH(QByteArray, problem);
        QFETCH(int, pops);
        TWTest::TempWorkDir dir;
        QVERIFY(QDir().mkdir(QStringLiteral("q")) && dir.writeFile(QStringLiteral("q/20200101000000000_20200101000000000_000.cache"), content));
        QVERIFY(TWTest::ended(runTool(QStringLiteral("queue count q"), dir.path()), 1, problem));
        for (int i = 0; i < pops; ++i)
            QCOMPARE(runTool(QStringLiteral("queue pop q"), dir.path()).out.contains("data: one"), true);
        QVERIFY(TWTest::ended(runTool(QStringLiteral("queue pop q"), dir.path()), 1, problem.left(9)));
        QTEST(runTool(QStringLiteral("queue count q"), dir.path()).out, "countAfter");
    }

    // Pushes of three items and pops, each killed at a random moment of its
    // run: every item whose push said "queued" was printed or is still queued.
    void killLoopLosesNothing()
    {
        TWTest::TempWorkDir dir;
        const QString q = dir.filePath(QStringLiteral("q"));
        // Kills fall anywhere in a run: up to a little more than one took
        // (twice for a pop, which also clears what killed pushes leave).
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(runTool(QStringLiteral("queue push %1 early-a early-b early-c").arg(q), dir.path()).exitCode, 0);
        const int pushSpan = int(timer.restart() * 6 / 5) + 2;
        const QStringList first = poppedData(runTool(QStringLiteral("queue pop %1").arg(q), dir.path()).out);
        const int popSpan = int(timer.elapsed() * 2) + 2;
        QSet<QString> acknowledged{QStringLiteral("early-a"), QStringLiteral("early-b"), QStringLiteral("early-c")};
        QSet<QString> popped(first.cbegin(), first.cend());
        QRandomGenerator rng(15);
        int kills = 0;
        for (int i = 0; i < 40; ++i) {
            const QStringList items{QStringLiteral("item-%1-a").arg(i), QStringLiteral("item-%1-b").arg(i), QStringLiteral("item-%1-c").arg(i)};
            const KilledRun push = runAndKill(QStringList{QStringLiteral("queue"), QStringLiteral("push"), q} + items, rng.bounded(pushSpan));
            kills += push.killed;
            if (push.exitCode == 0 && push.out == "queued 3 item(s)\n")
                acknowledged += QSet<QString>(items.cbegin(), items.cend());
            if (i % 2) {
                const KilledRun pop = runAndKill({QStringLiteral("queue"), QStringLiteral("pop"), q}, rng.bounded(popSpan));
                kills += pop.killed;
                for (const QString& data : poppedData(pop.out))
                    popped += data;
            }
        }
        qInfo("%d of 60 runs killed; %d items acknowledged, %d popped", kills, int(acknowledged.size()), int(popped.size()));
        QVERIFY(kills >= 20);
        // What the pops did not print is still in the files, whole.
        QVERIFY(TWTest::ended(runTool(QStringLiteral("queue count %1").arg(q), dir.path()), 0));
        const QStringList left = recordData(q);
        QCOMPARE(acknowledged - popped - QSet<QString>(left.cbegin(), left.cend()), QSet<QString>());
    }

    // On a full file system a queue push fails, says so, and leaves no record
    // behind, whole or cut; log reports a line that is lost or cut short (and
    // takes the cut part back out); a lone record can still be popped. On a
    // full disk and a read-only one, the image commands fail and leave nothing.
    void fullDisk()
    {
        TWTest::Tmpfs disk("size=64k"), full("size=16k"), readOnly("size=16k", MS_RDONLY);
        if (!disk.mounted() || !full.mounted() || !readOnly.mounted())
            return QTest::qSkip("needs root to mount a small tmpfs", __FILE__, __LINE__);
        const QString q = disk.path() + QStringLiteral("/q");
        QStringList acknowledged;
        int failures = 0;
        for (int i = 0; i < 200 && failures < 5; ++i) {
            const QString item = QStringLiteral("item-%1-").arg(i, 3, 10, QLatin1Char('0')) + QStringLiteral("x").repeated(300);
            const auto push = runTool(QStringLiteral("queue push %1 %2").arg(q, item), disk.path());
            if (push.exitCode == 0 && push.out == "queued 1 item(s)\n") {
                acknowledged << item;
                continue;
            }
            ++failures;
            QVERIFY(TWTest::ended(push, 1, "nothing was queued") && push.out.isEmpty());
        }
        QCOMPARE(failures, 5);
        QCOMPARE(recordData(q), acknowledged);
        const QString logs = QStringLiteral("log --quiet --dir %1/logs ").arg(disk.path());
        QVERIFY(QDir().mkdir(disk.path() + QStringLiteral("/logs")));
        QVERIFY(TWTest::ended(runTool(logs + QStringLiteral("line"), disk.path()), 1, "1 of 1 lines could not be written"));

        // The pop frees the page that the first line takes; the long line then fills what is left of it.
        QVERIFY(runTool(QStringLiteral("queue pop %1").arg(q), disk.path()).out.contains(acknowledged.first().toUtf8()));
        const QString lines = QStringLiteral("first %1 last").arg(QStringLiteral("y").repeated(5000));
        QVERIFY(TWTest::ended(runTool(logs + lines, disk.path()), 1, "1 of 3 lines could not be written"));
        QFile log(disk.path() + QStringLiteral("/logs/twoutput_0000.log"));
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QByteArray content = log.readAll();
        QVERIFY(content.count("\r\n") == 2 && content.contains("INFO     - last ") && !content.contains('y'));

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
        const auto result = runTool(QStringLiteral("queue push %1 x").arg(readOnly.path()), dir.path());
        QVERIFY(TWTest::ended(result, 1, "cannot write in") && result.out.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TstTWTool)
#include "tst_twtool.moc"
