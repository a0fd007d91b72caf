#include "binding.h"

#include <database/database.h>

namespace apps {

QList<QObject*> bindDirectories(Database* db, DirectoryClass::Binding when)
{
    QList<QObject*> bound;
    for (DirectoryClass const& line : directoryRegistry())
        if (line.binding == when && db->hasTable(QString::fromLatin1(line.table))) bound << line.instance();
    return bound;
}

} // namespace apps
