#include "support.h"
#include <gtest/gtest.h>

#include <database/batchreader.h>

#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QTemporaryDir>
#include <QThread>
#include <poll.h>

namespace {
QString writeFile(QTemporaryDir const& dir, QString const& name, QByteArray const& text)
{
    QString path = dir.filePath(name);
    QFile f(path);
    f.open(QIODevice::WriteOnly);
    f.write(text);
    return path;
}

// One batch a line, inserting rows (1, from) to (1, to).
QByteArray insertLines(int from, int to, QByteArray const& separator = "\n")
{
    QByteArray text;
    for (int i = from; i <= to; ++i)
        text += QStringLiteral(R"({"table":"items","ops":[{"insert":{"grp":1,"id":%1}}]})").arg(i).toUtf8() + separator;
    return text;
}

struct ThreadRecorder : RecordingIndex
{
    ThreadRecorder() : RecordingIndex("t") {}
    QSet<QThread*> threads;
    void process(QList<Record> const&, QList<Record> const&, int, int, QList<Record> const&) override
    {
        threads.insert(QThread::currentThread());
    }
};
} // namespace

TEST(LoaderThreads, AppliesOnTheCallingThreadAndReportsProgress)
{
    TestDb t;
    QTemporaryDir dir;
    QString path = writeFile(dir, "log.jsonl", insertLines(1, 50, "\n\n"));
    ThreadRecorder rec;
    t.items->addIndex(&rec);
    int calls = 0;
    qint64 lastBytes = 0;
    int applied = t.db.loadFile(path, [&](int n, qint64 bytes, qint64 total) {
        ++calls;
        EXPECT_EQ(n, calls);
        EXPECT_GE(bytes, lastBytes);
        EXPECT_LE(bytes, total);
        lastBytes = bytes;
    });
    t.items->removeIndex(&rec);
    EXPECT_EQ(applied, 50);
    EXPECT_EQ(t.items->rowCount(), 50);
    EXPECT_EQ(rec.threads, QSet<QThread*>({QThread::currentThread()}));
}

// A consumer that must not block waits for the reader's descriptor: it turns
// readable for every batch and for the end, and only then (a wake-up always
// finds a batch to take or the end). Here the consumer is slower than the
// reader for the first half and faster for the second.
TEST(LoaderThreads, TheReadersDescriptorWakesTheConsumerForEveryBatchAndTheEnd)
{
    TestDb t;
    QTemporaryDir dir;
    BatchReader reader(t.db, writeFile(dir, "log.jsonl", insertLines(1, 40)));
    int taken = 0;
    while (true) {
        pollfd ready{reader.readyDescriptor(), POLLIN, 0};
        ASSERT_EQ(::poll(&ready, 1, 10000), 1) << "no wake-up after " << taken << " batches";
        BatchReader::Item item;
        if (!reader.tryNext(item)) {
            ASSERT_TRUE(reader.atEnd()) << "woken with nothing to take after " << taken << " batches";
            break;
        }
        ASSERT_TRUE(item.error.isEmpty()) << item.error.toStdString();
        t.db.apply(item.batch);
        ++taken;
        if (taken < 20) QThread::msleep(1);
    }
    EXPECT_EQ(taken, 40);
    EXPECT_EQ(t.items->rowCount(), 40);
    // At the end it stays readable, and tryNext keeps answering none.
    pollfd ready{reader.readyDescriptor(), POLLIN, 0};
    EXPECT_EQ(::poll(&ready, 1, 0), 1);
}

// A plain load stops at the first bad batch, naming file and line, and
// keeps what came before; an atomic one applies nothing when any fails,
// also where only the batches before it make it fail.
TEST(LoaderThreads, ABadBatchStopsALoadAndAnAtomicLoadAppliesNothing)
{
    TestDb t;
    QTemporaryDir dir;
    QString path = writeFile(dir, "bad.jsonl",
        R"({"table":"items","ops":[{"insert":{"grp":1,"id":1}}]})" "\n"
        R"({"table":"items","ops":[{"insert":{"grp":1,"id":2}},{"insert":{"grp":1,"id":1}}]})" "\n"
        R"({"table":"items","ops":[{"insert":{"grp":1,"id":3}}]})" "\n");
    try {
        t.db.loadFile(path);
        FAIL() << "accepted";
    } catch (Exception const& e) {
        EXPECT_EQ(e.message(), path + ":2: row 2: a row with key 1,1 already exists");
    }
    EXPECT_EQ(t.masterKeys(), QStringList({"1,1"}));

    QString good = writeFile(dir, "good.jsonl",
        R"({"table":"items","ops":[{"clear":true},{"insert":{"grp":1,"id":2}}]})" "\n"
        R"({"table":"items","ops":[{"delete":{"grp":1,"id":2}},{"insert":{"grp":1,"id":2}}]})" "\n");
    EXPECT_EQ(t.db.loadFileAtomically(good), 2);
    EXPECT_EQ(t.masterKeys(), QStringList({"1,2"}));
    // Line 3 deletes a row that line 2's clear removed: found in the dry run.
    for (QByteArray const& text : {QByteArray(R"({"table":"items","ops":[{"insert":{"grp":5,"id":5}}]})" "\n"
                                              R"({"table":"items","ops":[{"clear":true}]})" "\n"
                                              R"({"table":"items","ops":[{"delete":{"grp":1,"id":2}}]})" "\n"),
                                   insertLines(7, 7) + "{oops\n"}) {
        EXPECT_THROW(t.db.loadFileAtomically(writeFile(dir, "bad.jsonl", text)), Exception);
        EXPECT_EQ(t.masterKeys(), QStringList({"1,2"}));
    }
    EXPECT_THROW(t.db.loadFile(dir.filePath("missing.jsonl")), Exception);
}

// A schema loads whole or not at all, and its message names the file and the
// entry at fault. Row sizes are ints: a text column near 2^31 bytes, or
// columns that add up past what a row may hold, are refused by name rather
// than wrapping; so are decimal scales the packed forms cannot hold.
TEST(Loader, SchemaErrorsAreNamedAndCreateNoTable)
{
    Database db;
    auto messageOf = [&](QByteArray const& json) {
        try {
            db.loadSchemaJson(json, QStringLiteral("schema.json"));
        } catch (Exception const& e) {
            return e.message();
        }
        return QStringLiteral("<accepted>");
    };
    auto table = [](char const* name, char const* keyColumn, char const* more = "") {
        return QStringLiteral(R"({"name":"%1","key":["k"],"columns":[{"name":"k",%2}%3]})").arg(name, keyColumn, more);
    };
    QString const k = QStringLiteral(R"("type":1,"nullable":false)");
    auto tables = [](QStringList const& list) { return QStringLiteral(R"({"tables":[%1]})").arg(list.join(',')).toUtf8(); };
    struct Case { QByteArray json; char const* message; };
    for (Case const& c : {
             Case{tables({table("a", qPrintable(k)), table("b", R"("type":1)")}), "nullable"},   // a nullable key
             Case{"not json", "schema.json"},
             Case{tables({table("c", R"("type":6,"length":3,"nullable":false)")}), "schema.json"},
             Case{tables({table("d", R"("type":4,"scale":64,"nullable":false)")}), "scale"},
             Case{tables({table("e", R"("type":5,"scale":128,"nullable":false)")}), "scale"},
             Case{tables({table("a", qPrintable(k)), table("b", qPrintable(k)), table("a", R"("type":2,"nullable":false)")}),
                  "schema.json: table entry 3 names 'a' again (entry 1)"},
             Case{tables({table("ok", qPrintable(k)), table("memos", qPrintable(k), R"(,{"name":"memo","type":6,"length":2147483646})")}),
                  "schema.json: Table 'memos': column 'memo' has length 2147483646, more than a row may hold (1048576 bytes)"},
             Case{tables({table("wide", qPrintable(k), R"(,{"name":"a","type":6,"length":600000},{"name":"b","type":6,"length":600000})")}),
                  "schema.json: Table 'wide': its columns make a row of more than 1048576 bytes (at column 'b')"}}) {
        QString const message = messageOf(c.json);
        EXPECT_NE(message, "<accepted>") << c.json.toStdString();
        EXPECT_TRUE(message.contains(QLatin1String(c.message))) << message.toStdString();
        EXPECT_TRUE(db.tableNames().isEmpty()) << c.json.toStdString();
    }
    // The widest scale and the largest row that fit are taken.
    EXPECT_EQ(messageOf(tables({table("f", R"("type":5,"scale":100,"nullable":false)"),
                                table("roomy", qPrintable(k), R"(,{"name":"a","type":6,"length":1048000})")})),
              "<accepted>");
    EXPECT_GE(db.table("roomy")->rowSize(), 1048000);
}

// Line lengths are 64-bit: a line past the limit is refused, naming file and
// line, without being read whole; one that spans the reader's blocks is read
// like any other, and one exactly at the limit is taken.
TEST(LoaderThreads, LongLinesAreReadAcrossBlocksAndRefusedPastTheLimit)
{
    QTemporaryDir dir;
    QByteArray big = R"({"table":"items","ops":[)";
    for (int i = 1; i <= 20000; ++i)
        big += QStringLiteral(R"(%1{"insert":{"grp":2,"id":%2,"name":"%3"}})").arg(i > 1 ? "," : "").arg(i).arg(QString(20, 'x')).toUtf8();
    big += "]}";
    ASSERT_GT(big.size(), 1 << 19);   // spans the reader's blocks
    QString path = writeFile(dir, "log.jsonl",
                             R"({"table":"items","ops":[{"insert":{"grp":1,"id":1}}]})" "\n" + big + "\n"
                             R"({"table":"items","ops":[{"insert":{"grp":1,"id":2}}]})");   // no final newline

    TestDb whole;
    EXPECT_EQ(whole.db.loadFile(path), 3);
    EXPECT_EQ(whole.items->rowCount(), 20002);

    for (qint64 limit : {qint64(big.size()) - 1, qint64(100), qint64(big.size())}) {
        TestDb t;
        BatchReader reader(t.db, path, limit);
        BatchReader::Item item;
        QStringList errors;
        int batches = 0;
        for (; reader.next(item); ++batches)
            if (!item.error.isEmpty()) errors << item.error;
        bool const fits = limit == big.size();
        EXPECT_EQ(errors, fits ? QStringList() : QStringList(QStringLiteral("%1:2: the line is longer than %2 bytes").arg(path).arg(limit)));
        EXPECT_EQ(batches, fits ? 3 : 2) << limit;
        if (fits) {
            EXPECT_EQ(item.bytesRead, QFileInfo(path).size());
        }
    }
}

// A failing index does not stop a load: every batch applies, and the
// failures come together at the end.
TEST(LoaderThreads, IndexFailuresDoNotStopALoad)
{
    QTemporaryDir dir;
    QString path = writeFile(dir, "log.jsonl", insertLines(1, 4));
    for (bool atomically : {false, true}) {
        TestDb t;
        RowIndex failing;
        t.items->addIndex(&failing);
        QString const message = hookFailureOf([&] { atomically ? t.db.loadFileAtomically(path) : t.db.loadFile(path); });
        EXPECT_TRUE(message.contains("log.jsonl:2: applied to table 'items', but RowIndex failed in process: add of row 1,2: no room for id 2"))
            << message.toStdString();
        t.items->removeIndex(&failing);
        EXPECT_EQ(t.items->rowCount(), 4) << atomically;
        EXPECT_EQ(failing.keys, QStringList({"1", "3", "4"})) << atomically;
    }
}

// Several decoding threads hand the batches out in file order, however their
// decoding times interleave (every fifth line is thousands of rows, the rest
// one), and nothing after the first faulty line, though later lines (a fault
// among them) are decoded before it is taken. A consumer that stops early
// leaves the threads waiting for room, and lets them go.
TEST(LoaderThreads, ManyDecodingThreadsHandOutBatchesInFileOrderUpToTheFirstFault)
{
    QTemporaryDir dir;
    auto line = [](int id) {
        QByteArray text = QStringLiteral(R"({"table":"items","ops":[{"insert":{"grp":1,"id":%1}})").arg(id).toUtf8();
        for (int k = 1; id % 5 == 1 && k <= 3000; ++k)
            text += QStringLiteral(R"(,{"insert":{"grp":2,"id":%1,"name":"x"}})").arg(id * 10000 + k).toUtf8();
        return text + "]}\n";
    };
    QByteArray good, faulty;
    for (int id = 1; id <= 60; ++id) {
        good += line(id) + (id % 7 ? "" : "\n");   // blank lines are skipped
        faulty += id == 32 ? QByteArray("{\"table\":\"items\",\"ops\":[{\"insert\":{\"grp\":1,\"id\":01}}]}\n")
                  : id == 45 ? QByteArray("{oops\n")
                             : line(id);
    }
    QString const goodPath = writeFile(dir, "good.jsonl", good);
    QString const faultyPath = writeFile(dir, "faulty.jsonl", faulty);
    TestDb t;
    for (int decoders : {1, 2, 4}) {
        for (QString const& path : {goodPath, faultyPath}) {
            BatchReader reader(t.db, path, BatchReader::kMaxLineBytes, decoders);
            BatchReader::Item item;
            QList<qint64> ids;
            QString error;
            qint64 lastBytes = 0;
            while (reader.next(item)) {
                if (!item.error.isEmpty()) {
                    EXPECT_TRUE(error.isEmpty()) << "a second error: " << item.error.toStdString();
                    error = item.error;
                    continue;
                }
                EXPECT_GT(item.bytesRead, lastBytes);
                lastBytes = item.bytesRead;
                ids << item.batch.ops.front().image.data("id").rawInt64();
            }
            EXPECT_TRUE(reader.atEnd());
            QList<qint64> expected;
            for (qint64 id = 1; id <= (path == goodPath ? 60 : 31); ++id) expected << id;
            EXPECT_EQ(ids, expected) << decoders;
            EXPECT_EQ(error.toStdString(), path == goodPath ? std::string() : (faultyPath + ":32: row 1: bad JSON at byte 49: bad number").toStdString()) << decoders;
        }
        BatchReader early(t.db, goodPath, BatchReader::kMaxLineBytes, decoders);
        BatchReader::Item item;
        ASSERT_TRUE(early.next(item));
        EXPECT_TRUE(item.error.isEmpty());
    }
}
