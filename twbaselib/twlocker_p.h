#ifndef TWLOCKER_P_H
#define TWLOCKER_P_H

// Private to the library: not installed, not part of the API.

#include <QtCore/qmutex.h>

#include <new>
#include <utility>

namespace TW::Internal {

/*!
 * \internal
 * Lets \a locker go without unlocking its mutex, which stays locked for good.
 *
 * Two failures leave an object locked on purpose (a pool that cannot make its
 * thread, a queue pool that cannot make its fallback queue): everything else
 * goes through a QMutexLocker so that no exit, thrown or returned, leaves a
 * mutex held by accident, and this is how those two say that they mean it.
 * The lock moves into a locker that is never destroyed.
 */
template <typename Mutex>
inline void keepLocked(QMutexLocker<Mutex>& locker)
{
    alignas(QMutexLocker<Mutex>) unsigned char storage[sizeof(QMutexLocker<Mutex>)];
    new (storage) QMutexLocker<Mutex>(std::move(locker));
}

} // namespace TW::Internal

#endif // TWLOCKER_P_H
