#pragma once

#include <cstdint>

namespace orlo::dabo::krin::detail::ps {

/// Life cycle of a publisher or subscriber over the transport.
enum PubSubState : std::int32_t {
    /// Constructed; the runtime has not confirmed registration yet.
    CREATED = 0,
    /// Registered and usable.
    INITIALIZED = 1,
    /// Closed; the object lives on but refuses work.
    CLOSED = 2,
};

}  // namespace orlo::dabo::krin::detail::ps
