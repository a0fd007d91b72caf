#include "core_fixture.h"

#include <directories>

#include <core/defaultcore.h>

#include <functional>

namespace {

// A database that writes down every question a directory asks it, and
// whose has-table answer the test sets, while table-by-name keeps answering
// with the real table: a construction that skips the question shows.
class RecordingDatabase : public Database
{
public:
    QSharedPointer<Table> table(QString const& name) const override
    {
        calls << QStringLiteral("table %1").arg(name);
        return Database::table(name);
    }
    bool hasTable(QString const& name) const override
    {
        calls << QStringLiteral("has %1").arg(name);
        return answerHasTable && Database::hasTable(name);
    }
    mutable QStringList calls;
    bool answerHasTable = true;
};

// The default core, but with the recording database.
class RecordingCore : public ICore
{
public:
    explicit RecordingCore(Database* db) : m_db(db) {}
    Database* database() const override { return m_db; }
    ITransactionService* transactionService() const override { return DefaultCore::global()->transactionService(); }
    void notify(QString const& text, int flags, void* context, void* data) override
    {
        DefaultCore::global()->notify(text, flags, context, data);
    }
    QString currentLogin() const override { return QString(); }
    bool passwordWarningEnabled() const override { return false; }
    int passwordWarningDays() const override { return 0; }

private:
    Database* m_db;
};

struct BoundClass
{
    char const* name;
    char const* table;
    QString missingText;
    std::function<void()> create;
    std::function<void()> reset;
};

void PrintTo(BoundClass const& c, std::ostream* os) { *os << c.name; }

template <class X>
BoundClass bound(char const* table, QString missingText = QString())
{
    if (missingText.isEmpty()) missingText = QStringLiteral("Таблица '%1' отсутствует").arg(QLatin1String(table));
    return {X::staticMetaObject.className(), table, missingText, [] { X::i(); }, [] { QSingleton<X>::reset(); }};
}

// Every way a directory registers: dependent, index, with a typed cached
// master index, with a fixed missing-table text, and through a base class.
std::vector<BoundClass> boundClasses()
{
    return {
        bound<BuySellDirectory>("buysells"),
        bound<SecurityDirectory>("securities"),
        bound<BoardDirectory>("boards"),
        bound<K3InvestorDirectory>("k3.investor", QStringLiteral("Таблица k3.investor отсутствует")),
        bound<K3BrokerFeeParamDirectory>("k3.broker_fee_params",
                                         QStringLiteral("Таблица k3.broker_fee_params отсутствует")),
        bound<VolatCoeffBachDirectory>("k3.volat_coeff_bach"),
        bound<K3FutMarginTypeDirectory>("k3.fut_margin_type"),
        bound<RFSStreamsDirectory>("k3.rfs.streams"),
        bound<DealsDirectory>("deals"),
    };
}

class Binding : public ::testing::TestWithParam<BoundClass>
{
protected:
    void SetUp() override
    {
        m_db.loadSchemaJson(realSchema({QString::fromLatin1(GetParam().table)}), QStringLiteral("test-schema"));
        ICore::setInstance(&m_core);
        GetParam().reset();
        m_db.calls.clear();   // loading the schema asked too
    }
    void TearDown() override
    {
        GetParam().reset();
        ICore::setInstance(nullptr);
    }
    int registrations() const
    {
        QSharedPointer<Table> t = m_db.Database::table(QString::fromLatin1(GetParam().table));
        return t->indexes().size() + t->dependents().size();
    }

    RecordingDatabase m_db;
    RecordingCore m_core{&m_db};
};

} // namespace

TEST_P(Binding, AsksTheDatabaseBeforeTakingTheTable)
{
    QString const table = QString::fromLatin1(GetParam().table);
    int const before = registrations();

    // The database says it does not hold the table: the construction takes
    // nothing by name, registers nothing and names the table in its text.
    m_db.answerHasTable = false;
    try {
        GetParam().create();
        FAIL() << "no exception";
    } catch (QString const& e) {
        EXPECT_EQ(e, GetParam().missingText);
    }
    EXPECT_EQ(m_db.calls, QStringList{QStringLiteral("has %1").arg(table)});
    EXPECT_EQ(registrations(), before);

    // Once it does, the next i() asks again and then takes the table.
    m_db.calls.clear();
    m_db.answerHasTable = true;
    GetParam().create();
    EXPECT_EQ(m_db.calls, (QStringList{QStringLiteral("has %1").arg(table), QStringLiteral("table %1").arg(table)}));
    EXPECT_GT(registrations(), before);
}

INSTANTIATE_TEST_SUITE_P(EveryRegistration, Binding, ::testing::ValuesIn(boundClasses()),
                         [](::testing::TestParamInfo<BoundClass> const& info) { return std::string(info.param.name); });
