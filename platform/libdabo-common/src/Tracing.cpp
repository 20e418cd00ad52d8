#include "dabo/util/Tracing.h"

#include "dabo/DaboException.h"

namespace orlo::dabo::util::tracing {

namespace {

constexpr char traceparentVersion[] = "00";

std::string traceparentOf(const opentelemetry::trace::Span* span) {
    if (span == nullptr) {
        throw DaboException("Cannot serialize a null span");
    }
    const opentelemetry::trace::SpanContext context = span->GetContext();
    char traceId[2 * opentelemetry::trace::TraceId::kSize];
    char spanId[2 * opentelemetry::trace::SpanId::kSize];
    char flags[2];
    context.trace_id().ToLowerBase16(traceId);
    context.span_id().ToLowerBase16(spanId);
    context.trace_flags().ToLowerBase16(flags);

    std::string text;
    text.reserve(sizeof traceparentVersion + sizeof traceId + sizeof spanId + sizeof flags + 3);
    text.append(traceparentVersion).append(1, '-');
    text.append(traceId, sizeof traceId).append(1, '-');
    text.append(spanId, sizeof spanId).append(1, '-');
    text.append(flags, sizeof flags);
    return text;
}

}  // namespace

std::string serializeSpan(const std::shared_ptr<opentelemetry::trace::Span>& span) {
    return traceparentOf(span.get());
}

std::string serializeSpan(const opentelemetry::nostd::shared_ptr<opentelemetry::trace::Span>& span) {
    return traceparentOf(span.get());
}

}  // namespace orlo::dabo::util::tracing
