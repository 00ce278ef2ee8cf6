#include "crypto/RsaMath.h"

#include <ZrUtils/QRSAEncryption.h>

#include <QCryptographicHash>
#include <QRandomGenerator>
#include <QtEndian>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <vector>

namespace ZrUtils
{
namespace Internal
{

namespace
{

// Bounds the redraws of a prime; each draw succeeds with overwhelming likelihood.
constexpr int kPrimeDraws = 64;

// Keeps the top @p primeBits bits of @p x and sets the two highest, so two such
// numbers multiply to exactly twice as many bits.
BigInt shapeCandidate(BigInt x, int primeBits)
{
    const int excess = x.longBits() - primeBits;
    if (excess > 0)
        x >>= excess;
    x |= BigInt(3) << (primeBits - 2);
    return x;
}

bool hasShape(const BigInt& prime, int primeBits)
{
    return prime.longBits() == primeBits && (prime >> (primeBits - 2)) == 3;
}

QByteArray bigEndian32(quint32 value)
{
    QByteArray bytes(4, Qt::Uninitialized);
    qToBigEndian(value, bytes.data());
    return bytes;
}

} // namespace

unsigned int randomSeed()
{
    static std::atomic<quint64> counter {0};
    const auto ticks = static_cast<quint64>(std::chrono::steady_clock::now().time_since_epoch().count());
    return static_cast<unsigned int>((ticks + counter.fetch_add(1, std::memory_order_relaxed)) % 2147483647u);
}

BigInt randomNumber(int bits, bool fullFill)
{
    std::srand(randomSeed());
    BigInt result(1);
    const auto factor = [] { return static_cast<long long>(std::rand() % 2147483646) + 1; };
    if (fullFill) {
        while (result.longBits() < bits)
            result *= factor();
    } else {
        for (int i = 0; i < bits / 32; ++i)
            result *= factor();
    }
    return result;
}

BigInt systemRandomBits(int bits)
{
    if (bits <= 0)
        return BigInt(0);
    const int wordCount = (bits + 31) / 32;
    std::vector<quint32> words(static_cast<size_t>(wordCount));
    QRandomGenerator::system()->fillRange(words.data(), wordCount);
    QByteArray bytes(wordCount * 4, Qt::Uninitialized);
    for (int i = 0; i < wordCount; ++i)
        qToBigEndian(words[static_cast<size_t>(i)], bytes.data() + 4 * i);
    BigInt value = QRSAEncryption::fromArray(bytes);
    // The bits become part of a private key: do not leave copies on the heap.
    std::fill(words.begin(), words.end(), 0u);
    bytes.fill('\0');
    const int excess = wordCount * 32 - bits;
    if (excess > 0)
        value >>= excess;
    return value;
}

BigInt toPrime(BigInt n)
{
    if (n % 2 == 0)
        ++n;
    if (n >= 2 && n.isPrime(false))
        return n;
    for (long long step = 2;; step += 2) {
        BigInt up = n + step;
        // Below 2 GMP would judge the magnitude, so negative "primes" are skipped.
        if (up >= 2 && up.isPrime(false))
            return up;
        BigInt down = n - step;
        if (down >= 2 && down.isPrime(false))
            return down;
    }
}

BigInt randomPrimeNumber(int keyBits, const BigInt& differentFrom)
{
    const int primeBits = keyBits / 2;
    BigInt prime;
    for (int draw = 0; draw < kPrimeDraws; ++draw) {
        prime = toPrime(shapeCandidate(systemRandomBits(primeBits), primeBits));
        if (hasShape(prime, primeBits) && prime != differentFrom)
            break;
    }
    return prime;
}

bool isMutuallyPrime(const BigInt& a, const BigInt& b)
{
    for (long long factor : {2, 3, 5, 7}) {
        if (a % factor == 0 && b % factor == 0)
            return false;
    }
    return BigInt::gcd(a, b) == 1;
}

BigInt extEuclid(BigInt a, BigInt b)
{
    BigInt oldS(1);
    BigInt s(0);
    while (b != 0) {
        const BigInt quotient = a / b;
        BigInt remainder = a - quotient * b;
        a = std::move(b);
        b = std::move(remainder);
        BigInt nextS = oldS - quotient * s;
        oldS = std::move(s);
        s = std::move(nextS);
    }
    return oldS;
}

BigInt genesisInt(const QByteArray& genesis, int bits)
{
    const int byteCount = (bits + 7) / 8;
    QByteArray stream;
    for (quint32 counter = 0; stream.size() < byteCount; ++counter)
        stream += QCryptographicHash::hash(genesis + bigEndian32(counter), QCryptographicHash::Sha256);
    stream.truncate(byteCount);
    BigInt value = QRSAEncryption::fromArray(stream);
    if (bits % 8 != 0)
        value >>= 8 - bits % 8;
    return value;
}

void getPrimesFromGenesis(const QByteArray& genesis, int keyBits, int attempt, BigInt& p, BigInt& q)
{
    const int primeBits = keyBits / 2;
    const auto derive = [&](char which, const BigInt& differentFrom) {
        BigInt prime;
        for (int round = 0; round < kPrimeDraws; ++round) {
            const QByteArray material = genesis + which + bigEndian32(static_cast<quint32>(attempt))
                + bigEndian32(static_cast<quint32>(round));
            prime = toPrime(shapeCandidate(genesisInt(material, primeBits), primeBits));
            if (hasShape(prime, primeBits) && prime != differentFrom)
                break;
        }
        return prime;
    };
    p = derive('p', BigInt(0));
    q = derive('q', p);
}

} // namespace Internal
} // namespace ZrUtils
