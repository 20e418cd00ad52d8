#pragma once

#include <utility>

#include "dabo/ps/queue/QueuedSubscriber.h"
#include "dabo/ps/queue/QueuedSubscriberImpl_impl.h"

namespace orlo::dabo::ps::queue {

template <typename T, typename ST>
QueuedSubscriber<T, ST>::QueuedSubscriber(const std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>& qos)
    : impl(std::make_shared<detail::QueuedSubscriberImpl<T, ST>>(qos)) {}

template <typename T, typename ST>
std::shared_ptr<T> QueuedSubscriber<T, ST>::createDataEntity() {
    return impl->createDataEntity();
}

template <typename T, typename ST>
void QueuedSubscriber<T, ST>::close() {
    impl->close();
}

template <typename T, typename ST>
std::vector<std::shared_ptr<T>> QueuedSubscriber<T, ST>::read(unsigned long maxSamples) {
    return impl->read(maxSamples);
}

template <typename T, typename ST>
std::shared_ptr<T> QueuedSubscriber<T, ST>::readInstance(const T& instance) {
    return impl->readInstance(instance);
}

template <typename T, typename ST>
bool QueuedSubscriber<T, ST>::readInstance(const T& instance, T& value) {
    return impl->readInstance(instance, value);
}

template <typename T, typename ST>
std::shared_ptr<LoanedDataEntity<T>> QueuedSubscriber<T, ST>::loanedRead() {
    return impl->loanedRead();
}

template <typename T, typename ST>
std::shared_ptr<LoanedDataEntity<T>> QueuedSubscriber<T, ST>::loanedReadInstance(const T& instance) {
    return impl->loanedReadInstance(instance);
}

template <typename T, typename ST>
unsigned long QueuedSubscriber<T, ST>::readDataEvents(const DataEventFilter<T>& filter,
                                                      std::vector<std::shared_ptr<DataEvent<T>>>& events,
                                                      unsigned long maxEvents,
                                                      const std::chrono::milliseconds& timeout) {
    return impl->readDataEvents(filter, events, maxEvents, timeout);
}

template <typename T, typename ST>
std::unique_ptr<Subscription> QueuedSubscriber<T, ST>::subscribe(
    const DataEventFilter<T>& filter, std::function<void(Subscriber<T>&, const DataEvent<T>&)> callback) {
    return impl->subscribe(filter, std::move(callback));
}

template <typename T, typename ST>
unsigned long QueuedSubscriber<T, ST>::poll(unsigned long maxEvents, const std::chrono::milliseconds& timeout) {
    return impl->poll(maxEvents, timeout);
}

template <typename T, typename ST>
std::unique_ptr<Subscription> QueuedSubscriber<T, ST>::subscribeAsync(
    const DataEventFilter<T>& filter, std::function<void(Subscriber<T>&, const DataEvent<T>&)> listener) {
    return impl->subscribeAsync(filter, std::move(listener));
}

template <typename T, typename ST>
std::unique_ptr<Subscription> QueuedSubscriber<T, ST>::subscribeAsync(const DataEventFilter<T>& filter,
                                                                      std::function<void(Subscriber<T>&)> notifier) {
    return impl->subscribeAsync(filter, std::move(notifier));
}

}  // namespace orlo::dabo::ps::queue
