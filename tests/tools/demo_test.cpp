// The demo as a user runs it: a short loop over all topics that must end with
// every sample verified, plain and with CURVE, its --help, and its refusal of
// a bad command line.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>

#include "ToolProcess.h"

#ifndef LUMO_DEMO_PATH
#error "LUMO_DEMO_PATH must name the demo program"
#endif

namespace {

using lumo::test::ToolProcess;
using namespace std::chrono_literals;

const char* const allTopics[] = {"InterfaceControlArgs", "Dummy",         "LumoMode",
                                 "RefPos",               "CentOpt",       "CentError",
                                 "SimCentErrors",        "FieldStablizationTopicIn", "FieldStablizationTopicOut",
                                 "HokuTopicIn",          "HokuTopicOut"};

/// From "... in process for X of Y subscriptions ...": {X, Y}, or {-1, -1}.
std::pair<int, int> inProcessShareIn(const std::string& out) {
    const std::string lead = "lumo-demo: samples travel in process for ";
    const auto at = out.find(lead);
    int inProcess = -1;
    int all = -1;
    if (at == std::string::npos ||
        std::sscanf(out.c_str() + at + lead.size(), "%d of %d subscriptions", &inProcess, &all) != 2) {
        return {-1, -1};
    }
    return {inProcess, all};
}

TEST(LumoDemo, AShortRunVerifiesEveryTopicAndExitsZero) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--duration", "1"});
    ASSERT_EQ(demo.wait(100s), 0) << demo.out() << demo.err();
    const std::string out = demo.out();
    EXPECT_NE(out.find("OK: all"), std::string::npos) << out;
    for (const char* topic : allTopics) {
        EXPECT_NE(out.find(std::string(topic) + " "), std::string::npos) << topic << " missing from\n" << out;
    }
    EXPECT_NE(out.find("loop latency ms (median / p99 / max)"), std::string::npos) << out;
    EXPECT_EQ(out.find("FAILED"), std::string::npos) << out;
}

TEST(LumoDemo, CurveRunAuthenticatesTheWholeLoopAndVerifiesEveryTopic) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--curve", "--duration", "1", "--quiet"});
    ASSERT_EQ(demo.wait(100s), 0) << demo.out() << demo.err();
    const std::string out = demo.out();
    EXPECT_NE(out.find("lumo-demo: transport: CURVE"), std::string::npos) << out;
    EXPECT_NE(out.find("Transport: CURVE"), std::string::npos) << out;
    EXPECT_NE(out.find("OK: all"), std::string::npos) << out;
    for (const char* topic : allTopics) {
        EXPECT_NE(out.find(std::string(topic) + " "), std::string::npos) << topic << " missing from\n" << out;
    }
    EXPECT_EQ(out.find("FAILED"), std::string::npos) << out;
    // Every subscriber holds the one admitted key: none is refused.
    EXPECT_EQ(demo.err().find("Refused"), std::string::npos) << demo.err();
    // Over TCP, so that every subscription passes the handshake.
    EXPECT_EQ(inProcessShareIn(out).first, 0) << out;
}

TEST(LumoDemo, PlainRunSaysItsTransportIsPlain) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--duration", "1", "--quiet"});
    ASSERT_EQ(demo.wait(100s), 0) << demo.out() << demo.err();
    EXPECT_NE(demo.out().find("Transport: plain TCP"), std::string::npos) << demo.out();
}

TEST(LumoDemo, ItsComponentsShareOneProcessSoEverySubscriptionTakesTheInProcessPath) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--duration", "1", "--quiet"});
    ASSERT_EQ(demo.wait(100s), 0) << demo.out() << demo.err();
    const auto [inProcess, all] = inProcessShareIn(demo.out());
    EXPECT_GT(all, 0) << demo.out();
    EXPECT_EQ(inProcess, all) << demo.out();
    EXPECT_NE(demo.out().find("the loop's samples travel in process for "), std::string::npos) << demo.out();
}

TEST(LumoDemo, WithTheInProcessPathTurnedOffEverySubscriptionUsesTcpAndTheLoopStillVerifies) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--duration", "1", "--quiet", "-p", "krin.runtime.inProcess=false"});
    ASSERT_EQ(demo.wait(100s), 0) << demo.out() << demo.err();
    const auto [inProcess, all] = inProcessShareIn(demo.out());
    EXPECT_GT(all, 0) << demo.out();
    EXPECT_EQ(inProcess, 0) << demo.out();
    EXPECT_NE(demo.out().find("OK: all"), std::string::npos) << demo.out();
}

TEST(LumoDemo, CurveWithKeysOfItsOwnIsRefusedWithExitCodeTwo) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--curve", "-p", "krin.runtime.curve.authorizedKeys=x"});
    EXPECT_EQ(demo.wait(60s), 2);
    EXPECT_NE(demo.err().find("lumo-demo: option --curve makes its own keys; leave out -p "
                              "krin.runtime.curve.authorizedKeys"),
              std::string::npos)
        << demo.err();
}

TEST(LumoDemo, MetricsAddressServesTheRuntimesCountersAndTheEndPrintsThem) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--metrics-address", "127.0.0.1:0", "--duration", "1", "--quiet"});
    ASSERT_EQ(demo.wait(100s), 0) << demo.out() << demo.err();
    const std::string out = demo.out();
    EXPECT_NE(out.find("lumo-demo: runtime metrics at http://127.0.0.1:"), std::string::npos) << out;
    EXPECT_NE(out.find(" forwarded, 0 dropped (queue full)"), std::string::npos) << out;
    EXPECT_NE(out.find("/lumo/demo/FieldStablizationTopicIn: "), std::string::npos) << out;
    EXPECT_NE(out.find(" delivered, 0 failed to process"), std::string::npos) << out;
}

TEST(LumoDemo, MetricsAddressThatIsNotHostAndPortIsRefusedWithExitCodeTwo) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--metrics-address", "nowhere"});
    EXPECT_EQ(demo.wait(60s), 2);
    EXPECT_NE(demo.err().find("Property krin.runtime.metricsAddress has value 'nowhere': not HOST:PORT"),
              std::string::npos)
        << demo.err();
}

TEST(LumoDemo, ShowsProgressWhileItRuns) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--duration", "2", "--rate", "200"});
    ASSERT_EQ(demo.wait(100s), 0) << demo.out() << demo.err();
    EXPECT_NE(demo.out().find("[ 1 s] sensor"), std::string::npos) << demo.out();
}

TEST(LumoDemo, QuietRunPrintsNoProgressButTheTable) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--duration", "1", "--rate", "100", "--quiet"});
    ASSERT_EQ(demo.wait(100s), 0) << demo.out() << demo.err();
    EXPECT_EQ(demo.out().find("] sensor"), std::string::npos) << demo.out();
    EXPECT_NE(demo.out().find("OK: all"), std::string::npos) << demo.out();
}

TEST(LumoDemo, HelpExplainsEveryOptionAndExitsZero) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--help"});
    ASSERT_EQ(demo.wait(60s), 0);
    for (const char* option : {"--duration", "--rate", "--port", "-p KEY=VALUE", "--log-config", "--plugin",
                               "--curve", "--metrics-address", "--quiet", "--help", "Exit status"}) {
        EXPECT_NE(demo.out().find(option), std::string::npos) << option;
    }
}

TEST(LumoDemo, UnknownOptionIsRefusedWithExitCodeTwo) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--colour"});
    EXPECT_EQ(demo.wait(60s), 2);
    EXPECT_NE(demo.err().find("lumo-demo: The following argument was not expected: --colour"), std::string::npos)
        << demo.err();
}

TEST(LumoDemo, NonPositiveDurationIsRefusedWithExitCodeTwo) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--duration", "0"});
    EXPECT_EQ(demo.wait(60s), 2);
    EXPECT_NE(demo.err().find("lumo-demo: --duration: 0 is not in 0.001 .. 1e+06 (seconds)"), std::string::npos)
        << demo.err();
}

TEST(LumoDemo, PropertyValueThatIsNotANumberIsRefusedWithExitCodeTwo) {
    ToolProcess demo(LUMO_DEMO_PATH, {"-p", "krin.runtime.highWaterMark=lots"});
    EXPECT_EQ(demo.wait(60s), 2);
    EXPECT_NE(demo.err().find("Property krin.runtime.highWaterMark has value 'lots', which is not an integer"),
              std::string::npos)
        << demo.err();
}

TEST(LumoDemo, MissingLogConfigurationIsRefusedWithExitCodeTwo) {
    ToolProcess demo(LUMO_DEMO_PATH, {"--log-config", "/nonexistent/demo.properties"});
    EXPECT_EQ(demo.wait(60s), 2);
    EXPECT_NE(demo.err().find("cannot read the log configuration /nonexistent/demo.properties"), std::string::npos)
        << demo.err();
}

}  // namespace
