#ifndef TWLOGGER_H
#define TWLOGGER_H

#include "twglobal.h"
#include "twinterfaces.h"

#include <QtCore/qfile.h>
#include <QtCore/qlist.h>
#include <QtCore/qmutex.h>
#include <QtCore/qstring.h>

namespace TW {

/*!
 * Writes fixed-shape lines to numbered log files.
 *
 * Each accepted message becomes one line:
 *
 *   <date> <LEVEL   > - <message padded to 500> - in '<file>' file, line: <NNNNN>, function: '<sig>'
 *
 * followed by the line separator, and is flushed at once. The configured file
 * name "twoutput.log" is never written itself: lines go to "twoutput_0000.log",
 * "twoutput_0001.log", ... in the configured folder. At start the newest
 * numbered file is continued; once a file has reached maxFileSize() the next
 * line opens the next number. Old files are never removed.
 *
 * With console output on, the bare message is echoed to standard output too.
 * The logger has no error slot: when a file cannot be opened it prints the
 * reason and the lost line on standard output, returns false, and tries again
 * at the next line.
 *
 * writeLog() may be called from any thread and lines never interleave. The
 * setters are not locked: set the logger up before threads log through it.
 */
class TWBASELIB_EXPORT TWLogger : public TWLoggerIface
{
public:
    TWLogger();
    ~TWLogger() override;

    /*! The process-wide logger, made at the first call (which must not race). */
    static TWLogger* globalInstance();

    /*!
     * Logs \a msg when its level is accepted. Returns false only when the line
     * could not be written; a message of a level that is not accepted is
     * dropped and counts as success.
     */
    bool writeLog(const QString& msg, QtMsgType type, const QString& file, int line,
                  const QString& function) override;
    /*! Qt message handler shape: logs \a msg with no source location. */
    bool writeLog(QtMsgType type, const QMessageLogContext& context, const QString& msg) override;

    /*! Format of the date column, in the language of QDateTime::toString. */
    QString dateFormat() const;
    /*! A new format starts a new numbered file at once. */
    void setDateFormat(const QString& dateFormat);

    /*! Text written after each line; "\r\n" by default. */
    QString lineEndSepa() const;
    /*! A new separator starts a new numbered file at once. */
    void setLineEndSepa(const QString& lineEndSepa);

    /*! Whether accepted messages are echoed to standard output. */
    bool isConsoleOutput() const;
    void setConsoleOutput(bool consoleOutput);

    /*! The QtMsgType values that are logged; by default info, warning, critical and fatal. */
    QList<int> acceptedLogLevelList() const;
    /*! Accepts \a level unless it is accepted already. */
    void addAcceptedLogLevel(int level);
    /*! Stops accepting \a level. */
    void removeAcceptedLogLevel(int level);

    /*! Absolute path of the configured (unnumbered) log file. */
    QString file() const;
    /*! Sets folder and file name from one path; a change closes the current file. */
    void setFile(const QString& file);
    QString fileName() const;
    /*! A change closes the current file; the next line opens the right numbered one. */
    void setFileName(const QString& fileName);
    QString filePath() const;
    /*! A change closes the current file; the folder is not created. */
    void setFilePath(const QString& filePath);
    qint64 maxFileSize() const;
    /*!
     * Size from which the next line goes to a new file; zero or less means one
     * file per line. It is the file's size on the disk: lines that another
     * logger of the process appends count at once, those of another process
     * from the next millisecond on.
     */
    void setMaxFileSize(qint64 maxFileSize);

    /*!
     * Sets the logger up from the keys "<name>.LogFilePath",
     * "<name>.LogDateFormat", "<name>.LogMaxFileSize",
     * "<name>.LogLineEndSeparator" (CRLF, CR, LF or the text itself),
     * "<name>.LogConsoleOutput" and "<name>.LogAcceptedLevels" (a list of
     * level words or numbers) of \a config. An absent key, an empty value or a
     * size of zero or below keeps the present setting. A date format or
     * separator that differs from the present one starts a new numbered file.
     * Unknown level words are skipped with a warning. Returns false, with a
     * critical message, only when \a config is null.
     */
    bool readFromConfig(const QString& name, TWConfigIface* config);

private:
    Q_DISABLE_COPY(TWLogger)

    bool _writeLine(const char* bytes, qsizetype size, qsizetype lineLength, qint64 stamp);
    bool _initialize(bool reinitialize);
    bool _uninitialize();

    bool _isInitialized;
    QString _filePath;
    QString _fileName;
    QString _dateFormat;
    qint64 _maxFileSize;
    QString _lineEndSepa;
    bool _consoleOutput;
    QList<int> _acceptedLogLevels;
    QFile _file;
    QMutex _locker;
    // What is known of the open file's size without asking the system: the
    // last answer plus the bytes written since, and the time stamp of the line
    // that asked.
    qint64 _fileSize;
    qint64 _sizeStamp;

    static TWLogger* glb_pInstance;
};

namespace Internal {
/*!
 * \internal
 * \a msecsSinceEpoch as local time in the format language of
 * QDateTime::toString, with the same characters as Qt gives; common numeric
 * formats are produced without going through QDateTime.
 */
TWBASELIB_EXPORT QString formatLocalDateTime(qint64 msecsSinceEpoch, const QString& format);
} // namespace Internal

} // namespace TW

#endif // TWLOGGER_H
