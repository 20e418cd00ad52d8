#pragma once

#include <log4cplus/loggingmacros.h>

#include <utility>

#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/krin/detail/ps/createDataEntity.h"
#include "dabo/krin/detail/ps/subscriber.h"
#include "dabo/krin/detail/ps/subscriberCommon.h"
#include "dabo/krin/detail/ps/topicTraits.h"
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
      logger(log4cplus::Logger::getInstance("vexa.dabo.krin.subscriber")),
      destroying(false),
      tracingEnabled(false),
      // Read here only: a later change of the property affects later subscribers only.
      disableTypeHashCheck(orlo::dabo::krin::detail::getDaboBoolProperty(
          properties, "krin.ps.disableTypeHashCheck", false)) {
    this->state = CREATED;
    const subscriberCommon::TopicIdentity identity = subscriberCommon::identifyTopic(this->uri);
    topicIdFrame = identity.topicIdFrame;
    dataEntityTypeHash = TopicTraits<T>::dataEntityTypeHash;
    subscriberCommon::traceIdentity(logger, "KrinSubscriber", identity);
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
    subscriberCommon::traceWithId(logger, "Register KrinSubscriber: ", topicIdFrame);
    std::weak_ptr<EventsHandler> handler(this->shared_from_this());
    this->dabo->registerSubscriber(this->uri, topicIdFrame, handler);
    if (!this->waitForEvent(REGISTERED)) {
        const std::string text = "KrinSubscriber did not receive it's subscription socket";
        LOG4CPLUS_ERROR(logger, text);
        throw orlo::dabo::DaboException(text);
    }
    this->state = INITIALIZED;
}

template <typename T, typename ST>
bool KrinSubscriber<T, ST>::events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) {
    switch (event) {
        case REGISTERED:
            // Stored before the event is published, so that the handshake makes it visible.
            this->socket = socket;
            subscriberCommon::traceWithId(logger, "REGISTERED event received for KrinSubscriber: ", topicIdFrame);
            this->recordEvent(REGISTERED);
            break;
        case UNREGISTERED:
            subscriberCommon::traceWithId(logger, "UNREGISTERED event received for KrinSubscriber: ", topicIdFrame);
            this->recordEvent(UNREGISTERED);
            break;
        case POLLER_READABLE:
            subscriberCommon::traceWithId(logger, "POLLER_READABLE event received for KrinSubscriber: ",
                                          topicIdFrame);
            readData();
            break;
        default:
            break;
    }
    return true;
}

template <typename T, typename ST>
void KrinSubscriber<T, ST>::close() {
    if (this->state == CLOSED) {
        // The publisher's wording, in a subscriber too.
        LOG4CPLUS_WARN(logger, "Publisher already closed");
        return;
    }
    subscriberCommon::traceWithId(logger, "Closing KrinSubscriber: ", topicIdFrame);
    if (socket) {
        subscriberCommon::traceWithId(logger, "Unregistering KrinSubscriber from DABO: ", topicIdFrame);
        if (destroying) {
            std::weak_ptr<EventsHandler> noHandler;
            this->dabo->unregisterSubscriber(socket, noHandler);
        } else {
            std::weak_ptr<EventsHandler> handler(this->shared_from_this());
            this->dabo->unregisterSubscriber(socket, handler);
            // Without the confirmation close goes on all the same.
            this->waitForEvent(UNREGISTERED);
        }
    }
    this->state = CLOSED;
    orlo::dabo::ps::queue::QueuedSubscriber<T, ST>::close();
}

template <typename T, typename ST>
void KrinSubscriber<T, ST>::readData() {
    if (this->state != INITIALIZED) {
        subscriberCommon::warnNotReady(logger);
        return;
    }
    try {
        subscriberCommon::ReceivedFrames frames;
        const subscriberCommon::Expectation expected{topicIdFrame, dataEntityTypeHash, disableTypeHashCheck};
        if (subscriberCommon::receiveFrames(*socket, expected, subscriberCommon::queuedWording, logger, frames) !=
            subscriberCommon::FramesOutcome::Complete) {
            return;
        }
        std::unique_ptr<ST> entity = createDataEntityImpl<ST>();
        if (!entity->fromByteArray(frames.payload.data(), frames.payload.size())) {
            subscriberCommon::throwPayloadRefused(subscriberCommon::queuedWording, topicIdFrame);
        }
        if (tracingEnabled && frames.header.has_tracecontext()) {
            // A sample that cannot hold a context simply does not get one.
            if (auto* traceable = dynamic_cast<orlo::dabo::ps::Traceable*>(entity.get())) {
                traceable->setTraceContext(frames.header.tracecontext());
            }
        }
        const double sourceTimestamp = frames.header.sourcetimestamp();
        const long generation = writerGeneration;
        // Taken after parsing and before the engine's lock, so that lock waits do not count as latency.
        const long receiveTimeMs = orlo::dabo::util::currentTimeMillis();
        this->impl->newData(std::unique_ptr<T>(std::move(entity)), sourceTimestamp, generation, receiveTimeMs);
    } catch (const std::exception& failure) {
        subscriberCommon::reportFailureAndDiscard(logger, failure, *socket);
    }
}

}  // namespace orlo::dabo::krin::detail::ps
