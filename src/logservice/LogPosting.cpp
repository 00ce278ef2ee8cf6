#include <ZrUtils/CodecTool.h>
#include <ZrUtils/CompressAlgorithm.h>
#include <ZrUtils/LOGClient.h>
#include <ZrUtils/LOGException.h>
#include <ZrUtils/LogConstants.h>

namespace cloudlog_sdk_v6
{

PostLogStoreLogsResponse LOGClient::PostLogStoreLogs(const std::string& project, const std::string& logstore,
    const std::string& topic, const std::vector<LogItem>& logItems, const std::string& hashKey)
{
    if (logItems.empty())
        throw LOGException(LOGE_PARAMETER_INVALID, "Empty LogItem.", "", 0);

    pb::LogGroup group;
    group.logs.resize(logItems.size());
    for (size_t i = 0; i < logItems.size(); ++i) {
        pb::Log& log = group.logs[i];
        log.time = logItems[i].timestamp;
        log.contents.reserve(logItems[i].contents.size());
        for (const auto& pair : logItems[i].contents)
            log.contents.push_back({pair.first, pair.second});
    }
    group.topic = topic;
    group.source = source;
    return PostLogStoreLogs(project, logstore, group, hashKey);
}

PostLogStoreLogsResponse LOGClient::PostLogStoreLogs(const std::string& project, const std::string& logstore,
    const pb::LogGroup& logGroup, const std::string& hashKey)
{
    std::string serialized;
    bool encoded;
    if (!logGroup.source.empty()) {
        encoded = logGroup.SerializeToString(&serialized);
    } else {
        pb::LogGroup withSource = logGroup;
        withSource.source = source;
        encoded = withSource.SerializeToString(&serialized);
    }
    if (!encoded)
        throw LOGException(LOGE_UNKNOWN_ERROR, "Data serialize failed.", "", 0);

    std::string resource = LOGSTORES + "/" + logstore;
    if (!hashKey.empty())
        resource += SHARDS_ROUTE;

    std::map<std::string, std::string> header;
    header[CONTENT_TYPE] = TYPE_LOG_PROTOBUF;
    std::string body;
    if (compressFlag) {
        if (!CompressAlgorithm::CompressLz4(serialized, body))
            throw LOGException(LOGE_UNKNOWN_ERROR, "Data compress failed.", "", 0);
        header[X_LOG_COMPRESSTYPE] = LOG_LZ4;
    } else {
        body.swap(serialized);
    }
    header[X_LOG_BODYRAWSIZE] = ToString(uint32_t(compressFlag ? serialized.size() : body.size()));
    header[CONTENT_MD5] = CodecTool::CalcMD5(body);

    std::map<std::string, std::string> parameterList;
    if (!hashKey.empty())
        parameterList["key"] = hashKey;

    HttpMessage response;
    SendRequest(project, HTTP_POST, resource, body, parameterList, header, response);

    PostLogStoreLogsResponse result;
    result.statusCode = response.statusCode;
    const auto id = response.header.find(X_LOG_REQUEST_ID);
    if (id != response.header.end())
        result.requestId = id->second;
    return result;
}

} // namespace cloudlog_sdk_v6
