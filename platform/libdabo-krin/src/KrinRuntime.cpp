#include "KrinRuntime.h"

#include <log4cplus/loggingmacros.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <system_error>
#include <utility>

#include "RuntimeLogger.h"
#include "dabo/util/DaboUtil.h"

namespace orlo::dabo::krin::detail {

KrinRuntime::KrinRuntime(std::shared_ptr<RuntimeSeam> seam, int highWaterMark, KrinSocketOptions options,
                         ThreadPlacement threadPlacement)
    : runtimeSeam(std::move(seam)),
      hwm(highWaterMark),
      socketOptions(std::move(options)),
      placement(std::move(threadPlacement)),
      logger(runtimeLogger()),
      routerEndpoint("inproc://krin-runtime-" + orlo::dabo::util::newUUID()),
      wakeFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      announcer(logger) {
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
    wake();
}

void KrinRuntime::requestStop() {
    stopRequested = true;
    wake();
}

void KrinRuntime::wake() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeFd, &one, sizeof one);
}

void KrinRuntime::run(std::promise<void>& ready) {
    // Named for `top -H` and debuggers; a name is at most 15 characters.
    pthread_setname_np(pthread_self(), "krin-runtime");
    try {
        placement.apply();
        forwarding = std::make_unique<DealerForwarding>(zmqContext, routerEndpoint, hwm, *runtimeSeam, logger);
        endpoints = std::make_unique<PublishingEndpoints>(PublishingEndpoints::Context{
            zmqContext, socketOptions, hwm, pollSet, *forwarding, bindRetries, *runtimeSeam, logger, counters});
        subscribers = std::make_unique<SubscriberSockets>(zmqContext, socketOptions, hwm, pollSet, logger);
        endpoints->observeLocalEndpoints(*subscribers);
        if (!socketOptions.authorizedClientKeys().empty()) {
            // Bound before any XPUB exists, so no handshake passes unasked.
            zap = std::make_unique<ZapAuthenticator>(zmqContext, socketOptions.authorizedClientKeys());
        }
    } catch (...) {
        zap.reset();
        subscribers.reset();
        endpoints.reset();
        forwarding.reset();
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
        if (pollSet.isStale()) {
            rebuildPollSet();
        }
        // The sockets first; commands may change the set of sockets, so they
        // come after.
        pollSet.pollAndServe(pollTimeout());
        for (RuntimeCommand& command : takeCommands()) {
            execute(command);
        }
        retryBinds();
        deliverDueEvents();
        subscribers->serveDue(std::chrono::steady_clock::now());
    }
}

void KrinRuntime::rebuildPollSet() {
    pollSet.clear();
    pollSet.add(wakeFd, this, [this] {
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t got = ::read(wakeFd, &count, sizeof count);
    });
    pollSet.add(forwarding->router(), forwarding.get(), [this] { forwarding->forward(); });
    if (zap) {
        pollSet.add(zap->socket(), zap.get(), [this] { zap->serve(); });
    }
    endpoints->addTo(pollSet);
    subscribers->addTo(pollSet);
}

std::chrono::milliseconds KrinRuntime::pollTimeout() const {
    std::optional<std::chrono::steady_clock::time_point> earliest;
    for (const auto due : {bindRetries.nextDue(), announcer.nextDue(), subscribers->nextDue()}) {
        if (due && (!earliest || *due < *earliest)) {
            earliest = due;
        }
    }
    if (!earliest) {
        return std::chrono::milliseconds(-1);
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*earliest - std::chrono::steady_clock::now());
    return std::max(std::chrono::milliseconds(0), left);
}

void KrinRuntime::shutDown() {
    subscribers->closeAll();
    endpoints->closeAll();
    for (BindRetries::Retry& retry : bindRetries.takeAll()) {
        fulfil(retry.command.registrationDone);
    }
    zap.reset();
    subscribers.reset();
    endpoints.reset();
    forwarding.reset();
    announcer.abandonAll();
    for (RuntimeCommand& command : takeCommands()) {
        fulfil(command.registrationDone);
    }
    LOG4CPLUS_TRACE(logger, "Runtime stopped");
    runtimeSeam->stopped();
}

}  // namespace orlo::dabo::krin::detail
