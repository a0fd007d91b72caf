#include "cachedindex.h"

#include <database/database.h>

#include <QtGlobal>

MasterIndex_Column_Cached::MasterIndex_Column_Cached(Table* table, QStringList const& columns)
    : MasterIndexCached<MasterIndex_Column>(table, columns)
{
}

MasterIndex_Column_Cached::MasterIndex_Column_Cached(Table* table, QList<int> const& columns)
    : MasterIndexCached<MasterIndex_Column>(table, columns)
{
}

MasterIndex_Column_Cached::~MasterIndex_Column_Cached() = default;

QString MasterIndex_Column_Cached::getClassName() const { return QStringLiteral("MasterIndex_Column_Cached"); }

MasterIndex_Column_Pure* MasterIndex_Column_Cached::fallback(Table* table, QStringList const& columns, QString const& why)
{
    QString text = QStringLiteral("ThisIndexType : Cannot create optimized MasterIndex for '%1': ")
                       .arg(table ? table->name() : QString()) +
                   why;
    qWarning("%s", qUtf8Printable(text));
    return new MasterIndex_Column_Cached(table, columns);
}

template class MasterIndex_Struct_Cached<int>;
template class MasterIndex_Struct_Cached<int, int, int>;
template class MasterIndex_Struct_Cached<int, int, long long>;
template class MasterIndex_Struct_Cached<ucharn<12>>;

void directory::registerSecuritiesMasterIndex()
{
    Database::setDefaultMasterIndexFactory(QStringLiteral("securities"), [](Table* table, QStringList const& columns) {
        return MasterIndex_Struct_Cached<int, int, long long>::create(table, columns);
    });
}

namespace {
// The database never links against this library, so it learns of the
// securities index when the library is loaded.
struct SecuritiesMasterIndexRegistration
{
    SecuritiesMasterIndexRegistration() { directory::registerSecuritiesMasterIndex(); }
} g_securitiesMasterIndexRegistration;
} // namespace
