#include "twtestsupport.h"

#include <twlogger.h>
#include <twtimemeasure.h>

#include <QtCore/QRegularExpression>
#include <QtTest/QTest>

using TW::TWTimeMeasure;

class TstTWTimeMeasure : public QObject
{
    Q_OBJECT

private slots:
    void lineAndLevel_data();
    void lineAndLevel();
    void globalLoggerFiltersByLevel();
};

void TstTWTimeMeasure::lineAndLevel_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<bool>("asChild");
    QTest::newRow("info, local") << int(QtInfoMsg) << false;
    QTest::newRow("debug, local") << int(QtDebugMsg) << false;
    QTest::newRow("warning, child of a parent") << int(QtWarningMsg) << true;
}

// One line at destruction, at the given level, with the name that the object
// really got and the time in milliseconds with its fractions.
void TstTWTimeMeasure::lineAndLevel()
{
    QFETCH(int, level);
    QFETCH(bool, asChild);
    const auto type = QtMsgType(level);
    TWTest::RecordingLogger logger, elsewhere;
    TWTimeMeasure holder(QStringLiteral("measured"), QtInfoMsg, nullptr);
    holder.setLogger(&elsewhere);
    auto* pParent = new QObject;
    auto* pMeasure = new TWTimeMeasure(QStringLiteral("measured"), type, asChild ? pParent : nullptr);
    pMeasure->setLogger(&logger);
    QCOMPARE(pMeasure->name(), QStringLiteral("measured00001"));
    QCOMPARE(pMeasure->logLevel(), type);
    QVERIFY(pMeasure->elapseTime().isValid());
    QVERIFY(logger.records().isEmpty());

    if (asChild)
        delete pParent;
    else
        delete pMeasure, delete pParent;

    const QList<TWTest::LogRecord> records = logger.records();
    QCOMPARE(records.size(), 1);
    QCOMPARE(records[0].type, type);
    QVERIFY(records[0].function.contains(QLatin1String("~TWTimeMeasure")));
    const QRegularExpressionMatch match =
        QRegularExpression(QStringLiteral("^measured00001 running time is (\\S+) msec$")).match(records[0].msg);
    QVERIFY2(match.hasMatch(), qPrintable(records[0].msg));
    bool ok = false;
    const double msecs = match.captured(1).toDouble(&ok);
    QVERIFY(ok && msecs > 0);
    QVERIFY2(msecs != double(qint64(msecs)), "the time keeps its fractions");
    QCOMPARE(TWTimeMeasure::className(), QStringLiteral("TWTimeMeasure"));
}

// Without a logger of its own the line goes to the global logger, which by
// default drops debug lines and keeps info lines.
void TstTWTimeMeasure::globalLoggerFiltersByLevel()
{
    TWTest::TempWorkDir dir;
    TW::TWLogger* pGlobal = TW::TWLogger::globalInstance();
    pGlobal->setFilePath(dir.path());
    pGlobal->setConsoleOutput(false);
    delete new TWTimeMeasure(QStringLiteral("quiet"), QtDebugMsg, nullptr);
    delete new TWTimeMeasure(QStringLiteral("loud"), QtInfoMsg, nullptr);

    const QString log = QString::fromUtf8(dir.readFile(QStringLiteral("twoutput_0000.log")));
    QVERIFY(!log.contains(QLatin1String("quiet running time is")));
    QCOMPARE(log.count(QLatin1String("loud running time is")), 1);
}

QTEST_GUILESS_MAIN(TstTWTimeMeasure)
#include "tst_twtimemeasure.moc"
