#pragma once

#include <algorithm>
#include <atomic>

#include "dabo/DaboException.h"
#include "dabo/util/DaboUtil.h"
#include "dabo/ps/queue/DataEventPredicatePoll_impl.h"
#include "dabo/ps/queue/DataEventPredicateReadEvents_impl.h"
#include "dabo/ps/queue/NoopLoanedDataEntityImpl.h"
#include "dabo/ps/queue/QueuedSubscriberImpl.h"
#include "dabo/ps/queue/obtainImpl.h"

namespace orlo::dabo::ps::queue::detail {

template <typename T, typename ST>
void QueuedSubscriberImpl<T, ST>::internalReadQueue(DataEventPredicate<T, ST>& predicate) {
    for (auto it = events.begin(); it != events.end();) {
        // Our own share keeps the event alive whatever the predicate does.
        const std::shared_ptr<DataEvent<T>> event = *it;
        switch (predicate.matchAndProcess(event)) {
            case CONSUMED:
                it = unlinkEvent(it);
                break;
            case CONSUMED_LAST:
                unlinkEvent(it);
                return;
            case MATCHED_KEEP:
                return;
            default:
                ++it;
                break;
        }
    }
}

template <typename T, typename ST>
bool QueuedSubscriberImpl<T, ST>::waitForCondition(std::mutex& mutex, std::condition_variable& condition,
                                                   std::chrono::microseconds timeout) {
    std::unique_lock<std::mutex> lock(mutex);
    return condition.wait_for(lock, timeout) == std::cv_status::no_timeout;
}

template <typename T, typename ST>
std::vector<std::shared_ptr<T>> QueuedSubscriberImpl<T, ST>::read(unsigned long maxSamples) {
    stateCheck();
    std::lock_guard<std::mutex> lock(queueMutex);
    purgeExpired(orlo::dabo::util::currentTimeMillis());

    std::vector<std::shared_ptr<T>> result;
    const std::size_t wanted =
        maxSamples == 0 ? events.size() : std::min<std::size_t>(events.size(), maxSamples);
    if (wanted == 0) {
        return result;
    }
    result.reserve(wanted);
    // Events without valid data on the way are discarded and not counted.
    for (auto it = events.begin(); it != events.end() && result.size() < wanted;) {
        Event& event = **it;
        event.queuePosition.reset();
        event.removeFromInstanceQueue();
        if (event.hasValidData()) {
            result.push_back(event.getData());
        }
        it = events.erase(it);
    }
    return result;
}

template <typename T, typename ST>
std::shared_ptr<T> QueuedSubscriberImpl<T, ST>::readInstance(const T& instance) {
    stateCheck();
    std::lock_guard<std::mutex> lock(queueMutex);
    purgeExpired(orlo::dabo::util::currentTimeMillis());

    // The whole sample serves as the lookup key; keyEquals picks out what counts.
    const std::unique_ptr<T> lookupKey = obtainImpl<T, ST>(instance).clone();
    auto found = instances.find(lookupKey);
    if (found == instances.end()) {
        return nullptr;
    }
    const std::shared_ptr<Queue> queue = found->second;
    if (queue->events.empty()) {
        instances.erase(found);
        return nullptr;
    }

    // Events of the instance die here, so they are unlinked by hand, without
    // freezing a state that nobody will ask for.
    std::shared_ptr<Event> sample;
    for (auto it = queue->events.begin(); it != queue->events.end();) {
        const std::shared_ptr<Event> event = *it;
        events.erase(*event->queuePosition);
        event->queuePosition.reset();
        if (event->hasValidData()) {
            sample = event;
            break;
        }
        event->instancePosition.reset();
        it = queue->events.erase(it);
    }
    if (!sample) {
        instances.erase(found);
        return nullptr;
    }
    queue->events.erase(*sample->instancePosition);
    sample->instancePosition.reset();
    if (queue->events.empty()) {
        instances.erase(found);
    }
    return sample->getData();
}

template <typename T, typename ST>
bool QueuedSubscriberImpl<T, ST>::readInstance(const T& instance, T& value) {
    const std::shared_ptr<T> sample = readInstance(instance);
    if (!sample) {
        return false;
    }
    const ST& source = obtainImpl<T, ST>(*sample);
    // The sample has left the queue by now; if it cannot be handed over it is lost.
    ST* target = dynamic_cast<ST*>(&value);
    if (!target) {
        throw orlo::dabo::IllegalStateException(
            "data type for instance or value is incorrect. Not a DDS supported type");
    }
    target->copy(source);
    return true;
}

template <typename T, typename ST>
std::shared_ptr<LoanedDataEntity<T>> QueuedSubscriberImpl<T, ST>::loanedRead() {
    std::vector<std::shared_ptr<T>> samples = read(1);
    if (samples.empty()) {
        return nullptr;
    }
    return std::make_shared<NoopLoanedDataEntityImpl<T, ST>>(std::move(samples.front()));
}

template <typename T, typename ST>
std::shared_ptr<LoanedDataEntity<T>> QueuedSubscriberImpl<T, ST>::loanedReadInstance(const T& instance) {
    std::shared_ptr<T> sample = readInstance(instance);
    if (!sample) {
        return nullptr;
    }
    return std::make_shared<NoopLoanedDataEntityImpl<T, ST>>(std::move(sample));
}

template <typename T, typename ST>
unsigned long QueuedSubscriberImpl<T, ST>::readDataEvents(const DataEventFilter<T>& filter,
                                                          std::vector<std::shared_ptr<DataEvent<T>>>& results,
                                                          unsigned long maxEvents,
                                                          const std::chrono::milliseconds& timeout) {
    stateCheck();
    if (timeout.count() < 0) {
        throw orlo::dabo::DaboException("negative timeout given to readDataEvents");
    }
    std::atomic<unsigned long> served(0);
    std::unique_lock<std::mutex> lock(queueMutex);
    purgeExpired(orlo::dabo::util::currentTimeMillis());

    DataEventPredicateReadEvents<T, ST> reader(filter, results, maxEvents, served);
    internalReadQueue(reader);
    if (maxEvents != 0 && served == maxEvents) {
        return served;
    }
    if (timeout.count() == 0) {
        return served;
    }

    // Wait for new samples: the listener takes them on the delivering thread
    // and wakes us when it has enough.
    std::mutex waitMutex;
    std::condition_variable waitCondition;
    const std::string id = orlo::dabo::util::newUUID();
    predicates.emplace(id, std::make_shared<DataEventPredicateReadEventsListener<T, ST>>(
                               filter, results, maxEvents, served, waitMutex, waitCondition));
    lock.unlock();

    waitForCondition(waitMutex, waitCondition, std::chrono::microseconds(timeout.count() * 1000));

    // The listener refers to this frame: it must be gone before we leave.
    lock.lock();
    predicates.erase(id);
    return served;
}

template <typename T, typename ST>
unsigned long QueuedSubscriberImpl<T, ST>::poll(unsigned long maxEvents, const std::chrono::milliseconds& timeout) {
    stateCheck();
    const long start = orlo::dabo::util::currentTimeMillis();
    if (timeout.count() < 0) {
        throw orlo::dabo::DaboException("negative timeout given to poll");
    }
    std::atomic<unsigned long> served(0);
    std::atomic<unsigned long> taken(0);
    std::mutex waitMutex;
    std::condition_variable waitCondition;
    PendingCallbacks<T> pendingCallbacks;

    std::unique_lock<std::mutex> lock(queueMutex);
    purgeExpired(orlo::dabo::util::currentTimeMillis());
    // Queued events: the callbacks run here, on this thread, under queueMutex.
    DataEventPredicatePoll<T, ST> poller(maxEvents, served, subscriptions, *this);
    internalReadQueue(poller);
    if (maxEvents != 0 && served == maxEvents) {
        return served;
    }
    if (timeout.count() == 0) {
        return served;
    }

    taken = served.load();
    const std::string id = orlo::dabo::util::newUUID();
    predicates.emplace(id, std::make_shared<DataEventPredicatePollListener<T, ST>>(
                               maxEvents, taken, subscriptions, *this, waitMutex, waitCondition, pendingCallbacks));
    const long end = start + static_cast<long>(timeout.count());
    lock.unlock();

    // New samples: the delivering thread hands them over, and their callbacks
    // run here, outside every lock of the engine.
    for (;;) {
        const long remaining = end - orlo::dabo::util::currentTimeMillis();
        if (remaining <= 0) {
            break;
        }
        std::unique_lock<std::mutex> waitLock(waitMutex);
        if (pendingCallbacks.empty()) {
            waitCondition.wait_for(waitLock, std::chrono::milliseconds(remaining));
            if (pendingCallbacks.empty()) {
                continue;
            }
        }
        auto pending = pendingCallbacks.front();
        pendingCallbacks.pop_front();
        waitLock.unlock();
        try {
            std::get<1>(pending)(*this, *std::get<0>(pending));
        } catch (...) {
        }
        if (++served == maxEvents) {
            break;
        }
    }

    // Events still pending were taken from the queue and are dropped with the list.
    lock.lock();
    predicates.erase(id);
    return served;
}

}  // namespace orlo::dabo::ps::queue::detail
