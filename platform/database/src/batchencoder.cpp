#include <database/batchencoder.h>
#include <database/exception.h>
#include <database/index.h>
#include "datetimetext.h"

#include <QCryptographicHash>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>

namespace {

// Text goes straight into one growing buffer: a snapshot of a large table is
// millions of values, and a QString or JSON object per value would cost more
// than the writing. `sink`, when given, takes the text in chunks instead of
// keeping it whole.
class Writer
{
public:
    explicit Writer(QCryptographicHash* sink = nullptr) : m_sink(sink) {}

    // Room for `n` more bytes; the pointer returned stays good up to them.
    char* room(int n)
    {
        if (qint64(m_used) + n > m_buffer.size()) {
            if (m_sink && m_used >= kChunk) flush();
            qint64 const need = qint64(m_used) + n;
            if (need > m_buffer.size()) {
                // A QByteArray ends below 2 GiB: a line longer than that is refused whole.
                if (need > kLimit) throw Exception(QStringLiteral("the batch text would exceed %1 bytes").arg(kLimit));
                grow(std::max<qint64>(2 * qint64(m_buffer.size()), need + 256));
            }
        }
        return m_data + m_used;
    }
    void advance(char* end) { m_used = int(end - m_data); }
    void put(char c) { *room(1) = c; ++m_used; }
    void put(char const* text, int n)
    {
        std::memcpy(room(n), text, std::size_t(n));
        m_used += n;
    }
    void put(QByteArray const& text) { put(text.constData(), text.size()); }

    int size() const { return m_used; }
    void reserve(qint64 n) { if (!m_sink && n > m_buffer.size()) grow(n); }
    QByteArray take()
    {
        // The doubling may have left up to as much again unused.
        m_buffer.resize(m_used);
        m_buffer.squeeze();
        return std::move(m_buffer);
    }
    void flush()
    {
        m_sink->addData(m_buffer.constData(), m_used);
        m_used = 0;
    }

private:
    void grow(qint64 n)
    {
        m_buffer.resize(int(std::min<qint64>(kLimit, n)));
        m_data = m_buffer.data();
    }

    static constexpr int kChunk = 1 << 20;
    static constexpr int kLimit = 0x7FFFFFFF - 4096;
    QCryptographicHash* m_sink;
    QByteArray m_buffer;
    char* m_data = nullptr;   // m_buffer's, kept apart from its header
    int m_used = 0;
};

struct Refusal { QString reason; };

// A JSON string of UTF-16 text: quote, backslash and control characters
// escaped, the rest as UTF-8. Half a surrogate pair has no UTF-8 and the
// reader refuses its escape, so it is refused here rather than altered.
void putString(Writer& w, char16_t const* u, int n)
{
    char* p = w.room(qint64(n) * 6 + 2 > INT_MAX ? INT_MAX : n * 6 + 2);   // \u00XX is the widest per code unit
    *p++ = '"';
    for (int i = 0; i < n; ++i) {
        char16_t const c = u[i];
        if (c < 0x80) {
            if (c == '"' || c == '\\') {
                *p++ = '\\';
                *p++ = char(c);
            } else if (c < 0x20 || c == 0x7F) {
                static char const hex[] = "0123456789abcdef";
                std::memcpy(p, "\\u00", 4);
                p[4] = hex[c >> 4];
                p[5] = hex[c & 15];
                p += 6;
            } else {
                *p++ = char(c);
            }
        } else if (c < 0x800) {
            *p++ = char(0xC0 | (c >> 6));
            *p++ = char(0x80 | (c & 0x3F));
        } else if (c < 0xD800 || c > 0xDFFF) {
            *p++ = char(0xE0 | (c >> 12));
            *p++ = char(0x80 | ((c >> 6) & 0x3F));
            *p++ = char(0x80 | (c & 0x3F));
        } else {
            if (c > 0xDBFF || i + 1 >= n || u[i + 1] < 0xDC00 || u[i + 1] > 0xDFFF)
                throw Refusal{QStringLiteral("the text holds a lone surrogate U+%1 at position %2")
                                  .arg(QString::number(uint(c), 16).toUpper()).arg(i + 1)};
            char32_t const cp = 0x10000 + ((char32_t(c) - 0xD800) << 10) + (char32_t(u[++i]) - 0xDC00);
            *p++ = char(0xF0 | (cp >> 18));
            *p++ = char(0x80 | ((cp >> 12) & 0x3F));
            *p++ = char(0x80 | ((cp >> 6) & 0x3F));
            *p++ = char(0x80 | (cp & 0x3F));
        }
    }
    *p++ = '"';
    w.advance(p);
}

void putString(Writer& w, QString const& s) { putString(w, reinterpret_cast<char16_t const*>(s.utf16()), s.size()); }

// mantissa * 10^-scale exactly, as the reader takes it back at that scale:
// "1.50" at 2, "0" at any scale for zero, trailing zeros for a negative scale.
template <class Int, class U>
void putFixed(Writer& w, Int mantissa, int scale)
{
    char digits[48];
    int len = 0;
    U m = mantissa < 0 ? U(0) - U(mantissa) : U(mantissa);
    do {
        digits[len++] = char('0' + int(m % 10));
        m /= 10;
    } while (m);
    bool const zero = len == 1 && digits[0] == '0';
    int const pad = scale < 0 && !zero ? -scale : 0;
    char* p = w.room(len + std::max(scale, 0) + pad + 5);
    *p++ = '"';
    if (mantissa < 0) *p++ = '-';
    if (scale <= 0) {
        for (int i = len - 1; i >= 0; --i) *p++ = digits[i];
        std::memset(p, '0', std::size_t(pad));
        p += pad;
    } else {
        if (len <= scale) {
            *p++ = '0';
            *p++ = '.';
            std::memset(p, '0', std::size_t(scale - len));
            p += scale - len;
            for (int i = len - 1; i >= 0; --i) *p++ = digits[i];
        } else {
            for (int i = len - 1; i >= scale; --i) *p++ = digits[i];
            *p++ = '.';
            for (int i = scale - 1; i >= 0; --i) *p++ = digits[i];
        }
    }
    *p++ = '"';
    w.advance(p);
}

template <class Int>
void putInteger(Writer& w, Int v)
{
    char* p = w.room(24);
    w.advance(std::to_chars(p, p + 24, v).ptr);
}

// The moments the reader's "yyyy-MM-dd HH:mm:ss.zzz" can say.
constexpr std::int64_t kFirstMoment = -62135596800000;   // 0001-01-01 00:00:00.000
constexpr std::int64_t kLastMoment = 253402300799999;    // 9999-12-31 23:59:59.999

void putDateTime(Writer& w, std::int64_t ms)
{
    if (ms < kFirstMoment || ms > kLastMoment)
        throw Refusal{QStringLiteral("%1 ms is outside the years 0001 to 9999").arg(ms)};
    dbtime::Civil const c = dbtime::civil(ms);
    auto two = [](char* p, int v) { p[0] = char('0' + v / 10); p[1] = char('0' + v % 10); };
    char p[25];
    p[0] = '"';
    p[1] = char('0' + c.year / 1000);
    p[2] = char('0' + c.year / 100 % 10);
    p[3] = char('0' + c.year / 10 % 10);
    p[4] = char('0' + c.year % 10);
    p[5] = '-';
    two(p + 6, c.month);
    p[8] = '-';
    two(p + 9, c.day);
    p[11] = ' ';
    two(p + 12, c.hour);
    p[14] = ':';
    two(p + 15, c.minute);
    p[17] = ':';
    two(p + 18, c.second);
    p[20] = '.';
    p[21] = char('0' + c.msec / 100);
    two(p + 22, c.msec % 100);
    p[24] = '"';
    w.put(p, 25);
}

void putValue(Writer& w, Field const& f)
{
    if (!f.hasValue()) {
        w.put("null", 4);
        return;
    }
    switch (f.type()) {
    case FieldType::Int: putInteger(w, f.rawInt32()); return;
    case FieldType::Int64: putInteger(w, f.rawInt64()); return;
    case FieldType::Double: {
        double const v = f.rawDouble();
        if (!std::isfinite(v)) throw Refusal{QStringLiteral("the double %1 has no JSON number").arg(v)};
        // The shortest text that reads back as the same bits ("-0", "5e-324").
        char* p = w.room(32);
        w.advance(std::to_chars(p, p + 32, v).ptr);
        return;
    }
    case FieldType::Decimal: {
        decimal const d = f.rawDecimal();
        putFixed<std::int64_t, std::uint64_t>(w, d.mantissa(), d.scale());
        return;
    }
    case FieldType::XDecimal: {
        xdecimal const x = f.rawXDecimal();
        putFixed<__int128, unsigned __int128>(w, x.mantissa(), x.scale());
        return;
    }
    case FieldType::Char: {
        // The stored text up to its first NUL, blanks kept, as Field::toString reads it.
        auto const* u = reinterpret_cast<char16_t const*>(f.data());
        int n = 0;
        int const max = f.length() / 2;
        while (n < max && u[n] != 0) ++n;
        putString(w, u, n);
        return;
    }
    case FieldType::VarChar: putString(w, f.asStaticString()); return;
    case FieldType::DateTime: putDateTime(w, f.rawDateTime()); return;
    case FieldType::Block: throw Refusal{QStringLiteral("an opaque block has no batch text")};
    case FieldType::Unknown: break;
    }
    throw Refusal{QStringLiteral("the column has no type")};
}

// `"name":` of every column, written once per table rather than per value.
std::vector<QByteArray> columnKeys(Table const& table)
{
    std::vector<QByteArray> keys;
    keys.reserve(std::size_t(table.columnCount()));
    for (int c = 0; c < table.columnCount(); ++c) {
        Writer w;
        putString(w, table.columnDef(c).name);
        w.put(':');
        keys.push_back(w.take());
    }
    return keys;
}

void putHead(Writer& w, Table const& table)
{
    w.put("{\"table\":", 9);
    putString(w, table.name());
    w.put(",\"ops\":[", 8);
}

void putRow(Writer& w, Table const& table, std::vector<QByteArray> const& keys, unsigned char* row, int column)
{
    try {
        w.put(keys[std::size_t(column)]);
        putValue(w, table.dataPtr(row, column));
    } catch (Refusal const& r) {
        throw Exception(QStringLiteral("table '%1': column '%2': %3").arg(table.name(), table.columnDef(column).name, r.reason));
    }
}

// The table as one batch, or with `rowsPerLine` as lines of that many rows
// at most, each ending in a newline, the first one clearing the table.
// Gives the number of batches written.
int encodeTableInto(Writer& w, Table const& table, int rowsPerLine = 0, BatchEncoder::RowFilter const& keep = BatchEncoder::RowFilter())
{
    auto const keys = columnKeys(table);
    putHead(w, table);
    w.put("{\"clear\":true}", 14);
    int lines = 1;
    int inLine = 0;
    int const columns = table.columnCount();
    if (auto const* master = table.masterIndex()) {
        auto const& rows = master->records();
        qint64 const count = rows.count();
        bool first = true;
        for (Record const& r : rows) {
            if (keep && !keep(table, r)) continue;
            int const start = w.size();
            if (rowsPerLine > 0 && inLine == rowsPerLine) {
                w.put("]}\n", 3);
                putHead(w, table);
                w.put("{\"insert\":{", 11);
                ++lines;
                inLine = 0;
            } else {
                w.put(",{\"insert\":{", 12);
            }
            ++inLine;
            for (int c = 0; c < columns; ++c) {
                if (c) w.put(',');
                putRow(w, table, keys, r.row(), c);
            }
            w.put("}}", 2);
            // Sized once from the first row, so that a large table's text is
            // seldom copied while it grows; what is left over is given back.
            if (first && !keep) w.reserve(start + (w.size() - start) * count * 5 / 4 + 256);
            first = false;
        }
    }
    w.put("]}", 2);
    if (rowsPerLine > 0) w.put('\n');
    return lines;
}

} // namespace

QByteArray BatchEncoder::encode(Batch const& batch)
{
    if (!batch.table) throw Exception(QStringLiteral("%1: the batch names no table").arg(batch.origin));
    Table const& table = *batch.table;
    auto const keys = columnKeys(table);
    Writer w;
    putHead(w, table);
    bool first = true;
    for (BatchOp const& op : batch.ops) {
        if (!first) w.put(',');
        first = false;
        switch (op.kind) {
        case BatchOp::Clear: w.put("{\"clear\":true}", 14); continue;
        case BatchOp::Insert: w.put("{\"insert\":{", 11); break;
        case BatchOp::Update: w.put("{\"update\":{", 11); break;
        case BatchOp::Delete: w.put("{\"delete\":{", 11); break;
        }
        bool firstColumn = true;
        for (int c : op.columns) {
            if (c < 0 || c >= table.columnCount())
                throw Exception(QStringLiteral("table '%1': an operation names column %2, which the table does not have").arg(table.name()).arg(c));
            if (!firstColumn) w.put(',');
            firstColumn = false;
            putRow(w, table, keys, op.image.row(), c);
        }
        w.put("}}", 2);
    }
    w.put("]}", 2);
    return w.take();
}

QByteArray BatchEncoder::encodeTable(Table const& table)
{
    Writer w;
    encodeTableInto(w, table);
    return w.take();
}

QByteArray BatchEncoder::encodeTablesLines(QVector<Table const*> const& tables, int rowsPerLine, int& lines, RowFilter const& keep)
{
    Writer w;
    lines = 0;
    for (Table const* table : tables) lines += encodeTableInto(w, *table, qMax(1, rowsPerLine), keep);
    return w.take();
}

QByteArray tableChecksum(Table const& table) { return tableChecksum(table, BatchEncoder::RowFilter()); }

QByteArray tableChecksum(Table const& table, BatchEncoder::RowFilter const& keep)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    Writer w(&hash);
    encodeTableInto(w, table, 0, keep);
    w.flush();
    return hash.result().toHex();
}
