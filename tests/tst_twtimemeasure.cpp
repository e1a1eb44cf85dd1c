#include "twtestsupport.h"

#include <twtimemeasure.h>

#include <QtCore/QRegularExpression>
#include <QtTest/QTest>

#include <memory>

using TW::TWTimeMeasure;

class TstTWTimeMeasure : public QObject
{
    Q_OBJECT

private slots:
    void closingLine_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<bool>("asChild");
        QTest::newRow("info, alone") << int(QtInfoMsg) << false;
        QTest::newRow("warning, child of a parent") << int(QtWarningMsg) << true;
    }

    // One line when the measure goes, at its level, with the name it really got
    // and the milliseconds with their fractions.
    void closingLine()
    {
        QFETCH(int, level);
        QFETCH(bool, asChild);
        TWTest::RecordingLogger logger;
        TWTimeMeasure holder(QStringLiteral("measured"), QtInfoMsg, nullptr); // takes the plain name; logs last
        holder.setLogger(&logger);

        auto parent = std::make_unique<QObject>();
        auto* pMeasure = new TWTimeMeasure(QStringLiteral("measured"), QtMsgType(level), asChild ? parent.get() : nullptr);
        pMeasure->setLogger(&logger);
        QVERIFY(logger.records().isEmpty());
        asChild ? parent.reset() : delete pMeasure;

        QCOMPARE(logger.records().size(), 1);
        const TWTest::LogRecord r = logger.records().at(0);
        const auto match = QRegularExpression(QStringLiteral("^measured00001 running time is (\\S+) msec$")).match(r.msg);
        QVERIFY2(match.hasMatch(), qPrintable(r.msg));
        bool ok = false;
        const double msecs = match.captured(1).toDouble(&ok);
        QVERIFY(ok && msecs > 0 && msecs != double(qint64(msecs)));
        QVERIFY(int(r.type) == level && r.function.contains(QLatin1String("~TWTimeMeasure")));
    }
};

QTEST_GUILESS_MAIN(TstTWTimeMeasure)
#include "tst_twtimemeasure.moc"
