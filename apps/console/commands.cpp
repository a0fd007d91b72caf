#include "commands.h"
#include "accounts.h"
#include "lookups.h"
#include "options.h"
#include "orders.h"
#include "startup.h"

#include <core/defaultcore.h>
#include <database/database.h>

#include <QCommandLineParser>
#include <QTextStream>

namespace console {
namespace {

class TablesCommand : public ConsoleCommand
{
public:
    void addOptions(QCommandLineParser& parser) override { parser.addOption(m_tables); }
    int run(RunContext& c) override
    {
        if (!c.parser.isSet(m_tables)) return apps::Done;
        Database* db = c.core.database();
        c.out << "Tables:\n";
        for (QString const& name : db->tableNames())
            c.out << QStringLiteral("  %1 %2 rows\n").arg(name, -36).arg(db->table(name)->rowCount(), 8);
        c.out.flush();
        return apps::Done;
    }

private:
    QCommandLineOption m_tables{QStringLiteral("tables"), QStringLiteral("List every table with its number of rows.")};
};

} // namespace

Commands consoleCommands()
{
    Commands commands;
    auto orders = std::make_unique<OrderCommand>();
    commands.push_back(std::make_unique<TablesCommand>());
    commands.push_back(lookupCommand());
    commands.push_back(optionViewCommand());
    commands.push_back(accountCommand(*orders));
    commands.push_back(std::move(orders));
    return commands;
}

QString checkCommands(Commands const& commands, QCommandLineParser const& parser)
{
    for (auto const& command : commands) {
        QString const why = command->check(parser);
        if (!why.isEmpty()) return why;
    }
    return QString();
}

} // namespace console
