#include "ProtobufLogRouting.h"

#include <google/protobuf/stubs/logging.h>
#include <log4cplus/logger.h>

#include <mutex>
#include <string>

#include "dabo/krin/detail/LogLimiter.h"

namespace orlo::dabo::krin::detail {

namespace {

log4cplus::LogLevel levelOf(google::protobuf::LogLevel level) {
    switch (level) {
        case google::protobuf::LOGLEVEL_INFO:
            return log4cplus::TRACE_LOG_LEVEL;
        case google::protobuf::LOGLEVEL_WARNING:
            return log4cplus::WARN_LOG_LEVEL;
        case google::protobuf::LOGLEVEL_ERROR:
            return log4cplus::ERROR_LOG_LEVEL;
        case google::protobuf::LOGLEVEL_FATAL:
            break;
    }
    return log4cplus::FATAL_LOG_LEVEL;
}

void logThroughLog4cplus(google::protobuf::LogLevel level, const char* /*filename*/, int /*line*/,
                         const std::string& message) {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("vexa.dabo.krin.protobuf");
    // Protocol Buffers may log on any thread.
    static std::mutex mutex;
    static LogLimiter limiter;
    const log4cplus::LogLevel logLevel = levelOf(level);
    if (!logger.isEnabledFor(logLevel)) {
        return;
    }
    unsigned long heldBack = 0;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (level != google::protobuf::LOGLEVEL_FATAL &&
            !limiter.admit(message, LogLimiter::Clock::now(), heldBack)) {
            return;
        }
    }
    logger.forcedLog(logLevel, heldBack == 0 ? message
                                             : message + " (" + std::to_string(heldBack) +
                                                   " more times since the last report)");
}

}  // namespace

void routeProtobufLogging() {
    static std::once_flag routed;
    std::call_once(routed, [] { google::protobuf::SetLogHandler(&logThroughLog4cplus); });
}

}  // namespace orlo::dabo::krin::detail
