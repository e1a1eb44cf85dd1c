#include "twimagebuilders.h"
#include "twtestsupport.h"

#include <twvoiceutils.h>
#include <twzx7.h>

#include <QtCore/QDir>
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

// What every file of \a dir holds, by name.
QMap<QString, QByteArray> contents(const TWTest::TempWorkDir& dir)
{
    QMap<QString, QByteArray> out;
    for (const QString& name : dir.files())
        out.insert(name, dir.readFile(name));
    return out;
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
        QImage grey(200, 100, QImage::Format_RGB888), sheet(8, 4, QImage::Format_RGB32);
        grey.fill(Qt::gray);
        sheet.fill(Qt::black);
        const QByteArray tga = TWTest::tgaFile(grey, false, false);
        QVERIFY(dir.writeFile(QStringLiteral("in.tga"), tga) && dir.writeFile(QStringLiteral("cut.tga"), tga.left(1000)));
        QVERIFY(dir.writeFile(QStringLiteral("junk.png"), "not a picture, nor a palette"));
        QVERIFY(dir.writeFile(QStringLiteral("empty.pal"), TWTest::riffPalette(TWTest::riffChunk("data", ""))));
        QVERIFY(sheet.save(dir.filePath(QStringLiteral("sheet.png"))) && dir.writeFile(QStringLiteral("chars.txt"), "A\t0\nB\t1\n"));
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
};

QTEST_GUILESS_MAIN(TstTWTool)
#include "tst_twtool.moc"
