// A hostile peer that sends a message larger than the runtime allows: ZeroMQ
// refuses it as soon as its size is announced, before storing it, and drops
// the connection to that peer. The message never reaches a subscriber and
// cannot exhaust memory; the runtime says so at ERROR, connects the
// subscriber afresh, and its later messages that fit arrive. The runtime's
// other subscribers, and new subscriptions to the same peer, are not
// disturbed. The same holds for a hostile subscriber at a publishing
// runtime's endpoint.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "FreePort.h"
#include "HostFactories.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "CapturingAppender.h"
#include "WirePeer.h"
#include "dabo/krin/detail/KrinDaboTestHooks.h"
#include "dabo/ps/DataEventFilter.h"

namespace {

using lumo::security::Runtime;
using lumo::test::WirePeer;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::KrinDaboTesting;
using orlo::dabo::krin::detail::KrinDaboTestHooks;
using Sample = lumotypes::HokuTopicIn;

constexpr std::uint32_t hokuTopicInTypeHash = 0xE043B579u;
constexpr long limitBytes = 4096;

std::string varint(std::uint64_t value) {
    std::string bytes;
    while (value >= 0x80) {
        bytes.push_back(static_cast<char>((value & 0x7f) | 0x80));
        value >>= 7;
    }
    bytes.push_back(static_cast<char>(value));
    return bytes;
}

/// A complete HokuTopicIn payload, written by the wire rules, with `floats`
/// values in its array field.
std::string hokuPayload(std::uint32_t sampleId, std::size_t floats) {
    std::string bytes("\x08\x01\x10\x00\x19", 5);
    const double timestamp = 1.0;
    bytes.append(reinterpret_cast<const char*>(&timestamp), sizeof timestamp);
    bytes.push_back('\x25');
    bytes.append(reinterpret_cast<const char*>(&sampleId), sizeof sampleId);
    bytes.push_back('\x32');
    bytes += varint(floats * 4);
    bytes.append(floats * 4, '\0');
    return bytes;
}

std::vector<std::string> message(const std::string& path, std::uint32_t sampleId, std::size_t floats) {
    return {lumo::test::topicFrameOf(path), lumo::test::headerFrame(hokuTopicInTypeHash, lumo::test::nowAsSourceTimestamp()),
            hokuPayload(sampleId, floats)};
}

/// Sends `sampleId` again and again until it arrives; the ids of every
/// sample read meanwhile are appended to `seen`.
bool sendUntilReceived(WirePeer& peer, const std::string& path, orlo::dabo::ps::Subscriber<Sample>& subscriber,
                       std::uint32_t sampleId, std::vector<std::uint32_t>& seen) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        peer.send(message(path, sampleId, 4));
        std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<Sample>>> events;
        subscriber.readDataEvents(orlo::dabo::ps::DataEventFilter<Sample>(), events, 100, std::chrono::milliseconds(100));
        bool arrived = false;
        for (const auto& event : events) {
            seen.push_back(event->getData()->getSample_id());
            arrived = arrived || event->getData()->getSample_id() == sampleId;
        }
        if (arrived) {
            return true;
        }
    }
    return false;
}

TEST(MaxMessageSizeTest, OversizeMessageOfAHostilePeerIsRefusedAndCutsOnlyThatConnection) {
    const Runtime dabo = KrinDabo::create({{"krin.runtime.maxMessageSize", std::to_string(limitBytes)}});
    WirePeer hostile;
    WirePeer neighbour;
    const std::string path = "/security/oversize";
    auto subscriber = lumo::security::subscriberOf<Sample>("HokuTopicIn", hostile.uri(path), {}, dabo);
    auto bystander = lumo::security::subscriberOf<Sample>("HokuTopicIn", neighbour.uri(path), {}, dabo);
    std::vector<std::uint32_t> seen;
    std::vector<std::uint32_t> bystanderSaw;
    ASSERT_TRUE(sendUntilReceived(hostile, path, *subscriber, 1, seen));
    ASSERT_TRUE(sendUntilReceived(neighbour, path, *bystander, 1, bystanderSaw));

    // A valid sample that does not fit: 64 KiB of floats against a 4 KiB limit.
    hostile.send(message(path, 666, 16 * 1024));
    // The runtime goes on: its other subscriber receives, and a new
    // subscription to the same peer is served.
    ASSERT_TRUE(sendUntilReceived(neighbour, path, *bystander, 2, bystanderSaw));
    auto later = lumo::security::subscriberOf<Sample>("HokuTopicIn", hostile.uri(path), {}, dabo);
    std::vector<std::uint32_t> laterSaw;
    ASSERT_TRUE(sendUntilReceived(hostile, path, *later, 3, laterSaw));

    for (const auto& sample : subscriber->read(0)) {
        seen.push_back(sample->getSample_id());
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 666u), 0) << "the oversize sample was delivered";
    EXPECT_EQ(std::count(laterSaw.begin(), laterSaw.end(), 666u), 0);

    subscriber->close();
    bystander->close();
    later->close();
}

TEST(MaxMessageSizeTest, MessagesWithinTheLimitArriveWhole) {
    const Runtime dabo = KrinDabo::create({{"krin.runtime.maxMessageSize", std::to_string(limitBytes)}});
    WirePeer peer;
    const std::string path = "/security/withinLimit";
    auto subscriber = lumo::security::subscriberOf<Sample>("HokuTopicIn", peer.uri(path), {}, dabo);
    std::vector<std::uint32_t> seen;
    ASSERT_TRUE(sendUntilReceived(peer, path, *subscriber, 1, seen));
    // A payload just under the limit: 1000 floats.
    peer.send(message(path, 7, 1000));
    ASSERT_TRUE(sendUntilReceived(peer, path, *subscriber, 8, seen));
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 7u), 1);
    subscriber->close();
}

TEST(MaxMessageSizeTest, WithoutTheLimitALargeMessageArrives) {
    const Runtime dabo = KrinDabo::create({{"krin.runtime.maxMessageSize", "-1"}});
    WirePeer peer;
    const std::string path = "/security/noLimit";
    auto subscriber = lumo::security::subscriberOf<Sample>("HokuTopicIn", peer.uri(path), {}, dabo);
    std::vector<std::uint32_t> seen;
    ASSERT_TRUE(sendUntilReceived(peer, path, *subscriber, 1, seen));
    peer.send(message(path, 666, 16 * 1024));
    ASSERT_TRUE(sendUntilReceived(peer, path, *subscriber, 2, seen));
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 666u), 1);
    subscriber->close();
}

std::string droppedLine(const std::string& endpoint) {
    return "Connection to " + endpoint + " dropped: a message above krin.runtime.maxMessageSize=" +
           std::to_string(limitBytes) + " bytes, or the peer went away";
}

TEST(MaxMessageSizeTest, OversizeMessageIsLoggedAsAnErrorAndTheSubscriberReceivesTheNextOneThatFits) {
    lumo::test::CaptureLog log("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    const Runtime dabo = KrinDabo::create({{"krin.runtime.maxMessageSize", std::to_string(limitBytes)}});
    WirePeer hostile;
    const std::string path = "/security/oversizeLogged";
    auto subscriber = lumo::security::subscriberOf<Sample>("HokuTopicIn", hostile.uri(path), {}, dabo);
    std::vector<std::uint32_t> seen;
    ASSERT_TRUE(sendUntilReceived(hostile, path, *subscriber, 1, seen));

    hostile.send(message(path, 666, 16 * 1024));
    ASSERT_TRUE(log.await(log4cplus::ERROR_LOG_LEVEL, droppedLine(hostile.endpoint())));
    // The same subscriber, not a new one: its connection was made again.
    ASSERT_TRUE(sendUntilReceived(hostile, path, *subscriber, 2, seen));

    EXPECT_EQ(std::count(seen.begin(), seen.end(), 666u), 0) << "the oversize sample was delivered";
    EXPECT_EQ(log.messagesContaining(log4cplus::ERROR_LOG_LEVEL), std::vector<std::string>{droppedLine(hostile.endpoint())});
    subscriber->close();
}

TEST(MaxMessageSizeTest, SubscriberCutOffAgainAndAgainByOversizeMessagesIsConnectedAfreshEachTime) {
    lumo::test::CaptureLog log("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    const Runtime dabo = KrinDabo::create({{"krin.runtime.maxMessageSize", std::to_string(limitBytes)}});
    WirePeer hostile;
    const std::string path = "/security/oversizeRepeated";
    auto subscriber = lumo::security::subscriberOf<Sample>("HokuTopicIn", hostile.uri(path), {}, dabo);
    std::vector<std::uint32_t> seen;
    ASSERT_TRUE(sendUntilReceived(hostile, path, *subscriber, 1, seen));
    for (std::size_t round = 1; round <= 3; ++round) {
        hostile.send(message(path, 666, 16 * 1024));
        ASSERT_TRUE(log.await(log4cplus::ERROR_LOG_LEVEL, droppedLine(hostile.endpoint()), round)) << round;
        ASSERT_TRUE(sendUntilReceived(hostile, path, *subscriber, static_cast<std::uint32_t>(round + 1), seen))
            << round;
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 666u), 0);
    subscriber->close();
}

TEST(MaxMessageSizeTest, OversizeSubscriptionOfAHostileSubscriberIsLoggedAndOtherSubscribersGoOnReceiving) {
    lumo::test::CaptureLog log("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    std::mutex joinedMutex;
    std::condition_variable joinedChanged;
    int joined = 0;
    KrinDaboTestHooks hooks;
    hooks.subscriptionObserver = [&](const std::string&, bool subscribed, const std::string&) {
        {
            std::lock_guard<std::mutex> lock(joinedMutex);
            joined += subscribed ? 1 : 0;
        }
        joinedChanged.notify_all();
    };
    const Runtime publishing =
        KrinDaboTesting::create({{"krin.runtime.maxMessageSize", std::to_string(limitBytes)}}, hooks);
    const std::string port = std::to_string(lumo::test::freePort());
    const std::string path = "/security/oversizeSubscription";
    auto publisher = lumo::security::publisherOf<lumotypes::Dummy>("Dummy", "krin.ps://127.0.0.1:" + port + path, {},
                                                          publishing);
    const Runtime subscribing = KrinDabo::create({});
    auto subscriber =
        lumo::security::subscriberOf<lumotypes::Dummy>("Dummy", "krin.ps://127.0.0.1:" + port + path, {}, subscribing);
    {
        std::unique_lock<std::mutex> lock(joinedMutex);
        ASSERT_TRUE(joinedChanged.wait_for(lock, std::chrono::seconds(30), [&] { return joined >= 1; }));
    }

    // A subscription is a message from the subscriber: this one is 8 KiB.
    zmq::context_t context(1);
    zmq::socket_t intruder(context, zmq::socket_type::sub);
    intruder.set(zmq::sockopt::linger, 0);
    intruder.set(zmq::sockopt::subscribe, std::string(2 * limitBytes, 'x'));
    intruder.connect("tcp://127.0.0.1:" + port);
    // Whatever the limit for samples, a subscription above 512 bytes is
    // refused as soon as its size is announced. The line names the peer's
    // address when the runtime's thread asked for it before ZeroMQ closed the
    // connection, which a busy machine may not allow.
    ASSERT_TRUE(log.await(log4cplus::WARN_LOG_LEVEL, " at tcp://127.0.0.1:" + port +
                                                         " dropped: a subscription above 512 bytes, or the peer went away"));
    const auto now = std::chrono::milliseconds(0);
    EXPECT_TRUE(log.await(log4cplus::WARN_LOG_LEVEL, "Connection of a subscriber from 127.0.0.1:", 1, now) ||
                log.await(log4cplus::WARN_LOG_LEVEL, "Connection of a subscriber from an unknown address", 1, now));

    auto sample = publisher->createDataEntity();
    sample->setDummy_param(lumotypes::TEL_M5);
    bool received = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!received && std::chrono::steady_clock::now() < deadline) {
        publisher->publish(*sample, std::chrono::milliseconds(1000));
        std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<lumotypes::Dummy>>> events;
        received = subscriber->readDataEvents(orlo::dabo::ps::DataEventFilter<lumotypes::Dummy>(), events, 100,
                                              std::chrono::milliseconds(100)) > 0;
    }
    EXPECT_TRUE(received);
    {
        std::lock_guard<std::mutex> lock(joinedMutex);
        EXPECT_EQ(joined, 1) << "the oversize subscription was taken";
    }
    subscriber->close();
    publisher->close();
}

TEST(MaxMessageSizeTest, WithoutThePropertyAMessageAbove64MiBIsRefusedNamingThePropertyAndTheLimit) {
    lumo::test::CaptureLog log("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    const Runtime dabo = KrinDabo::create({});
    WirePeer hostile;
    const std::string path = "/security/defaultLimit";
    auto subscriber = lumo::security::subscriberOf<Sample>("HokuTopicIn", hostile.uri(path), {}, dabo);
    std::vector<std::uint32_t> seen;
    ASSERT_TRUE(sendUntilReceived(hostile, path, *subscriber, 1, seen));

    std::vector<std::string> oversize = message(path, 666, 4);
    oversize[2] = std::string(64 * 1024 * 1024 + 1, '\0');
    hostile.send(oversize);
    ASSERT_TRUE(log.await(log4cplus::ERROR_LOG_LEVEL, "Connection to " + hostile.endpoint() +
                                                          " dropped: a message above krin.runtime.maxMessageSize=" +
                                                          std::to_string(64 * 1024 * 1024) +
                                                          " bytes, or the peer went away"));
    ASSERT_TRUE(sendUntilReceived(hostile, path, *subscriber, 2, seen));
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 666u), 0);
    subscriber->close();
}

TEST(MaxMessageSizeTest, PeerThatGoesAwayIsLoggedOnlyWhileALimitIsSet) {
    lumo::test::CaptureLog log("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    const std::string path = "/security/peerGone";
    std::vector<std::uint32_t> seen;
    // Without a limit nothing watches the connections.
    const Runtime unlimited = KrinDabo::create({{"krin.runtime.maxMessageSize", "-1"}});
    auto unwatchedPeer = std::make_unique<WirePeer>();
    const std::string unwatchedEndpoint = unwatchedPeer->endpoint();
    auto unwatched = lumo::security::subscriberOf<Sample>("HokuTopicIn", unwatchedPeer->uri(path), {}, unlimited);
    ASSERT_TRUE(sendUntilReceived(*unwatchedPeer, path, *unwatched, 1, seen));
    unwatchedPeer.reset();

    // With a limit, a peer that goes away cannot be told from one cut off for
    // a message above the limit: both are logged.
    const Runtime limited = KrinDabo::create({{"krin.runtime.maxMessageSize", std::to_string(limitBytes)}});
    auto watchedPeer = std::make_unique<WirePeer>();
    const std::string watchedEndpoint = watchedPeer->endpoint();
    auto watched = lumo::security::subscriberOf<Sample>("HokuTopicIn", watchedPeer->uri(path), {}, limited);
    ASSERT_TRUE(sendUntilReceived(*watchedPeer, path, *watched, 1, seen));
    watchedPeer.reset();
    ASSERT_TRUE(log.await(log4cplus::ERROR_LOG_LEVEL, droppedLine(watchedEndpoint)));

    EXPECT_TRUE(log.messagesContaining(log4cplus::ERROR_LOG_LEVEL, unwatchedEndpoint).empty());
    unwatched->close();
    watched->close();
}

}  // namespace
