#pragma once

#include <functional>
#include <memory>
#include <string>

#include "dabo/Dabo.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/RuntimeSeam.h"

namespace orlo::dabo::krin::detail {

/// Options of a runtime that only tests set, when they create the runtime
/// with KrinDaboTesting::create. They are deliberately not properties, and
/// this header is not installed: a host's configuration cannot reach them.
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
    /// Messages are forwarded and delivered without being counted, so that a
    /// benchmark can measure what counting costs.
    bool messagesUncounted = false;
};

/// Creates runtimes whose seam follows test hooks.
class KrinDaboTesting {
public:
    static std::shared_ptr<KrinDabo> create(const orlo::dabo::Dabo::Properties& properties,
                                            const KrinDaboTestHooks& hooks);
};

}  // namespace orlo::dabo::krin::detail
