#pragma once

// Stand-in for opentelemetry/trace/trace_flags.h (OpenTelemetry C++ API 1.x).

#include <cstdint>

#include "opentelemetry/nostd/span.h"

namespace opentelemetry {
namespace trace {

/// The trace flags byte; bit 0 is "sampled".
class TraceFlags final {
public:
    static constexpr std::uint8_t kIsSampled = 1;

    TraceFlags() noexcept : rep_{0} {}
    explicit TraceFlags(std::uint8_t flags) noexcept : rep_(flags) {}

    bool IsSampled() const noexcept { return rep_ & kIsSampled; }
    void ToLowerBase16(nostd::span<char, 2> buffer) const noexcept {
        constexpr char kHex[] = "0123456789abcdef";
        buffer[0] = kHex[(rep_ >> 4) & 0xF];
        buffer[1] = kHex[rep_ & 0xF];
    }
    std::uint8_t flags() const noexcept { return rep_; }
    bool operator==(const TraceFlags& that) const noexcept { return rep_ == that.rep_; }
    bool operator!=(const TraceFlags& that) const noexcept { return !(*this == that); }

private:
    std::uint8_t rep_;
};

}  // namespace trace
}  // namespace opentelemetry
