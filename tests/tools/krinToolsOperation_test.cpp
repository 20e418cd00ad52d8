// krin-tap and krin-pub as an operator runs them: they stop at once on SIGINT
// or SIGTERM whatever they are waiting for, the tap keeps its memory bounded
// when its reader stalls, the publisher resumes its rate after a stall, and
// bad numbers, hosts, enumeration values and foreign topic frames are refused
// with a message naming them.
#include <gtest/gtest.h>

#include <signal.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>
#include <zmq.hpp>

#include "ToolArguments.h"
#include "ToolProcess.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"
#include "krin.pb.h"
#include "lumotypes/host/Topics.h"
#include "tools/common/FreePort.h"

#ifndef LUMO_PERF_PATH
#error "LUMO_PERF_PATH must name krin-perf"
#endif
#ifndef LUMO_DEMO_PATH
#error "LUMO_DEMO_PATH must name lumo-demo"
#endif

namespace {

using lumo::test::centOptJson;
using lumo::test::freshUri;
using lumo::test::linesOf;
using lumo::test::ToolProcess;
using namespace std::chrono_literals;


/// The bound within which a signal must end a tool, asserted with room for a
/// loaded machine: the tools wait on the signal itself, never on a schedule.
constexpr auto promptly = 100ms;
#ifdef LUMO_SANITIZED
// A sanitized tool also scans its heap for leaks as it exits.
constexpr auto generously = 20 * promptly;
#else
constexpr auto generously = 5 * promptly;
#endif

auto contains(const std::string& text) {
    return [text](const std::string& output) { return output.find(text) != std::string::npos; };
}

auto hasLines(std::size_t count) {
    return [count](const std::string& output) { return linesOf(output).size() >= count; };
}

TEST(KrinToolsOperation, TapWithTheLongestDurationEndsPromptlyOnSigterm) {
    ToolProcess tap(LUMO_TAP_PATH, {"--duration", "3e9", freshUri(), "CentOpt"});
    ASSERT_TRUE(tap.awaitErr(contains("krin-tap: listening to CentOpt"), 60s)) << tap.err();
    const auto [status, took] = tap.signalAndTime(SIGTERM, 10s);
    EXPECT_EQ(status, 0) << tap.err();
    EXPECT_LT(took, generously);
}

TEST(KrinToolsOperation, PubAtTheSlowestRateEndsPromptlyOnSigintAfterItsFirstSample) {
    ToolProcess pub(LUMO_PUB_PATH, {"--rate", "1e-6", "--count", "0", "-p", "krin.ps.slowJoinerDelayMs=0",
                                    freshUri(), "CentOpt", centOptJson});
    ASSERT_TRUE(pub.awaitErr(contains("krin-pub: publishing CentOpt at 1e-06 per second"), 60s)) << pub.err();
    const auto [status, took] = pub.signalAndTime(SIGINT, 10s);
    EXPECT_EQ(status, 0) << pub.err();
    EXPECT_LT(took, generously);
    EXPECT_NE(pub.err().find("krin-pub: published 1 sample of CentOpt"), std::string::npos) << pub.err();
}

TEST(KrinToolsOperation, PubInsideAMinuteLongSlowJoinerDelayEndsPromptlyOnSigterm) {
    ToolProcess pub(LUMO_PUB_PATH, {"-p", "krin.ps.slowJoinerDelayMs=60000", freshUri(), "CentOpt", centOptJson});
    ASSERT_TRUE(pub.awaitErr(contains("subscribers have 60000 ms (krin.ps.slowJoinerDelayMs) to join"), 60s))
        << pub.err();
    const auto [status, took] = pub.signalAndTime(SIGTERM, 10s);
    EXPECT_EQ(status, 0) << pub.err();
    EXPECT_LT(took, generously);
}

TEST(KrinToolsOperation, PerfAndDemoEndPromptlyOnSigint) {
    ToolProcess perf(LUMO_PERF_PATH, {"latency", "--impl", "raw", "--round-trips", "100000000"});
    ToolProcess demo(LUMO_DEMO_PATH, {"--duration", "100000"});
    ASSERT_TRUE(demo.awaitOut(contains("all subscribers joined"), 60s)) << demo.out() << demo.err();
    const auto [demoStatus, demoTook] = demo.signalAndTime(SIGINT, 10s);
    EXPECT_EQ(demoStatus, 0) << demo.err();
    EXPECT_LT(demoTook, generously);
    const auto [perfStatus, perfTook] = perf.signalAndTime(SIGINT, 10s);
    EXPECT_EQ(perfStatus, 0) << perf.err();
    EXPECT_LT(perfTook, generously);
}

TEST(KrinToolsOperation, PerfLoopEndedBySigintStillReportsWhatItMeasured) {
    ToolProcess perf(LUMO_PERF_PATH, {"loop", "--rate", "100", "--seconds", "600", "--size", "64"});
    // The first progress line comes after five seconds of sending.
    ASSERT_TRUE(perf.awaitErr(contains("samples sent"), 60s)) << perf.err();
    const auto [status, took] = perf.signalAndTime(SIGINT, 30s);
    EXPECT_EQ(status, 0) << perf.err();
    const std::string out = perf.out();
    ASSERT_NE(out.find("RESULT test=loop "), std::string::npos) << out;
    EXPECT_EQ(out.find(" sent=60000 "), std::string::npos) << out;
    EXPECT_NE(out.find(" lost=0 "), std::string::npos) << out;
}

TEST(KrinToolsOperation, TapWhoseReaderStoppedDropsKeepsItsMemoryAndReportsTheDrops) {
    const std::string uri = freshUri();
    ToolProcess tap(LUMO_TAP_PATH, {"--queue", "100", uri, "CentOpt"}, ToolProcess::Stdout::toUnreadPipe);
    ToolProcess pub(LUMO_PUB_PATH, {"--rate", "20000", "--count", "0", uri, "CentOpt", centOptJson});
    // A pipe takes 64 KiB before its writer must wait; then the queue fills.
    ASSERT_TRUE(tap.awaitErr(contains("krin-tap: dropped "), 100s)) << tap.err();
    // A second report, a second later, proves the tap kept going and kept dropping.
    ASSERT_TRUE(tap.awaitErr([](const std::string& err) { return err.find("dropped ") != err.rfind("dropped "); },
                             100s))
        << tap.err();
#ifndef LUMO_SANITIZED
    // The process, its runtime and its queue of 100 small samples: far below what an unbounded queue reaches.
    EXPECT_LT(tap.residentKiB(), 64 * 1024);
#endif
    const auto [status, took] = tap.signalAndTime(SIGTERM, 10s);
    EXPECT_EQ(status, 0) << tap.err();
    EXPECT_LT(took, generously);
    EXPECT_NE(tap.err().find(" samples in all: the output was slower than the topic (--queue 100)"), std::string::npos)
        << tap.err();
    pub.interrupt(60s);
}

/// The source timestamps of the samples a text-format tap printed.
std::vector<double> timestampsOf(const std::string& out) {
    std::vector<double> stamps;
    for (const auto& line : linesOf(out)) {
        const auto at = line.find("sourceTimestamp: ");
        if (at != std::string::npos) {
            stamps.push_back(std::stod(line.substr(at + 17)));
        }
    }
    return stamps;
}

/// Samples sent within 20 ms of the one before, after the first `from`.
int burstAfter(const std::vector<double>& stamps, std::size_t from) {
    int close = 0;
    for (std::size_t i = from + 1; i < stamps.size(); ++i) {
        close += stamps[i] - stamps[i - 1] < 0.02 ? 1 : 0;
    }
    return close;
}

/// Stops a publisher at 10 samples a second for a second, then lets it go on:
/// the source timestamps of what the tap printed, and how many samples the
/// tap had before the stall.
std::pair<std::vector<double>, std::size_t> timestampsAroundAStall(const std::vector<std::string>& pubOptions) {
    const std::string uri = freshUri();
    ToolProcess tap(LUMO_TAP_PATH, {"--format", "text", uri, "CentOpt"});
    std::vector<std::string> arguments = pubOptions;
    arguments.insert(arguments.end(), {"--rate", "10", "--count", "0", uri, "CentOpt", centOptJson});
    ToolProcess pub(LUMO_PUB_PATH, arguments);
    const auto samples = [&] { return timestampsOf(tap.out()).size(); };
    EXPECT_TRUE(tap.awaitOut([&](const std::string&) { return samples() >= 3; }, 100s)) << tap.err();
    pub.send(SIGSTOP);
    const std::size_t before = samples();
    // The stall itself, the condition under test: ten samples fall due meanwhile.
    std::this_thread::sleep_for(1s);
    pub.send(SIGCONT);
    EXPECT_TRUE(tap.awaitOut([&](const std::string&) { return samples() >= before + 14; }, 100s)) << tap.err();
    pub.interrupt(60s);
    tap.interrupt(60s);
    return {timestampsOf(tap.out()), before};
}

TEST(KrinToolsOperation, PubAfterAStallResumesItsRateWithoutABurst) {
    const auto [stamps, before] = timestampsAroundAStall({});
    EXPECT_EQ(burstAfter(stamps, before), 0);
}

TEST(KrinToolsOperation, PubWithCatchUpSendsTheSamplesThatFellDueDuringAStallAtOnce) {
    const auto [stamps, before] = timestampsAroundAStall({"--catch-up"});
    EXPECT_GE(burstAfter(stamps, before), 8);
}

TEST(KrinToolsOperation, NumbersOutOfRangeAreRefusedNamingTheOption) {
    ToolProcess rate(LUMO_PUB_PATH, {"--rate", "1e-10", freshUri(), "CentOpt", centOptJson});
    ToolProcess duration(LUMO_TAP_PATH, {"--duration", "1e10", freshUri(), "CentOpt"});
    ToolProcess count(LUMO_PUB_PATH, {"--count", "99999999999999999999", freshUri(), "CentOpt", centOptJson});
    ToolProcess queue(LUMO_TAP_PATH, {"--queue", "0", freshUri(), "CentOpt"});
    EXPECT_EQ(rate.wait(60s), 2);
    EXPECT_EQ(duration.wait(60s), 2);
    EXPECT_EQ(count.wait(60s), 2);
    EXPECT_EQ(queue.wait(60s), 2);
    EXPECT_NE(rate.err().find("krin-pub: --rate: 1e-10 is not in 1e-06 .. 1e+06 (samples per second)"),
              std::string::npos)
        << rate.err();
    EXPECT_NE(duration.err().find("krin-tap: --duration: 1e10 is not in 0 .. 3.2e+09 (seconds)"), std::string::npos)
        << duration.err();
    EXPECT_NE(count.err().find("krin-pub: --count: '99999999999999999999' is not a whole number in 0 .. "
                               "1000000000000 (samples)"),
              std::string::npos)
        << count.err();
    EXPECT_NE(queue.err().find("krin-tap: --queue: '0' is not a whole number in 1 .. 10000000 (samples)"),
              std::string::npos)
        << queue.err();
}

TEST(KrinToolsOperation, AHostThatDoesNotResolveIsABadArgumentNamingIt) {
    const std::string uri = "krin.ps://no-such-host.invalid:7400";
    ToolProcess tap(LUMO_TAP_PATH, {uri, "CentOpt"});
    ToolProcess pub(LUMO_PUB_PATH, {uri, "CentOpt", centOptJson});
    EXPECT_EQ(tap.wait(60s), 2);
    EXPECT_EQ(pub.wait(60s), 2);
    const std::string text = "host 'no-such-host.invalid' of URI '" + uri + "' does not resolve";
    EXPECT_NE(tap.err().find("krin-tap: " + text), std::string::npos) << tap.err();
    EXPECT_NE(pub.err().find("krin-pub: " + text), std::string::npos) << pub.err();
}

TEST(KrinToolsOperation, PubRefusesANumberOutsideAnEnumerationNamingTheFieldAndTheNames) {
    ToolProcess pub(LUMO_PUB_PATH, {freshUri(), "Dummy", R"({"dummy_param":99})"});
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_NE(pub.err().find("krin-pub: the value is not a Dummy: field dummy_param: 99 is not a value of "
                             "TelescopeSystem, which takes TEL_ALL (0), TEL_M4 (1)"),
              std::string::npos)
        << pub.err();
    EXPECT_EQ(pub.err().find("invalid protobuf output"), std::string::npos) << pub.err();
}

TEST(KrinToolsOperation, PubRefusesAnUnknownNameInANestedEnumerationNamingItsPath) {
    ToolProcess pub(LUMO_PUB_PATH, {freshUri(), "LumoMode", R"({"controlMode":"FLYING","activeCameraFs":"IMG_PDS"})"});
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_NE(pub.err().find("field controlMode: 'FLYING' is not a value of "), std::string::npos) << pub.err();
}

/// A CentOpt message on the wire, with `topicFrame` as its first frame.
void sendCentOpt(zmq::socket_t& socket, const std::string& topicFrame, std::uint32_t sequence) {
    orlo::dabo::krin::rr::KrinHeader header;
    header.set_samplesequence(sequence);
    header.set_sourcetimestamp(1.0);
    header.set_dataentitytypehash(lumotypes::host::TopicTraits<lumotypes::CentOpt>::typeHash);
    // options 3, threshold 0.75, numBrightestPixels 25: three fixed-width fields.
    const float threshold = 0.75f;
    char thresholdBytes[4];
    std::memcpy(thresholdBytes, &threshold, 4);
    const std::string payload = std::string("\x0d\x03\x00\x00\x00", 5) + "\x15" + std::string(thresholdBytes, 4) +
                                std::string("\x1d\x19\x00\x00\x00", 5);
    socket.send(zmq::buffer(topicFrame), zmq::send_flags::sndmore);
    socket.send(zmq::buffer(header.SerializeAsString()), zmq::send_flags::sndmore);
    socket.send(zmq::buffer(payload), zmq::send_flags::none);
}

TEST(KrinToolsOperation, TapSkipsAMessageWhoseTopicFrameOnlyBeginsWithItsTopics) {
    const int port = lumo::tools::freeLoopbackPort();
    zmq::context_t context;
    zmq::socket_t publisher(context, zmq::socket_type::pub);
    publisher.bind("tcp://127.0.0.1:" + std::to_string(port));
    const std::string frame =
        orlo::dabo::krin::detail::createFrame0(static_cast<std::uint32_t>(orlo::dabo::util::topicNameHash("/CentOpt")));
    ToolProcess tap(LUMO_TAP_PATH, {"--count", "2", "krin.ps://127.0.0.1:" + std::to_string(port), "CentOpt"});
    // The subscription filter compares prefixes: a longer frame that begins
    // with the topic's passes it, and only the tap's own check stops it.
    std::uint32_t sequence = 0;
    while (!tap.awaitOut(hasLines(2), 0s) && sequence < 4000) {
        sendCentOpt(publisher, frame + "X", sequence++);
        sendCentOpt(publisher, frame, sequence++);
        // Pacing the sender while the tap joins.
        std::this_thread::sleep_for(50ms);
    }
    ASSERT_EQ(tap.wait(60s), 0) << tap.err();
    EXPECT_EQ(linesOf(tap.out()), (std::vector<std::string>{centOptJson, centOptJson})) << tap.out();
    EXPECT_NE(tap.err().find("is not the topic's " + orlo::dabo::util::hexStr(frame)), std::string::npos) << tap.err();
}

TEST(KrinToolsOperation, EveryToolPrintsItsVersion) {
    for (const char* program : {LUMO_TAP_PATH, LUMO_PUB_PATH, LUMO_PERF_PATH, LUMO_DEMO_PATH}) {
        ToolProcess tool(program, {"--version"});
        ASSERT_EQ(tool.wait(60s), 0) << program;
        const std::string name = std::string(program).substr(std::string(program).rfind('/') + 1);
        EXPECT_EQ(tool.out().rfind(name + " " LUMO_VERSION " (lumotypes-krin)\n", 0), 0u) << tool.out();
    }
}

}  // namespace
