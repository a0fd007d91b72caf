#pragma once
#include <database/database_export.h>
#include "record.h"
#include "table.h"
#include <QByteArray>
#include <QSharedPointer>
#include <QString>
#include <vector>

class Database;

// One operation of a batch. `image` is a detached row buffer of the table
// holding the values the operation carries; `columns` lists them, ascending.
struct DATABASE_EXPORT BatchOp
{
    enum Kind { Insert, Update, Delete, Clear };
    Kind kind = Insert;
    Record image;
    std::vector<int> columns;
};

// A decoded batch of changes to one table, ready to be applied.
struct DATABASE_EXPORT Batch
{
    QString origin;                 // "file:line", for messages
    QSharedPointer<Table> table;
    std::vector<BatchOp> ops;
};

// Decodes one JSON Lines batch:
//   {"table": "...", "ops": [{"insert": {...}}, {"update": {...}},
//                            {"delete": {...}}, {"clear": true}]}
// Safe to call from a worker thread while the database applies other batches:
// it reads only table layouts, which never change. Throws Exception with
// origin, row and reason.
class DATABASE_EXPORT BatchDecoder
{
public:
    explicit BatchDecoder(Database const& database);
    Batch decode(QByteArray const& line, QString const& origin) const;

    // The parser reads up to this many bytes past a line's text: a line
    // whose capacity() leaves that room behind its size() is read in
    // place; any other is copied first.
    static constexpr int kReadAhead = 64;

private:
    Database const& m_database;
};
