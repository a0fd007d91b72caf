#include "optionboard.h"
#include "coalesced.h"

#include <core/icore.h>
#include <database/database.h>
#include <directories>

#include <QComboBox>
#include <QFont>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMap>
#include <QSplitter>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>
#include <QtCharts/QChart>
#include <QtCharts/QChartView>
#include <QtCharts/QLineSeries>
#include <QtCharts/QScatterSeries>
#include <QtCharts/QValueAxis>
#include <algorithm>
#include <cmath>

using namespace QtCharts;

namespace {
int const kPlaces[OptionBoardModel::ValueCount] = {2, -1, 3, 6, 4, 4};   // -1: the option's decimals
} // namespace

OptionBoardModel::OptionBoardModel(QObject* parent) : QAbstractTableModel(parent) {}

void OptionBoardModel::setSeries(QString const& base, QDate const& expiry)
{
    m_base = base;
    m_expiry = expiry;
    reload();
}

void OptionBoardModel::setModel(Model model)
{
    if (m_model == model) return;
    m_model = model;
    refresh(true);
}

void OptionBoardModel::reload()
{
    beginResetModel();
    m_rows.clear();
    m_series = 0;
    m_seriesName.clear();
    m_atm = -1;
    m_shownRows.clear();
    m_shown.clear();
    SecurityDirectory* securities = directoryOrNull<SecurityDirectory>();
    OptionSeriesParamDirectory* series = directoryOrNull<OptionSeriesParamDirectory>();
    if (securities && series && !m_base.isEmpty()) {
        // The series of the base on that day; the lowest number when several.
        for (SeriesParamData const& s : series->getSeriesParamData().value(m_expiry))
            if (s.base_code.trimmed() == m_base && (m_series == 0 || s.option_series_id < m_series)) {
                m_series = s.option_series_id;
                m_seriesName = s.sec_name;
            }
        QMap<double, Row> byStrike;
        for (int stock : {1, 4})
            for (QString const& key : securities->keysByBaseCode(m_base, stock, 14)) {
                Record r = securities->recordByTextId(key);
                if (r.isEmpty() || r.data("option_series_id").toInteger() != m_series) continue;
                double const strike = r.data("strike").toDouble();
                Row& row = byStrike[strike];
                row.strike = strike;
                Side& side = r.data("option_type").toString().trimmed() == QLatin1String("P") ? row.put : row.call;
                side.secId = r.data("sec_id").toInteger64();
                m_shownRows << r;
                m_shown.insert(r.row());
                m_stock = r.data("stock_id").toInteger();
                m_decimals = qBound(0, r.data("decimals").toInteger(), 9);
            }
        m_rows.reserve(std::size_t(byStrike.size()));
        for (Row const& row : qAsConst(byStrike)) m_rows.push_back(row);
    }
    endResetModel();
    refresh(true);
}

void OptionBoardModel::refresh(bool fresh)
{
    SecurityDirectory* securities = directoryOrNull<SecurityDirectory>();
    if (!securities || m_rows.empty()) {
        emit priced();
        return;
    }
    // The underlying moves without a directory signal: read it each time.
    m_underlying = 0;
    m_underlyingRow = Record();
    for (Row const& row : m_rows) {
        long long id = row.call.secId ? row.call.secId : row.put.secId;
        Record option = securities->recordById(m_stock, 14, id);
        if (option.isEmpty()) continue;
        Record under = securities->recordByIsinId(option.data("stock_id").toInteger(), option.data("main_board_id").toInteger(),
                                                  option.data("fut_isin_id").toInteger());
        m_underlyingRow = under;
        m_underlying = under.data("market_price").toDouble();
        if (m_underlying == 0.0) m_underlying = under.data("settlement_price_open").toDouble();
        break;
    }
    double nearest = 0;
    m_atm = -1;
    for (int k = 0; k < int(m_rows.size()); ++k) {
        Row& row = m_rows[std::size_t(k)];
        if (m_underlying > 0 && (m_atm < 0 || std::fabs(row.strike - m_underlying) < nearest)) {
            m_atm = k;
            nearest = std::fabs(row.strike - m_underlying);
        }
        for (Side* side : {&row.call, &row.put}) {
            side->priced = false;
            if (!side->secId) continue;
            CalcVolatResult computed;
            CalcVolatResult const* r = fresh ? securities->calcVolatBySecId(&computed, side->secId, m_model)
                                             : securities->getVolatResultBySecId(side->secId, m_model);
            // The pointer into the cache is copied from at once.
            if (!r || !r->age.isValid()) continue;
            side->values[Volat] = r->volat.toDouble();
            side->values[Theor] = r->theorPrice.toDouble();
            for (int g = 0; g < 4; ++g) side->values[Delta + g] = r->greeks[g].toDouble();
            side->priced = true;
        }
    }
    emit dataChanged(index(0, 0), index(int(m_rows.size()) - 1, ColumnCount - 1));
    emit priced();
}

bool OptionBoardModel::isReloadedBy(RowChanges const& securities) const
{
    if (m_base.isEmpty()) return false;
    if (securities.cleared) return true;
    Table const* t = securities.table;
    int const series = t->columnIndex(QStringLiteral("option_series_id"));
    int const board = t->columnIndex(QStringLiteral("board_id"));
    // Options of the series on the options board may join it.
    auto joins = [&](Record const& r) {
        return m_series != 0 && r.data(board).toInteger() == 14 && r.data(series).toInteger() == m_series;
    };
    for (Record const& r : securities.deleted)
        if (m_shown.contains(r.row()) || r == m_underlyingRow) return true;
    for (Record const& r : securities.inserted)
        if (joins(r)) return true;
    int const lastStatic = t->columnIndex(QStringLiteral("sess_id")) - 1;
    auto staticChanged = [&](int updatedRow) {
        for (int c = 0; c <= lastStatic; ++c)
            if (securities.columnChanged(updatedRow, c)) return true;
        return false;
    };
    for (int k = 0; k < securities.updated.size(); ++k) {
        Record const& r = securities.updated[k];
        if ((m_shown.contains(r.row()) || r == m_underlyingRow || joins(r)) && staticChanged(k)) return true;
    }
    return false;
}

bool OptionBoardModel::isRepricedBy(RowChanges const& coefficients) const
{
    if (m_rows.empty()) return false;
    if (coefficients.cleared) return true;
    int const series = coefficients.table->columnIndex(QStringLiteral("option_series_id"));
    for (QList<Record> const* rows : {&coefficients.inserted, &coefficients.updated, &coefficients.deleted})
        for (Record const& r : *rows)
            if (r.data(series).toInteger() == m_series) return true;
    return false;
}

int OptionBoardModel::rowCount(QModelIndex const& parent) const { return parent.isValid() ? 0 : int(m_rows.size()); }
int OptionBoardModel::columnCount(QModelIndex const& parent) const { return parent.isValid() ? 0 : ColumnCount; }

QVariant OptionBoardModel::data(QModelIndex const& index, int role) const
{
    if (!index.isValid() || index.row() >= int(m_rows.size())) return QVariant();
    Row const& row = m_rows[std::size_t(index.row())];
    int const column = index.column();
    bool const isStrike = column == StrikeColumn;
    bool const isCall = column < StrikeColumn;
    int const value = isCall ? column : column - StrikeColumn - 1;
    Side const& side = isCall ? row.call : row.put;
    switch (role) {
    case Qt::DisplayRole:
        if (isStrike) return QString::number(row.strike, 'f', m_decimals);
        if (!side.priced) return QString();
        return QString::number(side.values[value], 'f', kPlaces[value] < 0 ? m_decimals : kPlaces[value]);
    case Qt::TextAlignmentRole:
        return int((isStrike ? Qt::AlignHCenter : Qt::AlignRight) | Qt::AlignVCenter);
    case Qt::FontRole:
        if (isStrike && index.row() == m_atm) {
            QFont bold;
            bold.setBold(true);
            return bold;
        }
        return QVariant();
    case Qt::BackgroundRole:
        if (isStrike) return index.row() == m_atm ? QColor(0xff, 0xd8, 0x70) : QColor(0xee, 0xee, 0xee);
        if (m_underlying > 0 && side.secId && (isCall ? row.strike < m_underlying : row.strike > m_underlying))
            return QColor(0xdc, 0xea, 0xfb);   // in the money
        return QVariant();
    case Qt::ToolTipRole:
        if (isStrike) return index.row() == m_atm ? tr("Центральный страйк") : QVariant();
        return isCall ? tr("Колл") : tr("Пут");
    default:
        return QVariant();
    }
}

QVariant OptionBoardModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return QAbstractTableModel::headerData(section, orientation, role);
    if (section == StrikeColumn) return tr("Страйк");
    static char const* const names[ValueCount] = {
        QT_TR_NOOP("Волат."), QT_TR_NOOP("Теор."), QT_TR_NOOP("Дельта"), QT_TR_NOOP("Гамма"), QT_TR_NOOP("Вега"), QT_TR_NOOP("Тета")};
    int const value = section < StrikeColumn ? section : section - StrikeColumn - 1;
    if (value < 0 || value >= ValueCount) return QVariant();
    return tr(names[value]);
}

OptionBoardView::OptionBoardView(QWidget* parent)
    : QWidget(parent), m_model(new OptionBoardModel(this)), m_base(new QComboBox), m_expiry(new QComboBox),
      m_modelBox(new QComboBox), m_caption(new QLabel), m_table(new QTableView), m_chart(new QChart),
      m_smile(new QLineSeries), m_atmPoint(new QScatterSeries), m_axisX(new QValueAxis), m_axisY(new QValueAxis)
{
    m_caption->setTextFormat(Qt::PlainText);
    m_modelBox->addItem(tr("Блэк"), int(OptionBoardModel::Black));
    m_modelBox->addItem(tr("Башелье"), int(OptionBoardModel::Bachelier));
    m_base->setMinimumContentsLength(8);
    m_expiry->setMinimumContentsLength(12);
    m_table->setModel(m_model);
    m_table->verticalHeader()->hide();
    m_table->verticalHeader()->setDefaultSectionSize(20);
    m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_table->setSelectionBehavior(QAbstractItemView::SelectItems);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);

    m_smile->setName(tr("Волатильность"));
    m_atmPoint->setName(tr("Центральный страйк"));
    m_atmPoint->setMarkerSize(9);
    m_chart->addSeries(m_smile);
    m_chart->addSeries(m_atmPoint);
    m_axisX->setTitleText(tr("Страйк"));
    m_axisY->setTitleText(tr("Волатильность, %"));
    m_chart->addAxis(m_axisX, Qt::AlignBottom);
    m_chart->addAxis(m_axisY, Qt::AlignLeft);
    for (QAbstractSeries* s : {static_cast<QAbstractSeries*>(m_smile), static_cast<QAbstractSeries*>(m_atmPoint)}) {
        s->attachAxis(m_axisX);
        s->attachAxis(m_axisY);
    }
    m_chart->legend()->setAlignment(Qt::AlignBottom);
    m_chartView = new QChartView(m_chart);
    m_chartView->setRenderHint(QPainter::Antialiasing);
    m_chartView->setMinimumWidth(340);

    auto* bar = new QHBoxLayout;
    bar->addWidget(new QLabel(tr("Базовый актив")));
    bar->addWidget(m_base);
    bar->addWidget(new QLabel(tr("Исполнение")));
    bar->addWidget(m_expiry);
    bar->addWidget(new QLabel(tr("Модель")));
    bar->addWidget(m_modelBox);
    bar->addStretch();
    auto* split = new QSplitter;
    split->addWidget(m_chartView);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(bar);
    layout->addWidget(m_caption);
    // Which side is which, over the two halves of the board.
    auto* sides = new QHBoxLayout;
    auto* calls = new QLabel(tr("Коллы"));
    auto* puts = new QLabel(tr("Путы"));
    sides->addWidget(calls);
    sides->addStretch();
    sides->addWidget(puts);
    auto* tableSide = new QWidget;
    auto* tableLayout = new QVBoxLayout(tableSide);
    tableLayout->setContentsMargins(0, 0, 0, 0);
    tableLayout->addLayout(sides);
    tableLayout->addWidget(m_table);
    split->insertWidget(0, tableSide);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);
    layout->addWidget(split, 1);

    connect(m_base, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this] { reloadExpiries(); });
    connect(m_expiry, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this] { seriesChosen(); });
    connect(m_modelBox, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this] {
        m_model->setModel(OptionBoardModel::Model(m_modelBox->currentData().toInt()));
    });
    connect(m_model, &OptionBoardModel::priced, this, &OptionBoardView::redrawSmile);
    connect(m_table, &QTableView::clicked, this, [this](QModelIndex const& index) {
        if (index.column() == OptionBoardModel::StrikeColumn || index.row() >= int(m_model->rows().size())) return;
        auto const& row = m_model->rows()[std::size_t(index.row())];
        long long id = index.column() < OptionBoardModel::StrikeColumn ? row.call.secId : row.put.secId;
        SecurityDirectory* securities = directoryOrNull<SecurityDirectory>();
        for (int stock : {1, 4})
            if (id && securities && securities->recordExists(stock, 14, id)) {
                emit optionChosen(stock, 14, id);
                return;
            }
    });

    // The board is paced by the volatility timer, which refreshes it; by the
    // rows of each batch, which reload it when the batch changed its options
    // or reprice it at once when the batch changed its series' smile; and by
    // the series lists, read again whenever they change (every column of
    // theirs is shown but one). Each at most once per turn of the event
    // loop. Reading a base's options scans the securities: a hidden board
    // waits until it is shown.
    auto* reloadSoon = new Coalesced(this, [this] { reloadWhenShown(); });
    auto* listSoon = new Coalesced(this, [this] { reloadSeriesList(); });
    auto* repriceSoon = new Coalesced(this, [this] { m_model->refresh(true); });
    Database* db = ICore::instance()->database();
    auto watch = [this, db](char const* table, std::function<void(RowChanges const&)> f) {
        QString const name = QString::fromLatin1(table);
        if (db->hasTable(name)) m_watches.emplace_back(db->table(name), QStringLiteral("OptionBoardView"), std::move(f));
    };
    if (auto* securities = directoryOrNull<SecurityDirectory>()) {
        connect(securities->getCalcVolatTimer(), &QTimer::timeout, m_model, [this] { m_model->refresh(false); });
        watch("securities", [this, reloadSoon](RowChanges const& c) {
            if (m_model->isReloadedBy(c)) reloadSoon->request();
        });
    }
    if (auto* series = directoryOrNull<OptionSeriesParamDirectory>())
        connect(series, &OptionSeriesParamDirectory::dataChanged, listSoon, &Coalesced::request);
    for (char const* smiles : {"k3.volat_coeff_black", "k3.volat_coeff_bach"})
        watch(smiles, [this, repriceSoon](RowChanges const& c) {
            if (m_model->isRepricedBy(c)) repriceSoon->request();
        });
    reloadSeriesList();
}

bool OptionBoardView::choose(QString const& base, QDate const& expiry)
{
    int b = m_base->findText(base);
    if (b < 0) return false;
    m_base->setCurrentIndex(b);
    if (expiry.isValid()) {
        int e = m_expiry->findData(expiry);
        if (e < 0) return false;
        m_expiry->setCurrentIndex(e);
    }
    return true;
}

void OptionBoardView::reloadWhenShown()
{
    if (isVisible()) m_model->reload();
    else m_stale = true;
}

void OptionBoardView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    if (!m_stale) return;
    m_stale = false;
    m_model->reload();
}

void OptionBoardView::reloadSeriesList()
{
    OptionSeriesParamDirectory* series = directoryOrNull<OptionSeriesParamDirectory>();
    QStringList bases;
    if (series)
        for (auto const& set : series->getSeriesParamData())
            for (SeriesParamData const& s : set)
                if (!bases.contains(s.base_code.trimmed())) bases << s.base_code.trimmed();
    bases.sort();
    QString const keep = m_base->currentText();
    {
        QSignalBlocker block(m_base);
        m_base->clear();
        m_base->addItems(bases);
        int k = m_base->findText(keep);
        m_base->setCurrentIndex(k >= 0 ? k : 0);
    }
    reloadExpiries();
}

void OptionBoardView::reloadExpiries()
{
    OptionSeriesParamDirectory* series = directoryOrNull<OptionSeriesParamDirectory>();
    QString const base = m_base->currentText();
    QDate const keep = m_expiry->currentData().toDate();
    {
        QSignalBlocker block(m_expiry);
        m_expiry->clear();
        if (series)
            for (auto it = series->getSeriesParamData().begin(); it != series->getSeriesParamData().end(); ++it)
                for (SeriesParamData const& s : it.value())
                    if (s.base_code.trimmed() == base) {
                        m_expiry->addItem(it.key().toString(QStringLiteral("dd.MM.yyyy")), it.key());
                        break;
                    }
        int k = m_expiry->findData(keep);
        m_expiry->setCurrentIndex(k >= 0 ? k : 0);
    }
    seriesChosen();
}

void OptionBoardView::seriesChosen()
{
    m_model->setSeries(m_base->currentText(), m_expiry->currentData().toDate());
}

void OptionBoardView::redrawSmile()
{
    QVector<QPointF> points;
    QVector<QPointF> atm;
    double lowY = 1e300, highY = -1e300;
    auto const& rows = m_model->rows();
    for (int k = 0; k < int(rows.size()); ++k) {
        auto const& row = rows[std::size_t(k)];
        // One volatility per strike: the call's, or the put's where no call.
        OptionBoardModel::Side const& side = row.call.priced ? row.call : row.put;
        if (!side.priced || !std::isfinite(side.values[OptionBoardModel::Volat])) continue;
        QPointF p(row.strike, side.values[OptionBoardModel::Volat]);
        points << p;
        if (k == m_model->atTheMoneyRow()) atm << p;
        lowY = std::min(lowY, p.y());
        highY = std::max(highY, p.y());
    }
    m_smile->replace(points);
    m_atmPoint->replace(atm);
    if (!points.isEmpty()) {
        double const padY = std::max((highY - lowY) * 0.1, 0.5);
        m_axisX->setRange(points.front().x(), points.back().x());
        m_axisY->setRange(lowY - padY, highY + padY);
    }
    QString const model = m_model->model() == OptionBoardModel::Bachelier ? tr("Башелье") : tr("Блэк");
    // Chart titles take markup; a series name is data, shown as it is.
    m_chart->setTitle(m_model->seriesName().isEmpty() ? QString() : tr("Улыбка %1 (%2)").arg(m_model->seriesName().toHtmlEscaped(), model));
    m_caption->setText(m_model->rows().empty()
                           ? tr("Нет опционов для выбранной серии")
                           : tr("Серия %1, базовый актив по %2").arg(m_model->seriesId()).arg(m_model->underlyingPrice(), 0, 'f', m_model->decimals()));
}
