#include "Tour.h"

#include <ZrUtils/LOGClient.h>
#include <ZrUtils/LOGException.h>
#include <ZrUtils/LogConstants.h>

#include "LoopbackLogService.h"

using namespace cloudlog_sdk_v6;

namespace
{

QString text(const std::string& s)
{
    return QString::fromStdString(s);
}

} // namespace

void tourLogAdmin(Tour& tour)
{
    tour.section(QStringLiteral("Log-service administration: a log store, a query and a batch pull"));

    ZrLoopback::LoopbackLogService service("tour-key-id", "tour-key-secret");
    LOGClient client(
        service.endpoint().toStdString(), "tour-key-id", "tour-key-secret", 10, "192.0.2.7", false);
    try {
        client.CreateLogStore("tour-project", LogStore("app-events", 30, 2));
        const ListShardsResponse shards = client.ListShards("tour-project", "app-events");
        tour.say(QStringLiteral("log store app-events created with %1 shards").arg(shards.shards.size()));
        for (const ShardItem& shard : shards.shards)
            tour.say(
                QStringLiteral("  shard %1 (%2): keys %3 up to %4")
                    .arg(shard.shardId)
                    .arg(text(shard.status), text(shard.inclusiveBeginKey), text(shard.exclusiveEndKey)));

        for (uint32_t i = 0; i < 3; ++i) {
            LogItem item;
            item.timestamp = 1700000000 + i * 30;
            item.contents = {{"event", i == 1 ? "purchase" : "page_view"}, {"step", std::to_string(i)}};
            client.PostLogStoreLogs("tour-project", "app-events", "tour", {item}, "");
        }
        const GetLogStoreLogsResponse logs = client.GetLogStoreLogs(
            "tour-project", "app-events", 1700000000, 1700000100, "tour", "event:page_view");
        tour.say(QStringLiteral("query event:page_view found %1 logs (%2)")
                     .arg(logs.count)
                     .arg(text(logs.progress)));
        tour.check(logs.logs.size() == 2, QStringLiteral("the query matched the two page views"));

        const LogStoreSqlResponse sql = client.ExecuteLogStoreSql(
            "tour-project", "app-events", 1700000000, 1700000100, "* | select count(*) as events");
        if (!sql.rows.empty() && !sql.rows.front().empty())
            tour.say(QStringLiteral("SQL count(*): %1 = %2")
                         .arg(text(sql.rows.front().front().first), text(sql.rows.front().front().second)));

        const GetCursorResponse begin = client.GetCursor("tour-project", "app-events", 0, CURSOR_MODE_BEGIN);
        const GetBatchLogResponse batch
            = client.GetBatchLog("tour-project", "app-events", 0, 100, begin.cursor);
        tour.say(QStringLiteral("pulled %1 log groups (LZ4) from shard 0, next cursor %2")
                     .arg(batch.count)
                     .arg(text(batch.nextCursor)));
        tour.check(batch.logs.size() == 3, QStringLiteral("the batch pull returned the three posted logs"));
    } catch (const LOGException& e) {
        tour.check(false,
            QStringLiteral("administration failed: %1 %2")
                .arg(text(e.GetErrorCode()), text(e.GetErrorMessage())));
    }

    // Names are checked before anything is sent.
    try {
        client.ListShards("tour-project", "");
        tour.check(false, QStringLiteral("an empty log store name is refused"));
    } catch (const LOGException& e) {
        tour.say(QStringLiteral("empty log store name: %1: %2")
                     .arg(text(e.GetErrorCode()), text(e.GetErrorMessage())));
        tour.check(
            e.GetErrorCode() == LOGE_PARAMETER_INVALID, QStringLiteral("an empty log store name is refused"));
    }
}
