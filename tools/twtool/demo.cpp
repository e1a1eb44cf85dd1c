#include "commandline.h"
#include "commands.h"
#include "demo.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QDir>

namespace {

struct DemoStep
{
    const char* title;
    bool (*run)(DemoContext&);
};

// The tour, in order. A new step goes at the end.
const DemoStep steps[] = {
    {"Named objects, last errors and the numbered log", demoObjectsAndLogger},
    {"A logger set up from an INI file, and value ranges", demoConfiguration},
    {"Worker threads from a pool, timed by a scope timer", demoThreadPool},
    {"A persistent queue with a small memory bound, fed and drained by threads", demoQueue},
    {"ZX7 compression", demoZx7},
    {"TGA files read back, and a picture as text", demoImage},
    {"Voices: a tune as text and as a WAV file", demoVoices},
    {"Palettes with patterns, and text in a bitmap font", demoPalette},
};

} // namespace

QString DemoContext::stepDir(const QString& name) const
{
    QDir dir(outDir.filePath(name));
    dir.removeRecursively();
    outDir.mkpath(name);
    return dir.absolutePath();
}

void say(const QString& text)
{
    Tool::out(text.isEmpty() ? text : QStringLiteral("  ") + text);
}

bool writeFile(const QString& path, const QByteArray& data)
{
    QString error;
    if (Tool::saveFile(path, data, error))
        return true;
    say(error);
    return false;
}

int runDemoCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "A short tour of TWBaseLib: each step shows one part of the library at work\n"
        "and leaves its files in the output folder."));
    parser.addOption({QStringLiteral("out"),
                      QStringLiteral("Folder for the files of the tour (default: %1).")
                          .arg(QStringLiteral(TWTOOL_DEFAULT_DEMO_DIR)),
                      QStringLiteral("DIR")});
    if (const auto done = Tool::parse(parser, arguments))
        return *done;
    if (!parser.positionalArguments().isEmpty())
        return Tool::usageError(QStringLiteral("demo"), QStringLiteral("unexpected argument '%1'.")
                                                            .arg(parser.positionalArguments().constFirst()));

    const QString outPath = parser.isSet(QStringLiteral("out")) ? parser.value(QStringLiteral("out"))
                                                                : QStringLiteral(TWTOOL_DEFAULT_DEMO_DIR);
    if (!QDir().mkpath(outPath))
        return Tool::failure(QStringLiteral("demo"), QStringLiteral("cannot create the folder '%1'.").arg(outPath));
    DemoContext context{QDir(QDir(outPath).absolutePath())};

    Tool::out(QStringLiteral("TWBaseLib tour; files go to %1").arg(context.outDir.absolutePath()));
    int failed = 0;
    int number = 0;
    for (const DemoStep& step : steps) {
        Tool::out();
        Tool::out(QStringLiteral("%1. %2").arg(++number).arg(QLatin1String(step.title)));
        if (!step.run(context)) {
            ++failed;
            say(QStringLiteral("!! This step did not go as expected."));
        }
    }
    Tool::out();
    if (failed)
        return Tool::failure(QStringLiteral("demo"), QStringLiteral("%1 step(s) failed.").arg(failed));
    Tool::out(QStringLiteral("Tour done; the files are in %1").arg(context.outDir.absolutePath()));
    return Tool::Success;
}
