// URI checking as every factory meets it: the first byte gives the two flags
// of checkKrinUri, the rest is the URI. Any text is either accepted or refused
// with a DaboException; nothing else may leave, and an acceptance is consistent
// with what the parser and the profile check say.

#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>

#include "FuzzSupport.h"
#include "dabo/DaboException.h"
#include "dabo/krin/UriHelper.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "network/uri.hpp"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    lumo::fuzz::silenceLogging();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    lumo::fuzz::ByteReader input(data, size);
    const std::uint8_t flags = input.byte();
    const bool bindSide = (flags & 1) != 0;
    const bool requireTopic = (flags & 2) != 0;
    const std::string uri = input.rest();

    std::error_code parseError;
    const network::uri parsed(uri, parseError);
    if (!parseError) {
        // Every view lies within the text.
        for (const auto part : {parsed.scheme(), parsed.host(), parsed.port(), parsed.path(), parsed.authority(),
                                parsed.query(), parsed.fragment(), parsed.user_info()}) {
            LUMO_FUZZ_CHECK(part.size() <= uri.size());
        }
        LUMO_FUZZ_CHECK(parsed.string() == uri);
    }
    try {
        const network::uri thrown(uri);
        LUMO_FUZZ_CHECK(!parseError);
    } catch (const network::uri_syntax_error&) {
        LUMO_FUZZ_CHECK(static_cast<bool>(parseError));
    }

    const bool profile = orlo::dabo::krin::UriHelper::isPubSubUri(uri);
    bool accepted = false;
    try {
        const auto address = orlo::dabo::krin::detail::parseKrinUri(uri, bindSide, requireTopic);
        accepted = true;
        LUMO_FUZZ_CHECK(!parseError);
        LUMO_FUZZ_CHECK(address.port >= 1 && address.port <= 65535);
        LUMO_FUZZ_CHECK(!address.host.empty());
        LUMO_FUZZ_CHECK(bindSide || address.host != "*");
        LUMO_FUZZ_CHECK(!requireTopic || (address.topic.size() > 1));
        LUMO_FUZZ_CHECK(address.tcpEndpoint().rfind("tcp://", 0) == 0);
    } catch (const orlo::dabo::DaboException& refused) {
        LUMO_FUZZ_CHECK(std::string(refused.what()).rfind("Invalid Krin URI '", 0) == 0);
    }
    if (accepted) {
        // What the transport accepts belongs to its profile, and is accepted
        // again with the looser flags.
        LUMO_FUZZ_CHECK(profile);
        orlo::dabo::krin::detail::checkKrinUri(uri, true, false);
    }
    return 0;
}
