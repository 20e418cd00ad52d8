// The receiving half of trace context propagation: a header's traceContext
// reaches a traceable sample only while the subscriber's tracing is on.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ReceiveSync.h"
#include "WirePeer.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/ps/subscriber.h"
#include "dabo/krin/detail/ps/subscriber_impl.h"
#include "dabo/ps/Traceable.h"
#include "lumotypes/krin/LumotypesImpl.h"

namespace {

using lumo::test::headerFrame;
using lumo::test::nowAsSourceTimestamp;
using lumo::test::refPosPayload;
using lumo::test::refPosTypeHash;
using lumo::test::topicFrameOf;
using lumo::test::WirePeer;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::ps::KrinSubscriber;
using orlo::dabo::krin::detail::ps::QoSList;

/// A host's entity class that can hold a trace context: the package's
/// binding plus the capability. It records what it was given.
class TraceableRefPos : public lumotypes::krin::RefPosImpl, public orlo::dabo::ps::Traceable {
public:
    std::string getTraceContext() const override { return context.value_or(""); }
    void setTraceContext(const std::string& value) override { context = value; }
    std::optional<std::string> context;
};

/// The subscriber with tracing switched on by hand: nothing in the library
/// does it, so the tests reach the flag from a subclass.
template <typename ST>
class TracingSubscriber : public KrinSubscriber<lumotypes::RefPos, ST> {
public:
    TracingSubscriber(const std::string& uri, const std::shared_ptr<KrinDabo>& dabo, bool tracing)
        : KrinSubscriber<lumotypes::RefPos, ST>(uri, QoSList{}, orlo::dabo::Dabo::Properties{}, dabo) {
        this->tracingEnabled = tracing;
    }
};

template <typename ST>
class SubscriberTracingTest : public ::testing::Test {
protected:
    std::shared_ptr<TracingSubscriber<ST>> start(bool tracing) {
        auto subscriber = std::make_shared<TracingSubscriber<ST>>(peer.uri(topicPath), dabo, tracing);
        subscriber->init();
        const bool joined = lumo::test::awaitSubscription<lumotypes::RefPos>(
            peer, *subscriber, [this](std::uint32_t marker) { return lumo::test::goodRefPosMessage(topicPath, marker); },
            [](const lumotypes::RefPos& sample) { return sample.getRefPosX(); });
        EXPECT_TRUE(joined);
        return subscriber;
    }

    /// Sends one RefPos sample with `traceContext` (none if null) and returns it as received.
    std::shared_ptr<lumotypes::RefPos> sendAndReceive(orlo::dabo::ps::Subscriber<lumotypes::RefPos>& subscriber,
                                                      std::uint32_t marker, const std::string* traceContext) {
        peer.send({topicFrameOf(topicPath), headerFrame(refPosTypeHash, nowAsSourceTimestamp(), traceContext),
                   refPosPayload(marker)});
        std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<lumotypes::RefPos>>> events;
        if (subscriber.readDataEvents(orlo::dabo::ps::DataEventFilter<lumotypes::RefPos>(), events, 1,
                                      std::chrono::seconds(10)) != 1) {
            return nullptr;
        }
        return events.front()->getData();
    }

    const std::string topicPath = "/tracing/refPos";
    const std::string traceparent = "00-0af7651916cd43dd8448eb211c80319c-b7ad6b7169203331-01";
    WirePeer peer;
    std::shared_ptr<KrinDabo> dabo = KrinDabo::create({});
};

using TraceableTracingTest = SubscriberTracingTest<TraceableRefPos>;
using BindingTracingTest = SubscriberTracingTest<lumotypes::krin::RefPosImpl>;

TEST_F(TraceableTracingTest, ReceivedTraceContextIsIgnoredWhileTracingIsOff) {
    auto subscriber = start(false);
    auto sample = sendAndReceive(*subscriber, 1, &traceparent);
    ASSERT_NE(sample, nullptr);
    auto* traceable = dynamic_cast<TraceableRefPos*>(sample.get());
    ASSERT_NE(traceable, nullptr);
    EXPECT_FALSE(traceable->context.has_value());
    EXPECT_EQ(sample->getRefPosX(), 1u);
}

TEST_F(TraceableTracingTest, ReceivedTraceContextReachesATraceableSampleWhileTracingIsOn) {
    auto subscriber = start(true);
    auto sample = sendAndReceive(*subscriber, 2, &traceparent);
    ASSERT_NE(sample, nullptr);
    auto* traceable = dynamic_cast<TraceableRefPos*>(sample.get());
    ASSERT_NE(traceable, nullptr);
    EXPECT_EQ(traceable->context, traceparent);
}

TEST_F(TraceableTracingTest, EmptyTraceContextCountsAsPresent) {
    auto subscriber = start(true);
    const std::string empty;
    auto sample = sendAndReceive(*subscriber, 3, &empty);
    ASSERT_NE(sample, nullptr);
    auto* traceable = dynamic_cast<TraceableRefPos*>(sample.get());
    ASSERT_NE(traceable, nullptr);
    EXPECT_EQ(traceable->context, std::optional<std::string>(""));
}

TEST_F(TraceableTracingTest, HeaderWithoutTraceContextFlowsNormallyToATracingSubscriber) {
    auto subscriber = start(true);
    auto sample = sendAndReceive(*subscriber, 4, nullptr);
    ASSERT_NE(sample, nullptr);
    auto* traceable = dynamic_cast<TraceableRefPos*>(sample.get());
    ASSERT_NE(traceable, nullptr);
    EXPECT_FALSE(traceable->context.has_value());
    EXPECT_EQ(sample->getRefPosX(), 4u);
}

TEST_F(BindingTracingTest, SampleOfAPackageBindingIsDeliveredUnchangedWhileTracingIsOn) {
    auto subscriber = start(true);
    auto sample = sendAndReceive(*subscriber, 5, &traceparent);
    ASSERT_NE(sample, nullptr);
    EXPECT_EQ(dynamic_cast<orlo::dabo::ps::Traceable*>(sample.get()), nullptr);
    EXPECT_EQ(sample->getRefPosX(), 5u);
    EXPECT_EQ(sample->getRefPosY(), 2u);
    EXPECT_EQ(sample->getCentBoxWidth(), 3u);
    EXPECT_EQ(sample->getCentBoxHeight(), 4u);
}

TEST_F(BindingTracingTest, TracingIsOffAfterConstructionAndSamplesWithContextStillFlow) {
    auto subscriber = std::make_shared<KrinSubscriber<lumotypes::RefPos, lumotypes::krin::RefPosImpl>>(
        peer.uri(topicPath), QoSList{}, orlo::dabo::Dabo::Properties{}, dabo);
    subscriber->init();
    ASSERT_TRUE(lumo::test::awaitSubscription<lumotypes::RefPos>(
        peer, *subscriber, [this](std::uint32_t marker) { return lumo::test::goodRefPosMessage(topicPath, marker); },
        [](const lumotypes::RefPos& sample) { return sample.getRefPosX(); }));
    auto sample = sendAndReceive(*subscriber, 6, &traceparent);
    ASSERT_NE(sample, nullptr);
    EXPECT_EQ(sample->getRefPosX(), 6u);
}

}  // namespace
