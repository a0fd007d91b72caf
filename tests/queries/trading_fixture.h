#pragma once
// A small market with orders, free-form transaction templates, a recording
// transport and settings in a temporary file.
#include "core_fixture.h"

#include "confirmationdialog.h"
#include "modalanswerer.h"
#include "enumerations.h"
#include "markets.h"
#include "securities.h"

#include <core/defaultcore.h>
#include <core/transactions.h>
#include <database/exception.h>
#include <database/settings.h>

#include <QTemporaryDir>
#include <functional>

// Readable parameter maps in assertion messages.
inline void PrintTo(QVariant const& v, std::ostream* os) { *os << v.typeName() << '(' << v.toString().toStdString() << ')'; }

// The text a call is refused with, or "<not refused>" when it goes through.
inline QString refusal(std::function<void()> const& call)
{
    try {
        call();
    } catch (QString const& message) {
        return message;
    }
    return QStringLiteral("<not refused>");
}

inline TransactionMeta freeFormTemplate(int code)
{
    TransactionMeta meta;
    meta.messageCode = code;
    meta.name = QStringLiteral("template %1").arg(code);
    return meta;
}

// Confirmation answers kept in a file of the test's own while it lives.
struct TemporarySettings
{
    TemporarySettings() { Settings::setStorageFile(dir.filePath(QStringLiteral("settings.ini"))); }
    ~TemporarySettings() { Settings::setStorageFile(previous); }
    QString const previous = Settings::storageFile();
    QTemporaryDir dir;
};

// Installs a core for one scope.
struct InstalledCore
{
    explicit InstalledCore(ICore* core) { ICore::setInstance(core); }
    ~InstalledCore() { ICore::setInstance(nullptr); }
};

class TradingTest : public CoreTablesTest
{
protected:
    void SetUp() override
    {
        try {
            setUpMarket();
        } catch (Exception const& e) {
            FAIL() << "market set-up: " << e.message().toStdString();
        } catch (QString const& message) {
            FAIL() << "market set-up: " << message.toStdString();
        }
    }

    void setUpMarket()
    {
        createSchemaTables({"securities", "boards", "stocks", "buysells", "orders"});
        // Order tables beside the real one: "signs" and "dkh_request" of other
        // widths, and one whose "dkh_request" no integer can be read from.
        for (auto [name, signsType, dkhType] : {std::tuple{"orders_narrow", 1, 2}, std::tuple{"orders_wrong", 2, 3}})
            createTables(QStringLiteral(R"({"tables":[{"name":"%1","key":["order_id"],"columns":[
                {"name":"stock_id","type":1},{"name":"board_id","type":1},{"name":"order_id","type":2,"nullable":false},
                {"name":"sec_id","type":2},{"name":"stream_id","type":2},{"name":"account","type":6,"length":14},
                {"name":"price","type":4,"scale":5},{"name":"buysell","type":6,"length":2},
                {"name":"balance","type":1},{"name":"signs","type":%2},{"name":"dkh_request","type":%3}]}]})")
                             .arg(name).arg(signsType).arg(dkhType).toUtf8());
        apply(R"({"table":"buysells","ops":[{"insert":{"buysell":"B","name":"Покупка"}},{"insert":{"buysell":"S","name":"Продажа"}}]})");
        apply(R"({"table":"boards","ops":[
            {"insert":{"stock_id":4,"board_id":1,"board_code":"MAIN","flags":1,"anonym":"D"}},
            {"insert":{"stock_id":4,"board_id":10,"board_code":"SWAP","flags":1,"anonym":"D"}},
            {"insert":{"stock_id":4,"board_id":11,"board_code":"SWAP2","flags":1,"anonym":"D"}},
            {"insert":{"stock_id":4,"board_id":12,"board_code":"OTHER","flags":1,"anonym":"D"}},
            {"insert":{"stock_id":1,"board_id":2,"board_code":"RFS","flags":1,"anonym":"D"}}]})");
        // The request-for-stream market 5 keeps its securities under market 1.
        apply(R"({"table":"securities","ops":[
            {"insert":{"stock_id":4,"board_id":1,"sec_id":100,"isin_id":501,"sec_code":"ALFA-12","sec_name":"Alfa fut","decimals":2}},
            {"insert":{"stock_id":4,"board_id":10,"sec_id":110,"isin_id":502,"sec_code":"SW-A","sec_name":"Swap A","decimals":4}},
            {"insert":{"stock_id":4,"board_id":11,"sec_id":111,"isin_id":503,"sec_code":"SW-B","sec_name":"Swap B","decimals":4}},
            {"insert":{"stock_id":4,"board_id":12,"sec_id":112,"isin_id":504,"sec_code":"OT-C","sec_name":"Other C","decimals":1}},
            {"insert":{"stock_id":1,"board_id":2,"sec_id":200,"isin_id":505,"sec_code":"RFS-X","sec_name":"Stream X","decimals":0}}]})");
        resetAfter<SecurityDirectory>();
        resetAfter<BoardDirectory>();
        resetAfter<StockDirectory>();
        resetAfter<BuySellDirectory>();
        for (int code : {1025, 1028, 1280, 1032}) transactions()->registerTemplate(freeFormTemplate(code));
        transactions()->addTransport(&transport);
    }

    void TearDown() override
    {
        transactions()->clearTemplates();
        transactions()->clearTransports();
        CoreTablesTest::TearDown();
    }

    static TransactionService* transactions() { return DefaultCore::global()->transactions(); }

    void insertOrder(QString const& table, QString const& fields)
    {
        apply(QStringLiteral(R"({"table":"%1","ops":[{"insert":{%2}}]})").arg(table, fields).toUtf8());
    }
    Record order(QString const& table, long long orderId) const
    {
        QSharedPointer<Table> t = db()->table(table);
        for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
            if (it->data(QStringLiteral("order_id")).toInteger64() == orderId) return *it;
        return Record();
    }

    TemporarySettings settings;
    RecordingTransport transport;
};
