// Corpus: fuzz/corpus/batch_loader. Each input line is a batch; every batch
// must either apply whole or be rejected whole, leaving the table as it was.
#include <database/batch.h>
#include <database/database.h>
#include <database/exception.h>
#include <database/index.h>

#include <QByteArray>
#include <QList>
#include <QString>
#include <cstdint>
#include <cstdlib>

namespace {

char const kSchema[] = R"({"tables": [
  {"name": "items", "key": ["grp", "id"], "columns": [
    {"name": "grp", "type": 1, "nullable": false},
    {"name": "id", "type": 2, "nullable": false},
    {"name": "code", "type": 6, "length": 8},
    {"name": "name", "type": 8},
    {"name": "price", "type": 4, "scale": 2},
    {"name": "volume", "type": 5, "scale": 3},
    {"name": "ratio", "type": 3},
    {"name": "moment", "type": 7},
    {"name": "qty", "type": 1, "nullable": false}]},
  {"name": "codes", "key": ["code"], "columns": [
    {"name": "code", "type": 6, "length": 24, "nullable": false},
    {"name": "label", "type": 8}]}]})";

// Every row of every table as text, in master order.
QString dump(Database const& db)
{
    QString out;
    for (QString const& name : db.tableNames()) {
        QSharedPointer<Table> t = db.table(name);
        auto* master = t->masterIndex();
        for (auto it = master->begin(); it != master->end(); ++it) {
            for (int c = 0; c < t->columnCount(); ++c) out += it->data(c).toString() + QLatin1Char('|');
            out += QLatin1Char('\n');
        }
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    Database db;
    db.loadSchemaJson(QByteArray(kSchema));
    BatchDecoder decoder(db);
    QList<QByteArray> lines = QByteArray(reinterpret_cast<char const*>(data), int(size)).split('\n');
    for (QByteArray const& line : lines) {
        QString before = dump(db);
        int rowsBefore = db.table("items")->rowCount();
        try {
            db.apply(decoder.decode(line, QStringLiteral("fuzz:1")));
        } catch (Exception const& e) {
            if (e.message().isEmpty() || dump(db) != before || db.table("items")->rowCount() != rowsBefore) std::abort();
        }
    }
    return 0;
}
