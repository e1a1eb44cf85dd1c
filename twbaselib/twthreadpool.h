#ifndef TWTHREADPOOL_H
#define TWTHREADPOOL_H

#include "twglobal.h"
#include "twinterfaces.h"
#include "twobject.h"

#include <QtCore/qlist.h>
#include <QtCore/qmutex.h>
#include <QtCore/qobject.h>
#include <QtCore/qthread.h>

namespace TW {

class TWThreadPool;

/*!
 * A QThread that runs one worker object at a time and says when it is through.
 *
 * One job: setWorker(), then start(). The worker moves onto the thread, its
 * process() runs there when the thread starts, its finished() ends the
 * thread's event loop, and the end of the thread is announced by release().
 * The announcements travel back to the thread that made this object, which
 * must therefore process events.
 *
 * Connections made by setWorker() are never taken away: a worker that stays
 * alive after its job is run again at the next start(), and after n jobs the
 * end of the thread emits release() n times. Delete a finished worker (or
 * hand it over with autoDelete) to drop its connections.
 *
 * The thread reports no failures; a worker that lacks process() or finished()
 * shows only as a Qt warning, and such a thread never ends by itself.
 */
class TWBASELIB_EXPORT TWThread : public QThread, public TWObject
{
    Q_OBJECT
    friend class TWThreadPool;

public:
    TWThread(const QString& name = QString(), QObject* parent = nullptr);
    ~TWThread() override;

    /*! The literal "TWThread". */
    static const QString className();

    /*!
     * Forgets the current worker, then wires \a pWorker to this thread and
     * moves it onto it. Call it before start() and on the thread the worker
     * lives on. With \a autoDelete the worker deletes itself once it has
     * emitted finished(); otherwise it stays the caller's. A null worker only
     * forgets the current one.
     */
    void setWorker(TWThreadWorkerIface* pWorker, bool autoDelete = false);
    /*! Forgets the current worker; its connections and its thread stay as they are. */
    void removeWorker();
    /*! The current worker, or null. */
    TWThreadWorkerIface* worker() const;
    /*! True while a pool has this thread reserved. */
    bool isBusy() const;

signals:
    /*! Emitted on the object's own thread once the thread has finished. */
    void release(TWThread* pThread);

private slots:
    void _onWorkerFinished();
    void _onThreadFinished();

private:
    TWThreadWorkerIface* _pWorker;
    bool _busy;
};

/*!
 * Hands out TWThread objects for jobs and takes them back when a job ends.
 *
 * Threads are made on demand, up to maxElement (0: no limit), and kept for
 * later jobs; the free thread made first is always handed out first. A handed
 * out thread is reserved and connected back to the pool: the caller gives it a
 * worker and starts it, and the thread's release() frees it again. A thread
 * that is reserved but not wanted goes back through releaseThread().
 *
 * The releases arrive as events on the pool's thread, so that thread must
 * process events; on the application's thread the two waiting operations do
 * that while they wait. Every operation may be called from any thread.
 *
 * The destructor tells all running threads to quit and waits up to ten seconds
 * for each; workers are never touched by the pool.
 */
class TWBASELIB_EXPORT TWThreadPool : public QObject, public TWObject
{
    Q_OBJECT

public:
    TWThreadPool(const QString& name = QString(), unsigned short maxElement = 0,
                 QObject* parent = nullptr);
    ~TWThreadPool() override;

    /*! The literal "TWThreadPool". */
    static const QString className();

    /*!
     * Reserves the first free thread, or makes a new one when none is free and
     * the pool has room. Returns null with a last error when the pool is full
     * and every thread is busy.
     */
    TWThread* reserveThread();
    /*!
     * Like reserveThread(), but tries again until a thread comes free or
     * \a timeoutMsec milliseconds have passed (negative: no limit, 0: a single
     * attempt). Returns null with a last error on time-out.
     */
    TWThread* waitingForReserveThread(int timeoutMsec);

public slots:
    /*!
     * Frees \a pThread and forgets its worker. Returns false with a last error
     * when the thread is not one of this pool's.
     */
    bool releaseThread(TWThread* pThread);

public:
    /*! True while any thread of the pool is reserved. */
    bool isThereWorkingThread();
    /*!
     * Waits until no thread of the pool is reserved, for at most \a timeoutMsec
     * milliseconds (negative: no limit, 0: a single look). Returns false on
     * time-out, without a last error.
     */
    bool waitForAllThreadFinished(int timeoutMsec);

private:
    TWThread* _reserveThread(bool reportFailure);

    unsigned short _maxElement;
    QList<TWThread*> _threads;
    QMutex _mutex;
};

} // namespace TW

#endif // TWTHREADPOOL_H
