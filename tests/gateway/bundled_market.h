#pragma once
// The bundled market as the gateway's tests see it: loaded batch by batch on
// this thread (the updating thread) with its templates, a view's index on
// the orders table, and tables as text to show that nothing changed.
#include <core/clock.h>
#include <core/defaultcore.h>
#include <core/transactions.h>
#include <database/batch.h>
#include <database/database.h>
#include <database/index.h>

#include <QFile>
#include <QStringList>
#include <gtest/gtest.h>

// Readable QStrings in assertion messages.
inline void PrintTo(QString const& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }

namespace bundled {

inline Database* db() { return DefaultCore::global()->database(); }
inline TransactionService* service() { return DefaultCore::global()->transactions(); }

// Schema, snapshot and templates at the market's moment; call from
// SetUpTestSuite (it asserts).
inline void load()
{
    Clock::setFixed(QDateTime(QDate(2026, 11, 20), QTime(10, 0), Qt::UTC).toMSecsSinceEpoch());
    db()->loadSchema(QStringLiteral(SOURCE_DIR "/data/schema.json"));
    QFile snapshot(QStringLiteral(SOURCE_DIR "/data/market/snapshot.jsonl"));
    ASSERT_TRUE(snapshot.open(QIODevice::ReadOnly));
    BatchDecoder decoder(*db());
    for (int line = 1; !snapshot.atEnd(); ++line) {
        QByteArray text = snapshot.readLine().trimmed();
        if (!text.isEmpty()) db()->apply(decoder.decode(text, QStringLiteral("snapshot:%1").arg(line)));
    }
    QString error;
    ASSERT_TRUE(service()->loadTemplates(QStringLiteral(SOURCE_DIR "/data/market/templates.json"), error))
        << error.toStdString();
}

// Every row of a table as text.
inline QStringList rowsOf(QString const& name)
{
    QSharedPointer<Table> t = db()->table(name);
    QStringList rows;
    for (auto it = t->masterIndex()->begin(); it != t->masterIndex()->end(); ++it) {
        QStringList cells;
        for (int c = 0; c < t->columnCount(); ++c) cells << t->dataPtr(it->row(), c).toString();
        rows << cells.join(QLatin1Char(';'));
    }
    return rows;
}

// What a view of the orders table is told, row by row ("add ID STATUS",
// "update ID STATUS BALANCE", "remove ID"), and how many batches it saw end.
class OrderWatch : public Index
{
public:
    explicit OrderWatch(QSharedPointer<Table> table) : m_table(std::move(table)) { m_table->addIndex(this); }
    ~OrderWatch() override { m_table->removeIndex(this); }

    void clear() override {}
    void build() override {}
    void add(Record const& r) override { events << QStringLiteral("add %1 %2").arg(id(r)).arg(r.data(QStringLiteral("status")).toString()); }
    void remove(Record const& r, int) override { events << QStringLiteral("remove %1").arg(id(r)); }
    void update(Record const& r, int, int, int) override
    {
        events << QStringLiteral("update %1 %2 %3").arg(id(r)).arg(r.data(QStringLiteral("status")).toString())
                      .arg(r.data(QStringLiteral("balance")).rawInt32());
    }
    bool filter(Record const&) const override { return true; }
    bool contains(Record const&) const override { return false; }
    void endUpdate() override { ++batches; }
    QString getClassName() const override { return QStringLiteral("OrderWatch"); }

    QStringList events;
    int batches = 0;

private:
    static qint64 id(Record const& r) { return r.data(QStringLiteral("order_id")).rawInt64(); }
    QSharedPointer<Table> m_table;
};

} // namespace bundled
