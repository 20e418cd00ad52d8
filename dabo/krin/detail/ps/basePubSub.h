#pragma once

#include <log4cplus/logger.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "dabo/Dabo.h"
#include "dabo/krin/detail/EventsHandler.h"
#include "dabo/krin/detail/ps/PubSubState.h"
#include "dabo/krin/detail/ps/createDataEntity.h"
#include "dabo/krin/detail/ps/obtainImpl.h"
#include "dabo/ps/qos/QoS.h"

namespace orlo::dabo::krin::detail {
class KrinDabo;
}

namespace orlo::dabo::krin::detail::ps {

using QoSList = std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>;

/// How long a transport object waits for the runtime to confirm a
/// registration or an unregistration.
inline constexpr int eventTimeoutMillis = 5000;

/// Untyped halves of KrinBasePubSub, compiled once for all topics.
namespace basePubSub {

/// Throws DaboException (after an ERROR line) unless `uri` belongs to the
/// transport's publish/subscribe profile.
void requirePubSubUri(const std::string& uri, const log4cplus::Logger& logger);

/// Throws IllegalStateException (after an ERROR line) unless `state` is INITIALIZED.
void requireInitialized(PubSubState state, const log4cplus::Logger& logger);

/// Waits until `lastEvent` equals `event` or `timeoutMs` has passed on the
/// steady clock; `lastEvent` is guarded by `mutex`.
bool waitForEvent(std::mutex& mutex, std::condition_variable& condition, const KrinDaboEvent& lastEvent,
                  KrinDaboEvent event, int timeoutMs);

/// The runtime thread's side of the handshake: store, unlock, then notify.
void recordEvent(std::mutex& mutex, std::condition_variable& condition, KrinDaboEvent& lastEvent,
                 KrinDaboEvent event);

}  // namespace basePubSub

/// Common base of every publisher and subscriber of topic `T` with binding `ST`:
/// what the object was created with, its life-cycle state, and the one way a
/// host thread waits for the runtime's thread to report a registration change.
///
/// The base does not implement EventsHandler itself; it owns the data that the
/// concrete classes' `events` work on.
template <typename T, typename ST>
class KrinBasePubSub {
public:
    KrinBasePubSub(const std::string& uri, const QoSList& qos, const orlo::dabo::Dabo::Properties& properties,
                   const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo);
    virtual ~KrinBasePubSub() = default;

    KrinBasePubSub(const KrinBasePubSub&) = delete;
    KrinBasePubSub& operator=(const KrinBasePubSub&) = delete;

    /// Returns only while the object is INITIALIZED; otherwise logs and throws
    /// IllegalStateException ("Entity closed" or "Entity is not INITIALIZED").
    void checkState() const;

    /// Waits up to `eventTimeoutMs` for `lastEvent` to become `event`; an event
    /// that arrived before the call counts.
    bool waitForEvent(const KrinDaboEvent& event);

protected:
    /// Stores `event` as the last one and wakes a waiter.
    void recordEvent(KrinDaboEvent event);

    int eventTimeoutMs;
    PubSubState state;
    std::string uri;
    QoSList qos;
    orlo::dabo::Dabo::Properties properties;
    std::shared_ptr<orlo::dabo::krin::detail::KrinDabo> dabo;
    std::mutex eventMutex;
    KrinDaboEvent lastEvent;
    std::condition_variable eventCondition;
    log4cplus::Logger internalLogger;
};

template <typename T, typename ST>
KrinBasePubSub<T, ST>::KrinBasePubSub(const std::string& uri, const QoSList& qos,
                                      const orlo::dabo::Dabo::Properties& properties,
                                      const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo)
    : eventTimeoutMs(eventTimeoutMillis),
      state(CREATED),
      uri(uri),
      qos(qos),
      properties(properties),
      dabo(dabo),
      lastEvent(NO_EVENT),
      internalLogger(log4cplus::Logger::getInstance("vexa.dabo.krin.internal")) {
    basePubSub::requirePubSubUri(this->uri, internalLogger);
}

template <typename T, typename ST>
void KrinBasePubSub<T, ST>::checkState() const {
    basePubSub::requireInitialized(state, internalLogger);
}

template <typename T, typename ST>
bool KrinBasePubSub<T, ST>::waitForEvent(const KrinDaboEvent& event) {
    return basePubSub::waitForEvent(eventMutex, eventCondition, lastEvent, event, eventTimeoutMs);
}

template <typename T, typename ST>
void KrinBasePubSub<T, ST>::recordEvent(KrinDaboEvent event) {
    basePubSub::recordEvent(eventMutex, eventCondition, lastEvent, event);
}

}  // namespace orlo::dabo::krin::detail::ps
