#include "commands.h"
#include "context.h"
#include "notifications.h"
#include "output.h"
#include "startup.h"

#include <core/clock.h>
#include <core/defaultcore.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <cstdio>
#include <cstdlib>
#include <vector>
#include <thread>

using namespace console;
using namespace apps;

namespace {

QString readAll(std::FILE* f)
{
    std::fflush(f);
    std::rewind(f);
    QByteArray bytes;
    char buffer[256];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) bytes.append(buffer, int(n));
    return QString::fromUtf8(bytes);
}

} // namespace

TEST(ConsoleOutput, OutsideTextsStayOnOneLineAndCannotDriveTheTerminal)
{
    EXPECT_EQ(printable(QStringLiteral("Опционы VLT-12.26")), QStringLiteral("Опционы VLT-12.26"));
    EXPECT_EQ(printable(QStringLiteral("a\nb\r\tc")), QStringLiteral("a\\nb\\r\\tc"));
    EXPECT_EQ(printable(QStringLiteral("\x1b[31mred")), QStringLiteral("\\u001b[31mred"));
    EXPECT_EQ(printable(QString(QChar(0x202e)) + "abc"), QStringLiteral("\\u202eabc"));   // right-to-left override
    EXPECT_EQ(printable(QString(QChar(0x2028))), QStringLiteral("\\u2028"));              // line separator
    EXPECT_EQ(printable(QStringLiteral("\\n")), QStringLiteral("\\\\n"));                  // an escape cannot be faked
    EXPECT_EQ(printable(QString(QChar(0x85))), QStringLiteral("\\u0085"));
}

TEST(ConsoleOutput, NotificationLinesShowKindTextAndLink)
{
    // A bar in the message stays there: the link follows the last bar.
    EXPECT_EQ(NotificationPrinter::line(QStringLiteral("1|Поток 7 (A|B * 10)|vtrm+stream://stream/addorder?id=7")),
              QStringLiteral("notification kind 1: Поток 7 (A|B * 10) | link: vtrm+stream://stream/addorder?id=7"));
    EXPECT_EQ(NotificationPrinter::line(QStringLiteral("3|deal\nkind 9: forged|link\x1b")),
              QStringLiteral("notification kind 3: deal\\nkind 9: forged | link: link\\u001b"));
}

TEST(ConsoleOutput, NotificationsOfAnotherThreadArriveWhenQueuedCallsAreDelivered)
{
    int argc = 1;
    char name[] = "console_tests";
    char* argv[] = {name, nullptr};
    QCoreApplication app(argc, argv);
    QString text;
    QTextStream stream(&text);
    NotificationPrinter printer(stream);
    printer.listen(DefaultCore::global()->coreSignals());
    std::thread worker([] { DefaultCore::global()->notify(QStringLiteral("6|from a worker|"), 0, nullptr, nullptr); });
    worker.join();
    EXPECT_TRUE(text.isEmpty());   // never written from the worker
    QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall);
    EXPECT_EQ(text, QStringLiteral("notification kind 6: from a worker\n"));
}

// Through a pipe one line per tenth reached (the programs' cases show the
// bundled day's); fewer batches than tenths give one line per batch.
TEST(ConsoleOutput, ProgressThroughAPipeGivesOneLinePerTenth)
{
    std::FILE* f = std::tmpfile();
    ASSERT_TRUE(f);
    Progress few("snapshot", true, false, f);
    for (int k = 1; k <= 3; ++k) few.step(k, 3);
    EXPECT_EQ(readAll(f), QStringLiteral("snapshot: 30% (1 of 3 batches)\nsnapshot: 60% (2 of 3 batches)\n"
                                         "snapshot: 100% (3 of 3 batches)\n"));
    std::fclose(f);
}

TEST(ConsoleOutput, ProgressOnATerminalIsRewrittenInPlaceAndBlankedForOtherLines)
{
    std::FILE* f = std::tmpfile();
    ASSERT_TRUE(f);
    {
        Progress p("replay", true, true, f);
        p.step(1, 2);
        Progress::clearLine();   // a batch line is about to be printed
        Progress::clearLine();   // nothing shown any more: nothing written
        p.step(2, 2);
    }
    QString line = QStringLiteral("\rreplay:  50% (1 of 2 batches)");
    EXPECT_EQ(readAll(f), line + "\r" + QString(line.size(), ' ') + "\r" + "\rreplay: 100% (2 of 2 batches)\n");
    std::fclose(f);

    f = std::tmpfile();
    {
        Progress cut("snapshot", true, true, f);
        cut.step(1, 4);
    }   // a load that stops half-way leaves no half line behind
    EXPECT_TRUE(readAll(f).endsWith(QStringLiteral("\r")));
    std::fclose(f);
}

TEST(ConsoleContext, MomentsAreReadExactly)
{
    qint64 ms = 0;
    ASSERT_TRUE(parseMoment(QStringLiteral("2026-11-20 10:00:00"), ms));
    EXPECT_EQ(ms, 1795168800000LL);
    EXPECT_EQ(formatMoment(ms), QStringLiteral("2026-11-20 10:00:00"));
    for (char const* bad : {"2026-02-30 10:00:00", "2026-11-20 24:00:00", "2026-11-20T10:00:00", "2026-11-20 10:00",
                            " 2026-11-20 10:00:00", "2026-11-20 10:00:00 ", "20261120 100000", ""})
        EXPECT_FALSE(parseMoment(QString::fromLatin1(bad), ms)) << bad;
}

TEST(ConsoleContext, LoginsThatCouldBreakATextAreRefused)
{
    EXPECT_TRUE(loginProblem(QStringLiteral("FA01U01")).isEmpty());
    for (QString bad : {QString(), QStringLiteral("FA01|U01"), QStringLiteral("FA 01"), QStringLiteral("FA\n01"),
                        QStringLiteral("ABCDEFGHIJKLM"), QStringLiteral("FA\x1b")})
        EXPECT_FALSE(loginProblem(bad).isEmpty()) << bad.toStdString();
}

TEST(ConsoleContext, TerminalFileGivesTheMomentAndTheUserOrSaysWhatIsWrong)
{
    QTemporaryDir dir;
    QString path = dir.filePath(QStringLiteral("terminal.json"));
    TerminalContext c;
    QString error;
    ASSERT_TRUE(readTerminalContext(path, c, error));   // no file: nothing set
    EXPECT_FALSE(c.hasNow);
    EXPECT_TRUE(c.login.isEmpty());

    // A good file is the bundled market's, read by every program case.
    auto write = [&](char const* text) {
        QFile f(path);
        f.open(QIODevice::WriteOnly | QIODevice::Truncate);
        f.write(text);
    };
    struct Bad { char const* text; char const* message; };
    for (Bad b : {Bad{"{", "bad JSON"}, Bad{"[]", "not a JSON object"}, Bad{R"({"now": "tomorrow"})", "'now' needs"},
                  Bad{R"({"now": 5})", "'now' needs"}, Bad{R"({"login": "A|B"})", "'login': "},
                  Bad{R"({"login": 7})", "'login' needs a string"}, Bad{R"({"user": "X"})", "unknown key 'user'"}}) {
        write(b.text);
        EXPECT_FALSE(readTerminalContext(path, c, error)) << b.text;
        EXPECT_TRUE(error.startsWith(path + ": ")) << error.toStdString();
        EXPECT_TRUE(error.contains(QLatin1String(b.message))) << error.toStdString();
    }
}

namespace {

// The console's options and commands as main() sets them up, on the market
// bundled with the sources.
struct Console
{
    explicit Console(CommonOptions::Replay use = CommonOptions::Replay::AfterSnapshot)
        : common(parser, QStringLiteral(DATA_ROOT), use)
    {
        for (auto const& command : commands) command->addOptions(parser);
    }
    // What main() refuses these arguments with before loading; empty when it goes on.
    QString refusal(QStringList const& args)
    {
        // Russian unless told: the sources' data folder holds no translation.
        if (!parser.parse(QStringList{QStringLiteral("directory-console"), QStringLiteral("--lang=ru")} + args)) return parser.errorText();
        QString const why = common.check();
        return why.isEmpty() ? checkCommands(commands, parser) : why;
    }

    QCommandLineParser parser;
    CommonOptions common;
    Commands const commands = consoleCommands();
};

} // namespace

TEST(ConsoleArguments, EveryMalformedArgumentIsRefusedBeforeLoadingWithItsOwnMessage)
{
    struct Case { QStringList args; char const* refusal; };   // "": accepted
    QString const order = QStringLiteral("--order=1,1,100001 --account=FB02001 --side=B --price=337.95 --quantity=1");
    auto ordered = [&](QString const& replaced, QString const& by) {
        return QString(order).replace(replaced, by).split(QLatin1Char(' '));
    };
    for (Case const& c : std::vector<Case>{
             // shared with the terminal
             {{"extra"}, "unexpected argument 'extra' (see --help)"},
             {{"--pace", "x"}, "--pace needs a number of milliseconds, not 'x'"}, {{"--pace", "-1"}, "not '-1'"},
             {{"--lang", "de"}, "--lang needs ru or en, not 'de'"},
             {{"--now", "2026-02-30 10:00:00"}, "--now needs a moment as \"yyyy-MM-dd HH:mm:ss\", not '2026-02-30 10:00:00'"},
             {{"--as", "FA01|U01"}, "--as 'FA01|U01': a login has no spaces, bars or control characters"},
             {{"--data", "/nonexistent"}, "/nonexistent/snapshot.jsonl: no such file"},
             {{"--now", "2026-12-01 09:30:00", "--as", "FA01U02", "--replay", "--pace", "5"}, ""},
             // lookups
             {{"--security", "1,14"}, "needs STOCK,BOARD,ID"}, {{"--security", "1,14,1,2"}, "needs STOCK,BOARD,ID"},
             {{"--security", "1,99999999999,1"}, "needs STOCK,BOARD,ID"}, {{"--security", "1,,1"}, "needs STOCK,BOARD,ID"},
             {{"--isin", "1,14"}, "--isin 1,14: needs STOCK,BOARD,ISIN"},
             {{"--board", "1,x"}, "--board 1,x: needs STOCK,BOARD, two whole numbers"}, {{"--board", "1,"}, "needs STOCK,BOARD"},
             {{"--board-code", "DERIV"}, "needs STOCKCODE,BOARDCODE"}, {{"--board-code", ",OPT"}, "needs STOCKCODE,BOARDCODE"},
             {{"--market", ""}, "needs a market number or code"}, {{"--market", "99999999999"}, "needs a market number or code"},
             {{"--sec-code", "VLT-1226@1,1,1"}, "needs CODE, CODE@STOCK or CODE@STOCK,BOARD"}, {{"--sec-code", "@1"}, "needs CODE"},
             {{"--sec-code", "A@1@2"}, "needs CODE"}, {{"--sec-code", "A@x"}, "needs CODE"},
             {{"--security", "1,14,4300000001", "--isin", "1,14,20049", "--board", "1,14", "--board-code", "DERIV,OPT",
               "--market", "DERIV", "--market", "4", "--sec-code", "VLT-1226", "--sec-code", "VLT-1226@1,1"}, ""},
             // option views: what only narrows the board is refused without it, not dropped
             {{"--expiry", "2026-12-17"}, "--expiry goes with --option-board"},
             {{"--time", "--expiry", "2026-12-17"}, "--expiry goes with --option-board"},
             {{"--model", "bachelier"}, "--model goes with --option-board"},
             {{"--option-board", "VLT", "--model", "x"}, "--model: 'x' is neither black nor bachelier"},
             {{"--option-board", "VLT", "--expiry", "2026-13-01"}, "--expiry: cannot read '2026-13-01' (yyyy-MM-dd)"},
             {{"--option-board", "VLT", "--expiry", "2026-12-17", "--model", "Bachelier", "--time"}, ""},
             // accounts
             {{"--account", "FB0"}, "--account 'FB0': shorter than a firm code (4 characters)"},
             {{"--login", "FA01U02", "--account", "FB02001"}, ""},
             // orders
             {{"--send"}, "--send goes with --order, --cancel or --cancel-all"},
             {{"--price", "1"}, "--price goes with --order, --cancel or --cancel-all"},
             {ordered("337.95", "3e2"), "--price needs a number such as 337.95, not '3e2'"},
             {ordered("side=B", "side=X"), "--side needs B (buy) or S (sell), not 'X'"},
             {ordered("quantity=1", "quantity=0"), "--quantity needs a positive whole number, not '0'"},
             {ordered("--side=B ", ""), "--order needs --side"},
             {ordered("1,1,100001", "1,1"), "--order '1,1': needs STOCK,BOARD,ID"},
             {ordered("FB02001", "FB|02"), "--account 'FB|02': an account code of up to 12 characters, without spaces"},
             {order.split(QLatin1Char(' ')) << "--cancel" << "5", "one order command at a time"},
             {{"--cancel", "0"}, "--cancel needs an order id, a positive whole number, not '0'"},
             {{"--cancel", "5", "--account", "FB02001"}, "--cancel takes no --account"},
             {{"--cancel-all", "1,1,100001", "--account", "FB02001", "--side", "B", "--price", "1"}, "--cancel-all takes no --price"},
             {ordered("FB02001", "FB0") << "--send", ""},   // a short account is the exchange's to refuse
             {{"--cancel-all", "1,3,100045", "--account", "QD02002", "--side", "S", "--send"}, ""},
         }) {
        QString const why = Console().refusal(c.args);
        if (*c.refusal)
            EXPECT_TRUE(why.contains(QString::fromUtf8(c.refusal))) << c.args.join(' ').toStdString() << " -> " << why.toStdString();
        else
            EXPECT_EQ(why, QString()) << c.args.join(' ').toStdString();
    }
}

TEST(ConsoleArguments, TheCommandLineOverridesTheMarketsMomentAndUser)
{
    Console told;
    ASSERT_EQ(told.refusal({"--now", "2026-12-01 09:30:00", "--as", "FA01U02"}), QString());
    EXPECT_EQ(formatMoment(told.common.context().now), QStringLiteral("2026-12-01 09:30:00"));
    EXPECT_EQ(told.common.language(), QStringLiteral("ru"));
    DefaultCore& core = told.common.startCore();
    EXPECT_EQ(core.currentLogin(), QStringLiteral("FA01U02"));
    EXPECT_EQ(&core, ICore::instance());   // the core the library reaches
    // The clock runs from the moment given, not from the machine's.
    EXPECT_LT(std::llabs(Clock::nowMSecs() - told.common.context().now), 60000LL);
}

TEST(ConsoleArguments, TheConsoleReplaysOnlyWhenAskedAndTheTerminalOffersTheFoldersDay)
{
    QString const day = QStringLiteral(DATA_ROOT "/market/replication.jsonl");
    using Replay = CommonOptions::Replay;
    struct Case { Replay use; QStringList args; QString log; bool replay; };
    QTemporaryDir noDay;   // a market folder with a snapshot and no day
    QFile::link(QStringLiteral(DATA_ROOT "/market/snapshot.jsonl"), noDay.filePath(QStringLiteral("snapshot.jsonl")));
    for (Case const& c : std::vector<Case>{
             {Replay::AfterSnapshot, {}, QString(), false},
             {Replay::AfterSnapshot, {"--replay"}, day, true},
             {Replay::AfterSnapshot, {"--log", day}, day, false},
             {Replay::OnDemand, {}, day, false},
             {Replay::OnDemand, {"--replay"}, day, true},
             {Replay::OnDemand, {"--data", noDay.path()}, QString(), false},
         }) {
        Console console(c.use);
        ASSERT_EQ(console.refusal(c.args), QString()) << c.args.join(' ').toStdString();
        EXPECT_EQ(QDir::cleanPath(console.common.log()), QDir::cleanPath(c.log)) << c.args.join(' ').toStdString();
        EXPECT_EQ(console.common.replay(), c.replay);
    }
    // Asked to replay a folder without a day: refused, not skipped.
    Console console;
    EXPECT_EQ(console.refusal({"--replay", "--data", noDay.path()}),
              noDay.filePath(QStringLiteral("replication.jsonl")) + QStringLiteral(": no such file"));
}
