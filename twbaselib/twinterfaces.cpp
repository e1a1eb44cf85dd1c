#include "twinterfaces.h"

// Out-of-line destructors anchor the interfaces' virtual tables in the library.
TWObjectIface::~TWObjectIface() = default;
TWLoggerIface::~TWLoggerIface() = default;
TWConfigIface::~TWConfigIface() = default;
