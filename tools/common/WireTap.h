#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "dabo/krin/detail/EventsHandler.h"
#include "dabo/krin/detail/KrinDabo.h"

namespace lumo::tools {

/// One message of a topic as it came off the wire.
struct WireSample {
    std::uint32_t sampleSequence = 0;
    double sourceTimestamp = 0;
    std::uint32_t dataEntityTypeHash = 0;
    std::string payload;
    /// When it was read, in nanoseconds since the Unix epoch.
    std::uint64_t arrivalNs = 0;
    /// Which tap read it, as given to `WireTap::open`.
    std::size_t source = 0;
};

/// Where taps put what they read, for one reader; several taps may share one,
/// so that a reader of many topics waits on all of them at once.
class WireQueue {
public:
    void push(WireSample sample);
    /// Waits up to `limit` for the next message; false if none came.
    bool next(WireSample& sample, std::chrono::milliseconds limit);

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<WireSample> received;
};

/// A subscription socket of the runtime read directly, without the plug-in's
/// subscriber: the tap needs each message's header (its sequence number and
/// type), which a subscriber keeps to itself, and the payload's bytes, which
/// it decodes with the schema instead of a topic class.
///
/// Messages are read on the runtime's thread and queued for the caller's.
class WireTap : public orlo::dabo::krin::detail::EventsHandler, public std::enable_shared_from_this<WireTap> {
public:
    /// Subscribes to the topic of `uri` (a checked topic URI). Messages go to
    /// `queue`, marked with `source`, or to a queue of the tap's own.
    static std::shared_ptr<WireTap> open(const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& runtime,
                                         const std::string& uri, std::shared_ptr<WireQueue> queue = nullptr,
                                         std::size_t source = 0);

    WireTap(const WireTap&) = delete;
    WireTap& operator=(const WireTap&) = delete;
    ~WireTap() = default;

    bool events(std::shared_ptr<zmq::socket_t>& socket, orlo::dabo::krin::detail::KrinDaboEvent event) override;

    /// Waits up to `limit` for the next message of the tap's queue; false if none came.
    bool next(WireSample& sample, std::chrono::milliseconds limit) { return queue->next(sample, limit); }

    /// Messages that could not be taken apart, reported on stderr as they came.
    unsigned long malformed() const;

    /// Unsubscribes and waits a bounded time for the runtime to confirm.
    void close();

private:
    WireTap(std::shared_ptr<orlo::dabo::krin::detail::KrinDabo> runtime, std::string uri,
            std::shared_ptr<WireQueue> queue, std::size_t source);
    void readMessage(zmq::socket_t& socket);

    std::shared_ptr<orlo::dabo::krin::detail::KrinDabo> runtime;
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::string uri;
    std::shared_ptr<WireQueue> queue;
    std::size_t source;
    std::shared_ptr<zmq::socket_t> socket;
    bool registered = false;
    bool unregistered = false;
    unsigned long malformedCount = 0;
};

}  // namespace lumo::tools
