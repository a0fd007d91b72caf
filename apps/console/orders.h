#pragma once
#include "commands.h"

#include <QCommandLineOption>
#include <QCommandLineParser>

// The console's order commands: --order, --cancel ORDER_ID and --cancel-all
// build the transaction through the library's transaction generator and
// print it; with --send the console hands it to the core, whose transport
// is the simulated exchange, waits for the answer through the event loop
// and prints it with the batches that came back. The console asks no
// question: --send is the confirmation. Nothing is sent unless it was built
// and printed; a rejection exits with Rejected.
namespace console {

class OrderCommand : public ConsoleCommand
{
public:
    void addOptions(QCommandLineParser& parser) override
    {
        parser.addOptions({m_order, m_cancel, m_cancelAll, m_side, m_price, m_quantity, m_send});
    }
    QString check(QCommandLineParser const& parser) const override;
    int run(RunContext& context) override;

    // An order command was given: --account then names its account.
    bool requested(QCommandLineParser const& parser) const;

private:
    QCommandLineOption m_order{QStringLiteral("order"),
        QStringLiteral("Build the transaction placing an order in this security (with --account, --side, --price, "
                       "--quantity) and print it. With an order command --account names the order's account."),
        QStringLiteral("stock,board,id")};
    QCommandLineOption m_cancel{QStringLiteral("cancel"),
        QStringLiteral("Build the transaction cancelling this order of the orders table and print it."), QStringLiteral("order id")};
    QCommandLineOption m_cancelAll{QStringLiteral("cancel-all"),
        QStringLiteral("Build the transaction cancelling every order in this security of --account on --side and print it."),
        QStringLiteral("stock,board,id")};
    QCommandLineOption m_side{QStringLiteral("side"), QStringLiteral("With --order or --cancel-all: B to buy, S to sell."), QStringLiteral("B|S")};
    QCommandLineOption m_price{QStringLiteral("price"), QStringLiteral("With --order: the price, digits with an optional '.' fraction."),
        QStringLiteral("price")};
    QCommandLineOption m_quantity{QStringLiteral("quantity"), QStringLiteral("With --order: the number of lots."), QStringLiteral("lots")};
    QCommandLineOption m_send{QStringLiteral("send"),
        QStringLiteral("Send the built transaction to the simulated exchange and print its answer and the batches that came "
                       "back (the console asks nothing: this is the confirmation). Exit status 3 when it was rejected.")};
};

} // namespace console
