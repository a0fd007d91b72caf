// Option calculations: the core's pricing engine against an independent
// closed-form calculator, and the security directory's cached volatility
// results, cold and warm, against the sum of the steps they take.
#include "market.h"

#include <securities.h>
#include <sessions.h>
#include <volatility.h>

#include <core/volat.h>
#include <database/database.h>

#include <benchmark/benchmark.h>
#include <cmath>
#include <vector>

#ifdef DIRECTORY_BENCH_QUANTLIB
#include <ql/pricingengines/blackcalculator.hpp>
#endif

namespace {

// A handful of options around the money, cycled so that nothing is folded.
struct EngineCase
{
    double F, K, sqrtT, sigma;
    bool put;
};
std::vector<EngineCase> engineCases()
{
    return {{101.5, 100, 0.5, 28.0, false}, {101.5, 95, 0.3, 31.0, true}, {2450, 2500, 0.8, 22.0, false},
            {99.2, 104, 0.2, 35.0, true},   {101.5, 110, 1.1, 26.0, false}, {57.3, 55, 0.6, 40.0, true},
            {3125, 3000, 0.4, 19.0, false}, {101.5, 100, 0.05, 30.0, true}};
}

void engineOurs(benchmark::State& state)
{
    std::vector<VolatInputParamsEx> inputs;
    for (EngineCase const& c : engineCases()) {
        VolatInputParamsEx in;
        in.underlyingPrice = c.F;
        in.strike = c.K;
        in.sqrtT = c.sqrtT;
        in.coeffs.a = c.sigma;
        in.volatMin = 5;
        in.volatMax = 150;
        in.isPut = c.put;
        in.priceStep = 0.01;
        inputs.push_back(in);
    }
    VolatOutputParamsEx out;
    std::size_t i = 0;
    for (auto _ : state) {
        calcVolatParamsEx(out, inputs[i++ & 7]);
        benchmark::DoNotOptimize(out);
    }
}
BENCHMARK(engineOurs)->Name("engine.ours.calcVolatParamsEx");

#ifdef DIRECTORY_BENCH_QUANTLIB
// The same price and sensitivities (delta, gamma, vega, theta per day) from
// the library's Black-76 calculator, given the volatility directly.
void enginePeer(benchmark::State& state)
{
    std::vector<EngineCase> cases = engineCases();
    std::size_t i = 0;
    for (auto _ : state) {
        EngineCase const& c = cases[i++ & 7];
        double const T = c.sqrtT * c.sqrtT;
        QuantLib::BlackCalculator calc(c.put ? QuantLib::Option::Put : QuantLib::Option::Call, c.K, c.F,
                                       c.sigma / 100.0 * c.sqrtT);
        double values[5] = {calc.value(), calc.deltaForward(), calc.gammaForward(), calc.vega(T) / 100.0,
                            calc.thetaPerDay(c.F, T)};
        benchmark::DoNotOptimize(values);
    }
}
BENCHMARK(enginePeer)->Name("engine.peer.quantlib_BlackCalculator");
#endif

// ---- getVolatResultBySecId over 1000 options of the loaded market -----------

// 1000 options that price (their underlying is there). In board order: the
// options of whole series, strike by strike, as an option board refreshes
// them (the generator numbers a series' options one after another). Shuffled:
// anywhere in the market, the worst case for the caches of the processor.
std::vector<long long> pickOptions(bool boardOrder)
{
    bench::ensureMarketLoaded();
    std::vector<bench::SecurityKey> keys = boardOrder ? bench::securityKeys() : bench::shuffledSecurityKeys();
    SecurityDirectory* dir = SecurityDirectory::i();
    std::vector<long long> ids;
    std::size_t const start = boardOrder ? keys.size() / 3 : 0;
    for (std::size_t k = start; k < keys.size() && ids.size() < 1000; ++k) {
        bench::SecurityKey const& key = keys[k];
        if (key.board != 14 || (key.stock != 1 && key.stock != 4)) continue;
        CalcVolatResult probe;
        if (dir->calcVolatBySecId(&probe, key.secId, 0)->age.isValid()) ids.push_back(key.secId);
    }
    return ids;
}

std::vector<long long> const& someOptions()
{
    static std::vector<long long> const ids = pickOptions(true);
    return ids;
}

std::vector<long long> const& shuffledOptions()
{
    static std::vector<long long> const ids = pickOptions(false);
    return ids;
}

void clearCaches(SecurityDirectory* dir)
{
    dir->volatCache(0).clear();
    dir->volatCache(1).clear();
}

void resultCold(benchmark::State& state, bool shuffled)
{
    std::vector<long long> const& ids = shuffled ? shuffledOptions() : someOptions();
    if (ids.size() < 1000) return state.SkipWithError("fewer than 1000 options");
    SecurityDirectory* dir = SecurityDirectory::i();
    for (auto _ : state) {
        state.PauseTiming();
        clearCaches(dir);
        state.ResumeTiming();
        for (long long id : ids) benchmark::DoNotOptimize(dir->getVolatResultBySecId(id, 0));
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK_CAPTURE(resultCold, board, false)->Name("volat_result.ours.cold")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(resultCold, shuffled, true)->Name("volat_result.info.cold_shuffled")->Unit(benchmark::kMicrosecond);

void resultWarm(benchmark::State& state)
{
    std::vector<long long> const& ids = someOptions();
    if (ids.size() < 1000) return state.SkipWithError("fewer than 1000 options");
    SecurityDirectory* dir = SecurityDirectory::i();
    clearCaches(dir);
    for (long long id : ids) dir->getVolatResultBySecId(id, 0);
    for (auto _ : state) {
        // Kept inside the second: a result older than that is recomputed.
        for (long long id : ids) benchmark::DoNotOptimize(dir->getVolatResultBySecId(id, 0));
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(resultWarm)->Name("volat_result.ours.warm")->Unit(benchmark::kMicrosecond)->MinTime(0.2);

// The parts of one cold result, each alone over the same 1000 options.
struct Gathered
{
    Record option;
    int stock, mainBoard, futIsin, series;
    VolatInputParamsEx in;
};

std::vector<Gathered> gather()
{
    std::vector<Gathered> all;
    SecurityDirectory* dir = SecurityDirectory::i();
    for (long long id : someOptions()) {
        Gathered g;
        g.option = dir->recordById(1, 14, id);
        if (g.option.isEmpty()) g.option = dir->recordById(4, 14, id);
        g.stock = g.option.data("stock_id").toInteger();
        g.mainBoard = g.option.data("main_board_id").toInteger();
        g.futIsin = g.option.data("fut_isin_id").toInteger();
        g.series = g.option.data("option_series_id").toInteger();
        Record under = dir->recordByIsinId(g.stock, g.mainBoard, g.futIsin);
        VolatCoeffBlackDirectory::i()->volatCoeffsById(g.series, g.in.coeffs);
        g.in.underlyingPrice = under.data("market_price").toDouble();
        g.in.strike = g.option.data("strike").toDouble();
        g.in.sqrtT = dir->getSqrtTByExpDate(g.option.data("expdate").toDatetime());
        g.in.volatMin = g.option.data("volat_min").toDouble();
        g.in.volatMax = g.option.data("volat_max").toDouble();
        g.in.priceStep = g.option.data("price_step").toDouble();
        all.push_back(g);
    }
    return all;
}

void partOption(benchmark::State& state)
{
    std::vector<long long> const& ids = someOptions();
    if (ids.size() < 1000) return state.SkipWithError("fewer than 1000 options");
    SecurityDirectory* dir = SecurityDirectory::i();
    for (auto _ : state)
        for (long long id : ids) {
            Record r = dir->recordById(1, 14, id);
            if (r.isEmpty()) r = dir->recordById(4, 14, id);
            benchmark::DoNotOptimize(r.row());
        }
}
BENCHMARK(partOption)->Name("volat_result.part.option_lookup")->Unit(benchmark::kMicrosecond);

void partUnderlying(benchmark::State& state)
{
    std::vector<Gathered> all = gather();
    SecurityDirectory* dir = SecurityDirectory::i();
    for (auto _ : state)
        for (Gathered const& g : all) benchmark::DoNotOptimize(dir->recordByIsinId(g.stock, g.mainBoard, g.futIsin).row());
}
BENCHMARK(partUnderlying)->Name("volat_result.part.underlying_lookup")->Unit(benchmark::kMicrosecond);

void partCoefficients(benchmark::State& state)
{
    std::vector<Gathered> all = gather();
    VolatCoeffBlackDirectory* coeffs = VolatCoeffBlackDirectory::i();
    for (auto _ : state)
        for (Gathered const& g : all) {
            VolatInputParams p;
            benchmark::DoNotOptimize(coeffs->volatCoeffsById(g.series, p));
            benchmark::DoNotOptimize(p);
        }
}
BENCHMARK(partCoefficients)->Name("volat_result.part.coefficients")->Unit(benchmark::kMicrosecond);

void partExchangeTime(benchmark::State& state)
{
    std::vector<long long> const& ids = someOptions();
    if (ids.size() < 1000) return state.SkipWithError("fewer than 1000 options");
    StockTimeDirectory* times = StockTimeDirectory::i();
    for (auto _ : state)
        for (std::size_t k = 0; k < ids.size(); ++k) benchmark::DoNotOptimize(times->correctedLocalTime(1));
}
BENCHMARK(partExchangeTime)->Name("volat_result.part.exchange_time")->Unit(benchmark::kMicrosecond);

void partCore(benchmark::State& state)
{
    std::vector<Gathered> all = gather();
    VolatOutputParamsEx out;
    for (auto _ : state)
        for (Gathered const& g : all) {
            calcVolatParamsEx(out, g.in);
            benchmark::DoNotOptimize(out);
        }
}
BENCHMARK(partCore)->Name("volat_result.part.core_call")->Unit(benchmark::kMicrosecond);

} // namespace
