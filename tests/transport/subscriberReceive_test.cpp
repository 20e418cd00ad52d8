// The receive path of the queued subscriber, driven by an independent peer
// that sends hand-made messages into the subscriber's socket: what is logged,
// what is left in or dropped from the socket, and that the next good message
// still arrives.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "CapturingAppender.h"
#include "Lumotypes.pb.h"
#include "ReceiveSync.h"
#include "WirePeer.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/ps/subscriber.h"
#include "dabo/util/DaboUtil.h"
#include "lumotypes/krin/LumotypesImpl.h"

namespace {

using lumo::test::headerFrame;
using lumo::test::nowAsSourceTimestamp;
using lumo::test::refPosPayload;
using lumo::test::refPosTypeHash;
using lumo::test::topicFrameOf;
using lumo::test::WirePeer;
using orlo::dabo::krin::detail::getSubscriberId;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::ps::KrinSubscriber;
using orlo::dabo::util::hexStr;

constexpr std::uint32_t interfaceControlArgsTypeHash = 0xBA02E1E8u;
constexpr std::uint32_t dummyTypeHash = 0xCEA0902Cu;
const std::string failurePrefix = "Failed to process message. msg:";

std::string dummyPayload(lumotypes::TelescopeSystem value) {
    generated::krin::lumotypes::Dummy message;
    message.set_dummy_param(static_cast<generated::krin::lumotypes::TelescopeSystem>(value));
    return message.SerializeAsString();
}

std::string mismatchLine(const std::string& expected, const std::string& received) {
    return "Topic Id mismatch on received frame, expected: " + hexStr(expected) + " received: " + hexStr(received);
}

/// A RefPos subscriber of the real runtime whose URI points at the peer.
class SubscriberReceiveTest : public ::testing::Test {
protected:
    const std::string topicPath = "/receive/queued/refPos";
    const std::string topicFrame = topicFrameOf(topicPath);
    const std::string id = getSubscriberId(topicFrame);

    void SetUp() override { start({}); }

    void start(const orlo::dabo::Dabo::Properties& properties) {
        subscriber = std::make_shared<KrinSubscriber<lumotypes::RefPos, lumotypes::krin::RefPosImpl>>(
            peer.uri(topicPath), orlo::dabo::krin::detail::ps::QoSList{}, properties, dabo);
        subscriber->init();
        ASSERT_TRUE(lumo::test::awaitSubscription<lumotypes::RefPos>(
            peer, *subscriber, [this](std::uint32_t marker) { return good(marker); },
            [](const lumotypes::RefPos& sample) { return sample.getRefPosX(); }));
    }

    std::vector<std::string> good(std::uint32_t marker) const {
        return {topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), refPosPayload(marker)};
    }

    /// Sends a good message with a fresh marker and returns the refPosX of
    /// every sample that arrived before it.
    std::vector<std::uint32_t> receivedBeforeNextGoodMessage() {
        const std::uint32_t marker = nextMarker++;
        peer.send(good(marker));
        auto before = lumo::test::takeUntil<lumotypes::RefPos>(
            *subscriber, [marker](const lumotypes::RefPos& sample) { return sample.getRefPosX() == marker; });
        EXPECT_NE(before, nullptr) << "the good message after the bad one never arrived";
        std::vector<std::uint32_t> markers;
        if (before) {
            for (const auto& sample : *before) {
                markers.push_back(sample->getRefPosX());
            }
        }
        return markers;
    }

    WirePeer peer;
    std::shared_ptr<KrinDabo> dabo = KrinDabo::create({});
    std::shared_ptr<KrinSubscriber<lumotypes::RefPos, lumotypes::krin::RefPosImpl>> subscriber;
    std::uint32_t nextMarker = 1;
};

TEST_F(SubscriberReceiveTest, MessageOfOneFrameIsReportedAndLeavesTheEngineUnchanged) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame});
    EXPECT_TRUE(receivedBeforeNextGoodMessage().empty());
    EXPECT_EQ(log.errors(), std::vector<std::string>{failurePrefix + "Message has no more frames"});
    EXPECT_TRUE(subscriber->read(0).empty());
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(SubscriberReceiveTest, MessageWithoutPayloadFrameIsReportedAndLeavesTheEngineUnchanged) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp())});
    EXPECT_TRUE(receivedBeforeNextGoodMessage().empty());
    EXPECT_EQ(log.errors(), std::vector<std::string>{failurePrefix + "Message has no more frames"});
    EXPECT_TRUE(subscriber->read(0).empty());
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(SubscriberReceiveTest, TopicFrameMismatchIsReportedAndLeavesTheRestOfTheMessageInTheSocket) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    // Passes the socket's prefix filter, but is not this topic's frame.
    const std::string foreignFrame = topicFrame + "X";
    const std::string header = headerFrame(refPosTypeHash, nowAsSourceTimestamp());
    const std::string payload = refPosPayload(77);
    peer.send({foreignFrame, header, payload});
    EXPECT_TRUE(receivedBeforeNextGoodMessage().empty());
    // Header and payload stayed in the socket: the runtime's next events hand
    // them over one by one, and each is read as a topic frame that mismatches.
    EXPECT_EQ(log.errors(), (std::vector<std::string>{mismatchLine(topicFrame, foreignFrame),
                                                      mismatchLine(topicFrame, header),
                                                      mismatchLine(topicFrame, payload)}));
    EXPECT_TRUE(runtimeLog.warnings().empty());
    EXPECT_TRUE(subscriber->read(0).empty());
}

TEST_F(SubscriberReceiveTest, SameBadMessageSentAgainAndAgainIsReportedOnceWithinTheInterval) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    for (int n = 0; n < 200; ++n) {
        peer.send({topicFrame, std::string("\xff\xff\xff\xff", 4), refPosPayload(77)});
    }
    EXPECT_TRUE(receivedBeforeNextGoodMessage().empty());
    // The rest are counted, and their count is told with the next line about
    // them once the interval (10 s) has passed.
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinHeader failed for KrinSubscriber socket:" + id});
    EXPECT_TRUE(subscriber->read(0).empty());
}

TEST_F(SubscriberReceiveTest, HeaderThatDoesNotParseIsReportedAndItsPayloadDiscarded) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame, std::string("\xff\xff\xff\xff", 4), refPosPayload(77)});
    EXPECT_TRUE(receivedBeforeNextGoodMessage().empty());
    // One line only: the payload frame was discarded, not read as a topic frame.
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinHeader failed for KrinSubscriber socket:" + id});
    EXPECT_TRUE(subscriber->read(0).empty());
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(SubscriberReceiveTest, TypeHashMismatchIsReportedWithBothHashesSignedAndThePayloadDiscarded) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame, headerFrame(interfaceControlArgsTypeHash, nowAsSourceTimestamp()), refPosPayload(77)});
    EXPECT_TRUE(receivedBeforeNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix +
                                       "Remote data entity type hash does not match (1741232487 != -1174216216)."});
    EXPECT_TRUE(subscriber->read(0).empty());
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(SubscriberReceiveTest, EmptyPayloadIsRefusedByTheParser) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), std::string()});
    EXPECT_TRUE(receivedBeforeNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinDataEntity failed for KrinSubscriber socket:" + id});
    EXPECT_TRUE(subscriber->read(0).empty());
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(SubscriberReceiveTest, TruncatedPayloadIsRefusedByTheParser) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    std::string payload = refPosPayload(77);
    payload.pop_back();
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), payload});
    EXPECT_TRUE(receivedBeforeNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinDataEntity failed for KrinSubscriber socket:" + id});
    EXPECT_TRUE(subscriber->read(0).empty());
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(SubscriberReceiveTest, PayloadOfAnotherTopicUnderThisTopicsTypeIsRefusedByTheParser) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), dummyPayload(lumotypes::TEL_M4)});
    EXPECT_TRUE(receivedBeforeNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinDataEntity failed for KrinSubscriber socket:" + id});
    EXPECT_TRUE(subscriber->read(0).empty());
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(SubscriberReceiveTest, FourFrameMessageIsAcceptedAndItsFourthFrameLeftInTheSocket) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), refPosPayload(55), "surplus"});
    EXPECT_EQ(receivedBeforeNextGoodMessage(), std::vector<std::uint32_t>{55});
    // The surplus frame stayed in the socket and was read next as a topic frame.
    EXPECT_EQ(log.errors(), std::vector<std::string>{mismatchLine(topicFrame, "surplus")});
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(SubscriberReceiveTest, GoodMessageCarriesItsSourceTimestampIntoTheDataEvent) {
    peer.send({topicFrame, headerFrame(refPosTypeHash, 1234567890.25), refPosPayload(9)});
    std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<lumotypes::RefPos>>> events;
    ASSERT_EQ(subscriber->readDataEvents(orlo::dabo::ps::DataEventFilter<lumotypes::RefPos>(), events, 1,
                                         std::chrono::seconds(10)),
              1u);
    EXPECT_EQ(events.front()->getSourceTimestamp(), 1234567890.25);
    EXPECT_EQ(events.front()->getData()->getRefPosX(), 9u);
    EXPECT_EQ(events.front()->getData()->getCentBoxHeight(), 4u);
}

/// With the check switched off, a payload of another type is left to the parser.
class SubscriberReceiveWithoutTypeCheckTest : public SubscriberReceiveTest {
protected:
    void SetUp() override { start({{"krin.ps.disableTypeHashCheck", "true"}}); }
};

TEST_F(SubscriberReceiveWithoutTypeCheckTest, ForeignTypeHashWithPayloadThatDoesNotParseIsRefusedByTheParser) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    peer.send({topicFrame, headerFrame(dummyTypeHash, nowAsSourceTimestamp()), dummyPayload(lumotypes::TEL_M4)});
    EXPECT_TRUE(receivedBeforeNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinDataEntity failed for KrinSubscriber socket:" + id});
}

TEST_F(SubscriberReceiveWithoutTypeCheckTest, ForeignTypeHashWithOwnPayloadEntersTheEngine) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    peer.send({topicFrame, headerFrame(interfaceControlArgsTypeHash, nowAsSourceTimestamp()), refPosPayload(66)});
    EXPECT_EQ(receivedBeforeNextGoodMessage(), std::vector<std::uint32_t>{66});
    EXPECT_TRUE(log.errors().empty());
}

TEST(SubscriberReceiveForeignTypeTest, PayloadOfAnotherTypeThatParsesEntersTheEngineWhenTheCheckIsOff) {
    // An InterfaceControlArgs payload reads as a Dummy: both open with a
    // TelescopeSystem field, and the second field is unknown to Dummy.
    const std::string topicPath = "/receive/queued/dummy";
    const std::string topicFrame = topicFrameOf(topicPath);
    WirePeer peer;
    auto dabo = KrinDabo::create({});
    auto subscriber = std::make_shared<KrinSubscriber<lumotypes::Dummy, lumotypes::krin::DummyImpl>>(
        peer.uri(topicPath), orlo::dabo::krin::detail::ps::QoSList{},
        orlo::dabo::Dabo::Properties{{"krin.ps.disableTypeHashCheck", "TRUE"}}, dabo);
    subscriber->init();
    auto dummyMessage = [&](std::uint32_t marker) {
        // Probes and barriers: a Dummy of TEL_NONE or TEL_INS.
        const auto value = marker == 0xFFFFFFF0u ? lumotypes::TEL_NONE : lumotypes::TEL_INS;
        return std::vector<std::string>{topicFrame, headerFrame(dummyTypeHash, nowAsSourceTimestamp()),
                                        dummyPayload(value)};
    };
    ASSERT_TRUE(lumo::test::awaitSubscription<lumotypes::Dummy>(
        peer, *subscriber, dummyMessage,
        [](const lumotypes::Dummy& sample) { return sample.getDummy_param() == lumotypes::TEL_NONE ? 0xFFFFFFF0u
                                                                                                     : 0xFFFFFFF1u; }));

    generated::krin::lumotypes::InterfaceControlArgs foreign;
    foreign.set_system(generated::krin::lumotypes::TEL_GP2_WFS);
    foreign.set_direction(generated::krin::lumotypes::OUTBOUND);
    peer.send({topicFrame, headerFrame(interfaceControlArgsTypeHash, nowAsSourceTimestamp()),
               foreign.SerializeAsString()});
    auto before = lumo::test::takeUntil<lumotypes::Dummy>(
        *subscriber, [](const lumotypes::Dummy& sample) { return sample.getDummy_param() == lumotypes::TEL_GP2_WFS; });
    ASSERT_NE(before, nullptr) << "the foreign sample never entered the engine";
    EXPECT_TRUE(before->empty());
    EXPECT_TRUE(subscriber->read(0).empty());
}

/// The subscriber with the test in the runtime's place: a socket of the
/// test's own, and one readable event at a time, so that what the subscriber
/// leaves in the socket is read by the next event, frame by frame.
class SubscriberReceiveFrameByFrameTest : public ::testing::Test {
protected:
    const std::string topicPath = "/receive/queued/frameByFrame";
    const std::string topicFrame = topicFrameOf(topicPath);

    void SetUp() override {
        ASSERT_TRUE(socket.joined);
        // Registered with the real runtime at a quiet endpoint, then handed the test's socket.
        subscriber = std::make_shared<KrinSubscriber<lumotypes::RefPos, lumotypes::krin::RefPosImpl>>(
            "krin.ps://127.0.0.1:29997" + topicPath, orlo::dabo::krin::detail::ps::QoSList{},
            orlo::dabo::Dabo::Properties{}, dabo);
        subscriber->init();
        subscriber->events(socket.socket, orlo::dabo::krin::detail::REGISTERED);
    }

    /// One readable event, as the runtime would raise it.
    void readable() {
        ASSERT_TRUE(socket.awaitReadable());
        subscriber->events(socket.socket, orlo::dabo::krin::detail::POLLER_READABLE);
    }

    WirePeer peer;
    lumo::test::PeerSocket socket{peer};
    std::shared_ptr<KrinDabo> dabo = KrinDabo::create({});
    std::shared_ptr<KrinSubscriber<lumotypes::RefPos, lumotypes::krin::RefPosImpl>> subscriber;
};

TEST_F(SubscriberReceiveFrameByFrameTest, TopicFrameMismatchLeavesTheRestToBeReadAsTopicFramesUntilUsedUp) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    const std::string foreignFrame = topicFrame + "X";
    const std::string header = headerFrame(refPosTypeHash, nowAsSourceTimestamp());
    const std::string payload = refPosPayload(77);
    peer.send({foreignFrame, header, payload});
    readable();
    EXPECT_EQ(log.errors(), std::vector<std::string>{mismatchLine(topicFrame, foreignFrame)});
    readable();
    readable();
    EXPECT_EQ(log.errors(), (std::vector<std::string>{mismatchLine(topicFrame, foreignFrame),
                                                      mismatchLine(topicFrame, header),
                                                      mismatchLine(topicFrame, payload)}));
    // In step again: the next message is received.
    peer.send(lumo::test::goodRefPosMessage(topicPath, 8));
    readable();
    const auto samples = subscriber->read(0);
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(samples.front()->getRefPosX(), 8u);
}

TEST_F(SubscriberReceiveFrameByFrameTest, FourthFrameIsReadByTheNextEventAsAMismatchedTopicFrame) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), refPosPayload(55), "surplus"});
    readable();
    EXPECT_TRUE(log.errors().empty());
    EXPECT_EQ(socket.drain(), std::vector<std::string>{"surplus"});
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), refPosPayload(56), "surplus"});
    readable();
    readable();
    EXPECT_EQ(log.errors(), std::vector<std::string>{mismatchLine(topicFrame, "surplus")});
    const auto samples = subscriber->read(0);
    ASSERT_EQ(samples.size(), 2u);
    EXPECT_EQ(samples[0]->getRefPosX(), 55u);
    EXPECT_EQ(samples[1]->getRefPosX(), 56u);
}

TEST_F(SubscriberReceiveFrameByFrameTest, FailedMessageIsDiscardedSoNothingIsLeftInTheSocket) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    peer.send({topicFrame, std::string("\xff\xff\xff\xff", 4), refPosPayload(77)});
    readable();
    EXPECT_EQ(log.errors().size(), 1u);
    EXPECT_TRUE(socket.drain().empty());
    EXPECT_TRUE(subscriber->read(0).empty());
}

}  // namespace
