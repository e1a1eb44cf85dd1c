#include "twthreadpool.h"

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
            _setLastError(QStringLiteral("Couldn't stop thread: 0x%1 on time: %2 msec!")
                              .arg(pointerDigits(pThread))
                              .arg(StopTimeoutMsec),
                          TW_SOURCE_LOCATION);
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
    _mutex.lock();

    for (TWThread* pThread : std::as_const(_threads)) {
        if (!pThread->_busy) {
            pThread->_busy = true;
            connect(pThread, SIGNAL(release(TWThread*)), this, SLOT(releaseThread(TWThread*)));
            _mutex.unlock();
            return pThread;
        }
    }

    if (_maxElement != 0 && _threads.size() >= _maxElement) {
        _mutex.unlock();
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
        _setLastError(QStringLiteral("Couldn't allocate thread instance!"), TW_SOURCE_LOCATION);
        return nullptr;
    }

    pThread->setLogger(logger());
    pThread->_busy = true;
    _threads.append(pThread);
    connect(pThread, SIGNAL(release(TWThread*)), this, SLOT(releaseThread(TWThread*)));
    _mutex.unlock();
    return pThread;
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
    _mutex.lock();

    for (TWThread* pKnown : std::as_const(_threads)) {
        if (pKnown == pThread) {
            disconnect(pThread, SIGNAL(release(TWThread*)), this, SLOT(releaseThread(TWThread*)));
            pThread->removeWorker();
            pThread->_busy = false;
            _mutex.unlock();
            return true;
        }
    }

    _mutex.unlock();
    // Only the pointer's value is used: it may point anywhere.
    _setLastError(QStringLiteral("The thread: 0x%1 is not in the thread pool!").arg(pointerDigits(pThread)),
                  TW_SOURCE_LOCATION);
    return false;
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
