#ifndef TWINTERFACES_H
#define TWINTERFACES_H

#include "twglobal.h"

#include <QtCore/qlist.h>
#include <QtCore/qlogging.h>
#include <QtCore/qmetatype.h>
#include <QtCore/qobject.h>
#include <QtCore/qstring.h>
#include <QtCore/qstringlist.h>
#include <QtCore/qvariant.h>

// The abstract faces of the library. They live in the global namespace so that
// host code can implement them without pulling in the TW namespace.

class TWLoggerIface;

/*!
 * What code outside the class tree sees of a named object: its logger, its
 * last error and its process-wide unique name.
 */
class TWBASELIB_EXPORT TWObjectIface
{
public:
    virtual ~TWObjectIface();

    /*! Sets the logger that receives this object's reports; null means the global logger. */
    virtual void setLogger(TWLoggerIface* logger) = 0;
    /*! The object's own logger, or null when it reports to the global one. */
    virtual TWLoggerIface* logger() = 0;
    /*! True while a last error stands (it is never cleared by a later success). */
    virtual bool isThereError() = 0;
    /*! Text of the last failure; empty when none stands. */
    virtual const QString& lastErrorStr() = 0;
    /*! Gives the object a unique name and returns the name it actually got. */
    virtual const QString& setName(const QString& name) = 0;
    /*! The object's unique name. */
    virtual const QString& name() = 0;
};

/*!
 * A sink for log lines. TW::TWLogger is the library's implementation; a host may
 * put its own behind this interface and hand it to TW::TWObject::setLogger.
 */
class TWBASELIB_EXPORT TWLoggerIface
{
public:
    virtual ~TWLoggerIface();

    /*!
     * Logs \a msg at level \a type with its source location. Returns false when
     * the line could not be written.
     */
    virtual bool writeLog(const QString& msg, QtMsgType type, const QString& file, int line,
                          const QString& function) = 0;
    /*!
     * The shape of a Qt message handler, so that a host can forward Qt's own
     * messages: the context is ignored and the line names no source location.
     */
    virtual bool writeLog(QtMsgType type, const QMessageLogContext& context, const QString& msg) = 0;
};

/*!
 * A source of typed settings. Every read takes the value to use when the
 * setting is absent or unusable, so a caller always gets something to work
 * with. TW::TWConfig reads an INI file; a host may supply its settings from
 * elsewhere by implementing this interface.
 */
class TWBASELIB_EXPORT TWConfigIface
{
public:
    virtual ~TWConfigIface();

    /*! The raw value of \a key, or \a defaultValue when there is none. */
    virtual QVariant getValue(const QString& key, const QVariant& defaultValue) = 0;
    /*! The value as text. */
    virtual QString getStrValue(const QString& key, const QString& defaultValue) = 0;
    /*! The value as a list of texts (an unquoted comma in an INI value makes a list). */
    virtual QList<QString> getStrListValue(const QString& key, const QList<QString>& defaultValue) = 0;
    /*! The value as a boolean. */
    virtual bool getBoolValue(const QString& key, bool defaultValue) = 0;
    /*! The value as an unsigned int; \a defaultValue when it is no such number. */
    virtual unsigned int getUIntValue(const QString& key, unsigned int defaultValue) = 0;
    /*! The value as an int; \a defaultValue when it is no such number. */
    virtual int getIntValue(const QString& key, int defaultValue) = 0;
    /*! The value as an unsigned long long; \a defaultValue when it is no such number. */
    virtual unsigned long long getULongLongValue(const QString& key,
                                                 unsigned long long defaultValue) = 0;
    /*! The value as a long long; \a defaultValue when it is no such number. */
    virtual long long getLongLongValue(const QString& key, long long defaultValue) = 0;
    /*!
     * A single value ("13"), a range ("0 - 100", \a isRange true) or a list
     * ("2, 3, 4, 5") of elements of \a type. \a defaultValue is text in the same
     * form. Returns an empty list when the value does not fit.
     */
    virtual QList<QVariant> getValueRange(const QString& key, bool& isRange, QMetaType::Type type,
                                          const QString& defaultValue) = 0;
    /*! The value as an absolute folder path ending in "/". */
    virtual QString getFolder(const QString& key, const QString& defaultValue) = 0;
};

/*!
 * What a producer hands to TW::TWQueue::enqueueItem: an item that can give
 * itself as one line of text. The queue calls serialize() once and keeps only
 * the text; an empty text means the item could not be serialised. The text
 * must hold no line feed and no "|TWQ|", which would spoil the cache file.
 */
class TWBASELIB_EXPORT TWQueueItemIface
{
public:
    virtual ~TWQueueItemIface();

    virtual QString serialize() = 0;
};

/*!
 * A job that a TW::TWThread runs: the host derives from this class, does the
 * work in process() and emits finished() when the work is over.
 *
 * The thread moves the worker onto itself before it starts, so process() runs
 * on the new thread; the thread ends once finished() has been emitted. A worker
 * that never emits finished() keeps its thread running until it is told to
 * quit. The thread reaches both members by their signatures only.
 */
class TWBASELIB_EXPORT TWThreadWorkerIface : public QObject
{
    Q_OBJECT

public:
    explicit TWThreadWorkerIface(QObject* parent = nullptr);
    ~TWThreadWorkerIface() override;

public slots:
    /*! Does the work, on the worker thread; emits finished() when done. */
    virtual void process() = 0;

signals:
    /*! Tells the thread that the work is over. */
    void finished();
};

#endif // TWINTERFACES_H
