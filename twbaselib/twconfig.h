#ifndef TWCONFIG_H
#define TWCONFIG_H

#include "twglobal.h"
#include "twinterfaces.h"

#include <QtCore/qlist.h>
#include <QtCore/qmetatype.h>
#include <QtCore/qmutex.h>
#include <QtCore/qstring.h>
#include <QtCore/qvariant.h>

QT_BEGIN_NAMESPACE
class QSettings;
QT_END_NAMESPACE

namespace TW {

/*!
 * Reads the settings of one INI file and hands them out as typed values.
 *
 * Keys go to QSettings as they are, so "Main.LogFilePath" is a single key of
 * the file's default group. Nothing is ever written back.
 *
 * A missing file is never fatal: every read takes a default and returns it when
 * the key is absent, when nothing is loaded (with a warning) or when the value
 * does not fit the asked type (with a warning). Reports go through qCritical
 * and qWarning, not through the logger.
 *
 * Every getter calls getValue() through the virtual table, so a subclass that
 * overrides getValue() alone changes them all. Any thread may read; a load()
 * while others read lets them see defaults for a moment.
 */
class TWBASELIB_EXPORT TWConfig : public TWConfigIface
{
public:
    /*! Loads nothing: reads give defaults with a warning until load() succeeds. */
    TWConfig();
    ~TWConfig() override;

    /*! The process-wide configuration, made at the first call (which must not race). */
    static TWConfig* globalInstance();

    /*!
     * Drops the loaded file and loads \a fileName. Returns false, with a
     * critical message, when the file is missing or unreadable; nothing is
     * loaded then, even if a file was before. The contents are never refused:
     * what QSettings cannot parse simply gives no keys.
     */
    bool load(const QString& fileName);
    /*! Absolute path of the loaded file; empty when nothing is loaded. */
    QString fileName();
    /*! Picks up changes the loaded file has undergone on disk; does nothing when none is loaded. */
    void sync();

    /*!
     * The value of \a key, or \a defaultValue when the key is absent. With
     * nothing loaded, warns and returns \a defaultValue.
     */
    QVariant getValue(const QString& key, const QVariant& defaultValue) override;
    /*! The value as QVariant::toString gives it. */
    QString getStrValue(const QString& key, const QString& defaultValue) override;
    /*! The value as QVariant::toStringList gives it. */
    QList<QString> getStrListValue(const QString& key, const QList<QString>& defaultValue) override;
    /*! The value as QVariant::toBool gives it: an unknown word is true. Never warns. */
    bool getBoolValue(const QString& key, bool defaultValue) override;
    /*! The value as an unsigned int; a value that is no such number warns and gives \a defaultValue. */
    unsigned int getUIntValue(const QString& key, unsigned int defaultValue) override;
    /*! The value as an int; a value that is no such number warns and gives \a defaultValue. */
    int getIntValue(const QString& key, int defaultValue) override;
    /*! The value as an unsigned long long; a value that is no such number warns and gives \a defaultValue. */
    unsigned long long getULongLongValue(const QString& key, unsigned long long defaultValue) override;
    /*! The value as a long long; a value that is no such number warns and gives \a defaultValue. */
    long long getLongLongValue(const QString& key, long long defaultValue) override;
    /*!
     * Reads "13" (one element), "0 - 100" (minimum and maximum, \a isRange
     * true) or "2, 3, 4, 5" (a list) as elements of \a type: QMetaType::Bool,
     * Int, UInt, LongLong, ULongLong (all parsed as decimal numbers; Bool gives
     * int elements) or QString. \a defaultValue is text in the same form, used
     * when the key is absent. Every "-" counts as the range mark, so a plain
     * "-5" reads as the range end 5; a list written unquoted in the file may
     * hold negative items. Blank items are skipped. On an unsupported type or
     * form, or an item that does not parse, reports a critical message and
     * returns an empty list; a partial list is never returned.
     */
    QList<QVariant> getValueRange(const QString& key, bool& isRange, QMetaType::Type type,
                                  const QString& defaultValue) override;
    /*!
     * The value as an absolute path with "/" appended; a relative value is
     * resolved against the current folder. An empty value gives "/". Whether
     * the folder exists is not checked.
     */
    QString getFolder(const QString& key, const QString& defaultValue) override;

private:
    Q_DISABLE_COPY(TWConfig)

    bool _initialize(const QString& fileName);
    bool _uninitialize();

    QMutex _locker;
    bool _isInitialized;
    QSettings* _pSettings;

    static TWConfig* glb_pInstance;
};

} // namespace TW

#endif // TWCONFIG_H
