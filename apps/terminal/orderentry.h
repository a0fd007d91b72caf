#pragma once
#include <database/decimal.h>

#include <QMetaType>
#include <QString>
#include <QWidget>

class QButtonGroup;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;
class QSpinBox;

// An order exactly as the ticket shows it when the user presses Send.
struct OrderRequest
{
    int stock = 0;
    int board = 0;
    long long secId = 0;
    bool buy = true;
    decimal price;
    int quantity = 0;
    QString account;
    long long streamId = 0;   // 0: an ordinary order, not on a liquidity stream
};
Q_DECLARE_METATYPE(OrderRequest)

// The order ticket of one security: side, price, quantity, account, and the
// liquidity stream when it was opened from a stream's notification. What the
// user types is checked against the security (decimals, price step, price
// limits) before anything is sent; the ticket hands a request only for what
// it shows.
class OrderTicket : public QWidget
{
    Q_OBJECT
public:
    explicit OrderTicket(QWidget* parent = nullptr);

    void setSecurity(int stock, int board, long long secId);
    void openOnStream(int stock, int board, long long secId, long long streamId);
    void setAccounts(QStringList const& accounts);
    void setAccount(QString const& account);
    void setPrice(QString const& text);
    void setQuantity(int quantity);
    void setBuy(bool buy);

    int stock() const { return m_stock; }
    int board() const { return m_board; }
    long long secId() const { return m_secId; }
    long long streamId() const { return m_streamId; }
    QString securityText() const;

    // The order as shown, or false with the reason why it cannot be sent.
    bool request(OrderRequest& order, QString& why) const;
    // Whether a sending path is plugged in (the Send button is live).
    void setSendingAvailable(bool available, QString const& why = QString());
    QPushButton* sendButton() const { return m_send; }

    // Shows the outcome of the last send (a gateway's reason, a refusal).
    void showOutcome(QString const& text, bool ok);
    QString outcome() const;

signals:
    void sendRequested(OrderRequest const& order);

private:
    void trySend();

    int m_stock = 0, m_board = 0;
    long long m_secId = 0, m_streamId = 0;
    QLabel* m_security;
    QLabel* m_stream;
    QRadioButton* m_buy;
    QRadioButton* m_sell;
    QLineEdit* m_price;
    QSpinBox* m_quantity;
    QComboBox* m_account;
    QPushButton* m_send;
    QLabel* m_outcome;
};
