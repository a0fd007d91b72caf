#pragma once
#include <QList>
#include <QString>
#include <QTextStream>

namespace console {

// A lookup the console answers after loading: `--name value`, repeatable.
// `check` reads the value alone (before anything loads) and says why it is
// malformed, or returns an empty string. `answer` prints what it found as
// "key: value" lines, or "<what> <value>: not found" and returns false.
struct LookupOption
{
    char const* name;
    char const* valueName;
    char const* description;
    QString (*check)(QString const& value);
    bool (*answer)(QTextStream& out, QString const& value);
};

// Markets, boards and securities (lookups.cpp).
QList<LookupOption> marketLookups();

} // namespace console
