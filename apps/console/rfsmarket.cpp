#include "rfsmarket.h"

#include <database/database.h>
#include <directories>

#include <functional>

namespace console {

void bindStreamDirectories(Database* db)
{
    auto bind = [db](char const* table, std::function<void()> make) {
        if (db->hasTable(QString::fromLatin1(table))) make();
    };
    // What the stream and deal hooks ask first, so that they find it bound.
    bind("k3.rfs.lp_users", [] { LPUsersDirectory::i(); });
    bind("orders", [] { RFSOrdersDirectory::i(); });
    bind("k3.rfs.base_contract_min_amount", [] { RFSMinAmountDirectory::i(); });
    bind("k3.rfs.quotes", [] { RFSQuoteDirectory::i(); });
    bind("k3.rfs.streams", [] { RFSStreamsDirectory::i(); });
    bind("deals", [] { DealsDirectory::i(); });
}

} // namespace console
