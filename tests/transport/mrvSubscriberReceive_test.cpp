// The receive path of the most-recent-value subscriber, driven by an
// independent peer that sends hand-made messages into its socket.
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "CapturingAppender.h"
#include "Lumotypes.pb.h"
#include "ReceiveSync.h"
#include "WirePeer.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/ps/mrvSubscriber.h"
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
using orlo::dabo::krin::detail::ps::KrinMrvSubscriber;
using orlo::dabo::util::hexStr;

constexpr std::uint32_t interfaceControlArgsTypeHash = 0xBA02E1E8u;
constexpr std::uint32_t dummyTypeHash = 0xCEA0902Cu;
const std::string failurePrefix = "Failed to process message. msg:";

std::string dummyPayload() {
    generated::krin::lumotypes::Dummy message;
    message.set_dummy_param(generated::krin::lumotypes::TEL_M4);
    return message.SerializeAsString();
}

/// A RefPos most-recent-value subscriber of the real runtime whose URI points at the peer.
class MrvSubscriberReceiveTest : public ::testing::Test {
protected:
    const std::string topicPath = "/receive/mrv/refPos";
    const std::string topicFrame = topicFrameOf(topicPath);
    const std::string id = getSubscriberId(topicFrame);

    void SetUp() override { start({}); }

    void start(const orlo::dabo::Dabo::Properties& properties) {
        subscriber = std::make_shared<KrinMrvSubscriber<lumotypes::RefPos, lumotypes::krin::RefPosImpl>>(
            peer.uri(topicPath), orlo::dabo::krin::detail::ps::QoSList{}, properties, dabo);
        subscriber->init();
        ASSERT_TRUE(lumo::test::awaitMrvSubscription<lumotypes::RefPos>(
            peer, *subscriber, [this](std::uint32_t marker) { return good(marker); },
            [](const lumotypes::RefPos& sample) { return sample.getRefPosX(); }));
        for (const auto& sample : subscriber->readMostRecent(std::chrono::milliseconds(0))) {
            storedValues.push_back(sample->getRefPosX());
        }
        storedBefore = storedValues.size();
    }

    std::vector<std::string> good(std::uint32_t marker) const {
        return {topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), refPosPayload(marker)};
    }

    /// Sends a good message with a fresh marker, waits until it is stored,
    /// and returns the refPosX of what the store gained besides it.
    std::vector<std::uint32_t> storedBesidesNextGoodMessage() {
        const std::uint32_t marker = nextMarker++;
        peer.send(good(marker));
        auto stored = lumo::test::readStoreUntil<lumotypes::RefPos>(
            *subscriber, [marker](const lumotypes::RefPos& sample) { return sample.getRefPosX() == marker; });
        EXPECT_NE(stored, nullptr) << "the good message after the bad one never arrived";
        std::vector<std::uint32_t> gained;
        if (stored) {
            std::multiset<std::uint32_t> previous(storedValues.begin(), storedValues.end());
            previous.insert(marker);
            storedValues.clear();
            for (const auto& sample : *stored) {
                const auto value = sample->getRefPosX();
                storedValues.push_back(value);
                const auto known = previous.find(value);
                if (known != previous.end()) {
                    previous.erase(known);
                } else {
                    gained.push_back(value);
                }
            }
            storedBefore = stored->size();
        }
        return gained;
    }

    WirePeer peer;
    std::shared_ptr<KrinDabo> dabo = KrinDabo::create({});
    std::shared_ptr<KrinMrvSubscriber<lumotypes::RefPos, lumotypes::krin::RefPosImpl>> subscriber;
    std::size_t storedBefore = 0;
    std::vector<std::uint32_t> storedValues;
    std::uint32_t nextMarker = 1;
};

TEST_F(MrvSubscriberReceiveTest, MessageOfOneFrameIsReportedAndLeavesTheStoreUnchanged) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame});
    const auto sizeBefore = storedBefore;
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(storedBefore, sizeBefore + 1);
    EXPECT_EQ(log.errors(), std::vector<std::string>{failurePrefix + "Message has no more frames"});
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(MrvSubscriberReceiveTest, MessageWithoutPayloadFrameIsReportedAndLeavesTheStoreUnchanged) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp())});
    const auto sizeBefore = storedBefore;
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(storedBefore, sizeBefore + 1);
    EXPECT_EQ(log.errors(), std::vector<std::string>{failurePrefix + "Message has no more frames"});
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(MrvSubscriberReceiveTest, TopicFrameMismatchIsSilentAndLeavesTheRestOfTheMessageInTheSocket) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    const std::string foreignFrame = topicFrame + "X";
    const std::string header = headerFrame(refPosTypeHash, nowAsSourceTimestamp());
    const std::string payload = refPosPayload(77);
    peer.send({foreignFrame, header, payload});
    const auto sizeBefore = storedBefore;
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(storedBefore, sizeBefore + 1);
    // No line at any level but TRACE: a mismatch is silent here.
    for (const auto& line : log.lines()) {
        EXPECT_EQ(line.level, log4cplus::TRACE_LOG_LEVEL) << line.message;
    }
    std::vector<std::string> topicFrameTraces;
    for (const auto& line : log.traces()) {
        if (line.rfind("Subscriber Topic frame:", 0) == 0) {
            topicFrameTraces.push_back(line);
        }
    }
    // Header and payload stayed in the socket and were read, silently, as
    // topic frames by the next events before the good message came.
    EXPECT_EQ(topicFrameTraces, (std::vector<std::string>{"Subscriber Topic frame:" + hexStr(foreignFrame),
                                                          "Subscriber Topic frame:" + hexStr(header),
                                                          "Subscriber Topic frame:" + hexStr(payload),
                                                          "Subscriber Topic frame:" + hexStr(topicFrame)}));
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(MrvSubscriberReceiveTest, HeaderThatDoesNotParseIsReportedAndItsPayloadDiscarded) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame, std::string("\xff\xff\xff\xff", 4), refPosPayload(77)});
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinHeader failed for subscriber socket:" + id});
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(MrvSubscriberReceiveTest, TypeHashMismatchIsReportedTheStoreUnchangedAndThePayloadDiscarded) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame, headerFrame(interfaceControlArgsTypeHash, nowAsSourceTimestamp()), refPosPayload(77)});
    const auto sizeBefore = storedBefore;
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(storedBefore, sizeBefore + 1);
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix +
                                       "Remote data entity type hash does not match (1741232487 != -1174216216)."});
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(MrvSubscriberReceiveTest, EmptyPayloadIsRefusedByTheParser) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), std::string()});
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinDataEntity failed for subscriber socket:" + id});
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(MrvSubscriberReceiveTest, TruncatedPayloadIsRefusedByTheParser) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    std::string payload = refPosPayload(77);
    payload.pop_back();
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), payload});
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinDataEntity failed for subscriber socket:" + id});
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(MrvSubscriberReceiveTest, PayloadOfAnotherTopicUnderThisTopicsTypeIsRefusedByTheParser) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), dummyPayload()});
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinDataEntity failed for subscriber socket:" + id});
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(MrvSubscriberReceiveTest, FourFrameMessageIsStoredAndItsFourthFrameLeftInTheSocket) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    lumo::test::CaptureLog runtimeLog("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), refPosPayload(55), "surplus"});
    EXPECT_EQ(storedBesidesNextGoodMessage(), std::vector<std::uint32_t>{55});
    // The surplus frame was read next as a topic frame: silently, in this subscriber.
    EXPECT_TRUE(log.errors().empty());
    EXPECT_TRUE(log.warnings().empty());
    EXPECT_TRUE(runtimeLog.warnings().empty());
}

TEST_F(MrvSubscriberReceiveTest, KeylessTopicKeepsOneElementPerReceivedSample) {
    const auto sizeBefore = storedBefore;
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    }
    EXPECT_EQ(storedBefore, sizeBefore + 3);
}

class MrvSubscriberReceiveWithoutTypeCheckTest : public MrvSubscriberReceiveTest {
protected:
    void SetUp() override { start({{"krin.ps.disableTypeHashCheck", "true"}}); }
};

TEST_F(MrvSubscriberReceiveWithoutTypeCheckTest, ForeignTypeHashWithOwnPayloadIsStored) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    peer.send({topicFrame, headerFrame(interfaceControlArgsTypeHash, nowAsSourceTimestamp()), refPosPayload(66)});
    EXPECT_EQ(storedBesidesNextGoodMessage(), std::vector<std::uint32_t>{66});
    EXPECT_TRUE(log.errors().empty());
}

TEST_F(MrvSubscriberReceiveWithoutTypeCheckTest, ForeignTypeHashWithPayloadThatDoesNotParseIsRefusedByTheParser) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    peer.send({topicFrame, headerFrame(dummyTypeHash, nowAsSourceTimestamp()), dummyPayload()});
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinDataEntity failed for subscriber socket:" + id});
}

/// The test in the runtime's place, one readable event at a time, so that
/// what the subscriber leaves in the socket is read by the next event.
class MrvSubscriberReceiveFrameByFrameTest : public ::testing::Test {
protected:
    const std::string topicPath = "/receive/mrv/frameByFrame";
    const std::string topicFrame = topicFrameOf(topicPath);

    void SetUp() override {
        ASSERT_TRUE(socket.joined);
        subscriber = std::make_shared<KrinMrvSubscriber<lumotypes::RefPos, lumotypes::krin::RefPosImpl>>(
            "krin.ps://127.0.0.1:29996" + topicPath, orlo::dabo::krin::detail::ps::QoSList{},
            orlo::dabo::Dabo::Properties{}, dabo);
        subscriber->init();
        subscriber->events(socket.socket, orlo::dabo::krin::detail::REGISTERED);
    }

    void readable() {
        ASSERT_TRUE(socket.awaitReadable());
        subscriber->events(socket.socket, orlo::dabo::krin::detail::POLLER_READABLE);
    }

    WirePeer peer;
    lumo::test::PeerSocket socket{peer};
    std::shared_ptr<KrinDabo> dabo = KrinDabo::create({});
    std::shared_ptr<KrinMrvSubscriber<lumotypes::RefPos, lumotypes::krin::RefPosImpl>> subscriber;
};

TEST_F(MrvSubscriberReceiveFrameByFrameTest, TopicFrameMismatchLeavesTheRestToBeReadSilentlyAsTopicFrames) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    const std::string foreignFrame = topicFrame + "X";
    const std::string header = headerFrame(refPosTypeHash, nowAsSourceTimestamp());
    const std::string payload = refPosPayload(77);
    peer.send({foreignFrame, header, payload});
    readable();
    readable();
    readable();
    EXPECT_TRUE(socket.drain().empty());
    std::vector<std::string> topicFrameTraces;
    for (const auto& line : log.lines()) {
        EXPECT_EQ(line.level, log4cplus::TRACE_LOG_LEVEL) << line.message;
        if (line.message.rfind("Subscriber Topic frame:", 0) == 0) {
            topicFrameTraces.push_back(line.message);
        }
    }
    EXPECT_EQ(topicFrameTraces, (std::vector<std::string>{"Subscriber Topic frame:" + hexStr(foreignFrame),
                                                          "Subscriber Topic frame:" + hexStr(header),
                                                          "Subscriber Topic frame:" + hexStr(payload)}));
    EXPECT_TRUE(subscriber->readMostRecent(std::chrono::milliseconds(0)).empty());
    peer.send(lumo::test::goodRefPosMessage(topicPath, 8));
    readable();
    const auto stored = subscriber->readMostRecent(std::chrono::milliseconds(0));
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored.front()->getRefPosX(), 8u);
}

TEST_F(MrvSubscriberReceiveFrameByFrameTest, HashMismatchLeavesTheStoreUnchangedAndDiscardsThePayload) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    peer.send({topicFrame, headerFrame(interfaceControlArgsTypeHash, nowAsSourceTimestamp()), refPosPayload(77)});
    readable();
    EXPECT_EQ(log.errors().size(), 1u);
    EXPECT_TRUE(socket.drain().empty());
    EXPECT_TRUE(subscriber->readMostRecent(std::chrono::milliseconds(0)).empty());
}

TEST_F(MrvSubscriberReceiveFrameByFrameTest, FourthFrameIsLeftInTheSocketAfterTheSampleIsStored) {
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), refPosPayload(55), "surplus"});
    readable();
    EXPECT_EQ(subscriber->readMostRecent(std::chrono::milliseconds(0)).size(), 1u);
    EXPECT_EQ(socket.drain(), std::vector<std::string>{"surplus"});
}

}  // namespace
