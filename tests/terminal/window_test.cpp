// The terminal's window on the bundled market, under the offscreen platform.
#include "modalanswerer.h"
#include "terminal_fixture.h"
#include "notifications.h"
#include "orderentry.h"
#include "orders.h"
#include "trading.h"

#include <confirmationdialog.h>
#include <database/batchreader.h>
#include <database/replicationclient.h>
#include <server.h>
#include <gateway/simulatedgateway.h>

#include <QFile>
#include <QStatusBar>
#include <QLabel>
#include <cmath>

namespace {

bool replay(TerminalWindow& window)
{
    QSignalSpy finished(window.logPlayer(), &FeedPlayer::finished);
    window.replay()->start();
    return finished.wait(30000);
}

// The texts of every table-bound cell, row by row, as the model shows them.
QStringList rowTexts(TableRowsModel const& model, int row)
{
    QStringList cells;
    for (int c = 0; c < model.columnCount(); ++c)
        if (model.tableColumn(c) >= 0) cells << model.index(row, c).data().toString();
    return cells;
}

} // namespace

TEST(TerminalThreads, WindowOpensOnTheBundledMarket)
{
    auto window = openTerminal();
    ASSERT_TRUE(window->isMarketLoaded());
    EXPECT_TRUE(window->errors().isEmpty()) << window->errors().join("\n").toStdString();

    // Markets and boards as a tree (the table's rows are the replay test's).
    QTreeWidget* tree = window->market()->tree();
    ASSERT_EQ(tree->topLevelItemCount(), 1);
    EXPECT_EQ(tree->topLevelItem(0)->childCount(), StockDirectory::i()->ids().size());

    // Choosing the options board narrows the table to it.
    QTreeWidgetItem* options = nullptr;
    for (int m = 0; m < tree->topLevelItem(0)->childCount(); ++m)
        for (int b = 0; b < tree->topLevelItem(0)->child(m)->childCount(); ++b) {
            QTreeWidgetItem* item = tree->topLevelItem(0)->child(m)->child(b);
            if (item->data(0, Qt::UserRole).toInt() == 1 && item->data(0, Qt::UserRole + 1).toInt() == 14) options = item;
        }
    ASSERT_NE(options, nullptr);
    tree->setCurrentItem(options);
    SecuritiesFilter* filter = window->market()->filter();
    ASSERT_GT(filter->rowCount(), 0);
    for (int r = 0; r < filter->rowCount(); ++r) {
        Record rec = window->market()->model()->recordAt(filter->mapToSource(filter->index(r, 0)).row());
        EXPECT_EQ(rec.data("board_id").toInteger(), 14);
    }

    // Choosing a security fills the ticket.
    window->market()->table()->setCurrentIndex(filter->index(0, 0));
    EXPECT_EQ(window->ticket()->board(), 14);
    EXPECT_NE(window->ticket()->secId(), 0);

    EXPECT_FALSE(window->accounts()->account().isEmpty());
}

TEST(TerminalThreads, AfterTheReplayTheSecuritiesModelAgreesWithTheTableRowForRow)
{
    auto window = openTerminal();
    SecuritiesModel* model = window->market()->model();
    // A copy of what the model showed, kept up to date only by what the
    // model announces: if it missed a row, the copy goes stale.
    QVector<QStringList> copy;
    for (int r = 0; r < model->rowCount(); ++r) copy << rowTexts(*model, r);
    QVector<QStringList> const before = copy;
    int resets = 0;
    QObject::connect(model, &QAbstractItemModel::modelReset, [&] { ++resets; });
    QObject::connect(model, &QAbstractItemModel::rowsInserted, [&](QModelIndex const&, int first, int last) {
        for (int r = first; r <= last; ++r) copy.insert(r, rowTexts(*model, r));
    });
    QObject::connect(model, &QAbstractItemModel::rowsRemoved,
                     [&](QModelIndex const&, int first, int last) { copy.remove(first, last - first + 1); });
    QObject::connect(model, &QAbstractItemModel::dataChanged, [&](QModelIndex const& from, QModelIndex const& to) {
        for (int r = from.row(); r <= to.row(); ++r) copy[r] = rowTexts(*model, r);
    });

    ASSERT_TRUE(replay(*window));
    EXPECT_TRUE(window->errors().isEmpty()) << window->errors().join("\n").toStdString();
    EXPECT_EQ(resets, 0);
    EXPECT_GT(model->announcedRows(), 0);

    // Row for row: the same rows as the table, each shown as it now stands.
    QSharedPointer<Table> table = ICore::instance()->database()->table("securities");
    ASSERT_EQ(model->rowCount(), table->rowCount());
    QSet<unsigned char*> inTable;
    for (auto it = table->masterIndex()->begin(); it != table->masterIndex()->end(); ++it) inTable.insert(it->row());
    int changed = 0;
    for (int r = 0; r < model->rowCount(); ++r) {
        EXPECT_TRUE(inTable.contains(model->recordAt(r).row())) << r;
        ASSERT_EQ(copy[r], rowTexts(*model, r)) << "row " << r << " changed unannounced";
        if (r < before.size() && before[r] != copy[r]) ++changed;
    }
    EXPECT_GT(changed, 0);   // the day moved prices, so the check above bit
}

TEST(TerminalThreads, OptionBoardPricesEveryStrikeOfASeries)
{
    auto window = openTerminal();
    OptionBoardView* board = window->optionBoard();
    ASSERT_TRUE(board->choose("VLT", QDate(2026, 12, 17)));
    OptionBoardModel* model = board->model();
    for (int type : {int(OptionBoardModel::Bachelier), int(OptionBoardModel::Black)}) {
        board->modelBox()->setCurrentIndex(board->modelBox()->findData(type));
        ASSERT_EQ(model->model(), type);
        ASSERT_EQ(model->rows().size(), 11u);
        for (auto const& row : model->rows())
            for (auto const* side : {&row.call, &row.put}) {
                ASSERT_NE(side->secId, 0) << row.strike;
                ASSERT_TRUE(side->priced) << row.strike;
                EXPECT_GT(side->values[OptionBoardModel::Volat], 0.0);
            }
        EXPECT_EQ(board->smile()->count(), 11);
    }
    // At the money: the strike nearest the underlying, marked; in the money
    // shaded on the call side below it and the put side above it.
    int const atm = model->atTheMoneyRow();
    ASSERT_GE(atm, 0);
    double const F = model->underlyingPrice();
    for (auto const& row : model->rows()) EXPECT_LE(std::fabs(model->rows()[std::size_t(atm)].strike - F), std::fabs(row.strike - F));
    EXPECT_TRUE(model->index(atm, OptionBoardModel::StrikeColumn).data(Qt::FontRole).value<QFont>().bold());
    EXPECT_TRUE(model->index(0, 0).data(Qt::BackgroundRole).isValid());                  // deep call in the money
    EXPECT_FALSE(model->index(0, OptionBoardModel::StrikeColumn + 1).data(Qt::BackgroundRole).isValid());
    // The figures the console prints for this series (Black, strike 337.60).
    EXPECT_EQ(model->index(5, OptionBoardModel::StrikeColumn).data().toString(), "337.60");
    EXPECT_EQ(model->index(5, OptionBoardModel::Volat).data().toString(), "32.20");
}

TEST(TerminalThreads, NotificationsArePlainTextSaveThePasswordWarningAndTheDaysLinksOpenWhatTheyName)
{
    auto window = openTerminal();
    NotificationsPanel* panel = window->notifications();
    int const first = panel->entries().size();
    // A name as the library escapes it, and markup from elsewhere.
    ICore::instance()->notify(QStringLiteral("1|Открыт поток ликвидности 9 (A&amp;B &lt;i&gt;x&lt;/i&gt; * 10)|"), 0, nullptr, nullptr);
    ICore::instance()->notify(QStringLiteral("1|Поток <img src=x> от <b>LP</b>|"), 0, nullptr, nullptr);
    ASSERT_EQ(panel->entries().size(), first + 2);
    EXPECT_EQ(panel->entries()[first].message, QStringLiteral("Открыт поток ликвидности 9 (A&B <i>x</i> * 10)"));
    EXPECT_EQ(panel->entries()[first + 1].message, QStringLiteral("Поток  от LP"));
    int named = 0, rich = 0;
    for (QLabel* label : panel->findChildren<QLabel*>()) {
        EXPECT_FALSE(label->text().contains("<img")) << label->text().toStdString();
        if (label->text().contains("<i>x</i>")) {
            EXPECT_EQ(label->textFormat(), Qt::PlainText);
            ++named;
        }
        if (label->text().contains("<b>FA01U02</b>")) {
            EXPECT_EQ(label->textFormat(), Qt::RichText);
            ++rich;
        }
    }
    EXPECT_EQ(named, 1);
    EXPECT_EQ(rich, 1);

    ASSERT_TRUE(replay(*window));
    int stream = -1, deal = -1;
    for (int k = 0; k < panel->entries().size(); ++k) {
        NotificationLink link = NotificationLink::parse(panel->entries()[k].link);
        if (link.kind == NotificationLink::Stream && stream < 0) stream = k;
        if (link.kind == NotificationLink::Deal && deal < 0) deal = k;
    }
    ASSERT_GE(stream, 0);
    ASSERT_GE(deal, 0);
    EXPECT_FALSE(panel->entries()[stream].richText);

    // The stream's link opens the ticket on that stream and its security.
    panel->follow(stream);
    EXPECT_EQ(window->ticket()->stock(), 5);
    EXPECT_EQ(window->ticket()->board(), 20);
    EXPECT_EQ(window->ticket()->secId(), 100059);
    EXPECT_EQ(window->ticket()->streamId(), 9000000009LL);
    EXPECT_TRUE(window->ticket()->securityText().contains("5,20,100059") || window->ticket()->securityText().contains("1,20,100059"));

    // The deal's link opens its details, saying where it is confirmed.
    panel->follow(deal);
    QList<DealDetailsDialog*> dialogs = window->findChildren<DealDetailsDialog*>();
    ASSERT_EQ(dialogs.size(), 1);
    EXPECT_TRUE(dialogs[0]->isVisible());
    for (char const* part : {"80000000001", "Fut QTZ-06.27", "FA01001", "В таблице сделок: B 99 по цене 7.64"})
        EXPECT_TRUE(dialogs[0]->detailsText().contains(QString::fromUtf8(part))) << dialogs[0]->detailsText().toStdString();

    // Links of other shapes are nothing to follow.
    for (char const* bad : {"vtrm+stream://stream/addorder?stock_id=1&board_id=x&sec_id=1&stream_id=2",
                            "http://stream/addorder?stock_id=1&board_id=1&sec_id=1&stream_id=2", "vtrm+stream://deal/other"})
        EXPECT_EQ(NotificationLink::parse(QString::fromLatin1(bad)).kind, NotificationLink::Unknown) << bad;
}

TEST(TerminalThreads, TicketTakesTheChosenAccountAndRefusesWhatItCannotSendAsShown)
{
    auto window = openTerminal();
    AccountPanel* panel = window->accounts();
    panel->chooseAccount("FB02001");
    ASSERT_EQ(panel->account(), "FB02001");
    for (auto [line, text] : {std::pair{AccountPanel::Investor, "Орешкин"}, std::pair{AccountPanel::Firm, "FB02 "},
                              std::pair{AccountPanel::Settlement, "FB02-RK02"}, std::pair{AccountPanel::VariationMargin, "46585.58"},
                              std::pair{AccountPanel::FeeParams, "7302"}})
        EXPECT_TRUE(panel->lineText(line).contains(QString::fromUtf8(text))) << panel->lineText(line).toStdString();

    OrderTicket* ticket = window->ticket();
    ticket->setSecurity(1, 1, 100001);   // VLT-1226: two decimals, step 0.01 in the snapshot
    ticket->setQuantity(3);
    OrderRequest order;
    QString why;
    for (char const* bad : {"", "abc", "1e3", "337.955", "-5", "0", "337,95.1", "99999999999999999999999"}) {
        ticket->setPrice(QString::fromLatin1(bad));
        EXPECT_FALSE(ticket->request(order, why)) << bad;
        EXPECT_FALSE(why.isEmpty()) << bad;
    }
    ticket->setPrice(" 337.950 ");   // a trailing zero changes nothing
    ASSERT_TRUE(ticket->request(order, why)) << why.toStdString();
    EXPECT_EQ(order.price.toString(), "337.95");
    EXPECT_EQ(order.quantity, 3);
    EXPECT_EQ(order.secId, 100001);
    EXPECT_EQ(order.account, "FB02001");

    qRegisterMetaType<OrderRequest>();   // else the spy records nothing and the check below cannot fail
    QSignalSpy sent(ticket, &OrderTicket::sendRequested);
    ASSERT_TRUE(sent.isValid());
    ticket->setSendingAvailable(true);
    ticket->setPrice("abc");
    QTest::mouseClick(ticket->sendButton(), Qt::LeftButton);
    EXPECT_EQ(sent.size(), 0);
}

TEST(TerminalThreads, BadLogNamesFileAndLineAndLeavesTheWindowUsable)
{
    QTemporaryDir dir;
    QString const log = dir.filePath("bad.jsonl");
    QFile f(log);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(R"({"table":"securities","ops":[{"update":{"stock_id":1,"board_id":1,"sec_id":100001,"bid":"300.00"}}]})" "\n");
    f.write(R"({"table":"boards","ops":[{"insert":{"stock_id":1}}]})" "\n");
    f.close();
    auto window = openTerminal(log);
    QSignalSpy failed(window.get(), &TerminalWindow::errorReported);
    window->replay()->start();
    ASSERT_TRUE(failed.wait(10000));
    EXPECT_TRUE(window->errors().last().contains("bad.jsonl:2")) << window->errors().last().toStdString();
    // The first batch stays applied and shown; the window goes on.
    EXPECT_EQ(SecurityDirectory::i()->bidByTextId("1,1,100001").toDouble(), 300.0);
    EXPECT_FALSE(window->logPlayer()->isPlaying());
    EXPECT_TRUE(window->market()->isEnabled());
    window->market()->filter()->setText("VLT");
    EXPECT_GT(window->market()->filter()->rowCount(), 0);
}

TEST(TerminalThreads, ScreenshotShowsTheOptionBoardAndSmile)
{
    auto window = openTerminal();
    ASSERT_TRUE(window->optionBoard()->choose("VLT", QDate(2026, 12, 17)));
    window->tabs()->setCurrentWidget(window->optionBoard());
    window->accounts()->chooseAccount("FB02001");
    auto const& atm = window->optionBoard()->model()->rows()[std::size_t(window->optionBoard()->model()->atTheMoneyRow())];
    window->ticket()->setSecurity(1, 14, atm.call.secId);
    ASSERT_TRUE(replay(*window));
    QTest::qWait(200);   // let the chart lay out and paint
    QPixmap shot = window->grab();
    ASSERT_FALSE(shot.isNull());
    EXPECT_GE(shot.width(), 1000);
    QString const out = qEnvironmentVariable("TERMINAL_SCREENSHOT");
    if (!out.isEmpty()) {
        EXPECT_TRUE(shot.save(out, "PNG")) << out.toStdString();
    }
}

// One-click trading end to end: the fast path asks, the core sends to the
// simulated exchange, its answer comes back from the event loop as a
// notification and its batch as a row.
TEST(TerminalThreads, ConfirmedOrdersBecomeRowsAndCancelsWithdrawThemADeclinedOneSendsNothing)
{
    auto window = openTerminal();
    SimulatedGateway exchange(ICore::instance());
    exchange.plugInto(DefaultCore::global()->transactions());
    DefaultCore::global()->clearNotifications();
    OrderTicket* ticket = window->ticket();
    OrdersModel* orders = window->orders()->model();
    int const before = orders->rowCount();
    ticket->setSecurity(1, 1, 100001);
    ticket->setBuy(true);
    ticket->setPrice("337.95");
    ticket->setQuantity(2);
    auto withdrawn = [&](long long id) { return orders->recordAt(orders->rowOfOrder(id)).data("status").toString().trimmed() == "W"; };

    {   // declined: no transaction leaves, no row comes
        ModalAnswerer no(ModalAnswerer::PressNo);
        QTest::mouseClick(ticket->sendButton(), Qt::LeftButton);
        ASSERT_TRUE(no.seen);
        EXPECT_TRUE(no.text.contains("337.95")) << no.text.toStdString();
        QTest::qWait(100);
        EXPECT_EQ(exchange.pending(), 0);
        EXPECT_EQ(exchange.lastOrderId(), 0);
        EXPECT_EQ(window->trading()->awaitingAnswers(), 0);
        EXPECT_TRUE(DefaultCore::global()->notifications().isEmpty());
    }
    // Confirmed: the exchange's batch brings the row back, the ticket shows its answer.
    QList<long long> placed;
    for (char const* price : {"337.95", "337.91", "337.90"}) {
        ticket->setPrice(QString::fromLatin1(price));
        ModalAnswerer yes(ModalAnswerer::PressYes);
        QTest::mouseClick(ticket->sendButton(), Qt::LeftButton);
        ASSERT_TRUE(yes.seen);
        QTRY_COMPARE_WITH_TIMEOUT(orders->rowCount(), before + placed.size() + 1, 5000);
        placed << exchange.lastOrderId();
        int const row = orders->rowOfOrder(placed.last());
        ASSERT_GE(row, 0);
        EXPECT_EQ(orders->recordAt(row).data("price").toDouble(), QString::fromLatin1(price).toDouble());   // the ticket's price, not the question's
        QTRY_VERIFY_WITH_TIMEOUT(ticket->outcome().contains(QString::number(placed.last())), 5000);
    }
    {   // one cancel through the fast path: the row stays, withdrawn
        window->orders()->table()->setCurrentIndex(orders->index(orders->rowOfOrder(placed[0]), 0));
        ModalAnswerer yes(ModalAnswerer::PressYes);
        EXPECT_TRUE(window->trading()->cancel({window->orders()->currentOrder()}));
        ASSERT_TRUE(yes.seen);
        QTRY_VERIFY_WITH_TIMEOUT(withdrawn(placed[0]), 5000);
    }
    {   // all in the security: asked once
        ModalAnswerer yes(ModalAnswerer::PressYes);
        EXPECT_TRUE(window->trading()->cancelAll(1, 1, 100001));
        ASSERT_TRUE(yes.seen);
        QTRY_VERIFY_WITH_TIMEOUT(withdrawn(placed[1]) && withdrawn(placed[2]), 5000);
    }

    // An account the exchange does not know: its reason reaches the ticket.
    ticket->setAccounts({"ZZ99999"});
    ModalAnswerer yes(ModalAnswerer::PressYes);
    QTest::mouseClick(ticket->sendButton(), Qt::LeftButton);
    ASSERT_TRUE(yes.seen);
    QTRY_VERIFY_WITH_TIMEOUT(ticket->outcome().contains(QString::fromUtf8("отвергнута")), 5000);
    EXPECT_TRUE(ticket->outcome().contains("ZZ99999")) << ticket->outcome().toStdString();
    EXPECT_EQ(exchange.lastOrderId(), placed.last());
}

// Connected to an exchange (in this process, on 127.0.0.1): the market
// comes from its snapshot and then batch by batch; the replay controls are
// gone and the status line says where the terminal stands.
TEST(TerminalThreads, FollowsTheExchangeLiveWithAStatusLineAndNoReplayControls)
{
    Database exchangeDb;
    exchangeDb.loadSchema(QStringLiteral(SCHEMA_FILE));
    exchangeDb.loadFileAtomically(kMarket + "/snapshot.jsonl");
    exchange::ReplicationServer server(&exchangeDb, QStringLiteral("2026-11-20"));
    server.setUsers(testUsers());
    TestCertificates const& tls = testCertificates();
    ASSERT_FALSE(tls.ca.isEmpty()) << tls.error.toStdString();
    server.setTls(tls.chain(), tls.privateKey());
    QString error;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost, 0, error)) << error.toStdString();
    BatchReader log(exchangeDb, kMarket + "/replication.jsonl");
    auto play = [&](int n) {
        BatchReader::Item item;
        for (int i = 0; i < n && log.next(item); ++i) server.applyLogBatch(item.batch, i + 1);
    };
    play(20);

    auto window = openTerminal(QString(), server.port(), tls.authorities());
    ASSERT_TRUE(window->isMarketLoaded());
    ReplicationClient* client = window->replication();
    ASSERT_NE(client, nullptr);
    EXPECT_FALSE(window->replay()->isVisible());
    play(40);
    // The login's firm's stream: what of the 60 batches is FA01's.
    quint64 const last = server.lastSequence(QStringLiteral("FA01"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return client->state() == ReplicationClient::State::Live && client->lastApplied() == last; }, 20000))
        << client->stateText().toStdString();
    QTest::qWait(300);   // the status line is redrawn at most every 200 ms
    QString const status = window->connectionStatus()->text();
    EXPECT_TRUE(status.contains(": live · ") && status.contains(QStringLiteral(" %1 · ").arg(last))) << status.toStdString();
    EXPECT_FALSE(status.contains("БЕЗ ШИФРОВАНИЯ")) << status.toStdString();
    EXPECT_TRUE(status.contains("127.0.0.1:" + QString::number(server.port()))) << status.toStdString();
    // The views show the exchange's rows, as after loading its files.
    EXPECT_EQ(window->market()->model()->rowCount(), exchangeDb.table("securities")->rowCount());
    EXPECT_TRUE(window->errors().isEmpty()) << window->errors().join("\n").toStdString();

    QString const out = qEnvironmentVariable("TERMINAL_STATUS_SCREENSHOT");
    if (!out.isEmpty()) {
        QPixmap const shot = window->statusBar()->grab();
        EXPECT_TRUE(shot.save(out, "PNG")) << out.toStdString();
    }
}

// A new trading day on the exchange loads every table again: what the
// reload raises again (the password warning) is not shown twice.
TEST(TerminalThreads, AResynchronisationShowsNoNotificationTwice)
{
    auto serve = [](Database& db, QString const& day, quint16 port) {
        db.loadSchema(QStringLiteral(SCHEMA_FILE));
        db.loadFileAtomically(kMarket + "/snapshot.jsonl");
        auto server = std::make_unique<exchange::ReplicationServer>(&db, day);
        server->setUsers(testUsers());
        QString error;
        EXPECT_TRUE(server->listen(QHostAddress::LocalHost, port, error)) << error.toStdString();
        return server;
    };
    auto firstDb = std::make_unique<Database>();
    auto first = serve(*firstDb, QStringLiteral("2026-11-20"), 0);
    quint16 const port = first->port();
    auto window = openTerminal(QString(), port);
    ReplicationClient* client = window->replication();
    ASSERT_TRUE(QTest::qWaitFor([&] { return client->state() == ReplicationClient::State::Live; }, 20000));
    // A plain session says so on the status line.
    QTest::qWait(300);
    EXPECT_TRUE(window->connectionStatus()->text().contains("БЕЗ ШИФРОВАНИЯ")) << window->connectionStatus()->text().toStdString();
    auto const& entries = window->notifications()->entries();
    ASSERT_EQ(entries.size(), 1);
    EXPECT_EQ(entries[0].kind, 2);   // the password warning of a fresh load

    first.reset();
    Database secondDb;
    auto second = serve(secondDb, QStringLiteral("2026-11-21"), port);
    QSignalSpy reloaded(client, &ReplicationClient::snapshotLoaded);
    ASSERT_TRUE(reloaded.wait(20000)) << client->stateText().toStdString();
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(client->day(), QStringLiteral("2026-11-21"));
    QStringList texts;
    for (auto const& e : entries) texts << QString::number(e.kind) + " " + e.message + " " + e.link;
    EXPECT_EQ(texts.removeDuplicates(), 0) << texts.join("\n").toStdString();
    EXPECT_EQ(texts.filter(QRegularExpression("^2 ")).size(), 1);
}
