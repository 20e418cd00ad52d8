// The runtime with CURVE: the publishing runtime's endpoints authenticate
// themselves with a server key pair, and only subscribers that hold its
// public key complete the handshake. Subscribers without it, or with another
// server's key, receive nothing, and their attempts disturb nobody else.
// With a list of authorized keys the publishing runtime authenticates the
// subscribers in turn: only the listed ones are admitted, in this process and
// from others, and each refusal is logged with the refused key.

#include <gtest/gtest.h>

#include <iostream>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "ChildProcess.h"
#include "FreePort.h"
#include "HostFactories.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "CapturingAppender.h"
#include "dabo/krin/detail/KrinDaboTestHooks.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/ps/DataEventFilter.h"
#include "dabo/util/DaboUtil.h"

namespace {

using lumo::security::Runtime;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::KrinDaboTesting;
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

/// A subscribing runtime that holds the server's public key and `client`.
Runtime clientRuntime(const std::string& serverPublicKey, const KeyPair& client) {
    return KrinDabo::create({{"krin.runtime.curve.serverPublicKey", serverPublicKey},
                             {"krin.runtime.curve.publicKey", client.publicKey},
                             {"krin.runtime.curve.secretKey", client.secretKey}});
}

class CurveTransportTest : public ::testing::Test {
protected:
    /// `authorizedKeys`: the property's text, or "" to leave it out.
    Runtime publishingRuntime(const KeyPair& server, const std::string& authorizedKeys = "") {
        KrinDaboTestHooks hooks;
        hooks.subscriptionObserver = [this](const std::string&, bool subscribed, const std::string& filter) {
            joins.record(subscribed, filter);
        };
        orlo::dabo::Dabo::Properties properties{{"krin.runtime.curve.serverSecretKey", server.secretKey}};
        if (!authorizedKeys.empty()) {
            properties["krin.runtime.curve.authorizedKeys"] = authorizedKeys;
        }
        return KrinDaboTesting::create(properties, hooks);
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

TEST_F(CurveTransportTest, WrongServerKeyIsLoggedOnBothSidesWithThePeersAddress) {
    lumo::test::CaptureLog log("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    const std::string path = "/security/curve/wrongKey";
    const std::string port = std::to_string(lumo::test::freePort());
    auto publishing = publishingRuntime(server);
    auto publisher = lumo::security::publisherOf<Sample>("Dummy", "krin.ps://*:" + port + path, {}, publishing);
    auto misled = KrinDabo::create({{"krin.runtime.curve.serverPublicKey", newKeyPair().publicKey}});
    auto withWrongKey =
        lumo::security::subscriberOf<Sample>("Dummy", "krin.ps://127.0.0.1:" + port + path, {}, misled);

    // The refusing side names the peer; the refused side says its handshake failed.
    EXPECT_TRUE(log.await(log4cplus::WARN_LOG_LEVEL, "Handshake of a subscriber from 127.0.0.1:"));
    EXPECT_TRUE(log.await(log4cplus::WARN_LOG_LEVEL, "at tcp://*:" + port + " failed: "));
    EXPECT_TRUE(log.await(log4cplus::WARN_LOG_LEVEL, "Handshake with tcp://127.0.0.1:" + port + " failed: "));
    EXPECT_EQ(joins.count(frameOf(path)), 0);
    for (const std::string& line : log.warnings()) {
        std::cout << "[curve] " << line << std::endl;
    }
    withWrongKey->close();
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

std::string refusalOf(const KeyPair& client) {
    return "Refused subscriber with CURVE public key " + client.publicKey +
           " from 127.0.0.1: the key is not in krin.runtime.curve.authorizedKeys";
}

TEST_F(CurveTransportTest, SubscribersWhoseKeysAreListedAreAdmittedAndReceive) {
    const std::string path = "/security/curve/listed";
    const std::string port = std::to_string(lumo::test::freePort());
    const KeyPair first = newKeyPair();
    const KeyPair second = newKeyPair();
    // Commas, white space and both between keys.
    auto publishing = publishingRuntime(server, " " + first.publicKey + ",\n\t" + second.publicKey + " ");
    auto publisher = lumo::security::publisherOf<Sample>("Dummy", "krin.ps://*:" + port + path, {}, publishing);
    const std::string uri = "krin.ps://127.0.0.1:" + port + path;
    auto firstRuntime = clientRuntime(server.publicKey, first);
    auto secondRuntime = clientRuntime(server.publicKey, second);
    auto firstSubscriber = lumo::security::subscriberOf<Sample>("Dummy", uri, {}, firstRuntime);
    auto secondSubscriber = lumo::security::subscriberOf<Sample>("Dummy", uri, {}, secondRuntime);
    ASSERT_TRUE(joins.await(frameOf(path), 2));
    EXPECT_TRUE(publishUntilReceived(*publisher, *firstSubscriber));
    EXPECT_TRUE(publishUntilReceived(*publisher, *secondSubscriber));
    firstSubscriber->close();
    secondSubscriber->close();
    publisher->close();
}

TEST_F(CurveTransportTest, UnlistedSubscriberWithTheServersKeyIsRefusedWithAWarningWhileAListedOneGoesOnReceiving) {
    lumo::test::CaptureLog log("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    const std::string path = "/security/curve/unlisted";
    const std::string port = std::to_string(lumo::test::freePort());
    const KeyPair listed = newKeyPair();
    const KeyPair unlisted = newKeyPair();
    auto publishing = publishingRuntime(server, listed.publicKey);
    auto publisher = lumo::security::publisherOf<Sample>("Dummy", "krin.ps://*:" + port + path, {}, publishing);
    const std::string uri = "krin.ps://127.0.0.1:" + port + path;

    auto listedRuntime = clientRuntime(server.publicKey, listed);
    auto listedSubscriber = lumo::security::subscriberOf<Sample>("Dummy", uri, {}, listedRuntime);
    ASSERT_TRUE(joins.await(frameOf(path), 1));
    ASSERT_TRUE(publishUntilReceived(*publisher, *listedSubscriber));

    // It holds the server's public key, so the handshake gets as far as the
    // check of its own key.
    auto unlistedRuntime = clientRuntime(server.publicKey, unlisted);
    auto unlistedSubscriber = lumo::security::subscriberOf<Sample>("Dummy", uri, {}, unlistedRuntime);
    auto unlistedStore = lumo::security::mrvSubscriberOf<Sample>("Dummy", uri, {}, unlistedRuntime);
    // Its two sockets, one for each subscriber, are refused one by one.
    ASSERT_TRUE(log.await(log4cplus::WARN_LOG_LEVEL, unlisted.publicKey, 2));

    EXPECT_TRUE(publishUntilReceived(*publisher, *listedSubscriber));
    EXPECT_EQ(joins.count(frameOf(path)), 1);
    EXPECT_TRUE(unlistedSubscriber->read(0).empty());
    EXPECT_TRUE(unlistedStore->readMostRecent(std::chrono::milliseconds(0)).empty());
    // One line per refused connection: ZeroMQ does not try again after a refusal.
    EXPECT_EQ(log.messagesContaining(log4cplus::WARN_LOG_LEVEL, unlisted.publicKey),
              (std::vector<std::string>{refusalOf(unlisted), refusalOf(unlisted)}));
    EXPECT_TRUE(log.messagesContaining(log4cplus::WARN_LOG_LEVEL, listed.publicKey).empty());

    unlistedSubscriber->close();
    unlistedStore->close();
    listedSubscriber->close();
    publisher->close();
}

TEST_F(CurveTransportTest, SubscriberWithAFreshKeyPairIsRefusedWhereKeysAreListed) {
    lumo::test::CaptureLog log("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    const std::string path = "/security/curve/fresh";
    const std::string port = std::to_string(lumo::test::freePort());
    const KeyPair listed = newKeyPair();
    auto publishing = publishingRuntime(server, listed.publicKey);
    auto publisher = lumo::security::publisherOf<Sample>("Dummy", "krin.ps://*:" + port + path, {}, publishing);
    const std::string uri = "krin.ps://127.0.0.1:" + port + path;
    auto freshRuntime = KrinDabo::create({{"krin.runtime.curve.serverPublicKey", server.publicKey}});
    auto fresh = lumo::security::subscriberOf<Sample>("Dummy", uri, {}, freshRuntime);
    ASSERT_TRUE(log.await(log4cplus::WARN_LOG_LEVEL, "Refused subscriber with CURVE public key "));

    auto listedRuntime = clientRuntime(server.publicKey, listed);
    auto listedSubscriber = lumo::security::subscriberOf<Sample>("Dummy", uri, {}, listedRuntime);
    ASSERT_TRUE(joins.await(frameOf(path), 1));
    ASSERT_TRUE(publishUntilReceived(*publisher, *listedSubscriber));
    EXPECT_TRUE(fresh->read(0).empty());
    EXPECT_EQ(joins.count(frameOf(path)), 1);
    fresh->close();
    listedSubscriber->close();
    publisher->close();
}

TEST_F(CurveTransportTest, OnlyTheListedSubscriberProcessReceivesFromAnAuthenticatingProcess) {
    lumo::test::CaptureLog log("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    const std::string path = "/security/curve/processes";
    const std::string port = std::to_string(lumo::test::freePort());
    const KeyPair listed = newKeyPair();
    const KeyPair unlisted = newKeyPair();
    auto publishing = publishingRuntime(server, listed.publicKey);
    auto publisher = lumo::security::publisherOf<Sample>("Dummy", "krin.ps://*:" + port + path, {}, publishing);
    const std::string uri = "krin.ps://127.0.0.1:" + port + path;

    lumo::test::ChildProcess listedProcess(
        {LUMO_CURVE_SUBSCRIBER_PATH, LUMOTYPES_KRIN_PLUGIN_PATH, uri, server.publicKey, listed.publicKey, listed.secretKey});
    lumo::test::ChildProcess unlistedProcess({LUMO_CURVE_SUBSCRIBER_PATH, LUMOTYPES_KRIN_PLUGIN_PATH, uri,
                                              server.publicKey, unlisted.publicKey, unlisted.secretKey});
    ASSERT_EQ(listedProcess.awaitLine("registered"), "registered");
    ASSERT_EQ(unlistedProcess.awaitLine("registered"), "registered");
    ASSERT_TRUE(joins.await(frameOf(path), 1));
    ASSERT_TRUE(log.await(log4cplus::WARN_LOG_LEVEL, unlisted.publicKey));

    // Samples go out until the listed process has one.
    auto sample = publisher->createDataEntity();
    sample->setDummy_param(lumotypes::TEL_M5);
    bool received = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!received && std::chrono::steady_clock::now() < deadline) {
        publisher->publish(*sample, std::chrono::milliseconds(1000));
        received = listedProcess.readLine(std::chrono::milliseconds(100)) == "received";
    }
    ASSERT_TRUE(received);
    ASSERT_TRUE(unlistedProcess.send("report"));
    EXPECT_EQ(unlistedProcess.awaitLine("samples"), "samples 0");
    EXPECT_EQ(joins.count(frameOf(path)), 1);
    EXPECT_EQ(log.messagesContaining(log4cplus::WARN_LOG_LEVEL, unlisted.publicKey),
              std::vector<std::string>{refusalOf(unlisted)});

    ASSERT_TRUE(listedProcess.send("quit"));
    ASSERT_TRUE(unlistedProcess.send("quit"));
    EXPECT_EQ(listedProcess.wait(), 0);
    EXPECT_EQ(unlistedProcess.wait(), 0);
    publisher->close();
}

}  // namespace
