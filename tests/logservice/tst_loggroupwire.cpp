// The log group encoder and decoder against protobuf's own tools and generated
// code (from support/logwire.proto), and the LZ4 wrapper.
#include <ZrUtils/CompressAlgorithm.h>
#include <ZrUtils/LogGroup.h>

#include "logservice/PbEncoder.h"
#include "logwire.pb.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QTest>

using namespace cloudlog_sdk_v6;
using pb::Log;
using pb::LogGroup;

namespace
{

Log makeLog(
    uint32_t time, std::vector<pb::LogContent> contents = {}, bool hasTimeNs = false, uint32_t timeNs = 0)
{
    return {time, std::move(contents), hasTimeNs, timeNs};
}

LogGroup makeGroup(
    std::vector<Log> logs, std::vector<pb::LogTag> tags = {}, std::string topic = {}, std::string source = {})
{
    return {std::move(logs), std::move(tags), std::move(topic), std::move(source)};
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

std::string randomText(QRandomGenerator& random, int size)
{
    std::string s(size_t(size), '\0');
    for (char& c : s)
        c = char(random.bounded(256));
    return s;
}

// A random group built with protobuf's generated code; topic and source set only when not empty.
zrloopback::wire::LogGroup randomGroup(QRandomGenerator& random)
{
    auto text = [&random](int min, int max) { return randomText(random, random.bounded(min, max + 1)); };
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

class LogGroupWireTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bytesWrong_data();
    void bytesWrong();
    void protocDisagrees();
    void generatedCodeDisagrees();
    void lz4RoundTripOrSizeCheckBroken_data();
    void lz4RoundTripOrSizeCheckBroken();
};

void LogGroupWireTest::bytesWrong_data()
{
    QTest::addColumn<QByteArray>("actual");
    QTest::addColumn<QByteArray>("expected");
    auto row = [](const char* name, const QByteArray& actual, const QByteArray& expected) {
        QTest::newRow(name) << actual << QByteArray(expected).replace(' ', "");
    };
    auto hex = [](const LogGroup& group) { return encoded(group).toHex(); };
    row("encodeEmptyGroupEmptyString", hex({}), "");
    row("encodeTimeZeroStillWritten", hex(makeGroup({makeLog(0)})), "0a020800");
    row("encodeEmptyKeyAndValueStillWritten", hex(makeGroup({makeLog(1, {{"", ""}})})),
        "0a08080112040a001200");
    row("encodeSourceBeforeTopic", hex(makeGroup({}, {}, "t", "s")), "220173 1a0174");
    row("encodeLogsTagsSourceTopic", hex(makeGroup({makeLog(1)}, {{"k", "v"}}, "t", "s")),
        "0a020801 32060a016b120176 220173 1a0174");
    row("encodeTimeNsLittleEndianBeforeContents",
        hex(makeGroup({makeLog(300, {{"a", "b"}}, true, 0x01020304)})),
        "0a10 08ac02 2504030201 12060a0161120162");
    row("encodeFiveByteTimeAndLogOrder", hex(makeGroup({makeLog(0xFFFFFFFF), makeLog(2)})),
        "0a0608ffffffff0f 0a020802");
    row("encodeLength127OneByte", hex(makeGroup({}, {}, std::string(127, 'x'))),
        "1a7f" + QByteArray(127, 'x').toHex());
    row("encodeLength128TwoBytes", hex(makeGroup({}, {}, std::string(128, 'x'))),
        "1a8001" + QByteArray(128, 'x').toHex());

    // Decoded: "ok" or "failed", then every group kept, encoded again.
    row("decodeLengthPastEnd", decoded("0a050a"), "failed");
    row("decodeVarintSixBytes", decoded("0affffffffff01"), "failed");
    row("decodeTagCutShort", decoded("8a"), "failed");
    row("decodeTopLevelGroupsWrongWire", decoded("0801"), "failed");
    row("decodeTopicWrongWire", decoded("0a021801"), "failed");
    row("decodeContentsWrongWire", decoded("0a060a0408011001"), "failed");
    row("decodeTimeNsWrongWire", decoded("0a060a0408012005"), "failed");
    row("decodeTimeNsCutShort", decoded("0a050a03250102"), "failed");
    row("decodeKeyLengthPastContent", decoded("0a060a0412020a05"), "failed");
    row("decodeUnknownWireType6", decoded("0a023e00"), "failed");
    row("decodeGroupWireTypeNotSkippable", decoded("0a023b00"), "failed");
    row("decodeFixed64CutShort", decoded("0a05390102030405"), "failed");
    row("decodeGroupsBeforeFaultKept", decoded("0a00 0a040a020801 0a05"), "failed||0a020801");
    row("decodeTopLevelUnknownSkipped", decoded("1001 0a040a020801"), "ok|0a020801");
    row("decodeGroupField2Skipped", decoded("0a05 1203616263"), "ok|");
    row("decodeGroupField7AllWireTypesSkipped", decoded("0a13 3801 390102030405060708 3a0161 3d01020304"),
        "ok|");
    row("decodeLogField7Skipped", decoded("0a06 0a04 0803 3801"), "ok|0a020803");
    row("decodeLogTimeWrongWireIgnored", decoded("0a07 0a05 0d01020304"), "ok|0a020800");
    row("decodeContentField7Skipped", decoded("0a0b 0a09 0801 1205 0a016b 3801"),
        "ok|0a0908011205 0a016b1200");
    row("decodeLastTopicWins", decoded("0a06 1a0161 1a0162"), "ok|1a0162");
}

void LogGroupWireTest::bytesWrong()
{
    QFETCH(QByteArray, actual);
    QFETCH(QByteArray, expected);
    QCOMPARE(actual, expected);
}

void LogGroupWireTest::protocDisagrees()
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

void LogGroupWireTest::generatedCodeDisagrees()
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

void LogGroupWireTest::lz4RoundTripOrSizeCheckBroken_data()
{
    QTest::addColumn<QByteArray>("data");
    QRandomGenerator random(3);
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("short") << QByteArray("hello, hello, hello");
    QTest::newRow("incompressible") << QByteArray::fromStdString(randomText(random, 65536));
    // The best ratio LZ4 reaches: the raw-size plausibility bound must let it pass.
    QTest::newRow("zeros16MiB") << QByteArray(16 << 20, '\0');
}

void LogGroupWireTest::lz4RoundTripOrSizeCheckBroken()
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

QTEST_GUILESS_MAIN(LogGroupWireTest)
#include "tst_loggroupwire.moc"
