#include <database/batch.h>
#include <database/database.h>
#include <database/exception.h>
#include "datetimetext.h"
#include "json.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <unordered_map>

namespace {

struct RowError { QString reason; };

[[noreturn]] void rowFail(QString const& reason) { throw RowError{reason}; }

QString columnText(ColumnDef const& c) { return QStringLiteral("column '%1'").arg(c.name); }

// Digits with an optional sign and fraction, into a mantissa at `scale`
// (negative: the text's last -scale whole digits are below the scale). A
// negative value may reach one past `limit`, as two's complement does.
template <class Int>
bool parseFixed(char const* b, char const* e, int scale, Int limit, Int& out, bool& lostDigits)
{
    bool neg = false;
    if (b < e && (*b == '-' || *b == '+')) { neg = *b == '-'; ++b; }
    if (b == e) return false;
    if (neg) ++limit;
    char const* point = std::find(b, e, '.');
    long long power = point - b;   // of the digit after the next one read
    Int m = 0;
    long long lowest = -scale;     // the power of ten of m's last digit
    bool any = false;
    lostDigits = false;
    for (char const* p = b; p < e; ++p) {
        char c = *p;
        if (p == point) continue;
        if (c < '0' || c > '9') return false;   // a second point too
        any = true;
        --power;
        if (power < -scale) { if (c != '0') lostDigits = true; continue; }
        if (m > (limit - (c - '0')) / 10) return false;
        m = m * 10 + (c - '0');
        lowest = power;
    }
    if (!any) return false;
    for (long long k = lowest + scale; k > 0; --k) {
        if (m > limit / 10) return false;
        m *= 10;
    }
    out = neg ? -m : m;
    return true;
}

// A text from the feed may not hold a character that does not show: a
// control character (C0 with NUL, DEL, C1), a format character (zero-width
// marks, direction overrides, the byte-order mark, tag characters) or a line
// or paragraph separator. Such a text reads as another one: a fixed-width
// value ends at its first NUL, so "FA01U01\0X" would pass for the login
// "FA01U01" while the master index keeps it as a row of its own. Blanks are
// text like any other.
struct Invisible
{
    uint code = 0;
    int position = 0;   // 1-based, in characters; 0 when the text is clean
};

Invisible invisibleIn(QString const& text)
{
    auto const* u = reinterpret_cast<char16_t const*>(text.utf16());
    int const n = text.size();
    int position = 0;
    for (int i = 0; i < n; ++i) {
        ++position;
        char16_t const c = u[i];
        if (c >= 0x20 && c < 0x7F) continue;
        if (c < 0xA0) return {c, position};
        uint code = c;
        if (QChar::isHighSurrogate(code) && i + 1 < n && QChar::isLowSurrogate(u[i + 1])) code = QChar::surrogateToUcs4(c, u[++i]);
        switch (QChar::category(code)) {
        case QChar::Other_Control:
        case QChar::Other_Format:
        case QChar::Separator_Line:
        case QChar::Separator_Paragraph: return {code, position};
        default: break;
        }
    }
    return {};
}

} // namespace

BatchDecoder::BatchDecoder(Database const& database) : m_database(database) {}

namespace {

class Decoder
{
public:
    Decoder(Database const& db, QByteArray const& line) : m_db(db), m_cur(line.constData(), line.constData() + line.size()) {}

    Batch run(QString const& origin)
    {
        Batch batch;
        batch.origin = origin;
        m_cur.expect('{');
        char const* opsAt = nullptr;
        bool seenTable = false, seenOps = false;
        if (!m_cur.tryConsume('}')) {
            do {
                m_cur.readString(m_key);
                m_cur.expect(':');
                if (m_key == "table") {
                    if (seenTable) m_cur.fail(QStringLiteral("\"table\" given twice"));
                    seenTable = true;
                    if (m_cur.peek() != JsonCursor::String) m_cur.fail(QStringLiteral("\"table\" must be a string"));
                    m_cur.readString(m_text);
                    QString name = QString::fromUtf8(m_text.data(), int(m_text.size()));
                    batch.table = m_db.table(name);
                    if (!batch.table) throw Exception(QStringLiteral("%1: unknown table '%2'").arg(origin, name));
                } else if (m_key == "ops") {
                    if (seenOps) m_cur.fail(QStringLiteral("\"ops\" given twice"));
                    seenOps = true;
                    if (batch.table) readOps(batch);
                    else { opsAt = m_cur.position(); m_cur.skipValue(); }
                } else {
                    m_cur.fail(QStringLiteral("unknown key \"%1\"").arg(QString::fromStdString(m_key)));
                }
            } while (m_cur.tryConsume(','));
            m_cur.expect('}');
        }
        if (!m_cur.atEnd()) m_cur.fail(QStringLiteral("text after the batch"));
        if (!seenTable) throw Exception(QStringLiteral("%1: the batch names no table").arg(origin));
        if (!seenOps) throw Exception(QStringLiteral("%1: the batch has no \"ops\"").arg(origin));
        if (opsAt) {
            JsonCursor saved = m_cur;
            m_cur.seek(opsAt);
            readOps(batch);
            m_cur = saved;
        }
        return batch;
    }

    int row() const { return m_row; }

private:
    void readOps(Batch& batch)
    {
        Table const* table = batch.table.data();
        buildColumnMap(table);
        m_cur.expect('[');
        if (m_cur.tryConsume(']')) return;
        do {
            ++m_row;
            BatchOp op;
            m_cur.expect('{');
            m_cur.readString(m_key);
            m_cur.expect(':');
            if (m_key == "clear") {
                if (m_cur.peek() != JsonCursor::True) rowFail(QStringLiteral("\"clear\" must be true"));
                m_cur.readLiteral(JsonCursor::True);
                op.kind = BatchOp::Clear;
            } else {
                if (m_key == "insert") op.kind = BatchOp::Insert;
                else if (m_key == "update") op.kind = BatchOp::Update;
                else if (m_key == "delete") op.kind = BatchOp::Delete;
                else rowFail(QStringLiteral("unknown operation \"%1\"").arg(QString::fromStdString(m_key)));
                readRow(table, op);
            }
            if (m_cur.tryConsume(',')) rowFail(QStringLiteral("an operation holds exactly one key"));
            m_cur.expect('}');
            batch.ops.push_back(std::move(op));
        } while (m_cur.tryConsume(','));
        m_cur.expect(']');
    }

    void buildColumnMap(Table const* table)
    {
        m_columns.clear();
        for (int i = 0; i < table->columnCount(); ++i)
            m_columns.emplace(table->columnDef(i).name.toStdString(), i);
    }

    void readRow(Table const* table, BatchOp& op)
    {
        if (m_cur.peek() != JsonCursor::Object) rowFail(QStringLiteral("a row must be an object"));
        op.image = Record(table);
        std::vector<char> seen(std::size_t(table->columnCount()), 0);
        m_cur.expect('{');
        if (!m_cur.tryConsume('}')) {
            do {
                m_cur.readString(m_key);
                auto it = m_columns.find(m_key);
                if (it == m_columns.end()) rowFail(QStringLiteral("unknown column '%1'").arg(QString::fromStdString(m_key)));
                int col = it->second;
                if (seen[std::size_t(col)]) rowFail(QStringLiteral("column '%1' given twice").arg(QString::fromStdString(m_key)));
                seen[std::size_t(col)] = 1;
                m_cur.expect(':');
                readValue(table, op.image, col);
                op.columns.push_back(col);
            } while (m_cur.tryConsume(','));
            m_cur.expect('}');
        }
        std::sort(op.columns.begin(), op.columns.end());
        for (int k : table->keyColumnNumbers()) {
            if (!seen[std::size_t(k)]) rowFail(QStringLiteral("key column '%1' is missing").arg(table->columnDef(k).name));
        }
        if (op.kind == BatchOp::Insert) {
            for (int c = 0; c < table->columnCount(); ++c)
                if (!seen[std::size_t(c)] && !table->columnDef(c).nullable)
                    rowFail(QStringLiteral("%1 cannot be null and is missing").arg(columnText(table->columnDef(c))));
        }
        if (op.kind == BatchOp::Delete) {
            // Only the key identifies a deleted row.
            std::vector<int> key;
            for (int c : op.columns)
                if (table->keyColumnNumbers().contains(c)) key.push_back(c);
            op.columns.swap(key);
        }
    }

    void readValue(Table const* table, Record const& image, int col)
    {
        ColumnDef const& def = table->columnDef(col);
        Field f = table->dataPtr(image.row(), col);
        JsonCursor::Kind kind = m_cur.peek();
        if (kind == JsonCursor::Null) {
            m_cur.readLiteral(kind);
            if (!def.nullable) rowFail(QStringLiteral("%1 cannot be null").arg(columnText(def)));
            return;
        }
        auto wrong = [&](char const* what) {
            rowFail(QStringLiteral("%1 (%2) needs %3").arg(columnText(def), FieldType::typeName(def.typeCode()), QLatin1String(what)));
        };
        char const* b = nullptr;
        char const* e = nullptr;
        auto numberOrString = [&](bool allowString) {
            if (kind == JsonCursor::Number) { m_cur.readNumber(b, e); return; }
            if (kind == JsonCursor::String && allowString) { m_cur.readString(m_text); b = m_text.data(); e = b + m_text.size(); return; }
            wrong(allowString ? "a number or a string of digits" : "a number");
        };
        switch (def.typeCode()) {
        case FieldType::Int:
        case FieldType::Int64: {
            numberOrString(def.typeCode() == FieldType::Int64);
            std::int64_t v = 0;
            auto r = std::from_chars(b, e, v);
            if (r.ec != std::errc() || r.ptr != e) rowFail(QStringLiteral("%1: '%2' is not a whole number in range").arg(columnText(def), QString::fromUtf8(b, int(e - b))));
            if (def.typeCode() == FieldType::Int) {
                if (v < INT32_MIN || v > INT32_MAX) rowFail(QStringLiteral("%1: %2 does not fit 32 bits").arg(columnText(def)).arg(v));
                f.setRawInt32(std::int32_t(v));
            } else {
                f.setRawInt64(v);
            }
            return;
        }
        case FieldType::Double: {
            numberOrString(false);
            double v = 0;
            auto r = std::from_chars(b, e, v);
            if (r.ec != std::errc() || r.ptr != e) rowFail(QStringLiteral("%1: bad number").arg(columnText(def)));
            f.setRawDouble(v);
            return;
        }
        case FieldType::Decimal: {
            numberOrString(true);
            std::int64_t m = 0;
            bool lost = false;
            if (!parseFixed<std::int64_t>(b, e, def.scale, decimal::maxMantissa, m, lost))
                rowFail(QStringLiteral("%1: '%2' is not a decimal that fits").arg(columnText(def), QString::fromUtf8(b, int(e - b))));
            if (lost) rowFail(QStringLiteral("%1: '%2' has more than %3 decimal places").arg(columnText(def), QString::fromUtf8(b, int(e - b))).arg(def.scale));
            f.setRawDecimal(decimal::fromMantissa(m, def.scale));
            return;
        }
        case FieldType::XDecimal: {
            numberOrString(true);
            __int128 m = 0;
            bool lost = false;
            if (!parseFixed<__int128>(b, e, def.scale, xdecimal::maxMantissa, m, lost))
                rowFail(QStringLiteral("%1: '%2' is not a decimal that fits").arg(columnText(def), QString::fromUtf8(b, int(e - b))));
            if (lost) rowFail(QStringLiteral("%1: '%2' has more than %3 decimal places").arg(columnText(def), QString::fromUtf8(b, int(e - b))).arg(def.scale));
            f.setRawXDecimal(xdecimal::fromMantissa(m, def.scale));
            return;
        }
        case FieldType::DateTime: {
            if (kind != JsonCursor::String) wrong("a date-time string");
            m_cur.readString(m_text);
            std::int64_t ms = 0;
            if (!dbtime::parse(m_text.data(), int(m_text.size()), ms))
                rowFail(QStringLiteral("%1: '%2' is not a date-time").arg(columnText(def), QString::fromStdString(m_text)));
            f.setRawDateTime(ms);
            return;
        }
        case FieldType::Char:
        case FieldType::VarChar: {
            if (kind != JsonCursor::String) wrong("a string");
            m_cur.readString(m_text);
            QString s = QString::fromUtf8(m_text.data(), int(m_text.size()));
            Invisible const bad = invisibleIn(s);
            if (bad.position)
                rowFail(QStringLiteral("%1: the text holds the invisible character U+%2 at position %3")
                            .arg(columnText(def), QStringLiteral("%1").arg(bad.code, 4, 16, QLatin1Char('0')).toUpper())
                            .arg(bad.position));
            if (def.typeCode() == FieldType::Char && s.size() > def.length / 2)
                rowFail(QStringLiteral("%1: '%2' is longer than %3 characters").arg(columnText(def), s).arg(def.length / 2));
            f.storeString(s);
            return;
        }
        case FieldType::Block: {
            if (kind != JsonCursor::String) wrong("a base64 string");
            m_cur.readString(m_text);
            QByteArray bytes = QByteArray::fromBase64(QByteArray::fromRawData(m_text.data(), int(m_text.size())),
                                                      QByteArray::AbortOnBase64DecodingErrors);
            if (bytes.size() != 404) rowFail(QStringLiteral("%1: needs 404 bytes in base64").arg(columnText(def)));
            std::memcpy(f.data(), bytes.constData(), 404);
            f.setHasValue();
            return;
        }
        case FieldType::Unknown: break;
        }
        rowFail(QStringLiteral("%1 has no loadable type").arg(columnText(def)));
    }

    Database const& m_db;
    JsonCursor m_cur;
    std::string m_key;
    std::string m_text;
    std::unordered_map<std::string, int> m_columns;
    int m_row = 0;
};

} // namespace

Batch BatchDecoder::decode(QByteArray const& line, QString const& origin) const
{
    Decoder d(m_database, line);
    try {
        return d.run(origin);
    } catch (JsonError const& e) {
        QString where = d.row() ? QStringLiteral("row %1: ").arg(d.row()) : QString();
        throw Exception(QStringLiteral("%1: %2bad JSON at byte %3: %4").arg(origin, where).arg(e.offset + 1).arg(e.reason));
    } catch (RowError const& e) {
        throw Exception(QStringLiteral("%1: row %2: %3").arg(origin).arg(d.row()).arg(e.reason));
    }
}
