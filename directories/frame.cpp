#include "frame.h"

#include <core/icore.h>
#include <database/database.h>

namespace {
// The missing-table message is translated in each directory's own context;
// listed here so that the translation tools find every one.
[[maybe_unused]] char const* const kMissingTableTexts[] = {
    QT_TRANSLATE_NOOP("BuySellDirectory", "Таблица '%1' отсутствует"),
    QT_TRANSLATE_NOOP("StatusDirectory", "Таблица '%1' отсутствует"),
    QT_TRANSLATE_NOOP("SecTypeDirectory", "Таблица '%1' отсутствует"),
    QT_TRANSLATE_NOOP("SecStateDirectory", "Таблица '%1' отсутствует"),
    QT_TRANSLATE_NOOP("SessStateDirectory", "Таблица '%1' отсутствует"),
    QT_TRANSLATE_NOOP("SecurityDirectory", "Таблица '%1' отсутствует"),
    QT_TRANSLATE_NOOP("BoardDirectory", "Таблица '%1' отсутствует"),
    QT_TRANSLATE_NOOP("StockDirectory", "Таблица '%1' отсутствует"),
    QT_TRANSLATE_NOOP("StockSecDirectory", "Таблица '%1' отсутствует"),
};
} // namespace

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
