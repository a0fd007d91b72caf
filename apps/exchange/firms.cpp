#include "firms.h"

#include <database/batch.h>
#include <database/batchencoder.h>
#include <database/database.h>
#include <database/index.h>

#include <QSet>
#include <algorithm>

namespace exchange {

std::vector<TableReach> const& tableReaches()
{
    static std::vector<TableReach> const reaches = {
        {"buysells", Reach::Market, nullptr},
        {"statuses", Reach::Market, nullptr},
        {"sectypes", Reach::Market, nullptr},
        {"secstates", Reach::Market, nullptr},
        {"sessstates", Reach::Market, nullptr},
        {"securities", Reach::Market, nullptr},
        {"boards", Reach::Market, nullptr},
        {"stocks", Reach::Market, nullptr},
        {"sessions", Reach::Market, nullptr},
        {"calendar", Reach::Market, nullptr},
        {"stock_time", Reach::Market, nullptr},
        {"k3.volat", Reach::Market, nullptr},
        {"k3.volat_coeff_black", Reach::Market, nullptr},
        {"k3.volat_coeff_bach", Reach::Market, nullptr},
        {"k3.option_series_params", Reach::Market, nullptr},
        {"k3.user", Reach::Firm, "client_code"},
        {"k3.dealer", Reach::Firm, "client_code"},
        {"k3.investor", Reach::Firm, "client_code"},
        {"k3.core_dealer", Reach::Firm, "client_code"},
        {"k3.core_investor", Reach::Firm, "client_code"},
        {"k3.RF", Reach::RfPrefix, "code"},
        {"k3.fut_settlement_account", Reach::Firm, "code"},
        {"k3.fut_margin_type", Reach::Firm, "code"},
        {"k3part_bf", Reach::Firm, "account"},
        {"fut_vm", Reach::Firm, "account"},
        {"opt_vm", Reach::Firm, "account"},
        {"fut_vm_sa", Reach::Firm, "settlement_account"},
        {"opt_vm_sa", Reach::Firm, "settlement_account"},
        {"k3.futures_rate", Reach::Market, nullptr},
        {"k3.option_rate", Reach::Market, nullptr},
        {"k3.adjusted_fee", Reach::DealFee, "id_deal"},
        {"k3.broker_fee", Reach::DealFee, "id_deal"},
        {"k3.broker_fee_params", Reach::Firm, "client_code"},
        {"k3.base_contracts_params", Reach::Market, nullptr},
        {"k3.rfs.streams", Reach::Market, nullptr},
        {"k3.rfs.quotes", Reach::Market, nullptr},
        {"orders", Reach::Firm, "account"},
        {"k3.rfs.lp_users", Reach::Firm, "client_code"},
        {"k3.rfs.base_contract_min_amount", Reach::Market, nullptr},
        {"deals", Reach::Deal, "account"},
    };
    return reaches;
}

TableReach const* reachOf(QString const& table)
{
    for (TableReach const& r : tableReaches())
        if (table == QLatin1String(r.table)) return &r;
    return nullptr;
}

QString firmOf(QString const& code)
{
    QString const trimmed = code.trimmed();
    return trimmed.size() >= 4 ? trimmed.left(4) : QString();
}

namespace {
QString textAt(Table const& table, Record const& row, int column)
{
    return column < 0 ? QString() : table.dataPtr(row.row(), column).toString().trimmed();
}
} // namespace

FirmRouter::FirmRouter(Database* database) : m_database(database) { reset(); }

void FirmRouter::reset()
{
    m_watched.clear();
    m_users = m_database->table(QStringLiteral("k3.user"));
    m_userClientCode = m_users ? m_users->columnIndex(QStringLiteral("client_code")) : -1;
    // A deal's fees go where the deal went: the deals are read first.
    QStringList names;
    for (QString const& name : m_database->tableNamesInSchemaOrder()) {
        TableReach const* r = reachOf(name);
        if (!r || r->reach != Reach::Market) names.insert(r && r->reach == Reach::DealFee ? names.size() : 0, name);
    }
    for (QString const& name : names) {
        Watched& w = m_watched[name];
        w.table = m_database->table(name);
        w.reach = reachOf(name);
        if (!w.table) continue;
        if (w.reach && w.reach->column) w.column = w.table->columnIndex(QLatin1String(w.reach->column));
        if (w.reach && w.reach->reach == Reach::Deal) w.loginColumn = w.table->columnIndex(QStringLiteral("login"));
        Watched* watched = &w;
        w.watch = TableWatch(w.table, QStringLiteral("firm routing"), [watched](RowChanges const& changes) {
            watched->changes = changes;
            watched->pending = true;
        });
        if (auto const* master = w.table->masterIndex())
            for (Record const& r : master->records()) w.audiences.insert(r.row(), audienceOf(w, r));
    }
}

bool FirmRouter::isMarketWide(QString const& table) const
{
    TableReach const* r = reachOf(table);
    return r && r->reach == Reach::Market;
}

Audience FirmRouter::audienceOf(Watched const& w, Record const& row) const
{
    Audience a;
    if (!w.reach) return a;   // a table nobody was told of goes to nobody
    Table const& t = *w.table;
    switch (w.reach->reach) {
    case Reach::Market: break;
    case Reach::Firm: a.first = firmOf(textAt(t, row, w.column)); break;
    case Reach::Deal:
        a.first = firmOf(textAt(t, row, w.column));
        a.second = firmOfLogin(textAt(t, row, w.loginColumn));
        break;
    case Reach::DealFee: {
        auto deals = m_watched.find(QStringLiteral("deals"));
        if (deals == m_watched.end() || !deals->second.table) break;
        Record const deal(deals->second.table.data(), textAt(t, row, w.column));
        if (!deal.isEmpty()) a = remembered(deals->second, deal);
        break;
    }
    case Reach::RfPrefix: {
        // A shared code is at least two characters: a shorter one would reach half the market.
        QString const code = textAt(t, row, w.column);
        if (code.size() >= 2) a.first = code;
        break;
    }
    }
    return a;
}

Audience FirmRouter::remembered(Watched const& w, Record const& row) const { return w.audiences.value(row.row()); }

QString FirmRouter::firmOfLogin(QString const& login) const
{
    if (!m_users || login.isEmpty()) return QString();
    Record const user(m_users.data(), login);
    return user.isEmpty() ? QString() : firmOf(textAt(*m_users, user, m_userClientCode));
}

QStringList FirmRouter::firms() const
{
    QSet<QString> seen;
    if (m_users && m_users->masterIndex())
        for (Record const& r : m_users->masterIndex()->records()) {
            QString const firm = firmOf(textAt(*m_users, r, m_userClientCode));
            if (!firm.isEmpty()) seen.insert(firm);
        }
    QStringList list(seen.begin(), seen.end());
    std::sort(list.begin(), list.end());
    return list;
}

BatchEncoder::RowFilter FirmRouter::filter(QString const& firm, QString const& table) const
{
    auto it = m_watched.find(table);
    if (it == m_watched.end()) {
        if (isMarketWide(table)) return BatchEncoder::RowFilter();
        return [](Table const&, Record const&) { return false; };
    }
    Watched const* w = &it->second;
    return [w, firm](Table const&, Record const& row) { return w->audiences.value(row.row()).includes(firm); };
}

std::vector<std::pair<QString, QByteArray>> FirmRouter::split(QString const& table, QStringList const& firms)
{
    std::vector<std::pair<QString, QByteArray>> out;
    auto it = m_watched.find(table);
    if (it == m_watched.end() || !it->second.pending) return out;
    Watched& w = it->second;
    w.pending = false;
    RowChanges const changes = std::move(w.changes);
    w.changes = RowChanges();
    Table const& t = *w.table;

    // Whom each row went to before the batch, and goes to now.
    std::vector<Audience> before, after;
    for (Record const& r : changes.updated) before.push_back(remembered(w, r));
    for (Record const& r : changes.deleted) before.push_back(remembered(w, r));
    if (changes.cleared) w.audiences.clear();
    for (Record const& r : changes.deleted) w.audiences.remove(r.row());
    for (Record const& r : changes.inserted) {
        after.push_back(audienceOf(w, r));
        w.audiences.insert(r.row(), after.back());
    }
    for (Record const& r : changes.updated) {
        after.push_back(audienceOf(w, r));
        w.audiences.insert(r.row(), after.back());
    }

    std::vector<int> all(std::size_t(t.columnCount()));
    for (int c = 0; c < t.columnCount(); ++c) all[std::size_t(c)] = c;
    std::vector<int> key(t.keyColumnNumbers().begin(), t.keyColumnNumbers().end());
    std::sort(key.begin(), key.end());
    auto op = [](BatchOp::Kind kind, Record const& row, std::vector<int> columns) {
        BatchOp o;
        o.kind = kind;
        o.image = row;
        o.columns = std::move(columns);
        return o;
    };
    int const inserted = changes.inserted.size(), updated = changes.updated.size();
    for (QString const& firm : firms) {
        Batch b;
        b.table = w.table;
        if (changes.cleared) b.ops.push_back(op(BatchOp::Clear, Record(), {}));
        for (int k = 0; k < changes.deleted.size(); ++k)
            if (before[std::size_t(updated + k)].includes(firm)) b.ops.push_back(op(BatchOp::Delete, changes.deleted[k], key));
        for (int k = 0; k < updated; ++k) {
            Record const& r = changes.updated[k];
            bool const had = before[std::size_t(k)].includes(firm), has = after[std::size_t(inserted + k)].includes(firm);
            if (had && has) {
                std::vector<int> columns = key;
                if (k + 1 < changes.updatedColumnStart.size()) {
                    for (int i = changes.updatedColumnStart[k]; i < changes.updatedColumnStart[k + 1]; ++i) columns.push_back(changes.updatedColumns[i]);
                } else {
                    columns = all;   // which columns changed is not told: the whole row
                }
                std::sort(columns.begin(), columns.end());
                columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
                b.ops.push_back(op(BatchOp::Update, r, std::move(columns)));
            } else if (has) {
                b.ops.push_back(op(BatchOp::Insert, r, all));   // new to this firm: the whole row
            } else if (had) {
                b.ops.push_back(op(BatchOp::Delete, r, key));   // gone from this firm
            }
        }
        for (int k = 0; k < inserted; ++k)
            if (after[std::size_t(k)].includes(firm)) b.ops.push_back(op(BatchOp::Insert, changes.inserted[k], all));
        if (b.ops.empty()) continue;
        out.emplace_back(firm, BatchEncoder::encode(b));
    }
    return out;
}

} // namespace exchange
