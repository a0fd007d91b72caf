// The packed-decimal paths that every lookup and batch goes through: compare,
// read and write through a Field, and the conversions around them.
#include <database/database.h>
#include <database/decimal.h>
#include <database/field.h>

#include <benchmark/benchmark.h>

#include <QString>
#include <vector>

namespace {

// One row with a decimal(2), a decimal(4) and an xdecimal(4) column.
struct DecimalRow
{
    DecimalRow()
    {
        TableSchema schema;
        schema.name = QStringLiteral("decimal_bench");
        struct Column { char const* name; FieldType::Type type; short scale; };
        Column const columns[] = {{"id", FieldType::Int, 0}, {"price", FieldType::Decimal, 2},
                                  {"rate", FieldType::Decimal, 4}, {"sum", FieldType::XDecimal, 4}};
        for (Column const& column : columns) {
            ColumnDef c;
            c.name = QString::fromLatin1(column.name);
            c.type = column.type;
            c.scale = column.scale;
            c.nullable = c.name != QLatin1String("id");
            schema.columns.append(c);
        }
        schema.key = QStringList{QStringLiteral("id")};
        table = db.createTable(schema);
        row = Record(table.data());
    }
    Field operator[](char const* column) const { return table->dataPtr(row.row(), table->columnIndex(QString::fromLatin1(column))); }

    Database db;
    QSharedPointer<Table> table;
    Record row;
};

std::vector<decimal> prices(int scaleSpread)
{
    std::vector<decimal> out;
    for (int i = 0; i < 1024; ++i) out.push_back(decimal::fromMantissa((i * 7919) % 100000 - 50000, 2 + (i % (scaleSpread + 1))));
    return out;
}

void BM_DecimalCompare(benchmark::State& state)
{
    std::vector<decimal> v = prices(int(state.range(0)));
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(v[i & 1023].compare(v[(i + 1) & 1023]));
        ++i;
    }
}
BENCHMARK(BM_DecimalCompare)->Arg(0)->Arg(3)->ArgName("scaleSpread");

void BM_FieldReadDecimal(benchmark::State& state)
{
    DecimalRow r;
    Field f = r["price"];
    f = decimal::fromMantissa(12345, 2);
    for (auto _ : state) benchmark::DoNotOptimize(f.toDecimal().raw());
}
BENCHMARK(BM_FieldReadDecimal);

void BM_FieldWriteDecimal(benchmark::State& state)
{
    DecimalRow r;
    Field f = r[state.range(0) ? "rate" : "price"];
    decimal d = decimal::fromMantissa(12345, 2);
    for (auto _ : state) {
        f = d;
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_FieldWriteDecimal)->Arg(0)->Arg(1)->ArgName("rescaled");

void BM_FieldWriteDouble(benchmark::State& state)
{
    DecimalRow r;
    Field f = r[state.range(0) ? "sum" : "price"];
    double x = 101.25;
    for (auto _ : state) {
        f = x;
        x += 0.01;
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_FieldWriteDouble)->Arg(0)->Arg(1)->ArgName("extended");

void BM_FieldWriteText(benchmark::State& state)
{
    DecimalRow r;
    Field f = r["price"];
    QString const text = QStringLiteral("101.257");
    for (auto _ : state) {
        f = QStringRef(&text);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_FieldWriteText);

void BM_DecimalToDouble(benchmark::State& state)
{
    std::vector<decimal> v = prices(3);
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(v[i++ & 1023].toDouble());
}
BENCHMARK(BM_DecimalToDouble);

void BM_DecimalToString(benchmark::State& state)
{
    std::vector<decimal> v = prices(3);
    std::size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(v[i++ & 1023].toString());
}
BENCHMARK(BM_DecimalToString);

} // namespace
