#pragma once

// Lines of a named logger, collected while a test runs, with a wait for the
// line that a runtime's thread is expected to write: the test sleeps on a
// condition variable until it is there, never for a guessed time.

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace lumo::security {

class LogWatch {
public:
    explicit LogWatch(const std::string& loggerName, log4cplus::LogLevel level = log4cplus::WARN_LOG_LEVEL)
        : logger(log4cplus::Logger::getInstance(loggerName)),
          previousLevel(logger.getLogLevel()),
          appender(new Collector),
          shared(appender) {
        logger.setLogLevel(level);
        logger.addAppender(shared);
    }
    ~LogWatch() {
        logger.removeAppender(shared);
        logger.setLogLevel(previousLevel);
    }
    LogWatch(const LogWatch&) = delete;
    LogWatch& operator=(const LogWatch&) = delete;

    /// Waits until `times` lines at `level` contain `text`; false after `limit`.
    bool await(log4cplus::LogLevel level, const std::string& text, std::size_t times = 1,
               std::chrono::seconds limit = std::chrono::seconds(30)) {
        std::unique_lock<std::mutex> lock(appender->mutex);
        return appender->changed.wait_for(lock, limit, [&] { return countLocked(level, text) >= times; });
    }

    /// The lines at `level` that contain `text`.
    std::vector<std::string> lines(log4cplus::LogLevel level, const std::string& text = "") {
        std::lock_guard<std::mutex> lock(appender->mutex);
        std::vector<std::string> found;
        for (const auto& line : appender->lines) {
            if (line.first == level && line.second.find(text) != std::string::npos) {
                found.push_back(line.second);
            }
        }
        return found;
    }

private:
    struct Collector : log4cplus::Appender {
        Collector() { setName(LOG4CPLUS_TEXT("security-test-watch")); }
        ~Collector() override { destructorImpl(); }
        void close() override {}
        void append(const log4cplus::spi::InternalLoggingEvent& event) override {
            {
                std::lock_guard<std::mutex> lock(mutex);
                lines.emplace_back(event.getLogLevel(), event.getMessage());
            }
            changed.notify_all();
        }

        std::mutex mutex;
        std::condition_variable changed;
        std::vector<std::pair<log4cplus::LogLevel, std::string>> lines;
    };

    std::size_t countLocked(log4cplus::LogLevel level, const std::string& text) const {
        std::size_t count = 0;
        for (const auto& line : appender->lines) {
            count += line.first == level && line.second.find(text) != std::string::npos ? 1 : 0;
        }
        return count;
    }

    log4cplus::Logger logger;
    log4cplus::LogLevel previousLevel;
    Collector* appender;  // owned through `shared`
    log4cplus::SharedAppenderPtr shared;
};

}  // namespace lumo::security
