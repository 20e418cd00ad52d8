#pragma once

#include <cstdint>

namespace orlo::dabo::ps::queue::detail {

/// What a predicate did with a data event, and so what the walker that offered
/// it does next. The values are ordered: everything but NOT_MATCHED ends the
/// walk of the registered predicates.
enum PredicateOutcome : std::int32_t {
    /// Not wanted.
    NOT_MATCHED = 0,
    /// Seen, but the event is to stay where it is.
    MATCHED_KEEP = 1,
    /// Taken.
    CONSUMED = 2,
    /// Taken, and the predicate has had enough.
    CONSUMED_LAST = 3,
    /// Taken, and the stored predicate has had enough and is to be removed.
    CONSUMED_FINISHED = 4
};

}  // namespace orlo::dabo::ps::queue::detail
