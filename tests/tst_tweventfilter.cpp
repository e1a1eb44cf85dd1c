#include "twtestsupport.h"

#include <tweventfilter.h>

#include <QtGui/QKeyEvent>
#include <QtGui/QMouseEvent>
#include <QtTest/QTest>

using TW::TWEventFilter;

namespace {

// Stands for a window: it notes every event that gets through to it.
struct Watched : QObject
{
    QList<QEvent::Type> seen;
    bool event(QEvent* e) override { return seen << e->type(), QObject::event(e); }
};

// "65+ 66-": key 65 down, key 66 up.
QString table(const TWPressedKeys& keys)
{
    QStringList out;
    for (auto it = keys.cbegin(); it != keys.cend(); ++it)
        out << QString::number(it.key()) + (it.value() ? u'+' : u'-');
    return out.join(u' ');
}

} // namespace

class TstTWEventFilter : public QObject
{
    Q_OBJECT

private slots:
    void metaObject();
    void keyEvents_data();
    void keyEvents();
};

void TstTWEventFilter::metaObject()
{
    TWEventFilter filter(QStringLiteral("keys"), nullptr);
    QCOMPARE(filter.metaObject()->className(), "TW::TWEventFilter");
    QCOMPARE(TWTest::metaMethods(filter.metaObject()),
             QStringList({"public signal void evntKeyPress(int key, TWPressedKeys pressedKeys)",
                          "public signal void evntKeyRelease(int key, TWPressedKeys pressedKeys)",
                          "public signal void evntKeyChanged(int key, TWPressedKeys pressedKeys)",
                          "public slot bool isKeyPressed(int key)", "public slot TWPressedKeys pressedKeys()"}));
    QCOMPARE(QMetaType::fromName("TWPressedKeys"), QMetaType::fromType<TWPressedKeys>());
    QCOMPARE(static_cast<QObject&>(filter).qt_metacast("TWObject"), static_cast<TW::TWObject*>(&filter));
}

void TstTWEventFilter::keyEvents_data()
{
    // Events: "+k" press, "-k" release, "*k" auto-repeated press, "click" a mouse press.
    QTest::addColumn<QString>("events");
    QTest::addColumn<QString>("signals_");
    QTest::addColumn<QString>("finalTable");
    QTest::newRow("press") << "+65" << "press 65 [65+], changed 65 [65+]" << "65+";
    QTest::newRow("press, release") << "+65 -65"
                                    << "press 65 [65+], changed 65 [65+], release 65 [65-], changed 65 [65-]"
                                    << "65-";
    QTest::newRow("release without press") << "-66" << "release 66 [66-], changed 66 [66-]" << "66-";
    QTest::newRow("press, auto-repeat, other key")
        << "+65 *65 +66" << "press 65 [65+], changed 65 [65+], press 65 [65+], changed 65 [65+], "
                            "press 66 [65+ 66+], changed 66 [65+ 66+]" << "65+ 66+";
    QTest::newRow("mouse press passes through") << "click" << "" << "";
}

// Key events are consumed, each giving its own signal and then the change with
// the table as this event left it; other events reach the watched object.
void TstTWEventFilter::keyEvents()
{
    QFETCH(QString, events);
    TWEventFilter filter(QString(), nullptr);
    Watched watched;
    watched.installEventFilter(&filter);
    QStringList log;
    auto note = [&log](const char* what) {
        return [&log, what](int key, const TWPressedKeys& keys) {
            log << QStringLiteral("%1 %2 [%3]").arg(QLatin1String(what)).arg(key).arg(table(keys));
        };
    };
    connect(&filter, &TWEventFilter::evntKeyPress, this, note("press"));
    connect(&filter, &TWEventFilter::evntKeyRelease, this, note("release"));
    connect(&filter, &TWEventFilter::evntKeyChanged, this, note("changed"));

    QList<QEvent::Type> passed;
    for (const QString& e : events.split(u' ')) {
        if (e == QLatin1String("click")) {
            QMouseEvent click(QEvent::MouseButtonPress, {1, 1}, {1, 1}, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
            QVERIFY(!QCoreApplication::sendEvent(&watched, &click));
            passed << QEvent::MouseButtonPress;
            continue;
        }
        QKeyEvent key(e[0] == u'-' ? QEvent::KeyRelease : QEvent::KeyPress, e.mid(1).toInt(), Qt::NoModifier,
                      QString(), e[0] == u'*');
        QVERIFY(QCoreApplication::sendEvent(&watched, &key));
    }
    QTEST(log.join(QStringLiteral(", ")), "signals_");
    QCOMPARE(watched.seen, passed);
    QTEST(table(filter.pressedKeys()), "finalTable");
    for (int key : {65, 66})
        QCOMPARE(filter.isKeyPressed(key), filter.pressedKeys().value(key));
    QVERIFY(!filter.isKeyPressed(Qt::Key_Z) && !filter.pressedKeys().contains(Qt::Key_Z));
}

QTEST_MAIN(TstTWEventFilter)
#include "tst_tweventfilter.moc"
