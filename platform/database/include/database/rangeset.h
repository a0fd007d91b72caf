#pragma once
#include <algorithm>
#include <utility>
#include <vector>

// A set of integers kept as sorted, disjoint, non-adjacent closed ranges.
template <class T>
class RangeSet
{
public:
    using Range = std::pair<T, T>;   // first, last (inclusive)

    void add(T value) { add(value, value); }
    void add(T first, T last)
    {
        if (last < first) return;
        auto it = std::lower_bound(m_ranges.begin(), m_ranges.end(), first,
                                   [](Range const& r, T v) { return r.second + 1 < v; });
        auto end = it;
        while (end != m_ranges.end() && end->first <= last + 1) {
            first = std::min(first, end->first);
            last = std::max(last, end->second);
            ++end;
        }
        it = m_ranges.erase(it, end);
        m_ranges.insert(it, Range(first, last));
    }
    bool contains(T value) const
    {
        auto it = std::lower_bound(m_ranges.begin(), m_ranges.end(), value,
                                   [](Range const& r, T v) { return r.second < v; });
        return it != m_ranges.end() && it->first <= value;
    }
    bool isEmpty() const { return m_ranges.empty(); }
    void clear() { m_ranges.clear(); }
    T size() const { T n = 0; for (auto const& r : m_ranges) n += r.second - r.first + 1; return n; }
    std::vector<Range> const& ranges() const { return m_ranges; }
    typename std::vector<Range>::const_iterator begin() const { return m_ranges.begin(); }
    typename std::vector<Range>::const_iterator end() const { return m_ranges.end(); }

private:
    std::vector<Range> m_ranges;
};
