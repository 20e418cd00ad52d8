#pragma once

// Stand-in for opentelemetry/trace/span.h (OpenTelemetry C++ API 1.x).

#include "opentelemetry/nostd/string_view.h"
#include "opentelemetry/trace/span_context.h"
#include "opentelemetry/trace/span_metadata.h"

namespace opentelemetry {
namespace trace {

/// One operation of a trace.
class Span {
public:
    Span() = default;
    virtual ~Span() = default;
    Span(const Span&) = delete;
    Span& operator=(const Span&) = delete;

    virtual void AddEvent(nostd::string_view name) noexcept = 0;
    virtual void SetStatus(StatusCode code, nostd::string_view description = "") noexcept = 0;
    virtual void UpdateName(nostd::string_view name) noexcept = 0;
    virtual void End(const trace::EndSpanOptions& options = {}) noexcept = 0;
    virtual trace::SpanContext GetContext() const noexcept = 0;
    virtual bool IsRecording() const noexcept = 0;
};

}  // namespace trace
}  // namespace opentelemetry
