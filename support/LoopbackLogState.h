// The administration and query side of the loopback log service: log stores with
// shards, indexes, collection configurations, machine groups, consumer groups
// with checkpoints and SQL instances, kept in memory per project, and the logs
// posted to existing log stores, which it queries, counts and serves back as
// LZ4-compressed log group lists.
//
// Its conventions, where the service leaves them open:
// - A new log store's shards split the key space (32 hex digits) evenly. A post
//   with a hash key goes to the read-write shard owning the key (the key itself
//   when it is 32 hex digits, else its MD5); without one, to the read-write shard
//   with the lowest begin key.
// - A cursor is the base64 of a group's position in its shard ("MA==" is the
//   first). A group's time, for cursors by time, is its first log's time.
// - Queries: "", "*", "key:value" (equal contents), "word" (a value containing
//   it), joined by " and ". After "|", "select count(*) as name" or "select
//   k1, k2". A project query reads "select ... from store [where key = 'v']".
// - Histogram buckets are 60 s wide up to an hour's range, a sixtieth of it
//   beyond.
// - Heartbeats deal the read-write shards in id order round the consumers in
//   name order.
#ifndef ZRUTILS_SUPPORT_LOOPBACKLOGSTATE_H
#define ZRUTILS_SUPPORT_LOOPBACKLOGSTATE_H

#include "LoopbackHttpServer.h"

#include <QByteArray>
#include <QMutex>

#include <memory>
#include <optional>

namespace ZrLoopback
{

class LoopbackLogState
{
public:
    LoopbackLogState();
    ~LoopbackLogState();

    LoopbackLogState(const LoopbackLogState&) = delete;
    LoopbackLogState& operator=(const LoopbackLogState&) = delete;

    // Answers an administration or query request that passed the signature
    // checks; nothing when the request is none of those this state serves.
    std::optional<HttpResponse> serve(
        const HttpRequest& request, const QByteArray& project, const QByteArray& requestId);
    // Files a posted log group (its uncompressed encoding) into the shard it
    // belongs to; ignored when the log store does not exist.
    void addPostedGroup(const QByteArray& project, const QByteArray& logstore, const QByteArray& hashKey,
        const QByteArray& raw);

    // Groups held by a shard, for the tests; -1 when there is no such shard.
    int groupCount(const QByteArray& project, const QByteArray& logstore, int shardId) const;
    // Forgets every project.
    void clear();

private:
    class Impl;
    mutable QMutex m_mutex;
    std::unique_ptr<Impl> d;
};

} // namespace ZrLoopback

#endif
