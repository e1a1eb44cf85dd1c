#include "twutils.h"

#include <QtCore/qdebug.h>
#include <QtCore/qdir.h>
#include <QtCore/qfile.h>
#include <QtCore/qfileinfo.h>
#include <QtCore/qprocess.h>
#include <QtCore/qrandom.h>
#include <QtCore/qstringconverter.h>
#include <QtCore/qtextstream.h>

#include <cstdlib>
#include <limits>
#include <new>
#include <optional>

#ifdef Q_OS_WIN
#  include <qt_windows.h>
#endif

namespace TW {

TWLoggerIface* TWUtils::glb_pUtilsLogger = nullptr;
bool TWUtils::glb_randInitialized = false;
QString TWUtils::glb_utilsLastError;

namespace {

// How long run() waits for a child to start, and then for it to end.
constexpr int RunTimeoutMs = 30000;

// Puts \a stream on the encoding named by \a codecName; an empty name keeps
// the stream's default, UTF-8. False when Qt knows no such encoding.
bool setStreamEncoding(QTextStream& stream, const QString& codecName)
{
    if (codecName.isEmpty())
        return true;
    const std::optional<QStringConverter::Encoding> encoding =
        QStringConverter::encodingForName(codecName.toLocal8Bit().constData());
    if (!encoding)
        return false;
    stream.setEncoding(*encoding);
    return true;
}

// Opens \a file (named \a fileName) for reading as text through \a stream, in
// the encoding named by \a codecName. Answers the failure's message, or an
// empty string.
QString openTextForReading(const QString& fileName, QFile& file, QTextStream& stream, const QString& codecName)
{
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QStringLiteral("Couldn't open file: '%1'! %2").arg(fileName, file.errorString());
    stream.setDevice(&file);
    if (!setStreamEncoding(stream, codecName))
        return QStringLiteral("Couldn't read file: '%1' because codec name: '%2' not supported!")
            .arg(fileName, codecName);
    return QString();
}

// Whether each of the k characters of a pattern piece without stars stands
// for the text character at the same place.
bool matchFixed(const char16_t* text, const char16_t* pattern, qsizetype k)
{
    for (qsizetype j = 0; j < k; ++j) {
        if (pattern[j] != u'?' && pattern[j] != text[j])
            return false;
    }
    return true;
}

// The wildcard table kept one row at a time: row[j] is "the first i text
// characters match the first j pattern characters" for the current i. The
// cell above-left, which the row update overwrites, travels along in `diag`.
bool matchTable(const char16_t* text, qsizetype n, const char16_t* pattern, qsizetype m, bool* row)
{
    row[0] = true;
    for (qsizetype j = 1; j <= m; ++j)
        row[j] = row[j - 1] && pattern[j - 1] == u'*';

    for (qsizetype i = 1; i <= n; ++i) {
        const char16_t c = text[i - 1];
        bool diag = row[0];
        row[0] = false;
        bool any = false;
        for (qsizetype j = 1; j <= m; ++j) {
            const bool up = row[j];
            const char16_t p = pattern[j - 1];
            bool cell;
            if (p == u'*')
                cell = row[j - 1] || up;
            else
                cell = (p == u'?' || p == c) && diag;
            row[j] = cell;
            diag = up;
            any = any || cell;
        }
        // A row without a true cell can only be followed by such rows.
        if (!any)
            return false;
    }
    return row[m];
}

// Matches one pattern against n characters of text, with the answers of the
// full (n+1) x (m+1) table. What stands before the first star and after the
// last one can only line up with the start and the end of the text, so those
// parts are compared in place and only the stretch between them goes through
// the table. Most names that fail do so at the cheap comparisons.
bool matchPattern(const char16_t* text, qsizetype n, const char16_t* pattern, qsizetype m, bool* row)
{
    qsizetype first = 0;
    while (first < m && pattern[first] != u'*')
        ++first;
    if (first == m)
        return n == m && matchFixed(text, pattern, m);

    qsizetype last = m - 1;
    while (pattern[last] != u'*')
        --last;
    const qsizetype tail = m - 1 - last;
    if (n < first + tail || !matchFixed(text, pattern, first)
        || !matchFixed(text + n - tail, pattern + last + 1, tail))
        return false;
    return matchTable(text + first, n - first - tail, pattern + first, last + 1 - first, row);
}

// Longest text and patterns that are upper-cased on the stack, and longest
// pattern whose table row lives there.
constexpr qsizetype StackChars = 256;

// Upper-cases ASCII text into \a out; false, leaving \a out undefined, when a
// character lies outside ASCII and needs Qt's full case mapping.
bool asciiToUpper(const char16_t* in, qsizetype size, char16_t* out)
{
    for (qsizetype k = 0; k < size; ++k) {
        const char16_t c = in[k];
        if (c >= 0x80)
            return false;
        out[k] = (c >= u'a' && c <= u'z') ? char16_t(c - (u'a' - u'A')) : c;
    }
    return true;
}

} // namespace

bool TWUtils::readFile(const QString& fileName, QByteArray& content)
{
    content.clear();
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        _setLastError(QStringLiteral("Couldn't open file: '%1'! %2").arg(fileName, file.errorString()),
                      TW_SOURCE_LOCATION);
        return false;
    }
    content = file.readAll();
    file.close();
    return true;
}

bool TWUtils::saveFile(const QString& fileName, const QByteArray& content)
{
    QFile file(fileName);
    if (!file.open(QIODevice::WriteOnly)) {
        _setLastError(QStringLiteral("Couldn't open file: '%1' for write! %2").arg(fileName, file.errorString()),
                      TW_SOURCE_LOCATION);
        return false;
    }
    const qint64 written = file.write(content);
    file.close();
    if (written != content.size()) {
        // What did get written stays: the caller learns the counts and decides.
        _setLastError(QStringLiteral("Error in write file: '%1'! Content size is %2 written bytes is %3.")
                          .arg(fileName, QString::number(content.size()), QString::number(written)),
                      TW_SOURCE_LOCATION);
        return false;
    }
    return true;
}

bool TWUtils::readTxtFile(const QString& fileName, QString& text, const QString& codecName)
{
    text.clear();
    QFile file(fileName);
    QTextStream stream;
    const QString error = openTextForReading(fileName, file, stream, codecName);
    if (!error.isEmpty()) {
        _setLastError(error, TW_SOURCE_LOCATION);
        return false;
    }
    text = stream.readAll();
    file.close();
    return true;
}

bool TWUtils::readTxtFile(const QString& fileName, QList<QString>& lines, const QString& codecName)
{
    lines.clear();
    QFile file(fileName);
    QTextStream stream;
    const QString error = openTextForReading(fileName, file, stream, codecName);
    if (!error.isEmpty()) {
        _setLastError(error, TW_SOURCE_LOCATION);
        return false;
    }
    while (!stream.atEnd()) {
        QString line = stream.readLine();
        // Stray line-end characters inside a line go too; blank lines are
        // dropped, lines of blanks are kept.
        line.remove(QChar(13));
        line.remove(QChar(10));
        if (!line.isEmpty())
            lines.append(line);
    }
    file.close();
    return true;
}

bool TWUtils::writeTxtFile(const QString& fileName, const QString& text, const QString& codecName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        _setLastError(QStringLiteral("Couldn't open file: '%1'! %2").arg(fileName, file.errorString()),
                      TW_SOURCE_LOCATION);
        return false;
    }
    QTextStream stream(&file);
    // The codec is looked up only once the file is open, so an unknown name
    // leaves an existing file emptied. Callers rely on this order being stable.
    if (!setStreamEncoding(stream, codecName)) {
        _setLastError(QStringLiteral("Couldn't write file: '%1' because codec name: '%2' not supported!")
                          .arg(fileName, codecName),
                      TW_SOURCE_LOCATION);
        file.close();
        return false;
    }
    stream << text;
    stream.flush();
    file.close();
    return true;
}

bool TWUtils::writeTxtFile(const QString& fileName, const QList<QString>& lines, const QString& codecName,
                           const QString& separator)
{
    return writeTxtFile(fileName, lines.join(separator), codecName);
}

bool TWUtils::isMatchWildcard(const QString& text, const QString& patterns, Qt::CaseSensitivity cs)
{
    if (patterns.isEmpty())
        return text.isEmpty();

    const qsizetype n = text.size();
    const char16_t* t = reinterpret_cast<const char16_t*>(text.utf16());
    const char16_t* all = reinterpret_cast<const char16_t*>(patterns.utf16());
    qsizetype total = patterns.size();

    char16_t upperTextBuffer[StackChars];
    char16_t upperPatternsBuffer[StackChars];
    QString upperText;
    QString upperPatterns;
    if (cs != Qt::CaseSensitive) {
        if (n <= StackChars && total <= StackChars && asciiToUpper(t, n, upperTextBuffer)
            && asciiToUpper(all, total, upperPatternsBuffer)) {
            t = upperTextBuffer;
            all = upperPatternsBuffer;
        } else {
            // The text is matched over its own length even when its upper-case
            // form is longer ("ß" becomes "SS"). The form is never shorter, but
            // pad it anyway so that the matcher cannot read past its end.
            upperText = text.toUpper();
            if (upperText.size() < n)
                upperText.resize(n, QChar(0));
            upperPatterns = patterns.toUpper();
            t = reinterpret_cast<const char16_t*>(upperText.utf16());
            all = reinterpret_cast<const char16_t*>(upperPatterns.utf16());
            total = upperPatterns.size();
        }
    }

    // One row serves every pattern; no pattern is longer than the whole text.
    bool stackRow[StackChars + 1];
    bool* row = stackRow;
    bool* heapRow = nullptr;
    if (total > StackChars) {
        heapRow = new (std::nothrow) bool[size_t(total) + 1];
        if (!heapRow) {
            _setLastError(QStringLiteral("Couldn't allocate the match row for %1 pattern characters!")
                              .arg(QString::number(total + 1)),
                          TW_SOURCE_LOCATION);
            return false;
        }
        row = heapRow;
    }

    bool matched = false;
    qsizetype start = 0;
    while (start <= total && !matched) {
        qsizetype end = start;
        while (end < total && all[end] != u';')
            ++end;
        // Empty pieces between separators are no patterns at all.
        if (end > start)
            matched = matchPattern(t, n, all + start, end - start, row);
        start = end + 1;
    }

    delete[] heapRow;
    return matched;
}

QString TWUtils::macAddrToString(const QByteArray& address)
{
    // A size beyond int must not wrap around to a valid length.
    const int size = address.size() > std::numeric_limits<int>::max()
        ? std::numeric_limits<int>::max() : int(address.size());
    return macAddrToString(address.constData(), size);
}

QString TWUtils::macAddrToString(const char* address, const int& size)
{
    if (size != 6) {
        _setLastError(QStringLiteral("Invalid MAC Address length: %1!").arg(size), TW_SOURCE_LOCATION);
        return QString();
    }
    // Every field derives from the first byte as a signed value, wrapping at
    // the signed byte range; the remaining bytes are not read.
    const qint8 first = qint8(address[0]);
    const auto field = [first](int offset) { return int(qint8(quint8(first + offset))); };
    const QLatin1Char zero('0');
    return QStringLiteral("%1:%2:%3:%4:%5:%6")
        .arg(field(0), 2, 16, zero)
        .arg(field(1), 2, 16, zero)
        .arg(field(2), 2, 16, zero)
        .arg(field(3), 2, 16, zero)
        .arg(field(4), 2, 16, zero)
        .arg(field(5), 2, 16, zero)
        .toUpper();
}

int TWUtils::randInt(const int& low, const int& high)
{
    // A fresh generator with a fixed seed on purpose: equal arguments give
    // equal numbers. The width is computed unsigned, so low > high (or the
    // full int range) wraps instead of overflowing.
    QRandomGenerator generator(1);
    const quint32 width = quint32(high) - quint32(low) + 1u;
    return int(quint32(low) + generator.bounded(width));
}

double TWUtils::scaleTo(const double& value, const double& fromMin, const double& fromMax, const double& toMin,
                        const double& toMax)
{
    return (value - fromMin) * ((toMax - toMin) / (fromMax - fromMin)) + toMin;
}

namespace {

// A difference of two qint64 values, which may need 65 bits: its sign and its
// magnitude, both exact.
struct WideDifference
{
    bool negative;
    quint64 magnitude;

    double toDouble() const { return negative ? -double(magnitude) : double(magnitude); }
};

WideDifference difference(qint64 a, qint64 b)
{
    return a >= b ? WideDifference{false, quint64(a) - quint64(b)} : WideDifference{true, quint64(b) - quint64(a)};
}

} // namespace

qint64 TWUtils::scaleTo(const qint64& value, const qint64& fromMin, const qint64& fromMax, const qint64& toMin,
                        const qint64& toMax)
{
    // The ratio is an integer division on purpose; callers depend on a
    // narrower target range collapsing onto toMin. Equal source bounds would
    // divide by zero and take the process down; they get the ratio 0 instead,
    // as does every source range wider than the target one. The widths are
    // taken exactly, however far apart the bounds lie, and the answer stops at
    // the ends of qint64 rather than wrap.
    const WideDifference toWidth = difference(toMax, toMin);
    const WideDifference fromWidth = difference(fromMax, fromMin);
    double ratio = 0.0;
    if (fromWidth.magnitude != 0) {
        const quint64 quotient = toWidth.magnitude / fromWidth.magnitude; // truncates toward zero
        ratio = toWidth.negative != fromWidth.negative ? -double(quotient) : double(quotient);
    }
    const double result = difference(value, fromMin).toDouble() * ratio + double(toMin);
    constexpr double Top = 9223372036854775808.0; // 2^63, the first value past qint64
    if (result >= Top)
        return std::numeric_limits<qint64>::max();
    if (result < -Top)
        return std::numeric_limits<qint64>::min();
    return qint64(result);
}

bool TWUtils::run(QString program, QString arguments, QString workingFolder, const bool& useSystem,
                  const bool& newConsole, const bool& waitForFinish)
{
    bool result = true;
    program = QDir::toNativeSeparators(program.trimmed());
    arguments = arguments.trimmed();
    workingFolder = workingFolder.trimmed();

    const QString previousFolder = QDir::currentPath();
    if (!workingFolder.isEmpty()) {
        workingFolder = QDir::toNativeSeparators(QFileInfo(workingFolder).absoluteFilePath() + QLatin1Char('/'));
        // A folder that cannot be entered does not stop the run: it goes on in
        // the current folder.
        QDir::setCurrent(workingFolder);
    }

    QString failure;
    if (useSystem) {
        const QString command = QStringLiteral("%1 %2").arg(program, arguments);
        const int retValue = std::system(command.toLocal8Bit().constData());
        if (retValue != 0) {
            failure = QStringLiteral("Error on execute command: %1 with current path: '%2'! RetValue: %3")
                          .arg(command, QDir::currentPath(), QString::number(retValue));
        }
    } else {
        QProcess process;
#ifdef Q_OS_WIN
        if (newConsole) {
            process.setCreateProcessArgumentsModifier([](QProcess::CreateProcessArguments* args) {
                args->flags |= CREATE_NEW_CONSOLE;
                args->startupInfo->dwFlags &= ~DWORD(STARTF_USESTDHANDLES);
            });
        }
#else
        Q_UNUSED(newConsole);
#endif
        const QStringList argumentList = arguments.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        const auto processFailure = [&](const QString& format) {
            return format.arg(program, arguments, QDir::currentPath(), QString::number(int(process.error())),
                              process.errorString());
        };

        if (waitForFinish) {
            // The child's output is never read; the exit code does not count.
            process.start(program, argumentList, QIODevice::ReadWrite);
            if (!process.waitForStarted(RunTimeoutMs)) {
                failure = processFailure(
                    QStringLiteral("Couldn't start program: '%1 %2' with path: '%3'! ErrState: %4, ErrStr: '%5!'"));
            } else if (!process.waitForFinished(RunTimeoutMs)) {
                failure = processFailure(
                    QStringLiteral("Error on run program: '%1 %2' with path: '%3'! ErrState: %4, ErrStr: '%5!'"));
            }
        } else if (!QProcess::startDetached(program, argumentList, workingFolder)) {
            // The detached start does not go through `process`, whose error
            // state therefore says nothing; the message keeps its shape anyway.
            failure = processFailure(
                QStringLiteral("Error on run program: '%1 %2' with path: '%3'! ErrState: %4, ErrStr: '%5!'"));
        }
    }

    if (!failure.isEmpty()) {
        _setLastError(failure, TW_SOURCE_LOCATION);
        result = false;
    }
    if (!workingFolder.isEmpty())
        QDir::setCurrent(previousFolder);
    return result;
}

QString TWUtils::lastError()
{
    return glb_utilsLastError;
}

TWLoggerIface* TWUtils::logger()
{
    return glb_pUtilsLogger;
}

void TWUtils::setLogger(TWLoggerIface* logger)
{
    glb_pUtilsLogger = logger;
}

bool TWUtils::writeLog(const QString& text, QtMsgType type, const QString& file, int line,
                       const QString& function)
{
    return _writeLog(text, type, file, line, function);
}

bool TWUtils::_writeLog(const QString& text, QtMsgType type, const QString& file, int line,
                        const QString& function)
{
    if (glb_pUtilsLogger)
        return glb_pUtilsLogger->writeLog(text, type, file, line, function);
    qDebug().noquote() << text;
    return true;
}

void TWUtils::_setLastError(const QString& text, const QString& file, int line, const QString& function)
{
    glb_utilsLastError = text;
    _writeLog(text, QtCriticalMsg, file, line, function);
}

} // namespace TW
