#include "commandline.h"
#include "commands.h"

#include <twzx7.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>

#include <limits>

namespace {

const qint64 defaultMaxSize = qint64(256) << 20;

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

bool writeAll(const QString& path, const QByteArray& data, QString& error)
{
    // Written aside and renamed at the end, so a failure leaves no half file.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit()) {
        error = QStringLiteral("cannot write '%1': %2").arg(path, file.errorString());
        return false;
    }
    return true;
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

    QByteArray input;
    QString error;
    if (!readAll(in, input, error))
        return Tool::failure(command, error);

    QByteArray output;
    if (compress) {
        if (input.isEmpty())
            return Tool::failure(command, QStringLiteral("'%1' is empty, and a ZX7 stream holds at least one byte.").arg(in));
        if (Tool::stderrIsTerminal() && input.size() > (qint64(8) << 20))
            Tool::err(QStringLiteral("Compressing %1 bytes...").arg(input.size()));
        output = TW::TWZX7::compress(input, 0);
        if (output.isEmpty())
            return Tool::failure(command, QStringLiteral("'%1' could not be compressed (out of memory?).").arg(in));
    } else {
        bool ok = false;
        output = TW::TWZX7::decompress(input, qsizetype(limit), &ok);
        if (!ok)
            return Tool::failure(command, QStringLiteral("'%1' is not a complete ZX7 stream, or it expands to more than "
                                                         "%2 bytes (see --max-size).").arg(in).arg(limit));
    }
    if (!writeAll(out, output, error))
        return Tool::failure(command, error);

    const qint64 raw = compress ? input.size() : output.size();
    const qint64 packed = compress ? output.size() : input.size();
    Tool::out(QStringLiteral("%1 -> %2: %3 -> %4 bytes (packed %5 of raw)")
                  .arg(in, out)
                  .arg(input.size())
                  .arg(output.size())
                  .arg(ratio(packed, raw)));
    return Tool::Success;
}
