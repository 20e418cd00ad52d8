#pragma once

#include <chrono>
#include <memory>

#include "dabo/Dabo.h"
#include "dabo/ps/DataEntityFactory.h"

namespace orlo::dabo::ps {

/// Publishes samples of topic `T`, possibly bound to one instance.
template <typename T>
class InstancePublisher : public virtual DataEntityFactory<T> {
public:
    std::shared_ptr<T> createDataEntity() override = 0;
    virtual ~InstancePublisher() = default;
    /// The runtime this publisher sends through.
    virtual std::shared_ptr<orlo::dabo::Dabo> getDabo() const = 0;
    virtual void publish(const T& sample, const std::chrono::milliseconds& timeout) = 0;
    /// As above, with the source timestamp given in seconds since the epoch.
    virtual void publish(double timestamp, const T& sample, const std::chrono::milliseconds& timeout) = 0;
    virtual void close() = 0;
};

}  // namespace orlo::dabo::ps
