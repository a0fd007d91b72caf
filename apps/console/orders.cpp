#include "orders.h"
#include "output.h"
#include "signallog.h"
#include "startup.h"

#include <core/defaultcore.h>
#include <core/transactions.h>
#include <database/database.h>
#include <database/exception.h>
#include <directories>
#include <database/replicationclient.h>
#include <gateway/sessiontransport.h>
#include <gateway/simulatedgateway.h>
#include <queries>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QStringList>

namespace console {
namespace {

enum class Command { None, Place, Cancel, CancelAll };

// What the command line asks for, read before anything loads.
struct Request
{
    Command command = Command::None;
    int stock = 0;
    int board = 0;
    long long secId = 0;
    qint64 orderId = 0;
    QString security;   // as given
    QString account;
    QChar side;
    decimal price;
    int quantity = 0;
};

bool readSecurity(QString const& text, Request& r)
{
    static QRegularExpression const shape(QStringLiteral("^([0-9]{1,9}),([0-9]{1,9}),([0-9]{1,18})$"));
    QRegularExpressionMatch m = shape.match(text);
    if (!m.hasMatch()) return false;
    r.stock = m.captured(1).toInt();
    r.board = m.captured(2).toInt();
    r.secId = m.captured(3).toLongLong();
    r.security = text;
    return true;
}

QString readRequest(QCommandLineParser const& parser, QCommandLineOption const& order, QCommandLineOption const& cancel,
                    QCommandLineOption const& cancelAll, QCommandLineOption const& side, QCommandLineOption const& price,
                    QCommandLineOption const& quantity, QCommandLineOption const& send, Request& r)
{
    // The console's own --account (the account report) names the order's account.
    QCommandLineOption const account(QStringLiteral("account"));
    int const commands = int(parser.isSet(order)) + int(parser.isSet(cancel)) + int(parser.isSet(cancelAll));
    if (commands > 1 || parser.values(order).size() > 1 || parser.values(cancel).size() > 1 || parser.values(cancelAll).size() > 1)
        return QStringLiteral("one order command at a time: --order, --cancel or --cancel-all, once");
    if (commands == 0) {
        for (QCommandLineOption const* o : {&side, &price, &quantity, &send})
            if (parser.isSet(*o))
                return QStringLiteral("--%1 goes with --order, --cancel or --cancel-all").arg(o->names().first());
        return QString();
    }
    auto required = [&](QCommandLineOption const& o, char const* command) {
        return parser.isSet(o) ? QString() : QStringLiteral("%1 needs --%2").arg(QLatin1String(command), o.names().first());
    };
    auto refused = [&](QCommandLineOption const& o, char const* command, char const* why) {
        return parser.isSet(o) ? QStringLiteral("%1 takes no --%2: %3").arg(QLatin1String(command), o.names().first(), QLatin1String(why))
                               : QString();
    };
    char const* const name = parser.isSet(order) ? "--order" : parser.isSet(cancel) ? "--cancel" : "--cancel-all";
    QString why;
    if (parser.isSet(cancel)) {
        r.command = Command::Cancel;
        static QRegularExpression const digits(QStringLiteral("^[0-9]{1,18}$"));
        QString const id = parser.value(cancel);
        if (!digits.match(id).hasMatch() || id.toLongLong() <= 0)
            return QStringLiteral("--cancel needs an order id, a positive whole number, not '%1'").arg(id);
        r.orderId = id.toLongLong();
        for (QCommandLineOption const* o : {&account, &side, &price, &quantity})
            if (!(why = refused(*o, name, "the order's own row gives it")).isEmpty()) return why;
        return QString();
    }
    r.command = parser.isSet(order) ? Command::Place : Command::CancelAll;
    QString const security = parser.value(parser.isSet(order) ? order : cancelAll);
    if (!readSecurity(security, r)) return QStringLiteral("%1 '%2': needs STOCK,BOARD,ID").arg(QLatin1String(name), security);
    for (QCommandLineOption const* o : {&account, &side})
        if (!(why = required(*o, name)).isEmpty()) return why;
    if (parser.values(account).size() > 1) return QStringLiteral("%1 needs one --account").arg(QLatin1String(name));
    r.account = parser.value(account);
    if (r.account.isEmpty() || r.account.size() > 12 || r.account.contains(QRegularExpression(QStringLiteral("[\\s|[:cntrl:]]"))))
        return QStringLiteral("--account '%1': an account code of up to 12 characters, without spaces").arg(r.account);
    QString const s = parser.value(side);
    if (s != QLatin1String("B") && s != QLatin1String("S")) return QStringLiteral("--side needs B (buy) or S (sell), not '%1'").arg(s);
    r.side = s.at(0);
    if (r.command == Command::CancelAll) {
        for (QCommandLineOption const* o : {&price, &quantity})
            if (!(why = refused(*o, name, "it cancels every order of the security, account and side")).isEmpty()) return why;
        return QString();
    }
    for (QCommandLineOption const* o : {&price, &quantity})
        if (!(why = required(*o, name)).isEmpty()) return why;
    static QRegularExpression const number(QStringLiteral("^-?[0-9]{1,17}(\\.[0-9]{1,10})?$"));
    QString const p = parser.value(price);
    if (!number.match(p).hasMatch() || !decimal::parse(QStringRef(&p), r.price))
        return QStringLiteral("--price needs a number such as 337.95, not '%1'").arg(p);
    static QRegularExpression const digits(QStringLiteral("^[0-9]{1,10}$"));
    QString const q = parser.value(quantity);
    qint64 const n = digits.match(q).hasMatch() ? q.toLongLong() : 0;
    if (n <= 0 || n > 2147483647) return QStringLiteral("--quantity needs a positive whole number, not '%1'").arg(q);
    r.quantity = int(n);
    return QString();
}

// The order row with that id, searched over every session of the table.
Record findOrder(qint64 orderId)
{
    QSharedPointer<Table> t = ICore::instance()->database()->table(QStringLiteral("orders"));
    if (!t) return Record();
    int const c = t->columnIndex(QStringLiteral("order_id"));
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
        if (t->dataPtr(it->row(), c).rawInt64() == orderId) return *it;
    return Record();
}

QString orderLine(Record const& r)
{
    auto f = [&](char const* column) { return printable(r.data(QLatin1String(column)).toString().trimmed()); };
    return QStringLiteral("order %1: market %2, board %3, session %4, security %5, %6 %7 @ %8, balance %9, status %10, account %11")
        .arg(f("order_id"), f("stock_id"), f("board_id"), f("sess_id"), f("sec_id"), f("buysell"), f("quantity"), f("price"),
             f("balance"))
        .arg(f("status"), f("account"));
}

void printTransaction(QTextStream& out, RawTransaction const& tx, QueriesGen::OrderDescr const* descr)
{
    out << "transaction " << tx.messageCode << " \"" << printable(tx.templateName) << "\" (market " << tx.stockId << ", board "
        << tx.boardId << ")\n";
    for (auto it = tx.params.cbegin(); it != tx.params.cend(); ++it)
        out << QStringLiteral("  %1 %2\n").arg(it.key() + QLatin1Char(':'), -13).arg(printable(it.value().toString()));
    if (descr)
        out << QStringLiteral("  %1 ").arg(QStringLiteral("reads as:"), -13) << printable(descr->direction) << " " << printable(descr->security) << ", price "
            << descr->price.toString() << ", quantity " << descr->quantity << ", account " << printable(descr->account) << "\n";
    out.flush();
}

} // namespace

bool OrderCommand::requested(QCommandLineParser const& parser) const
{
    return parser.isSet(m_order) || parser.isSet(m_cancel) || parser.isSet(m_cancelAll);
}

QString OrderCommand::check(QCommandLineParser const& parser) const
{
    Request r;
    return readRequest(parser, m_order, m_cancel, m_cancelAll, m_side, m_price, m_quantity, m_send, r);
}

int OrderCommand::run(RunContext& c)
{
    Request r;
    readRequest(c.parser, m_order, m_cancel, m_cancelAll, m_side, m_price, m_quantity, m_send, r);   // checked before loading
    if (r.command == Command::None) return apps::Done;
    QString error;
    if (!c.core.transactions()->loadTemplates(c.templatesFile, error)) throw error;

    RawTransaction tx;
    QueriesGen::OrderDescr descr;
    bool described = true;
    // A refusal of the generator (an Exception) ends the program like any other.
    if (r.command == Command::Cancel) {
        Record order = findOrder(r.orderId);
        if (order.isEmpty()) throw QStringLiteral("--cancel %1: no such order in the orders table").arg(r.orderId);
        c.out << orderLine(order) << "\n";
        tx = QueriesGen::i()->dropOrder(order, RawAnswer(), &descr);
    } else {
        if (!SecurityDirectory::i()->recordExists(r.stock, r.board, r.secId))
            throw QStringLiteral("%1 %2: no such security").arg(QLatin1String(r.command == Command::Place ? "--order" : "--cancel-all"), r.security);
        if (r.command == Command::Place) {
            tx = QueriesGen::i()->addOrder(r.stock, r.board, r.secId, r.account, r.price, r.side, r.quantity, &descr);
        } else {
            tx = QueriesGen::i()->dropOrdersBySecurity(r.stock, r.board, r.secId, r.account, r.side);
            described = false;
        }
    }
    printTransaction(c.out, tx, described ? &descr : nullptr);
    if (!tx.isComplete()) throw QStringLiteral("the template lacks parameters: %1").arg(tx.missing.join(QStringLiteral(", ")));
    if (!c.parser.isSet(m_send)) {
        c.out << "not sent (--send sends it)\n";
        c.out.flush();
        return apps::Done;
    }

    // Each batch that comes back is listed with the directories it reached.
    auto listBatch = [&](QString const& origin, QString const& table, int ops) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall);
        QString const signalled = c.signalLog.take();
        c.out << QStringLiteral("batch %1 %2").arg(printable(origin), printable(table))
              << (ops < 0 ? QString() : QStringLiteral(" (%1 %2)").arg(ops).arg(ops == 1 ? "row" : "rows")) << ": "
              << (signalled.isEmpty() ? QStringLiteral("(none)") : signalled) << "\n";
        c.out.flush();
    };
    QList<qint64> touched;
    std::unique_ptr<SimulatedGateway> simulated;
    std::unique_ptr<SessionTransport> session;
    if (c.session) {
        // Over the exchange's session: its batches come back through the replication.
        session.reset(new SessionTransport(&c.core, c.session));
        session->plugInto(c.core.transactions());
        QObject::connect(c.session, &ReplicationClient::batchApplied, session.get(), [&](quint64 sequence, QString const& table) {
            listBatch(QStringLiteral("replication:%1").arg(sequence), table, -1);
        });
        QObject::connect(session.get(), &SessionTransport::answered,
                         [&](RawTransaction const&, int, QString const&, QList<qint64> const& ids) { touched = ids; });
    } else {
        simulated.reset(new SimulatedGateway(&c.core));
        simulated->plugInto(c.core.transactions());
        QObject::connect(simulated.get(), &SimulatedGateway::batchApplied, listBatch);
        QObject::connect(simulated.get(), &SimulatedGateway::answered,
                         [&](RawTransaction const&, int, QString const&, QList<qint64> const& ids) { touched = ids; });
    }
    if (!c.core.transactionService()->send(tx)) throw QStringLiteral("not sent: %1").arg(tx.answer.text());
    c.out << "sent; waiting for the answer\n";
    c.out.flush();
    // The exchange answers through the event loop, as a connection would.
    QElapsedTimer waited;
    waited.start();
    while (!tx.answer.isAnswered() && waited.elapsed() < 10000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 100);
    if (!tx.answer.isAnswered()) throw QStringLiteral("no answer from the exchange in 10 s");
    bool const accepted = tx.answer.code() == SimulatedGateway::Accepted;
    c.out << "answer: " << (accepted ? "accepted" : "rejected") << " (code " << tx.answer.code() << "): "
          << printable(tx.answer.text()) << "\n";
    for (qint64 id : touched) c.out << "  " << orderLine(findOrder(id)) << "\n";
    c.out.flush();
    return accepted ? apps::Done : apps::Rejected;
}

} // namespace console
