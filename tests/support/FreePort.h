#pragma once

#include "tools/common/FreePort.h"

namespace lumo::test {

/// The tools' free loopback port (see lumo::tools::freeLoopbackPort), under
/// the name the tests use.
inline unsigned int freePort() { return static_cast<unsigned int>(lumo::tools::freeLoopbackPort()); }

}  // namespace lumo::test
