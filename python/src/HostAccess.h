#pragma once

// The binding's only contact with the host component: the plug-in, loaded
// once per process, and the runtimes made for Python.

#include <memory>
#include <string>

#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"

namespace lumotypes::python {

/// The plug-in every sample, publisher and subscriber of this process comes
/// from, loaded on first use from `path` (empty: the host component's default).
/// Loading another path later throws: a process holds one schema.
const host::Plugin& plugin(const std::string& path = {});

}  // namespace lumotypes::python
