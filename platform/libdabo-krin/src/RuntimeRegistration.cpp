// The commands of host threads, executed on the runtime's thread: register
// and unregister publishers and subscribers, and announce the events that
// follow.

#include <log4cplus/loggingmacros.h>

#include <utility>

#include "BindFailure.h"
#include "KrinRuntime.h"

namespace orlo::dabo::krin::detail {

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
    try {
        endpoints->bind(command.endpoint);
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
        if (command.bindFailure) {
            *command.bindFailure = describeBindFailure(command.endpoint, e);
        }
        return;
    }
    endpoints->attach(command.identity, command.endpoint);
    if (logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, "Registered publisher " << command.identity << " on " << command.endpoint);
    }
    announce(runtimeSeam->deliveryOfRegistered(), command.handler, nullptr, REGISTERED, command.registrationDone);
}

void KrinRuntime::unregisterPublisher(RuntimeCommand& command) {
    std::string endpoint;
    if (endpoints->detach(command.identity, endpoint) && logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        LOG4CPLUS_TRACE(logger, "Unregistered publisher " << command.identity << " from " << endpoint);
    }
    announce(runtimeSeam->deliveryOfUnregistered(), command.handler, nullptr, UNREGISTERED, command.registrationDone);
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

void KrinRuntime::registerSubscriber(RuntimeCommand& command) {
    std::shared_ptr<zmq::socket_t> socket = subscribers->open(
        command.endpoint, command.topicIdFrame, command.handler, counters.subscription(command.uri),
        runtimeSeam->countsMessages(), endpoints->localEndpointReaching(command.endpoint));
    if (socket) {
        announce(runtimeSeam->deliveryOfRegistered(), command.handler, socket, REGISTERED, command.registrationDone);
    }
}

void KrinRuntime::unregisterSubscriber(RuntimeCommand& command) {
    if (command.socket) {
        subscribers->close(command.socket.get());
    }
    announce(runtimeSeam->deliveryOfUnregistered(), command.handler, command.socket, UNREGISTERED,
             command.registrationDone);
}

void KrinRuntime::announce(const EventDelivery& delivery, const std::weak_ptr<EventsHandler>& handler,
                           const std::shared_ptr<zmq::socket_t>& socket, KrinDaboEvent event,
                           std::shared_ptr<std::promise<void>>& done) {
    const EventAnnouncer::Outcome outcome = announcer.announce(delivery, handler, socket, event, done);
    if (event != REGISTERED || !socket) {
        return;
    }
    // A subscriber is served only after its REGISTERED; one that nobody owns
    // any more is not served at all.
    if (outcome == EventAnnouncer::Outcome::Delivered) {
        subscribers->startServing(socket.get());
    } else if (outcome == EventAnnouncer::Outcome::HandlerGone) {
        subscribers->close(socket.get());
    }
}

void KrinRuntime::deliverDueEvents() {
    for (EventAnnouncer::Pending& due : announcer.takeDue(std::chrono::steady_clock::now())) {
        announce(EventDelivery::immediately(), due.handler, due.socket, due.event, due.done);
    }
}

}  // namespace orlo::dabo::krin::detail
