#pragma once

// Stand-in for opentelemetry/trace/tracer_provider.h (OpenTelemetry C++ API 1.x).

#include "opentelemetry/nostd/shared_ptr.h"
#include "opentelemetry/nostd/string_view.h"
#include "opentelemetry/trace/tracer.h"

namespace opentelemetry {
namespace trace {

/// Hands out tracers by instrumentation library name, version and schema URL.
class TracerProvider {
public:
    virtual ~TracerProvider() = default;
    virtual nostd::shared_ptr<Tracer> GetTracer(nostd::string_view library_name,
                                                nostd::string_view library_version = "",
                                                nostd::string_view schema_url = "") noexcept = 0;
};

}  // namespace trace
}  // namespace opentelemetry
