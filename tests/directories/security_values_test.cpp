#include "core_fixture.h"
#include "securities.h"
#include "sessions.h"
#include "volatility.h"

#include <core/clock.h>
#include <core/volat.h>

#include <QDateTime>
#include <QFile>
#include <QThread>
#include <cmath>
#include <limits>

namespace {

qint64 const kNow = datetime(QStringLiteral("2026-11-20 12:00:00")).value();
qint64 const kYear = 31536000000LL;

QString row(QString const& fields) { return QStringLiteral(R"({"insert":{%1}})").arg(fields); }

QString option(qint64 secId, int stock, char type, QString const& strike, int futIsin = 100)
{
    return row(QStringLiteral(R"("stock_id":%1,"board_id":14,"sec_id":"%2","isin_id":%2,"main_board_id":1,"fut_isin_id":%5,)"
                              R"("option_series_id":7,"strike":"%3","option_type":"%4","expdate":"2027-11-20 12:00:00.000",)"
                              R"("decimals":2,"price_step":"0.01","volat_min":"5","volat_max":"200")")
                   .arg(stock).arg(secId).arg(strike).arg(QChar(type)).arg(futIsin));
}

class SecurityValues : public CoreTablesTest
{
protected:
    void SetUp() override
    {
        Clock::setFixed(kNow);
        createSchemaTables({"securities", "boards", "stocks", "stock_time", "k3.volat_coeff_black", "k3.volat_coeff_bach"});
        QStringList ops{
            row(R"("stock_id":1,"board_id":1,"sec_id":"10","isin_id":100,"market_price":"101.5","settlement_price_open":"100")"),
            row(R"("stock_id":4,"board_id":1,"sec_id":"20","isin_id":100,"market_price":"55","settlement_price_open":"54")"),
            option(77, 1, 'C', "100"), option(78, 1, 'P', "100"), option(79, 4, 'P', "50"),
            option(80, 1, 'C', "100", 999),
            row(R"("stock_id":1,"board_id":1,"sec_id":"30","isin_id":30,"is_percent":4,"pctyield_total":"2","pctyield_coeff":"0.5")"),
            row(R"("stock_id":1,"board_id":1,"sec_id":"31","isin_id":31,"is_percent":1,"expdate":"2026-11-20 18:45:00.000")"),
            row(R"("stock_id":1,"board_id":1,"sec_id":"32","isin_id":32,"step_price":"13.06726","price_step":"10")"),
            row(R"("stock_id":1,"board_id":1,"sec_id":"33","isin_id":33,"step_price":"0.00001","price_step":"2")"),
            row(R"("stock_id":1,"board_id":1,"sec_id":"34","isin_id":34,"is_percent":1,"expdate":"2027-11-20 00:00:00.000")")};
        apply(QStringLiteral(R"({"table":"securities","ops":[%1]})").arg(ops.join(',')).toUtf8());
        apply(R"({"table":"stock_time","ops":[{"insert":{"stock_id":1,"diff_vs_cur_time":"0"}}]})");
        apply(R"({"table":"k3.volat_coeff_black","ops":[{"insert":{"option_series_id":7,"a":30,"b":6,"c":1,"d":-2,"e":1,"s":0}}]})");
        apply(R"({"table":"k3.volat_coeff_bach","ops":[{"insert":{"option_series_id":7,"a":25,"b":0,"c":1,"d":0,"e":1,"s":0,"m":0}}]})");
        resetAfter<SecurityDirectory>();
        resetAfter<StockTimeDirectory>();
        resetAfter<VolatCoeffBlackDirectory>();
        resetAfter<VolatCoeffBachDirectory>();
    }
    void TearDown() override
    {
        CoreTablesTest::TearDown();
        Clock::useSystem();
    }
    SecurityDirectory* dir() { return SecurityDirectory::i(); }

    // What the core gives for the option with these inputs.
    static VolatOutputParamsEx core(double F, double K, bool put, VolatInputParams coeffs, double lower = 5.0)
    {
        VolatInputParamsEx in;
        in.underlyingPrice = F;
        in.strike = K;
        in.sqrtT = 1.0;
        in.coeffs = coeffs;
        in.volatMin = lower;
        in.volatMax = 200.0;
        in.isPut = put;
        in.priceStep = 0.01;
        VolatOutputParamsEx out;
        calcVolatParamsEx(out, in);
        return out;
    }
    static VolatInputParams blackCoeffs() { return VolatInputParams{30, 6, 1, -2, 1, 0, 1}; }
};

void expectResult(CalcVolatResult const& r, VolatOutputParamsEx const& o, bool put)
{
    EXPECT_EQ(r.volat.toString(), decimal::fromDouble(o.volat, 4).toString());
    EXPECT_EQ(r.theorPrice.toString(), decimal::fromDouble(o.theorPrice, 2).toString());
    EXPECT_EQ(r.greeks[0].toString(), decimal::fromDouble(put ? o.putDelta : o.callDelta, 8).toString());
    EXPECT_EQ(r.greeks[1].toString(), decimal::fromDouble(o.gamma, 8).toString());
    EXPECT_EQ(r.greeks[2].toString(), decimal::fromDouble(o.vega, 8).toString());
    EXPECT_EQ(r.greeks[3].toString(), decimal::fromDouble(o.theta, 8).toString());
}

} // namespace

// Whole seconds to the market's exchange time, a ten-millisecond floor, and
// expiries and clocks from outside at the ends of the 64-bit range, whose
// distance does not fit in 64 bits and is still measured.
TEST_F(SecurityValues, TimeToExpiryFloorsExactYearsAndTheEndsOfTheRange)
{
    apply(R"({"table":"stock_time","ops":[{"update":{"stock_id":1,"diff_vs_cur_time":"2000"}}]})");
    qint64 const now = kNow + 2000;   // the exchange time of market 1
    EXPECT_EQ(dir()->getSqrtTByExpDate(datetime(now + 999)), 1.7807243465445342e-5);
    EXPECT_EQ(dir()->getSqrtTByExpDate(datetime(now - 86400000)), 1.7807243465445342e-5);
    EXPECT_EQ(dir()->getSqrtTByExpDate(datetime(now + 1000)), std::sqrt(1.0 / 31536000.0));
    EXPECT_EQ(dir()->getSqrtTByExpDate(datetime(now + 1999)), std::sqrt(1.0 / 31536000.0));
    EXPECT_EQ(dir()->getSqrtTByExpDate(datetime(now + kYear)), 1.0);
    EXPECT_EQ(dir()->getSqrtTByExpDate(datetime(now + 4 * kYear)), 2.0);

    qint64 const lowest = std::numeric_limits<qint64>::min(), highest = std::numeric_limits<qint64>::max();
    EXPECT_EQ(dir()->getSqrtTByExpDate(datetime(lowest)), volat::kSqrtTFloor);
    qint64 const offset = -4000000000000000000LL;   // a clock far before 1970
    apply(QStringLiteral(R"({"table":"stock_time","ops":[{"update":{"stock_id":1,"diff_vs_cur_time":%1}}]})").arg(offset).toUtf8());
    long double const seconds = ((long double)highest - (long double)(kNow + offset)) / 1000;
    EXPECT_DOUBLE_EQ(dir()->getSqrtTByExpDate(datetime(highest)), std::sqrt(double(seconds) / 31536000.0));
    EXPECT_EQ(dir()->getSqrtTByExpDate(datetime(lowest)), volat::kSqrtTFloor);
}

TEST_F(SecurityValues, PercentQuotedRatesAndCoefficients)
{
    decimal rate;
    ASSERT_TRUE(dir()->profitRateById(101.5, 1, 1, 30, rate));
    EXPECT_EQ(rate.toString(), "1.7500");
    double coeff = 0, total = 0;
    ASSERT_TRUE(dir()->pctYieldCoeffsById(1, 1, 30, coeff, total));
    EXPECT_EQ(std::make_pair(coeff, total), std::make_pair(0.5, 2.0));
    decimal untouched = decimal::fromDouble(9, 1);
    EXPECT_FALSE(dir()->profitRateById(101.5, 1, 1, 31, untouched));   // quoted as a rate, not a percent
    EXPECT_FALSE(dir()->profitRateById(101.5, 1, 1, 999, untouched));
    EXPECT_EQ(untouched.toString(), "9.0");
    EXPECT_FALSE(dir()->pctYieldCoeffsById(1, 1, 10, coeff, total));
}

TEST_F(SecurityValues, MoneyVolumes)
{
    // The point value is fixed to five places first: 1.306726 becomes 130673.
    EXPECT_EQ(dir()->voumeById(-1.0, 10000, 1, 1, 32).toString(), "13067.30");
    EXPECT_EQ(dir()->voumeById(1.0, 10000, 1, 1, 32).toString(), "13067.30");
    // An exact half rounds up: 0.00001 / 2 * 100000 = 0.5 gives 1.
    EXPECT_EQ(dir()->voumeById(1.0, 100000, 1, 1, 33).toString(), "1.00");
    // Quoted as a rate: expiring today, a million whatever the price.
    EXPECT_EQ(dir()->voumeById(7.5, 3, 1, 1, 31).toString(), "1000000.00");
    EXPECT_EQ(dir()->voumeById(0.0, 3, 1, 1, 31).toString(), "1000000.00");
    // ...and discounted over the days left (365 here).
    EXPECT_EQ(dir()->voumeById(10.0, 1, 1, 1, 34).toString(),
              xdecimal::fromDouble(1000000.0 / std::pow(1.0 + 10.0 / 36500.0, 365.0), 2).toString());
    EXPECT_EQ(dir()->voumeById(10.0, 1, 1, 1, 999).toString(), "0.00");
    // A security without a price step has no point value.
    EXPECT_EQ(dir()->voumeById(10.0, 1, 1, 1, 10).toString(), "0.00");
}

TEST_F(SecurityValues, OptionValuesComeFromTheCore)
{
    CalcVolatResult call, put, other;
    dir()->calcVolatBySecId(&call, 77, 0);
    dir()->calcVolatBySecId(&put, 78, 0);
    ASSERT_TRUE(call.age.isValid());
    // A put takes the second output field as its first sensitivity, a call the first.
    expectResult(call, core(101.5, 100, false, blackCoeffs()), false);
    expectResult(put, core(101.5, 100, true, blackCoeffs()), true);
    EXPECT_GT(call.greeks[0].toDouble(), 0.5);
    EXPECT_LT(put.greeks[0].toDouble(), -0.3);
    EXPECT_NEAR(call.greeks[0].toDouble() - put.greeks[0].toDouble(), 1.0, 1e-8);
    // Stock 4's option board when stock 1 has no such option.
    dir()->calcVolatBySecId(&other, 79, 0);
    expectResult(other, core(55, 50, true, blackCoeffs()), true);
    // Without a market price the underlying's settlement price.
    apply(R"({"table":"securities","ops":[{"update":{"stock_id":1,"board_id":1,"sec_id":"10","market_price":"0"}}]})");
    dir()->calcVolatBySecId(&call, 77, 0);
    expectResult(call, core(100, 100, false, blackCoeffs()), false);
}

TEST_F(SecurityValues, MissingOptionOrUnderlyingLeavesTheResultAlone)
{
    CalcVolatResult r;
    r.volat = decimal::fromDouble(12.5, 4);
    dir()->calcVolatBySecId(&r, 80, 0);   // its underlying is missing
    dir()->calcVolatBySecId(&r, 81, 0);   // no such option
    EXPECT_FALSE(r.age.isValid());
    EXPECT_EQ(r.volat.toString(), "12.5000");

    // Not started, so the next request computes at once.
    CalcVolatResult* cached = dir()->getVolatResultBySecId(80, 0);
    EXPECT_FALSE(cached->age.isValid());
    EXPECT_EQ(cached->volat.toDouble(), 0.0);
    apply(R"({"table":"securities","ops":[{"insert":{"stock_id":1,"board_id":1,"sec_id":"11","isin_id":999,"market_price":"90"}}]})");
    CalcVolatResult* again = dir()->getVolatResultBySecId(80, 0);
    EXPECT_TRUE(again->age.isValid());
    EXPECT_GT(again->volat.toDouble(), 0.0);
}

// Type 1 prices on the Bachelier smile and floors the volatility at the price
// step instead of "volat_min"; the two types are cached apart.
TEST_F(SecurityValues, BachelierTypeFloorsAtThePriceStep)
{
    apply(R"({"table":"k3.volat_coeff_black","ops":[{"update":{"option_series_id":7,"a":1,"b":0,"d":0}}]})");
    apply(R"({"table":"k3.volat_coeff_bach","ops":[{"update":{"option_series_id":7,"a":0.001}}]})");
    CalcVolatResult* black = dir()->getVolatResultBySecId(77, 0);
    CalcVolatResult* bach = dir()->getVolatResultBySecId(77, 1);
    EXPECT_NE(black, bach);
    EXPECT_EQ(black->volat.toString(), "5.0000");   // volat_min
    EXPECT_EQ(bach->volat.toString(), "0.0100");    // the price step, in percent
    VolatInputParams normal{0.001, 0, 1, 0, 1, 0, 0};
    expectResult(*bach, core(101.5, 100, false, normal, 0.01), false);
}

// Absurd replicated coefficients still give finite results inside the
// option's bounds.
TEST_F(SecurityValues, AbsurdCoefficientRowsAreClamped)
{
    apply(R"({"table":"k3.volat_coeff_black","ops":[{"update":{"option_series_id":7,"a":1e300,"b":-1e300,"c":-5,"d":1e300,"e":0,"s":1e300}}]})");
    CalcVolatResult r;
    dir()->calcVolatBySecId(&r, 77, 0);
    EXPECT_EQ(r.volat.toString(), "200.0000");   // volat_max
    EXPECT_GT(r.theorPrice.toDouble(), 0.0);
    EXPECT_LT(r.theorPrice.toDouble(), 101.5);
    apply(R"({"table":"k3.volat_coeff_black","ops":[{"update":{"option_series_id":7,"a":-1e300,"b":0,"c":0,"d":0,"e":0,"s":0}}]})");
    dir()->calcVolatBySecId(&r, 77, 0);
    EXPECT_EQ(r.volat.toString(), "5.0000");     // volat_min
    apply(R"({"table":"k3.volat_coeff_bach","ops":[{"update":{"option_series_id":7,"m":-4,"c":-1e300}}]})");
    dir()->calcVolatBySecId(&r, 77, 1);
    EXPECT_GT(r.volat.toDouble(), 0.0);
    EXPECT_LE(r.volat.toDouble(), 200.0);
    EXPECT_GE(r.theorPrice.toDouble(), 1.5);     // at least the intrinsic value
}

TEST_F(SecurityValues, CachedResultsAreRecomputedAfterASecond)
{
    CalcVolatResult* first = dir()->getVolatResultBySecId(77, 0);
    QString const before = first->theorPrice.toString();
    apply(R"({"table":"securities","ops":[{"update":{"stock_id":1,"board_id":1,"sec_id":"10","market_price":"120"}}]})");
    CalcVolatResult* second = dir()->getVolatResultBySecId(77, 0);
    EXPECT_EQ(second, first);
    EXPECT_EQ(second->theorPrice.toString(), before);   // under a second old: as it was
    QThread::msleep(1000);
    CalcVolatResult* third = dir()->getVolatResultBySecId(77, 0);
    EXPECT_EQ(third, first);
    expectResult(*third, core(120, 100, false, blackCoeffs()), false);
}

// Every option of the bundled market prices inside its bounds on both
// smiles, on the market's own day: the generator's coefficients are sane.
class BundledMarket : public CoreTablesTest
{
protected:
    void SetUp() override
    {
        QFile schema(QStringLiteral(SOURCE_DIR "/data/schema.json"));
        ASSERT_TRUE(schema.open(QIODevice::ReadOnly));
        createTables(schema.readAll());
        db()->loadFile(QStringLiteral(SOURCE_DIR "/data/market/snapshot.jsonl"));
        resetAfter<SecurityDirectory>();
        resetAfter<SessionDirectory>();
        resetAfter<StockTimeDirectory>();
        resetAfter<VolatCoeffBlackDirectory>();
        resetAfter<VolatCoeffBachDirectory>();
    }
    void TearDown() override
    {
        CoreTablesTest::TearDown();
        Clock::useSystem();
    }
};

TEST_F(BundledMarket, EveryOptionPricesInsideItsBounds)
{
    SessionDirectory* sessions = SessionDirectory::i();
    QDate const day = sessions->dateById(1, sessions->getMaxSessId(1)).getDate();
    ASSERT_TRUE(day.isValid());
    Clock::setFixed(QDateTime(day, QTime(10, 0), Qt::UTC).toMSecsSinceEpoch());

    SecurityDirectory* dir = SecurityDirectory::i();
    QSharedPointer<Table> t = db()->table(QStringLiteral("securities"));
    int options = 0;
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it) {
        Record r = *it;
        if (r.data("board_id").toInteger() != 14 || r.data("sectype").toString() != "O") continue;
        long long const id = r.data("sec_id").toInteger64();
        if (r.data("stock_id").toInteger() != 1 && !dir->recordById(1, 14, id).isEmpty()) continue;   // priced as (1, 14)
        for (int type : {0, 1}) {
            CalcVolatResult result;
            dir->calcVolatBySecId(&result, id, type);
            SCOPED_TRACE(testing::Message() << r.data("sec_code").toString().toStdString() << " type " << type);
            ASSERT_TRUE(result.age.isValid());
            double const lower = type == 1 ? r.data("price_step").toDouble() : r.data("volat_min").toDouble();
            EXPECT_GT(result.volat.toDouble(), lower);
            EXPECT_LT(result.volat.toDouble(), r.data("volat_max").toDouble());
            EXPECT_GE(result.theorPrice.toDouble(), 0.0);
        }
        ++options;
    }
    EXPECT_GT(options, 1000);
}
