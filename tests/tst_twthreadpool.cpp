#include "twtestsupport.h"

#include <twthreadpool.h>

#include <QtCore/QPointer>
#include <QtCore/QSemaphore>
#include <QtCore/QSet>
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
    QSemaphore done;
};

struct Worker : TWThreadWorkerIface
{
    Worker(JobBook* pBook, bool emitFinished = true) : book(pBook), emits(emitFinished) { book->alive.ref(); }
    ~Worker() override { book->alive.deref(); }
    void process() override
    {
        ranOn = QThread::currentThread();
        book->runs.ref();
        if (emits)
            emit finished();
        book->done.release();
    }
    JobBook* book;
    bool emits;
    QThread* ranOn = nullptr;
};

// Lets a finished thread end completely and delivers what it still has to say.
void settle(TWThread* pThread)
{
    pThread->wait();
    QCoreApplication::sendPostedEvents(pThread, QEvent::MetaCall);
}

} // namespace

class TstTWThreadPool : public QObject
{
    Q_OBJECT

private slots:
    void metaObjects()
    {
        const auto describe = [](const QMetaObject& mo) {
            return QStringLiteral("%1 : %2; ").arg(mo.className(), mo.superClass()->className())
                + TWTest::metaMethods(&mo).join(QStringLiteral("; "));
        };
        QCOMPARE(describe(TWThreadWorkerIface::staticMetaObject),
                 "TWThreadWorkerIface : QObject; public signal void finished(); public slot void process()");
        QCOMPARE(describe(TWThread::staticMetaObject),
                 "TW::TWThread : QThread; public signal void release(TWThread* pThread); "
                 "private slot void _onWorkerFinished(); private slot void _onThreadFinished()");
        QCOMPARE(describe(TWThreadPool::staticMetaObject),
                 "TW::TWThreadPool : QObject; public slot bool releaseThread(TWThread* pThread)");
        QCOMPARE(TWThread::className() + TWThreadPool::className(), QStringLiteral("TWThreadTWThreadPool"));
    }

    // Reservation, process() on the new thread, finished(), quit through this
    // thread's events, release() back to the pool; then the thread made first
    // is handed out first again, with the logger it got when it was made.
    // Nothing is disconnected: a kept worker runs again beside the next one,
    // and every setWorker() of a worker adds a release().
    void jobTakesTheWholeRoad()
    {
        TWTest::RecordingLogger logger, later;
        TWThreadPool pool(QStringLiteral("road"), 2);
        pool.setLogger(&logger);
        TWThread* pThread = pool.reserveThread();
        QVERIFY(pThread && pThread->isBusy() && pool.isThereWorkingThread());
        pool.setLogger(&later);
        TWThread* pSecond = pool.reserveThread();
        QCOMPARE(pSecond->logger(), &later);
        QVERIFY(pool.releaseThread(pSecond));

        JobBook book;
        Worker first(&book), second(&book);
        pThread->setWorker(&first, false);
        QSignalSpy released(pThread, SIGNAL(release(TWThread*)));
        pThread->start();
        QVERIFY(book.done.tryAcquire(1, Patience));
        QCOMPARE(first.ranOn, pThread);
        QVERIFY(pThread->isRunning()); // the quit waits for this thread's events
        QVERIFY(pool.waitForAllThreadFinished(Patience));
        settle(pThread);
        QCOMPARE(released.count(), 1);
        QCOMPARE(released.at(0).at(0).value<TWThread*>(), pThread);
        QVERIFY(!pThread->isBusy() && !pThread->worker());

        QCOMPARE(pool.reserveThread(), pThread);
        QCOMPARE(pThread->logger(), &logger);
        pThread->setWorker(&second);
        QCOMPARE(pThread->worker(), &second);
        pThread->setWorker(nullptr, true);
        QVERIFY(!pThread->worker());
        pThread->start();
        QVERIFY(pool.waitForAllThreadFinished(Patience));
        settle(pThread);
        QCOMPARE(released.count(), 3);
        QCOMPARE(book.runs.loadRelaxed(), 3);
        QCOMPARE(book.alive.loadRelaxed(), 2); // not handed over: still the caller's
        QVERIFY(logger.records().isEmpty() && later.records().isEmpty());
    }

    // A full pool and a thread that is not the pool's are refused with their
    // messages; a second release of a freed thread succeeds and says nothing.
    void refusals()
    {
        TWTest::RecordingLogger logger;
        TWThreadPool unlimited, pool(QString(), 3);
        pool.setLogger(&logger);
        TWThread* pOwn = pool.reserveThread();
        QSet<TWThread*> threads{pOwn, pool.reserveThread(), pool.reserveThread()};
        for (int i = 0; i < 70; ++i)
            threads << unlimited.reserveThread();
        QVERIFY(threads.size() == 73 && !threads.contains(nullptr) && logger.records().isEmpty());
        QVERIFY(!pool.reserveThread());
        const QString full = QStringLiteral("Theres is no free thread and thread pool is full! Max element: 3.");
        QCOMPARE(pool.lastErrorStr(), full);
        QCOMPARE(logger.records().value(0).type, QtCriticalMsg);

        TWThread* pForeign = unlimited.reserveThread();
        for (TWThread* pBad : {static_cast<TWThread*>(nullptr), reinterpret_cast<TWThread*>(0xdeadbeef), pForeign})
            QVERIFY(!pool.releaseThread(pBad));
        const QString unknown = QStringLiteral("The thread: 0x%1 is not in the thread pool!");
        QCOMPARE(logger.messages(), (QStringList{full, unknown.arg("0000000000000000"), unknown.arg("00000000deadbeef"),
                                                 unknown.arg(quintptr(pForeign), 16, 16, QLatin1Char('0'))}));
        logger.clear();
        QVERIFY(pool.releaseThread(pOwn) && pool.releaseThread(pOwn));
        QVERIFY(!pOwn->isBusy() && pForeign->isBusy() && logger.records().isEmpty());
    }

    void waits_data()
    {
        QTest::addColumn<int>("timeout");
        QTest::addColumn<bool>("offAppThread");
        QTest::newRow("0") << 0 << false;
        QTest::newRow("30") << 30 << false;
        QTest::newRow("30, off the application thread") << 30 << true;
        QTest::newRow("no limit, for a job's release") << -1 << false;
    }

    // Both threads of a pool of two are reserved; a reserved thread counts as
    // working even if it never starts. Only a failed reservation speaks.
    void waits()
    {
        QFETCH(int, timeout);
        QFETCH(bool, offAppThread);
        bool idle = false, reserved = false, allFinished = true;
        QStringList messages;
        auto attempt = [&] {
            JobBook book;
            Worker worker(&book);
            TWTest::RecordingLogger logger;
            TWThreadPool pool(QString(), 2);
            pool.setLogger(&logger);
            idle = pool.waitForAllThreadFinished(timeout);
            TWThread* pFirst = pool.reserveThread();
            pool.reserveThread();
            if (timeout < 0) {
                pFirst->setWorker(&worker);
                pFirst->start();
            }
            reserved = pool.waitingForReserveThread(timeout) == pFirst;
            allFinished = pool.waitForAllThreadFinished(qMax(timeout, 0));
            messages = logger.messages();
        };
        if (offAppThread) {
            std::unique_ptr<QThread> other(QThread::create(attempt));
            other->start();
            QVERIFY(other->wait(Patience));
        } else {
            attempt();
        }
        QVERIFY(idle && !allFinished);
        QCOMPARE(reserved, timeout < 0);
        const QString failure = QStringLiteral("Couldn't reserve thread in time: %1 msec!").arg(timeout);
        QCOMPARE(messages, timeout < 0 ? QStringList() : QStringList{failure});
    }

    // Threads in their event loops and one reserved but never started all
    // stop and go; the workers are left alone.
    void destructorStopsRunningThreads()
    {
        JobBook book;
        Worker workers[] = {{&book, false}, {&book, false}, {&book, false}};
        auto pool = std::make_unique<TWThreadPool>();
        QList<QPointer<TWThread>> threads{pool->reserveThread()};
        for (Worker& worker : workers) {
            threads << pool->reserveThread();
            threads.last()->setWorker(&worker);
            threads.last()->start();
        }
        QVERIFY(book.done.tryAcquire(3, Patience));
        pool.reset();
        QCOMPARE(threads.count(QPointer<TWThread>()), 4);
        QCOMPARE(book.alive.loadRelaxed(), 3);
    }

    // Every job runs once on at most four threads; in the end every thread is
    // free and every handed-over worker is gone.
    void churn()
    {
        JobBook book;
        TWTest::RecordingLogger logger;
        TWThreadPool pool(QString(), 4);
        pool.setLogger(&logger);
        QSet<TWThread*> used;
        for (int i = 0; i < 300; ++i) {
            // A thread announces its end once per worker it was ever given, and
            // a late announcement would free it mid-job: settle a reserved
            // thread first, and reserve again if that freed it.
            TWThread* pThread = nullptr;
            do {
                QVERIFY((pThread = pool.waitingForReserveThread(Patience)));
                settle(pThread);
            } while (!pThread->isBusy());
            used.insert(pThread);
            pThread->setWorker(new Worker(&book), true);
            pThread->start();
        }
        QVERIFY(pool.waitForAllThreadFinished(Patience));
        for (TWThread* pThread : std::as_const(used)) {
            settle(pThread);
            QVERIFY(!pThread->isBusy() && !pThread->worker());
        }
        QVERIFY(used.size() <= 4 && logger.records().isEmpty());
        QCOMPARE(book.runs.loadRelaxed(), 300);
        QCOMPARE(book.alive.loadRelaxed(), 0);
    }
};

QTEST_GUILESS_MAIN(TstTWThreadPool)
#include "tst_twthreadpool.moc"
