// The log-service codecs against published test vectors, OpenSSL and Qt.
#include <ZrUtils/CodecTool.h>

#include "logservice/Sha1.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <QRandomGenerator>
#include <QTest>

using cloudlog_sdk_v6::CodecTool;

namespace
{

QByteArray randomBytes(QRandomGenerator& random, int size)
{
    QByteArray b(size, Qt::Uninitialized);
    for (char& c : b)
        c = char(random.bounded(256));
    return b;
}

// OpenSSL's hex digest of @p data, or its HMAC under @p key when one is given.
QByteArray openssl(const EVP_MD* md, const QByteArray& data, const QByteArray* key = nullptr)
{
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (key)
        HMAC(md, key->constData(), key->size(), reinterpret_cast<const unsigned char*>(data.constData()),
            size_t(data.size()), out, &length);
    else
        EVP_Digest(data.constData(), size_t(data.size()), out, &length, md, nullptr);
    return QByteArray(reinterpret_cast<const char*>(out), int(length)).toHex();
}

// Hex digest of @p algorithm ("md5", "sha1" or "hmac": message first, raw bytes out).
QByteArray digestHex(const QByteArray& algorithm, const QByteArray& message, const QByteArray& key = {})
{
    if (algorithm == "md5")
        return QByteArray::fromStdString(CodecTool::CalcMD5(message.toStdString()));
    if (algorithm == "hmac")
        return QByteArray::fromStdString(CodecTool::CalcSHA1(message.toStdString(), key.toStdString()))
            .toHex();
    cloudlog_sdk_v6::SHA1 sha;
    // Fed in uneven slices so that block boundaries fall inside add() calls.
    for (int offset = 0; offset < message.size(); offset += 37)
        sha.add(message.constData() + offset, size_t(qMin(37, message.size() - offset)));
    return QByteArray(reinterpret_cast<const char*>(sha.result()), 20).toHex();
}

} // namespace

class LogCodecsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void disagreesWithOpenSslOrQt();
    void valueWrong_data();
    void valueWrong();
    void currentDateWrong();
};

void LogCodecsTest::disagreesWithOpenSslOrQt()
{
    QRandomGenerator random(20240611);
    // Every length around the padding boundaries of one and two blocks, then some larger ones;
    // every key length up to two blocks, 64 and 65 (hashed first) among them.
    QList<int> sizes {1000, 4095, 65536, (1 << 20) + 3};
    for (int n = 0; n <= 140; ++n)
        sizes << n;
    for (const int size : sizes) {
        const QByteArray data = randomBytes(random, size);
        const QByteArray key = randomBytes(random, size % 131);
        QCOMPARE(digestHex("md5", data), openssl(EVP_md5(), data).toUpper());
        QCOMPARE(digestHex("sha1", data), openssl(EVP_sha1(), data));
        QCOMPARE(digestHex("hmac", data, key), openssl(EVP_sha1(), data, &key));
        // No line breaks, ever. Qt's unreserved set and hex case are those of the escaping
        // the service expects; the random bytes hit every byte value many times.
        QCOMPARE(QByteArray::fromStdString(CodecTool::Base64Enconde(data.toStdString())), data.toBase64());
        QCOMPARE(
            QByteArray::fromStdString(CodecTool::UrlEncode(data.toStdString())), data.toPercentEncoding());
    }
}

void LogCodecsTest::valueWrong_data()
{
    using cloudlog_sdk_v6::ToString;
    QTest::addColumn<QByteArray>("actual");
    QTest::addColumn<QByteArray>("expected");
    // Takes a std::string or a QByteArray.
    auto row = [](const char* name, const auto& actual, const char* expected) {
        QTest::newRow(name) << QByteArray(actual.data(), int(actual.size())) << QByteArray(expected);
    };
    // Published vectors: RFC 1321 (upper-case hex), FIPS 180-1, RFC 2202 (message first, key second).
    row("md5Empty", digestHex("md5", ""), "D41D8CD98F00B204E9800998ECF8427E");
    row("md5Abc", digestHex("md5", "abc"), "900150983CD24FB0D6963F7D28E17F72");
    row("md5Alphanumeric", digestHex("md5", "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
        "D174AB98D277D9F5A5611C2C9F419D9F");
    row("md5TwoBlocks", digestHex("md5", QByteArray("1234567890").repeated(8)),
        "57EDF4A22BE3C955AC49DA2E2107B67A");
    row("sha1Abc", digestHex("sha1", "abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    row("sha1TwoBlocks", digestHex("sha1", "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
        "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    row("sha1MillionA", digestHex("sha1", QByteArray(1000000, 'a')),
        "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
    row("hmac1", digestHex("hmac", "Hi There", QByteArray(20, '\x0b')),
        "b617318655057264e28bc0b6fb378c8ef146be00");
    row("hmac2", digestHex("hmac", "what do ya want for nothing?", "Jefe"),
        "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
    row("hmac6KeyLongerThanBlock",
        digestHex("hmac", "Test Using Larger Than Block-Size Key - Hash Key First", QByteArray(80, '\xaa')),
        "aa4ae5e15272d00e95705637ce8a3b55ed402112");
    row("hmac7KeyAndDataLongerThanBlock",
        digestHex("hmac", "Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data",
            QByteArray(80, '\xaa')),
        "e8e99d0f45237d786d6bbaa7965c7808bbff1a91");
    row("base64Empty", CodecTool::Base64Enconde(""), "");
    row("base64OneZero", CodecTool::Base64Enconde(std::string(1, '\0')), "AA==");
    row("base64TwoZeros", CodecTool::Base64Enconde(std::string(2, '\0')), "AAA=");
    row("base64ThreeZeros", CodecTool::Base64Enconde(std::string(3, '\0')), "AAAA");
    row("urlTildeKeptPlusSlashEscaped", CodecTool::UrlEncode("a b~+/"), "a%20b~%2B%2F");
    row("dateEpochFormatIgnored", CodecTool::ToGmtTime(0, "%Y"), "Thu, 01 Jan 1970 00:00:00 GMT");
    row("dateLeapDay", CodecTool::ToGmtTime(951782400, {}), "Tue, 29 Feb 2000 00:00:00 GMT");
    row("dateSingleDigitsPadded", CodecTool::ToGmtTime(784111777, {}), "Sun, 06 Nov 1994 08:49:37 GMT");
    // The 26-byte buffer holds one four-digit-year date; a longer one is cut short.
    row("dateFiveDigitYearCutShort", CodecTool::ToGmtTime(253402300800, {}), "Sat, 01 Jan 10000 00:00:0 GMT");
    row("numbers",
        ToString(int32_t(-1)) + ' ' + ToString(int32_t(INT32_MIN)) + ' ' + ToString(uint32_t(4294967295u))
            + ' ' + ToString(int64_t(INT64_MIN)),
        "-1 -2147483648 4294967295 -9223372036854775808");
    row("bools", ToString(true) + ToString(false), "truefalse");
    auto startWith
        = [](const char* text, const char* prefix) { return CodecTool::StartWith(text, prefix) ? '1' : '0'; };
    row("startWithEmptyPrefixCaseAndLength",
        std::string {startWith("", ""), startWith("x-log-a", "x-log-"), startWith("X-Log-a", "x-log-"),
            startWith("x-log", "x-log-")},
        "1100");
}

void LogCodecsTest::valueWrong()
{
    QFETCH(QByteArray, actual);
    QFETCH(QByteArray, expected);
    QCOMPARE(actual, expected);
}

void LogCodecsTest::currentDateWrong()
{
    const std::time_t before = std::time(nullptr);
    const std::string now = CodecTool::GetDateString();
    QVERIFY(now == CodecTool::ToGmtTime(before, {}) || now == CodecTool::ToGmtTime(std::time(nullptr), {}));
}

QTEST_GUILESS_MAIN(LogCodecsTest)
#include "tst_logcodecs.moc"
