#include "core_fixture.h"

#include <directories>


#include <QCoreApplication>
#include <QDir>
#include <QMetaMethod>
#include <QRegularExpression>

// Parameters read by their class names (found by argument lookup, so beside
// DirectoryClass, outside the unnamed namespace).
void PrintTo(DirectoryClass const& c, std::ostream* os) { *os << c.name(); }

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

// What the classes say when their table is missing: "Таблица '<table>'
// отсутствует", except two whose text names the table itself.
QString expectedMissingText(DirectoryClass const& c)
{
    QString const name = QLatin1String(c.name());
    if (name == "K3InvestorDirectory") return QStringLiteral("Таблица k3.investor отсутствует");
    if (name == "K3BrokerFeeParamDirectory") return QStringLiteral("Таблица k3.broker_fee_params отсутствует");
    return QStringLiteral("Таблица '%1' отсутствует").arg(QLatin1String(c.table));
}

class Binding : public ::testing::TestWithParam<DirectoryClass>
{
protected:
    void SetUp() override
    {
        m_db.loadSchemaJson(realSchema({QString::fromLatin1(GetParam().table)}), QStringLiteral("test-schema"));
        m_core.db = &m_db;
        ICore::setInstance(&m_core);
        GetParam().reset();
        m_db.calls.clear();   // loading the schema asked too
    }
    void TearDown() override
    {
        GetParam().reset();
        ICore::setInstance(nullptr);
    }
    // What the first i() throws while the database says it has no table.
    QString thrownWithoutTable()
    {
        m_db.answerHasTable = false;
        try {
            GetParam().instance();
        } catch (QString const& e) {
            return e;
        }
        ADD_FAILURE() << "no exception";
        return QString();
    }
    QSharedPointer<Table> boundTable() const { return m_db.Database::table(QString::fromLatin1(GetParam().table)); }
    int registrations() const
    {
        QSharedPointer<Table> t = m_db.Database::table(QString::fromLatin1(GetParam().table));
        return t->indexes().size() + t->dependents().size();
    }

    RecordingDatabase m_db;
    ForwardingCore m_core;
};

} // namespace

TEST_P(Binding, AsksTheDatabaseBeforeTakingTheTable)
{
    QString const table = QString::fromLatin1(GetParam().table);
    int const before = registrations();

    // The database says it does not hold the table: the construction takes
    // nothing by name, registers nothing and names the table in its text.
    EXPECT_EQ(thrownWithoutTable(), expectedMissingText(GetParam()));
    EXPECT_EQ(m_db.calls, QStringList{QStringLiteral("has %1").arg(table)});
    EXPECT_EQ(registrations(), before);

    // Once it does, the next i() asks again and then takes the table.
    m_db.calls.clear();
    m_db.answerHasTable = true;
    GetParam().instance();
    EXPECT_EQ(m_db.calls, (QStringList{QStringLiteral("has %1").arg(table), QStringLiteral("table %1").arg(table)}));
    EXPECT_GT(registrations(), before);
}

// Told only when a batch ends, or maintained row by row, as its line says.
TEST_P(Binding, RegistersOnItsTableAsItsLineSays)
{
    auto* index = dynamic_cast<Index*>(GetParam().instance());
    ASSERT_NE(index, nullptr);
    bool const dependent = GetParam().registration == Directory::AsDependent;
    EXPECT_EQ(boundTable()->dependents().contains(index), dependent);
    EXPECT_EQ(boundTable()->indexes().contains(index), !dependent);
}

// Each class announces a batch with the one signal it declares: dataChanged(),
// but for the exceptions below.
TEST_P(Binding, DeclaresItsSignalsAndNoOthers)
{
    QString const name = QLatin1String(GetParam().name());
    QStringList expected{QStringLiteral("dataChanged()")};
    if (name == "StockSecDirectory") expected = QStringList{QStringLiteral("dataChanged(int,qlonglong)")};
    if (name == "RFSStreamsDirectory") expected << QStringLiteral("lastDealStateDataChanged()");
    QMetaObject const* meta = GetParam().metaObject;
    QStringList signalsDeclared;
    for (int i = QObject::staticMetaObject.methodCount(); i < meta->methodCount(); ++i)
        if (meta->method(i).methodType() == QMetaMethod::Signal)
            signalsDeclared << QString::fromLatin1(meta->method(i).methodSignature());
    EXPECT_EQ(signalsDeclared, expected);
}

INSTANTIATE_TEST_SUITE_P(EveryRegistration, Binding, ::testing::ValuesIn(directoryRegistry().begin(), directoryRegistry().end()),
                         [](::testing::TestParamInfo<DirectoryClass> const& info) { return std::string(info.param.name()); });

// Every directory class with an i() has its registry line, once, but the
// three fixed vocabularies, which have no table.
TEST(Registry, NamesEveryDirectoryClassOnce)
{
    QStringList declared;
    // Inside a class body, not the macro's own definition.
    QRegularExpression const singleton(QStringLiteral("^\\s+DIRECTORY_SINGLETON\\((\\w+)\\)"),
                                       QRegularExpression::MultilineOption);
    for (QFileInfo const& header : QDir(QStringLiteral(SOURCE_DIR "/directories")).entryInfoList({"*.h"})) {
        QFile f(header.filePath());
        ASSERT_TRUE(f.open(QIODevice::ReadOnly));
        auto found = singleton.globalMatch(QString::fromUtf8(f.readAll()));
        while (found.hasNext()) declared << found.next().captured(1);
    }
    for (char const* fixed : {"PriceDirectionDirectory", "OptioTypeDirectory", "OptioCalcDirectory"})
        EXPECT_EQ(declared.removeAll(QLatin1String(fixed)), 1) << fixed;
    QStringList lines;
    for (DirectoryClass const& c : directoryRegistry()) lines << QLatin1String(c.name());
    EXPECT_EQ(lines.removeDuplicates(), 0);
    declared.sort();
    lines.sort();
    EXPECT_EQ(lines, declared);
}
