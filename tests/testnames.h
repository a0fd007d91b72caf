#pragma once
#include <cctype>
#include <string>

// The name of a parameterised case, made from its description: "flag set on
// board 1/10" gives "FlagSetOnBoard1_10". GoogleTest allows only letters,
// digits and underscores, and the name must not depend on the build (a
// case's bytes do), so that runs can be compared by name.
inline std::string caseNameFromWords(std::string const& words)
{
    std::string name;
    bool wordStart = true;
    for (unsigned char c : words) {
        if (std::isalnum(c)) {
            name += char(wordStart ? std::toupper(c) : c);
            wordStart = false;
        } else if (c == ' ') {
            wordStart = true;
        } else {
            if (!name.empty() && name.back() != '_') name += '_';
            wordStart = true;
        }
    }
    while (!name.empty() && name.back() == '_') name.pop_back();
    return name.empty() ? "Unnamed" : name;
}
