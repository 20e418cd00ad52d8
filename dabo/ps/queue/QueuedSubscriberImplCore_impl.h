#pragma once

#include <iterator>
#include <utility>

#include "dabo/DaboException.h"
#include "dabo/util/DaboUtil.h"
#include "dabo/ps/queue/DataEventImpl_impl.h"
#include "dabo/ps/queue/DataEventPredicate_impl.h"
#include "dabo/ps/queue/QueuedSubscriberImpl.h"

namespace orlo::dabo::ps::queue::detail {

// Limits fixed at construction; nothing configures them, so the queues are
// unbounded in practice.
inline constexpr int queueLimit = 2147483647;

template <typename T, typename ST>
QueuedSubscriberImpl<T, ST>::QueuedSubscriberImpl(
    const std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>& qos)
    : spareLimit(queueLimit),
      maxEventsPerInstance(queueLimit),
      latency(0),
      deadline(0),
      deadlineWindow(0),
      spareFlag(false),
      deadlineExpiry(0),
      lastSourceTimeMs(0),
      maxQueuedEvents(static_cast<unsigned long>(queueLimit)),
      closed(false) {
    for (const auto& setting : qos) {
        if (!setting) {
            continue;
        }
        if (auto* latencySetting = dynamic_cast<const orlo::dabo::ps::qos::Latency*>(setting.get())) {
            latency = latencySetting->getDuration();
        } else if (auto* deadlineSetting = dynamic_cast<const orlo::dabo::ps::qos::Deadline*>(setting.get())) {
            deadline = deadlineSetting->getDuration();
        }
    }
    if (latency != 0 && deadline != 0) {
        deadlineWindow = latency + deadline;
    }
}

template <typename T, typename ST>
std::shared_ptr<T> QueuedSubscriberImpl<T, ST>::createDataEntity() {
    stateCheck();
    return std::shared_ptr<T>(std::make_unique<ST>());
}

template <typename T, typename ST>
void QueuedSubscriberImpl<T, ST>::close() {
    // Only marks the core closed: waiting readers run out their own time,
    // registrations stay until their handles go.
    std::lock_guard<std::mutex> lock(stateMutex);
    closed = true;
}

template <typename T, typename ST>
void QueuedSubscriberImpl<T, ST>::stateCheck() {
    std::lock_guard<std::mutex> lock(stateMutex);
    if (closed) {
        throw orlo::dabo::IllegalStateException("Subscriber already closed");
    }
}

template <typename T, typename ST>
void QueuedSubscriberImpl<T, ST>::newData(std::unique_ptr<T> data, double sourceTimestamp, long writerGeneration,
                                          long receiveTimeMs) {
    std::lock_guard<std::mutex> lock(queueMutex);

    std::unique_ptr<InstanceState> state;
    InstanceEvent event;
    if (writerGeneration != 0) {
        state = std::make_unique<InstanceState>(INSTANCE_ALIVE);
        event = lastSourceTimeMs != 0 ? INSTANCE_UPDATED : INSTANCE_CREATED;
    } else {
        state = std::make_unique<InstanceState>(INSTANCE_NOT_ALIVE);
        event = INSTANCE_DISPOSED;
    }

    if (!data && writerGeneration != 0) {
        addToQueue(nullptr, sourceTimestamp, true, std::move(state), event, nullptr, receiveTimeMs);
        return;
    }

    if (!data) {
        // Every instance has lost its writer.
        if (instances.empty()) {
            if (lastSourceTimeMs != 0) {
                addToQueue(nullptr, 0.0, false, std::make_unique<InstanceState>(INSTANCE_NOT_ALIVE),
                           INSTANCE_DISPOSED, nullptr, receiveTimeMs);
            }
        } else {
            for (auto& entry : instances) {
                entry.second->writerGeneration = 0;
                addToQueue(entry.first->cloneKey(), 0.0, false, nullptr, INSTANCE_DISPOSED, entry.second,
                           receiveTimeMs);
            }
        }
        deadlineExpiry = 0;
        lastSourceTimeMs = 0;
        return;
    }

    std::shared_ptr<Queue> queue;
    if (data->hasKey()) {
        // A keyed event takes its state from its instance.
        state.reset();
        auto found = instances.find(data);
        if (found != instances.end()) {
            queue = found->second;
            const long previous = queue->writerGeneration;
            queue->writerGeneration = writerGeneration;
            if (writerGeneration == 0) {
                event = INSTANCE_DISPOSED;
            } else {
                event = previous == writerGeneration ? INSTANCE_UPDATED : INSTANCE_CREATED;
            }
        } else {
            queue = std::shared_ptr<Queue>(new Queue());
            queue->key = data->cloneKey();
            queue->maxEvents = static_cast<unsigned long>(maxEventsPerInstance);
            queue->writerGeneration = writerGeneration;
            queue->deadlineExpiry = 0;
            if (deadlineWindow > 0) {
                queue->deadlineCallback = [] {};
            }
            instances.emplace(data->cloneKey(), queue);
            event = writerGeneration == 0 ? INSTANCE_DISPOSED : INSTANCE_CREATED;
        }
    }

    // Recorded before the checks: a sample dropped for its age still counts as seen.
    const long sourceMs = orlo::dabo::util::timestampFromDouble(sourceTimestamp);
    lastSourceTimeMs = sourceMs;
    if (latency != 0 && latency < receiveTimeMs - sourceMs) {
        return;
    }
    if (deadline != 0 && receiveTimeMs > deadline + sourceMs) {
        return;
    }
    if (deadlineWindow > 0) {
        const long expiry = deadlineWindow + sourceMs;
        if (queue) {
            queue->deadlineExpiry = expiry;
        } else {
            deadlineExpiry = expiry;
        }
    }
    addToQueue(std::move(data), sourceTimestamp, true, std::move(state), event, queue, receiveTimeMs);
}

template <typename T, typename ST>
void QueuedSubscriberImpl<T, ST>::addToQueue(std::unique_ptr<T> data, double sourceTimestamp, bool validData,
                                             std::unique_ptr<InstanceState> state, InstanceEvent event,
                                             std::shared_ptr<Queue> instanceQueue, long receiveTimeMs) {
    auto dataEvent = std::make_shared<Event>(std::shared_ptr<T>(std::move(data)), sourceTimestamp, validData,
                                             std::move(state), event, instanceQueue);
    {
        // The first predicate, in id order, that does not decline the event
        // decides its fate.
        std::lock_guard<std::mutex> lock(listenerMutex);
        const std::shared_ptr<DataEvent<T>> offered = dataEvent;
        bool keep = false;
        for (auto it = predicates.begin(); it != predicates.end() && !keep; ++it) {
            switch (it->second->matchAndProcess(offered)) {
                case NOT_MATCHED:
                    break;
                case MATCHED_KEEP:
                    keep = true;
                    break;
                case CONSUMED:
                case CONSUMED_LAST:
                    return;
                case CONSUMED_FINISHED:
                    predicates.erase(it);
                    return;
            }
        }
    }

    purgeExpired(receiveTimeMs);
    // A full queue loses the newest sample, never the oldest.
    if (events.size() >= maxQueuedEvents) {
        return;
    }
    if (instanceQueue && instanceQueue->events.size() >= instanceQueue->maxEvents) {
        return;
    }
    events.push_back(dataEvent);
    dataEvent->queuePosition = std::make_unique<typename EventList::iterator>(std::prev(events.end()));
    if (instanceQueue) {
        dataEvent->instanceQueue = instanceQueue->shared_from_this();
        instanceQueue->events.push_back(dataEvent);
        dataEvent->instancePosition =
            std::make_unique<typename EventList::iterator>(std::prev(instanceQueue->events.end()));
    }
}

template <typename T, typename ST>
typename QueuedSubscriberImpl<T, ST>::EventList::iterator QueuedSubscriberImpl<T, ST>::unlinkEvent(
    typename EventList::iterator position) {
    Event& event = **position;
    event.queuePosition.reset();
    event.removeFromInstanceQueue();
    return events.erase(position);
}

template <typename T, typename ST>
void QueuedSubscriberImpl<T, ST>::purgeExpired(long nowMs) {
    if (deadline == 0) {
        return;
    }
    // Stops at the first young event: the list is in order of arrival, so an
    // old event behind a young one waits until the young one has gone.
    const double threshold = orlo::dabo::util::timestampToDouble(nowMs - deadline);
    while (!events.empty() && events.front()->sourceTimestamp < threshold) {
        unlinkEvent(events.begin());
    }
}

}  // namespace orlo::dabo::ps::queue::detail
