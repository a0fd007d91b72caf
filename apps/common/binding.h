#pragma once

class Database;

namespace apps {
// Binds the directories of logins, participants, accounts and money whose
// tables exist, before the market is loaded, as a terminal binds them at
// start: they then follow every batch (and warn of expiring passwords).
void bindAccountDirectories(Database* db);
} // namespace apps
