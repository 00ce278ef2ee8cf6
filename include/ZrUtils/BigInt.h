#ifndef ZRUTILS_BIGINT_H
#define ZRUTILS_BIGINT_H

#include <ZrUtils/zrutils_export.h>

#include <string>
#include <type_traits>

/**
 * A signed integer of unlimited size, a value type over a GMP integer. Copies are
 * deep. Text operands of the operators are decimal; invalid text reads as zero.
 *
 * Nothing aborts: where GMP would stop the process, the result is zero instead
 * (division or remainder by zero, powm() with a zero modulus or a negative exponent
 * without an inverse).
 *
 * Shifts are true shifts of the value for every count: x << n is x * 2^n and x >> n
 * is x / 2^n rounded toward zero, so the sign is kept and -5 >> 1 is -2 (the result
 * of shifting the magnitude). A negative count shifts the other way; 0 changes
 * nothing. No bits are lost off the top.
 */
class ZRUTILS_EXPORT BigInt
{
public:
    /** Zero. */
    BigInt();
    /** A copy of @p other; with @p bitCount >= 1 room for that many bits is reserved first. */
    BigInt(const BigInt& other, int bitCount = 0);
    BigInt(BigInt&& other) noexcept;
    /**
     * @p text in @p base (2..62, or 0 to detect a "0x", "0b" or "0" prefix). Zero when
     * the text or the base is invalid.
     */
    BigInt(const std::string& text, int base);
    BigInt(long long value);
    /** The number written as @p count copies of @p digit in @p base; zero for a count of 0. */
    BigInt(char digit, unsigned int count, int base);
    ~BigInt();

    BigInt& operator=(const BigInt& other);
    BigInt& operator=(BigInt&& other) noexcept;
    BigInt& operator=(long long value);
    /** Parses decimal @p text; zero when invalid. */
    BigInt& operator=(const std::string& text);

    /** The digits in @p base (lower case, "-" in front of negatives); empty for an invalid base. */
    std::string getString(int base) const;
    /** this = this^exp mod mod (never negative); zero when no such value exists. */
    BigInt& powm(const BigInt& exp, const BigInt& mod);
    /** base^exp mod mod; zero when no such value exists. */
    static BigInt powm(BigInt base, const BigInt& exp, const BigInt& mod);
    /** this = this^exp. */
    BigInt& pow(unsigned long long exp);
    /** Limbs in use times 64: storage, not the value's bit length. */
    int sizeBits() const;
    /** Limbs in use times 8. */
    int sizeBytes() const;
    /** Characters of getString(2): the significant bits, 1 for zero, one more for a sign. */
    int longBits() const;
    /** longBits() / 8, rounded up. */
    int longBytes() const;
    /** Bytes allocated for the limbs (capacity, not the value's size). */
    int sizeType() const;
    /**
     * Probabilistic primality (50 rounds). With @p absolutePrimeOnly only numbers GMP
     * can prove prime pass; otherwise "probably prime" passes too.
     */
    bool isPrime(bool absolutePrimeOnly) const;
    static BigInt gcd(const BigInt& a, const BigInt& b);
    /** Sets this from base-16 text; 0 on success, -1 (and zero) on invalid text. */
    int fromHex(const std::string& hex);
    /** 10^n. */
    static BigInt bigPow10(unsigned short n);
    /** Negates in place. */
    BigInt& toNegative();

private:
    friend struct BigIntAccess;
    // A GMP integer lives here; keeping it opaque spares users gmp.h.
    alignas(8) unsigned char m_value[16];
};

// Arithmetic: truncating division; the left operand is never modified.
ZRUTILS_EXPORT BigInt operator+(BigInt left, const BigInt& right);
ZRUTILS_EXPORT BigInt operator+(BigInt left, long long right);
ZRUTILS_EXPORT BigInt operator+(long long left, const BigInt& right);
ZRUTILS_EXPORT BigInt operator-(BigInt left, const BigInt& right);
ZRUTILS_EXPORT BigInt operator-(BigInt left, long long right);
ZRUTILS_EXPORT BigInt operator-(long long left, const BigInt& right);
ZRUTILS_EXPORT BigInt operator*(BigInt left, const BigInt& right);
ZRUTILS_EXPORT BigInt operator*(BigInt left, long long right);
ZRUTILS_EXPORT BigInt operator*(long long left, const BigInt& right);
ZRUTILS_EXPORT BigInt operator/(BigInt left, const BigInt& right);
ZRUTILS_EXPORT BigInt operator/(BigInt left, long long right);
ZRUTILS_EXPORT BigInt operator/(long long left, const BigInt& right);
ZRUTILS_EXPORT BigInt operator%(BigInt left, const BigInt& right);
ZRUTILS_EXPORT BigInt operator%(BigInt left, long long right);
ZRUTILS_EXPORT BigInt operator%(long long left, const BigInt& right);

ZRUTILS_EXPORT BigInt& operator+=(BigInt& left, const BigInt& right);
ZRUTILS_EXPORT BigInt& operator+=(BigInt& left, long long right);
ZRUTILS_EXPORT BigInt& operator+=(BigInt& left, const std::string& right);
ZRUTILS_EXPORT BigInt& operator-=(BigInt& left, const BigInt& right);
ZRUTILS_EXPORT BigInt& operator-=(BigInt& left, long long right);
ZRUTILS_EXPORT BigInt& operator-=(BigInt& left, const std::string& right);
ZRUTILS_EXPORT BigInt& operator*=(BigInt& left, const BigInt& right);
ZRUTILS_EXPORT BigInt& operator*=(BigInt& left, long long right);
ZRUTILS_EXPORT BigInt& operator*=(BigInt& left, const std::string& right);
ZRUTILS_EXPORT BigInt& operator/=(BigInt& left, const BigInt& right);
ZRUTILS_EXPORT BigInt& operator/=(BigInt& left, long long right);
ZRUTILS_EXPORT BigInt& operator/=(BigInt& left, const std::string& right);
ZRUTILS_EXPORT BigInt& operator%=(BigInt& left, const BigInt& right);
ZRUTILS_EXPORT BigInt& operator%=(BigInt& left, long long right);
ZRUTILS_EXPORT BigInt& operator%=(BigInt& left, const std::string& right);

ZRUTILS_EXPORT BigInt operator-(BigInt value);
ZRUTILS_EXPORT BigInt& operator++(BigInt& value);
ZRUTILS_EXPORT BigInt operator++(BigInt& value, int);
ZRUTILS_EXPORT BigInt& operator--(BigInt& value);
ZRUTILS_EXPORT BigInt operator--(BigInt& value, int);

// Bitwise operators act on the two's complement form, as if infinitely sign-extended.
ZRUTILS_EXPORT BigInt operator&(BigInt left, const BigInt& right);
ZRUTILS_EXPORT BigInt operator&(BigInt left, long long right);
ZRUTILS_EXPORT BigInt operator|(BigInt left, const BigInt& right);
ZRUTILS_EXPORT BigInt operator|(BigInt left, long long right);
ZRUTILS_EXPORT BigInt operator^(BigInt left, const BigInt& right);
ZRUTILS_EXPORT BigInt operator^(BigInt left, long long right);
ZRUTILS_EXPORT BigInt& operator&=(BigInt& left, const BigInt& right);
ZRUTILS_EXPORT BigInt& operator&=(BigInt& left, long long right);
ZRUTILS_EXPORT BigInt& operator|=(BigInt& left, const BigInt& right);
ZRUTILS_EXPORT BigInt& operator|=(BigInt& left, long long right);
ZRUTILS_EXPORT BigInt& operator^=(BigInt& left, const BigInt& right);
ZRUTILS_EXPORT BigInt& operator^=(BigInt& left, long long right);
/** -x - 1. */
ZRUTILS_EXPORT BigInt operator~(BigInt value);
/** True for zero. */
ZRUTILS_EXPORT bool operator!(const BigInt& value);

ZRUTILS_EXPORT BigInt operator>>(BigInt left, int count);
ZRUTILS_EXPORT BigInt operator<<(BigInt left, int count);
ZRUTILS_EXPORT BigInt& operator>>=(BigInt& left, int count);
ZRUTILS_EXPORT BigInt& operator<<=(BigInt& left, int count);

ZRUTILS_EXPORT bool operator==(const BigInt& left, const BigInt& right);
ZRUTILS_EXPORT bool operator==(const BigInt& left, long long right);
ZRUTILS_EXPORT bool operator==(long long left, const BigInt& right);
ZRUTILS_EXPORT bool operator!=(const BigInt& left, const BigInt& right);
ZRUTILS_EXPORT bool operator!=(const BigInt& left, long long right);
ZRUTILS_EXPORT bool operator!=(long long left, const BigInt& right);
ZRUTILS_EXPORT bool operator<(const BigInt& left, const BigInt& right);
ZRUTILS_EXPORT bool operator<(const BigInt& left, long long right);
ZRUTILS_EXPORT bool operator<(long long left, const BigInt& right);
ZRUTILS_EXPORT bool operator>(const BigInt& left, const BigInt& right);
ZRUTILS_EXPORT bool operator>(const BigInt& left, long long right);
ZRUTILS_EXPORT bool operator>(long long left, const BigInt& right);
ZRUTILS_EXPORT bool operator<=(const BigInt& left, const BigInt& right);
ZRUTILS_EXPORT bool operator<=(const BigInt& left, long long right);
ZRUTILS_EXPORT bool operator<=(long long left, const BigInt& right);
ZRUTILS_EXPORT bool operator>=(const BigInt& left, const BigInt& right);
ZRUTILS_EXPORT bool operator>=(const BigInt& left, long long right);
ZRUTILS_EXPORT bool operator>=(long long left, const BigInt& right);

// Forms with a decimal text operand. They are templates so that only a real BigInt
// matches the other side: "text" + 5 or text == 0 must not quietly become BigInt
// arithmetic through the implicit conversion from long long.
namespace ZrUtilsBigIntDetail
{
template<typename T, typename R>
using IfBigInt = typename std::enable_if<std::is_same<T, BigInt>::value, R>::type;
} // namespace ZrUtilsBigIntDetail

template<typename T> ZrUtilsBigIntDetail::IfBigInt<T, BigInt> operator+(T left, const std::string& right)
{
    left += right;
    return left;
}
template<typename T>
ZrUtilsBigIntDetail::IfBigInt<T, BigInt> operator+(const std::string& left, const T& right)
{
    return BigInt(left, 10) + right;
}
template<typename T> ZrUtilsBigIntDetail::IfBigInt<T, BigInt> operator-(T left, const std::string& right)
{
    left -= right;
    return left;
}
template<typename T>
ZrUtilsBigIntDetail::IfBigInt<T, BigInt> operator-(const std::string& left, const T& right)
{
    return BigInt(left, 10) - right;
}
template<typename T> ZrUtilsBigIntDetail::IfBigInt<T, BigInt> operator*(T left, const std::string& right)
{
    left *= right;
    return left;
}
template<typename T>
ZrUtilsBigIntDetail::IfBigInt<T, BigInt> operator*(const std::string& left, const T& right)
{
    return BigInt(left, 10) * right;
}
template<typename T> ZrUtilsBigIntDetail::IfBigInt<T, BigInt> operator/(T left, const std::string& right)
{
    left /= right;
    return left;
}
template<typename T>
ZrUtilsBigIntDetail::IfBigInt<T, BigInt> operator/(const std::string& left, const T& right)
{
    return BigInt(left, 10) / right;
}
template<typename T> ZrUtilsBigIntDetail::IfBigInt<T, BigInt> operator%(T left, const std::string& right)
{
    left %= right;
    return left;
}
template<typename T>
ZrUtilsBigIntDetail::IfBigInt<T, BigInt> operator%(const std::string& left, const T& right)
{
    return BigInt(left, 10) % right;
}
template<typename T>
ZrUtilsBigIntDetail::IfBigInt<T, bool> operator==(const T& left, const std::string& right)
{
    return left == BigInt(right, 10);
}
template<typename T>
ZrUtilsBigIntDetail::IfBigInt<T, bool> operator==(const std::string& left, const T& right)
{
    return BigInt(left, 10) == right;
}
template<typename T>
ZrUtilsBigIntDetail::IfBigInt<T, bool> operator!=(const T& left, const std::string& right)
{
    return left != BigInt(right, 10);
}
template<typename T>
ZrUtilsBigIntDetail::IfBigInt<T, bool> operator!=(const std::string& left, const T& right)
{
    return BigInt(left, 10) != right;
}
template<typename T> ZrUtilsBigIntDetail::IfBigInt<T, bool> operator<(const T& left, const std::string& right)
{
    return left < BigInt(right, 10);
}
template<typename T> ZrUtilsBigIntDetail::IfBigInt<T, bool> operator<(const std::string& left, const T& right)
{
    return BigInt(left, 10) < right;
}
template<typename T> ZrUtilsBigIntDetail::IfBigInt<T, bool> operator>(const T& left, const std::string& right)
{
    return left > BigInt(right, 10);
}
template<typename T> ZrUtilsBigIntDetail::IfBigInt<T, bool> operator>(const std::string& left, const T& right)
{
    return BigInt(left, 10) > right;
}
template<typename T>
ZrUtilsBigIntDetail::IfBigInt<T, bool> operator<=(const T& left, const std::string& right)
{
    return left <= BigInt(right, 10);
}
template<typename T>
ZrUtilsBigIntDetail::IfBigInt<T, bool> operator<=(const std::string& left, const T& right)
{
    return BigInt(left, 10) <= right;
}
template<typename T>
ZrUtilsBigIntDetail::IfBigInt<T, bool> operator>=(const T& left, const std::string& right)
{
    return left >= BigInt(right, 10);
}
template<typename T>
ZrUtilsBigIntDetail::IfBigInt<T, bool> operator>=(const std::string& left, const T& right)
{
    return BigInt(left, 10) >= right;
}

#endif
