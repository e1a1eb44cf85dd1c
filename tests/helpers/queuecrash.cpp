// Enqueues items into a queue and then waits to be killed, so that a test can
// see what a crash leaves on disk: queuecrash <dir> <bound> <count>.
// Prints "ready" once every item is queued.
#include <twqueue.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QStringList>
#include <QtCore/QThread>

#include <cstdio>

namespace {
class TextItem : public TWQueueItemIface
{
public:
    explicit TextItem(QString text) : _text(std::move(text)) {}
    QString serialize() override { return _text; }

private:
    QString _text;
};
} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 4)
        return 2;
    // Never destroyed: the process is killed with the queue alive.
    auto* queue = new TW::TWQueue(QStringLiteral("crash"), args.at(2).toUInt(), args.at(1));
    const int count = args.at(3).toInt();
    for (int i = 0; i < count; ++i) {
        TextItem item(QStringLiteral("item-%1").arg(i));
        if (!queue->enqueueItem(&item, QStringLiteral("kind"), QStringLiteral("name")))
            return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    for (;;)
        QThread::sleep(60);
}
