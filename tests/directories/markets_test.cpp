#include "../testnames.h"
#include "core_fixture.h"
#include "markets.h"

#include <QSignalSpy>
#include <map>
#include <random>

namespace {

char const kMarketSchema[] = R"({"tables":[
  {"name":"stocks","key":["stock_id"],"columns":[{"name":"stock_id","type":1,"nullable":false},
    {"name":"stock_code","type":6,"length":24},{"name":"name","type":8}]},
  {"name":"boards","key":["stock_id","board_id"],"columns":[{"name":"stock_id","type":1,"nullable":false},
    {"name":"board_id","type":1,"nullable":false},{"name":"board_code","type":6,"length":24},{"name":"name","type":8},
    {"name":"anonym","type":6,"length":2},{"name":"sectype","type":6,"length":2},{"name":"flags","type":2},
    {"name":"board_code_iss","type":6,"length":24}]},
  {"name":"securities","key":["stock_id","board_id","sec_id"],"columns":[{"name":"stock_id","type":1,"nullable":false},
    {"name":"board_id","type":1,"nullable":false},{"name":"sec_id","type":2,"nullable":false},
    {"name":"isin_id","type":1,"nullable":false},{"name":"decimals","type":1},{"name":"bid","type":4,"scale":5}]}]})";

class Markets : public CoreTablesTest
{
protected:
    void SetUp() override
    {
        createTables(kMarketSchema);
        apply(R"({"table":"stocks","ops":[{"insert":{"stock_id":2,"stock_code":"CUR","name":"Валютная"}},
            {"insert":{"stock_id":1,"stock_code":"DRV","name":"Срочная"}}]})");
        // Board 10: trade + proxy, anonymous; 11: address; 12: nothing filled in.
        apply(R"({"table":"boards","ops":[
            {"insert":{"stock_id":1,"board_id":10,"board_code":"FUTB","name":"Фьючерсы","anonym":"D","sectype":"F","flags":65,"board_code_iss":"ISFA"}},
            {"insert":{"stock_id":1,"board_id":11,"board_code":"ADRB","name":"Адресные","anonym":"A","sectype":"O","flags":3}},
            {"insert":{"stock_id":1,"board_id":12,"board_code":"BLNK"}},
            {"insert":{"stock_id":2,"board_id":20,"board_code":"RFS","name":"Потоки","anonym":"D","flags":256}}]})");
        apply(R"({"table":"securities","ops":[{"insert":{"stock_id":1,"board_id":10,"sec_id":500,"isin_id":7,"decimals":2,"bid":"1.5"}},
            {"insert":{"stock_id":1,"board_id":10,"sec_id":501,"isin_id":8,"decimals":0}}]})");
        resetAfter<BoardDirectory>();
        resetAfter<StockDirectory>();
        resetAfter<StockSecDirectory>();
    }
    static FieldValue intValue(int value)
    {
        FieldType type{FieldType::Int, 4, 0};
        unsigned char flag = 1;
        return FieldValue(Field(&type, reinterpret_cast<unsigned char*>(&value), &flag, 1));
    }
};

} // namespace

TEST_F(Markets, StockLookupsAndTheirFallbacks)
{
    StockDirectory* stocks = StockDirectory::i();
    EXPECT_EQ(stocks->idByCode("CUR"), 2);
    EXPECT_EQ(stocks->idByCode("XXX"), 0);
    EXPECT_EQ(stocks->codeById(1), "DRV");
    EXPECT_EQ(stocks->codeById(7), QString());
    EXPECT_EQ(stocks->nameById(7), "ID_7");
    EXPECT_EQ(stocks->nameByIdAs(7), QStringLiteral("<площадка не найдена>"));
    EXPECT_EQ(stocks->nameByIdAs(2), QStringLiteral("Валютная"));
    EXPECT_EQ(stocks->nameByCode("DRV"), QStringLiteral("Срочная"));
    EXPECT_EQ(stocks->nameByCode("XXX"), QStringLiteral("<площадка не найдена>"));
    EXPECT_EQ(stocks->ids(), QList<int>({1, 2}));

    QList<KeyValue> keys = stocks->keys();
    ASSERT_EQ(keys.size(), 2);
    EXPECT_EQ(stocks->codeByKey(keys[1]), "CUR");
    EXPECT_EQ(stocks->nameByKey(keys[0]), QStringLiteral("Срочная"));
    EXPECT_EQ(stocks->nameByKey({intValue(9)}), "ID_9");

    QSignalSpy spy(stocks, &StockDirectory::dataChanged);
    apply(R"({"table":"stocks","ops":[{"update":{"stock_id":2,"stock_code":"FX"}},{"insert":{"stock_id":3,"stock_code":"CMD"}}]})");
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(stocks->idByCode("FX"), 2);   // the code index follows the rows
    EXPECT_EQ(stocks->idByCode("CUR"), 0);

    db()->dropTable("stocks");
    EXPECT_EQ(stocks->nameByIdAs(7), "ID_7");
    EXPECT_EQ(stocks->nameByKey({intValue(9)}), "9");
    EXPECT_EQ(stocks->idByCode("DRV"), 0);
    EXPECT_TRUE(stocks->ids().isEmpty());
    // Boards looked up by market code then find no market, without throwing.
    EXPECT_EQ(BoardDirectory::i()->idByCode("DRV", "ADRB"), 0);
    EXPECT_EQ(BoardDirectory::i()->idByCode(1, "ADRB"), 11);
}

struct BoardCheck
{
    char const* what;
    int stock;
    int board;
    bool (BoardDirectory::*test)(int, int) const;
    bool expected;
};

void PrintTo(BoardCheck const& c, std::ostream* os) { *os << c.what; }

class BoardChecks : public Markets, public ::testing::WithParamInterface<BoardCheck> {};

TEST_P(BoardChecks, PermissiveAndOnlyFlagsReadMarket5AsMarket1)
{
    BoardCheck const& c = GetParam();
    EXPECT_EQ((BoardDirectory::i()->*c.test)(c.stock, c.board), c.expected) << c.what;
}

INSTANTIATE_TEST_SUITE_P(Boards, BoardChecks, ::testing::Values(
    BoardCheck{"unknown board trades", 1, 99, &BoardDirectory::isTradeById, true},
    BoardCheck{"unknown board is address", 1, 99, &BoardDirectory::isAddressById, true},
    BoardCheck{"null flags pass", 1, 12, &BoardDirectory::isDomById, true},
    BoardCheck{"null anonym passes", 1, 12, &BoardDirectory::isAnonymById, true},
    BoardCheck{"flag set", 1, 11, &BoardDirectory::isDomById, true},
    BoardCheck{"flag clear", 1, 11, &BoardDirectory::isChartById, false},
    BoardCheck{"anonym kind", 1, 11, &BoardDirectory::isAnonymById, false},
    BoardCheck{"address kind", 1, 11, &BoardDirectory::isAddressById, true},
    BoardCheck{"dom flag of 5 reads board 1/10", 5, 10, &BoardDirectory::isDomById, false},
    BoardCheck{"proxy flag of 5 reads board 1/10", 5, 10, &BoardDirectory::isProxyById, true},
    BoardCheck{"anonymity of 5 looks for 5/10", 5, 10, &BoardDirectory::isAddressById, true},
    BoardCheck{"same board under 1", 1, 10, &BoardDirectory::isAddressById, false},
    BoardCheck{"highest flag", 2, 20, &BoardDirectory::isRFSBoardById, true}),
    [](::testing::TestParamInfo<BoardCheck> const& info) { return caseNameFromWords(info.param.what); });

TEST_F(Markets, Board0x41IsTradeAndProxyOnly)
{
    BoardDirectory* boards = BoardDirectory::i();
    for (int bit = 0; bit < 9; ++bit) {
        long long mask = 1LL << bit;
        EXPECT_EQ(boards->checkFlagsById(1, 10, mask), mask == 0x1 || mask == 0x40) << "mask " << mask;
    }
    EXPECT_TRUE(boards->isTradeById(1, 10));
    EXPECT_TRUE(boards->isProxyById(1, 10));
    EXPECT_FALSE(boards->isPositionById(1, 10));
    EXPECT_FALSE(boards->isDKHRequestById(1, 10));
}

TEST_F(Markets, BoardLookupsByIdAndByCodes)
{
    BoardDirectory* boards = BoardDirectory::i();
    EXPECT_EQ(boards->recordById(5, 10), boards->recordById(1, 10));
    EXPECT_FALSE(boards->recordById(1, 10).isEmpty());
    EXPECT_EQ(boards->codeById(1, 10), "FUTB");
    EXPECT_EQ(boards->codeIssById(1, 10), "ISFA");
    EXPECT_EQ(boards->nameById(1, 99), QStringLiteral("<режим не найден>"));

    EXPECT_EQ(boards->idByCode(1, "ADRB"), 11);
    EXPECT_EQ(boards->idByCode(2, "ADRB"), 0);
    EXPECT_EQ(boards->idByCode("DRV", "ADRB"), 11);
    EXPECT_EQ(boards->nameByCode("DRV", "FUTB"), QStringLiteral("Фьючерсы"));
    EXPECT_EQ(boards->nameByCode("DRV", "NONE"), QString());
    EXPECT_EQ(boards->sectypeByCode("DRV", "ADRB"), QChar('O'));
    EXPECT_EQ(boards->sectypeByCode("CUR", "ADRB"), QChar(' '));

    EXPECT_EQ(boards->ids(1), QList<int>({10, 11, 12}));
    EXPECT_TRUE(boards->ids(0).isEmpty());
    EXPECT_EQ(boards->all(0), QList<StockBoard>({{1, 10}, {1, 11}, {1, 12}, {2, 20}}));
    EXPECT_EQ(boards->all(2), QList<StockBoard>({{2, 20}}));

    // An unknown stock code resolves to market 0, whose boards do answer.
    EXPECT_EQ(boards->idByCode("ZZZ", "ADRB"), 0);
    QSignalSpy spy(boards, &BoardDirectory::dataChanged);
    apply(R"({"table":"boards","ops":[{"insert":{"stock_id":0,"board_id":40,"board_code":"ZERO"}},
        {"update":{"stock_id":1,"board_id":11,"board_code":"ADR2"}}]})");
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(boards->idByCode("ZZZ", "ZERO"), 40);
    EXPECT_EQ(boards->ids(0), QList<int>({40}));
    EXPECT_EQ(boards->idByCode(1, "ADR2"), 11);
    EXPECT_EQ(boards->idByCode(1, "ADRB"), 0);
}

TEST_F(Markets, StockSecSignalsOnlyChangedDecimals)
{
    StockSecDirectory* secs = StockSecDirectory::i();
    EXPECT_EQ(secs->decimalsById(1, 500), 2);
    EXPECT_EQ(secs->decimalsById(1, 999), 0);

    QSignalSpy spy(secs, &StockSecDirectory::dataChanged);
    apply(R"({"table":"securities","ops":[{"update":{"stock_id":1,"board_id":10,"sec_id":500,"bid":"1.75"}}]})");
    EXPECT_EQ(spy.count(), 0);

    apply(R"({"table":"securities","ops":[{"update":{"stock_id":1,"board_id":10,"sec_id":500,"decimals":4}}]})");
    ASSERT_EQ(spy.count(), 1);
    EXPECT_EQ(spy.takeFirst(), QVariantList({1, 500LL}));
    EXPECT_EQ(secs->decimalsById(1, 500), 4);

    secs->add(db()->table("securities")->masterIndex()->at(0));   // same pair, same decimals
    EXPECT_EQ(spy.count(), 0);

    apply(R"({"table":"securities","ops":[{"delete":{"stock_id":1,"board_id":10,"sec_id":501}},
        {"insert":{"stock_id":2,"board_id":20,"sec_id":700,"isin_id":9,"decimals":3}}]})");
    ASSERT_EQ(spy.count(), 2);
    EXPECT_EQ(spy.at(0), QVariantList({1, 501LL}));
    EXPECT_EQ(spy.at(1), QVariantList({2, 700LL}));
    EXPECT_EQ(secs->decimalsById(2, 700), 3);

    spy.clear();
    secs->clear();
    EXPECT_EQ(secs->decimalsById(1, 500), 0);
    secs->build();
    ASSERT_EQ(spy.count(), 1);   // no per-pair signals from a build
    EXPECT_EQ(spy.at(0), QVariantList({0, 0LL}));
    EXPECT_EQ(secs->decimalsById(1, 500), 4);
    EXPECT_EQ(secs->decimalsById(1, 501), 0);
}

// Thousands of pairs arriving out of order, then deleted and re-valued,
// against a plain ordered map of what the table holds.
TEST_F(Markets, StockSecKeepsManyPairsInOrder)
{
    StockSecDirectory* secs = StockSecDirectory::i();
    std::mt19937 rng(5);
    std::map<std::pair<int, long long>, int> expected{{{1, 500}, 2}, {{1, 501}, 0}};
    std::vector<std::pair<int, long long>> live;
    auto check = [&](int round) {
        for (auto const& [pair, decimals] : expected) ASSERT_EQ(secs->decimalsById(pair.first, pair.second), decimals) << round;
        EXPECT_EQ(secs->decimalsById(3, 1LL << 40), 0) << round;
    };
    for (int round = 0; round < 12; ++round) {
        QStringList ops;
        std::shuffle(live.begin(), live.end(), rng);
        std::size_t deletes = round < 6 ? 0 : live.size() / 10;
        for (std::size_t k = 0; k < deletes; ++k) {
            ops << QStringLiteral(R"({"delete":{"stock_id":%1,"board_id":10,"sec_id":%2}})").arg(live[k].first).arg(live[k].second);
            expected.erase(live[k]);
        }
        live.erase(live.begin(), live.begin() + std::ptrdiff_t(deletes));
        for (std::size_t k = 0; k < std::min<std::size_t>(live.size(), 200); ++k) {
            int decimals = int(rng() % 6);
            ops << QStringLiteral(R"({"update":{"stock_id":%1,"board_id":10,"sec_id":%2,"decimals":%3}})").arg(live[k].first).arg(live[k].second).arg(decimals);
            expected[live[k]] = decimals;
        }
        for (int k = 0; k < 400; ++k) {
            std::pair<int, long long> pair(int(rng() % 3) + 2, (long long)(rng() % 2000000) - 1000000);
            if (expected.count(pair)) continue;
            int decimals = int(rng() % 6);
            ops << QStringLiteral(R"({"insert":{"stock_id":%1,"board_id":10,"sec_id":%2,"isin_id":1,"decimals":%3}})").arg(pair.first).arg(pair.second).arg(decimals);
            expected[pair] = decimals;
            live.push_back(pair);
        }
        apply(QStringLiteral(R"({"table":"securities","ops":[%1]})").arg(ops.join(',')).toUtf8());
        check(round);
    }
    // A rebuild packs the same content.
    secs->clear();
    secs->build();
    check(100);
}

