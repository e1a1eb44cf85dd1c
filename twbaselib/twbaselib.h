#ifndef TWBASELIB_H
#define TWBASELIB_H

// Umbrella header: every public header of the library.

#include "twglobal.h"
#include "twinterfaces.h"
#include "twobject.h"
#include "twlogger.h"
#include "twconfig.h"

#endif // TWBASELIB_H
