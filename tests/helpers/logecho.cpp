// Runs a logger in its own process so that a test can read what it prints on
// standard output: logecho <dir> <console 0|1> <level> <message>...
#include <twlogger.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QStringList>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() < 4)
        return 2;
    TW::TWLogger logger;
    logger.setFilePath(args.at(1));
    logger.setConsoleOutput(args.at(2) == QLatin1String("1"));
    const int level = args.at(3).toInt();
    bool ok = true;
    for (const QString& message : args.mid(4))
        ok &= logger.writeLog(message, QtMsgType(level), QStringLiteral("logecho.cpp"), 1, QStringLiteral("main"));
    return ok ? 0 : 1;
}
