#include "commandline.h"
#include "commands.h"
#include "toollogger.h"

#include <QtCore/QCoreApplication>

#include <cstdio>

namespace {

struct Command
{
    const char* name;
    int (*run)(const QStringList&);
    const char* summary;
};

// Add a command family here and in commands.h.
const Command commands[] = {
    {"log", runLogCommand, "write messages through a logger into numbered log files"},
    {"queue", runQueueCommand, "push, pop and count items of a persistent queue, or run its demo"},
    {"zx7", runZx7Command, "compress a file into the ZX7 format, or expand one"},
    {"config", runConfigCommand, "read a key of an INI file as the library reads it"},
    {"image", runImageCommand, "convert, describe, print or cut a picture (TGA included), or reduce it to a palette"},
    {"font", runFontCommand, "draw a text with a bitmap font: a sheet of cells and a chartable"},
    {"voice", runVoiceCommand, "render a list of tones as a WAV file, or print it through a template"},
    {"demo", runDemoCommand, "a short tour of what the library does"},
};

void printHelp(FILE* stream)
{
    QString text = QStringLiteral("Usage: twtool <command> [options] [arguments]\n\n"
                                  "The command-line program over TWBaseLib.\n\nCommands:\n");
    for (const Command& c : commands)
        text += QStringLiteral("  %1  %2\n").arg(QString::fromLatin1(c.name).leftJustified(8), QLatin1String(c.summary));
    text += QStringLiteral("\nRun 'twtool <command> --help' for the options of a command.\n");
    std::fputs(text.toLocal8Bit().constData(), stream);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("twtool"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TWTOOL_VERSION));

    const QStringList arguments = QCoreApplication::arguments();
    const QString first = arguments.value(1);
    if (first.isEmpty()) {
        printHelp(stderr);
        return Tool::UsageError;
    }
    if (first == QLatin1String("--help") || first == QLatin1String("-h") || first == QLatin1String("help")) {
        printHelp(stdout);
        return Tool::Success;
    }
    if (first == QLatin1String("--version") || first == QLatin1String("-v")) {
        Tool::out(QStringLiteral("twtool %1").arg(QCoreApplication::applicationVersion()));
        return Tool::Success;
    }
    for (const Command& c : commands) {
        if (first != QLatin1String(c.name))
            continue;
        Tool::muteGlobalLogger();
        Tool::logger()->setCommand(first);
        const int status = c.run(arguments);
        // A failure that the library reported makes the run a failure, even
        // where the command itself went on.
        return status == Tool::Success && Tool::logger()->errorCount() > 0 ? int(Tool::Failure) : status;
    }
    Tool::err(QStringLiteral("twtool: unknown command '%1'. Run 'twtool --help' for the list.").arg(first));
    return Tool::UsageError;
}
