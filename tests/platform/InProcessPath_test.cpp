// Subscribers of an endpoint that their own runtime binds are connected to it
// in process; subscribers in other processes keep TCP. Neither kind receives
// anything other than what it would receive over TCP.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "KrinTestSupport.h"
#include "dabo/krin/KrinMetrics.h"
#include "dabo/krin/detail/KrinDaboTestHooks.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"

namespace {

using namespace orlo::dabo::krin::detail;
using lumo::test::frameOf;
using lumo::test::ChildProcess;
using lumo::test::Message;
using lumo::test::RecordingHandler;
using lumo::test::freePort;
using lumo::test::sampleFrames;
using lumo::test::sendMessage;
using orlo::dabo::krin::KrinMetrics;

constexpr unsigned int sampleCount = 500;
const std::string topic = "/in-process";

std::vector<Message> samplesFrom(const std::string& sender, unsigned int count, std::size_t payloadSize = 1024) {
    std::vector<Message> samples;
    for (unsigned int i = 0; i < count; ++i) {
        samples.push_back(sampleFrames(frameOf(topic), sender, i, payloadSize));
    }
    return samples;
}

/// The lines a krin_test_subscriber prints for `count` intact samples of `sender`.
std::vector<std::string> intactLinesFrom(const std::string& sender, unsigned int count) {
    std::vector<std::string> lines;
    for (unsigned int i = 0; i < count; ++i) {
        lines.push_back(sender + "#" + std::to_string(i) + " intact");
    }
    return lines;
}

class InProcessPathTest : public ::testing::Test {
protected:
    std::string endpoint() const { return "tcp://127.0.0.1:" + std::to_string(port); }
    std::string uri() const { return "krin.ps://127.0.0.1:" + std::to_string(port) + topic; }

    /// Sets `dabo` up, a runtime that tells when its endpoint sees a subscription.
    void createRuntime(orlo::dabo::Dabo::Properties properties = {}) {
        KrinDaboTestHooks hooks;
        hooks.subscriptionObserver = subscriptions.observer();
        hooks.stopped = [this] { runtimeStopped = true; };
        dabo = KrinDaboTesting::create(properties, hooks);
    }

    void registerPublisher() {
        dealer = dabo->createDealer();
        publisher = std::make_shared<RecordingHandler>();
        std::weak_ptr<EventsHandler> handler = publisher;
        dabo->registerPublisher(endpoint(), getSocketIdentity(*dealer), handler, {});
        ASSERT_TRUE(publisher->waitFor(REGISTERED));
    }

    void unregisterPublisher() {
        std::weak_ptr<EventsHandler> handler = publisher;
        dabo->unregisterPublisher(endpoint(), getSocketIdentity(*dealer), handler);
        ASSERT_TRUE(publisher->waitFor(UNREGISTERED));
    }

    std::shared_ptr<RecordingHandler> subscribe() {
        auto subscriber = std::make_shared<RecordingHandler>();
        std::weak_ptr<EventsHandler> handler = subscriber;
        dabo->registerSubscriber(uri(), frameOf(topic), handler);
        EXPECT_TRUE(subscriber->waitFor(REGISTERED));
        return subscriber;
    }

    /// Waits until the endpoint has seen `count` subscriptions more than unsubscriptions.
    bool waitForSubscriptions(int count) { return subscriptions.waitFor(count); }

    void publish(const std::vector<Message>& samples) {
        for (const Message& sample : samples) {
            sendMessage(*dealer, sample);
        }
    }

    /// The runtime's counters once its thread has worked off everything before.
    KrinMetrics settledMetrics() {
        EXPECT_TRUE(lumo::test::workedOff(*dabo));
        return dabo->metrics();
    }

    /// A subscriber in another process; returns once it is registered.
    std::unique_ptr<ChildProcess> remoteSubscriber(unsigned int count) {
        auto child = std::make_unique<ChildProcess>(
            std::vector<std::string>{KRIN_TEST_SUBSCRIBER, uri(), topic, std::to_string(count)});
        EXPECT_EQ(child->readLine(), "READY");
        return child;
    }

    /// The sample lines a remote subscriber printed before "DONE".
    static std::vector<std::string> linesOf(ChildProcess& child) {
        std::vector<std::string> lines;
        for (std::string line = child.readLine(); !line.empty() && line != "DONE"; line = child.readLine()) {
            lines.push_back(line);
        }
        return lines;
    }

    const unsigned int port = freePort();
    lumo::test::SubscriptionCount subscriptions;
    std::shared_ptr<KrinDabo> dabo;
    std::unique_ptr<zmq::socket_t> dealer;
    std::shared_ptr<RecordingHandler> publisher;
    std::atomic<bool> runtimeStopped{false};
};

TEST_F(InProcessPathTest, CoLocatedAndRemoteSubscribersOfOneEndpointEachReceiveEverySampleInOrder) {
    createRuntime();
    registerPublisher();
    auto coLocated = subscribe();
    auto remote = remoteSubscriber(sampleCount);
    ASSERT_TRUE(waitForSubscriptions(2));

    publish(samplesFrom("pub", sampleCount));

    ASSERT_TRUE(coLocated->waitForMessages(sampleCount));
    EXPECT_EQ(coLocated->messages(), samplesFrom("pub", sampleCount));
    EXPECT_EQ(linesOf(*remote), intactLinesFrom("pub", sampleCount));
    EXPECT_EQ(remote->wait(), 0);
    // The subscriber of this process took the in-process path, the other TCP.
    const KrinMetrics metrics = settledMetrics();
    ASSERT_EQ(metrics.endpoints.size(), 1u);
    EXPECT_EQ(metrics.endpoints[0].inProcessSubscribers, 1);
    EXPECT_EQ(metrics.endpoints[0].messagesForwarded, sampleCount);
    ASSERT_EQ(metrics.subscriptions.size(), 1u);
    EXPECT_EQ(metrics.subscriptions[0].inProcessConnections, 1);
    EXPECT_EQ(metrics.subscriptions[0].peersConnected, 0);
}

TEST_F(InProcessPathTest, ASubscriberRegisteredBeforeItsPublisherMovesInProcessAndReceivesEverySample) {
    createRuntime();
    auto early = subscribe();
    registerPublisher();
    ASSERT_TRUE(waitForSubscriptions(1));
    EXPECT_EQ(settledMetrics().subscriptions.at(0).inProcessConnections, 1);

    publish(samplesFrom("pub", sampleCount));

    ASSERT_TRUE(early->waitForMessages(sampleCount));
    EXPECT_EQ(early->messages(), samplesFrom("pub", sampleCount));
}

TEST_F(InProcessPathTest, WhenItsEndpointIsReleasedASubscriberGoesBackToTcpAndHearsAPublisherOfAnotherProcess) {
    createRuntime();
    registerPublisher();
    auto subscriber = subscribe();
    ASSERT_TRUE(waitForSubscriptions(1));
    publish(samplesFrom("pub", 10));
    ASSERT_TRUE(subscriber->waitForMessages(10));
    unregisterPublisher();
    EXPECT_EQ(settledMetrics().subscriptions.at(0).inProcessConnections, 0);

    // krin_test_peer publishes "pub0#N" samples once it sees one subscription.
    ChildProcess peer({KRIN_TEST_PEER, std::to_string(sampleCount), "1", endpoint() + "|" + topic});
    ASSERT_EQ(peer.readLine(), "READY");
    ASSERT_EQ(peer.readLine(), "SENT");

    ASSERT_TRUE(subscriber->waitForMessages(10 + sampleCount));
    std::vector<Message> expected = samplesFrom("pub", 10);
    const std::vector<Message> fromPeer = samplesFrom("pub0", sampleCount);
    expected.insert(expected.end(), fromPeer.begin(), fromPeer.end());
    EXPECT_EQ(subscriber->messages(), expected);
    EXPECT_EQ(settledMetrics().subscriptions.at(0).peersConnected, 1);
}

TEST_F(InProcessPathTest, WithThePathTurnedOffACoLocatedSubscriberUsesTcpAndReceivesTheSame) {
    createRuntime({{"krin.runtime.inProcess", "false"}});
    registerPublisher();
    auto subscriber = subscribe();
    ASSERT_TRUE(waitForSubscriptions(1));

    publish(samplesFrom("pub", sampleCount));

    ASSERT_TRUE(subscriber->waitForMessages(sampleCount));
    EXPECT_EQ(subscriber->messages(), samplesFrom("pub", sampleCount));
    const KrinMetrics metrics = settledMetrics();
    EXPECT_EQ(metrics.subscriptions.at(0).inProcessConnections, 0);
    EXPECT_EQ(metrics.subscriptions.at(0).peersConnected, 1);
}

TEST_F(InProcessPathTest, AMessageAboveTheSizeLimitIsRefusedInProcessTooAndCountedWhileTheOthersArrive) {
    createRuntime({{"krin.runtime.maxMessageSize", "2000"}});
    registerPublisher();
    auto subscriber = subscribe();
    ASSERT_TRUE(waitForSubscriptions(1));

    const Message before = sampleFrames(frameOf(topic), "pub", 0, 1024);
    const Message tooLarge = sampleFrames(frameOf(topic), "pub", 1, 4096);
    const Message after = sampleFrames(frameOf(topic), "pub", 2, 1024);
    publish({before, tooLarge, after});

    ASSERT_TRUE(subscriber->waitForMessages(2));
    const KrinMetrics metrics = settledMetrics();
    EXPECT_EQ(subscriber->messages(), (std::vector<Message>{before, after}));
    EXPECT_EQ(metrics.subscriptions.at(0).messagesRefusedForSize, 1u);
    EXPECT_EQ(metrics.subscriptions.at(0).inProcessConnections, 1);
}

TEST_F(InProcessPathTest, ARuntimeReleasedWithBothKindsOfSubscribersRegisteredClosesEverything) {
    createRuntime();
    registerPublisher();
    auto coLocated = subscribe();
    // A subscriber of this runtime on TCP: an endpoint that another process binds.
    const unsigned int otherPort = freePort();
    const std::string otherEndpoint = "tcp://127.0.0.1:" + std::to_string(otherPort);
    ChildProcess peer({KRIN_TEST_PEER, "20", "1", otherEndpoint + "|" + topic});
    ASSERT_EQ(peer.readLine(), "READY");
    auto overTcp = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> tcpHandler = overTcp;
    dabo->registerSubscriber("krin.ps://127.0.0.1:" + std::to_string(otherPort) + topic, frameOf(topic), tcpHandler);
    ASSERT_TRUE(overTcp->waitFor(REGISTERED));
    ASSERT_EQ(peer.readLine(), "SENT");
    ASSERT_TRUE(waitForSubscriptions(1));
    publish(samplesFrom("pub", 20));
    ASSERT_TRUE(coLocated->waitForMessages(20));
    ASSERT_TRUE(overTcp->waitForMessages(20));
    const KrinMetrics metrics = settledMetrics();
    EXPECT_EQ(metrics.endpoints.at(0).inProcessSubscribers, 1);

    // The runtime's thread closes every socket, in process or not, and ends;
    // nothing reaches either handler afterwards.
    dealer.reset();
    dabo.reset();
    EXPECT_TRUE(runtimeStopped);
    EXPECT_EQ(coLocated->messages().size(), 20u);
    EXPECT_EQ(overTcp->messages().size(), 20u);
}

}  // namespace
