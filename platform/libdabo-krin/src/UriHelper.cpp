#include "dabo/krin/UriHelper.h"

#include <algorithm>
#include <cctype>

#include "network/uri.hpp"

namespace orlo::dabo::krin {

bool UriHelper::isPubSubUri(const std::string& uri) {
    std::error_code parseError;
    const network::uri parsed(uri, parseError);
    if (parseError) {
        return false;
    }
    const std::string scheme(parsed.scheme());
    const std::string wanted(pubSubScheme);
    return std::equal(scheme.begin(), scheme.end(), wanted.begin(), wanted.end(),
                      [](unsigned char a, unsigned char b) { return std::tolower(a) == b; });
}

}  // namespace orlo::dabo::krin
