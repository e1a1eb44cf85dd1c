#include "twqueue.h"

#include "twlocker_p.h"
#include "twlogger.h"

#include <QtCore/qdatetime.h>
#include <QtCore/qdir.h>
#include <QtCore/qfile.h>
#include <QtCore/qfileinfo.h>
#include <QtCore/qstringconverter.h>
#include <QtCore/quuid.h>

#include <memory>
#include <new>

namespace TW {

/*! The queue's record of one item; owned by the list that holds its pointer. */
struct TWMetaQueueItem
{
    TWMetaQueueItem() = default;
    TWMetaQueueItem(const QString& data_, const QString& kind_, const QString& itemName_);

    QString data;
    QString kind;
    QString itemName;
    QString id;
    quint64 timestamp = 0;
    bool dequeued = false;
};

namespace {

const QString Separator = QStringLiteral("|TWQ|");
constexpr qsizetype BatchSize = 10;

// A random namespace makes equal texts get different ids, while the id still
// derives from the text: a version 5 UUID of the data under a fresh version 4 one.
QString makeId(const QString& data)
{
    return QUuid::createUuidV5(QUuid::createUuid(), data).toString(QUuid::WithBraces);
}

// Runs a failure report that may itself run out of memory; the failure value
// the caller returns says enough then.
template <typename Report>
void quietly(Report report)
{
    try {
        report();
    } catch (const std::bad_alloc&) {
    }
}

QString cacheTime(quint64 timestamp)
{
    return Internal::formatLocalDateTime(qint64(timestamp), QStringLiteral("yyyyMMddhhmmsszzz"));
}

} // namespace

TWMetaQueueItem::TWMetaQueueItem(const QString& data_, const QString& kind_, const QString& itemName_)
    : data(data_)
    , kind(kind_)
    , itemName(itemName_)
    , id(makeId(data_))
    , timestamp(quint64(QDateTime::currentMSecsSinceEpoch()))
{
}

TWQueue::TWQueue(const QString& name, unsigned int maxItemOnMemory, QString cacheDir, QObject* parent)
    : QObject(parent)
    , TWObject(name)
    , _maxItemOnMemory(maxItemOnMemory)
    , _cacheDir(cacheDir.isEmpty() ? QStringLiteral("./") : cacheDir)
{
    try {
        _mapCacheDir();
        _readItems.clear();
        _writeItems.clear();

        // Fill memory from the files, oldest name first. The bound is compared as a
        // signed number, so a bound above INT_MAX stops after the first record.
        const int bound = int(_maxItemOnMemory);
        bool full = false;
        while (!full && !_cacheFiles.isEmpty() && _readCache()) {
            while (!_readItems.isEmpty()) {
                _memoryItems.append(_readItems.constFirst());
                _readItems.removeFirst();
                if (_maxItemOnMemory != 0 && _memoryItems.size() >= bound) {
                    full = true;
                    break;
                }
            }
        }
        // Read the next file ahead, so that the first removal finds its successor ready.
        _readCache();
    } catch (const std::bad_alloc&) {
        // The queue starts with what it could read; the rest stays on the disk.
        quietly([this] {
            _setLastError(QStringLiteral("Couldn't allocate memory for the cache files in: '%1'!").arg(_cacheDir),
                          TW_SOURCE_LOCATION);
        });
    }
}

TWQueue::~TWQueue()
{
    // Everything in memory goes to files, handed-out records included: they
    // come back as waiting. Records already waiting in _writeItems go first.
    try {
        while (!_memoryItems.isEmpty()) {
            _writeCache(false);
            _writeItems.append(_memoryItems.constFirst());
            _memoryItems.removeFirst();
        }
        _writeCache(true);
    } catch (const std::bad_alloc&) {
        // What could not be written is lost with the queue, as after a failed write.
    }

    // The read-ahead batch is not written back (its file is gone already), and
    // records whose last write failed have nowhere to go: both are lost with
    // the queue, and only their memory is released here.
    qDeleteAll(_memoryItems);
    qDeleteAll(_readItems);
    qDeleteAll(_writeItems);
}

const QString TWQueue::className()
{
    return QStringLiteral("TWQueue");
}

bool TWQueue::enqueueItem(TWQueueItemIface* pItem, const QString& kind, const QString& itemName)
{
    // The memory comes first, so that a failed allocation leaves the item unserialised.
    const auto outOfMemory = [this, &itemName] {
        quietly([&] {
            _setLastError(QStringLiteral("Couldn't allocate meta queue item instance for '%1'!").arg(itemName),
                          TW_SOURCE_LOCATION);
        });
        return false;
    };
    void* memory = ::operator new(sizeof(TWMetaQueueItem), std::nothrow);
    if (!memory)
        return outOfMemory();
    // Serialising, the ids and the clock run outside the lock. Whatever throws
    // on the way (the host's serialize() included) gives the block back.
    std::unique_ptr<TWMetaQueueItem> record;
    try {
        record.reset(new (memory) TWMetaQueueItem(pItem->serialize(), kind, itemName));
    } catch (const std::bad_alloc&) {
        ::operator delete(memory);
        return outOfMemory();
    } catch (...) {
        ::operator delete(memory);
        throw; // the host's own exception, not the queue's to swallow
    }
    if (record->data.isEmpty()) {
        record.reset();
        _setLastError(QStringLiteral("Couldn't serialize item!"), TW_SOURCE_LOCATION);
        return false;
    }

    try {
        QMutexLocker locker(&_mutex);
        if (_maxItemOnMemory != 0 && _memoryItems.size() >= int(_maxItemOnMemory)) {
            _writeItems.append(record.get());
            record.release();
            const bool written = _writeCache(false);
            locker.unlock();
            return written;
        }
        _memoryItems.append(record.get());
        record.release();
        locker.unlock();
        return true;
    } catch (const std::bad_alloc&) {
        return outOfMemory();
    }
}

QString TWQueue::dequeueItem(QString& data, QString* pKind, QString* pItemName, quint64* pTimestamp)
{
    data.clear();
    if (pKind)
        pKind->clear();
    if (pItemName)
        pItemName->clear();
    if (pTimestamp)
        *pTimestamp = 0;

    TWMetaQueueItem* record = nullptr;
    QMutexLocker locker(&_mutex);
    for (TWMetaQueueItem* candidate : std::as_const(_memoryItems)) {
        if (!candidate->dequeued) {
            record = candidate;
            break;
        }
    }
    if (!record) {
        locker.unlock();
        return QString();
    }
    record->dequeued = true;
    locker.unlock();

    // Nobody else can settle the record before its id has been returned, so its
    // fields are safe to read without the lock.
    try {
        if (pKind)
            pKind->append(record->kind);
        if (pItemName)
            pItemName->append(record->itemName);
        if (pTimestamp)
            *pTimestamp = record->timestamp;
        data.append(record->data);
        return record->id;
    } catch (const std::bad_alloc&) {
        // The record was not handed out after all: it goes back into line.
        locker.relock();
        record->dequeued = false;
        locker.unlock();
        data.clear();
        if (pKind)
            pKind->clear();
        if (pItemName)
            pItemName->clear();
        if (pTimestamp)
            *pTimestamp = 0;
        return QString();
    }
}

bool TWQueue::updateItem(const QString& id, bool remove)
{
    try {
        QMutexLocker locker(&_mutex);
        qsizetype index = 0;
        const qsizetype count = _memoryItems.size();
        while (index < count && _memoryItems.at(index)->id != id)
            ++index;
        if (index == count) {
            locker.unlock();
            _setLastError(QStringLiteral("Item id: '%1' is not found in queue!").arg(id), TW_SOURCE_LOCATION);
            return false;
        }

        TWMetaQueueItem* record = _memoryItems.at(index);
        if (!remove) {
            record->dequeued = false;
            locker.unlock();
            return true;
        }

        _memoryItems.removeAt(index);
        delete record;
        // One record comes from the read-ahead batch into memory per removal.
        if (!_readCache()) {
            locker.unlock();
            return false;
        }
        if (!_readItems.isEmpty()) {
            _memoryItems.append(_readItems.constFirst());
            _readItems.removeFirst();
        }
        locker.unlock();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool TWQueue::_createCacheDir()
{
    if (_cacheDir.isEmpty())
        return true;
    const QDir dir(_cacheDir);
    if (dir.exists())
        return true;
    if (dir.mkpath(dir.absolutePath()))
        return true;
    _setLastError(QStringLiteral("Couldn't create cahce direcoty: '%1'!").arg(dir.absolutePath()), TW_SOURCE_LOCATION);
    return false;
}

bool TWQueue::_mapCacheDir()
{
    if (!_createCacheDir())
        return false;
    const QDir dir(_cacheDir);
    const QStringList entries = dir.entryList({QStringLiteral("*.%1").arg(QStringLiteral("cache"))}, QDir::Files,
                                              QDir::Name);
    _cacheFiles.clear();
    _cacheFiles.reserve(entries.size());
    for (const QString& entry : entries)
        _cacheFiles.append(QFileInfo(dir, entry).absoluteFilePath());
    return true;
}

bool TWQueue::_writeCache(bool force)
{
    if (force ? _writeItems.isEmpty() : _writeItems.size() < BatchSize)
        return true;
    if (!_createCacheDir())
        return false;

    // Names sort by the first record's time, then the last one's, then a counter.
    const QString first = cacheTime(_writeItems.constFirst()->timestamp);
    const QString last = cacheTime(_writeItems.constLast()->timestamp);
    const QDir dir(_cacheDir);
    QFileInfo info;
    for (int counter = 0;; ++counter) {
        info = QFileInfo(dir, QStringLiteral("%1_%2_%3.cache")
                                  .arg(first, last, QStringLiteral("%1").arg(counter, 3, 10, QLatin1Char('0'))));
        if (!info.exists())
            break;
    }

    QFile file(info.absoluteFilePath());
    if (!file.open(QIODevice::WriteOnly)) {
        _setLastError(QStringLiteral("Couldn't write cache data to file: '%1'! %2").arg(file.fileName(), file.errorString()),
                      TW_SOURCE_LOCATION);
        return false;
    }

    // The records are let go only once their text is made, so that running
    // out of memory on the way leaves the batch waiting for the next attempt,
    // as a file that cannot be opened does (the empty file is read as no
    // records and removed at the next start).
    QByteArray bytes;
    try {
        qsizetype size = 0;
        for (const TWMetaQueueItem* record : std::as_const(_writeItems))
            size += record->id.size() + record->kind.size() + record->itemName.size() + record->data.size() + 48;
        QString buffer;
        buffer.reserve(size);
        for (const TWMetaQueueItem* record : std::as_const(_writeItems)) {
            buffer += record->id;
            buffer += Separator;
            buffer += QString::number(record->timestamp, 10);
            buffer += Separator;
            buffer += record->kind;
            buffer += Separator;
            buffer += record->itemName;
            buffer += Separator;
            buffer += record->data;
            buffer += u'\n';
        }
        if (!buffer.isEmpty())
            buffer.chop(1); // no line feed behind the last line
        bytes = buffer.toUtf8();
        _cacheFiles.reserve(_cacheFiles.size() + 1);
    } catch (const std::bad_alloc&) {
        file.remove();
        quietly([&] {
            _setLastError(QStringLiteral("Couldn't allocate cache data for file: '%1'!").arg(file.fileName()),
                          TW_SOURCE_LOCATION);
        });
        return false;
    }
    qDeleteAll(_writeItems);
    _writeItems.clear();

    // UTF-8 without a byte order mark, in one write, in place under its final
    // name; what fails to reach the disk from here on is not noticed.
    file.write(bytes);
    file.close();
    _cacheFiles.append(file.fileName());
    return true;
}

bool TWQueue::_readCache()
{
    if (!_readItems.isEmpty() || _cacheFiles.isEmpty())
        return true;

    QFile file(_cacheFiles.constFirst());
    if (!file.open(QIODevice::ReadOnly)) {
        _setLastError(QStringLiteral("Couldn't open cache file: '%1'! %2").arg(file.fileName(), file.errorString()),
                      TW_SOURCE_LOCATION);
        return false;
    }
    // Running out of memory while reading is a failed record allocation: the
    // lines read so far stay, the file stays first in line.
    try {
        // The whole file is decoded at once, as a text stream would (an initial
        // byte order mark is skipped), and cut into lines as QTextStream::readLine
        // does: at each line feed, dropping one carriage return before it or at the
        // very end. A line feed at the end of the file gives no extra line.
        QStringDecoder decoder(QStringDecoder::Utf8);
        const QString text = decoder(file.readAll());
        const QStringView all(text);
        qsizetype start = 0;
        while (start < all.size()) {
            qsizetype end = all.indexOf(u'\n', start);
            const qsizetype next = end < 0 ? all.size() : end + 1;
            if (end < 0)
                end = all.size();
            if (end > start && all.at(end - 1) == u'\r')
                --end;
            const QStringView line = all.mid(start, end - start);
            start = next;
            const QList<QStringView> parts = line.split(Separator, Qt::KeepEmptyParts, Qt::CaseSensitive);
            if (parts.size() != 5) {
                _setLastError(QStringLiteral("Cache file: '%1' is corrupt! Separator: '%2' must be count 4.")
                                  .arg(file.fileName(), Separator),
                              TW_SOURCE_LOCATION);
                file.close();
                return false;
            }
            std::unique_ptr<TWMetaQueueItem> record(new (std::nothrow) TWMetaQueueItem());
            if (!record) {
                _setLastError(QStringLiteral("Couldn't allocate meta queue item instance!"), TW_SOURCE_LOCATION);
                return false;
            }
            record->id = parts.at(0).trimmed().toString();
            record->timestamp = parts.at(1).trimmed().toULongLong(nullptr, 10);
            record->kind = parts.at(2).trimmed().toString();
            record->itemName = parts.at(3).toString();
            record->data = parts.at(4).toString();
            _readItems.append(record.get());
            record.release();
        }
    } catch (const std::bad_alloc&) {
        quietly([this] { _setLastError(QStringLiteral("Couldn't allocate meta queue item instance!"), TW_SOURCE_LOCATION); });
        return false;
    }

    file.close();
    _cacheFiles.removeFirst();
    if (file.remove())
        return true;
    _setLastError(QStringLiteral("Couldn't delete cache file: '%1'! %2").arg(file.fileName(), file.errorString()),
                  TW_SOURCE_LOCATION);
    return false;
}

TWQueuePool* TWQueuePool::glb_pInstance = nullptr;

namespace {
const QString DummyName = QStringLiteral("TWQueueDummy");
// What addFromConfig asks for when the bound is absent; a bound of exactly
// this value therefore reads as absent too.
constexpr unsigned int UndefinedBound = 65535;
} // namespace

TWQueuePool::TWQueuePool(const QString& name, QObject* parent)
    : QObject(parent)
    , TWObject(name)
{
}

TWQueuePool::~TWQueuePool()
{
    removeAll();
}

const QString TWQueuePool::className()
{
    return QStringLiteral("TWQueuePool");
}

TWQueuePool* TWQueuePool::globalInstance()
{
    if (!glb_pInstance) {
        glb_pInstance = new (std::nothrow) TWQueuePool(QStringLiteral("TWQueuePoolGlobal"));
        if (!glb_pInstance)
            qFatal("Couldn't allocate global queue pool instance!");
    }
    return glb_pInstance;
}

void TWQueuePool::add(const QString& name, unsigned int maxItemOnMemory, const QString& cacheDir)
{
    // Made outside the lock: the queue reads its cache files here.
    auto* queue = new (std::nothrow) TWQueue(QStringLiteral("TWQueue") + name, maxItemOnMemory, cacheDir, this);
    if (!queue) {
        _setLastError(QStringLiteral("Couldn't allocate queue: 'TWQueue%1' instance!").arg(name), TW_SOURCE_LOCATION);
        return;
    }
    try {
        QMutexLocker locker(&_mutex);
        _queues[name] = queue;
    } catch (const std::bad_alloc&) {
        // Not listed, so nobody can reach it: it writes its records back and goes.
        delete queue;
        quietly([&] {
            _setLastError(QStringLiteral("Couldn't allocate queue: 'TWQueue%1' instance!").arg(name), TW_SOURCE_LOCATION);
        });
    }
}

void TWQueuePool::addFromConfig(const QString& name, TWConfigIface* pConfig)
{
    unsigned int maxItemOnMemory =
        pConfig->getUIntValue(QStringLiteral("%1.QueueMaxItemOnMemory").arg(name), UndefinedBound);
    if (maxItemOnMemory == UndefinedBound) {
        _writeLog(QStringLiteral("%1.QueueMaxItemOnMemory not defined in config! Value: 0 (endless) will be used.").arg(name),
                  QtWarningMsg, TW_SOURCE_LOCATION);
        maxItemOnMemory = 0;
    }
    QString cacheDir = pConfig->getStrValue(QStringLiteral("%1.QueueCacheDir").arg(name), QString());
    if (cacheDir.isEmpty()) {
        _writeLog(QStringLiteral("%1.QueueCacheDir not defined in config! Value: './' will be used.").arg(name),
                  QtWarningMsg, TW_SOURCE_LOCATION);
        cacheDir = QStringLiteral("./");
    }
    add(name, maxItemOnMemory, cacheDir);
}

void TWQueuePool::remove(const QString& name)
{
    // The queue's destructor writes its files under the lock.
    QMutexLocker locker(&_mutex);
    const auto it = _queues.find(name);
    if (it == _queues.end()) {
        _writeLog(QStringLiteral("Couldn't remove queue: '%1'! It is not in the queue pool.").arg(name), QtWarningMsg,
                  TW_SOURCE_LOCATION);
        return;
    }
    delete it.value();
    _queues.erase(it);
}

void TWQueuePool::removeAll()
{
    QMutexLocker locker(&_mutex);
    const QStringList names = _queues.keys();
    for (const QString& name : names)
        delete _queues.value(name, nullptr);
    _queues.clear();
}

bool TWQueuePool::contains(const QString& name)
{
    QMutexLocker locker(&_mutex);
    return _queues.contains(name);
}

TWQueue* TWQueuePool::queue(const QString& name)
{
    try {
        QMutexLocker locker(&_mutex);
        const auto it = _queues.constFind(name);
        if (it != _queues.constEnd()) {
            TWQueue* found = it.value();
            locker.unlock();
            return found;
        }
        if (!_queues.contains(DummyName)) {
            auto* dummy = new (std::nothrow) TWQueue(DummyName, 0, QStringLiteral("./"), this);
            if (!dummy) {
                // Returns with the mutex still held: the pool stays locked from here on.
                Internal::keepLocked(locker);
                _setLastError(QStringLiteral("Couldn't allocate dummy queue instance!"), TW_SOURCE_LOCATION);
                return nullptr;
            }
            _queues.insert(DummyName, dummy);
        }
        _writeLog(QStringLiteral("%1 queue is not in the queue pool! DummyQueue will be used.").arg(name), QtWarningMsg,
                  TW_SOURCE_LOCATION);
        TWQueue* dummy = _queues.value(DummyName);
        locker.unlock();
        return dummy;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

QMap<QString, TWQueue*> TWQueuePool::queues()
{
    return _queues;
}

} // namespace TW
