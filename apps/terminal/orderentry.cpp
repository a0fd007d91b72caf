#include "orderentry.h"

#include <directories>

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <cmath>

namespace {
int const kMaxQuantity = 1000000;

// A price as typed, exactly, or false. Rounding a price would send one the
// ticket does not show.
bool parsePrice(QString const& text, decimal& out)
{
    QString const t = text.trimmed();
    if (t.isEmpty() || t.size() > 24) return false;
    return decimal::parse(QStringRef(&t), out);
}
} // namespace

OrderTicket::OrderTicket(QWidget* parent)
    : QWidget(parent), m_security(new QLabel), m_stream(new QLabel), m_buy(new QRadioButton(tr("Покупка"))),
      m_sell(new QRadioButton(tr("Продажа"))), m_price(new QLineEdit), m_quantity(new QSpinBox), m_account(new QComboBox),
      m_send(new QPushButton(tr("Отправить"))), m_outcome(new QLabel)
{
    m_security->setTextFormat(Qt::PlainText);
    m_security->setWordWrap(true);
    m_stream->setTextFormat(Qt::PlainText);
    m_outcome->setTextFormat(Qt::PlainText);
    m_outcome->setWordWrap(true);
    m_buy->setChecked(true);
    m_price->setMaxLength(24);
    m_price->setPlaceholderText(tr("Цена"));
    m_quantity->setRange(1, kMaxQuantity);
    auto* sides = new QHBoxLayout;
    sides->addWidget(m_buy);
    sides->addWidget(m_sell);
    auto* form = new QFormLayout(this);
    form->addRow(tr("Инструмент"), m_security);
    form->addRow(tr("Поток"), m_stream);
    form->addRow(tr("Направление"), sides);
    form->addRow(tr("Цена"), m_price);
    form->addRow(tr("Количество"), m_quantity);
    form->addRow(tr("Счёт"), m_account);
    form->addRow(m_send);
    form->addRow(m_outcome);
    connect(m_send, &QPushButton::clicked, this, &OrderTicket::trySend);
    connect(m_price, &QLineEdit::returnPressed, this, &OrderTicket::trySend);
    setSecurity(0, 0, 0);
}

QString OrderTicket::securityText() const { return m_security->text(); }

void OrderTicket::setSecurity(int stock, int board, long long secId)
{
    m_stock = stock;
    m_board = board;
    m_secId = secId;
    m_streamId = 0;
    m_stream->setText(tr("нет"));
    SecurityDirectory* securities = directoryOrNull<SecurityDirectory>();
    if (!secId || !securities) {
        m_security->setText(tr("<инструмент не выбран>"));
        return;
    }
    m_security->setText(QStringLiteral("%1  %2  (%3)")
                            .arg(securities->codeById(stock, board, secId).trimmed(), securities->nameById(stock, board, secId),
                                 SecurityDirectory::textIdById(stock, board, secId)));
    // A starting price the user can see and change: the best opposite quote.
    Record r = securities->recordById(stock, board, secId);
    if (!r.isEmpty() && m_price->text().trimmed().isEmpty()) {
        Field quote = r.data(m_buy->isChecked() ? "ask" : "bid");
        decimal price = quote.toDecimal();
        int const decimals = r.data("decimals").isNull() ? -1 : r.data("decimals").toInteger();
        if (!quote.isNull() && (decimals < 0 || price.trySetScale(short(decimals)))) m_price->setText(price.toString());
    }
    m_outcome->clear();
}

void OrderTicket::openOnStream(int stock, int board, long long secId, long long streamId)
{
    m_price->clear();
    setSecurity(stock, board, secId);
    m_streamId = streamId;
    m_stream->setText(QString::number(streamId));
}

void OrderTicket::setAccounts(QStringList const& accounts)
{
    QString const keep = m_account->currentText();
    QSignalBlocker block(m_account);
    m_account->clear();
    m_account->addItems(accounts);
    int k = m_account->findText(keep);
    if (k >= 0) m_account->setCurrentIndex(k);
}

void OrderTicket::setAccount(QString const& account)
{
    int k = m_account->findText(account);
    if (k >= 0) m_account->setCurrentIndex(k);
}

void OrderTicket::setPrice(QString const& text) { m_price->setText(text); }
void OrderTicket::setQuantity(int quantity) { m_quantity->setValue(quantity); }
void OrderTicket::setBuy(bool buy) { (buy ? m_buy : m_sell)->setChecked(true); }

bool OrderTicket::request(OrderRequest& order, QString& why) const
{
    SecurityDirectory* securities = directoryOrNull<SecurityDirectory>();
    Record const r = securities && m_secId ? securities->recordById(m_stock, m_board, m_secId) : Record();
    if (r.isEmpty()) {
        why = tr("Инструмент не выбран или не найден");
        return false;
    }
    decimal price;
    if (!parsePrice(m_price->text(), price)) {
        why = tr("Цена должна быть числом, например 101.25");
        return false;
    }
    int const decimals = r.data("decimals").isNull() ? -1 : r.data("decimals").toInteger();
    if (decimals >= 0 && price.scale() > decimals) {
        // Trailing zeros beyond the security's decimals change nothing.
        decimal rounded = price;
        if (!rounded.trySetScale(short(decimals)) || rounded != price) {
            why = tr("У цены не больше %1 знаков после запятой").arg(decimals);
            return false;
        }
        price = rounded;
    }
    if (price.compare(decimal::fromInteger(0)) <= 0) {
        why = tr("Цена должна быть больше нуля");
        return false;
    }
    Field const step = r.data("price_step");
    if (!step.isNull() && step.toDouble() > 0) {
        double const steps = price.toDouble() / step.toDouble();
        if (std::fabs(steps - std::round(steps)) > 1e-6) {
            why = tr("Цена не кратна шагу цены %1").arg(step.toString());
            return false;
        }
    }
    Field const low = r.data("price_lmt_low"), high = r.data("price_lmt_high");
    if (!low.isNull() && !high.isNull() && high.toDouble() > 0 &&
        (price.toDouble() < low.toDouble() || price.toDouble() > high.toDouble())) {
        why = tr("Цена вне лимитов %1 .. %2").arg(low.toString(), high.toString());
        return false;
    }
    if (m_account->currentText().isEmpty()) {
        why = tr("Счёт не выбран");
        return false;
    }
    order.stock = m_stock;
    order.board = m_board;
    order.secId = m_secId;
    order.buy = m_buy->isChecked();
    order.price = price;
    order.quantity = m_quantity->value();
    order.account = m_account->currentText();
    order.streamId = m_streamId;
    return true;
}

void OrderTicket::setSendingAvailable(bool available, QString const& why)
{
    m_send->setEnabled(available);
    m_send->setToolTip(why);
}

void OrderTicket::showOutcome(QString const& text, bool ok)
{
    m_outcome->setText(text);
    m_outcome->setStyleSheet(ok ? QString() : QStringLiteral("color: #b00020"));
}

QString OrderTicket::outcome() const { return m_outcome->text(); }

void OrderTicket::trySend()
{
    if (!m_send->isEnabled()) return;
    OrderRequest order;
    QString why;
    if (!request(order, why)) {
        showOutcome(why, false);
        return;
    }
    emit sendRequested(order);
}
