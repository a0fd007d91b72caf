#pragma once
#include <QString>

class QTranslator;

// What every program of the project does at start: find its data beside
// itself, and choose the language of the library's texts.
namespace apps {

// The installed layout (share/libdirectory beside bin/), mirrored in the
// build tree; `fromBinary` is the relative path from the program's folder.
QString dataRoot(char const* fromBinary);

// The language asked for, else ru in a Russian locale and en otherwise.
QString chosenLanguage(QString const& asked);

// Installs the translation of `lang` from `dataRoot`/translations; Russian
// texts are the sources and need none. Gives why not, or an empty string.
QString installTranslation(QTranslator& translator, QString const& lang, QString const& dataRoot);

} // namespace apps
