#pragma once
#include <QWidget>

class Coalesced;
class QComboBox;
class QFormLayout;
class QLabel;

// What the terminal knows of one account: its investor and firm with their
// status texts, settlement accounts, margin type, variation margin and
// broker fee parameters. Follows every directory it reads.
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
    void refresh();

    QComboBox* m_account;
    QLabel* m_lines[LineCount];
    Coalesced* m_refreshSoon;
    Coalesced* m_accountsSoon;
};
