#ifndef TWQUEUE_H
#define TWQUEUE_H

#include "twglobal.h"
#include "twinterfaces.h"
#include "twobject.h"

#include <QtCore/qlist.h>
#include <QtCore/qmap.h>
#include <QtCore/qmutex.h>
#include <QtCore/qobject.h>
#include <QtCore/qstring.h>
#include <QtCore/qstringlist.h>

namespace TW {

struct TWMetaQueueItem;

/*!
 * A thread-safe queue of text records that keeps at most maxItemOnMemory of
 * them in memory and moves the overflow to cache files in batches of ten.
 *
 * A producer hands in a TWQueueItemIface, which the queue turns into one line
 * of text with a fresh id and a time stamp. A consumer takes the oldest record
 * that is not already handed out with dequeueItem() and settles it with exactly
 * one updateItem(): removed when done, or put back to be handed out again.
 *
 * Order: first in, first out within memory, within one cache file and across
 * cache files, but not across the three: a new item goes straight to memory
 * whenever memory has room, ahead of older records that wait on disk.
 *
 * What survives: records in cache files survive a crash. When the queue is
 * destroyed it writes every record it holds in memory to cache files (handed
 * out ones come back as waiting), so a clean restart on the same folder gets
 * them back - except the one batch that was already read ahead from its file.
 * Cache files are "<first time>_<last time>_<NNN>.cache" in the cache folder,
 * UTF-8 lines of id|TWQ|timestamp|TWQ|kind|TWQ|itemName|TWQ|data; nothing is
 * escaped, so texts must not contain line feeds or "|TWQ|".
 *
 * Failures set the last error (see TWObject) and return false or an empty id.
 */
class TWBASELIB_EXPORT TWQueue : public QObject, public TWObject
{
    Q_OBJECT

public:
    /*!
     * Makes a queue on \a cacheDir ("./" when empty; created when missing) and
     * fills memory from the cache files found there, oldest name first, up to
     * \a maxItemOnMemory records (0: no bound, every file is read). Each file
     * is deleted once read, and the next one is read ahead.
     */
    TWQueue(const QString& name = QString(), unsigned int maxItemOnMemory = 0, QString cacheDir = QString(),
            QObject* parent = nullptr);
    /*! Writes every record held in memory to cache files. */
    ~TWQueue() override;

    /*! The literal "TWQueue". */
    static const QString className();

    /*!
     * Queues the text of \a pItem (which must not be null and stays the
     * caller's) with \a kind and \a itemName. False when the item serialises to
     * an empty text, or when the overflow could not be written to a cache file
     * (the record is kept then and written by a later call).
     */
    bool enqueueItem(TWQueueItemIface* pItem, const QString& kind, const QString& itemName);

    /*!
     * Hands out the oldest record in memory that is not handed out already:
     * its text in \a data, the other fields where the pointers are not null.
     * Returns its id, or an empty string when there is none.
     */
    QString dequeueItem(QString& data, QString* pKind, QString* pItemName, quint64* pTimestamp);

    /*!
     * Settles the record \a id: deletes it when \a remove is true (and brings
     * one record from the cache files into memory), or puts it back to be
     * handed out again. False when the id is not in memory, or when reading the
     * next cache file failed (the record is deleted all the same).
     */
    bool updateItem(const QString& id, bool remove);

private:
    bool _createCacheDir();
    bool _mapCacheDir();
    bool _writeCache(bool force);
    bool _readCache();

    unsigned int _maxItemOnMemory;
    QString _cacheDir;
    QStringList _cacheFiles;
    QMutex _mutex;
    QList<TWMetaQueueItem*> _memoryItems;
    QList<TWMetaQueueItem*> _readItems;
    QList<TWMetaQueueItem*> _writeItems;
};

/*!
 * A thread-safe registry of queues by name, which owns the queues it holds.
 *
 * add() and addFromConfig() make a queue (its object name is "TWQueue" + the
 * name) and register it under the bare name; a name that is taken already is
 * simply taken over, and the old queue lives on until the pool is destroyed.
 * queue() never answers nothing for a name it does not know: it hands out a
 * shared fallback queue "TWQueueDummy" (no memory bound, working in "./"),
 * made at the first miss, and logs a warning at every miss.
 *
 * remove(), removeAll() and the destructor delete queues, which writes their
 * records to cache files: call removeAll() on the global pool before the
 * program ends. Failures set the pool's last error; warnings go to its logger.
 */
class TWBASELIB_EXPORT TWQueuePool : public QObject, public TWObject
{
    Q_OBJECT

public:
    TWQueuePool(const QString& name = QString(), QObject* parent = nullptr);
    /*! Deletes every queue, as removeAll() does. */
    ~TWQueuePool() override;

    /*! The literal "TWQueuePool". */
    static const QString className();
    /*! The process-wide pool "TWQueuePoolGlobal", made at the first call (which must not race). */
    static TWQueuePool* globalInstance();

    /*!
     * Makes a queue on \a cacheDir ("./" when empty) with at most
     * \a maxItemOnMemory records in memory (0: no bound) and registers it as
     * \a name. The queue reads its cache files before it is registered.
     */
    void add(const QString& name, unsigned int maxItemOnMemory, const QString& cacheDir);
    /*!
     * As add(), with the settings "<name>.QueueMaxItemOnMemory" and
     * "<name>.QueueCacheDir" of \a pConfig (which must not be null). A missing
     * bound (or the value 65535) means 0, a missing folder "./", each with a
     * warning.
     */
    void addFromConfig(const QString& name, TWConfigIface* pConfig);
    /*! Deletes the queue registered as \a name; a warning when there is none. */
    void remove(const QString& name);
    /*! Deletes every registered queue. */
    void removeAll();
    /*! Whether a queue is registered as \a name ("TWQueueDummy" once the fallback exists). */
    bool contains(const QString& name);
    /*!
     * The queue registered as \a name, or the fallback queue (with a warning).
     * Null only when the fallback cannot be allocated.
     */
    TWQueue* queue(const QString& name);
    /*! A copy of the registry. Not locked: do not call it while others add or remove. */
    QMap<QString, TWQueue*> queues();

private:
    QMutex _mutex;
    QMap<QString, TWQueue*> _queues;

    static TWQueuePool* glb_pInstance;
};

} // namespace TW

#endif // TWQUEUE_H
