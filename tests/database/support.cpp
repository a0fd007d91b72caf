#include "support.h"

QByteArray TestDb::schemaJson()
{
    return R"({"tables": [
      {"name": "items", "key": ["grp", "id"], "columns": [
        {"name": "grp", "type": 1, "nullable": false},
        {"name": "id", "type": 2, "nullable": false},
        {"name": "code", "type": 6, "length": 8},
        {"name": "name", "type": 8},
        {"name": "price", "type": 4, "scale": 2},
        {"name": "volume", "type": 5, "scale": 3},
        {"name": "ratio", "type": 3},
        {"name": "moment", "type": 7},
        {"name": "qty", "type": 1}
      ]}
    ]})";
}

TestDb::TestDb()
{
    db.loadSchemaJson(schemaJson(), QStringLiteral("test-schema"));
    items = db.table(QStringLiteral("items"));
}

void TestDb::apply(QByteArray const& line)
{
    BatchDecoder decoder(db);
    db.apply(decoder.decode(line, QStringLiteral("inline:1")));
}

QStringList TestDb::masterKeys() const
{
    QStringList keys;
    for (auto it = items->masterIndex()->begin(); it != items->masterIndex()->end(); ++it)
        keys << items->masterIndex()->toText(*it);
    return keys;
}
