#include "json.h"

JsonCursor::Kind JsonCursor::peek()
{
    skipSpace();
    if (m_p >= m_end) return End;
    switch (*m_p) {
    case '{': return Object;
    case '[': return Array;
    case '"': return String;
    case 't': return True;
    case 'f': return False;
    case 'n': return Null;
    default:
        if (*m_p == '-' || (*m_p >= '0' && *m_p <= '9')) return Number;
        fail(QStringLiteral("unexpected character '%1'").arg(QChar::fromLatin1(*m_p)));
    }
}

void JsonCursor::expect(char c)
{
    skipSpace();
    if (m_p >= m_end || *m_p != c) fail(QStringLiteral("expected '%1'").arg(QChar::fromLatin1(c)));
    ++m_p;
}

bool JsonCursor::tryConsume(char c)
{
    skipSpace();
    if (m_p < m_end && *m_p == c) { ++m_p; return true; }
    return false;
}

namespace {
int hexValue(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}
void appendUtf8(std::string& out, unsigned cp)
{
    if (cp < 0x80) out += char(cp);
    else if (cp < 0x800) { out += char(0xC0 | (cp >> 6)); out += char(0x80 | (cp & 0x3F)); }
    else if (cp < 0x10000) { out += char(0xE0 | (cp >> 12)); out += char(0x80 | ((cp >> 6) & 0x3F)); out += char(0x80 | (cp & 0x3F)); }
    else { out += char(0xF0 | (cp >> 18)); out += char(0x80 | ((cp >> 12) & 0x3F)); out += char(0x80 | ((cp >> 6) & 0x3F)); out += char(0x80 | (cp & 0x3F)); }
}
} // namespace

void JsonCursor::readString(std::string& raw)
{
    expect('"');
    raw.clear();
    while (true) {
        char const* run = m_p;
        while (m_p < m_end && *m_p != '"' && *m_p != '\\' && static_cast<unsigned char>(*m_p) >= 0x20) ++m_p;
        raw.append(run, std::size_t(m_p - run));
        if (m_p >= m_end) fail(QStringLiteral("unterminated string"));
        char c = *m_p;
        if (c == '"') { ++m_p; return; }
        if (static_cast<unsigned char>(c) < 0x20) fail(QStringLiteral("control character in string"));
        ++m_p;   // backslash
        if (m_p >= m_end) fail(QStringLiteral("unterminated escape"));
        char e = *m_p++;
        switch (e) {
        case '"': raw += '"'; break;
        case '\\': raw += '\\'; break;
        case '/': raw += '/'; break;
        case 'b': raw += '\b'; break;
        case 'f': raw += '\f'; break;
        case 'n': raw += '\n'; break;
        case 'r': raw += '\r'; break;
        case 't': raw += '\t'; break;
        case 'u': {
            auto read4 = [this]() {
                if (m_end - m_p < 4) fail(QStringLiteral("short \\u escape"));
                unsigned v = 0;
                for (int i = 0; i < 4; ++i) {
                    int h = hexValue(m_p[i]);
                    if (h < 0) fail(QStringLiteral("bad \\u escape"));
                    v = v * 16 + unsigned(h);
                }
                m_p += 4;
                return v;
            };
            unsigned cp = read4();
            if (cp >= 0xD800 && cp <= 0xDBFF) {
                if (m_end - m_p < 6 || m_p[0] != '\\' || m_p[1] != 'u') fail(QStringLiteral("lone surrogate"));
                m_p += 2;
                unsigned lo = read4();
                if (lo < 0xDC00 || lo > 0xDFFF) fail(QStringLiteral("lone surrogate"));
                cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
            } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
                fail(QStringLiteral("lone surrogate"));
            }
            appendUtf8(raw, cp);
            break;
        }
        default: fail(QStringLiteral("bad escape"));
        }
    }
}

void JsonCursor::readNumber(char const*& begin, char const*& end)
{
    skipSpace();
    begin = m_p;
    if (m_p < m_end && *m_p == '-') ++m_p;
    auto digits = [this]() { char const* s = m_p; while (m_p < m_end && *m_p >= '0' && *m_p <= '9') ++m_p; return m_p - s; };
    if (m_p < m_end && *m_p == '0') ++m_p;
    else if (digits() == 0) fail(QStringLiteral("bad number"));
    if (m_p < m_end && *m_p == '.') { ++m_p; if (digits() == 0) fail(QStringLiteral("bad number")); }
    if (m_p < m_end && (*m_p == 'e' || *m_p == 'E')) {
        ++m_p;
        if (m_p < m_end && (*m_p == '+' || *m_p == '-')) ++m_p;
        if (digits() == 0) fail(QStringLiteral("bad number"));
    }
    end = m_p;
}

void JsonCursor::readLiteral(Kind kind)
{
    skipSpace();
    char const* word = kind == True ? "true" : kind == False ? "false" : "null";
    std::size_t n = std::char_traits<char>::length(word);
    if (std::size_t(m_end - m_p) < n || std::char_traits<char>::compare(m_p, word, n) != 0)
        fail(QStringLiteral("bad literal"));
    m_p += n;
}

void JsonCursor::skipValue(int depth)
{
    if (depth > 64) fail(QStringLiteral("nesting too deep"));
    std::string scratch;
    switch (peek()) {
    case Object:
        expect('{');
        if (tryConsume('}')) return;
        do {
            readString(scratch);
            expect(':');
            skipValue(depth + 1);
        } while (tryConsume(','));
        expect('}');
        return;
    case Array:
        expect('[');
        if (tryConsume(']')) return;
        do skipValue(depth + 1); while (tryConsume(','));
        expect(']');
        return;
    case String: readString(scratch); return;
    case Number: { char const* b; char const* e; readNumber(b, e); return; }
    case True: case False: case Null: readLiteral(peek()); return;
    case End: fail(QStringLiteral("unexpected end of line"));
    }
}
