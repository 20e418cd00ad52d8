#pragma once

// Stand-in for opentelemetry::nostd::span with a fixed extent (OpenTelemetry C++ API 1.x).

#include <array>
#include <cstddef>

namespace opentelemetry {
namespace nostd {

constexpr std::size_t dynamic_extent = static_cast<std::size_t>(-1);

/// A view of exactly Extent contiguous elements.
template <class T, std::size_t Extent = dynamic_extent>
class span {
public:
    static_assert(Extent != dynamic_extent, "only fixed extents are provided");
    static constexpr std::size_t extent = Extent;

    explicit span(T* data, std::size_t /*count*/) noexcept : data_(data) {}
    span(T (&array)[Extent]) noexcept : data_(array) {}
    template <class U>
    span(std::array<U, Extent>& array) noexcept : data_(array.data()) {}
    template <class U>
    span(const std::array<U, Extent>& array) noexcept : data_(array.data()) {}
    template <class U>
    span(const span<U, Extent>& other) noexcept : data_(other.data()) {}

    T* data() const noexcept { return data_; }
    constexpr std::size_t size() const noexcept { return Extent; }
    bool empty() const noexcept { return Extent == 0; }
    T& operator[](std::size_t index) const noexcept { return data_[index]; }
    T* begin() const noexcept { return data_; }
    T* end() const noexcept { return data_ + Extent; }

private:
    T* data_;
};

}  // namespace nostd
}  // namespace opentelemetry
