#include "demo.h"

#include <twconfig.h>
#include <twlogger.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

namespace {

QStringList libraryWarnings;

void keepWarning(QtMsgType, const QMessageLogContext&, const QString& text)
{
    libraryWarnings << text;
}

QString levelWords(const QList<int>& levels)
{
    static const char* const words[] = {"DEBUG", "WARNING", "CRITICAL", "FATAL", "INFO"};
    QStringList out;
    for (int level : levels)
        out << (level >= 0 && level <= 4 ? QString::fromLatin1(words[level]) : QString::number(level));
    return out.join(QStringLiteral(", "));
}

QString elementsText(const QList<QVariant>& elements)
{
    QStringList out;
    for (const QVariant& element : elements)
        out << element.toString();
    return out.join(QStringLiteral(", "));
}

} // namespace

bool demoConfiguration(DemoContext& context)
{
    bool ok = true;
    const QDir dir(context.stepDir(QStringLiteral("config")));
    const QString iniPath = dir.filePath(QStringLiteral("demo.ini"));
    QString logPath = dir.filePath(QStringLiteral("demo.log"));
    logPath.replace(QLatin1Char('\\'), QStringLiteral("\\\\")).replace(QLatin1Char('"'), QStringLiteral("\\\""));

    const QString ini = QStringLiteral("; Written by the tour of twtool\n"
                                       "Demo.LogFilePath = \"%1\"\n"
                                       "Demo.LogDateFormat = yyyy-MM-dd hh:mm:ss\n"
                                       "Demo.LogLineEndSeparator = LF\n"
                                       "Demo.LogConsoleOutput = false\n"
                                       "Demo.LogAcceptedLevels = debug, WARNING, 2, chatty\n"
                                       "Demo.Ports = 8000 - 8010\n"
                                       "Demo.Retries = 1, 2, 5\n"
                                       "Demo.Offset = -5\n")
                              .arg(logPath);
    QFile file(iniPath);
    if (!file.open(QIODevice::WriteOnly) || file.write(ini.toUtf8()) < 0)
        return false;
    file.close();

    say(QStringLiteral("Settings come from an INI file; every read names a default, so a missing"));
    say(QStringLiteral("file or key never stops a program. The tour wrote %1:").arg(iniPath));
    for (const QString& line : ini.split(QLatin1Char('\n'), Qt::SkipEmptyParts).mid(1))
        say(QStringLiteral("  ") + line);

    TW::TWConfig config;
    ok &= config.load(iniPath);

    say();
    say(QStringLiteral("readFromConfig(\"Demo\", config) sets a logger up from the six Demo.Log* keys."));
    TW::TWLogger logger;
    libraryWarnings.clear();
    const QtMessageHandler previous = qInstallMessageHandler(keepWarning);
    logger.readFromConfig(QStringLiteral("Demo"), &config);
    qInstallMessageHandler(previous);
    say(QStringLiteral("Date format \"%1\", line end %2, echo %3, accepted levels: %4.")
            .arg(logger.dateFormat(), logger.lineEndSepa() == QLatin1String("\n") ? QStringLiteral("LF") : QStringLiteral("other"),
                 logger.isConsoleOutput() ? QStringLiteral("on") : QStringLiteral("off"),
                 levelWords(logger.acceptedLogLevelList())));
    say(QStringLiteral("An unknown level word is skipped with a Qt warning: %1").arg(libraryWarnings.join(QStringLiteral("; "))));
    ok &= logger.lineEndSepa() == QLatin1String("\n") && !logger.isConsoleOutput()
        && logger.acceptedLogLevelList() == QList<int>({QtDebugMsg, QtWarningMsg, QtCriticalMsg})
        && libraryWarnings == QStringList{QStringLiteral("Unknown log level: 'CHATTY'!")};

    logger.writeLog(QStringLiteral("Cache warmed up"), QtDebugMsg, TW_SOURCE_LOCATION);
    logger.writeLog(QStringLiteral("Started"), QtInfoMsg, TW_SOURCE_LOCATION);
    logger.writeLog(QStringLiteral("Disk almost full"), QtWarningMsg, TW_SOURCE_LOCATION);

    const QStringList logs = dir.entryList({QStringLiteral("demo_*.log")}, QDir::Files, QDir::Name);
    say(QStringLiteral("Wrote a debug, an info and a warning message; INFO is not in the list and is dropped."));
    say(QStringLiteral("Log files: %1.").arg(logs.join(QStringLiteral(", "))));
    say(QStringLiteral("A date format and a separator other than the defaults each start a new file at"));
    say(QStringLiteral("setup, so demo_0000.log stays empty and the lines go to demo_0001.log:"));
    QFile log(dir.filePath(QStringLiteral("demo_0001.log")));
    QStringList lines;
    if (log.open(QIODevice::ReadOnly))
        lines = QString::fromLocal8Bit(log.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString& line : lines)
        say(QStringLiteral("  ") + line.left(line.indexOf(QLatin1String(" - in '"))).simplified());
    ok &= logs == QStringList({QStringLiteral("demo_0000.log"), QStringLiteral("demo_0001.log")})
        && QFileInfo(dir.filePath(logs.value(0))).size() == 0 && lines.size() == 2
        && lines.value(0).contains(QLatin1String("Cache warmed up")) && lines.value(1).contains(QLatin1String("WARNING"));

    say();
    say(QStringLiteral("getValueRange reads one value, a range \"min - max\" or a list \"a, b, c\":"));
    bool isRange = false;
    const QList<QVariant> ports = config.getValueRange(QStringLiteral("Demo.Ports"), isRange, QMetaType::UInt, QString());
    say(QStringLiteral("Demo.Ports   -> range: %1, elements: %2").arg(isRange ? QStringLiteral("yes") : QStringLiteral("no"), elementsText(ports)));
    ok &= isRange && ports == QList<QVariant>({8000u, 8010u});
    const QList<QVariant> retries = config.getValueRange(QStringLiteral("Demo.Retries"), isRange, QMetaType::Int, QString());
    say(QStringLiteral("Demo.Retries -> range: %1, elements: %2").arg(isRange ? QStringLiteral("yes") : QStringLiteral("no"), elementsText(retries)));
    ok &= !isRange && retries == QList<QVariant>({1, 2, 5});
    const QList<QVariant> offset = config.getValueRange(QStringLiteral("Demo.Offset"), isRange, QMetaType::Int, QString());
    say(QStringLiteral("Demo.Offset  -> range: %1, elements: %2 (a hyphen is always the range mark, so \"-5\"")
            .arg(isRange ? QStringLiteral("yes") : QStringLiteral("no"), elementsText(offset)));
    say(QStringLiteral("                reads as a range that ends at 5; an unquoted list such as \"-1, -2\" keeps its signs)"));
    ok &= isRange && offset == QList<QVariant>{QVariant(5)};
    const QList<QVariant> absent = config.getValueRange(QStringLiteral("Demo.Threads"), isRange, QMetaType::Int,
                                                        QStringLiteral("2, 4"));
    say(QStringLiteral("Demo.Threads -> absent, so the default \"2, 4\" is read instead: %1").arg(elementsText(absent)));
    ok &= absent == QList<QVariant>({2, 4});
    return ok;
}
