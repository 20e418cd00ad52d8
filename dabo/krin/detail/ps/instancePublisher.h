#pragma once

#include <log4cplus/logger.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>

#include "dabo/ps/InstancePublisher.h"

namespace orlo::dabo::krin::detail::ps {

template <typename T, typename ST>
class KrinPublisher;

/// A publisher narrowed to one instance of topic `T`: it hands out samples
/// pre-filled from its own copy of that instance and sends through the
/// KrinPublisher it shares, on that publisher's socket and sequence.
///
/// The publisher lists it, without owning it, from construction to
/// destruction, so that closing the publisher closes it too.
template <typename T, typename ST>
class KrinInstancePublisher : public orlo::dabo::ps::InstancePublisher<T> {
public:
    /// Copies `instance`, which must be of the binding class: anything else
    /// ends the process, since a constructor that cannot fail has no other way out.
    KrinInstancePublisher(const std::shared_ptr<KrinPublisher<T, ST>>& publisher, const T& instance) noexcept;

    /// A new sample carrying all values of the instance.
    std::shared_ptr<T> createDataEntity() override;
    ~KrinInstancePublisher() override;
    std::shared_ptr<orlo::dabo::Dabo> getDabo() const override;
    void publish(const T& sample, const std::chrono::milliseconds& timeout) override;
    void publish(double timestamp, const T& sample, const std::chrono::milliseconds& timeout) override;
    /// Closes this instance publisher only; the publisher stays open.
    void close() override;

private:
    void checkState();

    std::shared_ptr<KrinPublisher<T, ST>> publisher;
    log4cplus::Logger logger;
    std::atomic<bool> closed;
    std::mutex mutex;
    ST instance;
};

}  // namespace orlo::dabo::krin::detail::ps
