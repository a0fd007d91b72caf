// terminal-stall-bench [--market DIR] [--pace MS] [--follow [--exchange PROGRAM]]:
// how long the terminal's event loop stalls while a market's replication log
// replays into its window. The snapshot loads first (behind its progress
// dialog, not measured); then the log replays at full speed while a 1 ms
// timer probes the event loop, and the longest gap between two probes is
// the stall.
//
// With --follow the window follows an exchange instead (`replication-bench
// serve` beside this program, or PROGRAM, in a process of its own): the
// snapshot comes over the connection (timed, but not part of the stall), and
// once the window is live the exchange plays the day's log at full speed.
#include "servedexchange.h"
#include "binding.h"
#include "context.h"
#include "feed.h"
#include "marketview.h"
#include "replay.h"
#include "window.h"

#include <core/clock.h>
#include <core/defaultcore.h>
#include <database/database.h>
#include <database/exception.h>
#include <database/replicationclient.h>

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTabWidget>
#include <QTextStream>
#include <QTimer>
#include <algorithm>
#include <cstring>
#include <vector>

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QTextStream out(stdout);
    QString market = QStringLiteral(SOURCE_DIR "/data/market");
    int pace = 0;
    bool follow = false;
    QString exchangeProgram = QCoreApplication::applicationDirPath() + QStringLiteral("/replication-bench");
    for (int k = 1; k < argc; ++k) {
        bool const hasValue = k + 1 < argc;
        if (!std::strcmp(argv[k], "--market") && hasValue) market = QString::fromLocal8Bit(argv[++k]);
        else if (!std::strcmp(argv[k], "--pace") && hasValue) pace = QString::fromLocal8Bit(argv[++k]).toInt();
        else if (!std::strcmp(argv[k], "--exchange") && hasValue) exchangeProgram = QString::fromLocal8Bit(argv[++k]);
        else if (!std::strcmp(argv[k], "--follow")) follow = true;
        else {
            out << "usage: terminal-stall-bench [--market DIR] [--pace MS] [--follow [--exchange PROGRAM]]\n";
            return 2;
        }
    }
    QDir const dir(market);
    apps::TerminalContext context;
    QString error;
    if (!apps::readTerminalContext(dir.filePath("terminal.json"), context, error)) {
        out << error << "\n";
        return 1;
    }
    if (context.hasNow) Clock::setRunningFrom(context.now);
    DefaultCore::global()->setCurrentLogin(context.login);
    Database* db = ICore::instance()->database();
    try {
        db->loadSchema(QStringLiteral(SOURCE_DIR "/data/schema.json"));
        apps::bindDirectories(db, DirectoryClass::AtStart);
    } catch (Exception const& e) {
        out << e.message() << "\n";
        return 1;
    }
    TerminalOptions options;
    options.snapshot = dir.filePath("snapshot.jsonl");
    options.log = dir.filePath("replication.jsonl");
    options.pace = pace;
    bench::ServedExchange exchange;
    if (follow) {
        QString const schema = QStringLiteral(SOURCE_DIR "/data/schema.json");
        if (!exchange.start(exchangeProgram, market, schema, context.login, error)) {
            out << error << "\n";
            return 1;
        }
        options.host = QStringLiteral("127.0.0.1");
        options.port = exchange.port();
        options.login = context.login;
        options.password = exchange.password();
        options.replication.authorities = exchange.authorities();
    }
    TerminalWindow window(options, *DefaultCore::global());
    window.show();
    window.tabs()->setCurrentWidget(window.market());   // the 100k-row table, the heaviest view

    QElapsedTimer clock;
    clock.start();
    qint64 loadedAt = 0;
    QObject::connect(&window, &TerminalWindow::marketLoaded, [&] {
        loadedAt = clock.elapsed();
        // Let the window settle (first paint of the full table) before measuring.
        QTimer::singleShot(500, &window, [&] {
            if (!follow) {
                window.replay()->start();
            } else if (window.replication()->state() != ReplicationClient::State::Live) {
                out << "error: not live 500 ms after the snapshot: " << window.replication()->stateText() << "\n";
                app.exit(1);
            } else {
                exchange.play();
            }
        });
    });

    std::vector<qint64> gaps;   // microseconds between probe ticks while replaying
    QElapsedTimer probeClock;
    QTimer probe;
    probe.setTimerType(Qt::PreciseTimer);
    probe.setInterval(1);
    QObject::connect(&probe, &QTimer::timeout, [&] {
        if (probeClock.isValid()) gaps.push_back(probeClock.nsecsElapsed() / 1000);
        probeClock.restart();
    });
    qint64 replayStart = 0, replayEnd = 0;
    int batches = 0;
    auto applied = [&](int count) {
        if (count == 1) {
            replayStart = clock.elapsed();
            probe.start();
            probeClock.invalidate();
        }
        batches = count;
    };
    auto finished = [&] {
        replayEnd = clock.elapsed();
        probe.stop();
        app.quit();
    };
    if (!follow) {
        QObject::connect(window.logPlayer(), &FeedPlayer::progress, [&](int count, qint64, qint64) { applied(count); });
        QObject::connect(window.logPlayer(), &FeedPlayer::finished, finished);
    } else {
        // Done when the window has applied the last batch the exchange played.
        auto caughtUp = [&] {
            return exchange.isPlayed() && window.replication()->lastApplied() == exchange.lastSequence();
        };
        QObject::connect(window.replication(), &ReplicationClient::batchApplied, [&, caughtUp](quint64 sequence, QString const&) {
            applied(int(sequence - exchange.startSequence()));
            if (caughtUp()) finished();
        });
        QObject::connect(&exchange, &bench::ServedExchange::played, [&, caughtUp](quint64) {
            if (caughtUp()) finished();
        });
        QObject::connect(window.replication(), &ReplicationClient::stateChanged, [&](ReplicationClient::State state, QString const& text) {
            // A reconnection in the middle would measure something else.
            if (replayStart && (state == ReplicationClient::State::Disconnected || state == ReplicationClient::State::Stopped)) {
                out << "error: the connection to the exchange was lost: " << text << "\n";
                app.exit(1);
            }
        });
    }
    QObject::connect(&window, &TerminalWindow::errorReported, [&](QString const& message) {
        out << "error: " << message << "\n";
        app.exit(1);
    });
    window.loadMarket();
    int const status = app.exec();
    if (status != 0 || gaps.empty()) return status ? status : 1;

    std::sort(gaps.begin(), gaps.end());
    auto ms = [](qint64 us) { return QString::number(double(us) / 1000.0, 'f', 1); };
    qint64 const longest = gaps.back();
    qint64 const p99 = gaps[std::size_t(double(gaps.size() - 1) * 0.99)];
    std::size_t const over16 = std::size_t(gaps.end() - std::upper_bound(gaps.begin(), gaps.end(), 16000));
    std::size_t const over50 = std::size_t(gaps.end() - std::upper_bound(gaps.begin(), gaps.end(), 50000));
    QFile load(QStringLiteral("/proc/loadavg"));
    QString loadavg = load.open(QIODevice::ReadOnly) ? QString::fromLatin1(load.readAll()).section(' ', 0, 2) : QStringLiteral("?");
    out << "market " << market << ": " << window.market()->model()->rowCount() << " securities, snapshot "
        << (follow ? "from the exchange" : "from its file") << " in " << loadedAt << " ms\n";
    if (follow)
        out << "following the exchange: " << batches << " batches live in " << (replayEnd - replayStart) << " ms at full speed\n";
    else
        out << "replay: " << batches << " batches in " << (replayEnd - replayStart) << " ms at pace " << pace << " ms\n";
    out
        << "event-loop probe (1 ms timer): " << gaps.size() << " gaps; longest " << ms(longest) << " ms, 99th percentile " << ms(p99)
        << " ms; " << over16 << " over 16 ms, " << over50 << " over 50 ms\n"
        << "target: longest stall under 50 ms: " << (longest < 50000 ? "met" : "MISSED") << "\n"
        << "load average " << loadavg << "\n";
    return 0;
}
