#include "commandline.h"
#include "commands.h"
#include "queuedemo.h"

#include <twqueue.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QFile>

#include <memory>

namespace {

const QString Command = QStringLiteral("queue");

// Every command opens the queue without a memory bound: its start then reads
// every cache file into memory, and its end writes every record back, so
// nothing is left in the read-ahead batch that a bounded queue would lose.
std::unique_ptr<TW::TWQueue> openQueue(const QString& dir)
{
    return std::make_unique<TW::TWQueue>(QStringLiteral("twtool"), 0u, dir);
}

int push(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Queues one item per TEXT in the persistent queue in DIR."));
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
    const QStringList texts = args.mid(1);
    const QString kind = parser.value(QStringLiteral("kind"));
    const QString name = parser.value(QStringLiteral("name"));
    // Nothing in a cache file is escaped: these would spoil it.
    for (const QString& field : texts + QStringList{kind, name}) {
        if (field.contains(QLatin1Char('\n')) || field.contains(QLatin1String("|TWQ|")))
            return Tool::usageError(Command, QStringLiteral("texts must not hold a line feed or \"|TWQ|\"."));
    }

    auto queue = openQueue(args.first());
    int queued = 0;
    for (const QString& text : texts) {
        TextItem item(text);
        if (!queue->enqueueItem(&item, kind, name))
            return Tool::failure(Command, queue->lastErrorStr());
        ++queued;
    }
    Tool::out(QStringLiteral("queued %1 item(s)").arg(queued));
    return Tool::Success;
}

int pop(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Prints the oldest reachable item of the persistent queue in DIR with its id, kind,\n"
        "name and time, and removes it (or puts it back with --keep)."));
    parser.addOption({QStringLiteral("keep"), QStringLiteral("Leave the item in the queue.")});
    parser.addPositionalArgument(QStringLiteral("DIR"), QStringLiteral("Folder of the queue's cache files."));
    if (const auto done = Tool::parse(parser, arguments))
        return *done;
    const QStringList args = parser.positionalArguments();
    if (args.size() != 1)
        return Tool::usageError(Command, QStringLiteral("pop takes one folder."));

    auto queue = openQueue(args.first());
    QString data, kind, name;
    quint64 stamp = 0;
    const QString id = queue->dequeueItem(data, &kind, &name, &stamp);
    if (id.isEmpty()) {
        if (queue->isThereError())
            return Tool::failure(Command, queue->lastErrorStr());
        return Tool::failure(Command, QStringLiteral("no item is reachable in %1.").arg(args.first()));
    }
    Tool::out(QStringLiteral("id:   %1").arg(id));
    Tool::out(QStringLiteral("kind: %1").arg(kind));
    Tool::out(QStringLiteral("name: %1").arg(name));
    Tool::out(QStringLiteral("time: %1 (%2)")
                  .arg(QDateTime::fromMSecsSinceEpoch(qint64(stamp)).toString(Qt::ISODateWithMs))
                  .arg(stamp));
    Tool::out(QStringLiteral("data: %1").arg(data));
    if (!queue->updateItem(id, !parser.isSet(QStringLiteral("keep"))))
        return Tool::failure(Command, queue->lastErrorStr());
    return Tool::Success;
}

// Records in the cache files of a folder, counted as lines.
void countFiles(const QString& path, int& files, qint64& records)
{
    const QDir dir(path);
    files = 0;
    records = 0;
    for (const QString& name : dir.entryList({QStringLiteral("*.cache")}, QDir::Files, QDir::Name)) {
        QFile file(dir.filePath(name));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray content = file.readAll();
        ++files;
        if (!content.isEmpty())
            records += content.count('\n') + (content.endsWith('\n') ? 0 : 1);
    }
}

int count(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Counts the records of the persistent queue in DIR: those in its cache files, and\n"
        "those that a queue opened on DIR can reach. Fewer reachable than stored means that\n"
        "a corrupt or unreadable cache file blocks the ones behind it."));
    parser.addPositionalArgument(QStringLiteral("DIR"), QStringLiteral("Folder of the queue's cache files."));
    if (const auto done = Tool::parse(parser, arguments))
        return *done;
    const QStringList args = parser.positionalArguments();
    if (args.size() != 1)
        return Tool::usageError(Command, QStringLiteral("count takes one folder."));
    if (!QDir(args.first()).exists())
        return Tool::failure(Command, QStringLiteral("no folder %1.").arg(args.first()));

    int files = 0;
    qint64 records = 0;
    countFiles(args.first(), files, records);

    auto queue = openQueue(args.first());
    QStringList ids;
    QString data;
    for (QString id = queue->dequeueItem(data, nullptr, nullptr, nullptr); !id.isEmpty();
         id = queue->dequeueItem(data, nullptr, nullptr, nullptr))
        ids << id;
    for (const QString& id : std::as_const(ids))
        queue->updateItem(id, false);
    Tool::out(QStringLiteral("in cache files: %1 record(s) in %2 file(s)").arg(records).arg(files));
    Tool::out(QStringLiteral("in memory reach: %1 record(s)").arg(ids.size()));
    if (queue->isThereError())
        Tool::err(queue->lastErrorStr());
    return Tool::Success;
}

void printHelp()
{
    Tool::out(QStringLiteral(
        "Usage: twtool queue <push|pop|count|demo> [options] ...\n\n"
        "A persistent queue in a folder of cache files.\n\n"
        "  push DIR TEXT...   queue one item per text (--kind, --name)\n"
        "  pop DIR [--keep]   print the oldest reachable item and remove it\n"
        "  count DIR          records in the cache files and in a queue's reach\n"
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
