#pragma once
#include <QByteArray>
#include <QFile>
#include <QString>
#include <vector>

namespace exchange {

// Every batch the exchange applied, in order, on disk before anyone is sent
// it (docs/replication.md, "The journal"), so that a restarted exchange
// still has what its clients applied.
class Journal
{
public:
    struct Entry
    {
        quint64 sequence = 0;
        QString source;      // "log:L" or "exchange"
        QByteArray batch;    // the batch line
        int logLine = 0;     // L, or 0
    };

    // Opens `path` for the trading day `day`. A journal of this day is read
    // back into entries(); one of another day is moved aside to PATH.DAY and
    // a new one started (aside() names it); a last line cut short is
    // dropped. Throws a text naming the file and line when it is not a journal.
    Journal(QString const& path, QString const& day);

    QString const& history() const { return m_history; }
    std::vector<Entry> const& entries() const { return m_entries; }
    void releaseEntries() { std::vector<Entry>().swap(m_entries); }
    QString const& aside() const { return m_aside; }
    QString const& path() const { return m_path; }

    // Appends and flushes. Throws a text when the disk refuses.
    void append(quint64 sequence, QString const& source, QByteArray const& batch);

private:
    void start(QString const& day);
    void read(QString const& day);

    QString m_path;
    QFile m_file;
    QString m_history;
    QString m_aside;
    std::vector<Entry> m_entries;
};

// A fresh history token: 16 random bytes in hex.
QString newHistory();

} // namespace exchange
