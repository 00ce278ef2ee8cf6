#include "LoopbackLogState.h"

#include "LoopbackLogService.h"
#include "logwire.pb.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QMutexLocker>
#include <QRegularExpression>

#include <lz4.h>

#include <algorithm>
#include <cmath>

namespace ZrLoopback
{

namespace
{

using KeyValues = QList<QPair<QByteArray, QByteArray>>;
using Query = QMap<QByteArray, QByteArray>;

struct StoredLog {
    quint32 time = 0;
    KeyValues contents;
};

struct StoredGroup {
    QByteArray raw;
    quint32 time = 0;
    QByteArray topic;
    QByteArray source;
    KeyValues tags;
    QList<StoredLog> logs;
};

struct Shard {
    int id = 0;
    bool readOnly = false;
    QByteArray begin;
    QByteArray end;
    qint64 createTime = 0;
    QList<StoredGroup> groups;
};

struct Checkpoint {
    QByteArray cursor;
    qint64 updateTime = 0;
    QByteArray consumer;
};

struct ConsumerGroupState {
    qint64 timeout = 0;
    bool order = false;
    QList<QByteArray> consumers; // sorted
    QMap<int, Checkpoint> checkpoints;
};

struct Store {
    qint64 ttl = 0;
    qint64 createTime = 0;
    qint64 lastModifyTime = 0;
    QList<Shard> shards;
    int nextShardId = 0;
    bool hasIndex = false;
    QJsonObject index;
    QMap<QByteArray, ConsumerGroupState> consumerGroups;
};

struct Named {
    QJsonObject json;
    QList<QByteArray> configs; // applied to a machine group
};

struct SqlInstanceState {
    qint64 cu = 0;
    qint64 createTime = 0;
    qint64 updateTime = 0;
};

// A log as queries see it.
struct Row {
    quint32 time = 0;
    QByteArray topic;
    QByteArray source;
    KeyValues tags;
    KeyValues contents;
};

const QByteArray kMaxKey(32, 'f');

qint64 now()
{
    return QDateTime::currentSecsSinceEpoch();
}

QString qs(const char* text)
{
    return QString::fromLatin1(text);
}

// JSON string of @p bytes, which pass through as UTF-8.
QByteArray jsonText(const QByteArray& bytes)
{
    QByteArray out = "\"";
    for (const char c : bytes) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (uchar(c) < 0x20) {
            out += "\\u00" + QByteArray::number(uchar(c), 16).rightJustified(2, '0');
        } else {
            out += c;
        }
    }
    return out + '"';
}

QByteArray jsonObject(const KeyValues& members)
{
    QByteArray out = "{";
    for (int i = 0; i < members.size(); ++i)
        out += (i ? "," : "") + jsonText(members[i].first) + ':' + jsonText(members[i].second);
    return out + '}';
}

QByteArray compact(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray compact(const QJsonArray& array)
{
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

QJsonValue text(const QByteArray& bytes)
{
    return QString::fromUtf8(bytes);
}

QByteArray bytes(const QJsonValue& value)
{
    return value.toString().toUtf8();
}

bool isWhole(const QJsonValue& value)
{
    return value.isDouble() && std::floor(value.toDouble()) == value.toDouble();
}

QByteArray keyAt(quint64 high)
{
    return QByteArray::number(high, 16).rightJustified(16, '0') + QByteArray(16, '0');
}

bool isHexKey(const QByteArray& key)
{
    if (key.size() != 32)
        return false;
    for (const char c : key) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
            return false;
    }
    return true;
}

QByteArray encodeCursor(int position)
{
    return QByteArray::number(position).toBase64();
}

// The position a cursor names in a shard of @p size groups, or -1.
int decodeCursor(const QByteArray& cursor, int size)
{
    const auto decoded = QByteArray::fromBase64Encoding(cursor, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.isEmpty() || encodeCursor(decoded.decoded.toInt()) != cursor)
        return -1;
    bool ok = false;
    const int position = decoded.decoded.toInt(&ok);
    return ok && position >= 0 && position <= size ? position : -1;
}

bool parseNumber(const Query& query, const QByteArray& name, qint64& result, qint64 fallback)
{
    if (!query.contains(name)) {
        result = fallback;
        return true;
    }
    bool ok = false;
    result = query.value(name).toLongLong(&ok);
    return ok;
}

QJsonObject shardJson(const Shard& shard)
{
    QJsonObject object;
    object[qs("shardID")] = shard.id;
    object[qs("status")] = shard.readOnly ? qs("readonly") : qs("readwrite");
    object[qs("inclusiveBeginKey")] = text(shard.begin);
    object[qs("exclusiveEndKey")] = text(shard.end);
    object[qs("createTime")] = shard.createTime;
    return object;
}

// Terms joined by " and ": "key:value", "word", or "*".
bool matches(const QByteArray& filter, const Row& row)
{
    const QByteArray trimmed = filter.trimmed();
    if (trimmed.isEmpty() || trimmed == "*")
        return true;
    static const QRegularExpression andSplit(qs("\\s+and\\s+"), QRegularExpression::CaseInsensitiveOption);
    for (const QString& termText : QString::fromUtf8(trimmed).split(andSplit)) {
        const QByteArray term = termText.trimmed().toUtf8();
        if (term.isEmpty() || term == "*")
            continue;
        const int colon = term.indexOf(':');
        bool found = false;
        for (const auto& content : row.contents) {
            if (colon > 0)
                found = content.first == term.left(colon).trimmed()
                    && content.second == term.mid(colon + 1).trimmed();
            else
                found = content.second.contains(term);
            if (found)
                break;
        }
        if (!found)
            return false;
    }
    return true;
}

// The rows of "select count(*) as name" or "select k1, k2" over @p rows.
std::optional<QList<KeyValues>> runSelect(const QByteArray& sql, const QList<Row>& rows)
{
    static const QRegularExpression count(
        qs("^\\s*select\\s+count\\(\\*\\)\\s+as\\s+(\\w+)\\s*$"), QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression columns(
        qs("^\\s*select\\s+(\\w+(?:\\s*,\\s*\\w+)*)\\s*$"), QRegularExpression::CaseInsensitiveOption);
    const QString statement = QString::fromUtf8(sql);
    QList<KeyValues> result;
    QRegularExpressionMatch match = count.match(statement);
    if (match.hasMatch()) {
        result.append({{match.captured(1).toUtf8(), QByteArray::number(rows.size())}});
        return result;
    }
    match = columns.match(statement);
    if (!match.hasMatch())
        return std::nullopt;
    QList<QByteArray> names;
    for (const QString& name : match.captured(1).split(QLatin1Char(',')))
        names.append(name.trimmed().toUtf8());
    for (const Row& row : rows) {
        KeyValues out;
        for (const QByteArray& name : names) {
            QByteArray value = "null";
            for (const auto& content : row.contents) {
                if (content.first == name) {
                    value = content.second;
                    break;
                }
            }
            out.append({name, value});
        }
        result.append(out);
    }
    return result;
}

} // namespace

struct ProjectState {
    QMap<QByteArray, Store> stores;
    QMap<QByteArray, Named> configs;
    QMap<QByteArray, Named> machineGroups;
    std::optional<SqlInstanceState> sqlInstance;
};

class LoopbackLogState::Impl
{
public:
    QMap<QByteArray, ProjectState> projects;

    std::optional<HttpResponse> serve(const HttpRequest& request, const QByteArray& projectName);
    void addPostedGroup(
        ProjectState& project, const QByteArray& logstore, const QByteArray& hashKey, const QByteArray& raw);

    // The request being served.
    const HttpRequest* m_request = nullptr;
    QByteArray m_requestId;
    QByteArray m_project;
    Query m_query;

    HttpResponse ok(
        const QByteArray& body = QByteArray(), const QByteArray& contentType = "application/json") const
    {
        return HttpResponse(200, body, body.isEmpty() ? QByteArray() : contentType)
            .withHeader("x-log-requestid", m_requestId);
    }
    HttpResponse fail(int status, const QByteArray& code, const QByteArray& message) const
    {
        return LoopbackLogService::errorResponse(status, code, message, m_requestId);
    }
    std::optional<QJsonObject> objectBody() const
    {
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(m_request->body, &error);
        if (error.error != QJsonParseError::NoError || !document.isObject())
            return std::nullopt;
        return document.object();
    }
    HttpResponse badBody(const QByteArray& what) const
    {
        return fail(400, "ParameterInvalid", "request body invalid: " + what);
    }

    HttpResponse logstores(ProjectState& project, const QList<QByteArray>& path);
    HttpResponse index(Store& store, const QByteArray& name);
    HttpResponse queryLogs(const Store& store);
    HttpResponse shards(Store& store, const QList<QByteArray>& path);
    HttpResponse pull(Shard& shard);
    HttpResponse consumerGroups(Store& store, const QList<QByteArray>& path);
    HttpResponse named(QMap<QByteArray, Named>& map, const QList<QByteArray>& path, const char* nameMember,
        const QList<const char*>& required, const char* listMember, const char* kind, ProjectState& project);
    HttpResponse projectSql(ProjectState& project);
    HttpResponse sqlInstance(ProjectState& project);
    HttpResponse sqlAnswer(const QByteArray& sql, const QList<Row>& rows, int scanned);

    static QList<Row> rowsOf(const Store& store);
};

std::optional<HttpResponse> LoopbackLogState::Impl::serve(
    const HttpRequest& request, const QByteArray& projectName)
{
    QList<QByteArray> path = QByteArray::fromPercentEncoding(request.path).split('/');
    if (!path.isEmpty() && path.first().isEmpty())
        path.removeFirst();
    static const QList<QByteArray> ours {"logstores", "configs", "machinegroups", "logs", "sqlinstance"};
    if (path.isEmpty() || !ours.contains(path.first()))
        return std::nullopt;

    m_request = &request;
    m_project = projectName;
    m_query.clear();
    if (!request.query.isEmpty()) {
        for (const QByteArray& part : request.query.split('&')) {
            const int eq = part.indexOf('=');
            m_query.insert(QByteArray::fromPercentEncoding(eq < 0 ? part : part.left(eq)),
                QByteArray::fromPercentEncoding(eq < 0 ? QByteArray() : part.mid(eq + 1)));
        }
    }

    // Every administration request announces its body's size, "0" included.
    if (request.header("x-log-bodyrawsize") != QByteArray::number(request.body.size()))
        return fail(400, "PostBodyInvalid", "x-log-bodyrawsize does not match the body");
    if (!request.body.isEmpty() && request.header("Content-Type") != "application/json")
        return fail(400, "InvalidContentType", "request body must be application/json");

    ProjectState& project = projects[projectName];
    HttpResponse answer;
    const QByteArray& kind = path.first();
    if (kind == "logstores")
        answer = logstores(project, path);
    else if (kind == "configs" && path.size() <= 2)
        answer = named(
            project.configs, path, "configName", {"inputType", "outputType"}, "configs", "Config", project);
    else if (kind == "machinegroups")
        answer = named(project.machineGroups, path, "groupName", {"machineIdentifyType"}, "machinegroups",
            "MachineGroup", project);
    else if (kind == "logs" && path.size() == 1 && request.method == "GET")
        answer = projectSql(project);
    else if (kind == "sqlinstance" && path.size() == 1 && request.method == "POST")
        answer = sqlInstance(project);
    else
        return std::nullopt;
    if (answer.status == 0)
        return std::nullopt; // a path of ours with a method nobody serves
    return answer;
}

HttpResponse LoopbackLogState::Impl::logstores(ProjectState& project, const QList<QByteArray>& path)
{
    const QByteArray& method = m_request->method;
    if (path.size() == 1 && method == "POST") {
        const auto body = objectBody();
        if (!body || !body->value(qs("logstoreName")).isString() || !isWhole(body->value(qs("ttl")))
            || !isWhole(body->value(qs("shardCount"))))
            return badBody("logstoreName, ttl and shardCount are required");
        const QByteArray name = bytes(body->value(qs("logstoreName")));
        const int shardCount = body->value(qs("shardCount")).toInt();
        if (name.isEmpty() || shardCount < 1 || shardCount > 64)
            return badBody("logstoreName empty or shardCount outside 1 to 64");
        if (project.stores.contains(name))
            return fail(400, "LogStoreAlreadyExist", "logstore " + name + " already exists");
        Store store;
        store.ttl = body->value(qs("ttl")).toInt();
        store.createTime = store.lastModifyTime = now();
        for (int i = 0; i < shardCount; ++i) {
            Shard shard;
            shard.id = store.nextShardId++;
            shard.begin = keyAt(
                quint64((static_cast<unsigned __int128>(1) << 64) * unsigned(i) / unsigned(shardCount)));
            shard.createTime = store.createTime;
            if (i > 0)
                store.shards.last().end = shard.begin;
            store.shards.append(shard);
        }
        store.shards.last().end = kMaxKey;
        project.stores.insert(name, store);
        return ok();
    }
    if (path.size() == 1 && method == "GET") {
        qint64 offset = 0;
        qint64 size = 0;
        if (!parseNumber(m_query, "offset", offset, 0) || !parseNumber(m_query, "size", size, 500)
            || offset < 0 || size <= 0)
            return fail(400, "ParameterInvalid", "offset or size invalid");
        QJsonArray names;
        int total = 0;
        for (auto it = project.stores.cbegin(); it != project.stores.cend(); ++it) {
            if (!it.key().contains(m_query.value("logstoreName")))
                continue;
            if (total >= offset && names.size() < size)
                names.append(text(it.key()));
            ++total;
        }
        QJsonObject answer;
        answer[qs("count")] = names.size();
        answer[qs("total")] = total;
        answer[qs("logstores")] = names;
        return ok(compact(answer));
    }
    if (path.size() < 2)
        return HttpResponse(0, QByteArray());
    const QByteArray name = path[1];
    auto store = project.stores.find(name);
    if (store == project.stores.end())
        return fail(404, "LogStoreNotExist", "logstore " + name + " does not exist");
    if (path.size() == 2) {
        if (method == "GET") {
            int readWrite = 0;
            for (const Shard& shard : store->shards)
                readWrite += shard.readOnly ? 0 : 1;
            QJsonObject answer;
            answer[qs("logstoreName")] = text(name);
            answer[qs("ttl")] = store->ttl;
            answer[qs("shardCount")] = readWrite;
            answer[qs("createTime")] = store->createTime;
            answer[qs("lastModifyTime")] = store->lastModifyTime;
            return ok(compact(answer));
        }
        if (method == "PUT") {
            const auto body = objectBody();
            if (!body || bytes(body->value(qs("logstoreName"))) != name || !isWhole(body->value(qs("ttl"))))
                return badBody("logstoreName must name the logstore, ttl is required");
            if (body->contains(qs("shardCount")))
                return badBody("shardCount cannot be updated");
            store->ttl = body->value(qs("ttl")).toInt();
            store->lastModifyTime = now();
            return ok();
        }
        if (method == "DELETE") {
            project.stores.erase(store);
            return ok();
        }
        return HttpResponse(0, QByteArray());
    }
    if (path[2] == "index" && path.size() == 3)
        return index(*store, name);
    if (path[2] == "shards")
        return shards(*store, path);
    if (path[2] == "consumergroups")
        return consumerGroups(*store, path);
    return HttpResponse(0, QByteArray());
}

HttpResponse LoopbackLogState::Impl::index(Store& store, const QByteArray& name)
{
    const QByteArray& method = m_request->method;
    if (method == "GET" && m_query.contains("type"))
        return queryLogs(store);
    if (method == "GET" || method == "DELETE") {
        if (!store.hasIndex)
            return fail(404, "IndexConfigNotExist", "logstore " + name + " has no index");
        if (method == "DELETE") {
            store.hasIndex = false;
            return ok();
        }
        return ok(compact(store.index));
    }
    if (method != "POST" && method != "PUT")
        return HttpResponse(0, QByteArray());
    auto body = objectBody();
    if (!body || (!body->value(qs("line")).isObject() && !body->value(qs("keys")).isObject()))
        return badBody("an index needs line or keys");
    if (body->contains(qs("line")) && !body->value(qs("line")).toObject().value(qs("token")).isArray())
        return badBody("line without token");
    const QJsonObject keys = body->value(qs("keys")).toObject();
    for (auto it = keys.begin(); it != keys.end(); ++it) {
        if (!it->toObject().value(qs("type")).isString())
            return badBody("key " + it.key().toUtf8() + " without type");
    }
    if (method == "POST" && store.hasIndex)
        return fail(400, "IndexAlreadyExist", "logstore " + name + " already has an index");
    if (method == "PUT" && !store.hasIndex)
        return fail(404, "IndexConfigNotExist", "logstore " + name + " has no index");
    body->insert(qs("lastModifyTime"), now());
    store.index = *body;
    store.hasIndex = true;
    return ok();
}

QList<Row> LoopbackLogState::Impl::rowsOf(const Store& store)
{
    QList<Row> rows;
    for (const Shard& shard : store.shards) {
        for (const StoredGroup& group : shard.groups) {
            for (const StoredLog& log : group.logs)
                rows.append(Row {log.time, group.topic, group.source, group.tags, log.contents});
        }
    }
    std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.time < b.time; });
    return rows;
}

HttpResponse LoopbackLogState::Impl::queryLogs(const Store& store)
{
    const QByteArray type = m_query.value("type");
    const QList<Row> all = rowsOf(store);

    if (type == "topic") {
        qint64 lines = 0;
        if (!parseNumber(m_query, "line", lines, 100) || lines <= 0)
            return fail(400, "ParameterInvalid", "line invalid");
        QList<QByteArray> topics;
        for (const Row& row : all) {
            if (!row.topic.isEmpty() && row.topic > m_query.value("token") && !topics.contains(row.topic))
                topics.append(row.topic);
        }
        std::sort(topics.begin(), topics.end());
        QJsonArray answer;
        for (int i = 0; i < topics.size() && i < lines; ++i)
            answer.append(text(topics[i]));
        return ok(compact(answer)).withHeader("x-log-count", QByteArray::number(answer.size()));
    }

    qint64 from = 0;
    qint64 to = 0;
    if (!parseNumber(m_query, "from", from, -1) || !parseNumber(m_query, "to", to, -1) || from < 0
        || to <= from)
        return fail(400, "InvalidTimeRange", "from and to must give a range");
    QByteArray query = m_query.value("query");
    QByteArray sql;
    const int bar = query.indexOf('|');
    if (bar >= 0) {
        sql = query.mid(bar + 1);
        query = query.left(bar);
    }
    QList<Row> rows;
    for (const Row& row : all) {
        if (row.time >= from && row.time < to
            && (m_query.value("topic").isEmpty() || row.topic == m_query.value("topic"))
            && matches(query, row))
            rows.append(row);
    }

    if (type == "histogram") {
        const qint64 range = to - from;
        const qint64 width = range <= 3600 ? 60 : (range + 59) / 60;
        QJsonArray buckets;
        for (qint64 start = from; start < to; start += width) {
            const qint64 end = std::min(to, start + width);
            const auto count = std::count_if(rows.begin(), rows.end(),
                [&](const Row& row) { return row.time >= start && row.time < end; });
            QJsonObject bucket;
            bucket[qs("from")] = start;
            bucket[qs("to")] = end;
            bucket[qs("count")] = qint64(count);
            bucket[qs("progress")] = qs("Complete");
            buckets.append(bucket);
        }
        return ok(compact(buckets))
            .withHeader("x-log-count", QByteArray::number(rows.size()))
            .withHeader("x-log-progress", "Complete");
    }
    if (type != "log")
        return fail(400, "ParameterInvalid", "type " + type + " is not served");
    if (!sql.isEmpty()) {
        const QByteArray powerSql = m_query.value("powerSql", "false");
        if (powerSql != "true" && powerSql != "false")
            return fail(400, "ParameterInvalid", "powerSql must be true or false");
        return sqlAnswer(sql, rows, all.size());
    }

    qint64 lines = 0;
    qint64 offset = 0;
    const QByteArray reverse = m_query.value("reverse", "false");
    if (!parseNumber(m_query, "line", lines, 100) || !parseNumber(m_query, "offset", offset, 0) || lines <= 0
        || lines > 100 || offset < 0)
        return fail(400, "ParameterInvalid", "line or offset invalid");
    if (reverse != "true" && reverse != "false")
        return fail(400, "InvalidReverse", "reverse must be true or false");
    if (reverse == "true")
        std::reverse(rows.begin(), rows.end());
    QByteArray body = "[";
    int count = 0;
    for (qint64 i = offset; i < rows.size() && count < lines; ++i, ++count) {
        const Row& row = rows[int(i)];
        KeyValues members {
            {"__time__", QByteArray::number(row.time)}, {"__topic__", row.topic}, {"__source__", row.source}};
        for (const auto& tag : row.tags)
            members.append({"__tag__:" + tag.first, tag.second});
        members += row.contents;
        body += (count ? "," : "") + jsonObject(members);
    }
    body += ']';
    return ok(body)
        .withHeader("x-log-count", QByteArray::number(count))
        .withHeader("x-log-progress", "Complete");
}

HttpResponse LoopbackLogState::Impl::sqlAnswer(const QByteArray& sql, const QList<Row>& rows, int scanned)
{
    const auto result = runSelect(sql, rows);
    if (!result)
        return fail(400, "ParameterInvalid", "sql not understood: " + sql);
    QByteArray body = "[";
    for (int i = 0; i < result->size(); ++i)
        body += (i ? "," : "") + jsonObject(result->at(i));
    body += ']';
    return ok(body)
        .withHeader("x-log-count", QByteArray::number(result->size()))
        .withHeader("x-log-progress", "Complete")
        .withHeader("x-log-processoed-rows", QByteArray::number(scanned))
        .withHeader("x-log-elapsed-millisecond", "3")
        .withHeader("x-log-cpu-sec", "0.25")
        .withHeader("x-log-cpu-cores", "2");
}

HttpResponse LoopbackLogState::Impl::projectSql(ProjectState& project)
{
    static const QRegularExpression statement(
        qs("^\\s*(select\\s+.+?)\\s+from\\s+(\\w+)(?:\\s+where\\s+(\\w+)\\s*=\\s*'([^']*)')?\\s*$"),
        QRegularExpression::CaseInsensitiveOption);
    const QByteArray powerSql = m_query.value("powerSql", "false");
    if (powerSql != "true" && powerSql != "false")
        return fail(400, "ParameterInvalid", "powerSql must be true or false");
    const QRegularExpressionMatch match = statement.match(QString::fromUtf8(m_query.value("query")));
    if (!match.hasMatch())
        return fail(400, "ParameterInvalid", "sql not understood: " + m_query.value("query"));
    const QByteArray name = match.captured(2).toUtf8();
    if (!project.stores.contains(name))
        return fail(404, "LogStoreNotExist", "logstore " + name + " does not exist");
    const QList<Row> all = rowsOf(project.stores[name]);
    QList<Row> rows;
    for (const Row& row : all) {
        if (match.captured(3).isEmpty()
            || matches(match.captured(3).toUtf8() + ':' + match.captured(4).toUtf8(), row))
            rows.append(row);
    }
    return sqlAnswer(match.captured(1).toUtf8(), rows, all.size());
}

HttpResponse LoopbackLogState::Impl::shards(Store& store, const QList<QByteArray>& path)
{
    const QByteArray& method = m_request->method;
    if (path.size() == 3) {
        if (method != "GET")
            return HttpResponse(0, QByteArray());
        QJsonArray answer;
        for (const Shard& shard : store.shards)
            answer.append(shardJson(shard));
        return ok(compact(answer));
    }
    if (path.size() != 4)
        return HttpResponse(0, QByteArray());
    bool numeric = false;
    const int id = path[3].toInt(&numeric);
    auto shard
        = std::find_if(store.shards.begin(), store.shards.end(), [&](const Shard& s) { return s.id == id; });
    if (!numeric || shard == store.shards.end())
        return fail(404, "ShardNotExist", "shard " + path[3] + " does not exist");

    if (method == "GET" && m_query.value("type") == "cursor") {
        const QByteArray from = m_query.value("from");
        int position = 0;
        if (from == "begin") {
            position = 0;
        } else if (from == "end") {
            position = shard->groups.size();
        } else {
            bool ok = false;
            const qint64 time = from.toLongLong(&ok);
            if (!ok || time < 0)
                return fail(400, "ParameterInvalid", "from must be begin, end or a time");
            while (position < shard->groups.size() && shard->groups[position].time < time)
                ++position;
        }
        return ok("{\"cursor\":" + jsonText(encodeCursor(position)) + '}');
    }
    if (method == "GET" && m_query.value("type") == "log")
        return pull(*shard);
    if (method == "DELETE") {
        if (!shard->readOnly)
            return fail(400, "ParameterInvalid", "shard " + path[3] + " is readwrite");
        store.shards.erase(shard);
        return ok();
    }
    if (method != "POST")
        return HttpResponse(0, QByteArray());
    if (shard->readOnly)
        return fail(400, "ParameterInvalid", "shard " + path[3] + " is readonly");
    const QByteArray action = m_query.value("action");
    Shard first;
    Shard second;
    QJsonArray answer;
    if (action == "split") {
        const QByteArray key = m_query.value("key").toLower();
        if (!isHexKey(key) || key <= shard->begin || key >= shard->end)
            return fail(400, "ParameterInvalid", "split key " + m_query.value("key") + " outside the shard");
        first.begin = shard->begin;
        first.end = second.begin = key;
        second.end = shard->end;
        first.id = store.nextShardId++;
        second.id = store.nextShardId++;
        first.createTime = second.createTime = now();
        shard->readOnly = true;
        answer = {shardJson(*shard), shardJson(first), shardJson(second)};
        store.shards.append(first);
        store.shards.append(second);
        return ok(compact(answer));
    }
    if (action == "merge") {
        auto next = std::find_if(store.shards.begin(), store.shards.end(),
            [&](const Shard& s) { return !s.readOnly && s.begin == shard->end; });
        if (next == store.shards.end())
            return fail(400, "ParameterInvalid", "shard " + path[3] + " has no read-write neighbour");
        first.id = store.nextShardId++;
        first.begin = shard->begin;
        first.end = next->end;
        first.createTime = now();
        shard->readOnly = next->readOnly = true;
        answer = {shardJson(first), shardJson(*shard), shardJson(*next)};
        store.shards.append(first);
        return ok(compact(answer));
    }
    return fail(400, "ParameterInvalid", "action must be split or merge");
}

HttpResponse LoopbackLogState::Impl::pull(Shard& shard)
{
    if (!m_request->header("Accept-Encoding").contains("lz4"))
        return fail(400, "InvalidAcceptEncoding", "batch pulls are sent as lz4");
    if (m_request->header("accept") != "application/x-protobuf")
        return fail(400, "InvalidAcceptContentType", "batch pulls are application/x-protobuf");
    const int start = decodeCursor(m_query.value("cursor"), shard.groups.size());
    if (start < 0)
        return fail(400, "InvalidCursor", "cursor " + m_query.value("cursor") + " is invalid");
    int end = shard.groups.size();
    if (m_query.contains("end_cursor")) {
        end = decodeCursor(m_query.value("end_cursor"), shard.groups.size());
        if (end < start)
            return fail(400, "InvalidCursor", "end_cursor " + m_query.value("end_cursor") + " is invalid");
    }
    bool numeric = false;
    const int count = m_query.value("count").toInt(&numeric);
    if (!numeric || count < 1 || count > 1000)
        return fail(400, "ParameterInvalid", "count must be 1 to 1000");
    end = std::min(end, start + count);

    zrloopback::wire::LogGroupList list;
    for (int i = start; i < end; ++i)
        list.add_log_groups()->ParseFromArray(shard.groups[i].raw.constData(), shard.groups[i].raw.size());
    std::string raw;
    list.SerializeToString(&raw);
    QByteArray body(LZ4_compressBound(int(raw.size())), Qt::Uninitialized);
    body.resize(LZ4_compress_default(raw.data(), body.data(), int(raw.size()), body.size()));
    return ok(body, "application/x-protobuf")
        .withHeader("x-log-compresstype", "lz4")
        .withHeader("x-log-bodyrawsize", QByteArray::number(qulonglong(raw.size())))
        .withHeader("x-log-count", QByteArray::number(end - start))
        .withHeader("x-log-cursor", encodeCursor(end));
}

HttpResponse LoopbackLogState::Impl::consumerGroups(Store& store, const QList<QByteArray>& path)
{
    const QByteArray& method = m_request->method;
    if (path.size() == 3) {
        if (method == "POST") {
            const auto body = objectBody();
            if (!body || !body->value(qs("consumerGroup")).isString() || !isWhole(body->value(qs("timeout")))
                || !body->value(qs("order")).isBool())
                return badBody("consumerGroup, timeout and order are required");
            const QByteArray name = bytes(body->value(qs("consumerGroup")));
            if (store.consumerGroups.contains(name))
                return fail(400, "ConsumerGroupAlreadyExist", "consumer group " + name + " already exists");
            ConsumerGroupState group;
            group.timeout = body->value(qs("timeout")).toInt();
            group.order = body->value(qs("order")).toBool();
            store.consumerGroups.insert(name, group);
            return ok();
        }
        if (method != "GET")
            return HttpResponse(0, QByteArray());
        QJsonArray answer;
        for (auto it = store.consumerGroups.cbegin(); it != store.consumerGroups.cend(); ++it)
            answer.append(QJsonObject {
                {qs("name"), text(it.key())}, {qs("timeout"), it->timeout}, {qs("order"), it->order}});
        return ok(compact(answer));
    }
    if (path.size() != 4)
        return HttpResponse(0, QByteArray());
    auto group = store.consumerGroups.find(path[3]);
    if (group == store.consumerGroups.end())
        return fail(404, "ConsumerGroupNotExist", "consumer group " + path[3] + " does not exist");
    if (method == "DELETE") {
        store.consumerGroups.erase(group);
        return ok();
    }
    if (method == "GET") {
        QJsonArray answer;
        for (auto it = group->checkpoints.cbegin(); it != group->checkpoints.cend(); ++it)
            answer.append(QJsonObject {{qs("shard"), it.key()}, {qs("checkpoint"), text(it->cursor)},
                {qs("updateTime"), it->updateTime}, {qs("consumer"), text(it->consumer)}});
        return ok(compact(answer));
    }
    if (method != "POST")
        return HttpResponse(0, QByteArray());
    const QByteArray consumer = m_query.value("consumer");
    if (consumer.isEmpty())
        return fail(400, "ParameterInvalid", "consumer is required");
    // Shards dealt round the consumers: the ones @p consumer holds.
    auto held = [&]() {
        QList<int> shards;
        const int index = group->consumers.indexOf(consumer);
        int n = 0;
        for (const Shard& shard : store.shards) {
            if (shard.readOnly)
                continue;
            if (index >= 0 && n % group->consumers.size() == index)
                shards.append(shard.id);
            ++n;
        }
        return shards;
    };
    const QByteArray type = m_query.value("type");
    if (type == "heartbeat") {
        const QJsonDocument body = QJsonDocument::fromJson(m_request->body);
        if (!body.isArray())
            return badBody("a heartbeat is an array of shard ids");
        for (const QJsonValue& shard : body.array()) {
            if (!isWhole(shard))
                return badBody("a heartbeat is an array of shard ids");
        }
        if (!group->consumers.contains(consumer)) {
            group->consumers.append(consumer);
            std::sort(group->consumers.begin(), group->consumers.end());
        }
        QJsonArray answer;
        for (const int shard : held())
            answer.append(shard);
        return ok(compact(answer));
    }
    if (type != "checkpoint")
        return fail(400, "ParameterInvalid", "type must be heartbeat or checkpoint");
    const QByteArray force = m_query.value("forceSuccess");
    const auto body = objectBody();
    if (!body || !isWhole(body->value(qs("shard"))) || !body->value(qs("checkpoint")).isString()
        || (force != "true" && force != "false"))
        return badBody("shard, checkpoint and forceSuccess are required");
    const int shardId = body->value(qs("shard")).toInt();
    auto shard = std::find_if(
        store.shards.begin(), store.shards.end(), [&](const Shard& s) { return s.id == shardId; });
    if (shard == store.shards.end())
        return fail(404, "ShardNotExist", "shard " + QByteArray::number(shardId) + " does not exist");
    if (force == "false" && !held().contains(shardId))
        return fail(400, "ConsumerNotMatch", "consumer " + consumer + " does not hold the shard");
    const QByteArray cursor = bytes(body->value(qs("checkpoint")));
    if (decodeCursor(cursor, shard->groups.size()) < 0)
        return fail(400, "InvalidCursor", "checkpoint " + cursor + " is invalid");
    group->checkpoints.insert(shardId, Checkpoint {cursor, now(), consumer});
    return ok();
}

HttpResponse LoopbackLogState::Impl::named(QMap<QByteArray, Named>& map, const QList<QByteArray>& path,
    const char* nameMember, const QList<const char*>& required, const char* listMember, const char* kind,
    ProjectState& project)
{
    const QByteArray& method = m_request->method;
    const bool isGroup = &map == &project.machineGroups;
    auto checkBody = [&](const QByteArray& expectedName) -> std::optional<QJsonObject> {
        auto body = objectBody();
        if (!body || !body->value(qs(nameMember)).isString() || bytes(body->value(qs(nameMember))).isEmpty())
            return std::nullopt;
        if (!expectedName.isEmpty() && bytes(body->value(qs(nameMember))) != expectedName)
            return std::nullopt;
        for (const char* member : required) {
            if (!body->value(qs(member)).isString())
                return std::nullopt;
        }
        if (isGroup
                ? !body->value(qs("machineList")).isArray()
                : (!body->value(qs("inputDetail")).isObject() || !body->value(qs("outputDetail")).isObject()))
            return std::nullopt;
        return body;
    };
    const QByteArray missing = QByteArray(kind) + "NotExist";

    if (path.size() == 1 && method == "POST") {
        auto body = checkBody(QByteArray());
        if (!body)
            return badBody(QByteArray(nameMember) + " or a required member is missing");
        const QByteArray name = bytes(body->value(qs(nameMember)));
        if (map.contains(name))
            return fail(400, QByteArray(kind) + "AlreadyExist", name + " already exists");
        body->insert(qs("createTime"), now());
        body->insert(qs("lastModifyTime"), now());
        map.insert(name, Named {*body, {}});
        return ok();
    }
    if (path.size() == 1 && method == "GET") {
        qint64 offset = 0;
        qint64 size = 0;
        if (!parseNumber(m_query, "offset", offset, 0) || !parseNumber(m_query, "size", size, 500)
            || offset < 0 || size <= 0)
            return fail(400, "ParameterInvalid", "offset or size invalid");
        QJsonArray names;
        int total = 0;
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            if (!it.key().contains(m_query.value(nameMember)))
                continue;
            if (total >= offset && names.size() < size)
                names.append(text(it.key()));
            ++total;
        }
        QJsonObject answer;
        answer[qs("count")] = names.size();
        answer[qs("total")] = total;
        answer[qs(listMember)] = names;
        return ok(compact(answer));
    }
    if (path.size() < 2)
        return HttpResponse(0, QByteArray());
    auto entry = map.find(path[1]);
    if (entry == map.end())
        return fail(404, missing, path[1] + " does not exist");
    if (path.size() == 2) {
        if (method == "GET")
            return ok(compact(entry->json));
        if (method == "DELETE") {
            if (!isGroup) {
                for (Named& group : project.machineGroups)
                    group.configs.removeAll(path[1]);
            }
            map.erase(entry);
            return ok();
        }
        if (method == "PUT") {
            auto body = checkBody(path[1]);
            if (!body)
                return badBody(
                    QByteArray(nameMember) + " must name the resource; a required member is missing");
            body->insert(qs("createTime"), entry->json.value(qs("createTime")));
            body->insert(qs("lastModifyTime"), now());
            entry->json = *body;
            return ok();
        }
        return HttpResponse(0, QByteArray());
    }
    if (!isGroup || path[2] != "configs" || path.size() > 4)
        return HttpResponse(0, QByteArray());
    if (path.size() == 3) {
        if (method != "GET")
            return HttpResponse(0, QByteArray());
        QJsonArray configs;
        for (const QByteArray& config : entry->configs)
            configs.append(text(config));
        return ok(compact(QJsonObject {{qs("count"), configs.size()}, {qs("configs"), configs}}));
    }
    const QByteArray config = path[3];
    if (method == "PUT") {
        if (!project.configs.contains(config))
            return fail(404, "ConfigNotExist", config + " does not exist");
        if (!entry->configs.contains(config))
            entry->configs.append(config);
        return ok();
    }
    if (method == "DELETE") {
        if (!entry->configs.removeAll(config))
            return fail(404, "ConfigNotExist", config + " is not applied to " + path[1]);
        return ok();
    }
    return HttpResponse(0, QByteArray());
}

HttpResponse LoopbackLogState::Impl::sqlInstance(ProjectState& project)
{
    if (m_request->body.isEmpty()) {
        QJsonArray answer;
        if (project.sqlInstance) {
            answer.append(QJsonObject {{qs("name"), text(m_project)}, {qs("cu"), project.sqlInstance->cu},
                {qs("createTime"), project.sqlInstance->createTime},
                {qs("updateTime"), project.sqlInstance->updateTime}});
        }
        return ok(compact(answer));
    }
    const auto body = objectBody();
    if (!body || !isWhole(body->value(qs("cu"))) || body->value(qs("cu")).toInt() < 1)
        return badBody("cu must be a positive number");
    if (!project.sqlInstance)
        project.sqlInstance = SqlInstanceState {0, now(), 0};
    project.sqlInstance->cu = body->value(qs("cu")).toInt();
    project.sqlInstance->updateTime = now();
    return ok();
}

void LoopbackLogState::Impl::addPostedGroup(
    ProjectState& project, const QByteArray& logstore, const QByteArray& hashKey, const QByteArray& raw)
{
    auto store = project.stores.find(logstore);
    if (store == project.stores.end())
        return;
    zrloopback::wire::LogGroup decoded;
    if (!decoded.ParseFromArray(raw.constData(), raw.size()))
        return;
    StoredGroup group;
    auto b = [](const std::string& s) { return QByteArray(s.data(), int(s.size())); };
    group.raw = raw;
    group.topic = b(decoded.topic());
    group.source = b(decoded.source());
    for (const auto& tag : decoded.log_tags())
        group.tags.append({b(tag.key()), b(tag.value())});
    for (const auto& log : decoded.logs()) {
        StoredLog stored;
        stored.time = log.time();
        for (const auto& content : log.contents())
            stored.contents.append({b(content.key()), b(content.value())});
        group.logs.append(stored);
    }
    group.time = group.logs.isEmpty() ? quint32(now()) : group.logs.first().time;

    QByteArray key;
    if (!hashKey.isEmpty())
        key = isHexKey(hashKey) ? hashKey
                                : QCryptographicHash::hash(hashKey, QCryptographicHash::Md5).toHex();
    Shard* target = nullptr;
    for (Shard& shard : store->shards) {
        if (shard.readOnly)
            continue;
        if (!key.isEmpty() && shard.begin <= key && key < shard.end) {
            target = &shard;
            break;
        }
        if (!target || shard.begin < target->begin)
            target = &shard;
    }
    if (target)
        target->groups.append(group);
}

LoopbackLogState::LoopbackLogState()
    : d(new Impl)
{
}

LoopbackLogState::~LoopbackLogState() = default;

std::optional<HttpResponse> LoopbackLogState::serve(
    const HttpRequest& request, const QByteArray& project, const QByteArray& requestId)
{
    QMutexLocker lock(&m_mutex);
    d->m_requestId = requestId;
    return d->serve(request, project);
}

void LoopbackLogState::addPostedGroup(
    const QByteArray& project, const QByteArray& logstore, const QByteArray& hashKey, const QByteArray& raw)
{
    QMutexLocker lock(&m_mutex);
    d->addPostedGroup(d->projects[project], logstore, hashKey, raw);
}

int LoopbackLogState::groupCount(const QByteArray& project, const QByteArray& logstore, int shardId) const
{
    QMutexLocker lock(&m_mutex);
    const Store store = d->projects.value(project).stores.value(logstore);
    for (const Shard& shard : store.shards) {
        if (shard.id == shardId)
            return shard.groups.size();
    }
    return -1;
}

void LoopbackLogState::clear()
{
    QMutexLocker lock(&m_mutex);
    d->projects.clear();
}

} // namespace ZrLoopback
