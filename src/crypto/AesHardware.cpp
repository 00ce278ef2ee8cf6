// AES on the x86 AES instructions. Only the functions marked with the target
// attribute below use them, so the library still runs on processors without them:
// QAESEncryption calls in here only after aesHardwareActive().
#include "crypto/AesEngine.h"

#include <atomic>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <immintrin.h>
#define ZRUTILS_AES_X86 1
#endif

namespace ZrUtils
{
namespace Internal
{

namespace
{
std::atomic<bool> g_hardwareAllowed {true};
} // namespace

void setAesHardwareAllowed(bool allowed)
{
    g_hardwareAllowed.store(allowed, std::memory_order_relaxed);
}

bool aesHardwareActive()
{
    return g_hardwareAllowed.load(std::memory_order_relaxed) && aesHardwareSupported();
}

#ifdef ZRUTILS_AES_X86

bool aesHardwareSupported()
{
    static const bool supported = [] {
        unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
        if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx))
            return false;
        return (ecx & bit_AES) != 0 && (ecx & bit_SSE4_1) != 0;
    }();
    return supported;
}

#define ZRUTILS_AES_TARGET __attribute__((target("aes,sse4.1")))

namespace
{

using u8 = std::uint8_t;
constexpr int kLanes = 8; // enough independent blocks to keep the AES unit busy

ZRUTILS_AES_TARGET inline __m128i load(const u8* p)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

ZRUTILS_AES_TARGET inline void store(u8* p, __m128i v)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

template<int NR> ZRUTILS_AES_TARGET inline void loadEncryptKeys(const u8* schedule, __m128i* k)
{
    for (int i = 0; i <= NR; ++i)
        k[i] = load(schedule + 16 * i);
}

// The equivalent inverse cipher wants the middle round keys through InvMixColumns.
template<int NR> ZRUTILS_AES_TARGET inline void loadDecryptKeys(const u8* schedule, __m128i* k)
{
    k[0] = load(schedule + 16 * NR);
    for (int i = 1; i < NR; ++i)
        k[i] = _mm_aesimc_si128(load(schedule + 16 * (NR - i)));
    k[NR] = load(schedule);
}

template<int NR> ZRUTILS_AES_TARGET inline __m128i encryptOne(const __m128i* k, __m128i x)
{
    x = _mm_xor_si128(x, k[0]);
#pragma GCC unroll 16
    for (int r = 1; r < NR; ++r)
        x = _mm_aesenc_si128(x, k[r]);
    return _mm_aesenclast_si128(x, k[NR]);
}

template<int NR> ZRUTILS_AES_TARGET inline void encryptLanes(const __m128i* k, __m128i* x)
{
#pragma GCC unroll 8
    for (int j = 0; j < kLanes; ++j)
        x[j] = _mm_xor_si128(x[j], k[0]);
#pragma GCC unroll 16
    for (int r = 1; r < NR; ++r) {
        const __m128i key = k[r];
#pragma GCC unroll 8
        for (int j = 0; j < kLanes; ++j)
            x[j] = _mm_aesenc_si128(x[j], key);
    }
#pragma GCC unroll 8
    for (int j = 0; j < kLanes; ++j)
        x[j] = _mm_aesenclast_si128(x[j], k[NR]);
}

template<int NR> ZRUTILS_AES_TARGET inline __m128i decryptOne(const __m128i* k, __m128i x)
{
    x = _mm_xor_si128(x, k[0]);
#pragma GCC unroll 16
    for (int r = 1; r < NR; ++r)
        x = _mm_aesdec_si128(x, k[r]);
    return _mm_aesdeclast_si128(x, k[NR]);
}

template<int NR> ZRUTILS_AES_TARGET inline void decryptLanes(const __m128i* k, __m128i* x)
{
#pragma GCC unroll 8
    for (int j = 0; j < kLanes; ++j)
        x[j] = _mm_xor_si128(x[j], k[0]);
#pragma GCC unroll 16
    for (int r = 1; r < NR; ++r) {
        const __m128i key = k[r];
#pragma GCC unroll 8
        for (int j = 0; j < kLanes; ++j)
            x[j] = _mm_aesdec_si128(x[j], key);
    }
#pragma GCC unroll 8
    for (int j = 0; j < kLanes; ++j)
        x[j] = _mm_aesdeclast_si128(x[j], k[NR]);
}

template<int NR>
ZRUTILS_AES_TARGET void encodeRounds(
    int mode, const u8* schedule, u8* chain, const u8* in, u8* out, std::size_t len)
{
    __m128i k[NR + 1];
    loadEncryptKeys<NR>(schedule, k);
    std::size_t i = 0;
    __m128i c = load(chain);
    switch (mode) {
    case 0: // ECB: blocks are independent
        for (; i + 16 * kLanes <= len; i += 16 * kLanes) {
            __m128i x[kLanes];
            for (int j = 0; j < kLanes; ++j)
                x[j] = load(in + i + 16 * j);
            encryptLanes<NR>(k, x);
            for (int j = 0; j < kLanes; ++j)
                store(out + i + 16 * j, x[j]);
        }
        for (; i < len; i += 16)
            store(out + i, encryptOne<NR>(k, load(in + i)));
        break;
    case 1: // CBC
        for (; i < len; i += 16) {
            c = encryptOne<NR>(k, _mm_xor_si128(load(in + i), c));
            store(out + i, c);
        }
        break;
    case 2: // CFB: the ciphertext feeds back
        for (; i < len; i += 16) {
            c = _mm_xor_si128(load(in + i), encryptOne<NR>(k, c));
            store(out + i, c);
        }
        break;
    case 3: // OFB: the keystream feeds back
        for (; i < len; i += 16) {
            c = encryptOne<NR>(k, c);
            store(out + i, _mm_xor_si128(load(in + i), c));
        }
        break;
    default:
        break;
    }
    store(chain, c);
}

template<int NR>
ZRUTILS_AES_TARGET void decodeRounds(
    int mode, const u8* schedule, u8* chain, const u8* in, u8* out, std::size_t len)
{
    __m128i k[NR + 1];
    std::size_t i = 0;
    __m128i c = load(chain);
    if (mode == 0 || mode == 1) {
        loadDecryptKeys<NR>(schedule, k);
        const bool cbc = mode == 1;
        for (; i + 16 * kLanes <= len; i += 16 * kLanes) {
            __m128i x[kLanes];
            __m128i src[kLanes];
            for (int j = 0; j < kLanes; ++j)
                src[j] = x[j] = load(in + i + 16 * j);
            decryptLanes<NR>(k, x);
            if (cbc) {
                x[0] = _mm_xor_si128(x[0], c);
                for (int j = 1; j < kLanes; ++j)
                    x[j] = _mm_xor_si128(x[j], src[j - 1]);
                c = src[kLanes - 1];
            }
            for (int j = 0; j < kLanes; ++j)
                store(out + i + 16 * j, x[j]);
        }
        for (; i < len; i += 16) {
            const __m128i src = load(in + i);
            __m128i x = decryptOne<NR>(k, src);
            if (cbc) {
                x = _mm_xor_si128(x, c);
                c = src;
            }
            store(out + i, x);
        }
    } else if (mode == 2) {
        // CFB decryption enciphers the previous ciphertext blocks, all known up front.
        loadEncryptKeys<NR>(schedule, k);
        for (; i + 16 * kLanes <= len; i += 16 * kLanes) {
            __m128i x[kLanes];
            __m128i src[kLanes];
            for (int j = 0; j < kLanes; ++j)
                src[j] = load(in + i + 16 * j);
            x[0] = c;
            for (int j = 1; j < kLanes; ++j)
                x[j] = src[j - 1];
            encryptLanes<NR>(k, x);
            for (int j = 0; j < kLanes; ++j)
                store(out + i + 16 * j, _mm_xor_si128(x[j], src[j]));
            c = src[kLanes - 1];
        }
        for (; i < len; i += 16) {
            const __m128i src = load(in + i);
            store(out + i, _mm_xor_si128(src, encryptOne<NR>(k, c)));
            c = src;
        }
    } else if (mode == 3) {
        store(chain, c);
        encodeRounds<NR>(mode, schedule, chain, in, out, len);
        return;
    }
    store(chain, c);
}

} // namespace

void aesHardwareEncode(int mode, int rounds, const std::uint8_t* schedule, std::uint8_t* chain,
    const std::uint8_t* in, std::uint8_t* out, std::size_t len)
{
    if (rounds == 14)
        encodeRounds<14>(mode, schedule, chain, in, out, len);
    else if (rounds == 12)
        encodeRounds<12>(mode, schedule, chain, in, out, len);
    else
        encodeRounds<10>(mode, schedule, chain, in, out, len);
}

void aesHardwareDecode(int mode, int rounds, const std::uint8_t* schedule, std::uint8_t* chain,
    const std::uint8_t* in, std::uint8_t* out, std::size_t len)
{
    if (rounds == 14)
        decodeRounds<14>(mode, schedule, chain, in, out, len);
    else if (rounds == 12)
        decodeRounds<12>(mode, schedule, chain, in, out, len);
    else
        decodeRounds<10>(mode, schedule, chain, in, out, len);
}

#else // not x86: the portable path only

bool aesHardwareSupported()
{
    return false;
}

void aesHardwareEncode(
    int, int, const std::uint8_t*, std::uint8_t*, const std::uint8_t*, std::uint8_t*, std::size_t)
{
}

void aesHardwareDecode(
    int, int, const std::uint8_t*, std::uint8_t*, const std::uint8_t*, std::uint8_t*, std::size_t)
{
}

#endif

} // namespace Internal
} // namespace ZrUtils
