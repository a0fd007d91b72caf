#pragma once
#include <database/database_export.h>
#include "batch.h"
#include "table.h"
#include <QByteArray>
#include <QVector>
#include <functional>

// Writes batches as the JSON Lines text BatchDecoder reads (one line, no
// '\n'), so that a batch decoded from a line, encoded and decoded again
// applies the very same values. Any thread: reads rows only.
class DATABASE_EXPORT BatchEncoder
{
public:
    // Which rows of a table a text holds (none given: all of them).
    using RowFilter = std::function<bool(Table const& table, Record const& row)>;

    // One batch: each op with the columns it carries (BatchOp::columns), in
    // column order. Throws Exception (naming the table and column) for a
    // value the format cannot carry (a double that is NaN or infinite, a
    // type 9 block, a date outside years 0001..9999, a text holding half a
    // surrogate pair).
    static QByteArray encode(Batch const& batch);
    // A table's whole contents as one batch that replaces them:
    // {"clear":true} then one insert per row, rows in master-key order,
    // every column in schema order, columns without a value as null. The
    // caller holds the table still (updating thread, or its read lock).
    static QByteArray encodeTable(Table const& table);
    // Tables one after another, each as lines of at most `rowsPerLine` rows,
    // each line a batch ending in a newline: a table's first line clears it,
    // the others only insert. `lines` is set to their number. So a large
    // table can be read, decoded and applied in pieces; the text of all of
    // them is written once, into one buffer. With `keep`, only the rows it
    // keeps (an exchange's copy for one of its members).
    static QByteArray encodeTablesLines(QVector<Table const*> const& tables, int rowsPerLine, int& lines,
                                        RowFilter const& keep = RowFilter());
};

// A digest of a table's whole contents, for telling whether two databases
// hold the same rows: SHA-256 of encodeTable's text, in lowercase hex. So:
// every column in schema order, rows in master-key order, null distinct
// from an empty string, decimals by value and scale.
DATABASE_EXPORT QByteArray tableChecksum(Table const& table);
// The same of the rows `keep` keeps: equal to tableChecksum of a table that
// holds just those rows.
DATABASE_EXPORT QByteArray tableChecksum(Table const& table, BatchEncoder::RowFilter const& keep);
