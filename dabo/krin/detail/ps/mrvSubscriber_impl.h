#pragma once

#include <utility>

#include "dabo/krin/detail/ps/mrvSubscriber.h"
#include "dabo/krin/detail/ps/subscriberLifecycle.h"
#include "dabo/ps/queue/MapMrvSubscriber_impl.h"

namespace orlo::dabo::krin::detail::ps {

template <typename T, typename ST>
KrinMrvSubscriber<T, ST>::KrinMrvSubscriber(const std::string& uri, const QoSList& qos,
                                            const orlo::dabo::Dabo::Properties& properties,
                                            const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo)
    // qos only reaches the base: a store has no latency or deadline.
    : orlo::dabo::ps::queue::MapMrvSubscriber<T, ST>(),
      KrinBasePubSub<T, ST>(uri, qos, properties, dabo),
      topicIdFrame(),
      dataEntityTypeHash(TopicTraits<T>::dataEntityTypeHash),
      socket(),
      logger(subscriberCommon::subscriberLogger()),
      disableTypeHashCheck(subscriberCommon::typeHashCheckDisabled(properties)) {
    Lifecycle::identify(*this);
}

template <typename T, typename ST>
void KrinMrvSubscriber<T, ST>::init() {
    Lifecycle::init(*this);
}

template <typename T, typename ST>
bool KrinMrvSubscriber<T, ST>::events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) {
    return Lifecycle::events(*this, socket, event);
}

template <typename T, typename ST>
void KrinMrvSubscriber<T, ST>::close() {
    // Always with the wait: no destructor of this class closes.
    Lifecycle::close(*this, false);
}

template <typename T, typename ST>
bool KrinMrvSubscriber<T, ST>::readData() {
    return Lifecycle::receive(*this);
}

template <typename T, typename ST>
void KrinMrvSubscriber<T, ST>::deliver(std::unique_ptr<ST> entity, const orlo::dabo::krin::rr::KrinHeader&) {
    // The store's own rule: under its mutex, the new sample replaces the
    // element of its key. No topic of this package has a key, so nothing is
    // ever replaced and every sample adds an element.
    this->storeSample(std::shared_ptr<ST>(std::move(entity)));
}

}  // namespace orlo::dabo::krin::detail::ps
