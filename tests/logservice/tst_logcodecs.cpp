// The log-service codecs against OpenSSL, Qt, protoc and protobuf's generated code
// (from support/logwire.proto), and the LZ4 wrapper.
#include <ZrUtils/CodecTool.h>
#include <ZrUtils/CompressAlgorithm.h>
#include <ZrUtils/LogGroup.h>

#include "logservice/Sha1.h"
#include "logwire.pb.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <QProcess>
#include <QRandomGenerator>
#include <QTest>

using namespace cloudlog_sdk_v6;
using pb::Log;
using pb::LogGroup;

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
        ::HMAC(md, key->constData(), key->size(), reinterpret_cast<const unsigned char*>(data.constData()),
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

QByteArray encoded(const LogGroup& group)
{
    std::string out = "stale";
    return group.SerializeToString(&out) ? QByteArray::fromStdString(out) : "failed";
}

// Parses @p hex into a list holding stale groups: "ok" or "failed", then "|" and every
// group in the list afterwards, encoded again.
QByteArray decoded(const QByteArray& hex)
{
    pb::LogGroupList list;
    list.logGroups.resize(5); // replaced, not appended to
    QByteArray out = list.ParseFromString(QByteArray::fromHex(hex).toStdString()) ? "ok" : "failed";
    for (const LogGroup& group : list.logGroups)
        out += '|' + encoded(group).toHex();
    return out;
}

// Runs protoc in @p mode ("--decode" or "--encode") on the wire message @p message.
QByteArray protoc(const char* mode, const char* message, const QByteArray& input)
{
    QProcess process;
    process.start(QStringLiteral(ZR_PROTOC),
        {QStringLiteral("--proto_path=" ZR_LOGWIRE_DIR), QStringLiteral("logwire.proto"),
            QStringLiteral("%1=zrloopback.wire.%2").arg(mode, message)});
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000) || process.exitCode() != 0)
        return "protoc failed: " + process.readAllStandardError();
    return process.readAllStandardOutput();
}

// A random group built with protobuf's generated code; topic and source set only when not empty.
zrloopback::wire::LogGroup randomGroup(QRandomGenerator& random)
{
    auto text = [&random](int min, int max) {
        return randomBytes(random, random.bounded(min, max + 1)).toStdString();
    };
    zrloopback::wire::LogGroup group;
    for (int i = random.bounded(4); i > 0; --i) {
        auto* log = group.add_logs();
        log->set_time(random.generate());
        if (random.bounded(2))
            log->set_time_ns(random.generate());
        for (int j = random.bounded(5); j > 0; --j) {
            auto* content = log->add_contents();
            content->set_key(text(0, random.bounded(2) ? 10 : 300));
            content->set_value(text(0, 200));
        }
    }
    for (int i = random.bounded(3); i > 0; --i) {
        auto* tag = group.add_log_tags();
        tag->set_key(text(0, 5));
        tag->set_value(text(0, 5));
    }
    if (random.bounded(2))
        group.set_topic(text(1, 20));
    if (random.bounded(2))
        group.set_source(text(1, 20));
    return group;
}

} // namespace

class LogCodecsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void disagreesWithOpenSslOrQt();
    void bytesWrong_data();
    void bytesWrong();
    void currentDateWrong();
    void protocDisagrees();
    void generatedCodeDisagrees();
    void lz4RoundTripOrSizeCheckBroken_data();
    void lz4RoundTripOrSizeCheckBroken();
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

void LogCodecsTest::bytesWrong_data()
{
    QTest::addColumn<QByteArray>("actual");
    QTest::addColumn<QByteArray>("expected");
    // Takes a std::string or a QByteArray.
    auto row = [](const char* name, const auto& actual, const QByteArray& expected) {
        QTest::newRow(name) << QByteArray(actual.data(), int(actual.size())) << expected;
    };
    row("dateEpochFormatIgnored", CodecTool::ToGmtTime(0, "%Y"), "Thu, 01 Jan 1970 00:00:00 GMT");
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

    // The wire format, in hex (blanks only for reading).
    auto hexRow = [row](const char* name, const QByteArray& actual, const QByteArray& expected) {
        row(name, actual, QByteArray(expected).replace(' ', ""));
    };
    auto hex = [](const LogGroup& group) { return encoded(group).toHex(); };
    hexRow("encodeEmptyGroupEmptyString", hex({}), "");
    hexRow("encodeTimeZeroStillWritten", hex({{Log {0, {}, false, 0}}, {}, {}, {}}), "0a020800");
    hexRow("encodeEmptyKeyAndValueStillWritten", hex({{Log {1, {{"", ""}}, false, 0}}, {}, {}, {}}),
        "0a08080112040a001200");
    hexRow("encodeLogsTagsSourceTopic", hex({{Log {1, {}, false, 0}}, {{"k", "v"}}, "t", "s"}),
        "0a020801 32060a016b120176 220173 1a0174");
    hexRow("encodeTimeNsLittleEndianBeforeContents",
        hex({{Log {300, {{"a", "b"}}, true, 0x01020304}}, {}, {}, {}}),
        "0a10 08ac02 2504030201 12060a0161120162");
    hexRow("decodeLengthPastEnd", decoded("0a050a"), "failed");
    hexRow("decodeVarintSixBytes", decoded("0affffffffff01"), "failed");
    hexRow("decodeTagCutShort", decoded("8a"), "failed");
    hexRow("decodeTopLevelGroupsWrongWire", decoded("0801"), "failed");
    hexRow("decodeTopicWrongWire", decoded("0a021801"), "failed");
    hexRow("decodeContentsWrongWire", decoded("0a060a0408011001"), "failed");
    hexRow("decodeTimeNsWrongWire", decoded("0a060a0408012005"), "failed");
    hexRow("decodeTimeNsCutShort", decoded("0a050a03250102"), "failed");
    hexRow("decodeKeyLengthPastContent", decoded("0a060a0412020a05"), "failed");
    hexRow("decodeGroupWireTypeNotSkippable", decoded("0a023b00"), "failed");
    hexRow("decodeFixed64CutShort", decoded("0a05390102030405"), "failed");
    hexRow("decodeGroupsBeforeFaultKept", decoded("0a00 0a040a020801 0a05"), "failed||0a020801");
    hexRow("decodeTopLevelUnknownSkipped", decoded("1001 0a040a020801"), "ok|0a020801");
    hexRow("decodeGroupField2Skipped", decoded("0a05 1203616263"), "ok|");
    hexRow("decodeGroupField7AllWireTypesSkipped", decoded("0a13 3801 390102030405060708 3a0161 3d01020304"),
        "ok|");
    hexRow("decodeLogField7Skipped", decoded("0a06 0a04 0803 3801"), "ok|0a020803");
    hexRow("decodeLogTimeWrongWireIgnored", decoded("0a07 0a05 0d01020304"), "ok|0a020800");
    hexRow("decodeContentField7Skipped", decoded("0a0b 0a09 0801 1205 0a016b 3801"),
        "ok|0a0908011205 0a016b1200");
    hexRow("decodeLastTopicWins", decoded("0a06 1a0161 1a0162"), "ok|1a0162");
}

void LogCodecsTest::bytesWrong()
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

void LogCodecsTest::protocDisagrees()
{
    // Decoded with our decoder from protoc's bytes, encoded again with ours, then read by protoc.
    const QByteArray text
        = "logs { time: 1700000000 contents { key: \"event\" value: \"start\" } time_ns: 999999999 }"
          " logs { time: 1 contents { key: \"\\345\\220\\215\" value: \"\" } }"
          " topic: \"topic\" source: \"10.0.0.1\" log_tags { key: \"__client__\" value: \"tour\" }";
    pb::LogGroupList list;
    QVERIFY(list.ParseFromString(
        protoc("--encode", "LogGroupList", "log_groups { " + text + " } log_groups { }").toStdString()));
    QCOMPARE(list.logGroups.size(), size_t(2));
    QVERIFY(list.logGroups[1].logs.empty());
    const QByteArray expected = protoc("--decode", "LogGroup", protoc("--encode", "LogGroup", text));
    QVERIFY(expected.contains("time_ns: 999999999"));
    QCOMPARE(protoc("--decode", "LogGroup", encoded(list.logGroups[0])), expected);
}

void LogCodecsTest::generatedCodeDisagrees()
{
    QRandomGenerator random(42);
    for (int round = 0; round < 300; ++round) {
        // What protobuf writes, in its own field order, followed by an empty group...
        const zrloopback::wire::LogGroup expected = randomGroup(random);
        zrloopback::wire::LogGroupList list;
        *list.add_log_groups() = expected;
        list.add_log_groups();
        pb::LogGroupList ours;
        QVERIFY(ours.ParseFromString(list.SerializeAsString()));
        QCOMPARE(ours.logGroups.size(), size_t(2));
        QVERIFY(ours.logGroups[1].logs.empty());
        // ...and back: the same content, and no byte more than protobuf needs for it.
        const QByteArray again = encoded(ours.logGroups[0]);
        zrloopback::wire::LogGroup parsed;
        QVERIFY(parsed.ParseFromString(again.toStdString()));
        QCOMPARE(parsed.SerializeAsString(), expected.SerializeAsString());
        QCOMPARE(size_t(again.size()), expected.ByteSizeLong());
    }
}

void LogCodecsTest::lz4RoundTripOrSizeCheckBroken_data()
{
    QTest::addColumn<QByteArray>("data");
    QRandomGenerator random(3);
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("short") << QByteArray("hello, hello, hello");
    QTest::newRow("incompressible") << randomBytes(random, 65536);
    // The best ratio LZ4 reaches: the raw-size plausibility bound must let it pass.
    QTest::newRow("zeros16MiB") << QByteArray(16 << 20, '\0');
}

void LogCodecsTest::lz4RoundTripOrSizeCheckBroken()
{
    QFETCH(QByteArray, data);
    const uint32_t size = uint32_t(data.size());
    std::string compressed, viaPointer, restored = "stale";
    QVERIFY(CompressAlgorithm::CompressLz4(data.toStdString(), compressed));
    QVERIFY(CompressAlgorithm::UncompressLz4(compressed, size, restored));
    QVERIFY(QByteArray::fromStdString(restored) == data);
    // The pointer forms read exactly the given length.
    QVERIFY(CompressAlgorithm::CompressLz4(data.constData(), size, viaPointer));
    QVERIFY(CompressAlgorithm::UncompressLz4(viaPointer.data(), uint32_t(viaPointer.size()), size, restored));
    QVERIFY(QByteArray::fromStdString(restored) == data);

    // A wrong raw size fails even where LZ4 decodes something; a huge one fails without allocating it.
    for (const uint32_t wrong : {size - 1, size + 1, 2000000000u, 0xFFFFFFFFu})
        QVERIFY(!CompressAlgorithm::UncompressLz4(compressed, wrong, restored));
    QVERIFY(!CompressAlgorithm::UncompressLz4(compressed.substr(0, compressed.size() - 1), size, restored));
    QVERIFY(!CompressAlgorithm::UncompressLz4("\xff\xff\xff\xff", size, restored));
}

QTEST_GUILESS_MAIN(LogCodecsTest)
#include "tst_logcodecs.moc"
