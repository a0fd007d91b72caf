#include "trading_fixture.h"

#include <QDir>
#include <QLabel>

namespace {

class ConfirmationDialogTest : public ::testing::Test
{
protected:
    static QVariant stored(QString const& group, QString const& key) { return Settings(group).value(key); }

    // Asks once with `key`, answered as told; returns exec()'s result.
    static int ask(QString const& key, ModalAnswerer::Action action, bool tick, bool* shown = nullptr)
    {
        ConfirmationDialog dialog(nullptr);
        dialog.setSettingsKey(key);
        ModalAnswerer answerer(action, tick);
        int result = dialog.exec();
        EXPECT_FALSE(answerer.timedOut);
        if (shown) *shown = answerer.seen;
        return result;
    }

    TemporarySettings settings;
};

// The form's own texts and buttons are the .ui file's; here what the code adds.
TEST_F(ConfirmationDialogTest, FormAsBuilt)
{
    ConfirmationDialog dialog(nullptr);
    EXPECT_FALSE(dialog.windowFlags() & Qt::WindowContextHelpButtonHint);
    auto* checkBox = dialog.findChild<QCheckBox*>("checkBox");
    auto* iconLabel = dialog.findChild<QLabel*>("iconLabel");
    auto* attention = dialog.findChild<QLabel*>("attentionLabel");
    ASSERT_TRUE(checkBox && iconLabel && attention);
    EXPECT_FALSE(iconLabel->pixmap(Qt::ReturnByValue).isNull());
    EXPECT_EQ(dialog.icon(), QStyle::SP_MessageBoxQuestion);

    // The check box comes with a key or a text of its own; attention starts collapsed.
    EXPECT_TRUE(checkBox->isHidden());
    EXPECT_FALSE(dialog.isAttentionTextEnabled());
    EXPECT_EQ(attention->maximumHeight(), 0);
    dialog.setAttentionTextEnabled(true);
    EXPECT_GT(attention->maximumHeight(), 0);
    dialog.setCheckBoxText("Remember");
    EXPECT_FALSE(checkBox->isHidden());
    // Attention text is red only when given.
    dialog.setAttentionText(QString());
    EXPECT_TRUE(attention->styleSheet().isEmpty());
    dialog.setAttentionText("Careful");
    EXPECT_EQ(attention->styleSheet(), "QLabel {color: #ff0000;}");
}

// A key without a group starts in "Confirmations"; an empty one changes nothing.
TEST_F(ConfirmationDialogTest, SettingsKeySplitsAtTheLastSlash)
{
    ConfirmationDialog dialog(nullptr);
    struct Case { char const* key; char const* group; char const* name; };
    for (Case c : {Case{"questionOnDropOrder", "Confirmations", "questionOnDropOrder"}, Case{"Trade/quick", "Trade", "quick"},
                   Case{"A/B/c", "A/B", "c"}, Case{"", "A/B", "c"}}) {
        SCOPED_TRACE(c.key);
        dialog.setSettingsKey(c.key);
        EXPECT_EQ(dialog.settingsGroup(), c.group);
        EXPECT_EQ(dialog.settingsKey(), c.name);
    }
}

TEST_F(ConfirmationDialogTest, AnswersAreKeptOnlyAfterYes)
{
    bool shown = false;
    // No and closing store nothing, ticked or not.
    EXPECT_EQ(ask("questionOnDropOrder", ModalAnswerer::PressNo, true, &shown), QDialog::Rejected);
    EXPECT_TRUE(shown);
    EXPECT_EQ(ask("questionOnDropOrder", ModalAnswerer::CloseWindow, true, &shown), QDialog::Rejected);
    EXPECT_TRUE(shown);
    EXPECT_FALSE(stored("Confirmations", "questionOnDropOrder").isValid());

    // Yes unticked keeps asking; Yes ticked switches the question off.
    EXPECT_EQ(ask("questionOnDropOrder", ModalAnswerer::PressYes, false), QDialog::Accepted);
    EXPECT_EQ(stored("Confirmations", "questionOnDropOrder").toString(), "true");
    EXPECT_EQ(ask("questionOnDropOrder", ModalAnswerer::PressYes, true), QDialog::Accepted);
    EXPECT_EQ(stored("Confirmations", "questionOnDropOrder").toString(), "false");
    EXPECT_GT(QFileInfo(settings.dir.filePath("settings.ini")).size(), 0);   // in the file the program chose

    // Switched off: answered at once, nothing shown.
    EXPECT_EQ(ask("questionOnDropOrder", ModalAnswerer::PressNo, false, &shown), QDialog::Accepted);
    EXPECT_FALSE(shown);
    // Other keys and groups are their own questions.
    EXPECT_EQ(ask("Other/questionOnDropOrder", ModalAnswerer::PressNo, false, &shown), QDialog::Rejected);
    EXPECT_TRUE(shown);
}

TEST_F(ConfirmationDialogTest, WithoutAKeyItAlwaysAsksAndKeepsNothing)
{
    for (int round = 0; round < 2; ++round) {
        ConfirmationDialog dialog(nullptr);
        ModalAnswerer answerer(ModalAnswerer::PressYes);
        EXPECT_EQ(dialog.exec(), QDialog::Accepted);
        EXPECT_TRUE(answerer.seen);
        EXPECT_FALSE(answerer.checkBoxVisible);
    }
    EXPECT_FALSE(QFile::exists(Settings::storageFile()) && QFile(Settings::storageFile()).size() > 0);
}

TEST_F(ConfirmationDialogTest, OnlyAStoredFalseSwitchesAQuestionOff)
{
    ConfirmationDialog dialog(nullptr);
    dialog.setSettingsKey("Confirmations/q");
    struct Case { QVariant value; bool ask; };
    for (Case c : {Case{QVariant(), true}, Case{false, false}, Case{true, true}, Case{"false", false},
                   Case{"no idea", true}, Case{0, true}, Case{QStringList{"a", "b"}, true}}) {
        SCOPED_TRACE(c.value.toString().toStdString());
        Settings("Confirmations").setValue("q", c.value);
        EXPECT_EQ(dialog.shouldShowDialog(), c.ask);
    }
}

// The picture in the docs: rendered here when DIRECTORY_SCREENSHOT_DIR is set.
TEST_F(ConfirmationDialogTest, Screenshot)
{
    QString dir = qEnvironmentVariable("DIRECTORY_SCREENSHOT_DIR");
    ConfirmationDialog dialog(nullptr);
    dialog.setWindowTitle(QStringLiteral("Отмена заявки"));
    dialog.setText(QStringLiteral("Вы действительно хотите отменить заявку?\nПокупка по цене 12.50 в количестве 7 Alfa fut со счёта ACC1"));
    dialog.setTextFormat(Qt::PlainText);
    dialog.setSettingsKey("questionOnDropOrder");
    ModalAnswerer answerer(ModalAnswerer::PressNo);
    QPixmap shot;
    answerer.inspect = [&](ConfirmationDialog* shown) { shot = shown->grab(); };
    dialog.exec();
    ASSERT_FALSE(shot.isNull());
    EXPECT_GE(shot.width(), 200);
    if (!dir.isEmpty()) {
        EXPECT_TRUE(shot.save(QDir(dir).filePath("confirmation-dialog.png")));
    }
}

} // namespace
