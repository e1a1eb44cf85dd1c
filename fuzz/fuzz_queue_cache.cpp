// Feeds arbitrary bytes to a queue as a cache file: its start-up reads the
// file, later removals read it (or what is left of it) again, and the queue's
// end writes what it holds. Input: one byte for the memory bound, one for the
// number of removals, then the file's content.
#include <twlogger.h>
#include <twqueue.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <cstddef>
#include <cstdint>

namespace {

class TextItem : public TWQueueItemIface
{
public:
    QString serialize() override { return QStringLiteral("fuzz item"); }
};

QTemporaryDir& workDir()
{
    static QTemporaryDir* dir = [] {
        // The queue reports through the global logger; keep it silent and off the disk.
        TW::TWLogger* logger = TW::TWLogger::globalInstance();
        for (int level : logger->acceptedLogLevelList())
            logger->removeAcceptedLogLevel(level);
        return new QTemporaryDir;
    }();
    return *dir;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    QDir dir(workDir().path());
    {
        QFile file(dir.filePath(QStringLiteral("20260101000000000_20260101000000000_000.cache")));
        if (!file.open(QIODevice::WriteOnly))
            return 0;
        file.write(reinterpret_cast<const char*>(data) + 2, qint64(size - 2));
    }
    {
        TW::TWQueue queue(QStringLiteral("fuzz"), data[0] % 8, dir.path());
        TextItem item;
        QString text, kind, name;
        quint64 stamp = 0;
        for (int i = 0; i < data[1] % 16; ++i) {
            queue.enqueueItem(&item, QStringLiteral("k"), QStringLiteral("n"));
            const QString id = queue.dequeueItem(text, &kind, &name, &stamp);
            if (!id.isEmpty())
                queue.updateItem(id, i % 3 != 0);
        }
    }
    for (const QString& name : dir.entryList(QDir::Files))
        dir.remove(name);
    return 0;
}
