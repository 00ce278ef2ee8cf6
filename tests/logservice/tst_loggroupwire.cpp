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

Q_DECLARE_METATYPE(pb::LogGroup)

namespace
{

std::string bytes(const QByteArray& b)
{
    return std::string(b.constData(), size_t(b.size()));
}

QByteArray qbytes(const std::string& s)
{
    return QByteArray(s.data(), int(s.size()));
}

pb::Log makeLog(uint32_t time, std::vector<pb::LogContent> contents = {})
{
    pb::Log log;
    log.time = time;
    log.contents = std::move(contents);
    return log;
}

// Runs protoc with @p arguments on the wire messages, feeding @p input.
QByteArray protoc(const QStringList& arguments, const QByteArray& input)
{
    QProcess process;
    process.start(QStringLiteral(ZR_PROTOC),
        QStringList {QStringLiteral("--proto_path=" ZR_LOGWIRE_DIR), QStringLiteral("logwire.proto")}
            + arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000) || process.exitCode() != 0)
        return "protoc failed: " + process.readAllStandardError();
    return process.readAllStandardOutput();
}

pb::LogGroup randomGroup(QRandomGenerator& random)
{
    auto text = [&random](int max) {
        std::string s(size_t(random.bounded(max + 1)), '\0');
        for (char& c : s)
            c = char(random.bounded(256));
        return s;
    };
    pb::LogGroup group;
    for (int i = random.bounded(4); i > 0; --i) {
        pb::Log log = makeLog(random.generate());
        log.hasTimeNs = random.bounded(2) == 1;
        log.timeNs = log.hasTimeNs ? random.generate() : 0;
        for (int j = random.bounded(5); j > 0; --j)
            log.contents.push_back({text(random.bounded(2) ? 10 : 300), text(200)});
        group.logs.push_back(log);
    }
    for (int i = random.bounded(3); i > 0; --i)
        group.logTags.push_back({text(5), text(5)});
    group.topic = random.bounded(2) ? text(20) : std::string();
    group.source = random.bounded(2) ? text(20) : std::string();
    return group;
}

} // namespace

class LogGroupWireTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void encoderBytesWrong_data();
    void encoderBytesWrong();
    void encodingUnreadableByProtoc();
    void encodingDiffersFromGeneratedCode();
    void protocEncodingUnparsed();
    void malformedInputAccepted_data();
    void malformedInputAccepted();
    void unknownFieldsNotSkipped_data();
    void unknownFieldsNotSkipped();
    void lz4RoundTripBroken_data();
    void lz4RoundTripBroken();
    void lz4WrongRawSizeAccepted();
};

void LogGroupWireTest::encoderBytesWrong_data()
{
    QTest::addColumn<pb::LogGroup>("group");
    QTest::addColumn<QByteArray>("hex");

    auto row = [](const char* name, const pb::LogGroup& group, const QByteArray& hex) {
        QTest::newRow(name) << group << QByteArray::fromHex(hex).toHex();
    };
    row("emptyGroupEmptyString", pb::LogGroup(), "");
    pb::LogGroup g;
    g.logs.push_back(makeLog(0));
    row("timeZeroStillWritten", g, "0a020800");
    g = pb::LogGroup();
    g.logs.push_back(makeLog(1, {{"", ""}}));
    row("emptyKeyAndValueStillWritten", g, "0a08080112040a001200");
    g = pb::LogGroup();
    g.topic = "t";
    g.source = "s";
    row("sourceBeforeTopic", g, "220173 1a0174");
    g.logs.push_back(makeLog(1));
    g.logTags.push_back({"k", "v"});
    row("logsTagsSourceTopic", g, "0a020801 32060a016b120176 220173 1a0174");
    g = pb::LogGroup();
    g.logs.push_back(makeLog(300, {{"a", "b"}}));
    g.logs.back().hasTimeNs = true;
    g.logs.back().timeNs = 0x01020304;
    row("timeNsLittleEndianBeforeContents", g, "0a10 08ac02 2504030201 12060a0161120162");
    g = pb::LogGroup();
    g.logs.push_back(makeLog(0xFFFFFFFF));
    g.logs.push_back(makeLog(2));
    row("fiveByteTimeAndLogOrder", g, "0a0608ffffffff0f 0a020802");
    g = pb::LogGroup();
    g.topic = std::string(127, 'x');
    row("length127OneByte", g, "1a7f" + QByteArray(127, 'x').toHex());
    g.topic = std::string(128, 'x');
    row("length128TwoBytes", g, "1a8001" + QByteArray(128, 'x').toHex());
}

void LogGroupWireTest::encoderBytesWrong()
{
    QFETCH(pb::LogGroup, group);
    QFETCH(QByteArray, hex);
    std::string out = "stale";
    QVERIFY(group.SerializeToString(&out));
    QCOMPARE(qbytes(out).toHex(), hex);
}

void LogGroupWireTest::encodingUnreadableByProtoc()
{
    pb::LogGroup group;
    group.logs.push_back(makeLog(1700000000, {{"event", "start"}, {"\xe5\x90\x8d", "\xe5\x80\xbc"}}));
    group.logs.push_back(makeLog(1700000001, {{"big", std::string(300, 'v')}}));
    group.logs.back().hasTimeNs = true;
    group.logs.back().timeNs = 999999999;
    group.logTags.push_back({"__client__", "tour"});
    group.topic = "topic";
    group.source = "10.0.0.1";
    std::string encoded;
    QVERIFY(group.SerializeToString(&encoded));

    const QByteArray expected
        = "logs {\n  time: 1700000000\n"
          "  contents {\n    key: \"event\"\n    value: \"start\"\n  }\n"
          "  contents {\n    key: \"\\345\\220\\215\"\n    value: \"\\345\\200\\274\"\n  }\n"
          "}\n"
          "logs {\n  time: 1700000001\n"
          "  contents {\n    key: \"big\"\n    value: \""
        + QByteArray(300, 'v') + "\"\n  }\n  time_ns: 999999999\n}\n"
        + "topic: \"topic\"\nsource: \"10.0.0.1\"\n"
        + "log_tags {\n  key: \"__client__\"\n  value: \"tour\"\n}\n";
    QCOMPARE(protoc({QStringLiteral("--decode=zrloopback.wire.LogGroup")}, qbytes(encoded)), expected);
}

void LogGroupWireTest::encodingDiffersFromGeneratedCode()
{
    QRandomGenerator random(42);
    for (int round = 0; round < 300; ++round) {
        const pb::LogGroup group = randomGroup(random);
        std::string ours;
        QVERIFY(group.SerializeToString(&ours));
        zrloopback::wire::LogGroup reference;
        QVERIFY(reference.ParseFromString(ours));
        QCOMPARE(reference.ByteSizeLong(), ours.size());
        QCOMPARE(reference.logs_size(), int(group.logs.size()));
        QCOMPARE(reference.has_topic(), !group.topic.empty());
        QCOMPARE(reference.topic(), group.topic);
        QCOMPARE(reference.source(), group.source);
        QCOMPARE(reference.log_tags_size(), int(group.logTags.size()));
        for (int i = 0; i < reference.log_tags_size(); ++i)
            QCOMPARE(reference.log_tags(i).value(), group.logTags[size_t(i)].value);
        for (int i = 0; i < reference.logs_size(); ++i) {
            const auto& log = reference.logs(i);
            const pb::Log& expected = group.logs[size_t(i)];
            QCOMPARE(log.time(), expected.time);
            QCOMPARE(log.has_time_ns(), expected.hasTimeNs);
            QCOMPARE(log.time_ns(), expected.timeNs);
            QCOMPARE(log.contents_size(), int(expected.contents.size()));
            for (int j = 0; j < log.contents_size(); ++j) {
                QCOMPARE(log.contents(j).key(), expected.contents[size_t(j)].key);
                QCOMPARE(log.contents(j).value(), expected.contents[size_t(j)].value);
            }
        }

        // And back: what protobuf writes, in its own field order, decodes to the same group.
        zrloopback::wire::LogGroupList list;
        *list.add_log_groups() = reference;
        list.add_log_groups();
        pb::LogGroupList parsed;
        QVERIFY(parsed.ParseFromString(list.SerializeAsString()));
        QCOMPARE(parsed.logGroups.size(), size_t(2));
        std::string again;
        QVERIFY(parsed.logGroups[0].SerializeToString(&again));
        QCOMPARE(qbytes(again).toHex(), qbytes(ours).toHex());
        QVERIFY(parsed.logGroups[1].logs.empty());
    }
}

void LogGroupWireTest::protocEncodingUnparsed()
{
    const QByteArray text
        = "log_groups { logs { time: 5 contents { key: \"k\" value: \"v\" } time_ns: 7 }"
          " logs { time: 6 } topic: \"t\" source: \"s\" log_tags { key: \"a\" value: \"b\" } }"
          " log_groups { }";
    const QByteArray encoded = protoc({QStringLiteral("--encode=zrloopback.wire.LogGroupList")}, text);
    pb::LogGroupList list;
    QVERIFY(list.ParseFromString(bytes(encoded)));
    QCOMPARE(list.logGroups.size(), size_t(2));
    const pb::LogGroup& group = list.logGroups[0];
    QCOMPARE(group.logs.size(), size_t(2));
    QCOMPARE(group.logs[0].time, 5u);
    QVERIFY(group.logs[0].hasTimeNs);
    QCOMPARE(group.logs[0].timeNs, 7u);
    QCOMPARE(group.logs[0].contents.size(), size_t(1));
    QCOMPARE(group.logs[0].contents[0].key, std::string("k"));
    QCOMPARE(group.logs[0].contents[0].value, std::string("v"));
    QCOMPARE(group.logs[1].time, 6u);
    QVERIFY(!group.logs[1].hasTimeNs);
    QCOMPARE(group.topic, std::string("t"));
    QCOMPARE(group.source, std::string("s"));
    QCOMPARE(group.logTags.size(), size_t(1));
    QCOMPARE(group.logTags[0].key + group.logTags[0].value, std::string("ab"));
}

void LogGroupWireTest::malformedInputAccepted_data()
{
    QTest::addColumn<QByteArray>("hex");
    QTest::addColumn<int>("groupsKept");
    QTest::newRow("lengthPastEnd") << QByteArray("0a050a") << 0;
    QTest::newRow("varintSixBytes") << QByteArray("0affffffffff01") << 0;
    QTest::newRow("tagCutShort") << QByteArray("8a") << 0;
    QTest::newRow("topLevelGroupsWrongWire") << QByteArray("0801") << 0;
    QTest::newRow("topicWrongWire") << QByteArray("0a021801") << 0;
    QTest::newRow("tagsWrongWire") << QByteArray("0a023001") << 0;
    QTest::newRow("contentsWrongWire") << QByteArray("0a060a0408011001") << 0;
    QTest::newRow("timeNsWrongWire") << QByteArray("0a060a0408012005") << 0;
    QTest::newRow("timeNsCutShort") << QByteArray("0a050a03250102") << 0;
    QTest::newRow("contentLengthPastLog") << QByteArray("0a040a021205") << 0;
    QTest::newRow("keyLengthPastContent") << QByteArray("0a060a0412020a05") << 0;
    QTest::newRow("unknownWireType6") << QByteArray("0a023e00") << 0;
    QTest::newRow("groupWireTypeNotSkippable") << QByteArray("0a023b00") << 0;
    QTest::newRow("fixed64CutShort") << QByteArray("0a05390102030405") << 0;
    QTest::newRow("groupsBeforeFaultKept") << QByteArray("0a00 0a040a020801 0a05") << 2;
}

void LogGroupWireTest::malformedInputAccepted()
{
    QFETCH(QByteArray, hex);
    QFETCH(int, groupsKept);
    pb::LogGroupList list;
    list.logGroups.resize(5); // replaced, not appended to
    QVERIFY(!list.ParseFromString(bytes(QByteArray::fromHex(hex))));
    QCOMPARE(int(list.logGroups.size()), groupsKept);
}

void LogGroupWireTest::unknownFieldsNotSkipped_data()
{
    QTest::addColumn<QByteArray>("hex");
    QTest::addColumn<QByteArray>("expected"); // the group re-encoded
    QTest::newRow("topLevelVarint") << QByteArray("1001 0a040a020801") << QByteArray("0a020801");
    QTest::newRow("groupField2") << QByteArray("0a05 1203616263") << QByteArray("");
    QTest::newRow("groupField7AllWireTypes")
        << QByteArray("0a13 3801 390102030405060708 3a0161 3d01020304") << QByteArray("");
    QTest::newRow("logField7") << QByteArray("0a06 0a04 0803 3801") << QByteArray("0a020803");
    QTest::newRow("logTimeWrongWireIgnored") << QByteArray("0a07 0a05 0d01020304") << QByteArray("0a020800");
    QTest::newRow("contentField7") << QByteArray("0a0b 0a09 0801 1205 0a016b 3801")
                                   << QByteArray("0a0908011205 0a016b1200");
    QTest::newRow("lastTopicWins") << QByteArray("0a06 1a0161 1a0162") << QByteArray("1a0162");
}

void LogGroupWireTest::unknownFieldsNotSkipped()
{
    QFETCH(QByteArray, hex);
    QFETCH(QByteArray, expected);
    pb::LogGroupList list;
    QVERIFY(list.ParseFromString(bytes(QByteArray::fromHex(hex))));
    QCOMPARE(list.logGroups.size(), size_t(1));
    std::string again;
    QVERIFY(list.logGroups[0].SerializeToString(&again));
    QCOMPARE(qbytes(again).toHex(), QByteArray::fromHex(expected).toHex());
}

void LogGroupWireTest::lz4RoundTripBroken_data()
{
    QTest::addColumn<QByteArray>("data");
    QRandomGenerator random(3);
    QByteArray noise(65536, Qt::Uninitialized);
    for (char& c : noise)
        c = char(random.bounded(256));
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("short") << QByteArray("hello, hello, hello");
    QTest::newRow("incompressible") << noise;
    // The best ratio LZ4 reaches: the raw-size plausibility bound must let it pass.
    QTest::newRow("zeros16MiB") << QByteArray(16 << 20, '\0');
}

void LogGroupWireTest::lz4RoundTripBroken()
{
    QFETCH(QByteArray, data);
    std::string compressed;
    QVERIFY(CompressAlgorithm::CompressLz4(bytes(data), compressed));
    std::string restored = "stale";
    QVERIFY(CompressAlgorithm::UncompressLz4(compressed, uint32_t(data.size()), restored));
    QVERIFY(qbytes(restored) == data);
    // The pointer form reads exactly the given length.
    std::string viaPointer;
    QVERIFY(CompressAlgorithm::CompressLz4(data.constData(), uint32_t(data.size()), viaPointer));
    QVERIFY(CompressAlgorithm::UncompressLz4(
        viaPointer.data(), uint32_t(viaPointer.size()), uint32_t(data.size()), restored));
    QVERIFY(qbytes(restored) == data);
}

void LogGroupWireTest::lz4WrongRawSizeAccepted()
{
    const std::string data(1000, 'a');
    std::string compressed;
    QVERIFY(CompressAlgorithm::CompressLz4(data, compressed));
    std::string out;
    QVERIFY(!CompressAlgorithm::UncompressLz4(compressed, 999, out));
    QVERIFY(!CompressAlgorithm::UncompressLz4(compressed, 1001, out));
    QVERIFY(!CompressAlgorithm::UncompressLz4(compressed.substr(0, compressed.size() - 1), 1000, out));
    QVERIFY(!CompressAlgorithm::UncompressLz4("\xff\xff\xff\xff", 1000, out));
    QVERIFY(!CompressAlgorithm::UncompressLz4(std::string(), 0, out));
    // Announcing 4 GiB for a few bytes fails without trying to allocate it.
    QVERIFY(!CompressAlgorithm::UncompressLz4(compressed, 0xFFFFFFFFu, out));
    QVERIFY(!CompressAlgorithm::UncompressLz4(compressed, 2000000000u, out));
}

QTEST_GUILESS_MAIN(LogGroupWireTest)
#include "tst_loggroupwire.moc"
