#pragma once

// Bodies of KrinPublisher. Included by the one unit that instantiates the
// publishers of the package's topics, and by tests that instantiate their own.

#include <log4cplus/loggingmacros.h>

#include <optional>
#include <string>
#include <thread>

#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/krin/detail/ps/createDataEntity.h"
#include "dabo/krin/detail/ps/obtainImpl.h"
#include "dabo/krin/detail/ps/publisher.h"
#include "dabo/krin/detail/ps/topicTraits.h"
#include "dabo/util/DaboUtil.h"
#include "krin.pb.h"

namespace orlo::dabo::krin::detail::ps {

/// What the publishers of all topics share, compiled once: the log texts, the
/// three frame sends and the span of a sample.
namespace publisherSupport {

/// The parts of a topic URI that a publisher works with.
struct TopicAddress {
    std::string path;
    std::string endpoint;
};

/// Parses `uri`; a string that is not a URI throws network::uri_syntax_error.
TopicAddress parseTopicUri(const std::string& uri);

void traceCreated(const log4cplus::Logger& logger, const std::string& topicName, std::int32_t topicIdHash,
                  const std::string& topicIdFrame);
/// Logs `text` followed by the bytes in hexadecimal, only when TRACE is on.
void traceFrame(const log4cplus::Logger& logger, const char* text, const std::string& bytes);

[[noreturn]] void failRegistration(const log4cplus::Logger& logger);
[[noreturn]] void refuseNegativeTimeout(const log4cplus::Logger& logger);
[[noreturn]] void refuseUnserializableEntity(const log4cplus::Logger& logger);
[[noreturn]] void throwTimeout();
[[noreturn]] void refuseInstancePublisher();

void logTopicFrameFailure(const log4cplus::Logger& logger, const zmq::error_t& error);
void logRemainingFramesFailure(const log4cplus::Logger& logger, const zmq::error_t& error);

/// Frame 1 and 2: copied from the string, more frames follow, never blocks.
void sendLeadingFrame(zmq::socket_t& socket, const std::string& frame);
/// Frame 3: the payload message, handed over to ZeroMQ, never blocks.
void sendDataEntityFrame(zmq::socket_t& socket, zmq::message_t& message);
/// After a failed first frame, the payload goes out on its own; whatever
/// happens to it is ignored.
void sendDataEntityAlone(zmq::socket_t& socket, zmq::message_t& message) noexcept;

/// Makes, serialises and ends the producer span of one sample; empty when
/// there is no tracer.
std::optional<std::string> publishSpanContext(const char* topicShortName);

void sleepSlowJoinerDelay(const orlo::dabo::Dabo::Properties& properties);

}  // namespace publisherSupport

template <typename T, typename ST>
KrinPublisher<T, ST>::KrinPublisher(const std::string& uri, const QoSList& qos,
                                    const orlo::dabo::Dabo::Properties& properties,
                                    const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo)
    : KrinBasePubSub<T, ST>(uri, qos, properties, dabo),
      topicIdHash(0),
      dataEntityTypeHash(TopicTraits<T>::dataEntityTypeHash),
      publisherLogger(log4cplus::Logger::getInstance("vexa.dabo.krin.publisher")),
      destroying(false),
      tracingEnabled(false),
      dealerSocket(nullptr),
      nextSequence(0) {
    checkKrinUri(this->uri, true, true);
    const publisherSupport::TopicAddress address = publisherSupport::parseTopicUri(this->uri);
    topicIdHash = orlo::dabo::util::topicNameHash(address.path);
    topicIdFrame = createFrame0(static_cast<unsigned int>(topicIdHash));
    registrationEndpoint = address.endpoint;
    this->state = CREATED;
    dealerSocket = this->dabo->createDealer();
    publisherSupport::traceCreated(publisherLogger, address.path, topicIdHash, topicIdFrame);
}

template <typename T, typename ST>
KrinPublisher<T, ST>::~KrinPublisher() {
    if (this->state != CLOSED) {
        destroying.exchange(true);
        close();
    }
}

template <typename T, typename ST>
std::shared_ptr<orlo::dabo::Dabo> KrinPublisher<T, ST>::getDabo() const {
    return this->dabo;
}

template <typename T, typename ST>
std::unique_ptr<orlo::dabo::ps::InstancePublisher<T>> KrinPublisher<T, ST>::createInstancePublisher(const T&) {
    publisherSupport::refuseInstancePublisher();
}

template <typename T, typename ST>
void KrinPublisher<T, ST>::publish(const T& sample, const std::chrono::milliseconds& timeout) {
    internalPublish(nullptr, sample, timeout);
}

template <typename T, typename ST>
void KrinPublisher<T, ST>::publish(double timestamp, const T& sample, const std::chrono::milliseconds& timeout) {
    internalPublish(&timestamp, sample, timeout);
}

template <typename T, typename ST>
std::shared_ptr<T> KrinPublisher<T, ST>::createDataEntity() {
    this->checkState();
    return createDataEntityInternal<T, ST>();
}

template <typename T, typename ST>
void KrinPublisher<T, ST>::close() {
    if (this->state == CLOSED) {
        return;
    }
    std::lock_guard<std::mutex> sendLock(sendMutex);
    if (destroying.load()) {
        // No shared_from_this() in a destructor, and nobody left to tell.
        std::weak_ptr<EventsHandler> nobody;
        this->dabo->unregisterPublisher(registrationEndpoint, getSocketIdentity(*dealerSocket), nobody);
    } else {
        std::weak_ptr<EventsHandler> handler(this->shared_from_this());
        this->dabo->unregisterPublisher(registrationEndpoint, getSocketIdentity(*dealerSocket), handler);
        // Without confirmation the publisher closes all the same.
        this->waitForEvent(UNREGISTERED);
    }
    {
        std::lock_guard<std::mutex> listLock(instanceListMutex);
        for (orlo::dabo::ps::InstancePublisher<T>* instancePublisher : instancePublishers) {
            instancePublisher->close();
        }
    }
    this->state = CLOSED;
}

template <typename T, typename ST>
bool KrinPublisher<T, ST>::events(std::shared_ptr<zmq::socket_t>&, KrinDaboEvent event) {
    if (event == REGISTERED) {
        LOG4CPLUS_TRACE(publisherLogger, "REGISTERED event received for KrinPublisher ");
        this->recordEvent(REGISTERED);
    } else if (event == UNREGISTERED) {
        LOG4CPLUS_TRACE(publisherLogger, "UNREGISTERED event received for KrinPublisher ");
        this->recordEvent(UNREGISTERED);
    }
    return true;
}

template <typename T, typename ST>
void KrinPublisher<T, ST>::init() {
    LOG4CPLUS_TRACE(publisherLogger, "Register KrinPublisher with DABO ");
    std::weak_ptr<EventsHandler> handler(this->shared_from_this());
    const std::string identity = getSocketIdentity(*dealerSocket);
    this->dabo->registerPublisher(registrationEndpoint, identity, handler, this->properties);
    if (!this->waitForEvent(REGISTERED)) {
        publisherSupport::failRegistration(publisherLogger);
    }
    slowJoinerDelay(this->properties);
    this->state = INITIALIZED;
}

template <typename T, typename ST>
void KrinPublisher<T, ST>::slowJoinerDelay(const orlo::dabo::Dabo::Properties& properties) {
    publisherSupport::sleepSlowJoinerDelay(properties);
}

template <typename T, typename ST>
void KrinPublisher<T, ST>::internalPublish(const double* timestamp, const T& sample,
                                           const std::chrono::milliseconds& timeout) {
    this->checkState();
    if (timeout.count() < 0) {
        publisherSupport::refuseNegativeTimeout(publisherLogger);
    }
    std::lock_guard<std::mutex> sendLock(sendMutex);

    // The wall clock: a sample's time is wall-clock time, and so is its deadline.
    std::chrono::system_clock::time_point now = std::chrono::system_clock::now();
    const std::chrono::system_clock::time_point deadline = now + timeout;

    orlo::dabo::krin::rr::KrinHeader header;
    header.set_topicidhash(topicIdHash);
    header.set_dataentitytypehash(dataEntityTypeHash);
    if (tracingEnabled) {
        std::optional<std::string> traceContext = publisherSupport::publishSpanContext(TopicTraits<T>::shortName);
        if (traceContext) {
            header.set_tracecontext(std::move(*traceContext));
        }
    }
    if (timestamp != nullptr) {
        header.set_sourcetimestamp(*timestamp);
    } else {
        const auto sinceEpoch = std::chrono::duration_cast<std::chrono::nanoseconds>(now.time_since_epoch());
        header.set_sourcetimestamp(static_cast<double>(sinceEpoch.count()) / 1000000000.0);
    }
    // One number per publish call, whatever becomes of the call.
    header.set_samplesequence(nextSequence);
    ++nextSequence;
    std::string headerFrame;
    header.SerializeToString(&headerFrame);

    const ST& impl = obtainImpl<T, ST>(sample, publisherLogger);
    if (deadline < now) {
        publisherSupport::throwTimeout();
    }
    std::chrono::milliseconds backoff(1);
    for (;;) {
        // Sending consumes the message, so every attempt serialises anew.
        zmq::message_t message;
        if (!impl.toByteArray(message)) {
            publisherSupport::refuseUnserializableEntity(publisherLogger);
        }
        bool topicFrameSent = false;
        try {
            publisherSupport::traceFrame(publisherLogger, "Publisher's dealer socket sending topicIdFrame:",
                                         topicIdFrame);
            publisherSupport::sendLeadingFrame(*dealerSocket, topicIdFrame);
            topicFrameSent = true;
        } catch (const zmq::error_t& error) {
            publisherSupport::logTopicFrameFailure(publisherLogger, error);
            publisherSupport::sendDataEntityAlone(*dealerSocket, message);
        }
        if (topicFrameSent) {
            try {
                publisherSupport::traceFrame(publisherLogger, "Publisher's dealer socket sending krinHeaderFrameMsg:",
                                             headerFrame);
                publisherSupport::sendLeadingFrame(*dealerSocket, headerFrame);
                // This line shows the header's bytes again, not the payload's.
                publisherSupport::traceFrame(publisherLogger, "Publisher's dealer socket sending krinDataEntityMsg:",
                                             headerFrame);
                publisherSupport::sendDataEntityFrame(*dealerSocket, message);
                return;
            } catch (const zmq::error_t& error) {
                publisherSupport::logRemainingFramesFailure(publisherLogger, error);
            }
        }

        // Back off after a hard socket error, doubling the pause each time,
        // for as long as the time-out allows.
        const auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now);
        if (remaining.count() <= 0) {
            publisherSupport::throwTimeout();
        }
        std::this_thread::sleep_for(std::min(remaining, backoff));
        backoff *= 2;
        now = std::chrono::system_clock::now();
        if (now > deadline) {
            publisherSupport::throwTimeout();
        }
    }
}

}  // namespace orlo::dabo::krin::detail::ps
