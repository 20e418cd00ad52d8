// krin-perf as a user runs it: each run starts its own peer process, prints
// one RESULT line, and refuses bad options before it measures anything.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ToolProcess.h"

#ifndef LUMO_PERF_PATH
#error "LUMO_PERF_PATH must name krin-perf"
#endif
#ifndef LUMOTYPES_KRIN_PLUGIN_PATH
#error "LUMOTYPES_KRIN_PLUGIN_PATH must name the plug-in"
#endif

namespace {

using lumo::test::ToolProcess;
using namespace std::chrono_literals;

/// The key=value fields of the RESULT line of `out`; empty if there is none.
std::map<std::string, std::string> resultOf(const std::string& out) {
    std::map<std::string, std::string> fields;
    for (const std::string& line : lumo::test::linesOf(out)) {
        if (line.rfind("RESULT ", 0) != 0) {
            continue;
        }
        std::istringstream words(line.substr(7));
        for (std::string word; words >> word;) {
            const auto equals = word.find('=');
            if (equals != std::string::npos) {
                fields[word.substr(0, equals)] = word.substr(equals + 1);
            }
        }
    }
    return fields;
}

double number(const std::map<std::string, std::string>& fields, const std::string& key) {
    const auto found = fields.find(key);
    return found == fields.end() ? -1.0 : std::stod(found->second);
}

std::vector<std::string> shortThroughput(const std::string& impl) {
    // A low offered rate and deep queues: the run proves that samples travel
    // and are accounted for, not how fast they can go.
    return {"throughput", "--impl", impl, "--size", "64", "--seconds", "0.3", "--warmup", "0.1",
            "--rate", "20000", "-p", "krin.runtime.highWaterMark=20000", "--plugin", LUMOTYPES_KRIN_PLUGIN_PATH};
}

void expectAnAccountedThroughputRun(const std::string& impl) {
    ToolProcess perf(LUMO_PERF_PATH, shortThroughput(impl));
    ASSERT_EQ(perf.wait(120s), 0) << perf.err();
    const auto result = resultOf(perf.out());
    ASSERT_FALSE(result.empty()) << perf.out();
    EXPECT_EQ(result.at("impl"), impl);
    EXPECT_GT(number(result, "received"), 0);
    EXPECT_GT(number(result, "samples_per_s"), 0);
    // Every sample counted as received or lost was sent first.
    EXPECT_GE(number(result, "sent"), number(result, "received") + number(result, "lost"));
    EXPECT_GT(number(result, "cpu_us_per_sample"), 0);
    EXPECT_GE(number(result, "switches_per_sample"), 0);
}

TEST(KrinPerf, ThroughputThroughThePlugInCountsWhatArrivedAndWhatEachSampleCost) {
    expectAnAccountedThroughputRun("plugin");
}

TEST(KrinPerf, ThroughputOfTheRawPipelineCountsWhatArrivedAndWhatEachSampleCost) {
    expectAnAccountedThroughputRun("raw");
}

TEST(KrinPerf, ThroughputOfBareZeroMqCountsWhatArrivedAndWhatEachSampleCost) {
    expectAnAccountedThroughputRun("zmq");
}

TEST(KrinPerf, LatencyOfBareZeroMqCompletesEveryRoundTripWithoutARuntime) {
    ToolProcess perf(LUMO_PERF_PATH, {"latency", "--impl", "zmq", "--size", "64", "--round-trips", "200"});
    ASSERT_EQ(perf.wait(120s), 0) << perf.err();
    const auto result = resultOf(perf.out());
    ASSERT_FALSE(result.empty()) << perf.out();
    EXPECT_EQ(result.at("impl"), "zmq");
    EXPECT_EQ(result.at("read"), "socket");
    EXPECT_EQ(number(result, "round_trips"), 200);
    EXPECT_EQ(number(result, "timed_out"), 0);
}

TEST(KrinPerf, LatencyRunReportsEveryRoundTripWithOrderedPercentiles) {
    ToolProcess perf(LUMO_PERF_PATH, {"latency", "--impl", "plugin", "--size", "64", "--round-trips", "200",
                                      "--plugin", LUMOTYPES_KRIN_PLUGIN_PATH});
    ASSERT_EQ(perf.wait(120s), 0) << perf.err();
    const auto result = resultOf(perf.out());
    ASSERT_FALSE(result.empty()) << perf.out();
    EXPECT_EQ(number(result, "round_trips"), 200);
    EXPECT_EQ(number(result, "timed_out"), 0);
    EXPECT_GT(number(result, "median_us"), 0);
    EXPECT_LE(number(result, "median_us"), number(result, "p90_us"));
    EXPECT_LE(number(result, "p90_us"), number(result, "p99_us"));
    EXPECT_LE(number(result, "p99_us"), number(result, "max_us"));
}

/// A short loop run at a low rate: every sample arrives, the latencies are in order.
void expectEveryLoopSampleWithOrderedPercentiles(const std::vector<std::string>& extra, const std::string& inProcess) {
    // Named after the test: the loop tests run in parallel, each in its own process.
    const std::string latencies = ::testing::TempDir() + "krinPerf-" +
                                  ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".txt";
    std::vector<std::string> arguments{"loop", "--rate", "200", "--seconds", "0.5", "--size", "64", "--latency-out",
                                       latencies, "--plugin", LUMOTYPES_KRIN_PLUGIN_PATH};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    ToolProcess perf(LUMO_PERF_PATH, arguments);
    ASSERT_EQ(perf.wait(120s), 0) << perf.err();
    const auto result = resultOf(perf.out());
    ASSERT_FALSE(result.empty()) << perf.out();
    EXPECT_EQ(result.at("test"), "loop");
    EXPECT_EQ(result.at("in_process"), inProcess);
    EXPECT_EQ(number(result, "sent"), 100);
    EXPECT_EQ(number(result, "received"), 100);
    EXPECT_EQ(number(result, "lost"), 0);
    EXPECT_GT(number(result, "p50_us"), 0);
    EXPECT_LE(number(result, "p50_us"), number(result, "p99_us"));
    EXPECT_LE(number(result, "p99_us"), number(result, "p999_us"));
    EXPECT_LE(number(result, "p999_us"), number(result, "max_us"));
    EXPECT_LE(number(result, "late_1ms"), number(result, "received"));
    std::ifstream written(latencies);
    std::size_t lines = 0;
    for (std::string line; std::getline(written, line);) {
        EXPECT_GT(std::stod(line), 0) << line;
        ++lines;
    }
    EXPECT_EQ(lines, 100u);
    std::remove(latencies.c_str());
}

TEST(KrinPerf, LoopAcrossProcessesReceivesEverySampleSentWithOrderedPercentiles) {
    expectEveryLoopSampleWithOrderedPercentiles({}, "false");
}

TEST(KrinPerf, LoopInOneProcessReceivesEverySampleSentAndSaysItRanInOneProcess) {
    expectEveryLoopSampleWithOrderedPercentiles({"--in-process"}, "true");
}

TEST(KrinPerf, LoopReadingOnItsOwnThreadReceivesEverySampleSent) {
    expectEveryLoopSampleWithOrderedPercentiles({"--read", "read"}, "false");
}

TEST(KrinPerf, LatencyInOneProcessCompletesEveryRoundTripAndSaysItRanInOneProcess) {
    ToolProcess perf(LUMO_PERF_PATH, {"latency", "--in-process", "--size", "64", "--round-trips", "200", "--plugin",
                                      LUMOTYPES_KRIN_PLUGIN_PATH});
    ASSERT_EQ(perf.wait(120s), 0) << perf.err();
    const auto result = resultOf(perf.out());
    ASSERT_FALSE(result.empty()) << perf.out();
    EXPECT_EQ(result.at("in_process"), "true");
    EXPECT_EQ(number(result, "round_trips"), 200);
    EXPECT_EQ(number(result, "timed_out"), 0);
    EXPECT_LE(number(result, "median_us"), number(result, "max_us"));
}

TEST(KrinPerf, ThroughputInOneProcessCountsWhatArrivedAndSaysItRanInOneProcess) {
    std::vector<std::string> arguments = shortThroughput("plugin");
    arguments.push_back("--in-process");
    ToolProcess perf(LUMO_PERF_PATH, arguments);
    ASSERT_EQ(perf.wait(120s), 0) << perf.err();
    const auto result = resultOf(perf.out());
    ASSERT_FALSE(result.empty()) << perf.out();
    EXPECT_EQ(result.at("in_process"), "true");
    EXPECT_GT(number(result, "received"), 0);
    EXPECT_GE(number(result, "sent"), number(result, "received") + number(result, "lost"));
}

TEST(KrinPerf, CrossProcessRunsSayTheyDidNotRunInOneProcess) {
    ToolProcess perf(LUMO_PERF_PATH, {"latency", "--impl", "zmq", "--size", "64", "--round-trips", "20"});
    ASSERT_EQ(perf.wait(120s), 0) << perf.err();
    EXPECT_EQ(resultOf(perf.out()).at("in_process"), "false");
}

TEST(KrinPerf, NegativeLoopRateIsRefusedNamingTheRate) {
    ToolProcess perf(LUMO_PERF_PATH, {"loop", "--rate", "-5", "--seconds", "1"});
    EXPECT_EQ(perf.wait(30s), 2);
    EXPECT_NE(perf.err().find("krin-perf: --rate: -5 is not in"), std::string::npos) << perf.err();
    EXPECT_EQ(resultOf(perf.out()).size(), 0u);
}

TEST(KrinPerf, LoopWithoutARateIsRefusedNamingTheRate) {
    ToolProcess perf(LUMO_PERF_PATH, {"loop", "--seconds", "1"});
    EXPECT_EQ(perf.wait(30s), 2);
    EXPECT_NE(perf.err().find("--rate is required"), std::string::npos) << perf.err();
}

TEST(KrinPerf, InProcessWithBareZeroMqIsRefusedNamingBothArguments) {
    ToolProcess perf(LUMO_PERF_PATH, {"latency", "--in-process", "--impl", "zmq", "--round-trips", "10"});
    EXPECT_EQ(perf.wait(30s), 2);
    EXPECT_NE(perf.err().find("krin-perf: --in-process"), std::string::npos) << perf.err();
    EXPECT_NE(perf.err().find("--impl zmq has none"), std::string::npos) << perf.err();
    EXPECT_EQ(resultOf(perf.out()).size(), 0u);
}

TEST(KrinPerf, LoopThroughTheRawPipelineIsRefusedNamingTheImplementation) {
    ToolProcess perf(LUMO_PERF_PATH, {"loop", "--rate", "100", "--impl", "raw"});
    EXPECT_EQ(perf.wait(30s), 2);
    EXPECT_NE(perf.err().find("krin-perf: --impl raw: loop carries its send time"), std::string::npos) << perf.err();
}

TEST(KrinPerf, NegativeRateIsRefusedWithUsage) {
    ToolProcess perf(LUMO_PERF_PATH, {"throughput", "--rate", "-1"});
    EXPECT_EQ(perf.wait(30s), 2);
    EXPECT_NE(perf.err().find("krin-perf: --rate: -1 is not in 0 .. 1e+07 (samples per second)"), std::string::npos)
        << perf.err();
    EXPECT_NE(perf.err().find("krin-perf --help explains the arguments"), std::string::npos);
}

TEST(KrinPerf, PropertyWithoutEqualsSignIsRefusedWithUsage) {
    ToolProcess perf(LUMO_PERF_PATH, {"throughput", "-p", "krin.runtime.highWaterMark"});
    EXPECT_EQ(perf.wait(30s), 2);
    EXPECT_NE(perf.err().find("-p: property 'krin.runtime.highWaterMark' is not of the form key=value"),
              std::string::npos)
        << perf.err();
}

TEST(KrinPerf, PropertyTheRuntimeRefusesIsABadArgumentWithTheRuntimesReason) {
    ToolProcess perf(LUMO_PERF_PATH, {"throughput", "--impl", "raw", "-p", "krin.runtime.highWaterMark=-5"});
    EXPECT_EQ(perf.wait(30s), 2);
    EXPECT_NE(perf.err().find("Property krin.runtime.highWaterMark has value '-5', which is not a message count"),
              std::string::npos)
        << perf.err();
    EXPECT_EQ(resultOf(perf.out()).size(), 0u);
}

TEST(KrinPerf, JsonPrintsTheSameFiguresAsOneObject) {
    ToolProcess perf(LUMO_PERF_PATH, {"latency", "--json", "--impl", "raw", "--size", "64", "--round-trips", "50"});
    ASSERT_EQ(perf.wait(120s), 0) << perf.err();
    const auto lines = lumo::test::linesOf(perf.out());
    ASSERT_EQ(lines.size(), 1u) << perf.out();
    EXPECT_EQ(lines[0].rfind("{\"test\": \"latency\", \"impl\": \"raw\", ", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find("\"round_trips\": 50, "), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find("\"median_us\": "), std::string::npos) << lines[0];
    EXPECT_EQ(lines[0].back(), '}');
}

TEST(KrinPerf, ASizeThatIsNotAWholeNumberOfFloatsIsRefused) {
    ToolProcess perf(LUMO_PERF_PATH, {"throughput", "--size", "66"});
    EXPECT_EQ(perf.wait(30s), 2);
    EXPECT_NE(perf.err().find("krin-perf: --size 66 is not a multiple of 4"), std::string::npos) << perf.err();
}

}  // namespace
