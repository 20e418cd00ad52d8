// krin-record and krin-play end to end: recordings of live streams read back
// by an MCAP reader nobody here wrote, replays that reach a subscriber sample
// by sample, a recorder killed or interrupted, one that cannot write, and the
// player's refusals of files it cannot play.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <string>
#include <thread>

#include <google/protobuf/dynamic_message.h>

#include "ToolProcess.h"
#include "lumotypes/host/Plugin.h"
#include "tools/common/FreePort.h"
#include "tools/common/RecordedSchemas.h"
#include "tools/common/Schema.h"
#include "tools/mcap/Reader.h"
#include "tools/mcap/Writer.h"

namespace {

using lumo::test::linesOf;
using lumo::test::ToolProcess;
using namespace std::chrono_literals;

const std::string centOptJson = R"({"options":3,"threshold":0.75,"numBrightestPixels":25})";
const std::string lumoModeJson = R"({"controlMode":"TEL_DRIVEN_WITH_HOKU_TT","activeCameraFs":"IMG_PDS"})";

std::string freshEndpoint() { return "krin.ps://127.0.0.1:" + std::to_string(lumo::tools::freeLoopbackPort()); }

/// A recording's path, removed when the test ends.
struct RecordingFile {
    explicit RecordingFile(const std::string& name)
        : path("/tmp/lumo-record-" + std::to_string(::getpid()) + "-" + name + ".mcap") {}
    ~RecordingFile() { ::unlink(path.c_str()); }
    std::string path;
};

/// Polls `done` until it holds or `limit` passes; the processes under test
/// report their progress in files, which have no other way to be awaited.
bool eventually(const std::function<bool()>& done, std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(50ms);
    }
    return true;
}

/// Every message of `path` (complete chunks only if `unfinished`), decoded
/// to JSON with the plug-in's schema, per channel topic.
std::map<std::string, std::vector<std::string>> decodedMessages(const std::string& path, bool unfinished = false) {
    const lumotypes::host::Plugin plugin;
    google::protobuf::DynamicMessageFactory factory;
    std::map<std::string, std::vector<std::string>> decoded;
    std::map<std::uint16_t, std::string> schemaNames;
    lumo::mcap::Reader reader(path);
    lumo::mcap::Visitor visitor;
    visitor.schema = [&](const lumo::mcap::Schema& schema, const lumo::mcap::Location&) {
        schemaNames[schema.id] = schema.name;
    };
    visitor.message = [&](const lumo::mcap::Message& message, const lumo::mcap::Channel& channel,
                          const lumo::mcap::Location&) {
        const std::string& name = schemaNames.at(channel.schemaId);
        const auto& type = plugin.messageType(name.substr(name.rfind('.') + 1));
        std::unique_ptr<google::protobuf::Message> payload(factory.GetPrototype(&type)->New());
        EXPECT_TRUE(payload->ParseFromString(message.data));
        decoded[channel.topic].push_back(lumo::tools::toJson(*payload));
    };
    reader.scan(visitor, unfinished);
    return decoded;
}

TEST(KrinRecord, RecordingOfPublishedStreamsReadsInAnIndependentReaderWithEveryValueAsPublished) {
    if (std::string(LUMO_NODE_PATH).empty()) {
        GTEST_SKIP() << "Node.js is not installed; scripts/setup.sh installs it and the MCAP reader";
    }
    struct stat installed {};
    ASSERT_EQ(::stat(LUMO_MCAP_READER_DIR "/node_modules/@mcap/core", &installed), 0)
        << "the MCAP reader of " LUMO_MCAP_READER_DIR " is not installed; run scripts/setup.sh";
    RecordingFile file("npm");
    const std::string centOpt = freshEndpoint() + "/lab/CentOpt";
    const std::string lumoMode = freshEndpoint() + "/lab/LumoMode";
    ToolProcess recorder(LUMO_RECORD_PATH,
                         {"-o", file.path, "--count", "40", "--duration", "90", centOpt, "CentOpt", lumoMode, "LumoMode"});
    ToolProcess first(LUMO_PUB_PATH, {"--rate", "20", "--count", "0", centOpt, "CentOpt", centOptJson});
    ToolProcess second(LUMO_PUB_PATH, {"--rate", "20", "--count", "0", lumoMode, "LumoMode", lumoModeJson});
    ASSERT_EQ(recorder.wait(100s), 0) << recorder.err();
    first.interrupt(60s);
    second.interrupt(60s);
    EXPECT_NE(recorder.err().find("wrote 40 samples to " + file.path), std::string::npos) << recorder.err();

    ToolProcess reader(LUMO_NODE_PATH, {LUMO_MCAP_READER_DIR "/checkRecording.js", file.path, "--count", "40",
                                        "--expect", "/lab/CentOpt=" + centOptJson,
                                        "--expect", "/lab/LumoMode=" + lumoModeJson});
    ASSERT_EQ(reader.wait(60s), 0) << reader.err() << reader.out();
    const auto lines = linesOf(reader.out());
    ASSERT_EQ(lines.size(), 3u) << reader.out();
    EXPECT_EQ(lines[0].rfind("/lab/CentOpt generated.krin.lumotypes.CentOpt ", 0), 0u) << lines[0];
    EXPECT_EQ(lines[1].rfind("/lab/LumoMode generated.krin.lumotypes.LumoMode ", 0), 0u) << lines[1];
    EXPECT_EQ(lines[2].rfind("total 40 in ", 0), 0u) << lines[2];
}

TEST(KrinRecord, ReplayedDemoRecordingReachesASubscriberSampleBySample) {
    RecordingFile file("replay");
    const int demoPort = lumo::tools::freeLoopbackPort();
    const std::string demo = "krin.ps://127.0.0.1:" + std::to_string(demoPort);
    ToolProcess recorder(LUMO_RECORD_PATH, {"-o", file.path, "--count", "300", "--duration", "90",
                                            demo + "/lumo/demo/FieldStablizationTopicIn", "FieldStablizationTopicIn"});
    ToolProcess loop(LUMO_DEMO_PATH, {"--port", std::to_string(demoPort), "--duration", "60", "--quiet"});
    ASSERT_EQ(recorder.wait(100s), 0) << recorder.err();
    loop.interrupt(60s);
    const auto recorded = decodedMessages(file.path).at("/lumo/demo/FieldStablizationTopicIn");
    ASSERT_EQ(recorded.size(), 300u);

    const std::string replay = freshEndpoint();
    ToolProcess tap(LUMO_TAP_PATH, {"--count", "300", "--duration", "90", replay + "/lumo/demo/FieldStablizationTopicIn",
                                    "FieldStablizationTopicIn"});
    ToolProcess player(LUMO_PLAY_PATH, {file.path, "-p", "krin.ps.slowJoinerDelayMs=1500", replay});
    ASSERT_EQ(player.wait(100s), 0) << player.err();
    ASSERT_EQ(tap.wait(100s), 0) << tap.err();
    const auto received = linesOf(tap.out());
    ASSERT_EQ(received.size(), recorded.size());
    for (std::size_t i = 0; i < recorded.size(); ++i) {
        ASSERT_EQ(received[i], recorded[i]) << "sample " << i;
    }
}

TEST(KrinRecord, RemappedTopicIsPublishedUnderItsNewPath) {
    RecordingFile file("remap");
    const std::string source = freshEndpoint() + "/old/CentOpt";
    ToolProcess recorder(LUMO_RECORD_PATH, {"-o", file.path, "--count", "5", "--duration", "90", source, "CentOpt"});
    ToolProcess publisher(LUMO_PUB_PATH, {"--rate", "20", "--count", "0", source, "CentOpt", centOptJson});
    ASSERT_EQ(recorder.wait(100s), 0) << recorder.err();
    publisher.interrupt(60s);

    const std::string replay = freshEndpoint();
    ToolProcess tap(LUMO_TAP_PATH, {"--count", "5", "--duration", "90", replay + "/new/CentOpt", "CentOpt"});
    ToolProcess player(LUMO_PLAY_PATH, {file.path, "--as-fast-as-possible", "--remap", "/old=/new", "-p",
                                        "krin.ps.slowJoinerDelayMs=1500", replay});
    ASSERT_EQ(player.wait(100s), 0) << player.err();
    ASSERT_EQ(tap.wait(100s), 0) << tap.err();
    EXPECT_EQ(linesOf(tap.out()), std::vector<std::string>(5, centOptJson));
}

/// A recorder of a live CentOpt stream that has written at least one chunk.
struct RunningRecorder {
    explicit RunningRecorder(const std::string& path)
        : uri(freshEndpoint() + "/CentOpt"),
          publisher(LUMO_PUB_PATH, {"--rate", "50", "--count", "0", uri, "CentOpt", centOptJson}),
          recorder(LUMO_RECORD_PATH, {"-o", path, uri, "CentOpt"}) {
        // Chunks are written once a second; two progress lines with samples
        // mean that one was.
        EXPECT_TRUE(eventually([&] { return recorder.err().find("krin-record: 2 s  /CentOpt ") != std::string::npos; },
                               60s))
            << recorder.err();
    }
    std::string uri;
    ToolProcess publisher;
    ToolProcess recorder;
};

TEST(KrinRecord, KilledRecorderLeavesAFileWhoseCompleteChunksStillRead) {
    RecordingFile file("killed");
    RunningRecorder running(file.path);
    running.recorder.kill();
    running.publisher.interrupt(60s);

    const auto recovered = decodedMessages(file.path, true);
    ASSERT_EQ(recovered.count("/CentOpt"), 1u);
    EXPECT_GE(recovered.at("/CentOpt").size(), 1u);
    for (const auto& sample : recovered.at("/CentOpt")) {
        EXPECT_EQ(sample, centOptJson);
    }

    ToolProcess strict(LUMO_PLAY_PATH, {"--info", file.path});
    EXPECT_EQ(strict.wait(60s), 2);
    EXPECT_NE(strict.err().find(file.path + ": offset "), std::string::npos) << strict.err();
    EXPECT_NE(strict.err().find("not closed"), std::string::npos) << strict.err();

    ToolProcess lenient(LUMO_PLAY_PATH, {"--info", "--recover", file.path});
    ASSERT_EQ(lenient.wait(60s), 0) << lenient.err();
    EXPECT_NE(lenient.out().find("messages:  " + std::to_string(recovered.at("/CentOpt").size())), std::string::npos)
        << lenient.out();
}

TEST(KrinRecord, InterruptedRecorderClosesTheFileWithItsSummary) {
    RecordingFile file("interrupted");
    RunningRecorder running(file.path);
    ASSERT_EQ(running.recorder.interrupt(60s), 0) << running.recorder.err();
    running.publisher.interrupt(60s);

    lumo::mcap::Reader reader(file.path);
    const auto summary = reader.summary();
    ASSERT_TRUE(summary.has_value());
    ASSERT_TRUE(summary->statistics.has_value());
    EXPECT_EQ(summary->statistics->messageCount, decodedMessages(file.path).at("/CentOpt").size());
    EXPECT_GE(summary->statistics->chunkCount, 2u);

    ToolProcess info(LUMO_PLAY_PATH, {"--info", file.path});
    ASSERT_EQ(info.wait(60s), 0) << info.err();
    EXPECT_NE(info.out().find("/CentOpt"), std::string::npos) << info.out();
    EXPECT_NE(info.out().find("generated.krin.lumotypes.CentOpt [protobuf]"), std::string::npos) << info.out();
    EXPECT_EQ(info.out().find("note:"), std::string::npos) << info.out();
}

TEST(KrinRecord, RecorderThatCannotWriteSaysSoAndExitsWithThree) {
    const std::string uri = freshEndpoint() + "/CentOpt";
    ToolProcess full(LUMO_RECORD_PATH, {"-o", "/dev/full", "--duration", "5", uri, "CentOpt"});
    EXPECT_EQ(full.wait(60s), 3);
    EXPECT_NE(full.err().find("cannot write /dev/full"), std::string::npos) << full.err();
    EXPECT_NE(full.err().find("No space left on device"), std::string::npos) << full.err();

    ToolProcess missing(LUMO_RECORD_PATH, {"-o", "/nonexistent-directory/r.mcap", "--duration", "5", uri, "CentOpt"});
    EXPECT_EQ(missing.wait(60s), 3);
    EXPECT_NE(missing.err().find("cannot create /nonexistent-directory/r.mcap"), std::string::npos) << missing.err();
}

/// Plays `path` and expects a refusal with exit code 2 that names the file,
/// an offset and `what`.
void expectRefusal(const std::string& path, const std::string& what) {
    ToolProcess player(LUMO_PLAY_PATH, {path, freshEndpoint()});
    EXPECT_EQ(player.wait(60s), 2) << player.err();
    EXPECT_NE(player.err().find("krin-play: " + path + ": offset "), std::string::npos) << player.err();
    EXPECT_NE(player.err().find(what), std::string::npos) << player.err();
    EXPECT_NE(player.err().find("nothing was published"), std::string::npos) << player.err();
}

/// A closed recording with one channel of `schemaName` and one message.
void writeFile(const std::string& path, const std::string& schemaName, const std::string& schemaData,
               const std::string& messageEncoding) {
    lumo::mcap::Writer writer(path);
    const auto schema = writer.addSchema(schemaName, "protobuf", schemaData);
    const auto channel = writer.addChannel(schema, "/x", messageEncoding);
    writer.write(lumo::mcap::Message{channel, 0, 1, 1, ""});
    writer.close();
}

std::string centOptDescriptors() {
    const lumotypes::host::Plugin plugin;
    return lumo::tools::fileDescriptorSetOf(plugin.messageType("CentOpt"));
}

TEST(KrinRecord, PlayerRefusesFilesItCannotPlayNamingFileOffsetAndRecord) {
    RecordingFile foreign("foreign");
    {
        std::ofstream out(foreign.path);
        out << "time,value\n1,2\n";
    }
    expectRefusal(foreign.path, "magic");

    RecordingFile otherSchema("otherschema");
    writeFile(otherSchema.path, "pkg.Telemetry", centOptDescriptors(), "protobuf");
    expectRefusal(otherSchema.path, "schema 'pkg.Telemetry' is not the type of any topic");

    RecordingFile otherEncoding("otherencoding");
    writeFile(otherEncoding.path, "generated.krin.lumotypes.CentOpt", centOptDescriptors(), "json");
    expectRefusal(otherEncoding.path, "encoded as 'json'");

    RecordingFile truncated("truncated");
    writeFile(truncated.path, "generated.krin.lumotypes.CentOpt", centOptDescriptors(), "protobuf");
    std::string bytes;
    {
        std::ifstream in(truncated.path, std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(in), {});
    }
    {
        std::ofstream out(truncated.path, std::ios::binary | std::ios::trunc);
        out << bytes.substr(0, bytes.size() / 2);
    }
    expectRefusal(truncated.path, "record");
}

TEST(KrinRecord, FileOfAnotherWriterWithProtobufChannelsOfTheTopicsPlays) {
    // Another writer's habits: lz4, a topic without a leading slash, no
    // channel metadata, a schema defined before a channel of a later id.
    RecordingFile file("otherwriter");
    {
        const lumotypes::host::Plugin plugin;
        lumo::mcap::WriterOptions options;
        options.library = "another writer";
        options.compression = "lz4";
        lumo::mcap::Writer writer(file.path, options);
        writer.addSchema("generated.krin.lumotypes.LumoMode", "protobuf", "");  // unused, empty
        const auto schema = writer.addSchema("generated.krin.lumotypes.CentOpt", "protobuf",
                                             lumo::tools::fileDescriptorSetOf(plugin.messageType("CentOpt")));
        const auto channel = writer.addChannel(schema, "centopt", "protobuf");
        google::protobuf::DynamicMessageFactory factory;
        std::unique_ptr<google::protobuf::Message> sample(factory.GetPrototype(&plugin.messageType("CentOpt"))->New());
        std::string reason;
        ASSERT_TRUE(lumo::tools::fromJson(centOptJson, *sample, reason)) << reason;
        for (std::uint32_t i = 0; i < 4; ++i) {
            writer.write(lumo::mcap::Message{channel, 100 + i, 1000000u * i, 0, sample->SerializeAsString()});
        }
        writer.close();
    }
    const std::string replay = freshEndpoint();
    ToolProcess tap(LUMO_TAP_PATH, {"--count", "4", "--duration", "90", replay + "/centopt", "CentOpt"});
    ToolProcess player(LUMO_PLAY_PATH, {file.path, "--topic", "CentOpt", "-p", "krin.ps.slowJoinerDelayMs=1500", replay});
    ASSERT_EQ(player.wait(100s), 0) << player.err();
    ASSERT_EQ(tap.wait(100s), 0) << tap.err();
    EXPECT_EQ(linesOf(tap.out()), std::vector<std::string>(4, centOptJson));
}

TEST(KrinRecord, ToolsExplainThemselvesAndRefuseBadArguments) {
    ToolProcess recordHelp(LUMO_RECORD_PATH, {"--help"});
    EXPECT_EQ(recordHelp.wait(30s), 0);
    EXPECT_NE(recordHelp.out().find("--all"), std::string::npos);
    ToolProcess playHelp(LUMO_PLAY_PATH, {"--help"});
    EXPECT_EQ(playHelp.wait(30s), 0);
    EXPECT_NE(playHelp.out().find("--as-fast-as-possible"), std::string::npos);

    ToolProcess noTopic(LUMO_RECORD_PATH, {"-o", "/tmp/never.mcap", "krin.ps://127.0.0.1:7400"});
    EXPECT_EQ(noTopic.wait(30s), 2);
    EXPECT_NE(noTopic.err().find("has no TOPIC"), std::string::npos) << noTopic.err();
    ToolProcess badTopic(LUMO_RECORD_PATH, {"-o", "/tmp/never.mcap", "krin.ps://127.0.0.1:7400", "Nothing"});
    EXPECT_EQ(badTopic.wait(30s), 2);
    EXPECT_NE(badTopic.err().find("unknown topic 'Nothing'"), std::string::npos) << badTopic.err();
    ToolProcess noUri(LUMO_PLAY_PATH, {"/tmp/never.mcap"});
    EXPECT_EQ(noUri.wait(30s), 2);
    ToolProcess bothSpeeds(LUMO_PLAY_PATH, {"--speed", "2", "--as-fast-as-possible", "/tmp/x.mcap", "krin.ps://*:1"});
    EXPECT_EQ(bothSpeeds.wait(30s), 2);
}

}  // namespace
