#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "dabo/Dabo.h"
#include "dabo/krin/detail/ps/basePubSub.h"
#include "dabo/krin/detail/ps/subscriber.h"
#include "dabo/ps/Subscriber.h"

namespace orlo::dabo::krin::detail::ps {

/// What a host owns of a queued subscriber: a strong reference to the
/// KrinSubscriber, which must live in shared ownership for the runtime's
/// sake, and plain forwards to it. Deleting the delegator does not close;
/// if it held the last reference, the subscriber's destructor does.
template <typename T, typename ST>
class KrinSubscriberDelegator : public orlo::dabo::ps::Subscriber<T> {
public:
    using Callback = std::function<void(orlo::dabo::ps::Subscriber<T>&, const orlo::dabo::ps::DataEvent<T>&)>;
    using Notifier = std::function<void(orlo::dabo::ps::Subscriber<T>&)>;

    std::shared_ptr<T> createDataEntity() override { return impl->createDataEntity(); }
    ~KrinSubscriberDelegator() override = default;
    void close() override { impl->close(); }
    std::vector<std::shared_ptr<T>> read(unsigned long maxSamples) override { return impl->read(maxSamples); }
    std::shared_ptr<T> readInstance(const T& instance) override { return impl->readInstance(instance); }
    bool readInstance(const T& instance, T& value) override { return impl->readInstance(instance, value); }
    std::shared_ptr<orlo::dabo::ps::LoanedDataEntity<T>> loanedRead() override { return impl->loanedRead(); }
    std::shared_ptr<orlo::dabo::ps::LoanedDataEntity<T>> loanedReadInstance(const T& instance) override {
        return impl->loanedReadInstance(instance);
    }
    unsigned long readDataEvents(const orlo::dabo::ps::DataEventFilter<T>& filter,
                                 std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<T>>>& events,
                                 unsigned long maxEvents, const std::chrono::milliseconds& timeout) override {
        return impl->readDataEvents(filter, events, maxEvents, timeout);
    }
    std::unique_ptr<orlo::dabo::ps::Subscription> subscribe(const orlo::dabo::ps::DataEventFilter<T>& filter,
                                                            Callback callback) override {
        return impl->subscribe(filter, callback);
    }
    unsigned long poll(unsigned long maxEvents, const std::chrono::milliseconds& timeout) override {
        return impl->poll(maxEvents, timeout);
    }
    std::unique_ptr<orlo::dabo::ps::Subscription> subscribeAsync(const orlo::dabo::ps::DataEventFilter<T>& filter,
                                                                 Callback listener) override {
        return impl->subscribeAsync(filter, listener);
    }
    std::unique_ptr<orlo::dabo::ps::Subscription> subscribeAsync(const orlo::dabo::ps::DataEventFilter<T>& filter,
                                                                 Notifier notifier) override {
        return impl->subscribeAsync(filter, notifier);
    }

    /// The host's strong reference; set once, by the factory.
    std::shared_ptr<KrinSubscriber<T, ST>> impl;
};

/// The steps of every exported subscriber factory: a delegator, the
/// subscriber in shared ownership, then `init`. If `init` throws, the
/// subscriber is dropped (its destructor closes it) and the exception goes
/// to the host unchanged.
template <typename T, typename ST>
orlo::dabo::ps::Subscriber<T>* createSubscriber(const std::string& uri, const QoSList& qos,
                                                const orlo::dabo::Dabo::Properties& properties,
                                                const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo) {
    auto delegator = std::make_unique<KrinSubscriberDelegator<T, ST>>();
    delegator->impl = std::make_shared<KrinSubscriber<T, ST>>(uri, qos, properties, dabo);
    delegator->impl->init();
    return delegator.release();
}

}  // namespace orlo::dabo::krin::detail::ps
