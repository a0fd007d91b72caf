#include "market.h"
#include "civil.h"
#include <algorithm>

namespace gen {

namespace {
const std::int64_t kToday = daysFromCivil(2026, 11, 20);
constexpr std::int64_t kMinute = 60000;
constexpr int kTicks = 24;   // 18 in the day session, 6 in the evening one
}

void Market::tick(JsonlWriter& w, std::int64_t at)
{
    std::int64_t n = std::int64_t(m_secs.size());
    std::int64_t count = std::min<std::int64_t>(n, std::max<std::int64_t>(30, m_target / 64));
    // A stride prime to n visits every security at most once per batch.
    std::int64_t stride = n % 1000003 ? 1000003 : 999983;
    std::int64_t start = m_rng.below(n);
    w.begin("securities");
    for (std::int64_t j = 0; j < n && count > 0; ++j) {
        Sec& s = m_secs[std::size_t((start + j * stride) % n)];
        if (!s.alive)
            continue;
        --count;
        std::int64_t step = stepOf(s);
        s.price = withinLimits(s, std::max(step, s.price + step * m_rng.range(s.kind == Kind::Option ? -2 : -3, 3)));
        w.update();
        securityKey(w, s);
        if (s.kind != Kind::Index)
            w.dec("bid", bidOf(s), s.decimals).dec("ask", askOf(s), s.decimals);
        w.dec("market_price", s.price, s.decimals);
        if (count % 8 == 0 && s.kind != Kind::Index)
            w.dt("date_bid", at + j % 1000).dt("date_ask", at + j % 997);
    }
    w.end();
}

void Market::quoteTick(JsonlWriter& w, std::int64_t at)
{
    std::size_t n = m_streams.size();
    std::size_t want = std::max<std::size_t>(3, n / 4);
    std::size_t start = std::size_t(m_rng.below(std::int64_t(n)));
    w.begin("k3.rfs.quotes");
    for (std::size_t j = 0; j < n && want > 0; ++j) {
        Stream& st = m_streams[(start + j) % n];
        if (!st.alive)
            continue;
        --want;
        Sec const& s = m_secs[std::size_t(st.sec)];
        for (int side = 0; side < 2; ++side) {
            if (!st.quoteId[side])
                continue;
            st.quoteId[side] = m_nextQuoteId++;
            st.quote[side] = withinLimits(s, s.price + stepOf(s) * (side ? m_rng.range(1, 4) : -m_rng.range(1, 4)));
            w.update().i("stream_id", st.id).i("dir", side + 1).i("quote_id", st.quoteId[side]);
            w.dec("price", st.quote[side], s.decimals).dt("moment", at + std::int64_t(j) * 7);
        }
    }
    w.end();
}

void Market::newOrders(JsonlWriter& w, int count, int sess, std::int64_t at)
{
    w.begin("orders");
    for (int k = 0; k < count; ++k) {
        Order o{};
        if (k == 0) {
            // one on a stream that already carries the user's orders
            Stream const* st = nullptr;
            for (Stream const& c : m_streams)
                if (c.alive && c.withOrders) {
                    st = &c;
                    break;
                }
            o.sec = st->sec;
            o.stream = st->id;
            o.stock = 5;
            o.board = 20;
        } else {
            o.sec = pickLive(k % 3 ? Kind::Option : Kind::Future);
            o.stock = m_secs[std::size_t(o.sec)].stock;
            o.board = m_secs[std::size_t(o.sec)].board;
        }
        Sec& s = m_secs[std::size_t(o.sec)];
        s.refs |= 4;
        o.id = m_nextOrderId++;
        o.sess = sess;
        o.decimals = s.decimals;
        o.side = k % 2 ? 'S' : 'B';
        o.price = withinLimits(s, std::max(stepOf(s), s.price + stepOf(s) * (o.side == 'B' ? -m_rng.range(0, 4) : m_rng.range(0, 4))));
        o.qty = int(m_rng.range(1, 30));
        o.balance = o.qty;
        o.status = 'A';
        o.signs = k == 3 ? 0x800000000000LL : 0;
        o.dkh = 0;
        std::uint64_t const who = m_rng.next();
        o.client = o.stream ? userClient(who) : std::int32_t(who % m_clients.size());
        o.moment = at + k * 1500;
        m_orders.push_back(o);
        orderRow(w.insert(), o);
    }
    w.end();
}

void Market::writeReplication(JsonlWriter& w)
{
    std::vector<std::int32_t> weekly[2];
    std::int32_t weeklySeries[2] = {-1, -1};
    std::size_t openedStream = 0;   // the stream the log opens, closed again later

    for (int k = 0; k < kTicks; ++k) {
        std::int64_t at = k < 18 ? msAt(kToday, 10, 0) + k * 30 * kMinute : msAt(kToday, 19, 5) + (k - 18) * 50 * kMinute;
        if (k == 18) {
            // Evening roll: the next session opens, the oldest one is dropped.
            at = msAt(kToday, 19, 0);
            w.begin("sessions");
            for (int stock : {1, 4}) {
                w.insert().i("stock_id", stock).i("sess_id", kSessNext).s("name", "Торговая сессия 23.11.2026").date("date", kToday + 3);
                w.remove().i("stock_id", stock).i("sess_id", kSessPrev);
            }
            w.end();
            w.begin("securities", 1000);
            for (Sec& s : m_secs) {
                if (!s.alive)
                    continue;
                s.sess = kSessNext;
                w.update();
                securityKey(w, s);
                w.i("sess_id", s.sess);
                if (s.kind != Kind::Option && s.kind != Kind::Index) {
                    // clearing: today's price becomes the settlement and moves the limits
                    s.settle = s.price;
                    setLimits(s);
                    w.dec("settlement_price_open", s.settle, s.decimals);
                    w.dec("price_lmt_high", s.high, s.decimals);
                    w.dec("price_lmt_low", s.low, s.decimals);
                }
            }
            w.end();
            for (char const* table : {"fut_vm", "opt_vm"}) {
                w.begin(table);
                for (std::size_t c = 0; c < 10; ++c)
                    w.insert().s("account", m_clients[c].code).i("sess_id", kSessNext).dec("vm", 0, 2);
                w.end();
            }
            for (char const* table : {"fut_vm_sa", "opt_vm_sa"}) {
                w.begin(table);
                for (Firm const& f : m_firms)
                    w.insert().i("sess_id", kSessNext).s("settlement_account", f.bf + "-RK01").dec("vm", m_rng.range(-100000, 100000), 2);
                w.end();
            }
            int rates = 0, optRates = 0, volats = 0;
            w.begin("k3.futures_rate");
            for (Sec const& s : m_secs)
                if (s.alive && s.kind == Kind::Future && s.expIdx == 0 && rates++ < 20)
                    rateRow(w.insert(), s, kSessNext);
            w.end();
            w.begin("k3.option_rate");
            for (Sec const& s : m_secs)
                if (s.alive && s.kind == Kind::Option && (s.refs & 2) && optRates++ < 10)
                    rateRow(w.insert(), s, kSessNext);
            w.end();
            w.begin("k3.volat");
            for (Sec const& s : m_secs)
                if (s.alive && s.kind == Kind::Option && (s.refs & 1) && volats++ < 10)
                    volatRow(w.insert(), s, kSessNext);
            w.end();
            w.begin("k3.broker_fee_params");
            w.insert().s("client_code", m_clients[0].code).i("sess_id", kSessNext).dec("lower_fee", 50, 2);
            w.dec("upper_fee", 120000, 2).dec("multiplier", 140, 6).dec("additive", 20, 2);
            w.end();
            // the day session's active orders on the main boards expire
            w.begin("orders");
            int expired = 0;
            for (Order& o : m_orders)
                if (o.alive && o.status == 'A' && o.sess == kSessCur && o.stock != 5 && expired++ < 15) {
                    o.status = 'W';
                    w.update();
                    orderKey(w, o);
                    w.c("status", 'W');
                }
            w.end();
        }

        tick(w, at);
        quoteTick(w, at);

        switch (k) {
        case 0:
            w.begin("stock_time");
            w.update().i("stock_id", 1).i("diff_vs_cur_time", 15).dt("server_time", at + 15);
            w.update().i("stock_id", 4).i("diff_vs_cur_time", 340).dt("server_time", at + 340);
            w.update().i("stock_id", 5).i("diff_vs_cur_time", -110).dt("server_time", at - 110);
            w.end();
            w.begin("buysells");
            w.update().c("buysell", 'B').s("name", "Покупка");
            w.end();
            w.begin("statuses");
            w.update().c("status", 'W').s("descr", "Заявка снята участником");
            w.end();
            w.begin("sectypes");
            w.update().c("sectype", 'K').s("descr", "Инструмент для оценки рисков");
            w.end();
            w.begin("secstates");
            w.insert().c("secstate", 'H').s("name", "Прерван").s("descr", "Торги прерваны до конца сессии");
            w.end();
            w.begin("sessstates");
            w.update().c("sessstate", 'O').s("descr", "Идут основные торги");
            w.end();
            break;
        case 1:
            // one future is quoted with a digit more from now on
            for (Sec& s : m_secs)
                if (s.alive && s.kind == Kind::Future && s.decimals == 2) {
                    s.decimals = 3;
                    s.price *= 10;
                    s.settle *= 10;
                    s.low *= 10;
                    s.high *= 10;
                    w.begin("securities");
                    securityKey(w.update(), s);
                    w.i("decimals", s.decimals);
                    w.end();
                    break;
                }
            break;
        case 2: {
            newOrders(w, 10, kSessCur, at);
            w.begin("orders");
            int filled = 0, withdrawn = 0, rfs = 0;
            for (Order& o : m_orders) {
                if (!o.alive || o.status != 'A')
                    continue;
                if (o.stock == 5 && rfs < 1) {
                    ++rfs;
                    o.status = 'W';
                    orderKey(w.update(), o);
                    w.c("status", 'W');
                } else if (o.balance > 1 && filled < 5) {
                    ++filled;
                    o.balance -= 1;
                    orderKey(w.update(), o);
                    w.i("balance", o.balance);
                } else if (o.stock != 5 && withdrawn < 3) {
                    ++withdrawn;
                    o.status = 'W';
                    orderKey(w.update(), o);
                    w.c("status", 'W').dt("moment", at + withdrawn);
                }
            }
            int removed = 0;
            for (Order& o : m_orders)
                if (o.alive && o.status == 'W' && removed < 2) {
                    ++removed;
                    o.alive = false;
                    orderKey(w.remove(), o);
                }
            w.end();
            break;
        }
        case 3: {
            Board b{1, 15, "OPTW", "Недельные опционы", 'D', 'O', 0x37, "OPTWS"};
            m_boards.push_back(b);
            w.begin("boards");
            boardRow(w.insert(), b);
            w.end();
            break;
        }
        case 4: {
            // weekly series of the first market's nearest future, on the new board
            std::int32_t fut = 0;
            while (m_secs[std::size_t(fut)].kind != Kind::Future || m_secs[std::size_t(fut)].stock != 1 ||
                   m_secs[std::size_t(fut)].expIdx != 0 || m_secs[std::size_t(fut)].decimals != m_bases[std::size_t(m_secs[std::size_t(fut)].base)].decimals)
                ++fut;
            // copies: adding options below grows the security vector
            std::int64_t futPrice = m_secs[std::size_t(fut)].price;
            std::int64_t step = stepOf(m_secs[std::size_t(fut)]);
            for (int n = 0; n < 2; ++n) {
                Series sr;
                sr.id = m_nextSeriesId++;
                sr.fut = fut;
                sr.expiry = kToday + 6 + 7 * n;
                sr.strikeStep = std::max(step, futPrice / 40 - futPrice / 40 % step);
                m_series.push_back(sr);
                weeklySeries[n] = std::int32_t(m_series.size() - 1);
            }
            w.begin("k3.option_series_params");
            for (std::int32_t si : weeklySeries)
                seriesRow(w.insert(), m_series[std::size_t(si)]);
            w.end();
            w.begin("k3.volat_coeff_black");
            for (std::int32_t si : weeklySeries)
                blackRow(w.insert(), m_series[std::size_t(si)]);
            w.end();
            w.begin("k3.volat_coeff_bach");
            for (std::int32_t si : weeklySeries)
                bachRow(w.insert(), m_series[std::size_t(si)]);
            w.end();
            w.begin("securities");
            for (int n = 0; n < 2; ++n) {
                Series const& sr = m_series[std::size_t(weeklySeries[n])];
                std::int64_t center = futPrice / sr.strikeStep * sr.strikeStep;
                for (int j = -2; j <= 2; ++j)
                    for (char type : {'C', 'P'}) {
                        std::int32_t idx = addOption(weeklySeries[n], center + j * sr.strikeStep, type);
                        m_secs[std::size_t(idx)].board = 15;
                        weekly[n].push_back(idx);
                        securityRow(w.insert(), m_secs[std::size_t(idx)]);
                    }
            }
            w.end();
            break;
        }
        case 5: {
            Stream st;
            st.id = m_nextStreamId++;
            st.sec = m_streamSecs[1];
            st.amount = 75;
            st.signs = 0;
            st.dir = 3;
            st.bump = 4;
            st.duration = 7;
            Sec const& s = m_secs[std::size_t(st.sec)];
            for (int side = 0; side < 2; ++side) {
                st.quoteId[side] = m_nextQuoteId++;
                st.quote[side] = withinLimits(s, s.price + stepOf(s) * (side ? 2 : -2));
            }
            openedStream = m_streams.size();
            m_streams.push_back(st);
            // Liquidity-provider users are known (the snapshot has them): opened aloud.
            w.begin("k3.rfs.streams");
            streamRow(w.insert(), st);
            w.end();
            w.begin("k3.rfs.quotes");
            for (int side = 0; side < 2; ++side)
                quoteRow(w.insert(), st, side);
            w.end();
            w.begin("k3.rfs.lp_users");
            w.insert().s("lp_code", "LPTR01").s("client_code", "TR01001");
            w.end();
            break;
        }
        case 6: {
            Deal d = m_deals[0];
            d.id = m_nextDealId++;
            d.qty = 12;
            m_deals.push_back(d);
            w.begin("deals");
            // arrives waiting: nothing until an update shows it
            dealRow(w.insert(), d);
            w.update().i("deal_id", m_deals[0].id).i("state", 1).i("error_code", 0);
            // another login's deal waiting for confirmation: not this user's to confirm
            for (Deal& other : m_deals)
                if (other.state == 1 && other.login != kCurrentLogin) {
                    other.qty += 1;
                    w.update().i("deal_id", other.id).i("state", 1).i("quantity", other.qty);
                    break;
                }
            w.end();
            break;
        }
        case 7:
            w.begin("k3.user");
            {
                Login l{"TR02U03", "TR02001", 0, 7101, msAt(daysFromCivil(2027, 5, 20), 0, 0)};
                m_logins.push_back(l);
                userRow(w.insert(), l);
            }
            m_logins[1].expiry = msAt(daysFromCivil(2027, 2, 20), 0, 0);   // the password was changed
            w.update().s("login", m_logins[1].login).dt("password_expiration_date", m_logins[1].expiry);
            for (Login& l : m_logins)
                if (l.login == "MZ01S01") {
                    l.alive = false;
                    w.remove().s("login", l.login);
                }
            w.end();
            break;
        case 8: {
            // the second weekly series is withdrawn, with a few unused strikes of the main board
            w.begin("securities");
            for (std::int32_t idx : weekly[1]) {
                m_secs[std::size_t(idx)].alive = false;
                securityKey(w.remove(), m_secs[std::size_t(idx)]);
            }
            int removed = 0;
            for (std::size_t idx = m_secs.size(); idx-- > 0 && removed < 3;) {
                Sec& s = m_secs[idx];
                if (s.alive && s.kind == Kind::Option && s.board == 14 && s.refs == 0) {
                    s.alive = false;
                    ++removed;
                    securityKey(w.remove(), s);
                }
            }
            w.end();
            Series& sr = m_series[std::size_t(weeklySeries[1])];
            sr.alive = false;
            w.begin("k3.option_series_params");
            w.remove().i("option_series_id", sr.id);
            w.end();
            w.begin("k3.volat_coeff_black");
            w.remove().i("option_series_id", sr.id);
            w.end();
            w.begin("k3.volat_coeff_bach");
            w.remove().i("option_series_id", sr.id);
            w.end();
            break;
        }
        case 9: {
            Deal const& d = m_deals[0];
            w.begin("deals");
            w.update().i("deal_id", d.id).i("state", 4);
            w.update().i("deal_id", m_deals[1].id).i("state", 1);
            w.end();
            w.begin("k3.adjusted_fee");
            w.insert().i("id_deal", d.id).dec("adjusted_fee_buy", 245, 2).dec("adjusted_fee_sell", 245, 2);
            w.end();
            w.begin("k3.broker_fee");
            w.insert().i("id_deal", d.id).dec("broker_fee_buy", 120, 2).dec("broker_fee_sell", 120, 2);
            w.end();
            break;
        }
        case 10:
            w.begin("k3.dealer");
            w.update().s("client_code", "FA02000").i("status", 0x20002).i("signs", 8);
            w.end();
            w.begin("k3.investor");
            w.insert().s("client_code", "TR02005").s("name", "Градов И.С.").i("status", 0);
            w.update().s("client_code", "FA01001").i("status", 2);
            w.end();
            w.begin("k3.core_dealer");
            w.insert().s("client_code", "FA02");
            w.end();
            // the core list is resent whole
            w.begin("k3.core_investor");
            w.clear();
            for (std::size_t c = 2; c < m_clients.size(); c += 5)
                w.insert().s("client_code", m_clients[c].code);
            w.end();
            w.begin("k3.RF");
            w.update().s("code", "QD").i("op_input", 0).i("rf_input", 1);
            w.end();
            break;
        case 11:
            w.begin("deals");
            w.update().i("deal_id", m_deals[1].id).i("state", 3).i("error_code", 5).i("talmera_error_code", 105);
            w.end();
            break;
        case 12:
            w.begin("k3.fut_settlement_account");
            w.insert().s("code", "TR02005").i("type", 0).s("settlement_account", "TR02-RK02");
            w.update().s("code", "FA01001").i("type", 0).s("settlement_account", "FA01-RK01");
            w.end();
            w.begin("k3.fut_margin_type");
            w.update().s("code", "FA01").i("margin_type", 5).i("operator_input", 1);
            w.end();
            w.begin("k3part_bf");
            w.insert().s("account", "TR03").s("name", "АО «Фарвис Брокер-2»");
            w.end();
            break;
        case 13:
            for (char const* table : {"fut_vm", "opt_vm"}) {
                w.begin(table);
                for (std::size_t c = 0; c < 5; ++c)
                    w.update().s("account", m_clients[c].code).i("sess_id", kSessCur).dec("vm", m_rng.range(-3000000, 3000000), 2);
                w.end();
            }
            for (char const* table : {"fut_vm_sa", "opt_vm_sa"}) {
                w.begin(table);
                w.update().i("sess_id", kSessCur).s("settlement_account", "FA01-RK01").dec("vm", m_rng.range(-3000000, 3000000), 2);
                w.update().i("sess_id", kSessCur).s("settlement_account", "QC02-RK02").dec("vm", m_rng.range(-3000000, 3000000), 2);
                w.end();
            }
            break;
        case 14: {
            // the stream the log opened closes (aloud), and one the user has
            // an active order on (silently: the user follows it already)
            auto close = [&](Stream& st) {
                st.alive = false;
                w.begin("k3.rfs.quotes");
                for (int side = 0; side < 2; ++side)
                    if (st.quoteId[side])
                        w.remove().i("stream_id", st.id).i("dir", side + 1);
                w.end();
                w.begin("k3.rfs.streams");
                w.remove().i("stream_id", st.id);
                w.end();
            };
            close(m_streams[openedStream]);
            for (Stream& st : m_streams) {
                bool ordered = false;
                for (Order const& o : m_orders)
                    ordered = ordered || (o.alive && o.status == 'A' && o.stream == st.id);
                if (st.alive && ordered) {
                    close(st);
                    break;
                }
            }
            break;
        }
        case 15:
            w.begin("k3.broker_fee_params");
            w.update().s("client_code", m_clients[0].code).i("sess_id", kSessCur).dec("upper_fee", 150000, 2);
            w.end();
            w.begin("k3.base_contracts_params");
            w.update().s("base_contract_code", m_bases[0].code).dec("mr1", 12500, 5).dec("mr2", 15000, 5);
            w.end();
            w.begin("k3.rfs.base_contract_min_amount");
            w.update().s("base_contract_code", "*").i("min_amount", 2);
            w.end();
            break;
        case 16: {
            int volat = 0, rate = 0, optRate = 0;
            w.begin("k3.volat");
            for (Sec const& s : m_secs)
                if (s.alive && (s.refs & 1) && volat++ < 5)
                    volatRow(w.update(), s, kSessCur);
            w.end();
            w.begin("k3.futures_rate");
            for (Sec const& s : m_secs)
                if (s.alive && (s.refs & 2) && s.kind == Kind::Future && rate++ < 3) {
                    securityKey(w.update(), s);
                    w.i("sess_id", kSessCur).dec("exchange_fee", 61000, 5);
                }
            w.end();
            w.begin("k3.option_rate");
            for (Sec const& s : m_secs)
                if (s.alive && (s.refs & 2) && s.kind == Kind::Option && optRate++ < 3) {
                    securityKey(w.update(), s);
                    w.i("sess_id", kSessCur).dec("clearing_fee", 20000, 5);
                }
            w.end();
            int coeffs = 0;
            w.begin("k3.volat_coeff_black");
            for (Series const& sr : m_series)
                if (sr.alive && sr.black && coeffs++ < 3)
                    w.update().i("option_series_id", sr.id).num("a", 251234, 4).num("s", -35, 4);
            w.end();
            coeffs = 0;
            w.begin("k3.volat_coeff_bach");
            for (Series const& sr : m_series)
                if (sr.alive && sr.bach && coeffs++ < 3)
                    w.update().i("option_series_id", sr.id).num("a", 181500, 4).num("m", 10250, 4);
            w.end();
            break;
        }
        case 17:
            w.begin("calendar");
            w.update().date("date", daysFromCivil(2026, 12, 31)).i("type", 0);
            w.insert().date("date", daysFromCivil(2027, 10, 1)).i("type", 0);
            w.end();
            w.begin("stocks");
            w.update().i("stock_id", 4).s("name", "Товарный срочный рынок (секция 2)");
            w.end();
            break;
        case 19:
            w.begin("stock_time");
            w.update().i("stock_id", 1).i("diff_vs_cur_time", 20).dt("server_time", at + 20);
            w.end();
            newOrders(w, 10, kSessNext, at);
            break;
        case 21: {
            w.begin("deals");
            std::vector<Deal> added;
            for (int n = 0; n < 3; ++n) {
                Deal d = m_deals[std::size_t(2 + n)];
                d.id = m_nextDealId++;
                d.price = withinLimits(m_secs[std::size_t(d.sec)], d.price);   // the roll moved the limits
                d.state = 4;
                d.error = d.talmeraError = 0;
                // a login the log removed trades no more: another of its firm does
                for (Login const& l : m_logins)
                    if (l.login == d.login && !l.alive)
                        d.login = loginOf(firmOf(l.clientCode), true, std::uint64_t(d.id));
                m_deals.push_back(d);
                added.push_back(d);
                dealRow(w.insert(), d);
            }
            w.end();
            w.begin("k3.adjusted_fee");
            for (Deal const& d : added)
                w.insert().i("id_deal", d.id).dec("adjusted_fee_buy", 180, 2).dec("adjusted_fee_sell", 180, 2);
            w.end();
            w.begin("k3.broker_fee");
            for (Deal const& d : added)
                w.insert().i("id_deal", d.id).dec("broker_fee_buy", 90, 2).dec("broker_fee_sell", 90, 2);
            w.end();
            break;
        }
        case 22: {
            w.begin("orders");
            int changed = 0;
            for (Order& o : m_orders)
                if (o.alive && o.sess == kSessNext && o.status == 'A' && changed++ < 4) {
                    o.balance = std::max(1, o.balance / 2);
                    orderKey(w.update(), o);
                    w.i("balance", o.balance);
                }
            w.end();
            break;
        }
        default:
            break;
        }
    }
}

} // namespace gen
