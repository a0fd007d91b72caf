#pragma once
// The peer: the same rows in an in-memory SQLite database, read and written
// through prepared statements.
#include <QStringList>
#include <sqlite3.h>
#include <string>
#include <vector>

class Database;
class Table;

namespace bench {

class Sqlite
{
public:
    Sqlite();
    ~Sqlite();
    Sqlite(Sqlite const&) = delete;
    Sqlite& operator=(Sqlite const&) = delete;

    void exec(std::string const& sql);
    // Owned by this object; finalized when it goes.
    sqlite3_stmt* prepare(std::string const& sql);
    sqlite3* handle() const { return m_db; }

private:
    sqlite3* m_db = nullptr;
    std::vector<sqlite3_stmt*> m_statements;
};

// Steps a statement that yields at most one row and resets it. Returns the
// first column of that row as an integer, or -1 when there is no row.
long long stepOne(sqlite3_stmt* statement);
// Steps a statement that yields no row and resets it; throws on failure.
void stepDone(sqlite3_stmt* statement);

// How a mirrored table is keyed.
enum class KeyForm {
    Composite,     // PRIMARY KEY (key columns) WITHOUT ROWID: rows kept in key order
    PackedRowid    // securities only: INTEGER PRIMARY KEY k = stock<<48 | board<<40 | sec_id
};
long long packedSecurityKey(int stock, int board, long long secId);
// Binds a security's key to a statement whose WHERE starts with it: ?1 for
// the packed key, ?1..?3 for the composite one.
void bindSecurityKey(sqlite3_stmt* statement, KeyForm form, int stock, int board, long long secId);

struct MirrorLayout
{
    KeyForm key = KeyForm::Composite;
    bool textId = false;                  // adds an indexed "text_id" ("stock,board,sec") column
    std::vector<QStringList> indexes;     // secondary indexes, by column names
};

std::string quoted(QString const& identifier);
// Creates the table and its indexes, then copies every row of `table` in one
// transaction through one prepared INSERT. Returns the rows copied.
long long mirrorTable(Sqlite& db, Table const& table, MirrorLayout const& layout);
// The secondary indexes that mirror the ones the product's directories
// register (securities by isin, boards by code).
MirrorLayout productLayout(QString const& table);

// Mirrors of the loaded market's tables, built on first use and kept for the
// process: securities with the product's isin index in the given key form
// (with an indexed text id when asked), and boards with their code index.
Sqlite& securitiesMirror(KeyForm key, bool textId = false);
Sqlite& boardsMirror();

} // namespace bench
