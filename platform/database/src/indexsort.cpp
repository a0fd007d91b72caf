#include <database/index.h>
#include <database/table.h>

#include <QElapsedTimer>
#include <algorithm>
#include <cstdint>
#include <cstring>

IndexSort::IndexSort(Table* table) : IndexList(table) {}
IndexSort::~IndexSort() = default;

QList<int> IndexSort::sortColumns() const { return QList<int>(); }

namespace {
// Two-level bound: the first position from `from` whose item is not
// "before" the probe. Partitions are skipped by their last item
// (lastBefore(part)), then one partition is searched (itemBefore(part, k)).
template <class LastBefore, class ItemBefore>
int boundIn(PartitionList<Record> const& list, int from, LastBefore lastBefore, ItemBefore itemBefore, int* partOut,
            int* offsetOut)
{
    int parts = list.partitionCount();
    if (parts == 0 || from >= list.count()) {
        if (partOut) { *partOut = parts ? parts - 1 : 0; *offsetOut = parts ? list.partitionAt(parts - 1).count() : 0; }
        return list.count();
    }
    int lo = list.partitionOf(from < 0 ? 0 : from), hi = parts;
    while (lo < hi) {
        int mid = lo + (hi - lo) / 2;
        if (lastBefore(mid)) lo = mid + 1;
        else hi = mid;
    }
    if (lo == parts) {
        if (partOut) { *partOut = parts - 1; *offsetOut = list.partitionAt(parts - 1).count(); }
        return list.count();
    }
    int part = lo, base = list.partitionStart(part);
    int first = from > base ? from - base : 0, last = list.partitionAt(part).count();
    while (first < last) {
        int mid = first + (last - first) / 2;
        if (itemBefore(part, mid)) first = mid + 1;
        else last = mid;
    }
    if (partOut) { *partOut = part; *offsetOut = first; }
    return base + first;
}

// The same over records compared by `before(record)`.
template <class Before>
int boundByRecords(PartitionList<Record> const& list, int from, Before before, int* partOut, int* offsetOut)
{
    return boundIn(
        list, from, [&](int part) { return before(list.partitionAt(part).items.back()); },
        [&](int part, int k) { return before(list.partitionAt(part).items[std::size_t(k)]); }, partOut, offsetOut);
}

// Key copies are order-preserving byte strings of a width that is a
// multiple of 4: compared as big-endian words, without branches, so that a
// search issues its loads without waiting on mispredicted jumps. W == 0
// stands for a width known only at run time, compared by memcmp.
inline std::uint64_t word8(unsigned char const* p)
{
    std::uint64_t v;
    std::memcpy(&v, p, 8);
    return __builtin_bswap64(v);
}
inline std::uint32_t word4(unsigned char const* p)
{
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return __builtin_bswap32(v);
}
// a < b (Upper: a <= b) over W bytes.
template <int W, bool Upper>
inline bool keyBefore(unsigned char const* a, unsigned char const* b, std::size_t width)
{
    if constexpr (W == 0) {
        int c = std::memcmp(a, b, width);
        return Upper ? c <= 0 : c < 0;
    } else if constexpr (W == 4) {
        std::uint32_t x = word4(a), y = word4(b);
        return Upper ? x <= y : x < y;
    } else if constexpr (W == 8) {
        std::uint64_t x = word8(a), y = word8(b);
        return Upper ? x <= y : x < y;
    } else {
        constexpr int head = W % 8 ? 4 : 8;
        bool less, equal;
        if constexpr (head == 4) {
            std::uint32_t x = word4(a), y = word4(b);
            less = x < y;
            equal = x == y;
        } else {
            std::uint64_t x = word8(a), y = word8(b);
            less = x < y;
            equal = x == y;
        }
        return less | (equal & keyBefore<W - head, Upper>(a + head, b + head, width));
    }
}

// First of the `count` keys at `keys` not before the probe.
template <int W, bool Upper>
int lowerBoundIn(unsigned char const* keys, int count, unsigned char const* probe, std::size_t width)
{
    if (count <= 0) return 0;
    unsigned char const* base = keys;
    for (int n = count; n > 1;) {
        int half = n / 2;
        base = keyBefore<W, Upper>(base + std::size_t(half) * width, probe, width) ? base + std::size_t(half) * width : base;
        n -= half;
    }
    return int(std::size_t(base - keys) / width) + (keyBefore<W, Upper>(base, probe, width) ? 1 : 0);
}

// Write: the lines are fetched to be written (a row about to be referenced).
template <int Write = 0>
inline void prefetchRange(void const* from, std::size_t bytes)
{
    auto at = reinterpret_cast<std::uintptr_t>(from) & ~std::uintptr_t(63);
    for (auto end = reinterpret_cast<std::uintptr_t>(from) + bytes; at < end; at += 64)
        __builtin_prefetch(reinterpret_cast<void const*>(at), Write);
}

// The one search over key copies: the bound of a probe over the whole list
// (the first item not before it), in steps that each end by fetching what
// the next one reads, so that several searches can run in lockstep
// (findEach) and their waits on memory overlap.
template <int W, bool Upper>
struct KeyBound
{
    PartitionList<Record> const* list;
    unsigned char const* probe;
    std::size_t width;
    int part = 0;
    int first = 0;    // first offset of the block searched last
    bool past = false; // after every item

    // By the partitions' last keys; fetches the partition's fences.
    void partition()
    {
        int parts = list->partitionCount();
        part = lowerBoundIn<W, Upper>(list->lastKeyOf(0), parts, probe, width);
        past = part == parts;
        if (!past) {
            auto const& p = list->partitionAt(part);
            prefetchRange(p.fences.data(), p.fences.size());
        }
    }
    // By the fences; fetches the block's keys and its items.
    void block()
    {
        if (past) return;
        auto const& p = list->partitionAt(part);
        first = lowerBoundIn<W, Upper>(p.fences.data(), p.fenceCount(), probe, width) * PartitionList<Record>::blockSize;
        int n = std::min(PartitionList<Record>::blockSize, p.count() - first);
        prefetchRange(list->keyAt(part, first), std::size_t(n) * width);
        prefetchRange(p.items.data() + first, std::size_t(n) * sizeof(Record));
    }
    // Inside the block: the offset in the partition.
    int offset() const
    {
        if (past) return 0;
        int n = std::min(PartitionList<Record>::blockSize, list->partitionAt(part).count() - first);
        return first + lowerBoundIn<W, Upper>(list->keyAt(part, first), n, probe, width);
    }
};

// The bound from position `from` on: over a sorted list it is the bound
// over the whole list, or `from` where that lies before it.
template <int W, bool Upper>
int boundByKeys(PartitionList<Record> const& list, int from, unsigned char const* probe, int* partOut, int* offsetOut)
{
    int parts = list.partitionCount();
    int pos = list.count(), part = parts ? parts - 1 : 0, offset = parts ? list.partitionAt(part).count() : 0;
    if (parts && from < list.count()) {
        KeyBound<W, Upper> b{&list, probe, std::size_t(list.keyWidth())};
        b.partition();
        b.block();
        if (!b.past) {
            part = b.part;
            offset = b.offset();
            pos = list.partitionStart(part) + offset;
        }
        if (pos < from) {
            pos = from;
            part = list.partitionOf(from);
            offset = from - list.partitionStart(part);
        }
    }
    if (partOut) { *partOut = part; *offsetOut = offset; }
    return pos;
}

template <bool Upper>
int boundByKeys(PartitionList<Record> const& list, int from, unsigned char const* probe, int* partOut, int* offsetOut)
{
    switch (list.keyWidth()) {
    case 4: return boundByKeys<4, Upper>(list, from, probe, partOut, offsetOut);
    case 8: return boundByKeys<8, Upper>(list, from, probe, partOut, offsetOut);
    case 12: return boundByKeys<12, Upper>(list, from, probe, partOut, offsetOut);
    case 16: return boundByKeys<16, Upper>(list, from, probe, partOut, offsetOut);
    case 20: return boundByKeys<20, Upper>(list, from, probe, partOut, offsetOut);
    case 24: return boundByKeys<24, Upper>(list, from, probe, partOut, offsetOut);
    default: return boundByKeys<0, Upper>(list, from, probe, partOut, offsetOut);
    }
}

// Finds a group of keys at a time, the steps of their searches in lockstep:
// each step issues the group's loads together, so that their cache misses
// overlap instead of following one another. Found records are referenced
// one group later, after their rows were prefetched (taking a reference
// writes to the row).
template <int W>
void findEachByKeys(PartitionList<Record> const& list, std::vector<Record const*> const& keys, std::vector<Record>& found)
{
    constexpr std::size_t group = 16;
    std::size_t const n = keys.size(), width = std::size_t(list.keyWidth());
    if (list.partitionCount() == 0) return;
    std::vector<unsigned char> probes(group * width);
    KeyBound<W, false> search[group];
    Record const* held[2][group] = {};
    for (std::size_t g = 0, round = 0; g < n + group; g += group, ++round) {
        std::size_t count = g < n ? std::min(group, n - g) : 0;
        Record const** mine = held[round % 2];
        for (std::size_t k = 0; k < count; ++k) {
            list.extractKey(*keys[g + k], probes.data() + k * width);
            search[k] = KeyBound<W, false>{&list, probes.data() + k * width, width};
            search[k].partition();
        }
        for (std::size_t k = 0; k < count; ++k) search[k].block();
        for (std::size_t k = 0; k < count; ++k) {
            mine[k] = nullptr;
            if (search[k].past) continue;
            int offset = search[k].offset();
            auto const& items = list.partitionAt(search[k].part).items;
            if (offset >= int(items.size()) || std::memcmp(list.keyAt(search[k].part, offset), search[k].probe, width) != 0) continue;
            mine[k] = &items[std::size_t(offset)];
            __builtin_prefetch(mine[k]->row(), 1);
        }
        // The previous group's rows have had this group's searches to arrive.
        if (round > 0) {
            Record const** theirs = held[(round + 1) % 2];
            std::size_t prev = g - group;
            for (std::size_t k = 0; k < group && prev + k < n; ++k)
                if (theirs[k]) found[prev + k] = *theirs[k];
        }
    }
}
} // namespace

void IndexSort::keepKeyCopies(int width, PartitionList<Record>::KeyExtract extract, void const* owner)
{
    if (width <= 0 || width > maxKeyCopyWidth || width % 4 || !extract) return;
    std::unique_lock<std::shared_mutex> lock(m_lock);
    m_records.keepKeys(width, extract, owner);
}

// Upper: the first position whose record sorts after `record`; otherwise
// the first that does not sort before it.
template <bool Upper>
int IndexSort::boundLocked(Record const& record, int from, int* part, int* offset) const
{
    if (m_records.keyWidth()) {
        unsigned char probe[maxKeyCopyWidth];
        m_records.extractKey(record, probe);
        return boundByKeys<Upper>(m_records, from, probe, part, offset);
    }
    auto before = [&](Record const& r) {
        int c = compare(r, record);
        return Upper ? c <= 0 : c < 0;
    };
    return boundByRecords(m_records, from, before, part, offset);
}

int IndexSort::searchKeyCopyLocked(unsigned char const* probe, int after, Record* found) const
{
    int low = after < 0 ? 0 : after + 1;
    if (low >= m_records.count()) return -1;
    int part = 0, offset = 0;
    int pos = boundByKeys<false>(m_records, low, probe, &part, &offset);
    if (pos >= m_records.count()) return -1;
    if (std::memcmp(m_records.keyAt(part, offset), probe, std::size_t(m_records.keyWidth())) != 0) return -1;
    if (found) {
        // Taking the reference writes the row's first line, an atomic that
        // later loads cannot pass: fetch the whole row first, so that the
        // caller's reads of its columns wait on memory together with it.
        Record const& item = m_records.partitionAt(part).items[std::size_t(offset)];
        if (m_table) prefetchRange<1>(item.row(), std::size_t(m_table->rowSize()));
        *found = item;
    }
    return pos;
}

int IndexSort::lowerBoundLocked(Record const& key, int from, int* part, int* offset) const
{
    return boundLocked<false>(key, from < 0 ? 0 : from, part, offset);
}

int IndexSort::upperBoundLocked(Record const& record, int* part, int* offset) const
{
    return boundLocked<true>(record, 0, part, offset);
}

int IndexSort::positionOfLocked(Record const& record) const
{
    int part = 0, offset = 0;
    int pos = lowerBoundLocked(record, 0, &part, &offset);
    // Scan the run of equal keys for this very row.
    for (auto it = m_records.iteratorAt(pos); it != m_records.end(); ++it, ++pos) {
        if (*it == record) return pos;
        if (compare(*it, record) != 0) break;
    }
    return -1;
}

void IndexSort::insertSortedLocked(Record const& record)
{
    int part = 0, offset = 0;
    upperBoundLocked(record, &part, &offset);
    m_records.insertAt(part, offset, record);
}

void IndexSort::add(Record const& record)
{
    std::unique_lock<std::shared_mutex> lock(m_lock);
    insertSortedLocked(record);
}

void IndexSort::sortAndMerge(std::vector<Record>&& added)
{
    auto less = [this](Record const& a, Record const& b) { return compare(a, b) < 0; };
    std::stable_sort(added.begin(), added.end(), less);
    std::unique_lock<std::shared_mutex> lock(m_lock);
    if (added.size() * 16 < std::size_t(m_records.count())) {
        for (Record const& r : added) insertSortedLocked(r);
        return;
    }
    if (!m_records.keyWidth()) {
        std::vector<Record> old = m_records.takeAll();
        std::vector<Record> merged;
        merged.reserve(old.size() + added.size());
        std::merge(std::make_move_iterator(old.begin()), std::make_move_iterator(old.end()),
                   std::make_move_iterator(added.begin()), std::make_move_iterator(added.end()),
                   std::back_inserter(merged), less);
        m_records.assign(std::move(merged));
        return;
    }
    // Merged by their key copies, which travel with them: the rows already
    // in the index are not read again.
    std::size_t w = std::size_t(m_records.keyWidth());
    std::vector<unsigned char> oldKeys;
    std::vector<Record> old = m_records.takeAll(&oldKeys);
    std::vector<unsigned char> addedKeys(added.size() * w);
    for (std::size_t k = 0; k < added.size(); ++k) m_records.extractKey(added[k], addedKeys.data() + k * w);
    std::vector<Record> merged;
    std::vector<unsigned char> mergedKeys;
    merged.reserve(old.size() + added.size());
    mergedKeys.reserve(oldKeys.size() + addedKeys.size());
    std::size_t i = 0, j = 0;
    auto take = [&](std::vector<Record>& from, std::vector<unsigned char> const& keys, std::size_t& k) {
        merged.push_back(std::move(from[k]));
        mergedKeys.insert(mergedKeys.end(), keys.begin() + std::ptrdiff_t(k * w), keys.begin() + std::ptrdiff_t((k + 1) * w));
        ++k;
    };
    while (i < old.size() && j < added.size()) {
        // Equal keys: the record already in the index stays first.
        if (std::memcmp(addedKeys.data() + j * w, oldKeys.data() + i * w, w) < 0) take(added, addedKeys, j);
        else take(old, oldKeys, i);
    }
    while (i < old.size()) take(old, oldKeys, i);
    while (j < added.size()) take(added, addedKeys, j);
    m_records.assign(std::move(merged), &mergedKeys);
}

void IndexSort::build()
{
    // The master index is where the rows live: it can only be resorted.
    if (m_table && static_cast<IndexSort const*>(m_table->masterIndex()) == this) {
        resort();
        return;
    }
    std::vector<Record> all;
    if (m_table && m_table->masterIndex()) {
        IndexList const* master = m_table->masterIndex();
        std::shared_lock<std::shared_mutex> masterLock(master->structureLock());
        all.reserve(std::size_t(master->records().count()));
        for (auto it = master->records().begin(); it != master->records().end(); ++it)
            if (filter(*it)) all.push_back(*it);
    }
    {
        std::unique_lock<std::shared_mutex> lock(m_lock);
        m_records.clear();
    }
    sortAndMerge(std::move(all));
}

void IndexSort::resort()
{
    std::unique_lock<std::shared_mutex> lock(m_lock);
    std::vector<Record> all = m_records.takeAll();
    std::stable_sort(all.begin(), all.end(), [this](Record const& a, Record const& b) { return compare(a, b) < 0; });
    m_records.assign(std::move(all));
}

void IndexSort::preprocess(QList<Record> const&, QList<Record> const& updated, int firstColumn, int lastColumn,
                           QList<Record> const& deleted, QList<Record> const&)
{
    // Rows are about to change in place, which may break the order until
    // process() runs: find everything that will move or leave now.
    m_pendingMoves.clear();
    m_pendingRemovals.clear();
    m_prepared = true;
    QList<int> cols = sortColumns();
    bool touches = !updated.isEmpty() && (cols.isEmpty() || firstColumn < 0 || lastColumn < 0);
    for (int c : cols)
        if (c >= firstColumn && c <= lastColumn) touches = true;
    std::shared_lock<std::shared_mutex> lock(m_lock);
    for (Record const& r : deleted) {
        int pos = positionOfLocked(r);
        if (pos >= 0) m_pendingRemovals.push_back(pos);
    }
    if (!touches) return;
    for (Record const& r : updated) {
        int pos = positionOfLocked(r);
        if (pos >= 0) m_pendingMoves.push_back(pos);
    }
}

void IndexSort::process(QList<Record> const& inserted, QList<Record> const&, int, int, QList<Record> const& deleted)
{
    QElapsedTimer timer;
    timer.start();
    RangeSet<int> ranges;
    std::vector<Record> toInsert;
    {
        std::shared_lock<std::shared_mutex> lock(m_lock);
        if (m_prepared) {
            for (int pos : m_pendingRemovals) ranges.add(pos);
        } else {
            for (Record const& r : deleted) {
                int pos = positionOfLocked(r);
                if (pos >= 0) ranges.add(pos);
            }
        }
        for (int pos : m_pendingMoves) {
            ranges.add(pos);
            toInsert.push_back(m_records.at(pos));
        }
    }
    m_pendingMoves.clear();
    m_pendingRemovals.clear();
    m_prepared = false;
    if (!ranges.isEmpty()) removeRanges(ranges);
    toInsert.reserve(toInsert.size() + std::size_t(inserted.size()));
    for (Record const& r : inserted)
        if (filter(r)) toInsert.push_back(r);
    if (!toInsert.empty()) sortAndMerge(std::move(toInsert));
    m_nsecsElapsedTotal += timer.nsecsElapsed();
}

void IndexSort::update(Record const& record, int, int, int position)
{
    // The row may already hold its new key: find it by identity.
    std::unique_lock<std::shared_mutex> lock(m_lock);
    if (!(position >= 0 && position < m_records.count() && m_records.at(position) == record)) {
        position = -1;
        int i = 0;
        for (auto it = m_records.begin(); it != m_records.end(); ++it, ++i)
            if (*it == record) { position = i; break; }
    }
    if (position >= 0) m_records.removeAt(position);
    if (filter(record)) insertSortedLocked(record);
}

int IndexSort::indexOf(Record const& record) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    return positionOfLocked(record);
}

void IndexSort::move(int from, int to, int n) { IndexList::move(from, to, n); }

int IndexSort::findLocked(Record const& key, int after, Record* found) const
{
    if (m_records.keyWidth()) {
        unsigned char probe[maxKeyCopyWidth];
        m_records.extractKey(key, probe);
        return searchKeyCopyLocked(probe, after, found);
    }
    int pos = lowerBoundLocked(key, after + 1, nullptr, nullptr);
    Record const& r = m_records.at(pos);
    if (r.isEmpty() || compare(r, key) != 0) return -1;
    if (found) *found = r;
    return pos;
}

Record IndexSort::find(Record const& key, int from) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    Record found;
    findLocked(key, from, &found);
    return found;
}

int IndexSort::search(Record const& key, int from) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    return findLocked(key, from, nullptr);
}

std::vector<Record> IndexSort::findEach(std::vector<Record const*> const& keys) const
{
    std::vector<Record> found(keys.size());
    std::shared_lock<std::shared_mutex> lock(m_lock);
    switch (m_records.keyWidth()) {
    case 0:
        for (std::size_t i = 0; i < keys.size(); ++i) findLocked(*keys[i], -1, &found[i]);
        break;
    case 4: findEachByKeys<4>(m_records, keys, found); break;
    case 8: findEachByKeys<8>(m_records, keys, found); break;
    case 12: findEachByKeys<12>(m_records, keys, found); break;
    case 16: findEachByKeys<16>(m_records, keys, found); break;
    case 20: findEachByKeys<20>(m_records, keys, found); break;
    case 24: findEachByKeys<24>(m_records, keys, found); break;
    default: findEachByKeys<0>(m_records, keys, found); break;
    }
    return found;
}

int IndexSort::searchLast(Record const& key, int from) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    int end = boundLocked<true>(key, from + 1 < 0 ? 0 : from + 1, nullptr, nullptr);
    if (end - 1 <= from) return -1;
    Record const& r = m_records.at(end - 1);
    return compare(r, key) == 0 ? end - 1 : -1;
}

int IndexSort::searchFull(Record const& record, int from) const
{
    std::shared_lock<std::shared_mutex> lock(m_lock);
    int pos = positionOfLocked(record);
    return pos > from ? pos : -1;
}
