// The log-service codecs against published test vectors and against OpenSSL.
#include <ZrUtils/CodecTool.h>

#include "logservice/Md5.h"
#include "logservice/Sha1.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

using cloudlog_sdk_v6::CodecTool;

namespace
{

std::string bytes(const QByteArray& b)
{
    return std::string(b.constData(), size_t(b.size()));
}

QByteArray hexOf(const std::string& s)
{
    return QByteArray(s.data(), int(s.size())).toHex();
}

QByteArray randomBytes(QRandomGenerator& random, int size)
{
    QByteArray b(size, Qt::Uninitialized);
    for (char& c : b)
        c = char(random.bounded(256));
    return b;
}

QByteArray opensslDigest(const EVP_MD* md, const QByteArray& data)
{
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.constData(), size_t(data.size()), out, &length, md, nullptr);
    return QByteArray(reinterpret_cast<const char*>(out), int(length));
}

QByteArray opensslHmac(const QByteArray& message, const QByteArray& key)
{
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha1(), key.constData(), key.size(), reinterpret_cast<const unsigned char*>(message.constData()),
        size_t(message.size()), out, &length);
    return QByteArray(reinterpret_cast<const char*>(out), int(length));
}

QByteArray sha1Hex(const QByteArray& data)
{
    cloudlog_sdk_v6::SHA1 sha;
    // Fed in uneven slices so that block boundaries fall inside add() calls.
    for (int offset = 0; offset < data.size(); offset += 37)
        sha.add(data.constData() + offset, size_t(qMin(37, data.size() - offset)));
    return QByteArray(reinterpret_cast<const char*>(sha.result()), 20).toHex();
}

} // namespace

class LogCodecsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void md5Rfc1321_data();
    void md5Rfc1321();
    void sha1Fips180_data();
    void sha1Fips180();
    void hmacRfc2202_data();
    void hmacRfc2202();
    void hashesDisagreeWithOpenSsl();
    void longKeyNotHashedFirst();
    void base64Padding_data();
    void base64Padding();
    void base64DisagreesWithQt();
    void urlEncodeWrongSet_data();
    void urlEncodeWrongSet();
    void httpDateWrong_data();
    void httpDateWrong();
    void currentDateMalformed();
    void numberTextWrong();
    void startWithWrong_data();
    void startWithWrong();
};

void LogCodecsTest::md5Rfc1321_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QByteArray>("digest");
    QTest::newRow("empty") << QByteArray() << QByteArray("D41D8CD98F00B204E9800998ECF8427E");
    QTest::newRow("a") << QByteArray("a") << QByteArray("0CC175B9C0F1B6A831C399E269772661");
    QTest::newRow("abc") << QByteArray("abc") << QByteArray("900150983CD24FB0D6963F7D28E17F72");
    QTest::newRow("messageDigest") << QByteArray("message digest")
                                   << QByteArray("F96B697D7CB7938D525A2F31AAF161D0");
    QTest::newRow("alphabet") << QByteArray("abcdefghijklmnopqrstuvwxyz")
                              << QByteArray("C3FCD3D76192E4007DFB496CCA67E13B");
    QTest::newRow("alphanumeric") << QByteArray(
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789")
                                  << QByteArray("D174AB98D277D9F5A5611C2C9F419D9F");
    QTest::newRow("eightyDigitsTwoBlocks")
        << QByteArray("1234567890").repeated(8) << QByteArray("57EDF4A22BE3C955AC49DA2E2107B67A");
}

void LogCodecsTest::md5Rfc1321()
{
    QFETCH(QByteArray, message);
    QFETCH(QByteArray, digest);
    QCOMPARE(QByteArray::fromStdString(CodecTool::CalcMD5(bytes(message))), digest);
}

void LogCodecsTest::sha1Fips180_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QByteArray>("digest");
    QTest::newRow("abc") << QByteArray("abc") << QByteArray("a9993e364706816aba3e25717850c26c9cd0d89d");
    QTest::newRow("twoBlocks") << QByteArray("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")
                               << QByteArray("84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    QTest::newRow("millionA") << QByteArray(1000000, 'a')
                              << QByteArray("34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

void LogCodecsTest::sha1Fips180()
{
    QFETCH(QByteArray, message);
    QFETCH(QByteArray, digest);
    QCOMPARE(sha1Hex(message), digest);
}

void LogCodecsTest::hmacRfc2202_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QByteArray>("mac");
    QTest::newRow("1") << QByteArray(20, '\x0b') << QByteArray("Hi There")
                       << QByteArray("b617318655057264e28bc0b6fb378c8ef146be00");
    QTest::newRow("2") << QByteArray("Jefe") << QByteArray("what do ya want for nothing?")
                       << QByteArray("effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
    QTest::newRow("3") << QByteArray(20, '\xaa') << QByteArray(50, '\xdd')
                       << QByteArray("125d7342b9ac11cd91a39af48aa17b4f63f175d3");
    QTest::newRow("4") << QByteArray::fromHex("0102030405060708090a0b0c0d0e0f10111213141516171819")
                       << QByteArray(50, '\xcd') << QByteArray("4c9007f4026250c6bc8414f9bf50c86c2d7235da");
    QTest::newRow("5") << QByteArray(20, '\x0c') << QByteArray("Test With Truncation")
                       << QByteArray("4c1a03424b55e07fe7f27be1d58bb9324a9a5a04");
    QTest::newRow("6keyLongerThanBlock")
        << QByteArray(80, '\xaa') << QByteArray("Test Using Larger Than Block-Size Key - Hash Key First")
        << QByteArray("aa4ae5e15272d00e95705637ce8a3b55ed402112");
    QTest::newRow("7keyAndDataLongerThanBlock")
        << QByteArray(80, '\xaa')
        << QByteArray("Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data")
        << QByteArray("e8e99d0f45237d786d6bbaa7965c7808bbff1a91");
}

void LogCodecsTest::hmacRfc2202()
{
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, message);
    QFETCH(QByteArray, mac);
    // Message first, key second; raw bytes, not text.
    const std::string result = CodecTool::CalcSHA1(bytes(message), bytes(key));
    QCOMPARE(result.size(), size_t(20));
    QCOMPARE(hexOf(result), mac);
}

void LogCodecsTest::hashesDisagreeWithOpenSsl()
{
    QRandomGenerator random(20240611);
    // Every length around the padding boundaries of one and two blocks, then some larger ones.
    QList<int> sizes;
    for (int n = 0; n <= 140; ++n)
        sizes << n;
    sizes << 1000 << 4095 << 65536 << (1 << 20) + 3;
    for (const int size : sizes) {
        const QByteArray data = randomBytes(random, size);
        const QByteArray key = randomBytes(random, random.bounded(0, 130));
        QCOMPARE(QByteArray::fromStdString(CodecTool::CalcMD5(bytes(data))),
            opensslDigest(EVP_md5(), data).toHex().toUpper());
        QCOMPARE(sha1Hex(data), opensslDigest(EVP_sha1(), data).toHex());
        QCOMPARE(hexOf(CodecTool::CalcSHA1(bytes(data), bytes(key))), opensslHmac(data, key).toHex());
    }
}

void LogCodecsTest::longKeyNotHashedFirst()
{
    const QByteArray key(65, 'k');
    const std::string hashedKey = bytes(opensslDigest(EVP_sha1(), key));
    QCOMPARE(CodecTool::CalcSHA1("message", bytes(key)), CodecTool::CalcSHA1("message", hashedKey));
    // 64 bytes is still one block: used as it is.
    const QByteArray blockKey(64, 'k');
    QVERIFY(CodecTool::CalcSHA1("message", bytes(blockKey))
        != CodecTool::CalcSHA1("message", bytes(opensslDigest(EVP_sha1(), blockKey))));
}

void LogCodecsTest::base64Padding_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("empty") << QByteArray() << QByteArray();
    QTest::newRow("oneZero") << QByteArray(1, '\0') << QByteArray("AA==");
    QTest::newRow("twoZeros") << QByteArray(2, '\0') << QByteArray("AAA=");
    QTest::newRow("threeZeros") << QByteArray(3, '\0') << QByteArray("AAAA");
    QTest::newRow("foobar") << QByteArray("foobar") << QByteArray("Zm9vYmFy");
    QTest::newRow("plusAndSlash") << QByteArray("\xfb\xff\xbf", 3) << QByteArray("+/+/");
}

void LogCodecsTest::base64Padding()
{
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, text);
    QCOMPARE(QByteArray::fromStdString(CodecTool::Base64Enconde(bytes(data))), text);
}

void LogCodecsTest::base64DisagreesWithQt()
{
    QRandomGenerator random(7);
    for (int size = 0; size < 200; ++size) {
        const QByteArray data = randomBytes(random, size * 7);
        // Long inputs too: no line breaks, ever.
        QCOMPARE(QByteArray::fromStdString(CodecTool::Base64Enconde(bytes(data))), data.toBase64());
    }
}

void LogCodecsTest::urlEncodeWrongSet_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("encoded");
    QTest::newRow("unreservedKept") << QByteArray("azAZ09-._~") << QByteArray("azAZ09-._~");
    QTest::newRow("blank") << QByteArray("a b") << QByteArray("a%20b");
    QTest::newRow("plusAndSlash") << QByteArray("+/") << QByteArray("%2B%2F");
    QTest::newRow("queryDelimiters") << QByteArray("a=1&b?") << QByteArray("a%3D1%26b%3F");
    QTest::newRow("utf8UpperHex") << QByteArray("\xc3\xa9") << QByteArray("%C3%A9");
    QTest::newRow("zeroByteKept") << QByteArray("a\0b", 3) << QByteArray("a%00b");
    QTest::newRow("empty") << QByteArray() << QByteArray();
}

void LogCodecsTest::urlEncodeWrongSet()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, encoded);
    QCOMPARE(QByteArray::fromStdString(CodecTool::UrlEncode(bytes(text))), encoded);
}

void LogCodecsTest::httpDateWrong_data()
{
    QTest::addColumn<qint64>("seconds");
    QTest::addColumn<QByteArray>("date");
    QTest::newRow("epoch") << qint64(0) << QByteArray("Thu, 01 Jan 1970 00:00:00 GMT");
    QTest::newRow("singleDigitsPadded") << qint64(784111777) << QByteArray("Sun, 06 Nov 1994 08:49:37 GMT");
    QTest::newRow("leapDay") << qint64(951782400) << QByteArray("Tue, 29 Feb 2000 00:00:00 GMT");
    QTest::newRow("lastFourDigitYear") << qint64(253402300799) << QByteArray("Fri, 31 Dec 9999 23:59:59 GMT");
    // The 26-byte buffer holds one four-digit-year date; a longer one is cut short.
    QTest::newRow("fiveDigitYearCutShort")
        << qint64(253402300800) << QByteArray("Sat, 01 Jan 10000 00:00:0 GMT");
}

void LogCodecsTest::httpDateWrong()
{
    QFETCH(qint64, seconds);
    QFETCH(QByteArray, date);
    QCOMPARE(QByteArray::fromStdString(CodecTool::ToGmtTime(std::time_t(seconds), "%Y ignored")), date);
}

void LogCodecsTest::currentDateMalformed()
{
    const std::time_t before = std::time(nullptr);
    const QByteArray now = QByteArray::fromStdString(CodecTool::GetDateString());
    const std::time_t after = std::time(nullptr);
    QVERIFY(now == QByteArray::fromStdString(CodecTool::ToGmtTime(before, {}))
        || now == QByteArray::fromStdString(CodecTool::ToGmtTime(after, {})));
    QVERIFY(QRegularExpression("^[A-Z][a-z]{2}, \\d\\d [A-Z][a-z]{2} \\d{4} \\d\\d:\\d\\d:\\d\\d GMT$")
                .match(QString::fromLatin1(now))
                .hasMatch());
}

void LogCodecsTest::numberTextWrong()
{
    using cloudlog_sdk_v6::ToString;
    QCOMPARE(ToString(int32_t(-1)), std::string("-1"));
    QCOMPARE(ToString(int32_t(INT32_MIN)), std::string("-2147483648"));
    QCOMPARE(ToString(uint32_t(4294967295u)), std::string("4294967295"));
    QCOMPARE(ToString(int64_t(INT64_MIN)), std::string("-9223372036854775808"));
    QCOMPARE(ToString(true), std::string("true"));
    QCOMPARE(ToString(false), std::string("false"));
}

void LogCodecsTest::startWithWrong_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("prefix");
    QTest::addColumn<bool>("result");
    QTest::newRow("emptyPrefixMatches") << QByteArray() << QByteArray() << true;
    QTest::newRow("prefix") << QByteArray("x-log-a") << QByteArray("x-log-") << true;
    QTest::newRow("caseSensitive") << QByteArray("X-Log-a") << QByteArray("x-log-") << false;
    QTest::newRow("prefixLongerThanText") << QByteArray("x-log") << QByteArray("x-log-") << false;
}

void LogCodecsTest::startWithWrong()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, prefix);
    QFETCH(bool, result);
    QCOMPARE(CodecTool::StartWith(bytes(text), bytes(prefix)), result);
}

QTEST_GUILESS_MAIN(LogCodecsTest)
#include "tst_logcodecs.moc"
