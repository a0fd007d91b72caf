#include "confirmationdialog.h"

#include "ui_confirmationdialog.h"

#include <core/appsettings.h>

#include <QColor>
#include <QIcon>
#include <QVariant>

namespace {

const int kIconSize = 64;

// Only a stored boolean switches a question off; anything else the settings
// may hold (a foreign value, a typo in a hand-edited file) means "ask".
// Boolean values come back from a settings file as the words true/false.
bool storedAnswer(QVariant const& value)
{
    if (value.type() == QVariant::Bool) return value.toBool();
    if (value.type() == QVariant::String) {
        QString word = value.toString().trimmed();
        if (word.compare(QLatin1String("false"), Qt::CaseInsensitive) == 0) return false;
    }
    return true;
}

} // namespace

ConfirmationDialog::ConfirmationDialog(QWidget* parent)
    : QDialog(parent, Qt::WindowFlags()),
      m_settingsGroup(QStringLiteral("Confirmations")),
      m_currentIcon(-1),
      m_ui(new Ui_ConfirmationDialog),
      m_attentionHeight(0)
{
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    m_ui->setupUi(this);
    setIcon(QStyle::SP_MessageBoxQuestion);
    m_ui->checkBox->hide();
    m_attentionHeight = m_ui->attentionLabel->height();
    setAttentionTextEnabled(false);
}

ConfirmationDialog::~ConfirmationDialog() { delete m_ui; }

QString ConfirmationDialog::text() const { return m_ui->textLabel->text(); }
void ConfirmationDialog::setText(const QString& text) { m_ui->textLabel->setText(text); }

Qt::TextFormat ConfirmationDialog::textFormat() const { return m_ui->textLabel->textFormat(); }
void ConfirmationDialog::setTextFormat(Qt::TextFormat format)
{
    m_ui->textLabel->setTextFormat(format);
    m_ui->attentionLabel->setTextFormat(format);
}

QString ConfirmationDialog::checkBoxText() const { return m_ui->checkBox->text(); }
void ConfirmationDialog::setCheckBoxText(const QString& text)
{
    m_ui->checkBox->setText(text);
    m_ui->checkBox->show();
}

QString ConfirmationDialog::attentionText() const { return m_ui->attentionLabel->text(); }
void ConfirmationDialog::setAttentionText(const QString& text)
{
    m_ui->attentionLabel->setText(text);
    if (!text.isEmpty())
        m_ui->attentionLabel->setStyleSheet(QStringLiteral("QLabel {color: %1;}").arg(QColor(Qt::red).name()));
}

void ConfirmationDialog::setAttentionTextEnabled(bool enabled)
{
    m_ui->attentionLabel->setEnabled(enabled);
    m_ui->attentionLabel->setFixedHeight(enabled ? m_attentionHeight : 0);
}
bool ConfirmationDialog::isAttentionTextEnabled() const { return m_ui->attentionLabel->isEnabled(); }

bool ConfirmationDialog::isCheckBoxChecked() const { return m_ui->checkBox->isChecked(); }
void ConfirmationDialog::setCheckBoxChecked(bool checked) { m_ui->checkBox->setChecked(checked); }
void ConfirmationDialog::setCheckBoxEnabled(bool enabled) { m_ui->checkBox->setEnabled(enabled); }
bool ConfirmationDialog::isCheckBoxEnabled() const { return m_ui->checkBox->isEnabled(); }

QDialogButtonBox::StandardButtons ConfirmationDialog::standardButtons() const
{
    return m_ui->buttonBox->standardButtons();
}
void ConfirmationDialog::setStandardButtons(QDialogButtonBox::StandardButtons buttons)
{
    m_ui->buttonBox->setStandardButtons(buttons);
}

QStyle::StandardPixmap ConfirmationDialog::icon() const { return QStyle::StandardPixmap(m_currentIcon); }
void ConfirmationDialog::setIcon(QStyle::StandardPixmap pixmap)
{
    if (int(pixmap) == m_currentIcon) return;
    m_currentIcon = pixmap;
    QIcon icon = style()->standardIcon(pixmap);
    m_ui->iconLabel->setPixmap(icon.pixmap(kIconSize, kIconSize, QIcon::Normal, QIcon::Off));
}

QString ConfirmationDialog::settingsGroup() const { return m_settingsGroup; }
void ConfirmationDialog::setSettingsGroup(const QString& group) { m_settingsGroup = group; }

QString ConfirmationDialog::settingsKey() const { return m_settingsKey; }
void ConfirmationDialog::setSettingsKey(const QString& key)
{
    if (key.isEmpty()) return;
    int slash = key.lastIndexOf(QLatin1Char('/'));
    if (slash >= 0) {
        m_settingsGroup = key.left(slash);
        m_settingsKey = key.mid(slash + 1);
    } else {
        m_settingsKey = key;
    }
    m_ui->checkBox->show();
}

bool ConfirmationDialog::shouldShowDialog() const
{
    if (m_settingsKey.isEmpty()) return true;
    return storedAnswer(AppSettings(m_settingsGroup).value(m_settingsKey, true));
}

int ConfirmationDialog::exec()
{
    if (!shouldShowDialog()) return QDialog::Accepted;
    m_ui->checkBox->setChecked(false);
    int result = QDialog::exec();
    if (result != QDialog::Accepted) return result;
    if (m_settingsKey.isEmpty()) return QDialog::Accepted;
    AppSettings(m_settingsGroup).setValue(m_settingsKey, !m_ui->checkBox->isChecked());
    return QDialog::Accepted;
}
