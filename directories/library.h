#pragma once
#include <QtGlobal>
#if defined(DIRECTORY_BUILD)
#  define DIRECTORY_EXPORT Q_DECL_EXPORT
#else
#  define DIRECTORY_EXPORT Q_DECL_IMPORT
#endif

#include <QString>

namespace directory {
// Version of the library, for diagnostics.
DIRECTORY_EXPORT QString libraryVersion();
}
