#include "frame.h"

#include <core/icore.h>
#include <database/database.h>

Directory::Directory(QObject* parent, char const* context, QString const& tableName, Registration registration,
                     char const* missingText)
    : QObject(parent), m_registration(registration)
{
    Database* db = ICore::instance()->database();
    if (!db || !db->hasTable(tableName)) {
        m_table.clear();
        if (missingText) throw QCoreApplication::translate(context, missingText);
        throw QCoreApplication::translate(context, "Таблица '%1' отсутствует").arg(tableName);
    }
    QSharedPointer<Table> t = db->table(tableName);
    m_table = t;
    if (registration == AsDependent) t->addDependentIndex(this);
    else t->addIndex(this);
}

Directory::~Directory()
{
    if (QSharedPointer<Table> t = m_table.toStrongRef()) {
        if (m_registration == AsDependent) t->removeDependentIndex(this);
        else t->removeIndex(this);
        for (Index* index : m_ownedIndexes) t->removeIndex(index);
    }
    qDeleteAll(m_ownedIndexes);
}

void Directory::clear() {}
void Directory::build() {}
void Directory::add(Record const&) {}
void Directory::remove(Record const&, int) {}
bool Directory::filter(Record const&) const { return true; }
bool Directory::contains(Record const&) const { return true; }

QString Directory::getClassName() const
{
    char const* name = metaObject() ? metaObject()->className() : nullptr;
    return name ? QString::fromLatin1(name) : QString();
}

int Directory::column(QString const& name) const
{
    QSharedPointer<Table> t = m_table.toStrongRef();
    return t ? t->columnIndex(name) : -1;
}

void Directory::adopt(Index* index)
{
    if (!index) return;
    m_ownedIndexes.append(index);
    if (QSharedPointer<Table> t = m_table.toStrongRef()) t->addIndex(index);
}

void Directory::disown(Index* index)
{
    if (!m_ownedIndexes.removeAll(index)) return;
    if (QSharedPointer<Table> t = m_table.toStrongRef()) t->removeIndex(index);
    delete index;
}

Record Directory::findInMaster(Record const& key) const
{
    QSharedPointer<Table> t = m_table.toStrongRef();
    if (!t || key.isEmpty()) return Record();
    return t->masterIndex()->find(key, -1);
}

Record Directory::keyRecord() const
{
    QSharedPointer<Table> t = m_table.toStrongRef();
    return t ? Record(t.data()) : Record();
}
