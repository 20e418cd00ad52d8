#pragma once

namespace lumo::tools {

/// A TCP port on 127.0.0.1 that nothing is bound to right now, drawn below the
/// kernel's ephemeral range: a subscriber that connects before its publisher
/// has bound can then never find its own connection's source port on it.
int freeLoopbackPort();

}  // namespace lumo::tools
