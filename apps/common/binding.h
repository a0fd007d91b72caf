#pragma once

#include <QList>

class Database;
class QObject;

namespace apps {
// Binds the directories of logins, participants, accounts and money whose
// tables exist, before the market is loaded, as a terminal binds them at
// start: they then follow every batch (and warn of expiring passwords).
// Returns the directories bound, for a caller that follows their signals.
QList<QObject*> bindAccountDirectories(Database* db);
// Binds the request-for-stream and deal directories whose tables exist,
// before the market is loaded, as a terminal binds them at start: streams
// opened or closed and quasi-deals of the current login are then notified
// from the first batch on. Returns the directories bound.
QList<QObject*> bindStreamDirectories(Database* db);
} // namespace apps
