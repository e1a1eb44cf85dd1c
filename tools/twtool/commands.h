#ifndef TWTOOL_COMMANDS_H
#define TWTOOL_COMMANDS_H

#include <QtCore/QStringList>

// One entry point per command family. Each takes the whole argument list with
// the program and command words first ("twtool", "log", ...) and returns the
// exit status: 0 success, 1 the work failed, 2 usage error.

int runLogCommand(const QStringList& arguments);
int runZx7Command(const QStringList& arguments);
int runConfigCommand(const QStringList& arguments);
int runQueueCommand(const QStringList& arguments);
int runDemoCommand(const QStringList& arguments);
int runImageCommand(const QStringList& arguments);
int runFontCommand(const QStringList& arguments);
int runVoiceCommand(const QStringList& arguments);

#endif // TWTOOL_COMMANDS_H
