#include "core_fixture.h"
#include "volatility.h"

#include <QSignalSpy>

namespace {

class Volatility : public CoreTablesTest
{
protected:
    void SetUp() override
    {
        createSchemaTables({"k3.volat", "k3.volat_coeff_black", "k3.volat_coeff_bach", "k3.option_series_params"});
        resetAfter<VolatDirectory>();
        resetAfter<VolatCoeffBlackDirectory>();
        resetAfter<VolatCoeffBachDirectory>();
        resetAfter<OptionSeriesParamDirectory>();
    }
};

QString series(int id, int underlying, QString const& name, QString const& date)
{
    return QStringLiteral(R"({"insert":{"option_series_id":%1,"underlying_id":%2,"sec_name":"%3","base_code":"BASE%2","expiration_date":"%4 18:45:00.000"}})")
        .arg(id).arg(underlying).arg(name, date);
}

QStringList idsOn(OptionSeriesParamDirectory* d, QDate date)
{
    QStringList ids;
    for (SeriesParamData const& s : d->getSeriesParamData().value(date)) ids << QString::number(s.option_series_id);
    ids.sort();
    return ids;
}

} // namespace

TEST_F(Volatility, CoefficientsAndTheirModel)
{
    apply(R"({"table":"k3.volat_coeff_black","ops":[
        {"insert":{"option_series_id":10,"a":31.5,"b":4,"c":2,"d":-3,"e":0.5,"s":0.1}}]})");
    apply(R"({"table":"k3.volat_coeff_bach","ops":[
        {"insert":{"option_series_id":10,"a":28,"b":1,"c":1,"d":0,"e":1,"s":0,"m":0.25}},
        {"insert":{"option_series_id":11,"a":28,"b":1,"c":1,"d":0,"e":1,"s":0}}]})");
    VolatInputParams p;
    ASSERT_TRUE(VolatCoeffBlackDirectory::i()->volatCoeffsById(10, p));
    EXPECT_EQ(std::make_tuple(p.a, p.b, p.c, p.d, p.e, p.s, p.m), std::make_tuple(31.5, 4.0, 2.0, -3.0, 0.5, 0.1, 1.0));
    ASSERT_TRUE(VolatCoeffBachDirectory::i()->volatCoeffsById(10, p));
    EXPECT_EQ(p.a, 28.0);
    EXPECT_EQ(p.m, 0.25);
    ASSERT_TRUE(VolatCoeffBachDirectory::i()->volatCoeffsById(11, p));
    EXPECT_EQ(p.m, 0.0);   // a null m reads 0: that row is a normal-model smile

    // An unknown series leaves the caller's defaults alone.
    VolatInputParams defaults;
    EXPECT_FALSE(VolatCoeffBlackDirectory::i()->volatCoeffsById(99, defaults));
    EXPECT_EQ(std::make_tuple(defaults.a, defaults.b, defaults.c, defaults.d, defaults.e, defaults.s, defaults.m),
              std::make_tuple(50.0, 0.0, 1.0, 0.0, 1.0, 0.0, 1.0));
    EXPECT_TRUE(VolatCoeffBachDirectory::i()->containsOptionSeriesId(11));
    EXPECT_FALSE(VolatCoeffBlackDirectory::i()->containsOptionSeriesId(11));

    QSignalSpy changed(VolatCoeffBlackDirectory::i(), &VolatCoeffBlackDirectory::dataChanged);
    apply(R"({"table":"k3.volat_coeff_black","ops":[{"update":{"option_series_id":10,"a":40}}]})");
    EXPECT_EQ(changed.count(), 1);
    ASSERT_TRUE(VolatCoeffBlackDirectory::i()->volatCoeffsById(10, p));
    EXPECT_EQ(p.a, 40.0);
}

TEST_F(Volatility, PremiumBoundsKeepStockFive)
{
    apply(R"({"table":"k3.volat","ops":[
        {"insert":{"stock_id":1,"board_id":14,"sec_id":"77","isin_id":500,"sess_id":3,"up_prem":"12.5","down_prem":"1.25"}},
        {"insert":{"stock_id":1,"board_id":14,"sec_id":"77","isin_id":500,"sess_id":4,"up_prem":"13","down_prem":"1"}}]})");
    VolatDirectory* v = VolatDirectory::i();
    EXPECT_EQ(v->recordById(1, 14, 77, 3).data("up_prem").toDouble(), 12.5);
    EXPECT_EQ(v->recordById(1, 14, 77, 4).data("down_prem").toDouble(), 1.0);
    EXPECT_TRUE(v->recordById(5, 14, 77, 3).isEmpty());
    EXPECT_TRUE(v->recordById(1, 14, 77, 5).isEmpty());
    // Every batch is announced, whether or not it changed anything here.
    QSignalSpy changed(v, &VolatDirectory::dataChanged);
    apply(R"({"table":"k3.volat","ops":[{"insert":{"stock_id":2,"board_id":1,"sec_id":"1","sess_id":1}}]})");
    apply(R"({"table":"k3.volat","ops":[]})");
    EXPECT_EQ(changed.count(), 2);
    EXPECT_FALSE(v->recordById(2, 1, 1, 1).isEmpty());
}

TEST_F(Volatility, SeriesByUnderlyingAndByExpiry)
{
    apply(QStringLiteral(R"({"table":"k3.option_series_params","ops":[%1,%2,%3]})")
              .arg(series(1, 100, "ALPHA-12", "2026-12-17"), series(2, 100, "ALPHA-03", "2027-03-18"),
                   series(3, 200, "BETA-12", "2026-12-17"))
              .toUtf8());
    OptionSeriesParamDirectory* o = OptionSeriesParamDirectory::i();   // built from the rows already there
    QDate const dec(2026, 12, 17), mar(2027, 3, 18);
    EXPECT_EQ(o->getSeriesParamData().keys(), (QList<QDate>{dec, mar}));
    EXPECT_EQ(idsOn(o, dec), (QStringList{"1", "3"}));
    // The last series added for an underlying is the one kept.
    EXPECT_EQ(o->getSeriesParam().value(100).option_series_id, 2);
    EXPECT_EQ(o->getSeriesParam().value(100).sec_name, "ALPHA-03");
    EXPECT_EQ(o->getSeriesParam().value(200).base_code, "BASE200");

    QSignalSpy changed(o, &OptionSeriesParamDirectory::dataChanged);
    // Removing either series of an underlying erases the underlying's entry;
    // the last series of a date leaves the date with an empty set.
    apply(R"({"table":"k3.option_series_params","ops":[{"delete":{"option_series_id":1}}]})");
    EXPECT_FALSE(o->getSeriesParam().contains(100));
    EXPECT_EQ(idsOn(o, dec), QStringList{"3"});
    apply(R"({"table":"k3.option_series_params","ops":[{"delete":{"option_series_id":2}}]})");
    ASSERT_TRUE(o->getSeriesParamData().contains(mar));
    EXPECT_TRUE(o->getSeriesParamData().value(mar).isEmpty());
    EXPECT_GE(changed.count(), 2);
}

// An update is a removal and an add of the row as it now is. Removing a row
// whose series is not in its date's set (renamed, or moved to another date
// since it was added) drops that whole date, with every other series in it.
TEST_F(Volatility, RemovingAnUnlistedSeriesDropsItsWholeDate)
{
    apply(QStringLiteral(R"({"table":"k3.option_series_params","ops":[%1,%2,%3]})")
              .arg(series(1, 100, "ALPHA-12", "2026-12-17"), series(3, 200, "BETA-12", "2026-12-17"),
                   series(4, 300, "GAMMA-03", "2027-03-18"))
              .toUtf8());
    OptionSeriesParamDirectory* o = OptionSeriesParamDirectory::i();
    QDate const dec(2026, 12, 17), mar(2027, 3, 18), later(2030, 1, 1);
    apply(R"({"table":"k3.option_series_params","ops":[{"update":{"option_series_id":1,"sec_name":"RENAMED"}}]})");
    EXPECT_EQ(idsOn(o, dec), QStringList{"1"});   // series 3 went with the date
    EXPECT_EQ(o->getSeriesParamData().value(dec).begin()->sec_name, "RENAMED");
    EXPECT_EQ(o->getSeriesParam().value(100).sec_name, "RENAMED");

    // Moved to a date never seen: that date is erased by the removal and made
    // again by the add; the old date keeps its stale entry.
    apply(R"({"table":"k3.option_series_params","ops":[{"update":{"option_series_id":4,"expiration_date":"2030-01-01 18:45:00.000"}}]})");
    EXPECT_EQ(idsOn(o, later), QStringList{"4"});
    EXPECT_EQ(idsOn(o, mar), QStringList{"4"});

    QSignalSpy changed(o, &OptionSeriesParamDirectory::dataChanged);
    apply(R"({"table":"k3.option_series_params","ops":[{"clear":true}]})");
    EXPECT_TRUE(o->getSeriesParamData().isEmpty());
    EXPECT_TRUE(o->getSeriesParam().isEmpty());
    EXPECT_GE(changed.count(), 1);
}

TEST_F(Volatility, SeriesDataCompareAndHashByAllFields)
{
    SeriesParamData a{QStringLiteral("N"), QStringLiteral("B"), 1, 12};
    SeriesParamData b{QStringLiteral("N"), QStringLiteral("B"), 11, 2};
    EXPECT_FALSE(a == b);   // the joined texts coincide: still two members
    QSet<SeriesParamData> set{a, b, a};
    EXPECT_EQ(set.size(), 2);
}
