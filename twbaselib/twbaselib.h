#ifndef TWBASELIB_H
#define TWBASELIB_H

// Umbrella header: every public header of the library.

#include "twglobal.h"
#include "twinterfaces.h"
#include "twobject.h"
#include "twlogger.h"
#include "twqueue.h"
#include "twutils.h"
#include "twzx7.h"
#include "twsleep.h"
#include "twtimemeasure.h"
#include "twthreadpool.h"
#include "tweventfilter.h"
#include "twconfig.h"
#include "twimageext.h"
#include "twimgfilters.h"
#include "twbitmapfont.h"
#include "twvoiceutils.h"

#endif // TWBASELIB_H
