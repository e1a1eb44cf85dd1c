#include "twtestsupport.h"

#include <tweventfilter.h>

#include <QtGui/QKeyEvent>
#include <QtTest/QTest>

using TW::TWEventFilter;

namespace {

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
    void metaObject()
    {
        QCOMPARE(TWTest::describe(TWEventFilter::staticMetaObject),
                 "TW::TWEventFilter : QObject; public signal void evntKeyPress(int key, TWPressedKeys pressedKeys); "
                 "public signal void evntKeyRelease(int key, TWPressedKeys pressedKeys); "
                 "public signal void evntKeyChanged(int key, TWPressedKeys pressedKeys); "
                 "public slot bool isKeyPressed(int key); public slot TWPressedKeys pressedKeys()");
        TWEventFilter filter(QStringLiteral("keys"), nullptr); // registers the type's name
        QCOMPARE(QMetaType::fromName("TWPressedKeys"), QMetaType::fromType<TWPressedKeys>());
    }

    void keyEvents_data()
    {
        // "+k" a press of key k, "-k" a release, "*k" an auto-repeated press, "other" a non-key event.
        QTest::addColumn<QString>("events");
        QTest::addColumn<QString>("signals_");
        QTest::addColumn<QString>("finalTable");
        QTest::newRow("press, release")
            << "+65 -65" << "press 65 [65+], changed 65 [65+], release 65 [65-], changed 65 [65-]" << "65-";
        QTest::newRow("release without press") << "-66" << "release 66 [66-], changed 66 [66-]" << "66-";
        QTest::newRow("press, auto-repeat, other event, other key")
            << "+65 *65 other +66" << "press 65 [65+], changed 65 [65+], press 65 [65+], changed 65 [65+], "
                                      "press 66 [65+ 66+], changed 66 [65+ 66+]" << "65+ 66+";
    }

    // Key events are consumed, each giving its own signal and then the change,
    // with the table as this event left it; other events reach the watched object.
    void keyEvents()
    {
        QFETCH(QString, events);
        TWEventFilter filter(QString(), nullptr);
        QObject watched; // takes no event itself, so sendEvent() tells what the filter consumed
        watched.installEventFilter(&filter);
        QStringList log;
        const auto record = [&log](const char* what) {
            return [&log, what](int key, const TWPressedKeys& keys) { log << QStringLiteral("%1 %2 [%3]").arg(what).arg(key).arg(table(keys)); };
        };
        connect(&filter, &TWEventFilter::evntKeyPress, this, record("press"));
        connect(&filter, &TWEventFilter::evntKeyRelease, this, record("release"));
        connect(&filter, &TWEventFilter::evntKeyChanged, this, record("changed"));

        for (const QString& e : events.split(u' ')) {
            const bool isKey = e != QLatin1String("other");
            QKeyEvent key(e[0] == u'-' ? QEvent::KeyRelease : QEvent::KeyPress, e.mid(1).toInt(), Qt::NoModifier,
                          QString(), e[0] == u'*');
            QEvent other(QEvent::WindowActivate);
            QCOMPARE(QCoreApplication::sendEvent(&watched, isKey ? static_cast<QEvent*>(&key) : &other), isKey);
        }
        QTEST(log.join(QStringLiteral(", ")), "signals_");
        QTEST(table(filter.pressedKeys()), "finalTable");
        for (int key : {65, 66, int(Qt::Key_Z)})
            QCOMPARE(filter.isKeyPressed(key), filter.pressedKeys().value(key));
    }
};

QTEST_MAIN(TstTWEventFilter)
#include "tst_tweventfilter.moc"
