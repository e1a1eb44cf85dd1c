#include "twtestsupport.h"

#include <twthreadpool.h>

#include <QtCore/QAtomicInt>
#include <QtCore/QCoreApplication>
#include <QtCore/QMetaMethod>
#include <QtCore/QPointer>
#include <QtCore/QSemaphore>
#include <QtCore/QSet>
#include <QtCore/QTimer>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <memory>

using TW::TWThread;
using TW::TWThreadPool;

namespace {

// Generous: only a broken thread ever gets near it.
constexpr int Patience = 30000;

// What the workers of one test leave behind, shared because auto-deleted
// workers are gone by the time the test looks.
struct JobBook
{
    QAtomicInt alive;
    QAtomicInt runs;
    QMutex mutex;
    QList<QThread*> ranOn;
};

class Worker : public TWThreadWorkerIface
{
    Q_OBJECT

public:
    explicit Worker(JobBook* book, bool emitFinished = true)
        : _book(book)
        , _emitFinished(emitFinished)
    {
        _book->alive.ref();
    }
    ~Worker() override { _book->alive.deref(); }

    // Optional hand-shakes with the test: process() releases entered, then
    // takes gate, and releases done once finished() is out.
    QSemaphore* entered = nullptr;
    QSemaphore* gate = nullptr;
    QSemaphore* done = nullptr;
    unsigned long sleepMsec = 0;

public slots:
    void process() override
    {
        {
            QMutexLocker locker(&_book->mutex);
            _book->ranOn.append(QThread::currentThread());
        }
        if (entered)
            entered->release();
        if (gate)
            gate->acquire();
        if (sleepMsec)
            QThread::msleep(sleepMsec);
        _book->runs.ref();
        if (_emitFinished)
            emit finished();
        if (done)
            done->release();
    }

private:
    JobBook* _book;
    bool _emitFinished;
};

// A thread announces its end once for every worker it has been given, and the
// announcements arrive as separate events. A pool frees the thread at the
// first one; if the thread is handed out again before the rest have been
// delivered, a late one frees it in the middle of its next job. A host that
// reuses threads therefore lets a reserved thread finish completely and
// delivers what it still has to say before giving it new work.
TWThread* reserveSettled(TWThreadPool& pool, int timeoutMsec)
{
    for (;;) {
        TWThread* pThread = pool.waitingForReserveThread(timeoutMsec);
        if (!pThread)
            return nullptr;
        pThread->wait();
        QCoreApplication::sendPostedEvents(pThread, QEvent::MetaCall);
        if (pThread->isBusy())
            return pThread;
    }
}

// Delivers everything a finished thread has posted to this thread.
void settle(TWThread* pThread)
{
    pThread->wait();
    QCoreApplication::sendPostedEvents(pThread, QEvent::MetaCall);
}

// Whether the thread's release() still reaches the pool. QObject::disconnect
// answers that; the connection is put back so that nothing changes.
bool reachesPool(TWThread* pThread, TWThreadPool* pPool)
{
    if (!QObject::disconnect(pThread, SIGNAL(release(TWThread*)), pPool, SLOT(releaseThread(TWThread*))))
        return false;
    QObject::connect(pThread, SIGNAL(release(TWThread*)), pPool, SLOT(releaseThread(TWThread*)));
    return true;
}

QString hex16(const void* p)
{
    return QStringLiteral("0x%1").arg(quintptr(p), 16, 16, QLatin1Char('0'));
}

QStringList methodSignatures(const QMetaObject* mo)
{
    QStringList out;
    for (int i = mo->methodOffset(); i < mo->methodCount(); ++i) {
        const QMetaMethod m = mo->method(i);
        const char* kind = m.methodType() == QMetaMethod::Signal ? "signal" : "slot";
        const char* access = m.access() == QMetaMethod::Public    ? "public"
                             : m.access() == QMetaMethod::Private ? "private"
                                                                  : "protected";
        QStringList names;
        for (const QByteArray& n : m.parameterNames())
            names << QString::fromLatin1(n);
        out << QStringLiteral("%1 %2 %3 %4 names(%5)")
                   .arg(QLatin1String(access), QLatin1String(kind), QLatin1String(m.typeName()),
                        QString::fromLatin1(m.methodSignature()), names.join(QLatin1Char(',')));
    }
    return out;
}

} // namespace

class TstTWThreadPool : public QObject
{
    Q_OBJECT

private slots:
    void metaObjects_data();
    void metaObjects();
    void twObjectPartIsReachable();

    void jobRunsOnTheNewThreadAndComesBack();
    void setWorkerWithNullMakesNoConnection();
    void workersStayConnectedAndReleaseRepeats();
    void removeWorkerOnlyForgets();
    void autoDeleteOfWorkers_data();
    void autoDeleteOfWorkers();

    void reservationReusesFirstMadeThread();
    void fullPool_data();
    void fullPool();
    void waitingForReserveThreadTimesOut_data();
    void waitingForReserveThreadTimesOut();
    void waitingForReserveThreadGetsReleasedThread_data();
    void waitingForReserveThreadGetsReleasedThread();
    void waitForAllThreadFinished_data();
    void waitForAllThreadFinished();
    void releaseOfUnknownThread_data();
    void releaseOfUnknownThread();
    void doubleRelease();
    void destructorStopsRunningThreads();
    void churn();
};

void TstTWThreadPool::metaObjects_data()
{
    QTest::addColumn<const QMetaObject*>("metaObject");
    QTest::addColumn<QString>("className");
    QTest::addColumn<QString>("superClass");
    QTest::addColumn<QStringList>("methods");

    QTest::newRow("worker interface")
        << &TWThreadWorkerIface::staticMetaObject << QStringLiteral("TWThreadWorkerIface")
        << QStringLiteral("QObject")
        << QStringList{QStringLiteral("public signal void finished() names()"),
                       QStringLiteral("public slot void process() names()")};
    QTest::newRow("thread") << &TWThread::staticMetaObject << QStringLiteral("TW::TWThread")
                            << QStringLiteral("QThread")
                            << QStringList{QStringLiteral("public signal void release(TWThread*) names(pThread)"),
                                           QStringLiteral("private slot void _onWorkerFinished() names()"),
                                           QStringLiteral("private slot void _onThreadFinished() names()")};
    QTest::newRow("pool") << &TWThreadPool::staticMetaObject << QStringLiteral("TW::TWThreadPool")
                          << QStringLiteral("QObject")
                          << QStringList{QStringLiteral("public slot bool releaseThread(TWThread*) names(pThread)")};
}

void TstTWThreadPool::metaObjects()
{
    QFETCH(const QMetaObject*, metaObject);
    QFETCH(QString, className);
    QFETCH(QString, superClass);
    QFETCH(QStringList, methods);

    QCOMPARE(QString::fromLatin1(metaObject->className()), className);
    QCOMPARE(QString::fromLatin1(metaObject->superClass()->className()), superClass);
    QCOMPARE(methodSignatures(metaObject), methods);
}

void TstTWThreadPool::twObjectPartIsReachable()
{
    TWThreadPool pool(QStringLiteral("metacast pool"));
    TWThread thread(QStringLiteral("metacast thread"));
    QObject* poolObject = &pool;
    QObject* threadObject = &thread;

    QCOMPARE(poolObject->qt_metacast("TWObject"), static_cast<void*>(static_cast<TW::TWObject*>(&pool)));
    QCOMPARE(threadObject->qt_metacast("TWObject"), static_cast<void*>(static_cast<TW::TWObject*>(&thread)));
    QCOMPARE(threadObject->qt_metacast("TW::TWThread"), static_cast<void*>(&thread));
    QCOMPARE(TWThread::className(), QStringLiteral("TWThread"));
    QCOMPARE(TWThreadPool::className(), QStringLiteral("TWThreadPool"));
    QCOMPARE(pool.name(), QStringLiteral("metacast pool"));
    QVERIFY(pool.objectName().isEmpty());
}

// The whole road of one job: reservation, process() on the new thread, the
// worker's finished(), quit through the owner's events, release to the pool.
void TstTWThreadPool::jobRunsOnTheNewThreadAndComesBack()
{
    TWTest::RecordingLogger logger;
    TWThreadPool pool(QStringLiteral("job pool"), 1);
    pool.setLogger(&logger);
    TWThread* pThread = pool.reserveThread();
    QVERIFY(pThread);
    QVERIFY(pThread->isBusy());
    QVERIFY(reachesPool(pThread, &pool));
    QVERIFY(pool.isThereWorkingThread());
    QCOMPARE(pThread->parent(), &pool);
    QCOMPARE(pThread->logger(), &logger);

    JobBook book;
    Worker worker(&book);
    QSemaphore done;
    worker.done = &done;
    pThread->setWorker(&worker, false);
    QCOMPARE(pThread->worker(), &worker);
    QCOMPARE(worker.thread(), pThread);

    QSignalSpy started(pThread, SIGNAL(started()));
    QSignalSpy finished(pThread, SIGNAL(finished()));
    QSignalSpy released(pThread, SIGNAL(release(TWThread*)));
    pThread->start();
    QVERIFY(done.tryAcquire(1, Patience));

    // finished() has been emitted, but the quit it asks for is an event of
    // this thread, which has not processed any: the new thread still runs.
    QVERIFY(pThread->isRunning());
    QCOMPARE(book.ranOn, QList<QThread*>{pThread});
    QCOMPARE(released.count(), 0);

    QVERIFY(pool.waitForAllThreadFinished(Patience));
    QCOMPARE(started.count(), 1);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(released.count(), 1);
    QCOMPARE(released.at(0).at(0).value<TWThread*>(), pThread);
    QVERIFY(!pThread->isBusy());
    QVERIFY(!pThread->worker());
    QVERIFY(!reachesPool(pThread, &pool));
    QVERIFY(!pool.isThereWorkingThread());
    QVERIFY(logger.records().isEmpty());
    settle(pThread);
}

void TstTWThreadPool::setWorkerWithNullMakesNoConnection()
{
    TWThread thread;
    QSignalSpy released(&thread, SIGNAL(release(TWThread*)));
    thread.setWorker(nullptr, true);
    QVERIFY(!thread.worker());

    thread.start();
    thread.quit();
    QVERIFY(thread.wait(Patience));
    QCoreApplication::sendPostedEvents(&thread, QEvent::MetaCall);
    QCOMPARE(released.count(), 0);
}

// Nothing is ever disconnected: both workers given before a start run, a
// worker kept by the caller runs again at the next start, and every
// setWorker() adds one more announcement of the thread's end.
void TstTWThreadPool::workersStayConnectedAndReleaseRepeats()
{
    JobBook book;
    TWThread thread(QStringLiteral("repeat thread"));
    Worker first(&book);
    Worker second(&book);
    QSignalSpy released(&thread, SIGNAL(release(TWThread*)));

    thread.setWorker(&first, false);
    thread.setWorker(&second, false);
    QCOMPARE(thread.worker(), &second);
    QCOMPARE(first.thread(), &thread);
    QCOMPARE(second.thread(), &thread);

    thread.start();
    QTRY_COMPARE_WITH_TIMEOUT(released.count(), 2, Patience);
    settle(&thread);
    QCOMPARE(released.count(), 2);
    QCOMPARE(book.runs.loadRelaxed(), 2);

    Worker third(&book);
    thread.setWorker(&third, false);
    thread.start();
    QTRY_COMPARE_WITH_TIMEOUT(released.count(), 5, Patience);
    settle(&thread);
    QCOMPARE(released.count(), 5);
    QCOMPARE(book.runs.loadRelaxed(), 5);
    QCOMPARE(book.ranOn.count(&thread), 5);
}

void TstTWThreadPool::removeWorkerOnlyForgets()
{
    JobBook book;
    TWThread thread;
    thread.removeWorker();
    QVERIFY(!thread.worker());

    Worker worker(&book);
    thread.setWorker(&worker, false);
    thread.removeWorker();
    QVERIFY(!thread.worker());
    QCOMPARE(worker.thread(), &thread);

    QSignalSpy released(&thread, SIGNAL(release(TWThread*)));
    thread.start();
    QTRY_COMPARE_WITH_TIMEOUT(released.count(), 1, Patience);
    QCOMPARE(book.runs.loadRelaxed(), 1);
    settle(&thread);
}

void TstTWThreadPool::autoDeleteOfWorkers_data()
{
    QTest::addColumn<bool>("autoDelete");
    QTest::newRow("handed over") << true;
    QTest::newRow("kept by the caller") << false;
}

void TstTWThreadPool::autoDeleteOfWorkers()
{
    QFETCH(bool, autoDelete);
    JobBook book;
    TWThreadPool pool;
    TWThread* pThread = pool.reserveThread();
    QVERIFY(pThread);
    QPointer<Worker> worker = new Worker(&book);
    pThread->setWorker(worker, autoDelete);
    pThread->start();
    QVERIFY(pool.waitForAllThreadFinished(Patience));
    settle(pThread);

    QCOMPARE(book.runs.loadRelaxed(), 1);
    QCOMPARE(worker.isNull(), autoDelete);
    QCOMPARE(book.alive.loadRelaxed(), autoDelete ? 0 : 1);
    delete worker.data();
}

void TstTWThreadPool::reservationReusesFirstMadeThread()
{
    TWTest::RecordingLogger early;
    TWTest::RecordingLogger late;
    TWThreadPool pool;
    pool.setLogger(&early);
    TWThread* pFirst = pool.reserveThread();
    pool.setLogger(&late);
    TWThread* pSecond = pool.reserveThread();
    QVERIFY(pFirst && pSecond && pFirst != pSecond);
    QCOMPARE(pSecond->logger(), &late);

    // Run a job on the first so that it comes back through its own release.
    JobBook book;
    Worker worker(&book);
    pFirst->setWorker(&worker, false);
    pFirst->start();
    QVERIFY(pool.releaseThread(pSecond));
    QVERIFY(pool.waitForAllThreadFinished(Patience));
    settle(pFirst);

    QCOMPARE(pool.reserveThread(), pFirst);
    QCOMPARE(pFirst->logger(), &early);
    QCOMPARE(pool.reserveThread(), pSecond);
    QVERIFY(early.records().isEmpty());
    QVERIFY(late.records().isEmpty());
}

void TstTWThreadPool::fullPool_data()
{
    QTest::addColumn<int>("maxElement");
    QTest::addColumn<int>("reservations");
    QTest::newRow("no limit") << 0 << 70;
    QTest::newRow("one") << 1 << 1;
    QTest::newRow("two") << 2 << 2;
    QTest::newRow("five") << 5 << 5;
}

void TstTWThreadPool::fullPool()
{
    QFETCH(int, maxElement);
    QFETCH(int, reservations);
    TWTest::RecordingLogger logger;
    TWThreadPool pool(QString(), static_cast<unsigned short>(maxElement));
    pool.setLogger(&logger);

    QSet<TWThread*> threads;
    for (int i = 0; i < reservations; ++i)
        threads.insert(pool.reserveThread());
    QCOMPARE(threads.size(), reservations);
    QVERIFY(!threads.contains(nullptr));
    QVERIFY(logger.records().isEmpty());
    if (maxElement == 0)
        return;

    QVERIFY(!pool.reserveThread());
    const QString expected =
        QStringLiteral("Theres is no free thread and thread pool is full! Max element: %1.").arg(maxElement);
    QCOMPARE(pool.lastErrorStr(), expected);
    const QList<TWTest::LogRecord> records = logger.records();
    QCOMPARE(records.size(), 1);
    QCOMPARE(records.at(0).msg, expected);
    QCOMPARE(records.at(0).type, QtCriticalMsg);
    QVERIFY(records.at(0).file.endsWith(QLatin1String("twthreadpool.cpp")));
    QVERIFY(records.at(0).function.contains(QLatin1String("_reserveThread")));

    // A free thread is found again after a release.
    TWThread* pAny = *threads.begin();
    QVERIFY(pool.releaseThread(pAny));
    QCOMPARE(pool.reserveThread(), pAny);
}

void TstTWThreadPool::waitingForReserveThreadTimesOut_data()
{
    QTest::addColumn<int>("timeout");
    QTest::addColumn<bool>("onOtherThread");
    QTest::newRow("single attempt") << 0 << false;
    QTest::newRow("positive") << 30 << false;
    QTest::newRow("single attempt, pool off the application thread") << 0 << true;
    QTest::newRow("positive, pool off the application thread") << 30 << true;
}

void TstTWThreadPool::waitingForReserveThreadTimesOut()
{
    QFETCH(int, timeout);
    QFETCH(bool, onOtherThread);

    TWThread* pResult = reinterpret_cast<TWThread*>(quintptr(1));
    QStringList messages;
    auto attempt = [&] {
        TWTest::RecordingLogger logger;
        TWThreadPool pool(QString(), 2);
        pool.setLogger(&logger);
        pool.reserveThread();
        pool.reserveThread();
        pResult = pool.waitingForReserveThread(timeout);
        messages = logger.messages();
    };
    if (onOtherThread) {
        std::unique_ptr<QThread> other(QThread::create(attempt));
        other->start();
        QVERIFY(other->wait(Patience));
    } else {
        attempt();
    }

    // The failed attempts inside the wait are silent; only the time-out speaks.
    QVERIFY(!pResult);
    QCOMPARE(messages, QStringList{QStringLiteral("Couldn't reserve thread in time: %1 msec!").arg(timeout)});
}

void TstTWThreadPool::waitingForReserveThreadGetsReleasedThread_data()
{
    QTest::addColumn<int>("timeout");
    QTest::newRow("no limit") << -1;
    QTest::newRow("positive") << Patience;
}

void TstTWThreadPool::waitingForReserveThreadGetsReleasedThread()
{
    QFETCH(int, timeout);
    TWTest::RecordingLogger logger;
    TWThreadPool pool(QString(), 1);
    pool.setLogger(&logger);
    TWThread* pThread = pool.reserveThread();

    JobBook book;
    Worker worker(&book);
    QSemaphore gate;
    worker.gate = &gate;
    pThread->setWorker(&worker, false);
    pThread->start();

    // Let the worker go only once the wait is under way: the timer fires from
    // the events that the wait processes.
    QTimer::singleShot(0, this, [&gate] { gate.release(); });
    QCOMPARE(pool.waitingForReserveThread(timeout), pThread);
    QVERIFY(pThread->isBusy());
    QCOMPARE(book.runs.loadRelaxed(), 1);
    QVERIFY(logger.records().isEmpty());
    QVERIFY(pool.releaseThread(pThread));
    settle(pThread);
}

void TstTWThreadPool::waitForAllThreadFinished_data()
{
    QTest::addColumn<bool>("busy");
    QTest::addColumn<int>("timeout");
    QTest::addColumn<bool>("expected");
    QTest::newRow("idle pool, single look") << false << 0 << true;
    QTest::newRow("idle pool, no limit") << false << -1 << true;
    QTest::newRow("reserved thread, single look") << true << 0 << false;
    QTest::newRow("reserved thread, positive") << true << 30 << false;
}

// A reserved thread counts as working even if it is never started.
void TstTWThreadPool::waitForAllThreadFinished()
{
    QFETCH(bool, busy);
    QFETCH(int, timeout);
    QFETCH(bool, expected);
    TWTest::RecordingLogger logger;
    TWThreadPool pool;
    pool.setLogger(&logger);
    TWThread* pThread = pool.reserveThread();
    if (!busy)
        pool.releaseThread(pThread);

    QCOMPARE(pool.waitForAllThreadFinished(timeout), expected);
    QCOMPARE(pool.isThereWorkingThread(), busy);
    QVERIFY(!pool.isThereError());
    QVERIFY(logger.records().isEmpty());
}

void TstTWThreadPool::releaseOfUnknownThread_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("null") << 0;
    QTest::newRow("bad pointer") << 1;
    QTest::newRow("thread of another pool") << 2;
}

void TstTWThreadPool::releaseOfUnknownThread()
{
    QFETCH(int, kind);
    TWTest::RecordingLogger logger;
    TWThreadPool pool;
    TWThreadPool otherPool;
    pool.setLogger(&logger);
    TWThread* pOwn = pool.reserveThread();
    TWThread* pForeign = otherPool.reserveThread();

    TWThread* pBad = kind == 0   ? nullptr
                     : kind == 1 ? reinterpret_cast<TWThread*>(quintptr(0xdeadbeef))
                                 : pForeign;
    QVERIFY(!pool.releaseThread(pBad));
    const QString expected = QStringLiteral("The thread: %1 is not in the thread pool!").arg(hex16(pBad));
    QCOMPARE(logger.messages(), QStringList{expected});
    QCOMPARE(pool.lastErrorStr(), expected);
    if (kind == 1)
        QCOMPARE(expected, QStringLiteral("The thread: 0x00000000deadbeef is not in the thread pool!"));

    QVERIFY(pOwn->isBusy());
    QVERIFY(pForeign->isBusy());
    QVERIFY(pool.isThereWorkingThread());
}

void TstTWThreadPool::doubleRelease()
{
    TWTest::RecordingLogger logger;
    TWThreadPool pool;
    pool.setLogger(&logger);
    TWThread* pThread = pool.reserveThread();
    QVERIFY(pool.releaseThread(pThread));
    QVERIFY(pool.releaseThread(pThread));
    QVERIFY(!pThread->isBusy());
    QVERIFY(!reachesPool(pThread, &pool));
    QVERIFY(!pool.isThereWorkingThread());
    QVERIFY(logger.records().isEmpty());
    QCOMPARE(pool.reserveThread(), pThread);
}

// Threads in their event loop, one still inside a short process(), and one
// reserved but never started: the pool stops and deletes them all, and leaves
// the workers alone.
void TstTWThreadPool::destructorStopsRunningThreads()
{
    JobBook book;
    TWTest::RecordingLogger logger;
    auto* pPool = new TWThreadPool(QStringLiteral("dying pool"));
    pPool->setLogger(&logger);

    QList<QPointer<TWThread>> threads;
    std::vector<std::unique_ptr<Worker>> workers;
    QSemaphore entered;
    for (int i = 0; i < 3; ++i) {
        TWThread* pThread = pPool->reserveThread();
        threads << pThread;
        workers.push_back(std::make_unique<Worker>(&book, false));
        workers.back()->entered = &entered;
        if (i == 2)
            workers.back()->sleepMsec = 50;
        pThread->setWorker(workers.back().get(), false);
        pThread->start();
    }
    threads << pPool->reserveThread();
    QVERIFY(entered.tryAcquire(3, Patience));

    delete pPool;
    for (const QPointer<TWThread>& thread : std::as_const(threads))
        QVERIFY(thread.isNull());
    QCOMPARE(book.runs.loadRelaxed(), 3);
    QCOMPARE(book.alive.loadRelaxed(), 3);
    QVERIFY(logger.records().isEmpty());
}

// A few hundred jobs through four threads: every job runs once on a pool
// thread, the pool never makes a fifth thread, and in the end every thread is
// free and every handed-over worker is gone.
void TstTWThreadPool::churn()
{
    constexpr int Jobs = 300;
    JobBook book;
    TWTest::RecordingLogger logger;
    TWThreadPool pool(QStringLiteral("churn pool"), 4);
    pool.setLogger(&logger);

    QSet<TWThread*> used;
    QSet<QThread*> usedAsQThread;
    for (int i = 0; i < Jobs; ++i) {
        TWThread* pThread = reserveSettled(pool, Patience);
        QVERIFY(pThread);
        used.insert(pThread);
        usedAsQThread.insert(pThread);
        pThread->setWorker(new Worker(&book), true);
        pThread->start();
    }
    QVERIFY(pool.waitForAllThreadFinished(Patience));
    for (TWThread* pThread : std::as_const(used)) {
        settle(pThread);
        QVERIFY(!pThread->isBusy());
        QVERIFY(!pThread->worker());
    }

    QVERIFY(!pool.isThereWorkingThread());
    QVERIFY(used.size() <= 4);
    QCOMPARE(book.runs.loadRelaxed(), Jobs);
    QCOMPARE(book.ranOn.size(), Jobs);
    for (QThread* pRan : std::as_const(book.ranOn))
        QVERIFY(usedAsQThread.contains(pRan));
    QCOMPARE(book.alive.loadRelaxed(), 0);
    QVERIFY(logger.records().isEmpty());
}

QTEST_GUILESS_MAIN(TstTWThreadPool)
#include "tst_twthreadpool.moc"
