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
/// Messages are read on the runtime's thread and queued for the caller's.
class WireTap : public orlo::dabo::krin::detail::EventsHandler, public std::enable_shared_from_this<WireTap> {
public:
    /// Subscribes to the topic of `uri` (a checked topic URI); `tool` heads
    /// the reports of malformed messages.
    static std::shared_ptr<WireTap> open(const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& runtime,
                                         const std::string& uri, const std::string& tool);

    WireTap(const WireTap&) = delete;
    WireTap& operator=(const WireTap&) = delete;
    ~WireTap() = default;

    bool events(std::shared_ptr<zmq::socket_t>& socket, orlo::dabo::krin::detail::KrinDaboEvent event) override;

    /// Waits up to `limit` for the next message; false if none came.
    bool next(WireSample& sample, std::chrono::milliseconds limit);

    /// Waits up to `limit` for messages and moves all that are queued to
    /// `samples` (emptied first); false if none came. A fast topic is then
    /// taken in batches, with one wake-up per batch instead of per message.
    bool nextAll(std::deque<WireSample>& samples, std::chrono::milliseconds limit);

    /// Messages that could not be taken apart, reported on stderr as they came.
    unsigned long malformed() const;

    /// Unsubscribes and waits a bounded time for the runtime to confirm.
    void close();

private:
    WireTap(std::shared_ptr<orlo::dabo::krin::detail::KrinDabo> runtime, std::string tool);
    void readMessage(zmq::socket_t& socket);

    std::shared_ptr<orlo::dabo::krin::detail::KrinDabo> runtime;
    const std::string tool;
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::deque<WireSample> received;
    std::shared_ptr<zmq::socket_t> socket;
    bool registered = false;
    bool unregistered = false;
    unsigned long malformedCount = 0;
};

}  // namespace lumo::tools
