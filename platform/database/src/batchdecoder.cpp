#include <database/batch.h>
#include <database/database.h>
#include <database/exception.h>
#include "datetimetext.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <memory>
#include <simdjson.h>
#include <string_view>
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

namespace sj = simdjson::ondemand;

// A fault in the text itself, at the byte it was found.
struct JsonFault
{
    QString reason;
    char const* at;
};

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The parser takes a number's text as it is: the grammar is checked here,
// so that "01", "1.", "1e" or "-" never reach a column.
bool isJsonNumber(std::string_view t)
{
    std::size_t i = 0, n = t.size();
    auto digits = [&] { std::size_t s = i; while (i < n && isDigit(t[i])) ++i; return i > s; };
    if (i < n && t[i] == '-') ++i;
    if (i < n && t[i] == '0') ++i;
    else if (!digits()) return false;
    if (i < n && t[i] == '.') { ++i; if (!digits()) return false; }
    if (i < n && (t[i] == 'e' || t[i] == 'E')) {
        ++i;
        if (i < n && (t[i] == '+' || t[i] == '-')) ++i;
        if (!digits()) return false;
    }
    return i == n;
}

std::string_view trimmedToken(std::string_view t)
{
    while (!t.empty() && (t.back() == ' ' || t.back() == '\t' || t.back() == '\r' || t.back() == '\n')) t.remove_suffix(1);
    return t;
}

// The parser refuses a line as a whole for these; the byte is found here,
// on the refused line only.
char const* firstBadUtf8(char const* p, char const* end)
{
    auto const* u = reinterpret_cast<unsigned char const*>(p);
    auto const* e = reinterpret_cast<unsigned char const*>(end);
    while (u < e) {
        unsigned char const c = *u;
        int more = 0;
        unsigned lo = 0x80, hi = 0xBF;
        if (c < 0x80) { ++u; continue; }
        if (c >= 0xC2 && c <= 0xDF) more = 1;
        else if (c == 0xE0) { more = 2; lo = 0xA0; }
        else if (c == 0xED) { more = 2; hi = 0x9F; }   // no encoded surrogates
        else if (c >= 0xE1 && c <= 0xEF) more = 2;
        else if (c == 0xF0) { more = 3; lo = 0x90; }
        else if (c >= 0xF1 && c <= 0xF3) more = 3;
        else if (c == 0xF4) { more = 3; hi = 0x8F; }
        else return reinterpret_cast<char const*>(u);
        for (int k = 1; k <= more; ++k) {
            unsigned const b = u + k < e ? u[k] : 0;
            if (b < (k == 1 ? lo : 0x80) || b > (k == 1 ? hi : 0xBF)) return reinterpret_cast<char const*>(u);
        }
        u += more + 1;
    }
    return p;
}

char const* firstRawControlInString(char const* p, char const* end)
{
    bool inString = false;
    for (char const* q = p; q < end; ++q) {
        auto const c = static_cast<unsigned char>(*q);
        if (!inString) { inString = c == '"'; continue; }
        if (c < 0x20) return q;
        if (c == '\\') ++q;
        else if (c == '"') inString = false;
    }
    return p;
}

// Each thread keeps its parser and padded copy between lines; past this
// many bytes of line they are let go after the line, so that one long
// line does not pin its memory for the thread's life.
constexpr std::size_t kKeptCapacity = std::size_t(1) << 20;

struct Scratch
{
    sj::parser parser;
    std::unique_ptr<char[]> padded;
    std::size_t paddedSize = 0;
};

[[noreturn]] void refuseLine(QString const& origin, QString const& where, char const* text, JsonFault const& f)
{
    throw Exception(QStringLiteral("%1: %2bad JSON at byte %3: %4").arg(origin, where).arg(f.at - text + 1).arg(f.reason));
}

class Decoder
{
public:
    Decoder(Database const& db, char const* begin, std::size_t length, sj::document& doc)
        : m_db(db), m_begin(begin), m_end(begin + length), m_doc(doc)
    {
    }

    Batch run(QString const& origin)
    {
        Batch batch;
        batch.origin = origin;
        sj::object root = rootObject();
        bool seenTable = false, seenOps = false, opsLater = false;
        for (auto member : root) {
            sj::field field;
            check(std::move(member).get(field));
            char const* const keyAt = keyPosition(field);
            std::string_view const key = keyOf(field);
            sj::value& v = field.value();
            if (key == "table") {
                if (seenTable) fault(QStringLiteral("\"table\" given twice"), keyAt);
                seenTable = true;
                if (typeOf(v) != sj::json_type::string) fault(QStringLiteral("\"table\" must be a string"), v.raw_json_token().data());
                std::string_view const text = stringOf(v);
                QString name = QString::fromUtf8(text.data(), int(text.size()));
                batch.table = m_db.table(name);
                if (!batch.table) throw Exception(QStringLiteral("%1: unknown table '%2'").arg(origin, name));
            } else if (key == "ops") {
                if (seenOps) fault(QStringLiteral("\"ops\" given twice"), keyAt);
                seenOps = true;
                // Before the table is known its rows cannot be read: passed
                // over now, read on a second pass.
                if (batch.table) readOps(batch, v);
                else opsLater = true;
            } else {
                fault(QStringLiteral("unknown key \"%1\"").arg(QString::fromUtf8(key.data(), int(key.size()))), keyAt);
            }
        }
        char const* after = nullptr;
        if (!m_doc.current_location().get(after) && after < m_end) fault(QStringLiteral("text after the batch"), after);
        if (!seenTable) throw Exception(QStringLiteral("%1: the batch names no table").arg(origin));
        if (!seenOps) throw Exception(QStringLiteral("%1: the batch has no \"ops\"").arg(origin));
        if (opsLater) {
            m_doc.rewind();
            for (auto member : rootObject()) {
                sj::field field;
                check(std::move(member).get(field));
                if (keyOf(field) == "ops") { readOps(batch, field.value()); break; }
            }
        }
        return batch;
    }

    // The operation a fault lies in, 0 outside the operations.
    int row() const { return m_inOps ? m_row : 0; }

private:
    [[noreturn]] void fault(QString const& reason, char const* at) const { throw JsonFault{reason, std::min(at, m_end)}; }

    // Where the parser stopped: the token it could not take.
    [[noreturn]] void stuck() 
    {
        char const* at = nullptr;
        if (m_doc.current_location().get(at) || at >= m_end) fault(QStringLiteral("unexpected end of line"), m_end);
        fault(QStringLiteral("unexpected character '%1'").arg(QChar::fromLatin1(*at)), at);
    }

    void check(simdjson::error_code e)
    {
        if (e == simdjson::MEMALLOC) throw std::bad_alloc();
        if (e) stuck();
    }

    sj::object rootObject()
    {
        sj::value root;
        sj::json_type type{};
        if (m_doc.get_value().get(root) || root.type().get(type) || type != sj::json_type::object) {
            char const* at = m_begin;
            while (at < m_end && (*at == ' ' || *at == '\t' || *at == '\r')) ++at;
            fault(QStringLiteral("expected '{'"), at);
        }
        sj::object object;
        check(root.get_object().get(object));
        return object;
    }

    sj::json_type typeOf(sj::value& v)
    {
        sj::json_type type{};
        check(v.type().get(type));
        return type;
    }

    // The key's opening quote; taken before the key is read, which lets go of it.
    static char const* keyPosition(sj::field const& field) { return field.key().raw() - 1; }

    std::string_view keyOf(sj::field& field)
    {
        char const* const at = keyPosition(field);
        std::string_view key;
        if (field.unescaped_key().get(key)) fault(QStringLiteral("bad escape or lone surrogate in string"), at);
        return key;
    }

    std::string_view stringOf(sj::value& v)
    {
        char const* const at = v.raw_json_token().data();
        std::string_view text;
        if (v.get_string().get(text)) fault(QStringLiteral("bad escape or lone surrogate in string"), at);
        return text;
    }

    void readOps(Batch& batch, sj::value& value)
    {
        Table const* table = batch.table.data();
        buildColumnMap(table);
        if (typeOf(value) != sj::json_type::array) fault(QStringLiteral("expected '['"), value.raw_json_token().data());
        sj::array ops;
        check(value.get_array().get(ops));
        m_inOps = true;
        for (auto element : ops) {
            ++m_row;
            sj::value v;
            check(std::move(element).get(v));
            if (typeOf(v) != sj::json_type::object) fault(QStringLiteral("expected '{'"), v.raw_json_token().data());
            sj::object object;
            check(v.get_object().get(object));
            BatchOp op;
            int keys = 0;
            for (auto member : object) {
                sj::field field;
                check(std::move(member).get(field));
                if (keys++) rowFail(QStringLiteral("an operation holds exactly one key"));
                std::string_view const key = keyOf(field);
                sj::value& body = field.value();
                if (key == "clear") {
                    bool yes = false;
                    if (typeOf(body) != sj::json_type::boolean) rowFail(QStringLiteral("\"clear\" must be true"));
                    if (body.get_bool().get(yes)) fault(QStringLiteral("bad literal"), body.raw_json_token().data());
                    if (!yes) rowFail(QStringLiteral("\"clear\" must be true"));
                    op.kind = BatchOp::Clear;
                } else {
                    if (key == "insert") op.kind = BatchOp::Insert;
                    else if (key == "update") op.kind = BatchOp::Update;
                    else if (key == "delete") op.kind = BatchOp::Delete;
                    else rowFail(QStringLiteral("unknown operation \"%1\"").arg(QString::fromUtf8(key.data(), int(key.size()))));
                    readRow(table, op, body);
                }
            }
            if (keys == 0) rowFail(QStringLiteral("an operation holds exactly one key"));
            batch.ops.push_back(std::move(op));
        }
        m_inOps = false;
    }

    void buildColumnMap(Table const* table)
    {
        m_columns.clear();
        m_names.clear();
        m_order.clear();
        for (int i = 0; i < table->columnCount(); ++i) {
            m_names.push_back(table->columnDef(i).name.toStdString());
            m_columns.emplace(m_names.back(), i);
        }
    }

    void readRow(Table const* table, BatchOp& op, sj::value& value)
    {
        if (typeOf(value) != sj::json_type::object) rowFail(QStringLiteral("a row must be an object"));
        sj::object object;
        check(value.get_object().get(object));
        op.image = Record(table);
        std::vector<char>& seen = m_seen;
        seen.assign(std::size_t(table->columnCount()), 0);
        op.columns.reserve(m_order.size());
        std::size_t place = 0;
        for (auto member : object) {
            sj::field field;
            check(std::move(member).get(field));
            std::string_view const key = keyOf(field);
            // The rows of a batch mostly name their columns in one order:
            // the previous row's column at this place is tried first.
            int col = place < m_order.size() ? m_order[place] : -1;
            if (col < 0 || m_names[std::size_t(col)] != key) {
                m_key.assign(key.data(), key.size());
                auto it = m_columns.find(m_key);
                if (it == m_columns.end()) rowFail(QStringLiteral("unknown column '%1'").arg(QString::fromStdString(m_key)));
                col = it->second;
                if (place < m_order.size()) m_order[place] = col;
                else m_order.push_back(col);
            }
            ++place;
            if (seen[std::size_t(col)]) rowFail(QStringLiteral("column '%1' given twice").arg(QString::fromUtf8(key.data(), int(key.size()))));
            seen[std::size_t(col)] = 1;
            readValue(table, op.image, col, field.value());
            op.columns.push_back(col);
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

    void readValue(Table const* table, Record const& image, int col, sj::value& v)
    {
        ColumnDef const& def = table->columnDef(col);
        Field f = table->dataPtr(image.row(), col);
        sj::json_type const kind = typeOf(v);
        std::string_view const token = v.raw_json_token();
        if (kind == sj::json_type::null) {
            bool null = false;
            if (v.is_null().get(null) || !null) fault(QStringLiteral("bad literal"), token.data());
            if (!def.nullable) rowFail(QStringLiteral("%1 cannot be null").arg(columnText(def)));
            return;
        }
        auto wrong = [&](char const* what) {
            rowFail(QStringLiteral("%1 (%2) needs %3").arg(columnText(def), FieldType::typeName(def.typeCode()), QLatin1String(what)));
        };
        auto text = [&](char const* what) {
            if (kind != sj::json_type::string) wrong(what);
            return stringOf(v);
        };
        char const* b = nullptr;
        char const* e = nullptr;
        auto numberOrString = [&](bool allowString) {
            if (kind == sj::json_type::number) {
                std::string_view const number = trimmedToken(token);
                if (!isJsonNumber(number)) fault(QStringLiteral("bad number"), token.data());
                b = number.data();
                e = b + number.size();
                return;
            }
            if (kind == sj::json_type::string && allowString) {
                std::string_view const s = stringOf(v);
                b = s.data();
                e = b + s.size();
                return;
            }
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
            std::string_view const s = text("a date-time string");
            std::int64_t ms = 0;
            if (!dbtime::parse(s.data(), int(s.size()), ms))
                rowFail(QStringLiteral("%1: '%2' is not a date-time").arg(columnText(def), QString::fromUtf8(s.data(), int(s.size()))));
            f.setRawDateTime(ms);
            return;
        }
        case FieldType::Char:
        case FieldType::VarChar: {
            std::string_view const raw = text("a string");
            QString s = QString::fromUtf8(raw.data(), int(raw.size()));
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
            std::string_view const raw = text("a base64 string");
            QByteArray bytes = QByteArray::fromBase64(QByteArray::fromRawData(raw.data(), int(raw.size())),
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
    char const* m_begin;
    char const* m_end;
    sj::document& m_doc;
    std::string m_key;
    std::unordered_map<std::string, int> m_columns;
    std::vector<std::string> m_names;   // by column
    std::vector<int> m_order;           // the columns the last row named, in its order
    std::vector<char> m_seen;           // by column, for the row being read
    int m_row = 0;
    bool m_inOps = false;
};

} // namespace

Batch BatchDecoder::decode(QByteArray const& line, QString const& origin) const
{
    thread_local std::unique_ptr<Scratch> scratch;
    if (!scratch) scratch.reset(new Scratch);
    std::size_t const length = std::size_t(line.size());
    // The parser reads a little past the text: a line with that much room
    // behind it is read in place, others are copied.
    char const* text = line.constData();
    static_assert(kReadAhead >= simdjson::SIMDJSON_PADDING, "the parser reads further ahead");
    if (std::size_t(line.capacity()) < length + std::size_t(kReadAhead)) {
        if (scratch->paddedSize < length + simdjson::SIMDJSON_PADDING) {
            scratch->paddedSize = length + simdjson::SIMDJSON_PADDING;
            scratch->padded.reset(new char[scratch->paddedSize]);
        }
        std::memcpy(scratch->padded.get(), text, length);
        std::memset(scratch->padded.get() + length, 0, simdjson::SIMDJSON_PADDING);
        text = scratch->padded.get();
    }
    struct LetGoOfLongLines
    {
        std::unique_ptr<Scratch>& s;
        ~LetGoOfLongLines() { if (s->parser.capacity() > kKeptCapacity || s->paddedSize > kKeptCapacity) s.reset(); }
    } letGo{scratch};

    char const* const end = text + length;
    auto refuse = [&](QString const& where, JsonFault const& f) { refuseLine(origin, where, text, f); };
    sj::document doc;
    simdjson::error_code const e = scratch->parser.iterate(text, length, length + simdjson::SIMDJSON_PADDING).get(doc);
    switch (e) {
    case simdjson::SUCCESS: break;
    case simdjson::MEMALLOC: throw std::bad_alloc();
    // Faults the parser finds in the whole line before reading it: no row
    // is known yet.
    case simdjson::UTF8_ERROR: refuse(QString(), {QStringLiteral("invalid UTF-8"), firstBadUtf8(text, end)}); break;
    case simdjson::UNCLOSED_STRING: refuse(QString(), {QStringLiteral("unterminated string"), end}); break;
    case simdjson::UNESCAPED_CHARS: refuse(QString(), {QStringLiteral("control character in string"), firstRawControlInString(text, end)}); break;
    case simdjson::EMPTY: refuse(QString(), {QStringLiteral("expected '{'"), end}); break;
    default: refuse(QString(), {QString::fromLatin1(simdjson::error_message(e)), text}); break;
    }
    Decoder d(m_database, text, length, doc);
    try {
        return d.run(origin);
    } catch (JsonFault const& f) {
        refuse(d.row() ? QStringLiteral("row %1: ").arg(d.row()) : QString(), f);
    } catch (RowError const& r) {
        throw Exception(QStringLiteral("%1: row %2: %3").arg(origin).arg(d.row()).arg(r.reason));
    }
    Q_UNREACHABLE();
}
