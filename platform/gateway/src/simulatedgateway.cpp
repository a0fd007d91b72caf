#include <gateway/simulatedgateway.h>

#include <core/clock.h>
#include <core/icore.h>
#include <core/usernotification.h>
#include <database/batch.h>
#include <database/database.h>
#include <database/exception.h>
#include <database/index.h>

#include <QCoreApplication>
#include <QMetaObject>
#include <QRegularExpression>
#include <algorithm>

namespace {

// Message codes the exchange serves.
enum : int { PlaceOrder = 1025, CancelOrder = 1028, CancelFlaggedOrder = 1280, CancelBySecurity = 1032 };
constexpr qint64 kFlaggedOrderBit = qint64(1) << 47;   // cancelled with 1280 instead of 1028

QString gatewayText(char const* source) { return QCoreApplication::translate("Gateway", source); }

// Values from outside echoed in answers: short, and one line.
QString echo(QString const& value)
{
    QString text = value.left(40);
    for (QChar& c : text)
        if (c.category() == QChar::Other_Control || c.category() == QChar::Other_Format) c = QChar(0xFFFD);
    return value.size() > 40 ? text + QStringLiteral("…") : text;
}

// The securities and sessions of the request-for-stream market are those of
// market 1.
int marketOfSecurities(int stock) { return stock == 5 ? 1 : stock; }

struct Rejection
{
    QString reason;
};

[[noreturn]] void reject(QString const& reason) { throw Rejection{reason}; }

QString param(RawTransaction const& tx, char const* name)
{
    QString const key = QLatin1String(name);
    auto it = tx.params.constFind(key);
    if (it == tx.params.constEnd() || it->isNull()) reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "нет параметра «%1»")).arg(key));
    return it->toString();
}

QChar side(QString const& text)
{
    if (text != QLatin1String("B") && text != QLatin1String("S"))
        reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "направление должно быть B или S, а не «%1»")).arg(echo(text)));
    return text.at(0);
}

QSharedPointer<Table> tableOf(Database* db, char const* name)
{
    QSharedPointer<Table> t = db ? db->table(QLatin1String(name)) : QSharedPointer<Table>();
    if (!t) reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "нет таблицы «%1»")).arg(QLatin1String(name)));
    return t;
}

int column(Table const& t, char const* name) { return t.columnIndex(QLatin1String(name)); }

// Every live row of a table, in key order. Runs on the updating thread,
// where rows change only between calls.
template <class F> void forEachRow(Table const& t, F&& f)
{
    for (auto it = t.masterIndex()->begin(); it != t.masterIndex()->end(); ++it)
        if (!f(*it)) return;
}

QString text(Table const& t, Record const& r, int c) { return c < 0 ? QString() : t.dataPtr(r.row(), c).toString().trimmed(); }
qint64 integer(Table const& t, Record const& r, int c)
{
    if (c < 0) return 0;
    Field f = t.dataPtr(r.row(), c);
    return f.type() == FieldType::Int64 ? f.rawInt64() : f.rawInt32();
}

// The security of a market and board by its code; board 0 (a transaction
// that names no board) takes the code's only board, refusing an ambiguous one.
Record findSecurity(Table const& securities, int stock, int board, QString const& code)
{
    int const cStock = column(securities, "stock_id"), cBoard = column(securities, "board_id"),
              cCode = column(securities, "sec_code");
    int const market = marketOfSecurities(stock);
    Record found;
    int matches = 0;
    auto consider = [&](Record const& r) {
        if (integer(securities, r, cStock) != market) return true;
        if (board != 0 && integer(securities, r, cBoard) != board) return true;
        if (text(securities, r, cCode) != code) return true;
        if (!matches++) found = r;
        return true;
    };
    IndexSort const* master = securities.masterIndex();
    QStringList const& key = securities.keyColumns();
    if (board != 0 && key.size() >= 2 && key[0] == QLatin1String("stock_id") && key[1] == QLatin1String("board_id")) {
        // The board's rows stand together in key order: start at the first
        // and stop after the last, instead of reading every security.
        struct Board { qint64 stock, board; };
        auto byBoard = [&](Record const& r, Board const& b) {
            qint64 const s = integer(securities, r, cStock), bd = integer(securities, r, cBoard);
            return s != b.stock ? (s < b.stock ? -1 : 1) : bd != b.board ? (bd < b.board ? -1 : 1) : 0;
        };
        Board const wanted{market, board};
        for (int p = master->searchBinary(wanted, -1, byBoard); p >= 0 && p < master->count(); ++p) {
            Record r = master->at(p);
            if (byBoard(r, wanted) != 0) break;
            consider(r);
        }
    } else {
        forEachRow(securities, consider);
    }
    if (matches != 1 || code.isEmpty())
        reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "инструмент «%1» не найден")).arg(echo(code)));
    return found;
}

// An account is a client code of the investors, or of the settlement accounts.
void checkAccount(Database* db, QString const& account)
{
    auto unknown = [&] { reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "счёт «%1» не найден")).arg(echo(account))); };
    if (account.isEmpty() || account.trimmed() != account) unknown();
    std::pair<char const*, char const*> const tables[] = {{"k3.investor", "client_code"}, {"k3.fut_settlement_account", "code"}};
    for (auto [name, codeColumn] : tables) {
        QSharedPointer<Table> t = db->table(QLatin1String(name));
        if (!t) continue;
        int const c = column(*t, codeColumn);
        if (c < 0 || account.size() > t->columnDef(c).length / 2) continue;   // would be cut to fit
        bool found = false;
        forEachRow(*t, [&](Record const& r) { return !(found = text(*t, r, c) == account); });
        if (found) return;
    }
    unknown();
}

decimal parsePrice(QString const& text)
{
    static QRegularExpression const shape(QStringLiteral("^-?[0-9]{1,17}(\\.[0-9]{1,10})?$"));
    decimal price;
    if (!shape.match(text).hasMatch() || !decimal::parse(QStringRef(&text), price))
        reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "цена «%1» не является числом")).arg(echo(text)));
    return price;
}

// Exact: both mantissas at the finer of the two scales.
bool onStep(decimal price, decimal step)
{
    int const scale = std::max(price.scale(), step.scale());
    // Prices come with at most ten places; beyond twenty the 128-bit
    // mantissas below could overflow, and no real step is that fine.
    if (scale > 20 || std::min(price.scale(), step.scale()) < -20) return false;
    auto at = [scale](decimal d) {
        __int128 m = d.mantissa();
        for (int s = d.scale(); s < scale; ++s) m *= 10;
        return m;
    };
    __int128 const s = at(step);
    return s > 0 && at(price) % s == 0;
}

// A decimal as a person writes it: 0.01, not the column's 0.01000.
QString plain(decimal d)
{
    while (d.scale() > 0 && d.mantissa() % 10 == 0 && d.trySetScale(short(d.scale() - 1))) {}
    return d.toString();
}

// Boards where the price is a swap price, which may be zero or negative.
bool isSwapBoard(int board) { return board == 10 || board == 11; }

// The security's price limits, when it publishes both and they make a range.
bool priceLimits(Table const& securities, Record const& security, decimal& low, decimal& high)
{
    auto read = [&](char const* name, decimal& out) {
        int const c = column(securities, name);
        if (c < 0) return false;
        Field f = securities.dataPtr(security.row(), c);
        if (f.type() != FieldType::Decimal || !f.hasValue()) return false;
        out = f.rawDecimal();
        return true;
    };
    return read("price_lmt_low", low) && read("price_lmt_high", high) && low < high;
}

int parseQuantity(QString const& text)
{
    static QRegularExpression const digits(QStringLiteral("^[0-9]{1,10}$"));
    qint64 const q = digits.match(text).hasMatch() ? text.toLongLong() : 0;
    if (q <= 0 || q > 2147483647)
        reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "количество должно быть целым положительным числом, а не «%1»")).arg(echo(text)));
    return int(q);
}

// The market's current session: its latest one.
int currentSession(Database* db, int stock)
{
    QSharedPointer<Table> sessions = tableOf(db, "sessions");
    int const cStock = column(*sessions, "stock_id"), cSess = column(*sessions, "sess_id");
    int const market = marketOfSecurities(stock);
    qint64 sess = 0;
    forEachRow(*sessions, [&](Record const& r) {
        if (integer(*sessions, r, cStock) == market) sess = std::max(sess, integer(*sessions, r, cSess));
        return true;
    });
    if (sess <= 0) reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "нет текущей сессии рынка %1")).arg(stock));
    return int(sess);
}

// A row image for a batch: the columns written, in ascending order.
class RowImage
{
public:
    explicit RowImage(Table const& t) : m_table(t), m_image(&t) {}

    Field at(char const* name)
    {
        int const c = column(m_table, name);
        if (c < 0) return Field();
        if (std::find(m_columns.begin(), m_columns.end(), c) == m_columns.end()) m_columns.push_back(c);
        return m_table.dataPtr(m_image.row(), c);
    }
    void setInt(char const* name, qint64 value)
    {
        Field f = at(name);
        if (f.type() == FieldType::Int) f.setRawInt32(qint32(value));
        else if (f.type() == FieldType::Int64) f.setRawInt64(value);
    }
    void setText(char const* name, QString const& value)
    {
        Field f = at(name);
        if (f.isValid()) f.storeString(value);
    }
    void setDecimal(char const* name, decimal value)
    {
        Field f = at(name);
        if (f.type() == FieldType::Decimal && value.trySetScale(f.scale())) f.setRawDecimal(value);
    }
    void setMoment(char const* name, qint64 msecs)
    {
        Field f = at(name);
        if (f.type() == FieldType::DateTime) f.setRawDateTime(msecs);
    }
    // The key of an existing row, which the update names.
    void copyKey(Record const& row)
    {
        for (int c : m_table.keyColumnNumbers()) {
            Field from = m_table.dataPtr(row.row(), c), to = m_table.dataPtr(m_image.row(), c);
            if (to.type() == FieldType::VarChar) to.storeString(from.asStaticString());
            else std::copy_n(from.data(), to.length(), to.data());
            to.setHasValue();
            if (std::find(m_columns.begin(), m_columns.end(), c) == m_columns.end()) m_columns.push_back(c);
        }
    }
    BatchOp op(BatchOp::Kind kind)
    {
        BatchOp op;
        op.kind = kind;
        op.image = m_image;
        op.columns = m_columns;
        std::sort(op.columns.begin(), op.columns.end());
        return op;
    }

private:
    Table const& m_table;
    Record m_image;
    std::vector<int> m_columns;
};

// The orders table with the columns the exchange writes.
struct Orders
{
    explicit Orders(Database* db) : table(tableOf(db, "orders"))
    {
        Table const& t = *table;
        stock = column(t, "stock_id");
        board = column(t, "board_id");
        sess = column(t, "sess_id");
        orderId = column(t, "order_id");
        secId = column(t, "sec_id");
        status = column(t, "status");
        account = column(t, "account");
        buysell = column(t, "buysell");
        balance = column(t, "balance");
        signs = column(t, "signs");
        streamId = column(t, "stream_id");
        char const* const needed[] = {"stock_id", "board_id", "sess_id", "order_id", "sec_id", "status", "account", "buysell", "balance"};
        for (char const* name : needed)
            if (column(t, name) < 0)
                reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "в таблице «%1» нет столбца «%2»")).arg(QStringLiteral("orders"), QLatin1String(name)));
    }
    bool active(Record const& r) const
    {
        return text(*table, r, status) == QLatin1String("A") && integer(*table, r, balance) > 0;
    }

    QSharedPointer<Table> table;
    int stock, board, sess, orderId, secId, status, account, buysell, balance, signs, streamId;
};

} // namespace

struct SimulatedGateway::Outcome
{
    bool accepted = false;
    QString text;            // the answer, plain
    QString reason;          // why rejected
    QList<qint64> orderIds;
};

SimulatedGateway::SimulatedGateway(ICore* core, QObject* parent) : QObject(parent), m_core(core) {}

SimulatedGateway::~SimulatedGateway()
{
    if (m_service) m_service->removeTransport(this);
}

void SimulatedGateway::plugInto(TransactionService* service)
{
    if (m_service) m_service->removeTransport(this);
    m_service = service;
    if (m_service) m_service->addTransport(this);
}

bool SimulatedGateway::serves(int messageCode)
{
    switch (messageCode) {
    case PlaceOrder: case CancelOrder: case CancelFlaggedOrder: case CancelBySecurity: return true;
    default: return false;
    }
}

void SimulatedGateway::take(RawTransaction const& transaction) { enqueue(Item{transaction, false, QString()}); }

void SimulatedGateway::takeFromFirm(RawTransaction const& transaction, QString const& firm) { enqueue(Item{transaction, true, firm}); }

void SimulatedGateway::enqueue(Item&& item)
{
    // Answered from the event loop, as a connection answers: whoever sent
    // it holds its answer handle before anything arrives on it.
    std::lock_guard<std::mutex> lock(m_mutex);
    m_queue.append(std::move(item));
    if (!m_scheduled) {
        m_scheduled = true;
        QMetaObject::invokeMethod(this, "processPending", Qt::QueuedConnection);
    }
}

int SimulatedGateway::pending() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_queue.size();
}

void SimulatedGateway::processPending()
{
    QList<Item> work;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        work.swap(m_queue);
        m_scheduled = false;
    }
    for (Item const& item : work) {
        m_restricted = item.restricted;
        m_firm = item.firm;
        Outcome const outcome = handle(item.tx);
        m_restricted = false;
        finish(item.tx, outcome);
    }
}

bool SimulatedGateway::ofFirm(QString const& account) const
{
    return !m_restricted || (m_firm.size() == 4 && account.startsWith(m_firm));
}

void SimulatedGateway::checkFirm(QString const& account) const
{
    if (!ofFirm(account)) reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "счёт «%1» не найден")).arg(echo(account)));
}

SimulatedGateway::Outcome SimulatedGateway::handle(RawTransaction const& tx)
{
    try {
        switch (tx.messageCode) {
        case PlaceOrder: return placeOrder(tx);
        case CancelOrder: case CancelFlaggedOrder: return cancelOrder(tx);
        case CancelBySecurity: return cancelBySecurity(tx);
        default: reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "транзакция %1 не обслуживается")).arg(tx.messageCode));
        }
    } catch (Rejection const& r) {
        Outcome o;
        o.reason = r.reason;
        return o;
    } catch (Exception const& e) {
        // The batch was refused whole: nothing changed.
        Outcome o;
        o.reason = gatewayText(QT_TRANSLATE_NOOP("Gateway", "изменения не приняты базой: %1")).arg(e.message());
        return o;
    }
}

SimulatedGateway::Outcome SimulatedGateway::placeOrder(RawTransaction const& tx)
{
    Database* db = m_core->database();
    QString const code = param(tx, "Security"), account = param(tx, "Account"), type = param(tx, "Type");
    QChar const buySell = side(param(tx, "BuySell"));
    decimal const price = parsePrice(param(tx, "Price"));
    int const quantity = parseQuantity(param(tx, "Quantity"));
    if (type != QLatin1String("1"))
        reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "тип заявки «%1» не поддерживается")).arg(echo(type)));

    QSharedPointer<Table> securities = tableOf(db, "securities");
    Record security = findSecurity(*securities, tx.stockId, tx.boardId, code);
    int const board = int(integer(*securities, security, column(*securities, "board_id")));
    qint64 const secId = integer(*securities, security, column(*securities, "sec_id"));
    checkAccount(db, account);
    checkFirm(account);
    if (price.mantissa() <= 0 && !isSwapBoard(board))
        reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "цена %1 должна быть больше нуля")).arg(price.toString()));
    Field stepField = securities->dataPtr(security.row(), column(*securities, "price_step"));
    decimal const step = stepField.type() == FieldType::Decimal ? stepField.rawDecimal() : decimal();
    if (stepField.hasValue() && step.mantissa() > 0 && !onStep(price, step))
        reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "цена %1 не кратна шагу цены %2")).arg(price.toString(), plain(step)));
    decimal low, high;
    if (priceLimits(*securities, security, low, high) && (price < low || high < price))
        reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "цена %1 вне лимитов цены %2 – %3"))
                   .arg(price.toString(), plain(low), plain(high)));

    Orders orders(db);
    decimal stored = price;
    int const priceScale = orders.table->columnDef(column(*orders.table, "price")).scale;
    if (!stored.trySetScale(short(priceScale)) || stored != price)
        reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "цена %1 не кратна шагу цены %2"))
                   .arg(price.toString(), plain(decimal::fromMantissa(1, priceScale))));
    qint64 stream = 0;
    if (tx.stockId == 5) {
        // A request-for-stream order answers one of the security's streams.
        QSharedPointer<Table> streams = db->table(QStringLiteral("k3.rfs.streams"));
        if (streams) {
            int const cStock = column(*streams, "stock_id"), cBoard = column(*streams, "board_id"),
                      cSec = column(*streams, "sec_id"), cStream = column(*streams, "stream_id");
            forEachRow(*streams, [&](Record const& r) {
                if (integer(*streams, r, cStock) == 5 && integer(*streams, r, cBoard) == board && integer(*streams, r, cSec) == secId)
                    stream = integer(*streams, r, cStream);
                return stream == 0;
            });
        }
        if (stream == 0) reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "нет потока по инструменту «%1»")).arg(echo(code)));
    }
    int const sess = currentSession(db, tx.stockId);

    // Strictly increasing, and above every order already replicated: the
    // table is read once, then each batch's new rows are watched, so that
    // an order costs the same at the end of a day as at its start.
    if (m_watchedOrders.toStrongRef() != orders.table) {
        m_watchedOrders = orders.table;
        m_topOrderId = 0;
        int const column = orders.orderId;
        forEachRow(*orders.table, [&](Record const& r) {
            m_topOrderId = std::max(m_topOrderId, integer(*orders.table, r, column));
            return true;
        });
        Table const* table = orders.table.data();
        m_ordersWatch = TableWatch(orders.table, QStringLiteral("gateway: order ids"), [this, table, column](RowChanges const& changes) {
            for (Record const& r : changes.inserted) m_topOrderId = std::max(m_topOrderId, integer(*table, r, column));
        });
    }
    qint64 const orderId = std::max(m_lastOrderId, m_topOrderId) + 1;

    RowImage row(*orders.table);
    row.setInt("stock_id", tx.stockId);
    row.setInt("board_id", board);
    row.setInt("sess_id", sess);
    row.setInt("order_id", orderId);
    row.setInt("sec_id", secId);
    row.setText("status", QStringLiteral("A"));
    if (tx.stockId == 5) row.setInt("stream_id", stream);
    row.setText("account", account);
    row.setDecimal("price", price);
    row.setText("buysell", QString(buySell));
    row.setInt("quantity", quantity);
    row.setInt("balance", quantity);
    row.setInt("signs", 0);
    row.setInt("dkh_request", 0);
    row.setMoment("moment", Clock::nowMSecs());
    Batch batch;
    batch.origin = QStringLiteral("gateway:order %1").arg(orderId);
    batch.table = orders.table;
    batch.ops.push_back(row.op(BatchOp::Insert));
    apply(db, batch);
    m_lastOrderId = orderId;

    Outcome o;
    o.accepted = true;
    o.text = gatewayText(QT_TRANSLATE_NOOP("Gateway", "Заявка %1 принята")).arg(orderId);
    o.orderIds << orderId;
    return o;
}

SimulatedGateway::Outcome SimulatedGateway::cancelOrder(RawTransaction const& tx)
{
    Database* db = m_core->database();
    QString const account = param(tx, "Account"), idText = param(tx, "order_id"), code = param(tx, "Security"),
                  secText = param(tx, "sec_id");
    param(tx, "dkh_request");
    static QRegularExpression const digits(QStringLiteral("^[0-9]{1,18}$"));
    if (!digits.match(idText).hasMatch())
        reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "заявка %1 не найдена")).arg(echo(idText)));
    qint64 const orderId = idText.toLongLong();
    // Another firm's order is not told apart from a missing one either.
    if (!ofFirm(account)) reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "заявка %1 не найдена")).arg(orderId));
    Orders orders(db);
    Table const& t = *orders.table;
    Record order;
    forEachRow(t, [&](Record const& r) {
        if (integer(t, r, orders.orderId) == orderId && integer(t, r, orders.stock) == tx.stockId &&
            (tx.boardId == 0 || integer(t, r, orders.board) == tx.boardId) && text(t, r, orders.account) == account)
            order = r;
        return order.isEmpty();
    });
    // Another account's order is not told apart from a missing one.
    if (order.isEmpty()) reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "заявка %1 не найдена")).arg(orderId));
    auto mismatch = [&](QString const& field) {
        reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "заявка %1 не совпадает с транзакцией по полю «%2»")).arg(orderId).arg(field));
    };
    if (secText != QString::number(integer(t, order, orders.secId))) mismatch(QStringLiteral("sec_id"));
    QSharedPointer<Table> securities = tableOf(db, "securities");
    Record security = findSecurity(*securities, tx.stockId, int(integer(t, order, orders.board)), code);
    if (integer(*securities, security, column(*securities, "sec_id")) != integer(t, order, orders.secId))
        mismatch(QStringLiteral("Security"));
    if (tx.params.contains(QStringLiteral("BuySell")) && param(tx, "BuySell") != text(t, order, orders.buysell))
        mismatch(QStringLiteral("BuySell"));
    if (tx.params.contains(QStringLiteral("Stream")) && param(tx, "Stream") != QString::number(integer(t, order, orders.streamId)))
        mismatch(QStringLiteral("Stream"));
    int const needed = integer(t, order, orders.signs) & kFlaggedOrderBit ? CancelFlaggedOrder : CancelOrder;
    if (tx.messageCode != needed)
        reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "заявку %1 снимают транзакцией %2")).arg(orderId).arg(needed));
    if (!orders.active(order)) reject(gatewayText(QT_TRANSLATE_NOOP("Gateway", "заявка %1 не активна")).arg(orderId));

    RowImage row(t);
    row.copyKey(order);
    row.setText("status", QStringLiteral("W"));
    row.setInt("balance", 0);
    row.setMoment("moment", Clock::nowMSecs());
    Batch batch;
    batch.origin = QStringLiteral("gateway:cancel %1").arg(orderId);
    batch.table = orders.table;
    batch.ops.push_back(row.op(BatchOp::Update));
    apply(db, batch);

    Outcome o;
    o.accepted = true;
    o.text = gatewayText(QT_TRANSLATE_NOOP("Gateway", "Заявка %1 снята")).arg(orderId);
    o.orderIds << orderId;
    return o;
}

SimulatedGateway::Outcome SimulatedGateway::cancelBySecurity(RawTransaction const& tx)
{
    Database* db = m_core->database();
    QString const account = param(tx, "Account"), code = param(tx, "Security");
    QChar const buySell = side(param(tx, "BuySell"));
    QSharedPointer<Table> securities = tableOf(db, "securities");
    Record security = findSecurity(*securities, tx.stockId, tx.boardId, code);
    int const board = int(integer(*securities, security, column(*securities, "board_id")));
    qint64 const secId = integer(*securities, security, column(*securities, "sec_id"));
    checkAccount(db, account);
    checkFirm(account);

    Orders orders(db);
    Table const& t = *orders.table;
    Batch batch;
    batch.origin = QStringLiteral("gateway:cancel %1 %2 %3").arg(echo(code), echo(account), buySell);
    batch.table = orders.table;
    Outcome o;
    qint64 const now = Clock::nowMSecs();
    forEachRow(t, [&](Record const& r) {
        if (integer(t, r, orders.stock) == tx.stockId && integer(t, r, orders.board) == board &&
            integer(t, r, orders.secId) == secId && text(t, r, orders.account) == account &&
            text(t, r, orders.buysell) == QString(buySell) && orders.active(r)) {
            RowImage row(t);
            row.copyKey(r);
            row.setText("status", QStringLiteral("W"));
            row.setInt("balance", 0);
            row.setMoment("moment", now);
            batch.ops.push_back(row.op(BatchOp::Update));
            o.orderIds << integer(t, r, orders.orderId);
        }
        return true;
    });
    // One batch for all of them: the terminal sees them go together.
    if (!batch.ops.empty()) apply(db, batch);
    o.accepted = true;
    o.text = gatewayText(QT_TRANSLATE_NOOP("Gateway", "Снято заявок: %1")).arg(o.orderIds.size());
    return o;
}

void SimulatedGateway::apply(Database* db, Batch const& batch)
{
    try {
        db->apply(batch);
    } catch (HookFailure const& e) {
        // An index of the terminal failed on the batch; the exchange's
        // change is in the table all the same.
        qWarning("gateway: %s", qPrintable(e.message()));
    }
    emit batchApplied(batch.origin, batch.table->name(), int(batch.ops.size()));
}

void SimulatedGateway::finish(RawTransaction const& tx, Outcome const& outcome)
{
    QString const text = outcome.accepted
                              ? outcome.text
                              : gatewayText(QT_TRANSLATE_NOOP("Gateway", "Транзакция отвергнута: %1")).arg(outcome.reason);
    int const code = outcome.accepted ? Accepted : Rejected;
    tx.answer.setAnswer(code, text);
    UserNotification(outcome.accepted ? AcceptedKind : RejectedKind, UserNotification::escapedAnswer(text)).sendTo(m_core);
    emit answered(tx, code, text, outcome.orderIds);
}
