#pragma once

// Stand-in for network-uri's string_view: a non-owning view of characters that
// converts to std::string only explicitly (or through to_string()), as the
// installed library's does.

#include <algorithm>
#include <cstddef>
#include <ostream>
#include <string>

namespace network {

template <class CharT, class Traits = std::char_traits<CharT>>
class basic_string_view {
public:
    using traits_type = Traits;
    using value_type = CharT;
    using const_pointer = const CharT*;
    using const_reference = const CharT&;
    using const_iterator = const CharT*;
    using iterator = const_iterator;
    using size_type = std::size_t;
    static constexpr size_type npos = size_type(-1);

    constexpr basic_string_view() noexcept : data_(nullptr), size_(0) {}
    constexpr basic_string_view(const CharT* str, size_type len) : data_(str), size_(len) {}
    basic_string_view(const CharT* str) : data_(str), size_(Traits::length(str)) {}
    template <class Allocator>
    basic_string_view(const std::basic_string<CharT, Traits, Allocator>& str) noexcept
        : data_(str.data()), size_(str.size()) {}

    template <class Allocator>
    explicit operator std::basic_string<CharT, Traits, Allocator>() const {
        return std::basic_string<CharT, Traits, Allocator>(begin(), end());
    }

    template <class Allocator = std::allocator<CharT>>
    std::basic_string<CharT, Traits, Allocator> to_string(const Allocator& a = Allocator()) const {
        return std::basic_string<CharT, Traits, Allocator>(begin(), end(), a);
    }

    constexpr const_iterator begin() const noexcept { return data_; }
    constexpr const_iterator end() const noexcept { return data_ + size_; }
    constexpr const_iterator cbegin() const noexcept { return begin(); }
    constexpr const_iterator cend() const noexcept { return end(); }
    constexpr size_type size() const noexcept { return size_; }
    constexpr size_type length() const noexcept { return size_; }
    constexpr bool empty() const noexcept { return size_ == 0; }
    constexpr const_pointer data() const noexcept { return data_; }
    constexpr const_reference operator[](size_type pos) const { return data_[pos]; }
    const_reference front() const { return data_[0]; }
    const_reference back() const { return data_[size_ - 1]; }

    int compare(basic_string_view other) const noexcept {
        const int common = Traits::compare(data_, other.data_, std::min(size_, other.size_));
        if (common != 0) {
            return common;
        }
        return size_ == other.size_ ? 0 : (size_ < other.size_ ? -1 : 1);
    }

private:
    const_pointer data_;
    size_type size_;
};

template <class CharT, class Traits>
bool operator==(basic_string_view<CharT, Traits> lhs, basic_string_view<CharT, Traits> rhs) noexcept {
    return lhs.compare(rhs) == 0;
}
template <class CharT, class Traits>
bool operator==(basic_string_view<CharT, Traits> lhs, const CharT* rhs) noexcept {
    return lhs.compare(basic_string_view<CharT, Traits>(rhs)) == 0;
}
template <class CharT, class Traits>
bool operator==(const CharT* lhs, basic_string_view<CharT, Traits> rhs) noexcept {
    return rhs == lhs;
}
template <class CharT, class Traits, class Allocator>
bool operator==(basic_string_view<CharT, Traits> lhs, const std::basic_string<CharT, Traits, Allocator>& rhs) noexcept {
    return lhs.compare(basic_string_view<CharT, Traits>(rhs)) == 0;
}
template <class CharT, class Traits, class Allocator>
bool operator==(const std::basic_string<CharT, Traits, Allocator>& lhs, basic_string_view<CharT, Traits> rhs) noexcept {
    return rhs == lhs;
}
template <class CharT, class Traits, class Other>
bool operator!=(basic_string_view<CharT, Traits> lhs, const Other& rhs) noexcept {
    return !(lhs == rhs);
}

template <class CharT, class Traits>
std::basic_ostream<CharT, Traits>& operator<<(std::basic_ostream<CharT, Traits>& os,
                                              basic_string_view<CharT, Traits> view) {
    return os.write(view.data(), static_cast<std::streamsize>(view.size()));
}

using string_view = basic_string_view<char>;

}  // namespace network
