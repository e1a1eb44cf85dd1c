#include "twimagebuilders.h"
#include "twtestsupport.h"

#include <QtTest/QTest>

namespace {

TWTest::ProcessResult image(const TWTest::TempWorkDir& dir, const QString& arguments)
{
    return TWTest::runTool(QStringLiteral("image ") + arguments, dir.path());
}

// 10 x 6, red rising to the right, so the text of each row is the same.
QImage sample()
{
    QImage picture(10, 6, QImage::Format_RGB888);
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            picture.setPixel(x, y, qRgb(x * 28, x * 28, x * 28));
    return picture;
}

} // namespace

class TstTWToolImage : public QObject
{
    Q_OBJECT

private slots:
    void actions()
    {
        TWTest::TempWorkDir dir;
        QVERIFY(dir.writeFile(QStringLiteral("in.tga"), TWTest::tgaFile(sample(), true, false)) && dir.writeFile(QStringLiteral("out.png"), "keep"));
        auto result = image(dir, QStringLiteral("convert in.tga out.png"));
        QVERIFY(result.exitCode == 1 && result.err.contains("-f"));
        QCOMPARE(dir.readFile(QStringLiteral("out.png")), QByteArray("keep"));
        result = image(dir, QStringLiteral("convert -f in.tga out.png"));
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(QImage(dir.filePath(QStringLiteral("out.png"))).convertToFormat(QImage::Format_RGB888), sample());

        result = image(dir, QStringLiteral("info in.tga"));
        QCOMPARE(result.exitCode, 0);
        QVERIFY2(result.out.contains("format:             TGA\nsize:               10x6\ndepth:              24 bits")
                     && result.out.contains("image type:       10"), result.out.constData());

        // Wider than 5 columns: scaled to 5 first; the darkest column has no red and shows as a blank.
        result = image(dir, QStringLiteral("ascii --width 5 --chars abcdefghijkl in.tga"));
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out.split('\n').size(), 4);
        QVERIFY2(result.out.startsWith(" ") && result.out.split('\n').at(0).size() == 5, result.out.constData());

        result = image(dir, QStringLiteral("split in.tga 4 4 tiles"));
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(QDir(dir.filePath(QStringLiteral("tiles"))).entryList(QDir::Files),
                 QStringList({"in_0_0.png", "in_0_1.png", "in_0_2.png", "in_1_0.png", "in_1_1.png", "in_1_2.png"}));
        QCOMPARE(QImage(dir.filePath(QStringLiteral("tiles/in_1_2.png"))).size(), QSize(4, 4));
        QCOMPARE(image(dir, QStringLiteral("split in.tga 4 4 tiles")).exitCode, 1);
        QVERIFY(dir.files(QStringList{"twoutput_*"}).isEmpty());
    }

    void refuses_data()
    {
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message");
        QTest::newRow("no action") << "" << 2 << "say convert, info, ascii or split";
        QTest::newRow("unknown action") << "show in.tga" << 2 << "unknown action 'show'";
        QTest::newRow("no OUT") << "convert in.tga" << 2 << "convert takes IN and OUT";
        QTest::newRow("unwritable format") << "convert in.tga out.tga" << 2 << "use one of:";
        QTest::newRow("option of another action") << "info --chars ab in.tga" << 2 << "ascii only";
        QTest::newRow("width of 0") << "ascii --width 0 in.tga" << 2 << "--width";
        QTest::newRow("tile of 0") << "split in.tga 0 4 tiles" << 2 << "above 0";
        QTest::newRow("missing input") << "info absent.tga" << 1 << "Couldn't open file: 'absent.tga'!";
        QTest::newRow("cut TGA") << "convert cut.tga out.png" << 1 << "Couldn't read TGA pixel data! TGA header: IDLength: 0;";
        QTest::newRow("unknown bytes") << "info junk.png" << 1 << "Unsupported image format!";
        QTest::newRow("too many tiles") << "split in.tga 1 1 tiles" << 1 << "more than 10000";
        QTest::newRow("missing folder") << "convert in.tga no/such/out.png" << 1 << "cannot write 'no/such/out.png'";
    }

    // Each refusal exits with its code and reason, and leaves the folder as it was.
    void refuses()
    {
        QFETCH(QString, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        TWTest::TempWorkDir dir;
        QImage big(200, 100, QImage::Format_RGB888);
        big.fill(Qt::gray);
        const QByteArray file = TWTest::tgaFile(big, false, false);
        QVERIFY(dir.writeFile(QStringLiteral("in.tga"), file) && dir.writeFile(QStringLiteral("cut.tga"), file.left(1000)));
        QVERIFY(dir.writeFile(QStringLiteral("junk.png"), "not a picture"));
        const QStringList before = dir.files();
        const auto result = image(dir, arguments);
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(result.err.contains(message.toUtf8()), result.err.constData());
        QCOMPARE(dir.files(), before);
    }
};

QTEST_GUILESS_MAIN(TstTWToolImage)
#include "tst_twtool_image.moc"
