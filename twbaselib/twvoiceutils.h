#ifndef TWVOICEUTILS_H
#define TWVOICEUTILS_H

#include "twglobal.h"
#include "twinterfaces.h"
#include "twobject.h"

#include <QtCore/qbytearray.h>
#include <QtCore/qlist.h>
#include <QtCore/qobject.h>
#include <QtCore/qstring.h>

#include <map>

namespace TW {

/*!
 * One tone: a pitch in hertz (0 is silence), a duration in seconds and a
 * loudness from 0 to 127. \c extra is the host's own value: the library only
 * copies it along. A default-constructed voice has every field at 0.
 */
struct TWBASELIB_EXPORT TWVoice
{
    TWVoice()
        : frequency(0.0)
        , extra(0.0)
        , duration(0.0)
        , velocity(0)
    {
    }
    TWVoice(const TWVoice& other) = default;
    TWVoice(TWVoice&& other) noexcept = default;
    TWVoice& operator=(const TWVoice& other) = default;
    TWVoice& operator=(TWVoice&& other) noexcept = default;

    double frequency;
    double extra;
    double duration;
    qint32 velocity;
};

/*!
 * Static operations on lists of voices, a list being tones sounded one after
 * the other: pitch limits, frequency tables, reshaping of lists, and output as
 * text through a template or as raw sine-wave samples.
 *
 * Every operation is static and works on its arguments alone, so any thread
 * may call them; there is no need for an instance. The four scale factors are
 * plain public data that a host may change; nothing protects them, so change
 * them before threads render. Only loadFrequencyTable() reports failures.
 */
class TWBASELIB_EXPORT TWVoiceUtils : public QObject, public TWObject
{
    Q_OBJECT

public:
    /*! An unnamed object ("TWObject" and a number) without a parent. */
    TWVoiceUtils();
    ~TWVoiceUtils() override;

    /*! Scale of 8-bit samples: 127.5, so the extremes are 127 and -127. */
    static float TWSS8MUL;
    /*! Scale of 16-bit samples: 32767. */
    static float TWSS16MUL;
    /*!
     * Scale of 32-bit samples: 2147483648. A full-scale peak does not fit and
     * comes out as -2147483648.
     */
    static float TWSS32MUL;
    /*! Scale of float samples: the largest finite float. */
    static float TWSSFMUL;

    /*! The pitch of MIDI note \a note (69 is 440 Hz); fractions are allowed. */
    static double midiNoteToFrequency(const double& note);
    /*! The pitch of MIDI note 0, about 8.1758 Hz. */
    static double minFrequency();
    /*! The pitch of MIDI note 127, about 12543.854 Hz. */
    static double maxFrequency();

    /*!
     * Reads a frequency table from the UTF-8 text file \a fileName into
     * \a table, which is cleared first: one "source - target" pair a line,
     * blank lines skipped. The minus sign only separates, so a number cannot
     * be negative (a leading minus is dropped) and a line of three pieces is
     * refused. A source that comes again keeps its first target.
     *
     * On failure answers false, with the reason in \a errorText and the pairs
     * before the bad line left in \a table. The line number in the message
     * counts non-blank lines only. On success \a errorText is left as it was.
     */
    static bool loadFrequencyTable(const QString& fileName, std::map<double, double>& table,
                                   QString& errorText);
    /*!
     * Maps \a frequency through \a table by linear interpolation between the
     * nearest keys strictly below and strictly above it, except that the
     * whole first interval (up to and including the second key) maps to the
     * first target. Outside the table the first or the last target is
     * answered; an empty table answers 0.
     */
    static double convertFrequency(const double& frequency, const std::map<double, double>& table);
    /*! A copy of \a voices with each frequency mapped by convertFrequency(). */
    static QList<TWVoice> convertFrequencies(const QList<TWVoice>& voices,
                                             const std::map<double, double>& table);

    /*!
     * Appends \a voice to \a voices so that durations fit between
     * \a minDuration and \a maxDuration, and answers a count of the steps:
     *
     * - a voice equal in frequency and velocity to the last entry first fills
     *   that entry up to \a maxDuration (a step that counts 1 only when it
     *   fills the entry, though it adds none);
     * - a voice shorter than half of \a minDuration is dropped, one shorter
     *   than \a minDuration is raised to it;
     * - a voice longer than \a maxDuration is cut into pieces of
     *   \a maxDuration and a rest, each counting 1.
     *
     * With a \a maxDuration of 0 or less a positive duration could never be
     * cut down: then, and when the pieces could not be counted in an int or
     * held in memory, the answer is 0 and \a voices is left unchanged.
     */
    static int addVoiceToVoices(TWVoice voice, QList<TWVoice>& voices, const double& minDuration,
                                const double& maxDuration);
    /*! The voices of \a voices added one by one with addVoiceToVoices() to an empty list. */
    static QList<TWVoice> setDurationResolution(const QList<TWVoice>& voices, const double& minDuration,
                                                const double& maxDuration);
    /*!
     * Maps the frequency, duration and velocity of \a voice linearly from the
     * "from" ranges onto the "to" ranges, without clamping. A field whose two
     * "to" bounds are both 0 is left alone. The velocity is truncated toward
     * zero. Equal "from" bounds of a mapped field give an infinity or a NaN.
     */
    static TWVoice scaleTo(const TWVoice& voice, const double& toMinFrequency, const double& toMaxFrequency,
                           const double& toMinDuration, const double& toMaxDuration,
                           const double& toMinVelocity, const double& toMaxVelocity,
                           const double& fromMinFrequency, const double& fromMaxFrequency,
                           const double& fromMinDuration, const double& fromMaxDuration,
                           const double& fromMinVelocity, const double& fromMaxVelocity);
    /*! The one-voice scaleTo() applied to each of \a voices, into a new list. */
    static QList<TWVoice> scaleTo(const QList<TWVoice>& voices, const double& toMinFrequency,
                                  const double& toMaxFrequency, const double& toMinDuration,
                                  const double& toMaxDuration, const double& toMinVelocity,
                                  const double& toMaxVelocity, const double& fromMinFrequency,
                                  const double& fromMaxFrequency, const double& fromMinDuration,
                                  const double& fromMaxDuration, const double& fromMinVelocity,
                                  const double& fromMaxVelocity);
    /*! The sum of the durations of \a voices, in seconds. */
    static double secondsOfVoices(const QList<TWVoice>& voices);

    /*!
     * \a format with every "{f}", "{d}" and "{v}" (in either case) replaced by
     * the frequency, the duration and the velocity of \a voice. Frequency and
     * duration are written with three decimals ("440.500"), or rounded to
     * whole numbers when \a roundValues is true.
     */
    static QString voiceToText(const TWVoice& voice, const QString& format, const bool& roundValues);
    /*!
     * The text of a list through a template. Without "{c}" the whole of
     * \a format is repeated for each voice through voiceToText(). With one,
     * the template is split: the head, up to the first "{" after "{c}" (or up
     * to and including "{c}" when none follows), stands once with its "{c}"
     * replaced by the number of voices, and the rest repeats for each voice.
     * Other placeholders in the head, and "{c}" in the rest, stay as written.
     */
    static QString voicesToText(const QList<TWVoice>& voices, QString format, const bool& roundValues);
    /*!
     * Renders \a voices one after the other as mono sine waves, with no file
     * header, in the machine's byte order. \a sampleSize selects the sample:
     * 16 or 32 for signed integers of that size, 64 for 4-byte floats, any
     * other value for signed 8-bit samples. Each voice has its duration times
     * \a sampleRate samples (truncated), starts at phase 0, and has full
     * amplitude, or velocity / 127 with \a useVelocity; frequency 0 is silence.
     * The samples are scaled by the matching public factor.
     *
     * When \a seconds is not null it receives the sum of the durations. An
     * empty array comes back when memory runs out.
     */
    static QByteArray voicesToAudioSample(const QList<TWVoice>& voices, const int& sampleRate,
                                          const int& sampleSize, const bool& useVelocity, double* seconds);
};

} // namespace TW

#endif // TWVOICEUTILS_H
