#include "streams.h"

#include "masterindex.h"
#include "securities.h"

#include <core/icore.h>
#include <core/usernotification.h>
#include <database/exception.h>

#include <QCoreApplication>
#include <mutex>

namespace {
constexpr int kStreamStock = 5;
constexpr QChar kActive = QLatin1Char('A');

// Calls add() for every row of the table's master index that `accept`
// takes, under the table's lock.
template <class Accept, class Add>
void scanRows(QSharedPointer<Table> const& t, Accept accept, Add add)
{
    if (!t) return;
    std::lock_guard<Table const> lock(*t);
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
        if (accept(*it)) add(*it);
}
} // namespace

// ---- RFSStreamsDirectory -----------------------------------------------------

RFSStreamsDirectory::RFSStreamsDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_streamId, "stream_id"}, {m_amount, "amount"}, {m_stockId, "stock_id"}, {m_boardId, "board_id"},
                    {m_secId, "sec_id"}, {m_signs, "signs"}, {m_dir, "dir"}, {m_speedBumpType, "speed_bump_type"},
                    {m_durationType, "duration_type"}});
    // The streams already open are shown, and announced, at once.
    build();
}

unsigned long long RFSStreamsDirectory::streamIdOf(Record const& record) const
{
    return static_cast<unsigned long long>(record.data(m_streamId).toInteger64());
}

Record RFSStreamsDirectory::recordByStreamId(unsigned long long streamId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QSharedPointer<Table> t = table();
    if (!t) return Record();
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
        if (streamIdOf(*it) == streamId) return *it;
    return Record();
}

long long RFSStreamsDirectory::securityByStreamId(unsigned long long streamId) const
{
    Record row = recordByStreamId(streamId);
    return row.isEmpty() ? 0 : row.data(m_secId).toInteger64();
}

int RFSStreamsDirectory::amountByStreamId(unsigned long long streamId) const
{
    Record row = recordByStreamId(streamId);
    return row.isEmpty() ? 0 : row.data(m_amount).toInteger();
}

int RFSStreamsDirectory::dirByStreamId(unsigned long long streamId) const
{
    Record row = recordByStreamId(streamId);
    return row.isEmpty() ? 0 : row.data(m_dir).toInteger();
}

long long RFSStreamsDirectory::signsByStreamId(unsigned long long streamId) const
{
    Record row = recordByStreamId(streamId);
    return row.isEmpty() ? 0 : row.data(m_signs).toInteger64();
}

QPair<int, int> RFSStreamsDirectory::minMax(int speedBumpType, int durationType)
{
    int bump = 0;
    if (speedBumpType >= 1 && speedBumpType <= 3) bump = 1;
    else if (speedBumpType == 4) bump = 3;
    int seconds = 36000;
    if (durationType >= 1 && durationType <= 4) seconds = 30 * durationType;
    return qMakePair(bump, seconds);
}

QPair<int, int> RFSStreamsDirectory::minMaxByStreamId(unsigned long long streamId) const
{
    Record row = recordByStreamId(streamId);
    if (row.isEmpty()) return qMakePair(0, 0);
    return minMax(row.data(m_speedBumpType).toInteger(), row.data(m_durationType).toInteger());
}

QMap<unsigned long long, QString> const& RFSStreamsDirectory::getStreamsMap() const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_streams;
}

QStringList RFSStreamsDirectory::getStreamsList() const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_streams.values();   // a QMap's values follow its ascending keys
}

int RFSStreamsDirectory::getLastDealState(unsigned long long streamId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_lastDealStates.value(streamId, -1);
}

void RFSStreamsDirectory::updateLastDealState(unsigned long long streamId, int state)
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    m_lastDealStates.insert(streamId, state);
    Q_EMIT lastDealStateDataChanged();
}

QUrl RFSStreamsDirectory::addOrderLink(int stockId, int boardId, long long secId, unsigned long long streamId)
{
    return UserNotification::linkTo(QStringLiteral("stream"), QStringLiteral("/addorder"),
                                    {{QStringLiteral("stock_id"), QString::number(stockId)},
                                     {QStringLiteral("board_id"), QString::number(boardId)},
                                     {QStringLiteral("sec_id"), QString::number(secId)},
                                     {QStringLiteral("stream_id"), QString::number(streamId)}});
}

QString RFSStreamsDirectory::displayText(Record const& record) const
{
    int stock = record.data(m_stockId).toInteger();
    int board = record.data(m_boardId).toInteger();
    long long sec = record.data(m_secId).toInteger64();
    SecurityDirectory* securities = directoryOrNull<SecurityDirectory>();
    QString name = securities ? securities->nameById(stock, board, sec)
                              : QCoreApplication::translate("SecurityDirectory", "<инструмент не найден>");
    // One pass, so that a "%" in the name is never taken for a marker.
    return QStringLiteral("%1 (%2 * %3)")
        .arg(QString::number(streamIdOf(record)), name, QString::number(record.data(m_amount).toInteger()));
}

bool RFSStreamsDirectory::shouldNotify(unsigned long long streamId)
{
    // Without liquidity-provider users the user is not set up for this market.
    LPUsersDirectory* lpUsers = directoryOrNull<LPUsersDirectory>();
    QSharedPointer<Table> lpTable = lpUsers ? lpUsers->table() : QSharedPointer<Table>();
    if (!lpTable || lpTable->rowCount() == 0) return false;
    RFSOrdersDirectory* orders = directoryOrNull<RFSOrdersDirectory>();
    return !(orders && orders->hasOrderByStreamId(streamId));
}

void RFSStreamsDirectory::clear()
{
    m_streams.clear();
    m_lastDealStates.clear();
}

void RFSStreamsDirectory::build()
{
    QSharedPointer<Table> t = table();
    if (!t || t->masterIndex()->count() == 0) return;
    // The opening notifications read the securities' names, the user's
    // orders and the providers' table: a first i() on a worker holds those
    // tables too while it builds.
    if (SecurityDirectory* securities = directoryOrNull<SecurityDirectory>()) holdForConstruction(securities->table());
    if (RFSOrdersDirectory* orders = directoryOrNull<RFSOrdersDirectory>()) holdForConstruction(orders->table());
    if (LPUsersDirectory* lpUsers = directoryOrNull<LPUsersDirectory>()) holdForConstruction(lpUsers->table());
    scanRows(t, [](Record const&) { return true; }, [this](Record const& r) { add(r); });
}

void RFSStreamsDirectory::add(Record const& record)
{
    unsigned long long streamId = streamIdOf(record);
    QString shown = displayText(record);
    m_streams.insert(streamId, shown);
    if (!shouldNotify(streamId)) return;

    QUrl link = addOrderLink(record.data(m_stockId).toInteger(), record.data(m_boardId).toInteger(),
                             record.data(m_secId).toInteger64(), streamId);
    QString text = tr("Открыт поток ликвидности %1").arg(UserNotification::escaped(shown));
    UserNotification(1, text, link.toString()).sendTo(ICore::instance());
}

void RFSStreamsDirectory::remove(Record const& record, int)
{
    unsigned long long streamId = streamIdOf(record);
    // A plain message: no kind, no link.
    if (shouldNotify(streamId))
        UserNotification(0, tr("Закрыт поток ликвидности %1").arg(UserNotification::escaped(m_streams.value(streamId))))
            .sendTo(ICore::instance());
    m_streams.remove(streamId);
    m_lastDealStates.remove(streamId);
}

void RFSStreamsDirectory::endUpdate() { Q_EMIT dataChanged(); }

// ---- RFSQuoteDirectory -------------------------------------------------------

RFSQuoteDirectory::RFSQuoteDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_streamId, "stream_id"}, {m_quoteId, "quote_id"}, {m_dir, "dir"}, {m_price, "price"},
                    {m_moment, "moment"}});
    if (QSharedPointer<Table> t = table()) {
        m_index = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_streamId, m_dir}));
        t->setIndexName(QStringLiteral("stream_id,dir"), m_index);
        m_index->build();
        m_byStreamAndDir = DirectoryKey<long long, int>(t, m_index, {m_streamId, m_dir});
    }
    build();
}

RFSQuoteDirectory::QuoteKey RFSQuoteDirectory::keyOf(Record const& record) const
{
    return qMakePair(record.data(m_streamId).toInteger64(), record.data(m_dir).toInteger());
}

RFSQuoteDirectory::Quote RFSQuoteDirectory::quoteOf(Record const& record) const
{
    Quote q;
    q.valid = true;
    q.quoteId = record.data(m_quoteId).toInteger64();
    q.price = record.data(m_price).toDecimal();
    q.moment = record.data(m_moment).toDatetime().toMSecs();
    return q;
}

Record RFSQuoteDirectory::recordByStreamIdAndDir(long long streamId, int dir) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_byStreamAndDir.find(streamId, dir);
}

RFSQuoteDirectory::Quote RFSQuoteDirectory::previousQuote(long long streamId, int dir) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    auto it = m_memory.constFind(qMakePair(streamId, dir));
    return it == m_memory.constEnd() ? Quote() : it->previous;
}

void RFSQuoteDirectory::clear() { m_memory.clear(); }

void RFSQuoteDirectory::build()
{
    m_memory.clear();
    scanRows(table(), [](Record const&) { return true; }, [this](Record const& r) { add(r); });
    Q_EMIT dataChanged();
}

void RFSQuoteDirectory::add(Record const& record) { m_memory.insert(keyOf(record), Memory{quoteOf(record), Quote()}); }

void RFSQuoteDirectory::remove(Record const& record, int) { m_memory.remove(keyOf(record)); }

void RFSQuoteDirectory::update(Record const& record, int, int, int)
{
    Memory& m = m_memory[keyOf(record)];
    Quote now = quoteOf(record);
    if (now == m.current) return;
    m.previous = m.current;
    m.current = now;
}

void RFSQuoteDirectory::endUpdate() { Q_EMIT dataChanged(); }

// ---- RFSOrdersDirectory ------------------------------------------------------

RFSOrdersDirectory::RFSOrdersDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_stockId, "stock_id"}, {m_boardId, "board_id"}, {m_sessId, "sess_id"}, {m_orderId, "order_id"},
                    {m_secId, "sec_id"}, {m_status, "status"}, {m_streamId, "stream_id"}, {m_account, "account"},
                    {m_price, "price"}, {m_buysell, "buysell"}});
    build();
}

bool RFSOrdersDirectory::exists(long long orderId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_orders.contains(orderId);
}

bool RFSOrdersDirectory::isEmpty() const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_orders.isEmpty();
}

RFSOrdersDirectory::Prices const* RFSOrdersDirectory::getPricesByKey(Key const& key) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    auto it = m_prices.constFind(key);
    return it == m_prices.constEnd() ? nullptr : &it.value();
}

bool RFSOrdersDirectory::hasOrderByStreamId(unsigned long long streamId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    for (Data const& d : m_orders)
        if (d.streamId == streamId) return true;
    return false;
}

RFSOrdersDirectory::Key RFSOrdersDirectory::keyOf(Record const& record) const
{
    return qMakePair(static_cast<unsigned long long>(record.data(m_streamId).toInteger64()),
                     record.data(m_account).toString());
}

bool RFSOrdersDirectory::isBuy(Record const& record) const
{
    return record.data(m_buysell).toString().startsWith(QLatin1Char('B'));
}

void RFSOrdersDirectory::clearSide(Record const& record)
{
    auto it = m_prices.find(keyOf(record));
    if (it == m_prices.end()) return;
    bool& flag = isBuy(record) ? it->buySet : it->sellSet;
    bool other = isBuy(record) ? it->sellSet : it->buySet;
    flag = false;
    if (!other) m_prices.erase(it);
}

void RFSOrdersDirectory::clear()
{
    m_orders.clear();
    m_prices.clear();
}

void RFSOrdersDirectory::build()
{
    scanRows(table(), [this](Record const& r) { return filter(r); }, [this](Record const& r) { add(r); });
}

bool RFSOrdersDirectory::filter(Record const& record) const { return record.data(m_stockId).toInteger() == kStreamStock; }

void RFSOrdersDirectory::add(Record const& record)
{
    QChar status = record.data(m_status).toChar();
    if (status != kActive) return;
    Data d;
    d.orderId = record.data(m_orderId).toInteger64();
    d.secId = record.data(m_secId).toInteger64();
    d.streamId = static_cast<unsigned long long>(record.data(m_streamId).toInteger64());
    d.status = status;
    d.stockId = record.data(m_stockId).toInteger();
    d.boardId = record.data(m_boardId).toInteger();
    d.sessId = record.data(m_sessId).toInteger();
    m_orders.insert(d.orderId, d);

    decimal price = record.data(m_price).toDecimal();
    Prices& p = m_prices[keyOf(record)];   // a new entry starts at 0, no side set
    if (isBuy(record)) {
        p.buy = price;
        p.buySet = true;
    } else {
        p.sell = price;
        p.sellSet = true;
    }
}

void RFSOrdersDirectory::remove(Record const& record, int)
{
    if (!filter(record)) return;
    m_orders.remove(record.data(m_orderId).toInteger64());
    clearSide(record);
}

void RFSOrdersDirectory::update(Record const& record, int, int, int)
{
    if (!filter(record)) return;
    bool active = record.data(m_status).toChar() == kActive;
    auto it = m_orders.find(record.data(m_orderId).toInteger64());
    if (it != m_orders.end()) {
        if (active) it->status = kActive;
        else m_orders.erase(it);
    }
    if (!active) clearSide(record);
}

void RFSOrdersDirectory::endUpdate() { Q_EMIT dataChanged(); }

// ---- LPUsersDirectory --------------------------------------------------------

LPUsersDirectory::LPUsersDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_lpCode, "lp_code"}, {m_clientCode, "client_code"}});
    if (QSharedPointer<Table> t = table()) {
        m_clientCodeIndex = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_clientCode}));
        m_clientCodeIndex->build();
        m_lpCodeIndex = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_lpCode}));
        m_lpCodeIndex->build();
        m_byClientCode = DirectoryKey<QString>(t, m_clientCodeIndex, {m_clientCode});
        m_byLpCode = DirectoryKey<QString>(t, m_lpCodeIndex, {m_lpCode});
    }
}

Record LPUsersDirectory::recordByClientCode(QString const& clientCode) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    return m_byClientCode.find(clientCode);
}

QString LPUsersDirectory::lpCodeByClientCode(QString const& clientCode) const
{
    Record row = recordByClientCode(clientCode);
    return row.isEmpty() ? QString() : row.data(m_lpCode).toString();
}

QString LPUsersDirectory::clientCodeByLpCode(QString const& lpCode) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = m_byLpCode.find(lpCode);
    return row.isEmpty() ? QString() : row.data(m_clientCode).toString();
}

QStringList LPUsersDirectory::clientCodesList() const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QStringList codes;
    QSharedPointer<Table> t = table();
    if (!t) return codes;
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
        codes << it->data(m_clientCode).toString();
    return codes;
}

void LPUsersDirectory::endUpdate() { Q_EMIT dataChanged(); }

// ---- RFSMinAmountDirectory ---------------------------------------------------

RFSMinAmountDirectory::RFSMinAmountDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_code, "base_contract_code"}, {m_minAmount, "min_amount"}});
    if (QSharedPointer<Table> t = table()) {
        m_index = ownIndex(new MasterIndex_Column(t.data(), QList<int>{m_code}));
        m_index->build();
        m_byCode = DirectoryKey<QString>(t, m_index, {m_code});
    }
}

Record RFSMinAmountDirectory::recordByBaseContractCode(QString const& code) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record row = m_byCode.find(code);
    return row.isEmpty() ? m_byCode.find(QStringLiteral("*")) : row;
}

int RFSMinAmountDirectory::minAmountByBaseContractCode(QString const& code) const
{
    Record row = recordByBaseContractCode(code);
    return row.isEmpty() ? 0 : row.data(m_minAmount).toInteger();
}

void RFSMinAmountDirectory::endUpdate() { Q_EMIT dataChanged(); }

// The one instance of each directory class here.
DIRECTORY_SINGLETON_DEFINE(RFSStreamsDirectory)
DIRECTORY_SINGLETON_DEFINE(RFSQuoteDirectory)
DIRECTORY_SINGLETON_DEFINE(RFSOrdersDirectory)
DIRECTORY_SINGLETON_DEFINE(LPUsersDirectory)
DIRECTORY_SINGLETON_DEFINE(RFSMinAmountDirectory)
