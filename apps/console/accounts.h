#pragma once
#include <QCommandLineParser>
#include <QTextStream>

class Database;

// The console's account options: --login LOGIN and --account CODE.
namespace console {
// Adds the options to the parser.
void addAccountOptions(QCommandLineParser& parser);
// Binds the directories of logins, participants, accounts and money whose
// tables exist, before the market is loaded, as a terminal binds them at
// start: they then follow every batch (and warn of expiring passwords).
void bindAccountDirectories(Database* db);
// Answers the options given; false (after printing why) for a bad argument.
bool answerAccountOptions(QCommandLineParser const& parser, QTextStream& out);
}
