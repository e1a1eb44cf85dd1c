#include "commandline.h"

#include <QtCore/QCoreApplication>

#include <cstdio>

#ifdef Q_OS_WIN
#  include <io.h>
#  define TW_ISATTY _isatty
#  define TW_FILENO _fileno
#else
#  include <unistd.h>
#  define TW_ISATTY isatty
#  define TW_FILENO fileno
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

} // namespace Tool
