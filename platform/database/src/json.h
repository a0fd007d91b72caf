#pragma once
#include <QString>
#include <cstdint>
#include <string>

// A strict, allocation-light JSON cursor over one line of text. It checks the
// grammar as it goes; every error throws JsonError with the byte offset.
struct JsonError
{
    QString reason;
    int offset;
};

class JsonCursor
{
public:
    JsonCursor(char const* begin, char const* end) : m_begin(begin), m_p(begin), m_end(end) {}

    enum Kind { Object, Array, String, Number, True, False, Null, End };

    void skipSpace() { while (m_p < m_end && (*m_p == ' ' || *m_p == '\t' || *m_p == '\r' || *m_p == '\n')) ++m_p; }
    Kind peek();
    void expect(char c);
    bool tryConsume(char c);   // after skipping space
    // Reads a string; `raw` gets the decoded UTF-8 bytes.
    void readString(std::string& raw);
    // Reads a number token as its text (validated against the JSON grammar).
    void readNumber(char const*& begin, char const*& end);
    void readLiteral(Kind kind);
    void skipValue(int depth = 0);
    bool atEnd() { skipSpace(); return m_p >= m_end; }
    int offset() const { return int(m_p - m_begin); }
    char const* position() const { return m_p; }
    void seek(char const* p) { m_p = p; }
    [[noreturn]] void fail(QString const& reason) const { throw JsonError{reason, offset()}; }

private:
    char const* m_begin;
    char const* m_p;
    char const* m_end;
};
