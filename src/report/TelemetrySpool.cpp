#include "report/TelemetrySpool.h"

#include "common/JsonText.h"
#include "report/ReportWorkers.h"

#include <ZrUtils/ReportConsent.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>
#include <QtDebug>

#include <map>

namespace ZrUtils
{
namespace Internal
{

namespace
{

constexpr int FormatVersion = 1;
// A journal with more "done" lines than this, and more than it has pending events,
// is rewritten with the pending ones only.
constexpr quint64 CompactAfterDoneLines = 4096;

const QString KeyVersion = QStringLiteral("v");
const QString KeyId = QStringLiteral("id");
const QString KeyDone = QStringLiteral("done");

QByteArray eventLine(quint64 id, const TelemetryEvent& event)
{
    QJsonArray contents;
    for (const auto& pair : event.contents)
        contents.append(QJsonArray {pair.first, pair.second});
    const QJsonObject line {{KeyVersion, FormatVersion}, {KeyId, qint64(id)},
        {QStringLiteral("project"), event.project}, {QStringLiteral("logstore"), event.logstore},
        {QStringLiteral("source"), event.source}, {QStringLiteral("topic"), event.topic},
        {QStringLiteral("time"), qint64(event.time)}, {QStringLiteral("contents"), contents}};
    return Internal::jsonText(line, QJsonDocument::Compact) + '\n';
}

QByteArray doneLine(quint64 id)
{
    return Internal::jsonText(
               QJsonObject {{KeyVersion, FormatVersion}, {KeyDone, qint64(id)}}, QJsonDocument::Compact)
        + '\n';
}

bool parseEvent(const QJsonObject& line, TelemetryEvent& event)
{
    event.project = line.value(QStringLiteral("project")).toString();
    event.logstore = line.value(QStringLiteral("logstore")).toString();
    event.source = line.value(QStringLiteral("source")).toString();
    event.topic = line.value(QStringLiteral("topic")).toString();
    event.time = quint32(line.value(QStringLiteral("time")).toDouble());
    const QJsonValue contents = line.value(QStringLiteral("contents"));
    if (event.project.isEmpty() || event.logstore.isEmpty() || !contents.isArray())
        return false;
    for (const QJsonValue& pair : contents.toArray()) {
        const QJsonArray kv = pair.toArray();
        if (kv.size() != 2 || !kv.at(0).isString() || !kv.at(1).isString())
            return false;
        event.contents.append({kv.at(0).toString(), kv.at(1).toString()});
    }
    return true;
}

} // namespace

TelemetrySpool& TelemetrySpool::instance()
{
    // Never deleted: its sender may still be waiting while the process exits.
    static TelemetrySpool* const spool = new TelemetrySpool;
    return *spool;
}

TelemetrySpool::TelemetrySpool()
{
    // A report allowed again may send what waited.
    QObject::connect(ReportConsent::instance(), &ReportConsent::stateChanged, [this] { wake(); });
    // At exit the post under way is waited for; the rest waits on disk for the next run.
    ReportWorkers::instance().addExitHooks([this] { stopForExit(); }, nullptr);
}

bool TelemetrySpool::enable(const QString& folder, int maxEvents, qint64 maxBytes)
{
    const QString path
        = folder.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) : folder;
    if (path.isEmpty() || !QDir().mkpath(path))
        return false;
    std::lock_guard<std::mutex> lock(m_mutex);
    const QString file = QDir(path).absoluteFilePath(QStringLiteral("telemetry-spool.jsonl"));
    if (m_enabled && file == m_path)
        return true;
    m_journal.close();
    m_pending.clear();
    m_pendingBytes = 0;
    m_path = file;
    m_maxEvents = qMax(maxEvents, 1);
    m_maxBytes = qMax<qint64>(maxBytes, 4096);
    load();
    m_journal.setFileName(m_path);
    if (!m_journal.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered)) {
        qWarning().noquote() << "ZrReport: cannot write the telemetry spool" << m_path << ":"
                             << m_journal.errorString();
        m_enabled = false;
        return false;
    }
    m_enabled = true;
    m_backoff = std::chrono::milliseconds(0);
    if (!m_thread.joinable())
        m_thread = std::thread([this] { run(); });
    m_wake.notify_all();
    return true;
}

void TelemetrySpool::disable()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_enabled = false;
    m_journal.close();
    m_pending.clear();
    m_pendingBytes = 0;
    m_idle.notify_all();
}

bool TelemetrySpool::enabled() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_enabled;
}

QString TelemetrySpool::filePath() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_enabled ? m_path : QString();
}

void TelemetrySpool::setDestination(const TelemetryDestination& destination)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_destination = destination;
    m_wake.notify_all();
}

void TelemetrySpool::load()
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return; // a first run: nothing spooled
    QByteArray setAside;
    bool hadDone = false;
    std::map<quint64, Entry> entries;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine();
        QJsonParseError error;
        const QJsonObject object = QJsonDocument::fromJson(line, &error).object();
        bool good = error.error == QJsonParseError::NoError && line.endsWith('\n')
            && object.value(KeyVersion).toInt() == FormatVersion;
        if (good && object.contains(KeyDone)) {
            entries.erase(quint64(object.value(KeyDone).toDouble()));
            hadDone = true;
        } else if (good) {
            Entry entry;
            entry.id = quint64(object.value(KeyId).toDouble());
            entry.bytes = line.size();
            good = entry.id > 0 && parseEvent(object, entry.event);
            if (good)
                entries[entry.id] = entry;
        }
        if (!good)
            setAside += line.endsWith('\n') ? line : line + '\n';
    }
    file.close();
    for (auto& pair : entries) {
        m_pendingBytes += pair.second.bytes;
        m_pending.push_back(std::move(pair.second));
    }
    m_nextId = entries.empty() ? 1 : entries.rbegin()->first + 1;
    if (!setAside.isEmpty()) {
        // Kept beside the spool for whoever wants to look; never read again.
        QFile bad(m_path + QStringLiteral(".bad"));
        if (bad.open(QIODevice::WriteOnly | QIODevice::Append))
            bad.write(setAside);
        qWarning().noquote() << "ZrReport: set aside" << setAside.count('\n')
                             << "unreadable lines of the telemetry spool in" << bad.fileName();
    }
    if (!setAside.isEmpty() || hadDone)
        compact();
}

// Rewrites the journal with the pending events only, and reopens it for appending.
void TelemetrySpool::compact()
{
    QByteArray lines;
    for (const Entry& entry : m_pending)
        lines += eventLine(entry.id, entry.event);
    const bool reopen = m_journal.isOpen();
    m_journal.close();
    QSaveFile file(m_path);
    file.setDirectWriteFallback(true);
    if (file.open(QIODevice::WriteOnly) && file.write(lines) == lines.size())
        file.commit();
    m_doneLines = 0;
    if (reopen)
        m_journal.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered);
}

bool TelemetrySpool::appendLine(const QByteArray& line)
{
    // One write per line: a kill cuts a line short at worst, and loading sets that aside.
    if (m_journal.isOpen() && m_journal.write(line) == line.size())
        return true;
    if (!m_saidUnwritable)
        qWarning().noquote() << "ZrReport: cannot write the telemetry spool" << m_path << ":"
                             << m_journal.errorString();
    m_saidUnwritable = true;
    return false;
}

void TelemetrySpool::markDone(quint64 id)
{
    if (m_pending.empty()) {
        // Nothing left to send: the journal goes back to empty.
        m_journal.resize(0);
        m_doneLines = 0;
        return;
    }
    appendLine(doneLine(id));
    if (++m_doneLines > CompactAfterDoneLines && m_doneLines > m_pending.size())
        compact();
}

bool TelemetrySpool::add(const TelemetryEvent& event)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_enabled)
            return false;
        Entry entry;
        entry.id = m_nextId;
        entry.event = event;
        const QByteArray line = eventLine(entry.id, event);
        entry.bytes = line.size();
        if (!appendLine(line))
            return false;
        ++m_nextId;
        // The oldest give way; one being sent right now is still marked done by its sender.
        while (!m_pending.empty()
            && (int(m_pending.size()) >= m_maxEvents || m_pendingBytes + entry.bytes > m_maxBytes)) {
            const quint64 dropped = m_pending.front().id;
            m_pendingBytes -= m_pending.front().bytes;
            m_pending.pop_front();
            ++m_dropped;
            appendLine(doneLine(dropped));
        }
        m_pendingBytes += entry.bytes;
        m_pending.push_back(std::move(entry));
    }
    m_wake.notify_all();
    return true;
}

void TelemetrySpool::flush()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_flushNow = true;
    m_backoff = std::chrono::milliseconds(0);
    m_wake.notify_all();
}

void TelemetrySpool::clear()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_pending.clear();
    m_pendingBytes = 0;
    if (m_enabled)
        compact();
    m_idle.notify_all();
}

int TelemetrySpool::pending() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return int(m_pending.size());
}

qint64 TelemetrySpool::dropped() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_dropped;
}

bool TelemetrySpool::waitIdle(int timeoutMs) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_idle.wait_for(lock, std::chrono::milliseconds(timeoutMs),
        [this] { return (m_pending.empty() || !m_enabled) && !m_sending; });
}

void TelemetrySpool::stopForExit()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stopping = true;
    m_wake.notify_all();
}

void TelemetrySpool::setBackoff(std::chrono::milliseconds first, std::chrono::milliseconds longest)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_firstBackoff = first;
    m_longestBackoff = longest;
}

void TelemetrySpool::wake()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_wake.notify_all();
}

bool TelemetrySpool::canSend() const
{
    return m_enabled && !m_pending.empty() && m_destination.isValid() && ReportConsent::isAllowed();
}

void TelemetrySpool::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [this] { return m_stopping || canSend(); });
        if (m_stopping)
            return;
        // Between failed attempts: wait out the back-off unless a flush asks for now.
        if (!m_flushNow && std::chrono::steady_clock::now() < m_retryAt) {
            m_wake.wait_until(lock, m_retryAt, [this] { return m_stopping || m_flushNow; });
            continue;
        }
        m_flushNow = false;
        const Entry entry = m_pending.front();
        const TelemetryDestination destination = m_destination;
        m_sending = true;
        lock.unlock();
        PostOutcome outcome;
        {
            // Counted, so that the process's exit waits for this post.
            const ReportWorkers::Ticket ticket = ReportWorkers::instance().start();
            outcome = postTelemetry(entry.event, destination);
        }
        lock.lock();
        m_sending = false;
        const bool stillFirst = !m_pending.empty() && m_pending.front().id == entry.id;
        if (outcome == PostOutcome::Retry) {
            m_backoff = qBound(m_firstBackoff, m_backoff * 2, m_longestBackoff);
            m_retryAt = std::chrono::steady_clock::now() + m_backoff;
        } else {
            m_backoff = std::chrono::milliseconds(0);
            m_retryAt = {};
            if (stillFirst && m_enabled) {
                m_pendingBytes -= m_pending.front().bytes;
                m_pending.pop_front();
                markDone(entry.id);
            }
        }
        m_idle.notify_all();
    }
}

} // namespace Internal
} // namespace ZrUtils
