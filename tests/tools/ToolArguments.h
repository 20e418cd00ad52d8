#pragma once

// What the tests of krin-tap and krin-pub hand the tools: the programs, a
// topic URI on a free port and a sample written as JSON.

#include <string>

#include "tools/common/FreePort.h"

#ifndef LUMO_TAP_PATH
#error "LUMO_TAP_PATH must name krin-tap"
#endif
#ifndef LUMO_PUB_PATH
#error "LUMO_PUB_PATH must name krin-pub"
#endif

namespace lumo::test {

/// A CentOpt sample as krin-pub takes it and krin-tap prints it.
inline const std::string centOptJson = R"({"options":3,"threshold":0.75,"numBrightestPixels":25})";

/// A URI without a path on a loopback port that nothing uses.
inline std::string freshUri() { return "krin.ps://127.0.0.1:" + std::to_string(lumo::tools::freeLoopbackPort()); }

}  // namespace lumo::test
