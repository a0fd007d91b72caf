#include <gateway/sessiontransport.h>
#include <gateway/simulatedgateway.h>

#include <core/icore.h>
#include <core/usernotification.h>
#include <database/replicationclient.h>

#include <QCoreApplication>
#include <QJsonObject>
#include <QTimer>

namespace {
QString transportText(char const* source) { return QCoreApplication::translate("SessionTransport", source); }

QString notSent(QString const& why)
{
    return transportText(QT_TRANSLATE_NOOP("SessionTransport", "Транзакция не отправлена: нет связи с биржей (%1)")).arg(why);
}
} // namespace

SessionTransport::SessionTransport(ICore* core, ReplicationClient* client, QObject* parent)
    : QObject(parent), m_core(core), m_client(client)
{
    connect(client, &ReplicationClient::transactionAnswered, this,
            [this](quint64 id, int code, QString const& text, QList<qint64> const& orderIds) {
                finish(id, code == Accepted ? Accepted : Rejected, text, orderIds);
            });
    connect(client, &ReplicationClient::transactionLost, this, [this](quint64 id, QString const& why) {
        finish(id, Lost,
               transportText(QT_TRANSLATE_NOOP("SessionTransport", "Связь с биржей прервалась до ответа на транзакцию (%1): что с ней стало, покажут заявки"))
                   .arg(why));
    });
}

SessionTransport::~SessionTransport()
{
    if (m_service) m_service->removeTransport(this);
}

void SessionTransport::plugInto(TransactionService* service)
{
    if (m_service) m_service->removeTransport(this);
    m_service = service;
    if (m_service) m_service->addTransport(this);
}

bool SessionTransport::accepts(RawTransaction const& transaction) const
{
    if (!SimulatedGateway::serves(transaction.messageCode)) return false;
    if (m_client->state() != ReplicationClient::State::Live) {
        declined(m_client->stateText());
        return false;
    }
    for (auto it = transaction.params.constBegin(); it != transaction.params.constEnd(); ++it)
        if (!it->isNull() && !it->canConvert<QString>()) {
            declined(transportText(QT_TRANSLATE_NOOP("SessionTransport", "параметр «%1» не передаётся текстом")).arg(it.key()));
            return false;
        }
    return true;
}

void SessionTransport::declined(QString const& why) const
{
    // Told from the event loop, after the sender has its result, as an answer would be.
    QString const text = notSent(why);
    ICore* core = m_core;
    QTimer::singleShot(0, const_cast<SessionTransport*>(this),
                       [core, text] { UserNotification(RejectedKind, UserNotification::escapedAnswer(text)).sendTo(core); });
}

void SessionTransport::take(RawTransaction const& transaction)
{
    QJsonObject params;
    for (auto it = transaction.params.constBegin(); it != transaction.params.constEnd(); ++it)
        if (!it->isNull()) params.insert(it.key(), it->toString());
    QJsonObject const message{{QStringLiteral("id"), double(++m_lastId)},
                              {QStringLiteral("code"), transaction.messageCode},
                              {QStringLiteral("template"), transaction.templateName},
                              {QStringLiteral("stock"), transaction.stockId},
                              {QStringLiteral("board"), transaction.boardId},
                              {QStringLiteral("params"), params}};
    quint64 const id = m_lastId;
    m_pending.insert(id, transaction);
    if (!m_client->sendTransaction(id, message)) {
        // Not live since accepts(): on this thread that cannot be, but nothing is kept either way.
        QTimer::singleShot(0, this, [this, id] { finish(id, Lost, notSent(m_client->stateText())); });
    }
}

void SessionTransport::finish(quint64 id, int code, QString const& text, QList<qint64> const& orderIds)
{
    auto it = m_pending.find(id);
    if (it == m_pending.end()) return;
    RawTransaction const tx = it.value();
    m_pending.erase(it);
    tx.answer.setAnswer(code, text);
    UserNotification(code == Accepted ? AcceptedKind : RejectedKind, UserNotification::escapedAnswer(text)).sendTo(m_core);
    emit answered(tx, code, text, orderIds);
}
