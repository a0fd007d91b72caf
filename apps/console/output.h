#pragma once
#include <QString>
#include <QTextStream>
#include <cstdio>

namespace console {

// The console's standard output. Every caller flushes after a complete
// line or block, so that a reader at the other end of a pipe sees each line
// as it happens.
QTextStream& out();

// `text` with every control and format character written as an escape
// (\n, \t, \u001b ...) and backslashes doubled: data and notification texts
// come from outside, and one value must stay on one line and never drive
// the terminal.
QString printable(QString const& text);

// Progress of a long load on stderr. On a terminal, one line rewritten in
// place; through a pipe or into a file, one line per tenth of the work.
class Progress
{
public:
    Progress(char const* what, bool enabled, std::FILE* to = stderr);
    Progress(char const* what, bool enabled, bool terminal, std::FILE* to);
    ~Progress();
    void step(int done, int total);

    // Blanks a progress line being rewritten in place, if any, so that a
    // line printed next does not run into it on a shared terminal.
    static void clearLine();

private:
    char const* m_what;
    bool m_enabled;
    bool m_terminal;
    std::FILE* m_to;
    int m_shownTenths = 0;
    int m_width = 0;    // of the line shown in place
};

} // namespace console
