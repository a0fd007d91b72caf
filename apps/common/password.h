#pragma once
#include <QByteArray>
#include <QString>

namespace apps {
// A password from standard input, never from arguments or the environment:
// typed without echo after `prompt` (on standard error) when standard input
// is a terminal, else its first line. Empty when there is none.
QByteArray readPassword(QString const& prompt);
} // namespace apps
