#ifndef TWGLOBAL_H
#define TWGLOBAL_H

#include <QtCore/qglobal.h>
#include <QtCore/qstring.h>

#if defined(TWBASELIB_LIBRARY)
#  define TWBASELIB_EXPORT Q_DECL_EXPORT
#else
#  define TWBASELIB_EXPORT Q_DECL_IMPORT
#endif

/*!
 * Expands to the three source-location arguments that every failure report and
 * log call takes: the source file, the line and the full signature of the
 * enclosing function.
 *
 *   _setLastError(QStringLiteral("Couldn't open '%1'!").arg(path), TW_SOURCE_LOCATION);
 */
#define TW_SOURCE_LOCATION \
    QStringLiteral(__FILE__), __LINE__, QString::fromUtf8(Q_FUNC_INFO)

#endif // TWGLOBAL_H
