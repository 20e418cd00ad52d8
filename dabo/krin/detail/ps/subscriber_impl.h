#pragma once

#include <utility>

#include "dabo/krin/detail/ps/subscriber.h"
#include "dabo/krin/detail/ps/subscriberLifecycle.h"
#include "dabo/ps/Traceable.h"
#include "dabo/ps/queue/QueuedSubscriber_impl.h"
#include "dabo/util/DaboUtil.h"

namespace orlo::dabo::krin::detail::ps {

template <typename T, typename ST>
KrinSubscriber<T, ST>::KrinSubscriber(const std::string& uri, const QoSList& qos,
                                      const orlo::dabo::Dabo::Properties& properties,
                                      const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo)
    // The engine exists before any check runs, and takes Latency and Deadline from qos.
    : orlo::dabo::ps::queue::QueuedSubscriber<T, ST>(qos),
      KrinBasePubSub<T, ST>(uri, qos, properties, dabo),
      writerGeneration(1),
      topicIdFrame(),
      dataEntityTypeHash(TopicTraits<T>::dataEntityTypeHash),
      socket(),
      logger(subscriberCommon::subscriberLogger()),
      destroying(false),
      tracingEnabled(false),
      disableTypeHashCheck(subscriberCommon::typeHashCheckDisabled(properties)) {
    Lifecycle::identify(*this);
}

template <typename T, typename ST>
KrinSubscriber<T, ST>::~KrinSubscriber() {
    if (this->state != CLOSED) {
        destroying.exchange(true);
        // Not virtual on purpose: the derived parts are gone already.
        KrinSubscriber<T, ST>::close();
    }
}

template <typename T, typename ST>
void KrinSubscriber<T, ST>::init() {
    Lifecycle::init(*this);
}

template <typename T, typename ST>
bool KrinSubscriber<T, ST>::events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) {
    return Lifecycle::events(*this, socket, event);
}

template <typename T, typename ST>
void KrinSubscriber<T, ST>::close() {
    // Only the destructor closes without waiting.
    Lifecycle::close(*this, destroying);
}

template <typename T, typename ST>
bool KrinSubscriber<T, ST>::readData() {
    return Lifecycle::receive(*this);
}

template <typename T, typename ST>
void KrinSubscriber<T, ST>::deliver(std::unique_ptr<ST> entity, const orlo::dabo::krin::rr::KrinHeader& header) {
    if (tracingEnabled && header.has_tracecontext()) {
        // A sample that cannot hold a context simply does not get one.
        if (auto* traceable = dynamic_cast<orlo::dabo::ps::Traceable*>(entity.get())) {
            traceable->setTraceContext(header.tracecontext());
        }
    }
    const double sourceTimestamp = header.sourcetimestamp();
    const long generation = writerGeneration;
    // Taken after parsing and before the engine's lock, so that lock waits do not count as latency.
    const long receiveTimeMs = orlo::dabo::util::currentTimeMillis();
    this->impl->newData(std::unique_ptr<T>(std::move(entity)), sourceTimestamp, generation, receiveTimeMs);
}

}  // namespace orlo::dabo::krin::detail::ps
