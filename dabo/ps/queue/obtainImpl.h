#pragma once

#include "dabo/DaboException.h"

namespace orlo::dabo::ps::queue::detail {

/// The binding object behind `value`, for the queue engine's key and filter
/// work. The engine logs nothing, so a foreign implementation of `T` is only
/// refused.
template <typename T, typename ST>
const ST& obtainImpl(const T& value) {
    const ST* impl = dynamic_cast<const ST*>(&value);
    if (impl != nullptr) {
        return *impl;
    }
    throw orlo::dabo::IllegalStateException(
        "data type for instance or value is incorrect. Not a Dabo supported type");
}

}  // namespace orlo::dabo::ps::queue::detail
