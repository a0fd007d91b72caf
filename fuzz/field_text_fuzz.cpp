// Corpus: fuzz/corpus/field_text/
//
// Text from outside (a feed, a settings file, a user's entry) written into a
// column of each type: it must either be stored, or be refused with the
// parse message while the field keeps exactly what it held before.
#include <datetime.h>

#include <database/database.h>
#include <database/exception.h>

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Fixture
{
    Fixture()
    {
        TableSchema schema;
        schema.name = QStringLiteral("fuzz");
        auto add = [&](QString const& name, FieldType::Type type, int length, short scale, bool nullable) {
            ColumnDef c;
            c.name = name;
            c.type = type;
            c.length = length;
            c.scale = scale;
            c.nullable = nullable;
            schema.columns.append(c);
        };
        add(QStringLiteral("id"), FieldType::Int, 0, 0, false);
        for (int t = FieldType::Int; t <= FieldType::VarChar; ++t) {
            auto type = FieldType::Type(t);
            add(QStringLiteral("c%1").arg(t), type, type == FieldType::Char ? 12 : 0,
                type == FieldType::Decimal ? 2 : (type == FieldType::XDecimal ? 4 : 0), true);
        }
        schema.key = QStringList{QStringLiteral("id")};
        table = db.createTable(schema);
    }
    Database db;
    QSharedPointer<Table> table;
};

[[noreturn]] void fail(char const* what, FieldType::Type type, QString const& text)
{
    std::fprintf(stderr, "%s (column type %d, text '%s')\n", what, int(type), text.toUtf8().constData());
    std::abort();
}

// Value bytes and flag; a variable string is compared by its text, since
// its bytes are a pointer to shared data.
QByteArray snapshot(Field const& f)
{
    QByteArray s(1, char(f.hasValue()));
    if (f.type() == FieldType::VarChar) return s + f.toString().toUtf8();
    return s + QByteArray(reinterpret_cast<char const*>(f.data()), f.length());
}

void check(Field f, QString const& text)
{
    FieldType::Type type = f.type();
    QByteArray before = snapshot(f);
    try {
        f = QStringRef(&text);
    } catch (Exception const& e) {
        QString expected = QStringLiteral("Can't convert from '%1'' to %2").arg(text, FieldType::typeName(type));
        if (type == FieldType::Char || type == FieldType::VarChar) fail("text column refused text", type, text);
        if (e.message() != expected) fail("unexpected message", type, text);
        if (snapshot(f) != before) fail("refused text changed the field", type, text);
        return;
    }
    if (!f.hasValue()) fail("stored text left no value", type, text);
    if (type == FieldType::VarChar && f.toString() != text) fail("variable string differs", type, text);
    // An empty input arrives as a null string, which starts with nothing.
    if (type == FieldType::Char && !f.toString().isEmpty() && !text.startsWith(f.toString()))
        fail("fixed string is not a prefix of the text", type, text);
    // Whatever was stored must read back without failing.
    f.toString();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    static Fixture fixture;
    QString text = QString::fromUtf8(reinterpret_cast<char const*>(data), int(size));
    Table const* table = fixture.table.data();
    // Each column once empty and once holding a value, so that a refusal
    // must keep either state.
    for (int prefilled = 0; prefilled < 2; ++prefilled) {
        Record row(table);
        for (int t = FieldType::Int; t <= FieldType::VarChar; ++t) {
            Field f = table->dataPtr(row.row(), table->columnIndex(QStringLiteral("c%1").arg(t)));
            if (prefilled) {
                if (t == FieldType::DateTime) f = datetime(1577970855123LL);
                else f = 7;
            }
            check(f, text);
        }
    }
    return 0;
}
