#include <twconfig.h>
#include <twlogger.h>

#include "twtestsupport.h"

#include <QtCore/QDateTime>
#include <QtCore/QRegularExpression>
#include <QtCore/QThread>
#include <QtTest/QTest>

#include <limits>
#include <memory>

using TW::TWLogger;

namespace {

// A quiet logger writing into \a dir.
std::unique_ptr<TWLogger> makeLogger(const QString& dir, const QString& fileName = QStringLiteral("twoutput.log"))
{
    auto logger = std::make_unique<TWLogger>();
    logger->setFilePath(dir);
    logger->setFileName(fileName);
    logger->setConsoleOutput(false);
    return logger;
}

bool log(TWLogger& logger, const QString& msg, QtMsgType type = QtInfoMsg, int line = 7)
{
    return logger.writeLog(msg, type, QStringLiteral("src/file.cpp"), line, QStringLiteral("void f(int)"));
}

// The lines of a log file, without their separators.
QStringList linesOf(const TWTest::TempWorkDir& dir, const QString& name, const QString& sepa = QStringLiteral("\r\n"))
{
    QStringList lines = QString::fromUtf8(dir.readFile(name)).split(sepa);
    if (!lines.isEmpty() && lines.constLast().isEmpty())
        lines.removeLast();
    return lines;
}

// The bytes that a line and its separator put in the file: the text of the
// successive QString::arg calls that define a line, in the local 8-bit
// encoding, each of line and separator ending before its first zero.
QByteArray expectedBytes(const QString& date, const QString& msg, const QString& file, int line,
                         const QString& function, const QString& sepa)
{
    const QString text = QStringLiteral("%1 %2 - %3 - in '%4' file, line: %5, function: '%6'")
                             .arg(date)
                             .arg(QStringLiteral("INFO    "))
                             .arg(msg.leftJustified(500, u' '))
                             .arg(file)
                             .arg(line, 5, 10, QLatin1Char('0'))
                             .arg(function);
    const auto untilZero = [](const QByteArray& bytes) { return bytes.left(bytes.indexOf('\0') < 0 ? bytes.size() : bytes.indexOf('\0')); };
    return untilZero(text.toLocal8Bit()) + untilZero(sepa.toLocal8Bit());
}

// What all the files of a folder hold, one after the other.
QByteArray allFiles(const TWTest::TempWorkDir& dir)
{
    QByteArray bytes;
    for (const QString& name : dir.files())
        bytes += dir.readFile(name);
    return bytes;
}

// Runs a logger in a child process, where its echo to standard output can be read.
TWTest::ProcessResult echo(const QString& dir, bool console, QtMsgType level, const QStringList& messages)
{
    return TWTest::runProcess(TWTest::helperPath(QStringLiteral("tw_logecho")),
                              QStringList{dir, QString::number(console), QString::number(level)} + messages);
}

enum Setting { File, DateFormat, MaxSize, Separator, Echo, Levels };

// What readFromConfig may change, in the order of Setting.
QStringList settings(const TWLogger& logger)
{
    QStringList levels;
    for (int level : logger.acceptedLogLevelList())
        levels << QString::number(level);
    return {logger.file(), logger.dateFormat(), QString::number(logger.maxFileSize()), logger.lineEndSepa(),
            QString::number(logger.isConsoleOutput()), levels.join(u',')};
}

bool applyIni(const TWTest::TempWorkDir& dir, TWLogger& logger, const QByteArray& ini)
{
    TW::TWConfig config;
    return dir.writeFile(QStringLiteral("log.ini"), ini) && config.load(QStringLiteral("log.ini"))
        && logger.readFromConfig(QStringLiteral("L"), &config);
}

} // namespace

class TstTWLogger : public QObject
{
    Q_OBJECT

private slots:
    // Every kind of text in every place of the line gives the bytes of the
    // QString::arg calls that define it.
    void bytesMatchTheDefinition_data()
    {
        QTest::addColumn<QString>("dateFormat");
        QTest::addColumn<QString>("msg");
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("line");
        QTest::addColumn<QString>("function");
        QTest::addColumn<QString>("sepa");
        const QString defaultDate = QStringLiteral("dd/MM/yy hh:mm:ss.zzz");
        const QString src = QStringLiteral("src/file.cpp"), fn = QStringLiteral("void f(int)"), crlf = QStringLiteral("\r\n");
        const QChar high(0xD800), low(0xDC00), zero(0);
        const auto row = [&](const char* name, const QString& date, const QString& msg, const QString& file = QStringLiteral("src/file.cpp"),
                             int line = 7, const QString& function = QStringLiteral("void f(int)"), const QString& sepa = QStringLiteral("\r\n")) {
            QTest::newRow(name) << date << msg << file << line << function << sepa;
        };
        row("plain", defaultDate, QStringLiteral("hello"));
        row("two, three and four bytes", defaultDate, QStringLiteral("caf\u00e9 \u65e5\u672c \U0001F600 end"));
        row("unpaired high surrogate before the padding", defaultDate, QStringLiteral("ab") + high);
        row("unpaired low surrogate first", defaultDate, low + QStringLiteral("x"));
        row("500 characters, the last a high surrogate", defaultDate, QString(499, u'm') + high);
        row("pair across sixteen characters", defaultDate, QString(15, u'a') + QStringLiteral("\U0001F600") + QString(40, u'b'));
        row("non-ASCII then percent", defaultDate, QString(20, u'a') + QStringLiteral("\u00fc 100%1"));
        row("percent at the end of a block", defaultDate, QString(31, u'a') + QStringLiteral("%2"));
        row("percent in an overlapping last block", defaultDate, QString(20, u'a') + QStringLiteral("%1"));
        row("seventeen characters", defaultDate, QStringLiteral("0123456789abcdefg"), QStringLiteral("src/twelve.h"), 7,
            QStringLiteral("void f(int)\u00e9"));
        row("percent in the second eight", defaultDate, QStringLiteral("msg"), QStringLiteral("abcdefgh%1"));
        row("percent last of sixty-four", defaultDate, QString(63, u'a') + QStringLiteral("%1") + QString(70, u'b'));
        row("non-ASCII first after sixty-four", defaultDate, QString(64, u'a') + QStringLiteral("\u00e9") + QString(20, u'b'));
        row("percent without a number", defaultDate, QStringLiteral("100% sure"));
        row("markers %2 %3 %L1 %99 %0", defaultDate, QStringLiteral("a%2b%3c%L1d%99e%0"));
        row("5000 characters", defaultDate, QString(4990, u'x') + QStringLiteral("\u00e9\u00e9\u00e9 end"));
        row("100000 characters", defaultDate, QString(100000, u'y'));
        row("zero in the file", defaultDate, QStringLiteral("msg"), QStringLiteral("src/") + zero + QStringLiteral("gone.cpp"));
        row("zero in the function", defaultDate, QStringLiteral("msg"), src, 7, QStringLiteral("void ") + zero + QStringLiteral("f()"));
        row("zero in the separator", defaultDate, QStringLiteral("msg"), src, 7, fn, QStringLiteral("\r") + zero + QStringLiteral("\n"));
        row("zero in the date", QStringLiteral("#") + zero, QStringLiteral("msg"));
        row("percent in the file", defaultDate, QStringLiteral("msg"), QStringLiteral("src/%2.cpp"));
        row("percent in the function", defaultDate, QStringLiteral("msg"), src, 7, QStringLiteral("f(%1)"));
        row("non-ASCII file and function", defaultDate, QStringLiteral("msg"), QStringLiteral("src/\u00e9t\u00e9.cpp"), 7,
            QStringLiteral("void \u65e5(") + high + QStringLiteral(")"));
        row("no location", defaultDate, QStringLiteral("from Qt"), QString(), 0, QString());
        row("line -1", defaultDate, QStringLiteral("msg"), src, -1);
        row("line INT_MIN", defaultDate, QStringLiteral("msg"), src, std::numeric_limits<int>::min());
        row("line INT_MAX", defaultDate, QStringLiteral("msg"), src, std::numeric_limits<int>::max());
        row("line 100000", defaultDate, QStringLiteral("msg"), src, 100000);
        row("empty date format", QString(), QStringLiteral("msg"));
        row("date with a marker", QStringLiteral("'%1'"), QStringLiteral("msg"));
        row("date with a percent", QStringLiteral("yyyy%MM"), QStringLiteral("msg"));
        row("non-ASCII date", QStringLiteral("\u00e9 HH:mm \u65e5") + low, QStringLiteral("msg"));
        row("empty separator", defaultDate, QStringLiteral("msg"), src, 7, fn, QString());
        row("non-ASCII separator", defaultDate, QStringLiteral("msg"), src, 7, fn, QStringLiteral("\u00b6\n"));
    }

    void bytesMatchTheDefinition()
    {
        QFETCH(QString, dateFormat);
        QFETCH(QString, msg);
        QFETCH(QString, file);
        QFETCH(int, line);
        QFETCH(QString, function);
        QFETCH(QString, sepa);
        TWTest::TempWorkDir dir;
        auto logger = makeLogger(dir.path());
        logger->setDateFormat(dateFormat);
        logger->setLineEndSepa(sepa);
        // The date is the one part that the test cannot know beforehand: it is
        // that of one of the milliseconds around the write.
        const qint64 before = QDateTime::currentMSecsSinceEpoch();
        QVERIFY(logger->writeLog(msg, QtInfoMsg, file, line, function));
        const qint64 after = QDateTime::currentMSecsSinceEpoch();
        const QByteArray bytes = allFiles(dir);
        QByteArray expected;
        for (qint64 msecs = before; msecs <= after && bytes != expected; ++msecs)
            expected = expectedBytes(QDateTime::fromMSecsSinceEpoch(msecs).toString(dateFormat), msg, file, line, function, sepa);
        QCOMPARE(bytes, expected);
    }

    void levelsAndFiltering_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<QString>("word");
        QTest::newRow("debug") << int(QtDebugMsg) << QStringLiteral("DEBUG   ");
        QTest::newRow("warning") << int(QtWarningMsg) << QStringLiteral("WARNING ");
        QTest::newRow("critical") << int(QtCriticalMsg) << QStringLiteral("CRITICAL");
        QTest::newRow("fatal") << int(QtFatalMsg) << QStringLiteral("FATAL   ");
        QTest::newRow("info") << int(QtInfoMsg) << QStringLiteral("INFO    ");
        QTest::newRow("outside QtMsgType") << 7 << QStringLiteral("UNKNOWN ");
    }

    void levelsAndFiltering()
    {
        QFETCH(int, level);
        QFETCH(QString, word);
        TWTest::TempWorkDir dir;
        auto logger = makeLogger(dir.path());
        QCOMPARE(logger->acceptedLogLevelList(), (QList<int>{QtInfoMsg, QtWarningMsg, QtCriticalMsg, QtFatalMsg}));

        const bool acceptedByDefault = level != QtDebugMsg && level != 7;
        QVERIFY(log(*logger, QStringLiteral("first"), QtMsgType(level)));
        QCOMPARE(dir.files().size(), acceptedByDefault ? 1 : 0); // a dropped message opens nothing

        logger->addAcceptedLogLevel(level);
        logger->addAcceptedLogLevel(level);
        QCOMPARE(logger->acceptedLogLevelList().count(level), 1);
        QVERIFY(log(*logger, QStringLiteral("second"), QtMsgType(level)));
        const QStringList lines = linesOf(dir, QStringLiteral("twoutput_0000.log"));
        QVERIFY(lines.last().mid(22).startsWith(word + QStringLiteral(" - second ")));

        logger->removeAcceptedLogLevel(level);
        QVERIFY(log(*logger, QStringLiteral("third"), QtMsgType(level)));
        QCOMPARE(linesOf(dir, QStringLiteral("twoutput_0000.log")).size(), lines.size());
    }

    // With a fixed date the line is known: markers in the message take the
    // values meant for the rest of the line, a zero ends the line early, and a
    // line feed goes in as it is.
    void bytesOfTheLine()
    {
        TWTest::TempWorkDir dir;
        auto logger = makeLogger(dir.path());
        logger->setDateFormat(QStringLiteral("'x'"));
        QVERIFY(log(*logger, QStringLiteral("%4")) && log(*logger, QStringLiteral("%1")));
        QVERIFY(log(*logger, QStringLiteral("cut here") + QChar(0) + QStringLiteral("lost")) && log(*logger, QStringLiteral("two\nlines")));
        // The new date format opened the file at once; with no file before, that is 0000.
        const QString moved = QStringLiteral("x INFO     - src/file.cpp") + QString(498, u' ');
        QCOMPARE(linesOf(dir, QStringLiteral("twoutput_0000.log")).mid(0, 3),
                 QStringList({moved + " - in 'src/file.cpp' file, line: 00007, function: 'void f(int)'",
                              moved + " - in '00007' file, line: void f(int), function: '%6'", "x INFO     - cut here"}));
        QVERIFY(dir.readFile(QStringLiteral("twoutput_0000.log")).contains("\r\nx INFO     - two\nlines    "));
    }

    void dateFormatMatchesQt()
    {
        const QStringList formats = {
            QStringLiteral("dd/MM/yy hh:mm:ss.zzz"), QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzz"),
            QStringLiteral("d.M.yyyyy h:m:s"),       QStringLiteral("ddd MMM d yyyy"),
            QStringLiteral("hh:mm AP"),              QStringLiteral("'at' hh 'o''clock' t"),
            QStringLiteral("z zz zzzz yyy"),         QStringLiteral("HH%hh%1 \u00e9 mmm sss"),
            QString(),
        };
        // Around the turn of a day, both changes of daylight saving time in 2024 in
        // Berlin, a leap day and far years.
        const qint64 times[] = {0, 951782400123, 1700000000999, 1711846799999, 1711846800000,
                                1729990800500, 1735689599999, 4102444799999};
        const QByteArray previousTz = qgetenv("TZ");
        for (const char* zone : {"UTC", "Europe/Berlin", "America/St_Johns", "Asia/Kolkata"}) {
            qputenv("TZ", zone);
            for (const QString& format : formats) {
                for (qint64 msecs : times) {
                    const QString expected = QDateTime::fromMSecsSinceEpoch(msecs).toString(format);
                    QCOMPARE(TW::Internal::formatLocalDateTime(msecs, format), expected);
                }
            }
        }
        qputenv("TZ", "Europe/Berlin"); // the zone really changed
        QCOMPARE(TW::Internal::formatLocalDateTime(1, QStringLiteral("hh")), QStringLiteral("01"));
        previousTz.isNull() ? void(qunsetenv("TZ")) : void(qputenv("TZ", previousTz));
    }

    void consoleEchoAndFailureTexts()
    {
        TWTest::TempWorkDir dir;
        auto result = echo(dir.path(), true, QtInfoMsg, {QStringLiteral("hello"), QStringLiteral("\u00e9t\u00e9")});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray("hello\n\xc3\xa9t\xc3\xa9\n"));
        QCOMPARE(echo(dir.path(), true, QtDebugMsg, {QStringLiteral("hidden")}).out, QByteArray());
        QCOMPARE(echo(dir.path(), false, QtInfoMsg, {QStringLiteral("quiet")}).out, QByteArray());
        QCOMPARE(linesOf(dir, QStringLiteral("twoutput_0000.log")).size(), 3);

        // A missing folder: the echo still comes first, then the reasons on standard output.
        const QString missing = dir.filePath(QStringLiteral("missing"));
        result = echo(missing, true, QtInfoMsg, {QStringLiteral("lost")});
        QCOMPARE(result.exitCode, 1);
        const QStringList out = QString::fromUtf8(result.out).split(QLatin1Char('\n'));
        QCOMPARE(out.value(0), QStringLiteral("lost"));
        QCOMPARE(out.value(1), QStringLiteral("Couldn't open log file:%1/twoutput_0000.log").arg(missing));
        QVERIFY(!out.value(2).isEmpty());
        QVERIFY(out.value(3).startsWith(QStringLiteral("Error on initialize log file! Last log message:")));
        QVERIFY(out.value(3).contains(QLatin1String("INFO     - lost ")));

#ifdef Q_OS_UNIX
        // Under the C locale Qt's local 8-bit encoding stays UTF-8, and so do
        // the echo and the line.
        const QByteArray previous = qgetenv("LC_ALL");
        qputenv("LC_ALL", "C");
        result = echo(dir.path(), true, QtInfoMsg, {QStringLiteral("\u00e9t\u00e9 \u65e5")});
        previous.isNull() ? void(qunsetenv("LC_ALL")) : void(qputenv("LC_ALL", previous));
        QCOMPARE(result.out, QByteArray("\xc3\xa9t\xc3\xa9 \xe6\x97\xa5\n"));
        QVERIFY(dir.readFile(QStringLiteral("twoutput_0000.log")).contains(" INFO     - \xc3\xa9t\xc3\xa9 \xe6\x97\xa5    "));
#endif

        // A counter that is no number stops the logger, and every line tries again.
        const QByteArray written = dir.readFile(QStringLiteral("twoutput_0000.log"));
        QVERIFY(dir.writeFile(QStringLiteral("twoutput_old.log")));
        result = echo(dir.path(), false, QtInfoMsg, {QStringLiteral("one"), QStringLiteral("two")});
        QCOMPARE(result.exitCode, 1);
        const QStringList stopped = QString::fromUtf8(result.out).split(QLatin1Char('\n'));
        QVERIFY(stopped.value(1).startsWith(QStringLiteral("Error on initialize log file! Last log message:")));
        QCOMPARE(stopped.value(0) + stopped.value(2), QStringLiteral("Invalid log file counter:old").repeated(2));
        QCOMPARE(dir.readFile(QStringLiteral("twoutput_0000.log")), written);
    }

    void numberingAfterRestart_data()
    {
        QTest::addColumn<QString>("configured");
        QTest::addColumn<QStringList>("existing");
        QTest::addColumn<QString>("continued");
        QTest::addColumn<QString>("rotated");
        const auto row = [](const char* name, const char* configured, const char* existing, const char* continued, const char* rotated) {
            QTest::newRow(name) << QString::fromLatin1(configured) << QString::fromLatin1(existing).split(u' ', Qt::SkipEmptyParts)
                                << QString::fromLatin1(continued) << QString::fromLatin1(rotated);
        };
        row("empty folder", "twoutput.log", "", "twoutput_0000.log", "twoutput_0001.log");
        row("gaps are not filled", "twoutput.log", "twoutput_0000.log twoutput_0003.log twoutput_0009.log twoutput.log",
            "twoutput_0009.log", "twoutput_0010.log");
        row("other base and suffix ignored", "twoutput.log", "other_0005.log twoutput_0004.txt twoutputx_0009.log twoutput_0001.log",
            "twoutput_0001.log", "twoutput_0002.log");
        row("base matches in any case", "twoutput.log", "TWOUTPUT_0003.log", "twoutput_0003.log", "twoutput_0004.log");
        row("negative counter", "twoutput.log", "twoutput_-1.log", "twoutput_0000.log", "twoutput_0001.log");
        row("text order beyond 9999", "twoutput.log", "twoutput_9999.log twoutput_10000.log", "twoutput_9999.log", "twoutput_10000.log");
        row("several dots", "a.b.log", "a_0002.b.log a_0001.b.log", "a_0002.b.log", "a_0003.b.log");
        row("no dot", "plain", "plain_0004.", "plain_0004.", "plain_0005.");
    }

    void numberingAfterRestart()
    {
        QFETCH(QString, configured);
        QFETCH(QStringList, existing);
        QFETCH(QString, continued);
        QFETCH(QString, rotated);
        TWTest::TempWorkDir dir;
        for (const QString& name : existing)
            QVERIFY(dir.writeFile(name, "old\n"));

        auto logger = makeLogger(dir.path(), configured);
        QVERIFY(log(*logger, QStringLiteral("continues")));
        logger->setMaxFileSize(1);
        QVERIFY(linesOf(dir, continued, QStringLiteral("\n")).last().contains(QLatin1String("continues")));
        QVERIFY(log(*logger, QStringLiteral("rotates")));
        QVERIFY(linesOf(dir, rotated, QStringLiteral("\n")).last().contains(QLatin1String("rotates")));
        for (const QString& name : existing) // nothing is renamed or removed
            QVERIFY(dir.files().contains(name));
    }

    void rotationAtTheLimit_data()
    {
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<int>("files");
        // Each line is 598 bytes with the separator; the test stands before the write.
        QTest::newRow("a file reaching the limit exactly rotates") << qint64(598 * 2) << 3;
        QTest::newRow("one byte more fits a third line") << qint64(598 * 2 + 1) << 2;
        // The first file is opened, found at the limit and left empty at once.
        QTest::newRow("zero: one file per line") << qint64(0) << 6;
        QTest::newRow("negative: one file per line") << qint64(-5) << 6;
    }

    void rotationAtTheLimit()
    {
        QFETCH(qint64, limit);
        QFETCH(int, files);
        TWTest::TempWorkDir dir;
        auto logger = makeLogger(dir.path());
        logger->setMaxFileSize(limit);
        for (int i = 0; i < 5; ++i)
            QVERIFY(log(*logger, QStringLiteral("line %1").arg(i)));
        QCOMPARE(dir.readFile(QStringLiteral("twoutput_0000.log")).size() % 598, 0);
        QCOMPARE(dir.files().size(), files);
    }

    // The limit is the file's size on the disk: lines that another logger
    // appends count, so two loggers on one folder share it.
    void twoLoggersShareTheLimit()
    {
        TWTest::TempWorkDir dir;
        auto first = makeLogger(dir.path()), second = makeLogger(dir.path());
        first->setMaxFileSize(598 * 10);
        second->setMaxFileSize(598 * 10);
        for (int i = 0; i < 100; ++i)
            QVERIFY(log(i % 2 ? *second : *first, QStringLiteral("line %1").arg(i)));
        for (const QString& name : dir.files())
            QVERIFY2(dir.readFile(name).size() <= 598 * 11, qPrintable(name)); // one line over at most
    }

    // A writer outside the logger counts too: a line stamped a millisecond or
    // more after the last look at the file's size looks again. And the size
    // that the logger keeps is checked on the disk before it rotates, so a file
    // that somebody emptied is not left early.
    void otherWritersCount()
    {
        TWTest::TempWorkDir dir;
        auto logger = makeLogger(dir.path());
        logger->setMaxFileSize(598 * 2);
        QVERIFY(log(*logger, QStringLiteral("first")));
        QFile other(dir.filePath(QStringLiteral("twoutput_0000.log")));
        QVERIFY(other.open(QIODevice::WriteOnly | QIODevice::Append));
        QCOMPARE(other.write(QByteArray(598, 'o')), qint64(598));
        other.close();
        QThread::msleep(5);
        QVERIFY(log(*logger, QStringLiteral("second")));
        QCOMPARE(dir.files().size(), 2);
        QVERIFY(dir.readFile(QStringLiteral("twoutput_0001.log")).contains("second"));

        QVERIFY(log(*logger, QStringLiteral("third")));
        QVERIFY(QFile::resize(dir.filePath(QStringLiteral("twoutput_0001.log")), 0));
        QVERIFY(log(*logger, QStringLiteral("fourth")));
        QCOMPARE(dir.files().size(), 2);
        QVERIFY(dir.readFile(QStringLiteral("twoutput_0001.log")).contains("fourth"));
    }

    void settersReopenOrClose()
    {
        TWTest::TempWorkDir dir;
        auto logger = makeLogger(dir.path());
        QCOMPARE(logger->file(), dir.filePath(QStringLiteral("twoutput.log")));

        // Same values change nothing; new ones start the next file at once, even unused.
        logger->setDateFormat(logger->dateFormat());
        logger->setLineEndSepa(logger->lineEndSepa());
        QCOMPARE(dir.files(), QStringList());
        logger->setDateFormat(QStringLiteral("yyyy"));
        QCOMPARE(dir.files(), QStringList{QStringLiteral("twoutput_0000.log")});
        logger->setLineEndSepa(QStringLiteral("|"));
        QCOMPARE(dir.files().size(), 2);
        QVERIFY(log(*logger, QStringLiteral("after")));
        QVERIFY(dir.readFile(QStringLiteral("twoutput_0001.log")).endsWith("'void f(int)'|"));

        // Location setters close; the next line opens the newest file at the new place,
        // and one that cannot be opened yet is tried again at every line.
        logger->setFile(dir.filePath(QStringLiteral("sub/app.txt")));
        QVERIFY(!log(*logger, QStringLiteral("lost")));
        QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("sub")));
        QVERIFY(log(*logger, QStringLiteral("moved")));
        QCOMPARE(linesOf(dir, QStringLiteral("sub/app_0000.txt"), QStringLiteral("|")).size(), 1);
        logger->setFileName(QStringLiteral("renamed.log"));
        logger->setFilePath(dir.path());
        QVERIFY(log(*logger, QStringLiteral("back")));
        QVERIFY(dir.readFile(QStringLiteral("renamed_0000.log")).contains("back"));
        QCOMPARE(dir.files().size(), 3);
    }

    // A message that the memory left cannot hold fails alone: the next line,
    // from another thread, is written (a lock left held would hang it).
    void outOfMemoryFailsOneLine()
    {
#if defined(TW_SANITIZED) || !defined(Q_OS_LINUX)
        QSKIP("Caps the address space, which the sanitizers' shadow memory does not fit in");
#else
        TWTest::TempWorkDir dir;
        const auto result = TWTest::runProcess(TWTest::helperPath(QStringLiteral("tw_lowmemory")), {dir.path(), QStringLiteral("logger")});
        QCOMPARE(result.out, QByteArray("huge-refused ok\nlogger-usable ok\n"));
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(linesOf(dir, QStringLiteral("twoutput_0000.log")).size(), 3);
#endif
    }

    void threadsNeverInterleave()
    {
        TWTest::TempWorkDir dir;
        auto logger = makeLogger(dir.path());
        logger->setMaxFileSize(64 * 1024);
        constexpr int Threads = 6, PerThread = 300;
        QVERIFY(TWTest::runThreads(Threads, [&logger](int t) {
            for (int i = 0; i < PerThread; ++i)
                log(*logger, QStringLiteral("thread %1 line %2 %3").arg(t).arg(i).arg(QString(i % 700, QLatin1Char('x'))));
        }));

        static const QRegularExpression shape(QStringLiteral(
            "^\\d\\d/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} INFO     - thread (\\d) line (\\d+) x* *"
            " - in 'src/file.cpp' file, line: 00007, function: 'void f\\(int\\)'$"));
        QSet<QString> seen;
        for (const QString& name : dir.files()) {
            for (const QString& line : linesOf(dir, name)) {
                const auto match = shape.match(line);
                QVERIFY2(match.hasMatch(), qPrintable(line.left(80)));
                seen.insert(match.captured(1) + QLatin1Char(':') + match.captured(2));
            }
        }
        QCOMPARE(seen.size(), Threads * PerThread);
        QVERIFY(dir.files().size() > 1);
    }

    // Settings read from a configuration file.
    void apply_data()
    {
        QTest::addColumn<QByteArray>("ini"); // null: no configuration handler at all
        QTest::addColumn<int>("setting");    // the one that changes, or -1
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("messages"); // "C " critical or "W " warning and the text
        const auto row = [](const char* name, const char* ini, int setting, const char* value, const char* messages = "") {
            QTest::newRow(name) << QByteArray(ini) << setting << QString::fromLatin1(value) << QString::fromLatin1(messages);
        };
        row("null handler", nullptr, -1, "", "C Config handler must be defined!");
        row("empty file", "", -1, "");
        row("CrLf", "L.LogLineEndSeparator = CrLf", Separator, "\r\n");
        row("Cr", "L.LogLineEndSeparator = Cr", Separator, "\r");
        row("lF", "L.LogLineEndSeparator = lF", Separator, "\n");
        row("other word keeps its case", "L.LogLineEndSeparator = Lf2", Separator, "Lf2");
        row("words, number, unknown", "L.LogAcceptedLevels = INFO, 7, bogus", Levels, "4,7", "W Unknown log level: 'BOGUS'!");
        row("any case, blanks, repeats", "L.LogAcceptedLevels = debug ,  Warning,critical, FATAL, 3", Levels, "0,1,2,3");
        row("present but empty", "L.LogAcceptedLevels =", Levels, "", "W Unknown log level: ''!");
        row("size", "L.LogMaxFileSize = 2048", MaxSize, "2048");
        row("size zero keeps", "L.LogMaxFileSize = 0", -1, "");
        row("size negative keeps", "L.LogMaxFileSize = -5", -1, "");
    }

    void apply()
    {
        QFETCH(QByteArray, ini);
        QFETCH(int, setting);
        QFETCH(QString, value);
        TWTest::TempWorkDir dir;
        TWLogger logger;
        logger.setConsoleOutput(false); // the present value is the default of its key
        logger.addAcceptedLogLevel(QtDebugMsg); // a level list replaces, it does not merge
        QStringList expected = settings(logger);
        if (setting >= 0)
            expected[setting] = value;
        TWTest::MessageCapture capture;
        QCOMPARE(ini.isNull() ? logger.readFromConfig(QStringLiteral("L"), nullptr) : applyIni(dir, logger, ini), !ini.isNull());
        QCOMPARE(settings(logger), expected);
        QTEST(capture.lines().join(u'\n'), "messages");
    }

    void secondCallRotatesNothing()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(QDir().mkdir(QStringLiteral("logs")));
        const QByteArray ini = "L.LogFilePath = logs/app.log\nL.LogDateFormat = yyyy\nL.LogLineEndSeparator = LF\n"
                               "L.LogConsoleOutput = false\nL.LogAcceptedLevels = DEBUG\n";
        TWLogger logger;
        QVERIFY(applyIni(dir, logger, ini));
        logger.addAcceptedLogLevel(9); // rebuilt by the second call
        QVERIFY(applyIni(dir, logger, ini));
        const QString file = QDir::current().absoluteFilePath(QStringLiteral("logs/app.log"));
        QCOMPARE(settings(logger), QStringList({file, "yyyy", "10485760", "\n", "0", "0"}));
        QVERIFY(logger.writeLog(QStringLiteral("line"), QtDebugMsg, QString(), 1, QString()));
        // The new date format and separator each advanced the number once, at the first call only.
        QCOMPARE(QDir(QStringLiteral("logs")).entryList(QDir::Files), QStringList({"app_0000.log", "app_0001.log"}));
        QCOMPARE(dir.readFile(QStringLiteral("logs/app_0000.log")), QByteArray());
        const QByteArray written = dir.readFile(QStringLiteral("logs/app_0001.log"));
        QVERIFY(written.contains("DEBUG    - line ") && written.endsWith("'\n") && written.count('\n') == 1);
    }
};

QTEST_GUILESS_MAIN(TstTWLogger)
#include "tst_twlogger.moc"
