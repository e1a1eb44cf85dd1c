#include "twtestsupport.h"

#include <twzx7.h>

#include <QtTest/QTest>

namespace {

TWTest::ProcessResult zx7(const TWTest::TempWorkDir& dir, const QStringList& arguments)
{
    return TWTest::runProcess(QStringLiteral(TWTOOL_PATH), QStringList{QStringLiteral("zx7")} + arguments, dir.path());
}

const QByteArray sample = QByteArray("Sing a song of sixpence, a pocket full of rye. ").repeated(40);

} // namespace

class TstTWToolZX7 : public QObject
{
    Q_OBJECT

private slots:
    void roundTripThroughFiles();
    void overwritesOnlyWithForce();
    void refuses_data();
    void refuses();
};

void TstTWToolZX7::roundTripThroughFiles()
{
    TWTest::TempWorkDir dir;
    QVERIFY(dir.writeFile(QStringLiteral("song.txt"), sample));

    auto result = zx7(dir, {QStringLiteral("compress"), QStringLiteral("song.txt")});
    QCOMPARE(result.exitCode, 0);
    const QByteArray packed = dir.readFile(QStringLiteral("song.txt.zx7"));
    QCOMPARE(packed, TW::TWZX7::compress(sample, 0));
    QVERIFY2(result.out.contains(QByteArray::number(sample.size()) + " -> " + QByteArray::number(packed.size())),
             result.out.constData());

    QVERIFY(QFile::remove(dir.filePath(QStringLiteral("song.txt"))));
    result = zx7(dir, {QStringLiteral("decompress"), QStringLiteral("song.txt.zx7")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(dir.readFile(QStringLiteral("song.txt")), sample);

    result = zx7(dir, {QStringLiteral("decompress"), QStringLiteral("--max-size"), QString::number(sample.size()),
                       QStringLiteral("song.txt.zx7"), QStringLiteral("copy.txt")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(dir.readFile(QStringLiteral("copy.txt")), sample);
}

void TstTWToolZX7::overwritesOnlyWithForce()
{
    TWTest::TempWorkDir dir;
    QVERIFY(dir.writeFile(QStringLiteral("song.txt"), sample));
    QVERIFY(dir.writeFile(QStringLiteral("song.txt.zx7"), "keep me"));
    auto result = zx7(dir, {QStringLiteral("compress"), QStringLiteral("song.txt")});
    QCOMPARE(result.exitCode, 1);
    QVERIFY(result.err.contains("-f"));
    QCOMPARE(dir.readFile(QStringLiteral("song.txt.zx7")), QByteArray("keep me"));
    result = zx7(dir, {QStringLiteral("compress"), QStringLiteral("-f"), QStringLiteral("song.txt")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(dir.readFile(QStringLiteral("song.txt.zx7")), TW::TWZX7::compress(sample, 0));
}

void TstTWToolZX7::refuses_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("message");
    const QString packed = QStringLiteral("packed.zx7");
    QTest::newRow("no action") << QStringList() << 2 << QByteArray("compress or decompress");
    QTest::newRow("unknown action") << QStringList{QStringLiteral("pack"), packed} << 2 << QByteArray("'pack'");
    QTest::newRow("no .zx7 and no OUT") << QStringList{QStringLiteral("decompress"), QStringLiteral("plain.txt")} << 2
                                        << QByteArray("give OUT");
    QTest::newRow("limit on compress") << QStringList{QStringLiteral("compress"), QStringLiteral("--max-size"),
                                                      QStringLiteral("10"), QStringLiteral("plain.txt")}
                                       << 2 << QByteArray("decompress only");
    QTest::newRow("limit of 0") << QStringList{QStringLiteral("decompress"), QStringLiteral("--max-size"),
                                               QStringLiteral("0"), packed}
                                << 2 << QByteArray("--max-size");
    QTest::newRow("missing input") << QStringList{QStringLiteral("compress"), QStringLiteral("absent")} << 1
                                   << QByteArray("cannot read 'absent'");
    QTest::newRow("empty input") << QStringList{QStringLiteral("compress"), QStringLiteral("empty")} << 1
                                 << QByteArray("empty");
    QTest::newRow("cut stream") << QStringList{QStringLiteral("decompress"), QStringLiteral("cut.zx7")} << 1
                                << QByteArray("not a complete ZX7 stream");
    QTest::newRow("over the limit") << QStringList{QStringLiteral("decompress"), QStringLiteral("--max-size"),
                                                   QStringLiteral("100"), packed, QStringLiteral("out")}
                                    << 1 << QByteArray("more than 100 bytes");
}

void TstTWToolZX7::refuses()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, message);
    TWTest::TempWorkDir dir;
    const QByteArray packed = TW::TWZX7::compress(sample, 0);
    QVERIFY(dir.writeFile(QStringLiteral("plain.txt"), sample));
    QVERIFY(dir.writeFile(QStringLiteral("packed.zx7"), packed));
    QVERIFY(dir.writeFile(QStringLiteral("cut.zx7"), packed.left(packed.size() / 2)));
    QVERIFY(dir.writeFile(QStringLiteral("empty")));
    const QStringList before = dir.files();

    const auto result = zx7(dir, arguments);
    QCOMPARE(result.exitCode, exitCode);
    QVERIFY2(result.err.contains(message), result.err.constData());
    QCOMPARE(dir.files(), before);
}

QTEST_GUILESS_MAIN(TstTWToolZX7)
#include "tst_twtool_zx7.moc"
