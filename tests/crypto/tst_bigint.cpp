// Operator results are compared with Python's integers, computed in one python3
// process per operator family, so a fault in our use of GMP cannot hide behind GMP.
#include <ZrUtils/BigInt.h>

#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTest>

#include <climits>
#include <functional>
#include <type_traits>
#include <utility>

Q_DECLARE_METATYPE(BigInt)

// The text forms must only match a real BigInt: a number next to a std::string may
// not quietly turn into BigInt arithmetic through the conversion from long long.
template<typename L, typename R, typename = void> struct Addable : std::false_type {
};
template<typename L, typename R>
struct Addable<L, R, std::void_t<decltype(std::declval<L>() + std::declval<R>())>> : std::true_type {
};
template<typename L, typename R, typename = void> struct Comparable : std::false_type {
};
template<typename L, typename R>
struct Comparable<L, R, std::void_t<decltype(std::declval<L>() == std::declval<R>())>> : std::true_type {
};
static_assert(!Addable<std::string, int>::value && !Addable<long long, std::string>::value,
    "text plus a number compiles");
static_assert(!Comparable<std::string, int>::value, "text compared with a number compiles");
static_assert(Addable<BigInt, std::string>::value && Addable<std::string, const BigInt&>::value
        && Comparable<std::string, BigInt>::value && Addable<BigInt, const char*>::value,
    "a BigInt text form is missing");

namespace
{

using Results = QStringList;
using Operation = std::function<Results(const BigInt& a, const BigInt& b, long long c)>;

QString text(const BigInt& value)
{
    return QString::fromStdString(value.getString(10));
}

std::string str(const BigInt& value)
{
    return value.getString(10);
}

QString flag(bool value)
{
    return value ? QStringLiteral("1") : QStringLiteral("0");
}

// Python twins of the operations below; truncating division like ours.
const char kPython[] = R"(
import sys, math
def td(a, b):
    q = abs(a) // abs(b)
    return q if (a < 0) == (b < 0) else -q
def tm(a, b): return a - b * td(a, b)
def shl(a, n): return a << n if n >= 0 else td(a, 1 << -n)
def shr(a, n): return td(a, 1 << n) if n >= 0 else a << -n
def cmp(x, y): return [x == y, x != y, x < y, x > y, x <= y, x >= y]
def compound(a, b, c):
    x = a; x += b; x -= c; x *= b; x = td(x, c); r1 = x
    x = tm(x, a); r2 = x
    x += b; x -= b; x *= c; x = td(x, b); x = tm(x, c); r3 = x
    return [r1, r2, r3]
def bitwise(a, b, c):
    x = a; x &= b; x |= c; x ^= b
    return [a & b, a & c, a | b, a | c, a ^ b, a ^ c, ~a, x]
def incdec(a):
    return [a + 1, a, a + 1, a - 1, a, a - 1, -a, int(a == 0)]
ops = {
    'add': lambda a, b, c: [a + b, a + c, c + a, a + b, b + a],
    'sub': lambda a, b, c: [a - b, a - c, c - a, a - b, b - a],
    'mul': lambda a, b, c: [a * b, a * c, c * a, a * b, b * a],
    'div': lambda a, b, c: [td(a, b), td(a, c), td(c, a), td(a, b), td(b, a)],
    'mod': lambda a, b, c: [tm(a, b), tm(a, c), tm(c, a), tm(a, b), tm(b, a)],
    'compound': compound,
    'bitwise': bitwise,
    'shift': lambda a, b, c: [shl(a, c % 300 - 100), shr(a, c % 300 - 100), shl(a, 0), shr(a, 0), shr(a, 64), shl(a, 64)],
    'powm': lambda a, b, c: [pow(a, abs(b), abs(c) + 1), pow(a, abs(c) % 1000, abs(b) + 1)],
    'gcd': lambda a, b, c: [math.gcd(a, b), math.gcd(a, c), math.gcd(a, 0)],
    'compare': lambda a, b, c: cmp(a, b) + cmp(a, c) + cmp(c, a) + cmp(a, b) + cmp(b, a) + cmp(a, a),
    'incdec': lambda a, b, c: incdec(a),
}
for line in sys.stdin:
    name, a, b, c = line.split()
    print(' '.join(str(int(v)) for v in ops[name](int(a), int(b), int(c))))
)";

Results compound(const BigInt& a, const BigInt& b, long long c)
{
    BigInt x = a;
    x += b;
    x -= c;
    x *= str(b);
    x /= c;
    const BigInt r1 = x;
    x %= a;
    const BigInt r2 = x;
    x += str(b);
    x -= str(b);
    x *= c;
    x /= str(b);
    x %= c;
    return {text(r1), text(r2), text(x)};
}

Results bitwise(const BigInt& a, const BigInt& b, long long c)
{
    BigInt x = a;
    x &= b;
    x |= c;
    x ^= b;
    return {text(a & b), text(a & c), text(a | b), text(a | c), text(a ^ b), text(a ^ c), text(~a), text(x)};
}

Results compare(const BigInt& a, const BigInt& b, long long c)
{
    const std::string sa = str(a);
    const std::string sb = str(b);
    Results r;
    r << flag(a == b) << flag(a != b) << flag(a < b) << flag(a > b) << flag(a <= b) << flag(a >= b);
    r << flag(a == c) << flag(a != c) << flag(a < c) << flag(a > c) << flag(a <= c) << flag(a >= c);
    r << flag(c == a) << flag(c != a) << flag(c < a) << flag(c > a) << flag(c <= a) << flag(c >= a);
    r << flag(a == sb) << flag(a != sb) << flag(a < sb) << flag(a > sb) << flag(a <= sb) << flag(a >= sb);
    r << flag(sb == a) << flag(sb != a) << flag(sb < a) << flag(sb > a) << flag(sb <= a) << flag(sb >= a);
    r << flag(a == sa) << flag(a != sa) << flag(a < sa) << flag(a > sa) << flag(a <= sa) << flag(a >= sa);
    return r;
}

Results incdec(const BigInt& a)
{
    BigInt x = a;
    const BigInt post = x++;
    BigInt y = a;
    const BigInt pre = ++y;
    BigInt z = a;
    const BigInt postDown = z--;
    BigInt w = a;
    const BigInt preDown = --w;
    return {text(x), text(post), text(pre), text(z), text(postDown), text(preDown), text(-a), flag(!a)};
}

Operation operation(const QString& name)
{
    if (name == QLatin1String("add"))
        return [](const BigInt& a, const BigInt& b, long long c) {
            return Results {text(a + b), text(a + c), text(c + a), text(a + str(b)), text(str(b) + a)};
        };
    if (name == QLatin1String("sub"))
        return [](const BigInt& a, const BigInt& b, long long c) {
            return Results {text(a - b), text(a - c), text(c - a), text(a - str(b)), text(str(b) - a)};
        };
    if (name == QLatin1String("mul"))
        return [](const BigInt& a, const BigInt& b, long long c) {
            return Results {text(a * b), text(a * c), text(c * a), text(a * str(b)), text(str(b) * a)};
        };
    if (name == QLatin1String("div"))
        return [](const BigInt& a, const BigInt& b, long long c) {
            return Results {text(a / b), text(a / c), text(c / a), text(a / str(b)), text(str(b) / a)};
        };
    if (name == QLatin1String("mod"))
        return [](const BigInt& a, const BigInt& b, long long c) {
            return Results {text(a % b), text(a % c), text(c % a), text(a % str(b)), text(str(b) % a)};
        };
    if (name == QLatin1String("compound"))
        return compound;
    if (name == QLatin1String("bitwise"))
        return bitwise;
    if (name == QLatin1String("shift"))
        return [](const BigInt& a, const BigInt&, long long c) {
            const int n = static_cast<int>((c % 300 + 300) % 300) - 100; // Python's modulo is floored
            BigInt left = a;
            left <<= 64;
            BigInt right = a;
            right >>= 64;
            return Results {text(a << n), text(a >> n), text(a << 0), text(a >> 0), text(right), text(left)};
        };
    if (name == QLatin1String("powm"))
        return [](const BigInt& a, const BigInt& b, long long c) {
            BigInt absB = b < 0 ? -b : b;
            BigInt absC = c < 0 ? -BigInt(c) : BigInt(c);
            BigInt member = a;
            member.powm(absC % 1000, absB + 1);
            return Results {text(BigInt::powm(a, absB, absC + 1)), text(member)};
        };
    if (name == QLatin1String("gcd"))
        return [](const BigInt& a, const BigInt& b, long long c) {
            return Results {text(BigInt::gcd(a, b)), text(BigInt::gcd(a, c)), text(BigInt::gcd(a, 0))};
        };
    if (name == QLatin1String("compare"))
        return compare;
    return [](const BigInt& a, const BigInt&, long long) { return incdec(a); };
}

BigInt randomBig(QRandomGenerator& rng)
{
    static const int widths[] = {0, 1, 5, 31, 63, 64, 65, 127, 128, 200, 300};
    const int bits = widths[rng.bounded(int(sizeof(widths) / sizeof(widths[0])))];
    QByteArray hex = "0";
    for (int i = 0; i < (bits + 3) / 4; ++i)
        hex += "0123456789abcdef"[rng.bounded(16)];
    BigInt value(hex.toStdString(), 16);
    value >>= (4 - bits % 4) % 4; // trim to the width
    return rng.bounded(2) ? -value : value;
}

long long randomLongLong(QRandomGenerator& rng)
{
    static const long long specials[] = {LLONG_MIN, LLONG_MAX, -1, 1, 2, -2, 7};
    if (rng.bounded(4) == 0)
        return specials[rng.bounded(int(sizeof(specials) / sizeof(specials[0])))];
    return static_cast<long long>(rng.generate64()) >> rng.bounded(64);
}

} // namespace

class BigIntTest : public QObject
{
    Q_OBJECT

private:
    // Per operation: the operands fed to Python, our results, Python's results.
    struct Batch {
        QList<QByteArray> operands;
        QStringList ours;
        QStringList python;
    };
    QMap<QString, Batch> m_batches;
    QString m_pythonError;

private Q_SLOTS:
    void initTestCase();
    void operatorDisagreesWithPython_data();
    void operatorDisagreesWithPython();
    void primalityWrong_data();
    void primalityWrong();
    void textConversionWrong_data();
    void textConversionWrong();
    void sizeMeasuresWrong_data();
    void sizeMeasuresWrong();
    void zeroDivisorAborts();
    void copiesShareValue();
};

namespace
{
const char* const kOperations[]
    = {"add", "sub", "mul", "div", "mod", "compound", "bitwise", "shift", "powm", "gcd", "compare", "incdec"};
}

// One python3 process computes every operation's reference (its start-up dominates).
void BigIntTest::initTestCase()
{
    const QString python = QStandardPaths::findExecutable(QStringLiteral("python3"));
    if (python.isEmpty()) {
        m_pythonError = QStringLiteral("python3 is needed as the reference");
        return;
    }
    QByteArray input;
    for (const char* name : kOperations) {
        const QString operation = QString::fromLatin1(name);
        QRandomGenerator rng(qHash(operation));
        const Operation run = ::operation(operation);
        Batch& batch = m_batches[operation];
        for (int i = 0; i < 60; ++i) {
            BigInt a = randomBig(rng);
            BigInt b = i % 7 == 0 ? a : randomBig(rng); // equal operands now and then
            long long c = randomLongLong(rng);
            // Divisors and moduli are never zero here; zeroDivisorAborts() covers zero.
            if (!a)
                a = 3;
            if (!b)
                b = -5;
            if (c == 0)
                c = 11;
            const QByteArray operands
                = QByteArray::fromStdString(str(a) + ' ' + str(b) + ' ' + std::to_string(c));
            input += QByteArray(name) + ' ' + operands + '\n';
            batch.operands.append(operands);
            batch.ours.append(run(a, b, c).join(QLatin1Char(' ')));
        }
    }

    QProcess process;
    process.start(python, {QStringLiteral("-c"), QString::fromLatin1(kPython)});
    QVERIFY(process.waitForStarted(30000));
    process.write(input);
    process.closeWriteChannel();
    QVERIFY(process.waitForFinished(60000));
    QCOMPARE(process.exitCode(), 0);
    const QList<QByteArray> lines = process.readAllStandardOutput().trimmed().split('\n');
    int line = 0;
    for (const char* name : kOperations) {
        Batch& batch = m_batches[QString::fromLatin1(name)];
        for (int i = 0; i < batch.operands.size() && line < lines.size(); ++i)
            batch.python.append(QString::fromLatin1(lines.at(line++)));
    }
}

void BigIntTest::operatorDisagreesWithPython_data()
{
    QTest::addColumn<QString>("operation");
    for (const char* name : kOperations)
        QTest::newRow(name) << QString::fromLatin1(name);
}

void BigIntTest::operatorDisagreesWithPython()
{
    QFETCH(QString, operation);
    if (!m_pythonError.isEmpty())
        QSKIP(qPrintable(m_pythonError));
    const Batch& batch = m_batches.value(operation);
    QCOMPARE(batch.python.size(), batch.ours.size());
    for (int i = 0; i < batch.ours.size(); ++i) {
        if (batch.ours.at(i) != batch.python.at(i))
            qWarning("operands: %s", batch.operands.at(i).constData());
        QCOMPARE(batch.ours.at(i), batch.python.at(i));
    }
}

void BigIntTest::primalityWrong_data()
{
    QTest::addColumn<QString>("number");
    QTest::addColumn<bool>("prime");
    QTest::addColumn<bool>("provenSmall"); // small enough for GMP to prove

    QTest::newRow("two") << "2" << true << true;
    QTest::newRow("ninetySeven") << "97" << true << true;
    QTest::newRow("thousandthPrime") << "7919" << true << true;
    QTest::newRow("mersenne61") << "2305843009213693951" << true << false;
    QTest::newRow("mersenne89") << "618970019642690137449562111" << true << false;
    QTest::newRow("mersenne127") << "170141183460469231731687303715884105727" << true << false;
    QTest::newRow("largestBelow2to64") << "18446744073709551557" << true << false;
    QTest::newRow("zero") << "0" << false << true;
    QTest::newRow("one") << "1" << false << true;
    QTest::newRow("carmichael561") << "561" << false << true;
    QTest::newRow("carmichael1105") << "1105" << false << true;
    QTest::newRow("carmichael1729") << "1729" << false << true;
    QTest::newRow("carmichael41041") << "41041" << false << true;
    QTest::newRow("carmichael9746347772161") << "9746347772161" << false << true;
    QTest::newRow("strongPseudoprimeBases2to7") << "3215031751" << false << true;
    QTest::newRow("strongPseudoprimeBases2to23") << "3825123056546413051" << false << true;
    QTest::newRow("productOfMersennes")
        << "392318858461667547739736838950479151006397215279002157055" << false << true;
}

void BigIntTest::primalityWrong()
{
    QFETCH(QString, number);
    QFETCH(bool, prime);
    QFETCH(bool, provenSmall);
    const BigInt n(number.toStdString(), 10);
    QCOMPARE(n.isPrime(false), prime);
    if (provenSmall)
        QCOMPARE(n.isPrime(true), prime);
    else
        QVERIFY(!n.isPrime(true) || n.isPrime(false));
}

void BigIntTest::textConversionWrong_data()
{
    QTest::addColumn<BigInt>("value");
    QTest::addColumn<int>("base");
    QTest::addColumn<QString>("expected");

    QTest::newRow("repeatedBinaryDigit") << BigInt('1', 3, 2) << 10 << "7";
    QTest::newRow("repeatedDecimalDigit") << BigInt('9', 2, 10) << 10 << "99";
    QTest::newRow("repeatedHexDigit") << BigInt('f', 8, 16) << 10 << "4294967295";
    QTest::newRow("zeroRepeatsIsZero") << BigInt('7', 0, 10) << 10 << "0";
    QTest::newRow("digitOutsideBase") << BigInt('9', 3, 8) << 10 << "0";
    QTest::newRow("prefixDetectedHex") << BigInt("0x1f", 0) << 10 << "31";
    QTest::newRow("prefixDetectedOctal") << BigInt("017", 0) << 10 << "15";
    QTest::newRow("invalidTextIsZero") << BigInt("12x4", 10) << 10 << "0";
    QTest::newRow("invalidBaseIsZero") << BigInt("11", 1) << 10 << "0";
    QTest::newRow("emptyTextIsZero") << BigInt("", 10) << 10 << "0";
    QTest::newRow("negativeLowerHex") << BigInt(-255) << 16 << "-ff";
    QTest::newRow("base36") << BigInt(35) << 36 << "z";
    QTest::newRow("invalidOutputBase") << BigInt(35) << 1 << "";
    QTest::newRow("bigPow10Zero") << BigInt::bigPow10(0) << 10 << "1";
    QTest::newRow("bigPow10Three") << BigInt::bigPow10(3) << 10 << "1000";
    QTest::newRow("negativeLongLongDivisor") << BigInt(-7) / 2LL << 10 << "-3";
    QTest::newRow("positiveByNegativeLongLong") << BigInt(7) / -2LL << 10 << "-3";
    QTest::newRow("stringOperand") << BigInt(5) + std::string("10") << 10 << "15";
    QTest::newRow("invalidStringOperandIsZero") << BigInt(5) + std::string("ten") << 10 << "5";
    QTest::newRow("lowestLongLong") << BigInt(LLONG_MIN) << 10 << "-9223372036854775808";
    BigInt assigned;
    assigned = std::string("-123");
    QTest::newRow("assignDecimalText") << assigned << 10 << "-123";
    BigInt negated(42);
    negated.toNegative();
    QTest::newRow("toNegative") << negated << 10 << "-42";
    BigInt raised(3);
    raised.pow(40);
    QTest::newRow("pow") << raised << 10 << "12157665459056928801";
}

void BigIntTest::textConversionWrong()
{
    QFETCH(BigInt, value);
    QFETCH(int, base);
    QFETCH(QString, expected);
    QCOMPARE(QString::fromStdString(value.getString(base)), expected);
}

void BigIntTest::sizeMeasuresWrong_data()
{
    QTest::addColumn<BigInt>("value");
    QTest::addColumn<int>("longBits");
    QTest::addColumn<int>("longBytes");
    QTest::addColumn<int>("sizeBits");

    QTest::newRow("zero") << BigInt(0) << 1 << 1 << 0;
    QTest::newRow("255") << BigInt(255) << 8 << 1 << 64;
    QTest::newRow("256") << BigInt(256) << 9 << 2 << 64;
    QTest::newRow("minusOneCountsSign") << BigInt(-1) << 2 << 1 << 64;
    QTest::newRow("twoTo64") << BigInt("18446744073709551616", 10) << 65 << 9 << 128;
}

void BigIntTest::sizeMeasuresWrong()
{
    QFETCH(BigInt, value);
    QFETCH(int, longBits);
    QFETCH(int, longBytes);
    QFETCH(int, sizeBits);
    QCOMPARE(value.longBits(), int(value.getString(2).size()));
    QCOMPARE(value.longBits(), longBits);
    QCOMPARE(value.longBytes(), longBytes);
    QCOMPARE(value.sizeBits(), sizeBits);
    QCOMPARE(value.sizeBytes(), sizeBits / 8);
    QVERIFY(value.sizeType() >= value.sizeBytes());
    // Reserving room changes the capacity, never the value.
    const BigInt roomy(value, 4096);
    QVERIFY(roomy.sizeType() >= 4096 / 8);
    QVERIFY(roomy == value);
}

void BigIntTest::zeroDivisorAborts()
{
    const BigInt a(12345);
    QVERIFY(a / BigInt(0) == 0);
    QVERIFY(a % BigInt(0) == 0);
    QVERIFY(a / 0LL == 0);
    QVERIFY(a % 0LL == 0);
    QVERIFY(a / std::string("0") == 0);
    QVERIFY(BigInt::powm(a, 5, 0) == 0);
    // A negative exponent needs an inverse: 4 has none modulo 8, 3 has 3 modulo 8.
    QVERIFY(BigInt::powm(4, -1, 8) == 0);
    QVERIFY(BigInt::powm(3, -1, 8) == 3);
    BigInt hex;
    QCOMPARE(hex.fromHex("ff"), 0);
    QVERIFY(hex == 255);
    QCOMPARE(hex.fromHex("fg"), -1);
    QVERIFY(hex == 0);
}

void BigIntTest::copiesShareValue()
{
    const BigInt original("123456789012345678901234567890", 10);
    BigInt copy(original);
    copy += 1;
    QVERIFY(original == "123456789012345678901234567890");
    BigInt assigned;
    assigned = original;
    assigned *= 2;
    QVERIFY(original == "123456789012345678901234567890");
    const BigInt sum = original + 1;
    QVERIFY(original == "123456789012345678901234567890");
    QVERIFY(sum == "123456789012345678901234567891");
    BigInt moved(std::move(copy));
    QVERIFY(moved == "123456789012345678901234567891");
}

QTEST_GUILESS_MAIN(BigIntTest)
#include "tst_bigint.moc"
