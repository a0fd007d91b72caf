#pragma once
#include <database/database_export.h>
#include "field.h"
#include <QMetaType>
#include <QString>
#include <atomic>
#include <cstdint>

class Table;

// Header every row buffer starts with.
struct RowHeader
{
    std::atomic<std::int32_t> ref;
    std::uint32_t flags;      // RowInTable when the row belongs to the table
    Table* table;
};
// RowFromBlocks: the buffer came from its table's own blocks (rows that
// become the table's), not from the general allocator (key rows, images).
enum RowFlags : std::uint32_t { RowInTable = 1, RowFromBlocks = 2 };

// Reference-counted handle on one row buffer. The last reference hands the
// buffer back to its table.
class DATABASE_EXPORT Record
{
public:
    constexpr Record() noexcept = default;
    explicit Record(Table const* table);                       // fresh empty key record
    Record(Table const* table, QString const& keyText);        // the row with that key, or empty
    Record(Record const& other) noexcept : m_row(other.m_row) { retain(); }
    Record(Record&& other) noexcept : m_row(other.m_row) { other.m_row = nullptr; }
    ~Record() { release(); }
    Record& operator=(Record const& other) noexcept;
    // Inline: a list that shifts its records moves each one, mostly onto an
    // empty one.
    Record& operator=(Record&& other) noexcept
    {
        if (this != &other) {
            release();
            m_row = other.m_row;
            other.m_row = nullptr;
        }
        return *this;
    }

    static Record const null;

    // Takes over a buffer whose count already includes this reference.
    static Record adopt(unsigned char* row) { Record r; r.m_row = row; return r; }

    bool isEmpty() const { return m_row == nullptr; }
    bool isNull() const { return m_row == nullptr; }
    explicit operator bool() const { return m_row != nullptr; }

    Field data(QString const& column) const;
    Field data(int column) const;
    bool inTable() const;
    Table* table() const { return m_row ? header()->table : nullptr; }
    unsigned char* row() const { return m_row; }
    int refCount() const { return m_row ? header()->ref.load(std::memory_order_relaxed) : 0; }

    bool operator==(Record const& o) const { return m_row == o.m_row; }
    bool operator!=(Record const& o) const { return m_row != o.m_row; }

private:
    RowHeader* header() const { return reinterpret_cast<RowHeader*>(m_row); }
    void retain() const { if (m_row) header()->ref.fetch_add(1, std::memory_order_relaxed); }
    void release()
    {
        if (m_row) drop();
    }
    void drop();   // gives up the reference to a row

    unsigned char* m_row = nullptr;
};
Q_DECLARE_TYPEINFO(Record, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(Record)
