#include "core_fixture.h"
#include "markets.h"
#include "securities.h"

#include <QDataStream>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMimeData>
#include <QSignalSpy>
#include <QTimer>

namespace {

QString sec(int stock, int board, qint64 id, QString code, int isin, QString decimals = QStringLiteral("2"))
{
    return QStringLiteral(R"({"insert":{"stock_id":%1,"board_id":%2,"sec_id":%3,"sec_code":"%4","sec_name":"Name %4","base_code":"BASE","isin_id":%5,"decimals":%6}})")
        .arg(stock).arg(board).arg(id).arg(code).arg(isin).arg(decimals);
}

class Securities : public CoreTablesTest
{
protected:
    void SetUp() override
    {
        createSchemaTables({"securities", "boards", "stocks"});
        apply(R"({"table":"boards","ops":[
            {"insert":{"stock_id":1,"board_id":1,"board_code":"MAIN","flags":1,"anonym":"D"}},
            {"insert":{"stock_id":1,"board_id":3,"board_code":"TWIN","flags":1,"anonym":"D"}},
            {"insert":{"stock_id":1,"board_id":7,"board_code":"PRXY","flags":65,"anonym":"D"}},
            {"insert":{"stock_id":1,"board_id":8,"board_code":"ADDR","flags":1,"anonym":"A"}},
            {"insert":{"stock_id":1,"board_id":14,"board_code":"OPT","flags":1,"anonym":"D"}}]})");
        QStringList ops{sec(1, 14, 77, "OPT77", 500), sec(1, 1, 10, "FUT", 100), sec(1, 3, 11, "FUT", 100),
                        sec(1, 3, 12, "ORPHAN", 101), sec(1, 7, 13, "PX", 102), sec(1, 8, 14, "PX", 102),
                        sec(4, 1, 15, "fut", 103), sec(1, 1, 16, "NODEC", 104, "null")};
        apply(QStringLiteral(R"({"table":"securities","ops":[%1]})").arg(ops.join(',')).toUtf8());
        resetAfter<SecurityDirectory>();
        resetAfter<BoardDirectory>();
        resetAfter<StockDirectory>();
    }
    SecurityDirectory* dir() { return SecurityDirectory::i(); }
};

QByteArray serialised(QStringList const& ids)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    for (QString const& id : ids) out << id;
    return bytes;
}

} // namespace

TEST_F(Securities, IdentityWithTheMarketAlias)
{
    EXPECT_EQ(SecurityDirectory::textIdById(5, 14, 77), "1,14,77");
    Record r = dir()->recordById(5, 14, 77);
    ASSERT_FALSE(r.isEmpty());
    EXPECT_EQ(r.data("sec_code").toString(), "OPT77");
    EXPECT_TRUE(dir()->recordExists(1, 14, 77));
    EXPECT_FALSE(dir()->recordExists(1, 14, 78));
    EXPECT_EQ(dir()->recordByTextId("1,14,77"), r);
    EXPECT_TRUE(dir()->recordByTextId("5,14,77").isEmpty());   // text keys are not aliased
    EXPECT_TRUE(dir()->recordByTextId("garbage").isEmpty());
    int stock = 0, board = 0;
    long long id = 0;
    EXPECT_TRUE(dir()->idByTextId("1,14,77", stock, board, id));
    EXPECT_EQ(std::make_tuple(stock, board, id), std::make_tuple(1, 14, 77LL));
    EXPECT_EQ(db()->table("securities")->masterIndex()->getClassName(), "MasterIndex_Struct_Cached");
    EXPECT_EQ(db()->table("securities")->indexByName("isin_id")->getClassName(), "MasterIndex_Struct_Cached");
}

// Text ids that the fast parse takes and those it leaves to the master
// index's own text key find exactly what the key record finds.
TEST_F(Securities, TextIdsFindWhatTheirKeyRecordFinds)
{
    apply(QStringLiteral(R"({"table":"securities","ops":[%1,%2,%3]})")
              .arg(sec(-2147483647 - 1, 2147483647, 9223372036854775807LL, "MAXKEY", 600),
                   sec(2, 2, -9223372036854775807LL - 1, "MINKEY", 601), sec(1, 1, 0, "ZERO", 602))
              .toUtf8());
    MasterIndex_Column_Pure* master = db()->table("securities")->masterIndex();
    auto byKeyRecord = [&](QString const& text) {
        Record key = master->fromText(text);
        return key.isEmpty() ? Record() : master->at(master->search(key, -1));
    };
    QStringList const texts{"1,14,77", "1,1,10", "1,1,0", "1,1,-0", "1,1,00", "-2147483648,2147483647,9223372036854775807",
                            "2,2,-9223372036854775808", "1,14,077", " 1,14,77", "1,14,77 ", "+1,14,77", "1, 14,77",
                            "1,14,9223372036854775808", "2147483648,14,77", "1,-2147483649,77", "1,14,", ",14,77", "1,,77",
                            // out of range, and wrapping onto existing keys if taken modulo
                            "2147483648,2147483647,9223372036854775807", "2,2,9223372036854775808", "1,1,18446744073709551616",
                            "1,14", "1,14,77,0", "1;14;77", "1,14,7x", "-,14,77", "1,14,-", "", "\u0661,14,77"};
    int found = 0;
    for (QString const& text : texts) {
        Record expected = byKeyRecord(text);
        EXPECT_EQ(dir()->recordByTextId(text), expected) << text.toStdString();
        found += !expected.isEmpty();
    }
    EXPECT_GE(found, 8);   // the oracle is not trivially empty
}

TEST_F(Securities, BoardThreeResolvesToItsBoardOneTwin)
{
    EXPECT_EQ(dir()->realRecordById(1, 3, 11).data("sec_id").toInteger64(), 10);
    EXPECT_TRUE(dir()->realRecordById(1, 3, 12).isEmpty());     // exists, but has no twin
    EXPECT_EQ(dir()->realRecordById(1, 1, 16).data("sec_id").toInteger64(), 16);
    EXPECT_EQ(dir()->realRecordByTextId("1,3,11").data("sec_id").toInteger64(), 10);
    EXPECT_EQ(dir()->getSecIdByIsinId(1, 1, 100), 10);
    EXPECT_EQ(dir()->getIsinIdById(1, 3, 12), 101);
    EXPECT_EQ(dir()->getIsinIdById(1, 3, 99), 0);
}

TEST_F(Securities, ScansByCodeInIndexOrder)
{
    EXPECT_EQ(dir()->recordBySecCode("FUT", 0, 0).data("board_id").toInteger(), 1);   // (1,1,10) before (1,3,11)
    EXPECT_EQ(dir()->recordBySecCode("FUT", 1, 3).data("sec_id").toInteger64(), 11);
    EXPECT_TRUE(dir()->recordBySecCode("Fut", 0, 0).isEmpty());                          // case-sensitive
    EXPECT_EQ(dir()->getIsinIdBySecCode("fut", 0, 0), 103);
    EXPECT_EQ(dir()->getBoardIdBySecCode("", 0, false), 0);
    // PX lives on a proxy board (never returned) and on an address board.
    EXPECT_EQ(dir()->getBoardIdBySecCode("PX", 1, false), 0);
    EXPECT_EQ(dir()->getBoardIdBySecCode("PX", 1, true), 8);
    EXPECT_EQ(dir()->keysByBaseCode("BASE", 1, 3), QStringList({"1,3,11", "1,3,12"}));
    EXPECT_EQ(dir()->keysByBaseCode("BASE", 0, 0).size(), 8);
}

// A lookup that reaches another directory whose table is missing answers
// as if that directory were unbound: it never throws.
TEST_F(Securities, ScansWithoutABoardTableNeverThrow)
{
    SecurityDirectory* d = dir();
    db()->dropTable("boards");
    QSingleton<BoardDirectory>::reset();
    int board = -1;
    EXPECT_NO_THROW(board = d->getBoardIdBySecCode("PX", 1, true));
    EXPECT_EQ(board, 0);   // an unbound board directory calls every board a proxy
    EXPECT_NO_THROW(board = d->getBoardIdBySecCode("FUT", 0, false));
    EXPECT_EQ(board, 0);
}

// The directory signals only when a static column changed; a clear, which
// names no rows, must still signal.
TEST_F(Securities, AClearSignalsOnce)
{
    QSignalSpy securities(dir(), &SecurityDirectory::dataChanged);
    db()->table("securities")->clear();
    EXPECT_EQ(securities.count(), 1);
    EXPECT_TRUE(dir()->recordById(1, 14, 77).isEmpty());
}

TEST_F(Securities, FallbackTexts)
{
    EXPECT_EQ(dir()->nameById(1, 14, 77), "Name OPT77");
    EXPECT_EQ(dir()->codeById(1, 14, 78), QStringLiteral("<инструмент не найден>"));
    EXPECT_EQ(dir()->decimalsById(1, 1, 16), -1);          // null decimals
    EXPECT_EQ(dir()->decimalsById(1, 1, 99), -1);
    EXPECT_EQ(dir()->decimalsById(1, 1, 10), 2);
    EXPECT_EQ(dir()->nameByTextId("1,14,99"), "1,14,99");
    EXPECT_EQ(dir()->baseByTextId("1,14,99"), "id1.14.99");
    EXPECT_EQ(dir()->codeByTextId("1,14,99"), QStringLiteral("<инструмент не найден>"));
    EXPECT_EQ(dir()->sectypeByTextId("1,14,99"), QChar(32));
    EXPECT_EQ(dir()->nameByKey("1,14,77"), "Name OPT77");
    EXPECT_EQ(dir()->nameByRecord(Record()), QString());
    EXPECT_EQ(dir()->nameByRecord(dir()->recordById(1, 1, 10)), "Name FUT");

    SecurityDirectory* d = dir();
    db()->dropTable("securities");
    EXPECT_EQ(d->codeByTextId("1,14,77"), "1.14.77");
    EXPECT_EQ(d->baseByTextId("1,14,77"), "1.14.77");
    EXPECT_EQ(d->codeById(1, 14, 77), QStringLiteral("<инструмент не найден>"));
    EXPECT_TRUE(d->recordById(1, 14, 77).isEmpty());
    EXPECT_TRUE(d->keysByBaseCode("BASE", 0, 0).isEmpty());
}

TEST_F(Securities, OnlyStaticChangesSignal)
{
    QSignalSpy spy(dir(), &SecurityDirectory::dataChanged);
    apply(R"({"table":"securities","ops":[{"update":{"stock_id":1,"board_id":1,"sec_id":10,"bid":"101.5","ask":"102"}}]})");
    EXPECT_EQ(spy.count(), 0);
    apply(R"({"table":"securities","ops":[{"update":{"stock_id":1,"board_id":1,"sec_id":10,"sess_id":2}}]})");
    EXPECT_EQ(spy.count(), 0);   // sess_id itself is the first dynamic column
    apply(R"({"table":"securities","ops":[{"update":{"stock_id":1,"board_id":1,"sec_id":10,"decimals":4}}]})");
    EXPECT_EQ(spy.count(), 1);
    apply(R"({"table":"securities","ops":[{"delete":{"stock_id":1,"board_id":1,"sec_id":16}}]})");
    EXPECT_EQ(spy.count(), 2);
    EXPECT_EQ(dir()->bidByTextId("1,1,10").compare(decimal(QStringLiteral("101.5"))), 0);
}

TEST_F(Securities, InsertedOptionsLeaveBothVolatilityCaches)
{
    SecurityDirectory* d = dir();
    for (long long id : {77LL, 78LL, 79LL}) {
        d->volatCache(0).insert(id, new CalcVolatResult);
        d->volatCache(1).insert(id, new CalcVolatResult);
    }
    apply(QStringLiteral(R"({"table":"securities","ops":[%1,%2]})").arg(sec(1, 14, 78, "O78", 501), sec(1, 3, 79, "O79", 502)).toUtf8());
    EXPECT_FALSE(d->volatCache(0).contains(78));
    EXPECT_FALSE(d->volatCache(1).contains(78));
    EXPECT_TRUE(d->volatCache(0).contains(79));     // board 3 is not the option board
    EXPECT_TRUE(d->volatCache(1).contains(77));
    EXPECT_TRUE(d->getCalcVolatTimer()->isActive());
    db()->table("securities")->clear();
    EXPECT_EQ(d->volatCache(0).count() + d->volatCache(1).count(), 0);
}

TEST_F(Securities, DragAndDropFormats)
{
    QMimeData both;
    both.setData("application/x-gui-security", serialised({"1,14,77", "1,1,10", "1,14,77"}));
    both.setData("application/x-gui-securities", serialised({"9,9,9"}));
    both.setData("application/x-gui-putcall", QByteArray("1,14,77|1,14,78||1,14,77\0tail", 30));
    EXPECT_EQ(dir()->keysByMimeData(&both, false), QStringList({"1,14,77", "1,1,10"}));
    EXPECT_EQ(dir()->keysByMimeData(&both, true), QStringList({"1,14,77", "1,14,78", "1,14,77", "1,1,10"}));
    QMimeData many;
    many.setData("application/x-gui-securities", serialised({"1,1,10"}));
    EXPECT_EQ(dir()->keysByMimeData(&many, true), QStringList({"1,1,10"}));
    EXPECT_TRUE(dir()->keysByMimeData(nullptr, true).isEmpty());
    // A length that claims more than the payload holds ends the list.
    QByteArray forged = serialised({"1,1,10"}) + QByteArray::fromHex("7ffffff0") + "ab";
    QMimeData bad;
    bad.setData("application/x-gui-security", forged);
    EXPECT_EQ(dir()->keysByMimeData(&bad, false), QStringList({"1,1,10"}));
}
