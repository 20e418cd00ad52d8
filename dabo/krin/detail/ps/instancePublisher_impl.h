#pragma once

// Bodies of KrinInstancePublisher.

#include <log4cplus/loggingmacros.h>

#include "dabo/DaboException.h"
#include "dabo/krin/detail/ps/instancePublisher.h"
#include "dabo/krin/detail/ps/obtainImpl.h"
#include "dabo/krin/detail/ps/publisher.h"

namespace orlo::dabo::krin::detail::ps {

template <typename T, typename ST>
KrinInstancePublisher<T, ST>::KrinInstancePublisher(const std::shared_ptr<KrinPublisher<T, ST>>& publisher,
                                                    const T& instance) noexcept
    : publisher(publisher),
      logger(log4cplus::Logger::getInstance("vexa.dabo.krin.publisher")),
      closed(false),
      instance() {
    this->instance.copy(obtainImpl<T, ST>(instance, logger));
    std::lock_guard<std::mutex> listLock(publisher->instanceListMutex);
    publisher->instancePublishers.push_back(this);
}

template <typename T, typename ST>
KrinInstancePublisher<T, ST>::~KrinInstancePublisher() {
    if (!closed.load()) {
        close();
    }
    std::lock_guard<std::mutex> listLock(publisher->instanceListMutex);
    publisher->instancePublishers.remove(this);
}

template <typename T, typename ST>
void KrinInstancePublisher<T, ST>::checkState() {
    if (closed.load()) {
        LOG4CPLUS_ERROR(logger, "InstanceKrinPublisher closed");
        throw orlo::dabo::IllegalStateException("InstanceKrinPublisher closed");
    }
}

template <typename T, typename ST>
std::shared_ptr<T> KrinInstancePublisher<T, ST>::createDataEntity() {
    std::lock_guard<std::mutex> lock(mutex);
    checkState();
    return std::shared_ptr<T>(instance.clone());
}

template <typename T, typename ST>
std::shared_ptr<orlo::dabo::Dabo> KrinInstancePublisher<T, ST>::getDabo() const {
    return publisher->getDabo();
}

template <typename T, typename ST>
void KrinInstancePublisher<T, ST>::publish(const T& sample, const std::chrono::milliseconds& timeout) {
    std::lock_guard<std::mutex> lock(mutex);
    checkState();
    publisher->internalPublish(nullptr, sample, timeout);
}

template <typename T, typename ST>
void KrinInstancePublisher<T, ST>::publish(double timestamp, const T& sample,
                                           const std::chrono::milliseconds& timeout) {
    std::lock_guard<std::mutex> lock(mutex);
    checkState();
    publisher->internalPublish(&timestamp, sample, timeout);
}

template <typename T, typename ST>
void KrinInstancePublisher<T, ST>::close() {
    // No lock: the publisher's close calls this with its own locks held.
    closed.exchange(true);
}

}  // namespace orlo::dabo::krin::detail::ps
