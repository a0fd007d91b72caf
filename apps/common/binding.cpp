#include "binding.h"

#include <database/database.h>
#include <directories>

#include <functional>

namespace apps {

QList<QObject*> bindAccountDirectories(Database* db)
{
    QList<QObject*> bound;
    auto bind = [db, &bound](char const* table, std::function<QObject*()> make) {
        if (db->hasTable(QString::fromLatin1(table))) bound << make();
    };
    bind("k3.user", [] { return K3UserDirectory::i(); });
    bind("k3.investor", [] { return K3InvestorDirectory::i(); });
    bind("k3.core_dealer", [] { return K3CoreDealerDirectory::i(); });
    bind("k3.core_investor", [] { return K3CoreInvestorDirectory::i(); });
    bind("k3.dealer", [] { return K3DealerDirectory::i(); });
    bind("k3.RF", [] { return K3RFDirectory::i(); });
    bind("k3.fut_settlement_account", [] { return K3FutSettlementDirectory::i(); });
    bind("k3.fut_margin_type", [] { return K3FutMarginTypeDirectory::i(); });
    bind("k3part_bf", [] { return K3PartsBFDirectory::i(); });
    bind("fut_vm", [] { return FutVMDirectory::i(); });
    bind("opt_vm", [] { return OptVMDirectory::i(); });
    bind("fut_vm_sa", [] { return FutVMSADirectory::i(); });
    bind("opt_vm_sa", [] { return OptVMSADirectory::i(); });
    bind("k3.broker_fee_params", [] { return K3BrokerFeeParamDirectory::i(); });
    return bound;
}

QList<QObject*> bindStreamDirectories(Database* db)
{
    QList<QObject*> bound;
    auto bind = [db, &bound](char const* table, std::function<QObject*()> make) {
        if (db->hasTable(QString::fromLatin1(table))) bound << make();
    };
    // What the stream and deal hooks ask first, so that they find it bound.
    bind("k3.rfs.lp_users", [] { return LPUsersDirectory::i(); });
    bind("orders", [] { return RFSOrdersDirectory::i(); });
    bind("k3.rfs.base_contract_min_amount", [] { return RFSMinAmountDirectory::i(); });
    bind("k3.rfs.quotes", [] { return RFSQuoteDirectory::i(); });
    bind("k3.rfs.streams", [] { return RFSStreamsDirectory::i(); });
    bind("deals", [] { return DealsDirectory::i(); });
    return bound;
}

} // namespace apps
