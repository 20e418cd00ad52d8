#pragma once

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace lumo::test {

/// A log line as the system wrote it: level and message text.
struct CapturedLine {
    log4cplus::LogLevel level;
    std::string message;
};

/// Collects every line logged on one logger while it is attached, so tests can
/// assert on the exact texts and levels, and wait for a line that another
/// thread is expected to write. Attach with `CaptureLog`.
class CapturingAppender : public log4cplus::Appender {
public:
    CapturingAppender() { setName(LOG4CPLUS_TEXT("test-capture")); }
    ~CapturingAppender() override { destructorImpl(); }

    void close() override {}

    std::vector<CapturedLine> lines() const {
        std::lock_guard<std::mutex> lock(linesMutex);
        return captured;
    }

    std::vector<std::string> messagesAt(log4cplus::LogLevel level, const std::string& containing = "") const {
        std::lock_guard<std::mutex> lock(linesMutex);
        std::vector<std::string> result;
        for (const auto& line : captured) {
            if (matches(line, level, containing)) {
                result.push_back(line.message);
            }
        }
        return result;
    }

    /// Waits, on a condition variable and never for a guessed time, until
    /// `times` lines at `level` contain `text`; false after `limit`.
    bool await(log4cplus::LogLevel level, const std::string& text, std::size_t times,
               std::chrono::milliseconds limit) const {
        std::unique_lock<std::mutex> lock(linesMutex);
        return changed.wait_for(lock, limit, [&] {
            std::size_t count = 0;
            for (const auto& line : captured) {
                count += matches(line, level, text) ? 1 : 0;
            }
            return count >= times;
        });
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        {
            std::lock_guard<std::mutex> lock(linesMutex);
            captured.push_back({event.getLogLevel(), event.getMessage()});
        }
        changed.notify_all();
    }

private:
    static bool matches(const CapturedLine& line, log4cplus::LogLevel level, const std::string& text) {
        return line.level == level && line.message.find(text) != std::string::npos;
    }

    mutable std::mutex linesMutex;
    mutable std::condition_variable changed;
    std::vector<CapturedLine> captured;
};

/// Attaches a CapturingAppender to a named logger for the lifetime of this
/// object and sets the logger's level so that every line reaches it.
class CaptureLog {
public:
    explicit CaptureLog(const std::string& loggerName,
                        log4cplus::LogLevel level = log4cplus::TRACE_LOG_LEVEL)
        : logger(log4cplus::Logger::getInstance(loggerName)),
          previousLevel(logger.getLogLevel()),
          appender(new CapturingAppender),
          sharedAppender(appender) {
        logger.setLogLevel(level);
        logger.addAppender(sharedAppender);
    }
    ~CaptureLog() {
        logger.removeAppender(sharedAppender);
        logger.setLogLevel(previousLevel);
    }
    CaptureLog(const CaptureLog&) = delete;
    CaptureLog& operator=(const CaptureLog&) = delete;

    std::vector<std::string> errors() const { return appender->messagesAt(log4cplus::ERROR_LOG_LEVEL); }
    std::vector<std::string> warnings() const { return appender->messagesAt(log4cplus::WARN_LOG_LEVEL); }
    std::vector<std::string> traces() const { return appender->messagesAt(log4cplus::TRACE_LOG_LEVEL); }
    std::vector<CapturedLine> lines() const { return appender->lines(); }
    /// The messages at `level` that contain `text`.
    std::vector<std::string> messagesContaining(log4cplus::LogLevel level, const std::string& text = "") const {
        return appender->messagesAt(level, text);
    }
    /// Waits until `times` lines at `level` contain `text`; false after `limit`.
    bool await(log4cplus::LogLevel level, const std::string& text, std::size_t times = 1,
               std::chrono::milliseconds limit = std::chrono::seconds(30)) const {
        return appender->await(level, text, times, limit);
    }

private:
    log4cplus::Logger logger;
    log4cplus::LogLevel previousLevel;
    CapturingAppender* appender;  // owned through sharedAppender
    log4cplus::SharedAppenderPtr sharedAppender;
};

}  // namespace lumo::test
