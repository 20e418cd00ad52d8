#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "RuntimeCommand.h"

namespace orlo::dabo::krin::detail {

/// Publisher registrations whose bind is to be tried again a moment later.
///
/// When the last publisher of an endpoint unregisters, the runtime closes
/// that XPUB, and ZeroMQ closes its listening socket in the background: a
/// bind of the same port right afterwards can fail with "Address already in
/// use" although nothing will hold the port a millisecond later. Such a bind
/// is retried on the runtime's thread, without blocking it, every
/// `retryInterval` for at most `retryWindow`, which is well inside the 5000 ms
/// that a publisher waits for REGISTERED. Only a port that this runtime itself
/// released within the window is retried: a port that another process holds
/// fails at once, as it always did.
class BindRetries {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds retryInterval{10};
    static constexpr std::chrono::milliseconds retryWindow{2000};

    struct Retry {
        RuntimeCommand command;
        /// When the bind was first tried.
        Clock::time_point firstAttempt;
        Clock::time_point due;
    };

    /// Notes that this runtime closed its XPUB at `endpoint`.
    void released(const std::string& endpoint, Clock::time_point now);

    /// Whether a bind of `endpoint`, first tried at `firstAttempt` and failed
    /// now with `error` (an errno value), is to be tried again.
    bool shouldRetry(const std::string& endpoint, int error, Clock::time_point firstAttempt, Clock::time_point now);

    /// Parks `command` until its next attempt.
    void add(RuntimeCommand command, Clock::time_point firstAttempt, Clock::time_point now);

    /// The retries due at `now`, in the order they were parked.
    std::vector<Retry> takeDue(Clock::time_point now);

    /// Takes the parked registrations of the dealer `identity`, which a newer
    /// command for it makes obsolete.
    std::vector<Retry> takeOf(const std::string& identity);

    /// Takes every parked registration.
    std::vector<Retry> takeAll();

    /// When the next retry is due; nothing when none is parked.
    std::optional<Clock::time_point> nextDue() const;

private:
    /// The port part of "tcp://HOST:PORT": binds of any host conflict on it.
    static std::string portOf(const std::string& endpoint);

    std::deque<Retry> parked;
    /// When this runtime last released each port.
    std::map<std::string, Clock::time_point> releasedPorts;
};

}  // namespace orlo::dabo::krin::detail
