#pragma once
// Tables of the request-for-stream market and of securities, made from the
// product's own schema, with the directories that follow them started
// afresh for each test.
#include "accounts_fixture.h"
#include "deals.h"
#include "securities.h"
#include "streams.h"

#include <database/exception.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>
#include <QUrlQuery>

class StreamTablesTest : public AccountTablesTest
{
protected:
    void SetUp() override
    {
        createSchemaTables({"securities", "k3.rfs.streams", "k3.rfs.quotes", "orders", "k3.rfs.lp_users",
                            "k3.rfs.base_contract_min_amount", "deals"});
        resetAfter<DealsDirectory>();
        resetAfter<RFSStreamsDirectory>();
        resetAfter<RFSQuoteDirectory>();
        resetAfter<RFSOrdersDirectory>();
        resetAfter<RFSMinAmountDirectory>();
        resetAfter<LPUsersDirectory>();
        resetAfter<SecurityDirectory>();
        core()->clearNotifications();
    }

    // One batch on one table: ops as {"insert": row}, {"update": row}, ...
    void batch(QString const& table, QJsonArray const& ops)
    {
        QByteArray line = QJsonDocument(QJsonObject{{"table", table}, {"ops", ops}}).toJson(QJsonDocument::Compact);
        try {
            apply(line);
        } catch (Exception const& e) {
            ADD_FAILURE() << line.toStdString() << ": " << e.message().toStdString();
        }
    }
    void insert(QString const& table, QJsonObject const& row) { batch(table, {QJsonObject{{"insert", row}}}); }
    void update(QString const& table, QJsonObject const& row) { batch(table, {QJsonObject{{"update", row}}}); }
    void remove(QString const& table, QJsonObject const& key) { batch(table, {QJsonObject{{"delete", key}}}); }

    void security(int stock, int board, qint64 sec, QString const& name, int decimals)
    {
        insert("securities", {{"stock_id", stock}, {"board_id", board}, {"sec_id", QString::number(sec)},
                              {"isin_id", 1}, {"sec_name", name}, {"decimals", decimals}});
    }
    void lpUser(QString const& lp, QString const& client) { insert("k3.rfs.lp_users", {{"lp_code", lp}, {"client_code", client}}); }
    static QJsonObject stream(QString const& id, qint64 sec, int amount, int bump = 0, int duration = 1)
    {
        return {{"stream_id", id}, {"amount", amount}, {"stock_id", 5}, {"board_id", 20}, {"sec_id", QString::number(sec)},
                {"signs", 0}, {"dir", 3}, {"speed_bump_type", bump}, {"duration_type", duration}};
    }
    static QJsonObject deal(qint64 id, int state, QString const& login = "FA01U01", QString const& side = "B",
                            int error = 0, qint64 sec = 77)
    {
        return {{"stock_id", 5}, {"board_id", 20}, {"sec_id", QString::number(sec)}, {"price", "101.5"},
                {"quantity", "12"}, {"buysell", side}, {"account", "FA01001"}, {"login", login},
                {"deal_id", QString::number(id)}, {"state", state}, {"error_code", error}, {"signs", 0}};
    }
    static QJsonObject order(qint64 id, QString const& stream, QString const& account, QString const& status,
                             QString const& side, QString const& price, int stock = 5)
    {
        return {{"stock_id", stock}, {"board_id", 20}, {"sess_id", 7302}, {"order_id", QString::number(id)},
                {"sec_id", "77"}, {"status", status}, {"stream_id", stream}, {"account", account},
                {"price", price}, {"buysell", side}};
    }

    QStringList notifications() const { return core()->notifications(); }
};

// A link's query, decoded as a receiver reads it back from the text.
inline QUrlQuery queryOf(QString const& link)
{
    return QUrlQuery(QUrl(link));
}
inline QString itemOf(QString const& link, QString const& key)
{
    return queryOf(link).queryItemValue(key, QUrl::FullyDecoded);
}
