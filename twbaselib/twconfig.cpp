#include "twconfig.h"

#include <QtCore/qdebug.h>
#include <QtCore/qfile.h>
#include <QtCore/qfileinfo.h>
#include <QtCore/qsettings.h>
#include <QtCore/qstringlist.h>

#include <new>

namespace TW {

TWConfig* TWConfig::glb_pInstance = nullptr;

namespace {

// Some Qt versions read text through a 64-bit number and cut it down to 32
// bits without failing, so "3000000000" would come back as a negative int.
// Text whose number does not fit the asked type is refused whatever Qt does.
bool fitsText(const QVariant& value, int result)
{
    return value.toLongLong() == result;
}

bool fitsText(const QVariant& value, unsigned int result)
{
    return value.toULongLong() == result;
}

} // namespace

TWConfig::TWConfig()
    : _isInitialized(false)
    , _pSettings(nullptr)
{
}

TWConfig::~TWConfig()
{
    _uninitialize();
}

TWConfig* TWConfig::globalInstance()
{
    if (!glb_pInstance) {
        glb_pInstance = new (std::nothrow) TWConfig();
        if (!glb_pInstance)
            qFatal("Couldn't allocate global config instance!");
    }
    return glb_pInstance;
}

bool TWConfig::load(const QString& fileName)
{
    return _initialize(fileName);
}

QString TWConfig::fileName()
{
    QMutexLocker locker(&_locker);
    return _isInitialized && _pSettings ? _pSettings->fileName() : QString();
}

void TWConfig::sync()
{
    QMutexLocker locker(&_locker);
    if (_pSettings)
        _pSettings->sync();
}

bool TWConfig::_initialize(const QString& fileName)
{
    // The previous file goes first, so a failed load leaves nothing loaded
    // rather than a stale file that no longer matches what was asked for.
    _uninitialize();

    const QFileInfo info(fileName);
    const QString path = info.absoluteFilePath();
    if (!info.exists()) {
        qCritical() << "Config file not found!" << path;
        return false;
    }

    // QSettings reads an unreadable file as an empty one; prove it readable first.
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qCritical() << "Couldn't open config file for read!" << path << file.errorString();
        return false;
    }
    file.close();

    try {
        QMutexLocker locker(&_locker);
        _pSettings = new (std::nothrow) QSettings(path, QSettings::IniFormat);
        if (!_pSettings) {
            qCritical() << "Couldn't load config file!" << path;
            locker.unlock();
            return false;
        }
        _pSettings->sync();
        _isInitialized = true;
        locker.unlock();
        return true;
    } catch (const std::bad_alloc&) {
        // Whatever was made stays owned by _pSettings and goes with the next load.
        return false;
    }
}

bool TWConfig::_uninitialize()
{
    QMutexLocker locker(&_locker);
    if (_isInitialized) {
        delete _pSettings;
        _pSettings = nullptr;
        _isInitialized = false;
    }
    return true;
}

QVariant TWConfig::getValue(const QString& key, const QVariant& defaultValue)
{
    // Running out of memory while reading gives the default, as any failed read does.
    try {
        QMutexLocker locker(&_locker);
        if (!_isInitialized) {
            qWarning() << "Config handler is not initialized! Key:" << key << "Used value:" << defaultValue;
            locker.unlock();
            return defaultValue;
        }
        const QVariant value = _pSettings->value(key, defaultValue);
        locker.unlock();
        return value.isValid() ? value : defaultValue;
    } catch (const std::bad_alloc&) {
        return defaultValue;
    }
}

QString TWConfig::getStrValue(const QString& key, const QString& defaultValue)
{
    return getValue(key, QVariant(defaultValue)).toString();
}

QList<QString> TWConfig::getStrListValue(const QString& key, const QList<QString>& defaultValue)
{
    return getValue(key, QVariant(defaultValue)).toStringList();
}

bool TWConfig::getBoolValue(const QString& key, bool defaultValue)
{
    return getValue(key, QVariant(defaultValue)).toBool();
}

unsigned int TWConfig::getUIntValue(const QString& key, unsigned int defaultValue)
{
    const QVariant value = getValue(key, QVariant(defaultValue));
    bool ok = false;
    const unsigned int result = value.toUInt(&ok);
    if (ok && value.typeId() == QMetaType::QString)
        ok = fitsText(value, result);
    if (ok)
        return result;
    qWarning() << value.toString() << "is not a valid unsigned integer value! Used value:" << defaultValue;
    return defaultValue;
}

int TWConfig::getIntValue(const QString& key, int defaultValue)
{
    const QVariant value = getValue(key, QVariant(defaultValue));
    bool ok = false;
    const int result = value.toInt(&ok);
    if (ok && value.typeId() == QMetaType::QString)
        ok = fitsText(value, result);
    if (ok)
        return result;
    qWarning() << value.toString() << "is not a valid integer value! Used value:" << defaultValue;
    return defaultValue;
}

unsigned long long TWConfig::getULongLongValue(const QString& key, unsigned long long defaultValue)
{
    const QVariant value = getValue(key, QVariant(qulonglong(defaultValue)));
    bool ok = false;
    const unsigned long long result = value.toULongLong(&ok);
    if (ok)
        return result;
    qWarning() << value.toString() << "is not a valid unsigned long long value! Used value:"
               << qulonglong(defaultValue);
    return defaultValue;
}

long long TWConfig::getLongLongValue(const QString& key, long long defaultValue)
{
    // The default travels as an unsigned long long, as it always has: the
    // conversion below gives the same bits back, and only the "not initialized"
    // warning shows it (a default of -1 prints as 18446744073709551615). Hosts
    // may match that text, so it stays.
    const QVariant value = getValue(key, QVariant(qulonglong(defaultValue)));
    bool ok = false;
    const long long result = value.toLongLong(&ok);
    if (ok)
        return result;
    qWarning() << value.toString() << "is not a valid long long value! Used value:" << qlonglong(defaultValue);
    return defaultValue;
}

QList<QVariant> TWConfig::getValueRange(const QString& key, bool& isRange, QMetaType::Type type,
                                        const QString& defaultValue)
{
    isRange = false;
    QList<QVariant> result;

    switch (type) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::QString:
        break;
    default:
        qCritical() << "Unsupported value range type:" << int(type)
                    << "Supported types: bool, string, int, uint, longlong, ulonglong. Key:" << key;
        return result;
    }

    const QVariant value = getValue(key, QVariant(defaultValue));
    QStringList items;
    if (value.typeId() == QMetaType::QStringList) {
        // QSettings split an unquoted comma list already; its items are taken
        // as they are, so negative numbers in such a list keep their sign.
        items = value.toStringList();
    } else {
        const QString text = value.toString();
        const bool hasHyphen = text.contains(QLatin1Char('-'));
        const bool hasComma = text.contains(QLatin1Char(','));
        if (hasHyphen && hasComma) {
            qCritical() << "Unsupported value range format:" << text
                        << "Supported formats ex: 13 or 0 - 100 or 2, 3, 4, 5 etc. Key:" << key;
            return result;
        }
        if (hasComma) {
            items = text.split(QLatin1Char(','), Qt::KeepEmptyParts);
        } else if (hasHyphen) {
            // Every hyphen is the range mark, a leading one included: "-5"
            // reads as a range with an empty minimum.
            items = text.split(QLatin1Char('-'), Qt::KeepEmptyParts);
            if (items.size() != 2) {
                qCritical() << "Wrong range format:" << text
                            << "Supported range format ex: 0 - 100. Must be min and max value. Key:" << key;
                return result;
            }
            isRange = true;
        } else {
            items.append(text);
        }
    }

    result.reserve(items.size());
    for (const QString& item : std::as_const(items)) {
        const QString trimmed = item.trimmed();
        if (trimmed.isEmpty())
            continue;

        bool ok = true;
        QVariant element;
        switch (type) {
        case QMetaType::Bool: // read as a number on purpose: "1" and "0", not "true"
        case QMetaType::Int:
            element = QVariant(trimmed.toInt(&ok, 10));
            break;
        case QMetaType::UInt:
            element = QVariant(trimmed.toUInt(&ok, 10));
            break;
        case QMetaType::LongLong:
            element = QVariant(trimmed.toLongLong(&ok, 10));
            break;
        case QMetaType::ULongLong:
            element = QVariant(trimmed.toULongLong(&ok, 10));
            break;
        case QMetaType::QString:
            element = QVariant(trimmed);
            break;
        default:
            qWarning() << "Type:" << int(type) << "is not handled! String will be used. Key:" << key;
            element = QVariant(trimmed);
            break;
        }
        if (!ok) {
            qCritical() << "Value =" << trimmed << "is not matched with type =" << int(type) << "Key:" << key;
            result.clear();
            return result;
        }
        result.append(element);
    }
    return result;
}

QString TWConfig::getFolder(const QString& key, const QString& defaultValue)
{
    const QString value = getValue(key, QVariant(defaultValue)).toString();
    return QFileInfo(value).absoluteFilePath() + QLatin1Char('/');
}

} // namespace TW
