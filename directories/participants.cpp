#include "participants.h"
#include "participants_p.h"

#include "enumerations.h"
#include "masterindex.h"

namespace {
using Korvo3::K3FieldsTypes;
} // namespace

// ---- K3DealerDirectory -------------------------------------------------------

K3DealerDirectory::K3DealerDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_clientCode, "client_code"}, {m_name, "name"}, {m_status, "status"}, {m_signs, "signs"}});
    if (QSharedPointer<Table> t = table()) {
        m_codeIndex = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_clientCode}));
        m_codeIndex->build();
        m_byCode = DirectoryKey<QString>(t, m_codeIndex, {m_clientCode});
    }
}

Record K3DealerDirectory::findByCode(QString const& bf) const
{
    if (!table() || !m_codeIndex || bf.size() != K3FieldsTypes::bf_code) return Record();
    return m_byCode.find(bf + QStringLiteral("000"));
}

QString K3DealerDirectory::nameByCode(QString const& bf) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = findByCode(bf);
    return row.isEmpty() ? QString() : row.data(m_name).toString();
}

QString K3DealerDirectory::statusByCode(QString const& bf) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = findByCode(bf);
    if (row.isEmpty()) return QString();
    long long signs = row.data(m_signs).toInteger64();
    int status = row.data(m_status).toInteger();
    QString text;
    if (signs & 4) appendStatus(text, tr("Режим блокировки ТС"));
    if (signs & 8) appendStatus(text, tr("Режим блокировки ГТ"));
    // At most one of the three kinds of account, in this precedence.
    if (status & 1) appendStatus(text, tr("Доверительное управление"));
    else if (status & 0x20000) appendStatus(text, tr("Собственный раздел"));
    else if (status & 0x40000) appendStatus(text, tr("Клиентский раздел"));
    if (status & 2) appendStatus(text, tr("Обособленный учет"));
    return text;
}

bool K3DealerDirectory::isOperatorInputOn(QString const& bf) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = findByCode(bf);
    return !row.isEmpty() && (row.data(m_signs).toInteger64() & 8) != 0;
}

bool K3DealerDirectory::isSeparated(QString const& bf) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = findByCode(bf);
    return !row.isEmpty() && (row.data(m_status).toInteger() & 3) != 0;
}

void K3DealerDirectory::dependentEndUpdate(Table*) { Q_EMIT dataChanged(); }

// ---- CoreAccountDirectory and the core lists -----------------------------------

CoreAccountDirectory::CoreAccountDirectory(QObject* parent, QMetaObject const& cls, int keyLength)
    : Directory(parent, cls), m_keyLength(keyLength), m_last(new directory::detail::LastAccountCache)
{
    resolveColumns({{m_clientCode, "client_code"}});
    if (QSharedPointer<Table> t = table()) {
        m_codeIndex = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_clientCode}));
        m_codeIndex->build();
        m_byCode = DirectoryKey<QString>(t, m_codeIndex, {m_clientCode});
    }
}

Record CoreAccountDirectory::byAccount(QString const& account) const
{
    if (!table() || !m_codeIndex || account.size() < m_keyLength) return Record();
    return m_last->lookup(account.left(m_keyLength),
                         [this](QString const& key) { return m_byCode.find(key); });
}

void CoreAccountDirectory::clear() { m_last->drop(); }

void CoreAccountDirectory::remove(Record const& record, int)
{
    if (!record.isEmpty()) m_last->drop(record);
}

K3CoreDealerDirectory::K3CoreDealerDirectory(QObject* parent)
    : CoreAccountDirectory(parent, staticMetaObject, K3FieldsTypes::bf_code)
{
}

void K3CoreDealerDirectory::endUpdate() { Q_EMIT dataChanged(); }

K3CoreInvestorDirectory::K3CoreInvestorDirectory(QObject* parent)
    : CoreAccountDirectory(parent, staticMetaObject, K3FieldsTypes::client_code)
{
}

void K3CoreInvestorDirectory::endUpdate() { Q_EMIT dataChanged(); }

// ---- K3InvestorDirectory -----------------------------------------------------

K3InvestorDirectory::K3InvestorDirectory(QObject* parent)
    : CoreAccountDirectory(parent, staticMetaObject, K3FieldsTypes::client_code)
{
    resolveColumns({{m_name, "name"}, {m_status, "status"}});
}

QString K3InvestorDirectory::nameByCode(QString const& code) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    if (!table()) return QString();
    Record row = byCode(code);
    return row.isEmpty() ? QString() : row.data(m_name).toString();
}

int K3InvestorDirectory::statusByCode(QString const& code) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    if (!table()) return 0;
    Record row = byCode(code);
    return row.isEmpty() ? 0 : row.data(m_status).toInteger();
}

void K3InvestorDirectory::endUpdate() { Q_EMIT dataChanged(); }

// ---- K3RFDirectory -----------------------------------------------------------

K3RFDirectory::K3RFDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_code, "code"}, {m_opInput, "op_input"}, {m_rfInput, "rf_input"}});
    if (QSharedPointer<Table> t = table()) {
        m_codeIndex = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_code}));
        m_codeIndex->build();
        m_byCode = DirectoryKey<QString>(t, m_codeIndex, {m_code});
    }
}

Record K3RFDirectory::findByCode(QString const& rf) const
{
    if (!table() || !m_codeIndex || rf.size() != K3FieldsTypes::rf_code) return Record();
    return m_byCode.find(rf);
}

QString K3RFDirectory::statusByCode(QString const& rf) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = findByCode(rf);
    if (row.isEmpty()) return QString();
    QString text;
    if (row.data(m_opInput).toInteger() != 0) appendStatus(text, tr("Режим блокировки ТС по РФ"));
    if (row.data(m_rfInput).toInteger() != 0) appendStatus(text, tr("Режим блокировки ГТ по РФ"));
    return text;
}

bool K3RFDirectory::isOperatorInputOn(QString const& rf) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = findByCode(rf);
    return !row.isEmpty() && row.data(m_rfInput).toInteger() != 0;
}

void K3RFDirectory::dependentEndUpdate(Table*) { Q_EMIT dataChanged(); }

// Out of line: the account cache is known here only.
CoreAccountDirectory::~CoreAccountDirectory() = default;

// The one instance of each directory class here.
DIRECTORY_SINGLETON_DEFINE(K3DealerDirectory)
DIRECTORY_SINGLETON_DEFINE(K3InvestorDirectory)
DIRECTORY_SINGLETON_DEFINE(K3CoreDealerDirectory)
DIRECTORY_SINGLETON_DEFINE(K3CoreInvestorDirectory)
DIRECTORY_SINGLETON_DEFINE(K3RFDirectory)
