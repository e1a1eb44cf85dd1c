#include "twtestsupport.h"

#include <twvoiceutils.h>

#include <QtTest/QTest>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

TWTest::ProcessResult voice(const TWTest::TempWorkDir& dir, const QString& arguments)
{
    return TWTest::runTool(QStringLiteral("voice ") + arguments, dir.path());
}

const QByteArray tones = "# A and its octave\n440 0.5 100\n\nn81 0.25 64  # high A\n";

// Little-endian fields of a file read with the standard library alone.
struct Bytes
{
    std::vector<unsigned char> b;
    uint32_t u32(size_t at) const { return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | uint32_t(b[at + 3]) << 24; }
    uint16_t u16(size_t at) const { return uint16_t(b[at] | b[at + 1] << 8); }
    std::string tag(size_t at) const { return std::string(b.begin() + long(at), b.begin() + long(at) + 4); }
};

} // namespace

class TstTWToolVoice : public QObject
{
    Q_OBJECT

private slots:
    void render_data()
    {
        QTest::addColumn<QString>("bits");
        QTest::addColumn<int>("format");
        QTest::addColumn<int>("sampleSize");
        QTest::newRow("16") << "16" << 1 << 16;
        QTest::newRow("8, unsigned") << "8" << 1 << 8;
        QTest::newRow("32") << "32" << 1 << 32;
        QTest::newRow("float") << "float" << 3 << 64;
    }

    // The file read back by plain code: header fields and samples as the
    // library renders them. Nothing else is left behind.
    void render()
    {
        QFETCH(QString, bits);
        QFETCH(int, format);
        QFETCH(int, sampleSize);
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("tones.txt"), tones) && dir.writeFile(QStringLiteral("out.wav"), "old"));
        QVERIFY(TWTest::ended(voice(dir, QStringLiteral("render tones.txt out.wav --rate 22050 --bits ") + bits), 1, "-f"));
        QCOMPARE(dir.readFile(QStringLiteral("out.wav")), QByteArray("old"));
        QVERIFY(TWTest::ended(voice(dir, QStringLiteral("render -f tones.txt out.wav --rate 22050 --bits ") + bits), 0, "2 tone(s), 0.750 s"));
        QCOMPARE(dir.files(), QStringList({"out.wav", "tones.txt"}));

        std::ifstream in(dir.filePath(QStringLiteral("out.wav")).toStdString(), std::ios::binary);
        const Bytes wav{std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {})};
        const uint32_t bytes = sampleSize == 64 ? 4 : uint32_t(sampleSize / 8);
        const size_t data = format == 3 ? 50 : 36; // float has an 18-byte fmt chunk and a fact chunk
        const uint32_t dataSize = (11025 + 5512) * bytes;
        QVERIFY(wav.b.size() == data + 8 + dataSize + (dataSize & 1));
        QVERIFY(wav.tag(0) == "RIFF" && wav.u32(4) == wav.b.size() - 8 && wav.tag(8) == "WAVE" && wav.tag(12) == "fmt ");
        QCOMPARE(wav.u32(16), format == 3 ? 18u : 16u);
        QCOMPARE(wav.u16(20), format);
        QVERIFY(wav.u16(22) == 1 && wav.u32(24) == 22050 && wav.u32(28) == 22050 * bytes && wav.u16(32) == bytes);
        QCOMPARE(wav.u16(34), 8 * bytes);
        if (format == 3)
            QVERIFY(wav.tag(38) == "fact" && wav.u32(42) == 4 && wav.u32(46) == 11025 + 5512);
        QVERIFY(wav.tag(data) == "data" && wav.u32(data + 4) == dataSize);

        TW::TWVoice a, high;
        a.frequency = 440, a.duration = 0.5, high.frequency = 880, high.duration = 0.25;
        const float floatScale = TW::TWVoiceUtils::TWSSFMUL;
        TW::TWVoiceUtils::TWSSFMUL = 1.0f; // the tool writes float samples from -1 to 1, as players expect
        QByteArray expected = TW::TWVoiceUtils::voicesToAudioSample({a, high}, 22050, sampleSize, false, nullptr);
        TW::TWVoiceUtils::TWSSFMUL = floatScale;
        for (char& c : expected)
            c = sampleSize == 8 ? char(c ^ 0x80) : c; // WAV's 8-bit samples are unsigned
        QVERIFY(std::memcmp(wav.b.data() + data + 8, expected.constData(), dataSize) == 0);
    }
};

QTEST_GUILESS_MAIN(TstTWToolVoice)
#include "tst_twtool_voice.moc"
