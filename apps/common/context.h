#pragma once
#include <QString>
#include <QtGlobal>

namespace apps {

// The moment and the user a market was made for, read from its folder's
// terminal.json, so that its expiries, sessions and password warnings look
// as they were meant to whatever the date the console runs on.
struct TerminalContext
{
    bool hasNow = false;
    qint64 now = 0;     // milliseconds of the exchange's wall clock, read as UTC
    QString login;      // empty: none given
    QString day;        // the trading day's id: "day", else the date of "now"; empty: neither
};

// Reads `path`. A missing file gives an empty context; a malformed one gives
// false and `error` naming the file and what is wrong.
bool readTerminalContext(QString const& path, TerminalContext& context, QString& error);

// "HOST:PORT" with a port from 1 (0 too when `anyPort`) to 65535. Gives why not, or an empty string.
QString parseEndpoint(QString const& text, QString& host, quint16& port, bool anyPort = false);

// "yyyy-MM-dd HH:mm:ss", a real date and time, and nothing else.
bool parseMoment(QString const& text, qint64& msecs);
QString formatMoment(qint64 msecs);

// A login as the terminal's user: non-empty, at most 12 characters (the
// user table's width), printable, no spaces and no '|' (which separates the
// parts of a notification text). Gives why not, or an empty string.
QString loginProblem(QString const& login);

} // namespace apps
