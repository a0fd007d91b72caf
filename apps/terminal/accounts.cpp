#include "accounts.h"
#include "coalesced.h"

#include <core/icore.h>
#include <database/database.h>
#include <directories>

#include <QComboBox>
#include <QFormLayout>
#include <QLabel>
#include <algorithm>
#include <tuple>
#include <utility>
#include <vector>

namespace {
QString orDash(QString const& s) { return s.trimmed().isEmpty() ? QStringLiteral("—") : s.trimmed(); }

// Lookups that keep the last hit answer a miss with it: take a row only
// when it is the one asked for.
Record exactly(Record const& r, char const* column, QString const& key)
{
    return !r.isEmpty() && r.data(column).toString().trimmed() == key ? r : Record();
}

template <class D, class Owner, class F>
void follow(Owner* owner, F f)
{
    if (D* d = directoryOrNull<D>()) QObject::connect(d, &D::dataChanged, owner, f);
}
} // namespace

AccountPanel::AccountPanel(QWidget* parent) : QWidget(parent), m_account(new QComboBox)
{
    m_account->setEditable(false);
    m_account->setMinimumContentsLength(10);
    auto* form = new QFormLayout(this);
    form->addRow(tr("Счёт"), m_account);
    char const* const titles[LineCount] = {QT_TR_NOOP("Инвестор"), QT_TR_NOOP("Фирма"), QT_TR_NOOP("Статус фирмы"),
                                           QT_TR_NOOP("Расчётный счёт"), QT_TR_NOOP("Тип маржирования"),
                                           QT_TR_NOOP("Вариационная маржа"), QT_TR_NOOP("Брокерская комиссия")};
    for (int k = 0; k < LineCount; ++k) {
        m_lines[k] = new QLabel;
        m_lines[k]->setTextFormat(Qt::PlainText);   // names come from the exchange's rows
        m_lines[k]->setWordWrap(true);
        m_lines[k]->setTextInteractionFlags(Qt::TextSelectableByMouse);
        form->addRow(tr(titles[k]), m_lines[k]);
    }
    m_refreshSoon = new Coalesced(this, [this] { refresh(); });
    connect(m_account, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this] {
        refresh();
        emit accountChosen(account());
    });
    auto soon = [this] { m_refreshSoon->request(); };
    follow<K3InvestorDirectory>(this, soon);
    follow<K3DealerDirectory>(this, soon);
    follow<K3RFDirectory>(this, soon);
    follow<K3FutSettlementDirectory>(this, soon);
    follow<K3FutMarginTypeDirectory>(this, soon);
    follow<FutVMDirectory>(this, soon);
    follow<OptVMDirectory>(this, soon);
    follow<FutVMSADirectory>(this, soon);
    follow<OptVMSADirectory>(this, soon);
    follow<K3BrokerFeeParamDirectory>(this, soon);
    Database* db = ICore::instance()->database();
    if (db->hasTable(QStringLiteral("k3.investor"))) {
        QSharedPointer<Table> investors = db->table(QStringLiteral("k3.investor"));
        // Listed and watched in one hold of the table's lock: no batch falls between.
        TableLocker lock(investors.data());
        reloadAccounts();
        m_investors = TableWatch(investors, QStringLiteral("AccountPanel"),
                                 [this](RowChanges const& changes) { investorsChanged(changes); });
    } else {
        reloadAccounts();
    }
}

QString AccountPanel::account() const { return m_account->currentText(); }
QString AccountPanel::lineText(Line line) const { return m_lines[line]->text(); }

void AccountPanel::chooseAccount(QString const& account)
{
    int k = m_account->findText(account);
    if (k >= 0) m_account->setCurrentIndex(k);
}

void AccountPanel::reloadAccounts()
{
    QStringList accounts;
    QSharedPointer<Table> t = ICore::instance()->database()->table(QStringLiteral("k3.investor"));
    if (t)
        for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
            accounts << it->data("client_code").toString().trimmed();
    QString const keep = account();
    {
        QSignalBlocker block(m_account);
        m_account->clear();
        m_account->addItems(accounts);
    }
    bool const changed = keepChosen(keep);
    refresh();
    if (changed) emit accountChosen(account());
}

void AccountPanel::investorsChanged(RowChanges const& changes)
{
    if (changes.cleared) {
        reloadAccounts();
        return;
    }
    if (changes.inserted.isEmpty() && changes.deleted.isEmpty()) return;   // codes are keys: updates keep the list
    QString const keep = account();
    {
        QSignalBlocker block(m_account);
        for (Record const& r : changes.deleted) {
            int k = m_account->findText(r.data("client_code").toString().trimmed());
            if (k >= 0) m_account->removeItem(k);
        }
        // The list is in the table's order: each new account goes where its
        // row now stands, the earlier ones first.
        MasterIndex_Column_Pure const* master = changes.table->masterIndex();
        std::vector<std::pair<int, QString>> added;
        for (Record const& r : changes.inserted) added.emplace_back(master->indexOf(r), r.data("client_code").toString().trimmed());
        std::sort(added.begin(), added.end());
        for (auto const& a : added) m_account->insertItem(qBound(0, a.first, m_account->count()), a.second);
    }
    if (keepChosen(keep)) {
        refresh();
        emit accountChosen(account());
    }
}

// Chooses `chosen` again after the list changed, or the first account when
// it is gone. True when the choice changed.
bool AccountPanel::keepChosen(QString const& chosen)
{
    QSignalBlocker block(m_account);
    int k = m_account->findText(chosen);
    m_account->setCurrentIndex(k >= 0 ? k : 0);
    return account() != chosen;
}

void AccountPanel::refresh()
{
    QString const account = this->account();
    for (QLabel* l : m_lines) l->clear();
    if (account.size() < Korvo3::K3FieldsTypes::bf_code) return;
    QString const bf = account.left(Korvo3::K3FieldsTypes::bf_code);
    QString const client = account.left(Korvo3::K3FieldsTypes::client_code);

    if (auto* investors = directoryOrNull<K3InvestorDirectory>()) {
        bool const known = !exactly(investors->getInvestorByAccount(account), "client_code", client).isEmpty();
        m_lines[Investor]->setText(known ? tr("%1, статус %2").arg(investors->nameByCode(client)).arg(investors->statusByCode(client))
                                         : tr("<не найден>"));
    }
    if (auto* dealers = directoryOrNull<K3DealerDirectory>()) {
        m_lines[Firm]->setText(QStringLiteral("%1 %2").arg(bf, orDash(dealers->nameByCode(bf))));
        m_lines[FirmStatus]->setText(orDash(dealers->statusByCode(bf)));
    }
    auto* settlement = directoryOrNull<K3FutSettlementDirectory>();
    auto* rfs = directoryOrNull<K3RFDirectory>();
    if (settlement) {
        QStringList lines;
        for (int type = 0; type <= 2; ++type) {
            QString const sa = settlement->settlementAccountByCodeByType(client, type).trimmed();
            if (sa.isEmpty()) continue;
            QString const rf = settlement->getRF(sa).trimmed();
            QString line = tr("%1 (тип %2), РФ %3").arg(sa).arg(type).arg(orDash(rf));
            if (rfs && !rf.isEmpty()) line += QStringLiteral(": ") + orDash(rfs->statusByCode(rf));
            lines << line;
        }
        m_lines[Settlement]->setText(lines.isEmpty() ? QStringLiteral("—") : lines.join(QLatin1Char('\n')));
    }
    if (auto* types = directoryOrNull<K3FutMarginTypeDirectory>()) {
        QString const code = !types->recordByCode(client).isEmpty() ? client : bf;
        m_lines[MarginType]->setText(types->recordByCode(code).isEmpty()
                                         ? QStringLiteral("—")
                                         : tr("%1; ЕДП: %2; расчётный счёт: %3 (%4)")
                                               .arg(orDash(types->marginTypeByCode(code)), orDash(types->UCPTypeByCode(code)),
                                                    orDash(types->SATypeByCode(code)), code));
    }
    auto* futVM = directoryOrNull<FutVMDirectory>();
    auto* optVM = directoryOrNull<OptVMDirectory>();
    m_lines[VariationMargin]->setText(tr("фьючерсы %1, опционы %2")
                                          .arg(futVM ? futVM->getVMByAccount(account).toString() : QStringLiteral("—"),
                                               optVM ? optVM->getVMByAccount(account).toString() : QStringLiteral("—")));
    if (auto* params = directoryOrNull<K3BrokerFeeParamDirectory>()) {
        Record const r = std::get<0>(params->getFeeParamsByAccount(account));
        m_lines[FeeParams]->setText(r.isEmpty() ? QStringLiteral("—")
                                                : tr("сессия %1: от %2 до %3, множитель %4, добавка %5")
                                                      .arg(r.data("sess_id").toInteger())
                                                      .arg(r.data("lower_fee").toString(), r.data("upper_fee").toString(),
                                                           r.data("multiplier").toString(), r.data("additive").toString()));
    }
}
