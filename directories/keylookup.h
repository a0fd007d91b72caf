#pragma once
// Finding a row of a column index by plain key values, for the directories
// of participants, accounts and money.
#include "masterindex.h"

#include <database/exception.h>

#include <QString>
#include <QStringRef>

namespace directory {
namespace detail {

inline void putKeyValue(ColumnValuesKey& key, QString const& value) { key << value; }
inline void putKeyValue(ColumnValuesKey& key, int value) { key << value; }
inline void writeKeyValue(Field field, QString const& value) { field = QStringRef(&value); }
inline void writeKeyValue(Field field, int value) { field = value; }
// A text longer than its fixed-width column is stored by no row: searching
// it cut to the width would find a row with another key.
inline bool fitsColumn(Table const* table, int column, QString const& text)
{
    ColumnDef const& def = table->columnDef(column);
    return def.typeCode() != FieldType::Char || text.size() <= def.length / 2;
}
inline bool fitsColumn(Table const*, int, int) { return true; }

// The first row of `index` whose key columns hold `values`, in key-column
// order; an empty record when there is none or no index. Texts match
// exactly, never cut to their column's width. Integer and short
// fixed-text keys are compared in place; other column types go through a key
// row, and a value the column cannot take finds nothing.
template <class... V>
Record findByValues(MasterIndex_Column const* index, V const&... values)
{
    if (!index || index->columns().size() != int(sizeof...(V))) return Record();
    Table const* table = index->table();
    QList<int> const& columns = index->columns();
    for (int c : columns)
        if (c < 0) return Record();
    int checked = 0;
    if (!(fitsColumn(table, columns[checked++], values) && ...)) return Record();
    ColumnValuesKey key(index);
    (putKeyValue(key, values), ...);
    if (key.usable()) return key.find();
    try {
        Record probe(table);
        int n = 0;
        (writeKeyValue(table->dataPtr(probe.row(), columns[n++]), values), ...);
        return index->find(probe, -1);
    } catch (Exception const&) {
        return Record();
    }
}

} // namespace detail
} // namespace directory
