#include "commandline.h"
#include "commands.h"

#include <twzx7.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <limits>
#include <new>

namespace {

const qint64 defaultMaxSize = qint64(256) << 20;
const qint64 MaxInput = 0xFFFFFFFF; // the encoder keeps positions in 32 bits
// Peak memory of compress per input byte, measured at its worst (one
// repeated byte): the input, a word per position that the parse weighs, and
// the stream, which random bytes make a little larger than the input.
const qint64 CompressBytesPerByte = 7;

bool readAll(const QString& path, QByteArray& data, QString& error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("cannot read '%1': %2").arg(path, file.errorString());
        return false;
    }
    data = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        error = QStringLiteral("cannot read '%1': %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

/*
 * Where a ZX7 stream ends, found by walking its bits as the bounded decoder
 * reads them but without producing the bytes: how many bytes of the input the
 * stream takes up to its end marker, and how many bytes it expands to.
 */
struct StreamWalk
{
    enum Result { Complete, CutShort, BadOffset } result;
    qint64 end;       // input bytes up to and including the end marker
    quint64 expanded; // output bytes, up to where the walk stopped
};

StreamWalk walkStream(const QByteArray& input)
{
    const auto* data = reinterpret_cast<const uchar*>(input.constData());
    const qint64 size = input.size();
    qint64 index = 0;
    int mask = 0;
    int flags = 0;
    bool over = false;
    const auto byte = [&]() -> int {
        if (index >= size) {
            over = true;
            return 0;
        }
        return data[index++];
    };
    const auto bit = [&]() -> int {
        mask >>= 1;
        if (mask == 0) {
            mask = 128;
            flags = byte();
        }
        return (flags & mask) ? 1 : 0;
    };

    quint64 expanded = 0;
    byte(); // the first byte is a literal with no flag bit
    while (!over) {
        ++expanded;
        if (!bit()) {
            byte();
            continue;
        }
        int zeros = 0;
        while (!over && !bit())
            ++zeros;
        if (over)
            break;
        if (zeros > 15)
            return {StreamWalk::Complete, index, expanded};
        quint64 length = 1;
        while (zeros-- > 0)
            length = (length << 1) | quint64(bit());
        quint64 offset = quint64(byte());
        if (offset >= 128) {
            int high = 0;
            for (int k = 0; k < 4; ++k)
                high = (high << 1) | bit();
            offset = ((quint64(high) << 7) | (offset & 127)) + 128;
        }
        // Nothing may be copied from before the first byte.
        if (!over && offset + 1 > expanded)
            return {StreamWalk::BadOffset, index, expanded};
        expanded += length; // the loop adds the last byte of the sequence
    }
    return {StreamWalk::CutShort, index, expanded};
}

QString ratio(qint64 part, qint64 whole)
{
    return whole ? QStringLiteral("%1%").arg(100.0 * double(part) / double(whole), 0, 'f', 1) : QStringLiteral("-");
}

} // namespace

int runZx7Command(const QStringList& arguments)
{
    const QString command = QStringLiteral("zx7");
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Compresses a file into the ZX7 format, or expands one.\n\n"
        "  compress IN [OUT]     writes OUT (default: IN.zx7), the optimal ZX7 stream of IN\n"
        "  decompress IN [OUT]   writes OUT (default: IN without .zx7), expanded from IN\n\n"
        "A damaged stream is refused rather than expanded. Since a small stream can\n"
        "claim gigabytes, decompress stops at --max-size bytes."));
    const QCommandLineOption force({QStringLiteral("f"), QStringLiteral("force")},
                                   QStringLiteral("Overwrite OUT if it exists."));
    const QCommandLineOption maxSize(QStringLiteral("max-size"),
                                     QStringLiteral("decompress: largest output accepted, in bytes (default: %1).")
                                         .arg(defaultMaxSize),
                                     QStringLiteral("BYTES"));
    parser.addOption(force);
    parser.addOption(maxSize);
    parser.addPositionalArgument(QStringLiteral("action"), QStringLiteral("compress or decompress."));
    parser.addPositionalArgument(QStringLiteral("IN"), QStringLiteral("The file to read."));
    parser.addPositionalArgument(QStringLiteral("OUT"), QStringLiteral("The file to write."), QStringLiteral("[OUT]"));
    if (const auto done = Tool::parse(parser, arguments))
        return *done;

    const QStringList args = parser.positionalArguments();
    if (args.isEmpty())
        return Tool::usageError(command, QStringLiteral("say compress or decompress."));
    const QString action = args.at(0);
    const bool compress = action == QLatin1String("compress");
    if (!compress && action != QLatin1String("decompress"))
        return Tool::usageError(command, QStringLiteral("unknown action '%1': say compress or decompress.").arg(action));
    if (args.size() < 2 || args.size() > 3)
        return Tool::usageError(command, QStringLiteral("%1 takes IN and an optional OUT.").arg(action));
    if (compress && parser.isSet(maxSize))
        return Tool::usageError(command, QStringLiteral("--max-size applies to decompress only."));
    qint64 limit = defaultMaxSize;
    if (!Tool::intOption(parser, command, QStringLiteral("max-size"), 1, std::numeric_limits<qint64>::max(), limit))
        return Tool::UsageError;

    const QString in = args.at(1);
    QString out = args.value(2);
    if (out.isEmpty()) {
        if (compress) {
            out = in + QStringLiteral(".zx7");
        } else if (in.endsWith(QLatin1String(".zx7"), Qt::CaseInsensitive) && in.size() > 4) {
            out = in.chopped(4);
        } else {
            return Tool::usageError(command, QStringLiteral("'%1' does not end in .zx7: give OUT.").arg(in));
        }
    }
    if (QFileInfo::exists(out) && !parser.isSet(force))
        return Tool::failure(command, QStringLiteral("'%1' exists; use -f to overwrite it.").arg(out));
    // A FIFO or a device would be read without end (or wait for a writer).
    const QFileInfo inInfo(in);
    if (inInfo.exists() && !inInfo.isFile())
        return Tool::failure(command, QStringLiteral("'%1' is not a regular file.").arg(in));
    if (compress && inInfo.size() > MaxInput)
        return Tool::failure(command, QStringLiteral("'%1' holds %2 bytes; the encoder takes at most %3.")
                                          .arg(in).arg(inInfo.size()).arg(MaxInput));

    // Memory runs out as a std::bad_alloc from Qt's containers, or as an empty
    // result from the codec: either way the tool says so and writes nothing.
    const auto outOfMemory = [&](qint64 needs) {
        return Tool::failure(command, QStringLiteral("out of memory: %1 needs about %2 MiB.")
                                          .arg(in).arg((needs >> 20) + 1));
    };
    QByteArray input;
    QByteArray output;
    try {
        QString error;
        if (!readAll(in, input, error))
            return Tool::failure(command, error);

        if (compress) {
            if (input.isEmpty())
                return Tool::failure(command, QStringLiteral("'%1' is empty, and a ZX7 stream holds at least one byte.").arg(in));
            if (Tool::stderrIsTerminal() && input.size() > (qint64(8) << 20))
                Tool::err(QStringLiteral("Compressing %1 bytes...").arg(input.size()));
            output = TW::TWZX7::compress(input, 0);
            if (output.isEmpty())
                return outOfMemory(input.size() * CompressBytesPerByte);
        } else {
            const StreamWalk walk = walkStream(input);
            if (walk.result != StreamWalk::Complete)
                return Tool::failure(command, walk.result == StreamWalk::CutShort
                                                  ? QStringLiteral("'%1' is not a complete ZX7 stream: its %2 bytes end "
                                                                   "before the end marker.").arg(in).arg(input.size())
                                                  : QStringLiteral("'%1' is not a complete ZX7 stream: the sequence that "
                                                                   "ends at byte %2 reaches back before the start.")
                                                        .arg(in).arg(walk.end));
            if (walk.expanded > quint64(limit))
                return Tool::failure(command, QStringLiteral("'%1' expands to %2 bytes, more than %3 (see --max-size).")
                                                  .arg(in).arg(walk.expanded).arg(limit));
            if (walk.end < input.size())
                Tool::err(QStringLiteral("twtool zx7: warning: '%1' has %2 byte(s) after the end of its stream; they "
                                         "are ignored.").arg(in).arg(input.size() - walk.end));
            bool ok = false;
            output = TW::TWZX7::decompress(input, qsizetype(limit), &ok);
            if (!ok) // the stream is sound and fits the limit: only memory is left
                return outOfMemory(qint64(walk.expanded) + input.size());
        }
        if (!Tool::saveFile(out, output, error))
            return Tool::failure(command, error);
    } catch (const std::bad_alloc&) {
        return outOfMemory(compress ? inInfo.size() * CompressBytesPerByte : inInfo.size());
    }

    const qint64 raw = compress ? input.size() : output.size();
    const qint64 packed = compress ? output.size() : input.size();
    Tool::out(QStringLiteral("%1 -> %2: %3 -> %4 bytes (packed %5 of raw)")
                  .arg(in, out)
                  .arg(input.size())
                  .arg(output.size())
                  .arg(ratio(packed, raw)));
    return Tool::Success;
}
