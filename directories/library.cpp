#include "library.h"

// DIRECTORY_VERSION comes from the project's one version number.
QString directory::libraryVersion() { return QStringLiteral(DIRECTORY_VERSION); }
