#include "dabo/krin/detail/ps/subscriberCommon.h"

#include <log4cplus/loggingmacros.h>
#include <network/uri.hpp>

#include <stdexcept>

#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"

namespace orlo::dabo::krin::detail::ps::subscriberCommon {

namespace {

constexpr const char* notReadyText = "Read data was called in INITIALIZING or CLOSED state. Ignoring...";
constexpr const char* failurePrefix = "Failed to process message. msg:";

void traceSocketStep(const log4cplus::Logger& logger, const char* what, const SubscriberKind& kind,
                     const std::string& topicIdFrame) {
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, "Read " << what << " from " << kind.socketName << ": "
                                        << orlo::dabo::krin::detail::getSubscriberId(topicIdFrame));
    }
}

[[noreturn]] void throwParseFailure(const char* what, const SubscriberKind& kind, const std::string& topicIdFrame) {
    throw std::runtime_error(std::string("Parsing ") + what + " failed for " + kind.socketName + ":" +
                             orlo::dabo::krin::detail::getSubscriberId(topicIdFrame));
}

}  // namespace

const SubscriberKind queuedKind{"KrinSubscriber", "Unregistering KrinSubscriber from DABO: ", "KrinSubscriber socket",
                                true};
const SubscriberKind mrvKind{"KrinMrvSubscriber", "Unregistering subscriber from DABO: ", "subscriber socket", false};

TopicIdentity identifyTopic(const std::string& uri) {
    // A subscriber does not bind, hence the first flag differs from the publisher's.
    orlo::dabo::krin::detail::checkKrinUri(uri, false, true);
    const network::uri parsed(uri);
    TopicIdentity identity;
    identity.topicName = parsed.path().to_string();
    identity.topicIdHash = static_cast<std::uint32_t>(orlo::dabo::util::topicNameHash(identity.topicName));
    identity.topicIdFrame = orlo::dabo::krin::detail::createFrame0(identity.topicIdHash);
    return identity;
}

FramesOutcome receiveFrames(zmq::socket_t& socket, const Expectation& expected, const SubscriberKind& kind,
                            const log4cplus::Logger& logger, LogLimiter& repeats, ReceivedFrames& frames) {
    using orlo::dabo::krin::detail::readFrame;
    using orlo::dabo::krin::detail::requireMoreFrames;
    using orlo::dabo::util::hexStr;

    traceSocketStep(logger, "topicIdFrame", kind, expected.topicIdFrame);
    const std::string topicFrame = readFrame(socket);
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, "Subscriber Topic frame:" << hexStr(topicFrame));
    }
    if (topicFrame != expected.topicIdFrame) {
        // The rest of this message stays in the socket: the following events
        // read its frames as topic frames, mismatch again, and so use them up.
        unsigned long heldBack = 0;
        if (kind.reportTopicMismatch &&
            repeats.admit("mismatch " + topicFrame, LogLimiter::Clock::now(), heldBack)) {
            LOG4CPLUS_ERROR(logger, "Topic Id mismatch on received frame, expected: "
                                        << hexStr(expected.topicIdFrame) << " received: " << hexStr(topicFrame)
                                        << LogLimiter::heldBackNote(heldBack));
        }
        return FramesOutcome::TopicMismatch;
    }
    requireMoreFrames(socket);

    traceSocketStep(logger, "krinHeaderFrame", kind, expected.topicIdFrame);
    const std::string headerFrame = readFrame(socket);
    if (!frames.header.ParseFromString(headerFrame)) {
        throwParseFailure("krinHeader", kind, expected.topicIdFrame);
    }
    // Checked before the payload is touched, so a sample of a foreign type is never parsed.
    if (!expected.disableTypeHashCheck && frames.header.dataentitytypehash() != expected.dataEntityTypeHash) {
        throw std::runtime_error(typeHashMismatchText(expected.dataEntityTypeHash, frames.header.dataentitytypehash()));
    }
    requireMoreFrames(socket);

    traceSocketStep(logger, "krinDataEntityFrame", kind, expected.topicIdFrame);
    if (!socket.recv(frames.payload, zmq::recv_flags::none)) {
        return FramesOutcome::WouldBlock;
    }
    return FramesOutcome::Complete;
}

log4cplus::Logger subscriberLogger() {
    return log4cplus::Logger::getInstance("vexa.dabo.krin.subscriber");
}

bool typeHashCheckDisabled(const orlo::dabo::Dabo::Properties& properties) {
    // Read at construction only: a later change of the property affects later subscribers only.
    return orlo::dabo::krin::detail::getDaboBoolProperty(properties, "krin.ps.disableTypeHashCheck", false);
}

void failRegistration(const log4cplus::Logger& logger, const SubscriberKind& kind) {
    const std::string text = std::string(kind.className) + " did not receive it's subscription socket";
    LOG4CPLUS_ERROR(logger, text);
    throw orlo::dabo::DaboException(text);
}

void warnAlreadyClosed(const log4cplus::Logger& logger) {
    // The publisher's wording, in a subscriber too.
    LOG4CPLUS_WARN(logger, "Publisher already closed");
}

void warnNotReady(const log4cplus::Logger& logger) {
    LOG4CPLUS_WARN(logger, notReadyText);
}

void throwPayloadRefused(const SubscriberKind& kind, const std::string& topicIdFrame) {
    throwParseFailure("krinDataEntity", kind, topicIdFrame);
}

void reportFailureAndDiscard(const log4cplus::Logger& logger, LogLimiter& repeats, const std::exception& failure,
                             zmq::socket_t& socket) {
    unsigned long heldBack = 0;
    if (repeats.admit(failure.what(), LogLimiter::Clock::now(), heldBack)) {
        LOG4CPLUS_ERROR(logger, failurePrefix << failure.what() << LogLimiter::heldBackNote(heldBack));
    }
    orlo::dabo::krin::detail::discardFrames(socket);
}

std::string typeHashMismatchText(std::uint32_t local, std::uint32_t remote) {
    return "Remote data entity type hash does not match (" + std::to_string(static_cast<std::int32_t>(local)) +
           " != " + std::to_string(static_cast<std::int32_t>(remote)) + ").";
}

void traceWithId(const log4cplus::Logger& logger, const char* prefix, const std::string& topicIdFrame) {
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, prefix << orlo::dabo::krin::detail::getSubscriberId(topicIdFrame));
    }
}

void traceNamed(const log4cplus::Logger& logger, const char* prefix, const SubscriberKind& kind,
                const std::string& topicIdFrame) {
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, prefix << kind.className << ": "
                                       << orlo::dabo::krin::detail::getSubscriberId(topicIdFrame));
    }
}

void traceIdentity(const log4cplus::Logger& logger, const char* className, const TopicIdentity& identity) {
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, className << " topicName:" << identity.topicName
                                          << " topicIdHash:" << identity.topicIdHash << " topicIdFrame:"
                                          << orlo::dabo::krin::detail::getSubscriberId(identity.topicIdFrame));
    }
}

}  // namespace orlo::dabo::krin::detail::ps::subscriberCommon
