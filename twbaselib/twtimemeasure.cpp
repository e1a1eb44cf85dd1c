#include "twtimemeasure.h"

namespace TW {

TWTimeMeasure::TWTimeMeasure(const QString& name, const QtMsgType& type, QObject* parent)
    : QObject(parent)
    , TWObject(name)
    , _logLevel(type)
{
    _elapseTime.start();
}

TWTimeMeasure::~TWTimeMeasure()
{
    // Nanoseconds, so that a short scope shows as a fraction and not as 0.
    const double msecs = double(_elapseTime.nsecsElapsed()) / 1000000.0;
    // The number is formatted on its own first, so that a '%' in the name
    // cannot capture it.
    const QString time = QStringLiteral("%1").arg(msecs, 0, 'g', -1, QLatin1Char(' '));
    _writeLog(QStringLiteral("%1 running time is %2 msec").arg(name(), time), _logLevel,
              TW_SOURCE_LOCATION);
}

const QString TWTimeMeasure::className()
{
    return QStringLiteral("TWTimeMeasure");
}

const QElapsedTimer& TWTimeMeasure::elapseTime() const
{
    return _elapseTime;
}

const QtMsgType& TWTimeMeasure::logLevel() const
{
    return _logLevel;
}

} // namespace TW
