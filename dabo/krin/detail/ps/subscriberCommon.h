#pragma once

#include <log4cplus/logger.h>

#include <cstdint>
#include <exception>
#include <string>
#include <zmq.hpp>

#include "dabo/Dabo.h"
#include "dabo/krin/detail/LogLimiter.h"
#include "krin.pb.h"

// The parts of both subscribers that do not depend on the topic type: the
// topic's identity from its URI, the steps and texts of registering and
// closing, the frames of one message up to its payload, and the texts with
// which a bad message is reported. Compiled once.
namespace orlo::dabo::krin::detail::ps::subscriberCommon {

/// Who a subscriber is on the wire, worked out once from its URI.
struct TopicIdentity {
    std::string topicName;
    std::uint32_t topicIdHash;
    std::string topicIdFrame;
};

/// Checks `uri` for a subscriber, and derives the topic name (the URI's path,
/// unstripped), its hash and the first frame of its messages. Exceptions of
/// the URI check and of the URI parser pass through.
TopicIdentity identifyTopic(const std::string& uri);

/// Everything the two kinds of subscriber say differently, and whether they
/// report a message of another topic. One row per kind, in subscriberCommon.cpp.
struct SubscriberKind {
    /// "KrinSubscriber" or "KrinMrvSubscriber": in the life-cycle traces and
    /// the failure of `init`.
    const char* className;
    /// TRACE text before unregistering; the most-recent-value subscriber's
    /// does not name its class.
    const char* unregisteringTrace;
    /// "KrinSubscriber socket" or "subscriber socket": in receive traces and
    /// parse failures.
    const char* socketName;
    /// The queued subscriber logs an ERROR for a message of another topic; the
    /// most-recent-value subscriber stays silent.
    bool reportTopicMismatch;
};

/// The queued subscriber's words.
extern const SubscriberKind queuedKind;
/// The most-recent-value subscriber's words.
extern const SubscriberKind mrvKind;

/// What a received message is checked against.
struct Expectation {
    const std::string& topicIdFrame;
    std::uint32_t dataEntityTypeHash;
    bool disableTypeHashCheck;
};

/// The two frames of a message that the typed half of a receive path still needs.
struct ReceivedFrames {
    orlo::dabo::krin::rr::KrinHeader header;
    /// The payload, still in ZeroMQ's buffer; parsed in place.
    zmq::message_t payload;
};

/// How far the frames of one message got.
enum class FramesOutcome {
    /// Header parsed, type accepted, payload received: `frames` is filled.
    Complete,
    /// The first frame belongs to another topic; the rest of the message is
    /// left in the socket on purpose.
    TopicMismatch,
    /// The payload frame would have blocked: the sample is dropped without a word.
    WouldBlock,
};

/// Reads one message up to and including its payload frame: topic frame,
/// header, type hash, payload. A failure to read or a bad header or type
/// throws std::exception; the caller's handler reports it and discards the
/// rest of the message.
/// `repeats`: the subscriber's own, so that a peer that sends the same bad
/// message again and again yields one line per interval with the count.
FramesOutcome receiveFrames(zmq::socket_t& socket, const Expectation& expected, const SubscriberKind& kind,
                            const log4cplus::Logger& logger, LogLimiter& repeats, ReceivedFrames& frames);

/// The logger of both kinds, "vexa.dabo.krin.subscriber".
log4cplus::Logger subscriberLogger();

/// "krin.ps.disableTypeHashCheck" of `properties`, false when absent.
bool typeHashCheckDisabled(const orlo::dabo::Dabo::Properties& properties);

/// ERROR and DaboException: `<className> did not receive it's subscription socket`.
[[noreturn]] void failRegistration(const log4cplus::Logger& logger, const SubscriberKind& kind);

/// WARN line of `close` on a closed subscriber, the publisher's words.
void warnAlreadyClosed(const log4cplus::Logger& logger);

/// WARN line for a readable socket before initialisation or after close.
void warnNotReady(const log4cplus::Logger& logger);

/// Throws the failure of a payload that the binding refused to parse.
[[noreturn]] void throwPayloadRefused(const SubscriberKind& kind, const std::string& topicIdFrame);

/// The handler of a receive path: ERROR "Failed to process message. msg:" with
/// the failure's text (the same text again only once per interval of
/// `repeats`, with the count held back), then drops what is left of the message.
void reportFailureAndDiscard(const log4cplus::Logger& logger, LogLimiter& repeats, const std::exception& failure,
                             zmq::socket_t& socket);

/// Text of a header whose type hash is not the subscriber's; both numbers as
/// signed 32-bit decimals, the local one first.
std::string typeHashMismatchText(std::uint32_t local, std::uint32_t remote);

/// TRACE `prefix` followed by the subscriber's printable id; the id is only
/// worked out when TRACE is enabled.
void traceWithId(const log4cplus::Logger& logger, const char* prefix, const std::string& topicIdFrame);

/// TRACE `<prefix><className>: <id>`, such as "Closing KrinSubscriber: id" or
/// "REGISTERED event received for KrinMrvSubscriber: id".
void traceNamed(const log4cplus::Logger& logger, const char* prefix, const SubscriberKind& kind,
                const std::string& topicIdFrame);

/// TRACE line of a constructor: `<className> topicName:... topicIdHash:... topicIdFrame:<id>`.
void traceIdentity(const log4cplus::Logger& logger, const char* className, const TopicIdentity& identity);

}  // namespace orlo::dabo::krin::detail::ps::subscriberCommon
