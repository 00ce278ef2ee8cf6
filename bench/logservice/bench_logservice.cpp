// The log group encoder and decoder against libprotobuf's generated code for the
// same messages, and posting against the loopback log service.
//
//   bench_logservice [--benchmark_filter=...]
#include <ZrUtils/LOGClient.h>
#include <ZrUtils/LogGroup.h>

#include "LoopbackLogService.h"
#include "logwire.pb.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

using namespace cloudlog_sdk_v6;

namespace
{

// A telemetry-like log: ten short keys with values of 8 to 40 bytes.
pb::Log makeLog(uint32_t time)
{
    pb::Log log;
    log.time = time;
    for (int i = 0; i < 10; ++i)
        log.contents.push_back({"key_" + std::to_string(i), std::string(size_t(8 + 3 * i), char('a' + i))});
    return log;
}

pb::LogGroup makeGroup(int logs)
{
    pb::LogGroup group;
    for (int i = 0; i < logs; ++i)
        group.logs.push_back(makeLog(1700000000u + uint32_t(i)));
    group.topic = "app_event";
    group.source = "192.168.1.10";
    return group;
}

zrloopback::wire::LogGroup referenceGroup(const pb::LogGroup& group)
{
    zrloopback::wire::LogGroup reference;
    for (const pb::Log& log : group.logs) {
        auto* l = reference.add_logs();
        l->set_time(log.time);
        for (const pb::LogContent& content : log.contents) {
            auto* c = l->add_contents();
            c->set_key(content.key);
            c->set_value(content.value);
        }
    }
    reference.set_topic(group.topic);
    reference.set_source(group.source);
    return reference;
}

std::string listOf100Groups()
{
    zrloopback::wire::LogGroupList list;
    const zrloopback::wire::LogGroup group = referenceGroup(makeGroup(10));
    for (int i = 0; i < 100; ++i)
        *list.add_log_groups() = group;
    return list.SerializeAsString();
}

void serializeOurs(benchmark::State& state)
{
    const pb::LogGroup group = makeGroup(int(state.range(0)));
    std::string out;
    for (auto _ : state) {
        group.SerializeToString(&out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(out.size()));
}

void serializeProtobuf(benchmark::State& state)
{
    const zrloopback::wire::LogGroup group = referenceGroup(makeGroup(int(state.range(0))));
    std::string out;
    for (auto _ : state) {
        group.SerializeToString(&out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(out.size()));
}

void parseOurs(benchmark::State& state)
{
    const std::string bytes = listOf100Groups();
    for (auto _ : state) {
        pb::LogGroupList list;
        if (!list.ParseFromString(bytes))
            state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(list.logGroups.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes.size()));
}

void parseProtobuf(benchmark::State& state)
{
    const std::string bytes = listOf100Groups();
    for (auto _ : state) {
        zrloopback::wire::LogGroupList list;
        if (!list.ParseFromString(bytes))
            state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(&list);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes.size()));
}

std::vector<LogItem> oneItem()
{
    LogItem item;
    item.timestamp = 1700000000;
    for (const pb::LogContent& content : makeLog(0).contents)
        item.contents.emplace_back(content.key, content.value);
    return {item};
}

// A client whose transport answers 200 at once: what is left is the client's own
// work per post (group building, encoding, LZ4, MD5, signing, headers).
class NoNetworkClient : public LOGClient
{
public:
    NoNetworkClient(bool compress)
        : LOGClient("127.0.0.1:1", "id", "key", 10, "192.168.1.10", compress)
    {
        sendFunc = [](const std::string&, const std::string&, int32_t, const std::string&, const std::string&,
                       const std::map<std::string, std::string>&, const std::string&, int32_t,
                       HttpMessage& message, int64_t) { message.statusCode = 200; };
    }
};

void postOverhead(benchmark::State& state)
{
    NoNetworkClient client(state.range(0) != 0);
    const std::vector<LogItem> items = oneItem();
    for (auto _ : state)
        benchmark::DoNotOptimize(client.PostLogStoreLogs("p", "store", "topic", items, ""));
}

ZrLoopback::LoopbackLogService* g_service = nullptr;
LOGClient* g_client = nullptr;

void postToLoopback(benchmark::State& state)
{
    const std::vector<LogItem> items = oneItem();
    for (auto _ : state)
        g_client->PostLogStoreLogs("p", "store", "topic", items, "");
    state.SetItemsProcessed(int64_t(state.iterations()));
    if (state.thread_index() == 0)
        g_service->clearReceived();
}

} // namespace

BENCHMARK(serializeOurs)->Name("SerializeToString/ours/logs")->Arg(1)->Arg(1000);
BENCHMARK(serializeProtobuf)->Name("SerializeToString/libprotobuf/logs")->Arg(1)->Arg(1000);
BENCHMARK(parseOurs)->Name("ParseFromString/ours/100groups");
BENCHMARK(parseProtobuf)->Name("ParseFromString/libprotobuf/100groups");
BENCHMARK(postOverhead)->Name("PostLogStoreLogs/overheadWithoutNetwork/lz4")->Arg(0)->Arg(1);
BENCHMARK(postToLoopback)
    ->Name("PostLogStoreLogs/loopback")
    ->Threads(1)
    ->Threads(4)
    ->UseRealTime()
    ->MinTime(2.0);

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ZrLoopback::LoopbackLogService service("id", "key");
    LOGClient client(service.endpoint().toStdString(), "id", "key", 10, "192.168.1.10", true);
    g_service = &service;
    g_client = &client;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
