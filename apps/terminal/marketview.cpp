#include "marketview.h"

#include <database/database.h>
#include <directories>
#include <core/icore.h>

#include <QHeaderView>
#include <QLineEdit>
#include <QSplitter>
#include <QTableView>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {
QSharedPointer<Table> securitiesTable()
{
    return ICore::instance()->database()->table(QStringLiteral("securities"));
}
} // namespace

SecuritiesModel::SecuritiesModel(QObject* parent) : TableRowsModel(securitiesTable(), parent)
{
    QSharedPointer<Table> t = table();
    auto col = [&t](char const* name) { return t ? t->columnIndex(QString::fromLatin1(name)) : -1; };
    m_stock = col("stock_id");
    m_board = col("board_id");
    m_decimals = col("decimals");
    setColumns({{tr("Код"), col("sec_code")},
                {tr("Наименование"), col("sec_name")},
                {tr("Режим"), -1},
                {tr("Тип"), col("sectype")},
                {tr("Спрос"), col("bid")},
                {tr("Предложение"), col("ask")},
                {tr("Рыночная цена"), col("market_price")},
                {tr("Лот"), col("lotsize")},
                {tr("Исполнение"), col("expdate")}});
}

QVariant SecuritiesModel::cell(Record const& record, int column, int role) const
{
    if (role != Qt::DisplayRole && role != SortRole && role != Qt::TextAlignmentRole) return QVariant();
    if (column == Board) {
        if (role == Qt::TextAlignmentRole) return QVariant();
        int const stock = record.data(m_stock).toInteger(), board = record.data(m_board).toInteger();
        BoardDirectory* boards = directoryOrNull<BoardDirectory>();
        return boards ? boards->codeById(stock, board).trimmed() : QString::number(board);
    }
    Field f = record.data(tableColumn(column));
    bool const numeric = column == Bid || column == Ask || column == MarketPrice || column == Lot;
    if (role == Qt::TextAlignmentRole) return numeric ? QVariant(int(Qt::AlignRight | Qt::AlignVCenter)) : QVariant();
    if (f.isNull()) return role == SortRole && numeric ? QVariant(-1e300) : QVariant(QString());
    if (role == SortRole) {
        if (numeric) return f.toDouble();
        if (column == Expiry) return qlonglong(f.rawDateTime());
        return f.toString().trimmed();
    }
    if (column == Bid || column == Ask || column == MarketPrice) {
        // Prices show at the security's own decimals; none known, as stored.
        Field d = record.data(m_decimals);
        return d.isNull() ? f.toString() : QString::number(f.toDouble(), 'f', qBound(0, d.toInteger(), 9));
    }
    if (column == Expiry) return f.rawDateTime() == 0 ? QString() : f.toDatetime().toString().left(10);
    return f.toString().trimmed();
}

SecuritiesFilter::SecuritiesFilter(QObject* parent) : QSortFilterProxyModel(parent)
{
    setSortRole(SecuritiesModel::SortRole);
}

void SecuritiesFilter::setBoard(int stock, int board)
{
    m_stock = stock;
    m_board = board;
    invalidateFilter();
}

void SecuritiesFilter::setText(QString const& text)
{
    m_text = text.trimmed();
    invalidateFilter();
}

bool SecuritiesFilter::filterAcceptsRow(int sourceRow, QModelIndex const&) const
{
    auto* model = static_cast<SecuritiesModel*>(sourceModel());
    Record r = model->recordAt(sourceRow);
    if (r.isEmpty()) return false;
    if (m_stock && r.data(model->stockColumn()).toInteger() != m_stock) return false;
    if (m_board && r.data(model->boardColumn()).toInteger() != m_board) return false;
    if (m_text.isEmpty()) return true;
    for (int c : {int(SecuritiesModel::Code), int(SecuritiesModel::Name)}) {
        int column = model->tableColumn(c);
        if (column >= 0 && r.data(column).toString().contains(m_text, Qt::CaseInsensitive)) return true;
    }
    return false;
}

MarketView::MarketView(QWidget* parent)
    : QWidget(parent), m_model(new SecuritiesModel(this)), m_filter(new SecuritiesFilter(this)),
      m_tree(new QTreeWidget), m_search(new QLineEdit), m_table(new QTableView)
{
    m_filter->setSourceModel(m_model);
    m_tree->setHeaderLabel(tr("Рынки и режимы"));
    m_search->setPlaceholderText(tr("Код или наименование"));
    m_search->setClearButtonEnabled(true);
    m_table->setModel(m_filter);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(-1, Qt::AscendingOrder);   // arrival order until the user sorts
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->verticalHeader()->setDefaultSectionSize(20);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->setColumnWidth(SecuritiesModel::Name, 180);

    auto* right = new QWidget;
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    rightLayout->addWidget(m_search);
    rightLayout->addWidget(m_table);
    auto* split = new QSplitter;
    split->addWidget(m_tree);
    split->addWidget(right);
    split->setStretchFactor(1, 4);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(split);

    connect(m_search, &QLineEdit::textChanged, m_filter, &SecuritiesFilter::setText);
    connect(m_tree, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem* item) { treeChosen(item); });
    connect(m_table->selectionModel(), &QItemSelectionModel::currentRowChanged, this, [this](QModelIndex const& current) {
        Record r = m_model->recordAt(m_filter->mapToSource(current).row());
        if (!r.isEmpty())
            emit securityChosen(r.data(m_model->stockColumn()).toInteger(), r.data(m_model->boardColumn()).toInteger(),
                                r.data("sec_id").toInteger64());
    });
    // The tree is read from the directories again only when a batch brought
    // or took a market or board, or changed what the tree shows of one.
    if (directoryOrNull<StockDirectory>()) watchTree("stocks", {QStringLiteral("stock_code"), QStringLiteral("name")});
    if (directoryOrNull<BoardDirectory>()) watchTree("boards", {QStringLiteral("board_code"), QStringLiteral("name")});
    rebuildTree();
}

void MarketView::watchTree(char const* tableName, QStringList const& shownColumns)
{
    Database* db = ICore::instance()->database();
    QString const name = QString::fromLatin1(tableName);
    if (!db->hasTable(name)) return;
    QSharedPointer<Table> table = db->table(name);
    QList<int> shown;
    for (QString const& column : shownColumns) shown << table->columnIndex(column);
    m_treeWatches.emplace_back(table, QStringLiteral("MarketView"), [this, shown](RowChanges const& c) {
        bool changed = c.cleared || !c.inserted.isEmpty() || !c.deleted.isEmpty();
        for (int column : shown) changed = changed || (!c.updated.isEmpty() && c.columnChanged(column));
        if (changed) rebuildTree();
    });
}

void MarketView::rebuildTree()
{
    StockDirectory* stocks = directoryOrNull<StockDirectory>();
    BoardDirectory* boards = directoryOrNull<BoardDirectory>();
    // Keep the user's choice across a rebuild.
    QTreeWidgetItem* current = m_tree->currentItem();
    int const keepStock = current ? current->data(0, Qt::UserRole).toInt() : 0;
    int const keepBoard = current ? current->data(0, Qt::UserRole + 1).toInt() : 0;
    QSignalBlocker block(m_tree);
    m_tree->clear();
    auto* all = new QTreeWidgetItem(m_tree, {tr("Все инструменты")});
    QTreeWidgetItem* chosen = all;
    if (stocks) {
        for (int stock : stocks->ids()) {
            auto* market = new QTreeWidgetItem(all, {QStringLiteral("%1 (%2)").arg(stocks->nameById(stock), stocks->codeById(stock).trimmed())});
            market->setData(0, Qt::UserRole, stock);
            if (stock == keepStock && keepBoard == 0) chosen = market;
            if (!boards) continue;
            for (StockBoard const& b : boards->all(stock)) {
                auto* board = new QTreeWidgetItem(market, {QStringLiteral("%1 (%2)").arg(boards->nameById(stock, b.board), boards->codeById(stock, b.board).trimmed())});
                board->setData(0, Qt::UserRole, stock);
                board->setData(0, Qt::UserRole + 1, b.board);
                if (stock == keepStock && b.board == keepBoard) chosen = board;
            }
        }
    }
    m_tree->expandAll();
    m_tree->setCurrentItem(chosen);
}

void MarketView::treeChosen(QTreeWidgetItem* item)
{
    if (!item) return;
    m_filter->setBoard(item->data(0, Qt::UserRole).toInt(), item->data(0, Qt::UserRole + 1).toInt());
}
