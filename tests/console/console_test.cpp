#include "context.h"
#include "lookups.h"
#include "notifications.h"
#include "output.h"

#include <core/defaultcore.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <cstdio>
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
    EXPECT_EQ(NotificationPrinter::line(QStringLiteral("1|Пароль истекает|")),
              QStringLiteral("notification kind 1: Пароль истекает"));
    EXPECT_EQ(NotificationPrinter::line(QStringLiteral("plain text")), QStringLiteral("notification kind 0: plain text"));
    EXPECT_EQ(NotificationPrinter::line(QStringLiteral("3|deal\nkind 9: forged|link\x1b")),
              QStringLiteral("notification kind 3: deal\\nkind 9: forged | link: link\\u001b"));
}

TEST(ConsoleOutput, EveryNotificationOfTheCoreIsPrintedAsItIsRaised)
{
    QString text;
    QTextStream stream(&text);
    NotificationPrinter printer(stream);
    printer.listen(DefaultCore::global()->coreSignals());
    DefaultCore::global()->notify(QStringLiteral("4|first|"), 0, nullptr, nullptr);
    EXPECT_EQ(text, QStringLiteral("notification kind 4: first\n"));
    DefaultCore::global()->notify(QStringLiteral("5|second|l"), 0, nullptr, nullptr);
    EXPECT_EQ(text, QStringLiteral("notification kind 4: first\nnotification kind 5: second | link: l\n"));
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

TEST(ConsoleOutput, ProgressThroughAPipeGivesOneLinePerTenth)
{
    std::FILE* f = std::tmpfile();
    ASSERT_TRUE(f);
    Progress p("replay", true, false, f);
    for (int k = 1; k <= 41; ++k) p.step(k, 41);
    QStringList lines = readAll(f).split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 10);
    EXPECT_EQ(lines.first(), QStringLiteral("replay: 10% (5 of 41 batches)"));
    EXPECT_EQ(lines.last(), QStringLiteral("replay: 100% (41 of 41 batches)"));
    std::fclose(f);

    f = std::tmpfile();
    Progress few("snapshot", true, false, f);
    for (int k = 1; k <= 3; ++k) few.step(k, 3);
    EXPECT_EQ(readAll(f), QStringLiteral("snapshot: 30% (1 of 3 batches)\nsnapshot: 60% (2 of 3 batches)\n"
                                         "snapshot: 100% (3 of 3 batches)\n"));
    std::fclose(f);

    f = std::tmpfile();
    Progress hidden("replay", false, false, f);
    for (int k = 1; k <= 3; ++k) hidden.step(k, 3);
    EXPECT_TRUE(readAll(f).isEmpty());
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

    auto write = [&](char const* text) {
        QFile f(path);
        f.open(QIODevice::WriteOnly | QIODevice::Truncate);
        f.write(text);
    };
    write(R"({"now": "2026-11-20 10:00:00", "login": "FA01U01"})");
    ASSERT_TRUE(readTerminalContext(path, c, error)) << error.toStdString();
    EXPECT_TRUE(c.hasNow);
    EXPECT_EQ(formatMoment(c.now), QStringLiteral("2026-11-20 10:00:00"));
    EXPECT_EQ(c.login, QStringLiteral("FA01U01"));

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

TEST(ConsoleLookups, MalformedArgumentsAreRefusedAndWellFormedOnesPass)
{
    QHash<QString, LookupOption> byName;
    for (LookupOption const& l : marketLookups()) byName.insert(QLatin1String(l.name), l);
    struct Case { char const* option; char const* value; bool wellFormed; };
    for (Case c : {Case{"security", "1,14,4300000001", true}, Case{"security", "1,14", false},
                   Case{"security", "1,14,x", false}, Case{"security", "1,99999999999,1", false},
                   Case{"security", "1,14,1,2", false}, Case{"isin", "1,14,20049", true}, Case{"isin", "1,14", false},
                   Case{"board", "1,14", true}, Case{"board", "x", false}, Case{"board", "1,", false},
                   Case{"board-code", "DERIV,OPT", true}, Case{"board-code", "DERIV", false},
                   Case{"board-code", ",OPT", false}, Case{"market", "DERIV", true}, Case{"market", "4", true},
                   Case{"market", "", false}, Case{"market", "99999999999", false},
                   Case{"sec-code", "VLT-1226", true}, Case{"sec-code", "VLT-1226@1,1", true},
                   Case{"sec-code", "VLT-1226@1,1,1", false}, Case{"sec-code", "@1", false},
                   Case{"sec-code", "A@1@2", false}, Case{"sec-code", "A@x", false}}) {
        ASSERT_TRUE(byName.contains(QLatin1String(c.option))) << c.option;
        EXPECT_EQ(byName[QLatin1String(c.option)].check(QLatin1String(c.value)).isEmpty(), c.wellFormed)
            << "--" << c.option << " " << c.value;
    }
}
