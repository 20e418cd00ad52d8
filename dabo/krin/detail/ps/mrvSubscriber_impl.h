#pragma once

#include <log4cplus/loggingmacros.h>

#include <utility>

#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/krin/detail/ps/createDataEntity.h"
#include "dabo/krin/detail/ps/mrvSubscriber.h"
#include "dabo/krin/detail/ps/subscriberCommon.h"
#include "dabo/krin/detail/ps/topicTraits.h"
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
      logger(log4cplus::Logger::getInstance("vexa.dabo.krin.subscriber")),
      disableTypeHashCheck(orlo::dabo::krin::detail::getDaboBoolProperty(
          properties, "krin.ps.disableTypeHashCheck", false)) {
    this->state = CREATED;
    const subscriberCommon::TopicIdentity identity = subscriberCommon::identifyTopic(this->uri);
    topicIdFrame = identity.topicIdFrame;
    dataEntityTypeHash = TopicTraits<T>::dataEntityTypeHash;
    subscriberCommon::traceIdentity(logger, "KrinMrvSubscriber", identity);
}

template <typename T, typename ST>
void KrinMrvSubscriber<T, ST>::init() {
    subscriberCommon::traceWithId(logger, "Register KrinMrvSubscriber: ", topicIdFrame);
    std::weak_ptr<EventsHandler> handler(this->shared_from_this());
    this->dabo->registerSubscriber(this->uri, topicIdFrame, handler);
    if (!this->waitForEvent(REGISTERED)) {
        const std::string text = "KrinMrvSubscriber did not receive it's subscription socket";
        LOG4CPLUS_ERROR(logger, text);
        throw orlo::dabo::DaboException(text);
    }
    this->state = INITIALIZED;
}

template <typename T, typename ST>
bool KrinMrvSubscriber<T, ST>::events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) {
    switch (event) {
        case REGISTERED:
            this->socket = socket;
            subscriberCommon::traceWithId(logger, "REGISTERED event received for KrinMrvSubscriber: ", topicIdFrame);
            this->recordEvent(REGISTERED);
            break;
        case UNREGISTERED:
            subscriberCommon::traceWithId(logger, "UNREGISTERED event received for KrinMrvSubscriber: ",
                                          topicIdFrame);
            this->recordEvent(UNREGISTERED);
            break;
        case POLLER_READABLE:
            subscriberCommon::traceWithId(logger, "POLLER_READABLE event received for KrinMrvSubscriber: ",
                                          topicIdFrame);
            readData();
            break;
        default:
            break;
    }
    return true;
}

template <typename T, typename ST>
void KrinMrvSubscriber<T, ST>::close() {
    if (this->state == CLOSED) {
        LOG4CPLUS_WARN(logger, "Publisher already closed");
        return;
    }
    subscriberCommon::traceWithId(logger, "Closing KrinMrvSubscriber: ", topicIdFrame);
    if (socket) {
        subscriberCommon::traceWithId(logger, "Unregistering subscriber from DABO: ", topicIdFrame);
        std::weak_ptr<EventsHandler> handler(this->shared_from_this());
        this->dabo->unregisterSubscriber(socket, handler);
        this->waitForEvent(UNREGISTERED);
    }
    this->state = CLOSED;
    // Reads refuse from here on; the stored samples stay until destruction.
    orlo::dabo::ps::queue::MapMrvSubscriber<T, ST>::close();
}

template <typename T, typename ST>
void KrinMrvSubscriber<T, ST>::readData() {
    if (this->state != INITIALIZED) {
        subscriberCommon::warnNotReady(logger);
        return;
    }
    try {
        subscriberCommon::ReceivedFrames frames;
        const subscriberCommon::Expectation expected{topicIdFrame, dataEntityTypeHash, disableTypeHashCheck};
        if (subscriberCommon::receiveFrames(*socket, expected, subscriberCommon::mrvWording, logger, frames) !=
            subscriberCommon::FramesOutcome::Complete) {
            return;
        }
        std::unique_ptr<ST> entity = createDataEntityImpl<ST>();
        if (!entity->fromByteArray(frames.payload.data(), frames.payload.size())) {
            subscriberCommon::throwPayloadRefused(subscriberCommon::mrvWording, topicIdFrame);
        }
        // The store's own rule: under its mutex, the new sample replaces the
        // element of its key. No topic of this package has a key, so nothing
        // is ever replaced and every sample adds an element.
        this->storeSample(std::shared_ptr<ST>(std::move(entity)));
    } catch (const std::exception& failure) {
        subscriberCommon::reportFailureAndDiscard(logger, failure, *socket);
    }
}

}  // namespace orlo::dabo::krin::detail::ps
