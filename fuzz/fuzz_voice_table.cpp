// Feeds arbitrary bytes to TWVoiceUtils::loadFrequencyTable as a table file,
// then maps frequencies through whatever it loaded: at, between and around
// its keys, and far outside. Checks that a refusal carries one of the three
// messages, that a table never holds more pairs than the text has lines, and
// that a frequency between two loaded neighbours maps between their targets.
#include <twutils.h>
#include <twvoiceutils.h>

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace {

class SilentLogger : public TWLoggerIface
{
public:
    bool writeLog(const QString&, QtMsgType, const QString&, int, const QString&) override { return true; }
    bool writeLog(QtMsgType, const QMessageLogContext&, const QString&) override { return true; }
};

const QString& tablePath()
{
    static QTemporaryDir* dir = [] {
        static SilentLogger logger; // a failed read would otherwise go to qDebug()
        TW::TWUtils::setLogger(&logger);
        return new QTemporaryDir;
    }();
    static const QString path = dir->filePath(QStringLiteral("table.txt"));
    return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    {
        QFile file(tablePath());
        if (!file.open(QIODevice::WriteOnly) || file.write(reinterpret_cast<const char*>(data), qint64(size)) != qint64(size))
            std::abort();
    }
    std::map<double, double> table;
    QString error;
    const bool ok = TW::TWVoiceUtils::loadFrequencyTable(tablePath(), table, error);
    if (ok != error.isEmpty())
        std::abort();
    if (!ok && !error.startsWith(QLatin1String("Invalid format in line: "))
        && !error.startsWith(QLatin1String("Invalid frequnecy value: ")))
        std::abort();
    if (table.size() > size_t(std::count(data, data + size, '\n') + std::count(data, data + size, '\r')) + 1)
        std::abort();

    const double inf = std::numeric_limits<double>::infinity();
    double previousKey = -inf, previousValue = 0.0;
    int index = 0;
    for (const auto& [key, value] : table) {
        for (const double f : {key, std::nextafter(key, -inf), std::nextafter(key, inf), (key + previousKey) / 2})
            TW::TWVoiceUtils::convertFrequency(f, table);
        // Past the first interval, a point between two neighbours maps
        // between their targets (when both are finite numbers).
        const double middle = previousKey + (key - previousKey) / 2;
        if (index >= 2 && middle > previousKey && middle < key && std::isfinite(value - previousValue)) {
            const double mapped = TW::TWVoiceUtils::convertFrequency(middle, table);
            const double slack = 1e-9 * (std::abs(value) + std::abs(previousValue));
            if (mapped < std::min(value, previousValue) - slack || mapped > std::max(value, previousValue) + slack)
                std::abort();
        }
        previousKey = key, previousValue = value;
        ++index;
    }
    for (const double f : {-inf, inf, std::numeric_limits<double>::quiet_NaN(), 0.0, 440.0})
        TW::TWVoiceUtils::convertFrequency(f, table);
    return 0;
}
