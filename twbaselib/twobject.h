#ifndef TWOBJECT_H
#define TWOBJECT_H

#include "twglobal.h"
#include "twinterfaces.h"

#include <QtCore/qmap.h>
#include <QtCore/qmutex.h>
#include <QtCore/qstring.h>

namespace TW {

/*!
 * Base of the library's long-lived classes that can fail.
 *
 * Every instance holds a process-wide unique name: a name that is taken gets a
 * five-digit number appended ("Q", "Q00001", ...), and an empty name becomes
 * "TWObject00000", "TWObject00001", and so on, reusing numbers that destroyed
 * objects have freed. Read name() back after construction.
 *
 * A failure is reported with _setLastError(), which keeps the text and logs it
 * as a critical line through the object's own logger, or through
 * TWLogger::globalInstance() when none is set. The last error is never cleared
 * by a later success: isThereError() tells whether anything has failed since
 * the object was made, and the return value of a call tells whether that call
 * failed.
 *
 * Copies share the name of their source without registering it again.
 * Naming is thread-safe; the other fields are not locked.
 */
class TWBASELIB_EXPORT TWObject : public TWObjectIface
{
public:
    TWObject(const QString& name = QString());
    TWObject(const TWObject& other);
    TWObject& operator=(const TWObject& other);
    ~TWObject() override;

    /*! The literal "TWObject". */
    static const QString className();

    void setLogger(TWLoggerIface* logger) override;
    TWLoggerIface* logger() override;
    bool isThereError() override;
    const QString& lastErrorStr() override;
    /*!
     * Registers \a name, or the first free "<name>NNNNN" when it is taken (even
     * by this object), and frees the previous name. Returns the stored name.
     */
    const QString& setName(const QString& name) override;
    const QString& name() override;

    virtual const QString& descHint();
    virtual void setDescHint(const QString& hint);
    virtual const QString& desc();
    /*! Sets the hint and the description at once. */
    virtual void setDesc(const QString& descHint, const QString& desc);
    /*! Sets the description and leaves the hint. */
    virtual void setDesc(const QString& desc);

protected:
    /*! Clears the last error. */
    virtual void _resetLastError();
    /*! Stores \a msg as the last error and logs it as a critical line. */
    virtual void _setLastError(const QString& msg, const QString& file, int line,
                               const QString& function);
    /*! Logs \a msg through the object's logger, or the global one when none is set. */
    virtual bool _writeLog(const QString& msg, QtMsgType type, const QString& file, int line,
                           const QString& function);

    static QMap<QString, TW::TWObject*> glb_instances;
    static QMutex glb_locker;

private:
    TWLoggerIface* _pLogger;
    QString _lastErrorStr;
    QString _name;
    QString _descHint;
    QString _desc;
};

} // namespace TW

#endif // TWOBJECT_H
