#include "enumerations.h"

void appendStatus(QString& text, QString const& part)
{
    if (!text.isEmpty()) text += QStringLiteral(", ");
    text += part;
}

// ---- BuySellDirectory -----------------------------------------------------

BuySellDirectory::BuySellDirectory(QObject* parent)
    : Directory(parent, staticMetaObject)
{
    resolveColumns({{m_buysell, "buysell"}, {m_name, "name"}});
    m_byCode = DirectoryKey<QChar>(table(), nullptr, {m_buysell});
}

QString BuySellDirectory::nameById(QChar code) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QSharedPointer<Table> t = table();
    if (!t) return QString(code);
    Record row = m_byCode.find(code);
    return row.isEmpty() ? QString() : t->dataPtr(row.row(), m_name).toString();
}

QList<QChar> BuySellDirectory::ids() const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QList<QChar> ids;
    QSharedPointer<Table> t = table();
    if (!t) return ids;
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
        ids.append(t->dataPtr(it->row(), m_buysell).toChar());
    return ids;
}

void BuySellDirectory::dependentEndUpdate(Table*) { Q_EMIT dataChanged(); }

// ---- code tables with texts -------------------------------------------------

CodeTextDirectory::CodeTextDirectory(QObject* parent, QMetaObject const& cls, QString const& keyColumn)
    : Directory(parent, cls)
{
    resolveColumns({{m_key, keyColumn}, {m_name, "name"}, {m_descr, "descr"}});
    m_byKey = DirectoryKey<Field>(table(), nullptr, {m_key});
}

QString CodeTextDirectory::nameByKey(Field const& key) const { return textByKey(key, m_name); }
QString CodeTextDirectory::descrByKey(Field const& key) const { return textByKey(key, m_descr); }

QString CodeTextDirectory::missingTableText(Field const& key) const { return key.toString(); }

QString CodeTextDirectory::textByKey(Field const& key, int column) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QSharedPointer<Table> t = table();
    if (!t) return missingTableText(key);
    if (answersEmptyForNullKey() && !key.hasValue()) return QString();
    Record row = m_byKey.find(key);   // converts between column types
    return row.isEmpty() ? QString() : t->dataPtr(row.row(), column).toString();
}

QList<FieldValue> CodeTextDirectory::keyList() const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QList<FieldValue> keys;
    QSharedPointer<Table> t = table();
    if (!t) return keys;
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
        keys.append(FieldValue(t->dataPtr(it->row(), m_key)));
    return keys;
}

void CodeTextDirectory::dependentEndUpdate(Table*) { Q_EMIT dataChanged(); }

StatusDirectory::StatusDirectory(QObject* parent)
    : CodeTextDirectory(parent, staticMetaObject, QStringLiteral("status")) {}

SecTypeDirectory::SecTypeDirectory(QObject* parent)
    : CodeTextDirectory(parent, staticMetaObject, QStringLiteral("sectype")) {}

QString SecTypeDirectory::missingTableText(Field const& key) const { return tr("ID_%1").arg(key.toString()); }

SecStateDirectory::SecStateDirectory(QObject* parent)
    : CodeTextDirectory(parent, staticMetaObject, QStringLiteral("secstate")) {}

SessStateDirectory::SessStateDirectory(QObject* parent)
    : CodeTextDirectory(parent, staticMetaObject, QStringLiteral("sessstate")) {}

// ---- fixed vocabularies -----------------------------------------------------

QString PriceDirectionDirectory::nameByKey(Field const& key) const
{
    if (key.compare(Fld_PriceDirs::Asc) == 0) return tr("Прямое");
    if (key.compare(Fld_PriceDirs::Desc) == 0) return tr("Обратное");
    return QString();
}

QString OptioTypeDirectory::nameByKey(QChar const& key) const
{
    if (key == OptioType::Put) return tr("Пут");
    if (key == OptioType::Call) return tr("Колл");
    return QString();
}

QString OptioTypeDirectory::nameByKey(Field const& key) const { return nameByKey(key.toChar()); }

QString OptioCalcDirectory::nameByKey(Field const& key) const
{
    if (key.compare(Fld_OptioCalc::AmerA) == 0) return tr("Американский: Уплата премии");
    if (key.compare(Fld_OptioCalc::AmerB) == 0) return tr("Американский: Маржируемый");
    return QString();
}

// The one instance of each directory class here.
DIRECTORY_SINGLETON_DEFINE(BuySellDirectory)
DIRECTORY_SINGLETON_DEFINE(StatusDirectory)
DIRECTORY_SINGLETON_DEFINE(SecTypeDirectory)
DIRECTORY_SINGLETON_DEFINE(SecStateDirectory)
DIRECTORY_SINGLETON_DEFINE(SessStateDirectory)
DIRECTORY_SINGLETON_DEFINE(PriceDirectionDirectory)
DIRECTORY_SINGLETON_DEFINE(OptioTypeDirectory)
DIRECTORY_SINGLETON_DEFINE(OptioCalcDirectory)
