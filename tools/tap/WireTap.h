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
};

/// A subscription socket of the runtime read directly, without the plug-in's
/// subscriber: the tap needs each message's header (its sequence number and
/// type), which a subscriber keeps to itself, and the payload's bytes, which
/// it decodes with the schema instead of a topic class.
///
/// Messages are read on the runtime's thread and queued for the caller's, at
/// most `capacity` of them: when the caller falls behind (its output goes to a
/// reader slower than the topic), the oldest queued message is dropped and
/// counted, so that the tap's memory stays bounded whatever the rate. The
/// count is told on stderr at most once a second while drops go on, from the
/// runtime's thread, since the caller's may be held by its reader.
///
/// A message whose topic frame is not the topic's is refused as the plug-in's
/// subscribers refuse it; ZeroMQ's subscription filter compares prefixes only.
class WireTap : public orlo::dabo::krin::detail::EventsHandler, public std::enable_shared_from_this<WireTap> {
public:
    /// Subscribes to the topic of `uri` (a checked topic URI).
    static std::shared_ptr<WireTap> open(const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& runtime,
                                         const std::string& uri, std::size_t capacity);

    WireTap(const WireTap&) = delete;
    WireTap& operator=(const WireTap&) = delete;
    ~WireTap() = default;

    bool events(std::shared_ptr<zmq::socket_t>& socket, orlo::dabo::krin::detail::KrinDaboEvent event) override;

    /// Waits up to `limit` for the next message; false if none came or the
    /// wait was interrupted.
    bool next(WireSample& sample, std::chrono::milliseconds limit);

    /// Ends the current and every later wait of `next` at once.
    void interrupt();

    /// Messages that could not be taken apart or were of another topic,
    /// reported on stderr as they came.
    unsigned long malformed() const;

    /// Messages dropped because the queue was full.
    unsigned long dropped() const;

    /// Unsubscribes and waits a bounded time for the runtime to confirm.
    void close();

private:
    WireTap(std::shared_ptr<orlo::dabo::krin::detail::KrinDabo> runtime, std::string topicFrame,
            std::size_t capacity);
    void readMessage(zmq::socket_t& socket);

    std::shared_ptr<orlo::dabo::krin::detail::KrinDabo> runtime;
    const std::string topicFrame;
    const std::size_t capacity;
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::deque<WireSample> received;
    std::shared_ptr<zmq::socket_t> socket;
    bool registered = false;
    bool unregistered = false;
    bool interrupted = false;
    std::chrono::steady_clock::time_point nextDropReport;
    unsigned long malformedCount = 0;
    unsigned long droppedCount = 0;
};

}  // namespace lumo::tools
