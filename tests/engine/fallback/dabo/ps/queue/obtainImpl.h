#pragma once

// Stand-in for the binding's cast, used by the engine tests until the binding
// provides its own header at this path.
#include "dabo/DaboException.h"

namespace orlo::dabo::ps::queue::detail {

template <typename T, typename ST>
const ST& obtainImpl(const T& value) {
    const ST* impl = dynamic_cast<const ST*>(&value);
    if (!impl) {
        throw orlo::dabo::IllegalStateException(
            "data type for instance or value is incorrect. Not a Dabo supported type");
    }
    return *impl;
}

}  // namespace orlo::dabo::ps::queue::detail
