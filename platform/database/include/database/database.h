#pragma once
#include <database/database_export.h>
#include "table.h"
#include <QHash>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <shared_mutex>

struct Batch;

// The database object the core hands out. Its first virtual operations are
// reached by slot number: 4 table by name, 5 has table; keep the order.
class DATABASE_EXPORT Database
{
public:
    Database();
    virtual ~Database();                                           // slots 1, 2
    virtual void reserved3();                                      // 3
    virtual QSharedPointer<Table> table(QString const& name) const; // 4
    virtual bool hasTable(QString const& name) const;              // 5

    // Schema: create tables from data/schema.json (throws Exception).
    void loadSchema(QString const& path);
    void loadSchemaJson(QByteArray const& json, QString const& origin = QStringLiteral("schema"));
    QSharedPointer<Table> createTable(TableSchema const& schema);
    void dropTable(QString const& name);
    QStringList tableNames() const;   // sorted
    // In the order the tables were created (a schema's own order): the
    // order in which a copy of the tables loads as the exchange sends them.
    QStringList tableNamesInSchemaOrder() const;

    // The updating thread: the one thread that applies batches (and
    // clears, builds, rebuilds tables). By default the thread that created
    // the database; a program that applies on another thread names it here
    // before its first batch. Every table follows it.
    Qt::HANDLE updatingThread() const;
    void setUpdatingThread(Qt::HANDLE thread);

    // A factory for the master index of the named table, used when the
    // table is created (or recreated). The product registers its cached
    // typed index this way, so the database never links against it.
    void setMasterIndexFactory(QString const& table, Table::MasterIndexFactory factory);
    static void setDefaultMasterIndexFactory(QString const& table, Table::MasterIndexFactory factory);

    // Applies one decoded batch on the calling (updating) thread: validated
    // whole first, then applied whole. Throws Exception naming the batch's
    // origin, the row and the reason when rejected; nothing changes then.
    void apply(Batch const& batch);

    // Called on the updating thread after each batch apply() applied (an
    // exchange that journals and forwards everything that changed its
    // tables); one at a time, empty to remove.
    void setAppliedObserver(std::function<void(Batch const&)> observer);

    // Decodes `path` (JSON Lines) on a worker thread and applies each batch
    // here as it arrives. Stops at the first bad batch, which is not applied,
    // and throws; the batches before it stay applied. Returns batches applied.
    int loadFile(QString const& path, std::function<void(int applied, qint64 bytesRead, qint64 bytesTotal)> progress = {});
    // Decodes and checks the whole file first (decoding on a worker); applies
    // nothing if any batch is bad. `afterBatch` runs after each applied batch.
    int loadFileAtomically(QString const& path, std::function<void(int applied, int total, QString const& table)> afterBatch = {});

private:
    // Directories look tables up from any thread while the program creates
    // and drops them.
    mutable std::shared_mutex m_tablesLock;
    QHash<QString, QSharedPointer<Table>> m_tables;
    QStringList m_order;
    Qt::HANDLE m_updatingThread = nullptr;
    QHash<QString, Table::MasterIndexFactory> m_factories;
    std::function<void(Batch const&)> m_appliedObserver;
};
