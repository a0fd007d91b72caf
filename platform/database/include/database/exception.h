#pragma once
#include "database_export.h"
#include <QString>

// The error object thrown by the database and by value conversions.
class DATABASE_EXPORT Exception
{
public:
    explicit Exception(QString const& message);
    virtual ~Exception();
    QString const& message() const { return m_message; }

private:
    QString m_message;
};
