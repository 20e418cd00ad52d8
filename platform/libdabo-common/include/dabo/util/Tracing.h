#pragma once

#include <memory>
#include <string>

#include "opentelemetry/nostd/shared_ptr.h"
#include "opentelemetry/trace/span.h"

namespace orlo::dabo::util::tracing {

/// The span's context as a W3C trace-context `traceparent` value:
/// "00-" + 32 hex digits of the trace id + "-" + 16 of the span id + "-" +
/// 2 of the flags, all lower-case. A span without a valid context (the no-op
/// span) gives all-zero ids. A null span is a DaboException.
std::string serializeSpan(const std::shared_ptr<opentelemetry::trace::Span>& span);

/// The same for a span as the OpenTelemetry API hands it out.
std::string serializeSpan(const opentelemetry::nostd::shared_ptr<opentelemetry::trace::Span>& span);

}  // namespace orlo::dabo::util::tracing
