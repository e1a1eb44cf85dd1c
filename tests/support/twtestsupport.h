#ifndef TWTESTSUPPORT_H
#define TWTESTSUPPORT_H

#include <twconfig.h>
#include <twinterfaces.h>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>
#include <QtCore/QVariantMap>

namespace TWTest {

/*!
 * A fresh temporary folder that is also the current folder for the lifetime of
 * the object; the previous current folder comes back on destruction.
 */
class TempWorkDir
{
public:
    TempWorkDir();
    ~TempWorkDir();
    TempWorkDir(const TempWorkDir&) = delete;
    TempWorkDir& operator=(const TempWorkDir&) = delete;

    bool isValid() const;
    QString path() const;
    /*! Absolute path of \a name inside the folder. */
    QString filePath(const QString& name) const;
    /*! Names of the plain files in the folder, sorted. */
    QStringList files(const QStringList& nameFilters = {}) const;
    /*! Writes \a content to \a name in the folder; false on failure. */
    bool writeFile(const QString& name, const QByteArray& content = {}) const;
    QByteArray readFile(const QString& name) const;

private:
    QTemporaryDir _dir;
    QString _previous;
};

/*! One call of a logger, as a RecordingLogger keeps it. */
struct LogRecord
{
    QString msg;
    QtMsgType type;
    QString file;
    int line;
    QString function;
};

/*! A logger that keeps what it is given, for tests of the classes that report through one. */
class RecordingLogger : public TWLoggerIface
{
public:
    bool writeLog(const QString& msg, QtMsgType type, const QString& file, int line,
                  const QString& function) override;
    bool writeLog(QtMsgType type, const QMessageLogContext& context, const QString& msg) override;

    QList<LogRecord> records() const;
    QStringList messages() const;
    void clear();

private:
    mutable QMutex _mutex;
    QList<LogRecord> _records;
};

/*!
 * Captures Qt's messages (qDebug, qWarning, ...) while it lives, and restores
 * the previous handler afterwards.
 */
class MessageCapture
{
public:
    MessageCapture();
    ~MessageCapture();
    MessageCapture(const MessageCapture&) = delete;
    MessageCapture& operator=(const MessageCapture&) = delete;

    struct Message
    {
        QtMsgType type;
        QString text;
    };
    QList<Message> messages() const;
    QStringList texts() const;
    void clear();
};

/*! A queue item that serialises to a fixed text. */
class TextItem : public TWQueueItemIface
{
public:
    explicit TextItem(const QString& text = QString()) : _text(text) {}
    QString serialize() override { return _text; }
    void setText(const QString& text) { _text = text; }

private:
    QString _text;
};

/*!
 * A configuration whose raw values come from a map instead of a file. Every
 * typed getter of TWConfig reads through getValue(), so all of them see the
 * map; each key asked is recorded.
 */
class MapConfig : public TW::TWConfig
{
public:
    explicit MapConfig(const QVariantMap& values = {});
    QVariant getValue(const QString& key, const QVariant& defaultValue) override;

    QVariantMap values;
    QStringList keys;
};

/*! Output and exit of a child program. */
struct ProcessResult
{
    bool started = false;
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

/*! Runs \a program with \a arguments to its end (no standard input) and returns what it printed. */
ProcessResult runProcess(const QString& program, const QStringList& arguments,
                         const QString& workingDirectory = QString(), int timeoutMs = 60000);

/*! Path of a helper program built beside the tests. */
QString helperPath(const QString& name);

/*!
 * The methods that \a metaObject adds to its base, in their order, one line
 * each: "public signal void release(TWThread* pThread)".
 */
QStringList metaMethods(const QMetaObject* metaObject);

} // namespace TWTest

#endif // TWTESTSUPPORT_H
