#include "twtestsupport.h"

#include <twlogger.h>
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
        QTest::addColumn<bool>("ownLogger");
        QTest::addColumn<bool>("asChild");
        QTest::newRow("info, own logger") << int(QtInfoMsg) << true << false;
        QTest::newRow("warning, child of a parent") << int(QtWarningMsg) << true << true;
        QTest::newRow("info, global logger") << int(QtInfoMsg) << false << false;
        QTest::newRow("debug, global logger drops it") << int(QtDebugMsg) << false << false;
    }

    // One line when the measure goes, at its level, with the name it really got
    // and the milliseconds with their fractions.
    void closingLine()
    {
        QFETCH(int, level);
        QFETCH(bool, ownLogger);
        QFETCH(bool, asChild);
        QCOMPARE(TWTimeMeasure::className(), QStringLiteral("TWTimeMeasure"));
        TWTest::TempWorkDir dir;
        TW::TWLogger::globalInstance()->setFilePath(dir.path());
        TW::TWLogger::globalInstance()->setConsoleOutput(false);
        TWTest::RecordingLogger logger;
        TWTimeMeasure holder(QStringLiteral("measured"), QtInfoMsg, nullptr); // takes the plain name; logs last
        holder.setLogger(&logger);

        auto parent = std::make_unique<QObject>();
        auto* pMeasure = new TWTimeMeasure(QStringLiteral("measured"), QtMsgType(level), asChild ? parent.get() : nullptr);
        pMeasure->setLogger(ownLogger ? &logger : nullptr);
        QVERIFY(pMeasure->name() == QLatin1String("measured00001") && int(pMeasure->logLevel()) == level);
        QVERIFY(pMeasure->elapseTime().isValid() && logger.records().isEmpty());
        asChild ? parent.reset() : delete pMeasure;

        const QString text = ownLogger ? logger.messages().join(u'\n')
                                       : QString::fromUtf8(dir.readFile(QStringLiteral("twoutput_0000.log")));
        const QRegularExpression re(QStringLiteral("measured00001 running time is (\\S+) msec"));
        QCOMPARE(text.count(re), level == QtDebugMsg && !ownLogger ? 0 : 1);
        if (!text.contains(re))
            return;
        bool ok = false;
        const double msecs = re.match(text).captured(1).toDouble(&ok);
        QVERIFY(ok && msecs > 0 && msecs != double(qint64(msecs)));
        if (ownLogger)
            QVERIFY(int(logger.records().at(0).type) == level && logger.records().at(0).function.contains("~TWTimeMeasure"));
    }
};

QTEST_GUILESS_MAIN(TstTWTimeMeasure)
#include "tst_twtimemeasure.moc"
