#pragma once
#include "frame.h"

#include <QVector>

// One line of the directory registry: a table-bound directory class, the
// table it binds, how it registers on it, when programs bind it, and the
// text its construction throws when the table is missing. A class's
// constructor takes its table, registration and text from its line
// (Directory(parent, staticMetaObject)); programs and tests walk the lines.
struct DIRECTORY_EXPORT DirectoryClass
{
    // When programs bind the directory.
    enum Binding {
        // Before any row arrives: it follows every batch from the first
        // (password warnings, stream and deal notifications, session sums).
        AtStart,
        // Once the snapshot is loaded, so that it builds from the full table
        // (what a view of the market shows).
        AfterLoading,
        // By the first i() of whoever needs it.
        OnFirstUse,
    };

    QMetaObject const* metaObject;   // the class; its name is the translation context
    char const* table;
    Directory::Registration registration;
    Binding binding;
    // A translation source in the class's context: "Таблица '%1' отсутствует"
    // (%1 the table's name) or a fixed text naming the table.
    char const* missingText;
    QObject* (*instance)();   // X::i(): creates and binds; throws the missing-table text
    void (*reset)();          // QSingleton<X>::reset(): the next instance() binds anew

    char const* name() const { return metaObject->className(); }
};

// Every table-bound directory class once, in the order programs bind them: a
// directory whose hooks reach another comes after it.
DIRECTORY_EXPORT QVector<DirectoryClass> const& directoryRegistry();
