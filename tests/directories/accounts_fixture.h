#pragma once
// Tables of participants, accounts and money, made from the product's own
// schema, and a default core set back to its defaults after each test.
#include "core_fixture.h"

#include <core/clock.h>
#include <core/defaultcore.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

class AccountTablesTest : public CoreTablesTest
{
protected:
    // The named tables of data/schema.json.
    void createSchemaTables(QStringList const& names)
    {
        QFile file(QStringLiteral(SOURCE_DIR "/data/schema.json"));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        QJsonArray picked;
        for (QJsonValue const& t : QJsonDocument::fromJson(file.readAll()).object().value("tables").toArray())
            if (names.contains(t.toObject().value("name").toString())) picked.append(t);
        ASSERT_EQ(picked.size(), names.size());
        createTables(QJsonDocument(QJsonObject{{"tables", picked}}).toJson(QJsonDocument::Compact));
    }
    static DefaultCore* core() { return DefaultCore::global(); }

    void TearDown() override
    {
        CoreTablesTest::TearDown();
        core()->clearNotifications();
        core()->setCurrentLogin(QString());
        core()->setPasswordWarningEnabled(true);
        core()->setPasswordWarningDays(7);
        Clock::useSystem();
    }
};
