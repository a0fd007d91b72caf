#pragma once
#include "commands.h"

namespace console {
class OrderCommand;
// --login LOGIN and --account CODE: everything known of them. With an order
// command, --account names the order's account and nothing is reported.
std::unique_ptr<ConsoleCommand> accountCommand(OrderCommand const& orders);
}
