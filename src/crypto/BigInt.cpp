#include <ZrUtils/BigInt.h>

#include <gmp.h>

#include <cstring>
#include <new>
#include <utility>

static_assert(
    sizeof(__mpz_struct) <= 16 && alignof(__mpz_struct) <= 8, "the GMP integer must fit BigInt's storage");

struct BigIntAccess {
    static mpz_ptr get(BigInt& value) { return std::launder(reinterpret_cast<mpz_ptr>(value.m_value)); }
    static mpz_srcptr get(const BigInt& value)
    {
        return std::launder(reinterpret_cast<mpz_srcptr>(value.m_value));
    }
    static mpz_ptr place(BigInt& value) { return ::new (static_cast<void*>(value.m_value)) __mpz_struct; }
};

namespace
{

inline mpz_ptr z(BigInt& value)
{
    return BigIntAccess::get(value);
}

inline mpz_srcptr z(const BigInt& value)
{
    return BigIntAccess::get(value);
}

inline BigInt decimal(const std::string& text)
{
    return BigInt(text, 10);
}

inline bool validBase(int base)
{
    return base == 0 || (base >= 2 && base <= 62);
}

// Sets @p target from text; zero when GMP refuses the text or the base.
int setFromText(mpz_ptr target, const std::string& text, int base)
{
    if (validBase(base) && mpz_set_str(target, text.c_str(), base) == 0)
        return 0;
    mpz_set_ui(target, 0);
    return -1;
}

// |value| as GMP's unsigned long, safe for the lowest long long.
inline unsigned long magnitude(long long value)
{
    return value < 0 ? 0UL - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
}

} // namespace

BigInt::BigInt()
{
    mpz_init(BigIntAccess::place(*this));
}

BigInt::BigInt(const BigInt& other, int bitCount)
{
    mpz_ptr value = BigIntAccess::place(*this);
    if (bitCount >= 1)
        mpz_init2(value, static_cast<mp_bitcnt_t>(bitCount));
    else
        mpz_init(value);
    mpz_set(value, z(other));
}

BigInt::BigInt(BigInt&& other) noexcept
{
    mpz_init(BigIntAccess::place(*this));
    mpz_swap(z(*this), z(other));
}

BigInt::BigInt(const std::string& text, int base)
{
    mpz_init(BigIntAccess::place(*this));
    setFromText(z(*this), text, base);
}

BigInt::BigInt(long long value)
{
    mpz_init_set_si(BigIntAccess::place(*this), static_cast<long>(value));
}

BigInt::BigInt(char digit, unsigned int count, int base)
{
    mpz_init(BigIntAccess::place(*this));
    setFromText(z(*this), std::string(count, digit), base);
}

BigInt::~BigInt()
{
    mpz_clear(z(*this));
}

BigInt& BigInt::operator=(const BigInt& other)
{
    if (this != &other)
        mpz_set(z(*this), z(other));
    return *this;
}

BigInt& BigInt::operator=(BigInt&& other) noexcept
{
    mpz_swap(z(*this), z(other));
    return *this;
}

BigInt& BigInt::operator=(long long value)
{
    mpz_set_si(z(*this), static_cast<long>(value));
    return *this;
}

BigInt& BigInt::operator=(const std::string& text)
{
    setFromText(z(*this), text, 10);
    return *this;
}

std::string BigInt::getString(int base) const
{
    const bool valid = (base >= 2 && base <= 62) || (base <= -2 && base >= -36);
    if (!valid)
        return std::string();
    // Written into our own buffer, so there is no GMP allocation to hand back.
    std::string text(mpz_sizeinbase(z(*this), base < 0 ? -base : base) + 2, '\0');
    mpz_get_str(&text[0], base, z(*this));
    text.resize(std::strlen(text.c_str()));
    return text;
}

BigInt& BigInt::powm(const BigInt& exp, const BigInt& mod)
{
    mpz_ptr self = z(*this);
    if (mpz_sgn(z(mod)) == 0) {
        mpz_set_ui(self, 0);
        return *this;
    }
    if (mpz_sgn(z(exp)) < 0) {
        // GMP needs the inverse for a negative exponent and aborts without one.
        BigInt inverse;
        if (mpz_invert(z(inverse), self, z(mod)) == 0) {
            mpz_set_ui(self, 0);
            return *this;
        }
    }
    mpz_powm(self, self, z(exp), z(mod));
    return *this;
}

BigInt BigInt::powm(BigInt base, const BigInt& exp, const BigInt& mod)
{
    base.powm(exp, mod);
    return base;
}

BigInt& BigInt::pow(unsigned long long exp)
{
    mpz_pow_ui(z(*this), z(*this), static_cast<unsigned long>(exp));
    return *this;
}

int BigInt::sizeBits() const
{
    return static_cast<int>(mpz_size(z(*this))) * GMP_NUMB_BITS;
}

int BigInt::sizeBytes() const
{
    return static_cast<int>(mpz_size(z(*this))) * static_cast<int>(sizeof(mp_limb_t));
}

int BigInt::longBits() const
{
    // Same count as getString(2), without building the text.
    return static_cast<int>(mpz_sizeinbase(z(*this), 2)) + (mpz_sgn(z(*this)) < 0 ? 1 : 0);
}

int BigInt::longBytes() const
{
    return (longBits() + 7) / 8;
}

int BigInt::sizeType() const
{
    return z(*this)->_mp_alloc * static_cast<int>(sizeof(mp_limb_t));
}

bool BigInt::isPrime(bool absolutePrimeOnly) const
{
    return mpz_probab_prime_p(z(*this), 50) - (absolutePrimeOnly ? 1 : 0) > 0;
}

BigInt BigInt::gcd(const BigInt& a, const BigInt& b)
{
    BigInt result;
    mpz_gcd(z(result), z(a), z(b));
    return result;
}

int BigInt::fromHex(const std::string& hex)
{
    return setFromText(z(*this), hex, 16);
}

BigInt BigInt::bigPow10(unsigned short n)
{
    return BigInt(std::string("1") + std::string(n, '0'), 10);
}

BigInt& BigInt::toNegative()
{
    mpz_neg(z(*this), z(*this));
    return *this;
}

// --- compound assignment: everything else is built on these ---------------------------

BigInt& operator+=(BigInt& left, const BigInt& right)
{
    mpz_add(z(left), z(left), z(right));
    return left;
}

BigInt& operator+=(BigInt& left, long long right)
{
    if (right >= 0)
        mpz_add_ui(z(left), z(left), magnitude(right));
    else
        mpz_sub_ui(z(left), z(left), magnitude(right));
    return left;
}

BigInt& operator+=(BigInt& left, const std::string& right)
{
    return left += decimal(right);
}

BigInt& operator-=(BigInt& left, const BigInt& right)
{
    mpz_sub(z(left), z(left), z(right));
    return left;
}

BigInt& operator-=(BigInt& left, long long right)
{
    if (right >= 0)
        mpz_sub_ui(z(left), z(left), magnitude(right));
    else
        mpz_add_ui(z(left), z(left), magnitude(right));
    return left;
}

BigInt& operator-=(BigInt& left, const std::string& right)
{
    return left -= decimal(right);
}

BigInt& operator*=(BigInt& left, const BigInt& right)
{
    mpz_mul(z(left), z(left), z(right));
    return left;
}

BigInt& operator*=(BigInt& left, long long right)
{
    mpz_mul_si(z(left), z(left), static_cast<long>(right));
    return left;
}

BigInt& operator*=(BigInt& left, const std::string& right)
{
    return left *= decimal(right);
}

BigInt& operator/=(BigInt& left, const BigInt& right)
{
    if (mpz_sgn(z(right)) == 0)
        mpz_set_ui(z(left), 0);
    else
        mpz_tdiv_q(z(left), z(left), z(right));
    return left;
}

BigInt& operator/=(BigInt& left, long long right)
{
    if (right == 0) {
        mpz_set_ui(z(left), 0);
        return left;
    }
    // The magnitude is divided, then the divisor's sign applied.
    mpz_tdiv_q_ui(z(left), z(left), magnitude(right));
    if (right < 0)
        mpz_neg(z(left), z(left));
    return left;
}

BigInt& operator/=(BigInt& left, const std::string& right)
{
    return left /= decimal(right);
}

BigInt& operator%=(BigInt& left, const BigInt& right)
{
    if (mpz_sgn(z(right)) == 0)
        mpz_set_ui(z(left), 0);
    else
        mpz_tdiv_r(z(left), z(left), z(right));
    return left;
}

BigInt& operator%=(BigInt& left, long long right)
{
    if (right == 0)
        mpz_set_ui(z(left), 0);
    else
        mpz_tdiv_r_ui(z(left), z(left), magnitude(right));
    return left;
}

BigInt& operator%=(BigInt& left, const std::string& right)
{
    return left %= decimal(right);
}

// --- two-operand arithmetic (the text forms are templates in the header) -------------

#define ZRUTILS_BIGINT_ARITHMETIC(op)                                                                        \
    BigInt operator op(BigInt left, const BigInt& right)                                                     \
    {                                                                                                        \
        return std::move(left op## = right);                                                                 \
    }                                                                                                        \
    BigInt operator op(BigInt left, long long right)                                                         \
    {                                                                                                        \
        return std::move(left op## = right);                                                                 \
    }                                                                                                        \
    BigInt operator op(long long left, const BigInt& right)                                                  \
    {                                                                                                        \
        BigInt result(left);                                                                                 \
        return std::move(result op## = right);                                                               \
    }

ZRUTILS_BIGINT_ARITHMETIC(+)
ZRUTILS_BIGINT_ARITHMETIC(-)
ZRUTILS_BIGINT_ARITHMETIC(*)
ZRUTILS_BIGINT_ARITHMETIC(/)
ZRUTILS_BIGINT_ARITHMETIC(%)

#undef ZRUTILS_BIGINT_ARITHMETIC

BigInt operator-(BigInt value)
{
    return std::move(value.toNegative());
}

BigInt& operator++(BigInt& value)
{
    mpz_add_ui(z(value), z(value), 1);
    return value;
}

BigInt operator++(BigInt& value, int)
{
    BigInt old(value);
    ++value;
    return old;
}

BigInt& operator--(BigInt& value)
{
    mpz_sub_ui(z(value), z(value), 1);
    return value;
}

BigInt operator--(BigInt& value, int)
{
    BigInt old(value);
    --value;
    return old;
}

// --- bitwise ---------------------------------------------------------------------

#define ZRUTILS_BIGINT_BITWISE(op, function)                                                                 \
    BigInt& operator op##=(BigInt& left, const BigInt& right)                                                \
    {                                                                                                        \
        function(z(left), z(left), z(right));                                                                \
        return left;                                                                                         \
    }                                                                                                        \
    BigInt& operator op##=(BigInt& left, long long right)                                                    \
    {                                                                                                        \
        return left op## = BigInt(right);                                                                    \
    }                                                                                                        \
    BigInt operator op(BigInt left, const BigInt& right)                                                     \
    {                                                                                                        \
        return std::move(left op## = right);                                                                 \
    }                                                                                                        \
    BigInt operator op(BigInt left, long long right)                                                         \
    {                                                                                                        \
        return std::move(left op## = right);                                                                 \
    }

ZRUTILS_BIGINT_BITWISE(&, mpz_and)
ZRUTILS_BIGINT_BITWISE(|, mpz_ior)
ZRUTILS_BIGINT_BITWISE(^, mpz_xor)

#undef ZRUTILS_BIGINT_BITWISE

BigInt operator~(BigInt value)
{
    mpz_com(z(value), z(value));
    return value;
}

bool operator!(const BigInt& value)
{
    return mpz_sgn(z(value)) == 0;
}

BigInt& operator<<=(BigInt& left, int count)
{
    const unsigned long bits = magnitude(count);
    if (count >= 0)
        mpz_mul_2exp(z(left), z(left), bits);
    else
        mpz_tdiv_q_2exp(z(left), z(left), bits);
    return left;
}

BigInt& operator>>=(BigInt& left, int count)
{
    const unsigned long bits = magnitude(count);
    if (count >= 0)
        mpz_tdiv_q_2exp(z(left), z(left), bits);
    else
        mpz_mul_2exp(z(left), z(left), bits);
    return left;
}

BigInt operator<<(BigInt left, int count)
{
    return std::move(left <<= count);
}

BigInt operator>>(BigInt left, int count)
{
    return std::move(left >>= count);
}

// --- comparison ------------------------------------------------------------------

namespace
{

inline int compare(const BigInt& left, const BigInt& right)
{
    return mpz_cmp(z(left), z(right));
}

inline int compare(const BigInt& left, long long right)
{
    return mpz_cmp_si(z(left), static_cast<long>(right));
}

} // namespace

#define ZRUTILS_BIGINT_COMPARISON(op)                                                                        \
    bool operator op(const BigInt& left, const BigInt& right)                                                \
    {                                                                                                        \
        return compare(left, right) op 0;                                                                    \
    }                                                                                                        \
    bool operator op(const BigInt& left, long long right)                                                    \
    {                                                                                                        \
        return compare(left, right) op 0;                                                                    \
    }                                                                                                        \
    bool operator op(long long left, const BigInt& right)                                                    \
    {                                                                                                        \
        return 0 op compare(right, left);                                                                    \
    }

ZRUTILS_BIGINT_COMPARISON(==)
ZRUTILS_BIGINT_COMPARISON(!=)
ZRUTILS_BIGINT_COMPARISON(<)
ZRUTILS_BIGINT_COMPARISON(>)
ZRUTILS_BIGINT_COMPARISON(<=)
ZRUTILS_BIGINT_COMPARISON(>=)

#undef ZRUTILS_BIGINT_COMPARISON
