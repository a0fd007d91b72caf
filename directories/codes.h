#pragma once
// One-letter codes of the exchange's small vocabularies, and the same codes
// as ready-made field values for comparing a column with Field::compare.
// Everything here has internal linkage: each source file that includes this
// header builds its own copies when the library loads.
#include <database/field.h>

#include <QChar>

namespace Buysells {
static constexpr QChar Buy = QLatin1Char('B');
static constexpr QChar Sell = QLatin1Char('S');
}
namespace Statuses {
static constexpr QChar Active = QLatin1Char('A');
static constexpr QChar Withdrawn = QLatin1Char('W');
}
namespace SecTypes {
static constexpr QChar Futures = QLatin1Char('F');
static constexpr QChar Option = QLatin1Char('O');
static constexpr QChar Spred = QLatin1Char('H');
static constexpr QChar Risk = QLatin1Char('K');
static constexpr QChar Indexes = QLatin1Char('I');
}
namespace PriceDirs {
static constexpr QChar Asc = QLatin1Char('A');
static constexpr QChar Desc = QLatin1Char('D');
}
namespace OptioType {
static constexpr QChar Call = QLatin1Char('C');
static constexpr QChar Put = QLatin1Char('P');
}
namespace OptioCalc {
static constexpr QChar AmerA = QLatin1Char('A');
static constexpr QChar AmerB = QLatin1Char('B');
}
namespace Anonyms {
static constexpr QChar Address = QLatin1Char('A');
static constexpr QChar Anonym = QLatin1Char('D');
}

// Built in this order, Buy to Anonym, in every source file.
namespace Fld_Buysells {
static const FieldConstValue Buy(Buysells::Buy);
static const FieldConstValue Sell(Buysells::Sell);
}
namespace Fld_Statuses {
static const FieldConstValue Active(Statuses::Active);
static const FieldConstValue Withdrawn(Statuses::Withdrawn);
}
namespace Fld_SecTypes {
static const FieldConstValue Futures(SecTypes::Futures);
static const FieldConstValue Option(SecTypes::Option);
static const FieldConstValue Spred(SecTypes::Spred);
static const FieldConstValue Risk(SecTypes::Risk);
static const FieldConstValue Indexes(SecTypes::Indexes);
}
namespace Fld_PriceDirs {
static const FieldConstValue Asc(PriceDirs::Asc);
static const FieldConstValue Desc(PriceDirs::Desc);
}
namespace Fld_OptioType {
static const FieldConstValue Call(OptioType::Call);
static const FieldConstValue Put(OptioType::Put);
}
namespace Fld_OptioCalc {
static const FieldConstValue AmerA(OptioCalc::AmerA);
static const FieldConstValue AmerB(OptioCalc::AmerB);
}
namespace Fld_Anonyms {
static const FieldConstValue Address(Anonyms::Address);
static const FieldConstValue Anonym(Anonyms::Anonym);
}

// Shared decimal field types of computed values, by their scale (places).
namespace FieldsTypes {
struct Decimal { short scale; };
static constexpr Decimal volat{4};    // volatility, percent
static constexpr Decimal greeks{8};   // sensitivities
static constexpr Decimal percent{4};  // rates, percent
}
