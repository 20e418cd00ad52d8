#pragma once

#include <mutex>
#include <utility>

#include "dabo/ps/queue/QueuedSubscriberImpl.h"
#include "dabo/ps/queue/QueuedSubscription.h"

namespace orlo::dabo::ps::queue::detail {

template <typename T, typename ST>
QueuedSubscription<T, ST>::QueuedSubscription(std::string id,
                                              std::shared_ptr<QueuedSubscriberImpl<T, ST>> subscriber)
    : id(std::move(id)), subscriber(std::move(subscriber)), closed(false) {}

template <typename T, typename ST>
void SyncQueuedSubscription<T, ST>::close() {
    if (this->closed) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(this->subscriber->queueMutex);
        this->subscriber->subscriptions.erase(this->id);
    }
    this->closed = true;
}

template <typename T, typename ST>
SyncQueuedSubscription<T, ST>::~SyncQueuedSubscription() {
    close();
}

template <typename T, typename ST>
void AsyncQueuedSubscription<T, ST>::close() {
    if (this->closed) {
        return;
    }
    {
        // queueMutex whichever form registered it: newData holds it while
        // callbacks run, so none runs after this returns.
        std::lock_guard<std::mutex> lock(this->subscriber->queueMutex);
        this->subscriber->predicates.erase(this->id);
    }
    this->closed = true;
}

template <typename T, typename ST>
AsyncQueuedSubscription<T, ST>::~AsyncQueuedSubscription() {
    close();
}

}  // namespace orlo::dabo::ps::queue::detail
