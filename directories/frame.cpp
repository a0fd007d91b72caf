#include "frame.h"
#include "registry_p.h"

#include <core/icore.h>
#include <database/database.h>
#include <database/fieldtype.h>

#include <cstring>
#include <vector>

namespace {
// The message of a missing table. It is translated in each class's own
// context (the registry spells it there for the translation tools); a class
// whose context has no translation of it yet reads the frame's.
char const kMissingTable[] = QT_TRANSLATE_NOOP("Directory", "Таблица '%1' отсутствует");

DirectoryClass const& registryLine(QMetaObject const& cls)
{
    if (DirectoryClass const* line = registeredClass(cls)) return *line;
    throw QStringLiteral("%1 has no line in the directory registry").arg(QLatin1String(cls.className()));
}
} // namespace

namespace {
// The runs of qCallOnce on this thread, innermost last, each with the
// tables that its construction locked.
struct Run
{
    QBasicAtomicInt const* flag;
    std::vector<QSharedPointer<Table>> locked;
};
thread_local std::vector<Run> t_runs;

// A construction under i() locks its table until the run ends; one made
// directly (new X) locks nothing, since nobody would release it.
bool lockForConstruction(QSharedPointer<Table> const& t)
{
    if (t_runs.empty()) return true;
    std::vector<QSharedPointer<Table>>& locked = t_runs.back().locked;
    for (QSharedPointer<Table> const& held : locked)
        if (held == t) return true;
    if (!t->tryLock()) return false;
    locked.push_back(t);
    return true;
}

// Thrown by a directory constructor, run under qCallOnce, whose table is
// locked by another thread (a batch): the construction steps back, so that
// the batch's own hooks may create the directory, and is tried again.
struct TableBusy
{
};

void beginRun(QBasicAtomicInt* flag) { t_runs.push_back(Run{flag, {}}); }

void endRun(QBasicAtomicInt* flag)
{
    for (auto it = t_runs.rbegin(); it != t_runs.rend(); ++it) {
        if (it->flag != flag) continue;
        for (auto t = it->locked.rbegin(); t != it->locked.rend(); ++t) (*t)->unlock();
        t_runs.erase(std::next(it).base());
        return;
    }
}

bool isRunningHere(QBasicAtomicInt const* flag)
{
    for (Run const& run : t_runs)
        if (run.flag == flag) return true;
    return false;
}

QString reenteredText(char const* name)
{
    return QStringLiteral("%1::i() was called again while %1 was being created on the same thread")
        .arg(QLatin1String(name));
}
} // namespace

void qCallOnce(void (*function)(), QBasicAtomicInt& flag, char const* name)
{
    enum { NotRun = 0, Running = 1, Done = 2, Failed = 3 };
    for (;;) {
        int state = flag.loadAcquire();
        if (state == Done) return;
        if ((state == NotRun || state == Failed) && flag.testAndSetAcquire(state, Running)) {
            beginRun(&flag);
            try {
                function();
            } catch (TableBusy const&) {
                endRun(&flag);
                flag.storeRelease(state);
                QThread::yieldCurrentThread();
                continue;
            } catch (...) {
                endRun(&flag);
                flag.storeRelease(Failed);
                throw;
            }
            endRun(&flag);
            flag.storeRelease(Done);
            return;
        }
        if (state == Running && isRunningHere(&flag)) throw reenteredText(name);
        QThread::yieldCurrentThread();
    }
}

Directory::Directory(QObject* parent, QMetaObject const& cls, QString const& tableName)
    : Directory(parent, registryLine(cls), tableName)
{
}

Directory::Directory(QObject* parent, DirectoryClass const& line, QString const& tableName)
    : Directory(parent, line.name(), tableName.isEmpty() ? QString::fromLatin1(line.table) : tableName,
                line.registration, line.missingText)
{
}

Directory::Directory(QObject* parent, char const* context, QString const& tableName, Registration registration,
                     char const* missingText)
    : QObject(parent), m_registration(registration)
{
    Database* db = ICore::instance()->database();
    auto missing = [&] {
        m_table.clear();
        char const* source = missingText ? missingText : kMissingTable;
        QString text = QCoreApplication::translate(context, source);
        if (std::strcmp(source, kMissingTable) != 0) return text;   // a fixed text names its table itself
        if (text == QString::fromUtf8(kMissingTable)) text = tr(kMissingTable);
        return text.arg(tableName);
    };
    // The database is asked first: a database that does not hold the table
    // may still hand out a stale or placeholder one by name. The null check
    // after it guards a table dropped between the two calls.
    if (!db || !db->hasTable(tableName)) throw missing();
    QSharedPointer<Table> t = db->table(tableName);
    if (!t) throw missing();
    // Held from here to the end of the construction: a batch on the table
    // waits, and a batch already running makes this construction step back
    // (its hooks may then create the directory themselves).
    if (!lockForConstruction(t)) throw TableBusy();
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

void Directory::resolveColumns(std::initializer_list<ColumnSlot> columns) const
{
    QSharedPointer<Table> t = m_table.toStrongRef();
    for (ColumnSlot const& c : columns) c.number = t ? t->columnIndex(c.name) : -1;
}

void Directory::adopt(Index* index)
{
    if (!index) return;
    m_ownedIndexes.append(index);
    if (QSharedPointer<Table> t = m_table.toStrongRef()) t->addIndex(index);
}

void DirectoryKeyColumns::writeKeyValue(Field field, QChar value) { writeKeyValue(field, QString(value)); }

void DirectoryKeyColumns::writeKeyValue(Field field, QString const& value)
{
    // Texts go into text columns only; anything else is the conversion
    // error of a key of the wrong type.
    if (field.type() == FieldType::Char) FieldType::stringToVarChar(field.data(), field.length(), value);
    else if (field.type() == FieldType::VarChar) field.storeString(value);
    else field.incompatibleType(FieldType::Char);
    field.setHasValue();
}

bool DirectoryKeyColumns::fitsColumn(Table const& table, int column, QString const& text)
{
    ColumnDef const& def = table.columnDef(column);
    return def.typeCode() != FieldType::Char || text.size() <= def.length / 2;
}

void Directory::holdForConstruction(QSharedPointer<Table> const& other) const
{
    if (!other || other->mayReadRows()) return;
    if (!lockForConstruction(other)) throw TableBusy();
}

#ifdef DIRECTORY_CHECK_THREADS
void Directory::checkUpdatingThread(char const* where) const
{
    QSharedPointer<Table> t = table();
    if (!t || t->mayReadRows()) return;
    qFatal("%s: called off the updating thread of table '%s' without holding its lock", where,
           qPrintable(t->name()));
}
#endif
