#pragma once
#include <QCommandLineParser>
#include <QTextStream>

// The console's account options: --login LOGIN and --account CODE.
namespace console {
// Adds the options to the parser.
void addAccountOptions(QCommandLineParser& parser);
// Answers the options given; false (after printing why) for a bad argument.
bool answerAccountOptions(QCommandLineParser const& parser, QTextStream& out);
}
