#include "core_fixture.h"
#include "enumerations.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTranslator>

namespace {

char const kVocabularies[] = R"({"tables":[
  {"name":"buysells","key":["buysell"],"columns":[{"name":"buysell","type":6,"length":2,"nullable":false},{"name":"name","type":8}]},
  {"name":"statuses","key":["status"],"columns":[{"name":"status","type":6,"length":2,"nullable":false},{"name":"name","type":8},{"name":"descr","type":8}]},
  {"name":"sectypes","key":["sectype"],"columns":[{"name":"sectype","type":6,"length":2,"nullable":false},{"name":"name","type":8},{"name":"descr","type":8}]}]})";

class Enumerations : public CoreTablesTest
{
protected:
    void SetUp() override
    {
        createTables(kVocabularies);
        apply(R"({"table":"buysells","ops":[{"insert":{"buysell":"S","name":"Продажа"}},{"insert":{"buysell":"B","name":"Покупка"}}]})");
        apply(R"({"table":"statuses","ops":[{"insert":{"status":"A","name":"Активна","descr":"Заявка активна"}},{"insert":{"status":"W","name":"Снята"}}]})");
        apply(R"({"table":"sectypes","ops":[{"insert":{"sectype":"F","name":"Фьючерс"}},{"insert":{"sectype":"O","name":"Опцион"}}]})");
        resetAfter<BuySellDirectory>();
        resetAfter<StatusDirectory>();
        resetAfter<SecTypeDirectory>();
    }
    // A key carried by a one-character or a variable-string value.
    static FieldValue key(QString const& text, int type = FieldType::VarChar)
    {
        if (type == FieldType::Char) return FieldConstValue(text.at(0));
        FieldType t{FieldType::VarChar, int(sizeof(QString)), 0};
        QString s = text;
        unsigned char flag = 1;
        return FieldValue(Field(&t, reinterpret_cast<unsigned char*>(&s), &flag, 1));
    }
    void dropAll()
    {
        for (char const* name : {"buysells", "statuses", "sectypes"}) db()->dropTable(name);
    }
};

} // namespace

TEST_F(Enumerations, LookupsHitMissAndFallBackWithoutTheTable)
{
    BuySellDirectory* bs = BuySellDirectory::i();
    EXPECT_EQ(bs->nameById('B'), QStringLiteral("Покупка"));
    EXPECT_EQ(bs->nameById('X'), QString());
    EXPECT_EQ(bs->ids(), QList<QChar>({'B', 'S'}));     // master-index order

    StatusDirectory* st = StatusDirectory::i();
    EXPECT_EQ(st->nameByKey(key("A", FieldType::Char)), QStringLiteral("Активна"));
    EXPECT_EQ(st->descrByKey(key("A")), QStringLiteral("Заявка активна"));   // a text key converts
    EXPECT_EQ(st->descrByKey(key("W")), QString());
    EXPECT_EQ(st->nameByKey(key("Z")), QString());
    QList<FieldValue> keys = st->keys();
    ASSERT_EQ(keys.size(), 2);
    EXPECT_EQ(keys[1].toString(), "W");

    SecTypeDirectory* sec = SecTypeDirectory::i();
    EXPECT_EQ(sec->nameByKey(Fld_SecTypes::Option), QStringLiteral("Опцион"));
    EXPECT_EQ(sec->nameByKey(FieldValue()), QString());   // no value: empty

    dropAll();
    EXPECT_EQ(bs->nameById('B'), "B");
    EXPECT_TRUE(bs->ids().isEmpty());
    EXPECT_EQ(st->nameByKey(key("A")), "A");
    EXPECT_EQ(sec->nameByKey(key("O")), "ID_O");
    EXPECT_TRUE(sec->keys().isEmpty());
}

TEST_F(Enumerations, SignalOncePerBatchOfTheirTable)
{
    QSignalSpy spy(BuySellDirectory::i(), &BuySellDirectory::dataChanged);
    apply(R"({"table":"buysells","ops":[{"update":{"buysell":"B","name":"Buy"}},{"update":{"buysell":"S","name":"Sell"}}]})");
    apply(R"({"table":"statuses","ops":[{"update":{"status":"W","name":"x"}}]})");
    EXPECT_EQ(spy.count(), 1);
    EXPECT_EQ(BuySellDirectory::i()->nameById('S'), "Sell");
}

TEST(FixedVocabularies, TextsCaseAndOrder)
{
    EXPECT_EQ(OptioTypeDirectory::i()->nameByKey(QChar('P')), QStringLiteral("Пут"));
    EXPECT_EQ(OptioTypeDirectory::i()->nameByKey(QChar('C')), QStringLiteral("Колл"));
    EXPECT_EQ(OptioTypeDirectory::i()->nameByKey(QChar('c')), QString());   // codes are case-sensitive
    EXPECT_EQ(OptioTypeDirectory::i()->nameByKey(Fld_OptioType::Put), QStringLiteral("Пут"));
    EXPECT_EQ(PriceDirectionDirectory::i()->nameByKey(Fld_PriceDirs::Desc), QStringLiteral("Обратное"));
    EXPECT_EQ(PriceDirectionDirectory::i()->nameByKey(Fld_OptioType::Call), QString());
    EXPECT_EQ(OptioCalcDirectory::i()->nameByKey(Fld_OptioCalc::AmerB), QStringLiteral("Американский: Маржируемый"));
    EXPECT_EQ(OptioCalcDirectory::i()->nameByKey(FieldValue()), QString());
    // Translated when asked, not once when built: the language can change.
    QTranslator english;
    ASSERT_TRUE(english.load(QStringLiteral("libdirectory_en"), QStringLiteral(TRANSLATIONS_DIR)));
    QCoreApplication::installTranslator(&english);
    EXPECT_EQ(OptioTypeDirectory::i()->nameByKey(QChar('P')), "Put");
    QCoreApplication::removeTranslator(&english);
    EXPECT_EQ(OptioTypeDirectory::i()->nameByKey(QChar('P')), QStringLiteral("Пут"));
}
