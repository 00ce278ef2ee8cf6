// Number theory behind QRSAEncryption's key generation.
#ifndef ZRUTILS_CRYPTO_RSAMATH_H
#define ZRUTILS_CRYPTO_RSAMATH_H

#include <ZrUtils/BigInt.h>
#include <ZrUtils/zrutils_export.h>

#include <QByteArray>

namespace ZrUtils
{
namespace Internal
{

// The srand() seed for one draw: a high-resolution clock reading plus a per-process
// counter, reduced modulo 2147483647, so draws made in the same clock tick still differ.
ZRUTILS_TESTS_EXPORT unsigned int randomSeed();

// Reseeds the C generator, then multiplies factors (rand() mod 2147483646) + 1 into 1:
// bits / 32 of them, or with fullFill until the product has at least @p bits bits.
ZRUTILS_TESTS_EXPORT BigInt randomNumber(int bits, bool fullFill);

// A non-negative integer of @p bits bits (the top ones may be zero) from the operating
// system's cryptographic generator.
ZRUTILS_TESTS_EXPORT BigInt systemRandomBits(int bits);

// The first prime among n, n + 2, n - 2, n + 4, n - 4, ... after making n odd;
// candidates below 2 are skipped.
ZRUTILS_TESTS_EXPORT BigInt toPrime(BigInt n);

// A random prime of keyBits / 2 bits whose two top bits are set, so that the product
// of two of them has exactly keyBits bits; never equal to @p differentFrom. Every
// candidate takes keyBits / 2 fresh bits from systemRandomBits(): a key must not be
// a function of anything an attacker can enumerate, such as a clock-seeded rand().
ZRUTILS_TESTS_EXPORT BigInt randomPrimeNumber(int keyBits, const BigInt& differentFrom);

// False at once when both share a factor 2, 3, 5 or 7; otherwise whether gcd is 1.
ZRUTILS_TESTS_EXPORT bool isMutuallyPrime(const BigInt& a, const BigInt& b);

// The Bezout coefficient x of a in a·x + b·y = gcd(a, b): the inverse of a modulo b
// when they are coprime (may be negative).
ZRUTILS_TESTS_EXPORT BigInt extEuclid(BigInt a, BigInt b);

// A non-negative integer of at most @p bits bits derived from the genesis bytes by
// SHA-256 in counter mode; the same bytes always give the same number.
ZRUTILS_TESTS_EXPORT BigInt genesisInt(const QByteArray& genesis, int bits);

// The two distinct primes of attempt @p attempt for a key of @p keyBits bits, shaped
// like randomPrimeNumber()'s, derived deterministically from the genesis bytes.
ZRUTILS_TESTS_EXPORT void getPrimesFromGenesis(
    const QByteArray& genesis, int keyBits, int attempt, BigInt& p, BigInt& q);

} // namespace Internal
} // namespace ZrUtils

#endif
