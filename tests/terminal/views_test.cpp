// The views' own behaviour on the bundled market: the replay's controls, the
// securities' filter and sort, the reloads of the option board, the tree and the accounts.
#include "terminal_fixture.h"

#include <QProgressBar>

namespace {
void apply(QByteArray const& line)
{
    Database* db = ICore::instance()->database();
    db->apply(BatchDecoder(*db).decode(line, QStringLiteral("inline:1")));
}
} // namespace

TEST(TerminalViewsThreads, ReplayPausesResumesAndReportsProgress)
{
    auto window = openTerminal();
    FeedPlayer* player = window->logPlayer();
    ReplayPanel* panel = window->replay();
    panel->setPace(50);   // slow enough to pause in the middle
    QSignalSpy progress(player, &FeedPlayer::progress);
    panel->start();
    ASSERT_TRUE(progress.wait(5000));
    panel->togglePause();
    ASSERT_TRUE(player->isPaused());
    EXPECT_EQ(panel->startButton()->text(), QString::fromUtf8("Продолжить"));
    int const applied = player->applied();
    QTest::qWait(300);   // six paces: nothing may move while paused
    EXPECT_EQ(player->applied(), applied);
    int const shown = panel->progressBar()->value();
    EXPECT_GT(shown, 0);
    EXPECT_LT(shown, 1000);

    panel->setPace(0);
    QSignalSpy finished(player, &FeedPlayer::finished);
    panel->togglePause();
    ASSERT_TRUE(finished.wait(20000));
    EXPECT_GT(finished.first().first().toInt(), applied);
    EXPECT_EQ(panel->progressBar()->value(), 1000);
    EXPECT_FALSE(panel->startButton()->isEnabled());   // a log replays once

    // A file that is not there is refused by name, and nothing plays.
    QString error;
    EXPECT_FALSE(player->start(kMarket + "/no-such.jsonl", error));
    EXPECT_TRUE(error.contains("no-such.jsonl")) << error.toStdString();
    EXPECT_FALSE(player->isPlaying());
}

TEST(TerminalViewsThreads, SecuritiesFilterByTextAndSortByValue)
{
    auto window = openTerminal();
    SecuritiesFilter* filter = window->market()->filter();
    SecuritiesModel* model = window->market()->model();
    filter->setText("vlt-12");   // code or name, any case
    ASSERT_GT(filter->rowCount(), 0);
    for (int r = 0; r < filter->rowCount(); ++r) {
        Record rec = model->recordAt(filter->mapToSource(filter->index(r, 0)).row());
        QString const text = rec.data("sec_code").toString() + " " + rec.data("sec_name").toString();
        EXPECT_TRUE(text.contains("VLT-12", Qt::CaseInsensitive)) << text.toStdString();
    }
    filter->setText(QString());
    // Sorted by the bid as a number, not as its text ("9.5" before "10.25").
    window->market()->table()->sortByColumn(SecuritiesModel::Bid, Qt::AscendingOrder);
    double previous = -1e300;
    int priced = 0;
    for (int r = 0; r < filter->rowCount(); ++r) {
        QVariant v = filter->index(r, SecuritiesModel::Bid).data(SecuritiesModel::SortRole);
        EXPECT_GE(v.toDouble(), previous) << r;
        previous = v.toDouble();
        priced += v.toDouble() > 0;
    }
    EXPECT_GT(priced, 10);
}

// The board reads its base's options again only for a batch that touches
// them (a scan of the securities); prices alone wait for the volatility
// timer, as before. New smile coefficients redraw the smile at once.
TEST(TerminalViewsThreads, OptionBoardIsReloadedOnlyByBatchesThatChangeItsOptionsAndTheSmileAtOnce)
{
    auto window = openTerminal();
    OptionBoardView* board = window->optionBoard();
    window->tabs()->setCurrentWidget(board);
    ASSERT_TRUE(board->choose("VLT", QDate(2026, 12, 17)));
    ASSERT_EQ(board->model()->seriesId(), 503);
    QSignalSpy reloaded(board->model(), &QAbstractItemModel::modelReset);

    // A static column of another series' option and of another base's
    // future; a price of one of its own options.
    apply(R"({"table":"securities","ops":[{"update":{"stock_id":1,"board_id":14,"sec_id":4300000231,"lotsize":20}},
              {"update":{"stock_id":1,"board_id":1,"sec_id":100013,"lotsize":2}},
              {"update":{"stock_id":1,"board_id":14,"sec_id":4300000045,"bid":"40.10"}}]})");
    QTest::qWait(50);
    EXPECT_EQ(reloaded.size(), 0);

    // A static column of one of its options.
    apply(R"({"table":"securities","ops":[{"update":{"stock_id":1,"board_id":14,"sec_id":4300000045,"lotsize":20}}]})");
    QTRY_COMPARE_WITH_TIMEOUT(reloaded.size(), 1, 2000);
    // A new strike of its series comes, then goes.
    apply(R"({"table":"securities","ops":[{"insert":{"stock_id":1,"board_id":14,"sec_id":4300009001,"isin_id":29001,
              "sec_code":"VLTC38824L3","base_code":"VLT","sectype":"O","decimals":2,"lotsize":10,"expdate":"2026-12-17 18:50:00",
              "strike":"388.24","option_type":"C","option_series_id":503,"fut_isin_id":20001,"main_board_id":1}}]})");
    QTRY_COMPARE_WITH_TIMEOUT(reloaded.size(), 2, 2000);
    EXPECT_EQ(board->model()->rows().size(), 12u);
    apply(R"({"table":"securities","ops":[{"delete":{"stock_id":1,"board_id":14,"sec_id":4300009001}}]})");
    QTRY_COMPARE_WITH_TIMEOUT(reloaded.size(), 3, 2000);
    EXPECT_EQ(board->model()->rows().size(), 11u);

    // A level 5 points higher; priced fresh, not after the cache's second.
    ASSERT_EQ(board->smile()->count(), 11);
    double const before = board->smile()->at(5).y();
    apply(R"({"table":"k3.volat_coeff_black","ops":[{"update":{"option_series_id":503,"a":36.7783}}]})");
    QTRY_VERIFY_WITH_TIMEOUT(board->smile()->at(5).y() > before + 1.0, 500);
}

// The tree of markets and boards is read again only when a batch brings or
// takes one, or changes what the tree shows of it.
TEST(TerminalViewsThreads, MarketTreeIsReadAgainOnlyWhenWhatItShowsChanges)
{
    auto window = openTerminal();
    QTreeWidget* tree = window->market()->tree();
    auto firstBoard = [tree] { return tree->topLevelItem(0)->child(0)->child(0); };
    int const mark = Qt::UserRole + 10;
    firstBoard()->setData(0, mark, true);   // gone if the tree is built again
    int const boardsOfMarket4 = tree->topLevelItem(0)->child(1)->childCount();

    apply(R"({"table":"boards","ops":[{"update":{"stock_id":1,"board_id":1,"flags":7,"anonym":"N"}}]})");
    EXPECT_TRUE(firstBoard()->data(0, mark).toBool());

    apply(R"({"table":"boards","ops":[{"update":{"stock_id":1,"board_id":1,"name":"Renamed"}}]})");
    EXPECT_TRUE(firstBoard()->text(0).startsWith("Renamed (")) << firstBoard()->text(0).toStdString();
    apply(R"({"table":"boards","ops":[{"insert":{"stock_id":4,"board_id":99,"board_code":"NEW","name":"New board"}}]})");
    EXPECT_EQ(tree->topLevelItem(0)->child(1)->childCount(), boardsOfMarket4 + 1);
}

// The accounts come and go with the investors' rows, in the table's order;
// the chosen one stays chosen while it is there.
TEST(TerminalViewsThreads, AccountListFollowsInvestorsComingAndGoing)
{
    auto window = openTerminal();
    AccountPanel* panel = window->accounts();
    panel->chooseAccount("FB02001");
    QSignalSpy chosen(panel, &AccountPanel::accountChosen);
    auto listed = [panel] {
        QStringList accounts;
        for (int k = 0; k < panel->accountBox()->count(); ++k) accounts << panel->accountBox()->itemText(k);
        return accounts;
    };
    auto inTable = [] {
        QStringList accounts;
        QSharedPointer<Table> t = ICore::instance()->database()->table("k3.investor");
        for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it)
            accounts << it->data("client_code").toString().trimmed();
        return accounts;
    };
    apply(R"({"table":"k3.investor","ops":[{"insert":{"client_code":"FA01005","name":"Новиков"}},{"delete":{"client_code":"FA02001"}},
              {"insert":{"client_code":"AA00001","name":"Первый"}},{"insert":{"client_code":"ZZ99001","name":"Последний"}},
              {"update":{"client_code":"FB02002","name":"Другое имя"}}]})");
    QTRY_COMPARE_WITH_TIMEOUT(listed(), inTable(), 2000);
    EXPECT_TRUE(listed().contains("FA01005"));
    EXPECT_FALSE(listed().contains("FA02001"));
    EXPECT_EQ(listed().first(), "AA00001");
    EXPECT_EQ(listed().last(), "ZZ99001");
    EXPECT_EQ(panel->account(), "FB02001");
    EXPECT_EQ(chosen.size(), 0);

    // The chosen account leaves: the first is chosen, and the panel says so.
    apply(R"({"table":"k3.investor","ops":[{"delete":{"client_code":"FB02001"}}]})");
    QTRY_COMPARE_WITH_TIMEOUT(chosen.size(), 1, 2000);
    EXPECT_EQ(panel->account(), "AA00001");
    EXPECT_EQ(chosen.first().first().toString(), "AA00001");
    EXPECT_EQ(listed(), inTable());
}
