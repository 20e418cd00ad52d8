#include "dabo/krin/detail/ps/basePubSub.h"

#include <log4cplus/loggingmacros.h>

#include <chrono>

#include "dabo/DaboException.h"
#include "dabo/krin/UriHelper.h"

namespace orlo::dabo::krin::detail::ps::basePubSub {

void requirePubSubUri(const std::string& uri, const log4cplus::Logger& logger) {
    if (orlo::dabo::krin::UriHelper::isPubSubUri(uri)) {
        return;
    }
    const std::string text = "Uri " + uri + " is not Krin PubSub profile";
    LOG4CPLUS_ERROR(logger, text);
    throw orlo::dabo::DaboException(text);
}

void requireInitialized(PubSubState state, const log4cplus::Logger& logger) {
    if (state == CLOSED) {
        LOG4CPLUS_ERROR(logger, "Entity closed");
        throw orlo::dabo::IllegalStateException("Entity closed");
    }
    if (state == CREATED) {
        LOG4CPLUS_ERROR(logger, "Entity is not INITIALIZED");
        throw orlo::dabo::IllegalStateException("Entity is not INITIALIZED");
    }
}

bool waitForEvent(std::mutex& mutex, std::condition_variable& condition, const KrinDaboEvent& lastEvent,
                  KrinDaboEvent event, int timeoutMs) {
    std::unique_lock<std::mutex> lock(mutex);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    if (lastEvent == event) {
        return true;
    }
    for (;;) {
        condition.wait_until(lock, deadline);
        // An event that lands exactly at the deadline still counts.
        if (std::chrono::steady_clock::now() >= deadline) {
            return lastEvent == event;
        }
        if (lastEvent == event) {
            return true;
        }
    }
}

void recordEvent(std::mutex& mutex, std::condition_variable& condition, KrinDaboEvent& lastEvent,
                 KrinDaboEvent event) {
    {
        std::lock_guard<std::mutex> lock(mutex);
        lastEvent = event;
    }
    condition.notify_one();
}

}  // namespace orlo::dabo::krin::detail::ps::basePubSub
