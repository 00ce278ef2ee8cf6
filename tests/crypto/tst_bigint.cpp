// Operator results are compared with Python's integers, computed in one python3
// process for every operator family, so a fault in our use of GMP cannot hide behind GMP.
#include <ZrUtils/BigInt.h>

#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTest>

#include <climits>
#include <functional>
#include <iterator>
#include <type_traits>
#include <utility>

// The text forms must only match a real BigInt: a number next to a std::string may
// not quietly turn into BigInt arithmetic through the conversion from long long.
template<typename L, typename R> constexpr bool addable = std::is_invocable_v<std::plus<>, L, R>;
template<typename L, typename R> constexpr bool comparable = std::is_invocable_v<std::equal_to<>, L, R>;
static_assert(!addable<std::string, int> && !addable<long long, std::string>, "text plus a number compiles");
static_assert(!comparable<std::string, int>, "text compared with a number compiles");
static_assert(addable<BigInt, std::string>, "BigInt plus text is missing");
static_assert(addable<std::string, const BigInt&>, "text plus BigInt is missing");
static_assert(addable<BigInt, const char*>, "BigInt plus a literal is missing");
static_assert(comparable<std::string, BigInt>, "text compared with BigInt is missing");

namespace
{

using Results = QStringList;

const auto str = [](const BigInt& value) { return value.getString(10); };
// Also for truth values, as 0 and 1.
const auto text = [](const auto& value) { return QString::fromStdString(str(BigInt(value))); };

// Python twins of the operations below; truncating division like ours.
const char kPython[] = R"(
import sys, math, operator as o
def td(a, b): return abs(a) // abs(b) * (1 if (a < 0) == (b < 0) else -1)
def tm(a, b): return a - b * td(a, b)
def shl(a, n): return a << n if n >= 0 else td(a, 1 << -n)
def shr(a, n): return td(a, 1 << n) if n >= 0 else a << -n
def five(f): return lambda a, b, c: [f(a, b), f(a, c), f(c, a), f(a, b), f(b, a)]
def compound(a, b, c):
    r1 = td((a + b - c) * b, c); r2 = tm(r1, a)
    return [r1, r2, tm(td((r2 + b - b) * c, b), c)]
ops = {
    'add': five(o.add), 'sub': five(o.sub), 'mul': five(o.mul), 'div': five(td), 'mod': five(tm),
    'compare': lambda a, b, c: sum((five(f)(a, b, c) for f in (o.eq, o.ne, o.lt, o.gt, o.le, o.ge)), []),
    'compound': compound,
    'bitwise': lambda a, b, c: [a & b, a & c, a | b, a | c, a ^ b, a ^ c, ~a, ((a & b) | c) ^ b],
    'shift': lambda a, b, c: [shl(a, c % 300 - 100), shr(a, c % 300 - 100), a, a, shr(a, 64), shl(a, 64)],
    'powm': lambda a, b, c: [pow(a, abs(b), abs(c) + 1), pow(a, abs(c) % 1000, abs(b) + 1)],
    'gcd': lambda a, b, c: [math.gcd(a, b), math.gcd(a, c), abs(a)],
    'incdec': lambda a, b, c: [a, a + 1, a + 2, a + 2, a + 1, a, -a, int(a == 0)],
}
for line in sys.stdin:
    name, *operands = line.split()
    print(' '.join(str(int(v)) for v in ops[name](*map(int, operands))))
)";

// An operator in its five forms: with a BigInt, with a long long on either side,
// and with decimal text on either side.
template<typename Op> Results five(Op op, const BigInt& a, const BigInt& b, long long c)
{
    return {text(op(a, b)), text(op(a, c)), text(op(c, a)), text(op(a, str(b))), text(op(str(b), a))};
}

const struct {
    const char* name;
    Results (*run)(const BigInt& a, const BigInt& b, long long c);
} kOperations[] = {
    {"add", [](auto& a, auto& b, long long c) { return five(std::plus<>(), a, b, c); }},
    {"sub", [](auto& a, auto& b, long long c) { return five(std::minus<>(), a, b, c); }},
    {"mul", [](auto& a, auto& b, long long c) { return five(std::multiplies<>(), a, b, c); }},
    {"div", [](auto& a, auto& b, long long c) { return five(std::divides<>(), a, b, c); }},
    {"mod", [](auto& a, auto& b, long long c) { return five(std::modulus<>(), a, b, c); }},
    {"compare",
        [](auto& a, auto& b, long long c) {
            return five(std::equal_to<>(), a, b, c) + five(std::not_equal_to<>(), a, b, c)
                + five(std::less<>(), a, b, c) + five(std::greater<>(), a, b, c)
                + five(std::less_equal<>(), a, b, c) + five(std::greater_equal<>(), a, b, c);
        }},
    {"compound",
        [](auto& a, auto& b, long long c) {
            BigInt x = a;
            const BigInt r1 = (((x += b) -= c) *= str(b)) /= c;
            const BigInt r2 = x %= a;
            return Results {text(r1), text(r2), text(((((x += str(b)) -= str(b)) *= c) /= str(b)) %= c)};
        }},
    {"bitwise",
        [](auto& a, auto& b, long long c) {
            BigInt x = a;
            return Results {text(a & b), text(a & c), text(a | b), text(a | c), text(a ^ b), text(a ^ c),
                text(~a), text(((x &= b) |= c) ^= b)};
        }},
    {"shift",
        [](auto& a, auto&, long long c) {
            const int n = static_cast<int>((c % 300 + 300) % 300) - 100; // Python's modulo is floored
            BigInt left = a, right = a;
            return Results {text(a << n), text(a >> n), text(a << 0), text(a >> 0), text(right >>= 64),
                text(left <<= 64)};
        }},
    {"powm",
        [](auto& a, auto& b, long long c) {
            const BigInt absB = b < 0 ? -b : b, absC = c < 0 ? -BigInt(c) : BigInt(c);
            BigInt member = a;
            return Results {text(BigInt::powm(a, absB, absC + 1)), text(member.powm(absC % 1000, absB + 1))};
        }},
    {"gcd",
        [](auto& a, auto& b, long long c) {
            return Results {text(BigInt::gcd(a, b)), text(BigInt::gcd(a, c)), text(BigInt::gcd(a, 0))};
        }},
    {"incdec",
        [](auto& a, auto&, long long) {
            BigInt x = a; // a braced list runs in order
            return Results {text(x++), text(x), text(++x), text(x--), text(x), text(--x), text(-a), text(!a)};
        }},
};

// Never zero, so that it can divide: valueWrong() covers zero.
BigInt randomBig(QRandomGenerator& rng, long long ifZero)
{
    static const int widths[] = {0, 1, 5, 31, 63, 64, 65, 127, 128, 200, 300};
    const int bits = widths[rng.bounded(int(std::size(widths)))];
    QByteArray hex = "0";
    for (int i = 0; i < (bits + 3) / 4; ++i)
        hex += "0123456789abcdef"[rng.bounded(16)];
    BigInt value(hex.toStdString(), 16);
    value >>= (4 - bits % 4) % 4; // trim to the width
    return !value ? BigInt(ifZero) : rng.bounded(2) ? -value : value;
}

long long randomLongLong(QRandomGenerator& rng)
{
    static const long long specials[] = {LLONG_MIN, LLONG_MAX, -1, 1, 2, -2, 7};
    const long long value = static_cast<long long>(rng.generate64()) >> rng.bounded(64);
    return rng.bounded(4) == 0 ? specials[rng.bounded(int(std::size(specials)))] : value == 0 ? 11 : value;
}

} // namespace

class BigIntTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // One python3 process computes every operation's reference (its start-up dominates).
    void operatorDisagreesWithPython_data()
    {
        QTest::addColumn<QByteArrayList>("operands");
        QTest::addColumn<QByteArrayList>("ours");
        QTest::addColumn<QByteArrayList>("theirs");
        const QString python = QStandardPaths::findExecutable(QStringLiteral("python3"));
        if (python.isEmpty())
            QSKIP("python3 is needed as the reference");
        QByteArrayList operands[std::size(kOperations)];
        QByteArrayList ours[std::size(kOperations)];
        QByteArray input;
        for (size_t op = 0; op < std::size(kOperations); ++op) {
            QRandomGenerator rng(qHash(QString::fromLatin1(kOperations[op].name)));
            for (int i = 0; i < 60; ++i) {
                const BigInt a = randomBig(rng, 3);
                const BigInt b = i % 7 == 0 ? a : randomBig(rng, -5); // equal operands now and then
                const long long c = randomLongLong(rng);
                operands[op] << QByteArray::fromStdString(str(a) + ' ' + str(b) + ' ' + std::to_string(c));
                ours[op] << kOperations[op].run(a, b, c).join(QLatin1Char(' ')).toLatin1();
                input += kOperations[op].name + (' ' + operands[op].last()) + '\n';
            }
        }
        QProcess process;
        process.start(python, {QStringLiteral("-c"), QString::fromLatin1(kPython)});
        process.write(input);
        process.closeWriteChannel();
        QVERIFY(process.waitForFinished(60000));
        QCOMPARE(process.exitCode(), 0);
        const QByteArrayList theirs = process.readAllStandardOutput().split('\n');
        for (size_t op = 0; op < std::size(kOperations); ++op)
            QTest::newRow(kOperations[op].name) << operands[op] << ours[op] << theirs.mid(60 * int(op), 60);
    }
    void operatorDisagreesWithPython()
    {
        QFETCH(QByteArrayList, operands);
        QFETCH(QByteArrayList, ours);
        QFETCH(QByteArrayList, theirs);
        for (int i = 0; i < ours.size(); ++i)
            QVERIFY2(ours.at(i) == theirs.value(i),
                (operands.at(i) + ": ours " + ours.at(i) + ", python " + theirs.value(i)).constData());
    }
    void primalityWrong_data()
    {
        QTest::addColumn<QString>("number");
        QTest::addColumn<bool>("prime");

        QTest::newRow("zero") << "0" << false;
        QTest::newRow("one") << "1" << false;
        QTest::newRow("two") << "2" << true;
        QTest::newRow("mersenne127") << "170141183460469231731687303715884105727" << true;
        QTest::newRow("largestBelow2to64") << "18446744073709551557" << true;
        QTest::newRow("carmichael561") << "561" << false;
        QTest::newRow("strongPseudoprimeBases2to7") << "3215031751" << false;
        QTest::newRow("strongPseudoprimeBases2to23") << "3825123056546413051" << false;
    }
    void primalityWrong()
    {
        QFETCH(QString, number);
        QFETCH(bool, prime);
        const BigInt n(number.toStdString(), 10);
        QCOMPARE(n.isPrime(false), prime);
        // Only composites and small primes are certain; a large prime is only likely.
        if (!prime || n < 1000000)
            QCOMPARE(n.isPrime(true), prime);
    }
    void valueWrong_data()
    {
        QTest::addColumn<QString>("actual");
        QTest::addColumn<QString>("expected");
        const auto inBase
            = [](const BigInt& v, int base) { return QString::fromStdString(v.getString(base)); };
        QTest::newRow("repeatedBinaryDigit") << text(BigInt('1', 3, 2)) << "7";
        QTest::newRow("zeroRepeatsIsZero") << text(BigInt('7', 0, 10)) << "0";
        QTest::newRow("prefixDetectedHex") << text(BigInt("0x1f", 0)) << "31";
        QTest::newRow("invalidTextIsZero") << text(BigInt("12x4", 10)) << "0";
        QTest::newRow("negativeLowerHex") << inBase(BigInt(-255), 16) << "-ff";
        QTest::newRow("bigPow10Three") << text(BigInt::bigPow10(3)) << "1000";
        QTest::newRow("invalidStringOperandIsZero") << text(BigInt(5) + std::string("ten")) << "5";
        QTest::newRow("assignDecimalText") << text(BigInt() = std::string("-123")) << "-123";
        QTest::newRow("pow") << text(BigInt(3).pow(40)) << "12157665459056928801";

        // longBits and longBytes measure the value (a sign counts as a bit), sizeBits and
        // sizeBytes the limbs in use.
        const auto sizes = [](const BigInt& v) {
            return Results {text(v.longBits()), text(v.longBytes()), text(v.sizeBits()), text(v.sizeBytes())}
                .join(' ');
        };
        QTest::newRow("sizesOfZero") << sizes(0) << "1 1 0 0";
        QTest::newRow("sizesOf255") << sizes(255) << "8 1 64 8";
        QTest::newRow("sizesOf256") << sizes(256) << "9 2 64 8";
        QTest::newRow("sizesOfMinusOne") << sizes(-1) << "2 1 64 8";
        QTest::newRow("sizesOf2to64") << sizes(BigInt("18446744073709551616", 10)) << "65 9 128 16";
        // Reserving room changes the capacity, never the value.
        const BigInt roomy(BigInt("-123456789", 10), 4096);
        QTest::newRow("roomKeepsValue") << text(roomy) << "-123456789";
        QTest::newRow("roomReserved") << text(roomy.sizeType() >= 4096 / 8) << "1";
        // A zero divisor or modulus gives zero instead of GMP's abort, and so does a
        // negative exponent without an inverse (4 modulo 8; 3 is its own).
        const BigInt a(12345);
        const Results zeroes {text(a / BigInt(0)), text(a % BigInt(0)), text(a / 0LL), text(a % 0LL),
            text(a / std::string("0")), text(BigInt::powm(a, 5, 0)), text(BigInt::powm(4, -1, 8)),
            text(BigInt::powm(3, -1, 8))};
        QTest::newRow("zeroDivisorsAndNoInverse") << zeroes.join(' ') << "0 0 0 0 0 0 0 3";
        // fromHex() says whether the text was read, and leaves zero when it was not.
        BigInt hex;
        QTest::newRow("fromHexResult")
            << Results {text(hex.fromHex("ff")), text(hex), text(hex.fromHex("fg")), text(hex)}.join(' ')
            << "0 255 -1 0";
        // Copies and moves own their value: a change to one never shows in another.
        const BigInt original("123456789012345678901234567890", 10);
        BigInt copy(original), assigned;
        (assigned = original) *= 2;
        QTest::newRow("copiesIndependent")
            << Results {text(++copy), text(original), text(BigInt(std::move(copy)))}.join(' ')
            << "123456789012345678901234567891 123456789012345678901234567890 "
               "123456789012345678901234567891";
    }
    void valueWrong()
    {
        QFETCH(QString, actual);
        QFETCH(QString, expected);
        QCOMPARE(actual, expected);
    }
};

QTEST_GUILESS_MAIN(BigIntTest)
#include "tst_bigint.moc"
