#include "twobject.h"

#include "twlogger.h"

#include <QtCore/qmutex.h>

namespace TW {

QMap<QString, TWObject*> TWObject::glb_instances;
QMutex TWObject::glb_locker;

TWObject::TWObject(const QString& name)
    : _pLogger(nullptr)
{
    // Qualified, so no derived override is reached from here.
    TWObject::setName(name);
}

// Copies carry the name along but do not register it: the registry only keeps
// names unique among freshly named objects and its pointers are never read.
TWObject::TWObject(const TWObject& other)
    : TWObjectIface()
    , _pLogger(other._pLogger)
    , _lastErrorStr(other._lastErrorStr)
    , _name(other._name)
    , _descHint(other._descHint)
    , _desc(other._desc)
{
}

TWObject& TWObject::operator=(const TWObject& other)
{
    if (this != &other) {
        _pLogger = other._pLogger;
        _lastErrorStr = other._lastErrorStr;
        _name = other._name;
        _descHint = other._descHint;
        _desc = other._desc;
    }
    return *this;
}

TWObject::~TWObject()
{
    QMutexLocker locker(&glb_locker);
    glb_instances.remove(_name);
}

const QString TWObject::className()
{
    return QStringLiteral("TWObject");
}

void TWObject::setLogger(TWLoggerIface* logger)
{
    _pLogger = logger;
}

TWLoggerIface* TWObject::logger()
{
    return _pLogger;
}

bool TWObject::isThereError()
{
    return !_lastErrorStr.isEmpty();
}

const QString& TWObject::lastErrorStr()
{
    return _lastErrorStr;
}

const QString& TWObject::setName(const QString& name)
{
    QMutexLocker locker(&glb_locker);

    const QString previous = _name;
    const QString stem = name.isEmpty() ? className() : name;
    const auto suffix = [](int n) { return QStringLiteral("%1").arg(n, 5, 10, QLatin1Char('0')); };

    // An empty name always carries a number; a given name only on a collision.
    // The object's own entry is not exempt, so re-setting the current name
    // moves it to the next free number.
    QString candidate = name.isEmpty() ? stem + suffix(0) : name;
    for (int n = 1; glb_instances.contains(candidate); ++n)
        candidate = stem + suffix(n);

    if (!previous.isEmpty())
        glb_instances.remove(previous);
    glb_instances.insert(candidate, this);
    _name = candidate;
    return _name;
}

const QString& TWObject::name()
{
    return _name;
}

const QString& TWObject::descHint()
{
    return _descHint;
}

void TWObject::setDescHint(const QString& hint)
{
    _descHint = hint;
}

const QString& TWObject::desc()
{
    return _desc;
}

void TWObject::setDesc(const QString& descHint, const QString& desc)
{
    _descHint = descHint;
    _desc = desc;
}

void TWObject::setDesc(const QString& desc)
{
    _desc = desc;
}

void TWObject::_resetLastError()
{
    _lastErrorStr.clear();
}

void TWObject::_setLastError(const QString& msg, const QString& file, int line,
                             const QString& function)
{
    // The text is kept first, so it stands even when the log line is lost.
    _lastErrorStr = msg;
    _writeLog(msg, QtCriticalMsg, file, line, function);
}

bool TWObject::_writeLog(const QString& msg, QtMsgType type, const QString& file, int line,
                         const QString& function)
{
    TWLoggerIface* target = _pLogger ? _pLogger : TWLogger::globalInstance();
    return target->writeLog(msg, type, file, line, function);
}

} // namespace TW
