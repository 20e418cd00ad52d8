#pragma once

#include <memory>

#include "dabo/ps/InstancePublisher.h"

namespace orlo::dabo::ps {

/// A publisher of topic `T` that can also hand out publishers bound to one instance.
template <typename T>
class Publisher : public virtual InstancePublisher<T> {
public:
    std::shared_ptr<T> createDataEntity() override = 0;
    ~Publisher() override = default;
    std::shared_ptr<orlo::dabo::Dabo> getDabo() const override = 0;
    void publish(const T& sample, const std::chrono::milliseconds& timeout) override = 0;
    void publish(double timestamp, const T& sample, const std::chrono::milliseconds& timeout) override = 0;
    void close() override = 0;
    virtual std::unique_ptr<InstancePublisher<T>> createInstancePublisher(const T& instance) = 0;
};

}  // namespace orlo::dabo::ps
