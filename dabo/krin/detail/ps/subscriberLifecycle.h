#pragma once

#include <memory>
#include <utility>

#include "dabo/krin/detail/EventsHandler.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/ps/PubSubState.h"
#include "dabo/krin/detail/ps/createDataEntity.h"
#include "dabo/krin/detail/ps/subscriberCommon.h"
#include "dabo/krin/detail/ps/topicTraits.h"

namespace orlo::dabo::krin::detail::ps {

/// The life cycle that the queued and the most-recent-value subscriber share:
/// working out the topic's identity, registering, answering the runtime's
/// events, closing, and taking one message off the socket. Each subscriber
/// keeps its own members (their layout is the class's) and makes this its
/// friend; its operations forward here.
///
/// Where the two kinds differ, each difference is in one place:
/// - their words, and the silence of the most-recent-value subscriber on a
///   message of another topic: `kind`, `subscriberCommon::queuedKind` or
///   `mrvKind`;
/// - where a sample goes (the queue engine, with its timestamps and trace
///   context, or the store): each class's `deliver`;
/// - what closes last (the engine or the store): `SampleHolder`;
/// - closing without a wait for the runtime: asked for only by the queued
///   subscriber's destructor, through `close`'s `withoutWaiting`;
/// - the destructor: only the queued subscriber's closes.
///
/// A subscriber `S` of topic `T` with binding `ST` names these in its
/// `Lifecycle`, and provides `deliver`, `readData` and the members
/// `topicIdFrame`, `dataEntityTypeHash`, `socket`, `logger` and
/// `disableTypeHashCheck`.
template <typename S, typename T, typename ST, typename SampleHolder, const subscriberCommon::SubscriberKind& kind>
struct SubscriberLifecycle {
    /// The constructor's part after the members are initialised: state
    /// CREATED, the topic's identity from the URI, the type hash of `T`.
    static void identify(S& subscriber) {
        subscriber.state = CREATED;
        const subscriberCommon::TopicIdentity identity = subscriberCommon::identifyTopic(subscriber.uri);
        subscriber.topicIdFrame = identity.topicIdFrame;
        subscriber.dataEntityTypeHash = TopicTraits<T>::dataEntityTypeHash;
        subscriberCommon::traceIdentity(subscriber.logger, kind.className, identity);
    }

    /// Registers and blocks until the subscription socket has arrived; throws
    /// DaboException if it does not within the event time-out.
    static void init(S& subscriber) {
        subscriberCommon::traceNamed(subscriber.logger, "Register ", kind, subscriber.topicIdFrame);
        std::weak_ptr<EventsHandler> handler(subscriber.shared_from_this());
        subscriber.dabo->registerSubscriber(subscriber.uri, subscriber.topicIdFrame, handler);
        if (!subscriber.waitForEvent(REGISTERED)) {
            subscriberCommon::failRegistration(subscriber.logger, kind);
        }
        subscriber.state = INITIALIZED;
    }

    /// The runtime's thread: keeps the socket of REGISTERED, records
    /// registration changes, reads one message per POLLER_READABLE.
    static bool events(S& subscriber, std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) {
        switch (event) {
            case REGISTERED:
                // Stored before the event is published, so that the handshake makes it visible.
                subscriber.socket = socket;
                subscriberCommon::traceNamed(subscriber.logger, "REGISTERED event received for ", kind,
                                             subscriber.topicIdFrame);
                subscriber.recordEvent(REGISTERED);
                break;
            case UNREGISTERED:
                subscriberCommon::traceNamed(subscriber.logger, "UNREGISTERED event received for ", kind,
                                             subscriber.topicIdFrame);
                subscriber.recordEvent(UNREGISTERED);
                break;
            case POLLER_READABLE:
                subscriberCommon::traceNamed(subscriber.logger, "POLLER_READABLE event received for ", kind,
                                             subscriber.topicIdFrame);
                subscriber.readData();
                break;
            default:
                break;
        }
        return true;
    }

    /// Unregisters, then closes the holder of the samples. With `withoutWaiting`
    /// the runtime gets an empty handler and nothing waits for its
    /// confirmation, so that a destructor neither blocks nor reaches
    /// shared_from_this(); otherwise it waits up to the event time-out and goes
    /// on without the confirmation all the same.
    static void close(S& subscriber, bool withoutWaiting) {
        if (subscriber.state == CLOSED) {
            subscriberCommon::warnAlreadyClosed(subscriber.logger);
            return;
        }
        subscriberCommon::traceNamed(subscriber.logger, "Closing ", kind, subscriber.topicIdFrame);
        // Null after a failed init: nothing is unregistered then.
        if (subscriber.socket) {
            subscriberCommon::traceWithId(subscriber.logger, kind.unregisteringTrace, subscriber.topicIdFrame);
            if (withoutWaiting) {
                std::weak_ptr<EventsHandler> noHandler;
                subscriber.dabo->unregisterSubscriber(subscriber.socket, noHandler);
            } else {
                std::weak_ptr<EventsHandler> handler(subscriber.shared_from_this());
                subscriber.dabo->unregisterSubscriber(subscriber.socket, handler);
                subscriber.waitForEvent(UNREGISTERED);
            }
        }
        subscriber.state = CLOSED;
        // Last, once the runtime has let go of the socket; by name, not virtually.
        subscriber.SampleHolder::close();
    }

    /// Takes one message off the socket, checks it, and hands the sample of
    /// binding `ST` to the subscriber's `deliver`. A bad message is logged and
    /// the rest of it dropped; nothing reaches the caller.
    static void receive(S& subscriber) {
        if (subscriber.state != INITIALIZED) {
            subscriberCommon::warnNotReady(subscriber.logger);
            return;
        }
        try {
            subscriberCommon::ReceivedFrames frames;
            const subscriberCommon::Expectation expected{subscriber.topicIdFrame, subscriber.dataEntityTypeHash,
                                                         subscriber.disableTypeHashCheck};
            if (subscriberCommon::receiveFrames(*subscriber.socket, expected, kind, subscriber.logger,
                                                subscriber.receiveFailures, frames) !=
                subscriberCommon::FramesOutcome::Complete) {
                return;
            }
            std::unique_ptr<ST> entity = createDataEntityImpl<ST>();
            if (!entity->fromByteArray(frames.payload.data(), frames.payload.size())) {
                subscriberCommon::throwPayloadRefused(kind, subscriber.topicIdFrame);
            }
            subscriber.deliver(std::move(entity), frames.header);
        } catch (const std::exception& failure) {
            subscriberCommon::reportFailureAndDiscard(subscriber.logger, subscriber.receiveFailures, failure,
                                                      *subscriber.socket);
        }
    }
};

}  // namespace orlo::dabo::krin::detail::ps
