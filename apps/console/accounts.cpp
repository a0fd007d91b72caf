#include "accounts.h"
#include "orders.h"
#include "output.h"
#include "startup.h"

#include <core/defaultcore.h>
#include <core/icore.h>
#include <database/database.h>
#include <directories>

#include <QCommandLineParser>
#include <QTextStream>
#include <QDateTime>
#include <QStringList>
#include <algorithm>
#include <functional>
#include <tuple>
#include <vector>

namespace console {
namespace {

// A directory's instance, or null with the reason printed when its table is missing.
template <class D>
D* directory(QTextStream& out)
{
    try {
        return D::i();
    } catch (QString const& why) {
        out << "  (" << why << ")\n";
        return nullptr;
    }
}

QString yesNo(bool b) { return b ? QStringLiteral("yes") : QStringLiteral("no"); }
QString orDash(QString const& s) { return s.isEmpty() ? QStringLiteral("-") : s; }

// The row a cached lookup answered, if it is the row asked for: a miss
// answers the previous hit.
Record exactly(Record const& r, QString const& column, QString const& key)
{
    return !r.isEmpty() && r.data(column).toString() == key ? r : Record();
}

QString feeRow(Record const& r)
{
    if (r.isEmpty()) return QStringLiteral("-");
    return QStringLiteral("session %1: lower %2, upper %3, multiplier %4, additive %5")
        .arg(r.data("sess_id").toInteger())
        .arg(r.data("lower_fee").toString(), r.data("upper_fee").toString(), r.data("multiplier").toString(),
             r.data("additive").toString());
}

void reportLogin(QTextStream& out, DefaultCore const& core, QString const& login)
{
    out << "login " << printable(login) << "\n";
    K3UserDirectory* users = directory<K3UserDirectory>(out);
    if (!users) return;
    out << "  listed:       " << yesNo(users->getUserList().contains(login.trimmed()))
        << " (prefix test isUser: " << yesNo(users->isUser(login)) << ")\n"
        << "  client code:  " << orDash(users->clientCodeByUser(login)) << "\n"
        << "  aspref:       " << users->asprefByLogin(login) << "\n"
        << "  SMA login:    " << yesNo(users->isSMALogin(login)) << "\n";
    QSharedPointer<Table> t = core.database()->table(QStringLiteral("k3.user"));
    Record row = t ? Record(t.data(), login) : Record();
    if (row.isEmpty()) return;
    qint64 expiry = row.data("password_expiration_date").toDatetime().toMSecs();
    int days = core.passwordWarningDays();
    qint64 now = datetime::now().toMSecs();
    qint64 span = K3UserDirectory::warningSpanMSecs(days);
    bool due = core.passwordWarningEnabled() && expiry < now + span && expiry >= now;
    out << "  password expires: " << orDash(datetime(expiry).toString()) << "\n"
        << "  warning due:  " << yesNo(due) << " (horizon " << days << " days = " << span << " ms, warnings "
        << (core.passwordWarningEnabled() ? "on" : "off") << ", now " << datetime(now).toString() << ")\n";
    // The warnings handed to the core so far.
    QString marked = QStringLiteral("<b>%1</b>").arg(login.trimmed().toHtmlEscaped());
    for (QString const& text : core.notifications())
        if (text.startsWith(QLatin1String("2|")) && text.contains(marked)) out << "  notified:     " << printable(text) << "\n";
}

void reportDeals(QTextStream& out, QString const& account)
{
    Database* db = ICore::instance()->database();
    if (!db->hasTable(QStringLiteral("deals"))) return;
    QSharedPointer<Table> t = db->table(QStringLiteral("deals"));
    std::vector<Record> deals;
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
        if (it->data("account").toString() == account) deals.push_back(*it);
    out << "  deals: " << deals.size() << (deals.size() > 5 ? " (the latest 5)" : "") << "\n";
    FeeDirectory* fees = db->hasTable(QStringLiteral("k3.adjusted_fee")) ? directory<FeeDirectory>(out) : nullptr;
    BrokerFeeDirectory* brokerFees = db->hasTable(QStringLiteral("k3.broker_fee")) ? directory<BrokerFeeDirectory>(out) : nullptr;
    std::size_t from = deals.size() > 5 ? deals.size() - 5 : 0;
    for (std::size_t k = from; k < deals.size(); ++k) {
        Record const& d = deals[k];
        long long id = d.data("deal_id").toInteger64();
        out << "    deal " << id << ": " << d.data("buysell").toString() << " " << d.data("quantity").toInteger64() << " @ "
            << d.data("price").toString();
        if (fees) {
            Record f = fees->recordByDealId(id);
            out << "; exchange fee buy/sell "
                << (f.isEmpty() ? QStringLiteral("-") : f.data("adjusted_fee_buy").toString() + " / " + f.data("adjusted_fee_sell").toString());
        }
        if (brokerFees) {
            Record f = brokerFees->recordByDealId(id);
            out << "; broker fee buy/sell "
                << (f.isEmpty() ? QStringLiteral("-") : f.data("broker_fee_buy").toString() + " / " + f.data("broker_fee_sell").toString());
        }
        out << "\n";
    }
}

void reportAccount(QTextStream& out, QString const& account)
{
    out << "account " << printable(account) << "\n";
    QString bf = account.left(Korvo3::K3FieldsTypes::bf_code);
    QString client = account.left(Korvo3::K3FieldsTypes::client_code);

    if (auto* investors = directory<K3InvestorDirectory>(out)) {
        Record r = exactly(investors->getInvestorByAccount(account), QStringLiteral("client_code"), client);
        out << "  investor:     " << (r.isEmpty() ? QStringLiteral("<not found>")
                                                 : QStringLiteral("%1, status %2").arg(investors->nameByCode(client)).arg(investors->statusByCode(client)))
            << "\n";
    }
    if (auto* dealers = directory<K3DealerDirectory>(out)) {
        out << "  firm " << bf << ":    " << orDash(dealers->nameByCode(bf)) << "\n"
            << "    status:     " << orDash(dealers->statusByCode(bf)) << "\n"
            << "    blocked (operator input): " << yesNo(dealers->isOperatorInputOn(bf))
            << ", separated: " << yesNo(dealers->isSeparated(bf)) << "\n";
    }
    if (auto* firms = directory<K3PartsBFDirectory>(out)) {
        Record r = firms->getBFByAccount(account);
        out << "    firm row:   " << (r.isEmpty() ? QStringLiteral("-") : r.data("account").toString() + " " + r.data("name").toString()) << "\n";
    }
    if (auto* core = directory<K3CoreDealerDirectory>(out))
        out << "    core dealer list:   " << yesNo(!exactly(core->getDealerByAccount(account), "client_code", bf).isEmpty()) << "\n";
    if (auto* core = directory<K3CoreInvestorDirectory>(out))
        out << "    core investor list: " << yesNo(!exactly(core->getInvestorByAccount(account), "client_code", client).isEmpty()) << "\n";

    auto* settlement = directory<K3FutSettlementDirectory>(out);
    auto* rfs = directory<K3RFDirectory>(out);
    auto* futSA = directory<FutVMSADirectory>(out);
    auto* optSA = directory<OptVMSADirectory>(out);
    if (settlement) {
        out << "  settlement accounts:\n";
        for (int type = 0; type <= 2; ++type) {
            QString sa = settlement->settlementAccountByCodeByType(client, type);
            if (sa.isEmpty()) continue;
            QString rf = settlement->getRF(sa);
            out << "    type " << type << ": " << sa << ", RF " << rf;
            if (rfs) out << " (" << orDash(rfs->statusByCode(rf)) << "; blocked: " << yesNo(rfs->isOperatorInputOn(rf)) << ")";
            if (futSA) out << ", VM futures " << futSA->getVMbySettlementAccount(sa).toString();
            if (optSA) out << ", options " << optSA->getVMbySettlementAccount(sa).toString();
            out << "\n";
        }
    }
    if (auto* types = directory<K3FutMarginTypeDirectory>(out)) {
        for (QString const& code : {client, bf}) {
            if (types->recordByCode(code).isEmpty()) continue;
            out << "  margin type of " << code << ": type " << types->typeByCode(code) << ", " << orDash(types->marginTypeByCode(code))
                << ", UCP " << orDash(types->UCPTypeByCode(code)) << ", settlement account " << orDash(types->SATypeByCode(code))
                << ", operator input " << types->operatorInputByCode(code) << "\n";
        }
    }
    auto* futVM = directory<FutVMDirectory>(out);
    auto* optVM = directory<OptVMDirectory>(out);
    for (QString const& code : {account, bf}) {
        out << "  variation margin of " << code << (code == bf ? " (the whole firm)" : "") << ": futures "
            << (futVM ? futVM->getVMByAccount(code).toString() : QStringLiteral("-")) << ", options "
            << (optVM ? optVM->getVMByAccount(code).toString() : QStringLiteral("-")) << "\n";
    }
    if (auto* params = directory<K3BrokerFeeParamDirectory>(out)) {
        std::tuple<Record, bool, Record> p = params->getFeeParamsByAccount(account);
        out << "  broker fee parameters (first row, flag, second row):\n"
            << "    first:  " << feeRow(std::get<0>(p)) << "\n"
            << "    flag:   " << (std::get<1>(p) ? "true (rows outside one session apply)" : "false (a session row alone, or nothing)") << "\n"
            << "    second: " << feeRow(std::get<2>(p)) << "\n";
    }
    reportDeals(out, account);
}

class AccountCommand : public ConsoleCommand
{
public:
    explicit AccountCommand(OrderCommand const& orders) : m_orders(orders) {}

    void addOptions(QCommandLineParser& parser) override { parser.addOptions({m_login, m_account}); }

    QString check(QCommandLineParser const& parser) const override
    {
        if (m_orders.requested(parser)) return QString();   // the order command reads it
        for (QString const& account : parser.values(m_account))
            if (account.size() < Korvo3::K3FieldsTypes::bf_code)
                return QStringLiteral("--account '%1': shorter than a firm code (4 characters)").arg(account);
        return QString();
    }

    int run(RunContext& c) override
    {
        // With an order command, --account names the order's account instead.
        if (m_orders.requested(c.parser)) return apps::Done;
        for (QString const& login : c.parser.values(m_login)) reportLogin(c.out, c.core, login);
        for (QString const& account : c.parser.values(m_account)) reportAccount(c.out, account);
        c.out.flush();
        return apps::Done;
    }

private:
    OrderCommand const& m_orders;
    QCommandLineOption m_login{QStringLiteral("login"),
        QStringLiteral("Report a login: client code, aspref, SMA, whether its password warning is due."), QStringLiteral("login")};
    QCommandLineOption m_account{QStringLiteral("account"),
        QStringLiteral("Report everything known of an account: investor and firm, settlement, margin, fees."), QStringLiteral("code")};
};

} // namespace

std::unique_ptr<ConsoleCommand> accountCommand(OrderCommand const& orders) { return std::make_unique<AccountCommand>(orders); }

} // namespace console
