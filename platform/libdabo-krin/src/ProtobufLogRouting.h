#pragma once

namespace orlo::dabo::krin::detail {

/// Sends Protocol Buffers' own log lines through the project's logging,
/// once per process, instead of their unformatted "[libprotobuf ...]" lines
/// on stderr: logger "vexa.dabo.krin.protobuf", protobuf's INFO as TRACE,
/// WARNING as WARN, ERROR as ERROR and FATAL as FATAL. A line that repeats
/// (one per refused payload under a flood) is written in full the first
/// time, then at most once per interval with the count held back.
void routeProtobufLogging();

}  // namespace orlo::dabo::krin::detail
