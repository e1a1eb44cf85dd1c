#include <twutils.h>

#include "twtestsupport.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QRandomGenerator>
#include <QtTest/QTest>

#include <climits>
#include <cmath>

#ifdef Q_OS_UNIX
#  include <sys/wait.h>
#endif

using TW::TWUtils;

namespace {

// The plain recursive reading of the wildcard rules, to check the table-based
// matcher against.
bool refMatch(QStringView t, QStringView p)
{
    if (p.isEmpty())
        return t.isEmpty();
    if (p.front() == u'*')
        return refMatch(t, p.mid(1)) || (!t.isEmpty() && refMatch(t.mid(1), p));
    return !t.isEmpty() && (p.front() == u'?' || p.front() == t.front()) && refMatch(t.mid(1), p.mid(1));
}

bool refMatchAll(const QString& text, const QString& patterns, Qt::CaseSensitivity cs)
{
    if (patterns.isEmpty())
        return text.isEmpty();
    const bool exact = cs == Qt::CaseSensitive;
    for (const QString& p : patterns.split(u';', Qt::SkipEmptyParts)) {
        if (refMatch(exact ? text : text.toUpper(), exact ? p : p.toUpper()))
            return true;
    }
    return false;
}

QString openError(const QString& path, QIODevice::OpenMode mode)
{
    QFile file(path);
    file.open(mode);
    return file.errorString();
}

QString canonical(const QString& path)
{
    return QFileInfo(path).canonicalFilePath();
}

// What a runchild left in \a folder: its current folder, then its arguments.
QStringList childReport(const QString& folder)
{
    QFile file(QDir(folder).filePath(QStringLiteral("runchild.txt")));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split(u'\n');
}

} // namespace

class TstTWUtils : public QObject
{
    Q_OBJECT

private:
    TWTest::RecordingLogger _logger;

    // The helper failed with exactly \a message, and logged it as a critical line.
    void expectFailure(const QString& message)
    {
        QCOMPARE(TWUtils::lastError(), message);
        const QList<TWTest::LogRecord> records = _logger.records();
        QVERIFY(!records.isEmpty());
        QCOMPARE(records.last().msg, message);
        QCOMPARE(records.last().type, QtCriticalMsg);
        QVERIFY(records.last().file.endsWith(QLatin1String("twutils.cpp")));
        QVERIFY(records.last().line > 0);
        QVERIFY(!records.last().function.isEmpty());
    }

private slots:
    void init()
    {
        _logger.clear();
        TWUtils::setLogger(&_logger);
    }
    void cleanup() { TWUtils::setLogger(nullptr); }

    void wildcard_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("patterns");
        QTest::addColumn<bool>("caseSensitive");
        QTest::addColumn<bool>("expected");

        const QString longA(300, u'a');
        QTest::newRow("empty both") << "" << "" << true << true;
        QTest::newRow("text, no patterns") << "abc" << "" << true << false;
        QTest::newRow("empty text, star") << "" << "*" << true << true;
        QTest::newRow("empty text, stars") << "" << "***" << true << true;
        QTest::newRow("empty text, letter") << "" << "a" << true << false;
        QTest::newRow("empty text, star then letter") << "" << "*a" << true << false;
        QTest::newRow("empty text, question mark") << "" << "?" << true << false;
        QTest::newRow("question mark inside") << "abc" << "a?c" << true << true;
        QTest::newRow("whole text must match") << "abc" << "a?" << true << false;
        QTest::newRow("leading star") << "abc" << "*c" << true << true;
        QTest::newRow("second pattern") << "abc" << "x;a*" << true << true;
        QTest::newRow("question mark needs a character") << "ab" << "ab?" << true << false;
        QTest::newRow("only separators") << "abc" << ";;" << true << false;
        QTest::newRow("only separators, empty text") << "" << ";;" << true << false;
        QTest::newRow("empty pieces skipped") << "abc" << ";;abc;" << true << true;
        QTest::newRow("blank belongs to pattern") << "abc" << "x; abc" << true << false;
        QTest::newRow("star in text, literal") << "a*c" << "a*c" << true << true;
        QTest::newRow("star in text, question mark") << "a*c" << "a?c" << true << true;
        QTest::newRow("star in text is no wildcard") << "a*c" << "abc" << true << false;
        QTest::newRow("insensitive") << "ABC" << "a*c" << false << true;
        QTest::newRow("sensitive") << "ABC" << "a*c" << true << false;
        QTest::newRow("insensitive, mixed") << "File.TXT" << "*.jpg;f*.txt" << false << true;
        // "ß" upper-cases to "SS" but only one character of it takes part.
        QTest::newRow("expanding upper case, own length") << "ß" << "S" << false << true;
        QTest::newRow("expanding upper case, full form") << "ß" << "ß" << false << false;
        QTest::newRow("long literal") << longA << longA << true << true;
        QTest::newRow("long, last differs") << longA << "*" + QString(298, u'a') + "b" << true << false;
        QTest::newRow("long, stars and marks") << longA + "b" << "a*" + QString(100, u'?') + "*b" << true << true;
    }

    void wildcard()
    {
        QFETCH(QString, text);
        QFETCH(QString, patterns);
        QFETCH(bool, caseSensitive);
        QFETCH(bool, expected);
        const Qt::CaseSensitivity cs = caseSensitive ? Qt::CaseSensitive : Qt::CaseInsensitive;
        QCOMPARE(TWUtils::isMatchWildcard(text, patterns, cs), expected);
    }

    void wildcardAgreesWithRecursiveMatcher()
    {
        QRandomGenerator random(20240607);
        // Letters in both cases, inside and outside ASCII, and the three
        // characters that mean something in a pattern.
        const QString textChars = QStringLiteral("aAbéÉ*?;");
        const QString patternChars = QStringLiteral("aAbéÉ*?;");
        const auto randomString = [&random](const QString& alphabet, int maxLength) {
            QString s;
            for (int k = random.bounded(maxLength + 1); k > 0; --k)
                s += alphabet.at(random.bounded(int(alphabet.size())));
            return s;
        };
        for (int round = 0; round < 20000; ++round) {
            const QString text = randomString(textChars, round % 4 ? 8 : 16);
            const QString patterns = randomString(patternChars, 9);
            const auto cs = round % 2 ? Qt::CaseSensitive : Qt::CaseInsensitive;
            if (TWUtils::isMatchWildcard(text, patterns, cs) != refMatchAll(text, patterns, cs))
                QFAIL(qPrintable(QStringLiteral("'%1' against '%2' (%3)").arg(text, patterns).arg(int(cs))));
        }
    }

    void macAddr_data()
    {
        QTest::addColumn<QByteArray>("address");
        QTest::addColumn<QString>("expected");
        QTest::newRow("first byte counts up") << QByteArray("\x00\x11\x22\x33\x44\x55", 6) << "00:01:02:03:04:05";
        QTest::newRow("upper case") << QByteArray("\x0a\x00\x00\x00\x00\x00", 6) << "0A:0B:0C:0D:0E:0F";
        QTest::newRow("wrap at 127") << QByteArray("\x7f\x01\x02\x03\x04\x05", 6) << "7F:-80:-7F:-7E:-7D:-7C";
        QTest::newRow("negative first byte") << QByteArray("\xab\xcd\xef\x01\x02\x03", 6) << "-55:-54:-53:-52:-51:-50";
        QTest::newRow("through zero") << QByteArray("\xfe\xff\xff\xff\xff\xff", 6) << "-2:-1:00:01:02:03";
    }

    void macAddr()
    {
        QFETCH(QByteArray, address);
        QFETCH(QString, expected);
        QCOMPARE(TWUtils::macAddrToString(address), expected);
        QCOMPARE(TWUtils::macAddrToString(address.constData(), 6), expected);
    }

    void macAddrWrongLength_data()
    {
        QTest::addColumn<int>("size");
        QTest::newRow("empty") << 0;
        QTest::newRow("five") << 5;
        QTest::newRow("seven") << 7;
    }

    void macAddrWrongLength()
    {
        QFETCH(int, size);
        QVERIFY(TWUtils::macAddrToString(QByteArray(size, '\x12')).isNull());
        expectFailure(QStringLiteral("Invalid MAC Address length: %1!").arg(size));
    }

    void randInt_data()
    {
        QTest::addColumn<int>("low");
        QTest::addColumn<int>("high");
        QTest::newRow("0..9") << 0 << 9;
        QTest::newRow("3..3") << 3 << 3;
        QTest::newRow("negative") << -100 << -90;
        QTest::newRow("across zero") << -5 << 5;
        QTest::newRow("whole int range") << INT_MIN << INT_MAX;
    }

    void randInt()
    {
        QFETCH(int, low);
        QFETCH(int, high);
        const int first = TWUtils::randInt(low, high);
        QVERIFY(first >= low && first <= high);
        for (int k = 0; k < 5; ++k)
            QCOMPARE(TWUtils::randInt(low, high), first);
    }

    void randIntReversedBoundsDoNotFail()
    {
        // The width wraps; the answer is defined, just not inside [high, low].
        QCOMPARE(TWUtils::randInt(10, 0), TWUtils::randInt(10, 0));
    }

    void scaleToDouble_data()
    {
        QTest::addColumn<QList<double>>("args");
        QTest::addColumn<double>("expected");
        QTest::newRow("middle") << QList<double>{5, 0, 10, 0, 100} << 50.0;
        QTest::newRow("extrapolates above") << QList<double>{15, 0, 10, 0, 100} << 150.0;
        QTest::newRow("extrapolates below") << QList<double>{-5, 0, 10, 0, 100} << -50.0;
        QTest::newRow("reversed target") << QList<double>{2.5, 0, 10, 100, 0} << 75.0;
        QTest::newRow("narrower target") << QList<double>{5, 0, 10, 0, 5} << 2.5;
    }

    void scaleToDouble()
    {
        QFETCH(QList<double>, args);
        QFETCH(double, expected);
        QCOMPARE(TWUtils::scaleTo(args[0], args[1], args[2], args[3], args[4]), expected);
    }

    void scaleToDoubleEqualSourceBounds()
    {
        QVERIFY(std::isinf(TWUtils::scaleTo(5.0, 3.0, 3.0, 0.0, 1.0)));
        QVERIFY(std::isnan(TWUtils::scaleTo(3.0, 3.0, 3.0, 0.0, 1.0)));
    }

    void scaleToInteger_data()
    {
        QTest::addColumn<QList<qint64>>("args");
        QTest::addColumn<qint64>("expected");
        QTest::newRow("ratio 10") << QList<qint64>{5, 0, 10, 0, 100} << qint64(50);
        QTest::newRow("ratio truncates to 0") << QList<qint64>{5, 0, 10, 0, 5} << qint64(0);
        QTest::newRow("narrower target gives toMin") << QList<qint64>{9, 0, 10, 7, 12} << qint64(7);
        QTest::newRow("ratio 25/10 truncates to 2") << QList<qint64>{3, 0, 10, 0, 25} << qint64(6);
        QTest::newRow("negative ratio toward zero") << QList<qint64>{5, 0, 10, 0, -25} << qint64(-10);
        QTest::newRow("extrapolates") << QList<qint64>{20, 10, 11, 100, 103} << qint64(130);
    }

    void scaleToInteger()
    {
        QFETCH(QList<qint64>, args);
        QFETCH(qint64, expected);
        QCOMPARE(TWUtils::scaleTo(args[0], args[1], args[2], args[3], args[4]), expected);
    }

    void writeLogWithoutLogger()
    {
        TWUtils::setLogger(nullptr);
        QCOMPARE(TWUtils::logger(), nullptr);
        TWTest::MessageCapture capture;
        QVERIFY(TWUtils::writeLog(QStringLiteral("remark"), QtWarningMsg, QStringLiteral("f.cpp"), 7,
                                  QStringLiteral("void f()")));
        QCOMPARE(capture.messages().size(), 1);
        QCOMPARE(capture.messages().first().type, QtDebugMsg);
        QCOMPARE(capture.messages().first().text, QStringLiteral("remark"));
    }

    void writeLogThroughLogger()
    {
        QCOMPARE(TWUtils::logger(), &_logger);
        _logger.setResult(false);
        const bool answer = TWUtils::writeLog(QStringLiteral("remark"), QtInfoMsg, QStringLiteral("f.cpp"), 7,
                                              QStringLiteral("void f()"));
        _logger.setResult(true);
        QCOMPARE(answer, false);
        QCOMPARE(_logger.records().size(), 1);
        const TWTest::LogRecord r = _logger.records().first();
        QCOMPARE(r.msg, QStringLiteral("remark"));
        QCOMPARE(r.type, QtInfoMsg);
        QCOMPARE(r.file, QStringLiteral("f.cpp"));
        QCOMPARE(r.line, 7);
        QCOMPARE(r.function, QStringLiteral("void f()"));
    }

    void readAndSaveFile_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("binary, line ends untouched") << QByteArray("a\r\nb\0c\n\xff", 8);
    }

    void readAndSaveFile()
    {
        QFETCH(QByteArray, content);
        TWTest::TempWorkDir dir;
        const QString path = dir.filePath(QStringLiteral("data.bin"));
        QVERIFY(dir.writeFile(QStringLiteral("data.bin"), QByteArray(100, 'x')));
        QVERIFY(TWUtils::saveFile(path, content));
        QCOMPARE(dir.readFile(QStringLiteral("data.bin")), content);
        QByteArray back("stale");
        QVERIFY(TWUtils::readFile(path, back));
        QCOMPARE(back, content);
        QVERIFY(_logger.records().isEmpty());
    }

    void readFileMissing()
    {
        TWTest::TempWorkDir dir;
        const QString path = dir.filePath(QStringLiteral("missing.bin"));
        QByteArray content("stale");
        QVERIFY(!TWUtils::readFile(path, content));
        QVERIFY(content.isEmpty());
        expectFailure(QStringLiteral("Couldn't open file: '%1'! %2").arg(path, openError(path, QIODevice::ReadOnly)));
        // A later success leaves the slot alone.
        QVERIFY(TWUtils::saveFile(path, "x"));
        QVERIFY(TWUtils::lastError().startsWith(QLatin1String("Couldn't open file")));
    }

    void saveFileUnwritable()
    {
        TWTest::TempWorkDir dir;
        const QString path = dir.filePath(QStringLiteral("no/such/folder.bin"));
        QVERIFY(!TWUtils::saveFile(path, "abc"));
        expectFailure(QStringLiteral("Couldn't open file: '%1' for write! %2")
                          .arg(path, openError(path, QIODevice::WriteOnly)));
    }

    void saveFileShortWrite()
    {
        if (!QFileInfo::exists(QStringLiteral("/dev/full")))
            QSKIP("needs /dev/full");
        // Larger than QFile's buffer, so the write itself reaches the device and fails.
        const QByteArray content(100000, 'x');
        QVERIFY(!TWUtils::saveFile(QStringLiteral("/dev/full"), content));
        expectFailure(QStringLiteral("Error in write file: '/dev/full'! Content size is 100000 written bytes is -1."));
    }

    void readTxtFile_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("codec");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("UTF-8 by default") << QByteArray("h\xc3\xa9llo\nw\xc3\xb6rld\n") << ""
                                          << "héllo\nwörld\n" << QStringList{"héllo", "wörld"};
        QTest::newRow("Latin-1") << QByteArray("h\xe9llo\r\nx") << "ISO-8859-1" << "héllo\nx"
                                 << QStringList{"héllo", "x"};
        QTest::newRow("UTF-16LE") << QByteArray("a\0\n\0b\0", 6) << "UTF-16LE" << "a\nb" << QStringList{"a", "b"};
        QTest::newRow("blank lines dropped, blanks kept")
            << QByteArray("one\n\nthree\n  \n\n") << "" << "one\n\nthree\n  \n\n" << QStringList{"one", "three", "  "};
        QTest::newRow("empty file") << QByteArray() << "" << "" << QStringList();
        QTest::newRow("only line ends") << QByteArray("\r\n\n\r\n") << "" << "\n\n\n" << QStringList();
    }

    void readTxtFile()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, codec);
        QFETCH(QString, text);
        QFETCH(QStringList, lines);
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("in.txt"), bytes));
        const QString path = dir.filePath(QStringLiteral("in.txt"));
        QString readText = QStringLiteral("stale");
        QVERIFY(TWUtils::readTxtFile(path, readText, codec));
        QCOMPARE(readText, text);
        QList<QString> readLines{QStringLiteral("stale")};
        QVERIFY(TWUtils::readTxtFile(path, readLines, codec));
        QCOMPARE(readLines, lines);
    }

    void readTxtFileFailures()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("in.txt"), "abc\n"));
        const QString path = dir.filePath(QStringLiteral("in.txt"));
        const QString missing = dir.filePath(QStringLiteral("missing.txt"));
        const QString codecMessage = QStringLiteral("Couldn't read file: '%1' because codec name: '%2' not supported!")
                                         .arg(path, QStringLiteral("no-such-codec"));
        const QString openMessage = QStringLiteral("Couldn't open file: '%1'! %2")
                                        .arg(missing, openError(missing, QIODevice::ReadOnly));

        QString text = QStringLiteral("stale");
        QVERIFY(!TWUtils::readTxtFile(path, text, QStringLiteral("no-such-codec")));
        QVERIFY(text.isEmpty());
        expectFailure(codecMessage);
        text = QStringLiteral("stale");
        QVERIFY(!TWUtils::readTxtFile(missing, text, QString()));
        QVERIFY(text.isEmpty());
        expectFailure(openMessage);

        QList<QString> lines{QStringLiteral("stale")};
        QVERIFY(!TWUtils::readTxtFile(path, lines, QStringLiteral("no-such-codec")));
        QVERIFY(lines.isEmpty());
        expectFailure(codecMessage);
        lines = {QStringLiteral("stale")};
        QVERIFY(!TWUtils::readTxtFile(missing, lines, QString()));
        QVERIFY(lines.isEmpty());
        expectFailure(openMessage);
    }

    void writeTxtFile_data()
    {
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<QString>("codec");
        QTest::addColumn<QString>("separator");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("comma, none at the end") << QStringList{"a", "b"} << "" << "," << QByteArray("a,b");
        QTest::newRow("UTF-8 by default") << QStringList{"é"} << "" << "" << QByteArray("\xc3\xa9");
        QTest::newRow("Latin-1, line feed") << QStringList{"é", "x"} << "ISO-8859-1" << "\n" << QByteArray("\xe9\nx");
        QTest::newRow("no lines") << QStringList() << "" << "," << QByteArray();
    }

    void writeTxtFile()
    {
        QFETCH(QStringList, lines);
        QFETCH(QString, codec);
        QFETCH(QString, separator);
        QFETCH(QByteArray, bytes);
#ifdef Q_OS_WIN
        bytes.replace("\n", "\r\n");
#endif
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("out.txt"), QByteArray(64, 'o')));
        QVERIFY(TWUtils::writeTxtFile(dir.filePath(QStringLiteral("out.txt")), lines, codec, separator));
        QCOMPARE(dir.readFile(QStringLiteral("out.txt")), bytes);
        QVERIFY(TWUtils::writeTxtFile(dir.filePath(QStringLiteral("out2.txt")), lines.join(separator), codec));
        QCOMPARE(dir.readFile(QStringLiteral("out2.txt")), bytes);
    }

    void writeTxtFileFailures()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("old.txt"), "old content"));
        const QString path = dir.filePath(QStringLiteral("old.txt"));
        QVERIFY(!TWUtils::writeTxtFile(path, QStringList{QStringLiteral("new")}, QStringLiteral("no-such-codec"),
                                       QStringLiteral(",")));
        // The file was opened, and so emptied, before the codec was refused.
        QVERIFY(QFileInfo::exists(path));
        QCOMPARE(dir.readFile(QStringLiteral("old.txt")), QByteArray());
        expectFailure(QStringLiteral("Couldn't write file: '%1' because codec name: '%2' not supported!")
                          .arg(path, QStringLiteral("no-such-codec")));

        const QString unwritable = dir.filePath(QStringLiteral("no/such/folder.txt"));
        QVERIFY(!TWUtils::writeTxtFile(unwritable, QStringLiteral("x"), QString()));
        expectFailure(QStringLiteral("Couldn't open file: '%1'! %2")
                          .arg(unwritable, openError(unwritable, QIODevice::WriteOnly | QIODevice::Text)));
    }

    void runMissingProgram_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<bool>("wait");
        QTest::addColumn<QString>("start");
        QTest::newRow("waited") << "" << true << "Couldn't start program: 'tw-no-such-program a  b' with path: '%1'!";
        QTest::newRow("waited, in a folder") << " sub " << true
                                             << "Couldn't start program: 'tw-no-such-program a  b' with path: '%1/sub'!";
        QTest::newRow("detached") << "" << false << "Error on run program: 'tw-no-such-program a  b' with path: '%1'!";
    }

    void runMissingProgram()
    {
        QFETCH(QString, folder);
        QFETCH(bool, wait);
        QFETCH(QString, start);
        TWTest::TempWorkDir dir;
        QVERIFY(QDir().mkdir(QStringLiteral("sub")));
        const QString before = QDir::currentPath();
        QVERIFY(!TWUtils::run(QStringLiteral(" tw-no-such-program "), QStringLiteral(" a  b "), folder, false, false,
                              wait));
        QCOMPARE(QDir::currentPath(), before);
        QVERIFY2(TWUtils::lastError().startsWith(start.arg(before)), qPrintable(TWUtils::lastError()));
        QVERIFY(TWUtils::lastError().endsWith(QLatin1String("!'")));
        expectFailure(TWUtils::lastError());
    }

    void runExitCode_data()
    {
        QTest::addColumn<bool>("useSystem");
        QTest::addColumn<bool>("wait");
        QTest::addColumn<bool>("expected");
        QTest::newRow("waited child") << false << true << true;
        QTest::newRow("system") << true << false << false;
        QTest::newRow("system ignores the wait flag") << true << true << false;
    }

    void runExitCode()
    {
        QFETCH(bool, useSystem);
        QFETCH(bool, wait);
        QFETCH(bool, expected);
        TWTest::TempWorkDir dir;
        const QString before = QDir::currentPath();
        QCOMPARE(TWUtils::run(TWTest::helperPath(QStringLiteral("tw_runchild")), QStringLiteral("3"), QString(),
                              useSystem, false, wait),
                 expected);
        QCOMPARE(childReport(before).value(1), QStringLiteral("3"));
        if (expected)
            return;
        const QString message = TWUtils::lastError();
        QVERIFY2(message.startsWith(QLatin1String("Error on execute command: ")), qPrintable(message));
        QVERIFY(message.contains(QStringLiteral(" with current path: '%1'!").arg(before)));
        const int retValue = message.section(QLatin1String("RetValue: "), 1).toInt();
#ifdef Q_OS_UNIX
        QVERIFY(WIFEXITED(retValue));
        QCOMPARE(WEXITSTATUS(retValue), 3);
#else
        QCOMPARE(retValue, 3);
#endif
    }

    void runInWorkingFolder_data()
    {
        QTest::addColumn<bool>("useSystem");
        QTest::addColumn<bool>("wait");
        QTest::newRow("waited child") << false << true;
        QTest::newRow("system") << true << false;
        QTest::newRow("detached") << false << false;
    }

    void runInWorkingFolder()
    {
        QFETCH(bool, useSystem);
        QFETCH(bool, wait);
        TWTest::TempWorkDir dir;
        QVERIFY(QDir().mkdir(QStringLiteral("sub")));
        const QString before = QDir::currentPath();
        const QString sub = dir.filePath(QStringLiteral("sub"));
        QVERIFY(TWUtils::run(QStringLiteral(" ") + TWTest::helperPath(QStringLiteral("tw_runchild")),
                             QStringLiteral("  0  x   y "), QStringLiteral(" sub "), useSystem, false, wait));
        QCOMPARE(QDir::currentPath(), before);
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(sub + QStringLiteral("/runchild.txt")), 20000);
        const QStringList report = childReport(sub);
        QCOMPARE(canonical(report.value(0)), canonical(sub));
        QCOMPARE(report.mid(1), (QStringList{QStringLiteral("0"), QStringLiteral("x"), QStringLiteral("y")}));
    }

    void runInMissingFolderStaysPut()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(TWUtils::run(TWTest::helperPath(QStringLiteral("tw_runchild")), QStringLiteral("0"),
                             QStringLiteral("no-such-folder"), false, false, true));
        QCOMPARE(canonical(QDir::currentPath()), canonical(dir.path()));
        QCOMPARE(canonical(childReport(dir.path()).value(0)), canonical(dir.path()));
    }
};

QTEST_GUILESS_MAIN(TstTWUtils)
#include "tst_twutils.moc"
