#pragma once

#include <chrono>
#include <string>

namespace orlo::dabo::krin::detail {

/// How the runtime hands out one kind of event. Only tests change it, to
/// reach the fault paths of the objects that wait for the event.
struct EventDelivery {
    enum class Mode {
        /// As soon as the runtime's thread has done the work.
        Immediately,
        /// Never: the work is done, the event is not delivered.
        Withhold,
        /// After `delay`, on the runtime's thread, without holding it up meanwhile.
        Delay,
    };

    Mode mode = Mode::Immediately;
    std::chrono::milliseconds delay{0};

    static EventDelivery immediately() { return {}; }
    static EventDelivery withheld() { return {Mode::Withhold, std::chrono::milliseconds(0)}; }
    static EventDelivery delayedBy(std::chrono::milliseconds by) { return {Mode::Delay, by}; }
};

/// The points at which a test may watch the runtime or change when it
/// delivers an event. This base class is the production behaviour: events
/// are delivered at once and nothing is watched. Tests pass a subclass
/// through KrinDaboTesting (a header that is not installed).
///
/// Why a strategy object, and not the base as a template parameter or a
/// link-time double: KrinDabo is one concrete type that the plug-in and
/// hosts link against, and the runtime lives in one shared library loaded
/// once per process. A template parameter would make KrinDabo a template or
/// compile the event loop twice into that library; a link-time double would
/// need a second copy of the library in test processes that also load the
/// plug-in. A virtual call is cheap where the seam is consulted: only on the
/// cold paths (register and unregister calls and their events, a message of
/// an unregistered dealer, a subscription change of an endpoint, the end of
/// the thread), never while a registered dealer's frames are forwarded or a
/// subscriber's socket is served.
///
/// Every function but the destructor is called on the runtime's thread,
/// except called(), deliveryOfRegistered(), deliveryOfUnregistered() and
/// registerWaitsForRegistered(), which run on the thread of the call.
class RuntimeSeam {
public:
    virtual ~RuntimeSeam() = default;

    /// Delivery of REGISTERED, for publishers and subscribers alike.
    virtual EventDelivery deliveryOfRegistered() const { return EventDelivery::immediately(); }
    /// Delivery of UNREGISTERED, for publishers and subscribers alike.
    virtual EventDelivery deliveryOfUnregistered() const { return EventDelivery::immediately(); }
    /// Whether the register calls return only after the runtime's thread has
    /// delivered REGISTERED (or has given up on it), however it is delivered.
    virtual bool registerWaitsForRegistered() const { return false; }

    /// At the start of every operation that a publisher or subscriber calls.
    virtual void called(const char* /*operation*/, bool /*handlerEmpty*/) {}
    /// A bound endpoint saw a subscription (or an unsubscription) of `filter`.
    virtual void subscriptionSeen(const std::string& /*endpoint*/, bool /*subscribed*/,
                                  const std::string& /*filter*/) {}
    /// A message of the dealer `identity`, which is not registered, was dropped.
    virtual void messageDropped(const std::string& /*identity*/) {}
    /// Whether the messages of a dealer or subscription registered from now on
    /// are counted (KrinDabo::metrics); only a benchmark of what counting
    /// costs turns it off.
    virtual bool countsMessages() const { return true; }
    /// The runtime's thread has closed every socket; its last act.
    virtual void stopped() {}
};

}  // namespace orlo::dabo::krin::detail
