#include <database/exception.h>
#include <database/index.h>
#include <database/table.h>

#include <cstring>

MasterIndex_Column_Pure::MasterIndex_Column_Pure(Table* table, QStringList const& columns) : IndexSort(table)
{
    for (QString const& c : columns) m_columns.append(table ? table->columnIndex(c) : -1);
}

MasterIndex_Column_Pure::MasterIndex_Column_Pure(Table* table, QList<int> const& columns)
    : IndexSort(table), m_columns(columns)
{
}

MasterIndex_Column_Pure::~MasterIndex_Column_Pure() = default;

QString MasterIndex_Column_Pure::getClassName() const { return QStringLiteral("MasterIndex_Column_Pure"); }

int MasterIndex_Column_Pure::compareValues(Field const& a, Field const& b)
{
    bool va = a.hasValue(), vb = b.hasValue();
    if (!va || !vb) return va == vb ? 0 : (va ? 1 : -1);
    if (a.type() != b.type()) return int(a.type()) - int(b.type());
    switch (a.type()) {
    case FieldType::Int: { auto x = a.rawInt32(), y = b.rawInt32(); return x < y ? -1 : (x > y); }
    case FieldType::Int64:
    case FieldType::DateTime: { auto x = a.rawInt64(), y = b.rawInt64(); return x < y ? -1 : (x > y); }
    case FieldType::Double: { double x = a.rawDouble(), y = b.rawDouble(); return x < y ? -1 : (x > y ? 1 : 0); }
    case FieldType::Decimal: {
        decimal x = a.rawDecimal(), y = b.rawDecimal();
        if (x.scale() == y.scale()) { auto p = x.mantissa(), q = y.mantissa(); return p < q ? -1 : (p > q); }
        return x.compare(y);
    }
    case FieldType::XDecimal: return a.rawXDecimal().compare(b.rawXDecimal());
    case FieldType::Char: {
        // Code unit by code unit, padding included, like comparing the texts.
        auto const* x = reinterpret_cast<char16_t const*>(a.data());
        auto const* y = reinterpret_cast<char16_t const*>(b.data());
        int n = std::min(a.length(), b.length()) / 2;
        for (int i = 0; i < n; ++i)
            if (x[i] != y[i]) return x[i] < y[i] ? -1 : 1;
        return a.length() == b.length() ? 0 : (a.length() < b.length() ? -1 : 1);
    }
    case FieldType::VarChar: {
        int c = a.asStaticString().compare(b.asStaticString());
        return c < 0 ? -1 : (c > 0);
    }
    case FieldType::Block: return std::memcmp(a.data(), b.data(), 404);
    default: return 0;
    }
}

int MasterIndex_Column_Pure::compare(Record const& a, Record const& b) const
{
    Table* ta = a.table();
    Table* tb = b.table();
    for (int c : m_columns) {
        int r = compareValues(ta->dataPtr(a.row(), c), tb->dataPtr(b.row(), c));
        if (r) return r;
    }
    return 0;
}

QString MasterIndex_Column_Pure::toText(Record const& record) const
{
    QString text;
    for (int i = 0; i < m_columns.size(); ++i) {
        if (i) text += QLatin1Char(',');
        text += record.data(m_columns.at(i)).toString();
    }
    return text;
}

Record MasterIndex_Column_Pure::fromText(QString const& text) const
{
    QVector<QStringRef> parts = text.splitRef(QLatin1Char(','));
    if (parts.size() != m_columns.size() || !m_table) return Record();
    Record key(m_table);
    try {
        for (int i = 0; i < parts.size(); ++i) m_table->dataPtr(key.row(), m_columns.at(i)).storeString(parts.at(i));
    } catch (Exception const&) {
        return Record();
    }
    return key;
}

Record MasterIndex_Column_Pure::keyRecord(Record const& record) const
{
    if (!m_table || record.isEmpty()) return Record();
    Record key(m_table);
    Table* src = record.table();
    for (int c : m_columns) {
        Field from = src->dataPtr(record.row(), c);
        Field to = m_table->dataPtr(key.row(), c);
        if (!from.hasValue() || !to.isValid()) continue;
        if (to.type() == FieldType::VarChar) to.storeString(from.asStaticString());
        else { std::memcpy(to.data(), from.data(), std::size_t(to.length())); to.setHasValue(); }
    }
    return key;
}
