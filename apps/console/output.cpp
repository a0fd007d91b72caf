#include "output.h"

#include <algorithm>
#include <unistd.h>

namespace console {

QTextStream& out()
{
    static QTextStream s(stdout);
    return s;
}

QString printable(QString const& text)
{
    QString result;
    result.reserve(text.size());
    for (QChar c : text) {
        QChar::Category category = c.category();
        if (c == QLatin1Char('\\')) result += QLatin1String("\\\\");
        else if (c == QLatin1Char('\n')) result += QLatin1String("\\n");
        else if (c == QLatin1Char('\r')) result += QLatin1String("\\r");
        else if (c == QLatin1Char('\t')) result += QLatin1String("\\t");
        else if (category == QChar::Other_Control || category == QChar::Other_Format
                 || category == QChar::Separator_Line || category == QChar::Separator_Paragraph)
            result += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        else result += c;
    }
    return result;
}

Progress::Progress(char const* what, bool enabled, std::FILE* to)
    : Progress(what, enabled, isatty(fileno(to)) != 0, to)
{
}

Progress::Progress(char const* what, bool enabled, bool terminal, std::FILE* to)
    : m_what(what), m_enabled(enabled), m_terminal(terminal), m_to(to)
{
}

namespace {
Progress* g_inPlace = nullptr;   // the progress whose line is shown in place
}

Progress::~Progress()
{
    if (g_inPlace == this) clearLine();
}

void Progress::clearLine()
{
    Progress* p = g_inPlace;
    if (!p) return;
    g_inPlace = nullptr;
    std::fprintf(p->m_to, "\r%*s\r", p->m_width, "");
    std::fflush(p->m_to);
}

void Progress::step(int done, int total)
{
    if (!m_enabled || total <= 0) return;
    if (m_terminal) {
        // Rewritten in place about fifty times, whatever the length.
        if (done != total && done % std::max(1, total / 50) != 0) return;
        m_width = std::fprintf(m_to, "\r%s: %3d%% (%d of %d batches)", m_what, int(qint64(done) * 100 / total), done, total);
        g_inPlace = this;
        if (done == total) {
            std::fputc('\n', m_to);
            g_inPlace = nullptr;
        }
    } else {
        int tenths = int(qint64(done) * 10 / total);
        if (tenths <= m_shownTenths) return;
        m_shownTenths = tenths;
        std::fprintf(m_to, "%s: %d%% (%d of %d batches)\n", m_what, tenths * 10, done, total);
    }
    std::fflush(m_to);
}

} // namespace console
