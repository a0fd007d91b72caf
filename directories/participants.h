#pragma once
#include "frame.h"

#include <database/record.h>

#include <QString>
#include <memory>

class MasterIndex_Column;

namespace Korvo3 {
// Lengths, in characters, of the exchange's participant codes. A client code
// is a BF (firm) code followed by three characters; a firm's own account is
// its BF code followed by "000".
struct K3FieldsTypes
{
    static constexpr int rf_code = 2;
    static constexpr int bf_code = 4;
    static constexpr int client_code = 7;
};
} // namespace Korvo3

namespace directory {
namespace detail {
class LastAccountCache;
} // namespace detail
} // namespace directory

// What the investors and the core lists of dealers and of investors share: a
// client-code index and the cached lookup of an account by its first
// `keyLength` characters. Each list stays a class of its own, with its name,
// signal and lookup.
//
// Threading: registered as an index; hooks on the updating thread. The
// cached lookup may be called from any thread (its cache is guarded); byCode
// reads the index and belongs on the updating thread.
class DIRECTORY_EXPORT CoreAccountDirectory : public Directory
{
    Q_OBJECT
public:
    ~CoreAccountDirectory() override;
    void clear() override;
    void remove(Record const& record, int position) override;

protected:
    CoreAccountDirectory(QObject* parent, QMetaObject const& cls, int keyLength);
    // A miss answers the last hit.
    Record byAccount(QString const& account) const;
    // The row of exactly this client code, uncached.
    Record byCode(QString const& code) const { return m_byCode.find(code); }
    MasterIndex_Column* codeIndex() const { return m_codeIndex; }

private:
    int m_clientCode = -1;
    int m_keyLength;
    MasterIndex_Column* m_codeIndex = nullptr;
    DirectoryKey<QString> m_byCode;
    std::unique_ptr<directory::detail::LastAccountCache> m_last;
};

// Dealers, keyed by BF code ("k3.dealer" holds each firm's own account, the
// BF code followed by "000"). Every lookup wants exactly 4 characters.
//
// Threading: a dependent of its table. findByCode returns a row found under
// the index's lock and may be called from any thread; the lookups that read
// a row's values belong on the updating thread.
class DIRECTORY_EXPORT K3DealerDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(K3DealerDirectory)
public:
    explicit K3DealerDirectory(QObject* parent);

    Record findByCode(QString const& bf) const;
    QString nameByCode(QString const& bf) const;
    // The dealer's status texts joined with ", ", in their fixed order.
    QString statusByCode(QString const& bf) const;
    // "signs" bit 8, the exchange's blocking of the firm's trading.
    bool isOperatorInputOn(QString const& bf) const;
    // "status" bit 1 or 2.
    bool isSeparated(QString const& bf) const;

    void dependentEndUpdate(Table* table) override;
Q_SIGNALS:
    void dataChanged();

private:
    int m_clientCode = -1;
    int m_name = -1;
    int m_status = -1;
    int m_signs = -1;
    MasterIndex_Column* m_codeIndex = nullptr;
    DirectoryKey<QString> m_byCode;
};

// Investors (clients) by full client code.
//
// Threading: registered as an index; hooks on the updating thread.
// getInvestorByAccount may be called from any thread (its cache is
// guarded); nameByCode and statusByCode read live rows and belong on the
// updating thread.
class DIRECTORY_EXPORT K3InvestorDirectory : public CoreAccountDirectory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(K3InvestorDirectory)
public:
    explicit K3InvestorDirectory(QObject* parent);

    // By the account's first 7 characters; a miss answers the last hit.
    Record getInvestorByAccount(QString const& account) const { return byAccount(account); }
    QString nameByCode(QString const& code) const;
    int statusByCode(QString const& code) const;
    MasterIndex_Column* getCodeIndex() const { return codeIndex(); }

    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

private:
    int m_name = -1;
    int m_status = -1;
};

// The core list of dealers ("k3.core_dealer"), by BF code.
// Threading: as K3InvestorDirectory.
class DIRECTORY_EXPORT K3CoreDealerDirectory : public CoreAccountDirectory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(K3CoreDealerDirectory)
public:
    explicit K3CoreDealerDirectory(QObject* parent);

    // By the account's first 4 characters; a miss answers the last hit.
    Record getDealerByAccount(QString const& account) const { return byAccount(account); }

    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();
};

// The core list of investors ("k3.core_investor"), by client code.
// Threading: as K3InvestorDirectory.
class DIRECTORY_EXPORT K3CoreInvestorDirectory : public CoreAccountDirectory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(K3CoreInvestorDirectory)
public:
    explicit K3CoreInvestorDirectory(QObject* parent);

    // By the account's first 7 characters; a miss answers the last hit.
    Record getInvestorByAccount(QString const& account) const { return byAccount(account); }

    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();
};

// RF codes (trading-participant codes) with their blocking switches. Every
// lookup wants exactly 2 characters.
//
// Threading: a dependent of its table; both lookups read live rows and
// belong on the updating thread.
class DIRECTORY_EXPORT K3RFDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(K3RFDirectory)
public:
    explicit K3RFDirectory(QObject* parent);

    QString statusByCode(QString const& rf) const;
    // Reads "rf_input", the blocking of the RF's trading, not "op_input":
    // the pairing is the terminal's and is kept.
    bool isOperatorInputOn(QString const& rf) const;

    void dependentEndUpdate(Table* table) override;
Q_SIGNALS:
    void dataChanged();

private:
    Record findByCode(QString const& rf) const;

    int m_code = -1;
    int m_opInput = -1;
    int m_rfInput = -1;
    MasterIndex_Column* m_codeIndex = nullptr;
    DirectoryKey<QString> m_byCode;
};
