#pragma once

#include "dabo/Dabo.h"
#include "lumotypes/host/Export.h"
#include "lumotypes/host/Factories.h"

namespace lumotypes::host {

/// Starts a transport runtime (one ZeroMQ context, one event thread) with the
/// runtime's properties (lumotypes/host/Properties.h); throws the platform's
/// DaboException for a bad one. The runtime stops when the last publisher,
/// subscriber and copy of the pointer have gone.
LUMOTYPES_HOST_EXPORT Runtime createRuntime(const orlo::dabo::Dabo::Properties& properties = {});

}  // namespace lumotypes::host
