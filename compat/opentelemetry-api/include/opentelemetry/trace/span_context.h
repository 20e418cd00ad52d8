#pragma once

// Stand-in for opentelemetry/trace/span_context.h (OpenTelemetry C++ API 1.x).

#include "opentelemetry/trace/span_id.h"
#include "opentelemetry/trace/trace_flags.h"
#include "opentelemetry/trace/trace_id.h"

namespace opentelemetry {
namespace trace {

/// What of a span crosses process boundaries: trace id, span id and flags.
class SpanContext final {
public:
    /// An invalid context, as the no-op span has.
    SpanContext(bool sampled_flag, bool is_remote) noexcept
        : trace_id_(), span_id_(), trace_flags_(static_cast<std::uint8_t>(sampled_flag)), is_remote_(is_remote) {}
    SpanContext(TraceId trace_id, SpanId span_id, TraceFlags trace_flags, bool is_remote) noexcept
        : trace_id_(trace_id), span_id_(span_id), trace_flags_(trace_flags), is_remote_(is_remote) {}

    static SpanContext GetInvalid() noexcept { return SpanContext(false, false); }

    bool IsValid() const noexcept { return trace_id_.IsValid() && span_id_.IsValid(); }
    const TraceId& trace_id() const noexcept { return trace_id_; }
    const SpanId& span_id() const noexcept { return span_id_; }
    const TraceFlags& trace_flags() const noexcept { return trace_flags_; }
    bool IsRemote() const noexcept { return is_remote_; }
    bool IsSampled() const noexcept { return trace_flags_.IsSampled(); }
    bool operator==(const SpanContext& that) const noexcept {
        return trace_id() == that.trace_id() && span_id() == that.span_id() && trace_flags() == that.trace_flags();
    }

private:
    TraceId trace_id_;
    SpanId span_id_;
    TraceFlags trace_flags_;
    bool is_remote_;
};

}  // namespace trace
}  // namespace opentelemetry
