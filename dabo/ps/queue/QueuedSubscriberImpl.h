#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "dabo/ps/Subscriber.h"
#include "dabo/ps/qos/QoS.h"
#include "dabo/ps/queue/DataEventImpl.h"
#include "dabo/ps/queue/DataEventPredicate.h"
#include "dabo/ps/queue/InstanceKeyFunctors.h"
#include "dabo/ps/queue/InstanceQueue.h"

namespace orlo::dabo::ps::queue::detail {

template <typename T, typename ST>
class SyncQueuedSubscription;
template <typename T, typename ST>
class AsyncQueuedSubscription;

/// The queued subscriber's engine: keeps received samples in memory and
/// serves them to reads, polls and subscriptions. Knows no transport; the
/// transport hands it samples through newData.
///
/// Locks, always in this order: queueMutex, listenerMutex, then a waiting
/// poll's own mutex. stateMutex is never held together with another.
/// predicates is changed under queueMutex everywhere except in the notifier
/// form of subscribeAsync, which holds listenerMutex alone; newData holds
/// both and so is safe against either.
template <typename T, typename ST>
class QueuedSubscriberImpl : public Subscriber<T>, public std::enable_shared_from_this<QueuedSubscriberImpl<T, ST>> {
public:
    using Event = DataEventImpl<T, ST>;
    using EventList = std::list<std::shared_ptr<Event>>;
    using Queue = InstanceQueue<T, ST>;
    using InstanceMap = std::unordered_map<std::unique_ptr<T>, std::shared_ptr<Queue>, STHash<T, ST>, STEqual<T, ST>>;
    using PredicateMap = std::map<std::string, std::shared_ptr<DataEventPredicate<T, ST>>>;
    using Listener = std::function<void(Subscriber<T>&, const DataEvent<T>&)>;
    using Notifier = std::function<void(Subscriber<T>&)>;

    /// Takes the latency and deadline from the last Latency and Deadline in `qos`.
    explicit QueuedSubscriberImpl(const std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>& qos);
    ~QueuedSubscriberImpl() override = default;

    std::shared_ptr<T> createDataEntity() override;
    void close() override;
    std::vector<std::shared_ptr<T>> read(unsigned long maxSamples) override;
    std::shared_ptr<T> readInstance(const T& instance) override;
    bool readInstance(const T& instance, T& value) override;
    std::shared_ptr<LoanedDataEntity<T>> loanedRead() override;
    std::shared_ptr<LoanedDataEntity<T>> loanedReadInstance(const T& instance) override;
    unsigned long readDataEvents(const DataEventFilter<T>& filter, std::vector<std::shared_ptr<DataEvent<T>>>& events,
                                 unsigned long maxEvents, const std::chrono::milliseconds& timeout) override;
    std::unique_ptr<Subscription> subscribe(const DataEventFilter<T>& filter, Listener callback) override;
    unsigned long poll(unsigned long maxEvents, const std::chrono::milliseconds& timeout) override;
    std::unique_ptr<Subscription> subscribeAsync(const DataEventFilter<T>& filter, Listener listener) override;
    std::unique_ptr<Subscription> subscribeAsync(const DataEventFilter<T>& filter, Notifier notifier) override;

    /// The transport's way in, on its delivering thread. `data` null with a
    /// `writerGeneration` of 0 disposes of every instance.
    void newData(std::unique_ptr<T> data, double sourceTimestamp, long writerGeneration, long receiveTimeMs);

protected:
    friend class SyncQueuedSubscription<T, ST>;
    friend class AsyncQueuedSubscription<T, ST>;

    /// Offers a new event to the predicates and queues it unless one took it.
    /// queueMutex held.
    void addToQueue(std::unique_ptr<T> data, double sourceTimestamp, bool validData,
                    std::unique_ptr<InstanceState> state, InstanceEvent event,
                    std::shared_ptr<Queue> instanceQueue, long receiveTimeMs);
    /// Throws if the subscriber is closed.
    void stateCheck();
    /// Drops the oldest events whose source time is older than the deadline. queueMutex held.
    void purgeExpired(long nowMs);
    /// Offers the queued events, oldest first, to `predicate`. queueMutex held.
    void internalReadQueue(DataEventPredicate<T, ST>& predicate);
    /// One wait on `condition`; true if it was woken before `timeout`.
    bool waitForCondition(std::mutex& mutex, std::condition_variable& condition, std::chrono::microseconds timeout);
    /// Refuses a filter that could claim the same sample as an existing
    /// registration. The caller's lock held.
    void filterCheck(const DataEventFilter<T>& filter);
    /// Serves the backlog to `predicate` and registers it. The caller's lock held.
    std::unique_ptr<Subscription> asyncSubscriptionInternal(const DataEventFilter<T>& filter,
                                                            std::shared_ptr<DataEventPredicate<T, ST>>& predicate);
    /// Unlinks the event at `position` from both lists; returns the next position.
    typename EventList::iterator unlinkEvent(typename EventList::iterator position);

    int spareLimit;
    int maxEventsPerInstance;
    long latency;
    long deadline;
    long deadlineWindow;
    bool spareFlag;
    long deadlineExpiry;
    long lastSourceTimeMs;
    unsigned long maxQueuedEvents;
    std::mutex stateMutex;
    bool closed;
    InstanceMap instances;
    std::mutex queueMutex;
    EventList events;
    std::mutex listenerMutex;
    PredicateMap predicates;
    SubscriptionMap<T> subscriptions;
};

}  // namespace orlo::dabo::ps::queue::detail
