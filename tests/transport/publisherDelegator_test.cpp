// The exported publisher factories and the delegator that hosts own: the
// order of making, registering and cleaning up, and what each operation passes on.

#include "dabo/krin/detail/ps/publisherDelegator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "CapturingAppender.h"
#include "dabo/DaboException.h"
#include "lumotypes/Lumotypes.h"
#include "lumotypes/krin/LumotypesImpl.h"
#include "publisherTestSupport.h"

extern "C" orlo::dabo::ps::Publisher<lumotypes::RefPos>* generated_krin_Publisher_lumotypes_RefPos(
    const std::string& uri, const std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>& qos,
    const orlo::dabo::Dabo::Properties& properties,
    const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo);

namespace {

using namespace std::chrono_literals;
using lumo::test::CaptureLog;
using lumo::test::freshTopicUri;
using lumo::test::recordedRuntime;
using lumo::test::RuntimeCallLog;
using orlo::dabo::krin::detail::EventDelivery;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::KrinDaboTestHooks;
using RefPosPublisherPtr = std::unique_ptr<orlo::dabo::ps::Publisher<lumotypes::RefPos>>;

class PublisherDelegatorTest : public ::testing::Test {
protected:
    RefPosPublisherPtr makePublisher(const std::shared_ptr<KrinDabo>& runtime,
                                     const orlo::dabo::Dabo::Properties& properties = {}) {
        return RefPosPublisherPtr(generated_krin_Publisher_lumotypes_RefPos(freshTopicUri(), {}, properties, runtime));
    }

    static void fill(lumotypes::RefPos& entity) {
        entity.setRefPosX(1);
        entity.setRefPosY(2);
        entity.setCentBoxWidth(3);
        entity.setCentBoxHeight(4);
    }

    std::shared_ptr<RuntimeCallLog> calls = std::make_shared<RuntimeCallLog>();
};

TEST_F(PublisherDelegatorTest, FactoryReturnsAnInitializedPublisher) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makePublisher(dabo);
    ASSERT_NE(publisher, nullptr);
    auto sample = publisher->createDataEntity();
    ASSERT_NE(dynamic_cast<lumotypes::krin::RefPosImpl*>(sample.get()), nullptr);
    fill(*sample);
    EXPECT_NO_THROW(publisher->publish(*sample, 100ms));
    EXPECT_NO_THROW(publisher->publish(5.0, *sample, 100ms));
    EXPECT_EQ(publisher->getDabo().get(), dabo.get());
    EXPECT_EQ(calls->of("registerPublisher").size(), 1u);
}

TEST_F(PublisherDelegatorTest, FactoryWithAUriOfAnotherProfileThrowsBeforeAnyRuntimeCall) {
    auto dabo = recordedRuntime(calls);
    CaptureLog log("vexa.dabo.krin.internal");
    try {
        generated_krin_Publisher_lumotypes_RefPos("tcp://127.0.0.1:7001/lumo/refpos", {}, {}, dabo);
        FAIL() << "a URI of another profile was accepted";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_STREQ(e.what(), "Uri tcp://127.0.0.1:7001/lumo/refpos is not Krin PubSub profile");
    }
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Uri tcp://127.0.0.1:7001/lumo/refpos is not Krin PubSub profile"});
    EXPECT_TRUE(calls->all().empty());
}

TEST_F(PublisherDelegatorTest, FactoryWhoseRuntimeNeverRegistersThrowsAfterTheEventTimeoutLeavingOnlyTheDestructorsCalls) {
    KrinDaboTestHooks hooks;
    hooks.registered = EventDelivery::withheld();
    auto dabo = recordedRuntime(calls, hooks);
    const auto start = std::chrono::steady_clock::now();
    try {
        makePublisher(dabo);
        FAIL() << "the factory returned without REGISTERED";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_STREQ(e.what(), "KrinPublisher did not receive registered event");
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, 5000ms);
    const auto all = calls->all();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].operation, "createDealer");
    EXPECT_EQ(all[1].operation, "registerPublisher");
    EXPECT_FALSE(all[1].handlerEmpty);
    EXPECT_EQ(all[2].operation, "unregisterPublisher");
    EXPECT_TRUE(all[2].handlerEmpty);
    // Nothing holds the runtime but this test: the publisher is gone.
    EXPECT_EQ(dabo.use_count(), 1);
}

TEST_F(PublisherDelegatorTest, DeletingWithoutCloseUnregistersWithAnEmptyHandlerWithoutWaiting) {
    KrinDaboTestHooks hooks;
    // A wait for the event would last the whole event time-out here.
    hooks.unregistered = EventDelivery::withheld();
    auto dabo = recordedRuntime(calls, lumo::test::settledRegistration(hooks));
    auto publisher = makePublisher(dabo);
    auto deletion = std::async(std::launch::async, [&publisher] { publisher.reset(); });
    ASSERT_EQ(deletion.wait_for(2500ms), std::future_status::ready);
    const auto unregistrations = calls->of("unregisterPublisher");
    ASSERT_EQ(unregistrations.size(), 1u);
    EXPECT_TRUE(unregistrations.front().handlerEmpty);
    EXPECT_EQ(dabo.use_count(), 1);
}

TEST_F(PublisherDelegatorTest, CloseThroughTheDelegatorUnregistersAndWaitsForTheRuntime) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makePublisher(dabo);
    publisher->close();
    const auto unregistrations = calls->of("unregisterPublisher");
    ASSERT_EQ(unregistrations.size(), 1u);
    EXPECT_FALSE(unregistrations.front().handlerEmpty);
    // Deleting a closed publisher makes no further call.
    publisher.reset();
    EXPECT_EQ(calls->of("unregisterPublisher").size(), 1u);
}

TEST_F(PublisherDelegatorTest, GetDaboWorksAfterCloseThroughTheDelegator) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makePublisher(dabo);
    publisher->close();
    EXPECT_EQ(publisher->getDabo().get(), dabo.get());
}

TEST_F(PublisherDelegatorTest, CreateDataEntityAfterCloseIsRefusedAsEntityClosed) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makePublisher(dabo);
    publisher->close();
    try {
        publisher->createDataEntity();
        FAIL() << "a closed publisher made an entity";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "Entity closed");
    }
}

TEST_F(PublisherDelegatorTest, InstancePublisherGoesOnPublishingAfterTheDelegatorIsDeleted) {
    auto dabo = recordedRuntime(calls, lumo::test::settledRegistration());
    auto publisher = makePublisher(dabo);
    auto sample = publisher->createDataEntity();
    fill(*sample);
    auto instancePublisher = publisher->createInstancePublisher(*sample);
    publisher.reset();
    EXPECT_TRUE(calls->of("unregisterPublisher").empty());
    EXPECT_NO_THROW(instancePublisher->publish(*sample, 100ms));
    auto another = instancePublisher->createDataEntity();
    EXPECT_EQ(another->getCentBoxHeight(), 4u);
    // The last reference goes with the instance publisher, and the publisher with it.
    instancePublisher.reset();
    ASSERT_EQ(calls->of("unregisterPublisher").size(), 1u);
    EXPECT_TRUE(calls->of("unregisterPublisher").front().handlerEmpty);
}

TEST_F(PublisherDelegatorTest, CreateInstancePublisherOnAClosedPublisherIsRefusedAndMakesNothing) {
    std::promise<void> runtimeStopped;
    KrinDaboTestHooks hooks;
    hooks.stopped = [&runtimeStopped] { runtimeStopped.set_value(); };
    auto dabo = recordedRuntime(calls, hooks);
    auto publisher = makePublisher(dabo);
    auto sample = publisher->createDataEntity();
    fill(*sample);
    publisher->close();
    CaptureLog log("vexa.dabo.krin.internal");
    try {
        publisher->createInstancePublisher(*sample);
        FAIL() << "a closed publisher made an instance publisher";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "Entity closed");
    }
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Entity closed"});
    // No instance publisher keeps the publisher alive: once the delegator is
    // deleted nothing holds the runtime any more, so it stops.
    publisher.reset();
    dabo.reset();
    EXPECT_EQ(runtimeStopped.get_future().wait_for(10s), std::future_status::ready);
}

TEST_F(PublisherDelegatorTest, DelegatorPassesBothPublishesOn) {
    auto dabo = recordedRuntime(calls);
    auto publisher = makePublisher(dabo);
    auto sample = publisher->createDataEntity();
    fill(*sample);
    publisher->close();
    EXPECT_THROW(publisher->publish(*sample, 100ms), orlo::dabo::IllegalStateException);
    EXPECT_THROW(publisher->publish(1.0, *sample, 100ms), orlo::dabo::IllegalStateException);
}

}  // namespace
