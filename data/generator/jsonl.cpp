#include "jsonl.h"
#include "civil.h"
#include <charconv>
#include <cstdlib>

namespace gen {

namespace {
constexpr std::size_t kFlushAt = std::size_t(4) << 20;

void put2(std::string& out, unsigned v)
{
    out.push_back(char('0' + v / 10));
    out.push_back(char('0' + v % 10));
}

void putDateTime(std::string& out, std::int64_t msecs, bool withTime, bool withMs = true)
{
    std::int64_t days = msecs >= 0 ? msecs / kMsPerDay : -((-msecs + kMsPerDay - 1) / kMsPerDay);
    std::int64_t rest = msecs - days * kMsPerDay;
    int y;
    unsigned m, d;
    civilFromDays(days, y, m, d);
    char year[8];
    auto r = std::to_chars(year, year + sizeof year, y);
    out.append(year, r.ptr);
    out.push_back('-');
    put2(out, m);
    out.push_back('-');
    put2(out, d);
    if (!withTime)
        return;
    unsigned ms = unsigned(rest % 1000);
    unsigned sec = unsigned(rest / 1000);
    out.push_back(' ');
    put2(out, sec / 3600);
    out.push_back(':');
    put2(out, sec / 60 % 60);
    out.push_back(':');
    put2(out, sec % 60);
    if (!withMs)
        return;
    out.push_back('.');
    out.push_back(char('0' + ms / 100));
    put2(out, ms % 100);
}
} // namespace

std::string formatDateTime(std::int64_t msecs)
{
    std::string out;
    putDateTime(out, msecs, true);
    return out;
}

JsonlWriter::JsonlWriter(std::FILE* file) : m_file(file)
{
    m_buf.reserve(kFlushAt + (std::size_t(1) << 16));
}

JsonlWriter::~JsonlWriter()
{
    if (m_inBatch)
        end();
    flush();
}

void JsonlWriter::flush()
{
    if (m_buf.empty())
        return;
    if (std::fwrite(m_buf.data(), 1, m_buf.size(), m_file) != m_buf.size())
        m_ok = false;
    m_total += m_buf.size();
    m_buf.clear();
}

void JsonlWriter::begin(std::string_view table, int chunk)
{
    if (m_inBatch)
        end();
    m_table.assign(table.data(), table.size());
    m_chunk = chunk;
    m_opsInLine = 0;
    m_inBatch = true;
    m_buf += "{\"table\":\"";
    m_buf += m_table;
    m_buf += "\",\"ops\":[";
    ++m_batches;
}

void JsonlWriter::end()
{
    if (!m_inBatch)
        return;
    closeOp();
    m_buf += "]}\n";
    m_inBatch = false;
    if (m_buf.size() >= kFlushAt)
        flush();
}

void JsonlWriter::closeOp()
{
    if (m_inRow) {
        m_buf += "}}";
        m_inRow = false;
    }
}

JsonlWriter& JsonlWriter::op(char const* kind)
{
    if (!m_inBatch)
        std::abort();
    closeOp();
    if (m_chunk > 0 && m_opsInLine == m_chunk) {
        std::string table = m_table;
        int chunk = m_chunk;
        end();
        begin(table, chunk);
    }
    if (m_opsInLine++ > 0)
        m_buf.push_back(',');
    m_buf += "{\"";
    m_buf += kind;
    m_buf += "\":{";
    m_inRow = true;
    m_firstField = true;
    return *this;
}

void JsonlWriter::clear()
{
    closeOp();
    if (m_opsInLine++ > 0)
        m_buf.push_back(',');
    m_buf += "{\"clear\":true}";
}

void JsonlWriter::key(std::string_view name)
{
    if (!m_firstField)
        m_buf.push_back(',');
    m_firstField = false;
    m_buf.push_back('"');
    m_buf.append(name.data(), name.size());
    m_buf += "\":";
}

void JsonlWriter::putInt(std::int64_t v)
{
    char tmp[24];
    auto r = std::to_chars(tmp, tmp + sizeof tmp, v);
    m_buf.append(tmp, r.ptr);
}

void JsonlWriter::putDecimal(std::int64_t mantissa, int scale)
{
    if (mantissa < 0) {
        m_buf.push_back('-');
        mantissa = -mantissa;
    }
    std::int64_t pow = 1;
    for (int k = 0; k < scale; ++k)
        pow *= 10;
    putInt(mantissa / pow);
    if (scale > 0) {
        m_buf.push_back('.');
        char tmp[24];
        auto r = std::to_chars(tmp, tmp + sizeof tmp, mantissa % pow);
        for (long pad = scale - (r.ptr - tmp); pad > 0; --pad)
            m_buf.push_back('0');
        m_buf.append(tmp, r.ptr);
    }
}

JsonlWriter& JsonlWriter::i(std::string_view name, std::int64_t value)
{
    key(name);
    putInt(value);
    return *this;
}

JsonlWriter& JsonlWriter::s(std::string_view name, std::string_view value)
{
    key(name);
    m_buf.push_back('"');
    for (char ch : value) {
        if (ch == '"' || ch == '\\')
            m_buf.push_back('\\');
        m_buf.push_back(ch);
    }
    m_buf.push_back('"');
    return *this;
}

JsonlWriter& JsonlWriter::c(std::string_view name, char code)
{
    key(name);
    m_buf.push_back('"');
    m_buf.push_back(code);
    m_buf.push_back('"');
    return *this;
}

JsonlWriter& JsonlWriter::dec(std::string_view name, std::int64_t mantissa, int scale)
{
    key(name);
    m_buf.push_back('"');
    putDecimal(mantissa, scale);
    m_buf.push_back('"');
    return *this;
}

JsonlWriter& JsonlWriter::num(std::string_view name, std::int64_t mantissa, int scale)
{
    key(name);
    putDecimal(mantissa, scale);
    return *this;
}

JsonlWriter& JsonlWriter::dt(std::string_view name, std::int64_t msecs)
{
    key(name);
    m_buf.push_back('"');
    putDateTime(m_buf, msecs, true);
    m_buf.push_back('"');
    return *this;
}

JsonlWriter& JsonlWriter::dts(std::string_view name, std::int64_t msecs)
{
    key(name);
    m_buf.push_back('"');
    putDateTime(m_buf, msecs, true, false);
    m_buf.push_back('"');
    return *this;
}

JsonlWriter& JsonlWriter::date(std::string_view name, std::int64_t days)
{
    key(name);
    m_buf.push_back('"');
    putDateTime(m_buf, days * kMsPerDay, false);
    m_buf.push_back('"');
    return *this;
}

JsonlWriter& JsonlWriter::null(std::string_view name)
{
    key(name);
    m_buf += "null";
    return *this;
}

} // namespace gen
