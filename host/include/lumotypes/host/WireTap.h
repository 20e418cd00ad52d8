#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "lumotypes/host/Export.h"
#include "lumotypes/host/Factories.h"

namespace lumotypes::host {

/// One message of a topic as it came off the wire.
struct WireSample {
    std::uint32_t sampleSequence = 0;
    double sourceTimestamp = 0;
    std::uint32_t dataEntityTypeHash = 0;
    std::string payload;
};

/// A subscription of the runtime read directly, without the plug-in's
/// subscriber: for hosts that need each message's header (its sequence
/// number and type), which a subscriber keeps to itself, and the payload's
/// bytes, to decode with the schema instead of a topic class.
///
/// Messages are read on the runtime's thread and queued for the caller's, at
/// most `capacity` of them: when the caller falls behind (a tool whose output
/// goes to a reader slower than the topic), the oldest queued message is
/// dropped and counted, so that the memory stays bounded whatever the rate.
///
/// A message whose topic frame is not exactly the topic's is refused as the
/// plug-in's subscribers refuse it: ZeroMQ's subscription filter compares
/// prefixes only.
class LUMOTYPES_HOST_EXPORT WireTap {
public:
    /// Called on the runtime's thread with the reason a message could not be taken apart.
    using MalformedHandler = std::function<void(const std::string& reason)>;
    /// Called on the runtime's thread after each drop, with the drops so far.
    using DropHandler = std::function<void(unsigned long dropped)>;

    /// No bound on the queue.
    static constexpr std::size_t unbounded = static_cast<std::size_t>(-1);

    /// Subscribes to the topic of `uri` (a topic URI the runtime accepts) and
    /// waits up to 10 s for the runtime to register it; throws the runtime's
    /// DaboException for a bad URI, std::runtime_error if it never registers.
    static std::unique_ptr<WireTap> open(const Runtime& runtime, const std::string& uri,
                                         MalformedHandler onMalformed = {}, std::size_t capacity = unbounded,
                                         DropHandler onDrop = {});

    WireTap(const WireTap&) = delete;
    WireTap& operator=(const WireTap&) = delete;
    /// Closes the subscription if `close` has not.
    ~WireTap();

    /// Waits up to `limit` for the next message; false if none came or the
    /// wait was interrupted.
    bool next(WireSample& sample, std::chrono::milliseconds limit);

    /// Ends the current and every later wait of `next` at once, and makes
    /// `close` wait only briefly for the runtime's confirmation: for a caller
    /// that has been asked to stop.
    void interrupt();

    /// Messages that could not be taken apart or were of another topic.
    unsigned long malformed() const;

    /// Messages dropped because the queue was full.
    unsigned long dropped() const;

    /// Unsubscribes and waits a bounded time for the runtime to confirm.
    void close();

    class Reader;

private:
    explicit WireTap(std::shared_ptr<Reader> reader);

    std::shared_ptr<Reader> reader;
};

}  // namespace lumotypes::host
