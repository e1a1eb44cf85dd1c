// Names per second through TWUtils::isMatchWildcard for typical file-name
// patterns over 100 000 generated names, beside QRegularExpression with the
// same patterns turned into anchored expressions once, up front
// (QRegularExpression::wildcardToRegularExpression).
#include <twutils.h>

#include <QtCore/QList>
#include <QtCore/QRandomGenerator>
#include <QtCore/QRegularExpression>
#include <QtCore/QStringList>

#include <benchmark/benchmark.h>

namespace {

struct PatternCase
{
    QString patterns;
    Qt::CaseSensitivity cs;
};

const QList<PatternCase>& patternCases()
{
    static const QList<PatternCase> cases{
        {QStringLiteral("*.txt"), Qt::CaseSensitive},
        {QStringLiteral("*.cpp;*.h;*.hpp"), Qt::CaseInsensitive},
        {QStringLiteral("img_????.png"), Qt::CaseSensitive},
        {QStringLiteral("*report*2023*.pdf"), Qt::CaseInsensitive},
    };
    return cases;
}

// File names of 5 to 40 characters: words, digits and separators with a
// common extension, a fixed seed so that every run sees the same names.
const QStringList& names()
{
    static const QStringList list = [] {
        const QStringList words{QStringLiteral("img"), QStringLiteral("report"), QStringLiteral("Report"),
                                QStringLiteral("main"), QStringLiteral("notes"), QStringLiteral("2023"),
                                QStringLiteral("2024"), QStringLiteral("draft"), QStringLiteral("final"),
                                QStringLiteral("data"), QStringLiteral("TWUtils"), QStringLiteral("x")};
        const QStringList extensions{QStringLiteral(".txt"), QStringLiteral(".TXT"), QStringLiteral(".cpp"),
                                     QStringLiteral(".h"),   QStringLiteral(".png"), QStringLiteral(".pdf"),
                                     QStringLiteral(".PDF"), QStringLiteral(".log"), QStringLiteral(".hpp")};
        QRandomGenerator random(12345);
        QStringList result;
        result.reserve(100000);
        for (int i = 0; i < 100000; ++i) {
            QString name;
            if (random.bounded(8) == 0) {
                name = QStringLiteral("img_%1").arg(random.bounded(100000), 4, 10, QLatin1Char('0'));
            } else {
                for (int w = random.bounded(1, 4); w > 0; --w) {
                    if (!name.isEmpty())
                        name += random.bounded(2) ? QLatin1Char('_') : QLatin1Char('-');
                    name += words.at(random.bounded(int(words.size())));
                }
            }
            name += extensions.at(random.bounded(int(extensions.size())));
            result.append(name);
        }
        return result;
    }();
    return list;
}

QList<QRegularExpression> regexesFor(const PatternCase& pc)
{
    QList<QRegularExpression> result;
    const auto options = pc.cs == Qt::CaseSensitive ? QRegularExpression::NoPatternOption
                                                    : QRegularExpression::CaseInsensitiveOption;
    for (const QString& p : pc.patterns.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        result.append(QRegularExpression(QRegularExpression::wildcardToRegularExpression(p), options));
        result.last().optimize();
    }
    return result;
}

bool regexMatch(const QList<QRegularExpression>& regexes, const QString& name)
{
    for (const QRegularExpression& re : regexes) {
        if (re.match(name).hasMatch())
            return true;
    }
    return false;
}

// Both matchers must agree on the generated names, or the figures compare
// different work.
bool sameAnswers(const PatternCase& pc, const QList<QRegularExpression>& regexes, qsizetype* hits)
{
    *hits = 0;
    for (const QString& name : names()) {
        const bool ours = TW::TWUtils::isMatchWildcard(name, pc.patterns, pc.cs);
        if (ours != regexMatch(regexes, name))
            return false;
        *hits += ours;
    }
    return true;
}

void setUp(benchmark::State& state, const PatternCase& pc, const QList<QRegularExpression>& regexes)
{
    qsizetype hits = 0;
    if (!sameAnswers(pc, regexes, &hits)) {
        state.SkipWithError("the two matchers disagree");
        return;
    }
    state.SetLabel(QStringLiteral("%1 (%2, %3 hits)")
                       .arg(pc.patterns, pc.cs == Qt::CaseSensitive ? QStringLiteral("cs") : QStringLiteral("ci"),
                            QString::number(hits))
                       .toStdString());
}

void BM_TWUtilsIsMatchWildcard(benchmark::State& state)
{
    const PatternCase& pc = patternCases().at(int(state.range(0)));
    setUp(state, pc, regexesFor(pc));
    const QStringList& list = names();
    for (auto _ : state) {
        for (const QString& name : list)
            benchmark::DoNotOptimize(TW::TWUtils::isMatchWildcard(name, pc.patterns, pc.cs));
    }
    state.SetItemsProcessed(state.iterations() * list.size());
}
BENCHMARK(BM_TWUtilsIsMatchWildcard)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

void BM_QRegularExpressionWildcard(benchmark::State& state)
{
    const PatternCase& pc = patternCases().at(int(state.range(0)));
    const QList<QRegularExpression> regexes = regexesFor(pc);
    setUp(state, pc, regexes);
    const QStringList& list = names();
    for (auto _ : state) {
        for (const QString& name : list)
            benchmark::DoNotOptimize(regexMatch(regexes, name));
    }
    state.SetItemsProcessed(state.iterations() * list.size());
}
BENCHMARK(BM_QRegularExpressionWildcard)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
