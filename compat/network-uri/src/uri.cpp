#include "network/uri.hpp"

#include <uriparser/Uri.h>

#include <algorithm>

namespace network {

namespace {

class uri_category_impl : public std::error_category {
public:
    const char* name() const noexcept override { return "uri_error"; }
    std::string message(int ev) const override {
        return ev == static_cast<int>(uri_error::invalid_syntax) ? "Unable to parse URI string." : "Unknown URI error.";
    }
};

// Frees uriparser's component list however parsing ends.
struct parsed_uri {
    UriUriA value{};
    ~parsed_uri() { uriFreeUriMembersA(&value); }
};

}  // namespace

const std::error_category& uri_category() {
    static const uri_category_impl category;
    return category;
}

std::error_code make_error_code(uri_error e) {
    return std::error_code(static_cast<int>(e), uri_category());
}

uri_syntax_error::uri_syntax_error(const std::error_code& ec) : std::system_error(ec) {}
uri_syntax_error::~uri_syntax_error() noexcept = default;

uri::uri() = default;

uri::uri(const std::string& source) : text_(source) {
    std::error_code ec;
    if (!parse(ec)) {
        throw uri_syntax_error(ec);
    }
}

uri::uri(const char* source) : uri(std::string(source)) {}

uri::uri(const std::string& source, std::error_code& ec) : text_(source) {
    if (!parse(ec)) {
        *this = uri();
    }
}

bool uri::parse(std::error_code& ec) {
    parsed_uri parsed;
    const char* errorPos = nullptr;
    const char* const first = text_.data();
    const char* const afterLast = first + text_.size();
    if (text_.empty() || uriParseSingleUriExA(&parsed.value, first, afterLast, &errorPos) != URI_SUCCESS) {
        ec = make_error_code(uri_error::invalid_syntax);
        return false;
    }
    // uriparser may point an empty component at a constant outside the text;
    // only ranges within the text are components.
    const auto take = [first, afterLast](const UriTextRangeA& range, part& into) {
        if (range.first != nullptr && range.first >= first && range.afterLast <= afterLast &&
            range.first <= range.afterLast) {
            into.present = true;
            into.offset = static_cast<size_type>(range.first - first);
            into.length = static_cast<size_type>(range.afterLast - range.first);
        }
    };
    take(parsed.value.scheme, scheme_);
    take(parsed.value.userInfo, user_info_);
    take(parsed.value.hostText, host_);
    take(parsed.value.portText, port_);
    take(parsed.value.query, query_);
    take(parsed.value.fragment, fragment_);

    // An IP literal keeps its brackets in the host text.
    if (host_.present && host_.offset > 0 && host_.offset + host_.length < text_.size() &&
        text_[host_.offset - 1] == '[') {
        host_.offset -= 1;
        host_.length += 2;
    }

    // Authority and path are delimited by the generic syntax, which uriparser
    // has already checked, so they are cut from the text directly.
    size_type position = scheme_.present ? scheme_.offset + scheme_.length + 1 : 0;
    if (text_.compare(position, 2, "//") == 0) {
        const size_type start = position + 2;
        const size_type stop = std::min(text_.find_first_of("/?#", start), text_.size());
        authority_ = part{true, start, stop - start};
        position = stop;
    }
    const size_type pathEnd = std::min(text_.find_first_of("?#", position), text_.size());
    if (pathEnd > position) {
        path_ = part{true, position, pathEnd - position};
    }
    return true;
}

}  // namespace network
