#include "sqlitepeer.h"
#include "market.h"

#include <database/database.h>

#include <database/index.h>
#include <database/table.h>

#include <map>
#include <memory>
#include <stdexcept>

namespace bench {

namespace {
[[noreturn]] void fail(sqlite3* db, std::string const& what)
{
    throw std::runtime_error(what + ": " + (db ? sqlite3_errmsg(db) : "no database"));
}

char const* sqlType(FieldType::Type type)
{
    switch (type) {
    case FieldType::Double:
    case FieldType::XDecimal: return "REAL";
    case FieldType::Char:
    case FieldType::VarChar: return "TEXT";
    case FieldType::Block: return "BLOB";
    default: return "INTEGER";   // integers, date-times, decimals as their scaled mantissa
    }
}

// Binds one column of a row buffer; decimals go in as their mantissa at the
// column's scale, so the peer does no arithmetic either.
void bindField(sqlite3_stmt* s, int slot, Field const& f)
{
    if (!f.hasValue()) {
        sqlite3_bind_null(s, slot);
        return;
    }
    switch (f.type()) {
    case FieldType::Int: sqlite3_bind_int(s, slot, f.rawInt32()); break;
    case FieldType::Int64:
    case FieldType::DateTime: sqlite3_bind_int64(s, slot, f.rawInt64()); break;
    case FieldType::Decimal: sqlite3_bind_int64(s, slot, f.rawDecimal().mantissa()); break;
    case FieldType::Double: sqlite3_bind_double(s, slot, f.rawDouble()); break;
    case FieldType::XDecimal: sqlite3_bind_double(s, slot, f.rawXDecimal().toDouble()); break;
    case FieldType::Char: {
        auto const* units = reinterpret_cast<char16_t const*>(f.data());
        int n = 0;
        while (n < f.length() / 2 && units[n]) ++n;
        sqlite3_bind_text16(s, slot, units, n * 2, SQLITE_TRANSIENT);
        break;
    }
    case FieldType::VarChar: {
        QString text = f.asStaticString();
        sqlite3_bind_text16(s, slot, text.utf16(), text.size() * 2, SQLITE_TRANSIENT);
        break;
    }
    case FieldType::Block: sqlite3_bind_blob(s, slot, f.data(), f.length(), SQLITE_TRANSIENT); break;
    default: sqlite3_bind_null(s, slot); break;
    }
}
} // namespace

Sqlite::Sqlite()
{
    if (sqlite3_open(":memory:", &m_db) != SQLITE_OK) fail(m_db, "open");
    // No rollback journal: the peer at its fastest, writing in place as the
    // engine does once a batch has passed its checks. With the default
    // in-memory journal every transaction copies each page it touches, and
    // its cost swings with the state of the heap.
    exec("PRAGMA journal_mode=OFF");
}

Sqlite::~Sqlite()
{
    for (sqlite3_stmt* s : m_statements) sqlite3_finalize(s);
    sqlite3_close(m_db);
}

void Sqlite::exec(std::string const& sql)
{
    char* error = nullptr;
    if (sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
        std::string text = sql + ": " + (error ? error : "?");
        sqlite3_free(error);
        throw std::runtime_error(text);
    }
}

sqlite3_stmt* Sqlite::prepare(std::string const& sql)
{
    sqlite3_stmt* s = nullptr;
    if (sqlite3_prepare_v2(m_db, sql.c_str(), int(sql.size()), &s, nullptr) != SQLITE_OK) fail(m_db, sql);
    m_statements.push_back(s);
    return s;
}

long long stepOne(sqlite3_stmt* statement)
{
    long long value = -1;
    int rc = sqlite3_step(statement);
    if (rc == SQLITE_ROW) value = sqlite3_column_int64(statement, 0);
    else if (rc != SQLITE_DONE) fail(sqlite3_db_handle(statement), "step");
    sqlite3_reset(statement);
    return value;
}

void stepDone(sqlite3_stmt* statement)
{
    if (sqlite3_step(statement) != SQLITE_DONE) fail(sqlite3_db_handle(statement), "step");
    sqlite3_reset(statement);
}

long long packedSecurityKey(int stock, int board, long long secId)
{
    return (static_cast<long long>(stock) << 48) | (static_cast<long long>(board) << 40) | secId;
}

void bindSecurityKey(sqlite3_stmt* statement, KeyForm form, int stock, int board, long long secId)
{
    if (form == KeyForm::PackedRowid) {
        sqlite3_bind_int64(statement, 1, packedSecurityKey(stock, board, secId));
    } else {
        sqlite3_bind_int(statement, 1, stock);
        sqlite3_bind_int(statement, 2, board);
        sqlite3_bind_int64(statement, 3, secId);
    }
}

std::string quoted(QString const& identifier) { return '"' + identifier.toStdString() + '"'; }

MirrorLayout productLayout(QString const& table)
{
    MirrorLayout layout;
    if (table == QLatin1String("securities")) layout.indexes.push_back({"stock_id", "board_id", "isin_id"});
    if (table == QLatin1String("boards")) layout.indexes.push_back({"stock_id", "board_code"});
    return layout;
}

long long mirrorTable(Sqlite& db, Table const& table, MirrorLayout const& layout)
{
    std::string name = quoted(table.name());
    bool packed = layout.key == KeyForm::PackedRowid;
    int stockCol = table.columnIndex(QStringLiteral("stock_id")), boardCol = table.columnIndex(QStringLiteral("board_id"));
    int secCol = table.columnIndex(QStringLiteral("sec_id"));
    if ((packed || layout.textId) && (stockCol < 0 || boardCol < 0 || secCol < 0))
        throw std::runtime_error("a packed or text key needs stock_id, board_id and sec_id");

    std::string create = "CREATE TABLE " + name + " (";
    std::string insert = "INSERT INTO " + name + " VALUES (";
    int placeholders = 0;
    auto addColumn = [&](std::string const& column, char const* type) {
        if (placeholders) { create += ", "; insert += ", "; }
        create += column + " " + type;
        insert += "?";
        ++placeholders;
    };
    if (packed) addColumn("k", "INTEGER PRIMARY KEY");
    for (int c = 0; c < table.columnCount(); ++c) addColumn(quoted(table.columnDef(c).name), sqlType(table.columnDef(c).typeCode()));
    if (layout.textId) addColumn("text_id", "TEXT");
    if (!packed) {
        QStringList key;
        for (QString const& k : table.keyColumns()) key << QString::fromStdString(quoted(k));
        create += ", PRIMARY KEY (" + key.join(QStringLiteral(", ")).toStdString() + ")) WITHOUT ROWID";
    } else {
        create += ")";
    }
    insert += ")";
    db.exec(create);
    int n = 0;
    for (QStringList const& columns : layout.indexes) {
        QStringList q;
        for (QString const& c : columns) q << QString::fromStdString(quoted(c));
        db.exec("CREATE INDEX " + quoted(table.name() + QStringLiteral("_ix%1").arg(++n)) + " ON " + name + " (" +
                q.join(QStringLiteral(", ")).toStdString() + ")");
    }
    if (layout.textId) db.exec("CREATE INDEX " + quoted(table.name() + QStringLiteral("_text")) + " ON " + name + " (text_id)");

    sqlite3_stmt* s = db.prepare(insert);
    db.exec("BEGIN");
    long long rows = 0;
    auto* master = table.masterIndex();
    std::string text;
    for (auto it = master->begin(); it != master->end(); ++it) {
        unsigned char* row = it->row();
        int slot = 1;
        int stock = 0, board = 0;
        long long sec = 0;
        if (packed || layout.textId) {
            stock = table.dataPtr(row, stockCol).rawInt32();
            board = table.dataPtr(row, boardCol).rawInt32();
            sec = table.dataPtr(row, secCol).rawInt64();
        }
        if (packed) sqlite3_bind_int64(s, slot++, packedSecurityKey(stock, board, sec));
        for (int c = 0; c < table.columnCount(); ++c) bindField(s, slot++, table.dataPtr(row, c));
        if (layout.textId) {
            text = std::to_string(stock) + ',' + std::to_string(board) + ',' + std::to_string(sec);
            sqlite3_bind_text(s, slot++, text.data(), int(text.size()), SQLITE_TRANSIENT);
        }
        stepDone(s);
        ++rows;
    }
    db.exec("COMMIT");
    return rows;
}

Sqlite& securitiesMirror(KeyForm key, bool textId)
{
    static std::map<std::pair<int, bool>, std::unique_ptr<Sqlite>> mirrors;
    auto& slot = mirrors[{int(key), textId}];
    if (!slot) {
        ensureMarketLoaded();
        slot.reset(new Sqlite);
        MirrorLayout layout = productLayout(QStringLiteral("securities"));
        layout.key = key;
        layout.textId = textId;
        mirrorTable(*slot, *coreDatabase()->table(QStringLiteral("securities")), layout);
    }
    return *slot;
}

Sqlite& boardsMirror()
{
    static std::unique_ptr<Sqlite> mirror;
    if (!mirror) {
        ensureMarketLoaded();
        mirror.reset(new Sqlite);
        mirrorTable(*mirror, *coreDatabase()->table(QStringLiteral("boards")), productLayout(QStringLiteral("boards")));
    }
    return *mirror;
}

} // namespace bench
