// Keys without a genesis must not be a function of anything an attacker can
// enumerate. This binary replaces the C library's rand() with a constant, and
// keygenchild stops the clock, so a key that still depended on either would repeat.
// The primes are recovered from each pair and handed to `openssl prime`.
#include <ZrUtils/QRSAEncryption.h>

#include "Mpz.h"
#include "crypto/RsaMath.h"

#include <QProcess>
#include <QSet>
#include <QTest>

using RSA = ZrUtils::QRSAEncryption;
namespace Internal = ZrUtils::Internal;

// The library's calls to rand() and srand() land here instead of the C library
// (exported: the project hides symbols by default).
extern "C" Q_DECL_EXPORT int rand()
{
    return 7;
}
extern "C" Q_DECL_EXPORT void srand(unsigned int) { }

namespace
{

// p and q of n from e and d: e·d - 1 = 2^t·r, and for most g some square root of 1
// in the chain g^r, g^2r, ... is not ±1, which gives a factor through a gcd.
bool factor(const QByteArray& pub, const QByteArray& priv, int half, Mpz& p, Mpz& q)
{
    const Mpz e(pub.left(half)), n(pub.mid(half)), d(priv.left(half));
    Mpz r, y, x, nMinusOne;
    mpz_mul(r.value, e.value, d.value);
    mpz_sub_ui(r.value, r.value, 1);
    const mp_bitcnt_t t = mpz_scan1(r.value, 0);
    mpz_fdiv_q_2exp(r.value, r.value, t);
    mpz_sub_ui(nMinusOne.value, n.value, 1);
    for (unsigned long g = 2; g < 200; ++g) {
        mpz_set_ui(y.value, g);
        mpz_powm(y.value, y.value, r.value, n.value);
        for (mp_bitcnt_t i = 0; i < t; ++i) {
            if (mpz_cmp_ui(y.value, 1) == 0 || mpz_cmp(y.value, nMinusOne.value) == 0)
                break;
            mpz_powm_ui(x.value, y.value, 2, n.value);
            if (mpz_cmp_ui(x.value, 1) == 0) {
                mpz_sub_ui(y.value, y.value, 1);
                mpz_gcd(p.value, y.value, n.value);
                mpz_divexact(q.value, n.value, p.value);
                return true;
            }
            mpz_swap(x.value, y.value);
        }
    }
    return false;
}

} // namespace

class RsaKeygenTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // Without this the test would prove nothing: the library must see our rand().
        QVERIFY(Internal::randomNumber(64, false) == 64); // two factors of 7 + 1
    }

    // 200 pairs with rand() fixed: 400 distinct primes of exactly half the key size,
    // each one accepted by OpenSSL.
    void keysFollowRand()
    {
        constexpr int Pairs = 200;
        constexpr int Bits = 512;
        QSet<QByteArray> primes;
        QStringList arguments {QStringLiteral("prime"), QStringLiteral("-hex")};
        for (int i = 0; i < Pairs; ++i) {
            QByteArray pub, priv;
            QVERIFY(RSA::generatePairKey(pub, priv, RSA::RSA_512));
            Mpz p, q;
            QVERIFY(factor(pub, priv, Bits / 8, p, q));
            QCOMPARE(int(mpz_sizeinbase(p.value, 2)), Bits / 2);
            QCOMPARE(int(mpz_sizeinbase(q.value, 2)), Bits / 2);
            primes.insert(p.hex());
            primes.insert(q.hex());
            arguments << QString::fromLatin1(p.hex()) << QString::fromLatin1(q.hex());
        }
        QCOMPARE(primes.size(), 2 * Pairs);

        QProcess openssl;
        openssl.start(QStringLiteral("openssl"), arguments);
        QVERIFY(openssl.waitForFinished(60000));
        const QByteArray verdicts = openssl.readAllStandardOutput();
        QCOMPARE(verdicts.count(" is prime"), 2 * Pairs);
        QCOMPARE(verdicts.count("not prime"), 0);
    }

    // Two processes whose clocks read the same instant draw different keys.
    void keysFollowClock()
    {
        QProcess first, second;
        for (QProcess* child : {&first, &second})
            child->start(QStringLiteral(KEYGENCHILD), {QStringLiteral("4")});
        QList<QByteArray> seeds;
        QSet<QByteArray> pairs;
        for (QProcess* child : {&first, &second}) {
            QVERIFY(child->waitForFinished(60000));
            QCOMPARE(child->exitCode(), 0);
            QList<QByteArray> lines = child->readAllStandardOutput().trimmed().split('\n');
            QCOMPARE(lines.size(), 5);
            seeds.append(lines.takeFirst());
            for (const QByteArray& line : lines)
                pairs.insert(line);
        }
        QCOMPARE(seeds.at(0), seeds.at(1)); // the clock did stand still in both
        QCOMPARE(pairs.size(), 8);
    }
};

QTEST_GUILESS_MAIN(RsaKeygenTest)
#include "tst_rsakeygen.moc"
