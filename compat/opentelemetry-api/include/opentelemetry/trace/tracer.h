#pragma once

// Stand-in for opentelemetry/trace/tracer.h (OpenTelemetry C++ API 1.x).

#include "opentelemetry/nostd/shared_ptr.h"
#include "opentelemetry/nostd/string_view.h"
#include "opentelemetry/trace/span.h"
#include "opentelemetry/trace/span_startoptions.h"

namespace opentelemetry {
namespace trace {

/// Makes spans for one instrumentation library.
class Tracer {
public:
    virtual ~Tracer() = default;
    virtual nostd::shared_ptr<Span> StartSpan(nostd::string_view name, const StartSpanOptions& options = {}) noexcept = 0;
};

}  // namespace trace
}  // namespace opentelemetry
