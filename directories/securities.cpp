#include "securities.h"
#include "markets.h"
#include "sessions.h"
#include "volatility.h"

#include <core/constants.h>
#include <core/volat.h>

#include <QDataStream>
#include <QElapsedTimer>
#include <QMimeData>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <limits>

namespace {
QString const kMimeSecurity = QStringLiteral("application/x-gui-security");
QString const kMimeSecurities = QStringLiteral("application/x-gui-securities");
QString const kMimePutCall = QStringLiteral("application/x-gui-putcall");
} // namespace

SecurityDirectory::SecurityDirectory(QObject* parent)
    : Directory(parent, staticMetaObject),
      m_volatCacheBlack(1024), m_volatCacheBach(1024)
{
    m_calcVolatTimer = new QTimer(this);
    m_calcVolatTimer->start(1000);

    resolveColumns({{m_stockId, "stock_id"}, {m_boardId, "board_id"}, {m_secId, "sec_id"}, {m_isinId, "isin_id"},
                    {m_secCode, "sec_code"}, {m_secName, "sec_name"}, {m_baseCode, "base_code"},
                    {m_sessId, "sess_id"}, {m_decimals, "decimals"}, {m_lotsize, "lotsize"}, {m_sectype, "sectype"},
                    {m_priceLmtHigh, "price_lmt_high"}, {m_priceLmtLow, "price_lmt_low"}, {m_priceStep, "price_step"},
                    {m_priceDir, "price_dir"}, {m_ask, "ask"}, {m_bid, "bid"}, {m_prevBid, "prev_bid"},
                    {m_prevAsk, "prev_ask"}, {m_dateBid, "date_bid"}, {m_dateAsk, "date_ask"},
                    {m_settlementPriceOpen, "settlement_price_open"}, {m_pctyieldCoeff, "pctyield_coeff"},
                    {m_pctyieldTotal, "pctyield_total"}, {m_isPercent, "is_percent"},
                    {m_mainBoardId, "main_board_id"}, {m_futIsinId, "fut_isin_id"},
                    {m_optionSeriesId, "option_series_id"}, {m_marketPrice, "market_price"}, {m_strike, "strike"},
                    {m_optionType, "option_type"}, {m_expdate, "expdate"}, {m_volatMin, "volat_min"},
                    {m_volatMax, "volat_max"}, {m_signs, "signs"}, {m_stepPrice, "step_price"}});
    // Columns up to the one before "sess_id" are the static ones; the split
    // rests on the delivered column order.
    m_lastStaticColumn = column(QStringLiteral("sess_id")) - 1;

    QSharedPointer<Table> t = table();
    m_isinIndex = ownIndex(MasterIndex_Struct_Cached<int, int, int>::create(
        t.data(), QStringList{QStringLiteral("stock_id"), QStringLiteral("board_id"), QStringLiteral("isin_id")}));
    t->setIndexName(QStringLiteral("isin_id"), m_isinIndex);
    m_isinIndex->build();
    m_byId = DirectoryKey<int, int, long long>(t, nullptr, {m_stockId, m_boardId, m_secId});
    if (m_isinIndex) m_byIsinId = DirectoryKey<int, int, int>(t, m_isinIndex, {m_stockId, m_boardId, m_isinId});
}

SecurityDirectory::~SecurityDirectory()
{
    QMutexLocker lock(&m_cacheMutex);
    m_volatCacheBlack.clear();
    m_volatCacheBach.clear();
}

// ---- records ----------------------------------------------------------------

Record SecurityDirectory::recordById(int stock, int board, long long secId) const
{
    return m_byId.find(marketAlias(stock), board, secId);
}

bool SecurityDirectory::recordExists(int stock, int board, long long secId) const
{
    return !recordById(stock, board, secId).isEmpty();
}

Record SecurityDirectory::realRecordById(int stock, int board, long long secId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    if (stock != 1 || board != 3) return recordById(stock, board, secId);
    Record r = recordById(1, 3, secId);
    if (r.isEmpty()) return Record();
    return recordByIsinId(1, 1, r.data(m_isinId).toInteger());
}

Record SecurityDirectory::recordByIsinId(int stock, int board, int isinId) const
{
    return m_byIsinId.find(stock, board, isinId);
}

namespace {
// Plain decimal numbers: an optional '-' and digits, in range. Anything
// else (spaces, '+', other separators) is left to the master index's own
// parsing of a text key, which accepts more.
template <class N>
bool parsePlainNumber(QChar const*& p, QChar const* end, N& out)
{
    bool negative = p < end && *p == QLatin1Char('-');
    if (negative) ++p;
    if (p == end || *p == QLatin1Char(',')) return false;
    unsigned long long const max = static_cast<unsigned long long>(std::numeric_limits<N>::max()) + (negative ? 1 : 0);
    unsigned long long v = 0;
    for (; p < end && *p != QLatin1Char(','); ++p) {
        ushort u = p->unicode();
        if (u < '0' || u > '9') return false;
        unsigned digit = u - '0';
        if (v > (max - digit) / 10) return false;
        v = v * 10 + digit;
    }
    out = negative ? N(0 - v) : N(v);
    return true;
}

bool parseTextId(QString const& text, int& stock, int& board, long long& secId)
{
    QChar const* p = text.constData();
    QChar const* end = p + text.size();
    if (!parsePlainNumber(p, end, stock) || p == end || *p++ != QLatin1Char(',')) return false;
    if (!parsePlainNumber(p, end, board) || p == end || *p++ != QLatin1Char(',')) return false;
    return parsePlainNumber(p, end, secId) && p == end;
}
} // namespace

Record SecurityDirectory::recordByTextId(QString const& textId) const
{
    QSharedPointer<Table> t = table();
    if (!t) return Record();
    // The usual text id goes straight to the typed search; the result is
    // the one the key record below would find.
    int stock = 0, board = 0;
    long long secId = 0;
    if (parseTextId(textId, stock, board, secId)) return m_byId.find(stock, board, secId);
    MasterIndex_Column_Pure* master = t->masterIndex();
    Record key = master->fromText(textId);
    if (key.isEmpty()) return Record();
    int position = master->search(key, -1);
    return position < 0 ? Record() : master->at(position);
}

Record SecurityDirectory::realRecordByTextId(QString const& textId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordByTextId(textId);
    if (r.isEmpty()) return r;
    if (r.data(m_stockId).toInteger() != 1 || r.data(m_boardId).toInteger() != 3) return r;
    SecurityDirectory* securities = directoryOrNull<SecurityDirectory>();
    return securities ? securities->recordByIsinId(1, 1, r.data(m_isinId).toInteger()) : Record();
}

Record SecurityDirectory::recordBySecCode(QString const& code, int stock, int board)
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QSharedPointer<Table> t = table();
    if (!t) return Record();
    MasterIndex_Column_Pure* master = t->masterIndex();
    for (auto it = master->begin(); it != master->end(); ++it) {
        unsigned char* row = it->row();
        if (stock != 0 && t->dataPtr(row, m_stockId).rawInt32() != stock) continue;
        if (board != 0 && t->dataPtr(row, m_boardId).rawInt32() != board) continue;
        if (t->dataPtr(row, m_secCode).asStaticString() == code) return *it;
    }
    return Record();
}

// ---- identifiers ------------------------------------------------------------

QString SecurityDirectory::textIdById(int stock, int board, long long secId)
{
    return QStringLiteral("%1,%2,%3").arg(marketAlias(stock)).arg(board).arg(secId);
}

bool SecurityDirectory::idByTextId(QString const& textId, int& stock, int& board, long long& secId)
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordByTextId(textId);
    if (r.isEmpty()) return false;
    stock = r.data(m_stockId).toInteger();
    board = r.data(m_boardId).toInteger();
    secId = r.data(m_secId).toInteger64();
    return true;
}

int SecurityDirectory::getIsinIdById(int stock, int board, long long secId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordById(stock, board, secId);
    return r.isEmpty() ? 0 : r.data(m_isinId).toInteger();
}

long long SecurityDirectory::getSecIdByIsinId(int stock, int board, int isinId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordByIsinId(stock, board, isinId);
    return r.isEmpty() ? 0 : r.data(m_secId).toInteger64();
}

int SecurityDirectory::getIsinIdBySecCode(QString const& code, int stock, int board)
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordBySecCode(code, stock, board);
    return r.isEmpty() ? 0 : r.data(m_isinId).toInteger();
}

int SecurityDirectory::getBoardIdBySecCode(QString const& code, int stock, bool address)
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QSharedPointer<Table> t = table();
    if (!t || code.isEmpty()) return 0;
    // Without a board table every board reads as a proxy board (the board
    // tests are permissive), so none qualifies.
    BoardDirectory* boards = directoryOrNull<BoardDirectory>();
    if (!boards) return 0;
    MasterIndex_Column_Pure* master = t->masterIndex();
    for (auto it = master->begin(); it != master->end(); ++it) {
        unsigned char* row = it->row();
        int rowStock = t->dataPtr(row, m_stockId).rawInt32();
        if (stock != 0 && rowStock != stock) continue;
        if (t->dataPtr(row, m_secCode).asStaticString() != code) continue;
        int board = t->dataPtr(row, m_boardId).rawInt32();
        // The board is tested in the row's own market, not in the market
        // asked for: with market 0 ("any") no board would ever qualify.
        if (boards->isAddressById(rowStock, board) == address && !boards->isProxyById(rowStock, board)) return board;
    }
    return 0;
}

QStringList SecurityDirectory::keysByBaseCode(QString const& baseCode, int stock, int board) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QStringList keys;
    QSharedPointer<Table> t = table();
    if (!t) return keys;
    MasterIndex_Column_Pure* master = t->masterIndex();
    for (auto it = master->begin(); it != master->end(); ++it) {
        unsigned char* row = it->row();
        int rowStock = t->dataPtr(row, m_stockId).rawInt32();
        int rowBoard = t->dataPtr(row, m_boardId).rawInt32();
        if (stock != 0 && rowStock != stock) continue;
        if (board != 0 && rowBoard != board) continue;
        if (t->dataPtr(row, m_baseCode).asStaticString() != baseCode) continue;
        keys << textIdById(rowStock, rowBoard, t->dataPtr(row, m_secId).rawInt64());
    }
    return keys;
}

QStringList SecurityDirectory::keysByMimeData(QMimeData const* mime, bool withPutCall) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QStringList keys;
    if (!mime) return keys;
    QByteArray payload;
    if (mime->hasFormat(kMimeSecurity)) payload = mime->data(kMimeSecurity);
    else if (mime->hasFormat(kMimeSecurities)) payload = mime->data(kMimeSecurities);

    if (withPutCall && mime->hasFormat(kMimePutCall)) {
        QByteArray pair = mime->data(kMimePutCall);
        if (!pair.isNull()) {
            int nul = pair.indexOf('\0');
            QString text = QString::fromUtf8(nul < 0 ? pair : pair.left(nul));
            keys << text.split(QLatin1Char('|'), Qt::SkipEmptyParts);
        }
    }

    // Serialised strings: a 32-bit big-endian byte length (0xFFFFFFFF for a
    // null string), then UTF-16 big-endian code units. A length is trusted
    // only as far as the payload really holds the bytes, so a forged length
    // never makes us allocate.
    QDataStream in(payload);
    while (!in.atEnd()) {
        quint32 bytes = 0;
        in >> bytes;
        if (in.status() != QDataStream::Ok) break;
        QString text;
        if (bytes != 0xFFFFFFFFu) {
            qint64 left = in.device()->bytesAvailable();
            if ((bytes & 1u) || qint64(bytes) > left) break;
            QByteArray raw = in.device()->read(qint64(bytes));
            text.resize(int(bytes / 2));
            for (int i = 0; i < text.size(); ++i)
                text[i] = QChar(ushort((uchar(raw[2 * i]) << 8) | uchar(raw[2 * i + 1])));
        }
        if (!keys.contains(text)) keys << text;
    }
    return keys;
}

// ---- attributes ---------------------------------------------------------------

QString SecurityDirectory::textOf(Record const& record, int column) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    if (record.isEmpty()) return tr("<инструмент не найден>");
    return record.data(column).toString();
}

QString SecurityDirectory::codeById(int stock, int board, long long secId) const { return textOf(recordById(stock, board, secId), m_secCode); }
QString SecurityDirectory::nameById(int stock, int board, long long secId) const { return textOf(recordById(stock, board, secId), m_secName); }
QString SecurityDirectory::baseById(int stock, int board, long long secId) const { return textOf(recordById(stock, board, secId), m_baseCode); }

int SecurityDirectory::decimalsById(int stock, int board, long long secId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordById(stock, board, secId);
    Field f = r.data(m_decimals);
    return r.isEmpty() || !f.hasValue() ? -1 : f.toInteger();
}

int SecurityDirectory::lotsizeById(int stock, int board, long long secId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordById(stock, board, secId);
    Field f = r.data(m_lotsize);
    return r.isEmpty() || !f.hasValue() ? -1 : f.toInteger();
}

QString SecurityDirectory::nameByRecord(Record const& record) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    if (record.isEmpty()) return QString();
    // Look the row up again, so a stale handle answers for the current row.
    unsigned char* row = record.row();
    Table* t = record.table();
    Record current = recordById(t->dataPtr(row, m_stockId).rawInt32(), t->dataPtr(row, m_boardId).rawInt32(),
                                t->dataPtr(row, m_secId).rawInt64());
    return textOf(current, m_secName);
}

QString SecurityDirectory::nameByKey(QString const& key) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QSharedPointer<Table> t = table();
    if (!t) return QString();
    Record r(t.data(), key);
    return r.isEmpty() ? QString() : r.data(m_secName).toString();
}

QString SecurityDirectory::dottedTextId(QString const& textId)
{
    return textId.split(QLatin1Char(','), Qt::KeepEmptyParts).join(QLatin1Char('.'));
}

QString SecurityDirectory::codeByTextId(QString const& textId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    if (!table()) return dottedTextId(textId);
    Record r = recordByTextId(textId);
    return r.isEmpty() ? tr("<инструмент не найден>") : r.data(m_secCode).toString();
}

QString SecurityDirectory::nameByTextId(QString const& textId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordByTextId(textId);
    return r.isEmpty() ? textId : r.data(m_secName).toString();
}

QString SecurityDirectory::baseByTextId(QString const& textId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    if (!table()) return dottedTextId(textId);
    Record r = recordByTextId(textId);
    return r.isEmpty() ? QStringLiteral("id") + dottedTextId(textId) : r.data(m_baseCode).toString();
}

int SecurityDirectory::decimalsByTextId(QString const& textId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordByTextId(textId);
    Field f = r.data(m_decimals);
    return r.isEmpty() || !f.hasValue() ? -1 : f.toInteger();
}

QChar SecurityDirectory::sectypeByTextId(QString const& textId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordByTextId(textId);
    return r.isEmpty() ? QChar(32) : r.data(m_sectype).toChar();
}

void SecurityDirectory::minMaxStepByTextId(QString const& textId, decimal& min, decimal& max, decimal& step) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordByTextId(textId);
    if (r.isEmpty()) return;
    min = r.data(m_priceLmtLow).toDecimal();
    max = r.data(m_priceLmtHigh).toDecimal();
    step = r.data(m_priceStep).toDecimal();
}

bool SecurityDirectory::directionByTextId(QString const& textId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordByTextId(textId);
    return !r.isEmpty() && r.data(m_priceDir).compare(Fld_PriceDirs::Desc) == 0;
}

decimal SecurityDirectory::askByTextId(QString const& textId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordByTextId(textId);
    return r.isEmpty() ? decimal() : r.data(m_ask).toDecimal();
}

decimal SecurityDirectory::bidByTextId(QString const& textId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordByTextId(textId);
    return r.isEmpty() ? decimal() : r.data(m_bid).toDecimal();
}

decimal SecurityDirectory::settlementPriceOpenByTextId(QString const& textId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordByTextId(textId);
    return r.isEmpty() ? decimal() : r.data(m_settlementPriceOpen).toDecimal();
}

// ---- index hooks ----------------------------------------------------------------

void SecurityDirectory::clear()
{
    QMutexLocker lock(&m_cacheMutex);
    m_volatCacheBlack.clear();
    m_volatCacheBach.clear();
    m_changed = true;
}

void SecurityDirectory::build() { m_changed = true; }
void SecurityDirectory::add(Record const&) { m_changed = true; }
void SecurityDirectory::remove(Record const&, int) { m_changed = true; }
void SecurityDirectory::update(Record const&, int firstColumn, int lastColumn, int) { updatedRow(firstColumn, lastColumn); }
bool SecurityDirectory::filter(Record const&) const { return true; }
bool SecurityDirectory::contains(Record const&) const { return true; }

void SecurityDirectory::updatedRow(int firstColumn, int /*lastColumn*/)
{
    if (firstColumn <= m_lastStaticColumn) m_changed = true;
}

void SecurityDirectory::process(QList<Record> const& inserted, QList<Record> const& updated, int firstColumn,
                                int lastColumn, QList<Record> const& deleted)
{
    QElapsedTimer timer;
    timer.start();
    if (!inserted.isEmpty()) {
        // Options of the main option board get their volatility recomputed.
        QMutexLocker lock(&m_cacheMutex);
        for (Record const& r : inserted) {
            unsigned char* row = r.row();
            Table* t = r.table();
            if (t->dataPtr(row, m_stockId).rawInt32() != 1 || t->dataPtr(row, m_boardId).rawInt32() != 14) continue;
            long long secId = t->dataPtr(row, m_secId).rawInt64();
            m_volatCacheBlack.remove(secId);
            m_volatCacheBach.remove(secId);
        }
        m_changed = true;
    }
    if (!deleted.isEmpty()) m_changed = true;
    if (!updated.isEmpty()) {
        if (firstColumn != -1 && lastColumn != -1) updatedRow(firstColumn, lastColumn);
        else m_changed = true;
    }
    m_nsecsElapsedTotal += timer.nsecsElapsed();
}

void SecurityDirectory::beginUpdate() { m_changed = false; }

void SecurityDirectory::endUpdate()
{
    if (m_changed) Q_EMIT dataChanged();
}

// ---- derived values -------------------------------------------------------------

namespace {
// Powers of ten that a double holds exactly: scaling by them gives what
// pow(10, n) would, without calling it for every value of a calculation.
constexpr double kPow10[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int kExactPowers = int(sizeof kPow10 / sizeof kPow10[0]);

// Field::toDouble, short-cut for the decimal columns the calculation reads.
double numberOf(Field const& f)
{
    if (f.type() != FieldType::Decimal || !f.hasValue()) return f.toDouble();
    decimal const d = f.rawDecimal();
    int const scale = d.scale();
    if (scale < 0 || scale >= kExactPowers) return d.toDouble();
    return double(d.mantissa()) / kPow10[scale];
}

// The one rounding rule of doubles (decimal::fromDouble); a value that does
// not fit the decimal (or is not a number) saturates, since a calculation
// never throws.
decimal decimalOf(double value, short scale)
{
    decimal out;
    if (decimal::fromDouble(value, scale, out)) return out;
    if (!(value > 0) && !(value < 0)) return decimal::fromMantissa(0, scale);
    return decimal::fromMantissa(value > 0 ? decimal::maxMantissa : decimal::minMantissa, scale);
}

// The option type is one character; a one-character column is compared as
// such, anything else as text.
bool isPut(Field const& f)
{
    if (f.type() == FieldType::Char && f.length() == 2) return f.hasValue() && f.toChar() == OptioType::Put;
    return f.compare(Fld_OptioType::Put) == 0;
}

datetime exchangeTime(int stock)
{
    StockTimeDirectory* times = directoryOrNull<StockTimeDirectory>();
    return times ? times->correctedLocalTime(stock) : datetime::now();
}

// step_price / price_step * 100 000, rounded half up, computed on the
// decimals themselves so that a half is exactly a half.
double pointValue(decimal const& stepPrice, decimal const& priceStep)
{
    std::int64_t const den0 = priceStep.mantissa();
    if (den0 == 0) return 0.0;
    int const s1 = stepPrice.scale(), s2 = priceStep.scale();
    if (s1 < 0 || s2 < 0 || s1 > 18 || s2 + 5 > 18)
        return std::floor(stepPrice.toDouble() / priceStep.toDouble() * 100000.0 + 0.5);
    auto pow10 = [](int n) { __int128 p = 1; while (n-- > 0) p *= 10; return p; };
    __int128 num = __int128(stepPrice.mantissa()) * pow10(s2 + 5);
    __int128 den = __int128(den0) * pow10(s1);
    if (den < 0) { num = -num; den = -den; }
    // floor((2 num + den) / (2 den)) with a floor that also holds below zero.
    __int128 const n = 2 * num + den, d = 2 * den;
    __int128 q = n / d;
    if ((n % d != 0) && (n < 0)) --q;
    return double(q);
}
} // namespace

double SecurityDirectory::getSqrtTByExpDate(datetime const& expiry) const
{
    // 128 bits: an expiry and a clock from outside may stand at opposite ends
    // of the 64-bit range.
    __int128 const now = exchangeTime(1).value();
    __int128 const remaining = __int128(gc_iSecondsTo1900) * 1000 + expiry.value() - now;
    if (remaining <= 999) return volat::kSqrtTFloor;   // ten milliseconds, so the core never sees zero time
    __int128 const seconds = remaining / 1000;
    return std::sqrt(double(seconds) / 31536000.0);
}

bool SecurityDirectory::pctYieldCoeffsById(int stock, int board, long long secId, double& coeff, double& total) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordById(stock, board, secId);
    if (r.isEmpty() || r.data(m_isPercent).toInteger() != 4) return false;
    coeff = r.data(m_pctyieldCoeff).toDouble();
    total = r.data(m_pctyieldTotal).toDouble();
    return true;
}

bool SecurityDirectory::profitRateById(double price, int stock, int board, long long secId, decimal& rate) const
{
    double coeff = 0, total = 0;
    if (!pctYieldCoeffsById(stock, board, secId, coeff, total)) return false;
    rate = decimal::fromDouble((total + (price - 100.0)) * coeff, FieldsTypes::percent.scale);
    return true;
}

xdecimal SecurityDirectory::voumeById(double price, long long quantity, int stock, int board, long long secId) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    Record r = recordById(stock, board, secId);
    if (r.isEmpty()) return xdecimal::fromMantissa(0, 2);
    double volume = 0.0;
    if (r.data(m_isPercent).toInteger() == 1) {
        // Quoted as a rate: the value today of a million paid at expiry.
        QDate const today = exchangeTime(-1).getDate();
        QDate const expiry = r.data(m_expdate).toQDate();
        qint64 const days = today.isValid() && expiry.isValid() ? today.daysTo(expiry) : 0;
        volume = 1000000.0 / std::pow(1.0 + double(quantity) * price / 36500.0, double(days));
    } else {
        double const point = pointValue(r.data(m_stepPrice).toDecimal(), r.data(m_priceStep).toDecimal());
        volume = point * (double(quantity) * std::fabs(price)) / 100000.0;
    }
    if (!std::isfinite(volume)) volume = 0.0;
    return xdecimal::fromDouble(volume, 2);
}

CalcVolatResult* SecurityDirectory::calcVolatBySecId(CalcVolatResult* result, long long secId, int type) const
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    if (!result) return result;
    Record option = recordById(1, 14, secId);
    if (option.isEmpty()) option = recordById(4, 14, secId);
    if (option.isEmpty()) return result;
    Table* t = option.table();
    unsigned char* row = option.row();
    int const stock = t->dataPtr(row, m_stockId).toInteger();
    int const mainBoard = t->dataPtr(row, m_mainBoardId).toInteger();
    int const futIsin = t->dataPtr(row, m_futIsinId).toInteger();
    int const series = t->dataPtr(row, m_optionSeriesId).toInteger();
    int const decimals = t->dataPtr(row, m_decimals).toInteger();
    Record underlying = recordByIsinId(stock, mainBoard, futIsin);
    if (underlying.isEmpty()) return result;

    VolatInputParamsEx in;   // initial values: a flat 50 % lognormal smile, the core's bounds
    if (type == 1) {
        if (VolatCoeffBachDirectory* bach = directoryOrNull<VolatCoeffBachDirectory>())
            bach->volatCoeffsById(series, in.coeffs);
    } else if (VolatCoeffBlackDirectory* black = directoryOrNull<VolatCoeffBlackDirectory>()) {
        black->volatCoeffsById(series, in.coeffs);
    }
    Table* ut = underlying.table();
    in.underlyingPrice = numberOf(ut->dataPtr(underlying.row(), m_marketPrice));
    if (in.underlyingPrice == 0.0) in.underlyingPrice = numberOf(ut->dataPtr(underlying.row(), m_settlementPriceOpen));
    in.strike = numberOf(t->dataPtr(row, m_strike));
    in.sqrtT = getSqrtTByExpDate(t->dataPtr(row, m_expdate).toDatetime());
    in.volatMin = numberOf(t->dataPtr(row, m_volatMin));
    in.volatMax = numberOf(t->dataPtr(row, m_volatMax));
    in.isPut = isPut(t->dataPtr(row, m_optionType));
    in.priceStep = numberOf(t->dataPtr(row, m_priceStep));
    // Deliberate: the Bachelier calculation floors the volatility at the price step.
    if (type == 1) in.volatMin = in.priceStep;

    VolatOutputParamsEx out;
    calcVolatParamsEx(out, in);

    short const greeks = FieldsTypes::greeks.scale;
    result->volat = decimalOf(out.volat, FieldsTypes::volat.scale);
    result->theorPrice = decimalOf(out.theorPrice, short(decimals));
    result->greeks[0] = decimalOf(in.isPut ? out.putDelta : out.callDelta, greeks);
    result->greeks[1] = decimalOf(out.gamma, greeks);
    result->greeks[2] = decimalOf(out.vega, greeks);
    result->greeks[3] = decimalOf(out.theta, greeks);
    result->age.start();
    return result;
}

CalcVolatResult* SecurityDirectory::getVolatResultBySecId(long long secId, int type)
{
    DIRECTORY_UPDATING_THREAD_ONLY();
    QCache<long long, CalcVolatResult>& cache = volatCache(type);
    if (CalcVolatResult* cached = cache.object(secId)) {
        if (cached->age.isValid() && cached->age.elapsed() < 1000) return cached;
        return calcVolatBySecId(cached, secId, type);
    }
    CalcVolatResult* fresh = calcVolatBySecId(new CalcVolatResult, secId, type);
    cache.insert(secId, fresh, 1);   // a cost of 1 always fits: the cache keeps it
    return fresh;
}

// The one instance of each directory class here.
DIRECTORY_SINGLETON_DEFINE(SecurityDirectory)
