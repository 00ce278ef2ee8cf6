// Arbitrary answers to the administration and query calls of the log-service client,
// delivered through the client's replaceable transport, so that the real readers of
// every call run on them.
//
// Input: one byte choosing the call, one byte choosing the status, then header lines
// ("name: value" and CRLF) up to an empty line, read by the transport's header
// parser, then the body.
//
// Properties: a call returns or throws LOGException and nothing else; an answer other
// than 200 always throws, with that status; a 200 answer that cannot be read throws
// "BadResponse" with status 200 and the answer's request id; a model that was read
// writes a JSON text that reads back into the same model.
#include <ZrUtils/LOGClient.h>
#include <ZrUtils/LOGException.h>

#include "logservice/HeaderParser.h"

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

using namespace cloudlog_sdk_v6;

namespace
{

const int Statuses[] = {200, 200, 200, 200, 400, 403, 404, 500, 503};

struct Answer {
    int status = 200;
    std::map<std::string, std::string> header;
    std::string body;
};

Answer answerOf(const uint8_t* data, size_t size)
{
    Answer answer;
    answer.status = Statuses[data[1] % (sizeof(Statuses) / sizeof(Statuses[0]))];
    const std::string rest(reinterpret_cast<const char*>(data + 2), size - 2);
    size_t at = 0;
    while (at < rest.size()) {
        // Each line with its terminator, as the transport hands it to the parser.
        const size_t end = rest.find('\n', at);
        const size_t next = end == std::string::npos ? rest.size() : end + 1;
        const std::string line = rest.substr(at, next - at);
        at = next;
        if (line == "\n" || line == "\r\n")
            break;
        ParseResponseHeaderLine(line.data(), line.size(), answer.header);
    }
    answer.body = rest.substr(at);
    return answer;
}

class AnsweredClient : public LOGClient
{
public:
    explicit AnsweredClient(const Answer& answer)
        : LOGClient("127.0.0.1:1", "id", "key", 10, "127.0.0.1", false)
    {
        getDateStringFunc = [] { return std::string("Mon, 01 Jan 2024 00:00:00 GMT"); };
        sendFunc = [answer](const std::string&, const std::string&, const int32_t, const std::string&,
                       const std::string&, const std::map<std::string, std::string>&, const std::string&,
                       const int32_t, HttpMessage& message, const int64_t) {
            message.statusCode = answer.status;
            message.header = answer.header;
            message.content = answer.body;
        };
    }
};

[[noreturn]] void violated()
{
    __builtin_trap();
}

// The model writes a text that reads back into a model writing the same text.
template<typename Model> void readsBack(const Model& model)
{
    const std::string text = model.ToJsonString();
    Model again;
    try {
        again.FromJsonString(text);
    } catch (const LOGException&) {
        violated();
    }
    if (again.ToJsonString() != text)
        violated();
}

template<typename Model> void eachReadsBack(const std::vector<Model>& models)
{
    for (const Model& model : models)
        readsBack(model);
}

void isSuccess(const Response& response, const Answer& answer)
{
    if (answer.status != 200 || response.statusCode != 200)
        violated();
    const auto id = answer.header.find("x-log-requestid");
    if (id != answer.header.end() && response.requestId != id->second)
        violated();
}

// A successful answer holding one model, which reads back.
template<typename Result> void isSuccessWithModel(const Result& result, const Answer& answer)
{
    isSuccess(result, answer);
    readsBack(result.result);
}

void call(LOGClient& client, unsigned which, const Answer& answer)
{
    const std::string p = "project", s = "store";
    switch (which) {
    case 0:
        isSuccessWithModel(client.GetLogStore(p, s), answer);
        break;
    case 1:
    case 2:
    case 3:
    case 4: {
        const ListNamesResponse r = which == 1 ? client.ListLogStores(p, "", 0, 100)
            : which == 2                       ? client.ListConfigs(p, "", 0, 100)
            : which == 3                       ? client.ListMachineGroups(p, 0, 100)
                                               : client.GetAppliedConfigs(p, "group");
        isSuccess(r, answer);
        // The applied configurations carry no total of their own.
        if (which == 4 && r.total != r.count)
            violated();
        break;
    }
    case 5:
        isSuccessWithModel(client.GetIndex(p, s), answer);
        break;
    case 6:
        isSuccessWithModel(client.GetConfig(p, "config"), answer);
        break;
    case 7:
        isSuccessWithModel(client.GetMachineGroup(p, "group"), answer);
        break;
    case 8: {
        const auto r = client.ListConsumerGroup(p, s);
        isSuccess(r, answer);
        eachReadsBack(r.consumerGroups);
        break;
    }
    case 9: {
        const auto r = client.ConsumerGroupHeartbeat(p, s, "group", "consumer", {0, 1});
        isSuccess(r, answer);
        break;
    }
    case 10: {
        const auto r = client.ListCheckpoint(p, s, "group");
        isSuccess(r, answer);
        eachReadsBack(r.checkpoints);
        break;
    }
    case 11:
    case 12:
    case 13: {
        const auto r = which == 11 ? client.ListShards(p, s)
            : which == 12          ? client.SplitShard(p, s, 0, "7f")
                                   : client.MergeShard(p, s, 0);
        isSuccess(r, answer);
        eachReadsBack(r.shards);
        break;
    }
    case 14: {
        const auto r = client.ListSqlInstance(p);
        isSuccess(r, answer);
        eachReadsBack(r.sqlInstances);
        break;
    }
    case 15:
        isSuccess(client.GetLogStoreLogs(p, s, 0, 1, "", "*", 100, 0, false), answer);
        break;
    case 16:
        isSuccess(client.GetLogStoreHistogram(p, s, 0, 1, "", "*"), answer);
        break;
    case 17:
        isSuccess(client.ListLogStoreTopics(p, s, 100, ""), answer);
        break;
    case 18:
        isSuccess(client.ExecuteLogStoreSql(p, s, 0, 1, "* | select 1", false), answer);
        break;
    case 19:
        isSuccess(client.ExecuteProjectSql(p, "select 1", true), answer);
        break;
    case 20:
        isSuccess(client.GetCursor(p, s, 0, uint32_t(1)), answer);
        break;
    case 21:
        isSuccess(client.GetCursor(p, s, 0, CURSOR_MODE_END), answer);
        break;
    case 22: {
        const auto groups = client.GetLogGroupList(p, s, 0, "cursor", "", 10);
        isSuccess(groups, answer);
        // The same answer flattened: one log item per log of every group.
        size_t logs = 0;
        for (const pb::LogGroup& group : groups.logGroupList.logGroups)
            logs += group.logs.size();
        if (client.GetBatchLog(p, s, 0, 10, "cursor").logs.size() != logs)
            violated();
        break;
    }
    default:
        isSuccess(client.DeleteLogStore(p, s), answer);
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    const Answer answer = answerOf(data, size);
    AnsweredClient client(answer);
    try {
        call(client, data[0] % 24, answer);
    } catch (const LOGException& e) {
        if (e.GetHttpCode() != answer.status)
            violated();
        if (answer.status == 200) {
            if (e.GetErrorCode() != "BadResponse")
                violated();
            const auto id = answer.header.find("x-log-requestid");
            if (id != answer.header.end() && e.GetRequestId() != id->second)
                violated();
        }
    }
    return 0;
}
