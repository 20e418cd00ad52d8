#pragma once

// Stand-in for opentelemetry/trace/span_id.h (OpenTelemetry C++ API 1.x).

#include <cstdint>
#include <cstring>

#include "opentelemetry/nostd/span.h"

namespace opentelemetry {
namespace trace {

/// 8 bytes naming a span; all zeros is the invalid id.
class SpanId final {
public:
    static constexpr int kSize = 8;

    SpanId() noexcept : rep_{0} {}
    explicit SpanId(nostd::span<const std::uint8_t, kSize> id) noexcept { std::memcpy(rep_, id.data(), kSize); }

    void ToLowerBase16(nostd::span<char, 2 * kSize> buffer) const noexcept {
        constexpr char kHex[] = "0123456789abcdef";
        for (int i = 0; i < kSize; ++i) {
            buffer[2 * i] = kHex[(rep_[i] >> 4) & 0xF];
            buffer[2 * i + 1] = kHex[rep_[i] & 0xF];
        }
    }
    nostd::span<const std::uint8_t, kSize> Id() const noexcept { return nostd::span<const std::uint8_t, kSize>(rep_); }
    bool operator==(const SpanId& that) const noexcept { return std::memcmp(rep_, that.rep_, kSize) == 0; }
    bool operator!=(const SpanId& that) const noexcept { return !(*this == that); }
    bool IsValid() const noexcept { return *this != SpanId(); }
    void CopyBytesTo(nostd::span<std::uint8_t, kSize> dest) const noexcept { std::memcpy(dest.data(), rep_, kSize); }

private:
    std::uint8_t rep_[kSize];
};

}  // namespace trace
}  // namespace opentelemetry
