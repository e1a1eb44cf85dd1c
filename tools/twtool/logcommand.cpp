#include "commandline.h"
#include "commands.h"

#include <twconfig.h>
#include <twlogger.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QDir>

namespace {

// Level names as the logger prints them, or a bare number.
bool parseLevel(const QString& text, int& level)
{
    static const struct { const char* word; QtMsgType type; } words[] = {
        {"DEBUG", QtDebugMsg}, {"INFO", QtInfoMsg}, {"WARNING", QtWarningMsg},
        {"CRITICAL", QtCriticalMsg}, {"FATAL", QtFatalMsg},
    };
    const QString word = text.trimmed().toUpper();
    for (const auto& w : words) {
        if (word == QLatin1String(w.word)) {
            level = w.type;
            return true;
        }
    }
    // A number must name one of the five levels: anything else is no QtMsgType.
    bool ok = false;
    level = word.toInt(&ok);
    return ok && level >= QtDebugMsg && level <= QtInfoMsg;
}

} // namespace

int runLogCommand(const QStringList& arguments)
{
    const QString command = QStringLiteral("log");
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Writes each MESSAGE as one line through a logger into numbered log files\n"
                       "(NAME_0000.SUFFIX, NAME_0001.SUFFIX, ...), continuing the newest one and\n"
                       "moving to the next number at the size limit. Messages are echoed on\n"
                       "standard output unless --quiet is given.\n"
                       "With --config the logger is set up from the keys NAME.LogFilePath,\n"
                       "NAME.LogDateFormat, NAME.LogMaxFileSize, NAME.LogLineEndSeparator,\n"
                       "NAME.LogConsoleOutput and NAME.LogAcceptedLevels of an INI file; --dir,\n"
                       "--file and --max-size then give only what the file leaves out, and the\n"
                       "file's level list decides which messages are written."));
    parser.addOptions({
        {QStringLiteral("dir"), QStringLiteral("Folder of the log files (default: the current folder)."),
         QStringLiteral("DIR")},
        {QStringLiteral("file"), QStringLiteral("File name before numbering (default: twoutput.log)."),
         QStringLiteral("NAME")},
        {QStringLiteral("max-size"), QStringLiteral("Size in bytes from which the next line opens a new file."),
         QStringLiteral("BYTES")},
        {QStringLiteral("level"),
         QStringLiteral("debug, info, warning, critical, fatal or a number (default: info)."),
         QStringLiteral("LEVEL")},
        {QStringLiteral("quiet"), QStringLiteral("Do not echo the messages on standard output.")},
        {QStringLiteral("config"), QStringLiteral("Set the logger up from this INI file."), QStringLiteral("FILE")},
        {QStringLiteral("name"), QStringLiteral("Name before the dot in the keys of --config (default: twtool)."),
         QStringLiteral("NAME")},
    });
    parser.addPositionalArgument(QStringLiteral("MESSAGE"), QStringLiteral("Text of a line."),
                                 QStringLiteral("MESSAGE..."));
    if (const auto done = Tool::parse(parser, arguments))
        return *done;

    const QStringList messages = parser.positionalArguments();
    if (messages.isEmpty())
        return Tool::usageError(command, QStringLiteral("no message given."));

    int level = QtInfoMsg;
    if (parser.isSet(QStringLiteral("level")) && !parseLevel(parser.value(QStringLiteral("level")), level))
        return Tool::usageError(command, QStringLiteral("unknown level '%1': say debug, info, warning, critical, fatal "
                                                        "or a number from 0 to 4.")
                                             .arg(parser.value(QStringLiteral("level"))));

    qint64 maxSize = -1;
    if (!Tool::intOption(parser, command, QStringLiteral("max-size"), std::numeric_limits<qint64>::min(),
                         std::numeric_limits<qint64>::max(), maxSize))
        return Tool::UsageError;

    const bool fromConfig = parser.isSet(QStringLiteral("config"));
    if (parser.isSet(QStringLiteral("name")) && !fromConfig)
        return Tool::usageError(command, QStringLiteral("--name needs --config."));

    TW::TWLogger logger;
    if (parser.isSet(QStringLiteral("dir")))
        logger.setFilePath(parser.value(QStringLiteral("dir")));
    if (parser.isSet(QStringLiteral("file"))) {
        const QString name = parser.value(QStringLiteral("file"));
        if (name.isEmpty() || name.contains(QLatin1Char('/')))
            return Tool::usageError(command, QStringLiteral("--file takes a bare file name."));
        logger.setFileName(name);
    }
    if (parser.isSet(QStringLiteral("max-size")))
        logger.setMaxFileSize(maxSize);
    if (fromConfig) {
        // Applied after the location options: a path in the file wins, and a
        // date format or separator that starts a new file starts it at the
        // final place rather than leaving a stray file behind.
        TW::TWConfig config;
        if (!config.load(parser.value(QStringLiteral("config"))))
            return Tool::Failure; // the reason is on standard error already
        const QString name = parser.isSet(QStringLiteral("name")) ? parser.value(QStringLiteral("name"))
                                                                  : QStringLiteral("twtool");
        logger.readFromConfig(name, &config);
        if (parser.isSet(QStringLiteral("quiet")))
            logger.setConsoleOutput(false);
    } else {
        logger.setConsoleOutput(!parser.isSet(QStringLiteral("quiet")));
        // A level asked for on the command line is meant to be written.
        logger.addAcceptedLogLevel(level);
    }

    int failed = 0;
    for (const QString& message : messages) {
        if (!logger.writeLog(message, QtMsgType(level), TW_SOURCE_LOCATION))
            ++failed;
    }
    if (failed)
        return Tool::failure(command, QStringLiteral("%1 of %2 lines could not be written to %3.")
                                          .arg(failed).arg(messages.size()).arg(logger.file()));
    return Tool::Success;
}
