// Runs the library's locked operations out of memory in a process of its own:
// lowmemory <dir> <logger|queue>. The address space is capped just above what
// the process holds once its large inputs are made, so that the operation
// under test fails to allocate; another thread must then still get through the
// same object (a mutex left locked would hang it). Prints one word per step
// and exits 0 when everything behaved.
#include "twtestsupport.h"

#include <twlogger.h>
#include <twqueue.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

namespace {

constexpr qsizetype Huge = qsizetype(96) << 20; // characters: 192 MiB as a QString

// The address space in use now, from /proc.
rlim_t addressSpace()
{
    QFile status(QStringLiteral("/proc/self/statm"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    return rlim_t(status.readAll().split(' ').value(0).toULongLong()) * rlim_t(sysconf(_SC_PAGESIZE));
}

bool capMemory()
{
    const rlim_t cap = addressSpace() + (rlim_t(64) << 20);
    const rlimit limit{cap, cap};
    return addressSpace() != 0 && setrlimit(RLIMIT_AS, &limit) == 0;
}

// Runs \a body on another thread; false when it did not end within ten seconds.
bool elsewhere(const std::function<bool()>& body)
{
    bool result = false;
    QThread* thread = QThread::create([&] { result = body(); });
    thread->start();
    const bool ended = thread->wait(10000);
    if (!ended)
        return false; // left running: the process ends with an error anyway
    delete thread;
    return result;
}

void say(const char* word, bool ok)
{
    std::printf("%s %s\n", word, ok ? "ok" : "FAILED");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 3)
        return 2;
    const QString dir = args.at(1);
    const QString message(Huge, QLatin1Char('x'));
    bool ok = true;

    if (args.at(2) == QLatin1String("logger")) {
        TW::TWLogger logger;
        logger.setFilePath(dir);
        logger.setConsoleOutput(false);
        const auto small = [&logger] {
            return logger.writeLog(QStringLiteral("small"), QtWarningMsg, QStringLiteral("f"), 1, QStringLiteral("g"));
        };
        ok &= small();
        if (!capMemory())
            return 3;
        const bool hugeFailed = !logger.writeLog(message, QtWarningMsg, QStringLiteral("f"), 1, QStringLiteral("g"));
        say("huge-refused", hugeFailed);
        const bool after = elsewhere(small) && small();
        say("logger-usable", after);
        ok &= hugeFailed && after;
    } else if (args.at(2) == QLatin1String("queue")) {
        // A record too large to be given an id, then a batch too large to be
        // written: both fail, and the queue takes new items from another thread.
        TWTest::RecordingLogger quiet;
        TW::TWQueue queue(QStringLiteral("lowmemory"), 1, dir);
        queue.setLogger(&quiet);
        TWTest::TextItem item(QStringLiteral("small"));
        ok &= queue.enqueueItem(&item, QStringLiteral("k"), QStringLiteral("first"));
        TWTest::TextItem huge(message);
        const QString tenth(Huge / 10, QLatin1Char('y'));
        TWTest::TextItem part(tenth);
        for (int i = 0; i < 9; ++i)
            ok &= queue.enqueueItem(&part, QStringLiteral("k"), QStringLiteral("part"));
        if (!capMemory())
            return 3;
        const bool hugeFailed = !queue.enqueueItem(&huge, QStringLiteral("k"), QStringLiteral("huge"));
        say("huge-refused", hugeFailed && queue.lastErrorStr() == QLatin1String("Couldn't allocate meta queue item instance for 'huge'!"));
        const bool batchFailed = !queue.enqueueItem(&part, QStringLiteral("k"), QStringLiteral("part"));
        say("batch-refused", batchFailed && queue.lastErrorStr().startsWith(QLatin1String("Couldn't allocate cache data for file: '")));
        const bool after = elsewhere([&] {
            QString data;
            const QString id = queue.dequeueItem(data, nullptr, nullptr, nullptr);
            return data == QLatin1String("small") && queue.updateItem(id, true)
                && queue.enqueueItem(&item, QStringLiteral("k"), QStringLiteral("again"));
        });
        say("queue-usable", after);
        ok &= hugeFailed && batchFailed && after;
        ok &= QDir(dir).entryList({QStringLiteral("*.cache")}, QDir::Files).isEmpty();
    } else {
        return 2;
    }
    return ok ? 0 : 1;
}
