#pragma once
#include <database/batch.h>
#include <database/database.h>
#include <database/exception.h>
#include <database/index.h>

#include <QStringList>
#include <functional>
#include <memory>

// A small database built from inline rows: "items" keyed by (grp, id) with a
// secondary "code" column, enough to drive every change path.
struct TestDb
{
    TestDb();
    Database db;
    QSharedPointer<Table> items;

    // Applies one JSON batch line; throws Exception when rejected.
    void apply(QByteArray const& line);
    // "1,2" style keys of the master index, in order.
    QStringList masterKeys() const;
    static QByteArray schemaJson();
};

// Records every Index operation it receives, in order.
class RecordingIndex : public Index
{
public:
    explicit RecordingIndex(QString name) : m_name(std::move(name)) {}
    QStringList calls;
    void clear() override { calls << m_name + ".clear"; }
    void build() override { calls << m_name + ".build"; }
    void add(Record const&) override { calls << m_name + ".add"; }
    void preprocess(QList<Record> const& i, QList<Record> const& u, int, int, QList<Record> const& d, QList<Record> const&) override
    {
        calls << QStringLiteral("%1.preprocess(%2,%3,%4)").arg(m_name).arg(i.size()).arg(u.size()).arg(d.size());
    }
    void process(QList<Record> const& i, QList<Record> const& u, int f, int l, QList<Record> const& d) override
    {
        calls << QStringLiteral("%1.process(%2,%3,%4,%5..%6)").arg(m_name).arg(i.size()).arg(u.size()).arg(d.size()).arg(f).arg(l);
    }
    void remove(Record const&, int) override { calls << m_name + ".remove"; }
    bool filter(Record const&) const override { return true; }
    bool contains(Record const&) const override { return false; }
    void beginUpdate() override { calls << m_name + ".begin"; }
    void endUpdate() override { calls << m_name + ".end"; }
    void dependentBeginUpdate(Table*) override { calls << m_name + ".depBegin"; }
    void dependentEndUpdate(Table*) override { calls << m_name + ".depEnd"; }
    QString getClassName() const override { return QStringLiteral("RecordingIndex"); }

private:
    QString m_name;
};

// Adds rows one by one to a list of keys, and fails on the row with id 2.
class RowIndex : public Index
{
public:
    QStringList keys;
    void clear() override { keys.clear(); }
    void build() override {}
    void add(Record const& r) override
    {
        if (r.data("id").rawInt32() == 2) throw QStringLiteral("no room for id 2");
        keys << r.data("id").toString();
    }
    void remove(Record const&, int) override {}
    bool filter(Record const&) const override { return true; }
    bool contains(Record const&) const override { return false; }
    QString getClassName() const override { return QStringLiteral("RowIndex"); }
};

// The message of the HookFailure a call reports, or "<not reported>": the
// batch stands either way.
inline QString hookFailureOf(std::function<void()> const& call)
{
    try {
        call();
    } catch (HookFailure const& e) {
        return e.message();
    }
    return QStringLiteral("<not reported>");
}
