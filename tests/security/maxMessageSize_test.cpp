// A hostile peer that sends a message larger than the runtime allows: ZeroMQ
// refuses it as soon as its size is announced, before storing it, and treats
// the peer as broken: that subscription's connection to the peer is closed
// for good. The message never reaches a subscriber and cannot exhaust memory;
// the runtime's other subscribers, and new subscriptions to the same peer,
// are not disturbed.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "HostFactories.h"
#include "WirePeer.h"
#include "dabo/ps/DataEventFilter.h"

namespace {

using lumo::security::Runtime;
using lumo::test::WirePeer;
using orlo::dabo::krin::detail::KrinDabo;
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
    const Runtime dabo = KrinDabo::create({});
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

}  // namespace
