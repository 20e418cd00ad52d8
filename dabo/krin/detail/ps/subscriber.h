#pragma once

#include <atomic>

#include "dabo/krin/detail/LogLimiter.h"
#include "dabo/krin/detail/ps/subscriberLifecycleFwd.h"
#include "dabo/ps/queue/QueuedSubscriber.h"

namespace orlo::dabo::krin::detail::ps {

/// Queued subscriber of topic `T` (binding `ST`) over the transport. Reading,
/// polling and subscribing are the queue engine's; this class ties the engine
/// to the runtime: it registers, receives its subscription socket with
/// REGISTERED, turns each readable message into a sample for the engine, and
/// unregisters on close. The life cycle is the one it shares with
/// KrinMrvSubscriber (SubscriberLifecycle); what is its own is marked so.
///
/// It must be owned by a std::shared_ptr before `init`, since the runtime
/// holds it only as a std::weak_ptr<EventsHandler>.
template <typename T, typename ST>
class KrinSubscriber : public orlo::dabo::ps::queue::QueuedSubscriber<T, ST>,
                       public std::enable_shared_from_this<KrinSubscriber<T, ST>>,
                       public EventsHandler,
                       protected KrinBasePubSub<T, ST> {
public:
    KrinSubscriber(const std::string& uri, const QoSList& qos, const orlo::dabo::Dabo::Properties& properties,
                   const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo);

    /// Its own: closes an open subscriber, without waiting for the runtime's confirmation.
    ~KrinSubscriber() override;

    /// Unregisters, waits up to the event time-out for UNREGISTERED, then
    /// closes the engine. On a closed subscriber it only warns.
    void close() override;

    /// Runtime's thread: keeps the socket of REGISTERED, records registration
    /// changes, and reads one message per POLLER_READABLE. Always true.
    bool events(std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event) override;

    /// Registers with the runtime and blocks until the subscription socket has
    /// arrived; throws DaboException if it does not within the event time-out.
    void init();

protected:
    /// Handed to the engine with every sample; a live writer is always generation 1.
    int writerGeneration;
    /// First frame of every message of this topic, and the runtime's subscription key.
    std::string topicIdFrame;
    /// What a received header must carry, unless the check is disabled.
    std::uint32_t dataEntityTypeHash;
    /// Set by REGISTERED on the runtime's thread; kept after close.
    std::shared_ptr<zmq::socket_t> socket;
    log4cplus::Logger logger;
    /// Bad messages already reported, on the runtime's thread: a repeated one is
    /// logged once per interval with its count.
    LogLimiter receiveFailures;
    /// Set only by the destructor: close must then neither wait nor reach shared_from_this().
    std::atomic<bool> destroying;
    /// Hands a received trace context to a traceable sample. Nothing in the
    /// library switches it on.
    bool tracingEnabled;
    /// From "krin.ps.disableTypeHashCheck" at construction.
    bool disableTypeHashCheck;

private:
    /// Its life cycle, with what closes last (the queue engine) and its words.
    using Lifecycle = SubscriberLifecycle<KrinSubscriber, T, ST, orlo::dabo::ps::queue::QueuedSubscriber<T, ST>,
                                          subscriberCommon::queuedKind>;
    friend Lifecycle;

    /// Takes one message off the socket, checks it and hands the sample to the engine.
    void readData();

    /// Its own: the sample enters the engine with its source timestamp, the
    /// writer's generation and its time of receipt, and with the header's
    /// trace context if tracing is on.
    void deliver(std::unique_ptr<ST> entity, const orlo::dabo::krin::rr::KrinHeader& header);
};

}  // namespace orlo::dabo::krin::detail::ps
