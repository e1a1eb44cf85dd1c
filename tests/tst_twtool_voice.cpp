#include "twtestsupport.h"

#include <twvoiceutils.h>

#include <QtTest/QTest>

namespace {

TWTest::ProcessResult voice(const TWTest::TempWorkDir& dir, const QString& arguments)
{
    return TWTest::runTool(QStringLiteral("voice ") + arguments, dir.path());
}

const QByteArray tones = "# A and its octave\n440 0.5 100\n\nn81 0.25 64  # high A\n";

// \a value as \a bytes little-endian bytes.
QByteArray le(quint32 value, int bytes)
{
    QByteArray out;
    for (int k = 0; k < bytes; ++k)
        out.append(char(value >> (8 * k)));
    return out;
}

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

    // The whole file, byte for byte: the header a player expects, then the
    // library's samples. Nothing else is left behind.
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

QTEST_GUILESS_MAIN(TstTWToolVoice)
#include "tst_twtool_voice.moc"
