#include "twvoiceutils.h"

#include "twutils.h"

#include <QtCore/qmath.h>

#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>
#include <type_traits>

namespace TW {

float TWVoiceUtils::TWSS8MUL = 127.5f;
float TWVoiceUtils::TWSS16MUL = 32767.0f;
float TWVoiceUtils::TWSS32MUL = 2147483648.0f;
float TWVoiceUtils::TWSSFMUL = std::numeric_limits<float>::max();

namespace {

// Truncation toward zero to 32 bits. Values that do not fit, NaN included,
// give the most negative value, which is what the processor's own conversion
// gives; the full-scale 32-bit peak relies on it.
inline qint32 truncToInt32(double value)
{
    if (value > -2147483649.0 && value < 2147483648.0)
        return qint32(value);
    return std::numeric_limits<qint32>::min();
}

// qRound, with the same out-of-range answer as truncToInt32.
inline int roundToInt(double value)
{
    if (value > -2147483648.5 && value < 2147483647.5)
        return qRound(value);
    return std::numeric_limits<int>::min();
}

// Samples of one voice, written from \a out on; answers the end. \a scale is
// the public factor itself, read again for every sample, as a host may have
// changed it between two renderings.
template<typename Sample>
char* renderVoice(char* out, qint32 count, double step, double amplitude, const float& scale)
{
    for (qint32 n = 0; n < count; ++n) {
        const double value = amplitude * std::sin(step * n);
        const double product = value * double(scale);
        Sample sample;
        if constexpr (std::is_same_v<Sample, float>)
            sample = float(product);
        else
            sample = Sample(truncToInt32(product)); // keeps the low bytes
        std::memcpy(out, &sample, sizeof(Sample));
        out += sizeof(Sample);
    }
    return out;
}

} // namespace

TWVoiceUtils::TWVoiceUtils()
    : QObject(nullptr)
    , TWObject(QString())
{
}

TWVoiceUtils::~TWVoiceUtils() = default;

double TWVoiceUtils::midiNoteToFrequency(const double& note)
{
    return 440.0 * std::pow(2.0, (note - 69.0) / 12.0);
}

double TWVoiceUtils::minFrequency()
{
    return midiNoteToFrequency(0.0);
}

double TWVoiceUtils::maxFrequency()
{
    return midiNoteToFrequency(127.0);
}

bool TWVoiceUtils::loadFrequencyTable(const QString& fileName, std::map<double, double>& table,
                                      QString& errorText)
{
    table.clear();
    QList<QString> lines;
    if (!TWUtils::readTxtFile(fileName, lines, QStringLiteral("UTF-8"))) {
        errorText = QStringLiteral("Couldn't load frequency table file: '%1'!").arg(fileName);
        return false;
    }

    // Counts non-blank lines only: the reader has dropped the empty ones
    // already, and lines of blanks are skipped here without a number.
    int lineNumber = 1;
    for (const QString& rawLine : std::as_const(lines)) {
        const QString line = rawLine.trimmed();
        if (line.isEmpty())
            continue;
        const QStringList pieces = line.split(QLatin1Char('-'), Qt::SkipEmptyParts);
        if (pieces.size() != 2) {
            errorText = QStringLiteral("Invalid format in line: %1! File: '%2'")
                            .arg(QString::number(lineNumber), fileName);
            return false;
        }
        double values[2];
        for (int k = 0; k < 2; ++k) {
            const QString piece = pieces.at(k).trimmed();
            bool ok = false;
            values[k] = piece.toDouble(&ok);
            if (!ok) {
                // Filled at once, so that a "%2" in the piece stays as it is.
                errorText = QStringLiteral("Invalid frequnecy value: '%1' in line: %2! File: '%3'")
                                .arg(piece, QString::number(lineNumber), fileName);
                return false;
            }
        }
        table.emplace(values[0], values[1]); // a repeated source keeps its first target
        ++lineNumber;
    }
    return true;
}

double TWVoiceUtils::convertFrequency(const double& frequency, const std::map<double, double>& table)
{
    if (table.empty())
        return 0.0;
    const auto notBelow = table.lower_bound(frequency); // first key >= frequency
    if (notBelow == table.begin())
        return notBelow->second; // at or under the first key: the first target
    const auto below = std::prev(notBelow);
    // The whole first interval answers the first target, without interpolation.
    if (below == table.begin())
        return below->second;
    const auto above = table.upper_bound(frequency); // first key > frequency
    if (above == table.end())
        return std::prev(table.end())->second; // at or over the last key: the last target
    // A frequency equal to a key lies between that key's two neighbours.
    return (frequency - below->first) / (above->first - below->first) * (above->second - below->second)
           + below->second;
}

QList<TWVoice> TWVoiceUtils::convertFrequencies(const QList<TWVoice>& voices, const std::map<double, double>& table)
{
    QList<TWVoice> result;
    result.reserve(voices.size());
    for (const TWVoice& voice : voices) {
        result.append(voice);
        result.last().frequency = convertFrequency(voice.frequency, table);
    }
    return result;
}

int TWVoiceUtils::addVoiceToVoices(TWVoice voice, QList<TWVoice>& voices, const double& minDuration,
                                   const double& maxDuration)
{
    // The rules hand what is left of a voice to themselves again. Each round
    // merges into the last entry, drops or raises the voice, or appends one
    // piece, so the rounds run here as a loop: a voice cut into millions of
    // pieces costs no stack, and each piece is one amortised append.
    const qsizetype oldSize = voices.size();
    const double oldLastDuration = oldSize ? voices.constLast().duration : 0.0;
    const auto giveUp = [&] {
        voices.resize(oldSize);
        if (oldSize)
            voices.last().duration = oldLastDuration;
        return 0;
    };

    int answer = 0;
    try {
        for (;;) {
            // Merging. A merge that fills the entry leaves it at maxDuration,
            // so this can only happen in the first round.
            if (!voices.isEmpty()) {
                const TWVoice& last = voices.constLast();
                if (last.frequency == voice.frequency && last.velocity == voice.velocity
                    && maxDuration > last.duration) {
                    const double room = maxDuration - last.duration;
                    if (room > voice.duration) {
                        voices.last().duration += voice.duration;
                        return answer;
                    }
                    voices.last().duration = maxDuration;
                    voice.duration -= room;
                    ++answer; // counted although the list did not grow
                    continue;
                }
            }
            // Too short: rounded to the nearer of 0 and minDuration; exactly
            // half is kept.
            if (minDuration > voice.duration) {
                if (minDuration / 2.0 > voice.duration)
                    return answer;
                voice.duration = minDuration;
                voices.append(voice);
                return answer + 1;
            }
            // Too long: a piece of maxDuration, and the rest goes round again.
            if (voice.duration > maxDuration) {
                const double rest = voice.duration - maxDuration;
                // A rest that is not shorter (maxDuration of 0 or less, or too
                // small to change an enormous duration) would come round for
                // ever; so would a count past what an int holds.
                if (!(rest < voice.duration) || answer == std::numeric_limits<int>::max() - 1)
                    return giveUp();
                TWVoice piece = voice;
                piece.duration = maxDuration;
                voices.append(piece);
                ++answer;
                voice.duration = rest;
                continue;
            }
            voices.append(voice);
            return answer + 1;
        }
    } catch (const std::bad_alloc&) {
        return giveUp();
    }
}

QList<TWVoice> TWVoiceUtils::setDurationResolution(const QList<TWVoice>& voices, const double& minDuration,
                                                   const double& maxDuration)
{
    QList<TWVoice> result;
    for (const TWVoice& voice : voices)
        addVoiceToVoices(voice, result, minDuration, maxDuration);
    return result;
}

TWVoice TWVoiceUtils::scaleTo(const TWVoice& voice, const double& toMinFrequency, const double& toMaxFrequency,
                              const double& toMinDuration, const double& toMaxDuration, const double& toMinVelocity,
                              const double& toMaxVelocity, const double& fromMinFrequency,
                              const double& fromMaxFrequency, const double& fromMinDuration,
                              const double& fromMaxDuration, const double& fromMinVelocity,
                              const double& fromMaxVelocity)
{
    // A field is mapped when either of its target bounds is not 0.
    TWVoice result = voice;
    if (toMinFrequency != 0.0 || toMaxFrequency != 0.0)
        result.frequency =
            TWUtils::scaleTo(voice.frequency, fromMinFrequency, fromMaxFrequency, toMinFrequency, toMaxFrequency);
    if (toMinDuration != 0.0 || toMaxDuration != 0.0)
        result.duration =
            TWUtils::scaleTo(voice.duration, fromMinDuration, fromMaxDuration, toMinDuration, toMaxDuration);
    if (toMinVelocity != 0.0 || toMaxVelocity != 0.0)
        result.velocity = truncToInt32(
            TWUtils::scaleTo(double(voice.velocity), fromMinVelocity, fromMaxVelocity, toMinVelocity, toMaxVelocity));
    return result;
}

QList<TWVoice> TWVoiceUtils::scaleTo(const QList<TWVoice>& voices, const double& toMinFrequency,
                                     const double& toMaxFrequency, const double& toMinDuration,
                                     const double& toMaxDuration, const double& toMinVelocity,
                                     const double& toMaxVelocity, const double& fromMinFrequency,
                                     const double& fromMaxFrequency, const double& fromMinDuration,
                                     const double& fromMaxDuration, const double& fromMinVelocity,
                                     const double& fromMaxVelocity)
{
    QList<TWVoice> result;
    result.reserve(voices.size());
    for (const TWVoice& voice : voices)
        result.append(scaleTo(voice, toMinFrequency, toMaxFrequency, toMinDuration, toMaxDuration, toMinVelocity,
                              toMaxVelocity, fromMinFrequency, fromMaxFrequency, fromMinDuration, fromMaxDuration,
                              fromMinVelocity, fromMaxVelocity));
    return result;
}

double TWVoiceUtils::secondsOfVoices(const QList<TWVoice>& voices)
{
    double seconds = 0.0;
    for (const TWVoice& voice : voices)
        seconds += voice.duration;
    return seconds;
}

QString TWVoiceUtils::voiceToText(const TWVoice& voice, const QString& format, const bool& roundValues)
{
    QString text = format;
    QString frequency, duration;
    if (roundValues) {
        frequency = QString::number(roundToInt(voice.frequency));
        duration = QString::number(roundToInt(voice.duration));
    } else {
        // '.' is no format that Qt knows; it falls back to plain decimals.
        frequency = QStringLiteral("%1").arg(voice.frequency, 0, '.', 3, QLatin1Char(' '));
        duration = QStringLiteral("%1").arg(voice.duration, 0, '.', 3, QLatin1Char(' '));
    }
    text.replace(QLatin1String("{f}"), frequency, Qt::CaseInsensitive);
    text.replace(QLatin1String("{d}"), duration, Qt::CaseInsensitive);
    text.replace(QLatin1String("{v}"), QString::number(voice.velocity), Qt::CaseInsensitive);
    return text;
}

QString TWVoiceUtils::voicesToText(const QList<TWVoice>& voices, QString format, const bool& roundValues)
{
    QString result;
    const QLatin1String count("{c}");
    const qsizetype countAt = format.indexOf(count, 0, Qt::CaseInsensitive);
    if (countAt >= 0) {
        const qsizetype brace = format.indexOf(QLatin1Char('{'), countAt + 3);
        const qsizetype headSize = brace >= 0 ? brace : countAt + 3;
        result = format.left(headSize);
        format.remove(0, headSize);
        result.replace(count, QString::number(voices.size()), Qt::CaseInsensitive);
    }
    for (const TWVoice& voice : voices)
        result += voiceToText(voice, format, roundValues);
    return result;
}

QByteArray TWVoiceUtils::voicesToAudioSample(const QList<TWVoice>& voices, const int& sampleRate,
                                             const int& sampleSize, const bool& useVelocity, double* seconds)
{
    if (seconds)
        *seconds = 0.0;
    const qsizetype bytes = sampleSize == 64 || sampleSize == 32 ? 4 : sampleSize == 16 ? 2 : 1;

    // The size is known before the first sample: one allocation, then every
    // sample is written in place.
    qsizetype total = 0;
    for (const TWVoice& voice : voices) {
        const qint32 count = truncToInt32(voice.duration * sampleRate);
        if (count > 0) {
            if (total > std::numeric_limits<qsizetype>::max() / 2)
                return QByteArray();
            total += qsizetype(count) * bytes;
        }
    }
    QByteArray samples;
    try {
        samples.resize(total);
    } catch (const std::bad_alloc&) {
        return QByteArray();
    }

    char* out = samples.data();
    for (const TWVoice& voice : voices) {
        const qint32 count = truncToInt32(voice.duration * sampleRate);
        const double step = voice.frequency * 2.0 * M_PI / sampleRate;
        const double amplitude = useVelocity ? voice.velocity / 127.0 : 1.0;
        switch (sampleSize) {
        case 64:
            out = renderVoice<float>(out, count, step, amplitude, TWSSFMUL);
            break;
        case 32:
            out = renderVoice<qint32>(out, count, step, amplitude, TWSS32MUL);
            break;
        case 16:
            out = renderVoice<qint16>(out, count, step, amplitude, TWSS16MUL);
            break;
        default:
            out = renderVoice<qint8>(out, count, step, amplitude, TWSS8MUL);
            break;
        }
        if (seconds)
            *seconds += voice.duration;
    }
    return samples;
}

} // namespace TW
