#include <database/index.h>
#include <database/record.h>
#include <database/table.h>

Record const Record::null;

Record::Record(Table const* table)
{
    if (table) m_row = table->allocRow();
}

Record::Record(Table const* table, QString const& keyText)
{
    if (!table || !table->masterIndex()) return;
    Record key = table->masterIndex()->fromText(keyText);
    if (key.isEmpty()) return;
    *this = table->masterIndex()->find(key, -1);
}

Record& Record::operator=(Record const& other) noexcept
{
    if (m_row != other.m_row) {
        other.retain();
        release();
        m_row = other.m_row;
    }
    return *this;
}

void Record::drop()
{
    unsigned char* row = m_row;
    m_row = nullptr;
    auto* h = reinterpret_cast<RowHeader*>(row);
    if (h->ref.fetch_sub(1, std::memory_order_acq_rel) == 1) h->table->freeRow(row);
}

Field Record::data(QString const& column) const
{
    if (!m_row) return Field();
    Table* t = header()->table;
    return t->dataPtr(m_row, t->columnIndex(column));
}

Field Record::data(int column) const
{
    if (!m_row) return Field();
    return header()->table->dataPtr(m_row, column);
}

bool Record::inTable() const { return m_row && (header()->flags & RowInTable); }
