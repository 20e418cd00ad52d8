#pragma once

#include <memory>
#include <set>
#include <utility>

#include "dabo/ps/InstanceEvent.h"
#include "dabo/ps/InstanceState.h"

namespace orlo::dabo::ps {

/// Which data events a reader or a subscription wants. Each member that is
/// left at its default switches its test off, so a default filter wants
/// everything.
template <typename T>
class DataEventFilter {
public:
    /// Wants every event.
    DataEventFilter() = default;

    /// Wants the events whose instance event is one of `instanceEvents`
    /// (an empty set: any).
    explicit DataEventFilter(std::set<InstanceEvent> instanceEvents)
        : instanceEvents(std::move(instanceEvents)) {}

    /// Wants the events in `instanceState` whose instance event is one of
    /// `instanceEvents` (an empty set: any).
    explicit DataEventFilter(InstanceState instanceState, std::set<InstanceEvent> instanceEvents = {})
        : instanceState(instanceState), instanceEvents(std::move(instanceEvents)) {}

    /// Wants the events of the instance of `instance` (null: of any instance).
    explicit DataEventFilter(std::shared_ptr<T> instance, InstanceState instanceState = INSTANCE_ANY,
                             std::set<InstanceEvent> instanceEvents = {})
        : instance(std::move(instance)), instanceState(instanceState), instanceEvents(std::move(instanceEvents)) {}

    DataEventFilter(const DataEventFilter&) = default;
    DataEventFilter(DataEventFilter&&) = default;
    DataEventFilter& operator=(const DataEventFilter&) = default;
    DataEventFilter& operator=(DataEventFilter&&) = default;
    virtual ~DataEventFilter() = default;

    /// If non-null, only events of this instance match.
    std::shared_ptr<T> instance;
    /// Only events in this state match; INSTANCE_ANY switches the test off.
    InstanceState instanceState = INSTANCE_ANY;
    /// Only events with one of these values match; an empty set switches the test off.
    std::set<InstanceEvent> instanceEvents;
};

}  // namespace orlo::dabo::ps
