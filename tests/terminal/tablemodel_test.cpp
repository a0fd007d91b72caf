// The table model learns which rows a batch changed from the table's watcher
// and announces exactly those, never resetting except when the table is
// cleared.
#include "tablemodel.h"

#include <database/batch.h>
#include <database/database.h>

#include <QSignalSpy>
#include <gtest/gtest.h>

namespace {

class ItemsModel : public TableRowsModel
{
public:
    explicit ItemsModel(QSharedPointer<Table> const& t) : TableRowsModel(t)
    {
        setColumns({{QStringLiteral("id"), t->columnIndex(QStringLiteral("id"))},
                    {QStringLiteral("price"), t->columnIndex(QStringLiteral("price"))}});
    }
};

struct Items
{
    Items()
    {
        db.loadSchemaJson(R"({"tables": [{"name": "items", "key": ["id"], "columns": [
            {"name": "id", "type": 2, "nullable": false}, {"name": "price", "type": 4, "scale": 2}]}]})");
        table = db.table(QStringLiteral("items"));
    }
    void apply(QByteArray const& line) { db.apply(BatchDecoder(db).decode(line, QStringLiteral("inline:1"))); }
    QStringList shown(TableRowsModel const& m) const
    {
        QStringList rows;
        for (int r = 0; r < m.rowCount(); ++r)
            rows << m.index(r, 0).data().toString() + "=" + m.index(r, 1).data().toString();
        return rows;
    }
    Database db;
    QSharedPointer<Table> table;
};

} // namespace

TEST(TerminalTableModel, AnnouncesOnlyTheRowsABatchChanged)
{
    Items items;
    items.apply(R"({"table":"items","ops":[{"insert":{"id":1,"price":"1.00"}},{"insert":{"id":2,"price":"2.00"}},
                   {"insert":{"id":3,"price":"3.00"}},{"insert":{"id":4,"price":"4.00"}}]})");
    ItemsModel model(items.table);
    ASSERT_EQ(items.shown(model), QStringList({"1=1.00", "2=2.00", "3=3.00", "4=4.00"}));

    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    items.apply(R"({"table":"items","ops":[{"update":{"id":2,"price":"2.50"}},{"update":{"id":4,"price":"4.50"}}]})");
    ASSERT_EQ(changed.size(), 2);   // rows 1 and 3, not a span over 1..3
    EXPECT_EQ(changed[0][0].toModelIndex().row(), 1);
    EXPECT_EQ(changed[0][1].toModelIndex().row(), 1);
    EXPECT_EQ(changed[1][0].toModelIndex().row(), 3);
    EXPECT_EQ(items.shown(model), QStringList({"1=1.00", "2=2.50", "3=3.00", "4=4.50"}));
    EXPECT_EQ(reset.size(), 0);
}

TEST(TerminalTableModel, InsertsAndRemovesRowsInPlace)
{
    Items items;
    items.apply(R"({"table":"items","ops":[{"insert":{"id":1,"price":"1.00"}},{"insert":{"id":2,"price":"2.00"}},
                   {"insert":{"id":3,"price":"3.00"}},{"insert":{"id":4,"price":"4.00"}},{"insert":{"id":5,"price":"5.00"}}]})");
    ItemsModel model(items.table);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    // Two runs removed (2..3 and 5), one row added, one updated, in one batch.
    items.apply(R"({"table":"items","ops":[{"delete":{"id":2}},{"delete":{"id":3}},{"delete":{"id":5}},
                   {"insert":{"id":9,"price":"9.00"}},{"update":{"id":4,"price":"4.40"}}]})");
    EXPECT_EQ(removed.size(), 2);
    EXPECT_EQ(inserted.size(), 1);
    EXPECT_EQ(reset.size(), 0);
    EXPECT_EQ(items.shown(model), QStringList({"1=1.00", "4=4.40", "9=9.00"}));
    for (int r = 0; r < model.rowCount(); ++r) EXPECT_EQ(model.rowOf(model.recordAt(r)), r);

    // A cleared table is the one reset.
    items.apply(R"({"table":"items","ops":[{"clear":true},{"insert":{"id":7,"price":"7.00"}}]})");
    EXPECT_EQ(reset.size(), 1);
    EXPECT_EQ(items.shown(model), QStringList({"7=7.00"}));
}

TEST(TerminalTableModel, LeavesTheTableCleanWhenDestroyed)
{
    Items items;
    int const indexes = items.table->indexes().size();
    {
        ItemsModel model(items.table);
        EXPECT_EQ(items.table->watcherCount(), 1);
        EXPECT_EQ(items.table->indexes().size(), indexes);   // it keeps no index of its own
    }
    EXPECT_EQ(items.table->watcherCount(), 0);
    items.apply(R"({"table":"items","ops":[{"insert":{"id":1,"price":"1.00"}}]})");   // no dangling watcher is called
    EXPECT_EQ(items.table->rowCount(), 1);
}

TEST(TerminalTableModel, KeepsItsRowsWhenTheTableIsRebuiltAndEmptiesWhenItIsCleared)
{
    Items items;
    items.apply(R"({"table":"items","ops":[{"insert":{"id":1,"price":"1.00"}},{"insert":{"id":2,"price":"2.00"}}]})");
    ItemsModel model(items.table);
    items.table->rebuild();   // re-sorts; no row changes
    items.table->build();
    EXPECT_EQ(items.shown(model), QStringList({"1=1.00", "2=2.00"}));
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    items.table->clear();
    EXPECT_EQ(reset.size(), 1);
    EXPECT_EQ(model.rowCount(), 0);
}
