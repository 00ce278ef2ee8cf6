#include "Sha1.h"

#include <cstring>

namespace cloudlog_sdk_v6
{

namespace
{

inline uint32_t rotateLeft(uint32_t x, int n)
{
    return (x << n) | (x >> (32 - n));
}

} // namespace

SHA1::SHA1()
    : m_state {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0}
{
}

void SHA1::transform(const unsigned char* block)
{
    uint32_t w[80];
    for (int i = 0; i < 16; ++i)
        w[i] = uint32_t(block[4 * i]) << 24 | uint32_t(block[4 * i + 1]) << 16
            | uint32_t(block[4 * i + 2]) << 8 | uint32_t(block[4 * i + 3]);
    for (int i = 16; i < 80; ++i)
        w[i] = rotateLeft(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);

    uint32_t a = m_state[0], b = m_state[1], c = m_state[2], d = m_state[3], e = m_state[4];
    for (int i = 0; i < 80; ++i) {
        uint32_t f, k;
        if (i < 20) {
            f = (b & c) | (~b & d);
            k = 0x5A827999;
        } else if (i < 40) {
            f = b ^ c ^ d;
            k = 0x6ED9EBA1;
        } else if (i < 60) {
            f = (b & c) | (b & d) | (c & d);
            k = 0x8F1BBCDC;
        } else {
            f = b ^ c ^ d;
            k = 0xCA62C1D6;
        }
        const uint32_t next = rotateLeft(a, 5) + f + e + k + w[i];
        e = d;
        d = c;
        c = rotateLeft(b, 30);
        b = a;
        a = next;
    }
    m_state[0] += a;
    m_state[1] += b;
    m_state[2] += c;
    m_state[3] += d;
    m_state[4] += e;
}

void SHA1::add(const void* data, size_t length)
{
    if (m_finished)
        return;
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    size_t used = size_t(m_byteCount % 64);
    m_byteCount += length;
    if (used > 0) {
        const size_t take = length < 64 - used ? length : 64 - used;
        std::memcpy(m_buffer + used, bytes, take);
        bytes += take;
        length -= take;
        used += take;
        if (used < 64)
            return;
        transform(m_buffer);
    }
    for (; length >= 64; bytes += 64, length -= 64)
        transform(bytes);
    if (length > 0)
        std::memcpy(m_buffer, bytes, length);
}

const unsigned char* SHA1::result()
{
    if (m_finished)
        return m_digest;
    const uint64_t bits = m_byteCount * 8;
    const unsigned char one = 0x80;
    add(&one, 1);
    const unsigned char zero = 0;
    while (m_byteCount % 64 != 56)
        add(&zero, 1);
    unsigned char length[8];
    for (int i = 0; i < 8; ++i)
        length[i] = static_cast<unsigned char>(bits >> (56 - 8 * i));
    add(length, 8);
    for (int i = 0; i < 5; ++i) {
        for (int j = 0; j < 4; ++j)
            m_digest[4 * i + j] = static_cast<unsigned char>(m_state[i] >> (24 - 8 * j));
    }
    m_finished = true;
    return m_digest;
}

HMAC::HMAC(const void* key, size_t keyLength)
{
    init(key, keyLength);
}

void HMAC::init(const void* key, size_t keyLength)
{
    m_inner = SHA1();
    m_outer = SHA1();
    unsigned char block[64] = {};
    if (keyLength > 64) {
        SHA1 keyHash;
        keyHash.add(key, keyLength);
        std::memcpy(block, keyHash.result(), 20);
    } else if (keyLength > 0) {
        std::memcpy(block, key, keyLength);
    }
    unsigned char pad[64];
    for (int i = 0; i < 64; ++i)
        pad[i] = block[i] ^ 0x36;
    m_inner.add(pad, 64);
    for (int i = 0; i < 64; ++i)
        pad[i] = block[i] ^ 0x5C;
    m_outer.add(pad, 64);
}

void HMAC::add(const void* data, size_t length)
{
    m_inner.add(data, length);
}

const unsigned char* HMAC::result()
{
    m_outer.add(m_inner.result(), 20);
    return m_outer.result();
}

} // namespace cloudlog_sdk_v6
