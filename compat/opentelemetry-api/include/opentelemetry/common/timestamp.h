#pragma once

// Stand-in for opentelemetry/common/timestamp.h (OpenTelemetry C++ API 1.x).

#include <chrono>
#include <cstdint>

namespace opentelemetry {
namespace common {

/// A point on the wall clock, in nanoseconds since the epoch; 0 means "not set".
class SystemTimestamp {
public:
    SystemTimestamp() noexcept : nanos_since_epoch_(0) {}
    template <class Rep, class Period>
    explicit SystemTimestamp(const std::chrono::duration<Rep, Period>& time_since_epoch) noexcept
        : nanos_since_epoch_(static_cast<std::int64_t>(
              std::chrono::duration_cast<std::chrono::nanoseconds>(time_since_epoch).count())) {}
    SystemTimestamp(const std::chrono::system_clock::time_point& time_point) noexcept
        : SystemTimestamp(time_point.time_since_epoch()) {}
    std::chrono::nanoseconds time_since_epoch() const noexcept { return std::chrono::nanoseconds(nanos_since_epoch_); }
    bool operator==(const SystemTimestamp& other) const noexcept { return nanos_since_epoch_ == other.nanos_since_epoch_; }
    bool operator!=(const SystemTimestamp& other) const noexcept { return !(*this == other); }

private:
    std::int64_t nanos_since_epoch_;
};

/// A point on the monotonic clock, in nanoseconds; 0 means "not set".
class SteadyTimestamp {
public:
    SteadyTimestamp() noexcept : nanos_since_epoch_(0) {}
    template <class Rep, class Period>
    explicit SteadyTimestamp(const std::chrono::duration<Rep, Period>& time_since_epoch) noexcept
        : nanos_since_epoch_(static_cast<std::int64_t>(
              std::chrono::duration_cast<std::chrono::nanoseconds>(time_since_epoch).count())) {}
    SteadyTimestamp(const std::chrono::steady_clock::time_point& time_point) noexcept
        : SteadyTimestamp(time_point.time_since_epoch()) {}
    std::chrono::nanoseconds time_since_epoch() const noexcept { return std::chrono::nanoseconds(nanos_since_epoch_); }
    bool operator==(const SteadyTimestamp& other) const noexcept { return nanos_since_epoch_ == other.nanos_since_epoch_; }
    bool operator!=(const SteadyTimestamp& other) const noexcept { return !(*this == other); }

private:
    std::int64_t nanos_since_epoch_;
};

}  // namespace common
}  // namespace opentelemetry
