#include "KrinRuntime.h"

#include <log4cplus/loggingmacros.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

#include "RuntimeLogger.h"
#include "dabo/util/DaboUtil.h"

namespace orlo::dabo::krin::detail {

namespace {

// Bounds on the work done for one socket per turn of the loop, so that a busy
// socket cannot starve commands, timers and the other sockets.
constexpr int maxMessagesPerTurn = 1024;
constexpr int maxEventsPerTurn = 256;

void fulfil(std::shared_ptr<std::promise<void>>& done) {
    if (done) {
        done->set_value();
        done.reset();
    }
}

void allowIpv6For(zmq::socket_t& socket, const std::string& endpoint) {
    if (endpoint.find('[') != std::string::npos) {
        socket.set(zmq::sockopt::ipv6, 1);
    }
}

}  // namespace

KrinRuntime::KrinRuntime(const KrinDaboTestHooks& hooks, int highWaterMark, KrinSocketOptions options)
    : testHooks(hooks),
      hwm(highWaterMark),
      socketOptions(std::move(options)),
      logger(runtimeLogger()),
      routerEndpoint("inproc://krin-runtime-" + orlo::dabo::util::newUUID()),
      wakeFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (wakeFd < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

KrinRuntime::~KrinRuntime() {
    ::close(wakeFd);
    // zmqContext's destructor terminates the context; every socket of the
    // runtime is closed by now, and with linger 0 nothing is waited for.
}

void KrinRuntime::post(RuntimeCommand command) {
    {
        std::lock_guard<std::mutex> lock(commandsMutex);
        commands.push_back(std::move(command));
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeFd, &one, sizeof one);
}

void KrinRuntime::requestStop() {
    stopRequested = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeFd, &one, sizeof one);
}

void KrinRuntime::run(std::promise<void>& ready) {
    try {
        router = std::make_unique<zmq::socket_t>(zmqContext, zmq::socket_type::router);
        router->set(zmq::sockopt::linger, 0);
        router->set(zmq::sockopt::rcvhwm, hwm);
        router->bind(routerEndpoint);
        if (!socketOptions.authorizedClientKeys().empty()) {
            // Bound before any XPUB exists, so no handshake passes unasked.
            zap = std::make_unique<ZapAuthenticator>(zmqContext, socketOptions.authorizedClientKeys());
        }
    } catch (...) {
        zap.reset();
        router.reset();
        ready.set_exception(std::current_exception());
        return;
    }
    ready.set_value();
    LOG4CPLUS_TRACE(logger, "Runtime started, dealers connect to " << routerEndpoint);
    try {
        serve();
    } catch (const std::exception& e) {
        LOG4CPLUS_ERROR(logger, "Runtime thread failed: " << e.what());
    }
    shutDown();
}

void KrinRuntime::serve() {
    while (!stopRequested) {
        if (pollItemsStale) {
            rebuildPollItems();
        }
        try {
            zmq::poll(pollItems.data(), pollItems.size(), std::chrono::milliseconds(pollTimeoutMs()));
        } catch (const zmq::error_t& e) {
            if (e.num() == EINTR) {
                continue;
            }
            throw;
        }
        // The sockets first, by the poll items of this turn; commands may
        // change the set of sockets, so they come after.
        for (std::size_t i = 0; i < pollItems.size(); ++i) {
            if ((pollItems[i].revents & ZMQ_POLLIN) == 0) {
                continue;
            }
            switch (pollRoles[i]) {
                case PollRole::Router:
                    forwardFromDealers();
                    break;
                case PollRole::Xpub: {
                    const auto endpoint = endpoints.find(pollEndpoints[i]);
                    if (endpoint != endpoints.end()) {
                        readSubscriptions(endpoint->first, *endpoint->second.xpub);
                    }
                    break;
                }
                case PollRole::Subscriber:
                    serveReadable(pollSubscribers[i]);
                    break;
                case PollRole::Zap:
                    zap->serve();
                    break;
                case PollRole::XpubMonitor: {
                    const auto endpoint = endpoints.find(pollEndpoints[i]);
                    if (endpoint != endpoints.end() && endpoint->second.monitor) {
                        endpoint->second.monitor->serve();
                    }
                    break;
                }
                case PollRole::SubscriberMonitor: {
                    const auto subscriber = subscribers.find(pollSubscribers[i]);
                    if (subscriber != subscribers.end() && subscriber->second.monitor) {
                        subscriber->second.monitor->serve();
                    }
                    break;
                }
                case PollRole::Wake: {
                    std::uint64_t count = 0;
                    [[maybe_unused]] const ssize_t got = ::read(wakeFd, &count, sizeof count);
                    break;
                }
            }
        }
        for (RuntimeCommand& command : takeCommands()) {
            execute(command);
        }
        retryBinds();
        deliverDueEvents();
    }
}

void KrinRuntime::shutDown() {
    for (auto& subscriber : subscribers) {
        closeSubscriberSocket(subscriber.second);
    }
    subscribers.clear();
    publishers.clear();
    endpoints.clear();
    for (BindRetries::Retry& retry : bindRetries.takeAll()) {
        fulfil(retry.command.registrationDone);
    }
    zap.reset();
    router.reset();
    for (PendingEvent& pending : pendingEvents) {
        fulfil(pending.done);
    }
    pendingEvents.clear();
    for (RuntimeCommand& command : takeCommands()) {
        fulfil(command.registrationDone);
    }
    LOG4CPLUS_TRACE(logger, "Runtime stopped");
    if (testHooks.stopped) {
        testHooks.stopped();
    }
}

std::vector<RuntimeCommand> KrinRuntime::takeCommands() {
    std::lock_guard<std::mutex> lock(commandsMutex);
    std::vector<RuntimeCommand> taken;
    taken.swap(commands);
    return taken;
}

void KrinRuntime::execute(RuntimeCommand& command) {
    try {
        switch (command.kind) {
            case RuntimeCommand::Kind::RegisterPublisher:
                dropBindRetriesOf(command.identity);
                registerPublisher(command, std::chrono::steady_clock::now());
                break;
            case RuntimeCommand::Kind::UnregisterPublisher:
                dropBindRetriesOf(command.identity);
                unregisterPublisher(command);
                break;
            case RuntimeCommand::Kind::RegisterSubscriber:
                registerSubscriber(command);
                break;
            case RuntimeCommand::Kind::UnregisterSubscriber:
                unregisterSubscriber(command);
                break;
        }
    } catch (const std::exception& e) {
        LOG4CPLUS_ERROR(logger, "Runtime request failed: " << e.what());
    }
    fulfil(command.registrationDone);
}

void KrinRuntime::registerPublisher(RuntimeCommand& command, std::chrono::steady_clock::time_point firstAttempt) {
    auto endpoint = endpoints.find(command.endpoint);
    if (endpoint == endpoints.end()) {
        auto xpub = std::make_unique<zmq::socket_t>(zmqContext, zmq::socket_type::xpub);
        xpub->set(zmq::sockopt::linger, 0);
        xpub->set(zmq::sockopt::sndhwm, hwm);
        // Every subscriber's subscription reaches the runtime, not only a
        // topic's first, so that joins can be observed one by one.
        xpub->set(zmq::sockopt::xpub_verbose, 1);
        socketOptions.applyToPublishing(*xpub);
        allowIpv6For(*xpub, command.endpoint);
        // Watching from before the bind, so that no connection goes unseen;
        // declared after the socket, so that it stops first.
        std::unique_ptr<ConnectionMonitor> monitor;
        if (socketOptions.messageSizeLimit() > 0) {
            monitor = std::make_unique<ConnectionMonitor>(zmqContext, *xpub, ConnectionMonitor::Side::Publishing,
                                                          command.endpoint, socketOptions.messageSizeLimit());
        }
        try {
            xpub->bind(command.endpoint);
        } catch (const zmq::error_t& e) {
            const auto now = std::chrono::steady_clock::now();
            if (bindRetries.shouldRetry(command.endpoint, e.num(), firstAttempt, now)) {
                // This runtime's own XPUB released the port a moment ago;
                // ZeroMQ is still closing it. The caller's promise goes along.
                LOG4CPLUS_TRACE(logger, "Endpoint " << command.endpoint << " not yet free, binding again shortly");
                bindRetries.add(std::move(command), firstAttempt, now);
                return;
            }
            LOG4CPLUS_ERROR(logger, "Failed to bind endpoint " << command.endpoint << ": " << e.what());
            return;
        }
        LOG4CPLUS_TRACE(logger, "Bound endpoint " << command.endpoint);
        endpoint = endpoints.emplace(command.endpoint, Endpoint{std::move(xpub), 0, std::move(monitor)}).first;
        pollItemsStale = true;
    }
    const auto previous = publishers.find(command.identity);
    if (previous != publishers.end()) {
        const std::string previousEndpoint = previous->second.endpoint;
        publishers.erase(previous);
        if (previousEndpoint != command.endpoint) {
            releaseEndpoint(previousEndpoint);
        } else {
            --endpoint->second.publishers;
        }
    }
    ++endpoint->second.publishers;
    publishers[command.identity] = PublisherEntry{command.endpoint, endpoint->second.xpub.get()};
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, "Registered publisher " << command.identity << " on " << command.endpoint);
    }
    announce(testHooks.registered, command.handler, nullptr, REGISTERED, command.registrationDone);
}

void KrinRuntime::unregisterPublisher(RuntimeCommand& command) {
    const auto publisher = publishers.find(command.identity);
    if (publisher != publishers.end()) {
        const std::string endpoint = publisher->second.endpoint;
        publishers.erase(publisher);
        releaseEndpoint(endpoint);
        if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
            LOG4CPLUS_TRACE(logger, "Unregistered publisher " << command.identity << " from " << endpoint);
        }
    }
    announce(testHooks.unregistered, command.handler, nullptr, UNREGISTERED, command.registrationDone);
}

void KrinRuntime::releaseEndpoint(const std::string& endpoint) {
    const auto found = endpoints.find(endpoint);
    if (found == endpoints.end() || --found->second.publishers > 0) {
        return;
    }
    endpoints.erase(found);
    bindRetries.released(endpoint, std::chrono::steady_clock::now());
    pollItemsStale = true;
    LOG4CPLUS_TRACE(logger, "Released endpoint " << endpoint);
}

void KrinRuntime::registerSubscriber(RuntimeCommand& command) {
    auto socket = std::make_shared<zmq::socket_t>(zmqContext, zmq::socket_type::sub);
    socket->set(zmq::sockopt::linger, 0);
    socket->set(zmq::sockopt::rcvhwm, hwm);
    socketOptions.applyToSubscribing(*socket);
    allowIpv6For(*socket, command.endpoint);
    socket->set(zmq::sockopt::subscribe, command.topicIdFrame);
    // Watching from before the connection, so that none of its events goes unseen.
    std::unique_ptr<ConnectionMonitor> monitor;
    if (socketOptions.messageSizeLimit() > 0) {
        monitor = std::make_unique<ConnectionMonitor>(zmqContext, *socket, ConnectionMonitor::Side::Subscribing,
                                                      command.endpoint, socketOptions.messageSizeLimit());
    }
    try {
        socket->connect(command.endpoint);
    } catch (const zmq::error_t& e) {
        LOG4CPLUS_ERROR(logger, "Failed to connect subscriber to " << command.endpoint << ": " << e.what());
        monitor.reset();
        socket->close();
        return;
    }
    zmq::socket_t* key = socket.get();
    pollItemsStale = pollItemsStale || monitor != nullptr;
    subscribers[key] = SubscriberEntry{socket, command.handler, false, command.endpoint, std::move(monitor)};
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, "Registered subscriber " << orlo::dabo::util::hexStr(command.topicIdFrame) << " on "
                                                         << command.endpoint);
    }
    announce(testHooks.registered, command.handler, socket, REGISTERED, command.registrationDone);
}

void KrinRuntime::unregisterSubscriber(RuntimeCommand& command) {
    if (command.socket && subscribers.count(command.socket.get()) != 0) {
        dropSubscriber(command.socket.get());
    }
    announce(testHooks.unregistered, command.handler, command.socket, UNREGISTERED, command.registrationDone);
}

void KrinRuntime::dropSubscriber(zmq::socket_t* key) {
    const auto found = subscribers.find(key);
    if (found == subscribers.end()) {
        return;
    }
    closeSubscriberSocket(found->second);
    subscribers.erase(found);
    pollItemsStale = true;
}

void KrinRuntime::closeSubscriberSocket(SubscriberEntry& subscriber) {
    subscriber.monitor.reset();
    subscriber.socket->close();
}

void KrinRuntime::retryBinds() {
    for (BindRetries::Retry& retry : bindRetries.takeDue(std::chrono::steady_clock::now())) {
        try {
            registerPublisher(retry.command, retry.firstAttempt);
        } catch (const std::exception& e) {
            LOG4CPLUS_ERROR(logger, "Runtime request failed: " << e.what());
        }
        // Parked again, the promise went along; otherwise it is kept now.
        fulfil(retry.command.registrationDone);
    }
}

void KrinRuntime::dropBindRetriesOf(const std::string& identity) {
    for (BindRetries::Retry& retry : bindRetries.takeOf(identity)) {
        if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
            LOG4CPLUS_TRACE(logger, "Gave up binding " << retry.command.endpoint << " for " << identity
                                                       << ": a newer request of that publisher came");
        }
        fulfil(retry.command.registrationDone);
    }
}

void KrinRuntime::announce(const EventDelivery& delivery, const std::weak_ptr<EventsHandler>& handler,
                           const std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event,
                           std::shared_ptr<std::promise<void>>& done) {
    // The caller's promise moves here, so that it is kept exactly once.
    auto waiting = std::move(done);
    switch (delivery.mode) {
        case EventDelivery::Mode::Immediately: {
            const bool delivered = deliver(handler, socket, event);
            if (event == REGISTERED && socket) {
                // A subscriber is served only after its REGISTERED; one that
                // nobody owns any more is not served at all.
                if (delivered) {
                    const auto found = subscribers.find(socket.get());
                    if (found != subscribers.end()) {
                        found->second.polled = true;
                        pollItemsStale = true;
                    }
                } else {
                    dropSubscriber(socket.get());
                }
            }
            fulfil(waiting);
            break;
        }
        case EventDelivery::Mode::Withhold:
            fulfil(waiting);
            break;
        case EventDelivery::Mode::Delay:
            pendingEvents.push_back(
                PendingEvent{std::chrono::steady_clock::now() + delivery.delay, handler, socket, event, waiting});
            break;
    }
}

bool KrinRuntime::deliver(const std::weak_ptr<EventsHandler>& handler, std::shared_ptr<zmq::socket_t> socket,
                          KrinDaboEvent event) {
    std::shared_ptr<EventsHandler> locked = handler.lock();
    if (!locked) {
        LOG4CPLUS_TRACE(logger, "Event " << static_cast<int>(event) << " dropped: its handler is gone");
        return false;
    }
    try {
        locked->events(socket, event);
    } catch (const std::exception& e) {
        LOG4CPLUS_ERROR(logger, "Event handler failed on event " << static_cast<int>(event) << ": " << e.what());
    } catch (...) {
        LOG4CPLUS_ERROR(logger, "Event handler failed on event " << static_cast<int>(event));
    }
    return true;
}

void KrinRuntime::deliverDueEvents() {
    const auto now = std::chrono::steady_clock::now();
    std::vector<PendingEvent> due;
    for (auto it = pendingEvents.begin(); it != pendingEvents.end();) {
        if (it->due <= now) {
            due.push_back(std::move(*it));
            it = pendingEvents.erase(it);
        } else {
            ++it;
        }
    }
    for (PendingEvent& pending : due) {
        announce(EventDelivery::immediately(), pending.handler, pending.socket, pending.event, pending.done);
    }
}

int KrinRuntime::pollTimeoutMs() const {
    const auto nextBind = bindRetries.nextDue();
    if (pendingEvents.empty() && !nextBind) {
        return -1;
    }
    auto earliest = nextBind ? *nextBind : pendingEvents.front().due;
    for (const PendingEvent& pending : pendingEvents) {
        earliest = std::min(earliest, pending.due);
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(earliest - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<long>(0, left.count()));
}

void KrinRuntime::forwardFromDealers() {
    for (int n = 0; n < maxMessagesPerTurn; ++n) {
        zmq::message_t routing;
        if (!router->recv(routing, zmq::recv_flags::dontwait)) {
            return;
        }
        const auto publisher = publishers.find(routing.to_string());
        zmq::socket_t* xpub = publisher != publishers.end() ? publisher->second.xpub : nullptr;
        bool more = routing.more();
        while (more) {
            // The parts of a message arrive together, so none is waited for.
            zmq::message_t frame;
            if (!router->recv(frame, zmq::recv_flags::dontwait)) {
                break;
            }
            more = frame.more();
            if (xpub != nullptr) {
                // Sending hands the frame's buffer over; nothing is copied.
                xpub->send(frame, more ? zmq::send_flags::sndmore | zmq::send_flags::dontwait
                                       : zmq::send_flags::dontwait);
            }
        }
        if (xpub == nullptr) {
            if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
                LOG4CPLUS_TRACE(logger, "Dropped a message of unregistered dealer " << routing.to_string());
            }
            if (testHooks.messageDropped) {
                testHooks.messageDropped(routing.to_string());
            }
        }
    }
}

void KrinRuntime::readSubscriptions(const std::string& endpoint, zmq::socket_t& xpub) {
    for (int n = 0; n < maxMessagesPerTurn; ++n) {
        zmq::message_t subscription;
        if (!xpub.recv(subscription, zmq::recv_flags::dontwait)) {
            return;
        }
        if (subscription.size() == 0) {
            continue;
        }
        const bool subscribed = subscription.data<unsigned char>()[0] == 1;
        const std::string filter(subscription.data<char>() + 1, subscription.size() - 1);
        if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
            LOG4CPLUS_TRACE(logger, (subscribed ? "Subscription to " : "Unsubscription from ")
                                        << orlo::dabo::util::hexStr(filter) << " on " << endpoint);
        }
        if (testHooks.subscriptionObserver) {
            testHooks.subscriptionObserver(endpoint, subscribed, filter);
        }
    }
}

void KrinRuntime::serveReadable(zmq::socket_t* key) {
    for (int n = 0; n < maxEventsPerTurn; ++n) {
        const auto found = subscribers.find(key);
        if (found == subscribers.end() || !found->second.polled) {
            return;
        }
        std::shared_ptr<zmq::socket_t> socket = found->second.socket;
        if (!deliver(found->second.handler, socket, POLLER_READABLE)) {
            dropSubscriber(key);
            return;
        }
        if (socket->handle() == nullptr) {
            return;
        }
        // Frames the handler left unread stay where they are: they are readable,
        // so the next event hands them to the handler, which decides what they
        // mean. The runtime never edits a subscriber's stream.
        if ((socket->get(zmq::sockopt::events) & ZMQ_POLLIN) == 0) {
            return;
        }
    }
}

void KrinRuntime::rebuildPollItems() {
    pollItems.clear();
    pollRoles.clear();
    pollEndpoints.clear();
    pollSubscribers.clear();
    const auto add = [this](zmq::pollitem_t item, PollRole role, std::string endpoint, zmq::socket_t* subscriber) {
        pollItems.push_back(item);
        pollRoles.push_back(role);
        pollEndpoints.push_back(std::move(endpoint));
        pollSubscribers.push_back(subscriber);
    };
    add(zmq::pollitem_t{nullptr, wakeFd, ZMQ_POLLIN, 0}, PollRole::Wake, {}, nullptr);
    add(zmq::pollitem_t{router->handle(), 0, ZMQ_POLLIN, 0}, PollRole::Router, {}, nullptr);
    if (zap) {
        add(zmq::pollitem_t{zap->socket().handle(), 0, ZMQ_POLLIN, 0}, PollRole::Zap, {}, nullptr);
    }
    for (const auto& endpoint : endpoints) {
        add(zmq::pollitem_t{endpoint.second.xpub->handle(), 0, ZMQ_POLLIN, 0}, PollRole::Xpub, endpoint.first, nullptr);
        if (endpoint.second.monitor) {
            add(zmq::pollitem_t{endpoint.second.monitor->socket().handle(), 0, ZMQ_POLLIN, 0}, PollRole::XpubMonitor,
                endpoint.first, nullptr);
        }
    }
    for (const auto& subscriber : subscribers) {
        if (subscriber.second.polled) {
            add(zmq::pollitem_t{subscriber.second.socket->handle(), 0, ZMQ_POLLIN, 0}, PollRole::Subscriber, {},
                subscriber.first);
        }
        if (subscriber.second.monitor) {
            add(zmq::pollitem_t{subscriber.second.monitor->socket().handle(), 0, ZMQ_POLLIN, 0},
                PollRole::SubscriberMonitor, {}, subscriber.first);
        }
    }
    pollItemsStale = false;
}

}  // namespace orlo::dabo::krin::detail
