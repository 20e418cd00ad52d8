#pragma once

#include <string>

#include "dabo/Dabo.h"
#include "lumotypes/host/Plugin.h"
#include "tools/common/Schema.h"

namespace lumo::demo {

/// What every part of the demo shares: the loaded plug-in, its schema, the
/// embedded runtime and where the topics live.
struct DemoContext {
    const lumotypes::host::Plugin& plugin;
    tools::Schema& schema;
    lumotypes::host::Runtime runtime;
    orlo::dabo::Dabo::Properties properties;
    /// "krin.ps://127.0.0.1:PORT"
    std::string endpoint;

    std::string uriOf(const std::string& topic) const { return endpoint + "/lumo/demo/" + topic; }
};

}  // namespace lumo::demo
