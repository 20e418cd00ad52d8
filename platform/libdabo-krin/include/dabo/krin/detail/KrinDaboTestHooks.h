#pragma once

#include <chrono>
#include <functional>
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

/// Options of a runtime that only tests set, when they create the runtime.
/// They are deliberately not properties: a host's configuration cannot reach them.
struct KrinDaboTestHooks {
    /// Delivery of REGISTERED, for publishers and subscribers alike.
    EventDelivery registered;
    /// Delivery of UNREGISTERED, for publishers and subscribers alike.
    EventDelivery unregistered;
    /// registerPublisher and registerSubscriber return only after the
    /// runtime's thread has delivered REGISTERED (or has given up on it).
    bool registeredBeforeRegisterReturns = false;
    /// Called on the runtime's thread for every subscription change that a
    /// bound endpoint sees: `subscribed` false for an unsubscription, `filter`
    /// the topic frame. Lets a publishing test wait until a subscriber has joined.
    std::function<void(const std::string& endpoint, bool subscribed, const std::string& filter)> subscriptionObserver;
    /// Called on the runtime's thread for every message it drops because the
    /// dealer `identity` that sent it is not registered.
    std::function<void(const std::string& identity)> messageDropped;
    /// Called on the runtime's thread as its last act, after every socket of
    /// the runtime is closed.
    std::function<void()> stopped;
    /// Called on the calling thread at the start of every operation that a
    /// publisher or subscriber calls ("createDealer", "registerPublisher",
    /// "unregisterPublisher", "registerSubscriber", "unregisterSubscriber"),
    /// with whether the handler given has no owner at all (never one that was
    /// set); false for createDealer. Lets a test count the calls.
    std::function<void(const std::string& operation, bool handlerEmpty)> callObserver;
};

}  // namespace orlo::dabo::krin::detail
