// Hostile subscribers at a publishing runtime's endpoint, each a process of
// its own speaking plain ZeroMQ: whatever they send, the publisher's memory
// stays bounded, they are named in the log, and a well-behaved subscriber of
// the same endpoint loses nothing.

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CapturingAppender.h"
#include "ChildProcess.h"
#include "FreePort.h"
#include "HostFactories.h"
#include "RawConnections.h"
#include "SampleIds.h"
#include "dabo/krin/detail/KrinDaboTestHooks.h"

namespace {

using lumo::security::Runtime;
using lumo::test::ChildProcess;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::KrinDaboTesting;
using orlo::dabo::krin::detail::KrinDaboTestHooks;
using Sample = lumotypes::HokuTopicIn;

/// The most subscriptions one peer address holds at an endpoint.
constexpr int subscriptionsPerPeer = 1024;
/// Growth of the publisher's resident memory that an attack may cause: a
/// few MB, against hundreds without a bound.
constexpr long toleratedGrowthKiB = 4 * 1024;

class HostileSubscriberTest : public ::testing::Test {
protected:
    void SetUp() override {
        KrinDaboTestHooks hooks;
        hooks.subscriptionObserver = [this](const std::string&, bool subscribed, const std::string&) {
            {
                std::lock_guard<std::mutex> lock(joinsMutex);
                joins += subscribed ? 1 : -1;
            }
            joinsChanged.notify_all();
        };
        publishing = KrinDaboTesting::create(publishingProperties(), hooks);
        publisher = lumo::security::publisherOf<Sample>("HokuTopicIn", uri(), {}, publishing);
        subscribing = KrinDabo::create({});
        subscriber = lumo::security::subscriberOf<Sample>("HokuTopicIn", uri(), {}, subscribing);
        ASSERT_TRUE(awaitJoins(1));
    }

    virtual orlo::dabo::Dabo::Properties publishingProperties() const { return {}; }

    void TearDown() override {
        subscriber->close();
        publisher->close();
    }

    std::string endpoint() const { return "tcp://127.0.0.1:" + port; }
    std::string uri() const { return "krin.ps://127.0.0.1:" + port + "/security/hostile"; }

    bool awaitJoins(int atLeast) {
        std::unique_lock<std::mutex> lock(joinsMutex);
        return joinsChanged.wait_for(lock, std::chrono::seconds(30), [&] { return joins >= atLeast; });
    }
    int currentJoins() {
        std::lock_guard<std::mutex> lock(joinsMutex);
        return joins;
    }

    std::unique_ptr<ChildProcess> attacker(const std::vector<std::string>& arguments) {
        std::vector<std::string> command{LUMO_HOSTILE_SUBSCRIBER_PATH, endpoint()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        auto child = std::make_unique<ChildProcess>(command);
        EXPECT_EQ(child->awaitLine("ready"), "ready");
        return child;
    }

    /// Publishes `count` samples numbered from `first` and reads until each
    /// has arrived; false if any is missing after the wait.
    bool everySampleArrives(std::uint32_t first, std::uint32_t count) {
        lumo::security::publishSampleIds(*publisher, first, count);
        return lumo::security::everySampleIdArrives(*subscriber, first, count);
    }

    lumo::test::CaptureLog log{"vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL};
    const std::string port = std::to_string(lumo::test::freePort());
    std::mutex joinsMutex;
    std::condition_variable joinsChanged;
    int joins = 0;
    Runtime publishing;
    Runtime subscribing;
    std::unique_ptr<orlo::dabo::ps::Publisher<Sample>> publisher;
    std::unique_ptr<orlo::dabo::ps::Subscriber<Sample>> subscriber;
};

TEST_F(HostileSubscriberTest, TenMebibyteSubscriptionCutsOffItsPeerWithoutCostingThePublisherMemory) {
    ASSERT_TRUE(everySampleArrives(0, 500));
    const long before = lumo::test::residentKiB();

    auto hostile = attacker({"huge", std::to_string(10 * 1024 * 1024)});
    ASSERT_TRUE(log.await(log4cplus::WARN_LOG_LEVEL, "at " + endpoint() +
                                                         " dropped: a subscription above 512 bytes, or the peer went away"));
    EXPECT_TRUE(everySampleArrives(500, 500));

    const long growth = lumo::test::residentKiB() - before;
    std::cout << "[hostile] 10 MiB subscription: publisher resident memory grew by " << growth << " KiB" << std::endl;
    EXPECT_LT(growth, toleratedGrowthKiB);
    EXPECT_EQ(currentJoins(), 1);
}

TEST_F(HostileSubscriberTest, TwoHundredSubscriptionsOfSixtyKibibytesCostThePublisherNoMemory) {
    ASSERT_TRUE(everySampleArrives(0, 500));
    const long before = lumo::test::residentKiB();

    auto hostile = attacker({"many", "200", std::to_string(60 * 1024)});
    ASSERT_TRUE(log.await(log4cplus::WARN_LOG_LEVEL, "at " + endpoint() + " dropped: a subscription above 512 bytes"));
    EXPECT_TRUE(everySampleArrives(500, 500));

    const long growth = lumo::test::residentKiB() - before;
    std::cout << "[hostile] 200 x 60 KiB subscriptions: publisher resident memory grew by " << growth << " KiB"
              << std::endl;
    EXPECT_LT(growth, toleratedGrowthKiB);
    EXPECT_EQ(currentJoins(), 1);
}

TEST_F(HostileSubscriberTest, SubscriptionLongerThanATopicFrameIsRefusedNamingThePeer) {
    auto hostile = attacker({"many", "3", "100"});
    ASSERT_TRUE(log.await(log4cplus::WARN_LOG_LEVEL, "Refused a subscription of 100 bytes, longer than a topic frame "
                                                     "(4 bytes) from 127.0.0.1 at " +
                                                         endpoint()));
    EXPECT_TRUE(everySampleArrives(0, 500));
    EXPECT_EQ(currentJoins(), 1);
    // One line for the peer's three refusals: the others are held back.
    EXPECT_EQ(log.messagesContaining(log4cplus::WARN_LOG_LEVEL, "Refused a subscription").size(), 1u);
}

TEST_F(HostileSubscriberTest, PeerAddressHoldsBoundedSubscriptionsAndGetsThemBackWhenItsPeersGo) {
    auto hostile = attacker({"many", "3000", "4"});
    ASSERT_TRUE(log.await(log4cplus::WARN_LOG_LEVEL,
                          "Refused more than " + std::to_string(subscriptionsPerPeer) + " subscriptions from 127.0.0.1"));
    // The well-behaved subscriber's one and the attacker's share the bound.
    EXPECT_EQ(currentJoins(), subscriptionsPerPeer);
    EXPECT_TRUE(everySampleArrives(0, 500));

    hostile->kill(SIGKILL);
    {
        std::unique_lock<std::mutex> lock(joinsMutex);
        ASSERT_TRUE(joinsChanged.wait_for(lock, std::chrono::seconds(30), [&] { return joins == 1; }));
    }
    // Given back: another subscriber from the same address is taken.
    const Runtime another = KrinDabo::create({});
    auto late = lumo::security::subscriberOf<Sample>("HokuTopicIn", uri(), {}, another);
    EXPECT_TRUE(awaitJoins(2));
    late->close();
}

TEST_F(HostileSubscriberTest, IdleConnectionsCostTheirBoundInPublisherMemory) {
    constexpr int peers = 200;
    ASSERT_TRUE(everySampleArrives(0, 500));
    const long before = lumo::test::residentKiB();

    auto idle = attacker({"idle", std::to_string(peers)});
    ASSERT_TRUE(awaitJoins(1 + peers));
    EXPECT_TRUE(everySampleArrives(500, 500));

    const long perPeerBytes = (lumo::test::residentKiB() - before) * 1024 / peers;
    std::cout << "[hostile] " << peers << " idle subscribers: " << perPeerBytes
              << " bytes of publisher resident memory per connected peer" << std::endl;
    EXPECT_LT(perPeerBytes, 64 * 1024);
}

/// The same endpoint with a bound on its connections.
class PeerLimitTest : public HostileSubscriberTest {
protected:
    static constexpr int maxPeers = 10;

    orlo::dabo::Dabo::Properties publishingProperties() const override {
        return {{"krin.runtime.maxPeersPerEndpoint", std::to_string(maxPeers)}};
    }
};

constexpr int PeerLimitTest::maxPeers;

TEST_F(PeerLimitTest, ConnectionsBeyondTheLimitAreCutWhileTheSubscriberGoesOnReceivingAndALateOneIsTakenOnceTheyGo) {
    constexpr int flood = 40;
    // The well-behaved subscriber holds one of the places.
    constexpr int kept = maxPeers - 1;
    lumo::security::RawConnections idle(std::stoi(port), flood);
    ASSERT_EQ(idle.opened(), flood);
    EXPECT_EQ(idle.awaitClosedByPeer(flood - kept, std::chrono::seconds(30)), flood - kept);
    EXPECT_TRUE(everySampleArrives(0, 500));

    // Said once, in full; the other refusals are held back.
    const auto refusals = log.messagesContaining(log4cplus::WARN_LOG_LEVEL, "the most krin.runtime.maxPeersPerEndpoint");
    ASSERT_EQ(refusals.size(), 1u);
    EXPECT_NE(refusals[0].find("Refused a subscriber from 127.0.0.1:"), std::string::npos) << refusals[0];
    EXPECT_NE(refusals[0].find("at " + endpoint() + ": it holds 10 connections"), std::string::npos) << refusals[0];
    // A connection cut for the limit is not reported again as dropped.
    EXPECT_TRUE(log.messagesContaining(log4cplus::WARN_LOG_LEVEL, " dropped: ").empty());
    EXPECT_EQ(idle.closedByPeer(), flood - kept);

    idle.closeAll();
    const Runtime another = KrinDabo::create({});
    auto late = lumo::security::subscriberOf<Sample>("HokuTopicIn", uri(), {}, another);
    EXPECT_TRUE(awaitJoins(2));
    late->close();
}

}  // namespace
