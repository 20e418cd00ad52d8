#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Lumotypes.pb.h"
#include "WirePeer.h"
#include "dabo/ps/DataEventFilter.h"
#include "dabo/ps/MrvSubscriber.h"
#include "dabo/ps/Subscriber.h"
#include "lumotypes/RefPos.h"

namespace lumo::test {

/// The type constant that RefPos headers carry.
constexpr std::uint32_t refPosTypeHash = 0x67C91967u;

/// A complete RefPos payload whose refPosX is `marker`, so that tests can
/// tell their samples apart.
inline std::string refPosPayload(std::uint32_t marker) {
    generated::krin::lumotypes::RefPos message;
    message.set_refposx(marker);
    message.set_refposy(2);
    message.set_centboxwidth(3);
    message.set_centboxheight(4);
    return message.SerializeAsString();
}

/// A well-formed RefPos message of `topicPath` carrying `marker`.
inline std::vector<std::string> goodRefPosMessage(const std::string& topicPath, std::uint32_t marker) {
    return {topicFrameOf(topicPath), headerFrame(refPosTypeHash, nowAsSourceTimestamp()), refPosPayload(marker)};
}

/// Takes samples from a queued subscriber until the one that `isMarker`
/// recognises has arrived; returns the samples taken before it. Messages of
/// one peer arrive in order, so once the marker is in, everything sent
/// before it has been dealt with. Gives up after `limit` (null result).
template <typename T>
std::unique_ptr<std::vector<std::shared_ptr<T>>> takeUntil(orlo::dabo::ps::Subscriber<T>& subscriber,
                                                           const std::function<bool(const T&)>& isMarker,
                                                           std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    auto before = std::make_unique<std::vector<std::shared_ptr<T>>>();
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<T>>> events;
        if (subscriber.readDataEvents(orlo::dabo::ps::DataEventFilter<T>(), events, 1,
                                      std::chrono::milliseconds(200)) == 0) {
            continue;
        }
        const std::shared_ptr<T>& sample = events.front()->getData();
        if (isMarker(*sample)) {
            return before;
        }
        before->push_back(sample);
    }
    return nullptr;
}

/// Sends probes until one reaches the subscriber, i.e. until its SUB socket's
/// subscription has reached the peer, then waits for a final barrier so that
/// no probe is left in flight. False if the subscription never took effect.
template <typename T>
bool awaitSubscription(WirePeer& peer, orlo::dabo::ps::Subscriber<T>& subscriber,
                       const std::function<std::vector<std::string>(std::uint32_t)>& message,
                       const std::function<std::uint32_t(const T&)>& markerOf) {
    constexpr std::uint32_t probe = 0xFFFFFFF0u;
    constexpr std::uint32_t barrier = 0xFFFFFFF1u;
    for (int attempt = 0; attempt < 100; ++attempt) {
        peer.send(message(probe));
        std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<T>>> events;
        if (subscriber.readDataEvents(orlo::dabo::ps::DataEventFilter<T>(), events, 1,
                                      std::chrono::milliseconds(100)) > 0) {
            peer.send(message(barrier));
            return takeUntil<T>(subscriber, [&](const T& sample) { return markerOf(sample) == barrier; }) != nullptr;
        }
    }
    return false;
}

/// The most-recent-value flavour: the store keeps what arrives, so the probes
/// stay in it; the caller compares sizes from here on.
template <typename T>
bool awaitMrvSubscription(WirePeer& peer, orlo::dabo::ps::MrvSubscriber<T>& subscriber,
                          const std::function<std::vector<std::string>(std::uint32_t)>& message,
                          const std::function<std::uint32_t(const T&)>& markerOf);

/// Reads the store until it holds a sample that `isMarker` recognises.
/// readMostRecent has no way to wait for data, so this reads repeatedly,
/// each read sleeping a millisecond, up to `limit`. Returns the store then.
template <typename T>
std::unique_ptr<std::vector<std::shared_ptr<T>>> readStoreUntil(
    orlo::dabo::ps::MrvSubscriber<T>& subscriber, const std::function<bool(const T&)>& isMarker,
    std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        auto samples = std::make_unique<std::vector<std::shared_ptr<T>>>(
            subscriber.readMostRecent(std::chrono::milliseconds(1)));
        for (const auto& sample : *samples) {
            if (isMarker(*sample)) {
                return samples;
            }
        }
    }
    return nullptr;
}

template <typename T>
bool awaitMrvSubscription(WirePeer& peer, orlo::dabo::ps::MrvSubscriber<T>& subscriber,
                          const std::function<std::vector<std::string>(std::uint32_t)>& message,
                          const std::function<std::uint32_t(const T&)>& markerOf) {
    constexpr std::uint32_t probe = 0xFFFFFFF0u;
    constexpr std::uint32_t barrier = 0xFFFFFFF1u;
    for (int attempt = 0; attempt < 100; ++attempt) {
        peer.send(message(probe));
        if (!subscriber.readMostRecent(std::chrono::milliseconds(100)).empty()) {
            peer.send(message(barrier));
            return readStoreUntil<T>(subscriber, [&](const T& sample) { return markerOf(sample) == barrier; }) !=
                   nullptr;
        }
    }
    return false;
}

}  // namespace lumo::test
