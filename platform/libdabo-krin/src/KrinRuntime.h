#pragma once

#include <log4cplus/logger.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "BindRetries.h"
#include "DealerForwarding.h"
#include "EventAnnouncer.h"
#include "KrinSocketOptions.h"
#include "PollSet.h"
#include "PublishingEndpoints.h"
#include "RuntimeCommand.h"
#include "RuntimeMetrics.h"
#include "SubscriberSockets.h"
#include "ThreadPlacement.h"
#include "ZapAuthenticator.h"
#include "dabo/krin/detail/RuntimeSeam.h"

namespace orlo::dabo::krin::detail {

/// The state and the loop of the runtime's thread. Host threads reach it only
/// through post() and the thread-safe context; everything else belongs to the
/// thread that runs run().
///
/// The loop (KrinRuntime.cpp) waits on the poll set and serves what is
/// readable: the dealers' frames (DealerForwarding), the subscriptions of the
/// bound endpoints (PublishingEndpoints), the subscribers' sockets
/// (SubscriberSockets). Then it executes the commands of host threads
/// (RuntimeRegistration.cpp), whose events EventAnnouncer delivers.
class KrinRuntime {
public:
    KrinRuntime(std::shared_ptr<RuntimeSeam> seam, int highWaterMark, KrinSocketOptions socketOptions,
                ThreadPlacement placement);
    ~KrinRuntime();

    zmq::context_t& context() { return zmqContext; }
    const std::string& routerAddress() const { return routerEndpoint; }
    int highWaterMark() const { return hwm; }
    RuntimeSeam& seam() const { return *runtimeSeam; }
    /// The counters; any thread may take a snapshot.
    const RuntimeMetrics& metrics() const { return counters; }

    /// Hands a command to the runtime's thread; never blocks on it.
    void post(RuntimeCommand command);
    /// Asks the loop to end; never blocks on it.
    void requestStop();

    /// Names and places the calling thread, binds the ROUTER and reports
    /// through `ready` (a setting the system denies fails it), then serves
    /// until stopped.
    void run(std::promise<void>& ready);

private:
    void serve();
    void shutDown();
    void wake();
    void rebuildPollSet();
    std::chrono::milliseconds pollTimeout() const;

    // Registration: RuntimeRegistration.cpp.
    std::vector<RuntimeCommand> takeCommands();
    void execute(RuntimeCommand& command);
    /// `firstAttempt`: when the registration's bind was first tried.
    void registerPublisher(RuntimeCommand& command, std::chrono::steady_clock::time_point firstAttempt);
    /// Tries again the binds that are due, then keeps or drops their promises.
    void retryBinds();
    /// Forgets parked binds of a dealer that a newer command has overtaken.
    void dropBindRetriesOf(const std::string& identity);
    void unregisterPublisher(RuntimeCommand& command);
    void registerSubscriber(RuntimeCommand& command);
    void unregisterSubscriber(RuntimeCommand& command);
    /// Delivers now, later or never, as the seam says; a subscriber is served
    /// once its REGISTERED was delivered, and closed if its handler is gone.
    void announce(const EventDelivery& delivery, const std::weak_ptr<EventsHandler>& handler,
                  const std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event,
                  std::shared_ptr<std::promise<void>>& done);
    void deliverDueEvents();

    std::shared_ptr<RuntimeSeam> runtimeSeam;
    int hwm;
    KrinSocketOptions socketOptions;
    ThreadPlacement placement;
    log4cplus::Logger logger;
    zmq::context_t zmqContext;
    std::string routerEndpoint;
    int wakeFd;

    std::mutex commandsMutex;
    std::vector<RuntimeCommand> commands;
    std::atomic<bool> stopRequested{false};
    RuntimeMetrics counters;

    // Owned by the runtime's thread alone from here on.
    PollSet pollSet;
    std::unique_ptr<DealerForwarding> forwarding;
    BindRetries bindRetries;
    std::unique_ptr<PublishingEndpoints> endpoints;
    std::unique_ptr<SubscriberSockets> subscribers;
    EventAnnouncer announcer;
    /// Only when the XPUBs admit listed client keys alone.
    std::unique_ptr<ZapAuthenticator> zap;
};

}  // namespace orlo::dabo::krin::detail
