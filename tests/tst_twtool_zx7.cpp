#include "twtestsupport.h"

#include <twzx7.h>

#include <QtTest/QTest>

namespace {

TWTest::ProcessResult zx7(const TWTest::TempWorkDir& dir, const QString& arguments)
{
    return TWTest::runTool(QStringLiteral("zx7 ") + arguments, dir.path());
}

const QByteArray sample = QByteArray("Sing a song of sixpence, a pocket full of rye. ").repeated(40);

} // namespace

class TstTWToolZX7 : public QObject
{
    Q_OBJECT

private slots:
    // Default names both ways, an existing output kept without -f, a limit
    // that the data just fits, and bytes after the end marker passed over with
    // a warning.
    void roundTripThroughFiles()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("song.txt"), sample) && dir.writeFile(QStringLiteral("song.txt.zx7"), "keep"));
        QVERIFY(TWTest::ended(zx7(dir, QStringLiteral("compress song.txt")), 1, "-f"));
        QCOMPARE(dir.readFile(QStringLiteral("song.txt.zx7")), QByteArray("keep"));

        const QByteArray packed = TW::TWZX7::compress(sample, 0);
        const QByteArray sizes = QByteArray::number(sample.size()) + " -> " + QByteArray::number(packed.size());
        QVERIFY(TWTest::ended(zx7(dir, QStringLiteral("compress -f song.txt")), 0, sizes));
        QCOMPARE(dir.readFile(QStringLiteral("song.txt.zx7")), packed);

        QVERIFY(QFile::remove(dir.filePath(QStringLiteral("song.txt"))));
        QVERIFY(TWTest::ended(zx7(dir, QStringLiteral("decompress song.txt.zx7")), 0));
        QCOMPARE(dir.readFile(QStringLiteral("song.txt")), sample);
        QVERIFY(dir.writeFile(QStringLiteral("tail.zx7"), packed + "tail"));
        const auto result = zx7(dir, QStringLiteral("decompress --max-size %1 tail.zx7 copy.txt").arg(sample.size()));
        QVERIFY(TWTest::ended(result, 0) && result.err.contains("has 4 byte(s) after the end of its stream"));
        QCOMPARE(dir.readFile(QStringLiteral("copy.txt")), sample);
    }

    // Under a cap on the address space, too large a job says "out of memory"
    // and writes nothing, rather than crash.
    void outOfMemory()
    {
#if defined(TW_SANITIZED) || !defined(Q_OS_LINUX)
        QTest::qSkip("needs Linux and no sanitizer (which reserves its own address space)", __FILE__, __LINE__);
#else
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("big"), QByteArray(40 << 20, 'a'))); // compress reserves about 5 bytes a byte
        // A stream of one literal and 40000 copies of 65536 bytes: 2.5 GB.
        QByteArray huge("A");
        for (int i = 0; i < 40000; ++i)
            huge += QByteArray::fromHex("8000ffff00");
        huge += QByteArray::fromHex("800040");
        QVERIFY(dir.writeFile(QStringLiteral("huge.zx7"), huge));
        for (const char* arguments : {"compress big", "decompress --max-size 4000000000 huge.zx7"}) {
            const auto result = TWTest::runProcess(QStringLiteral("/bin/sh"), {QStringLiteral("-c"),
                QStringLiteral("ulimit -v 250000 && exec \"$0\" zx7 %1").arg(QLatin1String(arguments)), QStringLiteral(TWTOOL_PATH)}, dir.path());
            QVERIFY(TWTest::ended(result, 1, "out of memory"));
        }
        QCOMPARE(dir.files(), QStringList({"big", "huge.zx7"}));
#endif
    }
};

QTEST_GUILESS_MAIN(TstTWToolZX7)
#include "tst_twtool_zx7.moc"
