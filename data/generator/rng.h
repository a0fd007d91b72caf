#pragma once
#include <cstdint>

namespace gen {

// SplitMix64: a fixed integer generator, so that a seed gives the same market
// with every compiler and standard library (std:: distributions do not).
class Rng
{
public:
    explicit Rng(std::uint64_t seed) : m_state(seed) {}

    std::uint64_t next()
    {
        std::uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }

    // Uniform enough for test data: in [0, n), n > 0.
    std::int64_t below(std::int64_t n) { return std::int64_t(next() % std::uint64_t(n)); }
    // In [lo, hi].
    std::int64_t range(std::int64_t lo, std::int64_t hi) { return lo + below(hi - lo + 1); }
    // True with probability num/den.
    bool chance(int num, int den) { return below(den) < num; }

private:
    std::uint64_t m_state;
};

} // namespace gen
