#include "wavfile.h"

#include <QtCore/QtEndian>

namespace {

void put16(QByteArray& out, quint16 value)
{
    char bytes[2];
    qToLittleEndian(value, bytes);
    out.append(bytes, 2);
}

void put32(QByteArray& out, quint32 value)
{
    char bytes[4];
    qToLittleEndian(value, bytes);
    out.append(bytes, 4);
}

} // namespace

namespace Wav {

QByteArray file(const QByteArray& samples, int sampleRate, int sampleSize)
{
    const bool isFloat = sampleSize == 64;
    const int bytes = isFloat || sampleSize == 32 ? 4 : sampleSize == 16 ? 2 : 1;
    const quint32 dataSize = quint32(samples.size());
    const quint32 pad = dataSize & 1; // chunks keep an even size
    const quint32 fmtSize = isFloat ? 18 : 16;
    const quint32 riffSize = 4 + (8 + fmtSize) + (isFloat ? 12 : 0) + 8 + dataSize + pad;

    QByteArray out;
    out.reserve(qsizetype(riffSize) + 8);
    out.append("RIFF", 4);
    put32(out, riffSize);
    out.append("WAVEfmt ", 8);
    put32(out, fmtSize);
    put16(out, isFloat ? 3 : 1); // WAVE_FORMAT_IEEE_FLOAT or WAVE_FORMAT_PCM
    put16(out, 1);               // mono
    put32(out, quint32(sampleRate));
    put32(out, quint32(sampleRate) * quint32(bytes));
    put16(out, quint16(bytes));
    put16(out, quint16(bytes * 8));
    if (isFloat) {
        put16(out, 0); // no extension
        out.append("fact", 4);
        put32(out, 4);
        put32(out, dataSize / 4);
    }
    out.append("data", 4);
    put32(out, dataSize);
    const qsizetype start = out.size();
    out.append(samples);
    if (bytes == 1) {
        // The library's 8-bit samples are signed; WAV's are unsigned, centred on 128.
        char* p = out.data() + start;
        for (quint32 k = 0; k < dataSize; ++k)
            p[k] = char(uchar(p[k]) ^ 0x80);
    }
    if (pad)
        out.append('\0');
    return out;
}

} // namespace Wav
