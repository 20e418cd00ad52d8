#pragma once

// Stand-in for opentelemetry/trace/noop.h (OpenTelemetry C++ API 1.x): what
// serves when no SDK is installed.

#include <memory>

#include "opentelemetry/nostd/shared_ptr.h"
#include "opentelemetry/trace/span.h"
#include "opentelemetry/trace/tracer.h"
#include "opentelemetry/trace/tracer_provider.h"

namespace opentelemetry {
namespace trace {

/// A span that records nothing and has an invalid context.
class NoopSpan final : public Span {
public:
    explicit NoopSpan(const std::shared_ptr<Tracer>& tracer) noexcept
        : tracer_(tracer), span_context_(SpanContext::GetInvalid()) {}

    void AddEvent(nostd::string_view /*name*/) noexcept override {}
    void SetStatus(StatusCode /*code*/, nostd::string_view /*description*/) noexcept override {}
    void UpdateName(nostd::string_view /*name*/) noexcept override {}
    void End(const EndSpanOptions& /*options*/ = {}) noexcept override {}
    SpanContext GetContext() const noexcept override { return span_context_; }
    bool IsRecording() const noexcept override { return false; }

private:
    std::shared_ptr<Tracer> tracer_;
    SpanContext span_context_;
};

/// A tracer whose spans are no-op spans.
class NoopTracer final : public Tracer, public std::enable_shared_from_this<NoopTracer> {
public:
    nostd::shared_ptr<Span> StartSpan(nostd::string_view /*name*/, const StartSpanOptions& /*options*/ = {}) noexcept override {
        return nostd::shared_ptr<Span>(std::shared_ptr<Span>(std::make_shared<NoopSpan>(this->shared_from_this())));
    }
};

/// The provider in place until a host installs another one.
class NoopTracerProvider final : public TracerProvider {
public:
    NoopTracerProvider() noexcept : tracer_(std::shared_ptr<Tracer>(std::make_shared<NoopTracer>())) {}

    nostd::shared_ptr<Tracer> GetTracer(nostd::string_view /*library_name*/,
                                        nostd::string_view /*library_version*/ = "",
                                        nostd::string_view /*schema_url*/ = "") noexcept override {
        return tracer_;
    }

private:
    nostd::shared_ptr<Tracer> tracer_;
};

}  // namespace trace
}  // namespace opentelemetry
