// Life cycle of a publisher: construction, registration, the slow-joiner
// delay, the runtime's events, close and destruction.

#include "dabo/krin/detail/ps/publisher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "CapturingAppender.h"
#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/krin/detail/ps/createDataEntity.h"
#include "dabo/util/DaboUtil.h"
#include "lumotypes/Lumotypes.h"
#include "lumotypes/krin/LumotypesImpl.h"
#include "publisherTestSupport.h"

namespace {

using namespace std::chrono_literals;
using lumo::test::CaptureLog;
using lumo::test::freshTopicUri;
using lumo::test::InspectablePublisher;
using lumo::test::recordedRuntime;
using lumo::test::RuntimeCallLog;
using orlo::dabo::krin::detail::EventDelivery;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::KrinDaboEvent;
using orlo::dabo::krin::detail::KrinDaboTestHooks;
using orlo::dabo::krin::detail::NO_EVENT;
using orlo::dabo::krin::detail::POLLER_READABLE;
using orlo::dabo::krin::detail::REGISTERED;
using orlo::dabo::krin::detail::UNREGISTERED;
using orlo::dabo::krin::detail::ps::CLOSED;
using orlo::dabo::krin::detail::ps::CREATED;
using orlo::dabo::krin::detail::ps::createDataEntityInternal;
using orlo::dabo::krin::detail::ps::INITIALIZED;

using RefPosPublisher = InspectablePublisher<lumotypes::RefPos, lumotypes::krin::RefPosImpl>;

/// Tells the test when the runtime's REGISTERED has reached the publisher.
class RegistrationWatchingPublisher : public RefPosPublisher {
public:
    using RefPosPublisher::RefPosPublisher;

    bool events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) override {
        const bool result = RefPosPublisher::events(socket, event);
        if (event == REGISTERED) {
            registeredAt.set_value(std::chrono::steady_clock::now());
        }
        return result;
    }

    std::promise<std::chrono::steady_clock::time_point> registeredAt;
};

class PublisherLifecycleTest : public ::testing::Test {
protected:
    std::shared_ptr<RefPosPublisher> makePublisher(const std::shared_ptr<KrinDabo>& dabo,
                                                   const orlo::dabo::Dabo::Properties& properties = {}) {
        return std::make_shared<RefPosPublisher>(freshTopicUri(), orlo::dabo::krin::detail::ps::QoSList{},
                                                 properties, dabo);
    }

    std::shared_ptr<RefPosPublisher> makeInitializedPublisher(const std::shared_ptr<KrinDabo>& dabo) {
        auto publisher = makePublisher(dabo);
        publisher->init();
        return publisher;
    }

    static std::shared_ptr<lumotypes::RefPos> sample() {
        auto entity = createDataEntityInternal<lumotypes::RefPos, lumotypes::krin::RefPosImpl>();
        entity->setRefPosX(1);
        entity->setRefPosY(2);
        entity->setCentBoxWidth(3);
        entity->setCentBoxHeight(4);
        return entity;
    }

    std::shared_ptr<RuntimeCallLog> calls = std::make_shared<RuntimeCallLog>();
};

TEST_F(PublisherLifecycleTest, ConstructionComputesTopicFrameEndpointAndTypeHashAndLeavesItCreated) {
    auto dabo = recordedRuntime(calls);
    const std::string port = std::to_string(lumo::test::freePort());
    const std::string uri = "krin.ps://127.0.0.1:" + port + "/lumo/refpos";
    auto publisher = std::make_shared<RefPosPublisher>(uri, orlo::dabo::krin::detail::ps::QoSList{},
                                                       orlo::dabo::Dabo::Properties{}, dabo);
    const auto hash = orlo::dabo::util::topicNameHash("/lumo/refpos");
    EXPECT_EQ(publisher->topicFrame(), orlo::dabo::krin::detail::createFrame0(static_cast<unsigned int>(hash)));
    EXPECT_EQ(publisher->endpoint(), "tcp://127.0.0.1:" + port);
    EXPECT_EQ(publisher->typeHash(), 0x67C91967u);
    EXPECT_EQ(publisher->upcomingSequence(), 0u);
    EXPECT_FALSE(publisher->tracing());
    EXPECT_EQ(publisher->currentState(), CREATED);
    EXPECT_EQ(publisher->lastSeenEvent(), NO_EVENT);
    EXPECT_EQ(calls->of("createDealer").size(), 1u);
    EXPECT_TRUE(calls->of("registerPublisher").empty());
}

TEST_F(PublisherLifecycleTest, ConstructionTracesTopicNameHashAndFrame) {
    auto dabo = recordedRuntime(calls);
    CaptureLog log("vexa.dabo.krin.publisher");
    const std::string uri = freshTopicUri("/lumo/traced");
    auto publisher = std::make_shared<RefPosPublisher>(uri, orlo::dabo::krin::detail::ps::QoSList{},
                                                       orlo::dabo::Dabo::Properties{}, dabo);
    const auto hash = orlo::dabo::util::topicNameHash("/lumo/traced");
    ASSERT_FALSE(log.traces().empty());
    EXPECT_EQ(log.traces().front(), "KrinPublisher topicName:/lumo/traced topicIdHash:" + std::to_string(hash) +
                                        " topicIdFrame:" + orlo::dabo::util::hexStr(publisher->topicFrame()));
}

TEST_F(PublisherLifecycleTest, UriThatTheRuntimeRefusesThrowsTheRuntimesExceptionBeforeAnySocketExists) {
    auto dabo = recordedRuntime(calls);
    EXPECT_THROW(std::make_shared<RefPosPublisher>("krin.ps://127.0.0.1/no/port", orlo::dabo::krin::detail::ps::QoSList{},
                                                   orlo::dabo::Dabo::Properties{}, dabo),
                 orlo::dabo::DaboException);
    EXPECT_TRUE(calls->all().empty());
}

TEST_F(PublisherLifecycleTest, InitRegistersTheDealerAndBecomesInitialized) {
    auto dabo = recordedRuntime(calls);
    CaptureLog log("vexa.dabo.krin.publisher");
    auto publisher = makeInitializedPublisher(dabo);
    EXPECT_EQ(publisher->currentState(), INITIALIZED);
    EXPECT_EQ(publisher->lastSeenEvent(), REGISTERED);
    const auto registrations = calls->of("registerPublisher");
    ASSERT_EQ(registrations.size(), 1u);
    EXPECT_FALSE(registrations.front().handlerEmpty);
    const auto traces = log.traces();
    EXPECT_NE(std::find(traces.begin(), traces.end(), "Register KrinPublisher with DABO "), traces.end());
    EXPECT_NE(std::find(traces.begin(), traces.end(), "REGISTERED event received for KrinPublisher "), traces.end());
}

TEST_F(PublisherLifecycleTest, InitOfAnObjectThatNoSharedPointerOwnsFailsWithBadWeakPtr) {
    auto dabo = recordedRuntime(calls);
    RefPosPublisher unowned(freshTopicUri(), orlo::dabo::krin::detail::ps::QoSList{}, orlo::dabo::Dabo::Properties{},
                            dabo);
    EXPECT_THROW(unowned.init(), std::bad_weak_ptr);
}

TEST_F(PublisherLifecycleTest, SecondCloseReturnsAtOnceWithoutARuntimeCall) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makeInitializedPublisher(dabo);
    publisher->close();
    ASSERT_EQ(calls->of("unregisterPublisher").size(), 1u);
    EXPECT_FALSE(calls->of("unregisterPublisher").front().handlerEmpty);
    EXPECT_EQ(publisher->lastSeenEvent(), UNREGISTERED);
    const auto before = calls->all().size();
    const auto start = std::chrono::steady_clock::now();
    publisher->close();
    // At once: far below the 5000 ms that a wait for UNREGISTERED could take.
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1000ms);
    EXPECT_EQ(calls->all().size(), before);
    EXPECT_EQ(publisher->currentState(), CLOSED);
}

TEST_F(PublisherLifecycleTest, CloseWritesNoLogLine) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makeInitializedPublisher(dabo);
    CaptureLog publisherLog("vexa.dabo.krin.publisher", log4cplus::WARN_LOG_LEVEL);
    CaptureLog internalLog("vexa.dabo.krin.internal", log4cplus::WARN_LOG_LEVEL);
    publisher->close();
    publisher->close();
    EXPECT_TRUE(publisherLog.lines().empty());
    EXPECT_TRUE(internalLog.lines().empty());
}

TEST_F(PublisherLifecycleTest, PublishAfterCloseIsRefusedAsEntityClosed) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makeInitializedPublisher(dabo);
    auto entity = sample();
    publisher->close();
    CaptureLog log("vexa.dabo.krin.internal");
    try {
        publisher->publish(*entity, 100ms);
        FAIL() << "publish after close went through";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "Entity closed");
    }
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Entity closed"});
}

TEST_F(PublisherLifecycleTest, GetDaboAfterCloseStillGivesTheRuntime) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makeInitializedPublisher(dabo);
    publisher->close();
    EXPECT_EQ(publisher->getDabo().get(), dabo.get());
}

TEST_F(PublisherLifecycleTest, CreateDataEntityBeforeInitIsRefusedAsNotInitialized) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makePublisher(dabo);
    CaptureLog log("vexa.dabo.krin.internal");
    try {
        publisher->createDataEntity();
        FAIL() << "an entity was made before init";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "Entity is not INITIALIZED");
    }
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Entity is not INITIALIZED"});
}

TEST_F(PublisherLifecycleTest, CreateDataEntityGivesAnEmptyEntityOfTheBindingClass) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makeInitializedPublisher(dabo);
    auto first = publisher->createDataEntity();
    auto second = publisher->createDataEntity();
    ASSERT_NE(dynamic_cast<lumotypes::krin::RefPosImpl*>(first.get()), nullptr);
    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(first->getRefPosX(), 0u);
}

TEST_F(PublisherLifecycleTest, CreateInstancePublisherOnThePublisherItselfIsRefusedAsNotImplementedWithoutALogLine) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makeInitializedPublisher(dabo);
    CaptureLog publisherLog("vexa.dabo.krin.publisher");
    CaptureLog internalLog("vexa.dabo.krin.internal");
    try {
        publisher->createInstancePublisher(*sample());
        FAIL() << "the publisher made an instance publisher by itself";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "Not implemented");
    }
    EXPECT_TRUE(publisherLog.errors().empty());
    EXPECT_TRUE(internalLog.errors().empty());
}

TEST_F(PublisherLifecycleTest, CloseWithARuntimeThatNeverConfirmsReturnsClosedAfterTheEventTimeout) {
    KrinDaboTestHooks hooks;
    hooks.unregistered = EventDelivery::withheld();
    auto dabo = recordedRuntime(calls, hooks);
    auto publisher = makeInitializedPublisher(dabo);
    const auto start = std::chrono::steady_clock::now();
    publisher->close();
    const auto elapsed = std::chrono::steady_clock::now() - start;
    // The whole event time-out, and then no more than a generous margin.
    EXPECT_GE(elapsed, 5000ms);
    EXPECT_LT(elapsed, 9000ms);
    EXPECT_EQ(publisher->currentState(), CLOSED);
    EXPECT_EQ(publisher->lastSeenEvent(), REGISTERED);
}

TEST_F(PublisherLifecycleTest, CloseWaitsForALateUnregisteredEvent) {
    KrinDaboTestHooks hooks;
    hooks.unregistered = EventDelivery::delayedBy(300ms);
    auto dabo = recordedRuntime(calls, hooks);
    auto publisher = makeInitializedPublisher(dabo);
    const auto start = std::chrono::steady_clock::now();
    publisher->close();
    const auto elapsed = std::chrono::steady_clock::now() - start;
    // Until the confirmation, 300 ms late, and not the whole 5000 ms time-out.
    EXPECT_GE(elapsed, 300ms);
    EXPECT_LT(elapsed, 4000ms);
    EXPECT_EQ(publisher->lastSeenEvent(), UNREGISTERED);
    EXPECT_EQ(publisher->currentState(), CLOSED);
}

TEST_F(PublisherLifecycleTest, DestroyingAnOpenPublisherUnregistersOnceWithAnEmptyHandlerWithoutWaiting) {
    KrinDaboTestHooks hooks;
    // A destructor that waited would sit out the whole event time-out here.
    hooks.unregistered = EventDelivery::withheld();
    auto dabo = recordedRuntime(calls, lumo::test::settledRegistration(hooks));
    auto publisher = makeInitializedPublisher(dabo);
    auto destruction = std::async(std::launch::async, [&publisher] { publisher.reset(); });
    ASSERT_EQ(destruction.wait_for(2500ms), std::future_status::ready);
    const auto unregistrations = calls->of("unregisterPublisher");
    ASSERT_EQ(unregistrations.size(), 1u);
    EXPECT_TRUE(unregistrations.front().handlerEmpty);
}

TEST_F(PublisherLifecycleTest, DestroyingAPublisherClosesItsDealer) {
    std::promise<void> runtimeStopped;
    KrinDaboTestHooks hooks;
    hooks.stopped = [&runtimeStopped] { runtimeStopped.set_value(); };
    auto dabo = recordedRuntime(calls, lumo::test::settledRegistration(hooks));
    makeInitializedPublisher(dabo).reset();
    // The runtime terminates its context when it goes, which ZeroMQ allows
    // only once every socket of that context, the dealer included, is closed.
    auto teardown = std::async(std::launch::async, [&dabo] { dabo.reset(); });
    ASSERT_EQ(teardown.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(runtimeStopped.get_future().wait_for(0s), std::future_status::ready);
}

TEST_F(PublisherLifecycleTest, FailedInitThrowsAfterTheEventTimeoutAndLeavesTheStateCreated) {
    KrinDaboTestHooks hooks;
    hooks.registered = EventDelivery::withheld();
    auto dabo = recordedRuntime(calls, hooks);
    auto publisher = makePublisher(dabo);
    CaptureLog log("vexa.dabo.krin.publisher");
    const auto start = std::chrono::steady_clock::now();
    try {
        publisher->init();
        FAIL() << "init passed without REGISTERED";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_STREQ(e.what(), "KrinPublisher did not receive registered event");
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, 5000ms);
    EXPECT_EQ(log.errors(), std::vector<std::string>{"KrinPublisher did not receive registered event"});
    EXPECT_EQ(publisher->currentState(), CREATED);
}

TEST_F(PublisherLifecycleTest, DestructorOfAPublisherWhoseInitFailedStillUnregistersWithAnEmptyHandler) {
    KrinDaboTestHooks hooks;
    hooks.registered = EventDelivery::withheld();
    auto dabo = recordedRuntime(calls, hooks);
    auto publisher = makePublisher(dabo);
    EXPECT_THROW(publisher->init(), orlo::dabo::DaboException);
    publisher.reset();
    const auto unregistrations = calls->of("unregisterPublisher");
    ASSERT_EQ(unregistrations.size(), 1u);
    EXPECT_TRUE(unregistrations.front().handlerEmpty);
}

TEST_F(PublisherLifecycleTest, InitDoesNotBlockWhenRegisteredArrivesBeforeTheWait) {
    KrinDaboTestHooks hooks;
    hooks.registeredBeforeRegisterReturns = true;
    auto dabo = recordedRuntime(calls, hooks);
    auto publisher = makePublisher(dabo);
    auto initialised = std::async(std::launch::async, [&publisher] { publisher->init(); });
    // Far below the 5000 ms event time-out: the wait found the event already there.
    ASSERT_EQ(initialised.wait_for(1000ms), std::future_status::ready);
    initialised.get();
    EXPECT_EQ(publisher->currentState(), INITIALIZED);
}

TEST_F(PublisherLifecycleTest, InitWithoutSlowJoinerDelayIsInitializedOnReturn) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makePublisher(dabo);
    publisher->init();
    EXPECT_EQ(publisher->currentState(), INITIALIZED);
}

TEST_F(PublisherLifecycleTest, ZeroSlowJoinerDelayMeansNoDelay) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makePublisher(dabo, {{"krin.ps.slowJoinerDelayMs", "0"}});
    publisher->init();
    EXPECT_EQ(publisher->currentState(), INITIALIZED);
}

TEST_F(PublisherLifecycleTest, NegativeSlowJoinerDelayMeansNoDelay) {
    auto dabo = recordedRuntime(calls);
    // Slept as its magnitude, this would outlast the test's own time limit.
    auto publisher = makePublisher(dabo, {{"krin.ps.slowJoinerDelayMs", "-600000"}});
    auto initialised = std::async(std::launch::async, [&publisher] { publisher->init(); });
    ASSERT_EQ(initialised.wait_for(30s), std::future_status::ready);
    initialised.get();
    EXPECT_EQ(publisher->currentState(), INITIALIZED);
}

TEST_F(PublisherLifecycleTest, SlowJoinerDelayHoldsBackInitAfterRegistered) {
    auto dabo = recordedRuntime(calls);
    auto publisher = std::make_shared<RegistrationWatchingPublisher>(
        freshTopicUri(), orlo::dabo::krin::detail::ps::QoSList{},
        orlo::dabo::Dabo::Properties{{"krin.ps.slowJoinerDelayMs", "250"}}, dabo);
    auto registeredAt = publisher->registeredAt.get_future();
    publisher->init();
    const auto returnedAt = std::chrono::steady_clock::now();
    EXPECT_GE(returnedAt - registeredAt.get(), 250ms);
    EXPECT_EQ(publisher->currentState(), INITIALIZED);
}

TEST_F(PublisherLifecycleTest, PublishDuringTheSlowJoinerDelayIsRefusedAsNotInitialized) {
    auto dabo = recordedRuntime(calls);
    // Long enough that the refused publish surely falls inside the delay.
    auto publisher = std::make_shared<RegistrationWatchingPublisher>(
        freshTopicUri(), orlo::dabo::krin::detail::ps::QoSList{},
        orlo::dabo::Dabo::Properties{{"krin.ps.slowJoinerDelayMs", "3000"}}, dabo);
    auto registeredAt = publisher->registeredAt.get_future();
    auto initialised = std::async(std::launch::async, [&publisher] { publisher->init(); });
    registeredAt.wait();
    auto entity = sample();
    try {
        publisher->publish(*entity, 0ms);
        FAIL() << "published during the slow-joiner delay";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "Entity is not INITIALIZED");
    }
    initialised.get();
    EXPECT_EQ(publisher->currentState(), INITIALIZED);
    EXPECT_NO_THROW(publisher->publish(*entity, 0ms));
}

TEST_F(PublisherLifecycleTest, SlowJoinerDelaySleepsThePropertysMilliseconds) {
    const auto start = std::chrono::steady_clock::now();
    RefPosPublisher::slowJoinerDelay({{"krin.ps.slowJoinerDelayMs", "120"}});
    EXPECT_GE(std::chrono::steady_clock::now() - start, 120ms);
}

TEST_F(PublisherLifecycleTest, SlowJoinerDelayThatIsNotANumberIsRefused) {
    EXPECT_THROW(RefPosPublisher::slowJoinerDelay({{"krin.ps.slowJoinerDelayMs", "soon"}}), orlo::dabo::DaboException);
}

TEST_F(PublisherLifecycleTest, EventsOtherThanRegistrationChangesLeaveTheLastEventAndReturnTrue) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makeInitializedPublisher(dabo);
    std::shared_ptr<zmq::socket_t> noSocket;
    EXPECT_TRUE(publisher->events(noSocket, POLLER_READABLE));
    EXPECT_TRUE(publisher->events(noSocket, NO_EVENT));
    EXPECT_TRUE(publisher->events(noSocket, static_cast<KrinDaboEvent>(42)));
    EXPECT_EQ(publisher->lastSeenEvent(), REGISTERED);
}

TEST_F(PublisherLifecycleTest, UnregisteredEventIsRecordedAndTraced) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makeInitializedPublisher(dabo);
    CaptureLog log("vexa.dabo.krin.publisher");
    std::shared_ptr<zmq::socket_t> noSocket;
    EXPECT_TRUE(publisher->events(noSocket, UNREGISTERED));
    EXPECT_EQ(publisher->lastSeenEvent(), UNREGISTERED);
    EXPECT_EQ(log.traces(), std::vector<std::string>{"UNREGISTERED event received for KrinPublisher "});
}

}  // namespace
