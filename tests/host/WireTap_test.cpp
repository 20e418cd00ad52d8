// The raw subscription of the host component, against the plug-in's own
// publisher: what it hands out is what the wire carried, header included.

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "FreePort.h"
#include "dabo/DaboException.h"
#include "lumotypes/host/Payload.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"
#include "lumotypes/host/Uri.h"
#include "lumotypes/host/WireTap.h"

namespace {

using namespace std::chrono_literals;
using lumotypes::host::TopicTraits;

const lumotypes::host::Plugin& plugin() {
    static const lumotypes::host::Plugin loaded;
    return loaded;
}

}  // namespace

TEST(WireTap, ReceivesThePublishersPayloadWithItsTypeHashAndSequence) {
    auto runtime = lumotypes::host::createRuntime({});
    const std::string uri = "krin.ps://127.0.0.1:" + std::to_string(lumo::test::freePort()) + "/host/tap/RefPos";
    auto publisher = plugin().publisher<lumotypes::RefPos>(uri, {}, runtime);
    auto tap = lumotypes::host::WireTap::open(runtime, uri);
    auto partial = publisher->createDataEntity();
    partial->setRefPosX(321);
    const auto sample = partial->clone();  // a clone sets every field
    const std::string bytes = lumotypes::host::toBytes(*sample);

    // The subscription joins a moment after it registers: publish until a sample comes.
    lumotypes::host::WireSample received;
    bool got = false;
    for (int attempt = 0; attempt < 200 && !got; ++attempt) {
        publisher->publish(*sample, 100ms);
        got = tap->next(received, 50ms);
    }
    ASSERT_TRUE(got) << "nothing came off the wire";
    EXPECT_EQ(received.dataEntityTypeHash, TopicTraits<lumotypes::RefPos>::typeHash);
    EXPECT_EQ(received.payload, bytes);
    publisher->publish(*sample, 100ms);
    lumotypes::host::WireSample next;
    do {
        ASSERT_TRUE(tap->next(next, 5000ms)) << "the next sample did not come";
    } while (next.sampleSequence == received.sampleSequence);
    EXPECT_GT(next.sampleSequence, received.sampleSequence);
    EXPECT_EQ(tap->malformed(), 0u);
    tap->close();
    publisher->close();
}

TEST(WireTap, UriTheRuntimeRefusesIsRefusedWithTheRuntimesReason) {
    auto runtime = lumotypes::host::createRuntime({});
    try {
        lumotypes::host::WireTap::open(runtime, "krin.ps://127.0.0.1:7400/");
        FAIL() << "a URI without a topic was accepted";
    } catch (const orlo::dabo::DaboException& refusal) {
        EXPECT_NE(std::string(refusal.what()).find("empty topic path"), std::string::npos) << refusal.what();
    }
}

TEST(TopicUri, IsTakenApartAsTheRuntimeDoes) {
    const auto address = lumotypes::host::parseTopicUri("krin.ps://*:7400/lumo/RefPos", true, true);
    EXPECT_EQ(address.host, "*");
    EXPECT_EQ(address.port, 7400u);
    EXPECT_EQ(address.topic, "/lumo/RefPos");
    EXPECT_EQ(address.endpoint, "tcp://*:7400");
    EXPECT_THROW(lumotypes::host::parseTopicUri("krin.ps://*:7400/lumo/RefPos", false, true), orlo::dabo::DaboException);
}
