#pragma once

#include <memory>

namespace zmq {
class socket_t;
}

namespace orlo::dabo::krin::detail {

/// Events the runtime reports to a registered publisher or subscriber.
enum KrinDaboEvent : int {
    /// The subscription socket has a complete message waiting; one event per message.
    POLLER_READABLE = 1,
    /// Registration is complete; a subscriber receives its socket with it.
    REGISTERED = 100,
    /// Unregistration is complete; no further event follows for that registration.
    UNREGISTERED = 101,
    /// Never delivered: the value of "no event seen yet".
    NO_EVENT = 105,
};

/// Callback interface through which the runtime's thread reaches a publisher
/// or subscriber. The runtime holds handlers only as std::weak_ptr and locks
/// one for every call, so an object that is being destroyed is never called.
class EventsHandler {
public:
    /// Handles one event. False when it could not: a POLLER_READABLE whose
    /// message could not be processed, which the runtime counts.
    virtual bool events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) = 0;

protected:
    // Handlers are owned and destroyed through their concrete types.
    ~EventsHandler() = default;
};

}  // namespace orlo::dabo::krin::detail
