#ifndef TWTESTSUPPORT_H
#define TWTESTSUPPORT_H

#include <twconfig.h>
#include <twinterfaces.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QMetaMethod>
#include <QtCore/QMutex>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtCore/QThread>
#include <QtCore/QVariantMap>

#include <functional>
#include <memory>
#include <vector>

#ifdef Q_OS_LINUX
#  include <sys/mount.h>
#  include <unistd.h>
#else
#  define MS_RDONLY 1 // nothing is mounted there
#endif

namespace TWTest {

/*! A fresh temporary folder that is the current folder while the object lives. */
class TempWorkDir
{
public:
    TempWorkDir() { QDir::setCurrent(_dir.path()); }
    ~TempWorkDir() { QDir::setCurrent(_previous); }

    QString path() const { return _dir.path(); }
    QString filePath(const QString& name) const { return _dir.filePath(name); }
    /*! Names of the plain files in the folder, sorted. */
    QStringList files(const QStringList& nameFilters = {}) const
    {
        return QDir(path()).entryList(nameFilters, QDir::Files | QDir::Hidden, QDir::Name);
    }
    bool writeFile(const QString& name, const QByteArray& content = {}) const
    {
        QFile file(filePath(name));
        return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
    }
    QByteArray readFile(const QString& name) const
    {
        QFile file(filePath(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private:
    QString _previous = QDir::currentPath();
    QTemporaryDir _dir;
};

struct LogRecord
{
    QString msg;
    QtMsgType type;
    QString file;
    int line;
    QString function;
};

/*! A logger that keeps what it is given, from any thread. */
class RecordingLogger : public TWLoggerIface
{
public:
    bool writeLog(const QString& msg, QtMsgType type, const QString& file, int line,
                  const QString& function) override
    {
        QMutexLocker locker(&_mutex);
        _records.append({msg, type, file, line, function});
        return true;
    }
    bool writeLog(QtMsgType type, const QMessageLogContext&, const QString& msg) override
    {
        return writeLog(msg, type, QString(), 0, QString());
    }

    QList<LogRecord> records() const
    {
        QMutexLocker locker(&_mutex);
        return _records;
    }
    QStringList messages() const
    {
        QStringList out;
        for (const LogRecord& r : records())
            out << r.msg;
        return out;
    }
    void clear()
    {
        QMutexLocker locker(&_mutex);
        _records.clear();
    }

private:
    mutable QMutex _mutex;
    QList<LogRecord> _records;
};

/*!
 * Qt's messages (qDebug, qWarning, ...) while it lives, each as its level's
 * letter and the text: "D ...", "W ...", "C ...", "I ...".
 */
class MessageCapture
{
public:
    MessageCapture()
    {
        QMutexLocker locker(&_mutex);
        _lines.clear();
        _previous = qInstallMessageHandler(&MessageCapture::handle);
    }
    ~MessageCapture() { qInstallMessageHandler(_previous); }
    Q_DISABLE_COPY(MessageCapture)

    QStringList lines() const
    {
        QMutexLocker locker(&_mutex);
        return _lines;
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext&, const QString& text)
    {
        QMutexLocker locker(&_mutex);
        static const char letters[] = "DWCFI"; // QtDebugMsg to QtInfoMsg
        _lines << QString(QLatin1Char(letters[type])) + QLatin1Char(' ') + text;
    }
    static inline QMutex _mutex;
    static inline QStringList _lines;
    QtMessageHandler _previous = nullptr;
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

/*! A configuration whose raw values come from a map; it records each key asked. */
class MapConfig : public TW::TWConfig
{
public:
    explicit MapConfig(const QVariantMap& values) : values(values) {}
    QVariant getValue(const QString& key, const QVariant& defaultValue) override
    {
        keys.append(key);
        return values.value(key, defaultValue);
    }

    QVariantMap values;
    QStringList keys;
};

/*! Runs \a body(0) to \a body(count - 1) on as many threads at once and waits for all of them. */
inline bool runThreads(int count, const std::function<void(int)>& body)
{
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(QThread::create(body, i))->start();
    bool ended = true;
    for (auto& thread : threads)
        ended = thread->wait(600000) && ended;
    return ended;
}

struct ProcessResult
{
    int exitCode; // -1 when it did not start, crashed or never ended
    QByteArray out;
    QByteArray err;
};

/*! Runs \a program to its end, with no standard input. */
inline ProcessResult runProcess(const QString& program, const QStringList& arguments,
                                const QString& workingDirectory = QString())
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setWorkingDirectory(workingDirectory);
    process.start(program, arguments);
    const bool ended = process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit;
    return {ended ? process.exitCode() : -1, process.readAllStandardOutput(), process.readAllStandardError()};
}

#ifdef TWTOOL_PATH
/*! Runs the built twtool in \a folder; \a arguments are split at blanks. */
inline ProcessResult runTool(const QString& arguments, const QString& folder)
{
    return runProcess(QStringLiteral(TWTOOL_PATH), arguments.split(u' ', Qt::SkipEmptyParts), folder);
}
#endif

/*!
 * Whether \a r ended with \a exitCode and shows \a text: on standard output
 * after a success, on standard error otherwise. Prints both streams when not.
 */
inline bool ended(const ProcessResult& r, int exitCode, const QByteArray& text = {})
{
    if (r.exitCode == exitCode && (exitCode ? r.err : r.out).contains(text))
        return true;
    qWarning("exit code %d\nout: %s\nerr: %s", r.exitCode, r.out.constData(), r.err.constData());
    return false;
}

/*! A tmpfs of \a options ("size=16k") on a temporary folder while it lives; mounted for root on Linux only. */
class Tmpfs
{
public:
    explicit Tmpfs(const char* options, unsigned long flags = 0)
    {
#ifdef Q_OS_LINUX
        _mounted = geteuid() == 0 && ::mount("tmpfs", QFile::encodeName(path()).constData(), "tmpfs", flags, options) == 0;
#else
        Q_UNUSED(options) Q_UNUSED(flags)
#endif
    }
    ~Tmpfs()
    {
#ifdef Q_OS_LINUX
        if (_mounted)
            ::umount(QFile::encodeName(path()).constData());
#endif
    }
    bool mounted() const { return _mounted; }
    QString path() const { return _dir.path(); }

private:
    QTemporaryDir _dir;
    bool _mounted = false;
};

/*! Path of a helper program built beside the tests. */
inline QString helperPath(const QString& name)
{
    return QStringLiteral(TW_TEST_HELPER_DIR "/") + name;
}

/*!
 * A class as its meta-object shows it: its name, its base's and the methods it
 * adds, in order: "TW::TWThread : QThread; public signal void release(TWThread* pThread); ...".
 */
inline QString describe(const QMetaObject& mo)
{
    static const char* const access[] = {"private", "protected", "public"};
    static const char* const kind[] = {"method", "signal", "slot", "constructor"};
    QStringList out{QStringLiteral("%1 : %2").arg(QLatin1String(mo.className()), QLatin1String(mo.superClass()->className()))};
    for (int i = mo.methodOffset(); i < mo.methodCount(); ++i) {
        const QMetaMethod m = mo.method(i);
        QStringList params;
        for (int p = 0; p < m.parameterCount(); ++p)
            params << QString::fromLatin1(m.parameterTypes().at(p) + ' ' + m.parameterNames().at(p));
        out << QStringLiteral("%1 %2 %3 %4(%5)").arg(QLatin1String(access[m.access()]), QLatin1String(kind[m.methodType()]),
                                                     QLatin1String(m.typeName()), QLatin1String(m.name()), params.join(QStringLiteral(", ")));
    }
    return out.join(QStringLiteral("; "));
}

} // namespace TWTest

#endif // TWTESTSUPPORT_H
