#include "library.h"

QString directory::libraryVersion() { return QStringLiteral("1.0.0"); }
