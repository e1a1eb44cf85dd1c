#include "twlogger.h"

#include <QtCore/qdatetime.h>
#include <QtCore/qdir.h>
#include <QtCore/qfileinfo.h>
#include <QtCore/qstringconverter.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

#if defined(__SSE2__)
#  include <emmintrin.h>
#endif

namespace TW {

TWLogger* TWLogger::glb_pInstance = nullptr;

namespace {

constexpr qsizetype MessageWidth = 500;
// Per-thread line buffers keep their capacity between lines, up to this size.
constexpr qsizetype ReleaseAbove = 1 << 20;

const char* levelWord(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:    return "DEBUG   ";
    case QtWarningMsg:  return "WARNING ";
    case QtCriticalMsg: return "CRITICAL";
    case QtFatalMsg:    return "FATAL   ";
    case QtInfoMsg:     return "INFO    ";
    }
    return "UNKNOWN ";
}

// The logger's own reports and the echo share standard output. Byte strings
// stop at their first zero, as the file writes do.
void printLine(const QString& text)
{
    const QByteArray bytes = text.toLocal8Bit();
    std::fputs(bytes.constData(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

// \a text followed by a line that is in the local encoding already and ends
// before its first zero.
void printLine(const QString& text, const char* line, qsizetype length)
{
    const QByteArray bytes = text.toLocal8Bit();
    std::fputs(bytes.constData(), stdout);
    std::fwrite(line, 1, size_t(length), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

// The logger of the process that wrote a line last, set after the write. A
// logger that finds another one there knows that lines may have gone to its
// file behind its back (see _writeLine). It is only compared, never followed:
// a logger made at the address of a deleted one opens its file after the
// deleted one's last line.
std::atomic<const void*> lastWriter{nullptr};
// No line has this time stamp: the size of a file just opened is asked for again.
constexpr qint64 NoStamp = std::numeric_limits<qint64>::min();

// --- Date text ---------------------------------------------------------------
//
// QDateTime::currentDateTime().toString(format) spends most of its time finding
// the local time zone and interpreting the format. The logger formats a date
// per line, so common numeric formats take a shorter road: the format is parsed
// once per thread, the local offset from UTC is looked up once per second, and
// the fields are written directly. Anything outside that subset (names of days
// and months, AM/PM, time zones, quoted text, a single 'z') goes through
// QDateTime, so the characters are always Qt's.

enum class Field : char { Literal, Day, Month, Year2, Year4, Hour, Minute, Second, Msec3 };

struct DateToken
{
    Field field;
    char width;       // 1 = no padding, 2 = two digits (numeric fields)
    QString text;     // Literal only
    QByteArray bytes; // Literal only: the text in the local 8-bit encoding
};

struct ParsedFormat
{
    QString format;
    std::vector<DateToken> tokens;
    qsizetype maxChars = 0; // the longest text the tokens give
    qsizetype maxBytes = 0; // the same in bytes of the local 8-bit encoding
    bool hasPercent = false; // a '%' in the literal text
    bool fast = false;
    bool valid = false;
};

// Whether the local 8-bit encoding is UTF-8, as it always is on Unix with Qt 6:
// a probe of one, two, three and four byte characters, unpaired surrogates in
// the middle and at the end, and a zero gives the same bytes both ways.
bool localEncodingIsUtf8()
{
    static const bool utf8 = [] {
        const QString probe = QStringLiteral("a\u00e9\u65e5\U0001F600") + QChar(0xDC00) + QChar(0xD800) + QChar(u'b')
            + QChar(0) + QChar(0xFFFD) + QChar(0xD800);
        QStringEncoder system(QStringEncoder::System, QStringEncoder::Flag::Stateless);
        QStringEncoder utf8(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless);
        return QByteArray(system.encode(probe)) == QByteArray(utf8.encode(probe));
    }();
    return utf8;
}

struct LocalTime
{
    int year, month, day, secOfDay, msec;
};

// What a thread keeps from one line to the next, in one place so that a line
// looks its thread's data up once.
struct ThreadWork
{
    // Qt's encoder of the system's encoding goes through a temporary array on
    // every call, so UTF-8 is named as such when that is what it is.
    QStringEncoder encoder{localEncodingIsUtf8() ? QStringEncoder::Utf8 : QStringEncoder::System,
                           QStringEncoder::Flag::Stateless};
    ParsedFormat format; // the date format last used
    QByteArray bytes;    // the line, keeping its capacity
    // The local time of the second last asked for (its msec unused).
    qint64 second = std::numeric_limits<qint64>::min();
    LocalTime time{};
    // The date bytes of the last millisecond that a line was stamped with.
    qint64 dateMsecs = NoStamp;
    qsizetype dateSize = 0;
    char date[64];
};

// Kept out of line: where the thread's data lives is asked of the system once
// per call, and a caller that inlined this would ask again at every use.
Q_NEVER_INLINE ThreadWork& threadWork()
{
    thread_local ThreadWork work;
    return work;
}

int runLength(const QChar* p, const QChar* end)
{
    const QChar c = *p;
    int n = 1;
    while (p + n < end && p[n] == c)
        ++n;
    return n;
}

// Letters that QDateTime::toString interprets, plus the quote; a format that
// uses any of them outside the fast subset is left to Qt.
bool isFormatLetter(char16_t c)
{
    switch (c) {
    case u'd': case u'M': case u'y': case u'h': case u'H': case u'm': case u's': case u'z':
    case u'a': case u'A': case u'p': case u'P': case u't': case u'\'':
        return true;
    default:
        return false;
    }
}

void parseFormat(ParsedFormat& parsed, const QString& format, QStringEncoder& encoder)
{
    parsed.format = format;
    parsed.tokens.clear();
    parsed.valid = true;
    parsed.fast = false;
    parsed.maxChars = parsed.maxBytes = 0;
    parsed.hasPercent = false;

    const QChar* p = format.constData();
    const QChar* const end = p + format.size();
    auto addLiteral = [&parsed](const QChar* from, qsizetype n) {
        if (!parsed.tokens.empty() && parsed.tokens.back().field == Field::Literal)
            parsed.tokens.back().text.append(from, n);
        else
            parsed.tokens.push_back({Field::Literal, 0, QString(from, n), {}});
    };

    while (p < end) {
        const char16_t c = p->unicode();
        const int run = runLength(p, end);
        int used = 0;
        switch (c) {
        case u'd':
        case u'M':
            if (run > 2)
                return; // day and month names
            parsed.tokens.push_back({c == u'd' ? Field::Day : Field::Month, char(run), {}, {}});
            used = run;
            break;
        case u'y':
            if (run >= 4) {
                parsed.tokens.push_back({Field::Year4, 4, {}, {}});
                used = 4;
            } else if (run >= 2) {
                parsed.tokens.push_back({Field::Year2, 2, {}, {}});
                used = 2;
            } else {
                addLiteral(p, 1);
                used = 1;
            }
            break;
        case u'h': // without AM/PM (which falls back) 'h' is the 24-hour clock
        case u'H':
        case u'm':
        case u's':
            used = qMin(run, 2);
            parsed.tokens.push_back({c == u'm' ? Field::Minute : c == u's' ? Field::Second : Field::Hour,
                                     char(used), {}, {}});
            break;
        case u'z':
            if (run < 3)
                return; // single 'z' changed meaning across Qt versions
            parsed.tokens.push_back({Field::Msec3, 3, {}, {}});
            used = 3;
            break;
        default:
            if (isFormatLetter(c))
                return;
            addLiteral(p, 1);
            used = 1;
            break;
        }
        p += used;
    }
    for (DateToken& t : parsed.tokens) {
        if (t.field == Field::Literal) {
            t.bytes = encoder.encode(t.text);
            parsed.maxChars += t.text.size();
            parsed.maxBytes += t.bytes.size();
            parsed.hasPercent = parsed.hasPercent || t.text.contains(u'%');
        } else {
            parsed.maxChars += 4;
            parsed.maxBytes += 4;
        }
    }
    parsed.fast = true;
}

// Offset of local time from UTC at a given second, cached for the last second
// asked: seconds and offset packed in one word so readers need no lock.
int localOffsetAt(qint64 secs)
{
    static std::atomic<quint64> cache{~quint64(0)};
    constexpr int OffsetBias = 1 << 19;

    const quint64 packed = cache.load(std::memory_order_relaxed);
    if (packed != ~quint64(0) && qint64(packed >> 20) == secs)
        return int(packed & 0xFFFFF) - OffsetBias;

    const int offset = QDateTime::fromSecsSinceEpoch(secs).offsetFromUtc();
    if (secs >= 0 && secs < (qint64(1) << 43) && offset > -OffsetBias && offset < OffsetBias)
        cache.store((quint64(secs) << 20) | quint64(offset + OffsetBias), std::memory_order_relaxed);
    return offset;
}

// Proleptic Gregorian date of a day count from 1970-01-01.
void civilFromDays(qint64 days, int& year, int& month, int& day)
{
    days += 719468;
    const qint64 era = (days >= 0 ? days : days - 146096) / 146097;
    const qint64 doe = days - era * 146097;
    const qint64 yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const qint64 doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const qint64 mp = (5 * doy + 2) / 153;
    day = int(doy - (153 * mp + 2) / 5 + 1);
    month = int(mp < 10 ? mp + 3 : mp - 9);
    year = int(yoe + era * 400 + (month <= 2 ? 1 : 0));
}

inline void put(QChar*& out, char c)
{
    *out++ = QLatin1Char(c);
}

inline void put(char*& out, char c)
{
    *out++ = c;
}

template<typename Char>
Char* putNumber(Char* out, int value, int width)
{
    char digits[8];
    int n = 0;
    do {
        digits[n++] = char('0' + value % 10);
        value /= 10;
    } while (value);
    while (n < width)
        digits[n++] = '0';
    while (n)
        put(out, digits[--n]);
    return out;
}

inline QChar* putLiteral(QChar* out, const DateToken& t)
{
    return std::copy(t.text.constData(), t.text.constData() + t.text.size(), out);
}

inline char* putLiteral(char* out, const DateToken& t)
{
    std::memcpy(out, t.bytes.constData(), size_t(t.bytes.size()));
    return out + t.bytes.size();
}

const ParsedFormat& parsedFormat(ThreadWork& work, const QString& format)
{
    ParsedFormat& parsed = work.format;
    // The stored copy shares the caller's text while the format is unchanged.
    const bool same = parsed.valid && parsed.format.size() == format.size()
        && (parsed.format.constData() == format.constData() || parsed.format == format);
    if (!same) {
        parseFormat(parsed, format, work.encoder);
        work.dateMsecs = NoStamp;
    }
    return parsed;
}

// \a msecs as local time; false outside the years 1 to 9999. The thread
// remembers the last second, which lines of the same second share.
bool localTimeOf(ThreadWork& work, qint64 msecs, LocalTime& time)
{
    // Times outside the years 1 to 9999 are left to Qt (a queue's cache file
    // may carry any 64-bit time); within them nothing below can overflow.
    constexpr qint64 Earliest = -62135596800000 - 86400000; // 0001-01-01, a day of time zones early
    constexpr qint64 Latest = 253402300800000 + 86400000;   // 10000-01-01, a day late
    if (msecs < Earliest || msecs > Latest)
        return false;
    const qint64 secs = msecs >= 0 ? msecs / 1000 : (msecs - 999) / 1000;
    if (secs != work.second) {
        const qint64 local = secs + localOffsetAt(secs);
        const qint64 days = local >= 0 ? local / 86400 : (local - 86399) / 86400;
        work.time.secOfDay = int(local - days * 86400);
        civilFromDays(days, work.time.year, work.time.month, work.time.day);
        work.second = secs;
    }
    time = work.time;
    time.msec = int(msecs - secs * 1000);
    return time.year >= 1 && time.year <= 9999;
}

// Writes the date text of a format in the fast subset; room for
// parsed.maxChars (characters) or parsed.maxBytes (bytes) is needed.
template<typename Char>
Char* putDate(Char* w, const ParsedFormat& parsed, const LocalTime& time)
{
    for (const DateToken& t : parsed.tokens) {
        switch (t.field) {
        case Field::Literal: w = putLiteral(w, t); break;
        case Field::Day:     w = putNumber(w, time.day, t.width); break;
        case Field::Month:   w = putNumber(w, time.month, t.width); break;
        case Field::Year2:   w = putNumber(w, time.year % 100, 2); break;
        case Field::Year4:   w = putNumber(w, time.year, 4); break;
        case Field::Hour:    w = putNumber(w, time.secOfDay / 3600, t.width); break;
        case Field::Minute:  w = putNumber(w, time.secOfDay / 60 % 60, t.width); break;
        case Field::Second:  w = putNumber(w, time.secOfDay % 60, t.width); break;
        case Field::Msec3:   w = putNumber(w, time.msec, 3); break;
        }
    }
    return w;
}

void appendDate(QString& out, qint64 msecs, const QString& format)
{
    ThreadWork& work = threadWork();
    const ParsedFormat& parsed = parsedFormat(work, format);
    LocalTime time;
    if (parsed.fast && localTimeOf(work, msecs, time)) {
        const qsizetype start = out.size();
        out.resize(start + parsed.maxChars);
        out.truncate(putDate(out.data() + start, parsed, time) - out.constData());
    } else {
        out += QDateTime::fromMSecsSinceEpoch(msecs).toString(format); // local time
    }
}

// --- The line in bytes ----------------------------------------------------------

// The fixed parts of a line are ASCII. They are copied as they stand when the
// local encoding writes ASCII as ASCII, which UTF-8 and the Windows code pages
// all do; under any other encoding the whole line goes through the encoder.
bool localEncodingKeepsAscii()
{
    static const bool keeps = [] {
        QByteArray ascii;
        for (char c = ' '; c <= '~'; ++c)
            ascii += c;
        return QString::fromLatin1(ascii).toLocal8Bit() == ascii;
    }();
    return keeps;
}

#if defined(__SSE2__)
// Copies eight characters at \a at as bytes when all are ASCII and none is a
// '%'; false, with nothing written, otherwise.
inline bool copyAscii8(char* out, const char16_t* in, qsizetype at)
{
    const __m128i chars = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + at));
    const __m128i high = _mm_and_si128(chars, _mm_set1_epi16(short(0xFF80)));
    const __m128i bytes = _mm_packus_epi16(chars, chars); // exact for ASCII
    if ((_mm_movemask_epi8(_mm_cmpeq_epi16(high, _mm_setzero_si128())) ^ 0xFFFF)
        | (_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('%'))) & 0xFF))
        return false;
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + at), bytes);
    return true;
}

// The same for \a N characters, a multiple of sixteen: one test for all of
// them, so that long texts pay few branches.
template<int N>
inline bool copyAsciiBlock(char* out, const char16_t* in, qsizetype at)
{
    static_assert(N % 16 == 0, "whole pairs of eight characters");
    __m128i chars[N / 8];
    __m128i any = _mm_setzero_si128();
    for (int k = 0; k < N / 8; ++k) {
        chars[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + at + 8 * k));
        any = _mm_or_si128(any, chars[k]);
    }
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(any, _mm_set1_epi16(short(0xFF80))), _mm_setzero_si128()))
        != 0xFFFF)
        return false;
    __m128i bytes[N / 16];
    __m128i percent = _mm_setzero_si128();
    for (int k = 0; k < N / 16; ++k) {
        bytes[k] = _mm_packus_epi16(chars[2 * k], chars[2 * k + 1]); // exact for ASCII
        percent = _mm_or_si128(percent, _mm_cmpeq_epi8(bytes[k], _mm_set1_epi8('%')));
    }
    if (_mm_movemask_epi8(percent))
        return false;
    for (int k = 0; k < N / 16; ++k)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + at + 16 * k), bytes[k]);
    return true;
}
#endif

// Copies the characters of \a in up to the first that is not ASCII or is a
// '%', as bytes, to \a out, which has room for \a n bytes; returns how many
// were copied. Where SSE2 is there, sixty-four, sixteen or eight at a time,
// the last block overlapping the one before rather than leaving a few for the
// loop.
qsizetype copyAscii(char* out, const char16_t* in, qsizetype n)
{
    qsizetype i = 0;
#if defined(__SSE2__)
    while (i + 64 <= n && copyAsciiBlock<64>(out, in, i))
        i += 64;
    while (i + 16 <= n && copyAsciiBlock<16>(out, in, i))
        i += 16;
    if (i + 16 > n) {
        if (i == n)
            return n;
        if (n >= 16 ? copyAsciiBlock<16>(out, in, n - 16)
                    : n >= 8 && copyAscii8(out, in, 0) && copyAscii8(out, in, n - 8))
            return n;
    }
#endif
    for (; i < n; ++i) {
        const char16_t c = in[i];
        if (c >= 0x80 || c == u'%')
            break;
        out[i] = char(c);
    }
    return i;
}

enum PercentRule { StopAtPercent, TakePercent };

// Writes \a text in the local encoding, in one pass where it is ASCII. With
// StopAtPercent, returns null at a '%' instead.
char* putText(char* out, QStringView text, QStringEncoder& encoder, PercentRule rule)
{
    const qsizetype ascii = copyAscii(out, text.utf16(), text.size());
    if (ascii == text.size())
        return out + ascii;
    // A character that is not ASCII, or a '%': the rest goes through Qt. The
    // text is cut after an ASCII character, never inside a surrogate pair.
    const QStringView rest = text.mid(ascii);
    if (rule == StopAtPercent && rest.contains(u'%'))
        return nullptr;
    return encoder.appendToBuffer(out + ascii, rest);
}

template<size_t N>
inline char* putAscii(char* out, const char (&text)[N])
{
    std::memcpy(out, text, N - 1);
    return out + N - 1;
}

inline char* putLineNumber(char* out, int line)
{
    if (line >= 0 && line <= 99999) {
        for (int i = 4; i >= 0; --i, line /= 10)
            out[i] = char('0' + line % 10);
        return out + 5;
    }
    // Signs and more digits: as QString::arg writes them.
    const QByteArray text = QStringLiteral("%1").arg(line, 5, 10, QLatin1Char('0')).toLatin1();
    std::memcpy(out, text.constData(), size_t(text.size()));
    return out + text.size();
}

// What encodeLine leaves in the thread's buffer.
struct EncodedLine
{
    const char* bytes;    // the line, then its separator
    qsizetype size;       // of both
    qsizetype lineLength; // of the line alone
};

// Writes the line in the local 8-bit encoding into the thread's buffer, then
// the separator, each cut at its first zero byte as a zero-terminated string
// would be. The buffer keeps its size from line to line. Its text is that of six successive
// QString::arg calls on "%1 %2 - %3 - in '%4' file, line: %5, function: '%6'"
// with the date, the level word, the message padded to 500 characters, the
// file, the line number (five digits at least) and the function. When no '%'
// in the date, the message or the file can take part in those calls, the
// pieces are written straight into the buffer: the padding as a fill, and each
// piece of text through the encoder once. The pieces meet only at ASCII
// characters, so encoding them one by one gives the bytes of the whole.
EncodedLine encodeLine(ThreadWork& work, qint64 now, const QString& dateFormat, const QString& sepa, const QString& msg,
                       const char* word, const QString& file, int line, const QString& function)
{
    QByteArray& out = work.bytes;
    QStringEncoder& encoder = work.encoder;
    const ParsedFormat& parsed = parsedFormat(work, dateFormat);
    // The date bytes are made once per millisecond; the lines in between copy them.
    if (now != work.dateMsecs && parsed.fast && parsed.maxBytes <= qsizetype(sizeof work.date)) {
        LocalTime time;
        if (localTimeOf(work, now, time)) {
            work.dateSize = putDate(work.date, parsed, time) - work.date;
            work.dateMsecs = now;
        }
    }
    const bool fastDate = now == work.dateMsecs;
    QString dateText; // when Qt writes the date
    if (!fastDate)
        dateText = QDateTime::fromMSecsSinceEpoch(now).toString(dateFormat); // local time

    char* end = nullptr;
    if (localEncodingKeepsAscii() && !(fastDate ? parsed.hasPercent : dateText.contains(u'%'))) {
        const qsizetype padding = qMax<qsizetype>(0, MessageWidth - msg.size());
        // 64 bytes hold the fixed parts: blanks, level word, the texts around
        // the location and a line number of up to eleven characters.
        const qsizetype need = (fastDate ? parsed.maxBytes : encoder.requiredSpace(dateText.size())) + 64
            + encoder.requiredSpace(msg.size()) + padding + encoder.requiredSpace(file.size())
            + encoder.requiredSpace(function.size()) + encoder.requiredSpace(sepa.size());
        if (out.size() < need)
            out.resize(need);
        char* w = out.data();
        if (fastDate) {
            std::memcpy(w, work.date, size_t(work.dateSize));
            w += work.dateSize;
        } else {
            w = encoder.appendToBuffer(w, dateText);
        }
        *w++ = ' ';
        std::memcpy(w, word, 8);
        w = putAscii(w + 8, " - ");
        w = putText(w, msg, encoder, StopAtPercent);
        if (w) {
            std::memset(w, ' ', size_t(padding));
            w = putAscii(w + padding, " - in '");
            w = putText(w, file, encoder, StopAtPercent);
        }
        if (w) {
            w = putAscii(w, "' file, line: ");
            w = putLineNumber(w, line);
            w = putAscii(w, ", function: '");
            w = putText(w, function, encoder, TakePercent);
            *w++ = '\'';
        }
        end = w;
    }
    if (!end) {
        // A marker in the date, the message or the file takes values meant for
        // later places, and those calls decide the line.
        if (fastDate)
            appendDate(dateText, now, dateFormat);
        const QString text = QStringLiteral("%1 %2 - %3 - in '%4' file, line: %5, function: '%6'")
                                 .arg(dateText)
                                 .arg(QLatin1String(word, 8))
                                 .arg(msg.leftJustified(MessageWidth, u' '))
                                 .arg(file)
                                 .arg(line, 5, 10, QLatin1Char('0'))
                                 .arg(function);
        const qsizetype need = encoder.requiredSpace(text.size()) + encoder.requiredSpace(sepa.size());
        if (out.size() < need)
            out.resize(need);
        end = encoder.appendToBuffer(out.data(), text);
    }

    char* const begin = out.data();
    end = begin + qstrnlen(begin, size_t(end - begin));
    char* const sepaEnd = putText(end, sepa, encoder, TakePercent);
    return {begin, end + qstrnlen(end, size_t(sepaEnd - end)) - begin, end - begin};
}

} // namespace

QString Internal::formatLocalDateTime(qint64 msecsSinceEpoch, const QString& format)
{
    QString out;
    appendDate(out, msecsSinceEpoch, format);
    return out;
}

TWLogger::TWLogger()
    : _isInitialized(false)
    , _filePath(QStringLiteral("."))
    , _fileName(QStringLiteral("twoutput.log"))
    , _dateFormat(QStringLiteral("dd/MM/yy hh:mm:ss.zzz"))
    , _maxFileSize(10485760)
    , _lineEndSepa(QStringLiteral("\r\n"))
    , _consoleOutput(true)
    , _acceptedLogLevels({QtInfoMsg, QtWarningMsg, QtCriticalMsg, QtFatalMsg})
    , _fileSize(0)
    , _sizeStamp(NoStamp)
{
}

TWLogger::~TWLogger()
{
    _uninitialize();
}

TWLogger* TWLogger::globalInstance()
{
    if (!glb_pInstance) {
        glb_pInstance = new (std::nothrow) TWLogger();
        if (!glb_pInstance)
            qFatal("Couldn't allocate global logger instance!");
    }
    return glb_pInstance;
}

bool TWLogger::writeLog(const QString& msg, QtMsgType type, const QString& file, int line,
                        const QString& function)
{
    // A message too large for the memory left is a line that could not be
    // written; the lockers have let go by the time the failure is caught.
    ThreadWork* work = nullptr;
    try {
        QMutexLocker locker(&_locker);
        if (!_acceptedLogLevels.contains(int(type)))
            return true;
        if (_consoleOutput)
            printLine(msg);
        locker.unlock();

        // The line is built unlocked, in a buffer of the thread that keeps its
        // capacity from line to line; only the write is serialised.
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        work = &threadWork();
        const EncodedLine encoded = encodeLine(*work, now, _dateFormat, _lineEndSepa, msg, levelWord(type), file, line,
                                               function);
        const bool written = _writeLine(encoded.bytes, encoded.size, encoded.lineLength, now);
        if (work->bytes.size() > ReleaseAbove)
            work->bytes = QByteArray(); // an outsized message does not pin its memory to the thread
        return written;
    } catch (const std::bad_alloc&) {
        if (work)
            work->bytes = QByteArray();
        return false;
    }
}

bool TWLogger::writeLog(QtMsgType type, const QMessageLogContext& context, const QString& msg)
{
    Q_UNUSED(context)
    return writeLog(QString(msg), type, QString(), 0, QString());
}

// \a bytes holds the line in the local 8-bit encoding and its separator, each
// ended before its first zero (encodeLine), \a size bytes of which the first
// \a lineLength are the line; \a stamp is the line's time. Line and separator
// go out in one write, which puts the same bytes in the file as two writes and
// a flush, with one system call.
bool TWLogger::_writeLine(const char* bytes, qsizetype size, qsizetype lineLength, qint64 stamp)
{
    QMutexLocker locker(&_locker);
    if (!_isInitialized && !_initialize(false)) {
        printLine(QStringLiteral("Error on initialize log file! Last log message:"), bytes, lineLength);
        return false;
    }

    // The limit is tested before the write, so a line is never split nor
    // refused for its length, and against the file's size on the disk, so
    // that lines another logger or process appended count. Asking the system
    // for the size costs about as much as the write itself, so the logger
    // keeps the last answer plus what it wrote since, and asks again when that
    // may be wrong: after another logger of the process wrote a line, at the
    // first line of each new millisecond of time stamps (which bounds how long
    // a writer outside the process goes unseen), and before it rotates.
    if (lastWriter.load(std::memory_order_acquire) != this || stamp != _sizeStamp || _fileSize >= _maxFileSize) {
        _sizeStamp = stamp;
        _fileSize = _file.size(); // the lines of the last writer are on the disk by now
    }
    if (_fileSize >= _maxFileSize && !_initialize(true)) {
        printLine(QStringLiteral("Error on reinitialize log file! Last log message:"), bytes, lineLength);
        return false;
    }
    const qint64 written = _file.write(bytes, size);
    _file.flush();
    if (written > 0)
        _fileSize += written;
    // Another logger that wrote since the look above: the next line looks
    // again. While this logger stays the last writer the word is only read.
    if (lastWriter.load(std::memory_order_relaxed) != this
        && lastWriter.exchange(this, std::memory_order_acq_rel) != this)
        _sizeStamp = NoStamp;
    return true;
}

bool TWLogger::_initialize(bool reinitialize)
{
    _uninitialize();

    QFileInfo info(QDir(_filePath), _fileName);
    const QDir dir(info.absolutePath());
    const QString base = info.baseName();
    const QString nameSuffix = info.completeSuffix();

    QStringList entries = dir.entryList({QStringLiteral("*.%1").arg(info.suffix())}, QDir::Files,
                                        QDir::NoSort);
    entries.sort(Qt::CaseInsensitive);

    // The last name in text order that starts with "<base>_" gives the counter.
    const QString prefix = base + u'_';
    QString counterText;
    int counter = -1;
    for (const QString& entry : std::as_const(entries)) {
        if (entry.startsWith(prefix, Qt::CaseInsensitive)) {
            counterText = entry.mid(prefix.size());
            counterText.chop(nameSuffix.size() + 1);
        }
    }
    if (!counterText.isEmpty()) {
        bool ok = false;
        counter = counterText.toInt(&ok, 10);
        if (!ok) {
            printLine(QStringLiteral("Invalid log file counter:") + counterText);
            return false;
        }
    }
    if (counter < 0)
        counter = 0;
    else if (reinitialize)
        ++counter;

    const QString numbered = QStringLiteral("%1_%2.%3")
                                 .arg(base, QStringLiteral("%1").arg(counter, 4, 10, QLatin1Char('0')),
                                      nameSuffix);
    info = QFileInfo(QDir(info.absolutePath()), numbered);
    _file.setFileName(info.absoluteFilePath());
    // Unbuffered: every line is handed to the system at once anyway.
    if (!_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered)) {
        printLine(QStringLiteral("Couldn't open log file:") + info.absoluteFilePath());
        printLine(_file.errorString());
        return false;
    }
    _fileSize = _file.size();
    _sizeStamp = NoStamp;
    _file.seek(_fileSize);
    _isInitialized = true;
    return true;
}

bool TWLogger::_uninitialize()
{
    if (_isInitialized) {
        _file.close();
        _isInitialized = false;
    }
    return true;
}

QString TWLogger::dateFormat() const
{
    return _dateFormat;
}

void TWLogger::setDateFormat(const QString& dateFormat)
{
    if (dateFormat == _dateFormat)
        return;
    _dateFormat = dateFormat;
    _initialize(true);
}

QString TWLogger::lineEndSepa() const
{
    return _lineEndSepa;
}

void TWLogger::setLineEndSepa(const QString& lineEndSepa)
{
    if (lineEndSepa == _lineEndSepa)
        return;
    _lineEndSepa = lineEndSepa;
    _initialize(true);
}

bool TWLogger::isConsoleOutput() const
{
    return _consoleOutput;
}

void TWLogger::setConsoleOutput(bool consoleOutput)
{
    _consoleOutput = consoleOutput;
}

QList<int> TWLogger::acceptedLogLevelList() const
{
    return _acceptedLogLevels;
}

void TWLogger::addAcceptedLogLevel(int level)
{
    if (!_acceptedLogLevels.contains(level))
        _acceptedLogLevels.append(level);
}

void TWLogger::removeAcceptedLogLevel(int level)
{
    _acceptedLogLevels.removeOne(level);
}

QString TWLogger::file() const
{
    return QFileInfo(QDir(_filePath), _fileName).absoluteFilePath();
}

void TWLogger::setFile(const QString& file)
{
    const QFileInfo info(file);
    const QString path = info.absolutePath();
    const QString name = info.fileName();
    if (path == _filePath && name == _fileName)
        return;
    _filePath = path;
    _fileName = name;
    _uninitialize();
}

QString TWLogger::fileName() const
{
    return _fileName;
}

void TWLogger::setFileName(const QString& fileName)
{
    if (fileName == _fileName)
        return;
    _fileName = fileName;
    _uninitialize();
}

QString TWLogger::filePath() const
{
    return _filePath;
}

void TWLogger::setFilePath(const QString& filePath)
{
    if (filePath == _filePath)
        return;
    _filePath = filePath;
    _uninitialize();
}

qint64 TWLogger::maxFileSize() const
{
    return _maxFileSize;
}

void TWLogger::setMaxFileSize(qint64 maxFileSize)
{
    _maxFileSize = maxFileSize;
}

// --- Setup from configuration ------------------------------------------------

namespace {

// The separator words of a configuration, in the order they are tried.
QString lineEndFromConfig(const QString& value)
{
    const QString word = value.toUpper();
    if (word == QLatin1String("CRLF"))
        return QStringLiteral("\r\n");
    if (word == QLatin1String("CR"))
        return QStringLiteral("\r");
    if (word == QLatin1String("LF"))
        return QStringLiteral("\n");
    return value;
}

// A level word of a configuration (upper case) as its QtMsgType value.
bool levelFromConfigWord(const QString& word, int& level)
{
    static const struct
    {
        const char* word;
        QtMsgType type;
    } words[] = {
        {"DEBUG", QtDebugMsg}, {"INFO", QtInfoMsg}, {"WARNING", QtWarningMsg},
        {"CRITICAL", QtCriticalMsg}, {"FATAL", QtFatalMsg},
    };
    for (const auto& w : words) {
        if (word == QLatin1String(w.word)) {
            level = int(w.type);
            return true;
        }
    }
    return false;
}

} // namespace

bool TWLogger::readFromConfig(const QString& name, TWConfigIface* config)
{
    if (!config) {
        qCritical("Config handler must be defined!");
        return false;
    }

    // The location comes first, so that a date format or separator that opens
    // a new file opens it at the configured place.
    const QString file = config->getStrValue(QStringLiteral("%1.LogFilePath").arg(name), QString());
    if (!file.isEmpty())
        setFile(file);

    const QString dateFormat = config->getStrValue(QStringLiteral("%1.LogDateFormat").arg(name), QString());
    if (!dateFormat.isEmpty())
        setDateFormat(dateFormat);

    const long long maxFileSize = config->getLongLongValue(QStringLiteral("%1.LogMaxFileSize").arg(name), -1);
    if (maxFileSize > 0)
        setMaxFileSize(maxFileSize);

    const QString separator = config->getStrValue(QStringLiteral("%1.LogLineEndSeparator").arg(name), QString());
    if (!separator.isEmpty())
        setLineEndSepa(lineEndFromConfig(separator));

    setConsoleOutput(config->getBoolValue(QStringLiteral("%1.LogConsoleOutput").arg(name), isConsoleOutput()));

    const QStringList levels = config->getStrListValue(QStringLiteral("%1.LogAcceptedLevels").arg(name), QStringList());
    if (!levels.isEmpty()) {
        _acceptedLogLevels.clear();
        for (const QString& entry : levels) {
            const QString word = entry.trimmed().toUpper();
            bool isNumber = false;
            int level = word.toInt(&isNumber, 10);
            if (isNumber || levelFromConfigWord(word, level))
                addAcceptedLogLevel(level);
            else
                qWarning("Unknown log level: '%s'!", qUtf8Printable(word));
        }
    }
    return true;
}

} // namespace TW
