#pragma once
#include "rangeset.h"
#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

// A sequence kept as a list of partitions (blocks), so that inserting or
// removing in the middle moves at most one block. Positions are found by
// walking the partitions and subtracting their counts.
template <class T>
class PartitionList
{
public:
    static constexpr int partitionCapacity = 512;

    struct Partition {
        std::vector<T> items;
        int count() const { return int(items.size()); }
    };

    class const_iterator
    {
    public:
        using iterator_category = std::random_access_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = T const*;
        using reference = T const&;

        const_iterator() = default;
        const_iterator(PartitionList const* list, int part, int pos) : m_list(list), m_part(part), m_pos(pos) {}

        T const& operator*() const { return m_list->m_parts[m_part]->items[m_pos]; }
        T const* operator->() const { return &**this; }
        const_iterator& operator++()
        {
            if (++m_pos >= m_list->m_parts[m_part]->count()) { ++m_part; m_pos = 0; }
            return *this;
        }
        const_iterator operator++(int) { const_iterator c = *this; ++*this; return c; }
        const_iterator& operator+=(difference_type n)
        {
            if (n < 0) return *this = m_list->iteratorAt(position() + int(n));
            int parts = int(m_list->m_parts.size());
            while (n > 0 && m_part < parts) {
                int left = m_list->m_parts[m_part]->count() - m_pos;
                if (n < left) { m_pos += int(n); return *this; }
                n -= left; ++m_part; m_pos = 0;
            }
            return *this;
        }
        const_iterator operator+(difference_type n) const { const_iterator c = *this; c += n; return c; }
        difference_type operator-(const_iterator const& o) const { return difference_type(position()) - o.position(); }
        bool operator==(const_iterator const& o) const { return m_part == o.m_part && m_pos == o.m_pos; }
        bool operator!=(const_iterator const& o) const { return !(*this == o); }
        int partition() const { return m_part; }
        int offset() const { return m_pos; }
        int position() const
        {
            if (m_part >= int(m_list->m_parts.size())) return m_list->m_count;
            return m_list->m_starts[std::size_t(m_part)] + m_pos;
        }

    private:
        PartitionList const* m_list = nullptr;
        int m_part = 0;
        int m_pos = 0;
    };

    PartitionList() = default;
    PartitionList(PartitionList const&) = delete;
    PartitionList& operator=(PartitionList const&) = delete;

    int count() const { return m_count; }
    bool isEmpty() const { return m_count == 0; }
    int partitionCount() const { return int(m_parts.size()); }
    Partition const& partitionAt(int i) const { return *m_parts[i]; }

    // A position past the end (or negative) yields one shared empty value.
    T const& at(int i) const
    {
        if (i < 0 || i >= m_count) return empty();
        int part = partitionOf(i);
        return m_parts[std::size_t(part)]->items[std::size_t(i - m_starts[std::size_t(part)])];
    }
    // Position of the first record of partition `part`.
    int partitionStart(int part) const { return m_starts[std::size_t(part)]; }
    // The partition that holds position i (0 <= i < count()).
    int partitionOf(int i) const
    {
        auto it = std::upper_bound(m_starts.begin(), m_starts.end(), i);
        return int(it - m_starts.begin()) - 1;
    }
    static T const& empty() { static T const e{}; return e; }

    const_iterator begin() const { return const_iterator(this, 0, 0); }
    const_iterator end() const { return const_iterator(this, int(m_parts.size()), 0); }
    const_iterator iteratorAt(int i) const
    {
        if (i >= m_count) return end();
        if (i < 0) i = 0;
        int part = partitionOf(i);
        return const_iterator(this, part, i - m_starts[std::size_t(part)]);
    }

    void insert(int i, T value)
    {
        if (m_parts.empty()) { insertAt(0, 0, std::move(value)); return; }
        if (i >= m_count) { int part = int(m_parts.size()) - 1; insertAt(part, m_parts[std::size_t(part)]->count(), std::move(value)); return; }
        if (i < 0) i = 0;
        int part = partitionOf(i);
        insertAt(part, i - m_starts[std::size_t(part)], std::move(value));
    }
    void append(T value) { insert(m_count, std::move(value)); }
    // Inserts into a known partition at a known offset (from a two-level search).
    void insertAt(int part, int offset, T value)
    {
        if (m_parts.empty()) { m_parts.emplace_back(new Partition); m_starts.push_back(0); part = 0; offset = 0; }
        auto& items = m_parts[std::size_t(part)]->items;
        items.insert(items.begin() + offset, std::move(value));
        ++m_count;
        for (std::size_t k = std::size_t(part) + 1; k < m_starts.size(); ++k) ++m_starts[k];
        if (items.size() >= std::size_t(2 * partitionCapacity)) split(part);
    }
    void removeAt(int i)
    {
        if (i < 0 || i >= m_count) return;
        auto it = iteratorAt(i);
        removeAt(it.partition(), it.offset());
    }
    void removeAt(int part, int offset)
    {
        auto& items = m_parts[std::size_t(part)]->items;
        items.erase(items.begin() + offset);
        --m_count;
        for (std::size_t k = std::size_t(part) + 1; k < m_starts.size(); ++k) --m_starts[k];
        if (items.empty()) {
            m_parts.erase(m_parts.begin() + part);
            m_starts.erase(m_starts.begin() + part);
        }
    }
    void replaceAt(int part, int offset, T value) { m_parts[part]->items[offset] = std::move(value); }

    void removeRanges(RangeSet<int> const& ranges)
    {
        if (ranges.isEmpty()) return;
        std::vector<T> kept;
        kept.reserve(std::size_t(m_count));
        int pos = 0;
        auto r = ranges.begin();
        for (auto& p : m_parts) {
            for (auto& item : p->items) {
                while (r != ranges.end() && r->second < pos) ++r;
                if (r == ranges.end() || pos < r->first) kept.push_back(std::move(item));
                ++pos;
            }
        }
        assign(std::move(kept));
    }

    void clear() { m_parts.clear(); m_starts.clear(); m_count = 0; }

    // Replaces the content with `items`, packed into full partitions.
    void assign(std::vector<T>&& items)
    {
        m_parts.clear();
        m_starts.clear();
        m_count = int(items.size());
        std::size_t n = items.size();
        for (std::size_t start = 0; start < n; start += partitionCapacity) {
            std::size_t stop = std::min(n, start + std::size_t(partitionCapacity));
            std::unique_ptr<Partition> p(new Partition);
            p->items.reserve(stop - start);
            for (std::size_t k = start; k < stop; ++k) p->items.push_back(std::move(items[k]));
            m_parts.push_back(std::move(p));
            m_starts.push_back(int(start));
        }
    }
    std::vector<T> takeAll()
    {
        std::vector<T> all;
        all.reserve(std::size_t(m_count));
        for (auto& p : m_parts)
            for (auto& item : p->items) all.push_back(std::move(item));
        clear();
        return all;
    }

private:
    void split(int part)
    {
        auto& items = m_parts[part]->items;
        std::unique_ptr<Partition> tail(new Partition);
        tail->items.reserve(std::size_t(partitionCapacity) * 2);
        auto mid = items.begin() + partitionCapacity;
        for (auto it = mid; it != items.end(); ++it) tail->items.push_back(std::move(*it));
        items.erase(mid, items.end());
        // Appends go to the tail: the head would otherwise keep twice the
        // room it holds for as long as it lives.
        items.shrink_to_fit();
        m_starts.insert(m_starts.begin() + part + 1, m_starts[std::size_t(part)] + partitionCapacity);
        m_parts.insert(m_parts.begin() + part + 1, std::move(tail));
    }

    std::vector<std::unique_ptr<Partition>> m_parts;
    std::vector<int> m_starts;   // position of each partition's first item
    int m_count = 0;
};

// Keys collected in owned partitions of 5000, used while ranges of records
// are removed from an index.
template <class Key>
class APartList
{
public:
    static constexpr int partitionSize = 5000;
    void append(Key key)
    {
        if (m_parts.empty() || int(m_parts.back()->size()) == partitionSize) {
            m_parts.emplace_back(new std::vector<Key>);
            m_parts.back()->reserve(partitionSize);
        }
        m_parts.back()->push_back(std::move(key));
        ++m_count;
    }
    int count() const { return m_count; }
    int partitionCount() const { return int(m_parts.size()); }
    template <class F> void forEach(F f) const
    {
        for (auto const& p : m_parts)
            for (auto const& k : *p) f(k);
    }

private:
    std::vector<std::unique_ptr<std::vector<Key>>> m_parts;
    int m_count = 0;
};
