// The publish path as the publishing side sees it: its checks, its texts,
// the sequence counter, and what it does when ZeroMQ refuses a frame.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include "CapturingAppender.h"
#include "dabo/DaboException.h"
#include "dabo/krin/detail/ps/createDataEntity.h"
#include "dabo/util/DaboUtil.h"
#include "lumotypes/Lumotypes.h"
#include "lumotypes/krin/LumotypesImpl.h"
#include "publisherTestSupport.h"

namespace {

using namespace std::chrono_literals;
using lumo::test::CaptureLog;
using lumo::test::DealerExchange;
using lumo::test::freshTopicUri;
using lumo::test::InspectablePublisher;
using lumo::test::recordedRuntime;
using lumo::test::RuntimeCallLog;
using lumo::test::TerminatedDealer;
using lumo::test::UnconnectedDealer;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::ps::createDataEntityInternal;

using RefPosPublisher = InspectablePublisher<lumotypes::RefPos, lumotypes::krin::RefPosImpl>;

const char* const topicFrameTrace = "Publisher's dealer socket sending topicIdFrame:";
const char* const headerFrameTrace = "Publisher's dealer socket sending krinHeaderFrameMsg:";
const char* const payloadFrameTrace = "Publisher's dealer socket sending krinDataEntityMsg:";
// What ZeroMQ reports for a socket whose context is gone.
const std::string terminatedCode = std::to_string(ETERM);
const std::string terminatedText = zmq_strerror(ETERM);

bool startsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

/// A RefPos of this package's binding whose serialisation is always refused.
class UnserializableRefPos : public lumotypes::krin::RefPosImpl {
public:
    using lumotypes::krin::RefPosImpl::toByteArray;
    bool toByteArray(zmq::message_t&) const override { return false; }
};

/// A RefPos that a host wrote itself: not of the binding class.
class HostRefPos : public lumotypes::RefPos {
public:
    std::unique_ptr<lumotypes::RefPos> clone() const override { return std::make_unique<HostRefPos>(); }
    bool keyEquals(const lumotypes::RefPos&) const override { return false; }
    std::unique_ptr<lumotypes::RefPos> cloneKey() const override { return std::make_unique<HostRefPos>(); }
    bool hasKey() const override { return false; }
    unsigned int getRefPosX() const override { return 0; }
    void setRefPosX(unsigned int) override {}
    unsigned int getRefPosY() const override { return 0; }
    void setRefPosY(unsigned int) override {}
    unsigned int getCentBoxWidth() const override { return 0; }
    void setCentBoxWidth(unsigned int) override {}
    unsigned int getCentBoxHeight() const override { return 0; }
    void setCentBoxHeight(unsigned int) override {}
};

/// Records when each failed attempt was logged, to look at the pauses between them.
class AttemptClock : public log4cplus::Appender {
public:
    ~AttemptClock() override { destructorImpl(); }
    void close() override {}
    std::vector<std::chrono::steady_clock::time_point> failures() {
        std::lock_guard<std::mutex> lock(mutex);
        return times;
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        if (event.getLogLevel() == log4cplus::ERROR_LOG_LEVEL) {
            std::lock_guard<std::mutex> lock(mutex);
            times.push_back(std::chrono::steady_clock::now());
        }
    }

private:
    std::mutex mutex;
    std::vector<std::chrono::steady_clock::time_point> times;
};

/// Makes the header frame of the first attempt fail for real: when the
/// publisher announces that frame, the terminated dealer takes the place of
/// its own, and when it announces the next first frame, its own comes back.
/// The log line is written on the publishing thread right before the send,
/// so the exchange happens exactly between frame 1 and frame 2.
class HeaderFrameSaboteur : public log4cplus::Appender {
public:
    HeaderFrameSaboteur(RefPosPublisher& publisher, zmq::socket_t& failing)
        : publisher(publisher), failing(failing) {}
    ~HeaderFrameSaboteur() override { destructorImpl(); }
    void close() override {}

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        const std::string& message = event.getMessage();
        if (!sabotaged && startsWith(message, headerFrameTrace)) {
            publisher.exchangeDealer(failing);
            sabotaged = true;
            exchanged = true;
        } else if (exchanged && startsWith(message, topicFrameTrace)) {
            publisher.exchangeDealer(failing);
            exchanged = false;
        }
    }

private:
    RefPosPublisher& publisher;
    zmq::socket_t& failing;
    bool sabotaged = false;
    bool exchanged = false;
};

class PublishPathTest : public ::testing::Test {
protected:
    void SetUp() override {
        dabo = recordedRuntime(calls);
        publisher = std::make_shared<RefPosPublisher>(freshTopicUri(), orlo::dabo::krin::detail::ps::QoSList{},
                                                      orlo::dabo::Dabo::Properties{}, dabo);
        publisher->init();
    }

    static std::shared_ptr<lumotypes::RefPos> sample() {
        auto entity = createDataEntityInternal<lumotypes::RefPos, lumotypes::krin::RefPosImpl>();
        entity->setRefPosX(11);
        entity->setRefPosY(12);
        entity->setCentBoxWidth(13);
        entity->setCentBoxHeight(14);
        return entity;
    }

    std::shared_ptr<RuntimeCallLog> calls = std::make_shared<RuntimeCallLog>();
    std::shared_ptr<KrinDabo> dabo;
    std::shared_ptr<RefPosPublisher> publisher;
};

TEST_F(PublishPathTest, PublishSendsAndMovesTheSequenceOnce) {
    CaptureLog log("vexa.dabo.krin.publisher");
    publisher->publish(*sample(), 100ms);
    publisher->publish(123.5, *sample(), 100ms);
    EXPECT_EQ(publisher->upcomingSequence(), 2u);
    EXPECT_TRUE(log.errors().empty());
}

TEST_F(PublishPathTest, PublishBeforeInitIsRefusedAsNotInitialized) {
    auto fresh = std::make_shared<RefPosPublisher>(freshTopicUri(), orlo::dabo::krin::detail::ps::QoSList{},
                                                   orlo::dabo::Dabo::Properties{}, dabo);
    CaptureLog log("vexa.dabo.krin.internal");
    try {
        fresh->publish(*sample(), 100ms);
        FAIL() << "published before init";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "Entity is not INITIALIZED");
    }
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Entity is not INITIALIZED"});
    EXPECT_EQ(fresh->upcomingSequence(), 0u);
}

TEST_F(PublishPathTest, NegativeTimeoutIsRefusedBeforeTheSequenceMoves) {
    CaptureLog log("vexa.dabo.krin.publisher");
    try {
        publisher->publish(*sample(), -1ms);
        FAIL() << "a negative time-out was accepted";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_STREQ(e.what(), "negative timeout given to publish");
        EXPECT_EQ(dynamic_cast<const orlo::dabo::IllegalStateException*>(&e), nullptr);
    }
    EXPECT_EQ(log.errors(), std::vector<std::string>{"negative timeout given to publish"});
    EXPECT_EQ(publisher->upcomingSequence(), 0u);
}

TEST_F(PublishPathTest, ForeignSampleIsRefusedAfterUsingUpASequenceNumber) {
    CaptureLog log("vexa.dabo.krin.publisher");
    HostRefPos foreign;
    try {
        publisher->publish(foreign, 100ms);
        FAIL() << "a sample of a foreign class was published";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "data type for instance or value is incorrect. Not a Krin supported type");
    }
    EXPECT_EQ(log.errors(),
              std::vector<std::string>{"data type for instance or value is incorrect. Not a Krin supported type"});
    EXPECT_EQ(publisher->upcomingSequence(), 1u);
    // No frame left for it.
    const auto traces = log.traces();
    for (const auto& line : traces) {
        EXPECT_FALSE(startsWith(line, topicFrameTrace)) << line;
    }
}

TEST_F(PublishPathTest, SampleThatFailsToSerializeIsRefusedAfterUsingUpASequenceNumber) {
    CaptureLog log("vexa.dabo.krin.publisher");
    UnserializableRefPos refused;
    try {
        publisher->publish(refused, 100ms);
        FAIL() << "an unserialisable sample was published";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_STREQ(e.what(), "Krin data entity failed to serialize");
    }
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Krin data entity failed to serialize"});
    EXPECT_EQ(publisher->upcomingSequence(), 1u);
}

TEST_F(PublishPathTest, WithoutAnyPeerPublishReturnsNormallyAndTheSampleIsGone) {
    UnconnectedDealer nowhere;
    CaptureLog log("vexa.dabo.krin.publisher");
    {
        DealerExchange<RefPosPublisher> exchange(*publisher, nowhere.get());
        publisher->publish(*sample(), 0ms);
        publisher->publish(*sample(), 0ms);
    }
    EXPECT_TRUE(log.errors().empty());
    EXPECT_EQ(publisher->upcomingSequence(), 2u);
    // Every frame was offered once; the missing peer was no reason to retry.
    std::size_t topicFrames = 0;
    for (const auto& line : log.traces()) {
        topicFrames += startsWith(line, topicFrameTrace) ? 1 : 0;
    }
    EXPECT_EQ(topicFrames, 2u);
}

TEST_F(PublishPathTest, ZeroTimeoutMakesExactlyOneAttemptThenTimesOut) {
    TerminatedDealer broken;
    CaptureLog log("vexa.dabo.krin.publisher");
    const auto start = std::chrono::steady_clock::now();
    {
        DealerExchange<RefPosPublisher> exchange(*publisher, broken.get());
        try {
            publisher->publish(*sample(), 0ms);
            FAIL() << "a hard send error went unnoticed";
        } catch (const orlo::dabo::TimeoutException& e) {
            EXPECT_STREQ(e.what(), "timeout");
        }
    }
    // At once, without a pause before giving up.
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1000ms);
    // One failed attempt, logged; the time-out itself is not.
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Sending first fragment (topicIdFrame) failed: code:" +
                                                     terminatedCode + " msg:" + terminatedText});
    EXPECT_EQ(publisher->upcomingSequence(), 1u);
}

TEST_F(PublishPathTest, OneMillisecondTimeoutSleepsOnceThenTimesOut) {
    TerminatedDealer broken;
    CaptureLog log("vexa.dabo.krin.publisher");
    const auto start = std::chrono::steady_clock::now();
    {
        DealerExchange<RefPosPublisher> exchange(*publisher, broken.get());
        try {
            publisher->publish(*sample(), 1ms);
            FAIL() << "a hard send error went unnoticed";
        } catch (const orlo::dabo::TimeoutException& e) {
            EXPECT_STREQ(e.what(), "timeout");
        }
    }
    const auto elapsed = std::chrono::steady_clock::now() - start;
    // One pause of 1 ms, then the time-out as soon as the clock has passed it.
    EXPECT_GE(elapsed, 1ms);
    EXPECT_LT(elapsed, 1000ms);
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Sending first fragment (topicIdFrame) failed: code:" +
                                                     terminatedCode + " msg:" + terminatedText});
    EXPECT_EQ(publisher->upcomingSequence(), 1u);
}

TEST_F(PublishPathTest, HardErrorsAreRetriedWithDoublingPausesUntilTheTimeout) {
    TerminatedDealer broken;
    CaptureLog log("vexa.dabo.krin.publisher");
    auto clock = new AttemptClock;
    log4cplus::SharedAppenderPtr clockAppender(clock);
    log4cplus::Logger::getInstance("vexa.dabo.krin.publisher").addAppender(clockAppender);
    const auto start = std::chrono::steady_clock::now();
    {
        DealerExchange<RefPosPublisher> exchange(*publisher, broken.get());
        EXPECT_THROW(publisher->publish(*sample(), 100ms), orlo::dabo::TimeoutException);
    }
    const auto end = std::chrono::steady_clock::now();
    log4cplus::Logger::getInstance("vexa.dabo.krin.publisher").removeAppender(clockAppender);

    const auto failures = clock->failures();
    // Pauses of 1, 2, 4, ... ms, the last one cut to what is left of the
    // time-out: 100 ms hold at most eight attempts, and surely three.
    ASSERT_GE(failures.size(), 3u);
    EXPECT_LE(failures.size(), 8u);
    for (std::size_t attempt = 1; attempt + 1 < failures.size(); ++attempt) {
        EXPECT_GE(failures[attempt] - failures[attempt - 1], std::chrono::milliseconds(1 << (attempt - 1)))
            << "pause before attempt " << attempt + 1;
    }
    // What is left is counted in whole milliseconds, so the end may come up
    // to a millisecond before the deadline, never earlier.
    EXPECT_GE(end - start, 99ms);
    for (const auto& line : log.errors()) {
        EXPECT_EQ(line, "Sending first fragment (topicIdFrame) failed: code:" + terminatedCode + " msg:" + terminatedText);
    }
    // The whole call used one sequence number.
    EXPECT_EQ(publisher->upcomingSequence(), 1u);
}

TEST_F(PublishPathTest, HardErrorOnTheHeaderFrameIsLoggedAndTheRetryStartsWithTheTopicFrame) {
    TerminatedDealer broken;
    CaptureLog log("vexa.dabo.krin.publisher");
    auto saboteur = new HeaderFrameSaboteur(*publisher, broken.get());
    log4cplus::SharedAppenderPtr saboteurAppender(saboteur);
    log4cplus::Logger::getInstance("vexa.dabo.krin.publisher").addAppender(saboteurAppender);
    publisher->publish(*sample(), 1000ms);
    log4cplus::Logger::getInstance("vexa.dabo.krin.publisher").removeAppender(saboteurAppender);

    EXPECT_EQ(log.errors(), std::vector<std::string>{"Sending krinHeaderFrame and krinDataEntity failed: code:" +
                                                     terminatedCode + " msg:" + terminatedText});
    std::vector<std::string> sends;
    for (const auto& line : log.traces()) {
        for (const char* prefix : {topicFrameTrace, headerFrameTrace, payloadFrameTrace}) {
            if (startsWith(line, prefix)) {
                sends.push_back(prefix);
            }
        }
    }
    EXPECT_EQ(sends, (std::vector<std::string>{topicFrameTrace, headerFrameTrace, topicFrameTrace, headerFrameTrace,
                                               payloadFrameTrace}));
    EXPECT_EQ(publisher->upcomingSequence(), 1u);
}

TEST_F(PublishPathTest, TraceLinesShowTheFramesAndTheHeaderBytesTwice) {
    CaptureLog log("vexa.dabo.krin.publisher");
    publisher->publish(*sample(), 100ms);
    const auto traces = log.traces();
    std::vector<std::string> sendLines;
    for (const auto& line : traces) {
        if (startsWith(line, "Publisher's dealer socket sending")) {
            sendLines.push_back(line);
        }
    }
    ASSERT_EQ(sendLines.size(), 3u);
    EXPECT_EQ(sendLines[0], topicFrameTrace + orlo::dabo::util::hexStr(publisher->topicFrame()));
    const std::string headerHex = sendLines[1].substr(std::string(headerFrameTrace).size());
    EXPECT_FALSE(headerHex.empty());
    EXPECT_EQ(sendLines[1], headerFrameTrace + headerHex);
    EXPECT_EQ(sendLines[2], payloadFrameTrace + headerHex);
}

TEST_F(PublishPathTest, NoSendLinesAreWrittenWhileTraceIsOff) {
    CaptureLog log("vexa.dabo.krin.publisher", log4cplus::INFO_LOG_LEVEL);
    publisher->publish(*sample(), 100ms);
    EXPECT_TRUE(log.lines().empty());
}

}  // namespace
