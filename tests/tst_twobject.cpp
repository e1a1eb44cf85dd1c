#include <QtTest/QTest>
class TstTWObject : public QObject { Q_OBJECT };
QTEST_GUILESS_MAIN(TstTWObject)
#include "tst_twobject.moc"
