#include <ZrUtils/ReportAudit.h>

#include "common/JsonText.h"
#include "report/AuditTrail.h"
#include "report/ReportWorkers.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QtDebug>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace ZrUtils
{

namespace
{

constexpr int FormatVersion = 1;
// Lines waiting for the disk beyond this are dropped (and said once): the reports
// themselves never wait for the audit log.
constexpr size_t MaxQueuedLines = 100000;

QString generationPath(const QString& folder, int generation)
{
    return generation == 0 ? folder + QStringLiteral("/report-audit.jsonl")
                           : folder + QStringLiteral("/report-audit.%1.jsonl").arg(generation);
}

QJsonValue scrubbed(const QJsonValue& value, const QStringList& secrets);

QString scrubbed(const QString& text, const QStringList& secrets)
{
    return Internal::withoutSecrets(text, secrets);
}

QJsonObject scrubbed(const QJsonObject& object, const QStringList& secrets)
{
    QJsonObject result;
    for (auto it = object.begin(); it != object.end(); ++it)
        result.insert(scrubbed(it.key(), secrets), scrubbed(it.value(), secrets));
    return result;
}

QJsonValue scrubbed(const QJsonValue& value, const QStringList& secrets)
{
    if (value.isString())
        return scrubbed(value.toString(), secrets);
    if (value.isObject())
        return scrubbed(value.toObject(), secrets);
    if (value.isArray()) {
        QJsonArray result;
        for (const QJsonValue& item : value.toArray())
            result.append(scrubbed(item, secrets));
        return result;
    }
    return value;
}

QByteArray auditLine(const Internal::AuditRecord& record)
{
    QJsonObject outcome {
        {QStringLiteral("delivered"), record.delivered}, {QStringLiteral("status"), record.status}};
    if (!record.delivered) {
        outcome.insert(QStringLiteral("error"), record.errorCode);
        outcome.insert(QStringLiteral("message"), record.errorMessage);
    }
    const QJsonObject line {
        {QStringLiteral("v"), FormatVersion},
        {QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs)},
        {QStringLiteral("channel"), record.channel},
        {QStringLiteral("host"), record.host},
        {QStringLiteral("event"), record.event},
        {QStringLiteral("fields"), record.fields},
        {QStringLiteral("outcome"), outcome},
    };
    return Internal::jsonText(scrubbed(line, record.secrets), QJsonDocument::Compact) + '\n';
}

// One thread writes every line, so reports never wait on the disk and lines from many
// threads never interleave.
class AuditWriter
{
public:
    static AuditWriter& instance()
    {
        // Never deleted: posts still running while the process exits may add lines.
        static AuditWriter* const writer = new AuditWriter;
        return *writer;
    }

    bool enable(const QString& folder, qint64 maxBytes, int generations)
    {
        const QString path
            = folder.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) : folder;
        if (path.isEmpty() || !QDir().mkpath(path))
            return false;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_folder = QDir(path).absolutePath();
        m_maxBytes = qMax<qint64>(maxBytes, 1024);
        m_generations = qMax(generations, 0);
        m_reopen = true;
        m_enabled = true;
        if (!m_thread.joinable())
            m_thread = std::thread([this] { run(); });
        return true;
    }

    void disable() { m_enabled = false; }
    bool enabled() const { return m_enabled; }

    QString folder() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_folder;
    }
    int generations() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_generations;
    }

    void add(QByteArray line)
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_queue.size() >= MaxQueuedLines) {
                if (!m_saidDropped)
                    qWarning("ZrReport: the audit log cannot keep up; lines are being dropped");
                m_saidDropped = true;
                return;
            }
            m_queue.push_back(std::move(line));
            ++m_queued;
        }
        m_wake.notify_one();
    }

    bool waitWritten(int timeoutMs)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        const quint64 target = m_queued;
        return m_written.wait_for(
            lock, std::chrono::milliseconds(timeoutMs), [&] { return m_done >= target; });
    }

private:
    AuditWriter()
    {
        // Lines of the posts that end while the process exits are still written.
        Internal::ReportWorkers::instance().addExitHooks(nullptr, [this] { waitWritten(2000); });
    }

    void run()
    {
        QFile file;
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_wake.wait(lock, [this] { return !m_queue.empty(); });
            std::deque<QByteArray> batch;
            batch.swap(m_queue);
            const bool reopen = m_reopen;
            m_reopen = false;
            const QString folder = m_folder;
            const qint64 maxBytes = m_maxBytes;
            const int generations = m_generations;
            lock.unlock();

            if (reopen)
                file.close();
            for (const QByteArray& line : batch)
                write(file, folder, maxBytes, generations, line);
            file.flush();

            lock.lock();
            m_done += batch.size();
            m_written.notify_all();
        }
    }

    void write(QFile& file, const QString& folder, qint64 maxBytes, int generations, const QByteArray& line)
    {
        if (file.isOpen() && file.size() + line.size() > maxBytes && file.size() > 0) {
            file.close();
            roll(folder, generations);
        }
        if (!file.isOpen()) {
            file.setFileName(generationPath(folder, 0));
            if (!file.open(QIODevice::WriteOnly | QIODevice::Append)) {
                if (!m_saidUnwritable)
                    qWarning().noquote() << "ZrReport: cannot write the audit log" << file.fileName() << ":"
                                         << file.errorString();
                m_saidUnwritable = true;
                return;
            }
        }
        if (file.write(line) != line.size() && !m_saidUnwritable) {
            qWarning().noquote() << "ZrReport: cannot write the audit log" << file.fileName() << ":"
                                 << file.errorString();
            m_saidUnwritable = true;
        }
    }

    static void roll(const QString& folder, int generations)
    {
        QFile::remove(generationPath(folder, generations));
        for (int generation = generations; generation > 0; --generation)
            QFile::rename(generationPath(folder, generation - 1), generationPath(folder, generation));
        if (generations == 0)
            QFile::remove(generationPath(folder, 0));
    }

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_written;
    std::deque<QByteArray> m_queue;
    quint64 m_queued = 0;
    quint64 m_done = 0;
    std::thread m_thread;
    std::atomic<bool> m_enabled {false};
    QString m_folder;
    qint64 m_maxBytes = 0;
    int m_generations = 0;
    bool m_reopen = false;
    bool m_saidDropped = false;
    bool m_saidUnwritable = false; // touched by the writer thread only
};

} // namespace

namespace Internal
{

QString withoutSecrets(QString text, const QStringList& secrets)
{
    for (const QString& secret : secrets) {
        if (!secret.isEmpty())
            text.replace(secret, QStringLiteral("***"));
    }
    // A service may quote the request's signature back (base64 of an HMAC-SHA1).
    static const QRegularExpression signature(QStringLiteral("[A-Za-z0-9+/]{27}="));
    return text.replace(signature, QStringLiteral("***"));
}

bool auditEnabled()
{
    return AuditWriter::instance().enabled();
}

void audit(const AuditRecord& record)
{
    AuditWriter& writer = AuditWriter::instance();
    if (writer.enabled())
        writer.add(auditLine(record));
}

} // namespace Internal

bool ReportAudit::enable(const QString& folder, qint64 maxBytes, int generations)
{
    return AuditWriter::instance().enable(folder, maxBytes, generations);
}

void ReportAudit::disable()
{
    AuditWriter::instance().disable();
}

bool ReportAudit::isEnabled()
{
    return AuditWriter::instance().enabled();
}

QString ReportAudit::filePath()
{
    return isEnabled() ? generationPath(AuditWriter::instance().folder(), 0) : QString();
}

bool ReportAudit::waitWritten(int timeoutMs)
{
    return AuditWriter::instance().waitWritten(timeoutMs);
}

QList<QJsonObject> ReportAudit::entries()
{
    QList<QJsonObject> result;
    if (!isEnabled())
        return result;
    waitWritten();
    const QString folder = AuditWriter::instance().folder();
    static std::atomic<bool> saidUnreadable {false};
    for (int generation = AuditWriter::instance().generations(); generation >= 0; --generation) {
        QFile file(generationPath(folder, generation));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        int unreadable = 0;
        while (!file.atEnd()) {
            const QByteArray line = file.readLine();
            QJsonParseError error;
            const QJsonObject entry = QJsonDocument::fromJson(line, &error).object();
            // A line cut short by a crash, damaged, or written by a newer version.
            if (error.error != QJsonParseError::NoError || !line.endsWith('\n')
                || entry.value(QStringLiteral("v")).toInt() != FormatVersion) {
                ++unreadable;
                continue;
            }
            result.append(entry);
        }
        if (unreadable > 0 && !saidUnreadable.exchange(true))
            qWarning().noquote() << "ZrReport: skipped" << unreadable << "unreadable lines of the audit log"
                                 << file.fileName();
    }
    return result;
}

} // namespace ZrUtils
