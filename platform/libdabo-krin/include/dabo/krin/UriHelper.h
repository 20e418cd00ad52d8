#pragma once

#include <string>

namespace orlo::dabo::krin {

/// Recognises the URIs of this transport's profiles.
class UriHelper {
public:
    /// Scheme of the publish/subscribe profile.
    static constexpr const char* pubSubScheme = "krin.ps";

    /// True if `uri` parses as a URI whose scheme is krin.ps (in any letter
    /// case); false for any other scheme and for text that is no URI.
    static bool isPubSubUri(const std::string& uri);
};

}  // namespace orlo::dabo::krin
