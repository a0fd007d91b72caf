#include "lookups.h"

#include <directories>

#include <QCoreApplication>
#include <QStringList>

namespace console {
namespace {

bool numbers(QString const& value, int count, QList<long long>& out)
{
    QStringList parts = value.split(QLatin1Char(','));
    if (parts.size() != count) return false;
    for (QString const& p : parts) {
        bool ok = false;
        out << p.trimmed().toLongLong(&ok);
        if (!ok) return false;
    }
    return true;
}

void printSecurity(QTextStream& out, Record const& r)
{
    SecurityDirectory* s = SecurityDirectory::i();
    if (r.isEmpty()) {
        out << "  " << QCoreApplication::translate("SecurityDirectory", "<инструмент не найден>") << "\n";
        return;
    }
    int stock = r.data("stock_id").toInteger(), board = r.data("board_id").toInteger();
    long long id = r.data("sec_id").toInteger64();
    QString textId = SecurityDirectory::textIdById(stock, board, id);
    out << "  text id:   " << textId << "\n"
        << "  code:      " << s->codeById(stock, board, id) << "\n"
        << "  name:      " << s->nameById(stock, board, id) << "\n"
        << "  base:      " << s->baseById(stock, board, id) << "\n"
        << "  type:      " << s->sectypeByTextId(textId) << "\n"
        << "  isin:      " << s->getIsinIdById(stock, board, id) << "\n"
        << "  decimals:  " << s->decimalsById(stock, board, id) << "\n"
        << "  lot size:  " << s->lotsizeById(stock, board, id) << "\n"
        << "  bid / ask: " << s->bidByTextId(textId).toString() << " / " << s->askByTextId(textId).toString() << "\n"
        << "  board:     " << BoardDirectory::i()->nameById(stock, board) << " ("
        << BoardDirectory::i()->codeById(stock, board) << ")\n"
        << "  market:    " << StockDirectory::i()->nameByIdAs(stock) << "\n";
}

} // namespace

bool lookupSecurity(QTextStream& out, QString const& textId)
{
    out << "security " << textId << "\n";
    printSecurity(out, SecurityDirectory::i()->recordByTextId(textId));
    return true;
}

bool lookupSecurityByCode(QTextStream& out, QString const& value)
{
    // CODE, or CODE@STOCK, or CODE@STOCK,BOARD
    QString code = value.section(QLatin1Char('@'), 0, 0);
    QString where = value.section(QLatin1Char('@'), 1);
    QList<long long> n;
    if (!where.isEmpty() && !numbers(where, where.count(QLatin1Char(',')) + 1, n)) return false;
    if (n.size() > 2) return false;
    int stock = n.size() > 0 ? int(n[0]) : 0, board = n.size() > 1 ? int(n[1]) : 0;
    out << "security code " << code << "\n";
    printSecurity(out, SecurityDirectory::i()->recordBySecCode(code, stock, board));
    return true;
}

bool lookupIsin(QTextStream& out, QString const& value)
{
    QList<long long> n;
    if (!numbers(value, 3, n)) return false;
    out << "isin " << value << "\n";
    printSecurity(out, SecurityDirectory::i()->recordByIsinId(int(n[0]), int(n[1]), int(n[2])));
    return true;
}

bool lookupBoard(QTextStream& out, QString const& value)
{
    QList<long long> n;
    if (!numbers(value, 2, n)) return false;
    int stock = int(n[0]), board = int(n[1]);
    BoardDirectory* b = BoardDirectory::i();
    out << "board " << value << "\n"
        << "  name:      " << b->nameById(stock, board) << "\n"
        << "  code:      " << b->codeById(stock, board) << "\n"
        << "  trade:     " << (b->isTradeById(stock, board) ? "yes" : "no") << "\n"
        << "  anonymous: " << (b->isAnonymById(stock, board) ? "yes" : "no") << "\n"
        << "  address:   " << (b->isAddressById(stock, board) ? "yes" : "no") << "\n"
        << "  proxy:     " << (b->isProxyById(stock, board) ? "yes" : "no") << "\n"
        << "  RFS:       " << (b->isRFSBoardById(stock, board) ? "yes" : "no") << "\n";
    return true;
}

bool lookupBoardByCode(QTextStream& out, QString const& value)
{
    QStringList parts = value.split(QLatin1Char(','));
    if (parts.size() != 2) return false;
    int id = BoardDirectory::i()->idByCode(parts[0], parts[1]);
    out << "board code " << value << "\n"
        << "  id:        " << id << "\n"
        << "  name:      " << BoardDirectory::i()->nameByCode(parts[0], parts[1]) << "\n";
    return true;
}

bool lookupMarket(QTextStream& out, QString const& idOrCode)
{
    StockDirectory* s = StockDirectory::i();
    bool numeric = false;
    int id = idOrCode.toInt(&numeric);
    if (!numeric) id = s->idByCode(idOrCode);
    out << "market " << idOrCode << "\n"
        << "  id:        " << id << "\n"
        << "  code:      " << s->codeById(id) << "\n"
        << "  name:      " << s->nameByIdAs(id) << "\n"
        << "  boards:   ";
    for (int board : BoardDirectory::i()->ids(id)) out << " " << board;
    out << "\n";
    return true;
}

} // namespace console
