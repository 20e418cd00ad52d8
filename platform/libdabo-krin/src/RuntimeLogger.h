#pragma once

#include <log4cplus/logger.h>

namespace orlo::dabo::krin::detail {

/// The logger of the transport runtime and its helpers.
inline log4cplus::Logger runtimeLogger() {
    return log4cplus::Logger::getInstance("vexa.dabo.krin.runtime");
}

}  // namespace orlo::dabo::krin::detail
