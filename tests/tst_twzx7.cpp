#include <twzx7.h>

#include <QtCore/QRandomGenerator>
#include <QtTest/QTest>

#include <cmath>
#include <vector>

using TW::TWZX7;

namespace {

// Writes streams by hand, bit by bit, the way the format lays them out.
struct StreamWriter
{
    QByteArray out;
    qsizetype flagIndex = 0;
    int mask = 0;

    void byte(int b) { out.append(char(b)); }
    void bit(int b)
    {
        if (!mask) {
            mask = 128;
            flagIndex = out.size();
            out.append('\0');
        }
        if (b)
            out[flagIndex] = char(out[flagIndex] | mask);
        mask >>= 1;
    }
    void gamma(int v)
    {
        const int top = 31 - qCountLeadingZeroBits(quint32(v));
        for (int k = 0; k < top; ++k)
            bit(0);
        for (int k = top; k >= 0; --k)
            bit((v >> k) & 1);
    }
    void literal(int b) { bit(0); byte(b); }
    void sequence(int len, int offset)
    {
        bit(1);
        gamma(len - 1);
        const int o = offset - 1;
        byte(o < 128 ? o : ((o - 128) & 127) | 128);
        for (int k = 10; o >= 128 && k >= 7; --k)
            bit(((o - 128) >> k) & 1);
    }
    void end() { bit(1); for (int k = 0; k < 16; ++k) bit(0); bit(1); }
};

// The encoder's search and writer step by step, as plainly as they can be
// written: the reference that TWZX7::compress must match bit for bit. It costs
// every length of every match, so keep long runs out of it.
QByteArray referenceCompress(const QByteArray& data, int skip, quint64* lastBits = nullptr)
{
    struct Rec { quint64 bits = 0; int offset = 0; int len = 0; };
    const int n = int(data.size());
    const auto in = reinterpret_cast<const uchar*>(data.constData());
    std::vector<Rec> opt(n);
    std::vector<int> minPos(2177), maxPos(2177), matches(65536), chain(n);
    const auto gammaBits = [](int v) { int b = 1; while (v > 1) { b += 2; v >>= 1; } return b; };
    int i = 1;
    for (; i <= skip; ++i) {
        const int pair = in[i - 1] << 8 | in[i];
        chain[i] = matches[pair];
        matches[pair] = i;
    }
    opt[skip].bits = 8;
    for (; i < n; ++i) {
        opt[i].bits = opt[i - 1].bits + 9;
        const int pair = in[i - 1] << 8 | in[i];
        int best = 1;
        for (int c = matches[pair]; c != 0 && best < 65536; c = chain[c]) {
            const int off = i - c;
            if (off > 2176)
                break;
            int len = 2;
            for (; len <= 65536 && i >= skip + len; ++len) {
                if (len > best) {
                    best = len;
                    const quint64 bits = opt[i - len].bits + 1 + (off > 128 ? 12 : 8) + gammaBits(len - 1);
                    if (opt[i].bits > bits)
                        opt[i] = {bits, off, len};
                } else if (maxPos[off] != 0 && i + 1 == maxPos[off] + len) {
                    len = std::min(i - minPos[off], best);
                }
                if (i < off + len || in[i - len] != in[i - len - off])
                    break;
            }
            minPos[off] = i + 1 - len;
            maxPos[off] = i;
        }
        chain[i] = matches[pair];
        matches[pair] = i;
    }
    if (lastBits)
        *lastBits = opt[n - 1].bits;

    std::vector<int> starts; // last position of each token, back to front
    for (int pos = n - 1; pos > skip; pos -= opt[pos].len ? opt[pos].len : 1)
        starts.push_back(pos);
    StreamWriter w;
    w.byte(in[skip]);
    for (auto it = starts.rbegin(); it != starts.rend(); ++it) {
        if (opt[*it].len)
            w.sequence(opt[*it].len, opt[*it].offset);
        else
            w.literal(in[*it]);
    }
    w.end();
    return w.out;
}

// The sequences of a stream, as (length, offset) pairs.
QList<QPair<int, int>> sequencesOf(const QByteArray& stream)
{
    QList<QPair<int, int>> out;
    qsizetype index = 1;
    int mask = 0, value = 0;
    const auto byte = [&] { return uchar(stream.at(index++)); };
    const auto bit = [&] { if (!(mask >>= 1)) { mask = 128; value = byte(); } return (value & mask) ? 1 : 0; };
    while (true) {
        if (!bit()) { byte(); continue; }
        int zeros = 0, len = 1;
        while (!bit()) ++zeros;
        if (zeros > 15)
            return out;
        while (zeros--) len = len << 1 | bit();
        int offset = byte();
        if (offset >= 128) {
            int high = 0;
            for (int k = 0; k < 4; ++k) high = high << 1 | bit();
            offset = ((high << 7) | (offset & 127)) + 128;
        }
        out.append({len + 1, offset + 1});
    }
}

// Inputs of several kinds: random bytes, runs, near-runs (runs with stray
// bytes), text over a small alphabet, and flat pixels with noise.
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
    void streamExamples_data();
    void streamExamples();
    void handBuiltStreams_data();
    void handBuiltStreams();
    void offsets_data();
    void offsets();
    void longRunIsSplit();
    void skip();
    void matchesReference();
    void matchesReferenceOnLongRun_data();
    void matchesReferenceOnLongRun();
    void roundTrips();
    void boundedDecoderOnDamagedStreams();
};

void TstTWZX7::streamExamples_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("stream");
    QTest::newRow("one byte") << QByteArray("A") << QByteArray::fromHex("41 80 00 40");
    QTest::newRow("two bytes") << QByteArray("AA") << QByteArray::fromHex("41 40 41 00 20");
    QTest::newRow("three bytes") << QByteArray("AAA") << QByteArray::fromHex("41 E0 00 00 10");
    QTest::newRow("hundred bytes") << QByteArray(100, 'A') << QByteArray::fromHex("41 81 8A 00 00 01");
    QTest::newRow("repeated pair") << QByteArray("ABABABABAB") << QByteArray::fromHex("41 4F 42 01 00 00 80");
}

void TstTWZX7::streamExamples()
{
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, stream);
    QCOMPARE(TWZX7::compress(data, 0), stream);
    QCOMPARE(TWZX7::decompress(stream), data);
    bool ok = false;
    QCOMPARE(TWZX7::decompress(stream + "trailing junk", data.size(), &ok), data);
    QVERIFY(ok);
}

void TstTWZX7::handBuiltStreams_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<QByteArray>("data");

    StreamWriter w;
    w.byte('A'); w.sequence(65536, 1); w.end(); // length code with 15 leading zeros
    QTest::newRow("longest length") << w.out << QByteArray(65537, 'A');

    w = {};
    w.byte('A'); w.bit(1); for (int k = 0; k < 16; ++k) w.bit(0); w.bit(1); w.sequence(5, 1); w.end();
    QTest::newRow("16 zeros end the stream") << w.out << QByteArray("A");

    w = {};
    w.byte('A'); w.bit(1); for (int k = 0; k < 20; ++k) w.bit(0); w.bit(1);
    QTest::newRow("more zeros end it too") << w.out << QByteArray("A");

    QByteArray data;
    w = {};
    w.byte(0);
    for (int k = 1; k < 2200; ++k)
        w.literal(k * 7 % 251);
    for (int k = 0; k < 2200; ++k)
        data.append(char(k * 7 % 251));
    for (int offset : {128, 129, 2176, 1, 1000}) {
        w.sequence(3, offset);
        for (int k = 0; k < 3; ++k)
            data.append(data.at(data.size() - offset));
    }
    w.end();
    QTest::newRow("offsets 128, 129, 2176") << w.out << data;

    w = {};
    w.byte('A'); w.sequence(2, 3); w.end();
    QTest::newRow("offset beyond twice the output") << w.out << QByteArray();
    w = {};
    w.byte('A'); w.sequence(2, 2); w.end();
    QTest::newRow("offset before the start") << w.out << QByteArray();
}

void TstTWZX7::handBuiltStreams()
{
    QFETCH(QByteArray, stream);
    QFETCH(QByteArray, data);
    QCOMPARE(TWZX7::decompress(stream), data);
    QCOMPARE(TWZX7::decompress(stream + QByteArray::fromHex("FF 00 12")), data);
    bool ok = false;
    QCOMPARE(TWZX7::decompress(stream, 1 << 20, &ok), data);
    QCOMPARE(ok, !data.isEmpty());
}

void TstTWZX7::offsets_data()
{
    QTest::addColumn<int>("distance");
    QTest::addColumn<int>("expected");
    for (int d : {128, 129, 2176})
        QTest::addRow("%d", d) << d << d;
    QTest::newRow("2177 is out of reach") << 2177 << 0;
}

void TstTWZX7::offsets()
{
    // A block without a repeated byte pair, then its first 40 bytes again.
    QFETCH(int, distance);
    QFETCH(int, expected);
    QByteArray data;
    for (int a = 0; data.size() < distance; ++a) {
        data.append(char(a));
        for (int b = a + 1; b < 256 && data.size() < distance - 1; ++b)
            data.append(char(a)).append(char(b));
    }
    data.truncate(distance);
    data += data.left(40);
    const QByteArray stream = TWZX7::compress(data, 0);
    QCOMPARE(stream, referenceCompress(data, 0));
    QCOMPARE(TWZX7::decompress(stream), data);
    int farthest = 0;
    for (const auto& s : sequencesOf(stream))
        farthest = std::max(farthest, s.second);
    QCOMPARE(farthest >= distance ? farthest : 0, expected);
}

void TstTWZX7::longRunIsSplit()
{
    const QByteArray data = QByteArray(5, 'x') + QByteArray(200000, 'A') + "tail";
    const QByteArray stream = TWZX7::compress(data, 0);
    QCOMPARE(TWZX7::decompress(stream), data);
    int longest = 0;
    for (const auto& s : sequencesOf(stream))
        longest += s.first == 65536;
    QCOMPARE(longest, 3);
}

void TstTWZX7::skip()
{
    QRandomGenerator rng(7);
    const QByteArray data = makeInput(rng, 4, 3000);
    for (int skip : {0, 1, 2, 1500, 2998, 2999})
        QCOMPARE(TWZX7::compress(data, skip), referenceCompress(data, skip));
    QCOMPARE(TWZX7::compress(data, 2999), data.right(1) + QByteArray::fromHex("80 00 40"));
    // A skip that keeps sequences out of the prefix still expands on its own.
    QCOMPARE(TWZX7::decompress(TWZX7::compress("0123456789" "abcabcabcabc", 10)), QByteArray("abcabcabcabc"));
    QVERIFY(TWZX7::compress(data, -1).isEmpty());
    QVERIFY(TWZX7::compress(data, 3000).isEmpty());
    QVERIFY(TWZX7::compress(QByteArray(), 0).isEmpty());
}

void TstTWZX7::matchesReference()
{
    QRandomGenerator rng(2024);
    const int count = qEnvironmentVariableIsEmpty("TW_SLOW_TESTS") ? 3000 : 30000;
    for (int n = 0; n < count; ++n) {
        const int kind = n % 5;
        const QByteArray data = makeInput(rng, kind, 1 + rng.bounded(n % 10 ? 400 : 6000));
        const int skip = n % 3 ? 0 : rng.bounded(int(data.size()));
        quint64 bits = 0;
        const QByteArray expected = referenceCompress(data, skip, &bits);
        QCOMPARE(expected.size(), qsizetype((bits + 25) / 8));
        const QByteArray stream = TWZX7::compress(data, skip);
        if (stream != expected)
            QFAIL(qPrintable(QStringLiteral("input %1 (kind %2, %3 bytes, skip %4) differs").arg(n).arg(kind).arg(data.size()).arg(skip)));
    }
}

void TstTWZX7::matchesReferenceOnLongRun_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<int>("skip");
    QTest::addColumn<bool>("slow");
    QRandomGenerator rng(5);
    QTest::newRow("zeros") << makeInput(rng, 0, 300) + QByteArray(66000, '\0') + makeInput(rng, 1, 300) << 0 << false;
    QByteArray flat = QByteArray("RGB").repeated(23000);
    flat[1000] = 'x';
    QTest::newRow("flat pixels, skip") << makeInput(rng, 3, 3000) + flat << 2900 << true;
}

void TstTWZX7::matchesReferenceOnLongRun()
{
    QFETCH(QByteArray, data);
    QFETCH(int, skip);
    QFETCH(bool, slow);
#if defined(__SANITIZE_ADDRESS__) || !defined(NDEBUG)
    QSKIP("The reference takes minutes on a run of 65536 bytes in this build.");
#endif
    if (slow && qEnvironmentVariableIsEmpty("TW_SLOW_TESTS"))
        QSKIP("Set TW_SLOW_TESTS to run it too.");
    QCOMPARE(TWZX7::compress(data, skip), referenceCompress(data, skip));
}

void TstTWZX7::roundTrips()
{
    QRandomGenerator rng(99);
    for (int n = 0; n < 1200; ++n) {
        const qsizetype size = n % 100 ? qsizetype(std::exp(rng.generateDouble() * std::log(300000.0))) - 1 : 300000;
        const QByteArray data = makeInput(rng, n % 5, size);
        const QByteArray stream = TWZX7::compress(data, 0);
        QCOMPARE(stream.isEmpty(), data.isEmpty());
        if (!data.isEmpty() && TWZX7::decompress(stream) != data)
            QFAIL(qPrintable(QStringLiteral("input %1 (%2 bytes) does not come back").arg(n).arg(size)));
    }
}

void TstTWZX7::boundedDecoderOnDamagedStreams()
{
    QRandomGenerator rng(11);
    const QByteArray data = makeInput(rng, 3, 5000);
    const QByteArray stream = TWZX7::compress(data, 0);
    bool ok = false;
    QCOMPARE(TWZX7::decompress(stream, data.size(), &ok), data);
    QVERIFY(ok);
    QVERIFY(TWZX7::decompress(stream, data.size() - 1, &ok).isEmpty());
    QVERIFY(!ok);
    for (qsizetype cut = 0; cut < stream.size(); ++cut) {
        QVERIFY(TWZX7::decompress(stream.left(cut), 1 << 20, &ok).isEmpty());
        QVERIFY(!ok);
    }

    // A stream that claims gigabytes from a few bytes stops at the limit.
    StreamWriter w;
    w.byte(0);
    for (int k = 0; k < 20000; ++k)
        w.sequence(65536, 1);
    w.end();
    QVERIFY(TWZX7::decompress(w.out, 1 << 24, &ok).isEmpty());
    QVERIFY(!ok);

    // Random bytes: whatever they say, the answer is bounded and honest.
    for (int n = 0; n < 2000; ++n) {
        const QByteArray noise = makeInput(rng, n % 5, rng.bounded(64));
        const QByteArray out = TWZX7::decompress(noise, 4096, &ok);
        QVERIFY(ok ? !out.isEmpty() && out.size() <= 4096 : out.isEmpty());
        if (ok)
            QCOMPARE(TWZX7::decompress(noise), out);
    }
    QVERIFY(TWZX7::decompress(stream, 1 << 20, nullptr) == data);
}

QTEST_GUILESS_MAIN(TstTWZX7)
#include "tst_twzx7.moc"
