#pragma once

#include <memory>
#include <string>

#include "dabo/ps/Subscription.h"

namespace orlo::dabo::ps::queue::detail {

template <typename T, typename ST>
class QueuedSubscriberImpl;

/// Handle of one registration in the engine. It shares the engine, so the
/// engine lives at least as long as any handle. Closed from one thread at a time.
template <typename T, typename ST>
class QueuedSubscription : public Subscription {
public:
    QueuedSubscription(std::string id, std::shared_ptr<QueuedSubscriberImpl<T, ST>> subscriber);

protected:
    std::string id;
    std::shared_ptr<QueuedSubscriberImpl<T, ST>> subscriber;
    bool closed;
};

/// Handle of a subscribe registration, served by poll.
template <typename T, typename ST>
class SyncQueuedSubscription : public QueuedSubscription<T, ST> {
public:
    using QueuedSubscription<T, ST>::QueuedSubscription;
    void close() override;
    ~SyncQueuedSubscription() override;
};

/// Handle of a subscribeAsync registration, a listener or a notifier.
template <typename T, typename ST>
class AsyncQueuedSubscription : public QueuedSubscription<T, ST> {
public:
    using QueuedSubscription<T, ST>::QueuedSubscription;
    void close() override;
    ~AsyncQueuedSubscription() override;
};

}  // namespace orlo::dabo::ps::queue::detail
