#pragma once

#include <chrono>
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
/// Messages are read on the runtime's thread and queued for the caller's.
class LUMOTYPES_HOST_EXPORT WireTap {
public:
    /// Called on the runtime's thread with the reason a message could not be taken apart.
    using MalformedHandler = std::function<void(const std::string& reason)>;

    /// Subscribes to the topic of `uri` (a topic URI the runtime accepts) and
    /// waits up to 10 s for the runtime to register it; throws the runtime's
    /// DaboException for a bad URI, std::runtime_error if it never registers.
    static std::unique_ptr<WireTap> open(const Runtime& runtime, const std::string& uri,
                                         MalformedHandler onMalformed = {});

    WireTap(const WireTap&) = delete;
    WireTap& operator=(const WireTap&) = delete;
    /// Closes the subscription if `close` has not.
    ~WireTap();

    /// Waits up to `limit` for the next message; false if none came.
    bool next(WireSample& sample, std::chrono::milliseconds limit);

    /// Messages that could not be taken apart.
    unsigned long malformed() const;

    /// Unsubscribes and waits a bounded time for the runtime to confirm.
    void close();

    class Reader;

private:
    explicit WireTap(std::shared_ptr<Reader> reader);

    std::shared_ptr<Reader> reader;
};

}  // namespace lumotypes::host
