#pragma once
#include "library.h"

#include <database/field.h>

#include <QDate>
#include <QList>
#include <QString>
#include <QtGlobal>

// Milliseconds since 1970-01-01 00:00 on the exchange's wall clock, taken as
// if it were UTC: the wall-clock digits are kept and no zone shift is ever
// applied, so a value means the same moment on every workstation. 0 means
// that there is no date-time. Columns of type 7 hold this number as is.
class DIRECTORY_EXPORT datetime
{
public:
    datetime() = default;
    // Explicit: an integer assigned to a Field must not turn into a date-time.
    explicit datetime(qint64 msecs) : m_value(msecs) {}
    // Accepts "yyyy.MM.dd HH:mm:ss.zzz", "yyyy-MM-dd HH:mm:ss", "yyyy.MM.dd"
    // and "yyyy-MM-dd", in that order; any other text gives 0.
    explicit datetime(QString const& text);

    static datetime now();

    qint64 value() const { return m_value; }
    qint64 toMSecs() const { return m_value; }
    bool isNull() const { return m_value == 0; }

    QDate getDate() const;
    // "yyyy.MM.dd HH:mm:ss.zzz"; empty for 0.
    QString toString() const;

    friend bool operator==(datetime a, datetime b) { return a.m_value == b.m_value; }
    friend bool operator!=(datetime a, datetime b) { return a.m_value != b.m_value; }
    friend bool operator<(datetime a, datetime b) { return a.m_value < b.m_value; }
    friend bool operator<=(datetime a, datetime b) { return a.m_value <= b.m_value; }
    friend bool operator>(datetime a, datetime b) { return a.m_value > b.m_value; }
    friend bool operator>=(datetime a, datetime b) { return a.m_value >= b.m_value; }

private:
    qint64 m_value = 0;
};

// A composite key: one detached value per key column, in key-column order.
typedef QList<FieldValue> KeyValue;

// The values' texts joined with ",".
DIRECTORY_EXPORT QString toString(KeyValue const& key);
