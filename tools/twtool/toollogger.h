#ifndef TWTOOL_TOOLLOGGER_H
#define TWTOOL_TOOLLOGGER_H

#include <twinterfaces.h>

#include <QtCore/QMutex>
#include <QtCore/QSet>
#include <QtCore/QString>

namespace Tool {

/*!
 * The logger that the tool hands to the library's objects: their reports go
 * to standard error as "twtool <command>: <message>", never to a file in the
 * user's folder. A text that comes again (a write the library retries for
 * every record, say) is printed only the first time. Debug remarks are
 * dropped. Safe to call from any thread.
 */
class StderrLogger : public TWLoggerIface
{
public:
    bool writeLog(const QString& msg, QtMsgType type, const QString& file, int line,
                  const QString& function) override;
    bool writeLog(QtMsgType type, const QMessageLogContext& context, const QString& msg) override;

    /*! The command word put before each message. */
    void setCommand(const QString& command);
    /*! Critical and fatal reports received so far, repeats included. */
    int errorCount() const;

private:
    mutable QMutex _mutex;
    QString _command;
    QSet<QString> _printed;
    int _errors = 0;
};

/*! The tool's one logger. */
StderrLogger* logger();

/*!
 * Keeps the library's global logger from writing twoutput_0000.log into the
 * current folder: objects that report there should have been given logger(),
 * and any that still do are silenced rather than leave a file behind.
 */
void muteGlobalLogger();

} // namespace Tool

#endif // TWTOOL_TOOLLOGGER_H
