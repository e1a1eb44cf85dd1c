#include <QtTest/QTest>
class TstTWTool : public QObject { Q_OBJECT };
QTEST_GUILESS_MAIN(TstTWTool)
#include "tst_twtool.moc"
