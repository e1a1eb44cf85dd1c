#include <twutils.h>

#include "twtestsupport.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QRandomGenerator>
#include <QtTest/QTest>

#include <limits>

#include <climits>

using TW::TWUtils;

namespace {

// The plain recursive reading of the wildcard rules, for one pattern.
bool refMatch(QStringView t, QStringView p)
{
    if (p.isEmpty())
        return t.isEmpty();
    if (p.front() == u'*')
        return refMatch(t, p.mid(1)) || (!t.isEmpty() && refMatch(t.mid(1), p));
    return !t.isEmpty() && (p.front() == u'?' || p.front() == t.front()) && refMatch(t.mid(1), p.mid(1));
}

QString openError(const QString& path, QIODevice::OpenMode mode)
{
    QFile file(path);
    file.open(mode);
    return file.errorString();
}

const QString runChild = TWTest::helperPath(QStringLiteral("tw_runchild"));

} // namespace

class TstTWUtils : public QObject
{
    Q_OBJECT

    TWTest::RecordingLogger _logger;

    // The call \a failed as it should, its failure is exactly \a message, and
    // that went to the logger as a critical line.
    void expectFailure(const QString& message, bool failed = true)
    {
        QVERIFY2(failed, qPrintable(message));
        const TWTest::LogRecord r = _logger.records().value(_logger.records().size() - 1);
        QCOMPARE(TWUtils::lastError() + u'|' + r.msg, message + u'|' + message);
        QVERIFY(r.type == QtCriticalMsg && r.file.endsWith(QLatin1String("twutils.cpp")) && r.line > 0);
    }

private slots:
    void init() { _logger.clear(), TWUtils::setLogger(&_logger); }
    void cleanup() { TWUtils::setLogger(nullptr); }

    void wildcard_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("patterns");
        QTest::addColumn<bool>("sensitive"); // the answers with Qt::CaseSensitive
        QTest::addColumn<bool>("insensitive"); // and with Qt::CaseInsensitive
        // The plain rules (empty texts, separators, stars and question marks)
        // are checked against a recursive matcher below; these go beyond it.
        // "ß" upper-cases to "SS", but only as many characters as the text has take part.
        QTest::newRow("expanding upper case") << "ß" << "S" << false << true;
        QTest::newRow("long, case") << QString(300, u'a') + "b" << "A*" + QString(100, u'?') + "*B" << false << true;
    }

    void wildcard()
    {
        QFETCH(QString, text);
        QFETCH(QString, patterns);
        QTEST(TWUtils::isMatchWildcard(text, patterns, Qt::CaseSensitive), "sensitive");
        QTEST(TWUtils::isMatchWildcard(text, patterns, Qt::CaseInsensitive), "insensitive");
    }

    void wildcardAgreesWithRecursiveMatcher()
    {
        QRandomGenerator random(20240607);
        const QString alphabet = QStringLiteral("aAbéÉ*?;"); // both cases, in and out of ASCII, and the syntax
        const auto randomString = [&](int maxLength) {
            QString s;
            for (int k = random.bounded(maxLength + 1); k > 0; --k)
                s += alphabet.at(random.bounded(int(alphabet.size())));
            return s;
        };
        for (int round = 0; round < 20000; ++round) {
            const QString text = randomString(round % 4 ? 8 : 16), patterns = randomString(9);
            const auto cs = round % 2 ? Qt::CaseSensitive : Qt::CaseInsensitive;
            bool expected = patterns.isEmpty() && text.isEmpty();
            for (const QString& p : patterns.split(u';', Qt::SkipEmptyParts))
                expected = expected || (cs ? refMatch(text, p) : refMatch(text.toUpper(), p.toUpper()));
            if (TWUtils::isMatchWildcard(text, patterns, cs) != expected)
                QFAIL(qPrintable(QStringLiteral("'%1' against '%2' (%3)").arg(text, patterns).arg(int(cs))));
        }
    }

    void macAddr_data()
    {
        QTest::addColumn<QByteArray>("address");
        QTest::addColumn<QString>("expected");
        QTest::newRow("only the first byte counts") << QByteArray("\x00\x11\x22\x33\x44\x55", 6) << "00:01:02:03:04:05";
        QTest::newRow("wrap at 127") << QByteArray("\x7f\x01\x02\x03\x04\x05", 6) << "7F:-80:-7F:-7E:-7D:-7C";
        QTest::newRow("five bytes") << QByteArray(5, '\x12') << "";
        QTest::newRow("seven bytes") << QByteArray(7, '\x12') << "";
    }

    void macAddr()
    {
        QFETCH(QByteArray, address);
        QFETCH(QString, expected);
        QCOMPARE(TWUtils::macAddrToString(address), expected);
        QCOMPARE(TWUtils::macAddrToString(address.constData(), int(address.size())), expected);
        if (expected.isEmpty())
            expectFailure(QStringLiteral("Invalid MAC Address length: %1!").arg(address.size()));
    }

    // Without a logger, failures go to qDebug() whatever their level.
    void withoutLogger()
    {
        TWUtils::setLogger(nullptr);
        TWTest::MessageCapture capture;
        QVERIFY(TWUtils::macAddrToString(QByteArray(2, 'x')).isEmpty());
        QCOMPARE(capture.lines(), QStringList{QStringLiteral("D Invalid MAC Address length: 2!")});
    }

    void numbers()
    {
        const int first = TWUtils::randInt(-100, -90);
        QVERIFY(first >= -100 && first <= -90 && TWUtils::randInt(-100, -90) == first);
        QCOMPARE(TWUtils::randInt(INT_MIN, INT_MAX), TWUtils::randInt(INT_MIN, INT_MAX));
        QCOMPARE(TWUtils::randInt(10, 0), TWUtils::randInt(10, 0)); // reversed bounds wrap, no fault
        QCOMPARE(TWUtils::scaleTo(-5.0, 0.0, 10.0, 100.0, 0.0), 150.0);
    }

    void integerScaleAtTheEnds_data()
    {
        QTest::addColumn<QList<qint64>>("args"); // value, fromMin, fromMax, toMin, toMax
        QTest::addColumn<qint64>("expected");
        const qint64 lo = std::numeric_limits<qint64>::min(), hi = std::numeric_limits<qint64>::max();
        QTest::newRow("target wider than qint64 can count") << QList<qint64>{1, 0, 1, 0, hi} << hi;
        QTest::newRow("both widths past qint64") << QList<qint64>{0, lo, hi, lo, hi} << qint64(0);
        QTest::newRow("value distance past qint64") << QList<qint64>{hi, lo, lo + 2, 0, 2} << hi;
        QTest::newRow("negative ratio to the bottom") << QList<qint64>{hi, 0, -1, 0, 1} << lo;
        QTest::newRow("divide by -1") << QList<qint64>{lo, 0, -1, 0, 1} << hi;
        QTest::newRow("ordinary numbers stay exact") << QList<qint64>{-7, -10, 10, -100, 100} << qint64(-70);
        QTest::newRow("widths divided as integers first") << QList<qint64>{3, 0, 10, 0, 25} << qint64(6);
        QTest::newRow("no source width: no divide fault") << QList<qint64>{5, 3, 3, 7, 12} << qint64(7);
    }

    // The widths and the distance of the value are taken exactly; the answer
    // stops at the ends of the type instead of wrapping.
    void integerScaleAtTheEnds()
    {
        QFETCH(QList<qint64>, args);
        QFETCH(qint64, expected);
        QCOMPARE(TWUtils::scaleTo(args.at(0), args.at(1), args.at(2), args.at(3), args.at(4)), expected);
    }

    void files_data()
    {
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<QString>("separator");
        QTest::addColumn<QString>("codec");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QStringList>("readLines");
        QTest::newRow("UTF-8 by default, blank lines dropped") << QStringList{"héllo", "", "wörld", "  ", ""} << "\n" << ""
            << QByteArray("h\xc3\xa9llo\n\nw\xc3\xb6rld\n  \n") << QStringList{"héllo", "wörld", "  "};
        QTest::newRow("UTF-16LE, comma") << QStringList{"a", "b"} << "," << "UTF-16LE" << QByteArray("a\0,\0b\0", 6) << QStringList{"a,b"};
        QTest::newRow("no lines, empty file") << QStringList() << "," << "" << QByteArray() << QStringList();
    }

    // Writes over a longer file, reads back all three ways, saves a shorter file over it.
    void files()
    {
        QFETCH(QStringList, lines);
        QFETCH(QString, separator);
        QFETCH(QString, codec);
        QFETCH(QByteArray, bytes);
#ifdef Q_OS_WIN
        bytes.replace("\n", "\r\n");
#endif
        TWTest::TempWorkDir dir;
        const QString path = QStringLiteral("out.txt");
        QVERIFY(dir.writeFile(path, QByteArray(64, 'o')));
        QVERIFY(TWUtils::writeTxtFile(path, lines, codec, separator));
        QCOMPARE(dir.readFile(path), bytes);
        QString text;
        QList<QString> back{QStringLiteral("stale")};
        QByteArray raw;
        QVERIFY(TWUtils::readTxtFile(path, text, codec) && TWUtils::readTxtFile(path, back, codec) && TWUtils::readFile(path, raw));
        QCOMPARE(text, lines.join(separator));
        QTEST(back, "readLines");
        QCOMPARE(raw, bytes);
        QVERIFY(TWUtils::saveFile(path, bytes.left(1)) && dir.readFile(path) == bytes.left(1));
        QVERIFY(_logger.records().isEmpty());
    }

    // Out arguments are cleared first; each failure leaves its message.
    void fileFailures()
    {
        TWTest::TempWorkDir dir;
        const QString old = QStringLiteral("old.txt"), missing = QStringLiteral("missing.txt"), noCodec = QStringLiteral("no-such-codec");
        const QString openMissing = QStringLiteral("Couldn't open file: 'missing.txt'! ") + openError(missing, QIODevice::ReadOnly);
        const QString readCodec = QStringLiteral("Couldn't read file: 'old.txt' because codec name: 'no-such-codec' not supported!");
        QVERIFY(dir.writeFile(old, "old content\n"));
        QByteArray bytes("stale");
        QString text = QStringLiteral("stale");
        QList<QString> lines{text};
        expectFailure(openMissing, !TWUtils::readFile(missing, bytes) && bytes.isEmpty());
        expectFailure(openMissing, !TWUtils::readTxtFile(missing, text, QString()) && text.isEmpty());
        expectFailure(openMissing, !TWUtils::readTxtFile(missing, lines, QString()) && lines.isEmpty());
        expectFailure(readCodec, !TWUtils::readTxtFile(old, text, noCodec));
        expectFailure(readCodec, !TWUtils::readTxtFile(old, lines, noCodec));

        const QString unwritable = QStringLiteral("no/such/folder.txt"), cannot = openError(unwritable, QIODevice::WriteOnly);
        expectFailure("Couldn't open file: 'no/such/folder.txt' for write! " + cannot, !TWUtils::saveFile(unwritable, "abc"));
        expectFailure("Couldn't open file: 'no/such/folder.txt'! " + cannot, !TWUtils::writeTxtFile(unwritable, QStringLiteral("x"), QString()));
        // The file is opened, and so emptied, before the codec is refused.
        expectFailure(QStringLiteral("Couldn't write file: 'old.txt' because codec name: 'no-such-codec' not supported!"),
                      !TWUtils::writeTxtFile(old, QStringList{QStringLiteral("new")}, noCodec, QStringLiteral(",")));
        QVERIFY(QFileInfo::exists(old) && dir.readFile(old).isEmpty());
        // Larger than QFile's buffer, so the write itself reaches the device and fails.
        if (QFileInfo::exists(QStringLiteral("/dev/full")))
            expectFailure(QStringLiteral("Error in write file: '/dev/full'! Content size is 100000 written bytes is -1."),
                          !TWUtils::saveFile(QStringLiteral("/dev/full"), QByteArray(100000, 'x')));
    }

    void run_data()
    {
        QTest::addColumn<QString>("mode"); // "system", "wait" for a waited child, or "detach"
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("failure"); // the start of the message, of the program, arguments and folder
#ifdef Q_OS_UNIX
        const int exit3 = 3 << 8; // system() answers a wait status
#else
        const int exit3 = 3;
#endif
        const QString missing = QStringLiteral("tw-no-such-program");
        QTest::newRow("waited child: exit code does not count") << "wait" << " sub " << runChild << "";
        QTest::newRow("system: exit code fails") << "system" << " sub " << runChild
            << "Error on execute command: %1 %2 with current path: '%3'! RetValue: " + QString::number(exit3);
        QTest::newRow("detached") << "detach" << " sub " << runChild << "";
        QTest::newRow("missing folder: stays put") << "wait" << "no-such-folder" << runChild << "";
        QTest::newRow("missing program, waited") << "wait" << " sub " << missing
                                                 << "Couldn't start program: '%1 %2' with path: '%3'! ErrState: ";
        QTest::newRow("missing program, detached") << "detach" << "" << missing
                                                   << "Error on run program: '%1 %2' with path: '%3'! ErrState: ";
    }

    // The child runs in the trimmed folder with the arguments split at blanks;
    // the current folder comes back on every path.
    void run()
    {
        QFETCH(QString, mode);
        QFETCH(QString, folder);
        QFETCH(QString, program);
        QFETCH(QString, failure);
        TWTest::TempWorkDir dir;
        QVERIFY(QDir().mkdir(QStringLiteral("sub")));
        const QString sub = QFileInfo::exists(folder.trimmed()) ? QStringLiteral("sub") : QStringLiteral(".");
        const QString before = QDir::currentPath(), where = QDir(sub).absolutePath();
        const QString arguments = QStringLiteral("  3  x   y ");
        QCOMPARE(TWUtils::run(u' ' + program, arguments, folder, mode == u"system", false, mode == u"wait"), failure.isEmpty());
        QCOMPARE(QDir::currentPath(), before);
        if (program == runChild) {
            const QString report = sub + QStringLiteral("/runchild.txt");
            QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(report), 20000);
            QCOMPARE(QString::fromUtf8(dir.readFile(report)), QStringList({where, "3", "x", "y"}).join(u'\n'));
        }
        if (!failure.isEmpty())
            expectFailure(TWUtils::lastError(), TWUtils::lastError().startsWith(failure.arg(program, arguments.trimmed(), where)));
    }
};

QTEST_GUILESS_MAIN(TstTWUtils)
#include "tst_twutils.moc"
