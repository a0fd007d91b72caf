#pragma once
#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QString>
#include <QTextStream>

// The console's option-side views: --option-board (the series of a base by
// expiry, with volatility, price and sensitivities per strike) and --time
// (exchange time, current session and next trading days per market).
namespace console {

class OptionViews
{
public:
    // Adds the options to the parser (before it processes the arguments).
    explicit OptionViews(QCommandLineParser& parser);

    // The options that only go with another, checked before loading; an
    // empty text when they agree.
    QString check(QCommandLineParser const& parser) const;

    // Prints what was asked for, after loading. False, with `error` set,
    // when an argument cannot be read.
    bool answer(QCommandLineParser const& parser, QTextStream& out, QString& error) const;

private:
    QCommandLineOption m_board;
    QCommandLineOption m_expiry;
    QCommandLineOption m_model;
    QCommandLineOption m_time;
};

} // namespace console
