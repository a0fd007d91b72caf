#pragma once
#include "frame.h"

#include <core/defaultcore.h>
#include <core/icore.h>
#include <database/batch.h>
#include <database/database.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <functional>
#include <ostream>
#include <gtest/gtest.h>
#include <vector>

// Readable QStrings in assertion messages.
inline void PrintTo(QString const& s, std::ostream* os) { *os << '"' << s.toStdString() << '"'; }

// The real definitions of the named tables (data/schema.json): directories
// rest on their column order.
inline QByteArray realSchema(QStringList const& names)
{
    QFile f(QStringLiteral(SOURCE_DIR "/data/schema.json"));
    f.open(QIODevice::ReadOnly);
    QJsonArray picked;
    for (QJsonValue const& t : QJsonDocument::fromJson(f.readAll()).object().value("tables").toArray())
        if (names.contains(t.toObject().value("name").toString())) picked.append(t);
    return QJsonDocument(QJsonObject{{"tables", picked}}).toJson(QJsonDocument::Compact);
}

// The default core, but with a database and a transaction service of the
// test's choosing: a recording one, or none (a core not yet started, or
// shutting down, has no service).
class ForwardingCore : public ICore
{
public:
    Database* database() const override { return db ? db : DefaultCore::global()->database(); }
    ITransactionService* transactionService() const override { return service; }
    void notify(QString const& text, int flags, void* context, void* data) override
    {
        DefaultCore::global()->notify(text, flags, context, data);
    }
    QString currentLogin() const override { return DefaultCore::global()->currentLogin(); }
    bool passwordWarningEnabled() const override { return DefaultCore::global()->passwordWarningEnabled(); }
    int passwordWarningDays() const override { return DefaultCore::global()->passwordWarningDays(); }

    Database* db = nullptr;   // null: the default core's
    ITransactionService* service = DefaultCore::global()->transactionService();
};

// Tables made in the core's own database for one test, and directories that
// must start afresh afterwards; both are undone in TearDown.
class CoreTablesTest : public ::testing::Test
{
protected:
    Database* db() const { return ICore::instance()->database(); }

    void createTables(QByteArray const& schemaJson)
    {
        QStringList before = db()->tableNames();
        db()->loadSchemaJson(schemaJson, QStringLiteral("test-schema"));
        for (QString const& name : db()->tableNames())
            if (!before.contains(name)) m_tables << name;
    }
    // The named tables as data/schema.json defines them.
    void createSchemaTables(QStringList const& names)
    {
        createTables(realSchema(names));
        for (QString const& name : names) ASSERT_TRUE(db()->hasTable(name)) << name.toStdString();
    }
    void apply(QByteArray const& line)
    {
        db()->apply(BatchDecoder(*db()).decode(line, QStringLiteral("test:1")));
    }
    template <class X> void resetAfter() { m_resets.push_back([] { QSingleton<X>::reset(); }); }

    void TearDown() override
    {
        for (auto& reset : m_resets) reset();
        for (QString const& name : m_tables) db()->dropTable(name);
    }

private:
    QStringList m_tables;
    std::vector<std::function<void()>> m_resets;
};
