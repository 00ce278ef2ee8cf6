#include <ZrUtils/LogConstants.h>

namespace cloudlog_sdk_v6
{

const std::string HOST = "Host";
const std::string USER_AGENT = "User-Agent";
const std::string DATE = "Date";
const std::string CONTENT_LENGTH = "Content-Length";
const std::string CONTENT_TYPE = "Content-Type";
const std::string CONTENT_MD5 = "Content-MD5";
const std::string AUTHORIZATION = "Authorization";
const std::string ACCEPT_ENCODING = "Accept-Encoding";
const std::string HTTP_ACCEPT = "accept";
const std::string X_LOG_APIVERSION = "x-log-apiversion";
const std::string X_LOG_SIGNATUREMETHOD = "x-log-signaturemethod";
const std::string X_ACS_SECURITY_TOKEN = "x-acs-security-token";
const std::string X_LOG_REQUEST_ID = "x-log-requestid";
const std::string X_LOG_COMPRESSTYPE = "x-log-compresstype";
const std::string X_LOG_BODYRAWSIZE = "x-log-bodyrawsize";
const std::string X_LOG_COUNT = "x-log-count";
const std::string X_LOG_CURSOR = "x-log-cursor";
const std::string X_LOG_PROGRESS = "x-log-progress";
const std::string X_LOG_CPU_SEC = "x-log-cpu-sec";
const std::string X_LOG_CPU_CORES = "x-log-cpu-cores";
const std::string X_LOG_PROCESSED_ROWS = "x-log-processoed-rows";
const std::string X_LOG_ELASPED_MILLISECOND = "x-log-elapsed-millisecond";
const std::string LOG_HEADER_PREFIX = "x-log-";
const std::string ACS_HEADER_PREFIX = "x-acs-";

const std::string LOG_API_VERSION = "0.6.0";
const std::string HMAC_SHA1 = "hmac-sha1";
const std::string LOG_HEADSIGNATURE_PREFIX = "LOG ";
const std::string LOG_SDK_IDENTIFICATION = "numozul v0.6.2";
const std::string HTTP_GET = "GET";
const std::string HTTP_POST = "POST";
const std::string HTTP_PUT = "PUT";
const std::string HTTP_DELETE = "DELETE";
const std::string TYPE_LOG_JSON = "application/json";
const std::string TYPE_LOG_PROTOBUF = "application/x-protobuf";
const std::string LOG_LZ4 = "lz4";
const std::string DEFLATE = "deflate";
const std::string ENCONDING_GZIP = "gzip";
const std::string LOG_ERROR_CODE = "errorCode";
const std::string LOG_ERROR_MESSAGE = "errorMessage";
const std::string SIGNATURE = "Signature";
const std::string DATE_FORMAT_RFC822 = "%a, %d %b %Y %H:%M:%S GMT";

const std::string LOGSTORES = "/logstores";
const std::string CONFIGS = "/configs";
const std::string MACHINEGROUPS = "/machinegroups";
const std::string SHARDS = "/shards";
const std::string INDEX = "/index";
const std::string SHARDS_ROUTE = "/shards/route";

const std::string LOGE_REQUEST_ERROR = "RequestError";
const std::string LOGE_INVALID_HOST = "InvalidHost";
const std::string LOGE_UNKNOWN_ERROR = "UnknownError";
const std::string LOGE_NOT_IMPLEMENTED = "NotImplemented";
const std::string LOGE_SERVER_BUSY = "ServerBusy";
const std::string LOGE_INTERNAL_SERVER_ERROR = "InternalServerError";
const std::string LOGE_RESPONSE_SIG_ERROR = "ResponseSignatureError";
const std::string LOGE_PARAMETER_INVALID = "ParameterInvalid";
const std::string LOGE_MISSING_PARAMETER = "MissingParameter";
const std::string LOGE_INVALID_METHOD = "InvalidMethod";
const std::string LOGE_BAD_RESPONSE = "BadResponse";
const std::string LOGE_UNAUTHORIZED = "Unauthorized";
const std::string LOGE_QUOTA_EXCEED = "ExceedQuota";
const std::string LOGE_REQUEST_TIMEOUT = "RequestTimeout";
const std::string LOGE_CLIENT_OPERATION_TIMEOUT = "ClientOpertaionTimeout";
const std::string LOGE_CLIENT_NETWORK_ERROR = "ClientNetworkError";
const std::string LOGE_USER_NOT_EXIST = "UserNotExist";
const std::string LOGE_CATEGORY_NOT_EXIST = "CategoryNotExist";
const std::string LOGE_TOPIC_NOT_EXIST = "TopicNotExist";
const std::string LOGE_POST_BODY_INVALID = "PostBodyInvalid";
const std::string LOGE_INVALID_CONTENTTYPE = "InvalidContentType";
const std::string LOGE_INVALID_CONTENLENGTH = "InvalidContentLength";
const std::string LOGE_INVALID_APIVERSION = "InvalidAPIVersion";
const std::string LOGE_PROJECT_NOT_EXIST = "ProjectNotExist";
const std::string LOGE_LOGSTORE_NOT_EXIST = "LogStoreNotExist";
const std::string LOGE_INVALID_ACCESSKEYID = "InvalidAccessKeyId";
const std::string LOGE_SIGNATURE_NOT_MATCH = "SignatureNotMatch";
const std::string LOGE_PROJECT_FORBIDDEN = "ProjectForbidden";
const std::string LOGE_WRITE_QUOTA_EXCEED = "WriteQuotaExceed";
const std::string LOGE_READ_QUOTA_EXCEED = "ReadQuotaExceed";
const std::string LOGE_REQUEST_TIME_EXPIRED = "RequestTimeExpired";
const std::string LOGE_INVALID_REQUEST_TIME = "InvalidRequestTime";
const std::string LOGE_POST_BODY_TOO_LARGE = "PostBodyTooLarge";
const std::string LOGE_INVALID_TIME_RANGE = "InvalidTimeRange";
const std::string LOGE_INVALID_REVERSE = "InvalidReverse";
const std::string LOGE_LOGSTORE_WITHOUT_SHARD = "LogStoreWithoutShard";
const std::string LOGE_SHARD_WRITE_QUOTA_EXCEED = "ShardWriteQuotaExceed";
const std::string LOGE_SHARD_READ_QUOTA_EXCEED = "ShardReadQuotaExceed";
const std::string LOGE_INVALID_CURSOR = "InvalidCursor";
const std::string LOGE_SHARD_NOT_EXIST = "ShardNotExist";
const std::string LOGE_NOT_SUPPORTED_ACCEPT_CONTENT_TYPE = "InvalidAcceptContentType";
const std::string LOGE_NOT_SUPPORTED_ACCEPT_ENCODING = "InvalidAcceptEncoding";

} // namespace cloudlog_sdk_v6
