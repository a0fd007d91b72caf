#pragma once
#include <database/batchencoder.h>
#include <database/record.h>
#include <database/table.h>

#include <QByteArray>
#include <QHash>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <map>
#include <vector>

class Database;

namespace exchange {

// Whom a table's rows go to (docs/replication.md, "Each firm its own rows").
enum class Reach {
    Market,     // every session, whole
    Firm,       // the firm named by the first 4 characters of a column
    Deal,       // the firm of the account and the firm of the login: a quasi-deal's two sides
    DealFee,    // where the deal of the row's id_deal went
    RfPrefix,   // every firm whose code begins with the row's code
};

struct TableReach
{
    char const* table;
    Reach reach;
    char const* column;   // the column the firm is read from; for Deal, the account's
};

// Every table the exchange serves, with whom its rows go to. A table of the
// schema missing here goes to nobody.
std::vector<TableReach> const& tableReaches();
TableReach const* reachOf(QString const& table);

// The firm a client code, an account or a settlement account names: its
// first 4 characters; empty when it is shorter.
QString firmOf(QString const& code);

// Whom one row goes to: the firms that begin with one of two codes (a
// firm's own 4 characters, or a 2-character code several firms share).
struct Audience
{
    QString first, second;
    bool includes(QString const& firm) const
    {
        return !firm.isEmpty() && ((!first.isEmpty() && firm.startsWith(first)) || (!second.isEmpty() && firm.startsWith(second)));
    }
};

// Splits the exchange's tables by firm. It remembers, for every row of a
// per-firm table, whom it went to, so that an update or a delete that does
// not carry the firm's column reaches those that hold the row, and a row
// whose firm changes reaches its old firm as a delete and its new one as
// an insert. Lives on the database's updating thread.
class FirmRouter
{
public:
    explicit FirmRouter(Database* database);

    // Forgets everything and reads the tables as they stand now (at the
    // start, and when a new trading day replaced them).
    void reset();

    bool isMarketWide(QString const& table) const;
    // The rows of the table `firm`'s copy holds: none given for a
    // market-wide table (all of them).
    BatchEncoder::RowFilter filter(QString const& firm, QString const& table) const;
    // The firm of a login: that of its client code in k3.user; empty when
    // it has none.
    QString firmOfLogin(QString const& login) const;
    // The firms of k3.user's logins, in order.
    QStringList firms() const;

    // What the batch just applied to a per-firm table did, as each firm's
    // copy must see it: a batch text per firm that gets an operation of it,
    // in the order of `firms`. Updates what it remembers.
    std::vector<std::pair<QString, QByteArray>> split(QString const& table, QStringList const& firms);

private:
    struct Watched
    {
        QSharedPointer<Table> table;
        TableReach const* reach = nullptr;
        int column = -1, loginColumn = -1;
        QHash<unsigned char const*, Audience> audiences;   // by row buffer: rows change in place
        TableWatch watch;
        bool pending = false;
        RowChanges changes;   // of the batch being applied
    };
    Audience audienceOf(Watched const& w, Record const& row) const;
    Audience remembered(Watched const& w, Record const& row) const;

    Database* m_database;
    std::map<QString, Watched> m_watched;   // the per-firm tables
    QSharedPointer<Table> m_users;
    int m_userClientCode = -1;
};

} // namespace exchange
