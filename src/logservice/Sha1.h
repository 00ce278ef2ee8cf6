// SHA-1 and HMAC-SHA1 of the log-service client: the request signature.
#ifndef ZRUTILS_LOGSERVICE_SHA1_H
#define ZRUTILS_LOGSERVICE_SHA1_H

#include <ZrUtils/zrutils_export.h>

#include <cstddef>
#include <cstdint>

namespace cloudlog_sdk_v6
{

// A streaming SHA-1 state.
class ZRUTILS_TESTS_EXPORT SHA1
{
public:
    SHA1();

    void add(const void* data, size_t length);
    // Finalises the state and returns the 20-byte digest, which lives as long as
    // this object. Later calls return the same digest; add() after it is ignored.
    const unsigned char* result();

private:
    void transform(const unsigned char* block);

    uint32_t m_state[5];
    unsigned char m_buffer[64];
    uint64_t m_byteCount = 0;
    unsigned char m_digest[20];
    bool m_finished = false;
};

// HMAC over SHA-1 with its 64-byte block: feed the message with add(), then take
// result().
class ZRUTILS_TESTS_EXPORT HMAC
{
public:
    HMAC(const void* key, size_t keyLength);

    void init(const void* key, size_t keyLength);
    void add(const void* data, size_t length);
    // The 20-byte MAC, valid as long as this object.
    const unsigned char* result();

private:
    SHA1 m_inner;
    SHA1 m_outer;
};

} // namespace cloudlog_sdk_v6

#endif
