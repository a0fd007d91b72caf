#pragma once
#include "codes.h"
#include "datetime.h"
#include "frame.h"

#include <database/record.h>

#include <QChar>
#include <QList>
#include <memory>
#include <QObject>
#include <QString>

class MasterIndex_Column;

// Market 5 (request-for-stream trading) is an alias of market 1. Only the
// lookups that say so apply it; the others keep the number as given.
inline int marketAlias(int stock) { return stock == 5 ? 1 : stock; }

// Markets ("stocks": "stock_id", "stock_code", "name"): numbers to codes and
// names and back. Codes are found through an owned index over "stock_code".
class DIRECTORY_EXPORT StockDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(StockDirectory)
public:
    explicit StockDirectory(QObject* parent);

    // 0 when the code is unknown.
    int idByCode(QString const& code) const;
    QString codeById(int id) const;
    QString codeByKey(KeyValue const& key) const;
    // "ID_<id>" when the market is unknown.
    QString nameById(int id) const;
    // "<площадка не найдена>" when the market is unknown, "ID_<id>" without a table.
    QString nameByIdAs(int id) const;
    QString nameByCode(QString const& code) const;
    // "ID_<key>" when unknown, the key's text alone without a table.
    QString nameByKey(KeyValue const& key) const;
    // Master-index order.
    QList<int> ids() const;
    QList<KeyValue> keys() const;

    void dependentEndUpdate(Table* table) override;
Q_SIGNALS:
    void dataChanged();

private:
    Record recordById(int id) const;
    Record recordByCode(QString const& code) const;
    Record recordByKey(KeyValue const& key) const;

    int m_stockId = -1;
    int m_stockCode = -1;
    int m_name = -1;
    MasterIndex_Column* m_codeIndex = nullptr;
    DirectoryKey<int> m_byId;
    DirectoryKey<Field> m_byKey;
    DirectoryKey<QString> m_byCode;
};

// Decimals of every (market, security) pair of "securities", kept apart so
// that price views can re-format exactly the pairs whose decimals changed.
// Registered as an index: the database hands it every row change.
//
// Threading: the map changes on the updating thread; lookups are meant for
// that thread too (the GUI thread by default) and take no lock.
class DIRECTORY_EXPORT StockSecDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(StockSecDirectory)
public:
    explicit StockSecDirectory(QObject* parent);
    ~StockSecDirectory() override;

    // 0 when the pair is unknown.
    int decimalsById(int stock, long long secId) const;

    void clear() override;
    // Refills from the whole table without per-pair signals, then announces
    // "everything" as the pair (0, 0).
    void build() override;
    void add(Record const& record) override;
    void remove(Record const& record, int position) override;
    void update(Record const& record, int firstColumn, int lastColumn, int position) override;
    bool filter(Record const& record) const override;
Q_SIGNALS:
    void dataChanged(int stock, long long secId);

private:
    struct Decimals;
    void store(int stock, long long secId, int decimals);

    int m_stockId = -1;
    int m_secId = -1;
    int m_decimals = -1;
    // Pair to decimals: a flat hash, one line per lookup, since a batch that
    // changes "decimals" looks up every row's pair.
    std::unique_ptr<Decimals> m_decimalsByKey;
};

// A board named by its market and its number.
struct DIRECTORY_EXPORT StockBoard
{
    int stock = 0;
    int board = 0;
    bool operator==(StockBoard const& o) const { return stock == o.stock && board == o.board; }
    bool operator!=(StockBoard const& o) const { return !(*this == o); }
};
Q_DECLARE_TYPEINFO(StockBoard, Q_PRIMITIVE_TYPE);

// Trading boards of each market ("boards"). Boards are looked up by
// (stock_id, board_id) in the master index and by (stock_id, board_code) in
// an owned code index.
//
// The flag and anonymity tests are permissive on purpose: an unknown board,
// or one whose column is null, passes them. Flag tests read market 5 as
// market 1 (the two share their boards); anonymity tests do not, and callers
// rely on that difference.
class DIRECTORY_EXPORT BoardDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(BoardDirectory)
public:
    explicit BoardDirectory(QObject* parent);

    // Market 5 is read as market 1; null when unknown.
    Record recordById(int stock, int board) const;
    QString codeById(int stock, int board) const;
    QString codeIssById(int stock, int board) const;
    // "<режим не найден>" when unknown.
    QString nameById(int stock, int board) const;

    bool checkFlagsById(int stock, int board, long long mask) const;
    bool isTradeById(int stock, int board) const { return checkFlagsById(stock, board, 0x1); }
    bool isDomById(int stock, int board) const { return checkFlagsById(stock, board, 0x2); }
    bool isChartById(int stock, int board) const { return checkFlagsById(stock, board, 0x4); }
    bool isIndexById(int stock, int board) const { return checkFlagsById(stock, board, 0x8); }
    bool isPositionById(int stock, int board) const { return checkFlagsById(stock, board, 0x10); }
    bool isFavoriteById(int stock, int board) const { return checkFlagsById(stock, board, 0x20); }
    bool isProxyById(int stock, int board) const { return checkFlagsById(stock, board, 0x40); }
    bool isDKHRequestById(int stock, int board) const { return checkFlagsById(stock, board, 0x80); }
    bool isRFSBoardById(int stock, int board) const { return checkFlagsById(stock, board, 0x100); }

    bool checkAnonymById(int stock, int board, QChar kind) const;
    bool isAnonymById(int stock, int board) const { return checkAnonymById(stock, board, Anonyms::Anonym); }
    bool isAddressById(int stock, int board) const { return checkAnonymById(stock, board, Anonyms::Address); }

    // 0 when unknown.
    int idByCode(int stock, QString const& boardCode) const;
    int idByCode(QString const& stockCode, QString const& boardCode) const;
    QString nameByCode(QString const& stockCode, QString const& boardCode) const;
    // A blank when unknown.
    QChar sectypeByCode(QString const& stockCode, QString const& boardCode) const;

    // Boards of one market, in master-index order.
    QList<int> ids(int stock) const;
    // Boards of one market, or of every market for 0, in master-index order.
    QList<StockBoard> all(int stock) const;

    void dependentEndUpdate(Table* table) override;
Q_SIGNALS:
    void dataChanged();

private:
    Record findById(int stock, int board) const;
    Record findByCode(int stock, QString const& boardCode) const;
    Record findByCodes(QString const& stockCode, QString const& boardCode) const;
    QString textById(int stock, int board, int column) const;

    int m_stockId = -1;
    int m_boardId = -1;
    int m_boardCode = -1;
    int m_name = -1;
    int m_anonym = -1;
    int m_sectype = -1;
    int m_flags = -1;
    int m_boardCodeIss = -1;
    MasterIndex_Column* m_codeIndex = nullptr;
    DirectoryKey<int, int> m_byId;
    DirectoryKey<int, QString> m_byCode;
};
