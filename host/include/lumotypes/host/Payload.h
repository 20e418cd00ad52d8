#pragma once

// A topic entity's payload bytes, through the plug-in's own byte operations:
// exactly what the publish path sends and the receive path parses. Compiled
// once per topic in the host library; `entity` must have been made by the
// plug-in (Plugin::createDataEntity, Publisher::createDataEntity, a received
// sample), else both throw std::logic_error.

#include <string>

#include "lumotypes/host/Export.h"

namespace lumotypes::host {

/// The payload bytes of `entity`; throws std::runtime_error if it does not serialise.
template <typename T>
LUMOTYPES_HOST_EXPORT std::string toBytes(const T& entity);

/// Replaces the content of `entity` by the payload `bytes`; false if the
/// binding refuses them (ill-formed, or a required field missing).
template <typename T>
LUMOTYPES_HOST_EXPORT bool fromBytes(T& entity, const std::string& bytes);

}  // namespace lumotypes::host
