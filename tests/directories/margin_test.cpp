#include "accounts_fixture.h"
#include "margin.h"

#include <QSignalSpy>
#include <functional>
#include <map>
#include <random>

namespace {

class Margin : public AccountTablesTest
{
protected:
    void SetUp() override
    {
        createSchemaTables({"fut_vm", "opt_vm", "fut_vm_sa", "opt_vm_sa"});
        apply(R"({"table":"fut_vm","ops":[
            {"insert":{"account":"A001000","sess_id":10,"vm":"100.10"}},
            {"insert":{"account":"A001000","sess_id":11,"vm":"0.20"}},
            {"insert":{"account":"A001001","sess_id":11,"vm":"-30.05"}},
            {"insert":{"account":"A002000","sess_id":11,"vm":"7.00"}},
            {"insert":{"account":"A00","sess_id":11,"vm":"1.00"}},
            {"insert":{"account":"B001000","sess_id":11}}]})");
        resetAfter<FutVMDirectory>();
        resetAfter<OptVMDirectory>();
        resetAfter<FutVMSADirectory>();
        resetAfter<OptVMSADirectory>();
    }
    static QString text(xdecimal const& x) { return x.toString(); }
};

// An index that runs a function while its table's batch is being applied,
// after the rows changed and before the batch ends.
class DuringBatch : public Index
{
public:
    explicit DuringBatch(std::function<void()> f) : m_f(std::move(f)) {}
    void clear() override {}
    void build() override {}
    void add(Record const&) override {}
    void remove(Record const&, int) override {}
    bool filter(Record const&) const override { return true; }
    bool contains(Record const&) const override { return true; }
    void process(QList<Record> const&, QList<Record> const&, int, int, QList<Record> const&) override { m_f(); }
    QString getClassName() const override { return QStringLiteral("DuringBatch"); }

private:
    std::function<void()> m_f;
};

TEST_F(Margin, SumsOfAnAccountAndOfEveryAccountWithAPrefix)
{
    FutVMDirectory* vm = FutVMDirectory::i();
    EXPECT_EQ(text(vm->getVMByAccount("A001")), "70.25");
    EXPECT_EQ(text(vm->getVMByAccount("A001000")), "100.30");
    EXPECT_EQ(text(vm->getVMByAccount("A00")), "78.25");   // "A00" itself and all beginning with it
    EXPECT_EQ(text(vm->getVMByAccount("A002000")), "7.00");
    EXPECT_EQ(vm->getVMByAccount("B001000").compare(zeroVM()), 0);   // null margin
    EXPECT_EQ(vm->getVMByAccount("B").compare(zeroVM()), 0);
    EXPECT_EQ(vm->getVMByAccount("C").compare(zeroVM()), 0);
    EXPECT_EQ(vm->getVMByAccount("a001").compare(zeroVM()), 0);   // case-sensitive
    EXPECT_EQ(text(vm->getVMByAccount("")), "78.25");
    EXPECT_EQ(vm->getVMByAccount("A0010000").compare(zeroVM()), 0);   // longer than any account
    db()->dropTable("fut_vm");
    EXPECT_EQ(vm->calculateVM("A001").compare(zeroVM()), 0);
}

TEST_F(Margin, SumsAreExactBeyondDoublePrecision)
{
    apply(R"({"table":"opt_vm","ops":[
        {"insert":{"account":"X001000","sess_id":1,"vm":"0.10"}},
        {"insert":{"account":"X001001","sess_id":1,"vm":"0.10"}},
        {"insert":{"account":"X001002","sess_id":1,"vm":"0.10"}},
        {"insert":{"account":"X001003","sess_id":1,"vm":"360287970189639.35"}},
        {"insert":{"account":"X001004","sess_id":1,"vm":"360287970189639.35"}}]})");
    OptVMDirectory* vm = OptVMDirectory::i();
    // Past the 53 bits of a double's mantissa.
    EXPECT_EQ(text(vm->getVMByAccount("X001")), "720575940379279.00");
    EXPECT_EQ(text(vm->calculateVM("X001002")), "0.10");
}

TEST_F(Margin, AnAccountSumIsKeptUntilTheBatchEnds)
{
    FutVMDirectory* vm = FutVMDirectory::i();
    EXPECT_EQ(text(vm->getVMByAccount("A002000")), "7.00");
    QString cached, fresh;
    Table* t = db()->table("fut_vm").data();
    DuringBatch probe([&] {
        cached = text(vm->getVMByAccount("A002000"));
        fresh = text(vm->calculateVM("A002000"));
    });
    t->addIndex(&probe);
    QSignalSpy spy(vm, &FutVMDirectory::dataChanged);
    apply(R"({"table":"fut_vm","ops":[{"update":{"account":"A002000","sess_id":11,"vm":"9.50"}}]})");
    t->removeIndex(&probe);
    EXPECT_EQ(cached, "7.00");   // the sum from before the change, inside its batch
    EXPECT_EQ(fresh, "9.50");
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(text(vm->getVMByAccount("A002000")), "9.50");
}

TEST_F(Margin, SettlementAccountsOfTheLatestSessionOnly)
{
    FutVMSADirectory* sa = FutVMSADirectory::i();
    QSignalSpy spy(sa, &FutVMSADirectory::dataChanged);
    apply(R"({"table":"fut_vm_sa","ops":[
        {"insert":{"sess_id":10,"settlement_account":"RK1","vm":"5.00"}},
        {"insert":{"sess_id":10,"settlement_account":"RK2","vm":"6.00"}},
        {"insert":{"sess_id":11,"settlement_account":"RK1","vm":"1.25"}},
        {"insert":{"sess_id":11,"settlement_account":"RK3","vm":"-2.50"}},
        {"insert":{"sess_id":12,"settlement_account":"","vm":"99.00"}}]})");
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(text(sa->getVMbySettlementAccount("RK1")), "1.25");
    EXPECT_EQ(text(sa->getVMbySettlementAccount("RK3")), "-2.50");
    EXPECT_EQ(sa->getVMbySettlementAccount("RK2").compare(zeroVM()), 0);   // only in session 10
    EXPECT_EQ(sa->getVMbySettlementAccount("").compare(zeroVM()), 0);      // ignored, session 12 too

    Table* t = db()->table("fut_vm_sa").data();
    FutVMSADirectory::FutVMSAColumns columns{t->columnIndex("sess_id"), t->columnIndex("settlement_account"), -1};
    EXPECT_TRUE(calcVM(t, columns).isEmpty());
    EXPECT_TRUE(calcVM(static_cast<Table*>(nullptr), FutVMSADirectory::FutVMSAColumns{0, 1, 2}).isEmpty());

    apply(R"({"table":"fut_vm_sa","ops":[{"delete":{"sess_id":11,"settlement_account":"RK1"}},
        {"delete":{"sess_id":11,"settlement_account":"RK3"}}]})");
    EXPECT_EQ(spy.count(), 2);
    EXPECT_EQ(text(sa->getVMbySettlementAccount("RK2")), "6.00");   // session 10 is the latest now
}

// The directory keeps its map across batches (sharing keys, or updating
// amounts in place); after every batch it must read as the test's own model
// of the table says: the amount of each account in the latest session.
TEST_F(Margin, TheMapAfterEachBatchFollowsTheRowsWritten)
{
    FutVMSADirectory* sa = FutVMSADirectory::i();
    std::map<std::pair<int, QString>, QString> rows;   // (session, account) -> amount
    std::mt19937 random(11);
    for (int round = 0; round < 60; ++round) {
        for (int k = 0; k < 4; ++k) {
            int session = 20 + int(random() % 3);
            QString account = QStringLiteral("RK%1").arg(random() % 6);
            QString amount = QString::number(int(random() % 2000) - 1000) + ".25";
            QJsonObject key{{"sess_id", session}, {"settlement_account", account}};
            auto row = rows.find({session, account});
            QJsonObject op;
            if (row != rows.end() && random() % 4 == 0) {
                op = QJsonObject{{"delete", key}};
                rows.erase(row);
            } else {
                key.insert("vm", amount);
                op = QJsonObject{{row != rows.end() ? "update" : "insert", key}};
                rows[{session, account}] = amount;
            }
            apply(QJsonDocument(QJsonObject{{"table", "fut_vm_sa"}, {"ops", QJsonArray{op}}}).toJson(QJsonDocument::Compact));
        }
        int const latest = rows.empty() ? 0 : rows.rbegin()->first.first;
        for (int n = 0; n < 6; ++n) {
            QString const account = QStringLiteral("RK%1").arg(n);
            auto row = rows.find({latest, account});
            xdecimal want = row == rows.end() ? zeroVM() : xdecimal(row->second);
            ASSERT_EQ(sa->getVMbySettlementAccount(account).compare(want), 0) << "round " << round << ", " << account.toStdString();
        }
    }
}

TEST_F(Margin, ABatchThatChangedNothingIsNotAnnounced)
{
    OptVMSADirectory* sa = OptVMSADirectory::i();
    QSignalSpy spy(sa, &OptVMSADirectory::dataChanged);
    sa->beginUpdate();
    sa->endUpdate();
    EXPECT_EQ(spy.count(), 0);
    apply(R"({"table":"opt_vm_sa","ops":[{"insert":{"sess_id":3,"settlement_account":"RK7","vm":"1.00"}}]})");
    EXPECT_EQ(spy.count(), 1);
    apply(R"({"table":"opt_vm_sa","ops":[{"update":{"sess_id":3,"settlement_account":"RK7","vm":"2.00"}}]})");
    EXPECT_EQ(spy.count(), 2);   // an amount changed in place
    sa->beginUpdate();
    sa->endUpdate();
    EXPECT_EQ(spy.count(), 2);
}

} // namespace
