#include "demo.h"
#include "wavfile.h"

#include <twvoiceutils.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QtEndian>

#include <cmath>

using TW::TWVoice;
using TW::TWVoiceUtils;

namespace {

// The pitch of \a count 16-bit samples from \a data on, from the times at
// which the wave rises through zero (placed between samples by interpolation).
double measuredFrequency(const char* data, qsizetype count, int rate)
{
    double first = -1, last = -1;
    int crossings = 0;
    for (qsizetype k = 1; k < count; ++k) {
        const double a = qFromLittleEndian<qint16>(data + 2 * (k - 1));
        const double b = qFromLittleEndian<qint16>(data + 2 * k);
        if (a < 0 && b >= 0) {
            last = double(k - 1) + a / (a - b);
            if (first < 0)
                first = last;
            ++crossings;
        }
    }
    return crossings > 1 ? (crossings - 1) * rate / (last - first) : 0.0;
}

} // namespace

bool demoVoices(DemoContext& context)
{
    const QDir dir(context.stepDir(QStringLiteral("voices")));
    say(QStringLiteral("A voice is one tone: a frequency, a duration and a velocity. TWVoiceUtils reshapes"));
    say(QStringLiteral("lists of voices and renders them as text or as sine-wave samples."));

    // The first line of a nursery tune as MIDI notes, each followed by a short rest.
    const int notes[] = {60, 60, 67, 67, 69, 69, 67, 65, 65, 64, 64, 62, 62, 60};
    QList<TWVoice> tune;
    for (int k = 0; k < int(sizeof(notes) / sizeof(notes[0])); ++k) {
        TWVoice voice;
        voice.frequency = TWVoiceUtils::midiNoteToFrequency(notes[k]);
        voice.duration = k % 7 == 6 ? 0.7 : 0.3;
        voice.velocity = k % 2 ? 90 : 110;
        tune.append(voice);
        voice.frequency = 0;
        voice.duration = 0.05;
        tune.append(voice);
    }
    say(QStringLiteral("The tune: %1 voices (notes and rests), %2 s.")
            .arg(tune.size())
            .arg(TWVoiceUtils::secondsOfVoices(tune), 0, 'f', 2));
    say(QStringLiteral("As text: %1...")
            .arg(TWVoiceUtils::voicesToText(tune.mid(0, 3), QStringLiteral("{c} voices, the first: {f} Hz {d} s {v}; "), false)));
    const QList<TWVoice> cut = TWVoiceUtils::setDurationResolution(tune, 0.12, 0.25);
    say(QStringLiteral("Fitted to durations from 0.12 to 0.25 s: %1 entries (rests dropped, long notes cut).")
            .arg(cut.size()));

    const int rate = 44100;
    double seconds = 0;
    const QByteArray samples = TWVoiceUtils::voicesToAudioSample(tune, rate, 16, true, &seconds);
    const QString path = dir.filePath(QStringLiteral("tune.wav"));
    if (!writeFile(path, Wav::file(samples, rate, 16)))
        return false;

    // Read back from the file: the first tone's pitch as the samples have it.
    QFile file(path);
    const QByteArray wav = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    const qsizetype firstTone = qsizetype(tune.first().duration * rate);
    const bool shaped = wav.size() == 44 + samples.size() && wav.startsWith("RIFF") && wav.mid(36, 4) == "data";
    const double measured = shaped ? measuredFrequency(wav.constData() + 44, firstTone, rate) : 0.0;
    const double asked = tune.first().frequency;
    say(QStringLiteral("Rendered at %1 Hz, 16-bit, velocity as loudness: %2, %3 s, %4 bytes.")
            .arg(rate)
            .arg(QDir(context.outDir).relativeFilePath(path))
            .arg(seconds, 0, 'f', 2)
            .arg(wav.size()));
    say(QStringLiteral("First tone: %1 Hz asked, %2 Hz measured from the file's zero crossings.")
            .arg(asked, 0, 'f', 2)
            .arg(measured, 0, 'f', 2));
    say(QStringLiteral("Play it with any audio player; 'twtool voice render' makes such files from a text list."));
    return shaped && std::abs(measured - asked) < asked * 0.01;
}
