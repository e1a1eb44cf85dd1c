#ifndef TWTOOL_COMMANDLINE_H
#define TWTOOL_COMMANDLINE_H

#include <QtCore/QCommandLineParser>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace Tool {

enum ExitCode { Success = 0, Failure = 1, UsageError = 2 };

/*!
 * Parses \a arguments (program and command words first) with \a parser, which
 * gets --help added. Returns an exit status when the command is done already
 * (help shown: 0; bad arguments reported on standard error: 2), or nothing when
 * the command goes on.
 */
std::optional<int> parse(QCommandLineParser& parser, const QStringList& arguments);

/*! Prints "twtool <command>: <message>" on standard error and returns 2. */
int usageError(const QString& command, const QString& message);

/*! Prints "twtool <command>: <message>" on standard error and returns 1. */
int failure(const QString& command, const QString& message);

/*! Writes \a text and a newline to standard output. */
void out(const QString& text = QString());

/*! Writes \a text and a newline to standard error. */
void err(const QString& text);

/*! True when standard error is a terminal, so progress may be shown there. */
bool stderrIsTerminal();

/*!
 * Writes \a data to \a path as a whole or not at all: under a temporary name
 * in the same folder, flushed, synced to the disk, checked and renamed over
 * \a path, so that a failure (a full disk, a kill) leaves no half file and
 * keeps what was there. False with a message in \a error otherwise; a full
 * disk says how much room was needed.
 */
bool saveFile(const QString& path, const QByteArray& data, QString& error);

/*! Reads an integer option; false (with the message printed) when it is no number in [min, max]. */
bool intOption(const QCommandLineParser& parser, const QString& command, const QString& name,
               qint64 min, qint64 max, qint64& value);

} // namespace Tool

#endif // TWTOOL_COMMANDLINE_H
