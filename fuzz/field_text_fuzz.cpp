// Corpus: fuzz/corpus/field_text/
//
// Text from outside (a feed, a settings file, a user's entry) written into a
// column of each type: it must either be stored, or be refused with the
// parse message while the field keeps exactly what it held before. Packed
// decimals must also round-trip: what is stored reads back as the same
// bytes, a column stores what the exact value rounds to, and a double read
// from the text gives the same digits in both decimal types.
#include <datetime.h>

#include <database/database.h>
#include <database/exception.h>

#include <QByteArray>
#include <QString>

#include <cmath>
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

QByteArray bytesOf(decimal const& d)
{
    std::uint64_t raw = d.raw();
    return QByteArray(reinterpret_cast<char const*>(&raw), sizeof raw);
}
QByteArray bytesOf(xdecimal const& x) { return QByteArray(reinterpret_cast<char const*>(x.bytes()), xdecimal::size); }

// A decimal column holds exactly what the text's exact value rounds to, and
// its own text writes back as the same bytes.
template <class D>
void checkDecimalColumn(Field f, QString const& text)
{
    FieldType::Type type = f.type();
    bool stored = true;
    try {
        f = QStringRef(&text);
    } catch (Exception const&) {
        stored = false;
    }
    D exact;
    bool expected = D::parse(QStringRef(&text), exact) && exact.trySetScale(f.scale());
    if (expected && !stored) fail("a value that fits the column was refused", type, text);
    if (!stored) return;
    QByteArray after = snapshot(f);
    if (expected && after.mid(1) != bytesOf(exact))
        fail("column differs from the exact value rounded", type, text);
    QString printed = f.toString();
    f = QStringRef(&printed);
    if (snapshot(f) != after) fail("stored value does not write back as itself", type, text);
}

// A parsed value prints as a text that parses back to the same value, and
// converts to a finite double.
template <class D>
void checkRoundTrip(QString const& text)
{
    D value;
    if (!D::parse(QStringRef(&text), value)) return;
    QString printed = value.toString();
    D again;
    if (!D::parse(QStringRef(&printed), again) || again.compare(value) != 0)
        fail("printed value does not parse back", FieldType::Decimal, text);
    if (!std::isfinite(value.toDouble())) fail("value has no finite double", FieldType::Decimal, text);
}

// A double rounds to the same digits in both types, wherever both hold it.
void checkDouble(QString const& text)
{
    bool ok = false;
    double v = text.trimmed().toDouble(&ok);
    if (!ok) return;
    for (short scale : {0, 2, 6, 30}) {
        decimal d;
        xdecimal x;
        bool narrow = decimal::fromDouble(v, scale, d);
        bool wide = xdecimal::fromDouble(v, scale, x);
        if (narrow && (!wide || x.toString() != d.toString())) fail("decimal and xdecimal round a double apart", FieldType::Double, text);
        if (narrow && decimal(d.toString()).compare(d) != 0) fail("rounded double does not parse back", FieldType::Double, text);
    }
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
            if (t == FieldType::Decimal) checkDecimalColumn<decimal>(f, text);
            if (t == FieldType::XDecimal) checkDecimalColumn<xdecimal>(f, text);
        }
    }
    checkRoundTrip<decimal>(text);
    checkRoundTrip<xdecimal>(text);
    checkDouble(text);
    return 0;
}
