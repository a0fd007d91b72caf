#pragma once
#include "frame.h"

#include <database/record.h>

#include <QMap>
#include <QString>

class MasterIndex_Column;
class MasterIndex_Column_Pure;

// Settlement accounts of trading accounts ("k3.fut_settlement_account"):
// the settlement account of an account code and settlement type, and the RF
// code each settlement account belongs to.
//
// The map of settlement accounts only grows between clears: a removed row
// leaves its settlement account known (and acceptable) until the table is
// cleared, and an updated row adds its new settlement account beside the old.
//
// Threading: registered as an index; hooks on the updating thread. Every
// lookup reads the directory's map or live rows without a lock and belongs
// on the updating thread.
class DIRECTORY_EXPORT K3FutSettlementDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(K3FutSettlementDirectory)
public:
    explicit K3FutSettlementDirectory(QObject* parent);

    // Empty for an empty code, a negative type or no row.
    QString settlementAccountByCodeByType(QString const& code, int type) const;
    // True when some known settlement account begins with `sa` (an empty
    // text is acceptable whenever any is known).
    bool isAcceptableSA(QString const& sa) const;
    // The RF code (the first two characters of the account code) of the last
    // row seen with this settlement account; empty when unknown.
    QString getRF(QString const& sa) const;

    void clear() override;
    void build() override;
    void add(Record const& record) override;
    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

private:
    int m_code = -1;
    int m_type = -1;
    int m_settlementAccount = -1;
    MasterIndex_Column* m_codeTypeIndex = nullptr;
    DirectoryKey<QString, int> m_byCodeType;
    QMap<QString, QString> m_rfBySettlementAccount;
};

// Margining regimes by code ("k3.fut_margin_type"), found through a cached
// typed index, with the display texts of their codes.
//
// Threading: a dependent of its table. recordByCode may be called from any
// thread (the index's cache has its own lock); the lookups that read a row's
// values belong on the updating thread.
class DIRECTORY_EXPORT K3FutMarginTypeDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(K3FutMarginTypeDirectory)
public:
    explicit K3FutMarginTypeDirectory(QObject* parent);

    Record recordByCode(QString const& code) const;
    // -1 when there is no row.
    int typeByCode(QString const& code) const;
    // 0 when there is no row.
    int operatorInputByCode(QString const& code) const;
    // Texts of "margin_type", "UCP_type" and "settlement_account_type"; empty
    // for no row or a value outside their tables.
    QString marginTypeByCode(QString const& code) const;
    QString UCPTypeByCode(QString const& code) const;
    QString SATypeByCode(QString const& code) const;

    void dependentEndUpdate(Table* table) override;
Q_SIGNALS:
    void dataChanged();

private:
    int m_type = -1;
    int m_code = -1;
    int m_marginType = -1;
    int m_ucpType = -1;
    int m_settlementAccountType = -1;
    int m_operatorInput = -1;
    MasterIndex_Column_Pure* m_codeIndex = nullptr;
    DirectoryKey<QString> m_byCode;
};

// Firm (BF) rows ("k3part_bf"), found through the table's master index.
//
// Threading: registered as an index; hooks on the updating thread.
// getBFByAccount returns a row found under the index's lock and may be
// called from any thread.
class DIRECTORY_EXPORT K3PartsBFDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(K3PartsBFDirectory)
public:
    explicit K3PartsBFDirectory(QObject* parent);

    // The firm row of the account's first 4 characters; null when shorter.
    Record getBFByAccount(QString const& account) const;

    // A cleared table is announced at once, besides the end of its batch.
    void clear() override;
    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

private:
    int m_account = -1;
    DirectoryKey<QString> m_byFirm;
};
