#pragma once
#include "jsonl.h"
#include "rng.h"
#include <cstdint>
#include <string>
#include <vector>

namespace gen {

// Sessions of the invented trading day (2026-11-20, a Friday): yesterday's,
// today's, and the one the evening roll opens for Monday.
constexpr int kSessPrev = 7301;
constexpr int kSessCur = 7302;
constexpr int kSessNext = 7303;

// The terminal user whose quasi-deals wait for confirmation in the data.
constexpr char const* kCurrentLogin = "FA01U01";

// A firm's code opens each of its client codes and settlement accounts; a
// login is of the firm of its client code.
inline std::string firmOf(std::string const& code)
{
    return code.substr(0, 4);
}

// The moment the snapshot shows: the replication log starts then.
constexpr char const* kSnapshotMoment = "2026-11-20 10:00:00";

enum class Kind : std::uint8_t { Future, BoardTwin, Orphan, Proxy, StreamFut, Swap, Index, Option };

struct Base
{
    std::string code;
    int stock = 1;
    int futBoard = 1;
    int optBoard = 14;
    int decimals = 0;
    std::int64_t step = 1;       // price step, mantissa at `decimals`
    std::int64_t price = 0;      // reference price, mantissa at `decimals`
    std::int64_t stepPrice = 0;  // money per step, scale 5
    int lotsize = 1;
    int isPercent = 0;
    char priceDir = 'A';
};

struct Series
{
    std::int32_t id = 0;
    std::int32_t fut = -1;       // underlying future (index into securities)
    std::int64_t expiry = 0;     // day
    std::int64_t strikeStep = 0;
    bool black = true;           // has a smile row in each model's table
    bool bach = true;
    bool alive = true;
};

struct Sec
{
    std::int64_t secId = 0;
    std::int64_t strike = 0;     // mantissa at `decimals`
    std::int64_t price = 0;      // current market price, mantissa at `decimals`
    std::int64_t settle = 0;     // settlement of the previous session
    std::int64_t low = 0;        // price limits of the session, mantissas;
    std::int64_t high = 0;       // none when high is 0 (indexes)
    std::int32_t isin = 0;
    std::int32_t base = 0;
    std::int32_t under = -1;     // future mirrored by a twin, or an option's underlying
    std::int32_t series = -1;
    std::int32_t sess = kSessCur;
    std::int16_t stock = 1;
    std::int16_t board = 1;
    std::int8_t decimals = 0;
    std::int8_t expIdx = -1;     // which quarterly expiry (futures and their copies)
    Kind kind = Kind::Future;
    char optType = 0;
    std::uint8_t refs = 0;       // rows of other tables point at it: never removed
    bool alive = true;
};

struct Board
{
    int stock, id;
    std::string code, name;
    char anonym;                 // 0: none
    char sectype;
    std::int64_t flags;
    std::string iss;
};

struct Firm
{
    std::string rf, bf, name;
    int status;
    std::int64_t signs;
};

struct Client
{
    std::string code;
    int firm;
    std::string name;
    int status;
};

struct Login
{
    std::string login, clientCode;
    int sma;                     // -1: null
    int aspref;
    std::int64_t expiry;
    bool alive = true;
};

struct Stream
{
    std::int64_t id;
    std::int32_t sec;            // security on the request-for-stream board
    int amount;
    std::int64_t signs;
    int dir;                     // 1 bid, 2 offer, 3 both
    int bump, duration;
    std::int64_t quoteId[2] = {0, 0};
    std::int64_t quote[2] = {0, 0};
    bool alive = true;
    bool withOrders = false;
};

struct Order
{
    std::int64_t id;
    std::int64_t stream;         // 0: none
    std::int64_t price;          // at the security's decimals
    std::int64_t signs;
    std::int64_t moment;
    std::int32_t sec;
    std::int32_t client;
    std::int32_t sess;
    std::int16_t stock, board;
    int qty, balance;
    std::int8_t decimals;
    std::int8_t dkh;
    char side, status;
    bool alive = true;
};

struct Deal
{
    std::int64_t id;
    std::int64_t price;
    std::int64_t qty;
    std::int64_t signs;
    std::int32_t sec;
    std::int32_t client;
    std::string login;
    char side;
    int state, error, talmeraError;
};

class Market
{
public:
    Market(std::uint64_t seed, std::int64_t securities);

    void writeSnapshot(JsonlWriter& w);
    void writeReplication(JsonlWriter& w);

    std::size_t securityCount() const { return m_secs.size(); }
    std::size_t orderCount() const { return m_orders.size(); }
    std::size_t dealCount() const { return m_deals.size(); }
    std::size_t streamCount() const { return m_streams.size(); }

private:
    // building
    void buildBases(std::int64_t target);
    void buildSecurities(std::int64_t target);
    void buildParticipants();
    void buildStreamsOrdersDeals(std::int64_t target);
    std::int32_t addSec(Sec const& s);
    std::int32_t addOption(std::int32_t seriesIdx, std::int64_t strike, char type);
    std::int64_t optionPremium(Sec const& opt, std::int64_t underlying) const;

    // values
    std::int64_t stepOf(Sec const& s) const;
    std::int64_t roundToStep(Sec const& s, std::int64_t v) const;
    std::int64_t expiryOf(Sec const& s) const;  // day, -1 none
    std::string codeOf(Sec const& s) const;
    std::string nameOf(Sec const& s) const;
    bool quoted(Sec const& s) const;
    std::int64_t bidOf(Sec const& s) const;
    std::int64_t askOf(Sec const& s) const;
    void setLimits(Sec& s) const;
    // Every price the market shows or trades at lies within the limits.
    std::int64_t withinLimits(Sec const& s, std::int64_t price) const;

    // rows
    void securityRow(JsonlWriter& w, Sec const& s) const;
    void securityKey(JsonlWriter& w, Sec const& s) const;
    void orderRow(JsonlWriter& w, Order const& o) const;
    void orderKey(JsonlWriter& w, Order const& o) const;
    void dealRow(JsonlWriter& w, Deal const& d) const;
    void streamRow(JsonlWriter& w, Stream const& st) const;
    void quoteRow(JsonlWriter& w, Stream const& st, int side) const;
    void seriesRow(JsonlWriter& w, Series const& sr) const;
    void blackRow(JsonlWriter& w, Series const& sr) const;
    void bachRow(JsonlWriter& w, Series const& sr) const;
    void volatRow(JsonlWriter& w, Sec const& s, int sess) const;
    void rateRow(JsonlWriter& w, Sec const& s, int sess) const;
    void boardRow(JsonlWriter& w, Board const& b) const;
    void userRow(JsonlWriter& w, Login const& l) const;

    void writeVocabularies(JsonlWriter& w);
    void writeMarketStructure(JsonlWriter& w);
    void writeParticipants(JsonlWriter& w);

    // replication helpers
    void tick(JsonlWriter& w, std::int64_t at);
    void quoteTick(JsonlWriter& w, std::int64_t at);
    void newOrders(JsonlWriter& w, int count, int sess, std::int64_t at);
    std::int32_t pickLive(Kind kind, int board = 0);
    // A live login of `firm` (or, when `sameFirm` is false, of any other
    // firm), chosen by `draw`.
    std::string const& loginOf(std::string const& firm, bool sameFirm, std::uint64_t draw) const;
    // A client of the terminal user's firm, chosen by `draw`: the user's
    // own orders (those on streams) are placed for it.
    std::int32_t userClient(std::uint64_t draw) const;

    Rng m_rng;
    std::int64_t m_target;
    int m_strikes = 0;
    std::vector<Base> m_bases;
    std::vector<Sec> m_secs;
    std::vector<Series> m_series;
    std::vector<Board> m_boards;
    std::vector<Firm> m_firms;
    std::vector<Client> m_clients;
    std::vector<Login> m_logins;
    std::vector<Stream> m_streams;
    std::vector<Order> m_orders;
    std::vector<Deal> m_deals;
    std::vector<std::int32_t> m_streamSecs;
    std::vector<std::int32_t> m_byKind[8];   // security indexes of each kind, for random picks
    std::int64_t m_expiries[4] = {0, 0, 0, 0};
    std::int64_t m_nextSecId = 0;
    std::int64_t m_nextOptId = 0;
    std::int32_t m_nextIsin = 0;
    std::int32_t m_nextSeriesId = 0;
    std::int64_t m_nextOrderId = 0;
    std::int64_t m_nextDealId = 0;
    std::int64_t m_nextStreamId = 0;
    std::int64_t m_nextQuoteId = 0;
};

} // namespace gen
