#include <core/transactions.h>

#include <algorithm>

struct RawAnswer_Private
{
    std::mutex mutex;   // a transport may answer from its own thread
    bool answered = false;
    int code = RawAnswer::NoAnswer;
    QString text;
};

RawAnswer::RawAnswer() : d(QSharedPointer<RawAnswer_Private>::create()) {}

bool RawAnswer::isAnswered() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->answered;
}

int RawAnswer::code() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->code;
}

QString RawAnswer::text() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->text;
}

void RawAnswer::setAnswer(int code, QString const& text) const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    d->answered = true;
    d->code = code;
    d->text = text;
}

MarketFilter MarketFilter::single(int stockId, int boardId)
{
    MarketFilter f;
    f.count = 1;
    f.pairs[0] = {stockId, boardId};
    return f;
}

bool TransactionMeta::matches(int stock, int board) const
{
    return (stockId == 0 || stockId == stock) && (boardId == 0 || boardId == board);
}

ITransactionService::~ITransactionService() = default;
void ITransactionService::reserved3() {}
void ITransactionService::reserved5() {}

ITransport::~ITransport() = default;

TransactionService::TransactionService() = default;
TransactionService::~TransactionService() = default;

namespace {

// Exact board, whole market, every market: the generators use only the
// first template found, so the most specific one must come first.
int specificity(TransactionMeta const& meta)
{
    if (meta.stockId == 0) return 0;
    return meta.boardId == 0 ? 1 : 2;
}

bool matchesAny(TransactionMeta const& meta, MarketFilter const& markets)
{
    int count = std::min<int>(markets.count, MarketFilter::capacity);
    if (count <= 0) return true;
    for (int i = 0; i < count; ++i)
        if (meta.matches(markets.pairs[i].stockId, markets.pairs[i].boardId))
            return true;
    return false;
}

} // namespace

QList<TransactionMeta> TransactionService::findTemplates(int messageCode, MarketFilter const& markets,
                                                         QList<QString>& names) const
{
    QList<TransactionMeta> found;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (TransactionMeta const& meta : m_templates)
            if (meta.messageCode == messageCode && matchesAny(meta, markets))
                found.append(meta);
    }
    std::stable_sort(found.begin(), found.end(), [](TransactionMeta const& a, TransactionMeta const& b) {
        return specificity(a) > specificity(b);
    });
    for (TransactionMeta const& meta : found)
        names.append(meta.name);
    return found;
}

RawTransaction TransactionService::build(TransactionMeta const& meta,
                                         QMap<QString, QVariant> const& params) const
{
    RawTransaction tx;
    tx.messageCode = meta.messageCode;
    tx.templateName = meta.name;
    tx.stockId = meta.stockId;
    tx.boardId = meta.boardId;
    if (meta.isFreeForm()) {
        tx.params = params;
    } else {
        for (auto it = params.cbegin(); it != params.cend(); ++it) {
            if (meta.parameters.contains(it.key()) || meta.optionalParameters.contains(it.key()))
                tx.params.insert(it.key(), it.value());
            else
                tx.unknown.append(it.key());
        }
        for (QString const& name : meta.parameters)
            if (!params.contains(name))
                tx.missing.append(name);
    }
    tx.timer.start();
    return tx;
}

int TransactionService::send(RawTransaction const& transaction)
{
    if (!transaction.isComplete()) {
        transaction.answer.setAnswer(RawAnswer::Refused,
            transaction.messageCode == 0
                ? QStringLiteral("Transaction has no message code")
                : QStringLiteral("Missing parameters: %1").arg(transaction.missing.join(QStringLiteral(", "))));
        return 0;
    }
    QList<ITransport*> transports;
    {
        // Asked unlocked, so a transport may itself send or plug transports.
        std::lock_guard<std::mutex> lock(m_mutex);
        transports = m_transports;
    }
    for (ITransport* transport : transports) {
        if (transport->accepts(transaction)) {
            transport->take(transaction);
            return 1;
        }
    }
    transaction.answer.setAnswer(RawAnswer::NoTransport,
        QStringLiteral("No transport for message code %1").arg(transaction.messageCode));
    return 0;
}

void TransactionService::registerTemplate(TransactionMeta const& meta)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_templates.append(meta);
}

void TransactionService::clearTemplates()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_templates.clear();
}

QList<TransactionMeta> TransactionService::templates() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_templates;
}

void TransactionService::addTransport(ITransport* transport)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (transport && !m_transports.contains(transport))
        m_transports.append(transport);
}

void TransactionService::removeTransport(ITransport* transport)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_transports.removeAll(transport);
}

void TransactionService::clearTransports()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_transports.clear();
}

RecordingTransport::RecordingTransport(QList<int> messageCodes) : m_codes(std::move(messageCodes)) {}

bool RecordingTransport::accepts(RawTransaction const& transaction) const
{
    return m_codes.isEmpty() || m_codes.contains(transaction.messageCode);
}

void RecordingTransport::take(RawTransaction const& transaction)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_taken.append(transaction);
    if (m_reply)
        transaction.answer.setAnswer(m_replyCode, m_replyText);
}

void RecordingTransport::setReply(int code, QString const& text)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_reply = true;
    m_replyCode = code;
    m_replyText = text;
}

QList<RawTransaction> RecordingTransport::taken() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_taken;
}

void RecordingTransport::clear()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_taken.clear();
}
