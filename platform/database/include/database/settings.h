#pragma once
#include <database/database_export.h>
#include <QSettings>
#include <QString>
#include <QVariant>
#include <memory>

// Persistent key/value settings of one group, over QSettings. The file
// location is chosen by the program (tests use a temporary one).
class DATABASE_EXPORT Settings
{
public:
    explicit Settings(QString const& group);
    virtual ~Settings();

    QVariant value(QString const& key, QVariant const& defaultValue = QVariant()) const;
    void setValue(QString const& key, QVariant const& value);
    QString group() const { return m_group; }

    // Where every Settings object stores its values (an ini file).
    static void setStorageFile(QString const& path);
    static QString storageFile();

private:
    QString m_group;
    std::unique_ptr<QSettings> m_settings;
};
