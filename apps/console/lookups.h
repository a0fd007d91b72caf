#pragma once
#include "commands.h"

namespace console {
// Markets, boards and securities: --security, --sec-code, --isin, --board,
// --board-code and --market, each repeatable, answered in the order given.
std::unique_ptr<ConsoleCommand> lookupCommand();
}
