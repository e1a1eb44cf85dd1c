#include "twtestsupport.h"

#include <twthreadpool.h>

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

constexpr int Patience = 30000; // only a broken thread gets near it

// Shared by the workers of one test, as auto-deleted ones are gone when it looks.
struct JobBook
{
    QAtomicInt alive, runs;
    QSemaphore done, gate;
    bool gated = false;
};

class Worker : public TWThreadWorkerIface
{
    Q_OBJECT
public:
    explicit Worker(JobBook* book, bool emitFinished = true) : _book(book), _emit(emitFinished) { _book->alive.ref(); }
    ~Worker() override { _book->alive.deref(); }
    QThread* ranOn = nullptr;

public slots:
    void process() override
    {
        ranOn = QThread::currentThread();
        if (_book->gated)
            _book->gate.acquire();
        _book->runs.ref();
        if (_emit)
            emit finished();
        _book->done.release();
    }

private:
    JobBook* _book;
    bool _emit;
};

// Lets a finished thread end completely and delivers what it still has to say.
void settle(TWThread* pThread)
{
    pThread->wait();
    QCoreApplication::sendPostedEvents(pThread, QEvent::MetaCall);
}

// A thread announces its end once for every worker it has been given, each as
// its own event. The pool frees it at the first; a late one would free it in
// the middle of its next job. So a host that reuses threads settles a
// reserved thread first, and reserves again if a late announcement freed it.
TWThread* reserveSettled(TWThreadPool& pool)
{
    for (;;) {
        TWThread* pThread = pool.waitingForReserveThread(Patience);
        if (!pThread)
            return nullptr;
        settle(pThread);
        if (pThread->isBusy())
            return pThread;
    }
}

// QObject::disconnect tells whether the link existed; it is put back.
bool reachesPool(TWThread* pThread, TWThreadPool* pPool)
{
    const char* signal = SIGNAL(release(TWThread*));
    const char* slot = SLOT(releaseThread(TWThread*));
    return QObject::disconnect(pThread, signal, pPool, slot) && QObject::connect(pThread, signal, pPool, slot);
}

} // namespace

class TstTWThreadPool : public QObject
{
    Q_OBJECT

private slots:
    void metaObjects_data();
    void metaObjects();
    void jobTakesTheWholeRoad();
    void workersStayConnected();
    void fullPool_data();
    void fullPool();
    void waitsThatTimeOut_data();
    void waitsThatTimeOut();
    void waitGetsAReleasedThread();
    void releaseOfUnknownOrFreeThread_data();
    void releaseOfUnknownOrFreeThread();
    void destructorStopsRunningThreads();
    void churn();
};

void TstTWThreadPool::metaObjects_data()
{
    QTest::addColumn<const QMetaObject*>("mo");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("worker") << &TWThreadWorkerIface::staticMetaObject
                            << QStringList{"TWThreadWorkerIface : QObject", "public signal void finished()",
                                           "public slot void process()"};
    QTest::newRow("thread") << &TWThread::staticMetaObject
                            << QStringList{"TW::TWThread : QThread", "public signal void release(TWThread* pThread)",
                                           "private slot void _onWorkerFinished()",
                                           "private slot void _onThreadFinished()"};
    QTest::newRow("pool") << &TWThreadPool::staticMetaObject
                          << QStringList{"TW::TWThreadPool : QObject",
                                         "public slot bool releaseThread(TWThread* pThread)"};
}

void TstTWThreadPool::metaObjects()
{
    QFETCH(const QMetaObject*, mo);
    QTEST(QStringList(QStringLiteral("%1 : %2").arg(mo->className(), mo->superClass()->className()))
              + TWTest::metaMethods(mo), "expected");
    TWThreadPool pool;
    TWThread thread;
    QCOMPARE(static_cast<QObject&>(pool).qt_metacast("TWObject"), static_cast<TW::TWObject*>(&pool));
    QCOMPARE(static_cast<QObject&>(thread).qt_metacast("TWObject"), static_cast<TW::TWObject*>(&thread));
    QCOMPARE(TWThread::className() + TWThreadPool::className(), QStringLiteral("TWThreadTWThreadPool"));
}

// Reservation, process() on the new thread, finished(), quit through this
// thread's events, release() back to the pool; then the thread made first is
// handed out first again, with the logger it got when it was made.
void TstTWThreadPool::jobTakesTheWholeRoad()
{
    TWTest::RecordingLogger logger, later;
    TWThreadPool pool(QStringLiteral("road"), 2);
    pool.setLogger(&logger);
    TWThread* pThread = pool.reserveThread();
    QVERIFY(pThread && pThread->isBusy() && pool.isThereWorkingThread() && reachesPool(pThread, &pool));
    QCOMPARE(pThread->parent(), &pool);
    pool.setLogger(&later);
    TWThread* pSecond = pool.reserveThread();
    QCOMPARE(pSecond->logger(), &later);
    QVERIFY(pool.releaseThread(pSecond));

    JobBook book;
    Worker worker(&book);
    pThread->setWorker(&worker, false);
    QCOMPARE(pThread->worker(), &worker);
    QCOMPARE(worker.thread(), pThread);
    QSignalSpy released(pThread, SIGNAL(release(TWThread*)));
    pThread->start();
    QVERIFY(book.done.tryAcquire(1, Patience));
    QCOMPARE(worker.ranOn, pThread);
    // finished() is out, but the quit it asks for waits for this thread's events.
    QVERIFY(pThread->isRunning());

    QVERIFY(pool.waitForAllThreadFinished(Patience));
    QCOMPARE(released.count(), 1);
    QCOMPARE(released.at(0).at(0).value<TWThread*>(), pThread);
    QVERIFY(!pThread->isBusy() && !pThread->worker() && !reachesPool(pThread, &pool));
    QVERIFY(logger.records().isEmpty() && later.records().isEmpty());
    settle(pThread);
    QCOMPARE(book.alive.loadRelaxed(), 1); // not handed over: still the caller's
    QCOMPARE(pool.reserveThread(), pThread);
    QCOMPARE(pThread->logger(), &logger);
    QCOMPARE(pool.reserveThread(), pSecond);
}

// Nothing is disconnected: both workers given before a start run, kept workers
// run again at the next start, and every setWorker() adds an announcement.
void TstTWThreadPool::workersStayConnected()
{
    JobBook book;
    TWThread thread;
    QSignalSpy released(&thread, SIGNAL(release(TWThread*)));
    thread.setWorker(nullptr, true);
    Worker first(&book), second(&book), third(&book);
    thread.setWorker(&first, false);
    thread.setWorker(&second, false);
    QCOMPARE(thread.worker(), &second);
    QCOMPARE(first.thread(), &thread);
    thread.start();
    QTRY_COMPARE_WITH_TIMEOUT(book.runs.loadRelaxed(), 2, Patience);
    QTRY_COMPARE_WITH_TIMEOUT(released.count(), 2, Patience);
    settle(&thread);
    QCOMPARE(released.count(), 2);

    thread.setWorker(&third, false);
    thread.removeWorker();
    QVERIFY(!thread.worker());
    thread.start();
    QTRY_COMPARE_WITH_TIMEOUT(released.count(), 5, Patience);
    settle(&thread);
    QCOMPARE(released.count(), 5);
    QCOMPARE(book.runs.loadRelaxed(), 5);
}

void TstTWThreadPool::fullPool_data()
{
    QTest::addColumn<int>("maxElement");
    QTest::newRow("no limit") << 0;
    QTest::newRow("1") << 1;
    QTest::newRow("2") << 2;
}

void TstTWThreadPool::fullPool()
{
    QFETCH(int, maxElement);
    TWTest::RecordingLogger logger;
    TWThreadPool pool(QString(), static_cast<unsigned short>(maxElement));
    pool.setLogger(&logger);
    QSet<TWThread*> threads;
    for (int i = 0; i < (maxElement ? maxElement : 70); ++i)
        threads.insert(pool.reserveThread());
    QVERIFY(!threads.contains(nullptr));
    QVERIFY(logger.records().isEmpty());
    if (!maxElement)
        return;

    QVERIFY(!pool.reserveThread());
    const auto expected = QStringLiteral("Theres is no free thread and thread pool is full! Max element: %1.").arg(maxElement);
    QCOMPARE(pool.lastErrorStr(), expected);
    const TWTest::LogRecord record = logger.records().value(0);
    QCOMPARE(record.msg, expected);
    QCOMPARE(record.type, QtCriticalMsg);
    QVERIFY(record.file.endsWith(QLatin1String("twthreadpool.cpp")) && record.function.contains(QLatin1String("_reserveThread")));
}

void TstTWThreadPool::waitsThatTimeOut_data()
{
    QTest::addColumn<int>("timeout");
    QTest::addColumn<bool>("offAppThread");
    QTest::newRow("0") << 0 << false;
    QTest::newRow("30") << 30 << false;
    QTest::newRow("0, pool off the application thread") << 0 << true;
    QTest::newRow("30, pool off the application thread") << 30 << true;
}

// A reserved thread counts as working even if it never starts. Only the failed
// reservation speaks, and only with the time-out text.
void TstTWThreadPool::waitsThatTimeOut()
{
    QFETCH(int, timeout);
    QFETCH(bool, offAppThread);
    bool reserved = true, allFinished = true;
    QStringList messages;
    auto attempt = [&] {
        TWTest::RecordingLogger logger;
        TWThreadPool pool(QString(), 2);
        pool.setLogger(&logger);
        pool.reserveThread();
        pool.reserveThread();
        reserved = pool.waitingForReserveThread(timeout);
        allFinished = pool.waitForAllThreadFinished(timeout);
        messages = logger.messages();
    };
    std::unique_ptr<QThread> other(QThread::create(attempt));
    if (offAppThread) {
        other->start();
        QVERIFY(other->wait(Patience));
    } else {
        attempt();
    }
    QVERIFY(!reserved && !allFinished);
    QCOMPARE(messages, QStringList{QStringLiteral("Couldn't reserve thread in time: %1 msec!").arg(timeout)});
}

void TstTWThreadPool::waitGetsAReleasedThread()
{
    TWThreadPool pool(QString(), 1);
    QVERIFY(pool.waitForAllThreadFinished(0));
    TWThread* pThread = pool.reserveThread();
    JobBook book;
    book.gated = true;
    Worker worker(&book);
    pThread->setWorker(&worker, false);
    pThread->start();
    // The worker goes on only once the wait runs: the wait delivers this timer.
    QTimer::singleShot(0, this, [&book] { book.gate.release(); });
    QCOMPARE(pool.waitingForReserveThread(-1), pThread);
    QCOMPARE(book.runs.loadRelaxed(), 1);
    QVERIFY(!pool.isThereError());
    QVERIFY(pool.releaseThread(pThread));
    settle(pThread);
}

void TstTWThreadPool::releaseOfUnknownOrFreeThread_data()
{
    QTest::addColumn<quintptr>("bad");
    QTest::newRow("null") << quintptr(0);
    QTest::newRow("bad pointer") << quintptr(0xdeadbeef);
    QTest::newRow("another pool's thread") << quintptr(1);
}

void TstTWThreadPool::releaseOfUnknownOrFreeThread()
{
    QFETCH(quintptr, bad);
    TWTest::RecordingLogger logger;
    TWThreadPool pool, otherPool;
    pool.setLogger(&logger);
    TWThread* pOwn = pool.reserveThread();
    TWThread* pForeign = otherPool.reserveThread();
    auto* pBad = bad == 1 ? pForeign : reinterpret_cast<TWThread*>(bad);

    QVERIFY(!pool.releaseThread(pBad));
    const QString expected = QStringLiteral("The thread: 0x%1 is not in the thread pool!")
                                 .arg(quintptr(pBad), 16, 16, QLatin1Char('0'));
    QCOMPARE(logger.messages(), QStringList{expected});
    QVERIFY(bad != 0xdeadbeef || expected.contains(QLatin1String(" 0x00000000deadbeef ")));
    QVERIFY(pOwn->isBusy() && pForeign->isBusy());

    // A second release of a freed thread succeeds and finds nothing to undo.
    logger.clear();
    QVERIFY(pool.releaseThread(pOwn) && pool.releaseThread(pOwn));
    QVERIFY(!pOwn->isBusy() && !reachesPool(pOwn, &pool) && logger.records().isEmpty());
}

// Threads in their event loops and one reserved but never started: all stop
// and go, and the workers are left alone.
void TstTWThreadPool::destructorStopsRunningThreads()
{
    JobBook book;
    TWTest::RecordingLogger logger;
    auto* pPool = new TWThreadPool;
    pPool->setLogger(&logger);
    QList<QPointer<TWThread>> threads;
    std::vector<std::unique_ptr<Worker>> workers;
    for (int i = 0; i < 3; ++i) {
        threads << pPool->reserveThread();
        workers.push_back(std::make_unique<Worker>(&book, false));
        threads.last()->setWorker(workers.back().get(), false);
        threads.last()->start();
    }
    threads << pPool->reserveThread();
    QVERIFY(book.done.tryAcquire(3, Patience));
    delete pPool;
    QCOMPARE(threads.count(QPointer<TWThread>()), 4);
    QCOMPARE(book.alive.loadRelaxed(), 3);
    QVERIFY(logger.records().isEmpty());
}

// Every job runs once, no fifth thread is made, and in the end every thread
// is free and every handed-over worker is gone.
void TstTWThreadPool::churn()
{
    JobBook book;
    TWTest::RecordingLogger logger;
    TWThreadPool pool(QString(), 4);
    pool.setLogger(&logger);
    QSet<TWThread*> used;
    for (int i = 0; i < 300; ++i) {
        TWThread* pThread = reserveSettled(pool);
        QVERIFY(pThread);
        used.insert(pThread);
        pThread->setWorker(new Worker(&book), true);
        pThread->start();
    }
    QVERIFY(pool.waitForAllThreadFinished(Patience));
    for (TWThread* pThread : std::as_const(used)) {
        settle(pThread);
        QVERIFY(!pThread->isBusy() && !pThread->worker());
    }
    QVERIFY(used.size() <= 4);
    QCOMPARE(book.runs.loadRelaxed(), 300);
    QCOMPARE(book.alive.loadRelaxed(), 0);
    QVERIFY(logger.records().isEmpty());
}

QTEST_GUILESS_MAIN(TstTWThreadPool)
#include "tst_twthreadpool.moc"
