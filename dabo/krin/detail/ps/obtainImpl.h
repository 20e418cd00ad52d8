#pragma once

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "dabo/DaboException.h"

namespace orlo::dabo::krin::detail::ps {

/// The binding object behind `value`. The transport works on the wire
/// message, so an entity that is not of the binding class (a host's own
/// implementation of `T`) is refused, logged on `logger` first.
template <typename T, typename ST>
const ST& obtainImpl(const T& value, log4cplus::Logger& logger) {
    const ST* impl = dynamic_cast<const ST*>(&value);
    if (impl != nullptr) {
        return *impl;
    }
    static const char* const text = "data type for instance or value is incorrect. Not a Krin supported type";
    LOG4CPLUS_ERROR(logger, text);
    throw orlo::dabo::IllegalStateException(text);
}

}  // namespace orlo::dabo::krin::detail::ps
