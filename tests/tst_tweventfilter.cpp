#include <tweventfilter.h>

#include <QtCore/QMetaMethod>
#include <QtGui/QKeyEvent>
#include <QtGui/QMouseEvent>
#include <QtTest/QTest>

using TW::TWEventFilter;

namespace {

// Stands for a window: it notes every event that gets through to it.
class Watched : public QObject
{
public:
    QList<QEvent::Type> seen;
    bool event(QEvent* e) override
    {
        seen << e->type();
        return QObject::event(e);
    }
};

QString table(const TWPressedKeys& keys)
{
    QStringList out;
    for (auto it = keys.cbegin(); it != keys.cend(); ++it)
        out << QStringLiteral("%1=%2").arg(it.key()).arg(it.value() ? "down" : "up");
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
    void otherEventsPassThrough();
};

void TstTWEventFilter::metaObject()
{
    TWEventFilter filter(QStringLiteral("keys"), nullptr);
    const QMetaObject* mo = filter.metaObject();
    QCOMPARE(mo->className(), "TW::TWEventFilter");
    QStringList methods;
    for (int i = mo->methodOffset(); i < mo->methodCount(); ++i) {
        const QMetaMethod m = mo->method(i);
        methods << QStringLiteral("%1 %2 %3(%4)")
                       .arg(m.methodType() == QMetaMethod::Signal ? "signal" : "slot", m.typeName(),
                            QString::fromLatin1(m.methodSignature()),
                            QString::fromLatin1(m.parameterNames().join(',')));
    }
    QCOMPARE(methods, QStringList({"signal void evntKeyPress(int,TWPressedKeys)(key,pressedKeys)",
                                   "signal void evntKeyRelease(int,TWPressedKeys)(key,pressedKeys)",
                                   "signal void evntKeyChanged(int,TWPressedKeys)(key,pressedKeys)",
                                   "slot bool isKeyPressed(int)(key)", "slot TWPressedKeys pressedKeys()()"}));
    QCOMPARE(QMetaType::fromName("TWPressedKeys"), QMetaType::fromType<TWPressedKeys>());
    QCOMPARE(static_cast<QObject&>(filter).qt_metacast("TWObject"), static_cast<TW::TWObject*>(&filter));
}

void TstTWEventFilter::keyEvents_data()
{
    // Events as "+key" (press), "-key" (release), "*key" (auto-repeated press).
    QTest::addColumn<QStringList>("events");
    QTest::addColumn<QStringList>("signals_");
    QTest::addColumn<QString>("finalTable");
    QTest::newRow("press") << QStringList{"+65"}
                           << QStringList{"press 65 [65=down]", "changed 65 [65=down]"} << "65=down";
    QTest::newRow("press, release") << QStringList{"+65", "-65"}
                                    << QStringList{"press 65 [65=down]", "changed 65 [65=down]",
                                                   "release 65 [65=up]", "changed 65 [65=up]"}
                                    << "65=up";
    QTest::newRow("release without press") << QStringList{"-66"}
                                           << QStringList{"release 66 [66=up]", "changed 66 [66=up]"} << "66=up";
    QTest::newRow("press, auto-repeat") << QStringList{"+65", "*65"}
                                        << QStringList{"press 65 [65=down]", "changed 65 [65=down]",
                                                       "press 65 [65=down]", "changed 65 [65=down]"}
                                        << "65=down";
    QTest::newRow("modifier held, key tapped")
        << QStringList{"+16777248", "+65", "-65"}
        << QStringList{"press 16777248 [16777248=down]", "changed 16777248 [16777248=down]",
                       "press 65 [65=down 16777248=down]", "changed 65 [65=down 16777248=down]",
                       "release 65 [65=up 16777248=down]", "changed 65 [65=up 16777248=down]"}
        << "65=up 16777248=down";
}

// Every key event is consumed; each gives its own signal and then the change,
// both carrying the table as this event left it.
void TstTWEventFilter::keyEvents()
{
    QFETCH(QStringList, events);
    QFETCH(QStringList, signals_);
    QFETCH(QString, finalTable);

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

    for (const QString& e : std::as_const(events)) {
        const bool press = e[0] != u'-';
        QKeyEvent event(press ? QEvent::KeyPress : QEvent::KeyRelease, e.mid(1).toInt(), Qt::NoModifier,
                        QString(), e[0] == u'*');
        QVERIFY(QCoreApplication::sendEvent(&watched, &event)); // consumed
    }
    QCOMPARE(log, signals_);
    QCOMPARE(table(filter.pressedKeys()), finalTable);
    QVERIFY(watched.seen.isEmpty());
    for (const QString& e : std::as_const(events)) {
        const int key = e.mid(1).toInt();
        QCOMPARE(filter.isKeyPressed(key), filter.pressedKeys().value(key));
    }
    QVERIFY(!filter.isKeyPressed(Qt::Key_Z));
    QCOMPARE(table(filter.pressedKeys()), finalTable);
}

void TstTWEventFilter::otherEventsPassThrough()
{
    TWEventFilter filter(QString(), nullptr);
    Watched watched;
    watched.installEventFilter(&filter);
    int changes = 0;
    connect(&filter, &TWEventFilter::evntKeyChanged, this, [&changes] { ++changes; });
    QMouseEvent click(QEvent::MouseButtonPress, QPointF(1, 1), QPointF(1, 1), Qt::LeftButton, Qt::LeftButton,
                      Qt::NoModifier);
    QCoreApplication::sendEvent(&watched, &click);
    QCOMPARE(watched.seen, QList<QEvent::Type>{QEvent::MouseButtonPress});
    QCOMPARE(changes, 0);
    QVERIFY(filter.pressedKeys().isEmpty());
}

QTEST_MAIN(TstTWEventFilter)
#include "tst_tweventfilter.moc"
