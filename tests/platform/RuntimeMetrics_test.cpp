// What the runtime counts per endpoint and per subscription, and how it
// serves the counts to Prometheus.

#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

#include "KrinTestSupport.h"
#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinDaboTestHooks.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"
#include "tools/common/CurveKeyPair.h"

namespace {

using namespace orlo::dabo::krin::detail;
using lumo::test::frameOf;
using orlo::dabo::krin::EndpointMetrics;
using orlo::dabo::krin::KrinMetrics;
using orlo::dabo::krin::toPrometheusText;
using lumo::test::RecordingHandler;
using lumo::test::freePort;
using lumo::test::sampleFrames;
using lumo::test::sendMessage;

std::string endpointOf(unsigned int port) { return "tcp://127.0.0.1:" + std::to_string(port); }
std::string uriOf(unsigned int port, const std::string& topic) {
    return "krin.ps://127.0.0.1:" + std::to_string(port) + topic;
}

/// Waits until `holds` is true of a snapshot of `dabo`'s counters.
bool waitForMetrics(KrinDabo& dabo, const std::function<bool(const KrinMetrics&)>& holds) {
    const auto deadline = std::chrono::steady_clock::now() + lumo::test::patience;
    while (std::chrono::steady_clock::now() < deadline) {
        if (holds(dabo.metrics())) {
            return true;
        }
        std::this_thread::yield();
    }
    return false;
}

/// A handler that reads each message and reports it not processed.
class FailingHandler : public RecordingHandler {
public:
    bool events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) override {
        RecordingHandler::events(socket, event);
        return event != POLLER_READABLE;
    }
};

/// A runtime that publishes on one endpoint and tells when a subscription
/// to it has been taken.
class MetricsTest : public ::testing::Test {
protected:
    /// Sets `dabo` up, kept by the fixture so that it outlives the dealer.
    void publishingRuntime(orlo::dabo::Dabo::Properties properties = {}) {
        KrinDaboTestHooks hooks;
        hooks.subscriptionObserver = [this](const std::string&, bool subscribed, const std::string&) {
            std::lock_guard<std::mutex> lock(mutex);
            subscriptions += subscribed ? 1 : 0;
            changed.notify_all();
        };
        dabo = KrinDaboTesting::create(properties, hooks);
        dealer = dabo->createDealer();
        publisher = std::make_shared<RecordingHandler>();
        std::weak_ptr<EventsHandler> handler = publisher;
        dabo->registerPublisher(endpointOf(port), getSocketIdentity(*dealer), handler, {});
        EXPECT_TRUE(publisher->waitFor(REGISTERED));
    }

    /// A plain SUB of the endpoint with a queue of four, which the test
    /// leaves unread until it chooses to.
    zmq::socket_t stalledSubscriber(zmq::context_t& context) const {
        zmq::socket_t stalled(context, zmq::socket_type::sub);
        stalled.set(zmq::sockopt::rcvhwm, 4);
        stalled.set(zmq::sockopt::linger, 0);
        stalled.set(zmq::sockopt::subscribe, frame);
        stalled.connect(endpointOf(port));
        return stalled;
    }

    bool waitForSubscriptions(int count) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, lumo::test::patience, [&] { return subscriptions >= count; });
    }

    /// Returns once the runtime's thread has worked off everything before.
    static void flush(KrinDabo& dabo) { ASSERT_TRUE(lumo::test::workedOff(dabo)); }

    const unsigned int port = freePort();
    const std::string frame = frameOf("/counted");
    std::shared_ptr<KrinDabo> dabo;
    std::unique_ptr<zmq::socket_t> dealer;
    std::shared_ptr<RecordingHandler> publisher;
    std::mutex mutex;
    std::condition_variable changed;
    int subscriptions = 0;
};

TEST_F(MetricsTest, SnapshotCountsEveryForwardedAndDeliveredMessageExactly) {
    // Its subscriber connects over TCP, as one of another process would, so
    // that the connection gauges count it.
    publishingRuntime({{"krin.runtime.inProcess", "false"}});
    auto subscriber = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = subscriber;
    dabo->registerSubscriber(uriOf(port, "/counted"), frame, handler);
    ASSERT_TRUE(waitForSubscriptions(1));

    for (unsigned int i = 0; i < 40; ++i) {
        sendMessage(*dealer, sampleFrames(frame, "p", i));
    }
    ASSERT_TRUE(subscriber->waitForMessages(40));
    flush(*dabo);

    const KrinMetrics metrics = dabo->metrics();
    ASSERT_EQ(metrics.endpoints.size(), 1u);
    EXPECT_EQ(metrics.endpoints[0].endpoint, endpointOf(port));
    EXPECT_EQ(metrics.endpoints[0].messagesForwarded, 40u);
    EXPECT_EQ(metrics.endpoints[0].messagesDropped, 0u);
    EXPECT_EQ(metrics.endpoints[0].peersConnected, 1);
    ASSERT_EQ(metrics.subscriptions.size(), 1u);
    EXPECT_EQ(metrics.subscriptions[0].subscription, uriOf(port, "/counted"));
    EXPECT_EQ(metrics.subscriptions[0].messagesDelivered, 40u);
    EXPECT_EQ(metrics.subscriptions[0].messagesFailed, 0u);
    EXPECT_EQ(metrics.subscriptions[0].peersConnected, 1);
}

TEST_F(MetricsTest, MessagesAHandlerCouldNotProcessAreCountedAsFailed) {
    publishingRuntime();
    auto subscriber = std::make_shared<FailingHandler>();
    std::weak_ptr<EventsHandler> handler = subscriber;
    dabo->registerSubscriber(uriOf(port, "/counted"), frame, handler);
    ASSERT_TRUE(waitForSubscriptions(1));

    for (unsigned int i = 0; i < 7; ++i) {
        sendMessage(*dealer, sampleFrames(frame, "p", i));
    }
    ASSERT_TRUE(subscriber->waitForMessages(7));
    flush(*dabo);

    const KrinMetrics metrics = dabo->metrics();
    ASSERT_EQ(metrics.subscriptions.size(), 1u);
    EXPECT_EQ(metrics.subscriptions[0].messagesDelivered, 7u);
    EXPECT_EQ(metrics.subscriptions[0].messagesFailed, 7u);
}

TEST_F(MetricsTest, MessagesAStalledSubscriberMissesAreCountedAsDropped) {
    publishingRuntime({{"krin.runtime.highWaterMark", "4"}});
    zmq::context_t context;
    zmq::socket_t stalled = stalledSubscriber(context);
    ASSERT_TRUE(waitForSubscriptions(1));

    // Far more than the queues and the socket buffers hold, unread.
    constexpr std::uint64_t published = 600;
    for (unsigned int i = 0; i < published; ++i) {
        sendMessage(*dealer, sampleFrames(frame, "p", i, 64 * 1024));
    }
    ASSERT_TRUE(waitForMetrics(*dabo, [&](const KrinMetrics& metrics) {
        return metrics.endpoints[0].messagesForwarded + metrics.endpoints[0].messagesDropped >= published;
    }));
    const std::uint64_t dropped = dabo->metrics().endpoints[0].messagesDropped;
    ASSERT_GT(dropped, 0u);
    EXPECT_EQ(dabo->metrics().endpoints[0].messagesForwarded, published - dropped);

    // Every message the runtime did not count as dropped reaches the
    // subscriber once it reads, and no other.
    stalled.set(zmq::sockopt::rcvtimeo, static_cast<int>(std::chrono::milliseconds(lumo::test::patience).count()));
    std::uint64_t received = 0;
    while (received < published - dropped) {
        zmq::message_t part;
        ASSERT_TRUE(stalled.recv(part)) << "received " << received << " of " << published - dropped;
        while (part.more()) {
            ASSERT_TRUE(stalled.recv(part));
        }
        ++received;
    }
    stalled.set(zmq::sockopt::rcvtimeo, 300);
    zmq::message_t extra;
    EXPECT_FALSE(stalled.recv(extra));
    EXPECT_EQ(received, published - dropped);
}

TEST_F(MetricsTest, AStalledSubscriberHoldsBackNoOtherSubscriberOfTheSameTopic) {
    publishingRuntime({{"krin.runtime.highWaterMark", "4"}});
    zmq::context_t context;
    zmq::socket_t stalled = stalledSubscriber(context);
    zmq::socket_t reading(context, zmq::socket_type::sub);
    reading.set(zmq::sockopt::linger, 0);
    reading.set(zmq::sockopt::subscribe, frame);
    reading.set(zmq::sockopt::rcvtimeo, static_cast<int>(std::chrono::milliseconds(lumo::test::patience).count()));
    reading.connect(endpointOf(port));
    ASSERT_TRUE(waitForSubscriptions(2));

    // One message at a time, each read before the next is sent: the reading
    // subscriber's queue never fills, the stalled one's soon does.
    constexpr unsigned int published = 300;
    for (unsigned int i = 0; i < published; ++i) {
        const auto sent = sampleFrames(frame, "p", i, 64 * 1024);
        sendMessage(*dealer, sent);
        std::vector<std::string> got;
        zmq::message_t part;
        do {
            ASSERT_TRUE(reading.recv(part)) << "the reading subscriber got nothing after message " << i;
            got.push_back(part.to_string());
        } while (part.more());
        ASSERT_EQ(got, sent) << "message " << i;
    }
    ASSERT_TRUE(waitForMetrics(*dabo, [&](const KrinMetrics& metrics) {
        return metrics.endpoints[0].messagesForwarded + metrics.endpoints[0].messagesDropped >= published;
    }));
    // Counted as dropped: the messages the stalled subscriber missed.
    EXPECT_GT(dabo->metrics().endpoints[0].messagesDropped, 0u);
}

TEST(MetricsSubscription, AMessageAboveTheSizeLimitIsCountedAsRefusedAndTheSubscriberConnectedAfresh) {
    const unsigned int port = freePort();
    const std::string frame = frameOf("/limited");
    zmq::context_t context;
    zmq::socket_t peer(context, zmq::socket_type::xpub);
    peer.set(zmq::sockopt::linger, 0);
    peer.set(zmq::sockopt::rcvtimeo, static_cast<int>(std::chrono::milliseconds(lumo::test::patience).count()));
    peer.bind(endpointOf(port));
    auto dabo = KrinDabo::create({{"krin.runtime.maxMessageSize", "1024"}});
    auto subscriber = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = subscriber;
    dabo->registerSubscriber(uriOf(port, "/limited"), frame, handler);
    zmq::message_t subscription;
    ASSERT_TRUE(peer.recv(subscription));

    sendMessage(peer, sampleFrames(frame, "big", 1, 4096));
    // Cut, then connected afresh: the subscription comes again.
    ASSERT_TRUE(peer.recv(subscription));
    ASSERT_TRUE(waitForMetrics(*dabo, [](const KrinMetrics& metrics) {
        return metrics.subscriptions.size() == 1 && metrics.subscriptions[0].messagesRefusedForSize >= 1;
    }));
    EXPECT_EQ(dabo->metrics().subscriptions[0].messagesRefusedForSize, 1u);
    EXPECT_EQ(dabo->metrics().subscriptions[0].messagesDelivered, 0u);
    const std::string page = toPrometheusText(dabo->metrics());
    EXPECT_NE(page.find("krin_subscription_messages_refused_for_size_total{subscription=\"" + uriOf(port, "/limited") +
                        "\"} 1"),
              std::string::npos)
        << page;
}

TEST(MetricsAuthentication, ASubscriberWithAKeyNotAuthorisedIsCountedOnBothSides) {
    const auto server = lumo::tools::newCurveKeyPair();
    const auto admitted = lumo::tools::newCurveKeyPair();
    const auto refused = lumo::tools::newCurveKeyPair();
    auto publishing = KrinDabo::create({{"krin.runtime.curve.serverSecretKey", server.secretKey},
                                        {"krin.runtime.curve.serverPublicKey", server.publicKey},
                                        {"krin.runtime.curve.authorizedKeys", admitted.publicKey}});
    const unsigned int port = freePort();
    auto dealer = publishing->createDealer();
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = publisher;
    publishing->registerPublisher(endpointOf(port), getSocketIdentity(*dealer), handler, {});
    ASSERT_TRUE(publisher->waitFor(REGISTERED));
    auto subscribing = KrinDabo::create({{"krin.runtime.curve.serverPublicKey", server.publicKey},
                                         {"krin.runtime.curve.publicKey", refused.publicKey},
                                         {"krin.runtime.curve.secretKey", refused.secretKey}});
    auto subscriber = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> subscriberHandler = subscriber;
    subscribing->registerSubscriber(uriOf(port, "/refused"), frameOf("/refused"), subscriberHandler);

    EXPECT_TRUE(waitForMetrics(*publishing, [](const KrinMetrics& metrics) {
        return !metrics.endpoints.empty() && metrics.endpoints[0].authenticationRefusals > 0;
    }));
    EXPECT_TRUE(waitForMetrics(*subscribing, [](const KrinMetrics& metrics) {
        return !metrics.subscriptions.empty() && metrics.subscriptions[0].authenticationRefusals > 0;
    }));
    EXPECT_EQ(subscribing->metrics().subscriptions[0].peersConnected, 0);
}

TEST(MetricsPage, IsServedOverHttpAndPassesPromtool) {
    auto dabo = KrinDabo::create({{"krin.runtime.metricsAddress", "127.0.0.1:0"}});
    ASSERT_GT(dabo->metricsPort(), 0);
    const unsigned int port = freePort();
    auto dealer = dabo->createDealer();
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = publisher;
    dabo->registerPublisher(endpointOf(port), getSocketIdentity(*dealer), handler, {});
    ASSERT_TRUE(publisher->waitFor(REGISTERED));
    for (unsigned int i = 0; i < 3; ++i) {
        sendMessage(*dealer, sampleFrames(frameOf("/page"), "p", i));
    }
    auto subscriber = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> subscriberHandler = subscriber;
    dabo->registerSubscriber(uriOf(port, "/page"), frameOf("/page"), subscriberHandler);
    ASSERT_TRUE(subscriber->waitFor(REGISTERED));
    const std::string forwarded = "krin_messages_forwarded_total{endpoint=\"" + endpointOf(port) + "\"} 3\n";
    const std::string subscription = "krin_messages_delivered_total{subscription=\"" + uriOf(port, "/page") + "\"} 0\n";

    httplib::Client client("127.0.0.1", dabo->metricsPort());
    std::string page;
    // The forwarding may still be under way when the first page is asked for.
    for (auto deadline = std::chrono::steady_clock::now() + lumo::test::patience;
         page.find(forwarded) == std::string::npos && std::chrono::steady_clock::now() < deadline;) {
        const auto response = client.Get("/metrics");
        ASSERT_TRUE(response) << httplib::to_string(response.error());
        ASSERT_EQ(response->status, 200);
        EXPECT_EQ(response->get_header_value("Content-Type"), "text/plain; version=0.0.4; charset=utf-8");
        page = response->body;
    }
    EXPECT_NE(page.find(forwarded), std::string::npos) << page;
    EXPECT_NE(page.find(subscription), std::string::npos) << page;
    EXPECT_NE(page.find("# TYPE krin_messages_dropped_total counter\n"), std::string::npos) << page;

    const std::string file = ::testing::TempDir() + "metrics-page.txt";
    std::ofstream(file) << page;
    const std::string command = std::string(PROMTOOL) + " check metrics < " + file + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string output;
    char buffer[256];
    while (fgets(buffer, sizeof buffer, pipe) != nullptr) {
        output += buffer;
    }
    EXPECT_EQ(pclose(pipe), 0) << "promtool (" << PROMTOOL << ") rejected the page:\n" << output << "\n" << page;
}

TEST(MetricsPage, LabelValuesAreEscaped) {
    KrinMetrics metrics;
    metrics.endpoints.push_back(EndpointMetrics{"tcp://a\"b\\c\nd", 0, 5, 0, 0, 0});
    const std::string page = toPrometheusText(metrics);
    EXPECT_NE(page.find("krin_messages_forwarded_total{endpoint=\"tcp://a\\\"b\\\\c\\nd\"} 5\n"), std::string::npos)
        << page;
}

TEST(MetricsPage, AnAddressThatCannotBeBoundFailsCreationNamingTheProperty) {
    auto holder = KrinDabo::create({{"krin.runtime.metricsAddress", "127.0.0.1:0"}});
    // The port of another runtime's page is taken for this one.
    const std::string taken = "127.0.0.1:" + std::to_string(holder->metricsPort());
    for (const std::string& address : {taken, std::string("no-port"), std::string("127.0.0.1:99999")}) {
        try {
            KrinDabo::create({{"krin.runtime.metricsAddress", address}});
            ADD_FAILURE() << address << " was accepted";
        } catch (const orlo::dabo::DaboException& e) {
            EXPECT_NE(std::string(e.what()).find("krin.runtime.metricsAddress"), std::string::npos) << e.what();
            EXPECT_NE(std::string(e.what()).find(address), std::string::npos) << e.what();
        }
    }
}

TEST(MetricsPage, IsOffUnlessAnAddressIsGiven) {
    auto dabo = KrinDabo::create({});
    EXPECT_EQ(dabo->metricsPort(), 0);
}

}  // namespace
