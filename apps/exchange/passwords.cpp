#include "passwords.h"

#include "context.h"

#include <database/mailbox.h>

#include <QFile>
#include <QPointer>
#include <QRandomGenerator>
#include <QSaveFile>
#include <QSocketNotifier>
#include <argon2.h>
#include <condition_variable>
#include <deque>
#include <mutex>

namespace exchange {

namespace {
// argon2id's first recommended cost: 19 MiB of memory, 2 passes, 1 lane.
constexpr uint32_t kMemoryKiB = 19 * 1024;
constexpr uint32_t kPasses = 2;
constexpr uint32_t kLanes = 1;
constexpr int kSaltBytes = 16;
constexpr int kHashBytes = 32;
constexpr int kLongestPassword = 1024;
} // namespace

Users::Users(QString const& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) throw QStringLiteral("%1: %2").arg(path, file.errorString());
    int number = 0;
    while (!file.atEnd()) {
        ++number;
        QByteArray const line = file.readLine().trimmed();
        if (line.isEmpty() || line.startsWith('#')) continue;
        int const space = line.indexOf(' ');
        QString const login = QString::fromUtf8(line.left(space));
        QByteArray const hash = space < 0 ? QByteArray() : line.mid(space + 1).trimmed();
        QString const why = apps::loginProblem(login);
        if (!why.isEmpty()) throw QStringLiteral("%1:%2: %3").arg(path).arg(number).arg(why);
        if (!hash.startsWith("$argon2id$")) throw QStringLiteral("%1:%2: the login's hash is not an argon2id hash").arg(path).arg(number);
        if (m_hashes.contains(login)) throw QStringLiteral("%1:%2: the login %3 is there twice").arg(path).arg(number).arg(login);
        m_hashes.insert(login, hash);
    }
}

QByteArray Users::hash(QByteArray const& password)
{
    QByteArray salt(kSaltBytes, Qt::Uninitialized);
    QRandomGenerator::system()->generate(reinterpret_cast<quint32*>(salt.data()), reinterpret_cast<quint32*>(salt.data() + kSaltBytes));
    size_t const length = argon2_encodedlen(kPasses, kMemoryKiB, kLanes, kSaltBytes, kHashBytes, Argon2_id);
    QByteArray encoded(int(length), '\0');
    int const rc = argon2id_hash_encoded(kPasses, kMemoryKiB, kLanes, password.constData(), size_t(password.size()), salt.constData(),
                                         kSaltBytes, kHashBytes, encoded.data(), length);
    if (rc != ARGON2_OK) throw QStringLiteral("cannot hash the password: %1").arg(QString::fromUtf8(argon2_error_message(rc)));
    encoded.truncate(int(qstrlen(encoded.constData())));
    return encoded;
}

bool Users::verify(QByteArray const& encoded, QByteArray const& password)
{
    if (password.size() > kLongestPassword) return false;
    return argon2id_verify(encoded.constData(), password.constData(), size_t(password.size())) == ARGON2_OK;
}

QByteArray const& Users::decoy()
{
    static QByteArray const made = hash(QByteArray::number(QRandomGenerator::system()->generate64()));
    return made;
}

void Users::setPassword(QString const& path, QString const& login, QByteArray const& password)
{
    QString const why = apps::loginProblem(login);
    if (!why.isEmpty()) throw why;
    if (password.isEmpty()) throw QStringLiteral("a password cannot be empty");
    if (password.size() > kLongestPassword) throw QStringLiteral("a password has at most %1 bytes").arg(kLongestPassword);
    QByteArray text;
    if (QFile::exists(path)) {
        Users const existing(path);   // refuses to rewrite a file it cannot read
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) throw QStringLiteral("%1: %2").arg(path, file.errorString());
        while (!file.atEnd()) {
            QByteArray const line = file.readLine();
            QByteArray const trimmed = line.trimmed();
            int const space = trimmed.indexOf(' ');
            if (!trimmed.startsWith('#') && space > 0 && QString::fromUtf8(trimmed.left(space)) == login) continue;
            text += line;
            if (!text.endsWith('\n')) text += '\n';
        }
    } else {
        text = "# Logins of the exchange and their argon2id password hashes: directory-exchange --users FILE --add-user LOGIN\n";
    }
    text += login.toUtf8() + ' ' + hash(password) + '\n';
    QSaveFile out(path);
    if (!out.open(QIODevice::WriteOnly)) throw QStringLiteral("%1: %2").arg(path, out.errorString());
    out.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    out.write(text);
    if (!out.commit()) throw QStringLiteral("%1: %2").arg(path, out.errorString());
}

struct PasswordChecker::Shared
{
    struct Job
    {
        quint64 id = 0;
        QByteArray encoded, password;
    };
    struct Result
    {
        quint64 id = 0;
        bool ok = false;
    };
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<Job> jobs;
    bool quit = false;
    Mailbox<Result> results;
};

PasswordChecker::PasswordChecker(QObject* parent) : QObject(parent), m_shared(std::make_shared<Shared>())
{
    m_notifier = new QSocketNotifier(m_shared->results.descriptor(), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] { deliver(); });
    std::shared_ptr<Shared> const shared = m_shared;
    m_thread = std::thread([shared] {
        for (;;) {
            Shared::Job job;
            {
                std::unique_lock<std::mutex> lock(shared->mutex);
                shared->wake.wait(lock, [&] { return shared->quit || !shared->jobs.empty(); });
                if (shared->quit) return;
                job = std::move(shared->jobs.front());
                shared->jobs.pop_front();
            }
            bool const ok = Users::verify(job.encoded, job.password);
            job.password.fill('\0');
            shared->results.post(Shared::Result{job.id, ok});
        }
    });
}

PasswordChecker::~PasswordChecker()
{
    {
        std::lock_guard<std::mutex> lock(m_shared->mutex);
        m_shared->quit = true;
    }
    m_shared->wake.notify_one();
    m_thread.join();
}

void PasswordChecker::check(QByteArray const& encoded, QByteArray const& password, QObject* context, Done done)
{
    quint64 const id = ++m_nextId;
    m_pending.insert(id, Pending{context, std::move(done)});
    {
        std::lock_guard<std::mutex> lock(m_shared->mutex);
        m_shared->jobs.push_back(Shared::Job{id, encoded, password});
    }
    m_shared->wake.notify_one();
}

void PasswordChecker::deliver()
{
    Shared::Result result;
    while (m_shared->results.take(result)) {
        Pending const p = m_pending.take(result.id);
        if (p.context && p.done) p.done(result.ok);
    }
}

} // namespace exchange
