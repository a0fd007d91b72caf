#include "support.h"
#include <gtest/gtest.h>

#include <QRegularExpression>

namespace {

QString messageOf(TestDb& t, QByteArray const& line)
{
    try {
        t.apply(line);
    } catch (Exception const& e) {
        return e.message();
    }
    return QStringLiteral("<accepted>");
}

// A line the decoder must refuse as malformed JSON. `fault` is the text the
// reported byte must fall in (its first occurrence in the line, or the end of
// the line just after it); `row` is the operation the fault lies in, 0 for
// none.
struct Malformed
{
    char const* name;
    QByteArray line;
    QByteArray fault;
    int row;
};

class MalformedLine : public ::testing::TestWithParam<Malformed> {};

TEST_P(MalformedLine, IsRefusedNamingTheByteOfTheFault)
{
    TestDb t;
    Malformed const& c = GetParam();
    QString const message = messageOf(t, c.line);
    QString const row = c.row ? QStringLiteral("row %1: ").arg(c.row) : QString();
    QRegularExpressionMatch const m =
        QRegularExpression(QStringLiteral("^inline:1: %1bad JSON at byte (\\d+): .+$").arg(QRegularExpression::escape(row))).match(message);
    ASSERT_TRUE(m.hasMatch()) << message.toStdString();
    int const byte = m.captured(1).toInt();
    int const first = c.line.indexOf(c.fault) + 1;
    ASSERT_GT(first, 0) << "the case's fault is not in its line";
    EXPECT_GE(byte, first) << message.toStdString();
    EXPECT_LE(byte, first + c.fault.size()) << message.toStdString();
    EXPECT_EQ(t.items->rowCount(), 0);
}

#define ROW(ops) "{\"table\":\"items\",\"ops\":[" ops "]}"

INSTANTIATE_TEST_SUITE_P(Grammar, MalformedLine, ::testing::Values(
    // The batch's own object.
    Malformed{"NotAnObject", "[1]", "[", 0},
    Malformed{"TextAfterTheBatch", ROW(R"({"clear":true})") " x", "x", 0},
    Malformed{"SecondBatchOnTheLine", ROW(R"({"clear":true})") ROW(R"({"clear":true})"), "]}{", 0},
    Malformed{"ClosedTwice", ROW(R"({"clear":true})") "}", "]}}", 0},
    Malformed{"TruncatedBatch", R"({"table":"items","ops":[{"clear":true}])", "}]", 0},
    Malformed{"MissingColon", R"({"table" "items","ops":[]})", "\"items\"", 0},
    Malformed{"MissingComma", R"({"table":"items" "ops":[]})", "\"ops\"", 0},
    Malformed{"TrailingCommaInTheBatch", R"({"table":"items","ops":[],})", ",}", 0},
    Malformed{"TableGivenTwice", R"({"table":"items","table":"items","ops":[]})", "\"table\":\"items\",\"ops\"", 0},
    Malformed{"OpsGivenTwice", R"({"table":"items","ops":[],"ops":[]})", "\"ops\":[]}", 0},
    Malformed{"UnknownKey", R"({"table":"items","ops":[],"extra":1})", "\"extra\"", 0},
    Malformed{"TableNotAString", R"({"table":7,"ops":[]})", "7", 0},
    Malformed{"KeyNotAString", R"({table:"items","ops":[]})", "table", 0},
    // Operations and rows.
    Malformed{"TrailingCommaInOps", ROW(R"({"clear":true},)"), "]}", 2},
    Malformed{"TrailingCommaInARow", ROW(R"({"insert":{"grp":1,"id":1,}})"), ",}}", 1},
    Malformed{"MissingCommaInARow", ROW(R"({"insert":{"grp":1 "id":1}})"), "\"id\"", 1},
    Malformed{"BadLiteral", ROW(R"({"insert":{"grp":1,"id":1,"qty":nul}})"), "nul}", 1},
    Malformed{"CapitalisedLiteral", ROW(R"({"insert":{"grp":1,"id":1,"qty":Null}})"), "Null", 1},
    Malformed{"BadTrue", ROW(R"({"clear":tru})"), "tru}", 1},
    // Numbers outside the grammar.
    Malformed{"LeadingZero", ROW(R"({"insert":{"grp":01,"id":1}})"), "01", 1},
    Malformed{"BarePoint", ROW(R"({"insert":{"grp":1,"id":1,"ratio":1.}})"), "1.}", 1},
    Malformed{"PlusSign", ROW(R"({"insert":{"grp":+1,"id":1}})"), "+1", 1},
    Malformed{"LeadingPoint", ROW(R"({"insert":{"grp":1,"id":1,"ratio":.5}})"), ".5", 1},
    Malformed{"EmptyExponent", ROW(R"({"insert":{"grp":1,"id":1,"ratio":1e}})"), "1e}", 1},
    Malformed{"SignedEmptyExponent", ROW(R"({"insert":{"grp":1,"id":1,"ratio":1e+}})"), "1e+", 1},
    Malformed{"MinusAlone", ROW(R"({"insert":{"grp":-,"id":1}})"), "-,", 1},
    Malformed{"HexNumber", ROW(R"({"insert":{"grp":0x1,"id":1}})"), "0x1", 1},
    Malformed{"NotANumber", ROW(R"({"insert":{"grp":1,"id":1,"ratio":NaN}})"), "NaN", 1},
    // Strings.
    Malformed{"BadEscape", ROW(R"({"insert":{"grp":1,"id":1,"name":"a\qb"}})"), R"("a\qb")", 1},
    Malformed{"ShortUnicodeEscape", ROW(R"({"insert":{"grp":1,"id":1,"name":"\u12"}})"), R"("\u12")", 1},
    Malformed{"NonHexUnicodeEscape", ROW(R"({"insert":{"grp":1,"id":1,"name":"\u12G4"}})"), R"("\u12G4")", 1},
    Malformed{"LoneHighSurrogate", ROW(R"({"insert":{"grp":1,"id":1,"name":"\ud800x"}})"), R"("\ud800x")", 1},
    Malformed{"HighSurrogateBeforeAnother", ROW(R"({"insert":{"grp":1,"id":1,"name":"\ud800\u0041"}})"), R"("\ud800\u0041")", 1},
    Malformed{"LoneLowSurrogate", ROW(R"({"insert":{"grp":1,"id":1,"name":"\udc00"}})"), R"("\udc00")", 1},
    Malformed{"BadEscapeInAColumnName", ROW(R"({"insert":{"grp":1,"id":1,"n\ame":"x"}})"), R"("n\ame")", 1},
    Malformed{"UnterminatedString", R"({"table":"items","ops":[{"insert":{"grp":1,"id":1,"name":"abc)", "\"abc", 0},
    Malformed{"RawControlCharacter", ROW("{\"insert\":{\"grp\":1,\"id\":1,\"name\":\"a\x01z\"}}"), "\x01", 0},
    Malformed{"RawTabInAString", ROW("{\"insert\":{\"grp\":1,\"id\":1,\"name\":\"a\tz\"}}"), "\t", 0},
    Malformed{"InvalidUtf8", ROW("{\"insert\":{\"grp\":1,\"id\":1,\"name\":\"a\xff" "z\"}}"), "\xff", 0},
    Malformed{"TruncatedUtf8", ROW("{\"insert\":{\"grp\":1,\"id\":1,\"name\":\"a\xd0\"}}"), "\xd0", 0},
    Malformed{"EncodedSurrogateInUtf8", ROW("{\"insert\":{\"grp\":1,\"id\":1,\"name\":\"\xed\xa0\x80\"}}"), "\xed", 0},
    Malformed{"ByteOrderMark", "\xef\xbb\xbf" ROW(R"({"clear":true})"), "\xef", 0}),
    [](::testing::TestParamInfo<Malformed> const& info) { return std::string(info.param.name); });

#undef ROW

} // namespace

// Whitespace anywhere the grammar allows it, escapes in names, the ops before
// the table's name and every accepted form of a number decode as they read.
TEST(BatchDecoder, AcceptsEveryFormTheGrammarAllows)
{
    TestDb t;
    t.apply(" \t{ \"ops\" : [ { \"insert\" : { \"gr\\u0070\" : 1 , \"id\" : \"4300000001\" , \"ratio\" : -0.5E-2 ,"
            " \"price\" : 12.5 , \"volume\" : \"-0\" , \"qty\" : -0 , \"code\" : \"\\/\\u0041\" } } ,"
            " {\"insert\":{\"grp\":3,\"id\":7,\"ratio\":1E+2,\"name\":null,\"moment\":\"2026-11-20\"}} ] ,"
            " \"table\" : \"items\" } \r");
    ASSERT_EQ(t.masterKeys(), QStringList({"1,4300000001", "3,7"}));
    Record r = t.items->masterIndex()->at(0);
    EXPECT_EQ(r.data("ratio").rawDouble(), -0.005);
    EXPECT_EQ(r.data("price").toString(), "12.50");
    EXPECT_EQ(r.data("volume").toString(), "0.000");
    EXPECT_EQ(r.data("qty").rawInt32(), 0);
    EXPECT_EQ(r.data("code").toString(), "/A");
    r = t.items->masterIndex()->at(1);
    EXPECT_EQ(r.data("ratio").rawDouble(), 100.0);
    EXPECT_FALSE(r.data("name").hasValue());
    EXPECT_EQ(r.data("moment").toString(), "2026.11.20 00:00:00.000");
}
