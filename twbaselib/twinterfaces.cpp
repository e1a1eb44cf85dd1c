#include "twinterfaces.h"

// Out-of-line destructors anchor the interfaces' virtual tables in the library.
TWObjectIface::~TWObjectIface() = default;
TWLoggerIface::~TWLoggerIface() = default;
TWQueueItemIface::~TWQueueItemIface() = default;

TWThreadWorkerIface::TWThreadWorkerIface(QObject* parent)
    : QObject(parent)
{
}

TWThreadWorkerIface::~TWThreadWorkerIface() = default;
TWConfigIface::~TWConfigIface() = default;
