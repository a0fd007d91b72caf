#pragma once
#include <core/core_export.h>
#include <QElapsedTimer>
#include <QList>
#include <QMap>
#include <QMetaType>
#include <mutex>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QVariant>

// Value types and service of transactions. Everything here is meant for the
// GUI thread; the service guards its registry anyway, so a program may fill
// it from a loader thread.

struct RawAnswer_Private;

// The channel through which the result of a transaction reaches whoever
// created the answer. Copies share one state: an answer stored into a
// transaction and answered by a transport is seen through every copy.
class CORE_EXPORT RawAnswer
{
public:
    // Result codes written by the service itself; transports use their own.
    enum : int { NoAnswer = 0, Refused = -1, NoTransport = -2 };

    RawAnswer();   // a fresh, unanswered state
    // No moves: a moved-from handle would hold no state at all. Moving
    // copies the handle, so a moved-from answer still reads and answers the
    // state it shares.
    RawAnswer(RawAnswer const&) = default;
    RawAnswer& operator=(RawAnswer const&) = default;

    bool isAnswered() const;
    int code() const;
    QString text() const;
    // Answers every copy; a later answer replaces an earlier one.
    void setAnswer(int code, QString const& text) const;

    // Same shared state.
    bool operator==(RawAnswer const& other) const { return d == other.d; }
    bool operator!=(RawAnswer const& other) const { return d != other.d; }

private:
    QSharedPointer<RawAnswer_Private> d;
};

// The markets a template lookup is for: `count` pairs of (stock id, board
// id). A template matches when it matches one of the pairs; a count of zero
// asks for every template of the message code.
struct CORE_EXPORT MarketFilter
{
    static constexpr int capacity = 50;
    struct Pair
    {
        qint32 stockId;
        qint32 boardId;
    };

    qint32 count = 0;
    Pair pairs[capacity] = {};

    static MarketFilter single(int stockId, int boardId);
};

// A transaction template. Stock or board 0 is a wildcard, so one template
// can serve a whole market or every market.
struct CORE_EXPORT TransactionMeta
{
    int messageCode = 0;
    qint32 stockId = 0;
    qint32 boardId = 0;
    QString name;
    QStringList parameters;          // must all be given to build
    QStringList optionalParameters;  // may be given
    // With no parameters declared at all, the template takes any map as is.
    bool isFreeForm() const { return parameters.isEmpty() && optionalParameters.isEmpty(); }
    bool matches(int stock, int board) const;
};

// A built transaction. The generator may overwrite the board id and the
// answer after building; the sender restarts the timer before sending.
struct CORE_EXPORT RawTransaction
{
    int messageCode = 0;
    QString templateName;
    qint32 stockId = 0;
    qint32 boardId = 0;
    QMap<QString, QVariant> params;
    RawAnswer answer;
    QElapsedTimer timer;
    QStringList missing;   // declared parameters absent from the map
    QStringList unknown;   // keys the template does not declare; not in params

    // Only a complete transaction is handed to a transport.
    bool isComplete() const { return messageCode != 0 && missing.isEmpty(); }
};

// The transaction service the core hands out. Reached by slot number like
// the core; keep the declaration order.
class CORE_EXPORT ITransactionService
{
public:
    ITransactionService() = default;
    ITransactionService(ITransactionService const&) = delete;
    ITransactionService& operator=(ITransactionService const&) = delete;

    virtual ~ITransactionService();                                         // 1, 2
    virtual void reserved3();                                               // 3
    // Templates of the code for the markets, most specific first (exact
    // board, then whole market, then every market), then in registration
    // order. `names` receives the templates' names in the same order.
    virtual QList<TransactionMeta> findTemplates(int messageCode, MarketFilter const& markets,
                                                 QList<QString>& names) const = 0;      // 4
    virtual void reserved5();                                               // 5
    // Never throws. Keys the template does not declare are left out and
    // listed in `unknown`; declared parameters that are absent are listed in
    // `missing`, which makes the transaction incomplete. A free-form template
    // takes the map whole.
    virtual RawTransaction build(TransactionMeta const& meta,
                                 QMap<QString, QVariant> const& params) const = 0;     // 6
    // 1 when a transport took the transaction, 0 when none did. An incomplete
    // transaction is refused without asking any transport; a refusal is also
    // written to the transaction's answer (Refused or NoTransport).
    virtual int send(RawTransaction const& transaction) = 0;               // 7
};

// Where sent transactions go: a connection, a log, a test recorder.
class CORE_EXPORT ITransport
{
public:
    virtual ~ITransport();
    virtual bool accepts(RawTransaction const& transaction) const = 0;
    virtual void take(RawTransaction const& transaction) = 0;
};

// The service of the default core: a registry of templates that the program
// fills and a list of transports that it plugs in. Transports are asked in
// the order they were added; the first that accepts takes the transaction.
// Transports are not owned.
class CORE_EXPORT TransactionService final : public ITransactionService
{
public:
    TransactionService();
    ~TransactionService() override;

    QList<TransactionMeta> findTemplates(int messageCode, MarketFilter const& markets,
                                         QList<QString>& names) const override;
    RawTransaction build(TransactionMeta const& meta,
                         QMap<QString, QVariant> const& params) const override;
    int send(RawTransaction const& transaction) override;

    void registerTemplate(TransactionMeta const& meta);
    void clearTemplates();
    // Replaces every registered template with those of a templates file
    // (docs/data-format.md). On a malformed file registers nothing, keeps
    // what was registered, and returns false with `error` naming the file,
    // the line or the template, and the field.
    bool loadTemplates(QString const& path, QString& error);
    bool loadTemplatesJson(QByteArray const& json, QString const& origin, QString& error);
    QList<TransactionMeta> templates() const;

    void addTransport(ITransport* transport);   // added once; null ignored
    void removeTransport(ITransport* transport);
    void clearTransports();

private:
    mutable std::mutex m_mutex;
    QList<TransactionMeta> m_templates;
    QList<ITransport*> m_transports;
};

// Keeps what it was given. Accepts the listed message codes, or every code
// when the list is empty. With a reply set, answers each transaction taken.
class CORE_EXPORT RecordingTransport : public ITransport
{
public:
    explicit RecordingTransport(QList<int> messageCodes = {});

    bool accepts(RawTransaction const& transaction) const override;
    void take(RawTransaction const& transaction) override;

    void setReply(int code, QString const& text);
    QList<RawTransaction> taken() const;
    void clear();

private:
    QList<int> m_codes;
    bool m_reply = false;
    int m_replyCode = 0;
    QString m_replyText;
    mutable std::mutex m_mutex;
    QList<RawTransaction> m_taken;
};

Q_DECLARE_METATYPE(RawAnswer)
Q_DECLARE_METATYPE(TransactionMeta)
Q_DECLARE_METATYPE(RawTransaction)
