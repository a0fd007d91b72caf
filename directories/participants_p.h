#pragma once
// Inside the library: the participants' account cache.
#include <database/record.h>

#include <QString>
#include <mutex>

namespace directory {
namespace detail {

// The one-entry cache of an account lookup: the last key looked up and the
// row found for it. A miss leaves it as it was and answers with the row of
// the last hit, a stale answer that callers have always had to tolerate.
// Safe from any thread: the entry is guarded, the search runs outside it.
// A row removed while a search ran may be the one it found; such a row is
// answered but never kept, so the entry never outlives its row's removal.
class LastAccountCache
{
public:
    // `find` searches for a key and returns the row or an empty record.
    template <class Find>
    Record lookup(QString const& key, Find find)
    {
        unsigned drops;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_hasKey && key == m_key) return m_record;
            drops = m_drops;
        }
        Record found = find(key);
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_drops != drops) return found.isEmpty() ? m_record : found;
        if (!found.isEmpty()) {
            // A copy of its own: a text shared with the caller would have its
            // reference count changed on two threads, outside the lock.
            m_key = QString(key.constData(), key.size());
            m_record = found;
            m_hasKey = true;
        }
        return m_record;
    }
    // Forgets the entry when it holds `row` (any row when `row` is empty).
    void drop(Record const& row = Record())
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ++m_drops;
        if (!row.isEmpty() && row != m_record) return;
        m_key.clear();
        m_record = Record();
        m_hasKey = false;
    }

private:
    std::mutex m_mutex;
    QString m_key;
    Record m_record;
    bool m_hasKey = false;
    unsigned m_drops = 0;   // removals seen, kept or not: a search spans them
};

} // namespace detail
} // namespace directory
