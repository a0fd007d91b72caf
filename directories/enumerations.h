#pragma once
#include "codes.h"
#include "frame.h"

#include <database/field.h>

#include <QChar>
#include <QList>
#include <QObject>
#include <QString>

// Joins status words: appends `part` to `text`, after ", " when `text` is not empty.
DIRECTORY_EXPORT void appendStatus(QString& text, QString const& part);

// Buy or sell ("buysells": "buysell", "name").
class DIRECTORY_EXPORT BuySellDirectory : public Directory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(BuySellDirectory)
public:
    explicit BuySellDirectory(QObject* parent);
    // "name" of the code; empty when unknown; the code itself without a table.
    QString nameById(QChar code) const;
    QList<QChar> ids() const;
    void dependentEndUpdate(Table* table) override;
Q_SIGNALS:
    void dataChanged();

private:
    int m_buysell = -1;
    int m_name = -1;
    DirectoryKey<QChar> m_byCode;
};

// A code table with "name" and "descr" texts: statuses, security types,
// security states and session states share this shape.
class DIRECTORY_EXPORT CodeTextDirectory : public Directory
{
    Q_OBJECT
public:
    QString nameByKey(Field const& key) const;
    QString descrByKey(Field const& key) const;
    void dependentEndUpdate(Table* table) override;
Q_SIGNALS:
    void dataChanged();

protected:
    CodeTextDirectory(QObject* parent, QMetaObject const& cls, QString const& keyColumn);
    QList<FieldValue> keyList() const;
    // What a lookup answers when the table is gone.
    virtual QString missingTableText(Field const& key) const;
    virtual bool answersEmptyForNullKey() const { return false; }

    int m_key = -1;
    int m_name = -1;
    int m_descr = -1;
    DirectoryKey<Field> m_byKey;

private:
    QString textByKey(Field const& key, int column) const;
};

class DIRECTORY_EXPORT StatusDirectory : public CodeTextDirectory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(StatusDirectory)
public:
    explicit StatusDirectory(QObject* parent);
    QList<FieldValue> keys() const { return keyList(); }
};

class DIRECTORY_EXPORT SecTypeDirectory : public CodeTextDirectory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(SecTypeDirectory)
public:
    explicit SecTypeDirectory(QObject* parent);
    QList<FieldValue> keys() const { return keyList(); }

protected:
    QString missingTableText(Field const& key) const override;
    bool answersEmptyForNullKey() const override { return true; }
};

class DIRECTORY_EXPORT SecStateDirectory : public CodeTextDirectory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(SecStateDirectory)
public:
    explicit SecStateDirectory(QObject* parent);
    QList<FieldValue> keys() const { return keyList(); }
};

class DIRECTORY_EXPORT SessStateDirectory : public CodeTextDirectory
{
    Q_OBJECT
    DIRECTORY_SINGLETON(SessStateDirectory)
public:
    explicit SessStateDirectory(QObject* parent);
};

// Fixed vocabularies without a table. They keep no state and never signal.
class DIRECTORY_EXPORT PriceDirectionDirectory : public QObject
{
    Q_OBJECT
    DIRECTORY_SINGLETON(PriceDirectionDirectory)
public:
    explicit PriceDirectionDirectory(QObject* parent) : QObject(parent) {}
    QString nameByKey(Field const& key) const;
Q_SIGNALS:
    void dataChanged();
};

class DIRECTORY_EXPORT OptioTypeDirectory : public QObject
{
    Q_OBJECT
    DIRECTORY_SINGLETON(OptioTypeDirectory)
public:
    explicit OptioTypeDirectory(QObject* parent) : QObject(parent) {}
    QString nameByKey(QChar const& key) const;
    QString nameByKey(Field const& key) const;
Q_SIGNALS:
    void dataChanged();
};

class DIRECTORY_EXPORT OptioCalcDirectory : public QObject
{
    Q_OBJECT
    DIRECTORY_SINGLETON(OptioCalcDirectory)
public:
    explicit OptioCalcDirectory(QObject* parent) : QObject(parent) {}
    QString nameByKey(Field const& key) const;
Q_SIGNALS:
    void dataChanged();
};
