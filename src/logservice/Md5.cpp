#include "Md5.h"

#include <cstring>

namespace cloudlog_sdk_v6
{

namespace
{

// clang-format off
const uint32_t kSines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

const int kShifts[64] = {
    7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
    5, 9, 14, 20, 5, 9, 14, 20, 5, 9, 14, 20, 5, 9, 14, 20,
    4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
    6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};
// clang-format on

inline uint32_t rotateLeft(uint32_t x, int n)
{
    return (x << n) | (x >> (32 - n));
}

void transform(uint32_t state[4], const Md5Block& block)
{
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (int i = 0; i < 64; ++i) {
        uint32_t f;
        int g;
        if (i < 16) {
            f = (b & c) | (~b & d);
            g = i;
        } else if (i < 32) {
            f = (d & b) | (~d & c);
            g = (5 * i + 1) & 15;
        } else if (i < 48) {
            f = b ^ c ^ d;
            g = (3 * i + 5) & 15;
        } else {
            f = c ^ (b | ~d);
            g = (7 * i) & 15;
        }
        const uint32_t next = b + rotateLeft(a + f + kSines[i] + block.word[g], kShifts[i]);
        a = d;
        d = c;
        c = b;
        b = next;
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
}

} // namespace

void CopyBytesToBlock(const unsigned char* bytes, Md5Block& block)
{
    for (int i = 0; i < 16; ++i, bytes += 4)
        block.word[i] = uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16
            | uint32_t(bytes[3]) << 24;
}

void DoMd5(const unsigned char* data, size_t length, unsigned char out16[16])
{
    uint32_t state[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    Md5Block block;
    size_t offset = 0;
    for (; length - offset >= 64; offset += 64) {
        CopyBytesToBlock(data + offset, block);
        transform(state, block);
    }

    // The tail: the rest of the message, 0x80, zeros and the bit length, in one
    // block or two.
    unsigned char tail[128] = {};
    const size_t rest = length - offset;
    if (rest > 0)
        std::memcpy(tail, data + offset, rest);
    tail[rest] = 0x80;
    const size_t tailLength = rest < 56 ? 64 : 128;
    const uint64_t bits = uint64_t(length) * 8;
    for (int i = 0; i < 8; ++i)
        tail[tailLength - 8 + i] = static_cast<unsigned char>(bits >> (8 * i));
    for (size_t i = 0; i < tailLength; i += 64) {
        CopyBytesToBlock(tail + i, block);
        transform(state, block);
    }

    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j)
            out16[4 * i + j] = static_cast<unsigned char>(state[i] >> (8 * j));
    }
}

} // namespace cloudlog_sdk_v6
