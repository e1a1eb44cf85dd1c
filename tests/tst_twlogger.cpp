#include <QtTest/QTest>
class TstTWLogger : public QObject { Q_OBJECT };
QTEST_GUILESS_MAIN(TstTWLogger)
#include "tst_twlogger.moc"
