#include "twtestsupport.h"

#include <twthreadpool.h>

#include <QtCore/QPointer>
#include <QtCore/QSet>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <memory>

using TW::TWThread;
using TW::TWThreadPool;

namespace {

constexpr int Patience = 30000; // only a broken thread gets near it

struct Worker : TWThreadWorkerIface
{
    // Counted over all workers, as auto-deleted ones are gone when a test looks.
    static inline QAtomicInt alive, runs;
    Worker() { alive.ref(); }
    ~Worker() override { alive.deref(); }
    void process() override
    {
        ranOn = QThread::currentThread();
        runs.ref();
        emit finished();
    }
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
    void init() { Worker::runs.storeRelaxed(0); }

    void metaObjects()
    {
        using TWTest::describe;
        QCOMPARE(describe(TWThreadWorkerIface::staticMetaObject),
                 "TWThreadWorkerIface : QObject; public signal void finished(); public slot void process()");
        QCOMPARE(describe(TWThread::staticMetaObject),
                 "TW::TWThread : QThread; public signal void release(TWThread* pThread); "
                 "private slot void _onWorkerFinished(); private slot void _onThreadFinished()");
        QCOMPARE(describe(TWThreadPool::staticMetaObject),
                 "TW::TWThreadPool : QObject; public slot bool releaseThread(TWThread* pThread)");
    }

    // The thread made first comes back first, with the logger it was made with.
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
        QVERIFY(pSecond->logger() == &later && pool.releaseThread(pSecond));

        Worker first, second;
        pThread->setWorker(&first, false);
        QSignalSpy released(pThread, SIGNAL(release(TWThread*)));
        pThread->start();
        QVERIFY(pool.waitForAllThreadFinished(Patience));
        settle(pThread);
        QCOMPARE(first.ranOn, pThread);
        QVERIFY(released.count() == 1 && released.at(0).at(0).value<TWThread*>() == pThread);
        QVERIFY(!pThread->isBusy() && !pThread->worker());

        QCOMPARE(pool.reserveThread(), pThread);
        QCOMPARE(pThread->logger(), &logger);
        pThread->setWorker(&second);
        pThread->start();
        QVERIFY(pool.waitForAllThreadFinished(Patience));
        settle(pThread);
        // Three releases and runs; the workers were not handed over, so they are still the caller's.
        QCOMPARE(QStringLiteral("%1 %2 %3").arg(released.count()).arg(Worker::runs.loadRelaxed()).arg(Worker::alive.loadRelaxed()),
                 QStringLiteral("3 3 2"));
    }

    // A full pool and a thread that is not the pool's are refused with their
    // messages; a second release of a freed thread succeeds and says nothing.
    void refusals()
    {
        TWTest::RecordingLogger logger;
        TWThreadPool unlimited, pool(QString(), 3);
        pool.setLogger(&logger);
        for (int i = 0; i < 70; ++i)
            QVERIFY(unlimited.reserveThread());
        TWThread* pOwn = pool.reserveThread();
        QVERIFY(pool.reserveThread() && pool.reserveThread() && !pool.reserveThread());
        TWThread* pForeign = unlimited.reserveThread();
        QVERIFY(!pool.releaseThread(reinterpret_cast<TWThread*>(0xdeadbeef)) && !pool.releaseThread(pForeign));
        const QString unknown = QStringLiteral("The thread: 0x%1 is not in the thread pool!");
        QCOMPARE(logger.messages(), (QStringList{"Theres is no free thread and thread pool is full! Max element: 3.",
                                                 unknown.arg("00000000deadbeef"), unknown.arg(quintptr(pForeign), 16, 16, QLatin1Char('0'))}));
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
        QStringList outcome; // idle at first, reserved the first thread, all finished, the messages
        auto attempt = [&] {
            Worker worker;
            TWTest::RecordingLogger logger;
            TWThreadPool pool(QString(), 2);
            pool.setLogger(&logger);
            outcome << QString::number(pool.waitForAllThreadFinished(timeout));
            TWThread* pFirst = pool.reserveThread();
            pool.reserveThread();
            if (timeout < 0) {
                pFirst->setWorker(&worker);
                pFirst->start();
            }
            outcome << QString::number(pool.waitingForReserveThread(timeout) == pFirst)
                    << QString::number(pool.waitForAllThreadFinished(qMax(timeout, 0))) << logger.messages();
        };
        if (offAppThread)
            QVERIFY(TWTest::runThreads(1, [&attempt](int) { attempt(); }));
        else
            attempt();
        const QString failure = QStringLiteral("Couldn't reserve thread in time: %1 msec!").arg(timeout);
        QCOMPARE(outcome, timeout < 0 ? QStringList({"1", "1", "0"}) : QStringList({"1", "0", "0", failure}));
    }

    // Started threads and one never started all stop and go.
    void destructorStopsRunningThreads()
    {
        auto pool = std::make_unique<TWThreadPool>();
        QList<QPointer<TWThread>> threads{pool->reserveThread()};
        for (int i = 0; i < 3; ++i) {
            threads << pool->reserveThread();
            threads.last()->start();
        }
        pool.reset();
        QCOMPARE(threads.count(QPointer<TWThread>()), 4);
    }

    void backToBackJobs_data()
    {
        QTest::addColumn<int>("poolSize");
        QTest::addColumn<int>("batch"); // threads reserved before any of them starts
        QTest::newRow("one thread, one job at a time") << 1 << 1;
        QTest::newRow("two threads reserved together") << 2 << 2;
    }

    // Short jobs one after another: each end announces itself once per job the
    // thread has served, and the late announcements reach the pool while the
    // thread already waits for or runs a later job. Those must free nothing: a
    // thread is never handed out while it runs or twice at once, and the final
    // wait returns only once every job is over.
    void backToBackJobs()
    {
        QFETCH(int, poolSize);
        QFETCH(int, batch);
        struct SlowWorker : Worker
        {
            void process() override
            {
                QThread::usleep(200);
                emit finished();
                runs.ref();
            }
        };
        constexpr int Jobs = 1000;
        TWTest::RecordingLogger logger;
        TWThreadPool pool(QString(), static_cast<unsigned short>(poolSize));
        pool.setLogger(&logger);
        QSet<TWThread*> used;
        int badHandOuts = 0;
        for (int i = 0; i < Jobs; i += batch) {
            QList<TWThread*> reserved;
            for (int k = 0; k < batch; ++k) {
                TWThread* pThread = pool.waitingForReserveThread(Patience);
                QVERIFY(pThread);
                badHandOuts += pThread->isRunning() || reserved.contains(pThread);
                reserved << pThread;
            }
            for (TWThread* pThread : std::as_const(reserved)) {
                used.insert(pThread);
                pThread->setWorker(new SlowWorker, true);
                pThread->start();
            }
        }
        QVERIFY(pool.waitForAllThreadFinished(Patience));
        const int runsAtReturn = Worker::runs.loadRelaxed();
        for (TWThread* pThread : std::as_const(used))
            QVERIFY(pThread->wait(Patience) && !pThread->isBusy() && !pThread->worker());
        QCoreApplication::sendPostedEvents();
        QCOMPARE(QStringLiteral("%1 bad hand-outs, %2 run at return").arg(badHandOuts).arg(runsAtReturn),
                 QStringLiteral("0 bad hand-outs, %1 run at return").arg(Jobs));
        QVERIFY(Worker::alive.loadRelaxed() == 0 && used.size() == poolSize && logger.records().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TstTWThreadPool)
#include "tst_twthreadpool.moc"
