#pragma once

#include <memory>
#include <vector>

#include "dabo/ps/Subscriber.h"
#include "dabo/ps/qos/QoS.h"
#include "dabo/ps/queue/QueuedSubscriberImpl.h"

namespace orlo::dabo::ps::queue {

/// A queued subscriber as a transport builds on it: every operation goes to
/// the shared engine, which subscription handles may keep alive beyond this
/// object.
template <typename T, typename ST>
class QueuedSubscriber : public Subscriber<T> {
public:
    explicit QueuedSubscriber(const std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>& qos);
    ~QueuedSubscriber() override = default;

    std::shared_ptr<T> createDataEntity() override;
    void close() override;
    std::vector<std::shared_ptr<T>> read(unsigned long maxSamples) override;
    std::shared_ptr<T> readInstance(const T& instance) override;
    bool readInstance(const T& instance, T& value) override;
    std::shared_ptr<LoanedDataEntity<T>> loanedRead() override;
    std::shared_ptr<LoanedDataEntity<T>> loanedReadInstance(const T& instance) override;
    unsigned long readDataEvents(const DataEventFilter<T>& filter, std::vector<std::shared_ptr<DataEvent<T>>>& events,
                                 unsigned long maxEvents, const std::chrono::milliseconds& timeout) override;
    std::unique_ptr<Subscription> subscribe(
        const DataEventFilter<T>& filter, std::function<void(Subscriber<T>&, const DataEvent<T>&)> callback) override;
    unsigned long poll(unsigned long maxEvents, const std::chrono::milliseconds& timeout) override;
    std::unique_ptr<Subscription> subscribeAsync(
        const DataEventFilter<T>& filter, std::function<void(Subscriber<T>&, const DataEvent<T>&)> listener) override;
    std::unique_ptr<Subscription> subscribeAsync(const DataEventFilter<T>& filter,
                                                 std::function<void(Subscriber<T>&)> notifier) override;

protected:
    std::shared_ptr<detail::QueuedSubscriberImpl<T, ST>> impl;
};

}  // namespace orlo::dabo::ps::queue
