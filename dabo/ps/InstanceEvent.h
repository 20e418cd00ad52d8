#pragma once

#include <cstdint>

namespace orlo::dabo::ps {

/// What a data event means for its instance. Filters rely on there being
/// exactly three values: a set holding all of them wants every event.
enum InstanceEvent : std::int32_t {
    /// The first sample of the instance, or the first from a new writer generation.
    INSTANCE_CREATED = 0,
    /// A further sample from the same writer generation.
    INSTANCE_UPDATED = 1,
    /// The instance lost its writer; such an event usually has no valid data.
    INSTANCE_DISPOSED = 2
};

}  // namespace orlo::dabo::ps
