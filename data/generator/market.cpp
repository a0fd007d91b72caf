#include "market.h"
#include "civil.h"
#include <algorithm>

namespace gen {

namespace {

const std::int64_t kToday = daysFromCivil(2026, 11, 20);

// Invented base-contract codes; larger markets continue with synthesized ones.
char const* const kFixedBases[] = {
    "VLT", "KZR", "MZQ", "QTZ", "BRQ", "LXM", "ZPV", "ORQ", "TQV", "FZX", "GQD", "HZX",
    "JQN", "PZR", "SQV", "NQX", "DQR", "CZB", "WQF", "YQA", "GZL", "SZV", "OZQ", "GQS"};
constexpr int kFixedBaseCount = int(sizeof kFixedBases / sizeof kFixedBases[0]);

char const* const kFirmWords[] = {"Ксилар", "Ворден", "Тимлат", "Эскарт", "Брандис", "Кавелин",
                                  "Дормаст", "Ярвинг", "Олсет", "Пелгран", "Сотрин", "Фарвис"};
char const* const kFirmKinds[] = {"Капитал", "Брокер", "Инвест"};
char const* const kSurnames[] = {"Орешкин", "Лаптев", "Сомов", "Журавлёв", "Ветров", "Климов",
                                 "Рябинин", "Щеглов", "Панов", "Ершов", "Градов", "Тихонов"};
char const* const kRfCodes[] = {"FA", "FB", "QC", "QD", "MZ", "TR"};

std::int64_t pow10(int n)
{
    std::int64_t p = 1;
    while (n-- > 0)
        p *= 10;
    return p;
}

std::string two(unsigned v)
{
    std::string s(2, '0');
    s[0] = char('0' + v / 10 % 10);
    s[1] = char('0' + v % 10);
    return s;
}

// "12.26" for a day in December 2026.
std::string monthYear(std::int64_t day)
{
    int y;
    unsigned m, d;
    civilFromDays(day, y, m, d);
    return two(m) + "." + two(unsigned(y % 100));
}

std::string dayMonthYear(std::int64_t day)
{
    int y;
    unsigned m, d;
    civilFromDays(day, y, m, d);
    return two(d) + "." + two(m) + "." + two(unsigned(y % 100));
}

std::string digits(std::int64_t v)
{
    return std::to_string(v);
}

// Decimal text of a mantissa, for names.
std::string decimalText(std::int64_t mantissa, int scale)
{
    std::string s = std::to_string(mantissa / pow10(scale));
    if (scale > 0) {
        std::string frac = std::to_string(mantissa % pow10(scale));
        s += "." + std::string(std::size_t(scale) - frac.size(), '0') + frac;
    }
    return s;
}

std::int64_t isqrt(std::int64_t n)
{
    std::int64_t r = 0;
    while ((r + 1) * (r + 1) <= n)
        ++r;
    return r;
}

} // namespace

Market::Market(std::uint64_t seed, std::int64_t securities)
    : m_rng(seed), m_target(securities)
{
    m_expiries[0] = thirdThursday(2026, 12);
    m_expiries[1] = thirdThursday(2027, 3);
    m_expiries[2] = thirdThursday(2027, 6);
    m_expiries[3] = thirdThursday(2027, 9);
    m_nextSecId = 100001;
    m_nextOptId = 4300000001LL;   // beyond 32 bits on purpose
    m_nextIsin = 20001;
    m_nextSeriesId = 501;
    m_nextOrderId = 51000000001LL;
    m_nextDealId = 80000000001LL;
    m_nextStreamId = 9000000001LL;
    m_nextQuoteId = 1200000000001LL;

    buildBases(securities);
    buildSecurities(securities);
    buildParticipants();
    buildStreamsOrdersDeals(securities);
}

void Market::buildBases(std::int64_t target)
{
    m_strikes = int(std::clamp<std::int64_t>(isqrt(target) / 4, 6, 50));
    // Each base lists 4 futures with 3 option series each; spare bases so
    // that the options always reach the target.
    std::int64_t perBase = 24 * m_strikes;
    // Every fourth base from the second is of market 4: five bases give the
    // four of market 1 that the swap boards list.
    int count = int(std::max<std::int64_t>(5, target / perBase + 2));
    for (int b = 0; b < count; ++b) {
        Base base;
        if (b < kFixedBaseCount) {
            base.code = kFixedBases[b];
        } else {
            int k = b - kFixedBaseCount;
            base.code = std::string("Z") + char('A' + k / 260 % 26) + char('A' + k / 10 % 26) + char('0' + k % 10);
        }
        base.stock = b % 4 == 1 ? 4 : 1;
        base.futBoard = base.stock == 4 ? 2 : 1;
        static const int kDecimals[] = {0, 0, 1, 2, 2, 3, 4};
        base.decimals = b == 0 ? 2 : kDecimals[m_rng.below(7)];
        static const int kSteps[] = {1, 5, 10, 25};
        base.step = base.decimals == 0 ? kSteps[m_rng.below(3)] : kSteps[m_rng.below(4)];
        base.price = m_rng.range(3000, 40000);
        if (b == 2) {            // quoted as a percentage of par, with a yield
            base.decimals = 3;
            base.step = 5;
            base.price = 98500;
            base.isPercent = 4;
        } else if (b == 3) {     // quoted as a rate: the price moves the other way
            base.decimals = 2;
            base.step = 1;
            base.price = 725;
            base.isPercent = 1;
            base.priceDir = 'D';
        }
        base.price -= base.price % base.step;
        base.stepPrice = m_rng.range(100000, 2500000);
        static const int kLots[] = {1, 1, 10, 100};
        base.lotsize = kLots[m_rng.below(4)];
        m_bases.push_back(base);
    }
}

std::int32_t Market::addSec(Sec const& sec)
{
    Sec s = sec;
    setLimits(s);
    s.price = withinLimits(s, s.price);
    m_secs.push_back(s);
    std::int32_t idx = std::int32_t(m_secs.size() - 1);
    m_byKind[int(s.kind)].push_back(idx);
    return idx;
}

std::int64_t Market::stepOf(Sec const& s) const
{
    Base const& b = m_bases[std::size_t(s.base)];
    return b.step * pow10(s.decimals - b.decimals);
}

std::int64_t Market::roundToStep(Sec const& s, std::int64_t v) const
{
    std::int64_t step = stepOf(s);
    v -= v % step;
    return std::max(v, step);
}

// Options from one step up to 7 % of the underlying above the settlement;
// the rest 7 % around the settlement, and at least four steps, so that a
// security priced in a few steps (the swaps) still has room for a spread.
void Market::setLimits(Sec& s) const
{
    std::int64_t const step = stepOf(s);
    if (s.kind == Kind::Index) {
        s.low = s.high = 0;
    } else if (s.kind == Kind::Option) {
        s.low = step;
        s.high = roundToStep(s, s.settle + m_secs[std::size_t(s.under)].price * 7 / 100);
    } else {
        std::int64_t const band = std::max(s.settle * 7 / 100, 4 * step);
        s.low = roundToStep(s, s.settle - band);
        s.high = roundToStep(s, s.settle + band);
    }
}

std::int64_t Market::withinLimits(Sec const& s, std::int64_t price) const
{
    return s.high > s.low ? std::clamp(price, s.low, s.high) : price;
}

std::int64_t Market::optionPremium(Sec const& opt, std::int64_t S) const
{
    Series const& sr = m_series[std::size_t(opt.series)];
    std::int64_t K = opt.strike;
    std::int64_t intrinsic = opt.optType == 'C' ? std::max<std::int64_t>(0, S - K) : std::max<std::int64_t>(0, K - S);
    std::int64_t days = std::max<std::int64_t>(1, sr.expiry - kToday);
    std::int64_t tvBase = S / 200 + S * 4 / 100 * std::min<std::int64_t>(days, 300) / 300;
    std::int64_t D = S * 6 / 100 + 1;
    std::int64_t dist = S > K ? S - K : K - S;
    std::int64_t tv = tvBase * D * D / (D * D + dist * dist);
    return roundToStep(opt, intrinsic + tv);
}

std::int32_t Market::addOption(std::int32_t seriesIdx, std::int64_t strike, char type)
{
    Series const& sr = m_series[std::size_t(seriesIdx)];
    Sec const& fut = m_secs[std::size_t(sr.fut)];
    Base const& b = m_bases[std::size_t(fut.base)];
    Sec o;
    o.secId = m_nextOptId++;
    o.isin = m_nextIsin++;
    o.base = fut.base;
    o.under = sr.fut;
    o.series = seriesIdx;
    o.stock = std::int16_t(b.stock);
    o.board = std::int16_t(b.optBoard);
    o.decimals = std::int8_t(b.decimals);
    o.kind = Kind::Option;
    o.optType = type;
    o.strike = strike;
    o.price = optionPremium(o, fut.price);
    o.settle = std::max(stepOf(o), o.price + stepOf(o) * (m_rng.range(-2, 2)));
    return addSec(o);
}

void Market::buildSecurities(std::int64_t target)
{
    std::vector<std::vector<std::int32_t>> futs(m_bases.size());
    for (std::size_t b = 0; b < m_bases.size(); ++b) {
        Base const& base = m_bases[b];
        for (int e = 0; e < 4; ++e) {
            Sec f;
            f.secId = m_nextSecId++;
            f.isin = m_nextIsin++;
            f.base = std::int32_t(b);
            f.stock = std::int16_t(base.stock);
            f.board = std::int16_t(base.futBoard);
            f.decimals = std::int8_t(base.decimals);
            f.expIdx = std::int8_t(e);
            f.kind = Kind::Future;
            f.price = base.price + base.step * e * m_rng.range(0, 20);
            f.settle = std::max(base.step, f.price + base.step * m_rng.range(-5, 5));
            futs[b].push_back(addSec(f));
        }
    }
    auto copyOf = [&](std::int32_t fut, Kind kind, int board) {
        Sec c = m_secs[std::size_t(fut)];
        c.secId = m_nextSecId++;
        c.kind = kind;
        c.board = std::int16_t(board);
        c.under = fut;
        return addSec(c);
    };
    std::vector<std::size_t> stock1;
    for (std::size_t b = 0; b < m_bases.size(); ++b)
        if (m_bases[b].stock == 1)
            stock1.push_back(b);
    for (std::size_t b : stock1) {
        // board 3 repeats the nearest futures of board 1 under the same isin
        copyOf(futs[b][0], Kind::BoardTwin, 3);
        copyOf(futs[b][1], Kind::BoardTwin, 3);
        if (b % 5 == 0) {   // and lists a few of its own, without a twin
            Sec o = m_secs[std::size_t(futs[b][2])];
            o.secId = m_nextSecId++;
            o.isin = m_nextIsin++;
            o.kind = Kind::Orphan;
            o.board = 3;
            addSec(o);
        }
    }
    for (int k = 0; k < 2; ++k)
        for (int e = 0; e < 3; ++e)
            copyOf(futs[stock1[std::size_t(k)]][std::size_t(e)], Kind::Proxy, 7);
    for (int k = 0; k < 2; ++k)
        for (int e = 0; e < 4; ++e)
            m_streamSecs.push_back(copyOf(futs[stock1[std::size_t(k) * 2]][std::size_t(e)], Kind::StreamFut, 20));
    for (int board : {10, 11}) {
        for (int k = 0; k < 4; ++k) {
            Sec sw = m_secs[std::size_t(futs[stock1[std::size_t(k)]][0])];
            sw.secId = m_nextSecId++;
            sw.isin = m_nextIsin++;
            sw.kind = Kind::Swap;
            sw.board = std::int16_t(board);
            sw.price = stepOf(sw) * m_rng.range(1, 40);
            sw.settle = sw.price;
            addSec(sw);
        }
    }
    for (int k = 0; k < 3; ++k) {
        Sec ix = m_secs[std::size_t(futs[stock1[std::size_t(k)]][0])];
        ix.secId = m_nextSecId++;
        ix.isin = m_nextIsin++;
        ix.kind = Kind::Index;
        ix.board = 30;
        ix.expIdx = -1;
        ix.price = ix.price * 10;
        ix.settle = ix.price;
        addSec(ix);
    }

    // Option series fill the market up to the asked size.
    std::int64_t options = std::max<std::int64_t>(0, target - std::int64_t(m_secs.size()));
    for (std::size_t b = 0; b < m_bases.size() && options > 0; ++b) {
        for (int e = 0; e < 4 && options > 0; ++e) {
            std::int32_t fut = futs[b][std::size_t(e)];
            for (int w = 2; w >= 0 && options > 0; --w) {
                Sec const& f = m_secs[std::size_t(fut)];
                Series sr;
                sr.id = m_nextSeriesId++;
                sr.fut = fut;
                sr.expiry = m_expiries[e] - 7 * w;
                std::int64_t step = stepOf(f);
                sr.strikeStep = std::max(step, f.price / 40 - f.price / 40 % step);
                sr.black = sr.id % 11 != 0;   // a few series have no smile yet
                sr.bach = sr.id % 7 != 0;
                m_series.push_back(sr);
                std::int32_t si = std::int32_t(m_series.size() - 1);
                std::int64_t center = f.price / sr.strikeStep * sr.strikeStep;
                for (int j = 0; j < m_strikes && options > 0; ++j) {
                    std::int64_t strike = center + (j - m_strikes / 2) * sr.strikeStep;
                    for (char type : {'C', 'P'}) {
                        if (options == 0)
                            break;
                        addOption(si, strike, type);
                        --options;
                    }
                }
            }
        }
    }
    std::int64_t ordinal = 0;
    for (Sec& s : m_secs) {
        if (s.kind == Kind::Option) {
            if (ordinal % 10 == 0)
                s.refs |= 1;    // k3.volat
            if (ordinal % 20 == 0)
                s.refs |= 2;    // k3.option_rate
            ++ordinal;
        } else if (s.kind != Kind::Index) {
            s.refs |= 2;        // k3.futures_rate
        }
    }
}

void Market::buildParticipants()
{
    int word = 0;
    for (int r = 0; r < 6; ++r) {
        for (int k = 1; k <= 2; ++k) {
            Firm f;
            f.rf = kRfCodes[r];
            f.bf = f.rf + "0" + char('0' + k);
            f.name = std::string(r % 2 ? "ООО «" : "АО «") + kFirmWords[word] + " " + kFirmKinds[word % 3] + "»";
            static const int kStatus[] = {0, 1, 2, 3, 0x20000, 0x40000, 0x20002, 0x20001, 0, 0x40000, 2, 0};
            static const int kSigns[] = {0, 4, 8, 12, 0, 0, 4, 0, 8, 0, 0, 0};
            f.status = kStatus[word];
            f.signs = kSigns[word];
            ++word;
            m_firms.push_back(f);
        }
    }
    int person = 0;
    for (std::size_t fi = 0; fi < m_firms.size(); ++fi) {
        for (int k = 0; k <= 4; ++k) {
            Client c;
            c.code = m_firms[fi].bf + "00" + char('0' + k);
            c.firm = int(fi);
            if (k == 0) {
                c.name = m_firms[fi].name + ", собственный счёт";
            } else {
                c.name = std::string(kSurnames[person % 12]) + " " +
                         std::string(person % 2 ? "А.В." : "И.С.");
                ++person;
            }
            c.status = k == 0 ? 0 : int(m_rng.below(3));
            m_clients.push_back(c);
        }
    }
    int aspref = 7001;
    for (std::size_t fi = 0; fi < m_firms.size(); ++fi) {
        Firm const& f = m_firms[fi];
        for (int k = 1; k <= 2; ++k) {
            Login l;
            l.login = f.bf + "U0" + char('0' + k);
            l.clientCode = f.bf + (k == 1 ? "000" : "001");
            l.sma = fi == 3 ? -1 : (k == 2 && fi % 3 == 0 ? 5 : int(fi % 2));
            l.aspref = aspref++;
            l.expiry = msAt(daysFromCivil(2027, 3, 1) + std::int64_t(fi) * 3 + k, 0, 0);
            m_logins.push_back(l);
        }
        if (fi % 2 == 0) {
            Login l;
            l.login = f.bf + "S01";
            l.clientCode = f.bf + "000";
            l.sma = 4;
            l.aspref = aspref++;
            l.expiry = msAt(daysFromCivil(2027, 6, 1), 0, 0);
            m_logins.push_back(l);
        }
    }
    // passwords about to expire, and one already expired
    m_logins[1].expiry = msAt(kToday + 3, 12, 0);
    m_logins[3].expiry = msAt(kToday - 1, 18, 0);
    m_logins[6].expiry = msAt(kToday + 20, 9, 30);
}

void Market::buildStreamsOrdersDeals(std::int64_t target)
{
    int streams = int(std::max<std::int64_t>(8, target / 250));
    for (int k = 0; k < streams; ++k) {
        Stream st;
        st.id = m_nextStreamId++;
        st.sec = m_streamSecs[std::size_t(k) % m_streamSecs.size()];
        static const int kAmounts[] = {10, 25, 50, 100, 250, 500};
        st.amount = kAmounts[m_rng.below(6)];
        st.signs = m_rng.chance(1, 4) ? 0x2 : 0;
        st.dir = int(m_rng.range(1, 3));
        st.bump = int(m_rng.range(0, 5));
        st.duration = int(m_rng.range(1, 6));
        st.withOrders = k % 3 == 0;
        Sec const& s = m_secs[std::size_t(st.sec)];
        for (int side = 0; side < 2; ++side) {
            if (st.dir & (1 << side)) {
                st.quoteId[side] = m_nextQuoteId++;
                st.quote[side] = withinLimits(s, s.price + stepOf(s) * (side ? m_rng.range(1, 4) : -m_rng.range(1, 4)));
            }
        }
        m_streams.push_back(st);
    }

    int orders = int(std::max<std::int64_t>(60, target / 20));
    for (int k = 0; k < orders; ++k) {
        Order o{};
        int pick = int(m_rng.below(20));
        if (pick < 3) {
            Stream const* st = nullptr;
            for (int tries = 0; tries < 64 && !st; ++tries) {
                Stream const& c = m_streams[std::size_t(m_rng.below(std::int64_t(m_streams.size())))];
                if (c.withOrders)
                    st = &c;
            }
            if (!st)
                st = &m_streams[0];
            o.sec = st->sec;
            o.stream = st->id;
            o.stock = 5;
            o.board = 20;
        } else {
            Kind kind = pick < 8 ? Kind::Future : (pick < 10 ? Kind::BoardTwin : Kind::Option);
            o.sec = pickLive(kind);
            Sec const& s = m_secs[std::size_t(o.sec)];
            o.stock = s.stock;
            o.board = s.board;
        }
        Sec& s = m_secs[std::size_t(o.sec)];
        s.refs |= 4;
        o.id = m_nextOrderId++;
        o.sess = kSessCur;
        o.decimals = s.decimals;
        o.side = m_rng.chance(1, 2) ? 'B' : 'S';
        o.price = withinLimits(s, std::max(stepOf(s), s.price + stepOf(s) * (o.side == 'B' ? -m_rng.range(0, 6) : m_rng.range(0, 6))));
        o.qty = int(m_rng.range(1, 50));
        o.status = m_rng.chance(4, 5) ? 'A' : 'W';
        o.balance = o.status == 'A' ? int(m_rng.range(1, o.qty)) : int(m_rng.range(0, o.qty));
        o.signs = m_rng.chance(1, 10) ? 0x800000000000LL : (m_rng.chance(1, 5) ? 0x4 : 0);
        o.dkh = o.board == 3 ? 1 : 0;
        // One draw whichever list it picks from, so that the draws after it
        // do not depend on the order's board.
        std::uint64_t const who = m_rng.next();
        o.client = o.stream ? userClient(who) : std::int32_t(who % m_clients.size());
        o.moment = msAt(kToday, 7, 0) + m_rng.below(3 * 3600) * 1000 + m_rng.below(1000);
        m_orders.push_back(o);
    }

    int deals = int(std::max<std::int64_t>(30, target / 40));
    for (int k = 0; k < deals; ++k) {
        Deal d;
        d.id = m_nextDealId++;
        d.sec = m_streamSecs[std::size_t(m_rng.below(std::int64_t(m_streamSecs.size())))];
        Sec const& s = m_secs[std::size_t(d.sec)];
        d.price = withinLimits(s, s.price + stepOf(s) * m_rng.range(-3, 3));
        d.qty = m_rng.range(1, 100);
        d.side = m_rng.chance(1, 2) ? 'B' : 'S';
        d.client = std::int32_t(m_rng.below(std::int64_t(m_clients.size())));
        // A login trades its own firm's accounts; one deal in ten carries
        // the login of another firm, the other side of the quasi-deal.
        d.login = loginOf(firmOf(m_clients[std::size_t(d.client)].code), k % 10 != 9, m_rng.next());
        int roll = int(m_rng.below(20));
        d.state = roll < 12 ? 4 : (roll < 15 ? 3 : 1);
        d.error = d.state == 3 ? int(m_rng.range(1, 7)) : 0;
        d.talmeraError = d.state == 3 ? 100 + d.error : 0;
        d.signs = m_rng.chance(1, 3) ? (std::int64_t(1) << 50) : 0;
        m_deals.push_back(d);
    }
    // The first two deals wait for the terminal user's confirmation.
    for (int k = 0; k < 2; ++k) {
        m_deals[std::size_t(k)].login = kCurrentLogin;
        m_deals[std::size_t(k)].state = 1;
        m_deals[std::size_t(k)].error = 0;
        m_deals[std::size_t(k)].talmeraError = 0;
        m_deals[std::size_t(k)].client = 1;   // FA01001, of the user's firm
    }
}

std::string const& Market::loginOf(std::string const& firm, bool sameFirm, std::uint64_t draw) const
{
    std::vector<std::size_t> fit;
    for (std::size_t k = 0; k < m_logins.size(); ++k)
        if (m_logins[k].alive && (firmOf(m_logins[k].clientCode) == firm) == sameFirm)
            fit.push_back(k);
    // every firm has logins of its own
    return m_logins[fit[draw % fit.size()]].login;
}

std::int32_t Market::userClient(std::uint64_t draw) const
{
    std::string firm;
    for (Login const& l : m_logins)
        if (l.login == kCurrentLogin)
            firm = firmOf(l.clientCode);
    std::vector<std::int32_t> fit;
    for (std::size_t k = 0; k < m_clients.size(); ++k)
        if (firmOf(m_clients[k].code) == firm)
            fit.push_back(std::int32_t(k));
    return fit[draw % fit.size()];
}

std::int32_t Market::pickLive(Kind kind, int board)
{
    std::vector<std::int32_t> const& list = m_byKind[int(kind)];
    std::size_t n = list.size();
    std::size_t start = std::size_t(m_rng.below(std::int64_t(n)));
    for (std::size_t k = 0; k < n; ++k) {
        Sec const& s = m_secs[std::size_t(list[(start + k) % n])];
        if (s.alive && (board == 0 || s.board == board))
            return list[(start + k) % n];
    }
    return 0;
}

std::int64_t Market::expiryOf(Sec const& s) const
{
    if (s.kind == Kind::Option)
        return m_series[std::size_t(s.series)].expiry;
    if (s.expIdx < 0)
        return -1;
    return m_expiries[s.expIdx];
}

std::string Market::codeOf(Sec const& s) const
{
    Base const& b = m_bases[std::size_t(s.base)];
    std::int64_t exp = expiryOf(s);
    switch (s.kind) {
    case Kind::Option: {
        int y;
        unsigned m, d;
        civilFromDays(exp, y, m, d);
        // base, side, strike digits, month letter, week of the month
        return b.code + s.optType + digits(s.strike) + char('A' + m - 1) + char('0' + (d - 1) / 7 + 1);
    }
    case Kind::Swap:
        return b.code + "-SW" + (s.board == 10 ? "N" : "A");
    case Kind::Index:
        return b.code + "IX";
    case Kind::Orphan: {
        std::string my = monthYear(exp);
        return b.code + "-" + my.substr(0, 2) + my.substr(3, 2) + "A";
    }
    default: {
        std::string my = monthYear(exp);
        return b.code + "-" + my.substr(0, 2) + my.substr(3, 2);
    }
    }
}

std::string Market::nameOf(Sec const& s) const
{
    Base const& b = m_bases[std::size_t(s.base)];
    std::int64_t exp = expiryOf(s);
    switch (s.kind) {
    case Kind::Option:
        return b.code + " " + s.optType + decimalText(s.strike, s.decimals) + " " + dayMonthYear(exp);
    case Kind::Swap:
        return "Swap " + b.code + " " + monthYear(m_expiries[0]) + "/" + monthYear(m_expiries[1]);
    case Kind::Index:
        return "Индекс " + b.code;
    case Kind::Orphan:
        return "Fut " + b.code + "-" + monthYear(exp) + " (адр.)";
    default:
        return "Fut " + b.code + "-" + monthYear(exp);
    }
}

bool Market::quoted(Sec const& s) const
{
    if (s.kind == Kind::Index)
        return false;
    if (s.kind != Kind::Option)
        return true;
    Series const& sr = m_series[std::size_t(s.series)];
    std::int64_t S = m_secs[std::size_t(s.under)].price;
    std::int64_t dist = S > s.strike ? S - s.strike : s.strike - S;
    return dist <= sr.strikeStep;
}

std::int64_t Market::bidOf(Sec const& s) const
{
    return withinLimits(s, std::max(stepOf(s), s.price - stepOf(s) * (1 + s.secId % 3)));
}

std::int64_t Market::askOf(Sec const& s) const
{
    return withinLimits(s, s.price + stepOf(s) * (1 + s.secId % 2));
}

void Market::securityKey(JsonlWriter& w, Sec const& s) const
{
    w.i("stock_id", s.stock).i("board_id", s.board).i("sec_id", s.secId);
}

void Market::securityRow(JsonlWriter& w, Sec const& s) const
{
    Base const& b = m_bases[std::size_t(s.base)];
    int dec = s.decimals;
    std::int64_t step = stepOf(s);
    securityKey(w, s);
    w.i("isin_id", s.isin).s("sec_code", codeOf(s)).s("sec_name", nameOf(s)).s("base_code", b.code);
    static const char kTypes[] = {'F', 'F', 'F', 'F', 'F', 'H', 'I', 'O'};
    w.c("sectype", kTypes[int(s.kind)]).i("decimals", dec).i("lotsize", b.lotsize);
    w.dec("price_step", step, dec).dec("step_price", b.stepPrice, 5).c("price_dir", b.priceDir);
    w.i("is_percent", s.kind == Kind::Option ? 0 : b.isPercent);
    std::int64_t exp = expiryOf(s);
    if (exp >= 0)
        w.dts("expdate", msAt(exp, 18, 50));
    if (s.kind == Kind::Option) {
        Sec const& f = m_secs[std::size_t(s.under)];
        w.dec("strike", s.strike, dec).c("option_type", s.optType);
        w.i("option_series_id", m_series[std::size_t(s.series)].id).i("fut_isin_id", f.isin).i("main_board_id", f.board);
        w.i("signs", 0x2 | (s.secId % 8 == 0 ? 0x100000000LL : 0));
    } else {
        w.i("signs", s.secId % 4 == 0 ? 0x1 : 0);
    }
    w.i("sess_id", s.sess);
    if (s.high)
        w.dec("price_lmt_high", s.high, dec).dec("price_lmt_low", s.low, dec);
    if (quoted(s))
        w.dec("bid", bidOf(s), dec).dec("ask", askOf(s), dec);
    if (quoted(s) && s.kind != Kind::Option) {
        w.dec("prev_bid", std::max(step, s.settle - step), dec).dec("prev_ask", s.settle + step, dec);
        w.dt("date_bid", msAt(kToday, 9, 59, int(s.secId % 60), int(s.secId % 1000)));
        w.dt("date_ask", msAt(kToday, 9, 59, int(s.secId / 7 % 60), int(s.secId / 3 % 1000)));
    }
    w.dec("market_price", s.price, dec).dec("settlement_price_open", s.settle, dec);
    if (b.isPercent == 4 && s.kind != Kind::Option)
        w.dec("pctyield_coeff", 985000 + s.secId % 1000, 6).dec("pctyield_total", 2150000, 6);
    if (s.kind == Kind::Option)
        w.dec("volat_min", 50, 1).dec("volat_max", 1500, 1);
}

void Market::seriesRow(JsonlWriter& w, Series const& sr) const
{
    Sec const& f = m_secs[std::size_t(sr.fut)];
    Base const& b = m_bases[std::size_t(f.base)];
    w.i("option_series_id", sr.id).i("underlying_id", f.isin);
    w.s("sec_name", b.code + "-" + monthYear(expiryOf(f)) + " M" + dayMonthYear(sr.expiry)).s("base_code", b.code);
    w.dt("expiration_date", msAt(sr.expiry, 18, 50));
}

// Smiles in percent of the forward: a level of 18 to 45 %, wings 4 to 14
// points high, a skew that makes puts dearer, and a centre near the money.
// Whatever the expiry, they stay well inside the options' bounds (5 to 150 %).
void Market::blackRow(JsonlWriter& w, Series const& sr) const
{
    std::int64_t h = sr.id * 2654435761LL;
    w.i("option_series_id", sr.id).num("a", 180000 + h % 270000, 4).num("b", 40000 + h / 7 % 100000, 4);
    w.num("c", 5000 + h / 13 % 10000, 4).num("d", -10000 - h / 17 % 50000, 4);
    w.num("e", 6000 + h / 19 % 8000, 4).num("s", h / 23 % 2000 - 1000, 4);
}

// Normal-model smiles: m is 0 (Bachelier) for most series and a few percent
// for a quarter of them; the level, in percent of the forward, is that of a
// lognormal smile, with flatter wings and a milder skew (the normal model
// already makes low strikes dearer). Its lowest point stays above the
// largest option price step (10), which type 1 uses as the lower bound.
void Market::bachRow(JsonlWriter& w, Series const& sr) const
{
    std::int64_t h = sr.id * 2246822519LL;
    w.i("option_series_id", sr.id).num("a", 180000 + h % 220000, 4).num("b", 20000 + h / 7 % 60000, 4);
    w.num("c", 5000 + h / 13 % 10000, 4).num("d", h / 17 % 30000 - 20000, 4);
    w.num("e", 8000 + h / 19 % 4000, 4).num("s", h / 23 % 2000 - 1000, 4);
    w.num("m", sr.id % 4 == 0 ? 250 + sr.id % 250 : 0, 4);
}

void Market::volatRow(JsonlWriter& w, Sec const& s, int sess) const
{
    securityKey(w, s);
    w.i("isin_id", s.isin).i("sess_id", sess);
    w.dec("up_prem", s.price + stepOf(s) * (5 + s.secId % 7), s.decimals);
    w.dec("down_prem", std::max<std::int64_t>(0, s.price - stepOf(s) * (5 + s.secId % 5)), s.decimals);
}

void Market::rateRow(JsonlWriter& w, Sec const& s, int sess) const
{
    securityKey(w, s);
    w.i("isin_id", s.isin).i("sess_id", sess);
    std::int64_t fee = 50000 + s.secId % 7 * 12500 + (sess == kSessNext ? 2500 : 0);
    w.dec("exchange_fee_negdeal", fee * 2, 5).dec("exchange_fee", fee, 5);
    w.dec("clearing_fee_negdeal", fee, 5).dec("clearing_fee", fee / 2, 5);
}

void Market::orderKey(JsonlWriter& w, Order const& o) const
{
    w.i("stock_id", o.stock).i("board_id", o.board).i("sess_id", o.sess).i("order_id", o.id);
}

void Market::orderRow(JsonlWriter& w, Order const& o) const
{
    orderKey(w, o);
    w.i("sec_id", m_secs[std::size_t(o.sec)].secId).c("status", o.status);
    if (o.stream)
        w.i("stream_id", o.stream);
    w.s("account", m_clients[std::size_t(o.client)].code).dec("price", o.price, o.decimals).c("buysell", o.side);
    w.i("quantity", o.qty).i("balance", o.balance).i("signs", o.signs).i("dkh_request", o.dkh).dt("moment", o.moment);
}

void Market::dealRow(JsonlWriter& w, Deal const& d) const
{
    Sec const& s = m_secs[std::size_t(d.sec)];
    w.i("stock_id", 5).i("board_id", s.board).i("sec_id", s.secId).dec("price", d.price, s.decimals);
    w.i("quantity", d.qty).c("buysell", d.side).s("account", m_clients[std::size_t(d.client)].code);
    w.s("login", d.login).i("deal_id", d.id).i("state", d.state).i("error_code", d.error);
    w.i("talmera_error_code", d.talmeraError).i("signs", d.signs);
}

void Market::streamRow(JsonlWriter& w, Stream const& st) const
{
    Sec const& s = m_secs[std::size_t(st.sec)];
    w.i("stream_id", st.id).i("amount", st.amount).i("stock_id", 5).i("board_id", s.board).i("sec_id", s.secId);
    w.i("signs", st.signs).i("dir", st.dir).i("speed_bump_type", st.bump).i("duration_type", st.duration);
}

void Market::quoteRow(JsonlWriter& w, Stream const& st, int side) const
{
    Sec const& s = m_secs[std::size_t(st.sec)];
    w.i("stream_id", st.id).i("quote_id", st.quoteId[side]).i("dir", side + 1);
    w.dec("price", st.quote[side], s.decimals).dt("moment", msAt(kToday, 9, 58, int(st.quoteId[side] % 60)));
}

void Market::boardRow(JsonlWriter& w, Board const& b) const
{
    w.i("stock_id", b.stock).i("board_id", b.id).s("board_code", b.code).s("name", b.name);
    if (b.anonym)
        w.c("anonym", b.anonym);
    else
        w.null("anonym");
    w.c("sectype", b.sectype).i("flags", b.flags).s("board_code_iss", b.iss);
}

void Market::userRow(JsonlWriter& w, Login const& l) const
{
    w.s("login", l.login).s("client_code", l.clientCode);
    if (l.sma < 0)
        w.null("sma_flags");
    else
        w.i("sma_flags", l.sma);
    w.i("aspref", l.aspref).dt("password_expiration_date", l.expiry);
}

void Market::writeVocabularies(JsonlWriter& w)
{
    w.begin("buysells");
    w.insert().c("buysell", 'B').s("name", "Покупка");
    w.insert().c("buysell", 'S').s("name", "Продажа");
    w.end();
    w.begin("statuses");
    w.insert().c("status", 'A').s("name", "Активна").s("descr", "Активная заявка");
    w.insert().c("status", 'W').s("name", "Снята").s("descr", "Заявка снята");
    w.end();
    w.begin("sectypes");
    w.insert().c("sectype", 'F').s("name", "Фьючерс").s("descr", "Фьючерсный контракт");
    w.insert().c("sectype", 'O').s("name", "Опцион").s("descr", "Опцион на фьючерсный контракт");
    w.insert().c("sectype", 'H').s("name", "Спред").s("descr", "Календарный спред");
    w.insert().c("sectype", 'K').s("name", "Риск").s("descr", "Инструмент оценки риска");
    w.insert().c("sectype", 'I').s("name", "Индекс").s("descr", "Расчётный индекс");
    w.end();
    w.begin("secstates");
    w.insert().c("secstate", 'T').s("name", "Торгуется").s("descr", "Торги идут");
    w.insert().c("secstate", 'S').s("name", "Приостановлен").s("descr", "Торги приостановлены");
    w.insert().c("secstate", 'C').s("name", "Закрыт").s("descr", "Торги завершены");
    w.insert().c("secstate", 'N').s("name", "Не торгуется").s("descr", "Инструмент не допущен к торгам");
    w.end();
    w.begin("sessstates");
    w.insert().c("sessstate", 'N').s("name", "Назначена").s("descr", "Сессия назначена");
    w.insert().c("sessstate", 'O').s("name", "Открыта").s("descr", "Идут торги");
    w.insert().c("sessstate", 'P').s("name", "Приостановлена").s("descr", "Торги приостановлены");
    w.insert().c("sessstate", 'C').s("name", "Закрыта").s("descr", "Сессия завершена");
    w.end();
}

void Market::writeMarketStructure(JsonlWriter& w)
{
    w.begin("stocks");
    w.insert().i("stock_id", 1).s("stock_code", "DERIV").s("name", "Срочный рынок");
    w.insert().i("stock_id", 4).s("stock_code", "COMMOD").s("name", "Товарный срочный рынок");
    w.insert().i("stock_id", 5).s("stock_code", "STREAM").s("name", "Рынок потоков ликвидности");
    w.end();

    m_boards = {
        {1, 1, "FUT", "Фьючерсы", 'D', 'F', 0x37, "FUTS"},
        {1, 3, "FUTA", "Фьючерсы: адресные сделки", 'A', 'F', 0x91, "FUTA"},
        {1, 7, "FUTP", "Фьючерсы: прокси-режим", 'D', 'F', 0x41, "FUTP"},
        {1, 10, "SWP", "Своп-контракты", 'D', 'H', 0x17, "SWPS"},
        {1, 11, "SWPA", "Своп-контракты: адресные", 'A', 'H', 0x11, "SWPA"},
        {1, 14, "OPT", "Опционы", 'D', 'O', 0x37, "OPTS"},
        {1, 20, "RFS", "Потоки ликвидности", 'A', 'F', 0x103, "RFSS"},
        {1, 30, "IDX", "Индексы", 0, 'I', 0x0C, "IDXS"},
        {4, 2, "CFUT", "Товарные фьючерсы", 'D', 'F', 0x37, "CFUTS"},
        {4, 14, "COPT", "Товарные опционы", 'D', 'O', 0x37, "COPTS"},
    };
    w.begin("boards");
    for (Board const& b : m_boards)
        boardRow(w.insert(), b);
    w.end();

    w.begin("sessions");
    for (int stock : {1, 4}) {
        w.insert().i("stock_id", stock).i("sess_id", kSessPrev).s("name", "Торговая сессия 19.11.2026").date("date", kToday - 1);
        w.insert().i("stock_id", stock).i("sess_id", kSessCur).s("name", "Торговая сессия 20.11.2026").date("date", kToday);
    }
    w.end();

    // An invented trading calendar: weekends and a handful of holidays.
    static const int kHolidays[][2] = {{12, 31}, {1, 1}, {1, 2}, {1, 7}, {2, 23}, {3, 8}, {5, 3}, {5, 10}, {6, 14}, {11, 4}};
    w.begin("calendar", 1000);
    for (std::int64_t day = daysFromCivil(2026, 11, 2); day <= daysFromCivil(2027, 9, 30); ++day) {
        int y;
        unsigned m, d;
        civilFromDays(day, y, m, d);
        int type = weekday(day) == 0 || weekday(day) == 6 ? 1 : 0;
        for (auto const& h : kHolidays)
            if (unsigned(h[0]) == m && unsigned(h[1]) == d)
                type = 2;
        w.insert().date("date", day).i("type", type);
    }
    w.end();

    w.begin("stock_time");
    w.insert().i("stock_id", 1).i("diff_vs_cur_time", 0).dt("server_time", msAt(kToday, 9, 59, 58, 250));
    w.insert().i("stock_id", 4).i("diff_vs_cur_time", 350).dt("server_time", msAt(kToday, 9, 59, 58, 600));
    w.insert().i("stock_id", 5).i("diff_vs_cur_time", -120).dt("server_time", msAt(kToday, 9, 59, 58, 130));
    w.end();

    w.begin("securities", 1000);
    for (Sec const& s : m_secs)
        securityRow(w.insert(), s);
    w.end();

    w.begin("k3.option_series_params", 1000);
    for (Series const& sr : m_series)
        seriesRow(w.insert(), sr);
    w.end();
    w.begin("k3.volat_coeff_black", 1000);
    for (Series const& sr : m_series)
        if (sr.black)
            blackRow(w.insert(), sr);
    w.end();
    w.begin("k3.volat_coeff_bach", 1000);
    for (Series const& sr : m_series)
        if (sr.bach)
            bachRow(w.insert(), sr);
    w.end();

    w.begin("k3.volat", 1000);
    for (Sec const& s : m_secs)
        if (s.refs & 1) {
            volatRow(w.insert(), s, kSessCur);
            if (s.secId % 4 == 0)
                volatRow(w.insert(), s, kSessPrev);
        }
    w.end();
    w.begin("k3.futures_rate", 1000);
    for (Sec const& s : m_secs)
        if ((s.refs & 2) && s.kind != Kind::Option) {
            rateRow(w.insert(), s, kSessCur);
            if (s.kind == Kind::Future && s.expIdx == 0)
                rateRow(w.insert(), s, kSessPrev);
        }
    w.end();
    w.begin("k3.option_rate", 1000);
    for (Sec const& s : m_secs)
        if ((s.refs & 2) && s.kind == Kind::Option)
            rateRow(w.insert(), s, kSessCur);
    w.end();

    w.begin("k3.base_contracts_params", 1000);
    for (Base const& b : m_bases) {
        std::int64_t mr = 5000 + std::int64_t(b.code[1]) * 97 % 15000;
        w.insert().s("base_contract_code", b.code).dec("mr1", mr, 5).dec("mr2", mr * 6 / 5, 5).dec("mr3", mr * 3 / 2, 5);
        w.dec("lk1", 1000 + mr % 4000, 5).dec("lk2", 2000 + mr % 5000, 5);
    }
    w.end();
}

void Market::writeParticipants(JsonlWriter& w)
{
    w.begin("k3.user");
    for (Login const& l : m_logins)
        userRow(w.insert(), l);
    w.end();

    w.begin("k3.dealer");
    for (Firm const& f : m_firms)
        w.insert().s("client_code", f.bf + "000").s("name", f.name).i("status", f.status).i("signs", f.signs);
    w.end();
    w.begin("k3.investor");
    for (Client const& c : m_clients)
        w.insert().s("client_code", c.code).s("name", c.name).i("status", c.status);
    w.end();
    w.begin("k3.core_dealer");
    for (std::size_t k = 0; k < m_firms.size(); k += 2)
        w.insert().s("client_code", m_firms[k].bf);
    w.end();
    w.begin("k3.core_investor");
    for (std::size_t k = 1; k < m_clients.size(); k += 5)
        w.insert().s("client_code", m_clients[k].code);
    w.end();
    w.begin("k3.RF");
    static const int kInputs[][2] = {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {0, 0}, {0, 0}};
    for (int r = 0; r < 6; ++r)
        w.insert().s("code", kRfCodes[r]).i("op_input", kInputs[r][0]).i("rf_input", kInputs[r][1]);
    w.end();

    w.begin("k3.fut_settlement_account");
    for (Client const& c : m_clients) {
        std::string const& bf = m_firms[std::size_t(c.firm)].bf;
        bool own = c.code.compare(4, 3, "000") == 0;
        w.insert().s("code", c.code).i("type", 0).s("settlement_account", bf + (own ? "-RK01" : "-RK02"));
        if (own)
            w.insert().s("code", c.code).i("type", 1).s("settlement_account", bf + "-RK02");
    }
    w.end();
    w.begin("k3.fut_margin_type");
    int k = 0;
    for (Firm const& f : m_firms) {
        for (std::string code : {f.bf, f.bf + "001"}) {
            w.insert().i("type", code.size() == 4 ? 0 : 1).s("code", code).i("margin_type", k % 7).i("UCP_type", k % 2);
            w.i("settlement_account_type", k % 3).i("operator_input", k % 4 == 3 ? 1 : 0);
            ++k;
        }
    }
    w.end();
    w.begin("k3part_bf");
    for (Firm const& f : m_firms)
        w.insert().s("account", f.bf).s("name", f.name);
    w.end();

    for (char const* table : {"fut_vm", "opt_vm"}) {
        bool fut = table[0] == 'f';
        w.begin(table);
        for (std::size_t c = 0; c < m_clients.size(); ++c)
            for (int sess : {kSessPrev, kSessCur})
                w.insert().s("account", m_clients[c].code).i("sess_id", sess).dec("vm", m_rng.range(-5000000, 5000000) / (fut ? 1 : 4), 2);
        w.end();
    }
    for (char const* table : {"fut_vm_sa", "opt_vm_sa"}) {
        w.begin(table);
        for (int sess : {kSessPrev, kSessCur}) {
            for (Firm const& f : m_firms)
                for (char const* sa : {"-RK01", "-RK02"})
                    w.insert().i("sess_id", sess).s("settlement_account", f.bf + sa).dec("vm", m_rng.range(-9000000, 9000000), 2);
        }
        // an account not yet assigned to a settlement account
        w.insert().i("sess_id", kSessCur).s("settlement_account", "").dec("vm", 125050, 2);
        w.end();
    }

    w.begin("k3.broker_fee_params");
    static const int kPatterns[][3] = {{kSessCur, 0, 0}, {kSessCur, -1, 0}, {-1, -2, 0}, {-2, 0, 0}, {kSessCur, -1, -2}, {-1, 0, 0}};
    for (std::size_t c = 0; c < 20; ++c) {
        for (int sess : kPatterns[c % 6]) {
            if (sess == 0)
                continue;
            w.insert().s("client_code", m_clients[c].code).i("sess_id", sess).dec("lower_fee", 50 + std::int64_t(c) * 5, 2);
            w.dec("upper_fee", 100000, 2).dec("multiplier", 150 + std::int64_t(c) * 10, 6).dec("additive", 10 * (sess < 0 ? 1 : 2), 2);
        }
    }
    w.end();
}

void Market::writeSnapshot(JsonlWriter& w)
{
    writeVocabularies(w);
    writeMarketStructure(w);
    writeParticipants(w);

    w.begin("k3.rfs.streams", 1000);
    for (Stream const& st : m_streams)
        streamRow(w.insert(), st);
    w.end();
    w.begin("k3.rfs.quotes", 1000);
    for (Stream const& st : m_streams)
        for (int side = 0; side < 2; ++side)
            if (st.quoteId[side])
                quoteRow(w.insert(), st, side);
    w.end();
    w.begin("k3.rfs.lp_users");
    w.insert().s("lp_code", "LPQC01").s("client_code", "QC01001");
    w.insert().s("lp_code", "LPQC01").s("client_code", "QC01002");
    w.insert().s("lp_code", "LPQD01").s("client_code", "QD01001");
    w.insert().s("lp_code", "LPMZ02").s("client_code", "MZ02003");
    w.end();
    w.begin("k3.rfs.base_contract_min_amount");
    w.insert().s("base_contract_code", "*").i("min_amount", 1);
    for (std::int32_t si : {m_streamSecs.front(), m_streamSecs.back()})
        w.insert().s("base_contract_code", m_bases[std::size_t(m_secs[std::size_t(si)].base)].code).i("min_amount", 10);
    w.end();

    w.begin("orders", 1000);
    for (Order const& o : m_orders)
        orderRow(w.insert(), o);
    w.end();
    w.begin("deals", 1000);
    for (Deal const& d : m_deals)
        dealRow(w.insert(), d);
    w.end();
    w.begin("k3.adjusted_fee", 1000);
    for (Deal const& d : m_deals)
        if (d.state == 4)
            w.insert().i("id_deal", d.id).dec("adjusted_fee_buy", 100 + d.id % 300, 2).dec("adjusted_fee_sell", 100 + d.id % 250, 2);
    w.end();
    w.begin("k3.broker_fee", 1000);
    for (Deal const& d : m_deals)
        if (d.state == 4)
            w.insert().i("id_deal", d.id).dec("broker_fee_buy", 50 + d.id % 500, 2).dec("broker_fee_sell", 50 + d.id % 450, 2);
    w.end();
}

} // namespace gen
