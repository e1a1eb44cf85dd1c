#include <twlogger.h>
#include <twobject.h>

#include "twtestsupport.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

#include <memory>

using TW::TWObject;

namespace {

// Exposes the protected reporting operations, as a derived class of a host would use them.
class Probe : public TWObject
{
public:
    using TWObject::TWObject;
    void fail(const QString& msg) { _setLastError(msg, QStringLiteral("probe.cpp"), 42, QStringLiteral("void fail()")); }
    bool remark(const QString& msg) { return _writeLog(msg, QtWarningMsg, TW_SOURCE_LOCATION); }
    void reset() { _resetLastError(); }
};

// Catches what _setLastError sends through the virtual _writeLog, and fails to log it.
struct Intercepting : Probe
{
    QStringList seen;
    bool _writeLog(const QString& msg, QtMsgType, const QString&, int, const QString&) override
    {
        seen << msg;
        return false;
    }
};

} // namespace

class TstTWObject : public QObject
{
    Q_OBJECT

private slots:
    void namesAreNumberedOnCollision()
    {
        auto a = std::make_unique<Probe>(QStringLiteral("Q"));
        auto b = std::make_unique<Probe>(QStringLiteral("Q"));
        Probe c(QStringLiteral("Q"));
        Probe first, second;
        QCOMPARE(QStringList({a->name(), b->name(), c.name(), first.name(), second.name()}),
                 QStringList({"Q", "Q00001", "Q00002", "TWObject00000", "TWObject00001"}));

        b.reset();
        Probe d(QStringLiteral("Q"));
        QCOMPARE(d.name(), QStringLiteral("Q00001")); // the freed number comes back first

        // Renaming to empty frees the old name and takes a generated one.
        QCOMPARE(a->setName(QString()), QStringLiteral("TWObject00002"));
        Probe again(QStringLiteral("Q"));
        QCOMPARE(again.name(), QStringLiteral("Q"));

        // A rename to its own name collides with itself: the next number, then
        // the plain name again, which that step freed; a numbered name gets a second number.
        Probe foo(QStringLiteral("Foo")), numbered(QStringLiteral("R00001"));
        QCOMPARE(foo.setName(QStringLiteral("Foo")), QStringLiteral("Foo00001"));
        QCOMPARE(foo.setName(QStringLiteral("Foo")), QStringLiteral("Foo"));
        QCOMPARE(numbered.setName(QStringLiteral("R00001")), QStringLiteral("R0000100001"));
    }

    void copiesShareTheName()
    {
        TWTest::RecordingLogger logger;
        auto source = std::make_unique<Probe>(QStringLiteral("Shared"));
        source->setLogger(&logger);
        source->fail(QStringLiteral("boom"));
        {
            Probe copy(*source);
            QCOMPARE(copy.name(), QStringLiteral("Shared"));
            QCOMPARE(copy.lastErrorStr(), QStringLiteral("boom"));
        }
        // The copy's destruction removed the one registry entry, so the name is free
        // again although the source still holds it.
        Probe newcomer(QStringLiteral("Shared"));
        QCOMPARE(newcomer.name(), QStringLiteral("Shared"));
        QCOMPARE(source->name(), QStringLiteral("Shared"));

        // Assignment takes the name over and leaves the old entry registered.
        Probe target(QStringLiteral("Target"));
        target = *source;
        QCOMPARE(target.name(), QStringLiteral("Shared"));
        Probe other(QStringLiteral("Target"));
        QCOMPARE(other.name(), QStringLiteral("Target00001"));
    }

    void concurrentNamingStaysUnique()
    {
        constexpr int Threads = 4, PerThread = 200;
        std::vector<std::unique_ptr<Probe>> objects[Threads];
        QVERIFY(TWTest::runThreads(Threads, [&objects](int t) {
            for (int i = 0; i < PerThread; ++i)
                objects[t].push_back(std::make_unique<Probe>(QStringLiteral("Busy")));
        }));
        QSet<QString> names;
        for (auto& list : objects)
            for (auto& object : list)
                names.insert(object->name());
        QCOMPARE(names.size(), Threads * PerThread);
        QVERIFY(names.contains(QStringLiteral("Busy")));
        QVERIFY(names.contains(QStringLiteral("Busy00799")));
    }

    void lastErrorIsNeverCleared()
    {
        TWTest::RecordingLogger logger;
        Probe probe(QStringLiteral("Errors"));
        probe.setLogger(&logger);
        QVERIFY(!probe.isThereError());

        probe.fail(QStringLiteral("first failure"));
        QVERIFY(probe.isThereError());
        probe.remark(QStringLiteral("a later remark"));
        QCOMPARE(probe.lastErrorStr(), QStringLiteral("first failure"));

        // An empty text leaves no error standing, yet the critical line is logged.
        probe.fail(QString());
        QVERIFY(!probe.isThereError());
        QStringList seen;
        for (const TWTest::LogRecord& r : logger.records())
            seen << QStringLiteral("%1 %2 %3 %4").arg(r.type).arg(QFileInfo(r.file).fileName()).arg(r.line > 0)
                        .arg(r.function.contains(QLatin1String("Probe::remark(")) ? QStringLiteral("remark") : r.function);
        QCOMPARE(seen, QStringList({"2 probe.cpp 1 void fail()", "1 tst_twobject.cpp 1 remark", "2 probe.cpp 1 void fail()"}));
        QCOMPARE(logger.messages().last(), QString());

        probe.fail(QStringLiteral("again"));
        probe.reset();
        QVERIFY(!probe.isThereError());

        // A derived _writeLog sees the error, which stands although it was not logged.
        Intercepting intercepting;
        intercepting.fail(QStringLiteral("caught"));
        QVERIFY(intercepting.seen == QStringList{QStringLiteral("caught")} && intercepting.lastErrorStr() == QLatin1String("caught"));
    }

    void reportsGoToOwnOrGlobalLogger()
    {
        TWTest::TempWorkDir dir;
        TW::TWLogger* global = TW::TWLogger::globalInstance();
        global->setFilePath(dir.path());
        global->setConsoleOutput(false);

        TWTest::RecordingLogger own;
        Probe probe(QStringLiteral("Routed"));
        probe.setLogger(&own);
        probe.fail(QStringLiteral("to my own logger"));
        QCOMPARE(own.messages(), QStringList{QStringLiteral("to my own logger")});
        QCOMPARE(dir.files(), QStringList());

        probe.setLogger(nullptr);
        probe.fail(QStringLiteral("to the global logger"));
        QCOMPARE(own.messages().size(), 1);
        const QByteArray written = dir.readFile(QStringLiteral("twoutput_0000.log"));
        QVERIFY(written.contains("CRITICAL - to the global logger"));
        global->setFilePath(QStringLiteral("."));
    }
};

QTEST_GUILESS_MAIN(TstTWObject)
#include "tst_twobject.moc"
