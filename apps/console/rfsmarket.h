#pragma once

class Database;

namespace console {
// Binds the request-for-stream and deal directories whose tables exist,
// before the market is loaded, as a terminal binds them at start: streams
// opened or closed and quasi-deals of the current login are then notified
// from the first batch on.
void bindStreamDirectories(Database* db);
}
