#include "binding.h"

#include <database/database.h>
#include <directories>

#include <functional>

namespace apps {

void bindAccountDirectories(Database* db)
{
    auto bind = [db](char const* table, std::function<void()> make) {
        if (db->hasTable(QString::fromLatin1(table))) make();
    };
    bind("k3.user", [] { K3UserDirectory::i(); });
    bind("k3.investor", [] { K3InvestorDirectory::i(); });
    bind("k3.core_dealer", [] { K3CoreDealerDirectory::i(); });
    bind("k3.core_investor", [] { K3CoreInvestorDirectory::i(); });
    bind("k3.dealer", [] { K3DealerDirectory::i(); });
    bind("k3.RF", [] { K3RFDirectory::i(); });
    bind("k3.fut_settlement_account", [] { K3FutSettlementDirectory::i(); });
    bind("k3.fut_margin_type", [] { K3FutMarginTypeDirectory::i(); });
    bind("k3part_bf", [] { K3PartsBFDirectory::i(); });
    bind("fut_vm", [] { FutVMDirectory::i(); });
    bind("opt_vm", [] { OptVMDirectory::i(); });
    bind("fut_vm_sa", [] { FutVMSADirectory::i(); });
    bind("opt_vm_sa", [] { OptVMSADirectory::i(); });
    bind("k3.broker_fee_params", [] { K3BrokerFeeParamDirectory::i(); });
}

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

} // namespace apps
