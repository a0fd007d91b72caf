#include <database/batch.h>
#include <database/database.h>
#include <database/exception.h>
#include <database/index.h>
#include "batchapplier.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QThread>

namespace {
QHash<QString, Table::MasterIndexFactory>& defaultFactories()
{
    static QHash<QString, Table::MasterIndexFactory> factories;
    return factories;
}
QMutex g_factoryMutex;
} // namespace

Database::Database() : m_updatingThread(QThread::currentThreadId()) {}
Database::~Database() = default;
void Database::reserved3() {}

QSharedPointer<Table> Database::table(QString const& name) const
{
    std::shared_lock<std::shared_mutex> lock(m_tablesLock);
    return m_tables.value(name);
}
bool Database::hasTable(QString const& name) const
{
    std::shared_lock<std::shared_mutex> lock(m_tablesLock);
    return m_tables.contains(name);
}
QStringList Database::tableNames() const
{
    std::shared_lock<std::shared_mutex> lock(m_tablesLock);
    QStringList names = m_tables.keys();
    names.sort();
    return names;
}

QStringList Database::tableNamesInSchemaOrder() const
{
    std::shared_lock<std::shared_mutex> lock(m_tablesLock);
    return m_order;
}

Qt::HANDLE Database::updatingThread() const
{
    std::shared_lock<std::shared_mutex> lock(m_tablesLock);
    return m_updatingThread;
}

void Database::setUpdatingThread(Qt::HANDLE thread)
{
    std::unique_lock<std::shared_mutex> lock(m_tablesLock);
    m_updatingThread = thread;
    for (QSharedPointer<Table> const& t : m_tables) t->setUpdatingThread(thread);
}

void Database::setMasterIndexFactory(QString const& table, Table::MasterIndexFactory factory)
{
    m_factories.insert(table, std::move(factory));
}

void Database::setDefaultMasterIndexFactory(QString const& table, Table::MasterIndexFactory factory)
{
    QMutexLocker lock(&g_factoryMutex);
    defaultFactories().insert(table, std::move(factory));
}

QSharedPointer<Table> Database::createTable(TableSchema const& schema)
{
    if (hasTable(schema.name)) throw Exception(QStringLiteral("Table '%1' already exists").arg(schema.name));
    Table::MasterIndexFactory factory = m_factories.value(schema.name);
    if (!factory) {
        QMutexLocker lock(&g_factoryMutex);
        factory = defaultFactories().value(schema.name);
    }
    QSharedPointer<Table> table(new Table(schema, factory), &Table::release);
    std::unique_lock<std::shared_mutex> lock(m_tablesLock);
    if (m_tables.contains(schema.name)) throw Exception(QStringLiteral("Table '%1' already exists").arg(schema.name));
    table->setUpdatingThread(m_updatingThread);
    m_tables.insert(schema.name, table);
    m_order.append(schema.name);
    return table;
}

void Database::dropTable(QString const& name)
{
    QSharedPointer<Table> dropped;
    {
        std::unique_lock<std::shared_mutex> lock(m_tablesLock);
        dropped = m_tables.take(name);
        m_order.removeAll(name);
    }
    // Released outside the lock: dropping a table runs index destructors.
}

void Database::loadSchema(QString const& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) throw Exception(QStringLiteral("%1: cannot open: %2").arg(path, file.errorString()));
    loadSchemaJson(file.readAll(), path);
}

void Database::loadSchemaJson(QByteArray const& json, QString const& origin)
{
    QJsonParseError error;
    QJsonDocument doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        throw Exception(QStringLiteral("%1: bad JSON at byte %2: %3").arg(origin).arg(error.offset).arg(error.errorString()));
    QJsonArray tables = doc.object().value(QStringLiteral("tables")).toArray();
    if (tables.isEmpty()) throw Exception(QStringLiteral("%1: no \"tables\"").arg(origin));
    QList<TableSchema> schemas;
    QHash<QString, int> entryOf;   // 1-based, in "tables"
    for (QJsonValue const& tv : tables) {
        QJsonObject t = tv.toObject();
        TableSchema schema;
        int const entry = schemas.size() + 1;
        schema.name = t.value(QStringLiteral("name")).toString();
        if (schema.name.isEmpty()) throw Exception(QStringLiteral("%1: table entry %2 has no name").arg(origin).arg(entry));
        if (entryOf.contains(schema.name))
            throw Exception(QStringLiteral("%1: table entry %2 names '%3' again (entry %4)")
                                .arg(origin).arg(entry).arg(schema.name).arg(entryOf.value(schema.name)));
        entryOf.insert(schema.name, entry);
        for (QJsonValue const& k : t.value(QStringLiteral("key")).toArray()) schema.key << k.toString();
        for (QJsonValue const& cv : t.value(QStringLiteral("columns")).toArray()) {
            QJsonObject c = cv.toObject();
            ColumnDef def;
            def.name = c.value(QStringLiteral("name")).toString();
            def.type = c.value(QStringLiteral("type")).toInt(0);
            def.length = c.value(QStringLiteral("length")).toInt(0);
            int scale = c.value(QStringLiteral("scale")).toInt(0);
            def.scale = short(scale);
            def.nullable = c.value(QStringLiteral("nullable")).toBool(true);
            if (def.name.isEmpty()) throw Exception(QStringLiteral("%1: table '%2' has a column without a name").arg(origin, schema.name));
            // A packed decimal's scale field would wrap a scale it cannot hold.
            bool extended = def.type == FieldType::XDecimal;
            int minScale = extended ? xdecimal::minScale : decimal::minScale;
            int maxScale = extended ? xdecimal::maxScale : decimal::maxScale;
            if ((extended || def.type == FieldType::Decimal) && (scale < minScale || scale > maxScale))
                throw Exception(QStringLiteral("%1: table '%2': column '%3' has scale %4, outside %5..%6")
                                    .arg(origin, schema.name, def.name).arg(scale).arg(minScale).arg(maxScale));
            schema.columns.append(def);
        }
        schemas.append(schema);
    }
    // Check every table before creating any.
    for (TableSchema const& s : schemas) {
        if (hasTable(s.name)) throw Exception(QStringLiteral("%1: table '%2' already exists").arg(origin, s.name));
        try {
            Table probe(s);
        } catch (Exception const& e) {
            throw Exception(QStringLiteral("%1: %2").arg(origin, e.message()));
        }
    }
    // Whole or not at all: a table made meanwhile by another thread undoes
    // the ones this schema made before it.
    QStringList made;
    try {
        for (TableSchema const& s : schemas) {
            createTable(s);
            made << s.name;
        }
    } catch (Exception const& e) {
        for (QString const& name : made) dropTable(name);
        throw Exception(QStringLiteral("%1: %2").arg(origin, e.message()));
    }
}

void Database::apply(Batch const& batch)
{
    BatchPlan plan = BatchApplier::plan(batch);
    try {
        BatchApplier::apply(batch.table.data(), plan, batch.origin);
    } catch (HookFailure const&) {
        // Applied whole all the same: whoever follows the database must see it.
        if (m_appliedObserver) m_appliedObserver(batch);
        throw;
    }
    if (m_appliedObserver) m_appliedObserver(batch);
}

void Database::setAppliedObserver(std::function<void(Batch const&)> observer) { m_appliedObserver = std::move(observer); }
