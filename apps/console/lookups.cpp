#include "lookups.h"
#include "output.h"
#include "startup.h"

#include <directories>

#include <QCommandLineParser>
#include <QTextStream>
#include <QHash>
#include <QStringList>
#include <limits>

namespace console {
namespace {

// Comma-separated whole numbers, each within [min, max].
bool numbers(QString const& value, int count, QList<long long>& out, long long min = std::numeric_limits<int>::min(),
             long long max = std::numeric_limits<int>::max())
{
    QStringList parts = value.split(QLatin1Char(','));
    if (parts.size() != count) return false;
    for (QString const& p : parts) {
        bool ok = false;
        long long n = p.toLongLong(&ok);
        if (!ok || n < min || n > max) return false;
        out << n;
    }
    return true;
}

bool readTextId(QString const& value, int& stock, int& board, long long& id)
{
    QList<long long> n;
    QStringList parts = value.split(QLatin1Char(','));
    if (!numbers(parts.mid(0, 2).join(QLatin1Char(',')), 2, n) || parts.size() != 3) return false;
    bool ok = false;
    id = parts[2].toLongLong(&ok);
    stock = int(n[0]);
    board = int(n[1]);
    return ok;
}

bool readCode(QString const& value, QString& code, int& stock, int& board)
{
    // CODE, or CODE@STOCK, or CODE@STOCK,BOARD
    code = value.section(QLatin1Char('@'), 0, 0);
    QString where = value.section(QLatin1Char('@'), 1);
    if (code.isEmpty() || value.count(QLatin1Char('@')) > 1) return false;
    stock = board = 0;
    if (!value.contains(QLatin1Char('@'))) return true;
    QList<long long> n;
    int count = where.count(QLatin1Char(',')) + 1;
    if (count > 2 || !numbers(where, count, n)) return false;
    stock = int(n[0]);
    if (count == 2) board = int(n[1]);
    return true;
}

QString wants(bool ok, char const* shape) { return ok ? QString() : QStringLiteral("needs %1").arg(QLatin1String(shape)); }

bool notFound(QTextStream& out, char const* what, QString const& value)
{
    out << what << " " << printable(value) << ": not found\n";
    return false;
}

// A price column at the security's decimals; "-" when the row holds none.
QString price(Record const& r, char const* column, int decimals)
{
    Field f = r.data(QLatin1String(column));
    if (!f.hasValue()) return QStringLiteral("-");
    decimal d = f.toDecimal();
    if (decimals >= 0 && decimals <= 18) d.setScale(short(decimals));
    return d.toString();
}

bool printSecurity(QTextStream& out, char const* what, QString const& value, Record const& r)
{
    if (r.isEmpty()) return notFound(out, what, value);
    SecurityDirectory* s = SecurityDirectory::i();
    int stock = r.data(QStringLiteral("stock_id")).toInteger(), board = r.data(QStringLiteral("board_id")).toInteger();
    long long id = r.data(QStringLiteral("sec_id")).toInteger64();
    QString textId = SecurityDirectory::textIdById(stock, board, id);
    int decimals = s->decimalsById(stock, board, id);
    out << what << " " << printable(value) << "\n"
        << "  text id:   " << textId << "\n"
        << "  code:      " << printable(s->codeById(stock, board, id)) << "\n"
        << "  name:      " << printable(s->nameById(stock, board, id)) << "\n"
        << "  base:      " << printable(s->baseById(stock, board, id)) << "\n"
        << "  type:      " << printable(QString(s->sectypeByTextId(textId))) << "\n"
        << "  isin:      " << s->getIsinIdById(stock, board, id) << "\n"
        << "  decimals:  " << decimals << "\n"
        << "  lot size:  " << s->lotsizeById(stock, board, id) << "\n"
        << "  bid / ask: " << price(r, "bid", decimals) << " / " << price(r, "ask", decimals) << "\n"
        << "  board:     " << printable(BoardDirectory::i()->nameById(stock, board)) << " ("
        << printable(BoardDirectory::i()->codeById(stock, board)) << ")\n"
        << "  market:    " << printable(StockDirectory::i()->nameByIdAs(stock)) << "\n";
    return true;
}

QString checkSecurity(QString const& value)
{
    int stock, board;
    long long id;
    return wants(readTextId(value, stock, board, id), "STOCK,BOARD,ID, three whole numbers");
}

bool lookupSecurity(QTextStream& out, QString const& value)
{
    int stock, board;
    long long id;
    readTextId(value, stock, board, id);
    return printSecurity(out, "security", value, SecurityDirectory::i()->recordById(stock, board, id));
}

QString checkSecurityByCode(QString const& value)
{
    QString code;
    int stock, board;
    return wants(readCode(value, code, stock, board), "CODE, CODE@STOCK or CODE@STOCK,BOARD");
}

bool lookupSecurityByCode(QTextStream& out, QString const& value)
{
    QString code;
    int stock, board;
    readCode(value, code, stock, board);
    return printSecurity(out, "security code", value, SecurityDirectory::i()->recordBySecCode(code, stock, board));
}

QString checkIsin(QString const& value)
{
    QList<long long> n;
    return wants(numbers(value, 3, n), "STOCK,BOARD,ISIN, three whole numbers");
}

bool lookupIsin(QTextStream& out, QString const& value)
{
    QList<long long> n;
    numbers(value, 3, n);
    return printSecurity(out, "isin", value, SecurityDirectory::i()->recordByIsinId(int(n[0]), int(n[1]), int(n[2])));
}

QString checkBoard(QString const& value)
{
    QList<long long> n;
    return wants(numbers(value, 2, n), "STOCK,BOARD, two whole numbers");
}

bool lookupBoard(QTextStream& out, QString const& value)
{
    QList<long long> n;
    numbers(value, 2, n);
    int stock = int(n[0]), board = int(n[1]);
    BoardDirectory* b = BoardDirectory::i();
    if (b->recordById(stock, board).isEmpty()) return notFound(out, "board", value);
    auto yes = [](bool v) { return v ? "yes" : "no"; };
    out << "board " << value << "\n"
        << "  name:      " << printable(b->nameById(stock, board)) << "\n"
        << "  code:      " << printable(b->codeById(stock, board)) << "\n"
        << "  trade:     " << yes(b->isTradeById(stock, board)) << "\n"
        << "  anonymous: " << yes(b->isAnonymById(stock, board)) << "\n"
        << "  address:   " << yes(b->isAddressById(stock, board)) << "\n"
        << "  proxy:     " << yes(b->isProxyById(stock, board)) << "\n"
        << "  RFS:       " << yes(b->isRFSBoardById(stock, board)) << "\n";
    return true;
}

QString checkBoardByCode(QString const& value)
{
    QStringList parts = value.split(QLatin1Char(','));
    return wants(parts.size() == 2 && !parts[0].isEmpty() && !parts[1].isEmpty(), "STOCKCODE,BOARDCODE");
}

bool lookupBoardByCode(QTextStream& out, QString const& value)
{
    QStringList parts = value.split(QLatin1Char(','));
    BoardDirectory* b = BoardDirectory::i();
    int stock = StockDirectory::i()->idByCode(parts[0]);
    int id = b->idByCode(parts[0], parts[1]);
    if (!StockDirectory::i()->ids().contains(stock) || b->recordById(stock, id).isEmpty())
        return notFound(out, "board code", value);
    out << "board code " << printable(value) << "\n"
        << "  id:        " << id << "\n"
        << "  name:      " << printable(b->nameByCode(parts[0], parts[1])) << "\n";
    return true;
}

QString checkMarket(QString const& value)
{
    bool numeric = false;
    value.toLongLong(&numeric);
    QList<long long> n;
    return wants(!value.isEmpty() && (!numeric || numbers(value, 1, n)), "a market number or code");
}

bool lookupMarket(QTextStream& out, QString const& value)
{
    StockDirectory* s = StockDirectory::i();
    bool numeric = false;
    int id = value.toInt(&numeric);
    if (!numeric) id = s->idByCode(value);
    if (!s->ids().contains(id)) return notFound(out, "market", value);
    out << "market " << printable(value) << "\n"
        << "  id:        " << id << "\n"
        << "  code:      " << printable(s->codeById(id)) << "\n"
        << "  name:      " << printable(s->nameByIdAs(id)) << "\n"
        << "  boards:   ";
    for (int board : BoardDirectory::i()->ids(id)) out << " " << board;
    out << "\n";
    return true;
}

// A lookup: `--name value`, repeatable. `check` reads the value alone and
// says why it is malformed; `answer` prints what it found as "key: value"
// lines, or "<what> <value>: not found" and returns false.
struct LookupOption
{
    char const* name;
    char const* valueName;
    char const* description;
    QString (*check)(QString const& value);
    bool (*answer)(QTextStream& out, QString const& value);
};

LookupOption const lookups[] = {
    {"security", "stock,board,id", "Look up a security by text id, e.g. 1,14,4300000001.", checkSecurity, lookupSecurity},
    {"sec-code", "code", "Look up a security by code, optionally on a market and board: CODE[@STOCK[,BOARD]].",
     checkSecurityByCode, lookupSecurityByCode},
    {"isin", "stock,board,isin", "Look up a security by its series: STOCK,BOARD,ISIN.", checkIsin, lookupIsin},
    {"board", "stock,board", "Look up a board: STOCK,BOARD.", checkBoard, lookupBoard},
    {"board-code", "codes", "Look up a board by codes: STOCKCODE,BOARDCODE.", checkBoardByCode, lookupBoardByCode},
    {"market", "id|code", "Look up a market by number or code.", checkMarket, lookupMarket},
};

class LookupCommand : public ConsoleCommand
{
public:
    void addOptions(QCommandLineParser& parser) override
    {
        for (LookupOption const& l : lookups)
            parser.addOption(QCommandLineOption(QLatin1String(l.name), QLatin1String(l.description), QLatin1String(l.valueName)));
    }

    QString check(QCommandLineParser const& parser) const override
    {
        for (LookupOption const& l : lookups)
            for (QString const& value : parser.values(QLatin1String(l.name))) {
                QString const why = l.check(value);
                if (!why.isEmpty()) return QStringLiteral("--%1 %2: %3").arg(QLatin1String(l.name), value, why);
            }
        return QString();
    }

    // Answered in the order given; a question whose directory has no table
    // in this market is refused with the directory's own message.
    int run(RunContext& c) override
    {
        int status = apps::Done;
        QHash<QString, int> seen;
        for (QString const& name : c.parser.optionNames())
            for (LookupOption const& l : lookups) {
                if (name != QLatin1String(l.name)) continue;
                if (!l.answer(c.out, c.parser.values(name).value(seen[name]++))) status = apps::NotFound;
                c.out.flush();
            }
        return status;
    }
};

} // namespace

std::unique_ptr<ConsoleCommand> lookupCommand() { return std::make_unique<LookupCommand>(); }

} // namespace console
