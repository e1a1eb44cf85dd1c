#ifndef TWTOOL_WAVFILE_H
#define TWTOOL_WAVFILE_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

// WAV files around the bare samples that TWVoiceUtils renders. The header is
// the tool's own business: the library only makes samples.
namespace Wav {

/*! The most sample bytes that one WAV file holds (its sizes are 32-bit). */
constexpr qint64 MaxDataSize = 0xFFFFFFFFll - 64;

/*!
 * A complete mono WAV file of \a samples as voicesToAudioSample() gives them
 * for \a sampleSize (8, 16, 32, or 64 for 4-byte floats) at \a sampleRate:
 * integer samples as PCM, 8-bit ones shifted to unsigned as WAV wants them,
 * float samples as IEEE float with the "fact" chunk that format asks for.
 * \a samples must not exceed MaxDataSize.
 */
QByteArray file(const QByteArray& samples, int sampleRate, int sampleSize);

} // namespace Wav

#endif // TWTOOL_WAVFILE_H
