#pragma once
#include "library.h"
#include "masterindex.h"

#include <database/partitionlist.h>

#include <QHash>
#include <QList>
#include <QMutex>
#include <atomic>
#include <shared_mutex>
#include <utility>
#include <vector>

#if defined(__SANITIZE_THREAD__)
#define DIRECTORY_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define DIRECTORY_TSAN 1
#endif
#endif
#ifdef DIRECTORY_TSAN
extern "C" void __tsan_acquire(void* addr);
extern "C" void __tsan_release(void* addr);
#endif

namespace directory {
namespace detail {
// Holds a QMutex for a scope. Qt's contended lock path is not seen by the
// race checker, so under it the hand-over is announced explicitly.
class CacheLocker
{
public:
    explicit CacheLocker(QMutex* mutex) : m_mutex(mutex)
    {
        m_mutex->lock();
#ifdef DIRECTORY_TSAN
        __tsan_acquire(m_mutex);
#endif
    }
    ~CacheLocker()
    {
#ifdef DIRECTORY_TSAN
        __tsan_release(m_mutex);
#endif
        m_mutex->unlock();
    }
    CacheLocker(CacheLocker const&) = delete;
    CacheLocker& operator=(CacheLocker const&) = delete;

private:
    QMutex* m_mutex;
};
} // namespace detail
} // namespace directory

// A small most-recently-used cache of key -> value answers.
//
// Nodes form a list from the most recent (first) to the least recent (last);
// the hash finds a node by key. Each entry has a cost; inserting evicts from
// the back until the new entry fits under the maximum total cost.
// Not thread-safe: the owner locks around it.
template <class Key, class T>
class Cache
{
public:
    struct Node
    {
        Key key;
        T value;
        int cost;
        Node* prev;
        Node* next;
    };

    explicit Cache(int maxCost = 100) : m_maxCost(maxCost) { m_hash.reserve(100); }
    ~Cache() { clear(); }
    Cache(Cache const&) = delete;
    Cache& operator=(Cache const&) = delete;

    // The value of `key`, made the most recent; null when absent.
    T* object(Key const& key)
    {
        Node* n = m_hash.value(key, nullptr);
        if (!n) return nullptr;
        if (n != m_first) {
            detach(n);
            linkFront(n);
        }
        return &n->value;
    }
    bool contains(Key const& key) const { return m_hash.contains(key); }

    // Replaces any entry of `key`; evicts the least recent entries while the
    // total cost has reached the maximum.
    void insert(Key const& key, T const& value, int cost = 1)
    {
        if (Node* old = m_hash.value(key, nullptr)) unlink(*old);
        // A full cache evicts on every insert: the last evicted node is kept
        // for the new entry rather than freed and allocated again.
        Node* n = nullptr;
        while (m_last && m_totalCost >= m_maxCost) {
            Node* evicted = m_last;
            detach(evicted);
            m_hash.remove(evicted->key);
            m_totalCost -= evicted->cost;
            if (n) delete n;
            n = evicted;
        }
        if (n) *n = Node{key, value, cost, nullptr, nullptr};
        else n = new Node{key, value, cost, nullptr, nullptr};
        linkFront(n);
        m_hash.insert(key, n);
        m_totalCost += cost;
    }

    bool remove(Key const& key)
    {
        Node* n = m_hash.value(key, nullptr);
        if (!n) return false;
        unlink(*n);
        return true;
    }

    // Takes `node` out of the list and the hash and subtracts its cost; the
    // node is deleted.
    void unlink(Node& node)
    {
        detach(&node);
        m_hash.remove(node.key);
        m_totalCost -= node.cost;
        delete &node;
    }

    void clear()
    {
        for (Node* n = m_first; n;) {
            Node* next = n->next;
            delete n;
            n = next;
        }
        m_first = m_last = nullptr;
        m_hash.clear();
        m_totalCost = 0;
    }

    int count() const { return m_hash.size(); }
    int totalCost() const { return m_totalCost; }
    int maxCost() const { return m_maxCost; }
    // Most recent first.
    QList<Key> keys() const
    {
        QList<Key> out;
        for (Node* n = m_first; n; n = n->next) out.append(n->key);
        return out;
    }

private:
    void detach(Node* n)
    {
        (n->prev ? n->prev->next : m_first) = n->next;
        (n->next ? n->next->prev : m_last) = n->prev;
        n->prev = n->next = nullptr;
    }
    void linkFront(Node* n)
    {
        n->prev = nullptr;
        n->next = m_first;
        (m_first ? m_first->prev : m_last) = n;
        m_first = n;
    }

    Node* m_first = nullptr;
    Node* m_last = nullptr;
    QHash<Key, Node*> m_hash;
    int m_maxCost;
    int m_totalCost = 0;
};

// A master index with a cache of its latest key lookups in front.
//
// Threading: the index changes on the updating thread; findKey and find may
// be called from any thread. The mutex guards the cache only and is never
// held during a search, so lookups never wait for each other's searches.
// Every change that can make a cached answer wrong drops the affected keys
// under the mutex and bumps a generation; a lookup that searched across such
// a change does not cache what it found, so no stale answer survives.
template <class I>
class DIRECTORY_EXPORT MasterIndexCached : public I
{
public:
    using Key = typename I::Key;
    using CompareKey = typename I::CompareKey;

    template <class... Args>
    explicit MasterIndexCached(Table* table, Args&&... args) : I(table, std::forward<Args>(args)...)
    {
    }

    void clear() override
    {
        I::clear();
        directory::detail::CacheLocker lock(&m_mutex);
        m_cache.clear();
        ++m_generation;
    }

    void preprocess(QList<Record> const& inserted, QList<Record> const& updated, int firstColumn, int lastColumn,
                    QList<Record> const& deleted, QList<Record> const& updateImages) override
    {
        I::preprocess(inserted, updated, firstColumn, lastColumn, deleted, updateImages);
        // Rows are updated in place after this call: when the update can
        // reach key columns, the old keys must be dropped now, while the rows
        // still hold them. They are dropped again in process(), for lookups
        // that found a row under its old key before it changed.
        m_staleKeys.clear();
        if (updated.isEmpty() || !touchesKey(firstColumn, lastColumn)) return;
        m_staleKeys.reserve(std::size_t(updated.size()));
        for (Record const& r : updated) m_staleKeys.push_back(this->key(r));
        dropKeys(m_staleKeys);
    }

    void process(QList<Record> const& inserted, QList<Record> const& updated, int firstColumn, int lastColumn,
                 QList<Record> const& deleted) override
    {
        I::process(inserted, updated, firstColumn, lastColumn, deleted);
        std::vector<Key> keys = std::move(m_staleKeys);
        m_staleKeys.clear();
        keys.reserve(keys.size() + std::size_t(inserted.size()));
        for (Record const& r : inserted) keys.push_back(this->key(r));
        dropKeys(keys);
    }

    void remove(Record const& record, int position) override
    {
        Key k = this->key(record);
        // Out of the list first: a lookup that still finds the row then
        // cannot cache it after the key was dropped.
        I::remove(record, position);
        directory::detail::CacheLocker lock(&m_mutex);
        m_cache.remove(k);
        ++m_generation;
    }

    void removeRanges(RangeSet<int> const& ranges) override
    {
        // Keys are collected before the mutex is taken, so that the lock is
        // held only for the hash removals.
        APartList<Key> keys;
        {
            std::shared_lock<std::shared_mutex> lock(this->m_lock);
            for (auto const& range : ranges) {
                auto it = this->m_records.iteratorAt(range.first);
                for (int p = range.first; p <= range.second && it != this->m_records.end(); ++p, ++it)
                    keys.append(this->key(*it));
            }
        }
        I::removeRanges(ranges);
        directory::detail::CacheLocker lock(&m_mutex);
        keys.forEach([this](Key const& k) { m_cache.remove(k); });
        ++m_generation;
    }

    Record find(Record const& key, int hint) const override
    {
        if (key.isEmpty()) return Record();
        return findKey(this->key(key), hint);
    }

    // The first record whose key equals `key` after position `hint` (-1: the
    // whole index), or an empty record. Whole-index lookups go through the
    // cache; a miss is never cached. A lookup after a given position is a
    // walk over duplicates and bypasses the cache.
    Record findKey(Key const& key, int hint) const
    {
        if (hint >= 0) {
            m_searches.fetch_add(1, std::memory_order_relaxed);
            return I::findKey(key, hint);
        }
        quint64 generation;
        {
            directory::detail::CacheLocker lock(&m_mutex);
            if (Record* hit = m_cache.object(key)) return *hit;
            generation = m_generation;
        }
        m_searches.fetch_add(1, std::memory_order_relaxed);
        Record found = I::findKey(key, -1);
        if (found.isEmpty()) return found;
        directory::detail::CacheLocker lock(&m_mutex);
        if (generation == m_generation) m_cache.insert(key, found, 1);
        return found;
    }

    // Diagnostics: entries cached, whether a key is cached, searches made.
    int cachedCount() const
    {
        directory::detail::CacheLocker lock(&m_mutex);
        return m_cache.count();
    }
    bool isCached(Key const& key) const
    {
        directory::detail::CacheLocker lock(&m_mutex);
        return m_cache.contains(key);
    }
    QList<Key> cachedKeys() const
    {
        directory::detail::CacheLocker lock(&m_mutex);
        return m_cache.keys();
    }
    quint64 searchCount() const { return m_searches.load(std::memory_order_relaxed); }

private:
    bool touchesKey(int firstColumn, int lastColumn) const
    {
        if (firstColumn < 0 || lastColumn < 0) return true;
        for (int c : this->columns())
            if (c >= firstColumn && c <= lastColumn) return true;
        return false;
    }
    void dropKeys(std::vector<Key> const& keys)
    {
        if (keys.empty()) return;
        directory::detail::CacheLocker lock(&m_mutex);
        for (Key const& k : keys) m_cache.remove(k);
        ++m_generation;
    }

    mutable QMutex m_mutex;
    mutable Cache<Key, Record> m_cache;
    quint64 m_generation = 0;               // under m_mutex
    mutable std::atomic<quint64> m_searches{0};
    std::vector<Key> m_staleKeys;           // updating thread only
};

class DIRECTORY_EXPORT MasterIndex_Column_Cached : public MasterIndexCached<MasterIndex_Column>
{
public:
    MasterIndex_Column_Cached(Table* table, QStringList const& columns);
    MasterIndex_Column_Cached(Table* table, QList<int> const& columns);
    ~MasterIndex_Column_Cached() override;
    QString getClassName() const override;

    // The general cached index used when a typed one cannot be set up; logs why.
    static MasterIndex_Column_Pure* fallback(Table* table, QStringList const& columns, QString const& why);
};

template <class... T>
class DIRECTORY_EXPORT MasterIndex_Struct_Cached : public MasterIndexCached<MasterIndex_Struct<T...>>
{
public:
    // Throws the QString message of a failed set-up check; create() does not.
    MasterIndex_Struct_Cached(Table* table, QStringList const& columns) : MasterIndexCached<MasterIndex_Struct<T...>>(table, columns) {}

    QString getClassName() const override { return QStringLiteral("MasterIndex_Struct_Cached"); }

    // A typed cached index over `columns`, or, when the columns do not suit
    // it, a general cached index with a warning saying why. Never throws the
    // set-up message.
    static MasterIndex_Column_Pure* create(Table* table, QStringList const& columns)
    {
        try {
            return new MasterIndex_Struct_Cached(table, columns);
        } catch (QString const& why) {
            return MasterIndex_Column_Cached::fallback(table, columns, why);
        }
    }
};

extern template class MasterIndex_Struct_Cached<int>;
extern template class MasterIndex_Struct_Cached<int, int, int>;
extern template class MasterIndex_Struct_Cached<int, int, long long>;
extern template class MasterIndex_Struct_Cached<ucharn<12>>;

namespace directory {
// Makes every "securities" table created from now on, in any database, keep
// its rows in a cached typed index keyed by (stock_id, board_id, sec_id).
// Runs when the library is loaded; calling it again changes nothing.
DIRECTORY_EXPORT void registerSecuritiesMasterIndex();
} // namespace directory
