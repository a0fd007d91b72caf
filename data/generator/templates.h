#pragma once
#include <string>

namespace gen {

// Writes the transaction templates of the generated markets (place an order,
// cancel one, cancel by security) as the core's templates file. False, with
// a message on stderr, when the file cannot be written.
bool writeTemplates(std::string const& path);

} // namespace gen
