// The receive path of the most-recent-value subscriber, driven by an
// independent peer that sends hand-made messages into its socket.
#include <gtest/gtest.h>

#include <memory>
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
        storedBefore = subscriber->readMostRecent(std::chrono::milliseconds(0)).size();
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
            EXPECT_GE(stored->size(), storedBefore + 1);
            for (const auto& sample : *stored) {
                const auto value = sample->getRefPosX();
                if (value != marker && value < 0xFFFFFFF0u) {
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
    std::uint32_t nextMarker = 1;
};

TEST_F(MrvSubscriberReceiveTest, MessageOfOneFrameIsReportedAndLeavesTheStoreUnchanged) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    peer.send({topicFrame});
    const auto sizeBefore = storedBefore;
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(storedBefore, sizeBefore + 1);
    EXPECT_EQ(log.errors(), std::vector<std::string>{failurePrefix + "Message has no more frames"});
}

TEST_F(MrvSubscriberReceiveTest, MessageWithoutPayloadFrameIsReportedAndLeavesTheStoreUnchanged) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp())});
    const auto sizeBefore = storedBefore;
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(storedBefore, sizeBefore + 1);
    EXPECT_EQ(log.errors(), std::vector<std::string>{failurePrefix + "Message has no more frames"});
}

TEST_F(MrvSubscriberReceiveTest, TopicFrameMismatchIsSilentFrameByFrameExceptForTheTopicFrameTrace) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    const std::string foreignFrame = topicFrame + "X";
    const std::string header = headerFrame(refPosTypeHash, nowAsSourceTimestamp());
    const std::string payload = refPosPayload(77);
    peer.send({foreignFrame, header, payload});
    const auto sizeBefore = storedBefore;
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(storedBefore, sizeBefore + 1);
    // Each of the three frames was read as a topic frame, and only traced as such.
    const auto topicFrameTraces = log.traces();
    std::vector<std::string> seenTopicFrames;
    for (const auto& line : topicFrameTraces) {
        if (line.rfind("Subscriber Topic frame:", 0) == 0) {
            seenTopicFrames.push_back(line);
        }
    }
    EXPECT_EQ(seenTopicFrames, (std::vector<std::string>{"Subscriber Topic frame:" + hexStr(foreignFrame),
                                                         "Subscriber Topic frame:" + hexStr(header),
                                                         "Subscriber Topic frame:" + hexStr(payload),
                                                         "Subscriber Topic frame:" + hexStr(topicFrame)}));
    // No line at any level but TRACE: a mismatch is silent here.
    for (const auto& line : log.lines()) {
        EXPECT_EQ(line.level, log4cplus::TRACE_LOG_LEVEL) << line.message;
    }
    EXPECT_TRUE(log.errors().empty());
    EXPECT_TRUE(log.warnings().empty());
}

TEST_F(MrvSubscriberReceiveTest, HeaderThatDoesNotParseIsReportedAndItsPayloadDiscarded) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    peer.send({topicFrame, std::string("\xff\xff\xff\xff", 4), refPosPayload(77)});
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinHeader failed for subscriber socket:" + id});
    // The payload frame was discarded: it was never read as a topic frame.
    for (const auto& line : log.traces()) {
        EXPECT_NE(line, "Subscriber Topic frame:" + hexStr(refPosPayload(77)));
    }
}

TEST_F(MrvSubscriberReceiveTest, TypeHashMismatchIsReportedTheStoreUnchangedAndThePayloadDiscarded) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    peer.send({topicFrame, headerFrame(interfaceControlArgsTypeHash, nowAsSourceTimestamp()), refPosPayload(77)});
    const auto sizeBefore = storedBefore;
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(storedBefore, sizeBefore + 1);
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix +
                                       "Remote data entity type hash does not match (1741232487 != -1174216216)."});
}

TEST_F(MrvSubscriberReceiveTest, EmptyPayloadIsRefusedByTheParser) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), std::string()});
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinDataEntity failed for subscriber socket:" + id});
}

TEST_F(MrvSubscriberReceiveTest, TruncatedPayloadIsRefusedByTheParser) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    std::string payload = refPosPayload(77);
    payload.pop_back();
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), payload});
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinDataEntity failed for subscriber socket:" + id});
}

TEST_F(MrvSubscriberReceiveTest, PayloadOfAnotherTopicUnderThisTopicsTypeIsRefusedByTheParser) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), dummyPayload()});
    EXPECT_TRUE(storedBesidesNextGoodMessage().empty());
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{failurePrefix + "Parsing krinDataEntity failed for subscriber socket:" + id});
}

TEST_F(MrvSubscriberReceiveTest, FourthFrameIsLeftInTheSocketAndReadNextSilently) {
    lumo::test::CaptureLog log("vexa.dabo.krin.subscriber");
    const std::string surplus = "surplus";
    peer.send({topicFrame, headerFrame(refPosTypeHash, nowAsSourceTimestamp()), refPosPayload(55), surplus});
    EXPECT_EQ(storedBesidesNextGoodMessage(), std::vector<std::uint32_t>{55});
    EXPECT_TRUE(log.errors().empty());
    bool surplusReadAsTopicFrame = false;
    for (const auto& line : log.traces()) {
        surplusReadAsTopicFrame |= line == "Subscriber Topic frame:" + hexStr(surplus);
    }
    EXPECT_TRUE(surplusReadAsTopicFrame);
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

}  // namespace
