#pragma once
#include "library.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QString>
#include <QStyle>

class Ui_ConfirmationDialog;

// The Yes/No question put to the user before a transaction leaves the
// terminal. With a settings key the user may switch the question off
// ("Больше не показывать"); a switched-off question is answered "accepted"
// by exec() without showing anything. The answer is kept in the user's
// settings (AppSettings) under the group "Confirmations" unless the key
// names another group before its last "/".
//
// GUI thread only: exec() runs a modal event loop.
class DIRECTORY_EXPORT ConfirmationDialog : public QDialog
{
    Q_OBJECT
public:
    explicit ConfirmationDialog(QWidget* parent = nullptr);
    ~ConfirmationDialog() override;

    QString text() const;
    void setText(const QString& text);
    // How the main and attention texts are read (rich text is recognised by
    // default). Callers whose texts carry outside values (accounts, names)
    // set Qt::PlainText, so that no such value is taken for markup.
    Qt::TextFormat textFormat() const;
    void setTextFormat(Qt::TextFormat format);
    QString checkBoxText() const;
    // Also shows the check box.
    void setCheckBoxText(const QString& text);
    QString attentionText() const;
    // A non-empty text is shown in red.
    void setAttentionText(const QString& text);
    // Disabled, the attention area collapses to no height.
    void setAttentionTextEnabled(bool enabled);
    bool isAttentionTextEnabled() const;
    bool isCheckBoxChecked() const;
    void setCheckBoxChecked(bool checked);
    void setCheckBoxEnabled(bool enabled);
    bool isCheckBoxEnabled() const;
    QDialogButtonBox::StandardButtons standardButtons() const;
    void setStandardButtons(QDialogButtonBox::StandardButtons buttons);
    QStyle::StandardPixmap icon() const;
    void setIcon(QStyle::StandardPixmap pixmap);
    QString settingsGroup() const;
    void setSettingsGroup(const QString& group);
    QString settingsKey() const;
    // "group/key" sets both, split at the last "/"; an empty key changes
    // nothing. Shows the check box.
    void setSettingsKey(const QString& key);

    // False only when the user switched this question off; a missing or
    // non-boolean setting means "ask".
    bool shouldShowDialog() const;
    // 1 at once when the question is switched off. Otherwise asks; after Yes
    // stores whether to ask again next time (the check box unticked).
    int exec() override;

private:
    QString m_settingsGroup;
    QString m_settingsKey;
    int m_currentIcon;
    Ui_ConfirmationDialog* m_ui;
    int m_attentionHeight;
};
