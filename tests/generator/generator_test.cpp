#include "market.h"

#include <database/decimal.h>

#include <gtest/gtest.h>

#include <QByteArray>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>

namespace {

// What the market writes, in memory.
struct Written
{
    QByteArray snapshot, replication;
    std::size_t securities = 0;
};

QByteArray written(gen::Market& market, bool snapshot)
{
    char* data = nullptr;
    std::size_t size = 0;
    std::FILE* f = open_memstream(&data, &size);
    {
        gen::JsonlWriter w(f);
        if (snapshot) market.writeSnapshot(w);
        else market.writeReplication(w);
        w.end();
    }
    std::fclose(f);
    QByteArray out(data, int(size));
    std::free(data);
    return out;
}

Written generate(std::uint64_t seed, std::int64_t securities)
{
    gen::Market market(seed, securities);
    Written w;
    w.snapshot = written(market, true);
    w.replication = written(market, false);
    w.securities = market.securityCount();
    return w;
}

// Follows a market's batches and checks every price it shows or trades at
// (bid, ask, market price, the previous session's bid and ask, stream
// quotes, orders, deals) against its security's limits at that moment,
// where both limits are given and the lower is below the upper.
class LimitCheck
{
public:
    void follow(QByteArray const& text, QString const& name)
    {
        int lineNo = 0;
        for (QByteArray const& line : text.split('\n')) {
            ++lineNo;
            if (line.trimmed().isEmpty()) continue;
            QJsonObject const batch = QJsonDocument::fromJson(line).object();
            QString const table = batch.value("table").toString();
            for (QJsonValue const& op : batch.value("ops").toArray()) {
                QString const kind = op.toObject().keys().value(0);
                QJsonObject const row = op.toObject().value(kind).toObject();
                if (kind == "insert" || kind == "update") take(table, row, QStringLiteral("%1:%2").arg(name).arg(lineNo));
            }
        }
    }

    int checked = 0;
    QStringList outside;

private:
    struct Limits
    {
        std::optional<decimal> low, high;
    };

    static qint64 number(QJsonObject const& row, char const* column) { return row.value(column).toVariant().toLongLong(); }

    // Market 5 trades the securities of market 1.
    static QString securityOf(QJsonObject const& row)
    {
        qint64 stock = number(row, "stock_id");
        return QStringLiteral("%1,%2,%3").arg(stock == 5 ? 1 : stock).arg(number(row, "board_id")).arg(number(row, "sec_id"));
    }

    void check(QString const& security, QJsonObject const& row, char const* column, QString const& where)
    {
        if (!row.contains(column)) return;
        Limits const l = m_limits.value(security);
        if (!l.low || !l.high || !(*l.low < *l.high)) return;
        ++checked;
        decimal const price(row.value(column).toString());
        if (price < *l.low || *l.high < price)
            outside << QStringLiteral("%1: %2 %3 %4 outside %5..%6")
                           .arg(where, security, QLatin1String(column), price.toString(), l.low->toString(), l.high->toString());
    }

    void take(QString const& table, QJsonObject const& row, QString const& where)
    {
        if (table == "securities") {
            QString const security = securityOf(row);
            Limits& l = m_limits[security];
            if (row.contains("price_lmt_low")) l.low = decimal(row.value("price_lmt_low").toString());
            if (row.contains("price_lmt_high")) l.high = decimal(row.value("price_lmt_high").toString());
            for (char const* column : {"bid", "ask", "market_price", "prev_bid", "prev_ask"}) check(security, row, column, where);
        } else if (table == "k3.rfs.streams") {
            m_streams.insert(number(row, "stream_id"), securityOf(row));
        } else if (table == "k3.rfs.quotes") {
            check(m_streams.value(number(row, "stream_id")), row, "price", where);
        } else if (table == "orders" || table == "deals") {
            if (row.contains("price")) check(securityOf(row), row, "price", where);
        }
    }

    QHash<QString, Limits> m_limits;
    QHash<qint64, QString> m_streams;
};

QByteArray bundled(char const* name)
{
    QFile f(QStringLiteral(SOURCE_DIR "/data/market/") + QLatin1String(name));
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace

TEST(GeneratorMarket, QuotesOrdersAndDealsLieWithinTheirSecuritysLimits)
{
    struct Case { std::uint64_t seed; std::int64_t securities; };
    for (Case c : {Case{20261120, 2000}, Case{0, 200}, Case{std::numeric_limits<std::uint64_t>::max(), 431}, Case{7, 20000}}) {
        Written w = generate(c.seed, c.securities);
        LimitCheck check;
        check.follow(w.snapshot, "snapshot");
        check.follow(w.replication, "replication");
        EXPECT_GT(check.checked, 1000) << c.securities;
        EXPECT_TRUE(check.outside.isEmpty()) << "seed " << c.seed << ", " << c.securities << " securities:\n"
                                             << check.outside.join('\n').toStdString();
    }
    // The bundled market, as it is checked in.
    LimitCheck check;
    check.follow(bundled("snapshot.jsonl"), "snapshot.jsonl");
    check.follow(bundled("replication.jsonl"), "replication.jsonl");
    EXPECT_GT(check.checked, 5000);
    EXPECT_TRUE(check.outside.isEmpty()) << check.outside.join('\n').toStdString();
}

// The help allows 200 securities and up: the smallest markets have the
// fewest bases, and each still fills every board.
TEST(GeneratorMarket, EverySmallSizeTheHelpAllowsIsBuilt)
{
    for (std::int64_t n = 200; n <= 460; ++n) {
        Written w = generate(std::uint64_t(n), n);
        EXPECT_GE(w.securities, std::size_t(n));
        EXPECT_FALSE(w.snapshot.isEmpty());
        EXPECT_FALSE(w.replication.isEmpty());
        ASSERT_FALSE(HasFailure()) << n;
    }
}
