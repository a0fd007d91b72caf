#pragma once
// Tables of participants, accounts and money, made from the product's own
// schema, and a default core set back to its defaults after each test.
#include "core_fixture.h"

#include <core/clock.h>
#include <core/defaultcore.h>


class AccountTablesTest : public CoreTablesTest
{
protected:
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
