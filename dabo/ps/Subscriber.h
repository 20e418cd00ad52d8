#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "dabo/ps/DataEntityFactory.h"
#include "dabo/ps/DataEvent.h"
#include "dabo/ps/DataEventFilter.h"
#include "dabo/ps/LoanedDataEntity.h"
#include "dabo/ps/Subscription.h"

namespace orlo::dabo::ps {

/// Receives samples of topic `T` and keeps them for the host to read, poll
/// or be called with.
template <typename T>
class Subscriber : public virtual DataEntityFactory<T> {
public:
    std::shared_ptr<T> createDataEntity() override = 0;
    virtual ~Subscriber() = default;
    virtual void close() = 0;
    /// Takes at most `maxSamples` samples, oldest first; 0 means no limit.
    virtual std::vector<std::shared_ptr<T>> read(unsigned long maxSamples) = 0;
    /// Takes the oldest sample of the instance of `instance`, or null.
    virtual std::shared_ptr<T> readInstance(const T& instance) = 0;
    /// As above, copying the sample into `value`; false if there was none.
    virtual bool readInstance(const T& instance, T& value) = 0;
    virtual std::shared_ptr<LoanedDataEntity<T>> loanedRead() = 0;
    virtual std::shared_ptr<LoanedDataEntity<T>> loanedReadInstance(const T& instance) = 0;
    /// Appends up to `maxEvents` events that match `filter` to `events`,
    /// waiting at most `timeout` for them; returns how many it appended.
    virtual unsigned long readDataEvents(const DataEventFilter<T>& filter,
                                         std::vector<std::shared_ptr<DataEvent<T>>>& events,
                                         unsigned long maxEvents, const std::chrono::milliseconds& timeout) = 0;
    /// Registers a callback that poll() runs for matching events.
    virtual std::unique_ptr<Subscription> subscribe(
        const DataEventFilter<T>& filter, std::function<void(Subscriber<T>&, const DataEvent<T>&)> callback) = 0;
    /// Runs the callbacks of subscribe() for up to `maxEvents` events, waiting
    /// at most `timeout`; returns how many callbacks ran.
    virtual unsigned long poll(unsigned long maxEvents, const std::chrono::milliseconds& timeout) = 0;
    /// Registers a listener that takes matching samples as they arrive.
    virtual std::unique_ptr<Subscription> subscribeAsync(
        const DataEventFilter<T>& filter, std::function<void(Subscriber<T>&, const DataEvent<T>&)> listener) = 0;
    /// Registers a notifier that is told of matching samples, which stay queued.
    virtual std::unique_ptr<Subscription> subscribeAsync(const DataEventFilter<T>& filter,
                                                         std::function<void(Subscriber<T>&)> notifier) = 0;
};

}  // namespace orlo::dabo::ps
