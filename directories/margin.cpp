#include "margin.h"

#include <core/bcdii.h>
#include <database/index.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <utility>
#include <vector>

namespace {
constexpr unsigned kZeroFormat = 6656;   // 0x1A00: extended decimal, scale 0

// An exact sum of margins as xdecimal addition makes it, with the rows of
// one scale added as plain integers first: the same value and scale as
// adding each row's xdecimal in turn, without a packed addition per row.
class ExactSum
{
public:
    // Starting from zero, or (for a map entry) from the first value added.
    explicit ExactSum(bool fromZero) : m_hasTotal(fromZero)
    {
        if (fromZero) m_total = zeroVM();
    }
    void add(Field const& vm)
    {
        __int128 mantissa = 0;
        int scale = 0;   // a null margin is a zero of scale 0, as Field::toXDecimal reads it
        if (vm.hasValue()) {
            if (vm.type() != FieldType::Decimal) {
                flush();
                addTotal(vm.toXDecimal());
                return;
            }
            decimal d = vm.rawDecimal();
            mantissa = d.mantissa();
            scale = d.scale();
        }
        if (m_hasPending && scale != m_scale) flush();
        if (!m_hasPending) {
            m_hasPending = true;
            m_scale = scale;
            m_pending = 0;
        }
        // 56-bit mantissas: no run of rows comes near 128 bits.
        m_pending += mantissa;
    }
    xdecimal result()
    {
        flush();
        return m_hasTotal ? m_total : zeroVM();
    }

private:
    void flush()
    {
        if (!m_hasPending) return;
        m_hasPending = false;
        addTotal(xdecimal::fromMantissa(m_pending, m_scale));
    }
    void addTotal(xdecimal const& x)
    {
        if (m_hasTotal) {
            m_total += x;
        } else {
            m_total = x;
            m_hasTotal = true;
        }
    }

    xdecimal m_total;
    __int128 m_pending = 0;
    int m_scale = 0;
    bool m_hasPending = false;
    bool m_hasTotal;
};

} // namespace

xdecimal zeroVM()
{
    xdecimal zero;
    BCDIIInit(zero.bytes(), kZeroFormat);
    BCDIISetZero(zero.bytes());
    return zero;
}

// ---- FutVMDirectory ----------------------------------------------------------

FutVMDirectory::FutVMDirectory(QObject* parent) : FutVMDirectory(parent, staticMetaObject) {}

FutVMDirectory::FutVMDirectory(char const* table, QObject* parent)
    : FutVMDirectory(parent, staticMetaObject, QString::fromLatin1(table))
{
}

FutVMDirectory::FutVMDirectory(QObject* parent, QMetaObject const& cls, QString const& table)
    : Directory(parent, cls, table)
{
    resolveColumns({{m_account, "account"}, {m_vm, "vm"}});
}

xdecimal FutVMDirectory::getVMByAccount(QString const& account) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    auto it = m_cache.constFind(account);
    if (it != m_cache.constEnd()) return it.value();
    xdecimal sum = calculateVM(account);
    m_cache.insert(account, sum);
    return sum;
}

xdecimal FutVMDirectory::calculateVM(QString const& account) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QSharedPointer<Table> t = table();
    if (!t || m_account < 0) return zeroVM();
    ExactSum sum(true);
    MasterIndex_Column_Pure const* master = t->masterIndex();
    std::shared_lock<std::shared_mutex> lock(master->structureLock());
    PartitionList<Record> const& rows = master->records();
    auto accountOf = [&](Record const& r) { return FieldText(t->dataPtr(r.row(), m_account)); };

    // Lower bound of `account`: first the block, then the row inside it.
    int parts = rows.partitionCount();
    int lo = 0, hi = parts;
    while (lo < hi) {
        int mid = lo + (hi - lo) / 2;
        if (accountOf(rows.partitionAt(mid).items.back()).compare(account) < 0) lo = mid + 1;
        else hi = mid;
    }
    if (lo == parts) return sum.result();
    auto const& items = rows.partitionAt(lo).items;
    int first = 0, last = int(items.size());
    while (first < last) {
        int mid = first + (last - first) / 2;
        if (accountOf(items[std::size_t(mid)]).compare(account) < 0) first = mid + 1;
        else last = mid;
    }
    // The run of rows beginning with `account`, across blocks.
    for (int p = lo; p < parts; ++p) {
        auto const& block = rows.partitionAt(p).items;
        for (std::size_t i = p == lo ? std::size_t(first) : 0; i < block.size(); ++i) {
            if (!accountOf(block[i]).startsWith(account)) return sum.result();
            sum.add(t->dataPtr(block[i].row(), m_vm));
        }
    }
    return sum.result();
}

void FutVMDirectory::clear() { m_cache.clear(); }

void FutVMDirectory::endUpdate()
{
    m_cache.clear();
    Q_EMIT dataChanged();
}

OptVMDirectory::OptVMDirectory(QObject* parent) : FutVMDirectory(parent, staticMetaObject) {}

// ---- FutVMSADirectory --------------------------------------------------------

FutVMSADirectory::FutVMSADirectory(QObject* parent) : FutVMSADirectory(parent, staticMetaObject) {}

FutVMSADirectory::FutVMSADirectory(char const* table, QObject* parent)
    : FutVMSADirectory(parent, staticMetaObject, QString::fromLatin1(table))
{
}

FutVMSADirectory::FutVMSADirectory(QObject* parent, QMetaObject const& cls, QString const& table)
    : Directory(parent, cls, table)
{
    resolveColumns({{m_columns.sessId, "sess_id"}, {m_columns.settlementAccount, "settlement_account"},
                    {m_columns.vm, "vm"}});
}

xdecimal FutVMSADirectory::getVMbySettlementAccount(QString const& sa) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    auto it = m_vmBySettlementAccount.constFind(sa);
    return it == m_vmBySettlementAccount.constEnd() ? zeroVM() : it.value();
}

void FutVMSADirectory::clear() { m_changed = true; }
void FutVMSADirectory::build() {}
void FutVMSADirectory::add(Record const&) { m_changed = true; }
void FutVMSADirectory::remove(Record const&, int) { m_changed = true; }
void FutVMSADirectory::update(Record const&, int, int, int) { m_changed = true; }
void FutVMSADirectory::beginUpdate() { m_changed = false; }

void FutVMSADirectory::endUpdate()
{
    if (!m_changed) return;
    QSharedPointer<Table> t = table();
    // calcVM's answer, built on the previous map's keys.
    recompute(t.data());
    Q_EMIT dataChanged();
}

OptVMSADirectory::OptVMSADirectory(QObject* parent) : FutVMSADirectory(parent, staticMetaObject) {}

// ---- calcVM ------------------------------------------------------------------

namespace {

// The sums of calcVM. With `previous` (the map of the last batch), keys are
// shared with it where they are unchanged, and when every key is unchanged
// the previous map is updated in place: the usual batch changes amounts, not
// settlement accounts, and then nothing is allocated. Returns true when the
// answer is in `previous`.
bool latestSessionSums(Table* table, FutVMSADirectory::FutVMSAColumns columns, QMap<QString, xdecimal>* previous,
                       QMap<QString, xdecimal>& result)
{
    result.clear();
    if (!table || columns.sessId < 0 || columns.settlementAccount < 0 || columns.vm < 0) return false;
    std::lock_guard<Table const> tableLock(*table);
    MasterIndex_Column_Pure const* master = table->masterIndex();
    std::shared_lock<std::shared_mutex> lock(master->structureLock());
    PartitionList<Record> const& rows = master->records();

    // Runs of one settlement account in the greatest session seen so far,
    // each named by its first row (a Field would copy values on assignment).
    struct Run
    {
        unsigned char* row;
        ExactSum sum;
    };
    auto accountOf = [&](Run const& r) { return table->dataPtr(r.row, columns.settlementAccount); };
    std::vector<Run> runs;
    bool any = false;
    int latest = 0;
    // Every row is read, from the last to the first: the tables are ordered
    // by session first, so the latest session's rows come first and older
    // rows are passed over by their session id alone. Exact sums do not
    // depend on the order in which they are added.
    for (int p = rows.partitionCount() - 1; p >= 0; --p) {
        auto const& block = rows.partitionAt(p).items;
        for (std::size_t i = block.size(); i-- > 0;) {
            unsigned char* row = block[i].row();
            int session = table->dataPtr(row, columns.sessId).toInteger();
            if (any && session < latest) continue;
            Field account = table->dataPtr(row, columns.settlementAccount);
            if (FieldText(account).isEmpty()) continue;
            if (!any || session > latest) {
                runs.clear();
                latest = session;
                any = true;
            }
            if (runs.empty() || FieldText(accountOf(runs.back())).compare(FieldText(account)) != 0)
                runs.push_back(Run{row, ExactSum(false)});
            runs.back().sum.add(table->dataPtr(row, columns.vm));
        }
    }
    std::reverse(runs.begin(), runs.end());

    // Read backwards from a table in key order, the runs come out ascending
    // and distinct; any other order is sorted and its repeats merged.
    bool ascending = true;
    for (std::size_t i = 1; i < runs.size() && ascending; ++i) ascending = FieldText(accountOf(runs[i - 1])).compare(FieldText(accountOf(runs[i]))) < 0;
    if (!ascending) {
        std::vector<std::pair<QString, xdecimal>> sums;
        sums.reserve(runs.size());
        for (Run& r : runs) sums.emplace_back(accountOf(r).toString(), r.sum.result());
        std::stable_sort(sums.begin(), sums.end(),
                         [](std::pair<QString, xdecimal> const& a, std::pair<QString, xdecimal> const& b) { return a.first < b.first; });
        for (auto const& entry : sums) {
            if (!result.isEmpty() && (result.constEnd() - 1).key() == entry.first) (result.end() - 1).value() += entry.second;
            else result.insert(result.constEnd(), entry.first, entry.second);
        }
        return false;
    }

    if (previous && previous->size() == int(runs.size())) {
        bool sameKeys = true;
        auto it = previous->constBegin();
        for (std::size_t i = 0; i < runs.size() && sameKeys; ++i, ++it) sameKeys = FieldText(accountOf(runs[i])).compare(it.key()) == 0;
        if (sameKeys) {
            auto out = previous->begin();
            for (Run& r : runs) (out++).value() = r.sum.result();
            return true;
        }
    }
    auto old = previous ? previous->constBegin() : QMap<QString, xdecimal>::const_iterator();
    auto oldEnd = previous ? previous->constEnd() : QMap<QString, xdecimal>::const_iterator();
    for (Run& r : runs) {
        FieldText account(accountOf(r));
        while (previous && old != oldEnd && account.compare(old.key()) > 0) ++old;
        bool shared = previous && old != oldEnd && account.compare(old.key()) == 0;
        result.insert(result.constEnd(), shared ? old.key() : account.toString(), r.sum.result());
    }
    return false;
}

} // namespace

template <>
QMap<QString, xdecimal> calcVM<FutVMSADirectory::FutVMSAColumns>(Table* table, FutVMSADirectory::FutVMSAColumns columns)
{
    QMap<QString, xdecimal> result;
    latestSessionSums(table, columns, nullptr, result);
    return result;
}

void FutVMSADirectory::recompute(Table* table)
{
    QMap<QString, xdecimal> fresh;
    if (!latestSessionSums(table, m_columns, &m_vmBySettlementAccount, fresh)) m_vmBySettlementAccount.swap(fresh);
}

// The one instance of each directory class here.
DIRECTORY_SINGLETON_DEFINE(FutVMDirectory)
DIRECTORY_SINGLETON_DEFINE(OptVMDirectory)
DIRECTORY_SINGLETON_DEFINE(FutVMSADirectory)
DIRECTORY_SINGLETON_DEFINE(OptVMSADirectory)
