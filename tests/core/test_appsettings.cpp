#include <core/appsettings.h>

#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <memory>

TEST(AppSettings, ValuesSurviveTheObjectAndStayInTheirGroup)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    QString previous = Settings::storageFile();
    Settings::setStorageFile(dir.filePath(QStringLiteral("terminal.ini")));

    {
        AppSettings s(QStringLiteral("Confirmations"));
        EXPECT_EQ(s.group(), QStringLiteral("Confirmations"));
        EXPECT_TRUE(s.value(QStringLiteral("questionOnDropOrder"), true).toBool());
        s.setValue(QStringLiteral("questionOnDropOrder"), false);
        s.setValue(QStringLiteral("depth"), 20);
    }
    {
        AppSettings s(QStringLiteral("Confirmations"));
        EXPECT_FALSE(s.value(QStringLiteral("questionOnDropOrder"), true).toBool());
        EXPECT_EQ(s.value(QStringLiteral("depth")).toInt(), 20);
    }
    {
        // Used through its base, as the confirmation dialog does.
        std::unique_ptr<Settings> other(new AppSettings(QStringLiteral("Trade")));
        EXPECT_TRUE(other->value(QStringLiteral("questionOnDropOrder"), true).toBool());
    }
    EXPECT_TRUE(QFileInfo::exists(dir.filePath(QStringLiteral("terminal.ini"))));

    Settings::setStorageFile(previous);
}
