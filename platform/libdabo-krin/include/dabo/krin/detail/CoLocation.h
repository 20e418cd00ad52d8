#pragma once

#include <string>

namespace orlo::dabo::krin::detail {

/// Whether a socket of this host connecting to `connectTo` ("tcp://HOST:PORT")
/// reaches the listener that this host bound at `bound`: the same port, and
/// either the same host text, or `bound` listening on every IPv4 (or, for
/// "[::]", every) address and `connectTo` naming one of this host's own, or
/// both naming the same numeric address ("localhost" being 127.0.0.1).
///
/// Never resolves a name through the network: the runtime's thread must not
/// wait on a name server. A name other than "localhost" and this host's own
/// name therefore does not match, and such a subscriber keeps TCP, which
/// reaches the same listener anyway.
bool reachesListener(const std::string& connectTo, const std::string& bound);

}  // namespace orlo::dabo::krin::detail
