#pragma once
// Shared by the master-index and cached-index tests: a small database built
// from inline rows, batches made from JSON objects, and a capture of Qt
// warnings.

#include <database/batch.h>
#include <database/database.h>
#include <database/index.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QtGlobal>
#include <cstring>

namespace indextest {

// "ranked": keyed by id; a, b, c, d, s, s16 are non-null candidates for
// typed keys, n a nullable int, v a plain value column placed last.
inline QByteArray schema()
{
    return R"({"tables": [
      {"name": "ranked", "key": ["id"], "columns": [
        {"name": "id", "type": 2, "nullable": false},
        {"name": "a", "type": 1, "nullable": false},
        {"name": "b", "type": 1, "nullable": false},
        {"name": "c", "type": 1, "nullable": false},
        {"name": "d", "type": 2, "nullable": false},
        {"name": "s", "type": 6, "length": 24, "nullable": false},
        {"name": "n", "type": 1},
        {"name": "s16", "type": 6, "length": 16, "nullable": false},
        {"name": "v", "type": 1}
      ]}
    ]})";
}

struct Db
{
    explicit Db(QByteArray const& json = schema()) { db.loadSchemaJson(json, QStringLiteral("test-schema")); }
    Table* ranked() const { return db.table(QStringLiteral("ranked")).data(); }

    void apply(QString const& table, QJsonArray const& ops)
    {
        QJsonObject batch{{"table", table}, {"ops", ops}};
        db.apply(BatchDecoder(db).decode(QJsonDocument(batch).toJson(QJsonDocument::Compact), QStringLiteral("t")));
    }

    Database db;
};

inline QJsonObject op(char const* kind, QJsonObject const& row) { return QJsonObject{{kind, row}}; }

// A full "ranked" row; s16 mirrors s as far as it fits.
inline QJsonObject rankedRow(qint64 id, int a, int b, int c, qint64 d, QString const& s)
{
    return QJsonObject{{"id", id}, {"a", a}, {"b", b}, {"c", c}, {"d", QString::number(d)}, {"s", s}, {"s16", s.left(8)}, {"v", 0}};
}

// Reads a column straight from the row buffer, without the null flag that
// the updating thread may be writing next to it.
template <class T>
T rawColumn(Record const& r, int column)
{
    T v;
    std::memcpy(&v, r.row() + r.table()->columnDef(column).offset, sizeof v);
    return v;
}

// Collects Qt warnings while alive.
class WarningCapture
{
public:
    WarningCapture()
    {
        messages().clear();
        m_previous = qInstallMessageHandler(&WarningCapture::handle);
    }
    ~WarningCapture() { qInstallMessageHandler(m_previous); }
    QStringList const& warnings() const { return messages(); }

private:
    static QStringList& messages()
    {
        static QStringList list;
        return list;
    }
    static void handle(QtMsgType type, QMessageLogContext const&, QString const& text)
    {
        if (type == QtWarningMsg) messages() << text;
    }
    QtMessageHandler m_previous;
};

// Registers an index on a table for the life of the object.
template <class I>
struct Registered
{
    template <class... A>
    Registered(Table* t, A&&... a) : table(t), index(t, std::forward<A>(a)...)
    {
        table->addIndex(&index);
        index.build();
    }
    ~Registered() { table->removeIndex(&index); }
    I* operator->() { return &index; }
    Table* table;
    I index;
};

} // namespace indextest
