#pragma once
#include "rangeset.h"
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

// A sequence kept as a list of partitions (blocks), so that inserting or
// removing in the middle moves at most one block. Positions are found by
// walking the partitions and subtracting their counts.
//
// Key copies: an owner that sorts the items by a fixed-width key may ask the
// list to keep a copy of each item's key beside it (keepKeys). A search then
// reads key copies instead of following every item to its row, in three
// steps that each wait on memory once: the array of each partition's last
// key (small, stays in cache), the partition's fences (the last key of each
// block of blockSize keys, read together), then one block of keys (read
// together with its items). The copies and fences move with their items
// through every change the list makes, and a change re-lays out only the
// partition it touched; an item whose key changes in place must be taken
// out and put back by its owner.
template <class T>
class PartitionList
{
public:
    static constexpr int partitionCapacity = 512;
    static constexpr int blockSize = 16;
    // Writes the key of an item into `width` bytes.
    using KeyExtract = void (*)(void const* owner, T const& item, unsigned char* out);

    struct Partition {
        std::vector<T> items;
        std::vector<unsigned char> keys;   // width bytes per item, when kept
        std::vector<unsigned char> fences; // the last key of each block of blockSize items
        int count() const { return int(items.size()); }
        int fenceCount() const { return (count() + blockSize - 1) / blockSize; }
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

        T const& operator*() const { return m_list->m_parts[m_part].items[m_pos]; }
        T const* operator->() const { return &**this; }
        const_iterator& operator++()
        {
            if (++m_pos >= m_list->m_parts[m_part].count()) { ++m_part; m_pos = 0; }
            return *this;
        }
        const_iterator operator++(int) { const_iterator c = *this; ++*this; return c; }
        const_iterator& operator+=(difference_type n)
        {
            if (n < 0) return *this = m_list->iteratorAt(position() + int(n));
            int parts = int(m_list->m_parts.size());
            while (n > 0 && m_part < parts) {
                int left = m_list->m_parts[m_part].count() - m_pos;
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
    Partition const& partitionAt(int i) const { return m_parts[std::size_t(i)]; }

    // Keeps a key copy of `width` bytes per item from now on (0 stops).
    void keepKeys(int width, KeyExtract extract, void const* owner)
    {
        m_width = extract ? width : 0;
        m_extract = extract;
        m_owner = owner;
        m_lastKeys.clear();
        for (std::size_t p = 0; p < m_parts.size(); ++p) {
            Partition& part = m_parts[p];
            part.keys.assign(std::size_t(part.count()) * std::size_t(m_width), 0);
            for (int k = 0; k < part.count(); ++k) extractAt(part, k);
            layOut(part, 0);
            pushLastKey(p);
        }
    }
    int keyWidth() const { return m_width; }
    // The key copy of item `offset` of partition `part`, and of its last item.
    unsigned char const* keyAt(int part, int offset) const { return m_parts[std::size_t(part)].keys.data() + std::size_t(offset) * std::size_t(m_width); }
    unsigned char const* lastKeyOf(int part) const { return m_lastKeys.data() + std::size_t(part) * std::size_t(m_width); }
    // The last key of block `block` of partition `part`.
    unsigned char const* fenceOf(int part, int block) const { return m_parts[std::size_t(part)].fences.data() + std::size_t(block) * std::size_t(m_width); }
    // Writes an item's key as the list would keep it (for probes).
    void extractKey(T const& item, unsigned char* out) const { m_extract(m_owner, item, out); }

    // A position past the end (or negative) yields one shared empty value.
    T const& at(int i) const
    {
        if (i < 0 || i >= m_count) return empty();
        int part = partitionOf(i);
        return m_parts[std::size_t(part)].items[std::size_t(i - m_starts[std::size_t(part)])];
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
        if (i >= m_count) { int part = int(m_parts.size()) - 1; insertAt(part, m_parts[std::size_t(part)].count(), std::move(value)); return; }
        if (i < 0) i = 0;
        int part = partitionOf(i);
        insertAt(part, i - m_starts[std::size_t(part)], std::move(value));
    }
    void append(T value) { insert(m_count, std::move(value)); }
    // Inserts into a known partition at a known offset (from a two-level search).
    void insertAt(int part, int offset, T value)
    {
        if (m_parts.empty()) {
            m_parts.emplace_back();
            m_starts.push_back(0);
            if (m_width) m_lastKeys.resize(std::size_t(m_width));
            part = 0;
            offset = 0;
        }
        Partition& p = m_parts[std::size_t(part)];
        p.items.insert(p.items.begin() + offset, std::move(value));
        if (m_width) {
            p.keys.insert(p.keys.begin() + std::ptrdiff_t(offset) * m_width, std::size_t(m_width), 0);
            extractAt(p, offset);
            layOut(p, offset);
            if (offset == p.count() - 1) setLastKey(std::size_t(part));
        }
        ++m_count;
        for (std::size_t k = std::size_t(part) + 1; k < m_starts.size(); ++k) ++m_starts[k];
        if (p.items.size() >= std::size_t(2 * partitionCapacity)) split(part);
    }
    void removeAt(int i)
    {
        if (i < 0 || i >= m_count) return;
        auto it = iteratorAt(i);
        removeAt(it.partition(), it.offset());
    }
    void removeAt(int part, int offset)
    {
        Partition& p = m_parts[std::size_t(part)];
        p.items.erase(p.items.begin() + offset);
        if (m_width) {
            auto at = p.keys.begin() + std::ptrdiff_t(offset) * m_width;
            p.keys.erase(at, at + m_width);
        }
        --m_count;
        for (std::size_t k = std::size_t(part) + 1; k < m_starts.size(); ++k) --m_starts[k];
        if (p.items.empty()) {
            m_parts.erase(m_parts.begin() + part);
            m_starts.erase(m_starts.begin() + part);
            if (m_width) eraseLastKey(std::size_t(part));
        } else if (m_width) {
            layOut(p, offset);
            if (offset == p.count()) setLastKey(std::size_t(part));
        }
    }
    void replaceAt(int part, int offset, T value)
    {
        Partition& p = m_parts[std::size_t(part)];
        p.items[std::size_t(offset)] = std::move(value);
        if (m_width) {
            extractAt(p, offset);
            layOut(p, offset);
            if (offset == p.count() - 1) setLastKey(std::size_t(part));
        }
    }

    // Removes the items at the positions in `ranges`. Only the partitions
    // that lose items are rewritten; key copies move with their items.
    void removeRanges(RangeSet<int> const& ranges)
    {
        if (ranges.isEmpty() || m_parts.empty()) return;
        auto r = ranges.begin();
        std::size_t w = std::size_t(m_width);
        for (std::size_t pi = 0; pi < m_parts.size() && r != ranges.end(); ++pi) {
            Partition& p = m_parts[pi];
            int start = m_starts[pi], stop = start + p.count();
            while (r != ranges.end() && r->second < start) ++r;
            if (r == ranges.end() || r->first >= stop) continue;
            int kept = 0;
            for (int k = 0; k < p.count(); ++k) {
                int pos = start + k;
                while (r != ranges.end() && r->second < pos) ++r;
                if (r != ranges.end() && pos >= r->first) continue;
                if (kept != k) {
                    p.items[std::size_t(kept)] = std::move(p.items[std::size_t(k)]);
                    if (w) std::memmove(p.keys.data() + std::size_t(kept) * w, p.keys.data() + std::size_t(k) * w, w);
                }
                ++kept;
            }
            p.items.resize(std::size_t(kept));
            p.keys.resize(std::size_t(kept) * w);
            if (w) layOut(p, 0);
        }
        // Drop emptied partitions; recount the starts and last keys.
        std::size_t out = 0;
        int pos = 0;
        for (std::size_t pi = 0; pi < m_parts.size(); ++pi) {
            if (m_parts[pi].items.empty()) continue;
            if (out != pi) m_parts[out] = std::move(m_parts[pi]);
            m_starts[out] = pos;
            pos += m_parts[out].count();
            ++out;
        }
        m_parts.resize(out);
        m_starts.resize(out);
        m_count = pos;
        rebuildLastKeys();
    }

    void clear() { m_parts.clear(); m_starts.clear(); m_lastKeys.clear(); m_count = 0; }

    // Replaces the content with `items`, packed into full partitions. Keys,
    // when given, are the items' key copies in the same order; otherwise
    // they are taken from the items.
    void assign(std::vector<T>&& items, std::vector<unsigned char> const* keys = nullptr)
    {
        m_parts.clear();
        m_starts.clear();
        m_count = int(items.size());
        std::size_t n = items.size(), w = std::size_t(m_width);
        for (std::size_t start = 0; start < n; start += partitionCapacity) {
            std::size_t stop = std::min(n, start + std::size_t(partitionCapacity));
            m_parts.emplace_back();
            Partition& p = m_parts.back();
            p.items.reserve(stop - start);
            for (std::size_t k = start; k < stop; ++k) p.items.push_back(std::move(items[k]));
            if (w && keys) {
                p.keys.assign(keys->begin() + std::ptrdiff_t(start * w), keys->begin() + std::ptrdiff_t(stop * w));
            } else if (w) {
                p.keys.resize((stop - start) * w);
                for (int k = 0; k < p.count(); ++k) extractAt(p, k);
            }
            if (w) layOut(p, 0);
            m_starts.push_back(int(start));
        }
        rebuildLastKeys();
    }
    // Moves every item out (and, when asked and kept, their key copies).
    std::vector<T> takeAll(std::vector<unsigned char>* keys = nullptr)
    {
        std::vector<T> all;
        all.reserve(std::size_t(m_count));
        if (keys) keys->clear();
        if (keys && m_width) keys->reserve(std::size_t(m_count) * std::size_t(m_width));
        for (auto& p : m_parts) {
            for (auto& item : p.items) all.push_back(std::move(item));
            if (keys && m_width) keys->insert(keys->end(), p.keys.begin(), p.keys.end());
        }
        clear();
        return all;
    }

private:
    void extractAt(Partition& p, int offset)
    {
        m_extract(m_owner, p.items[std::size_t(offset)], p.keys.data() + std::size_t(offset) * std::size_t(m_width));
    }
    // Refreshes the fences of the blocks from the one holding `offset` on.
    void layOut(Partition& p, int offset)
    {
        std::size_t w = std::size_t(m_width), n = std::size_t(p.count());
        std::size_t fences = (n + blockSize - 1) / blockSize;
        p.fences.resize(fences * w);
        for (std::size_t b = std::size_t(offset) / blockSize; b < fences; ++b) {
            std::size_t last = std::min(n, (b + 1) * blockSize) - 1;
            std::memcpy(p.fences.data() + b * w, p.keys.data() + last * w, w);
        }
    }
    void setLastKey(std::size_t part)
    {
        Partition const& p = m_parts[part];
        std::memcpy(m_lastKeys.data() + part * std::size_t(m_width),
                    p.keys.data() + std::size_t(p.count() - 1) * std::size_t(m_width), std::size_t(m_width));
    }
    void pushLastKey(std::size_t part)
    {
        m_lastKeys.resize((part + 1) * std::size_t(m_width));
        setLastKey(part);
    }
    void eraseLastKey(std::size_t part)
    {
        auto at = m_lastKeys.begin() + std::ptrdiff_t(part) * m_width;
        m_lastKeys.erase(at, at + m_width);
    }
    void rebuildLastKeys()
    {
        m_lastKeys.clear();
        if (!m_width) return;
        m_lastKeys.reserve(m_parts.size() * std::size_t(m_width));
        for (std::size_t p = 0; p < m_parts.size(); ++p) pushLastKey(p);
    }

    void split(int part)
    {
        // The new partition first: inserting it moves the headers.
        m_parts.emplace(m_parts.begin() + part + 1);
        Partition& head = m_parts[std::size_t(part)];
        Partition& tail = m_parts[std::size_t(part) + 1];
        tail.items.reserve(std::size_t(partitionCapacity) * 2);
        auto mid = head.items.begin() + partitionCapacity;
        for (auto it = mid; it != head.items.end(); ++it) tail.items.push_back(std::move(*it));
        head.items.erase(mid, head.items.end());
        // Appends go to the tail: the head would otherwise keep twice the
        // room it holds for as long as it lives.
        head.items.shrink_to_fit();
        if (m_width) {
            auto keyMid = head.keys.begin() + std::ptrdiff_t(partitionCapacity) * m_width;
            tail.keys.reserve(std::size_t(partitionCapacity) * 2 * std::size_t(m_width));
            tail.keys.assign(keyMid, head.keys.end());
            head.keys.erase(keyMid, head.keys.end());
            head.keys.shrink_to_fit();
            layOut(head, 0);
            layOut(tail, 0);
            head.fences.shrink_to_fit();
        }
        m_starts.insert(m_starts.begin() + part + 1, m_starts[std::size_t(part)] + partitionCapacity);
        if (m_width) {
            m_lastKeys.insert(m_lastKeys.begin() + std::ptrdiff_t(part + 1) * m_width, std::size_t(m_width), 0);
            setLastKey(std::size_t(part));
            setLastKey(std::size_t(part) + 1);
        }
    }

    // Headers side by side: a search reads one after the partitions' last
    // keys, and finds it in cache rather than behind a pointer.
    std::vector<Partition> m_parts;
    std::vector<int> m_starts;   // position of each partition's first item
    int m_count = 0;
    int m_width = 0;                       // bytes of a key copy; 0: none kept
    KeyExtract m_extract = nullptr;
    void const* m_owner = nullptr;
    std::vector<unsigned char> m_lastKeys; // each partition's last key, in order
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
