#include <core/transactions.h>

#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <algorithm>
#include <cmath>

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

namespace {

int lineAt(QByteArray const& text, int offset)
{
    return 1 + int(std::count(text.constBegin(), text.constBegin() + std::clamp(offset, 0, text.size()), '\n'));
}

// Lines on which the elements of the root object's one array start, so that
// a fault in a template can name its line. Runs on text that parsed.
QList<int> elementLines(QByteArray const& text)
{
    QList<int> lines;
    int depth = 0, line = 1;
    bool inString = false, expectElement = false;
    for (int k = 0; k < text.size(); ++k) {
        char const c = text[k];
        if (c == '\n') ++line;
        if (inString) {
            if (c == '\\') ++k;
            else if (c == '"') inString = false;
            continue;
        }
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
        if (depth == 2 && expectElement && c != ']') {
            lines.append(line);
            expectElement = false;
        }
        if (c == '"') inString = true;
        else if (c == '{' || c == '[') expectElement = ++depth == 2;
        else if (c == '}' || c == ']') --depth;
        else if (c == ',' && depth == 2) expectElement = true;
    }
    return lines;
}

struct TemplateFault
{
    QString text;
};

bool wholeNumber(QJsonValue const& v, double low, double high, int& out)
{
    if (!v.isDouble()) return false;
    double d = v.toDouble();
    if (!(d >= low && d <= high) || std::floor(d) != d) return false;
    out = int(d);
    return true;
}

QStringList parameterNames(QJsonObject const& t, QString const& field)
{
    QStringList names;
    if (!t.contains(field)) return names;
    if (!t.value(field).isArray()) throw TemplateFault{QStringLiteral("'%1' needs an array of parameter names").arg(field)};
    for (QJsonValue const& v : t.value(field).toArray()) {
        if (!v.isString() || v.toString().isEmpty())
            throw TemplateFault{QStringLiteral("'%1' needs non-empty parameter names").arg(field)};
        if (names.contains(v.toString()))
            throw TemplateFault{QStringLiteral("'%1' names '%2' twice").arg(field, v.toString())};
        names << v.toString();
    }
    return names;
}

TransactionMeta readTemplate(QJsonValue const& value)
{
    if (!value.isObject()) throw TemplateFault{QStringLiteral("a template must be an object")};
    QJsonObject const t = value.toObject();
    static QStringList const known{QStringLiteral("code"), QStringLiteral("stock"), QStringLiteral("board"),
                                   QStringLiteral("name"), QStringLiteral("parameters"), QStringLiteral("optional")};
    for (auto it = t.begin(); it != t.end(); ++it)
        if (!known.contains(it.key())) throw TemplateFault{QStringLiteral("unknown field '%1'").arg(it.key())};
    TransactionMeta meta;
    if (!t.contains(QStringLiteral("code")) || !wholeNumber(t.value(QStringLiteral("code")), 1, 65535, meta.messageCode))
        throw TemplateFault{QStringLiteral("'code' needs a message code from 1 to 65535")};
    for (auto [field, out] : {std::pair<char const*, qint32*>{"stock", &meta.stockId}, {"board", &meta.boardId}}) {
        QString const name = QLatin1String(field);
        if (t.contains(name) && !wholeNumber(t.value(name), 0, 2147483647.0, *out))
            throw TemplateFault{QStringLiteral("'%1' needs a whole number from 0 (any) up").arg(name)};
    }
    if (meta.stockId == 0 && meta.boardId != 0)
        throw TemplateFault{QStringLiteral("'board' needs a 'stock': a board number means nothing without its market")};
    if (!t.value(QStringLiteral("name")).isString() || t.value(QStringLiteral("name")).toString().trimmed().isEmpty())
        throw TemplateFault{QStringLiteral("'name' needs a non-empty string")};
    meta.name = t.value(QStringLiteral("name")).toString();
    meta.parameters = parameterNames(t, QStringLiteral("parameters"));
    meta.optionalParameters = parameterNames(t, QStringLiteral("optional"));
    for (QString const& p : meta.optionalParameters)
        if (meta.parameters.contains(p))
            throw TemplateFault{QStringLiteral("'%1' is both required and optional").arg(p)};
    return meta;
}

} // namespace

bool TransactionService::loadTemplates(QString const& path, QString& error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    // Templates are a few dozen lines; anything near this is not a templates file.
    if (file.size() > (1 << 20)) {
        error = QStringLiteral("%1: larger than 1 MiB").arg(path);
        return false;
    }
    return loadTemplatesJson(file.readAll(), path, error);
}

bool TransactionService::loadTemplatesJson(QByteArray const& json, QString const& origin, QString& error)
{
    QJsonParseError parseError;
    QJsonDocument const doc = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        error = QStringLiteral("%1:%2: bad JSON: %3").arg(origin).arg(lineAt(json, parseError.offset)).arg(parseError.errorString());
        return false;
    }
    QJsonObject const root = doc.object();
    if (!doc.isObject() || root.size() != 1 || !root.value(QStringLiteral("templates")).isArray()) {
        error = QStringLiteral("%1: needs an object with one key, \"templates\", holding an array").arg(origin);
        return false;
    }
    QJsonArray const list = root.value(QStringLiteral("templates")).toArray();
    QList<int> const lines = elementLines(json);
    QList<TransactionMeta> loaded;
    QHash<QString, int> seen;   // code,stock,board -> template number
    for (int k = 0; k < list.size(); ++k) {
        QString const where = QStringLiteral("%1:%2: template %3").arg(origin).arg(lines.value(k, 0)).arg(k + 1);
        try {
            TransactionMeta meta = readTemplate(list.at(k));
            QString const key = QStringLiteral("%1,%2,%3").arg(meta.messageCode).arg(meta.stockId).arg(meta.boardId);
            // The generators take the first template found: two for the same
            // market would leave the choice to the order of the file.
            if (seen.contains(key))
                throw TemplateFault{QStringLiteral("code %1 for stock %2, board %3 repeats template %4")
                                        .arg(meta.messageCode).arg(meta.stockId).arg(meta.boardId).arg(seen.value(key))};
            seen.insert(key, k + 1);
            loaded.append(meta);
        } catch (TemplateFault const& fault) {
            error = where + QStringLiteral(": ") + fault.text;
            return false;
        }
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_templates = loaded;
    return true;
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
