// krin-tap and krin-pub end to end: what pub sends, tap prints, as JSON and as
// text, or counts per second, also over CURVE with the keys given as options;
// and the refusals of bad arguments, with their messages and exit codes.
#include <gtest/gtest.h>

#include <string>

#include "ToolArguments.h"
#include "ToolProcess.h"
#include "tools/common/CurveKeyPair.h"


namespace {

using lumo::test::centOptJson;
using lumo::test::freshUri;
using lumo::test::linesOf;
using lumo::test::ToolProcess;
using namespace std::chrono_literals;

const std::string lumoModeJson = R"({"controlMode":"TEL_DRIVEN_WITH_HOKU_TT","activeCameraFs":"IMG_PDS"})";

/// Starts a tap for `count` samples, then a publisher that keeps sending
/// until the tap has what it wants: the tap may join after the first samples.
struct TapAndPub {
    TapAndPub(const std::vector<std::string>& tapOptions, const std::string& uri, const std::string& topic,
              const std::string& value, const std::vector<std::string>& pubOptions = {})
        : tap(LUMO_TAP_PATH, with(tapOptions, {"--duration", "90", uri, topic})),
          pub(LUMO_PUB_PATH, with(pubOptions, {"--rate", "20", "--count", "0", uri, topic, value})) {}

    static std::vector<std::string> with(std::vector<std::string> first, const std::vector<std::string>& rest) {
        first.insert(first.end(), rest.begin(), rest.end());
        return first;
    }

    ToolProcess tap;
    ToolProcess pub;
};

TEST(KrinTools, TapPrintsAsJsonExactlyWhatPubSends) {
    TapAndPub run({"--count", "3"}, freshUri(), "CentOpt", centOptJson);
    ASSERT_EQ(run.tap.wait(100s), 0) << run.tap.err();
    EXPECT_EQ(run.pub.interrupt(60s), 0) << run.pub.err();
    const auto lines = linesOf(run.tap.out());
    ASSERT_EQ(lines.size(), 3u) << run.tap.out();
    for (const auto& line : lines) {
        EXPECT_EQ(line, centOptJson);
    }
}

TEST(KrinTools, TapWithAMetricsAddressServesTheRuntimesCountersAndPrintsThemAtTheEnd) {
    TapAndPub run({"--metrics-address", "127.0.0.1:0", "--count", "3"}, freshUri(), "CentOpt", centOptJson);
    ASSERT_EQ(run.tap.wait(100s), 0) << run.tap.err();
    EXPECT_EQ(run.pub.interrupt(60s), 0) << run.pub.err();
    const std::string err = run.tap.err();
    EXPECT_NE(err.find("krin-tap: runtime metrics at http://127.0.0.1:"), std::string::npos) << err;
    EXPECT_NE(err.find("krin-tap: subscription krin.ps://"), std::string::npos) << err;
    EXPECT_NE(err.find(" delivered, 0 failed to process, 0 refused for size, 0 authentication failures, "),
              std::string::npos)
        << err;
}

TEST(KrinTools, TapPrintsEnumerationsByNameAndNestedMessagesFieldByField) {
    const std::string simCentErrors =
        R"({"img_gp1_err":{"x_err_in_pixels":0.5,"y_err_in_pixels":-0.25,"flux":1500,"readout_err":false},)"
        R"("img_gp2_err":{"x_err_in_pixels":1,"y_err_in_pixels":2,"flux":3,"readout_err":true},)"
        R"("img_gp3_err":{"x_err_in_pixels":0,"y_err_in_pixels":0,"flux":0,"readout_err":false},)"
        R"("img_pds_err":{"x_err_in_pixels":0,"y_err_in_pixels":0,"flux":0,"readout_err":false},)"
        R"("wfs_gp1_err":[{"x_err_in_pixels":4,"y_err_in_pixels":5,"flux":6,"readout_err":true}],)"
        R"("wfs_gp2_err":[],"wfs_gp3_err":[],"wfs_pds_err":[]})";
    TapAndPub run({"--count", "1"}, freshUri(), "SimCentErrors", simCentErrors);
    ASSERT_EQ(run.tap.wait(100s), 0) << run.tap.err();
    EXPECT_EQ(run.pub.interrupt(60s), 0) << run.pub.err();
    EXPECT_EQ(run.tap.out(), simCentErrors + "\n");

    TapAndPub modes({"--count", "1"}, freshUri(), "LumoMode", lumoModeJson);
    ASSERT_EQ(modes.tap.wait(100s), 0) << modes.tap.err();
    modes.pub.interrupt(60s);
    EXPECT_EQ(modes.tap.out(), lumoModeJson + "\n");
}

TEST(KrinTools, TapPrintsAsTextWhatPubSendsWithSequenceAndTimestamp) {
    TapAndPub run({"--count", "2", "--format", "text"}, freshUri(), "LumoMode", lumoModeJson);
    ASSERT_EQ(run.tap.wait(100s), 0) << run.tap.err();
    EXPECT_EQ(run.pub.interrupt(60s), 0) << run.pub.err();
    const auto lines = linesOf(run.tap.out());
    ASSERT_EQ(lines.size(), 6u) << run.tap.out();
    for (int sample = 0; sample < 2; ++sample) {
        EXPECT_EQ(lines[sample * 3].rfind("--- LumoMode sampleSequence: ", 0), 0u) << lines[sample * 3];
        EXPECT_NE(lines[sample * 3].find(" sourceTimestamp: "), std::string::npos) << lines[sample * 3];
        EXPECT_EQ(lines[sample * 3 + 1], "controlMode: TEL_DRIVEN_WITH_HOKU_TT");
        EXPECT_EQ(lines[sample * 3 + 2], "activeCameraFs: IMG_PDS");
    }
}

TEST(KrinTools, TapHzCountsSamplesPerSecondFromTheHeaders) {
    TapAndPub run({"--hz", "--count", "30"}, freshUri(), "CentOpt", centOptJson);
    ASSERT_EQ(run.tap.wait(100s), 0) << run.tap.err();
    run.pub.interrupt(60s);
    const auto lines = linesOf(run.tap.out());
    ASSERT_FALSE(lines.empty());
    unsigned long total = 0;
    for (const auto& line : lines) {
        EXPECT_EQ(line.rfind("CentOpt  t=", 0), 0u) << line;
        const auto at = line.find("samples ");
        ASSERT_NE(at, std::string::npos) << line;
        total += std::stoul(line.substr(at + 8));
        EXPECT_NE(line.find(" Hz  gaps "), std::string::npos) << line;
        // One publisher sending in order: its sequence numbers have no gaps once the tap has joined.
        EXPECT_NE(line.find("gaps 0  missing 0"), std::string::npos) << line;
    }
    EXPECT_EQ(total, 30u);
}

TEST(KrinTools, PubPublishesTheCountItIsGivenAndSaysSo) {
    ToolProcess pub(LUMO_PUB_PATH, {"--count", "3", "--rate", "100", freshUri(), "Dummy", R"({"dummy_param":"TEL_M5"})"});
    ASSERT_EQ(pub.wait(100s), 0) << pub.err();
    EXPECT_NE(pub.err().find("krin-pub: published 3 samples of Dummy at krin.ps://127.0.0.1:"), std::string::npos)
        << pub.err();
}

TEST(KrinTools, PubRefusesAFieldTheSchemaLacksNamingIt) {
    ToolProcess pub(LUMO_PUB_PATH, {freshUri(), "CentOpt", R"({"options":3,"threshold":0.75,"numBrightestPixels":2,"treshold":1})"});
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_NE(pub.err().find("krin-pub: the value is not a CentOpt: "), std::string::npos) << pub.err();
    EXPECT_NE(pub.err().find("treshold: Cannot find field."), std::string::npos) << pub.err();
}

TEST(KrinTools, PubRefusesAValueOfTheWrongKindNamingTheField) {
    ToolProcess pub(LUMO_PUB_PATH, {freshUri(), "CentOpt", R"({"options":3,"threshold":"high","numBrightestPixels":2})"});
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_NE(pub.err().find("krin-pub: the value is not a CentOpt: "), std::string::npos) << pub.err();
    EXPECT_NE(pub.err().find("threshold"), std::string::npos) << pub.err();
}

TEST(KrinTools, PubRefusesAnEnumerationValueTheSchemaLacks) {
    ToolProcess pub(LUMO_PUB_PATH, {freshUri(), "Dummy", R"({"dummy_param":"TEL_M99"})"});
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_NE(pub.err().find("krin-pub: the value is not a Dummy: "), std::string::npos) << pub.err();
    EXPECT_NE(pub.err().find("dummy_param"), std::string::npos) << pub.err();
}

TEST(KrinTools, PubRefusesAValueThatLeavesOutARequiredField) {
    ToolProcess pub(LUMO_PUB_PATH, {freshUri(), "CentOpt", R"({"options":3,"threshold":0.75})"});
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_NE(pub.err().find("krin-pub: the value is not a CentOpt: missing field numBrightestPixels"),
              std::string::npos)
        << pub.err();
}

TEST(KrinTools, PubRefusesTextThatIsNotJson) {
    ToolProcess pub(LUMO_PUB_PATH, {freshUri(), "CentOpt", "options=3"});
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_NE(pub.err().find("krin-pub: the value is not a CentOpt: "), std::string::npos) << pub.err();
}

TEST(KrinTools, BothRefuseAUriOfAnotherSchemeWithTheRuntimesReason) {
    ToolProcess tap(LUMO_TAP_PATH, {"tcp://127.0.0.1:7400/x", "CentOpt"});
    ToolProcess pub(LUMO_PUB_PATH, {"tcp://127.0.0.1:7400/x", "CentOpt", centOptJson});
    EXPECT_EQ(tap.wait(60s), 2);
    EXPECT_EQ(pub.wait(60s), 2);
    const std::string reason = "Invalid Krin URI 'tcp://127.0.0.1:7400/x': scheme is not krin.ps";
    EXPECT_NE(tap.err().find("krin-tap: " + reason), std::string::npos) << tap.err();
    EXPECT_NE(pub.err().find("krin-pub: " + reason), std::string::npos) << pub.err();
}

TEST(KrinTools, BothRefuseAUriWithoutAPort) {
    ToolProcess tap(LUMO_TAP_PATH, {"krin.ps://127.0.0.1/x", "CentOpt"});
    ToolProcess pub(LUMO_PUB_PATH, {"krin.ps://127.0.0.1/x", "CentOpt", centOptJson});
    EXPECT_EQ(tap.wait(60s), 2);
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_NE(tap.err().find("Invalid Krin URI 'krin.ps://127.0.0.1/x': missing port"), std::string::npos)
        << tap.err();
    EXPECT_NE(pub.err().find("Invalid Krin URI 'krin.ps://127.0.0.1/x': missing port"), std::string::npos)
        << pub.err();
}

TEST(KrinTools, TapRefusesToConnectToTheWildcardHost) {
    ToolProcess tap(LUMO_TAP_PATH, {"krin.ps://*:7400/x", "CentOpt"});
    EXPECT_EQ(tap.wait(60s), 2);
    EXPECT_NE(tap.err().find("host * can only be bound, not connected to"), std::string::npos) << tap.err();
}

TEST(KrinTools, BothRefuseATopicThePackageLacks) {
    ToolProcess tap(LUMO_TAP_PATH, {"krin.ps://127.0.0.1:7400", "Telescope"});
    ToolProcess pub(LUMO_PUB_PATH, {"krin.ps://127.0.0.1:7400", "Telescope", "{}"});
    EXPECT_EQ(tap.wait(60s), 2);
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_NE(tap.err().find("krin-tap: unknown topic 'Telescope'; see --help for the topics"), std::string::npos)
        << tap.err();
    EXPECT_NE(pub.err().find("krin-pub: unknown topic 'Telescope'; see --help for the topics"), std::string::npos)
        << pub.err();
}

TEST(KrinTools, BothRefuseAPropertyWithoutEqualsSign) {
    ToolProcess tap(LUMO_TAP_PATH, {"-p", "krin.runtime.highWaterMark", freshUri(), "CentOpt"});
    ToolProcess pub(LUMO_PUB_PATH, {"-p", "krin.runtime.highWaterMark", freshUri(), "CentOpt", centOptJson});
    EXPECT_EQ(tap.wait(60s), 2);
    EXPECT_EQ(pub.wait(60s), 2);
    const std::string text = "-p: property 'krin.runtime.highWaterMark' is not of the form key=value";
    EXPECT_NE(tap.err().find("krin-tap: " + text), std::string::npos) << tap.err();
    EXPECT_NE(pub.err().find("krin-pub: " + text), std::string::npos) << pub.err();
}

TEST(KrinTools, BothRefuseAPropertyValueTheRuntimeOrPlugInWouldRefuse) {
    ToolProcess tap(LUMO_TAP_PATH, {"-p", "krin.ps.disableTypeHashCheck=maybe", freshUri(), "CentOpt"});
    ToolProcess pub(LUMO_PUB_PATH, {"-p", "krin.ps.slowJoinerDelayMs=soon", freshUri(), "CentOpt", centOptJson});
    EXPECT_EQ(tap.wait(60s), 2);
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_NE(tap.err().find(
                  "Property krin.ps.disableTypeHashCheck has value 'maybe', which is not a boolean (true or false)"),
              std::string::npos)
        << tap.err();
    EXPECT_NE(pub.err().find("Property krin.ps.slowJoinerDelayMs has value 'soon', which is not an integer"),
              std::string::npos)
        << pub.err();
}

TEST(KrinTools, BothRefuseMissingArgumentsAndUnknownOptions) {
    ToolProcess tap(LUMO_TAP_PATH, {"krin.ps://127.0.0.1:7400"});
    ToolProcess pub(LUMO_PUB_PATH, {"--colour", "krin.ps://127.0.0.1:7400", "CentOpt", centOptJson});
    EXPECT_EQ(tap.wait(60s), 2);
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_NE(tap.err().find("krin-tap: TOPIC is required"), std::string::npos) << tap.err();
    EXPECT_NE(pub.err().find("krin-pub: The following argument was not expected: --colour"), std::string::npos)
        << pub.err();
}

TEST(KrinTools, BothRefuseARateOrCountThatIsNotANumber) {
    ToolProcess tap(LUMO_TAP_PATH, {"--count", "-1", freshUri(), "CentOpt"});
    ToolProcess pub(LUMO_PUB_PATH, {"--rate", "fast", freshUri(), "CentOpt", centOptJson});
    EXPECT_EQ(tap.wait(60s), 2);
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_NE(tap.err().find("krin-tap: --count: '-1' is not a whole number in 0 .. 1000000000000 (samples)"),
              std::string::npos)
        << tap.err();
    EXPECT_NE(pub.err().find("krin-pub: --rate: 'fast' is not a number (samples per second)"), std::string::npos)
        << pub.err();
}

TEST(KrinTools, TapRefusesAnUnknownFormat) {
    ToolProcess tap(LUMO_TAP_PATH, {"--format", "yaml", freshUri(), "CentOpt"});
    EXPECT_EQ(tap.wait(60s), 2);
    EXPECT_NE(tap.err().find("krin-tap: --format: yaml not in {json,text}"), std::string::npos) << tap.err();
}

TEST(KrinTools, BothFailSetUpWithExitCodeThreeWhenThePlugInCannotBeLoaded) {
    ToolProcess tap(LUMO_TAP_PATH, {"--plugin", "/nonexistent/plugin.so", freshUri(), "CentOpt"});
    ToolProcess pub(LUMO_PUB_PATH, {"--plugin", "/nonexistent/plugin.so", freshUri(), "CentOpt", centOptJson});
    EXPECT_EQ(tap.wait(60s), 3);
    EXPECT_EQ(pub.wait(60s), 3);
    EXPECT_NE(tap.err().find("krin-tap: cannot load plug-in /nonexistent/plugin.so"), std::string::npos) << tap.err();
    EXPECT_NE(pub.err().find("krin-pub: cannot load plug-in /nonexistent/plugin.so"), std::string::npos) << pub.err();
}

TEST(KrinTools, HelpOfBothExplainsEveryOptionAndExitsZero) {
    ToolProcess tap(LUMO_TAP_PATH, {"--help"});
    ToolProcess pub(LUMO_PUB_PATH, {"--help"});
    ASSERT_EQ(tap.wait(60s), 0);
    ASSERT_EQ(pub.wait(60s), 0);
    for (const char* option : {"--format", "--hz", "--count", "--duration", "-p KEY=VALUE", "--plugin", "--help",
                               "Exit status", "FieldStablizationTopicIn"}) {
        EXPECT_NE(tap.out().find(option), std::string::npos) << option;
    }
    for (const char* option :
         {"--rate", "--count", "-p KEY=VALUE", "--plugin", "--help", "Exit status", "HokuTopicOut"}) {
        EXPECT_NE(pub.out().find(option), std::string::npos) << option;
    }
    for (const char* option : {"--curve-server-secret KEY", "--curve-server-public KEY", "--curve-public KEY",
                               "--curve-secret KEY", "--curve-authorized KEYS"}) {
        EXPECT_NE(tap.out().find(option), std::string::npos) << option;
        EXPECT_NE(pub.out().find(option), std::string::npos) << option;
    }
}

/// Options of a CURVE publisher that admits `admitted` only, and of a tap
/// that subscribes with `client`'s keys.
std::vector<std::string> curvePubOptions(const lumo::tools::CurveKeyPair& server,
                                         const lumo::tools::CurveKeyPair& admitted) {
    return {"--curve-server-secret", server.secretKey, "--curve-authorized", admitted.publicKey};
}
std::vector<std::string> curveTapOptions(const lumo::tools::CurveKeyPair& server,
                                         const lumo::tools::CurveKeyPair& client, std::vector<std::string> more) {
    more.insert(more.end(), {"--curve-server-public", server.publicKey, "--curve-public", client.publicKey,
                             "--curve-secret", client.secretKey});
    return more;
}

TEST(KrinTools, TapWithAnAdmittedKeyPrintsWhatACurvePubSends) {
    const auto server = lumo::tools::newCurveKeyPair();
    const auto client = lumo::tools::newCurveKeyPair();
    TapAndPub run(curveTapOptions(server, client, {"--count", "2"}), freshUri(), "CentOpt", centOptJson,
                  curvePubOptions(server, client));
    ASSERT_EQ(run.tap.wait(100s), 0) << run.tap.err();
    EXPECT_EQ(run.pub.interrupt(60s), 0) << run.pub.err();
    EXPECT_EQ(linesOf(run.tap.out()), (std::vector<std::string>{centOptJson, centOptJson})) << run.tap.out();
    EXPECT_EQ(run.pub.err().find("Refused"), std::string::npos) << run.pub.err();
}

TEST(KrinTools, TapWhoseKeyIsNotAdmittedGetsNothingAndPubLogsTheRefusedKey) {
    const auto server = lumo::tools::newCurveKeyPair();
    const auto admitted = lumo::tools::newCurveKeyPair();
    const auto stranger = lumo::tools::newCurveKeyPair();
    const std::string uri = freshUri();
    ToolProcess pub(LUMO_PUB_PATH, TapAndPub::with(curvePubOptions(server, admitted),
                                                   {"--rate", "20", "--count", "0", uri, "CentOpt", centOptJson}));
    // Refused at its handshake, the tap never receives; it gives up after --duration.
    ToolProcess tap(LUMO_TAP_PATH, curveTapOptions(server, stranger, {"--count", "1", "--duration", "3", uri, "CentOpt"}));
    EXPECT_EQ(tap.wait(100s), 1) << tap.err();
    EXPECT_EQ(tap.out(), "");
    EXPECT_NE(tap.err().find("krin-tap: 0 of 1 samples within 3 s"), std::string::npos) << tap.err();
    EXPECT_EQ(pub.interrupt(60s), 0) << pub.err();
    EXPECT_NE(pub.err().find("Refused subscriber with CURVE public key " + stranger.publicKey +
                             " from 127.0.0.1: the key is not in krin.runtime.curve.authorizedKeys"),
              std::string::npos)
        << pub.err();
}

TEST(KrinTools, BothRefuseACurveKeyThatIsNotOneWithTheRuntimesReasonAndWithoutTheValue) {
    const std::string notAKey = "my-secret-but-too-short";
    ToolProcess pub(LUMO_PUB_PATH, {"--curve-server-secret", notAKey, freshUri(), "CentOpt", centOptJson});
    ToolProcess tap(LUMO_TAP_PATH, {"--curve-server-public", notAKey, freshUri(), "CentOpt"});
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_EQ(tap.wait(60s), 2);
    EXPECT_NE(pub.err().find("krin-pub: Property krin.runtime.curve.serverSecretKey is not a CURVE key: expected 40 "
                             "characters of Z85 text"),
              std::string::npos)
        << pub.err();
    EXPECT_NE(tap.err().find("krin-tap: Property krin.runtime.curve.serverPublicKey is not a CURVE key: expected 40 "
                             "characters of Z85 text"),
              std::string::npos)
        << tap.err();
    EXPECT_EQ(pub.err().find(notAKey), std::string::npos) << pub.err();
    EXPECT_EQ(tap.err().find(notAKey), std::string::npos) << tap.err();
}

TEST(KrinTools, BothRefuseACurveOptionWithoutItsValue) {
    ToolProcess pub(LUMO_PUB_PATH, {freshUri(), "CentOpt", centOptJson, "--curve-authorized"});
    ToolProcess tap(LUMO_TAP_PATH, {freshUri(), "CentOpt", "--curve-secret"});
    EXPECT_EQ(pub.wait(60s), 2);
    EXPECT_EQ(tap.wait(60s), 2);
    EXPECT_NE(pub.err().find("krin-pub: --curve-authorized: 1 required KEYS missing"), std::string::npos) << pub.err();
    EXPECT_NE(tap.err().find("krin-tap: --curve-secret: 1 required KEY missing"), std::string::npos) << tap.err();
}

}  // namespace
