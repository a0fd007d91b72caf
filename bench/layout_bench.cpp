// Search layouts over the securities' master index key copies, side by side:
// the list's own search (partitions' last keys, fences, one block), a
// static Eytzinger array, a static tree of 16-key nodes, and std::lower_bound
// over one flat sorted array (the baseline, and the oracle the others are
// checked against). Every row looks up the same probes, takes the index's
// read lock as a lookup in the library does, and ends by copying the found
// Record and reading its "isin_id", so that each figure is a whole lookup.
#include "market.h"
#include "process.h"

#include <cachedindex.h>

#include <database/database.h>
#include <database/index.h>

#include <QString>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <vector>

namespace {

using SecurityMaster = MasterIndexCached<MasterIndex_Struct<int, int, long long>>;
using SecuritySearch = MasterIndex_Struct<int, int, long long>;
using SecurityKeyStruct = MasterKey_Struct<int, int, long long>;
constexpr int keyWidth = MasterIndex_Struct<int, int, long long>::keyBytes;
static_assert(keyWidth == 16, "the layouts below are written for 16-byte key copies");

struct Key
{
    unsigned char bytes[keyWidth];
};

inline std::uint64_t word8(unsigned char const* p)
{
    std::uint64_t v;
    std::memcpy(&v, p, 8);
    return __builtin_bswap64(v);
}
// a < b as the key copies order (unsigned bytes), without branches.
inline bool before(unsigned char const* a, unsigned char const* b)
{
    std::uint64_t ah = word8(a), bh = word8(b);
    return (ah < bh) | ((ah == bh) & (word8(a + 8) < word8(b + 8)));
}
inline bool before(Key const& a, Key const& b) { return before(a.bytes, b.bytes); }

// The probe handed to the index's search as the key copy it already is.
struct CopyCompare
{
    static constexpr int storedWidth = keyWidth;
    PartitionList<Record> const* list;
    int operator()(Record const& record, Key const& key) const
    {
        unsigned char copy[keyWidth];
        list->extractKey(record, copy);
        return std::memcmp(copy, key.bytes, keyWidth);
    }
    void store(Key const& key, unsigned char* out) const { std::memcpy(out, key.bytes, keyWidth); }
};

// Key arrays read a cache line at a time: aligned to one.
struct FreeAligned
{
    void operator()(Key* p) const { std::free(p); }
};
using KeyArray = std::unique_ptr<Key[], FreeAligned>;
KeyArray alignedKeys(std::size_t n)
{
    std::size_t bytes = (n * sizeof(Key) + 63) / 64 * 64;
    return KeyArray(static_cast<Key*>(std::aligned_alloc(64, bytes ? bytes : 64)));
}

// By address: the lines ahead may lie past the array's end.
inline void prefetchLines(std::uintptr_t p, int lines)
{
    for (int k = 0; k < lines; ++k) __builtin_prefetch(reinterpret_cast<void const*>(p + std::uintptr_t(64 * k)));
}

// Slot 1 is the root, slots 2k and 2k+1 the children of k; slot 0 unused.
// Laid out by visiting the tree in order while reading the keys in order.
struct Eytzinger
{
    std::size_t n = 0;
    KeyArray laidOut;
    std::vector<int> positionOf;   // slot -> sorted position

    void build(PartitionList<Record> const& list)
    {
        n = std::size_t(list.count());
        laidOut = alignedKeys(n + 1);
        positionOf.assign(n + 1, -1);
        int part = 0, offset = 0, position = 0;
        // In order: leftmost descent, then the successor of each visited slot.
        std::size_t k = 1;
        while (2 * k <= n) k *= 2;
        for (std::size_t visited = 0; visited < n; ++visited) {
            if (offset == list.partitionAt(part).count()) { ++part; offset = 0; }
            std::memcpy(laidOut[k].bytes, list.keyAt(part, offset++), keyWidth);
            positionOf[k] = position++;
            if (2 * k + 1 <= n) {
                k = 2 * k + 1;
                while (2 * k <= n) k *= 2;
            } else {
                while (k & 1) k >>= 1;
                k >>= 1;
            }
        }
    }
    // The slot of the first key not before the probe; 0 if none.
    std::size_t bound(unsigned char const* probe) const
    {
        Key const* base = laidOut.get();
        std::size_t k = 1;
        while (k <= n) {
            // The 16 descendants four levels down: 256 bytes, four lines.
            prefetchLines(reinterpret_cast<std::uintptr_t>(base) + 16 * k * sizeof(Key), 4);
            k = 2 * k + (before(base[k].bytes, probe) ? 1 : 0);
        }
        return k >> __builtin_ffsll(static_cast<long long>(~k));
    }
    int position(unsigned char const* probe) const
    {
        std::size_t k = bound(probe);
        return k ? positionOf[k] : int(n);
    }
};

// A static tree of 16-key nodes (256 bytes, four lines): each key of an
// inner node is the last key of one child; the leaves are the keys in
// order, padded with the greatest key. Levels are stored root first.
struct STree
{
    static constexpr std::size_t fanout = 16;
    std::size_t n = 0;
    KeyArray keys;
    std::vector<std::size_t> levelStart;   // in keys, root level first
    std::vector<std::size_t> levelNodes;

    void build(Key const* sorted, std::size_t count)
    {
        n = count;
        std::vector<std::size_t> nodes{(n + fanout - 1) / fanout};
        if (!nodes[0]) nodes[0] = 1;
        while (nodes.back() > 1) nodes.push_back((nodes.back() + fanout - 1) / fanout);
        std::reverse(nodes.begin(), nodes.end());
        levelNodes = nodes;
        levelStart.assign(nodes.size(), 0);
        std::size_t total = 0;
        for (std::size_t l = 0; l < nodes.size(); ++l) { levelStart[l] = total; total += nodes[l] * fanout; }
        keys = alignedKeys(total);
        Key greatest;
        std::memset(greatest.bytes, 0xff, keyWidth);
        std::size_t leaf = nodes.size() - 1;
        Key* leaves = keys.get() + levelStart[leaf];
        std::memcpy(leaves, sorted, n * sizeof(Key));
        std::fill(leaves + n, leaves + nodes[leaf] * fanout, greatest);
        for (std::size_t l = leaf; l-- > 0;) {
            Key* level = keys.get() + levelStart[l];
            Key const* below = keys.get() + levelStart[l + 1];
            for (std::size_t i = 0; i < nodes[l] * fanout; ++i)
                level[i] = i < nodes[l + 1] ? below[i * fanout + fanout - 1] : greatest;
        }
    }
    // The position of the first key not before the probe (n if none);
    // atLeaf(first position of the leaf) runs as the leaf is fetched.
    template <class AtLeaf>
    int position(unsigned char const* probe, AtLeaf atLeaf) const
    {
        std::size_t node = 0, leaf = levelStart.size() - 1;
        for (std::size_t l = 0; l <= leaf; ++l) {
            Key const* at = keys.get() + levelStart[l] + node * fanout;
            prefetchLines(reinterpret_cast<std::uintptr_t>(at), 4);
            if (l == leaf) atLeaf(node * fanout);
            // The keys before the probe, by halving: four compares, not sixteen.
            std::size_t less = 0;
            for (std::size_t half = fanout / 2; half; half /= 2) less += before(at[less + half - 1].bytes, probe) ? half : 0;
            less += before(at[less].bytes, probe) ? 1 : 0;
            if (less == fanout) return int(n);   // after every key (the root only)
            node = node * fanout + less;
        }
        return int(std::min(node, n));
    }
    int position(unsigned char const* probe) const { return position(probe, [](std::size_t) {}); }
    bool holds(int position, unsigned char const* probe) const
    {
        return position < int(n) && std::memcmp(keys[levelStart.back() + std::size_t(position)].bytes, probe, keyWidth) == 0;
    }
};

int sortedPosition(std::vector<Key> const& sorted, unsigned char const* probe)
{
    Key p;
    std::memcpy(p.bytes, probe, keyWidth);
    auto it = std::lower_bound(sorted.begin(), sorted.end(), p, [](Key const& a, Key const& b) { return before(a, b); });
    return int(it - sorted.begin());
}

// Everything the rows share, built once per process from the market.
struct Layouts
{
    QString error;
    SecuritySearch const* index = nullptr;   // the search without the cache in front
    int isin = -1;
    int rowLines = 1;              // a row's cache lines
    std::vector<Key> probes;       // the shuffled keys as key copies
    std::vector<Key> sorted;       // every key copy, in index order
    std::vector<Record> records;   // every item, in index order
    std::vector<Record> bySlot;    // the same, in the Eytzinger array's order
    Eytzinger eytzinger;
    STree stree;
    double eytzingerRebuildMs = 0;
    double streeRebuildMs = 0;
    double sortedRebuildMs = 0;
};

// The found item, its row fetched whole first, as the library's own search
// does: taking the reference is an atomic that the row's later reads cannot
// pass, so without it each layout would pay two row misses in a row.
Record taken(Layouts const& l, Record const& item)
{
    prefetchLines(reinterpret_cast<std::uintptr_t>(item.row()), l.rowLines);
    return item;
}

// The median of three runs of `build`, in milliseconds.
template <class F>
double medianBuildMs(F build)
{
    double ms[3];
    for (double& m : ms) {
        qint64 started = bench::monotonicNs();
        build();
        m = double(bench::monotonicNs() - started) / 1e6;
    }
    std::sort(ms, ms + 3);
    return ms[1];
}

// Checks that each layout gives the position the flat sorted array gives,
// and the library the same record (or none), for the probe `p`.
QString disagreement(Layouts const& l, Key const& p)
{
    int expected = sortedPosition(l.sorted, p.bytes);
    bool present = expected < int(l.sorted.size()) && std::memcmp(l.sorted[std::size_t(expected)].bytes, p.bytes, keyWidth) == 0;
    if (l.eytzinger.position(p.bytes) != expected) return QStringLiteral("the Eytzinger layout disagrees with the sorted array");
    if (l.stree.position(p.bytes) != expected) return QStringLiteral("the 16-key tree disagrees with the sorted array");
    int library = l.index->searchBinary(p, -1, CopyCompare{&l.index->records()});
    if (library != (present ? expected : -1)) return QStringLiteral("the index's own search disagrees with the sorted array");
    return QString();
}

Layouts const& layouts()
{
    static std::unique_ptr<Layouts> built;
    if (built) return *built;
    built.reset(new Layouts);
    Layouts& l = *built;
    bench::ensureMarketLoaded();
    QSharedPointer<Table> table = bench::coreDatabase()->table(QStringLiteral("securities"));
    l.index = dynamic_cast<SecurityMaster const*>(table->masterIndex());
    if (!l.index || l.index->records().keyWidth() != keyWidth) {
        l.error = QStringLiteral("securities has no typed master index with 16-byte key copies");
        return l;
    }
    l.isin = table->columnIndex(QStringLiteral("isin_id"));
    l.rowLines = (table->rowSize() + 63) / 64 + 1;
    PartitionList<Record> const& list = l.index->records();

    std::vector<bench::SecurityKey> keys = bench::shuffledSecurityKeys();
    l.probes.resize(keys.size());
    for (std::size_t k = 0; k < keys.size(); ++k) {
        Record r = l.index->findKey(SecurityKeyStruct(keys[k].stock, keys[k].board, keys[k].secId), -1);
        if (r.isEmpty() || r.data(l.isin).rawInt32() != keys[k].isinId) {
            l.error = QStringLiteral("a known key was not found");
            return l;
        }
        list.extractKey(r, l.probes[k].bytes);
    }

    std::shared_lock<std::shared_mutex> lock(l.index->structureLock());
    l.sortedRebuildMs = medianBuildMs([&] {
        l.sorted.resize(std::size_t(list.count()));
        std::size_t at = 0;
        for (int p = 0; p < list.partitionCount(); ++p) {
            std::size_t bytes = std::size_t(list.partitionAt(p).count()) * keyWidth;
            std::memcpy(l.sorted[at].bytes, list.keyAt(p, 0), bytes);
            at += std::size_t(list.partitionAt(p).count());
        }
    });
    l.eytzingerRebuildMs = medianBuildMs([&] { l.eytzinger.build(list); });
    l.streeRebuildMs = medianBuildMs([&] { l.stree.build(l.sorted.data(), l.sorted.size()); });
    l.records.reserve(std::size_t(list.count()));
    for (auto it = list.begin(); it != list.end(); ++it) l.records.push_back(*it);
    lock.unlock();
    l.bySlot.resize(l.eytzinger.n + 1);
    for (std::size_t k = 1; k <= l.eytzinger.n; ++k) l.bySlot[k] = l.records[std::size_t(l.eytzinger.positionOf[k])];

    // Present probes, absent ones between neighbours (a key plus one), and
    // both ends.
    std::vector<Key> sample;
    for (std::size_t k = 0; k < l.probes.size(); k += 97) sample.push_back(l.probes[k]);
    for (std::size_t k = 0; k < l.sorted.size(); k += 89) {
        Key next = l.sorted[k];
        for (int b = keyWidth - 1; b >= 0 && ++next.bytes[b] == 0; --b) {}
        sample.push_back(next);
    }
    Key lowest, highest;
    std::memset(lowest.bytes, 0, keyWidth);
    std::memset(highest.bytes, 0xff, keyWidth);
    sample.push_back(lowest);
    sample.push_back(highest);
    for (Key const& p : sample) {
        l.error = disagreement(l, p);
        if (!l.error.isEmpty()) return l;
    }
    return l;
}

bool ready(benchmark::State& state)
{
    Layouts const& l = layouts();
    if (!l.error.isEmpty()) {
        state.SkipWithError(l.error.toUtf8().constData());
        return false;
    }
    return true;
}

// One row: `find` maps a probe to its Record, under the index's read lock
// where the layout does not take it itself.
template <class Find>
void lookups(benchmark::State& state, Find find)
{
    Layouts const& l = layouts();
    std::size_t i = 0, n = l.probes.size();
    for (auto _ : state) {
        Key const& p = l.probes[i];
        if (++i == n) i = 0;
        Record r = find(p);
        benchmark::DoNotOptimize(r.data(l.isin).rawInt32());
    }
    state.counters["rows"] = double(l.sorted.size());
}

void fencesFind(benchmark::State& state)
{
    if (!ready(state)) return;
    Layouts const& l = layouts();
    CopyCompare compare{&l.index->records()};
    lookups(state, [&](Key const& p) { return l.index->findBinary(p, -1, compare); });
}

void eytzingerFind(benchmark::State& state)
{
    if (!ready(state)) return;
    Layouts const& l = layouts();
    lookups(state, [&](Key const& p) {
        std::shared_lock<std::shared_mutex> lock(l.index->structureLock());
        std::size_t k = l.eytzinger.bound(p.bytes);
        if (!k || std::memcmp(l.eytzinger.laidOut[k].bytes, p.bytes, keyWidth) != 0) return Record();
        return taken(l, l.records[std::size_t(l.eytzinger.positionOf[k])]);
    });
    state.counters["rebuild_ms"] = l.eytzingerRebuildMs;
    state.counters["bytes_per_key"] = double(sizeof(Key) + sizeof(int));
}

// The same search with the items kept in slot order: no map back to the
// sorted position, one read less per lookup.
void eytzingerBySlotFind(benchmark::State& state)
{
    if (!ready(state)) return;
    Layouts const& l = layouts();
    lookups(state, [&](Key const& p) {
        std::shared_lock<std::shared_mutex> lock(l.index->structureLock());
        std::size_t k = l.eytzinger.bound(p.bytes);
        if (!k || std::memcmp(l.eytzinger.laidOut[k].bytes, p.bytes, keyWidth) != 0) return Record();
        return taken(l, l.bySlot[k]);
    });
    state.counters["rebuild_ms"] = l.eytzingerRebuildMs;
}

void streeFind(benchmark::State& state)
{
    if (!ready(state)) return;
    Layouts const& l = layouts();
    lookups(state, [&](Key const& p) {
        std::shared_lock<std::shared_mutex> lock(l.index->structureLock());
        // The leaf's items are fetched with the leaf.
        int pos = l.stree.position(p.bytes, [&](std::size_t first) {
            prefetchLines(reinterpret_cast<std::uintptr_t>(l.records.data() + std::min(first, l.records.size() - 1)), 2);
        });
        if (!l.stree.holds(pos, p.bytes)) return Record();
        return taken(l, l.records[std::size_t(pos)]);
    });
    state.counters["rebuild_ms"] = l.streeRebuildMs;
}

void sortedFind(benchmark::State& state)
{
    if (!ready(state)) return;
    Layouts const& l = layouts();
    lookups(state, [&](Key const& p) {
        std::shared_lock<std::shared_mutex> lock(l.index->structureLock());
        int pos = sortedPosition(l.sorted, p.bytes);
        if (pos == int(l.sorted.size()) || std::memcmp(l.sorted[std::size_t(pos)].bytes, p.bytes, keyWidth) != 0) return Record();
        return taken(l, l.records[std::size_t(pos)]);
    });
    state.counters["rebuild_ms"] = l.sortedRebuildMs;
}

// What every row pays besides its search: the lock, the Record copy and
// the read of "isin_id" (of the row the probe names, so a miss as well).
void lockAndRead(benchmark::State& state)
{
    if (!ready(state)) return;
    Layouts const& l = layouts();
    std::vector<int> positions(l.probes.size());
    for (std::size_t k = 0; k < positions.size(); ++k) positions[k] = sortedPosition(l.sorted, l.probes[k].bytes);
    std::size_t i = 0, n = positions.size();
    for (auto _ : state) {
        int pos = positions[i];
        if (++i == n) i = 0;
        Record r;
        {
            std::shared_lock<std::shared_mutex> lock(l.index->structureLock());
            r = taken(l, l.records[std::size_t(pos)]);
        }
        benchmark::DoNotOptimize(r.data(l.isin).rawInt32());
    }
}

int const registered = [] {
    benchmark::RegisterBenchmark("layout.fences.find", fencesFind);
    benchmark::RegisterBenchmark("layout.eytzinger.find", eytzingerFind);
    benchmark::RegisterBenchmark("layout.eytzinger_by_slot.find", eytzingerBySlotFind);
    benchmark::RegisterBenchmark("layout.stree.find", streeFind);
    benchmark::RegisterBenchmark("layout.sorted.find", sortedFind);
    benchmark::RegisterBenchmark("layout.none.lock_and_read", lockAndRead);
    return 0;
}();

} // namespace
