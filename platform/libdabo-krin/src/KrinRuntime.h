#pragma once

#include <log4cplus/logger.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>
#include <zmq.hpp>

#include "dabo/krin/detail/EventsHandler.h"
#include "BindRetries.h"
#include "ConnectionMonitor.h"
#include "KrinSocketOptions.h"
#include "RuntimeCommand.h"
#include "ZapAuthenticator.h"
#include "dabo/krin/detail/KrinDaboTestHooks.h"

namespace orlo::dabo::krin::detail {

/// The state and the loop of the runtime's thread. Host threads reach it only
/// through post() and the thread-safe context; everything else belongs to the
/// thread that runs run().
class KrinRuntime {
public:
    KrinRuntime(const KrinDaboTestHooks& testHooks, int highWaterMark, KrinSocketOptions socketOptions);
    ~KrinRuntime();

    zmq::context_t& context() { return zmqContext; }
    const std::string& routerAddress() const { return routerEndpoint; }
    int highWaterMark() const { return hwm; }
    const KrinDaboTestHooks& hooks() const { return testHooks; }

    /// Hands a command to the runtime's thread; never blocks on it.
    void post(RuntimeCommand command);
    /// Asks the loop to end; never blocks on it.
    void requestStop();

    /// Binds the ROUTER and reports through `ready`, then serves until stopped.
    void run(std::promise<void>& ready);

private:
    struct Endpoint {
        std::unique_ptr<zmq::socket_t> xpub;
        int publishers = 0;
        /// While a message size limit is set; declared after the socket it
        /// watches, so that it stops first.
        std::unique_ptr<ConnectionMonitor> monitor;
    };
    struct PublisherEntry {
        std::string endpoint;
        zmq::socket_t* xpub = nullptr;
    };
    struct SubscriberEntry {
        std::shared_ptr<zmq::socket_t> socket;
        std::weak_ptr<EventsHandler> handler;
        /// Polled only once REGISTERED has been handed out, so it comes first.
        bool polled = false;
        std::string endpoint;
        /// While a message size limit is set.
        std::unique_ptr<ConnectionMonitor> monitor;
    };
    struct PendingEvent {
        std::chrono::steady_clock::time_point due;
        std::weak_ptr<EventsHandler> handler;
        std::shared_ptr<zmq::socket_t> socket;
        KrinDaboEvent event;
        std::shared_ptr<std::promise<void>> done;
    };
    enum class PollRole { Wake, Router, Xpub, Subscriber, Zap, XpubMonitor, SubscriberMonitor };

    void serve();
    void shutDown();
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
    void releaseEndpoint(const std::string& endpoint);

    /// Delivers now, later or never, as the hooks say.
    void announce(const EventDelivery& delivery, const std::weak_ptr<EventsHandler>& handler,
                  const std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event,
                  std::shared_ptr<std::promise<void>>& done);
    /// Calls the handler through a lock of its weak pointer; false if it is gone.
    bool deliver(const std::weak_ptr<EventsHandler>& handler, std::shared_ptr<zmq::socket_t> socket,
                 KrinDaboEvent event);
    void deliverDueEvents();
    int pollTimeoutMs() const;

    void forwardFromDealers();
    void readSubscriptions(const std::string& endpoint, zmq::socket_t& xpub);
    void serveReadable(zmq::socket_t* key);
    void dropSubscriber(zmq::socket_t* key);
    /// Stops watching the subscriber's socket, then closes it.
    static void closeSubscriberSocket(SubscriberEntry& subscriber);

    void rebuildPollItems();

    KrinDaboTestHooks testHooks;
    int hwm;
    KrinSocketOptions socketOptions;
    log4cplus::Logger logger;
    zmq::context_t zmqContext;
    std::string routerEndpoint;
    int wakeFd;

    std::mutex commandsMutex;
    std::vector<RuntimeCommand> commands;
    std::atomic<bool> stopRequested{false};

    // Owned by the runtime's thread alone from here on.
    std::unique_ptr<zmq::socket_t> router;
    std::map<std::string, Endpoint> endpoints;
    std::unordered_map<std::string, PublisherEntry> publishers;
    std::map<zmq::socket_t*, SubscriberEntry> subscribers;
    std::deque<PendingEvent> pendingEvents;
    BindRetries bindRetries;
    /// Only when the XPUBs admit listed client keys alone.
    std::unique_ptr<ZapAuthenticator> zap;

    bool pollItemsStale = true;
    std::vector<zmq::pollitem_t> pollItems;
    std::vector<PollRole> pollRoles;
    std::vector<std::string> pollEndpoints;
    std::vector<zmq::socket_t*> pollSubscribers;
};

}  // namespace orlo::dabo::krin::detail
