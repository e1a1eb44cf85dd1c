// A child for the program runner's tests: runchild <exit code> [arguments...]
// leaves its current folder and then its arguments, one a line, in
// "runchild.txt" in its current folder, and exits with the given code. The file
// appears through a rename, so a test that polls for it never reads half of it.
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList lines = QStringList{QDir::currentPath()} + QCoreApplication::arguments().mid(1);
    QFile file(QStringLiteral("runchild.tmp"));
    if (!file.open(QIODevice::WriteOnly) || file.write(lines.join(u'\n').toUtf8()) < 0)
        return 100;
    file.close();
    if (!file.rename(QStringLiteral("runchild.txt")))
        return 101;
    return lines.size() > 1 ? lines.at(1).toInt() : 0;
}
