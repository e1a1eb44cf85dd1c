#include "demo.h"

#include <twlogger.h>
#include <twobject.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <memory>
#include <vector>

namespace {

// A host class: it fails the way every class of the library does.
class Importer : public TW::TWObject
{
public:
    using TW::TWObject::TWObject;

    bool import(const QString& path)
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            _setLastError(QStringLiteral("Couldn't open input file: '%1'! %2").arg(path, file.errorString()),
                          TW_SOURCE_LOCATION);
            return false;
        }
        return true;
    }
};

QString firstLine(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromLocal8Bit(file.readLine()).trimmed();
}

} // namespace

bool demoObjectsAndLogger(DemoContext& context)
{
    bool ok = true;
    const QString dir = context.stepDir(QStringLiteral("objects"));

    say(QStringLiteral("Every object gets a process-wide unique name; a taken name gets a number."));
    std::vector<std::unique_ptr<Importer>> objects;
    QStringList names;
    for (const QString& asked : {QStringLiteral("Importer"), QStringLiteral("Importer"), QStringLiteral("Importer"),
                                 QString(), QString()}) {
        objects.push_back(std::make_unique<Importer>(asked));
        names << objects.back()->name();
    }
    say(QStringLiteral("Asked for \"Importer\" three times and twice for no name; got: %1").arg(names.join(QStringLiteral(", "))));
    ok &= names == QStringList({QStringLiteral("Importer"), QStringLiteral("Importer00001"),
                                QStringLiteral("Importer00002"), QStringLiteral("TWObject00000"),
                                QStringLiteral("TWObject00001")});
    objects.erase(objects.begin() + 1);
    objects.push_back(std::make_unique<Importer>(QStringLiteral("Importer")));
    say(QStringLiteral("Destroyed \"Importer00001\" and asked for \"Importer\" again: got \"%1\" (freed numbers come back).")
            .arg(objects.back()->name()));
    ok &= objects.back()->name() == QLatin1String("Importer00001");

    say();
    say(QStringLiteral("A failure is kept as the object's last error and logged as one fixed-shape line."));
    TW::TWLogger logger;
    logger.setFilePath(dir);
    logger.setConsoleOutput(false);
    Importer& importer = *objects.front();
    importer.setLogger(&logger);
    const bool imported = importer.import(QDir(dir).filePath(QStringLiteral("missing.txt")));
    say(QStringLiteral("import() returned %1; lastErrorStr(): %2").arg(imported ? QStringLiteral("true") : QStringLiteral("false"),
                                                                       importer.lastErrorStr()));
    const QString logFile = QDir(dir).filePath(QStringLiteral("twoutput_0000.log"));
    const QString line = firstLine(logFile);
    say(QStringLiteral("The logger writes %1 (never twoutput.log itself). Its first line, blanks squeezed:")
            .arg(QFileInfo(logFile).fileName()));
    say(QStringLiteral("  ") + line.simplified());
    say(QStringLiteral("The message is padded to 500 characters, so the source location always stands at column %1.")
            .arg(line.indexOf(QLatin1String(" - in '")) + 1));
    ok &= !imported && importer.isThereError() && line.contains(QLatin1String("CRITICAL - Couldn't open input file"));

    say();
    say(QStringLiteral("At its size limit the logger moves on to the next number before it writes."));
    TW::TWLogger rotating;
    rotating.setFilePath(dir);
    rotating.setFileName(QStringLiteral("rotation.log"));
    rotating.setConsoleOutput(false);
    rotating.setMaxFileSize(1500);
    for (int i = 1; i <= 7; ++i)
        rotating.writeLog(QStringLiteral("Line %1 of the rotation example").arg(i), QtInfoMsg, TW_SOURCE_LOCATION);
    const QFileInfoList files = QDir(dir).entryInfoList({QStringLiteral("rotation_*.log")}, QDir::Files, QDir::Name);
    QStringList sizes;
    for (const QFileInfo& f : files)
        sizes << QStringLiteral("%1 (%2 bytes)").arg(f.fileName()).arg(f.size());
    say(QStringLiteral("Seven lines of about 650 bytes at a limit of 1500 bytes: %1").arg(sizes.join(QStringLiteral(", "))));
    ok &= files.size() == 3;
    return ok;
}
