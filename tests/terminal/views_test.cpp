// The views' own behaviour on the bundled market: the replay's controls, the
// securities' filter and sort, the smile's redraw, the English texts.
#include "terminal_fixture.h"
#include "binding.h"
#include "context.h"
#include "feed.h"
#include "marketview.h"
#include "optionboard.h"
#include "replay.h"
#include "window.h"

#include <core/clock.h>
#include <core/defaultcore.h>
#include <database/batch.h>
#include <database/database.h>
#include <directories>

#include <QCoreApplication>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableView>
#include <QTest>
#include <QTranslator>
#include <QtCharts/QLineSeries>
#include <gtest/gtest.h>
#include <memory>

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

TEST(TerminalViewsThreads, SmileIsRedrawnAtOnceWhenItsCoefficientsChange)
{
    auto window = openTerminal();
    OptionBoardView* board = window->optionBoard();
    ASSERT_TRUE(board->choose("VLT", QDate(2026, 12, 17)));
    ASSERT_EQ(board->smile()->count(), 11);
    double const before = board->smile()->at(5).y();
    Database* db = ICore::instance()->database();
    // A level 5 points higher; priced fresh, not after the cache's second.
    db->apply(BatchDecoder(*db).decode(R"({"table":"k3.volat_coeff_black","ops":[{"update":{"option_series_id":503,"a":36.7783}}]})",
                                       QStringLiteral("inline:1")));
    QTRY_VERIFY_WITH_TIMEOUT(board->smile()->at(5).y() > before + 1.0, 500);
}

TEST(TerminalViewsThreads, EnglishTextsReplaceTheRussianSources)
{
    QTranslator english;
    ASSERT_TRUE(english.load(QStringLiteral("libdirectory_en"), QStringLiteral(TRANSLATIONS_DIR)));
    QCoreApplication::installTranslator(&english);
    auto window = openTerminal();
    EXPECT_EQ(window->windowTitle(), "Derivatives market terminal");
    EXPECT_EQ(window->market()->model()->headerData(SecuritiesModel::Bid, Qt::Horizontal).toString(), "Bid");
    EXPECT_EQ(window->optionBoard()->model()->headerData(OptionBoardModel::StrikeColumn, Qt::Horizontal).toString(), "Strike");
    EXPECT_EQ(window->replay()->startButton()->text(), "Start");
    QCoreApplication::removeTranslator(&english);
}
