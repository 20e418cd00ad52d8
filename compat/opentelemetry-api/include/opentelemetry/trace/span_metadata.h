#pragma once

// Stand-in for opentelemetry/trace/span_metadata.h (OpenTelemetry C++ API 1.x).

#include "opentelemetry/common/timestamp.h"

namespace opentelemetry {
namespace trace {

enum class SpanKind {
    kInternal,
    kServer,
    kClient,
    kProducer,
    kConsumer,
};

enum class StatusCode {
    kUnset,
    kOk,
    kError,
};

/// Options for ending a span; a zero end time means "now".
struct EndSpanOptions {
    common::SteadyTimestamp end_steady_time;
};

}  // namespace trace
}  // namespace opentelemetry
