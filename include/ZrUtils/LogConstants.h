#ifndef ZRUTILS_LOGCONSTANTS_H
#define ZRUTILS_LOGCONSTANTS_H

#include <ZrUtils/zrutils_export.h>

#include <string>

/**
 * The vocabulary of the log-service client: header names, fixed header values and
 * the error-code words carried by LOGException.
 *
 * Header names are case-sensitive as written: the signature only covers headers
 * spelled exactly so. The client raises only LOGE_UNKNOWN_ERROR,
 * LOGE_NOT_IMPLEMENTED, LOGE_CLIENT_NETWORK_ERROR, LOGE_REQUEST_TIMEOUT,
 * LOGE_BAD_RESPONSE, LOGE_INTERNAL_SERVER_ERROR and LOGE_PARAMETER_INVALID itself;
 * the other words are codes the service sends, exported to compare against.
 */
namespace cloudlog_sdk_v6
{

// Header names.
extern ZRUTILS_EXPORT const std::string HOST;
extern ZRUTILS_EXPORT const std::string USER_AGENT;
extern ZRUTILS_EXPORT const std::string DATE;
extern ZRUTILS_EXPORT const std::string CONTENT_LENGTH;
extern ZRUTILS_EXPORT const std::string CONTENT_TYPE;
extern ZRUTILS_EXPORT const std::string CONTENT_MD5;
extern ZRUTILS_EXPORT const std::string AUTHORIZATION;
extern ZRUTILS_EXPORT const std::string ACCEPT_ENCODING;
extern ZRUTILS_EXPORT const std::string HTTP_ACCEPT;
extern ZRUTILS_EXPORT const std::string X_LOG_APIVERSION;
extern ZRUTILS_EXPORT const std::string X_LOG_SIGNATUREMETHOD;
extern ZRUTILS_EXPORT const std::string X_ACS_SECURITY_TOKEN;
extern ZRUTILS_EXPORT const std::string X_LOG_REQUEST_ID;
extern ZRUTILS_EXPORT const std::string X_LOG_COMPRESSTYPE;
extern ZRUTILS_EXPORT const std::string X_LOG_BODYRAWSIZE;
extern ZRUTILS_EXPORT const std::string X_LOG_COUNT;
extern ZRUTILS_EXPORT const std::string X_LOG_CURSOR;
extern ZRUTILS_EXPORT const std::string X_LOG_PROGRESS;
extern ZRUTILS_EXPORT const std::string X_LOG_CPU_SEC;
extern ZRUTILS_EXPORT const std::string X_LOG_CPU_CORES;
/** "x-log-processoed-rows": the service's own spelling. */
extern ZRUTILS_EXPORT const std::string X_LOG_PROCESSED_ROWS;
extern ZRUTILS_EXPORT const std::string X_LOG_ELASPED_MILLISECOND;
extern ZRUTILS_EXPORT const std::string LOG_HEADER_PREFIX;
extern ZRUTILS_EXPORT const std::string ACS_HEADER_PREFIX;

// Fixed values.
extern ZRUTILS_EXPORT const std::string LOG_API_VERSION;
extern ZRUTILS_EXPORT const std::string HMAC_SHA1;
extern ZRUTILS_EXPORT const std::string LOG_HEADSIGNATURE_PREFIX;
/** The user agent of every request. */
extern ZRUTILS_EXPORT const std::string LOG_SDK_IDENTIFICATION;
extern ZRUTILS_EXPORT const std::string HTTP_GET;
extern ZRUTILS_EXPORT const std::string HTTP_POST;
extern ZRUTILS_EXPORT const std::string HTTP_PUT;
extern ZRUTILS_EXPORT const std::string HTTP_DELETE;
extern ZRUTILS_EXPORT const std::string TYPE_LOG_JSON;
extern ZRUTILS_EXPORT const std::string TYPE_LOG_PROTOBUF;
extern ZRUTILS_EXPORT const std::string LOG_LZ4;
extern ZRUTILS_EXPORT const std::string DEFLATE;
extern ZRUTILS_EXPORT const std::string ENCONDING_GZIP;
extern ZRUTILS_EXPORT const std::string LOG_ERROR_CODE;
extern ZRUTILS_EXPORT const std::string LOG_ERROR_MESSAGE;
extern ZRUTILS_EXPORT const std::string SIGNATURE;
/** Names the HTTP date format; the date formatter builds the text itself. */
extern ZRUTILS_EXPORT const std::string DATE_FORMAT_RFC822;

// Resource paths.
extern ZRUTILS_EXPORT const std::string LOGSTORES;
extern ZRUTILS_EXPORT const std::string CONFIGS;
extern ZRUTILS_EXPORT const std::string MACHINEGROUPS;
extern ZRUTILS_EXPORT const std::string SHARDS;
extern ZRUTILS_EXPORT const std::string INDEX;
/** Appended to a log store's path when posting with a hash key. */
extern ZRUTILS_EXPORT const std::string SHARDS_ROUTE;

// Error-code words.
extern ZRUTILS_EXPORT const std::string LOGE_REQUEST_ERROR;
extern ZRUTILS_EXPORT const std::string LOGE_INVALID_HOST;
extern ZRUTILS_EXPORT const std::string LOGE_UNKNOWN_ERROR;
extern ZRUTILS_EXPORT const std::string LOGE_NOT_IMPLEMENTED;
extern ZRUTILS_EXPORT const std::string LOGE_SERVER_BUSY;
extern ZRUTILS_EXPORT const std::string LOGE_INTERNAL_SERVER_ERROR;
extern ZRUTILS_EXPORT const std::string LOGE_RESPONSE_SIG_ERROR;
extern ZRUTILS_EXPORT const std::string LOGE_PARAMETER_INVALID;
extern ZRUTILS_EXPORT const std::string LOGE_MISSING_PARAMETER;
extern ZRUTILS_EXPORT const std::string LOGE_INVALID_METHOD;
extern ZRUTILS_EXPORT const std::string LOGE_BAD_RESPONSE;
extern ZRUTILS_EXPORT const std::string LOGE_UNAUTHORIZED;
extern ZRUTILS_EXPORT const std::string LOGE_QUOTA_EXCEED;
extern ZRUTILS_EXPORT const std::string LOGE_REQUEST_TIMEOUT;
/** "ClientOpertaionTimeout": spelled as the service spells it. */
extern ZRUTILS_EXPORT const std::string LOGE_CLIENT_OPERATION_TIMEOUT;
extern ZRUTILS_EXPORT const std::string LOGE_CLIENT_NETWORK_ERROR;
extern ZRUTILS_EXPORT const std::string LOGE_USER_NOT_EXIST;
extern ZRUTILS_EXPORT const std::string LOGE_CATEGORY_NOT_EXIST;
extern ZRUTILS_EXPORT const std::string LOGE_TOPIC_NOT_EXIST;
extern ZRUTILS_EXPORT const std::string LOGE_POST_BODY_INVALID;
extern ZRUTILS_EXPORT const std::string LOGE_INVALID_CONTENTTYPE;
extern ZRUTILS_EXPORT const std::string LOGE_INVALID_CONTENLENGTH;
extern ZRUTILS_EXPORT const std::string LOGE_INVALID_APIVERSION;
extern ZRUTILS_EXPORT const std::string LOGE_PROJECT_NOT_EXIST;
extern ZRUTILS_EXPORT const std::string LOGE_LOGSTORE_NOT_EXIST;
extern ZRUTILS_EXPORT const std::string LOGE_INVALID_ACCESSKEYID;
extern ZRUTILS_EXPORT const std::string LOGE_SIGNATURE_NOT_MATCH;
extern ZRUTILS_EXPORT const std::string LOGE_PROJECT_FORBIDDEN;
extern ZRUTILS_EXPORT const std::string LOGE_WRITE_QUOTA_EXCEED;
extern ZRUTILS_EXPORT const std::string LOGE_READ_QUOTA_EXCEED;
extern ZRUTILS_EXPORT const std::string LOGE_REQUEST_TIME_EXPIRED;
extern ZRUTILS_EXPORT const std::string LOGE_INVALID_REQUEST_TIME;
extern ZRUTILS_EXPORT const std::string LOGE_POST_BODY_TOO_LARGE;
extern ZRUTILS_EXPORT const std::string LOGE_INVALID_TIME_RANGE;
extern ZRUTILS_EXPORT const std::string LOGE_INVALID_REVERSE;
extern ZRUTILS_EXPORT const std::string LOGE_LOGSTORE_WITHOUT_SHARD;
extern ZRUTILS_EXPORT const std::string LOGE_SHARD_WRITE_QUOTA_EXCEED;
extern ZRUTILS_EXPORT const std::string LOGE_SHARD_READ_QUOTA_EXCEED;
extern ZRUTILS_EXPORT const std::string LOGE_INVALID_CURSOR;
extern ZRUTILS_EXPORT const std::string LOGE_SHARD_NOT_EXIST;
extern ZRUTILS_EXPORT const std::string LOGE_NOT_SUPPORTED_ACCEPT_CONTENT_TYPE;
extern ZRUTILS_EXPORT const std::string LOGE_NOT_SUPPORTED_ACCEPT_ENCODING;

} // namespace cloudlog_sdk_v6

#endif
