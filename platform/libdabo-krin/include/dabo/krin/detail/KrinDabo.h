#pragma once

#include <memory>
#include <string>
#include <thread>
#include <zmq.hpp>

#include "dabo/Dabo.h"
#include "dabo/krin/detail/EventsHandler.h"
#include "dabo/krin/KrinMetrics.h"

namespace orlo::dabo::krin::detail {

class KrinRuntime;
class MetricsServer;
class RuntimeSeam;
struct RuntimeCommand;

/// The per-process transport runtime: one ZeroMQ context and one event thread.
///
/// Topology. Publishers send on DEALER sockets from createDealer, which connect
/// to the runtime's internal ROUTER. For each registered dealer the runtime's
/// thread moves the frames, without the routing frame and without copying,
/// to the XPUB bound at the dealer's endpoint (one XPUB per endpoint, shared by
/// all publishers on it). A subscriber gets a SUB socket connected to the
/// endpoint of its URI, with its topic frame as the only subscription.
///
/// Threads. Every operation may be called from any thread, also with locks
/// held: registrations and unregistrations are handed to the runtime's thread
/// and the call returns. Events reach handlers only on the runtime's thread,
/// only through a locked std::weak_ptr; an expired handler's events are
/// dropped and its subscription socket closed. The runtime's thread is the
/// only one that touches the SUB sockets, the ROUTER and the XPUBs.
///
/// Lifetime. Destroying the last reference stops the thread, closes the
/// runtime's sockets and terminates the context. The dealers handed out must
/// be gone by then, which holds for every object that keeps the runtime by
/// std::shared_ptr while it owns a dealer.
///
/// Properties: "krin.runtime.highWaterMark" (messages, default 1000, 0 for
/// no limit) sets the high-water marks of the dealers, the ROUTER, the XPUBs
/// and the SUB sockets. "krin.runtime.maxMessageSize" and the CURVE keys
/// "krin.runtime.curve.*" shape the sockets towards other processes
/// (KrinSocketOptions.h): the message limit is 64 MiB unless set (-1 for
/// none), CURVE is off unless keys are given. "krin.runtime.metricsAddress"
/// (HOST:PORT, absent: off) serves metrics() at http://HOST:PORT/metrics in
/// the Prometheus text format; create() fails when it cannot be bound.
class KrinDabo : public orlo::dabo::Dabo {
public:
    static std::shared_ptr<KrinDabo> create(const orlo::dabo::Dabo::Properties& properties);

    ~KrinDabo() override;
    KrinDabo(const KrinDabo&) = delete;
    KrinDabo& operator=(const KrinDabo&) = delete;

    /// A DEALER socket with a unique identity, connected to the runtime.
    /// The caller owns it; it must be closed before the runtime is destroyed.
    std::unique_ptr<zmq::socket_t> createDealer();

    /// Forwards the frames of the dealer `identity` to `endpoint`
    /// ("tcp://HOST:PORT", HOST "*" for all interfaces), binding it if this
    /// runtime has not yet. Then REGISTERED, with an empty socket. A failed
    /// bind is logged at ERROR and no REGISTERED follows; the call throws a
    /// DaboException that says why ("Failed to bind endpoint ENDPOINT:
    /// ERROR (MEANING)"), unless it is made on the event thread.
    void registerPublisher(const std::string& endpoint, const std::string& identity,
                           std::weak_ptr<EventsHandler>& handler, const orlo::dabo::Dabo::Properties& properties);

    /// Stops forwarding the dealer's frames; they are dropped from now on.
    /// Then UNREGISTERED, unless `handler` is empty.
    void unregisterPublisher(const std::string& endpoint, const std::string& identity,
                             std::weak_ptr<EventsHandler>& handler);

    /// Makes a SUB socket connected to the endpoint of `uri`
    /// ("krin.ps://HOST:PORT/TOPIC") that subscribes to `topicIdFrame` only,
    /// then delivers REGISTERED with it, then POLLER_READABLE once per message
    /// while it is readable. The handler reads the message inside the event.
    void registerSubscriber(const std::string& uri, const std::string& topicIdFrame,
                            std::weak_ptr<EventsHandler>& handler);

    /// Closes the socket received with REGISTERED; no POLLER_READABLE follows.
    /// Then UNREGISTERED, unless `handler` is empty.
    void unregisterSubscriber(std::shared_ptr<zmq::socket_t>& socket, std::weak_ptr<EventsHandler>& handler);

    const orlo::dabo::Dabo::Properties& getProperties() const { return properties; }

    /// What the runtime has counted so far, per endpoint and per subscription
    /// URI; from any thread.
    KrinMetrics metrics() const;

    /// The port of the metrics page, 0 when it is off.
    int metricsPort() const;

    /// The thread on which events are delivered.
    std::thread::id eventThreadId() const { return thread.get_id(); }

private:
    /// Tests create runtimes with a seam of their own, through a header that
    /// is not installed.
    friend class KrinDaboTesting;

    KrinDabo(const orlo::dabo::Dabo::Properties& properties, std::shared_ptr<RuntimeSeam> seam);

    /// Hands `command` to the runtime's thread; waits for the delivery of its
    /// event when that is immediate (`eventImmediate`), or in any case if
    /// `waitEvenIfDelayed`. True if it waited and the command is done.
    bool post(RuntimeCommand command, bool eventImmediate, bool waitEvenIfDelayed);

    orlo::dabo::Dabo::Properties properties;
    std::shared_ptr<KrinRuntime> runtime;
    /// Declared after the runtime, so that it stops serving first.
    std::unique_ptr<MetricsServer> metricsServer;
    std::thread thread;
};

}  // namespace orlo::dabo::krin::detail
