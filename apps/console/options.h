#pragma once
#include "commands.h"

namespace console {
// The option-side views: --option-board (the series of a base by expiry,
// with volatility, price and sensitivities per strike, narrowed by --expiry
// and priced on --model) and --time (exchange time, current session and
// next trading days per market).
std::unique_ptr<ConsoleCommand> optionViewCommand();
}
