#include "options.h"
#include "startup.h"

#include <directories>
#include <core/clock.h>

#include <QCommandLineParser>
#include <QTextStream>
#include <QDateTime>
#include <QMap>
#include <algorithm>
#include <cmath>

namespace console {
namespace {

struct Side
{
    long long secId = 0;
    CalcVolatResult values;
    bool atBound = false;
    bool priced = false;
};

struct Strike
{
    Side call, put;
};

QString num(decimal const& d, int places, int width)
{
    return QString::number(d.toDouble(), 'f', places).rightJustified(width);
}

QString sideCells(Side const& s, int decimals)
{
    if (!s.priced) return QString(7 + 10 + 8 + 10 + 9 + 9, QLatin1Char(' '));
    return (num(s.values.volat, 2, 6) + (s.atBound ? QStringLiteral("*") : QStringLiteral(" "))) +
           num(s.values.theorPrice, std::max(decimals, 0), 10) + num(s.values.greeks[0], 3, 8) +
           num(s.values.greeks[1], 6, 10) + num(s.values.greeks[2], 4, 9) + num(s.values.greeks[3], 4, 9);
}

void printBoard(QTextStream& out, QString const& base, QDate expiry, int type)
{
    SecurityDirectory* securities = SecurityDirectory::i();
    QMap<QDate, QSet<SeriesParamData>> const& byDate = OptionSeriesParamDirectory::i()->getSeriesParamData();
    // Every option of the base on the option boards, by series.
    QMap<int, QMap<double, Strike>> bySeries;
    QMap<int, Record> firstOption;
    for (int stock : {1, 4})
        for (QString const& key : securities->keysByBaseCode(base, stock, 14)) {
            Record r = securities->recordByTextId(key);
            int series = r.data("option_series_id").toInteger();
            Strike& s = bySeries[series][r.data("strike").toDouble()];
            Side& side = r.data("option_type").toString() == QLatin1String("P") ? s.put : s.call;
            side.secId = r.data("sec_id").toInteger64();
            if (!firstOption.contains(series)) firstOption.insert(series, r);
        }
    int shown = 0;
    QString const model = type == 1 ? QStringLiteral("Bachelier") : QStringLiteral("Black");
    for (auto date = byDate.begin(); date != byDate.end(); ++date) {
        if (expiry.isValid() && date.key() != expiry) continue;
        QList<SeriesParamData> list = date.value().values();
        std::sort(list.begin(), list.end(), [](SeriesParamData const& a, SeriesParamData const& b) {
            return a.option_series_id < b.option_series_id;
        });
        for (SeriesParamData const& sp : list) {
            if (sp.base_code != base || !bySeries.contains(sp.option_series_id)) continue;
            Record option = firstOption.value(sp.option_series_id);
            int const decimals = option.data("decimals").toInteger();
            Record under = securities->recordByIsinId(option.data("stock_id").toInteger(),
                                                      option.data("main_board_id").toInteger(),
                                                      option.data("fut_isin_id").toInteger());
            double F = under.data("market_price").toDouble();
            if (F == 0.0) F = under.data("settlement_price_open").toDouble();
            double const sqrtT = securities->getSqrtTByExpDate(option.data("expdate").toDatetime());
            out << "\n" << sp.sec_name << "  (series " << sp.option_series_id << ", " << model << ")\n"
                << "  expiry " << option.data("expdate").toDatetime().toString().left(16) << ", "
                << QString::number(sqrtT * sqrtT * 365.0, 'f', 2) << " days;  underlying "
                << under.data("sec_code").toString().trimmed() << " at " << QString::number(F, 'f', std::max(decimals, 0))
                << ";  volatility bounds " << option.data("volat_min").toString() << " .. "
                << option.data("volat_max").toString() << " %\n";
            QString const sideHead = QStringLiteral("Vol%").rightJustified(6) + QLatin1Char(' ') +
                                     QStringLiteral("Theor").rightJustified(10) + QStringLiteral("Delta").rightJustified(8) +
                                     QStringLiteral("Gamma").rightJustified(10) + QStringLiteral("Vega").rightJustified(9) +
                                     QStringLiteral("Theta").rightJustified(9);
            out << QStringLiteral("%1 |%2| %3\n").arg(QStringLiteral("CALLS").rightJustified(53), QStringLiteral("STRIKE").rightJustified(10), QStringLiteral("PUTS"))
                << sideHead << " |          |" << sideHead << "\n";
            for (auto strike = bySeries[sp.option_series_id].begin(); strike != bySeries[sp.option_series_id].end(); ++strike) {
                for (Side* side : {&strike.value().call, &strike.value().put}) {
                    if (!side->secId) continue;
                    CalcVolatResult* r = securities->getVolatResultBySecId(side->secId, type);
                    if (!r || !r->age.isValid()) continue;
                    side->values.volat = r->volat;
                    side->values.theorPrice = r->theorPrice;
                    for (int g = 0; g < 4; ++g) side->values.greeks[g] = r->greeks[g];
                    side->priced = true;
                    Record rec = securities->recordById(option.data("stock_id").toInteger(), 14, side->secId);
                    double const v = r->volat.toDouble();
                    double const lower = type == 1 ? rec.data("price_step").toDouble() : rec.data("volat_min").toDouble();
                    side->atBound = std::fabs(v - lower) < 5e-5 || std::fabs(v - rec.data("volat_max").toDouble()) < 5e-5;
                }
                out << sideCells(strike.value().call, decimals) << " |"
                    << QString::number(strike.key(), 'f', std::max(decimals, 0)).rightJustified(10) << "|"
                    << sideCells(strike.value().put, decimals) << "\n";
            }
            ++shown;
        }
    }
    if (shown == 0) out << "no option series of base " << base << (expiry.isValid() ? " expiring " + expiry.toString(Qt::ISODate) : QString()) << "\n";
    else out << "\n  * at a volatility bound.  Delta of the side; gamma per unit of price; vega per volatility point; theta per day.\n";
}

void printTime(QTextStream& out)
{
    StockTimeDirectory* times = StockTimeDirectory::i();
    SessionDirectory* sessions = SessionDirectory::i();
    CalendarDirectory* calendar = CalendarDirectory::i();
    out << "local clock     " << datetime::now().toString() << "\n";
    for (int stock : StockDirectory::i()->ids()) {
        int const sess = sessions->getMaxSessId(stock);
        out << "market " << stock << " (" << StockDirectory::i()->codeById(stock).trimmed() << ")\n"
            << "  exchange time " << times->correctedLocalTime(stock).toString() << "  (server sent "
            << times->timeByStockId(stock).toString() << ")\n"
            << "  session       " << (sess > 0 ? QString::number(sess) + " " + sessions->nameById(stock, sess) + ", "
                                                    + sessions->dateById(stock, sess).getDate().toString(Qt::ISODate)
                                              : QStringLiteral("none")) << "\n";
    }
    QDate const today = times->correctedLocalTime(1).getDate();
    datetime const from(QDateTime(today.addDays(1), QTime(0, 0), Qt::UTC).toMSecsSinceEpoch());
    datetime const to(QDateTime(today.addDays(60), QTime(0, 0), Qt::UTC).toMSecsSinceEpoch());
    QStringList next;
    for (Record const& day : calendar->range(from, to)) {
        if (!calendar->isTradingDay(day)) continue;
        next << calendar->date(day).getDate().toString(Qt::ISODate);
        if (next.size() == 5) break;
    }
    out << "next trading days after " << today.toString(Qt::ISODate) << ": " << (next.isEmpty() ? QStringLiteral("none in the calendar") : next.join(QStringLiteral(", "))) << "\n";
}

class OptionViewCommand : public ConsoleCommand
{
public:
    void addOptions(QCommandLineParser& parser) override { parser.addOptions({m_board, m_expiry, m_model, m_time}); }

    QString check(QCommandLineParser const& parser) const override
    {
        // Alone they would narrow nothing and be silently dropped.
        for (QCommandLineOption const* o : {&m_expiry, &m_model})
            if (parser.isSet(*o) && !parser.isSet(m_board)) return QStringLiteral("--%1 goes with --option-board").arg(o->names().first());
        QString const model = parser.value(m_model).toLower();
        if (model != QLatin1String("black") && model != QLatin1String("bachelier"))
            return QStringLiteral("--model: '%1' is neither black nor bachelier").arg(parser.value(m_model));
        if (parser.isSet(m_expiry) && !QDate::fromString(parser.value(m_expiry), Qt::ISODate).isValid())
            return QStringLiteral("--expiry: cannot read '%1' (yyyy-MM-dd)").arg(parser.value(m_expiry));
        return QString();
    }

    int run(RunContext& c) override
    {
        if (c.parser.isSet(m_time)) printTime(c.out);
        QDate const expiry = QDate::fromString(c.parser.value(m_expiry), Qt::ISODate);   // invalid: every expiry
        int const type = c.parser.value(m_model).toLower() == QLatin1String("bachelier") ? 1 : 0;
        for (QString const& base : c.parser.values(m_board)) printBoard(c.out, base, expiry, type);
        return apps::Done;
    }

private:
    QCommandLineOption m_board{QStringLiteral("option-board"),
        QStringLiteral("Show the option series of a base, by expiry: volatility, price and sensitivities per strike."), QStringLiteral("base")};
    QCommandLineOption m_expiry{QStringLiteral("expiry"), QStringLiteral("With --option-board: only the series expiring that day (yyyy-MM-dd)."),
        QStringLiteral("date")};
    QCommandLineOption m_model{QStringLiteral("model"), QStringLiteral("With --option-board: the smile to price on, black (default) or bachelier."),
        QStringLiteral("black|bachelier"), QStringLiteral("black")};
    QCommandLineOption m_time{QStringLiteral("time"),
        QStringLiteral("Show the exchange time and current session of each market, and the next trading days.")};
};

} // namespace

std::unique_ptr<ConsoleCommand> optionViewCommand() { return std::make_unique<OptionViewCommand>(); }

} // namespace console
