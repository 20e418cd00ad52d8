#pragma once

#include <cstdint>

namespace orlo::dabo::ps {

/// Whether a writer of a sample's instance is known.
enum InstanceState : std::int32_t {
    /// A writer of the sample's instance is known.
    INSTANCE_ALIVE = 0,
    /// No writer is known; also the answer when nothing better is available.
    INSTANCE_NOT_ALIVE = 1,
    /// Only meaningful in a filter: any state matches. Never reported by an event.
    INSTANCE_ANY = 2
};

}  // namespace orlo::dabo::ps
