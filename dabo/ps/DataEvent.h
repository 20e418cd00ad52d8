#pragma once

#include <memory>

#include "dabo/ps/InstanceEvent.h"
#include "dabo/ps/InstanceState.h"

namespace orlo::dabo::ps {

/// One received sample together with what it means for its instance.
template <typename T>
class DataEvent {
public:
    /// Whether getData() holds a received sample; ask before using it.
    virtual bool hasValidData() const = 0;
    virtual const std::shared_ptr<T>& getData() const = 0;
    virtual InstanceState getInstanceState() const = 0;
    virtual InstanceEvent getInstanceEvent() const = 0;
    /// The publisher's timestamp, seconds since the epoch.
    virtual double getSourceTimestamp() const = 0;
    virtual ~DataEvent() = default;
};

}  // namespace orlo::dabo::ps
