#include "toollogger.h"

#include "commandline.h"

#include <twlogger.h>

namespace Tool {

bool StderrLogger::writeLog(const QString& msg, QtMsgType type, const QString&, int, const QString&)
{
    if (type == QtDebugMsg)
        return true;
    QMutexLocker locker(&_mutex);
    if (type == QtCriticalMsg || type == QtFatalMsg)
        ++_errors;
    if (_printed.contains(msg))
        return true;
    _printed.insert(msg);
    err(QStringLiteral("twtool %1: %2%3")
            .arg(_command, type == QtWarningMsg ? QStringLiteral("warning: ") : QString(), msg));
    return true;
}

bool StderrLogger::writeLog(QtMsgType type, const QMessageLogContext&, const QString& msg)
{
    return writeLog(msg, type, QString(), 0, QString());
}

void StderrLogger::setCommand(const QString& command)
{
    QMutexLocker locker(&_mutex);
    _command = command;
}

int StderrLogger::errorCount() const
{
    QMutexLocker locker(&_mutex);
    return _errors;
}

StderrLogger* logger()
{
    static StderrLogger instance;
    return &instance;
}

void muteGlobalLogger()
{
    TW::TWLogger* global = TW::TWLogger::globalInstance();
    global->setConsoleOutput(false);
    for (int level : global->acceptedLogLevelList())
        global->removeAcceptedLogLevel(level);
}

} // namespace Tool
