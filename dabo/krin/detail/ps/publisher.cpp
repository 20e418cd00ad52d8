#include "dabo/krin/detail/ps/publisher.h"

#include <log4cplus/loggingmacros.h>

#include <network/uri.hpp>
#include <opentelemetry/trace/provider.h>

#include <sstream>
#include <thread>

#include "dabo/DaboException.h"
#include "dabo/krin/detail/ps/instancePublisher_impl.h"
#include "dabo/krin/detail/ps/publisherDelegator_impl.h"
#include "dabo/krin/detail/ps/publisher_impl.h"
#include "dabo/util/DaboUtil.h"
#include "dabo/util/Tracing.h"
#include "lumotypes/Topics.h"
#include "lumotypes/krin/LumotypesImpl.h"

namespace orlo::dabo::krin::detail::ps {

namespace publisherSupport {

TopicAddress parseTopicUri(const std::string& uri) {
    const network::uri parsed(uri);
    const auto path = parsed.path();
    const auto authority = parsed.authority();
    return TopicAddress{std::string(path.data(), path.size()),
                        "tcp://" + std::string(authority.data(), authority.size())};
}

void traceCreated(const log4cplus::Logger& logger, const std::string& topicName, std::int32_t topicIdHash,
                  const std::string& topicIdFrame) {
    if (!logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        return;
    }
    LOG4CPLUS_TRACE(logger, "KrinPublisher topicName:" << topicName << " topicIdHash:" << topicIdHash
                                                       << " topicIdFrame:" << orlo::dabo::util::hexStr(topicIdFrame));
}

void traceFrame(const log4cplus::Logger& logger, const char* text, const std::string& bytes) {
    if (!logger.isEnabledFor(log4cplus::TRACE_LOG_LEVEL)) {
        return;
    }
    LOG4CPLUS_TRACE(logger, text << orlo::dabo::util::hexStr(bytes));
}

void failRegistration(const log4cplus::Logger& logger) {
    std::stringstream text;
    text << "KrinPublisher did not receive registered event";
    LOG4CPLUS_ERROR(logger, text.str());
    throw orlo::dabo::DaboException(text.str());
}

void refuseNegativeTimeout(const log4cplus::Logger& logger) {
    static const char* const text = "negative timeout given to publish";
    LOG4CPLUS_ERROR(logger, text);
    throw orlo::dabo::DaboException(text);
}

void refuseUnserializableEntity(const log4cplus::Logger& logger) {
    static const char* const text = "Krin data entity failed to serialize";
    LOG4CPLUS_ERROR(logger, text);
    throw orlo::dabo::DaboException(text);
}

void throwTimeout() {
    throw orlo::dabo::TimeoutException("timeout");
}

void refuseInstancePublisher() {
    throw orlo::dabo::IllegalStateException("Not implemented");
}

namespace {

void logSendFailure(const log4cplus::Logger& logger, const char* what, const zmq::error_t& error) {
    std::stringstream text;
    text << what << error.num() << " msg:" << error.what();
    LOG4CPLUS_ERROR(logger, text.str());
}

}  // namespace

void logTopicFrameFailure(const log4cplus::Logger& logger, const zmq::error_t& error) {
    logSendFailure(logger, "Sending first fragment (topicIdFrame) failed: code:", error);
}

void logRemainingFramesFailure(const log4cplus::Logger& logger, const zmq::error_t& error) {
    logSendFailure(logger, "Sending krinHeaderFrame and krinDataEntity failed: code:", error);
}

// A full queue or a missing peer (EAGAIN) gives an empty result, which is
// deliberately not looked at: such a frame is lost and publishing goes on.
// Only hard errors leave as zmq::error_t.
void sendLeadingFrame(zmq::socket_t& socket, const std::string& frame) {
    (void)socket.send(zmq::const_buffer(frame.data(), frame.size()),
                      zmq::send_flags::sndmore | zmq::send_flags::dontwait);
}

void sendDataEntityFrame(zmq::socket_t& socket, zmq::message_t& message) {
    (void)socket.send(message, zmq::send_flags::dontwait);
}

void sendDataEntityAlone(zmq::socket_t& socket, zmq::message_t& message) noexcept {
    try {
        (void)socket.send(message, zmq::send_flags::dontwait);
    } catch (const zmq::error_t&) {
        // The first frame failed already; this send is a last try and may fail too.
    }
}

std::optional<std::string> publishSpanContext(const char* topicShortName) {
    auto provider = opentelemetry::trace::Provider::GetTracerProvider();
    auto tracer = provider->GetTracer("KrinPublisherCpp", "", "");
    if (!tracer) {
        return std::nullopt;
    }
    opentelemetry::trace::StartSpanOptions options;
    options.kind = opentelemetry::trace::SpanKind::kProducer;
    auto span = tracer->StartSpan(std::string("publish(") + topicShortName + ")", options);
    std::string traceContext = orlo::dabo::util::tracing::serializeSpan(span);
    span->End(opentelemetry::trace::EndSpanOptions());
    return traceContext;
}

void sleepSlowJoinerDelay(const orlo::dabo::Dabo::Properties& properties) {
    const long delay = orlo::dabo::util::getLongProperty(properties, "krin.ps.slowJoinerDelayMs", 0);
    if (delay > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
    }
}

}  // namespace publisherSupport

// The package's topics are a closed set: every publisher template is compiled
// here once per topic, and nowhere else.
#define LUMOTYPES_KRIN_INSTANTIATE_PUBLISHER(Name)                                                   \
    template class KrinPublisher<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;                \
    template class KrinInstancePublisher<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;        \
    template class KrinPublisherDelegator<::lumotypes::Name, ::lumotypes::krin::Name##Impl>;
LUMOTYPES_FOR_EACH_TOPIC(LUMOTYPES_KRIN_INSTANTIATE_PUBLISHER)
#undef LUMOTYPES_KRIN_INSTANTIATE_PUBLISHER

}  // namespace orlo::dabo::krin::detail::ps
