#pragma once

// Stand-in for cpp-netlib's network::uri, used when that library is not
// installed. It keeps the installed library's names and signatures for what
// this project uses; the parsing itself (RFC 3986) is liburiparser's.

#include <cstddef>
#include <string>
#include <system_error>

#include "network/string_view.hpp"

namespace network {

/// Reasons a URI is refused.
enum class uri_error {
    invalid_syntax = 1,
};

const std::error_category& uri_category();
std::error_code make_error_code(uri_error e);

/// Thrown when a string is not a URI.
class uri_syntax_error : public std::system_error {
public:
    explicit uri_syntax_error(const std::error_code& ec);
    ~uri_syntax_error() noexcept override;
};

/// An immutable, parsed URI. Every accessor returns a view into the URI's own
/// text; a component that is absent is an empty view and has_<component>()
/// is false.
class uri {
public:
    using string_type = std::string;
    using value_type = string_type::value_type;
    using const_iterator = string_type::const_iterator;
    using iterator = const_iterator;
    using size_type = std::size_t;
    using string_view = network::string_view;

    uri();
    explicit uri(const std::string& source);
    explicit uri(const char* source);
    uri(const std::string& source, std::error_code& ec);

    bool has_scheme() const noexcept { return scheme_.present; }
    string_view scheme() const noexcept { return view(scheme_); }
    bool has_user_info() const noexcept { return user_info_.present; }
    string_view user_info() const noexcept { return view(user_info_); }
    bool has_host() const noexcept { return host_.present; }
    string_view host() const noexcept { return view(host_); }
    bool has_port() const noexcept { return port_.present; }
    string_view port() const noexcept { return view(port_); }
    bool has_path() const noexcept { return path_.present; }
    string_view path() const noexcept { return view(path_); }
    bool has_query() const noexcept { return query_.present; }
    string_view query() const noexcept { return view(query_); }
    bool has_fragment() const noexcept { return fragment_.present; }
    string_view fragment() const noexcept { return view(fragment_); }
    bool has_authority() const noexcept { return authority_.present; }
    string_view authority() const noexcept { return view(authority_); }

    /// The port as a number; 0 when the URI has none.
    template <typename IntT>
    IntT port() const {
        IntT value = 0;
        for (char c : view(port_)) {
            value = static_cast<IntT>(value * 10 + (c - '0'));
        }
        return value;
    }

    string_view view() const noexcept { return string_view(text_); }
    std::string string() const { return text_; }
    bool empty() const noexcept { return text_.empty(); }
    bool is_absolute() const noexcept { return has_scheme(); }
    const_iterator begin() const noexcept { return text_.begin(); }
    const_iterator end() const noexcept { return text_.end(); }

private:
    // A component as offsets into text_, so copies of a uri stay valid.
    struct part {
        bool present = false;
        size_type offset = 0;
        size_type length = 0;
    };

    bool parse(std::error_code& ec);
    string_view view(const part& p) const noexcept {
        return p.present ? string_view(text_.data() + p.offset, p.length) : string_view();
    }

    std::string text_;
    part scheme_;
    part user_info_;
    part host_;
    part port_;
    part path_;
    part query_;
    part fragment_;
    part authority_;
};

inline bool operator==(const uri& lhs, const uri& rhs) noexcept { return lhs.view() == rhs.view(); }
inline bool operator!=(const uri& lhs, const uri& rhs) noexcept { return !(lhs == rhs); }

}  // namespace network

namespace std {
template <>
struct is_error_code_enum<network::uri_error> : public true_type {};
}  // namespace std
