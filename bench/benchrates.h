#ifndef TWBENCHRATES_H
#define TWBENCHRATES_H

// The benchmarks that set the library beside a peer print the usual table and
// then one line per input with both rates and their ratio. This reporter
// keeps what those lines need: the median of one rate counter for each
// benchmark name, or the single value when a run was not repeated. It also
// holds the two small helpers those benchmarks share: a median and the load
// average, printed beside the ratios since the rows are only as steady as the
// machine.

#include <QtCore/QByteArray>
#include <QtCore/QFile>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace TWBench {

// The middle value, or the mean of the two middle ones; 0 for none.
inline double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// The system's load averages over 1, 5 and 15 minutes, or "?".
inline QByteArray loadAverage()
{
    QFile file(QStringLiteral("/proc/loadavg"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().split(' ').mid(0, 3).join(' ') : QByteArray("?");
}

class MedianRates : public benchmark::ConsoleReporter
{
public:
    explicit MedianRates(std::string counter) : _counter(std::move(counter)) {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const bool aggregate = run.run_type == Run::RT_Aggregate;
            if ((aggregate && run.aggregate_name != "median") || (!aggregate && run.repetitions > 1) || run.error_occurred)
                continue;
            const auto rate = run.counters.find(_counter);
            if (rate != run.counters.end())
                rates[run.run_name.function_name] = rate->second.value;
        }
    }

    /*!
     * The rates of the names that start with \a prefix, grouped by what
     * stands between the prefix and the last '/' (the input), then by what
     * follows it (the side): "<prefix><input>/<side>".
     */
    std::map<std::string, std::map<std::string, double>> bySide(const std::string& prefix = std::string()) const
    {
        std::map<std::string, std::map<std::string, double>> grouped;
        for (const auto& [name, rate] : rates) {
            const auto slash = name.rfind('/');
            if (slash != std::string::npos && slash >= prefix.size() && name.compare(0, prefix.size(), prefix) == 0)
                grouped[name.substr(prefix.size(), slash - prefix.size())][name.substr(slash + 1)] = rate;
        }
        return grouped;
    }

    std::map<std::string, double> rates;

private:
    std::string _counter;
};

} // namespace TWBench

#endif // TWBENCHRATES_H
