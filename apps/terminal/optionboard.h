#pragma once
#include <database/table.h>

#include <QAbstractTableModel>
#include <QDate>
#include <QSet>
#include <QVector>
#include <vector>
#include <QWidget>

class QComboBox;
class QLabel;
class QTableView;
namespace QtCharts {
class QChart;
class QChartView;
class QLineSeries;
class QScatterSeries;
class QValueAxis;
}

// One option series laid out by strike: calls on the left, puts on the
// right, each side with volatility, theoretical price and the four
// sensitivities of the core's engine on the series' smile.
class OptionBoardModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Model { Black = 0, Bachelier = 1 };   // the calculation type
    enum Value { Volat, Theor, Delta, Gamma, Vega, Theta, ValueCount };
    static constexpr int StrikeColumn = ValueCount;
    static constexpr int ColumnCount = 2 * ValueCount + 1;

    struct Side {
        long long secId = 0;    // 0: no option on this side
        bool priced = false;
        double values[ValueCount] = {};
    };
    struct Row {
        double strike = 0;
        Side call, put;
    };

    explicit OptionBoardModel(QObject* parent = nullptr);

    // The series of `base` expiring on `expiry`, both boards' options.
    void setSeries(QString const& base, QDate const& expiry);
    void setModel(Model model);
    Model model() const { return m_model; }

    // Reads the options again (rows come and go with the securities).
    void reload();
    // Whether a batch of the securities table may change what the board
    // lists: it brought or took one of the board's options or one that
    // would join its series, or changed a static column (those before
    // "sess_id": strike, type, series, decimals...) of such an option or of
    // the underlying. Prices alone are left to the volatility timer.
    bool isReloadedBy(RowChanges const& securities) const;
    // Whether a batch of a smile's coefficients touched the board's series.
    bool isRepricedBy(RowChanges const& coefficients) const;
    // Prices every option: cached results (at most a second old), or fresh
    // ones when the smile coefficients have just changed.
    void refresh(bool fresh = false);

    std::vector<Row> const& rows() const { return m_rows; }
    double underlyingPrice() const { return m_underlying; }
    int atTheMoneyRow() const { return m_atm; }
    int seriesId() const { return m_series; }
    QString seriesName() const { return m_seriesName; }
    int decimals() const { return m_decimals; }

    int rowCount(QModelIndex const& parent = QModelIndex()) const override;
    int columnCount(QModelIndex const& parent = QModelIndex()) const override;
    QVariant data(QModelIndex const& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

signals:
    void priced();

private:
    QString m_base;
    QDate m_expiry;
    Model m_model = Black;
    std::vector<Row> m_rows;
    int m_series = 0;
    QString m_seriesName;
    int m_stock = 1;
    int m_decimals = 2;
    double m_underlying = 0;
    int m_atm = -1;
    // The board's options and its underlying as rows of the securities
    // table (kept alive, so that an address is never another row's).
    QVector<Record> m_shownRows;
    QSet<unsigned char const*> m_shown;
    Record m_underlyingRow;
};

// The option board: base and expiry choosers, the model switch, the board,
// and the smile (volatility against strike) of the chosen series.
class OptionBoardView : public QWidget
{
    Q_OBJECT
public:
    explicit OptionBoardView(QWidget* parent = nullptr);

    OptionBoardModel* model() const { return m_model; }
    QComboBox* baseBox() const { return m_base; }
    QComboBox* expiryBox() const { return m_expiry; }
    QComboBox* modelBox() const { return m_modelBox; }
    QtCharts::QLineSeries* smile() const { return m_smile; }

    // Chooses a base (and its first expiry) when it is listed.
    bool choose(QString const& base, QDate const& expiry = QDate());

signals:
    void optionChosen(int stock, int board, long long secId);

private:
    void reloadSeriesList();
    void reloadExpiries();
    void seriesChosen();
    void redrawSmile();
    void reloadWhenShown();

protected:
    void showEvent(QShowEvent* event) override;

private:
    bool m_stale = false;   // the securities changed while the board was hidden
    std::vector<TableWatch> m_watches;

    OptionBoardModel* m_model;
    QComboBox* m_base;
    QComboBox* m_expiry;
    QComboBox* m_modelBox;
    QLabel* m_caption;
    QTableView* m_table;
    QtCharts::QChart* m_chart;
    QtCharts::QChartView* m_chartView;
    QtCharts::QLineSeries* m_smile;
    QtCharts::QScatterSeries* m_atmPoint;
    QtCharts::QValueAxis* m_axisX;
    QtCharts::QValueAxis* m_axisY;
};
