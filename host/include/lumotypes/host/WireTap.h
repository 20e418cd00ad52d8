#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
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
    /// When it was read off the socket, in nanoseconds since the Unix epoch.
    std::uint64_t arrivalNs = 0;
    /// Which tap read it, as given to `WireTap::open` with a shared queue.
    std::size_t source = 0;
};

/// Where taps put what they read, for one reader. Several taps may share one,
/// so that a reader of many topics waits on all of them at once.
///
/// At most `capacity` messages are held: when the reader falls behind (a
/// tool whose output goes to a reader slower than the topic), the oldest
/// message is dropped and counted, so that the memory stays bounded
/// whatever the rate.
class LUMOTYPES_HOST_EXPORT WireQueue {
public:
    /// Called on the runtime's thread after each drop, with the drops so far.
    using DropHandler = std::function<void(unsigned long dropped)>;

    /// No bound on the queue.
    static constexpr std::size_t unbounded = static_cast<std::size_t>(-1);

    explicit WireQueue(std::size_t capacity = unbounded, DropHandler onDrop = {});

    WireQueue(const WireQueue&) = delete;
    WireQueue& operator=(const WireQueue&) = delete;

    void push(WireSample sample);

    /// Waits up to `limit` for the next message; false if none came or the
    /// wait was interrupted.
    bool next(WireSample& sample, std::chrono::milliseconds limit);

    /// Ends the current and every later wait of `next` at once.
    void interrupt();

    /// Messages dropped because the queue was full.
    unsigned long dropped() const;

private:
    const std::size_t capacity;
    DropHandler onDrop;
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::deque<WireSample> received;
    bool interrupted = false;
    unsigned long droppedCount = 0;
};

/// A subscription of the runtime read directly, without the plug-in's
/// subscriber: for hosts that need each message's header (its sequence
/// number and type), which a subscriber keeps to itself, and the payload's
/// bytes, to decode with the schema instead of a topic class.
///
/// Messages are read on the runtime's thread and queued for the caller's in a
/// `WireQueue`, the tap's own or one that several taps share.
///
/// A message whose topic frame is not exactly the topic's is refused as the
/// plug-in's subscribers refuse it: ZeroMQ's subscription filter compares
/// prefixes only.
class LUMOTYPES_HOST_EXPORT WireTap {
public:
    /// Called on the runtime's thread with the reason a message could not be taken apart.
    using MalformedHandler = std::function<void(const std::string& reason)>;
    using DropHandler = WireQueue::DropHandler;
    static constexpr std::size_t unbounded = WireQueue::unbounded;

    /// Subscribes to the topic of `uri` (a topic URI the runtime accepts) and
    /// waits up to 10 s for the runtime to register it; throws the runtime's
    /// DaboException for a bad URI, std::runtime_error if it never registers.
    static std::unique_ptr<WireTap> open(const Runtime& runtime, const std::string& uri,
                                         MalformedHandler onMalformed = {}, std::size_t capacity = unbounded,
                                         DropHandler onDrop = {});

    /// As above, with the messages going to `queue`, marked with `source`.
    static std::unique_ptr<WireTap> open(const Runtime& runtime, const std::string& uri,
                                         std::shared_ptr<WireQueue> queue, std::size_t source,
                                         MalformedHandler onMalformed = {});

    WireTap(const WireTap&) = delete;
    WireTap& operator=(const WireTap&) = delete;
    /// Closes the subscription if `close` has not.
    ~WireTap();

    /// Waits up to `limit` for the next message of the tap's queue; false if
    /// none came or the wait was interrupted.
    bool next(WireSample& sample, std::chrono::milliseconds limit);

    /// Ends the current and every later wait on the tap's queue at once, and makes
    /// `close` wait only briefly for the runtime's confirmation: for a caller
    /// that has been asked to stop.
    void interrupt();

    /// Messages that could not be taken apart or were of another topic.
    unsigned long malformed() const;

    /// Messages dropped because the tap's queue was full.
    unsigned long dropped() const;

    /// Unsubscribes and waits a bounded time for the runtime to confirm.
    void close();

    class Reader;

private:
    explicit WireTap(std::shared_ptr<Reader> reader);

    std::shared_ptr<Reader> reader;
};

}  // namespace lumotypes::host
