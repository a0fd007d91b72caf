#pragma once
#include "frame.h"

#include <database/decimal.h>
#include <database/record.h>

#include <QHash>
#include <QMap>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QUrl>

class MasterIndex_Column;

// The request-for-stream market (stock 5): liquidity streams, their quotes,
// the user's orders on them, liquidity-provider users and minimal amounts.
//
// Threading (docs/threading.md): all five are registered as indexes; their
// hooks run on the updating thread. Every lookup reads live rows or a map of
// the directory's own: updating thread, or the table's lock held.
//
// Stream ids are unsigned: a negative 64-bit value in "stream_id" is taken
// as its unsigned counterpart everywhere (maps, texts, links).

// Open streams ("k3.rfs.streams"): display texts, the last deal state per
// stream, and the notifications of a stream opened or closed.
//
// The hooks reach the security, liquidity-provider user and request-for-
// stream order directories (also from the constructor, whose first build
// raises the opens of the streams already there); none of those reaches
// back, so their tables are always locked after this one.
//
// An update of a stream row goes through the frame's default, remove then
// add: the user is told the stream closed and opened again, and its last
// deal state is dropped. Kept as the terminal has always done it.
class DIRECTORY_EXPORT RFSStreamsDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(RFSStreamsDirectory)
public:
    explicit RFSStreamsDirectory(QObject* parent);

    // Linear scan of the master index; an empty record when none.
    Record recordByStreamId(unsigned long long streamId) const;
    long long securityByStreamId(unsigned long long streamId) const;   // 0 when none
    int amountByStreamId(unsigned long long streamId) const;
    int dirByStreamId(unsigned long long streamId) const;
    long long signsByStreamId(unsigned long long streamId) const;
    // (speed bump, duration in seconds); (0, 0) for an unknown stream. The
    // step from 1 to 3 at speed bump 4 and the 36000 s fallback are meant.
    QPair<int, int> minMaxByStreamId(unsigned long long streamId) const;
    static QPair<int, int> minMax(int speedBumpType, int durationType);

    // "<stream id> (<security name> * <amount>)" by stream id.
    QMap<unsigned long long, QString> const& getStreamsMap() const;
    QStringList getStreamsList() const;   // ascending stream id

    int getLastDealState(unsigned long long streamId) const;   // -1 when none
    void updateLastDealState(unsigned long long streamId, int state);

    // The link of the open notification: vtrm+stream://stream/addorder with
    // stock_id, board_id, sec_id and stream_id.
    static QUrl addOrderLink(int stockId, int boardId, long long secId, unsigned long long streamId);

    void clear() override;
    void build() override;
    void add(Record const& record) override;
    void remove(Record const& record, int position) override;
    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();
    void lastDealStateDataChanged();

private:
    unsigned long long streamIdOf(Record const& record) const;
    QString displayText(Record const& record) const;
    // Liquidity-provider users exist and the user has no order on the stream.
    static bool shouldNotify(unsigned long long streamId);

    int m_streamId = -1, m_amount = -1, m_stockId = -1, m_boardId = -1, m_secId = -1, m_signs = -1, m_dir = -1,
        m_speedBumpType = -1, m_durationType = -1;
    QMap<unsigned long long, QString> m_streams;
    QMap<unsigned long long, int> m_lastDealStates;
};

// Quotes per stream and direction ("k3.rfs.quotes"), with a memory of the
// quote each one replaced.
//
// Quote memory: per (stream id, direction) the quote now in the table and
// the one before its latest change, so that a view can show which way a
// quote moved. A change is an update that alters "quote_id", "price" or
// "moment"; an update repeating the same values keeps the previous quote.
// A quote that arrives (insert, build) has no previous one; one that leaves
// (delete, clear) is forgotten with its previous one.
class DIRECTORY_EXPORT RFSQuoteDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(RFSQuoteDirectory)
public:
    struct Quote
    {
        bool valid = false;   // false: there is no such quote
        long long quoteId = 0;
        decimal price;
        qint64 moment = 0;   // datetime milliseconds, 0 when none
        bool operator==(Quote const& o) const
        {
            return valid == o.valid && quoteId == o.quoteId && price.raw() == o.price.raw() && moment == o.moment;
        }
        bool operator!=(Quote const& o) const { return !(*this == o); }
    };

    explicit RFSQuoteDirectory(QObject* parent);

    // Through the "stream_id,dir" index; empty when absent or the table is gone.
    Record recordByStreamIdAndDir(long long streamId, int dir) const;
    // The quote before the latest change; invalid when there was none.
    Quote previousQuote(long long streamId, int dir) const;

    void clear() override;
    void build() override;
    void add(Record const& record) override;
    void remove(Record const& record, int position) override;
    void update(Record const& record, int firstColumn, int lastColumn, int position) override;
    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

private:
    using QuoteKey = QPair<long long, int>;
    struct Memory
    {
        Quote current;
        Quote previous;
    };
    QuoteKey keyOf(Record const& record) const;
    Quote quoteOf(Record const& record) const;

    int m_streamId = -1, m_quoteId = -1, m_dir = -1, m_price = -1, m_moment = -1;
    MasterIndex_Column* m_index = nullptr;
    DirectoryKey<long long, int> m_byStreamAndDir;
    QHash<QuoteKey, Memory> m_memory;
};

// The user's orders on streams ("orders" of stock 5), by order id and by
// (stream id, account).
//
// Kept as the terminal has always kept them: only an order active ('A')
// when it arrives is entered; an update never enters an order and never
// refreshes a price; one price slot per side and key, the last order added
// winning and the removal of any of them clearing the side.
class DIRECTORY_EXPORT RFSOrdersDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(RFSOrdersDirectory)
public:
    struct Data
    {
        long long orderId = 0;
        long long secId = 0;
        unsigned long long streamId = 0;
        QChar status;
        int stockId = 0;
        int boardId = 0;
        int sessId = 0;
    };
    // (stream id, account), ordered as a tuple.
    using Key = QPair<unsigned long long, QString>;
    struct Prices
    {
        decimal buy;
        decimal sell;
        bool buySet = false;
        bool sellSet = false;
    };

    explicit RFSOrdersDirectory(QObject* parent);

    bool exists(long long orderId) const;
    bool isEmpty() const;
    // Null when the key is absent; valid until the next change of the table.
    Prices const* getPricesByKey(Key const& key) const;
    bool hasOrderByStreamId(unsigned long long streamId) const;

    void clear() override;
    void build() override;
    void add(Record const& record) override;
    void remove(Record const& record, int position) override;
    bool filter(Record const& record) const override;   // stock 5 only
    void update(Record const& record, int firstColumn, int lastColumn, int position) override;
    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

private:
    Key keyOf(Record const& record) const;
    bool isBuy(Record const& record) const;
    // Clears the order's side of its key, dropping the entry once no side is set.
    void clearSide(Record const& record);

    int m_stockId = -1, m_boardId = -1, m_sessId = -1, m_orderId = -1, m_secId = -1, m_status = -1, m_streamId = -1,
        m_account = -1, m_price = -1, m_buysell = -1;
    QMap<long long, Data> m_orders;
    QMap<Key, Prices> m_prices;
};

// Liquidity-provider codes and their users' client codes ("k3.rfs.lp_users").
class DIRECTORY_EXPORT LPUsersDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(LPUsersDirectory)
public:
    explicit LPUsersDirectory(QObject* parent);

    Record recordByClientCode(QString const& clientCode) const;
    QString lpCodeByClientCode(QString const& clientCode) const;   // empty when none
    QString clientCodeByLpCode(QString const& lpCode) const;       // empty when none
    QStringList clientCodesList() const;                           // master-index order

    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

private:
    int m_lpCode = -1, m_clientCode = -1;
    MasterIndex_Column* m_clientCodeIndex = nullptr;
    MasterIndex_Column* m_lpCodeIndex = nullptr;
    DirectoryKey<QString> m_byClientCode;
    DirectoryKey<QString> m_byLpCode;
};

// Minimal amount per base contract ("k3.rfs.base_contract_min_amount"); the
// row "*" holds for every base contract without a row of its own.
class DIRECTORY_EXPORT RFSMinAmountDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(RFSMinAmountDirectory)
public:
    explicit RFSMinAmountDirectory(QObject* parent);

    Record recordByBaseContractCode(QString const& code) const;
    int minAmountByBaseContractCode(QString const& code) const;   // 0 when no row applies

    void endUpdate() override;
Q_SIGNALS:
    void dataChanged();

private:
    int m_code = -1, m_minAmount = -1;
    MasterIndex_Column* m_index = nullptr;
    DirectoryKey<QString> m_byCode;
};
