#pragma once
#include "context.h"

#include <database/replicationclient.h>

#include <QCommandLineOption>
#include <QList>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>
#include <QTranslator>

class DefaultCore;
class QCommandLineParser;

// What every program of the project does at start: read the options they
// share, find the market and its data beside the program, choose the
// language of the library's texts, and set up the core's clock and user.
namespace apps {

// What a program returns. The meanings are fixed: scripts rely on them.
enum ExitStatus { Done = 0, BadInput = 1, NotFound = 2, Rejected = 3 };

// "Exit status:" and one line per status, for a program's --help.
QString exitStatusHelp(QList<ExitStatus> const& statuses);

// The installed layout (share/libdirectory beside bin/), mirrored in the
// build tree; `fromBinary` is the relative path from the program's folder.
QString dataRoot(char const* fromBinary);

// An unencrypted PEM private key (RSA, EC or DSA) from `path`: an empty
// text, or what is wrong, naming the file.
QString readPrivateKey(QString const& path, QSslKey& key);

// The options every program takes: --data, --schema, --replay (not the
// exchange's), --log, --pace, --now, --as and --lang; the terminal's and the
// console's also --connect. The object lives as long as the program: it holds
// the installed translation.
class CommonOptions
{
public:
    // What the market folder's replication log is for.
    enum class Replay {
        AfterSnapshot,   // replayed right after the snapshot, only when asked
        OnDemand,        // offered for replay, started at once with --replay
        Served,          // played to the exchange's clients, always
    };

    // Adds the options to the parser (before it processes the arguments);
    // the defaults are the bundled market and schema under `dataRoot`.
    CommonOptions(QCommandLineParser& parser, QString const& dataRoot, Replay replay);

    // After the parser processed the arguments: checks every option, reads
    // the market's terminal.json (the command line overrides it) and
    // installs the translation. Gives what is wrong, or an empty string.
    QString check();

    QString schema() const;
    QString snapshot() const;
    QString log() const;                    // empty: nothing to replay
    QString dataFile(QString const& name) const;   // a file of the market folder
    bool replay() const;
    // --connect HOST:PORT (not for Served): the market comes from an exchange, not from files.
    bool connects() const { return !m_host.isEmpty(); }
    QString const& host() const { return m_host; }
    quint16 port() const { return m_port; }
    int pace() const { return m_paceMs; }
    // TLS: the exchange's certificate chain and key; a client's authorities.
    // --insecure: neither, plain TCP.
    bool insecure() const { return m_insecureSet; }
    QList<QSslCertificate> const& certificateChain() const { return m_chain; }
    QSslKey const& privateKey() const { return m_privateKey; }
    // What a client of --connect follows with: TLS verified against --ca, or --insecure.
    ReplicationClient::Settings replicationSettings() const;
    // The login of the session (--as, else terminal.json's) and its
    // password, read from standard input as readPassword() says.
    QByteArray readSessionPassword() const;

    QString const& language() const { return m_language; }
    TerminalContext const& context() const { return m_context; }

    // Runs the terminal's clock from the context's moment, if any, and makes
    // its login the current one. Gives the core the program goes on with.
    DefaultCore& startCore() const;

private:
    QString checkTls();

    QCommandLineParser& m_parser;
    QString m_root;
    Replay m_use;
    QCommandLineOption m_data, m_schema, m_replay, m_log, m_pace, m_now, m_as, m_lang, m_connect, m_ca, m_cert, m_key, m_insecure;
    QTranslator m_translator;
    TerminalContext m_context;
    QString m_language;
    int m_paceMs = 0;
    QString m_host;
    quint16 m_port = 0;
    bool m_insecureSet = false;
    QList<QSslCertificate> m_chain, m_authorities;
    QSslKey m_privateKey;
};

} // namespace apps
