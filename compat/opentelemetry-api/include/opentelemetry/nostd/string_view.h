#pragma once

// Stand-in for the OpenTelemetry C++ API (1.x names and signatures), used when
// opentelemetry-cpp is not installed. Only the trace API's no-op path is here.

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <ostream>
#include <string>

namespace opentelemetry {
namespace nostd {

/// A non-owning view of characters, ABI-stable in the real API.
class string_view {
public:
    using size_type = std::size_t;
    static constexpr size_type npos = static_cast<size_type>(-1);

    string_view() noexcept : length_(0), data_(nullptr) {}
    string_view(const char* str) noexcept : length_(std::strlen(str)), data_(str) {}
    string_view(const std::basic_string<char>& str) noexcept : length_(str.length()), data_(str.c_str()) {}
    string_view(const char* str, size_type len) noexcept : length_(len), data_(str) {}

    explicit operator std::string() const { return {data_, length_}; }

    const char* data() const noexcept { return data_; }
    bool empty() const noexcept { return length_ == 0; }
    size_type size() const noexcept { return length_; }
    size_type length() const noexcept { return length_; }
    const char* begin() const noexcept { return data_; }
    const char* end() const noexcept { return data_ + length_; }
    const char& operator[](size_type i) const { return data_[i]; }

    int compare(string_view v) const noexcept {
        const size_type len = std::min(size(), v.size());
        const int result = len == 0 ? 0 : std::memcmp(data(), v.data(), len);
        if (result == 0) {
            return size() == v.size() ? 0 : (size() < v.size() ? -1 : 1);
        }
        return result;
    }

private:
    size_type length_;
    const char* data_;
};

inline bool operator==(string_view lhs, string_view rhs) noexcept { return lhs.compare(rhs) == 0; }
inline bool operator!=(string_view lhs, string_view rhs) noexcept { return !(lhs == rhs); }
inline std::ostream& operator<<(std::ostream& os, string_view s) {
    return os.write(s.data(), static_cast<std::streamsize>(s.length()));
}

}  // namespace nostd
}  // namespace opentelemetry
