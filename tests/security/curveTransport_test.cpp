// The runtime with CURVE: the publishing runtime's endpoints authenticate
// themselves with a server key pair, and only subscribers that hold its
// public key complete the handshake. Subscribers without it, or with another
// server's key, receive nothing, and their attempts disturb nobody else.

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "HostFactories.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/ps/DataEventFilter.h"
#include "dabo/util/DaboUtil.h"

namespace {

using lumo::security::Runtime;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::KrinDaboTestHooks;
using Sample = lumotypes::Dummy;

struct KeyPair {
    std::string publicKey;
    std::string secretKey;
};

KeyPair newKeyPair() {
    char publicKey[41];
    char secretKey[41];
    EXPECT_EQ(zmq_curve_keypair(publicKey, secretKey), 0);
    return {publicKey, secretKey};
}

/// Subscriptions that reached the publishing runtime's endpoint, by topic
/// frame: only a subscriber that completed the handshake gets this far.
class Joins {
public:
    void record(bool subscribed, const std::string& filter) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            counts[filter] += subscribed ? 1 : -1;
        }
        changed.notify_all();
    }
    bool await(const std::string& frame, int wanted) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(30), [&] { return counts[frame] >= wanted; });
    }
    int count(const std::string& frame) {
        std::lock_guard<std::mutex> lock(mutex);
        return counts[frame];
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::string, int> counts;
};

std::string frameOf(const std::string& path) {
    return orlo::dabo::krin::detail::createFrame0(static_cast<std::uint32_t>(orlo::dabo::util::topicNameHash(path)));
}

/// Publishes numbered samples (TEL_M5 for the last) until a subscriber that
/// receives has seen the last one.
bool publishUntilReceived(orlo::dabo::ps::Publisher<Sample>& publisher, orlo::dabo::ps::Subscriber<Sample>& subscriber) {
    auto sample = publisher.createDataEntity();
    sample->setDummy_param(lumotypes::TEL_GP1_WFS);
    for (int i = 0; i < 20; ++i) {
        publisher.publish(*sample, std::chrono::milliseconds(1000));
    }
    sample->setDummy_param(lumotypes::TEL_M5);
    publisher.publish(*sample, std::chrono::milliseconds(1000));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<Sample>>> events;
        subscriber.readDataEvents(orlo::dabo::ps::DataEventFilter<Sample>(), events, 100, std::chrono::milliseconds(200));
        for (const auto& event : events) {
            if (event->getData()->getDummy_param() == lumotypes::TEL_M5) {
                return true;
            }
        }
    }
    return false;
}

class CurveTransportTest : public ::testing::Test {
protected:
    Runtime publishingRuntime(const KeyPair& server) {
        KrinDaboTestHooks hooks;
        hooks.subscriptionObserver = [this](const std::string&, bool subscribed, const std::string& filter) {
            joins.record(subscribed, filter);
        };
        return KrinDabo::create({{"krin.runtime.curve.serverSecretKey", server.secretKey}}, hooks);
    }

    Joins joins;
    const KeyPair server = newKeyPair();
};

TEST_F(CurveTransportTest, SubscriberHoldingTheServersPublicKeyReceivesAndOthersReceiveNothing) {
    const std::string path = "/security/curve/dummy";
    const std::string port = "28781";
    auto publishing = publishingRuntime(server);
    auto publisher = lumo::security::publisherOf<Sample>("Dummy", "krin.ps://*:" + port + path, {}, publishing);
    const std::string uri = "krin.ps://127.0.0.1:" + port + path;

    // Without keys, and with the key of another server: these connect first.
    auto plain = KrinDabo::create({});
    auto misled = KrinDabo::create({{"krin.runtime.curve.serverPublicKey", newKeyPair().publicKey}});
    auto withoutKeys = lumo::security::subscriberOf<Sample>("Dummy", uri, {}, plain);
    auto withWrongKey = lumo::security::subscriberOf<Sample>("Dummy", uri, {}, misled);
    auto misledStore = lumo::security::mrvSubscriberOf<Sample>("Dummy", uri, {}, misled);

    // With the server's public key and a key pair of its own.
    const KeyPair client = newKeyPair();
    auto trusted = KrinDabo::create({{"krin.runtime.curve.serverPublicKey", server.publicKey},
                                     {"krin.runtime.curve.publicKey", client.publicKey},
                                     {"krin.runtime.curve.secretKey", client.secretKey}});
    auto withKeys = lumo::security::subscriberOf<Sample>("Dummy", uri, {}, trusted);
    ASSERT_TRUE(joins.await(frameOf(path), 1));
    ASSERT_TRUE(publishUntilReceived(*publisher, *withKeys));

    // The others never completed a handshake: their subscriptions never
    // reached the endpoint, and nothing reached them.
    EXPECT_EQ(joins.count(frameOf(path)), 1);
    EXPECT_TRUE(withoutKeys->read(0).empty());
    EXPECT_TRUE(withWrongKey->read(0).empty());
    EXPECT_TRUE(misledStore->readMostRecent(std::chrono::milliseconds(0)).empty());

    withKeys->close();
    withoutKeys->close();
    withWrongKey->close();
    misledStore->close();
    publisher->close();
}

TEST_F(CurveTransportTest, SubscriberWithOnlyTheServersPublicKeyGetsAFreshKeyPairAndReceives) {
    const std::string path = "/security/curve/ephemeral";
    const std::string port = "28782";
    auto publishing = publishingRuntime(server);
    auto publisher = lumo::security::publisherOf<Sample>("Dummy", "krin.ps://*:" + port + path, {}, publishing);
    auto subscribing = KrinDabo::create({{"krin.runtime.curve.serverPublicKey", server.publicKey}});
    auto subscriber =
        lumo::security::subscriberOf<Sample>("Dummy", "krin.ps://127.0.0.1:" + port + path, {}, subscribing);
    ASSERT_TRUE(joins.await(frameOf(path), 1));
    EXPECT_TRUE(publishUntilReceived(*publisher, *subscriber));
    subscriber->close();
    publisher->close();
}

TEST_F(CurveTransportTest, PlainZeroMqSubscriberAtAnAuthenticatingEndpointReceivesNothing) {
    const std::string path = "/security/curve/plainPeer";
    const std::string port = "28783";
    auto publishing = publishingRuntime(server);
    auto publisher = lumo::security::publisherOf<Sample>("Dummy", "krin.ps://*:" + port + path, {}, publishing);
    zmq::context_t context(1);
    zmq::socket_t intruder(context, zmq::socket_type::sub);
    intruder.set(zmq::sockopt::linger, 0);
    intruder.set(zmq::sockopt::subscribe, "");
    intruder.connect("tcp://127.0.0.1:" + port);
    // A subscriber with the key shows when samples are flowing.
    auto trusted = KrinDabo::create({{"krin.runtime.curve.serverPublicKey", server.publicKey}});
    auto subscriber = lumo::security::subscriberOf<Sample>("Dummy", "krin.ps://127.0.0.1:" + port + path, {}, trusted);
    ASSERT_TRUE(joins.await(frameOf(path), 1));
    ASSERT_TRUE(publishUntilReceived(*publisher, *subscriber));
    zmq::message_t frame;
    EXPECT_FALSE(intruder.recv(frame, zmq::recv_flags::dontwait));
    EXPECT_EQ(joins.count(frameOf(path)), 1);
    subscriber->close();
    publisher->close();
}

}  // namespace
