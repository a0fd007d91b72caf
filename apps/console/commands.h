#pragma once
#include <QString>
#include <memory>
#include <vector>

class DefaultCore;
class QCommandLineParser;
class QTextStream;
class SignalLog;

class ReplicationClient;

namespace console {

// What a command has once the market is loaded.
struct RunContext
{
    QCommandLineParser const& parser;
    DefaultCore& core;
    QString templatesFile;   // the market folder's transaction templates
    SignalLog& signalLog;    // the directories that signalled since it was last read
    QTextStream& out;
    // The exchange's session when following one (--connect): orders go
    // there; else to the simulated exchange in-process.
    ReplicationClient* session;
};

// One group of the console's options, asked for on the command line and
// answered once the market is loaded.
class ConsoleCommand
{
public:
    virtual ~ConsoleCommand() = default;
    // Before the parser processes the arguments.
    virtual void addOptions(QCommandLineParser& parser) = 0;
    // The arguments alone, before anything loads: why they cannot be used,
    // or an empty string.
    virtual QString check(QCommandLineParser const&) const { return QString(); }
    // After loading: Done, NotFound or Rejected (apps::ExitStatus). A
    // refusal is thrown as a QString, as the directories refuse, and ends
    // the program with its message.
    virtual int run(RunContext& context) = 0;
};

using Commands = std::vector<std::unique_ptr<ConsoleCommand>>;

// Every command of the console, in the order they run.
Commands consoleCommands();

// Every command's check in turn: the first refusal, or an empty string.
QString checkCommands(Commands const& commands, QCommandLineParser const& parser);

} // namespace console
