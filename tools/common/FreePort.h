#pragma once

namespace lumo::tools {

/// A TCP port on 127.0.0.1 that nothing is bound to right now, for the tools,
/// the benchmarks and the tests.
///
/// Ports are drawn at random, which keeps tests that run in parallel apart,
/// and below the kernel's ephemeral range (32768 and up): a socket that
/// connects to a port in that range before anything listens there can be
/// handed that very port as its own source and occupy it, and a publisher
/// could then no longer bind it.
int freeLoopbackPort();

}  // namespace lumo::tools
