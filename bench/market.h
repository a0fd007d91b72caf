#pragma once
// What every benchmark needs: the generated market loaded into the core's
// database with the product's directories registered, keys taken from it,
// and the process's resident memory.
#include <QString>
#include <QStringList>
#include <QtGlobal>
#include <vector>

class Database;
class Table;

namespace bench {

// Set by main() from --market DIR and --schema FILE.
struct Options
{
    QString market;   // folder with snapshot.jsonl
    QString schema;
};
Options& options();
QString snapshotPath();

Database* coreDatabase();

// The directories whose indexes and hooks a replicated change drives.
void registerDirectories();
// Deletes them and every table: the core's database is empty again.
void resetDatabase();
// One load of the snapshot into an empty core database, as the terminal
// does it: schema, directories, then the snapshot. Only the load itself is
// timed; resident memory is read just before and after it.
struct LoadRun
{
    int batches = 0;
    double seconds = 0;
    qint64 residentBefore = 0;
    qint64 residentAfter = 0;
    // The first load of a process also reads it again after handing the
    // heap's free pages back, which shows what the load left unused.
    qint64 residentAfterTrim = 0;
    // The most the process held up to the end of the load (VmHWM): for the
    // first load of a process, its peak while loading.
    qint64 peakAfter = 0;
    qint64 heapGrowth = 0;   // bytes the allocator hands out, all threads
};
enum class LoadMode { Streaming, Atomically };
LoadRun loadMarket(LoadMode mode);
// The first load this process made, if any: the only one whose memory
// growth is not blurred by the heap of an earlier load.
LoadRun const* firstLoad();
LoadMode firstLoadMode();
// Loads the market unless it is loaded already.
void ensureMarketLoaded();

struct SecurityKey
{
    int stock;
    int board;
    long long secId;
    int isinId;
};
// Every security of the loaded market, in index order.
std::vector<SecurityKey> const& securityKeys();
// The same keys in a fixed pseudo-random order, so that consecutive
// lookups do not walk the index.
std::vector<SecurityKey> shuffledSecurityKeys();


// Raw column payload of a database: rows times the columns' value sizes,
// plus the UTF-16 text of variable strings. `indexEntries` counts one entry
// per row for each index of the row's table that holds one (the master
// included).
struct Payload
{
    qint64 rows = 0;
    qint64 bytes = 0;
    qint64 indexEntries = 0;
};
Payload payloadOf(Database const& db);

} // namespace bench
