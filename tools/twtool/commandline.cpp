#include "commandline.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>
#include <QtCore/QStorageInfo>

#include <cerrno>
#include <cstdio>
#include <cstring>

#ifdef Q_OS_WIN
#  include <io.h>
#  define TW_ISATTY _isatty
#  define TW_FILENO _fileno
#  define TW_FSYNC _commit
#else
#  include <unistd.h>
#  define TW_ISATTY isatty
#  define TW_FILENO fileno
#  define TW_FSYNC fsync
#endif

namespace Tool {

std::optional<int> parse(QCommandLineParser& parser, const QStringList& arguments)
{
    const QCommandLineOption help = parser.addHelpOption();
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);

    // The parser sees "twtool <command>" as the program name.
    QStringList args = arguments.mid(2);
    args.prepend(arguments.mid(0, 2).join(QLatin1Char(' ')));
    const QString command = arguments.value(1);

    if (!parser.parse(args))
        return usageError(command, parser.errorText());
    if (parser.isSet(help)) {
        // Qt names the program by its path; show the command as it is typed.
        QString text = parser.helpText();
        const qsizetype lineEnd = text.indexOf(QLatin1Char('\n'));
        const QString firstLine = text.left(lineEnd);
        const qsizetype program = firstLine.indexOf(QLatin1Char(' '));
        const qsizetype rest = firstLine.indexOf(QLatin1Char(' '), program + 1);
        text.replace(program + 1, (rest < 0 ? lineEnd : rest) - program - 1,
                     QStringLiteral("twtool %1").arg(command));
        std::fputs(text.toLocal8Bit().constData(), stdout);
        std::fflush(stdout);
        return Success;
    }
    return std::nullopt;
}

int usageError(const QString& command, const QString& message)
{
    err(QStringLiteral("twtool %1: %2").arg(command, message));
    err(QStringLiteral("Try 'twtool %1 --help'.").arg(command));
    return UsageError;
}

int failure(const QString& command, const QString& message)
{
    err(QStringLiteral("twtool %1: %2").arg(command, message));
    return Failure;
}

void out(const QString& text)
{
    std::fputs(text.toLocal8Bit().constData(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void err(const QString& text)
{
    std::fputs(text.toLocal8Bit().constData(), stderr);
    std::fputc('\n', stderr);
    std::fflush(stderr);
}

bool stderrIsTerminal()
{
    return TW_ISATTY(TW_FILENO(stderr)) != 0;
}

bool intOption(const QCommandLineParser& parser, const QString& command, const QString& name,
               qint64 min, qint64 max, qint64& value)
{
    if (!parser.isSet(name))
        return true;
    bool ok = false;
    const QString text = parser.value(name);
    const qint64 parsed = text.toLongLong(&ok);
    if (!ok || parsed < min || parsed > max) {
        usageError(command, QStringLiteral("--%1 takes a number from %2 to %3, not '%4'.")
                                .arg(name).arg(min).arg(max).arg(text));
        return false;
    }
    value = parsed;
    return true;
}

bool saveFile(const QString& path, const QByteArray& data, QString& error)
{
    const auto fail = [&](const QString& reason) {
        error = QStringLiteral("cannot write '%1': %2").arg(path, reason);
        // A full disk often shows only as an unknown error or a short count.
        const qint64 room = QStorageInfo(QFileInfo(path).absolutePath()).bytesAvailable();
        if (room >= 0 && room < data.size())
            error += QStringLiteral(" (%1 bytes are needed, %2 are free on the disk)").arg(data.size()).arg(room);
        return false;
    };
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return fail(file.errorString());
    // QSaveFile keeps small writes in a buffer and, at commit, reports neither
    // a short write of that buffer nor a failed sync: both are checked here.
    const qint64 written = file.write(data);
    if (written != data.size() || !file.flush())
        return fail(written < 0 ? file.errorString()
                                : QStringLiteral("only part of it could be written (is the disk full?)"));
    if (TW_FSYNC(file.handle()) != 0)
        return fail(QString::fromLocal8Bit(std::strerror(errno)));
    if (!file.commit())
        return fail(file.errorString());
    return true;
}

} // namespace Tool
