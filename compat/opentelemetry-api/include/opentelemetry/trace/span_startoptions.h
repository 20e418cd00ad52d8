#pragma once

// Stand-in for opentelemetry/trace/span_startoptions.h (OpenTelemetry C++ API 1.x).

#include "opentelemetry/common/timestamp.h"
#include "opentelemetry/trace/span_context.h"
#include "opentelemetry/trace/span_metadata.h"

namespace opentelemetry {
namespace trace {

/// Options for starting a span. Zero start times mean "now"; an invalid parent
/// means the tracer takes the parent from the ambient context.
struct StartSpanOptions {
    common::SystemTimestamp start_system_time;
    common::SteadyTimestamp start_steady_time;
    SpanContext parent = SpanContext::GetInvalid();
    SpanKind kind = SpanKind::kInternal;
};

}  // namespace trace
}  // namespace opentelemetry
