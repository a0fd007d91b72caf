#pragma once

#include <registry.h>

#include <QList>

class Database;
class QObject;

namespace apps {
// Binds, in the registry's order, every directory that programs bind `when`
// (DirectoryClass::AtStart before the market is loaded, AfterLoading once
// the snapshot is in) and whose table the database holds. Returns the
// directories bound, for a caller that follows their signals.
QList<QObject*> bindDirectories(Database* db, DirectoryClass::Binding when);
} // namespace apps
