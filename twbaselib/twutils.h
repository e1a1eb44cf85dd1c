#ifndef TWUTILS_H
#define TWUTILS_H

#include "twglobal.h"
#include "twinterfaces.h"

#include <QtCore/qbytearray.h>
#include <QtCore/qlist.h>
#include <QtCore/qlogging.h>
#include <QtCore/qnamespace.h>
#include <QtCore/qstring.h>

namespace TW {

/*!
 * Static helpers for files, text, wildcards, numbers and starting programs.
 *
 * The class is never instantiated. Helpers that can fail answer false (or an
 * empty value) and leave the reason in a static last-error slot, read with
 * lastError(), and log it as a critical line through logger(), or through
 * qDebug() when no logger is set. A later success does not clear the slot.
 *
 * Nothing here is locked: the slot and the logger pointer are plain statics,
 * so set the logger up before threads use the helpers, and expect concurrent
 * failures to race on the text.
 */
class TWBASELIB_EXPORT TWUtils
{
public:
    /*!
     * Reads the whole of \a fileName into \a content, which is cleared first.
     * Fails when the file cannot be opened.
     */
    static bool readFile(const QString& fileName, QByteArray& content);
    /*!
     * Writes \a content to \a fileName, replacing what was there. Fails when the
     * file cannot be opened or fewer bytes were written than given; in the
     * latter case what was written stays in the file.
     */
    static bool saveFile(const QString& fileName, const QByteArray& content);
    /*!
     * Reads the whole of \a fileName as text in the encoding \a codecName
     * (empty: UTF-8) into \a text, which is cleared first. Line ends become
     * "\n". Fails when the file cannot be opened or the encoding is unknown.
     */
    static bool readTxtFile(const QString& fileName, QString& text, const QString& codecName);
    /*!
     * Reads \a fileName line by line into \a lines, which is cleared first.
     * Carriage returns and line feeds are removed and empty lines are dropped,
     * so an entry's index is not its line number. Lines are not trimmed.
     * Fails as the text form does.
     */
    static bool readTxtFile(const QString& fileName, QList<QString>& lines, const QString& codecName);
    /*!
     * Writes \a text to \a fileName in the encoding \a codecName (empty: UTF-8),
     * with the platform's line ends. Fails when the file cannot be opened or the
     * encoding is unknown; the file is opened, and so emptied, before the
     * encoding is looked up. Errors while writing are not detected.
     */
    static bool writeTxtFile(const QString& fileName, const QString& text, const QString& codecName);
    /*!
     * Writes \a lines joined by \a separator (none after the last line) as the
     * text form does.
     */
    static bool writeTxtFile(const QString& fileName, const QList<QString>& lines,
                             const QString& codecName, const QString& separator);

    /*!
     * True when the whole of \a text matches one of the ";"-separated wildcard
     * \a patterns, where "*" is any run of characters and "?" exactly one.
     * There is no escape and patterns are not trimmed. Empty patterns match
     * only an empty text; patterns made of separators alone match nothing.
     * Anything but Qt::CaseSensitive compares upper-case forms, over as many
     * characters as \a text has.
     */
    static bool isMatchWildcard(const QString& text, const QString& patterns, Qt::CaseSensitivity cs);

    /*! The MAC address text of \a address; see the pointer form. */
    static QString macAddrToString(const QByteArray& address);
    /*!
     * Formats a six-byte MAC address as "HH:HH:HH:HH:HH:HH" in upper case.
     * Only the first byte is read, as a signed value b: the fields are b to
     * b + 5, each wrapped to a signed byte, so values from 0x80 up show with a
     * minus sign. Any \a size but 6 is a failure and answers an empty text.
     */
    static QString macAddrToString(const char* address, const int& size);

    /*!
     * A number from \a low to \a high, both included. Every call seeds a new
     * generator with 1, so equal arguments always give the same number.
     */
    static int randInt(const int& low, const int& high);

    /*!
     * Maps \a value linearly from [fromMin, fromMax] onto [toMin, toMax],
     * without clamping. Equal source bounds give an infinity or a NaN.
     */
    static double scaleTo(const double& value, const double& fromMin, const double& fromMax,
                          const double& toMin, const double& toMax);
    /*!
     * The integer map: the ratio of the two range widths is an integer
     * division, so a target range narrower than the source one maps every
     * value onto \a toMin. The result is truncated toward zero. Equal source
     * bounds, which leave no ratio to take, also answer \a toMin.
     */
    static qint64 scaleTo(const qint64& value, const qint64& fromMin, const qint64& fromMax,
                          const qint64& toMin, const qint64& toMax);

    /*!
     * Runs \a program with \a arguments (split at blanks, no quoting) in
     * \a workingFolder (empty: the current folder). With \a useSystem the
     * command goes to the system's command interpreter and fails on a non-zero
     * return value. Otherwise, with \a waitForFinish, the program is started
     * as a child and waited for, 30 seconds for its start and 30 for its end,
     * whatever its exit code; without it, it is started detached.
     * \a newConsole gives a waited child a console of its own on Windows.
     *
     * The process's current folder is changed for the time of the call and
     * restored afterwards, so concurrent runs and relative paths in other
     * threads interfere.
     */
    static bool run(QString program, QString arguments, QString workingFolder,
                    const bool& useSystem, const bool& newConsole, const bool& waitForFinish);

    /*! A copy of the text of the last failure of any helper. */
    static QString lastError();
    /*! The logger of all helpers, or null when they log to qDebug(). */
    static TWLoggerIface* logger();
    /*! Sets the logger of all helpers (not owned); null returns to qDebug(). */
    static void setLogger(TWLoggerIface* logger);
    /*!
     * Logs \a text through logger() and answers its answer; without a logger
     * writes it to qDebug() whatever \a type says, and answers true.
     */
    static bool writeLog(const QString& text, QtMsgType type, const QString& file, int line,
                         const QString& function);

private:
    static bool _writeLog(const QString& text, QtMsgType type, const QString& file, int line,
                          const QString& function);
    static void _setLastError(const QString& text, const QString& file, int line,
                              const QString& function);

    static TWLoggerIface* glb_pUtilsLogger;
    // Part of the exported face of the class; no helper reads or writes it.
    static bool glb_randInitialized;
    static QString glb_utilsLastError;
};

} // namespace TW

#endif // TWUTILS_H
