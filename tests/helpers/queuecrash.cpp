// Enqueues items into a queue and then waits to be killed, so that a test can
// see what a crash leaves on disk: queuecrash <dir> <bound> <count>.
// Prints "ready" once every item is queued.
#include "twtestsupport.h"

#include <twqueue.h>

#include <QtCore/QCoreApplication>

#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 4)
        return 2;
    // Never destroyed: the process is killed with the queue alive.
    auto* queue = new TW::TWQueue(QStringLiteral("crash"), args.at(2).toUInt(), args.at(1));
    TWTest::TextItem item;
    for (int i = 0; i < args.at(3).toInt(); ++i) {
        item.setText(QStringLiteral("item-%1").arg(i));
        if (!queue->enqueueItem(&item, QStringLiteral("kind"), QStringLiteral("name")))
            return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    for (;;)
        QThread::sleep(60);
}
