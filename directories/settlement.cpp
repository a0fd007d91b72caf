#include "settlement.h"

#include "cachedindex.h"
#include "masterindex.h"
#include "participants.h"

#include <mutex>

// ---- K3FutSettlementDirectory ------------------------------------------------

K3FutSettlementDirectory::K3FutSettlementDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_code, "code"}, {m_type, "type"}, {m_settlementAccount, "settlement_account"}});
    build();
    if (QSharedPointer<Table> t = table()) {
        m_codeTypeIndex = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_code, m_type}));
        m_codeTypeIndex->build();
        m_byCodeType = DirectoryKey<QString, int>(t, m_codeTypeIndex, {m_code, m_type});
    }
}

QString K3FutSettlementDirectory::settlementAccountByCodeByType(QString const& code, int type) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    if (code.isEmpty() || type < 0) return QString();
    Record row = m_byCodeType.find(code, type);
    return row.isEmpty() ? QString() : row.data(m_settlementAccount).toString();
}

bool K3FutSettlementDirectory::isAcceptableSA(QString const& sa) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    auto it = m_rfBySettlementAccount.lowerBound(sa);
    // An empty text is a prefix of anything, even of a null key.
    return it != m_rfBySettlementAccount.end() && (sa.isEmpty() || it.key().startsWith(sa));
}

QString K3FutSettlementDirectory::getRF(QString const& sa) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_rfBySettlementAccount.value(sa);
}

void K3FutSettlementDirectory::clear() { m_rfBySettlementAccount.clear(); }

void K3FutSettlementDirectory::build()
{
    QSharedPointer<Table> t = table();
    if (!t) return;
    std::lock_guard<Table const> lock(*t);
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it) add(*it);
}

void K3FutSettlementDirectory::add(Record const& record)
{
    QString rf = record.data(m_code).toString().left(Korvo3::K3FieldsTypes::rf_code);
    m_rfBySettlementAccount.insert(record.data(m_settlementAccount).toString(), rf);
}

void K3FutSettlementDirectory::endUpdate() { Q_EMIT dataChanged(); }

// ---- K3FutMarginTypeDirectory ------------------------------------------------

K3FutMarginTypeDirectory::K3FutMarginTypeDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_type, "type"}, {m_code, "code"}, {m_marginType, "margin_type"}, {m_ucpType, "UCP_type"},
                    {m_settlementAccountType, "settlement_account_type"}, {m_operatorInput, "operator_input"}});
    if (QSharedPointer<Table> t = table()) {
        m_codeIndex = ownIndex(MasterIndex_Struct_Cached<ucharn<12>>::create(t.data(), QStringList{QStringLiteral("code")}));
        if (m_codeIndex) {
            m_codeIndex->build();
            m_byCode = DirectoryKey<QString>(t, m_codeIndex, {m_code});
        }
    }
}

Record K3FutMarginTypeDirectory::recordByCode(QString const& code) const
{
    return m_byCode.find(code);
}

int K3FutMarginTypeDirectory::typeByCode(QString const& code) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = recordByCode(code);
    return row.isEmpty() ? -1 : row.data(m_type).toInteger();
}

int K3FutMarginTypeDirectory::operatorInputByCode(QString const& code) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = recordByCode(code);
    return row.isEmpty() ? 0 : row.data(m_operatorInput).toInteger();
}

QString K3FutMarginTypeDirectory::marginTypeByCode(QString const& code) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = recordByCode(code);
    if (row.isEmpty()) return QString();
    switch (row.data(m_marginType).toInteger()) {
    case 0: return tr("Нетто БФ");
    case 1: return tr("Полунетто БФ");
    case 2: return tr("Полунеттинг БФ");
    case 3: return tr("Полунеттинг РК");
    case 4: return tr("Неттинг БФ");
    case 5: return tr("Субброкеры");
    case 6: return tr("Неттинг РК");
    default: return QString();
    }
}

QString K3FutMarginTypeDirectory::UCPTypeByCode(QString const& code) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = recordByCode(code);
    if (row.isEmpty()) return QString();
    switch (row.data(m_ucpType).toInteger()) {
    case 0: return tr("Срочный рынок");
    case 1: return tr("Единый пул");
    default: return QString();
    }
}

QString K3FutMarginTypeDirectory::SATypeByCode(QString const& code) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = recordByCode(code);
    if (row.isEmpty()) return QString();
    switch (row.data(m_settlementAccountType).toInteger()) {
    case 0: return tr("Собственный РК");
    case 1: return tr("Клиентский РК");
    case 2: return tr("Доверительное Управление");   // capital У, unlike the dealer's status
    default: return QString();
    }
}

void K3FutMarginTypeDirectory::dependentEndUpdate(Table*) { Q_EMIT dataChanged(); }

// ---- K3PartsBFDirectory ------------------------------------------------------

K3PartsBFDirectory::K3PartsBFDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_account, "account"}});
    m_byFirm = DirectoryKey<QString>(table(), nullptr, {m_account});
}

Record K3PartsBFDirectory::getBFByAccount(QString const& account) const
{
    if (account.size() < Korvo3::K3FieldsTypes::bf_code) return Record();
    return m_byFirm.find(account.left(Korvo3::K3FieldsTypes::bf_code));
}

void K3PartsBFDirectory::clear() { Q_EMIT dataChanged(); }
void K3PartsBFDirectory::endUpdate() { Q_EMIT dataChanged(); }

// The one instance of each directory class here.
DIRECTORY_SINGLETON_DEFINE(K3FutSettlementDirectory)
DIRECTORY_SINGLETON_DEFINE(K3FutMarginTypeDirectory)
DIRECTORY_SINGLETON_DEFINE(K3PartsBFDirectory)
