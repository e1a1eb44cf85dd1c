#include "twtestsupport.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QMetaMethod>
#include <QtCore/QMutexLocker>

namespace TWTest {

TempWorkDir::TempWorkDir()
    : _previous(QDir::currentPath())
{
    if (_dir.isValid())
        QDir::setCurrent(_dir.path());
}

TempWorkDir::~TempWorkDir()
{
    QDir::setCurrent(_previous);
}

bool TempWorkDir::isValid() const
{
    return _dir.isValid();
}

QString TempWorkDir::path() const
{
    return _dir.path();
}

QString TempWorkDir::filePath(const QString& name) const
{
    return _dir.filePath(name);
}

QStringList TempWorkDir::files(const QStringList& nameFilters) const
{
    return QDir(_dir.path()).entryList(nameFilters, QDir::Files | QDir::Hidden, QDir::Name);
}

bool TempWorkDir::writeFile(const QString& name, const QByteArray& content) const
{
    QFile file(filePath(name));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return file.write(content) == content.size();
}

QByteArray TempWorkDir::readFile(const QString& name) const
{
    QFile file(filePath(name));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

bool RecordingLogger::writeLog(const QString& msg, QtMsgType type, const QString& file, int line,
                               const QString& function)
{
    QMutexLocker locker(&_mutex);
    _records.append({msg, type, file, line, function});
    return true;
}

bool RecordingLogger::writeLog(QtMsgType type, const QMessageLogContext&, const QString& msg)
{
    return writeLog(msg, type, QString(), 0, QString());
}

QList<LogRecord> RecordingLogger::records() const
{
    QMutexLocker locker(&_mutex);
    return _records;
}

QStringList RecordingLogger::messages() const
{
    QMutexLocker locker(&_mutex);
    QStringList out;
    for (const LogRecord& r : _records)
        out.append(r.msg);
    return out;
}

void RecordingLogger::clear()
{
    QMutexLocker locker(&_mutex);
    _records.clear();
}

namespace {
QMutex captureMutex;
QList<MessageCapture::Message> captured;
QtMessageHandler previousHandler = nullptr;

void captureHandler(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    QMutexLocker locker(&captureMutex);
    captured.append({type, text});
}
} // namespace

MessageCapture::MessageCapture()
{
    clear();
    previousHandler = qInstallMessageHandler(captureHandler);
}

MessageCapture::~MessageCapture()
{
    qInstallMessageHandler(previousHandler);
}

QList<MessageCapture::Message> MessageCapture::messages() const
{
    QMutexLocker locker(&captureMutex);
    return captured;
}

QStringList MessageCapture::texts() const
{
    QStringList out;
    for (const Message& m : messages())
        out.append(m.text);
    return out;
}

void MessageCapture::clear()
{
    QMutexLocker locker(&captureMutex);
    captured.clear();
}

MapConfig::MapConfig(const QVariantMap& values)
    : values(values)
{
}

QVariant MapConfig::getValue(const QString& key, const QVariant& defaultValue)
{
    keys.append(key);
    return values.value(key, defaultValue);
}

ProcessResult runProcess(const QString& program, const QStringList& arguments,
                         const QString& workingDirectory, int timeoutMs)
{
    ProcessResult result;
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    if (!workingDirectory.isEmpty())
        process.setWorkingDirectory(workingDirectory);
    process.start(program, arguments);
    result.started = process.waitForStarted(timeoutMs);
    if (!result.started)
        return result;
    process.waitForFinished(timeoutMs);
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return result;
}

QString helperPath(const QString& name)
{
    return QStringLiteral(TW_TEST_HELPER_DIR) + QLatin1Char('/') + name;
}

QStringList metaMethods(const QMetaObject* metaObject)
{
    static const char* const access[] = {"private", "protected", "public"};
    static const char* const kind[] = {"method", "signal", "slot", "constructor"};
    QStringList out;
    for (int i = metaObject->methodOffset(); i < metaObject->methodCount(); ++i) {
        const QMetaMethod m = metaObject->method(i);
        QStringList params;
        for (int p = 0; p < m.parameterCount(); ++p)
            params << QString::fromLatin1(m.parameterTypes().at(p) + ' ' + m.parameterNames().at(p));
        out << QStringLiteral("%1 %2 %3 %4(%5)")
                   .arg(QLatin1String(access[m.access()]), QLatin1String(kind[m.methodType()]),
                        QLatin1String(m.typeName()), QString::fromLatin1(m.name()), params.join(QStringLiteral(", ")));
    }
    return out;
}

} // namespace TWTest
