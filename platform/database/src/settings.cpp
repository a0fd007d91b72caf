#include <database/settings.h>

#include <QMutex>

namespace {
QMutex g_storageMutex;
QString& storagePath()
{
    static QString path;
    return path;
}
} // namespace

void Settings::setStorageFile(QString const& path)
{
    QMutexLocker lock(&g_storageMutex);
    storagePath() = path;
}

QString Settings::storageFile()
{
    QMutexLocker lock(&g_storageMutex);
    return storagePath();
}

Settings::Settings(QString const& group) : m_group(group)
{
    QString path = storageFile();
    m_settings.reset(path.isEmpty() ? new QSettings() : new QSettings(path, QSettings::IniFormat));
    m_settings->beginGroup(group);
}

Settings::~Settings() = default;

QVariant Settings::value(QString const& key, QVariant const& defaultValue) const
{
    return m_settings->value(key, defaultValue);
}

void Settings::setValue(QString const& key, QVariant const& value)
{
    m_settings->setValue(key, value);
    m_settings->sync();
}
