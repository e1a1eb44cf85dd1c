#include "commandline.h"
#include "commands.h"

#include <twconfig.h>
#include <twlogger.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

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

/*
 * The numbered file that a logger set up like \a logger writes to when it
 * (re)opens its file: the last "<base>_NNNN.<suffix>" in text order, or number
 * 0; with \a next the number after it. Empty when the logger would refuse the
 * counter it finds.
 */
QString numberedFile(const TW::TWLogger& logger, bool next)
{
    const QFileInfo info(logger.file());
    const QDir dir(info.absolutePath());
    QStringList entries = dir.entryList({QStringLiteral("*.%1").arg(info.suffix())}, QDir::Files, QDir::NoSort);
    entries.sort(Qt::CaseInsensitive);
    const QString prefix = info.baseName() + u'_';
    QString counterText;
    for (const QString& entry : std::as_const(entries)) {
        if (entry.startsWith(prefix, Qt::CaseInsensitive))
            counterText = entry.mid(prefix.size()).chopped(info.completeSuffix().size() + 1);
    }
    bool ok = true;
    int counter = counterText.isEmpty() ? -1 : counterText.toInt(&ok, 10);
    if (!ok)
        return QString();
    counter = counter < 0 ? 0 : counter + (next ? 1 : 0);
    return dir.filePath(QStringLiteral("%1_%2.%3").arg(info.baseName()).arg(counter, 4, 10, QLatin1Char('0'))
                            .arg(info.completeSuffix()));
}

/*
 * Whether the bytes a line added to a log file are the whole line: they end
 * as the line ends. A write cut short by a full disk ends anywhere before.
 * The direct build of a line ends with the source location; where a '%'
 * lets the message take part in QString::arg, only the separator and the
 * padding to 500 characters are certain.
 */
bool wholeLine(const QByteArray& added, const QString& message, const TW::TWLogger& logger, const QString& file,
               int line, const QString& function)
{
    const QByteArray separator = logger.lineEndSepa().toLocal8Bit();
    if (message.contains(u'%') || logger.dateFormat().contains(u'%'))
        return added.endsWith(separator) && added.size() >= 500 + separator.size();
    const QByteArray end = QStringLiteral(" - in '%1' file, line: %2, function: '%3'")
                               .arg(file).arg(line, 5, 10, QLatin1Char('0')).arg(function).toLocal8Bit()
        + separator;
    return added.endsWith(end) && added.size() >= 500 + end.size();
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

    // The logger starts a new file for every line at a limit of 0 or less,
    // leaving the first one empty: 1 is the smallest limit that makes sense.
    qint64 maxSize = -1;
    if (!Tool::intOption(parser, command, QStringLiteral("max-size"), 1, std::numeric_limits<qint64>::max(), maxSize))
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
        // The number goes between the name and the suffix: both must be there.
        const QFileInfo info(name);
        if (info.baseName().isEmpty() || info.suffix().isEmpty())
            return Tool::usageError(command, QStringLiteral("--file needs a name and a suffix, such as app.log: the files "
                                                            "are numbered NAME_0000.SUFFIX."));
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

    // The library does not look at what its writes did, so the tool does: each
    // line must have added itself whole to the file it went to. A line cut
    // short is taken back out, so that the file holds no half line.
    const QString srcFile = QStringLiteral(__FILE__);
    const int srcLine = __LINE__;
    const QString srcFunction = QString::fromUtf8(Q_FUNC_INFO);
    const bool accepted = logger.acceptedLogLevelList().contains(level);
    QString current = numberedFile(logger, false);
    int failed = 0;
    for (const QString& message : messages) {
        if (QFileInfo(current).size() >= logger.maxFileSize())
            current = numberedFile(logger, true);
        const qint64 before = QFileInfo(current).size();
        const bool written = logger.writeLog(message, QtMsgType(level), srcFile, srcLine, srcFunction);
        if (!accepted)
            continue;
        QFile file(current);
        QByteArray added;
        if (QFileInfo::exists(current) && file.open(QIODevice::ReadWrite) && file.seek(before))
            added = file.readAll();
        if (written && wholeLine(added, message, logger, srcFile, srcLine, srcFunction))
            continue;
        ++failed;
        if (!added.isEmpty())
            file.resize(before);
    }
    if (current.isEmpty())
        Tool::err(QStringLiteral("twtool log: a file in %1 is named like the log files but has no number after \"_\".")
                      .arg(QFileInfo(logger.file()).absolutePath()));
    if (failed)
        return Tool::failure(command, QStringLiteral("%1 of %2 lines could not be written to %3.")
                                          .arg(failed).arg(messages.size()).arg(current.isEmpty() ? logger.file() : current));
    return Tool::Success;
}
