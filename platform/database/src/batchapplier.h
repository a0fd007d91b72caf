#pragma once
#include <database/batch.h>
#include <QByteArray>
#include <QHash>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

// Key existence carried from one planned batch to the next without touching
// the table, so that a whole file can be checked before any of it applies.
struct KeyOverlay
{
    bool cleared = false;
    QHash<QByteArray, bool> exists;
};

// What a batch does to its table once its operations are folded together.
struct BatchPlan
{
    bool clearAll = false;
    std::vector<Record> inserts;         // images of new rows
    // An updated row, its new values and the columns they change: a run of
    // `columnCount` numbers in updateColumns from `firstColumn`.
    // `image` holds the new values of the update's columns: the operation's
    // own decoded row while one operation changes the row (`ownImage`
    // false, never written), a copy of the plan's when a second one does.
    struct Update { Record row; Record image; int firstColumn = 0; int columnCount = 0; bool ownImage = false; };
    std::vector<Update> updates;
    std::vector<int> updateColumns;      // one allocation for every update's columns
    std::vector<Record> deletes;
    int firstColumn = -1;
    int lastColumn = -1;
};

class BatchApplier
{
public:
    // Checks every operation against the table (and `overlay`, when given)
    // and folds them. Throws Exception naming origin, row and reason;
    // changes nothing. With an overlay, records the batch's outcome in it.
    // A dry run (`keysOnly`) checks keys and records them in the overlay
    // without building the row images.
    static BatchPlan plan(Batch const& batch, KeyOverlay* overlay = nullptr, bool keysOnly = false);
    // Drives the table's indexes through the plan (see docs/change-path.md).
    // An index that throws is reported after the batch has ended for every
    // index and dependent: HookFailure naming `origin`, the index, the call
    // and the row.
    static void apply(Table* table, BatchPlan const& plan, QString const& origin = QString());
    // A change of the whole table (clear, build, rebuild): `change` runs on
    // every index inside one begin/end pair, as for a batch.
    // Clearing tells the table's watchers too (`clearsRows`).
    static void restructure(Table* table, QString const& origin, std::function<void(Index*)> const& change,
                            bool clearsRows = false);

    // The table's watchers as they stand (called under the table's lock).
    static std::vector<std::shared_ptr<Table::WatcherEntry>> watchersOf(Table const* table) { return table->m_watchers; }

    static QByteArray keyBytes(Table const* table, unsigned char const* row);
    // A new row with the image's values, its strings copied rather than shared.
    static Record ownedCopy(Table const* table, Record const& image);
    static void copyColumn(Table const* table, unsigned char* dst, unsigned char* src, int column);
};
