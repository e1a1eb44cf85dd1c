// A child for the program runner's tests: runchild <exit code> [arguments...]
// writes its current folder and then its arguments, one per line, to
// "runchild.txt" in its current folder, and exits with the given code. The
// file appears through a rename, so a test that polls for it never reads half
// of it.
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QStringList>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments().mid(1);
    const QStringList lines = QStringList{QDir::currentPath()} + args;
    QFile file(QStringLiteral("runchild.tmp"));
    if (!file.open(QIODevice::WriteOnly))
        return 100;
    file.write(lines.join(QLatin1Char('\n')).toUtf8());
    file.close();
    QFile::remove(QStringLiteral("runchild.txt"));
    if (!file.rename(QStringLiteral("runchild.txt")))
        return 101;
    return args.isEmpty() ? 0 : args.first().toInt();
}
