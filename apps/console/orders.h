#pragma once
#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QString>
#include <QTextStream>

class SignalLog;

// The console's order commands: --order, --cancel ORDER_ID and --cancel-all
// build the transaction through the library's transaction generator and
// print it; with --send the console hands it to the core, whose transport
// is the simulated exchange, waits for the answer through the event loop
// and prints it with the batches that came back. The console asks no
// question: --send is the confirmation.
namespace console {

class OrderCommands
{
public:
    // Exit status when the exchange rejected what was sent.
    static constexpr int Rejected = 3;

    // Adds the options to the parser (before it processes the arguments).
    explicit OrderCommands(QCommandLineParser& parser);

    // Reads the arguments alone, before anything loads: why they cannot be
    // used, or an empty string.
    QString check(QCommandLineParser const& parser) const;
    // An order command was given: --account then names its account.
    bool requested(QCommandLineParser const& parser) const;

    // After loading: 0 when nothing was asked, the transaction was only
    // built, or the exchange accepted it; Rejected; 1 with `error` set when
    // it could not be built or sent (nothing was sent then).
    int run(QCommandLineParser const& parser, QString const& templatesFile, SignalLog& signalLog, QTextStream& out,
            QString& error) const;

private:
    QCommandLineOption m_order;
    QCommandLineOption m_cancel;
    QCommandLineOption m_cancelAll;
    QCommandLineOption m_side;
    QCommandLineOption m_price;
    QCommandLineOption m_quantity;
    QCommandLineOption m_send;
};

} // namespace console
