#include "twtestsupport.h"

#include <twzx7.h>

#include <QtTest/QTest>

#include <sys/stat.h>

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
    // Default names both ways, an existing output kept without -f, and a
    // limit that the data just fits.
    void roundTripThroughFiles()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("song.txt"), sample) && dir.writeFile(QStringLiteral("song.txt.zx7"), "keep"));
        auto result = zx7(dir, QStringLiteral("compress song.txt"));
        QVERIFY(result.exitCode == 1 && result.err.contains("-f"));
        QCOMPARE(dir.readFile(QStringLiteral("song.txt.zx7")), QByteArray("keep"));

        result = zx7(dir, QStringLiteral("compress -f song.txt"));
        QCOMPARE(result.exitCode, 0);
        const QByteArray packed = dir.readFile(QStringLiteral("song.txt.zx7"));
        QCOMPARE(packed, TW::TWZX7::compress(sample, 0));
        QVERIFY2(result.out.contains(QByteArray::number(sample.size()) + " -> " + QByteArray::number(packed.size())),
                 result.out.constData());

        QVERIFY(QFile::remove(dir.filePath(QStringLiteral("song.txt"))));
        QCOMPARE(zx7(dir, QStringLiteral("decompress song.txt.zx7")).exitCode, 0);
        QCOMPARE(dir.readFile(QStringLiteral("song.txt")), sample);
        QCOMPARE(zx7(dir, QStringLiteral("decompress --max-size %1 song.txt.zx7 copy.txt").arg(sample.size())).exitCode, 0);
        QCOMPARE(dir.readFile(QStringLiteral("copy.txt")), sample);
    }

    void refuses_data()
    {
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message");
        QTest::newRow("no action") << "" << 2 << "compress or decompress";
        QTest::newRow("unknown action") << "pack packed.zx7" << 2 << "'pack'";
        QTest::newRow("no .zx7 and no OUT") << "decompress plain.txt" << 2 << "give OUT";
        QTest::newRow("limit on compress") << "compress --max-size 10 plain.txt" << 2 << "decompress only";
        QTest::newRow("limit of 0") << "decompress --max-size 0 packed.zx7" << 2 << "--max-size";
        QTest::newRow("missing input") << "compress absent" << 1 << "cannot read 'absent'";
        QTest::newRow("empty input") << "compress empty" << 1 << "empty";
        QTest::newRow("cut stream") << "decompress cut.zx7" << 1 << "not a complete ZX7 stream";
        QTest::newRow("over the limit") << "decompress --max-size 100 packed.zx7 out" << 1 << "more than 100 (see --max-size)";
        QTest::newRow("FIFO") << "compress fifo out" << 1 << "'fifo' is not a regular file";
        QTest::newRow("device") << "decompress /dev/zero out" << 1 << "'/dev/zero' is not a regular file";
    }

    // Each refusal exits with its code and reason, and leaves the folder as it was.
    void refuses()
    {
        QFETCH(QString, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        TWTest::TempWorkDir dir;
        const QByteArray packed = TW::TWZX7::compress(sample, 0);
        QVERIFY(dir.writeFile(QStringLiteral("plain.txt"), sample) && dir.writeFile(QStringLiteral("packed.zx7"), packed));
        QVERIFY(dir.writeFile(QStringLiteral("cut.zx7"), packed.left(packed.size() / 2)) && dir.writeFile(QStringLiteral("empty")));
        QVERIFY(::mkfifo("fifo", 0600) == 0);
        const QStringList before = dir.files();
        const auto result = zx7(dir, arguments);
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(result.err.contains(message.toUtf8()), result.err.constData());
        QCOMPARE(dir.files(), before);
    }

    // Bytes after the end marker are expanded past, with a warning.
    void trailingBytes()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("packed.zx7"), TW::TWZX7::compress(sample, 0) + "tail"));
        const auto result = zx7(dir, QStringLiteral("decompress packed.zx7"));
        QVERIFY2(result.exitCode == 0 && result.err.contains("has 4 byte(s) after the end of its stream"), result.err.constData());
        QCOMPARE(dir.readFile(QStringLiteral("packed")), sample);
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
            QVERIFY2(result.exitCode == 1 && result.err.contains("out of memory"), result.err.constData());
        }
        QCOMPARE(dir.files(), QStringList({"big", "huge.zx7"}));
#endif
    }
};

QTEST_GUILESS_MAIN(TstTWToolZX7)
#include "tst_twtool_zx7.moc"
