#include "core_fixture.h"
#include "sessions.h"

#include <core/clock.h>

#include <QCoreApplication>
#include <QSignalSpy>

namespace {

qint64 const kNow = datetime(QStringLiteral("2026-11-20 12:00:00")).value();

class Time : public CoreTablesTest
{
protected:
    void SetUp() override
    {
        Clock::setFixed(kNow);
        createSchemaTables({"sessions", "calendar", "stock_time"});
        resetAfter<SessionDirectory>();
        resetAfter<CalendarDirectory>();
        resetAfter<StockTimeDirectory>();
    }
    void TearDown() override
    {
        CoreTablesTest::TearDown();
        Clock::useSystem();
    }
};

} // namespace

TEST_F(Time, SessionsReadStockFiveAsOne)
{
    apply(R"({"table":"sessions","ops":[
        {"insert":{"stock_id":1,"sess_id":4,"name":"Day","date":"2026-11-20 10:00:00.000"}},
        {"insert":{"stock_id":1,"sess_id":7,"name":"Evening","date":"2026-11-20 19:00:00.000"}},
        {"insert":{"stock_id":2,"sess_id":9,"name":"Other","date":"2026-11-20 10:00:00.000"}},
        {"insert":{"stock_id":5,"sess_id":11,"name":"Never found","date":"2026-11-20 10:00:00.000"}}]})");
    SessionDirectory* s = SessionDirectory::i();
    EXPECT_EQ(s->nameById(5, 7), "Evening");
    EXPECT_EQ(s->dateById(1, 4), datetime(QStringLiteral("2026-11-20 10:00:00")));
    EXPECT_EQ(s->nameById(1, 5), QStringLiteral("<сессия не найдена>"));
    EXPECT_EQ(s->dateById(1, 5), datetime());
    // The current session is the highest number; a row of stock 5 is never reached.
    EXPECT_EQ(s->getMaxSessId(1), 7);
    EXPECT_EQ(s->getMaxSessId(5), 7);
    EXPECT_TRUE(s->isActiveSessId(5, 7));
    EXPECT_FALSE(s->isActiveSessId(1, 4));
    EXPECT_EQ(s->getMaxSession(5).data("name").toString(), "Evening");
    EXPECT_TRUE(s->recordById(5, 11).isEmpty());
    // No sessions: 0, and session 0 then counts as the active one.
    EXPECT_EQ(s->getMaxSessId(3), 0);
    EXPECT_TRUE(s->isActiveSessId(3, 0));
    EXPECT_TRUE(s->getMaxSession(3).isEmpty());

    QSignalSpy changed(s, &SessionDirectory::dataChanged);
    apply(R"({"table":"sessions","ops":[{"insert":{"stock_id":1,"sess_id":8,"name":"Night"}}]})");
    EXPECT_EQ(changed.count(), 1);
    EXPECT_EQ(s->getMaxSessId(5), 8);
}

TEST_F(Time, CalendarRangeIsInclusiveAndOrdered)
{
    CalendarDirectory* c = CalendarDirectory::i();
    EXPECT_TRUE(c->range(datetime(1), datetime(kNow)).isEmpty());   // no days yet
    apply(R"({"table":"calendar","ops":[
        {"insert":{"date":"2026-11-23 00:00:00.000","type":0}},
        {"insert":{"date":"2026-11-20 00:00:00.000","type":0}},
        {"insert":{"date":"2026-11-21 00:00:00.000","type":2}},
        {"insert":{"date":"2026-11-22 00:00:00.000","type":2}},
        {"insert":{"date":"2026-11-24 00:00:00.000","type":0}}]})");
    auto dates = [c](QList<Record> const& days) {
        QStringList out;
        for (Record const& d : days) out << c->date(d).getDate().toString(Qt::ISODate) + (c->isTradingDay(d) ? "" : "*");
        return out.join(' ');
    };
    datetime const d20(QStringLiteral("2026-11-20")), d23(QStringLiteral("2026-11-23"));
    EXPECT_EQ(dates(c->range(d20, d23)), "2026-11-20 2026-11-21* 2026-11-22* 2026-11-23");
    EXPECT_EQ(dates(c->range(datetime(QStringLiteral("2026-11-20 00:00:01")), datetime(QStringLiteral("2026-12-31")))),
              "2026-11-21* 2026-11-22* 2026-11-23 2026-11-24");
    EXPECT_EQ(dates(c->range(datetime(QStringLiteral("2026-01-01")), d20)), "2026-11-20");
    EXPECT_TRUE(c->range(d23, d20).isEmpty());
    EXPECT_TRUE(c->range(datetime(QStringLiteral("2026-11-25")), datetime(QStringLiteral("2027-01-01"))).isEmpty());
    EXPECT_FALSE(c->isTradingDay(Record()));
    EXPECT_EQ(c->date(Record()), datetime());
}

TEST_F(Time, ExchangeTimeTakesTheMarketsOffsetOrTheLargest)
{
    StockTimeDirectory* st = StockTimeDirectory::i();
    EXPECT_EQ(st->correctedLocalTime(1).value(), kNow);   // empty table: the clock as it is
    apply(R"({"table":"stock_time","ops":[
        {"insert":{"stock_id":2,"diff_vs_cur_time":"500","server_time":"2026-11-20 12:00:00.500"}},
        {"insert":{"stock_id":3,"diff_vs_cur_time":"-200"}}]})");
    EXPECT_EQ(st->correctedLocalTime(1).value(), kNow + 500);
    EXPECT_EQ(st->correctedLocalTime(-1).value(), kNow + 500);
    EXPECT_EQ(st->correctedLocalTime(3).value(), kNow - 200);
    EXPECT_EQ(st->timeByStockId(2), datetime(QStringLiteral("2026.11.20 12:00:00.500")));
    EXPECT_EQ(st->timeByStockId(9), datetime());

    apply(R"({"table":"stock_time","ops":[
        {"insert":{"stock_id":1,"diff_vs_cur_time":"-3000"}},
        {"insert":{"stock_id":5,"diff_vs_cur_time":"7000","server_time":"2026-11-20 12:00:07.000"}}]})");
    EXPECT_EQ(st->correctedLocalTime(-1).value(), kNow - 3000);
    EXPECT_EQ(st->correctedLocalTime(1), st->correctedLocalTime(-1));
    EXPECT_EQ(st->correctedLocalTime(5).value(), kNow + 7000);   // no alias here
    EXPECT_FALSE(st->timeByStockId(5).isNull());
    EXPECT_TRUE(st->timeByStockId(1).isNull());

    // The clock is read on every call.
    Clock::setFixed(kNow + 60000);
    EXPECT_EQ(st->correctedLocalTime(1).value(), kNow + 57000);

    // A table that is gone: the clock as it is.
    db()->dropTable("stock_time");
    EXPECT_EQ(st->correctedLocalTime(1).value(), kNow + 60000);
    EXPECT_EQ(st->timeByStockId(2), datetime());
}

