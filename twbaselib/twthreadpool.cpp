#include "twthreadpool.h"

#include "twlocker_p.h"

#include <QtCore/qcoreapplication.h>
#include <QtCore/qelapsedtimer.h>

#include <new>

namespace TW {

namespace {

// How long the pool's destructor gives each running thread to stop.
constexpr unsigned long StopTimeoutMsec = 10000;

// Pointers in messages are written with all 16 digits, so that they line up.
QString pointerDigits(const void* p)
{
    return QStringLiteral("%1").arg(quintptr(p), 16, 16, QLatin1Char('0'));
}

// The releases of a pool's threads arrive as queued events. On the
// application's thread the pool delivers them itself while it waits; any other
// thread only pauses, and relies on its owner to deliver them.
void pauseForReleases(const QObject* pool)
{
    const QCoreApplication* app = QCoreApplication::instance();
    if (app && pool->thread() == app->thread())
        QCoreApplication::processEvents();
    else
        QThread::msleep(10);
}

} // namespace

// ---------------------------------------------------------------------------
// TWThread

TWThread::TWThread(const QString& name, QObject* parent)
    : QThread(parent)
    , TWObject(name)
    , _pWorker(nullptr)
    , _busy(false)
{
}

TWThread::~TWThread() = default;

const QString TWThread::className()
{
    return QStringLiteral("TWThread");
}

void TWThread::setWorker(TWThreadWorkerIface* pWorker, bool autoDelete)
{
    removeWorker();
    if (!pWorker)
        return;
    _pWorker = pWorker;

    // Nothing here is made unique or taken away later: a worker that outlives
    // its job keeps answering started(), and every call adds one more
    // finished() -> _onThreadFinished() link, so the end of the thread is
    // announced once per worker it has been given.
    connect(this, SIGNAL(started()), pWorker, SLOT(process()));
    connect(pWorker, SIGNAL(finished()), this, SLOT(_onWorkerFinished()));
    connect(this, SIGNAL(finished()), this, SLOT(_onThreadFinished()));
    if (autoDelete)
        connect(pWorker, SIGNAL(finished()), pWorker, SLOT(deleteLater()));

    pWorker->moveToThread(this);
}

void TWThread::removeWorker()
{
    if (_pWorker)
        _pWorker = nullptr;
}

TWThreadWorkerIface* TWThread::worker() const
{
    return _pWorker;
}

bool TWThread::isBusy() const
{
    return _busy;
}

void TWThread::_onWorkerFinished()
{
    quit();
}

void TWThread::_onThreadFinished()
{
    emit release(this);
}

// ---------------------------------------------------------------------------
// TWThreadPool

TWThreadPool::TWThreadPool(const QString& name, unsigned short maxElement, QObject* parent)
    : QObject(parent)
    , TWObject(name)
    , _maxElement(maxElement)
{
}

TWThreadPool::~TWThreadPool()
{
    QMutexLocker locker(&_mutex);

    // Tell every thread first, so that they wind down side by side, and only
    // then wait for them one by one.
    for (TWThread* pThread : std::as_const(_threads)) {
        if (pThread->isRunning())
            pThread->quit();
    }
    for (TWThread* pThread : std::as_const(_threads)) {
        if (pThread->isRunning() && !pThread->wait(StopTimeoutMsec)) {
            try {
                _setLastError(QStringLiteral("Couldn't stop thread: 0x%1 on time: %2 msec!")
                                  .arg(pointerDigits(pThread))
                                  .arg(StopTimeoutMsec),
                              TW_SOURCE_LOCATION);
            } catch (const std::bad_alloc&) {
                // A destructor cannot fail; the thread goes all the same.
            }
        }
        delete pThread;
    }
    _threads.clear();
}

const QString TWThreadPool::className()
{
    return QStringLiteral("TWThreadPool");
}

TWThread* TWThreadPool::reserveThread()
{
    return _reserveThread(true);
}

TWThread* TWThreadPool::_reserveThread(bool reportFailure)
{
    // No exception leaves the pool: one thrown while a thread is made (Qt
    // reports a failed allocation that way) is a failed reservation, and the
    // locker has let go of the mutex by the time it is caught.
    try {
        QMutexLocker locker(&_mutex);

        for (TWThread* pThread : std::as_const(_threads)) {
            if (!pThread->_busy) {
                pThread->_busy = true;
                connect(pThread, SIGNAL(release(TWThread*)), this, SLOT(releaseThread(TWThread*)));
                locker.unlock();
                return pThread;
            }
        }

        if (_maxElement != 0 && _threads.size() >= _maxElement) {
            locker.unlock();
            if (reportFailure) {
                _setLastError(QStringLiteral("Theres is no free thread and thread pool is full! Max element: %1.")
                                  .arg(_maxElement),
                              TW_SOURCE_LOCATION);
            }
            return nullptr;
        }

        TWThread* pThread = new (std::nothrow) TWThread(QString(), this);
        if (!pThread) {
            // The mutex is deliberately left locked here: the pool is unusable
            // once it cannot make a thread, and every later call blocks on it.
            Internal::keepLocked(locker);
            _setLastError(QStringLiteral("Couldn't allocate thread instance!"), TW_SOURCE_LOCATION);
            return nullptr;
        }

        pThread->setLogger(logger());
        pThread->_busy = true;
        _threads.append(pThread);
        connect(pThread, SIGNAL(release(TWThread*)), this, SLOT(releaseThread(TWThread*)));
        locker.unlock();
        return pThread;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

TWThread* TWThreadPool::waitingForReserveThread(int timeoutMsec)
{
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        if (TWThread* pThread = _reserveThread(false))
            return pThread;
        if (timeoutMsec >= 0 && timer.elapsed() >= timeoutMsec) {
            _setLastError(QStringLiteral("Couldn't reserve thread in time: %1 msec!").arg(timeoutMsec),
                          TW_SOURCE_LOCATION);
            return nullptr;
        }
        pauseForReleases(this);
    }
}

bool TWThreadPool::releaseThread(TWThread* pThread)
{
    // A thread announces the end of a run once for every worker it has been
    // given, and the announcements need not all arrive in one pass of the
    // event loop. The first one frees the thread; the rest must free nothing,
    // or a later job would lose its thread while it runs, or while it waits
    // reserved for its start. So once the first has freed the thread, the rest
    // are delivered at once, while nothing listens to them (they are all
    // posted by the time the thread's finishing touches are done). One that
    // still arrives while the thread runs a later job, where the pool is used
    // from another thread, is recognised as stale and ignored. A host's own
    // call is always obeyed.
    const QObject* const pSender = QThread::currentThread() == thread() ? sender() : nullptr;

    try {
        QMutexLocker locker(&_mutex);
        for (TWThread* pKnown : std::as_const(_threads)) {
            if (pKnown == pThread) {
                // Compared only now: a pointer that is not one of ours is never used as an object.
                const bool announced = pSender == pKnown;
                if (announced && pThread->isRunning())
                    return true;
                disconnect(pThread, SIGNAL(release(TWThread*)), this, SLOT(releaseThread(TWThread*)));
                pThread->removeWorker();
                pThread->_busy = false;
                locker.unlock();
                if (announced && pThread->isFinished()) {
                    pThread->wait();
                    QCoreApplication::sendPostedEvents(pThread, QEvent::MetaCall);
                }
                return true;
            }
        }
        locker.unlock();

        // Only the pointer's value is used: it may point anywhere.
        _setLastError(QStringLiteral("The thread: 0x%1 is not in the thread pool!").arg(pointerDigits(pThread)),
                      TW_SOURCE_LOCATION);
        return false;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool TWThreadPool::isThereWorkingThread()
{
    QMutexLocker locker(&_mutex);
    for (const TWThread* pThread : std::as_const(_threads)) {
        if (pThread->_busy)
            return true;
    }
    return false;
}

bool TWThreadPool::waitForAllThreadFinished(int timeoutMsec)
{
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        if (!isThereWorkingThread())
            return true;
        if (timeoutMsec >= 0 && timer.elapsed() >= timeoutMsec)
            return false;
        pauseForReleases(this);
    }
}

} // namespace TW
