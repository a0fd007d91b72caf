#include "registry_p.h"

#include "directories"

namespace {
constexpr Directory::Registration Dependent = Directory::AsDependent;
constexpr Directory::Registration Indexed = Directory::AsIndex;
constexpr DirectoryClass::Binding AtStart = DirectoryClass::AtStart;
constexpr DirectoryClass::Binding AfterLoading = DirectoryClass::AfterLoading;
constexpr DirectoryClass::Binding OnFirstUse = DirectoryClass::OnFirstUse;

template <class X>
DirectoryClass line(char const* table, Directory::Registration how, DirectoryClass::Binding when, char const* missingText)
{
    return {&X::staticMetaObject, table, how, when, missingText, []() -> QObject* { return X::i(); },
            &QSingleton<X>::reset};
}
} // namespace

QVector<DirectoryClass> const& directoryRegistry()
{
    // One line a class. The missing-table text stands in the class's own
    // translation context, spelled out here for the translation tools.
    static QVector<DirectoryClass> const lines{
        line<SecurityDirectory>("securities", Indexed, AfterLoading, QT_TRANSLATE_NOOP("SecurityDirectory", "Таблица '%1' отсутствует")),
        line<StockSecDirectory>("securities", Indexed, AfterLoading, QT_TRANSLATE_NOOP("StockSecDirectory", "Таблица '%1' отсутствует")),
        line<BoardDirectory>("boards", Dependent, AfterLoading, QT_TRANSLATE_NOOP("BoardDirectory", "Таблица '%1' отсутствует")),
        line<StockDirectory>("stocks", Dependent, AfterLoading, QT_TRANSLATE_NOOP("StockDirectory", "Таблица '%1' отсутствует")),
        line<BuySellDirectory>("buysells", Dependent, AfterLoading, QT_TRANSLATE_NOOP("BuySellDirectory", "Таблица '%1' отсутствует")),
        line<StatusDirectory>("statuses", Dependent, AfterLoading, QT_TRANSLATE_NOOP("StatusDirectory", "Таблица '%1' отсутствует")),
        line<SecTypeDirectory>("sectypes", Dependent, AfterLoading, QT_TRANSLATE_NOOP("SecTypeDirectory", "Таблица '%1' отсутствует")),
        line<SecStateDirectory>("secstates", Dependent, AfterLoading, QT_TRANSLATE_NOOP("SecStateDirectory", "Таблица '%1' отсутствует")),
        line<SessStateDirectory>("sessstates", Dependent, AfterLoading, QT_TRANSLATE_NOOP("SessStateDirectory", "Таблица '%1' отсутствует")),
        line<SessionDirectory>("sessions", Dependent, OnFirstUse, QT_TRANSLATE_NOOP("SessionDirectory", "Таблица '%1' отсутствует")),
        line<CalendarDirectory>("calendar", Dependent, OnFirstUse, QT_TRANSLATE_NOOP("CalendarDirectory", "Таблица '%1' отсутствует")),
        line<StockTimeDirectory>("stock_time", Dependent, OnFirstUse, QT_TRANSLATE_NOOP("StockTimeDirectory", "Таблица '%1' отсутствует")),
        line<VolatDirectory>("k3.volat", Indexed, OnFirstUse, QT_TRANSLATE_NOOP("VolatDirectory", "Таблица '%1' отсутствует")),
        line<VolatCoeffBlackDirectory>("k3.volat_coeff_black", Dependent, OnFirstUse, QT_TRANSLATE_NOOP("VolatCoeffBlackDirectory", "Таблица '%1' отсутствует")),
        line<VolatCoeffBachDirectory>("k3.volat_coeff_bach", Dependent, OnFirstUse, QT_TRANSLATE_NOOP("VolatCoeffBachDirectory", "Таблица '%1' отсутствует")),
        line<OptionSeriesParamDirectory>("k3.option_series_params", Indexed, OnFirstUse, QT_TRANSLATE_NOOP("OptionSeriesParamDirectory", "Таблица '%1' отсутствует")),
        line<K3UserDirectory>("k3.user", Indexed, AtStart, QT_TRANSLATE_NOOP("K3UserDirectory", "Таблица '%1' отсутствует")),
        line<K3InvestorDirectory>("k3.investor", Indexed, AtStart, QT_TRANSLATE_NOOP("K3InvestorDirectory", "Таблица k3.investor отсутствует")),
        line<K3CoreDealerDirectory>("k3.core_dealer", Indexed, AtStart, QT_TRANSLATE_NOOP("K3CoreDealerDirectory", "Таблица '%1' отсутствует")),
        line<K3CoreInvestorDirectory>("k3.core_investor", Indexed, AtStart, QT_TRANSLATE_NOOP("K3CoreInvestorDirectory", "Таблица '%1' отсутствует")),
        line<K3DealerDirectory>("k3.dealer", Dependent, AtStart, QT_TRANSLATE_NOOP("K3DealerDirectory", "Таблица '%1' отсутствует")),
        line<K3RFDirectory>("k3.RF", Dependent, AtStart, QT_TRANSLATE_NOOP("K3RFDirectory", "Таблица '%1' отсутствует")),
        line<K3FutSettlementDirectory>("k3.fut_settlement_account", Indexed, AtStart, QT_TRANSLATE_NOOP("K3FutSettlementDirectory", "Таблица '%1' отсутствует")),
        line<K3FutMarginTypeDirectory>("k3.fut_margin_type", Dependent, AtStart, QT_TRANSLATE_NOOP("K3FutMarginTypeDirectory", "Таблица '%1' отсутствует")),
        line<K3PartsBFDirectory>("k3part_bf", Indexed, AtStart, QT_TRANSLATE_NOOP("K3PartsBFDirectory", "Таблица '%1' отсутствует")),
        line<FutVMDirectory>("fut_vm", Indexed, AtStart, QT_TRANSLATE_NOOP("FutVMDirectory", "Таблица '%1' отсутствует")),
        line<OptVMDirectory>("opt_vm", Indexed, AtStart, QT_TRANSLATE_NOOP("OptVMDirectory", "Таблица '%1' отсутствует")),
        line<FutVMSADirectory>("fut_vm_sa", Indexed, AtStart, QT_TRANSLATE_NOOP("FutVMSADirectory", "Таблица '%1' отсутствует")),
        line<OptVMSADirectory>("opt_vm_sa", Indexed, AtStart, QT_TRANSLATE_NOOP("OptVMSADirectory", "Таблица '%1' отсутствует")),
        line<FutRateDirectory>("k3.futures_rate", Indexed, OnFirstUse, QT_TRANSLATE_NOOP("FutRateDirectory", "Таблица '%1' отсутствует")),
        line<OptRateDirectory>("k3.option_rate", Indexed, OnFirstUse, QT_TRANSLATE_NOOP("OptRateDirectory", "Таблица '%1' отсутствует")),
        line<FeeDirectory>("k3.adjusted_fee", Indexed, OnFirstUse, QT_TRANSLATE_NOOP("FeeDirectory", "Таблица '%1' отсутствует")),
        line<BrokerFeeDirectory>("k3.broker_fee", Indexed, OnFirstUse, QT_TRANSLATE_NOOP("BrokerFeeDirectory", "Таблица '%1' отсутствует")),
        line<K3BrokerFeeParamDirectory>("k3.broker_fee_params", Indexed, AtStart, QT_TRANSLATE_NOOP("K3BrokerFeeParamDirectory", "Таблица k3.broker_fee_params отсутствует")),
        line<BaseContractsParamsDirectory>("k3.base_contracts_params", Indexed, OnFirstUse, QT_TRANSLATE_NOOP("BaseContractsParamsDirectory", "Таблица '%1' отсутствует")),
        // The stream and deal hooks ask the providers' users and the orders
        // first, so those are bound before them.
        line<LPUsersDirectory>("k3.rfs.lp_users", Indexed, AtStart, QT_TRANSLATE_NOOP("LPUsersDirectory", "Таблица '%1' отсутствует")),
        line<RFSOrdersDirectory>("orders", Indexed, AtStart, QT_TRANSLATE_NOOP("RFSOrdersDirectory", "Таблица '%1' отсутствует")),
        line<RFSMinAmountDirectory>("k3.rfs.base_contract_min_amount", Indexed, AtStart, QT_TRANSLATE_NOOP("RFSMinAmountDirectory", "Таблица '%1' отсутствует")),
        line<RFSQuoteDirectory>("k3.rfs.quotes", Indexed, AtStart, QT_TRANSLATE_NOOP("RFSQuoteDirectory", "Таблица '%1' отсутствует")),
        line<RFSStreamsDirectory>("k3.rfs.streams", Indexed, AtStart, QT_TRANSLATE_NOOP("RFSStreamsDirectory", "Таблица '%1' отсутствует")),
        line<DealsDirectory>("deals", Indexed, AtStart, QT_TRANSLATE_NOOP("DealsDirectory", "Таблица '%1' отсутствует")),
    };
    return lines;
}

DirectoryClass const* registeredClass(QMetaObject const& cls)
{
    for (DirectoryClass const& line : directoryRegistry())
        if (line.metaObject == &cls) return &line;
    return nullptr;
}
