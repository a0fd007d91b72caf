#pragma once
#include <database/database_export.h>
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

// Thrown by the database after a batch (or a clear, build or rebuild) has
// been applied whole while one or more indexes failed in their calls: the
// table and its master index hold the change, every index had its
// remaining calls and every begin its end; the message names each failing
// index, the call and, where known, the row.
class DATABASE_EXPORT HookFailure : public Exception
{
public:
    using Exception::Exception;
    ~HookFailure() override;
};
