#include "demo.h"

#include <twlogger.h>
#include <twthreadpool.h>
#include <twtimemeasure.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QCryptographicHash>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QRandomGenerator>

#include <vector>

namespace {

constexpr int BlockCount = 8;
constexpr int BlockSize = 4 * 1024 * 1024;
constexpr int PoolSize = 3;

// One job: the SHA-256 of a block, written into the caller's result slot.
// Each worker has a slot of its own, and the caller reads the slots only
// after the threads have ended.
class ChecksumWorker : public TWThreadWorkerIface
{
    Q_OBJECT

public:
    ChecksumWorker(const QByteArray& block, QByteArray* pResult, QThread** ppRanOn)
        : _block(block)
        , _pResult(pResult)
        , _ppRanOn(ppRanOn)
    {
    }

public slots:
    void process() override
    {
        *_ppRanOn = QThread::currentThread();
        *_pResult = QCryptographicHash::hash(_block, QCryptographicHash::Sha256);
        emit finished();
    }

private:
    QByteArray _block;
    QByteArray* _pResult;
    QThread** _ppRanOn;
};

QByteArray makeBlock(quint32 seed)
{
    std::vector<quint32> words(BlockSize / sizeof(quint32));
    QRandomGenerator(seed).fillRange(words.data(), qsizetype(words.size()));
    return QByteArray(reinterpret_cast<const char*>(words.data()), BlockSize);
}

QString findLine(const QString& path, const QString& needle)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine());
        if (line.contains(needle))
            return line.simplified();
    }
    return QString();
}

} // namespace

bool demoThreadPool(DemoContext& context)
{
    bool ok = true;
    const QString dir = context.stepDir(QStringLiteral("threads"));
    TW::TWLogger logger;
    logger.setFilePath(dir);
    logger.setConsoleOutput(false);

    QList<QByteArray> blocks;
    QList<QByteArray> expected;
    for (int i = 0; i < BlockCount; ++i) {
        blocks << makeBlock(quint32(1000 + i));
        expected << QCryptographicHash::hash(blocks.last(), QCryptographicHash::Sha256);
    }
    say(QStringLiteral("%1 blocks of %2 MiB each get their SHA-256 on pooled threads, at most %3 threads at once.")
            .arg(BlockCount)
            .arg(BlockSize / (1024 * 1024))
            .arg(PoolSize));

    QList<QByteArray> results(BlockCount);
    QList<QThread*> ranOn(BlockCount, nullptr);
    QList<TW::TWThread*> threads;
    QString fullText;
    int waits = 0;
    QStringList report;
    bool allFree = false;
    bool reusedFirst = false;
    {
        TW::TWTimeMeasure measure(QStringLiteral("Checksumming"), QtInfoMsg, nullptr);
        measure.setLogger(&logger);
        TW::TWThreadPool pool(QStringLiteral("Checksum pool"), PoolSize);
        pool.setLogger(&logger);

        for (int i = 0; i < BlockCount; ++i) {
            TW::TWThread* pThread = pool.reserveThread();
            if (!pThread) {
                // The releases come back as events of this thread, which only
                // the wait processes: until it runs, every thread counts as busy.
                if (fullText.isEmpty())
                    fullText = pool.lastErrorStr();
                ++waits;
                pThread = pool.waitingForReserveThread(30000);
            }
            if (!pThread) {
                say(QStringLiteral("No thread came back: %1").arg(pool.lastErrorStr()));
                return false;
            }
            if (!threads.contains(pThread))
                threads << pThread;
            // Handed over: the worker deletes itself once it has finished.
            pThread->setWorker(new ChecksumWorker(blocks.at(i), &results[i], &ranOn[i]), true);
            pThread->start();
        }
        allFree = pool.waitForAllThreadFinished(30000);
        reusedFirst = pool.reserveThread() == threads.value(0);
        pool.releaseThread(threads.value(0));

        // The pool deletes its threads with it: note who did what while they exist.
        for (TW::TWThread* pThread : std::as_const(threads)) {
            QStringList served;
            for (int i = 0; i < BlockCount; ++i) {
                if (ranOn.at(i) == pThread)
                    served << QString::number(i + 1);
            }
            report << QStringLiteral("Thread %1 (%2) worked on blocks %3.")
                          .arg(report.size() + 1)
                          .arg(pThread->name(), served.join(QStringLiteral(", ")));
        }
    } // the measure logs its line here

    say(QStringLiteral("The first %1 jobs got new threads; then reserveThread() answered null with:").arg(PoolSize));
    say(QStringLiteral("  \"%1\"").arg(fullText));
    say(QStringLiteral("%1 times a job found every thread busy and waited in waitingForReserveThread() for one to")
            .arg(waits));
    say(QStringLiteral("come back. A thread announces its end once for every job it has served; the pool frees it at"));
    say(QStringLiteral("the first of these and lets the late ones pass while the thread runs its next job."));
    for (const QString& line : std::as_const(report))
        say(line);
    ok &= report.size() == PoolSize && !fullText.isEmpty() && waits > 0;
    ok &= allFree && reusedFirst;
    say(QStringLiteral("All threads free at the end: %1; a new reservation gets the thread made first again: %2.")
            .arg(allFree ? QStringLiteral("yes") : QStringLiteral("no"),
                 reusedFirst ? QStringLiteral("yes") : QStringLiteral("no")));

    const bool match = results == expected;
    say(QStringLiteral("Every checksum matches the one computed on the main thread: %1 (block 1: %2...).")
            .arg(match ? QStringLiteral("yes") : QStringLiteral("no"),
                 QString::fromLatin1(results.at(0).toHex().left(16))));
    ok &= match;

    const QString line = findLine(QDir(dir).filePath(QStringLiteral("twoutput_0000.log")),
                                  QStringLiteral("Checksumming running time is"));
    say(QStringLiteral("A TWTimeMeasure around the work wrote its line to %1/twoutput_0000.log, blanks squeezed:")
            .arg(QDir(context.outDir).relativeFilePath(dir)));
    say(QStringLiteral("  ") + line.left(line.indexOf(QLatin1String(" - in '"))));
    ok &= !line.isEmpty();
    return ok;
}

#include "demo_threads.moc"
