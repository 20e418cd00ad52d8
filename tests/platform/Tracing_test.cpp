// Span serialisation: the W3C traceparent text of a span's context.

#include "dabo/util/Tracing.h"

#include <gtest/gtest.h>

#include "dabo/DaboException.h"
#include "opentelemetry/trace/provider.h"

namespace {

namespace trace = opentelemetry::trace;
namespace nostd = opentelemetry::nostd;

/// A span with a fixed context, as a tracing SDK would make.
class FixedSpan : public trace::Span {
public:
    explicit FixedSpan(trace::SpanContext context) : context(context) {}
    void AddEvent(nostd::string_view) noexcept override {}
    void SetStatus(trace::StatusCode, nostd::string_view) noexcept override {}
    void UpdateName(nostd::string_view) noexcept override {}
    void End(const trace::EndSpanOptions&) noexcept override {}
    trace::SpanContext GetContext() const noexcept override { return context; }
    bool IsRecording() const noexcept override { return true; }

private:
    trace::SpanContext context;
};

trace::SpanContext sampleContext() {
    const std::uint8_t traceId[16] = {0x4b, 0xf9, 0x2f, 0x35, 0x77, 0xb3, 0x4d, 0xa6,
                                      0xa3, 0xce, 0x92, 0x9d, 0x0e, 0x0e, 0x47, 0x36};
    const std::uint8_t spanId[8] = {0x00, 0xf0, 0x67, 0xaa, 0x0b, 0xa9, 0x02, 0xb7};
    return trace::SpanContext(trace::TraceId(traceId), trace::SpanId(spanId), trace::TraceFlags(1), false);
}

TEST(TracingTest, SpanContextBecomesATraceparent) {
    const std::shared_ptr<trace::Span> span = std::make_shared<FixedSpan>(sampleContext());
    EXPECT_EQ(orlo::dabo::util::tracing::serializeSpan(span), "00-4bf92f3577b34da6a3ce929d0e0e4736-00f067aa0ba902b7-01");
}

TEST(TracingTest, SpanAsTheApiHandsItOutSerialisesTheSame) {
    const nostd::shared_ptr<trace::Span> span(std::shared_ptr<trace::Span>(std::make_shared<FixedSpan>(sampleContext())));
    EXPECT_EQ(orlo::dabo::util::tracing::serializeSpan(span), "00-4bf92f3577b34da6a3ce929d0e0e4736-00f067aa0ba902b7-01");
}

TEST(TracingTest, NoopSpanOfTheDefaultProviderGivesZeroIds) {
    auto tracer = trace::Provider::GetTracerProvider()->GetTracer("KrinPublisherCpp", "", "");
    ASSERT_TRUE(tracer);
    trace::StartSpanOptions options;
    options.kind = trace::SpanKind::kProducer;
    auto span = tracer->StartSpan("publish(Dummy)", options);
    ASSERT_TRUE(span);

    EXPECT_EQ(orlo::dabo::util::tracing::serializeSpan(span), "00-00000000000000000000000000000000-0000000000000000-00");
    span->End(trace::EndSpanOptions{});
}

TEST(TracingTest, NullSpanIsRefused) {
    try {
        orlo::dabo::util::tracing::serializeSpan(std::shared_ptr<trace::Span>());
        FAIL() << "no exception";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_STREQ(e.what(), "Cannot serialize a null span");
    }
}

TEST(TracingTest, SpanKindsHaveTheApiValues) {
    EXPECT_EQ(static_cast<int>(trace::SpanKind::kProducer), 3);
    EXPECT_EQ(static_cast<int>(trace::SpanKind::kConsumer), 4);
}

}  // namespace
