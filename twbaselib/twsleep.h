#ifndef TWSLEEP_H
#define TWSLEEP_H

#include "twglobal.h"

#include <QtCore/qthread.h>

namespace TW {

/*!
 * Pauses the calling thread. The three waits are static and may be called from
 * any thread; they block only the caller and cannot fail. The class is never
 * started as a thread.
 */
class TWBASELIB_EXPORT TWSleep : public QThread
{
public:
    TWSleep();

    /*! Sleeps for \a seconds seconds. */
    static void wait(unsigned long seconds);
    /*! Sleeps for \a msecs milliseconds. */
    static void mwait(unsigned long msecs);
    /*! Sleeps for \a usecs microseconds. */
    static void uwait(unsigned long usecs);
};

} // namespace TW

#endif // TWSLEEP_H
