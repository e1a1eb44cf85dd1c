#include "twtestsupport.h"

#include <twutils.h>
#include <twvoiceutils.h>

#include <QtTest/QTest>

#include <cmath>
#include <cstring>
#include <limits>

using TW::TWVoice;
using TW::TWVoiceUtils;

namespace {

// Voices written as "frequency/duration/velocity", separated by blanks.
QList<TWVoice> voices(const QString& text)
{
    QList<TWVoice> out;
    for (const QString& item : text.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        const QStringList f = item.split(QLatin1Char('/'));
        out.append(TWVoice());
        out.last().frequency = f.at(0).toDouble(), out.last().duration = f.at(1).toDouble();
        out.last().velocity = f.at(2).toInt(), out.last().extra = 7.5; // extra rides along untouched
    }
    return out;
}

QString str(const QList<TWVoice>& list)
{
    QStringList out;
    for (const TWVoice& v : list) {
        out << QStringLiteral("%1/%2/%3").arg(v.frequency, 0, 'g', 12).arg(v.duration, 0, 'g', 12).arg(v.velocity);
        if (v.extra != 7.5)
            out << QStringLiteral("extra lost");
    }
    return out.join(QLatin1Char(' '));
}

// Tables written as "source>target", separated by blanks.
std::map<double, double> table(const QString& text)
{
    std::map<double, double> out;
    for (const QString& item : text.split(QLatin1Char(' '), Qt::SkipEmptyParts))
        out.emplace(item.section(QLatin1Char('>'), 0, 0).toDouble(), item.section(QLatin1Char('>'), 1).toDouble());
    return out;
}

// The samples as the rules state them, grown one at a time.
QByteArray referenceSamples(const QList<TWVoice>& list, int rate, int size, bool useVelocity)
{
    QByteArray out;
    for (const TWVoice& v : list) {
        const double count = std::trunc(v.duration * rate);
        const double step = v.frequency * 2.0 * M_PI / rate;
        const double amplitude = useVelocity ? v.velocity / 127.0 : 1.0;
        for (int n = 0; n < count; ++n) {
            const double product = amplitude * std::sin(step * n)
                                   * double(size == 64   ? TWVoiceUtils::TWSSFMUL
                                            : size == 32 ? TWVoiceUtils::TWSS32MUL
                                            : size == 16 ? TWVoiceUtils::TWSS16MUL : TWVoiceUtils::TWSS8MUL);
            const float f = float(product);
            const qint32 i = std::abs(product) < 2147483648.0 ? qint32(product) : std::numeric_limits<qint32>::min();
            out.append(size == 64 ? reinterpret_cast<const char*>(&f) : reinterpret_cast<const char*>(&i),
                       size == 64 || size == 32 ? 4 : size == 16 ? 2 : 1);
        }
    }
    return out;
}

} // namespace

class TstTWVoiceUtils : public QObject
{
    Q_OBJECT

private slots:
    void objectAndConstants()
    {
        QCOMPARE(TWTest::describe(TWVoiceUtils::staticMetaObject), QStringLiteral("TW::TWVoiceUtils : QObject"));
        TWVoiceUtils utils;
        QVERIFY(utils.qt_metacast("TWObject") && utils.name().startsWith(QLatin1String("TWObject")));
        // The 8-bit scale is not pinned by the sample rows: 127 would give the same bytes there.
        QVERIFY(TWVoiceUtils::TWSS8MUL == 127.5f && TWVoiceUtils::TWSSFMUL == std::numeric_limits<float>::max());
        QVERIFY(TWVoiceUtils::midiNoteToFrequency(69.0) == 440.0 && TWVoiceUtils::midiNoteToFrequency(81.0) == 880.0);
        QVERIFY(qAbs(TWVoiceUtils::minFrequency() - 8.1758) < 1e-4 && qAbs(TWVoiceUtils::maxFrequency() - 12543.854) < 1e-3);
    }

    void loadFrequencyTable_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QString>("error"); // %1 is the file name; empty for success
        QTest::newRow("blank lines, blanks, CRLF") << QByteArray("440 - 442.5\r\n\n   \n 100-200 \n") << "100>200 440>442.5" << "";
        QTest::newRow("empty file") << QByteArray() << "" << "";
        QTest::newRow("leading minus is dropped") << QByteArray("-100 - 200") << "100>200" << "";
        QTest::newRow("repeated source keeps the first") << QByteArray("100-1\n100-2\n") << "100>1" << "";
        QTest::newRow("one number") << QByteArray("440\n") << "" << "Invalid format in line: 1! File: '%1'";
        QTest::newRow("three pieces, numbered without blank lines")
            << QByteArray("1-2\n\n   \n3 - 4 - 5\n") << "1>2" << "Invalid format in line: 2! File: '%1'";
        QTest::newRow("minus in an exponent") << QByteArray("1e-3 - 5") << "" << "Invalid format in line: 1! File: '%1'";
        QTest::newRow("no number") << QByteArray("100 - abc") << "" << "Invalid frequnecy value: 'abc' in line: 1! File: '%1'";
        QTest::newRow("blank piece") << QByteArray("1-2\n100 -  - ") << "1>2" << "Invalid frequnecy value: '' in line: 2! File: '%1'";
        QTest::newRow("no file") << QByteArray() << "" << "Couldn't load frequency table file: '%1'!";
    }

    void loadFrequencyTable()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, expected);
        QFETCH(QString, error);
        TWTest::TempWorkDir dir;
        TWTest::RecordingLogger logger; // keeps a failed read off the output
        TW::TWUtils::setLogger(&logger);
        const QString path = dir.filePath(QStringLiteral("table.txt"));
        QVERIFY(error.startsWith(QLatin1String("Couldn't")) || dir.writeFile(QStringLiteral("table.txt"), content));
        std::map<double, double> loaded{{1.0, 1.0}};
        QString errorText = QStringLiteral("kept on success");
        QCOMPARE(TWVoiceUtils::loadFrequencyTable(path, loaded, errorText), error.isEmpty());
        TW::TWUtils::setLogger(nullptr);
        QCOMPARE(errorText, error.isEmpty() ? QStringLiteral("kept on success") : error.arg(path));
        QCOMPARE(loaded, table(expected));
        QVERIFY(!error.startsWith(QLatin1String("Couldn't")) || TW::TWUtils::lastError().startsWith(QLatin1String("Couldn't open")));
    }

    void convertFrequency_data()
    {
        QTest::addColumn<QString>("entries");
        QTest::addColumn<double>("frequency");
        QTest::addColumn<double>("expected");
        const QString four = QStringLiteral("100>1 200>2 300>3 400>4");
        // The whole first interval is the first target; a key from the third
        // on is crossed by interpolation; outside, the nearer end.
        const struct { double f, answer; } cases[] = {{150, 1}, {200, 1}, {250, 2.5}, {300, 3}, {350, 3.5},
                                                      {100, 1}, {50, 1}, {400, 4}, {500, 4}};
        for (const auto& c : cases)
            QTest::addRow("four entries, %g", c.f) << four << c.f << c.answer;
        QTest::newRow("NaN") << four << qQNaN() << 1.0;
        QTest::newRow("two entries, second key") << "100>1 200>2" << 200.0 << 1.0;
        QTest::newRow("two entries, above") << "100>1 200>2" << 300.0 << 2.0;
        QTest::newRow("one entry, above") << "100>7" << 1000.0 << 7.0;
        QTest::newRow("one entry, below") << "100>7" << 5.0 << 7.0;
        QTest::newRow("empty") << "" << 440.0 << 0.0;
    }

    void convertFrequency()
    {
        QFETCH(QString, entries);
        QFETCH(double, frequency);
        QFETCH(double, expected);
        QCOMPARE(TWVoiceUtils::convertFrequency(frequency, table(entries)), expected);
        // The list form changes each frequency alone.
        QList<TWVoice> list = voices("1/0.5/9 1/0.25/2");
        list[0].frequency = frequency;
        QCOMPARE(str(TWVoiceUtils::convertFrequencies(list, table(entries))), QStringLiteral("%1/0.5/9 %2/0.25/2").arg(expected).arg(TWVoiceUtils::convertFrequency(1, table(entries))));
    }

    void addVoiceToVoices_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("voice");
        QTest::addColumn<double>("maxDuration"); // the minimum is 0.1
        QTest::addColumn<int>("answer");
        QTest::addColumn<QString>("after");
        QTest::newRow("under half the minimum: dropped") << "" << "440/0.04/1" << 1.0 << 0 << "";
        QTest::newRow("half the minimum: raised") << "" << "440/0.05/1" << 1.0 << 1 << "440/0.1/1";
        QTest::newRow("cut into pieces") << "" << "440/2.5/1" << 1.0 << 3 << "440/1/1 440/1/1 440/0.5/1";
        QTest::newRow("cut, short rest dropped") << "" << "440/1.04/1" << 1.0 << 1 << "440/1/1";
        QTest::newRow("merged") << "440/0.3/1" << "440/0.3/1" << 1.0 << 0 << "440/0.6/1";
        QTest::newRow("filled, rest appended, counts 2") << "440/0.6/1" << "440/0.6/1" << 1.0 << 2 << "440/1/1 440/0.2/1";
        QTest::newRow("filled exactly, empty rest dropped") << "440/0.6/1" << "440/0.4/1" << 1.0 << 1 << "440/1/1";
        QTest::newRow("other velocity not merged") << "440/0.3/1" << "440/0.3/2" << 1.0 << 1 << "440/0.3/1 440/0.3/2";
        QTest::newRow("full entry not merged") << "440/1/1" << "440/0.3/1" << 1.0 << 1 << "440/1/1 440/0.3/1";
        // Rules that would never end leave the list as it was.
        QTest::newRow("maximum 0") << "440/0.3/1" << "440/0.5/1" << 0.0 << 0 << "440/0.3/1";
        QTest::newRow("negative maximum, zero duration") << "" << "440/0/1" << -1.0 << 0 << "";
        QTest::newRow("duration that a cut cannot shorten, after a merge") << "440/0.5/1" << "440/1e300/1" << 1.0 << 0 << "440/0.5/1";
    }

    void addVoiceToVoices()
    {
        QFETCH(QString, before);
        QFETCH(QString, voice);
        QFETCH(double, maxDuration);
        QFETCH(int, answer);
        QFETCH(QString, after);
        QList<TWVoice> list = voices(before);
        QCOMPARE(TWVoiceUtils::addVoiceToVoices(voices(voice).first(), list, 0.1, maxDuration), answer);
        QCOMPARE(str(list), after);
    }

    // 512 s in pieces of 2^-10 s (exact in binary): half a million pieces, in
    // a loop rather than as deep calls.
    void halfAMillionPieces()
    {
        QList<TWVoice> list;
        QCOMPARE(TWVoiceUtils::addVoiceToVoices(voices("440/512/1").first(), list, 0.0005, 0.0009765625), 524288);
        QCOMPARE(list.size(), 524288);
        QCOMPARE(TWVoiceUtils::secondsOfVoices(list), 512.0);
        QCOMPARE(TWVoiceUtils::setDurationResolution(voices("440/512/1 440/0.0078125/1"), 0.0005, 0.0009765625).size(),
                 524288 + 8);
    }

    void scaleTo_data()
    {
        QTest::addColumn<QString>("targets"); // the six target bounds; the sources are 0-1000 Hz, 0-1 s, 0-127
        QTest::addColumn<QString>("expected");
        QTest::newRow("no group") << "0 0 0 0 0 0" << "440/0.5/64";
        QTest::newRow("frequency") << "0 100 0 0 0 0" << "44/0.5/64";
        QTest::newRow("one bound enables") << "100 0 0 0 0 0" << "56/0.5/64";
        QTest::newRow("duration") << "0 0 1 3 0 0" << "440/2/64";
        QTest::newRow("velocity truncated") << "0 0 0 0 0 10" << "440/0.5/5";
        QTest::newRow("toward zero") << "0 0 0 0 0 -10" << "440/0.5/-5";
        QTest::newRow("all three") << "0 1000 0 2 127 0" << "440/1/63";
    }

    void scaleTo()
    {
        QFETCH(QString, targets);
        QFETCH(QString, expected);
        double t[6];
        for (int k = 0; k < 6; ++k)
            t[k] = targets.section(QLatin1Char(' '), k, k).toDouble();
        const QList<TWVoice> in = voices("440/0.5/64 440/0.5/64");
        const TWVoice one = TWVoiceUtils::scaleTo(in.first(), t[0], t[1], t[2], t[3], t[4], t[5], 0, 1000, 0, 1, 0, 127);
        QCOMPARE(str({one}), expected);
        QCOMPARE(str(TWVoiceUtils::scaleTo(in, t[0], t[1], t[2], t[3], t[4], t[5], 0, 1000, 0, 1, 0, 127)),
                 expected + QLatin1Char(' ') + expected);
    }

    void text_data()
    {
        QTest::addColumn<QString>("list");
        QTest::addColumn<QString>("format");
        QTest::addColumn<bool>("round");
        QTest::addColumn<QString>("expected");
        const QString two = QStringLiteral("440/0.5/100 880/0.25/64");
        QTest::newRow("three decimals") << "440.5/0.25/100" << "{f}/{d}/{v}" << false << "440.500/0.250/100";
        QTest::newRow("rounded") << "440.5/0.25/100" << "{f}/{d}/{v}" << true << "441/0/100";
        QTest::newRow("capitals, repeats") << "440.5/0.25/100" << "{F}{f}/{D}/{V}" << false << "440.500440.500/0.250/100";
        QTest::newRow("head with count") << two << "N={c};{f},{d},{v};" << false << "N=2;440.000,0.500,100;880.000,0.250,64;";
        QTest::newRow("no count: all repeats") << two << "[{f}]" << true << "[440][880]";
        QTest::newRow("empty list") << "" << "[{f}]" << false << "";
        QTest::newRow("empty list with count") << "" << "N={C};{f}" << false << "N=0;";
        QTest::newRow("nothing to replace after the count") << two << "{c} tones" << false << "2 tones tones";
        QTest::newRow("head and rest keep the others") << two << "{f}:{c}|{v}{c}" << false << "{f}:2|100{c}64{c}";
    }

    void text()
    {
        QFETCH(QString, list);
        QFETCH(QString, format);
        QFETCH(bool, round);
        QFETCH(QString, expected);
        QCOMPARE(TWVoiceUtils::voicesToText(voices(list), format, round), expected);
        if (voices(list).size() == 1)
            QCOMPARE(TWVoiceUtils::voiceToText(voices(list).first(), format, round), expected);
    }

    void samples_data()
    {
        QTest::addColumn<QString>("list");
        QTest::addColumn<int>("rate");
        QTest::addColumn<int>("size");
        QTest::addColumn<bool>("useVelocity");
        QTest::addColumn<int>("bytes");
        QTest::addColumn<QByteArray>("hex"); // empty: checked against the reference only
        // At 4 samples a second, 1 Hz gives sine values 0, 1, 0, -1.
        QTest::newRow("16-bit, little-endian") << "1/1/127" << 4 << 16 << false << 8 << QByteArray("0000ff7f00000180");
        QTest::newRow("32-bit peak overflows") << "1/1/127" << 4 << 32 << false << 16
                                               << QByteArray("00000000000000800000000000000080");
        QTest::newRow("8-bit") << "1/1/127" << 4 << 8 << false << 4 << QByteArray("007f0081");
        QTest::newRow("unknown size is 8-bit") << "1/1/127" << 4 << 24 << false << 4 << QByteArray("007f0081");
        QTest::newRow("float") << "1/1/127" << 4 << 64 << false << 16 << QByteArray();
        QTest::newRow("velocity 64") << "1/1/64" << 4 << 16 << true << 8 << QByteArray("00008040000080bf");
        QTest::newRow("velocity 0") << "1/1/0" << 4 << 16 << true << 8 << QByteArray("0000000000000000");
        QTest::newRow("velocity ignored") << "1/1/0" << 4 << 16 << false << 8 << QByteArray("0000ff7f00000180");
        QTest::newRow("frequency 0") << "0/1/127" << 4 << 32 << false << 16 << QByteArray(32, '0');
        QTest::newRow("1 s at 8000") << "440/1/100" << 8000 << 16 << false << 16000 << QByteArray();
        QTest::newRow("too short for a sample") << "440/0.0001/100" << 8000 << 16 << false << 0 << QByteArray();
        QTest::newRow("rate 0") << "440/1/100" << 0 << 16 << false << 0 << QByteArray();
        QTest::newRow("phase restarts per voice")
            << "440/0.01/100 0/0.005/1 523.25/0.0123/50 -5/0.002/127 330/-1/9 440/0.0071/127" << 8000 << 16 << true
            << 2 * (80 + 40 + 98 + 16 + 56) << QByteArray();
        QTest::newRow("float, velocity") << "987.7/0.02/100 440/0.013/127" << 44100 << 64 << true << 4 * (882 + 573) << QByteArray();
    }

    void samples()
    {
        QFETCH(QString, list);
        QFETCH(int, rate);
        QFETCH(int, size);
        QFETCH(bool, useVelocity);
        QFETCH(int, bytes);
        QFETCH(QByteArray, hex);
        double seconds = -1;
        const QByteArray samples = TWVoiceUtils::voicesToAudioSample(voices(list), rate, size, useVelocity, &seconds);
        QCOMPARE(samples.size(), bytes);
        if (!hex.isEmpty())
            QCOMPARE(samples.toHex(), hex);
        QCOMPARE(samples, referenceSamples(voices(list), rate, size, useVelocity));
        QCOMPARE(seconds, TWVoiceUtils::secondsOfVoices(voices(list)));
        QCOMPARE(TWVoiceUtils::voicesToAudioSample(voices(list), rate, size, useVelocity, nullptr), samples);
    }
};

QTEST_GUILESS_MAIN(TstTWVoiceUtils)
#include "tst_twvoiceutils.moc"
