#ifndef TWTIMEMEASURE_H
#define TWTIMEMEASURE_H

#include "twglobal.h"
#include "twinterfaces.h"
#include "twobject.h"

#include <QtCore/qelapsedtimer.h>
#include <QtCore/qobject.h>

namespace TW {

/*!
 * Measures how long a scope takes. Made at the start of the scope, it logs one
 * line when it is destroyed:
 *
 *   "<name> running time is <milliseconds, with fractions> msec"
 *
 * at the level given to the constructor, through its own logger or the global
 * one. Whether the line is written depends on the logger's accepted levels; a
 * failure to write it goes unreported.
 *
 * \code
 * {
 *     TW::TWTimeMeasure measure(QStringLiteral("import"), QtInfoMsg, nullptr);
 *     importEverything();
 * } // logs "import running time is 12.3456 msec"
 * \endcode
 */
class TWBASELIB_EXPORT TWTimeMeasure : public QObject, public TWObject
{
public:
    /*! Starts the clock; \a type is the level of the closing line. */
    TWTimeMeasure(const QString& name, const QtMsgType& type, QObject* parent);
    /*! Logs the time since construction. */
    ~TWTimeMeasure() override;

    /*! The literal "TWTimeMeasure". */
    static const QString className();

    /*! The running clock, started at construction and never reset. */
    const QElapsedTimer& elapseTime() const;
    /*! The level of the closing line. */
    const QtMsgType& logLevel() const;

private:
    QtMsgType _logLevel;
    QElapsedTimer _elapseTime;
};

} // namespace TW

#endif // TWTIMEMEASURE_H
