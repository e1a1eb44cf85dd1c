#ifndef TWIMAGEEXT_P_H
#define TWIMAGEEXT_P_H

// Not part of the installed headers: entry points of the image helpers for
// the library's own fuzzers and tests.

#include "twimageext.h"

namespace TW {
namespace Internal {

/*!
 * \internal
 * The palette reader of TWImageExt::loadPalFile() over bytes already in
 * memory: appends the colours of \a data to \a palette and answers the same
 * texts, naming \a fileName, from the size check on.
 */
TWBASELIB_EXPORT QString readPalette(const QByteArray& data, const QString& fileName, QList<TWColor>& palette);

} // namespace Internal
} // namespace TW

#endif // TWIMAGEEXT_P_H
