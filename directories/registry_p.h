#pragma once
// Inside the library: how a directory's constructor finds its line.
#include "registry.h"

// The line of a class, or null when it has none.
DirectoryClass const* registeredClass(QMetaObject const& cls);
