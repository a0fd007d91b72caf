#include "market.h"

#include <gtest/gtest.h>

#include <QByteArray>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

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

} // namespace

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
