#pragma once

// Stand-in for opentelemetry::nostd::shared_ptr (OpenTelemetry C++ API 1.x).

#include <cstddef>
#include <memory>
#include <utility>

namespace opentelemetry {
namespace nostd {

/// Shared ownership of an API object; made from a std::shared_ptr or a raw
/// pointer, as in the real API.
template <class T>
class shared_ptr {
public:
    using element_type = T;
    using pointer = element_type*;

    shared_ptr() noexcept = default;
    shared_ptr(std::nullptr_t) noexcept {}
    explicit shared_ptr(pointer ptr) : wrapped_(ptr) {}
    shared_ptr(std::shared_ptr<T> ptr) noexcept : wrapped_(std::move(ptr)) {}
    template <class U, typename = std::enable_if_t<std::is_convertible<U*, pointer>::value>>
    shared_ptr(const shared_ptr<U>& other) noexcept : wrapped_(other.std_ptr()) {}
    template <class U, typename = std::enable_if_t<std::is_convertible<U*, pointer>::value>>
    shared_ptr(std::unique_ptr<U>&& other) : wrapped_(std::move(other)) {}

    void swap(shared_ptr<T>& other) noexcept { wrapped_.swap(other.wrapped_); }
    element_type* get() const noexcept { return wrapped_.get(); }
    element_type& operator*() const noexcept { return *wrapped_; }
    pointer operator->() const noexcept { return wrapped_.get(); }
    explicit operator bool() const noexcept { return static_cast<bool>(wrapped_); }

    // Not part of the real API's surface; used only by the conversions above.
    const std::shared_ptr<T>& std_ptr() const noexcept { return wrapped_; }

private:
    std::shared_ptr<T> wrapped_;
};

template <class T1, class T2>
bool operator==(const shared_ptr<T1>& lhs, const shared_ptr<T2>& rhs) noexcept { return lhs.get() == rhs.get(); }
template <class T1, class T2>
bool operator!=(const shared_ptr<T1>& lhs, const shared_ptr<T2>& rhs) noexcept { return lhs.get() != rhs.get(); }
template <class T>
bool operator==(const shared_ptr<T>& lhs, std::nullptr_t) noexcept { return lhs.get() == nullptr; }
template <class T>
bool operator==(std::nullptr_t, const shared_ptr<T>& rhs) noexcept { return nullptr == rhs.get(); }
template <class T>
bool operator!=(const shared_ptr<T>& lhs, std::nullptr_t) noexcept { return lhs.get() != nullptr; }
template <class T>
bool operator!=(std::nullptr_t, const shared_ptr<T>& rhs) noexcept { return nullptr != rhs.get(); }

}  // namespace nostd
}  // namespace opentelemetry
