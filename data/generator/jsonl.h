#pragma once
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace gen {

// Writes JSON Lines batches straight into one growing buffer that is handed
// to fwrite in large blocks: a million-row market is several hundred
// megabytes, so no per-field stream formatting.
//
//   w.begin("boards");
//   w.insert().i("stock_id", 1).s("board_code", "FUT");
//   w.end();
class JsonlWriter
{
public:
    explicit JsonlWriter(std::FILE* file);
    ~JsonlWriter();
    JsonlWriter(JsonlWriter const&) = delete;
    JsonlWriter& operator=(JsonlWriter const&) = delete;

    // A batch of one table. With `chunk` > 0 the batch is split into several
    // lines of at most `chunk` ops (snapshots of big tables).
    void begin(std::string_view table, int chunk = 0);
    void end();

    JsonlWriter& insert() { return op("insert"); }
    JsonlWriter& update() { return op("update"); }
    JsonlWriter& remove() { return op("delete"); }
    void clear();

    // Fields of the current op's row.
    JsonlWriter& i(std::string_view name, std::int64_t value);
    JsonlWriter& s(std::string_view name, std::string_view value);
    JsonlWriter& c(std::string_view name, char code);                 // one-letter code
    JsonlWriter& dec(std::string_view name, std::int64_t mantissa, int scale); // "101.25"
    JsonlWriter& num(std::string_view name, std::int64_t mantissa, int scale); // 1.25 (a JSON number)
    JsonlWriter& dt(std::string_view name, std::int64_t msecs);        // "2026-11-20 18:45:00.000"
    JsonlWriter& dts(std::string_view name, std::int64_t msecs);       // "2026-11-20 18:45:00", whole seconds
    JsonlWriter& date(std::string_view name, std::int64_t days);       // "2026-11-20"
    JsonlWriter& null(std::string_view name);

    std::uint64_t bytesWritten() const { return m_total + m_buf.size(); }
    int batches() const { return m_batches; }
    bool ok() const { return m_ok; }

private:
    JsonlWriter& op(char const* kind);
    void closeOp();
    void key(std::string_view name);
    void flush();
    void putInt(std::int64_t v);
    void putDecimal(std::int64_t mantissa, int scale);

    std::FILE* m_file;
    std::string m_buf;
    std::string m_table;
    std::uint64_t m_total = 0;
    int m_chunk = 0;
    int m_opsInLine = 0;
    int m_batches = 0;
    bool m_inBatch = false;
    bool m_inRow = false;
    bool m_firstField = true;
    bool m_ok = true;
};

// Text of a date-time in the batch format.
std::string formatDateTime(std::int64_t msecs);

} // namespace gen
