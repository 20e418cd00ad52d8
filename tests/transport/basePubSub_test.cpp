#include "dabo/krin/detail/ps/basePubSub.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "CapturingAppender.h"
#include "dabo/DaboException.h"

namespace {

using orlo::dabo::krin::detail::KrinDaboEvent;
using orlo::dabo::krin::detail::NO_EVENT;
using orlo::dabo::krin::detail::REGISTERED;
using orlo::dabo::krin::detail::UNREGISTERED;
using orlo::dabo::krin::detail::ps::CLOSED;
using orlo::dabo::krin::detail::ps::CREATED;
using orlo::dabo::krin::detail::ps::INITIALIZED;
using orlo::dabo::krin::detail::ps::KrinBasePubSub;
using orlo::dabo::krin::detail::ps::PubSubState;

struct AnyTopic {};
struct AnyBinding {};

const std::string goodUri = "krin.ps://127.0.0.1:7001/base/topic";

/// The smallest concrete transport object: it exposes the base's state and
/// event cell so the tests can play the runtime's thread.
class ProbePubSub : public KrinBasePubSub<AnyTopic, AnyBinding> {
public:
    explicit ProbePubSub(const std::string& uri = goodUri)
        : KrinBasePubSub<AnyTopic, AnyBinding>(uri, {}, {}, nullptr) {}

    void deliver(KrinDaboEvent event) { recordEvent(event); }
    void setState(PubSubState value) { state = value; }
    int timeoutMs() const { return eventTimeoutMs; }
    KrinDaboEvent last() {
        std::lock_guard<std::mutex> lock(eventMutex);
        return lastEvent;
    }

    /// Replaces the event cell twice inside one critical section, so a
    /// waiter can only ever observe the second value.
    void replaceAtomically(KrinDaboEvent first, KrinDaboEvent second) {
        std::lock_guard<std::mutex> lock(eventMutex);
        lastEvent = first;
        eventCondition.notify_one();
        lastEvent = second;
    }
};

TEST(KrinBasePubSubTest, StartsCreatedWithNoEventAndAFiveSecondEventTimeout) {
    ProbePubSub probe;
    EXPECT_EQ(probe.timeoutMs(), 5000);
    EXPECT_EQ(probe.last(), NO_EVENT);
    EXPECT_THROW(probe.checkState(), orlo::dabo::IllegalStateException);
}

TEST(KrinBasePubSubTest, EventDeliveredBeforeTheWaitIsSeenWithoutBlocking) {
    ProbePubSub probe;
    probe.deliver(REGISTERED);
    auto waiter = std::async(std::launch::async, [&] { return probe.waitForEvent(REGISTERED); });
    // Far below the event time-out: the wait must not have blocked on the condition.
    ASSERT_EQ(waiter.wait_for(std::chrono::milliseconds(2500)), std::future_status::ready);
    EXPECT_TRUE(waiter.get());
}

TEST(KrinBasePubSubTest, EventDeliveredDuringTheWaitEndsIt) {
    ProbePubSub probe;
    auto waiter = std::async(std::launch::async, [&] { return probe.waitForEvent(UNREGISTERED); });
    probe.deliver(UNREGISTERED);
    EXPECT_TRUE(waiter.get());
}

TEST(KrinBasePubSubTest, WaitingForUnregisteredWhileRegisteredTimesOutWithFalse) {
    ProbePubSub probe;
    probe.deliver(REGISTERED);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(probe.waitForEvent(UNREGISTERED));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5000));
    EXPECT_EQ(probe.last(), REGISTERED);
}

TEST(KrinBasePubSubTest, RegisteredReplacedByUnregisteredBeforeTheWaiterWakesTimesOut) {
    ProbePubSub probe;
    auto waiter = std::async(std::launch::async, [&] { return probe.waitForEvent(REGISTERED); });
    probe.replaceAtomically(REGISTERED, UNREGISTERED);
    EXPECT_FALSE(waiter.get());
    EXPECT_EQ(probe.last(), UNREGISTERED);
}

TEST(KrinBasePubSubTest, CheckStateOnAnObjectNeverInitialisedSaysNotInitialized) {
    lumo::test::CaptureLog log("vexa.dabo.krin.internal");
    ProbePubSub probe;
    try {
        probe.checkState();
        FAIL() << "checkState passed in CREATED";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "Entity is not INITIALIZED");
    }
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Entity is not INITIALIZED"});
}

TEST(KrinBasePubSubTest, CheckStateAfterCloseSaysClosedEvenWithoutInitialisation) {
    lumo::test::CaptureLog log("vexa.dabo.krin.internal");
    ProbePubSub neverInitialised;
    neverInitialised.setState(CLOSED);
    ProbePubSub initialised;
    initialised.setState(INITIALIZED);
    EXPECT_NO_THROW(initialised.checkState());
    initialised.setState(CLOSED);
    for (ProbePubSub* probe : {&neverInitialised, &initialised}) {
        try {
            probe->checkState();
            FAIL() << "checkState passed in CLOSED";
        } catch (const orlo::dabo::IllegalStateException& e) {
            EXPECT_STREQ(e.what(), "Entity closed");
        }
    }
    EXPECT_EQ(log.errors(), (std::vector<std::string>{"Entity closed", "Entity closed"}));
}

TEST(KrinBasePubSubTest, UriOfAnotherProfileIsRefusedWithItsTextAndAnErrorLine) {
    lumo::test::CaptureLog log("vexa.dabo.krin.internal");
    const std::string foreign = "dds://domain/topic";
    try {
        ProbePubSub probe(foreign);
        FAIL() << "construction succeeded";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_STREQ(e.what(), "Uri dds://domain/topic is not Krin PubSub profile");
    }
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Uri dds://domain/topic is not Krin PubSub profile"});
}

}  // namespace
