#pragma once
#include <database/table.h>

#include <QWidget>

class Coalesced;
class QComboBox;
class QFormLayout;
class QLabel;

// What the terminal knows of one account: its investor and firm with their
// status texts, settlement accounts, margin type, variation margin and
// broker fee parameters. The list of accounts follows the investors' rows
// as batches bring and take them; the lines follow every directory they
// read (a fresh lookup of the one account shown).
class AccountPanel : public QWidget
{
    Q_OBJECT
public:
    enum Line { Investor, Firm, FirmStatus, Settlement, MarginType, VariationMargin, FeeParams, LineCount };

    explicit AccountPanel(QWidget* parent = nullptr);

    void chooseAccount(QString const& account);
    QString account() const;
    QString lineText(Line line) const;
    QComboBox* accountBox() const { return m_account; }

signals:
    void accountChosen(QString const& account);

private:
    void reloadAccounts();
    void investorsChanged(RowChanges const& changes);
    bool keepChosen(QString const& chosen);
    void refresh();

    QComboBox* m_account;
    QLabel* m_lines[LineCount];
    Coalesced* m_refreshSoon;
    TableWatch m_investors;
};
