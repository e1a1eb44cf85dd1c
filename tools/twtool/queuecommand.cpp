#include "commandline.h"
#include "commands.h"
#include "queuedemo.h"
#include "toollogger.h"

#include <twqueue.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QStringConverter>
#include <QtCore/QTemporaryDir>
#include <QtCore/QThread>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#ifdef Q_OS_UNIX
#  include <fcntl.h>
#  include <signal.h>
#  include <sys/file.h>
#  include <unistd.h>
#endif
#ifdef Q_OS_WIN
#  include <io.h>
#  include <windows.h>
#endif

/*
 * How the commands keep every acknowledged record whatever moment a kill
 * strikes at.
 *
 * A queue opened on the folder itself would read and delete every cache file
 * at its start and write them back at its end, so a kill in between would lose
 * the whole queue. Instead, push and pop let a queue work in a private staging
 * folder inside the queue's folder (".twtool-<pid>-XXXXXX", which no queue
 * reads: it takes plain files only), check what it wrote there, hand it to the
 * disk, and only then rename it into the queue's folder. A rename within one
 * folder tree is atomic, so at every instant each record is whole in the
 * folder at least once: a kill can deliver a record twice, never lose one.
 *
 *   push  stages the new records, checks and syncs them, renames them in and
 *         says "queued" after that. It reads nothing in the folder, so its
 *         cost does not grow with the queue.
 *   pop   links (or copies) the oldest file into staging and takes its first
 *         record through a queue there, which writes the rest back there. Once
 *         the rest is checked and synced, it prints the record and then puts
 *         the rest in the old file's place with one rename (a lone record's
 *         file is simply removed). At most that one file is handled at a time,
 *         and a kill can only make a later pop print the same record again.
 *   count reads the files and changes nothing.
 */

namespace {

const QString Command = QStringLiteral("queue");
const QString Separator = QStringLiteral("|TWQ|");
const QString StagingPrefix = QStringLiteral(".twtool-");

/*! One line of a cache file that a queue takes as a record. */
struct Record
{
    QString id;
    quint64 timestamp = 0;
    QString kind;
    QString name;
    QString data;
    int line = 0;

    bool operator==(const Record& o) const
    {
        return id == o.id && timestamp == o.timestamp && kind == o.kind && name == o.name && data == o.data;
    }
};

struct CacheContent
{
    QList<Record> records;
    QList<int> badLines; // lines without the five fields: a queue refuses the whole file for one
};

// Cuts a cache file into records exactly as a queue does: UTF-8, a line per
// line feed (one carriage return before it dropped), five fields, the first
// three trimmed.
CacheContent parseCache(const QByteArray& bytes)
{
    CacheContent content;
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder(bytes);
    const QStringView all(text);
    int line = 0;
    for (qsizetype start = 0; start < all.size();) {
        qsizetype end = all.indexOf(u'\n', start);
        const qsizetype next = end < 0 ? all.size() : end + 1;
        if (end < 0)
            end = all.size();
        if (end > start && all.at(end - 1) == u'\r')
            --end;
        const QList<QStringView> parts = all.mid(start, end - start).split(Separator);
        start = next;
        ++line;
        if (parts.size() != 5) {
            content.badLines << line;
            continue;
        }
        content.records.append({parts.at(0).trimmed().toString(), parts.at(1).trimmed().toULongLong(),
                                parts.at(2).trimmed().toString(), parts.at(3).toString(), parts.at(4).toString(), line});
    }
    return content;
}

QString systemError(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

bool readFile(const QString& path, QByteArray& bytes, QString& error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("cannot read '%1': %2").arg(path, file.errorString());
        return false;
    }
    bytes = file.readAll();
    if (file.error() == QFileDevice::NoError)
        return true;
    error = QStringLiteral("cannot read '%1': %2").arg(path, file.errorString());
    return false;
}

// Hands the data of a file, or the entries of a folder, to the disk.
bool syncToDisk(const QString& path, QString& error)
{
#ifdef Q_OS_UNIX
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    const bool synced = fd >= 0 && ::fsync(fd) == 0;
    const int code = errno;
    if (fd >= 0)
        ::close(fd);
    if (!synced)
        error = QStringLiteral("cannot sync '%1' to the disk: %2").arg(path, systemError(code));
    return synced;
#else
    // Windows keeps a folder's entries itself; a file is flushed through its handle.
    if (QFileInfo(path).isDir())
        return true;
    QFile file(path);
    if (file.open(QIODevice::ReadWrite) && _commit(file.handle()) == 0)
        return true;
    error = QStringLiteral("cannot sync '%1' to the disk: %2").arg(path, file.errorString());
    return false;
#endif
}

// Renames unless the target exists: 0, EEXIST or the error that stopped it.
int renameNoReplace(const QString& from, const QString& to)
{
#ifdef Q_OS_UNIX
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
#  if defined(Q_OS_LINUX) && defined(RENAME_NOREPLACE)
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    // A file system without that flag: a hard link refuses a taken name just as well.
#  endif
    if (::link(source.constData(), target.constData()) != 0)
        return errno;
    ::unlink(source.constData());
    return 0;
#else
    if (QFileInfo::exists(to))
        return EEXIST;
    return QFile::rename(from, to) ? 0 : EIO;
#endif
}

// Puts \a from in the place of \a to in one step: at every moment \a to is
// either the old file or the new one.
bool replaceFile(const QString& from, const QString& to, QString& error)
{
#ifdef Q_OS_WIN
    if (::MoveFileExW(reinterpret_cast<const wchar_t*>(QDir::toNativeSeparators(from).utf16()),
                      reinterpret_cast<const wchar_t*>(QDir::toNativeSeparators(to).utf16()),
                      MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return true;
    error = QStringLiteral("cannot move '%1' to '%2'.").arg(from, to);
#else
    if (::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0)
        return true;
    error = QStringLiteral("cannot move '%1' to '%2': %3").arg(from, to, systemError(errno));
#endif
    return false;
}

// Moves a staged "<first>_<last>_<NNN>.cache" into \a dir under its own name,
// or under the next free counter: the times, which give the order, stay.
bool moveIn(const QString& staged, const QString& dir, QString& error)
{
    const QString name = QFileInfo(staged).fileName();
    const QString times = name.section(u'_', 0, 1);
    int counter = name.section(u'_', 2).chopped(6).toInt();
    for (int tries = 0; tries < 100000; ++tries, ++counter) {
        const QString target =
            QDir(dir).filePath(QStringLiteral("%1_%2.cache").arg(times).arg(counter, 3, 10, QLatin1Char('0')));
        const int result = renameNoReplace(staged, target);
        if (result == 0)
            return true;
        if (result != EEXIST) {
            error = QStringLiteral("cannot move '%1' to '%2': %3").arg(staged, target, systemError(result));
            return false;
        }
    }
    error = QStringLiteral("no free name for '%1' in '%2'.").arg(name, dir);
    return false;
}

// The cache files of a folder in the order a queue reads them.
QStringList cacheFiles(const QString& dir)
{
    const QDir folder(dir);
    QStringList paths;
    for (const QString& name : folder.entryList({QStringLiteral("*.cache")}, QDir::Files, QDir::Name))
        paths << folder.filePath(name);
    return paths;
}

// The records of the cache files in \a dir, in order; false when one cannot be
// read or holds a line that is no record.
bool readRecords(const QString& dir, QList<Record>& records)
{
    for (const QString& path : cacheFiles(dir)) {
        QByteArray bytes;
        QString error;
        if (!readFile(path, bytes, error))
            return false;
        const CacheContent content = parseCache(bytes);
        if (!content.badLines.isEmpty())
            return false;
        records += content.records;
    }
    return true;
}

// Syncs the staged files, moves them into \a dir in order and syncs \a dir.
// Counts in \a moved the files that made it.
bool publish(const QStringList& staged, const QString& dir, int& moved, QString& error)
{
    moved = 0;
    for (const QString& path : staged) {
        if (!syncToDisk(path, error))
            return false;
    }
    for (const QString& path : staged) {
        if (!moveIn(path, dir, error))
            return false;
        ++moved;
    }
    return syncToDisk(dir, error);
}

std::unique_ptr<QTemporaryDir> makeStaging(const QString& dir, QString& error)
{
    auto staging = std::make_unique<QTemporaryDir>(
        QDir(dir).filePath(StagingPrefix + QString::number(QCoreApplication::applicationPid()) + QStringLiteral("-XXXXXX")));
    if (!staging->isValid()) {
        error = QStringLiteral("cannot write in '%1': %2").arg(dir, staging->errorString());
        staging.reset();
    }
    return staging;
}

// Staging folders of commands that were killed hold nothing that is not in
// the queue's files as well: pop removes those whose process is gone.
void removeLeftovers(const QString& dir)
{
#ifdef Q_OS_UNIX
    const QDir folder(dir);
    for (const QString& name : folder.entryList({StagingPrefix + QLatin1Char('*')}, QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot)) {
        bool ok = false;
        const qint64 pid = name.mid(StagingPrefix.size()).section(u'-', 0, 0).toLongLong(&ok);
        if (ok && pid > 0 && pid != QCoreApplication::applicationPid() && ::kill(pid_t(pid), 0) != 0 && errno == ESRCH)
            QDir(folder.filePath(name)).removeRecursively();
    }
#else
    Q_UNUSED(dir)
#endif
}

/*
 * Lets one pop at a time rewrite the oldest file of a folder. The lock is
 * held on the folder itself, so it leaves no file behind, and the system
 * lets go of it when the process ends, however it ends. Where the folder
 * cannot be locked (no such locks on the file system, or not a Unix system)
 * pops go on unlocked: two at once may then print the same record.
 */
class FolderLock
{
public:
    FolderLock() = default;
    ~FolderLock()
    {
#ifdef Q_OS_UNIX
        if (_fd >= 0)
            ::close(_fd);
#endif
    }
    Q_DISABLE_COPY(FolderLock)

    bool lock(const QString& dir, int timeoutMs)
    {
#ifdef Q_OS_UNIX
        _fd = ::open(QFile::encodeName(dir).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        for (QElapsedTimer timer; _fd >= 0;) {
            if (!timer.isValid())
                timer.start();
            if (::flock(_fd, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK)
                return true;
            if (timer.elapsed() > timeoutMs)
                return false;
            QThread::msleep(20);
        }
#else
        Q_UNUSED(dir)
        Q_UNUSED(timeoutMs)
#endif
        return true;
    }

private:
    int _fd = -1;
};

// Checks DIR for pop and count, which never create it.
bool existingFolder(const QString& dir)
{
    const QFileInfo info(dir);
    if (!info.exists())
        Tool::failure(Command, QStringLiteral("no folder %1.").arg(dir));
    else if (!info.isDir())
        Tool::failure(Command, QStringLiteral("'%1' is not a folder.").arg(dir));
    return info.isDir();
}

int push(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Queues one item per TEXT in the persistent queue in DIR (made when missing).\n"
        "\"queued\" is printed only once the records are whole on the disk; the records\n"
        "already in DIR are never touched."));
    parser.addOptions({
        {QStringLiteral("kind"), QStringLiteral("Kind of the items."), QStringLiteral("KIND")},
        {QStringLiteral("name"), QStringLiteral("Name of the items."), QStringLiteral("NAME")},
    });
    parser.addPositionalArgument(QStringLiteral("DIR"), QStringLiteral("Folder of the queue's cache files."));
    parser.addPositionalArgument(QStringLiteral("TEXT"), QStringLiteral("Text of an item."), QStringLiteral("TEXT..."));
    if (const auto done = Tool::parse(parser, arguments))
        return *done;
    const QStringList args = parser.positionalArguments();
    if (args.size() < 2)
        return Tool::usageError(Command, QStringLiteral("push takes a folder and at least one text."));
    const QString dir = args.first();
    const QStringList texts = args.mid(1);
    const QString kind = parser.value(QStringLiteral("kind"));
    const QString name = parser.value(QStringLiteral("name"));
    // Nothing in a cache file is escaped: these would spoil it.
    for (const QString& field : texts + QStringList{kind, name}) {
        if (field.contains(QLatin1Char('\n')) || field.contains(QLatin1Char('\r')) || field.contains(Separator))
            return Tool::usageError(Command, QStringLiteral("texts must not hold a line break or \"|TWQ|\"."));
    }
    if (texts.contains(QString()))
        return Tool::usageError(Command, QStringLiteral("an item's text must not be empty."));

    if (QFileInfo::exists(dir) && !QFileInfo(dir).isDir())
        return Tool::failure(Command, QStringLiteral("'%1' is not a folder.").arg(dir));
    const bool made = !QFileInfo::exists(dir);
    QString error;
    if (!QDir().mkpath(dir) || (made && !syncToDisk(QFileInfo(QDir(dir).absolutePath()).absolutePath(), error)))
        return Tool::failure(Command, QStringLiteral("cannot create the folder '%1'.").arg(dir));
    const auto staging = makeStaging(dir, error);
    if (!staging)
        return Tool::failure(Command, error);
    {
        TW::TWQueue queue(QStringLiteral("twtool"), 0u, staging->path());
        queue.setLogger(Tool::logger());
        for (const QString& text : texts) {
            TextItem item(text);
            if (!queue.enqueueItem(&item, kind, name))
                return Tool::failure(Command, QStringLiteral("nothing was queued."));
        }
    } // the queue writes its cache files as it goes

    // What reached the staging files must be every record, whole: the queue's
    // writes do not look at their results, and a full disk cuts them short.
    QList<Record> written;
    const bool readable = readRecords(staging->path(), written);
    int whole = 0;
    while (readable && whole < written.size() && whole < texts.size() && written.at(whole).data == texts.at(whole)
           && written.at(whole).kind == kind.trimmed() && written.at(whole).name == name)
        ++whole;
    if (!readable || whole != texts.size() || written.size() != texts.size() || Tool::logger()->errorCount())
        return Tool::failure(Command, QStringLiteral("the records did not reach the disk whole (%1 of %2 read back); "
                                                     "nothing was queued. Is the disk full?")
                                          .arg(whole).arg(texts.size()));
    const QStringList staged = cacheFiles(staging->path());
    int moved = 0;
    if (!publish(staged, dir, moved, error)) {
        Tool::err(QStringLiteral("twtool queue: %1").arg(error));
        if (moved == 0)
            return Tool::failure(Command, QStringLiteral("nothing was queued."));
        return Tool::failure(Command, QStringLiteral("only the first %1 of %2 cache file(s) were queued, and may not be on "
                                                     "the disk yet.").arg(moved).arg(staged.size()));
    }
    Tool::out(QStringLiteral("queued %1 item(s)").arg(texts.size()));
    return Tool::Success;
}

void printRecord(const Record& record)
{
    Tool::out(QStringLiteral("id:   %1").arg(record.id));
    Tool::out(QStringLiteral("kind: %1").arg(record.kind));
    Tool::out(QStringLiteral("name: %1").arg(record.name));
    Tool::out(QStringLiteral("time: %1 (%2)")
                  .arg(QDateTime::fromMSecsSinceEpoch(qint64(record.timestamp)).toString(Qt::ISODateWithMs))
                  .arg(record.timestamp));
    Tool::out(QStringLiteral("data: %1").arg(record.data));
}

bool writeRest(const QString& stagingDir, const QString& oldest, const QList<Record>& records, QStringList& rest);

int pop(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Prints the oldest item of the persistent queue in DIR with its id, kind, name\n"
        "and time, and removes it (or leaves it with --keep). A kill at any moment loses\n"
        "no item; at worst a later pop prints it again."));
    parser.addOption({QStringLiteral("keep"), QStringLiteral("Leave the item in the queue.")});
    parser.addPositionalArgument(QStringLiteral("DIR"), QStringLiteral("Folder of the queue's cache files."));
    if (const auto done = Tool::parse(parser, arguments))
        return *done;
    const QStringList args = parser.positionalArguments();
    if (args.size() != 1)
        return Tool::usageError(Command, QStringLiteral("pop takes one folder."));
    const QString dir = args.first();
    if (!existingFolder(dir))
        return Tool::Failure;
    const bool keep = parser.isSet(QStringLiteral("keep"));

    if (!keep && !QFileInfo(dir).isWritable())
        return Tool::failure(Command, QStringLiteral("cannot write in '%1', so nothing can be removed from it (--keep "
                                                     "shows the oldest item).").arg(dir));
    FolderLock lock;
    if (!keep) {
        if (!lock.lock(dir, 10000))
            return Tool::failure(Command, QStringLiteral("another pop is working on '%1'.").arg(dir));
        removeLeftovers(dir);
    }

    // The oldest file that holds a record; empty ones, which a failed write
    // can leave, are removed as a queue would.
    QString oldest;
    QByteArray bytes;
    CacheContent content;
    QString error;
    for (const QString& path : cacheFiles(dir)) {
        if (!readFile(path, bytes, error))
            return Tool::failure(Command, error);
        content = parseCache(bytes);
        if (!content.badLines.isEmpty())
            return Tool::failure(Command, QStringLiteral("'%1' line %2 is no queue record: a queue stops at this file, so "
                                                         "nothing can be popped until it is mended or moved away.")
                                              .arg(path).arg(content.badLines.first()));
        if (!content.records.isEmpty()) {
            oldest = path;
            break;
        }
        if (!keep && (!QFile::remove(path) || !syncToDisk(dir, error)))
            return Tool::failure(Command, QStringLiteral("cannot remove the empty cache file '%1'.").arg(path));
    }
    if (oldest.isEmpty())
        return Tool::failure(Command, QStringLiteral("no item is reachable in %1.").arg(dir));
    const Record first = content.records.first();
    if (first.id.isEmpty())
        return Tool::failure(Command, QStringLiteral("line %1 of '%2' is a record with an empty id, which no queue can "
                                                     "hand out or remove: it blocks the queue until it is mended.")
                                          .arg(first.line).arg(oldest));
    if (keep) {
        printRecord(first);
        return Tool::Success;
    }

    // A file of several records is written again without its first one, and
    // the new file takes the old one's place in a single rename, so that it
    // keeps its place in line. A lone record needs no new file, and so no room
    // on the disk: a consumer can still drain a full one.
    std::unique_ptr<QTemporaryDir> staging;
    QStringList rest;
    if (content.records.size() > 1) {
        staging = makeStaging(dir, error);
        if (!staging)
            return Tool::failure(Command, error);
        if (!writeRest(staging->path(), oldest, content.records, rest))
            return Tool::Failure;
        // More than ten records come back as several files: the others go in
        // beside the old one first.
        int moved = 0;
        if (!publish(rest.mid(1), dir, moved, error)) {
            Tool::err(QStringLiteral("twtool queue: %1").arg(error));
            return Tool::failure(Command, QStringLiteral("nothing was popped."));
        }
    }
    // Up to here a kill changed nothing that counts; from here it can only
    // bring the record back. So it is printed before the old file goes.
    printRecord(first);
    const bool done = rest.isEmpty() ? QFile::remove(oldest) : replaceFile(rest.first(), oldest, error);
    if (!done || !syncToDisk(dir, error))
        return Tool::failure(Command, QStringLiteral("cannot change '%1': the record printed stays in the queue, and a "
                                                     "later pop gives it again.").arg(oldest));
    return Tool::Success;
}

// Writes the records of \a oldest but the first into \a stagingDir, checked
// and synced, and lists the files in \a rest. A queue there takes the first
// record from a link to the file (or a copy) and writes the rest back when it
// goes; the queue's folder is not touched.
bool writeRest(const QString& stagingDir, const QString& oldest, const QList<Record>& records, QStringList& rest)
{
    QString error;
    const QString link = QDir(stagingDir).filePath(QFileInfo(oldest).fileName());
#ifdef Q_OS_UNIX
    const bool linked = ::link(QFile::encodeName(oldest).constData(), QFile::encodeName(link).constData()) == 0;
#else
    const bool linked = false;
#endif
    if (!linked && !QFile::copy(oldest, link)) {
        Tool::failure(Command, QStringLiteral("cannot copy '%1' into '%2'; nothing was popped.").arg(oldest, stagingDir));
        return false;
    }
    {
        TW::TWQueue queue(QStringLiteral("twtool"), 0u, stagingDir);
        queue.setLogger(Tool::logger());
        if (queue.isThereError()) {
            // Reported while it was made, before it had the tool's logger.
            Tool::logger()->writeLog(queue.lastErrorStr(), QtCriticalMsg, TW_SOURCE_LOCATION);
            return false;
        }
        QString data;
        const QString id = queue.dequeueItem(data, nullptr, nullptr, nullptr);
        if (id != records.first().id || !queue.updateItem(id, true)) {
            Tool::failure(Command, QStringLiteral("the queue did not hand out the oldest record of '%1'; nothing was "
                                                  "popped.").arg(oldest));
            return false;
        }
    }
    QList<Record> written;
    rest = cacheFiles(stagingDir);
    if (!readRecords(stagingDir, written) || written != records.mid(1) || Tool::logger()->errorCount()) {
        Tool::failure(Command, QStringLiteral("the rest of '%1' did not reach the disk whole (is the disk full?); nothing "
                                              "was popped.").arg(oldest));
        return false;
    }
    for (const QString& path : std::as_const(rest)) {
        if (!syncToDisk(path, error)) {
            Tool::failure(Command, error);
            return false;
        }
    }
    return true;
}

int count(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Counts the records in the cache files of the persistent queue in DIR, and those\n"
        "that pop can reach. A line that is no record makes a queue stop at its file, and\n"
        "a record with an empty id can never be handed out: count names each such line\n"
        "and exits with 1. It changes nothing on the disk."));
    parser.addPositionalArgument(QStringLiteral("DIR"), QStringLiteral("Folder of the queue's cache files."));
    if (const auto done = Tool::parse(parser, arguments))
        return *done;
    const QStringList args = parser.positionalArguments();
    if (args.size() != 1)
        return Tool::usageError(Command, QStringLiteral("count takes one folder."));
    if (!existingFolder(args.first()))
        return Tool::Failure;

    qint64 records = 0;
    qint64 reachable = 0;
    bool blocked = false;
    QStringList problems;
    const QStringList files = cacheFiles(args.first());
    for (const QString& path : files) {
        QByteArray bytes;
        QString error;
        if (!readFile(path, bytes, error)) {
            problems << error;
            blocked = true;
            continue;
        }
        const CacheContent content = parseCache(bytes);
        records += content.records.size();
        if (!content.badLines.isEmpty()) {
            problems << QStringLiteral("'%1' line %2 is no record (%3 such line(s) in the file): a queue stops at this file.")
                            .arg(path).arg(content.badLines.first()).arg(content.badLines.size());
            blocked = true;
        }
        for (const Record& record : content.records) {
            if (record.id.isEmpty()) {
                problems << QStringLiteral("'%1' line %2 is a record with an empty id, which no queue can hand out or "
                                           "remove: it blocks the queue.").arg(path).arg(record.line);
                blocked = true;
            }
            if (!blocked)
                ++reachable;
        }
    }
    Tool::out(QStringLiteral("in cache files: %1 record(s) in %2 file(s)").arg(records).arg(files.size()));
    Tool::out(QStringLiteral("reachable by pop: %1 record(s)").arg(reachable));
    for (const QString& problem : std::as_const(problems))
        Tool::err(QStringLiteral("twtool queue: %1").arg(problem));
    return problems.isEmpty() ? Tool::Success : Tool::Failure;
}

void printHelp()
{
    Tool::out(QStringLiteral(
        "Usage: twtool queue <push|pop|count|demo> [options] ...\n\n"
        "A persistent queue in a folder of cache files.\n\n"
        "  push DIR TEXT...   queue one item per text (--kind, --name)\n"
        "  pop DIR [--keep]   print the oldest item and remove it\n"
        "  count DIR          records in the cache files and within reach of pop\n"
        "  demo               producers and consumers on a thread pool, through a small memory bound\n\n"
        "Run 'twtool queue <subcommand> --help' for the options of each."));
}

} // namespace

int runQueueCommand(const QStringList& arguments)
{
    const QString sub = arguments.value(2);
    if (sub == QLatin1String("--help") || sub == QLatin1String("-h")) {
        printHelp();
        return Tool::Success;
    }
    // "twtool queue push ..." parses as the command "queue push".
    QStringList rest = arguments;
    if (rest.size() > 2)
        rest[1] = QStringLiteral("queue %1").arg(rest.takeAt(2));
    if (sub == QLatin1String("push"))
        return push(rest);
    if (sub == QLatin1String("pop"))
        return pop(rest);
    if (sub == QLatin1String("count"))
        return count(rest);
    if (sub == QLatin1String("demo"))
        return runQueueDemo(rest);
    return Tool::usageError(Command, sub.isEmpty() ? QStringLiteral("a subcommand is needed: push, pop, count or demo.")
                                                   : QStringLiteral("unknown subcommand '%1'.").arg(sub));
}
