// A small host of TWBaseLib: a named object that logs into numbered files, a
// queue that survives a restart, and a ZX7 round trip. Run it in an empty folder.
#include <twbaselib/twlogger.h>
#include <twbaselib/twobject.h>
#include <twbaselib/twqueue.h>
#include <twbaselib/twzx7.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>

#include <cstdio>

namespace {

class Job : public TWQueueItemIface
{
public:
    explicit Job(QString text) : _text(std::move(text)) {}
    QString serialize() override { return _text; }

private:
    QString _text;
};

class Worker : public TW::TWObject
{
public:
    using TW::TWObject::TWObject;
    void complain() { _setLastError(QStringLiteral("Nothing to do!"), TW_SOURCE_LOCATION); }
};

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    TW::TWLogger::globalInstance()->setConsoleOutput(false);

    Worker worker(QStringLiteral("Worker"));
    worker.complain(); // lands in ./twoutput_0000.log
    std::printf("%s: %s\n", qPrintable(worker.name()), qPrintable(worker.lastErrorStr()));

    {
        TW::TWQueue queue(QStringLiteral("jobs"), 0, QStringLiteral("spool"));
        Job job(QStringLiteral("resize photo.jpg"));
        queue.enqueueItem(&job, QStringLiteral("resize"), QStringLiteral("job 1"));
    } // the queue writes its record to spool/ here
    TW::TWQueue queue(QStringLiteral("jobs"), 0, QStringLiteral("spool"));
    QString data;
    const QString id = queue.dequeueItem(data, nullptr, nullptr, nullptr);
    queue.updateItem(id, true);
    std::printf("back after a restart: %s\n", qPrintable(data));

    const QByteArray text = QByteArray("to be or not to be, that is the question. ").repeated(50);
    const QByteArray packed = TW::TWZX7::compress(text, 0);
    std::printf("zx7: %d -> %d bytes, round trip %s\n", int(text.size()), int(packed.size()),
                TW::TWZX7::decompress(packed) == text ? "ok" : "FAILED");
    return TW::TWZX7::decompress(packed) == text && data == QLatin1String("resize photo.jpg") ? 0 : 1;
}
