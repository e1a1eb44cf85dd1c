#include "twzx7reference.h"

#include <twzx7.h>

#include <QtCore/QRandomGenerator>
#include <QtTest/QTest>

#include <cmath>

using TW::TWZX7;

namespace {

// Writes streams by hand, bit by bit, the way the format lays them out.
struct StreamWriter
{
    explicit StreamWriter(int first) : out(1, char(first)) {}
    QByteArray out;
    qsizetype flagIndex = 0;
    int mask = 0;

    StreamWriter& byte(int b) { out.append(char(b)); return *this; }
    // The low \a count bits of \a value, highest first, into the flag bytes.
    StreamWriter& bits(int value, int count)
    {
        while (count--) {
            if (!mask) {
                mask = 128;
                flagIndex = out.size();
                out.append('\0');
            }
            if ((value >> count) & 1)
                out[flagIndex] = char(out[flagIndex] | mask);
            mask >>= 1;
        }
        return *this;
    }
    StreamWriter& literal(int b) { return bits(0, 1).byte(b); }
    StreamWriter& sequence(int len, int offset)
    {
        const int top = 31 - qCountLeadingZeroBits(quint32(len - 1)), o = offset - 1;
        bits(1, 1).bits(0, top).bits(len - 1, top + 1); // the flag, then the Elias gamma code of len - 1
        return o < 128 ? byte(o) : byte(((o - 128) & 127) | 128).bits((o - 128) >> 7, 4);
    }
    StreamWriter& end() { return bits(1, 1).bits(0, 16).bits(1, 1); }
};

// Random bytes, runs, near-runs, text over a small alphabet, or flat pixels with noise.
QByteArray makeInput(QRandomGenerator& rng, int kind, qsizetype size)
{
    QByteArray out(size, '\0');
    const int period = 1 + rng.bounded(4);
    for (qsizetype k = 0; k < size; ++k) {
        switch (kind) {
        case 0: out[k] = char(rng.bounded(256)); break;
        case 1: out[k] = k && rng.bounded(200) ? out[k - 1] : char(rng.bounded(4)); break;
        case 2: out[k] = rng.bounded(50) ? 'x' : char(rng.bounded(256)); break;
        case 3: out[k] = char("etaoin shrdlu"[rng.bounded(13)]); break;
        default: out[k] = k >= period && rng.bounded(30) ? out[k - period] : char(rng.bounded(256)); break;
        }
    }
    return out;
}

} // namespace

class TstTWZX7 : public QObject
{
    Q_OBJECT

private slots:
    void streams_data()
    {
        QTest::addColumn<QByteArray>("stream");
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<bool>("fromEncoder");
        QTest::newRow("one byte") << QByteArray::fromHex("41 80 00 40") << QByteArray("A") << true;
        QTest::newRow("two bytes") << QByteArray::fromHex("41 40 41 00 20") << QByteArray("AA") << true;
        QTest::newRow("three bytes") << QByteArray::fromHex("41 E0 00 00 10") << QByteArray("AAA") << true;
        QTest::newRow("hundred bytes") << QByteArray::fromHex("41 81 8A 00 00 01") << QByteArray(100, 'A') << true;
        QTest::newRow("repeated pair") << QByteArray::fromHex("41 4F 42 01 00 00 80") << QByteArray("ABABABABAB") << true;

        QTest::newRow("longest length, 15 zeros") << StreamWriter('A').sequence(65536, 1).end().out
                                                  << QByteArray(65537, 'A') << false;
        QTest::newRow("16 zeros end the stream") << StreamWriter('A').end().sequence(5, 1).end().out << QByteArray("A") << false;
        QTest::newRow("offset beyond twice the output") << StreamWriter('A').sequence(2, 3).end().out << QByteArray() << false;
        QTest::newRow("offset before the start") << StreamWriter('A').sequence(2, 2).end().out << QByteArray() << false;
    }

    // Bytes after the end marker are ignored, by both decoders.
    void streams()
    {
        QFETCH(QByteArray, stream);
        QFETCH(QByteArray, data);
        QFETCH(bool, fromEncoder);
        if (fromEncoder) {
            QCOMPARE(TWZX7::compress(data, 0), stream);
            QCOMPARE(TWTest::zx7ReferenceCompress(data, 0).stream, stream);
        }
        QCOMPARE(TWZX7::decompress(stream + QByteArray::fromHex("FF 00 12")), data);
        bool ok = false;
        QCOMPARE(TWZX7::decompress(stream + "trailing junk", 1 << 20, &ok), data);
        QCOMPARE(ok, !data.isEmpty());
    }

    // Offsets reach 2176 and no farther, across the change of form after 128;
    // a run longer than the longest sequence is split.
    void encoderLimits()
    {
        for (int distance : {128, 129, 2176, 2177}) {
            // A block without a repeated byte pair, then its first 40 bytes again.
            QByteArray data;
            for (int a = 0; data.size() < distance; ++a) {
                data.append(char(a));
                for (int b = a + 1; b < 256 && data.size() < distance - 1; ++b)
                    data.append(char(a)).append(char(b));
            }
            data.truncate(distance);
            data += data.left(40);
            const TWTest::Zx7Reference reference = TWTest::zx7ReferenceCompress(data, 0);
            QCOMPARE(TWZX7::compress(data, 0), reference.stream);
            QCOMPARE(TWZX7::decompress(reference.stream), data);
            // The copy's pairs occur only at its distance: as one sequence it adds a few bytes, as literals over 40.
            QCOMPARE(reference.stream.size() < TWZX7::compress(data.left(distance), 0).size() + 10, distance <= 2176);
        }

        QRandomGenerator rng(5);
        const QByteArray data = makeInput(rng, 0, 300) + QByteArray(66000, '\0') + makeInput(rng, 1, 300);
        const QByteArray stream = TWZX7::compress(data, 0);
        QCOMPARE(TWZX7::decompress(stream), data); // a longer sequence would end the stream early
#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__)
        QCOMPARE(stream, TWTest::zx7ReferenceCompress(data, 0).stream); // which takes minutes in slower builds
#endif
    }

    void skip()
    {
        QRandomGenerator rng(7);
        const QByteArray data = makeInput(rng, 4, 3000);
        QCOMPARE(TWZX7::compress(data, 2999), data.right(1) + QByteArray::fromHex("80 00 40"));
        QVERIFY(TWZX7::compress(data, -1).isEmpty() && TWZX7::compress(data, 3000).isEmpty());
        QVERIFY(TWZX7::compress(QByteArray(), 0).isEmpty());
    }

    // The fast encoder against the literal one, the stream length against the cost, and the way back.
    void matchesReference()
    {
        QRandomGenerator rng(2024);
        const int count = qEnvironmentVariableIsEmpty("TW_SLOW_TESTS") ? 3000 : 30000;
        for (int n = 0; n < count; ++n) {
            const int kind = n % 5;
            const QByteArray data = makeInput(rng, kind, 1 + rng.bounded(n % 10 ? 400 : 6000));
            const int skip = n % 3 ? 0 : rng.bounded(int(data.size()));
            const TWTest::Zx7Reference reference = TWTest::zx7ReferenceCompress(data, skip);
            QCOMPARE(reference.stream.size(), qsizetype((reference.bits + 25) / 8));
            if (TWZX7::compress(data, skip) != reference.stream || (!skip && TWZX7::decompress(reference.stream) != data))
                QFAIL(qPrintable(QStringLiteral("input %1 (kind %2, %3 bytes, skip %4) differs").arg(n).arg(kind).arg(data.size()).arg(skip)));
        }
    }

    // Inputs past 64 KiB, where the encoder's tables wrap their positions and
    // a pair's run of occurrences can begin further back than they can tell.
    void matchesReferenceOnLongInputs_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("skip");
        QTest::newRow("random bytes") << 0 << 200000 << 0;
        QTest::newRow("runs and near-runs") << 1 << 150000 << 0;
        QTest::newRow("one byte with noise") << 2 << 150000 << 0;
        QTest::newRow("small alphabet: endless runs of each pair") << 3 << 150000 << 0;
        QTest::newRow("short periods with noise") << 4 << 150000 << 0;
        QTest::newRow("skip past 64 KiB") << 3 << 150000 << 100000;
        QTest::newRow("skip just past a table wrap") << 0 << 140000 << 65537;
    }

    void matchesReferenceOnLongInputs()
    {
        QFETCH(int, kind);
        QFETCH(int, size);
        QFETCH(int, skip);
        QRandomGenerator rng(quint32(7 + kind));
        const QByteArray data = makeInput(rng, kind, size);
        QCOMPARE(TWZX7::compress(data, skip), TWTest::zx7ReferenceCompress(data, skip).stream);
    }

    void roundTrips()
    {
        QRandomGenerator rng(99);
        for (int n = 0; n < 1200; ++n) {
            const qsizetype size = n % 100 ? qsizetype(std::exp(rng.generateDouble() * std::log(300000.0))) : 300000;
            const QByteArray data = makeInput(rng, n % 5, size);
            const QByteArray back = TWZX7::decompress(TWZX7::compress(data, 0));
            if (back != data)
                QFAIL(qPrintable(QStringLiteral("input %1 (%2 bytes) does not come back").arg(n).arg(size)));
            // The decoder's working room is not kept by the result.
            if (back.capacity() > back.size() + back.size() / 8 + 64)
                QFAIL(qPrintable(QStringLiteral("input %1 keeps %2 bytes for %3").arg(n).arg(back.capacity()).arg(size)));
        }
    }

    // Every short offset with every length, in the middle of a long stream,
    // against a byte-by-byte copy; and output limits at and just below the size.
    void shortPatterns()
    {
        StreamWriter w('a');
        QByteArray expected("a");
        for (int k = 1; k < 20; ++k) {
            w.literal('a' + k);
            expected.append(char('a' + k));
        }
        for (int offset = 1; offset <= 17; ++offset) {
            for (int len = 2; len <= 40; ++len) {
                w.sequence(len, offset);
                for (int k = 0; k < len; ++k)
                    expected.append(expected.at(expected.size() - offset));
                w.literal(len);
                expected.append(char(len));
            }
        }
        const QByteArray stream = w.end().out;
        QCOMPARE(TWZX7::decompress(stream), expected);
        bool ok = false;
        for (qsizetype limit = expected.size() - 40; limit <= expected.size(); ++limit)
            QCOMPARE(TWZX7::decompress(stream, limit, &ok).size(), limit == expected.size() ? limit : 0);
    }

    void boundedDecoderOnDamagedStreams()
    {
        QRandomGenerator rng(11);
        const QByteArray data = makeInput(rng, 3, 5000);
        const QByteArray stream = TWZX7::compress(data, 0);
        bool ok = false;
        QVERIFY(TWZX7::decompress(stream, data.size(), &ok) == data && ok);
        QVERIFY(TWZX7::decompress(stream, data.size() - 1, &ok).isEmpty() && !ok);
        for (qsizetype cut = 0; cut < stream.size(); ++cut)
            QVERIFY(TWZX7::decompress(stream.left(cut), 1 << 20, &ok).isEmpty() && !ok);
        QVERIFY(TWZX7::decompress(stream, 1 << 20, nullptr) == data);

        // A stream that claims gigabytes from a few bytes stops at the limit.
        StreamWriter w(0);
        for (int k = 0; k < 20000; ++k)
            w.sequence(65536, 1);
        QVERIFY(TWZX7::decompress(w.end().out, 1 << 24, &ok).isEmpty() && !ok);

        // Random bytes: whatever they say, the answer is bounded and honest.
        for (int n = 0; n < 2000; ++n) {
            const QByteArray noise = makeInput(rng, n % 5, rng.bounded(64));
            const QByteArray out = TWZX7::decompress(noise, 4096, &ok);
            QVERIFY(ok ? out.size() <= 4096 && TWZX7::decompress(noise) == out : out.isEmpty());
        }
    }
};

QTEST_GUILESS_MAIN(TstTWZX7)
#include "tst_twzx7.moc"
