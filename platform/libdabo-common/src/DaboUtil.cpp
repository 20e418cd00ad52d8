#include "dabo/util/DaboUtil.h"

#include <uuid/uuid.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>

#include "dabo/DaboException.h"

namespace orlo::dabo::util {

std::int32_t topicNameHash(const std::string& topicName) {
    constexpr std::uint32_t fnvOffsetBasis = 2166136261u;
    constexpr std::uint32_t fnvPrime = 16777619u;
    std::uint32_t hash = fnvOffsetBasis;
    for (unsigned char byte : topicName) {
        hash ^= byte;
        hash *= fnvPrime;
    }
    return static_cast<std::int32_t>(hash);
}

long getLongProperty(const Dabo::Properties& properties, const std::string& key, long defaultValue) {
    const auto found = properties.find(key);
    if (found == properties.end()) {
        return defaultValue;
    }
    const std::string& text = found->second;
    // Only an optional sign and decimal digits: strtol alone would also take
    // leading blanks, which would hide a malformed configuration.
    const std::size_t digitsFrom = (!text.empty() && (text[0] == '-' || text[0] == '+')) ? 1 : 0;
    const bool wellFormed = text.size() > digitsFrom &&
                            text.find_first_not_of("0123456789", digitsFrom) == std::string::npos;
    if (!wellFormed) {
        throw DaboException("Property " + key + " has value '" + text + "', which is not an integer");
    }
    errno = 0;
    const long value = std::strtol(text.c_str(), nullptr, 10);
    if (errno == ERANGE) {
        throw DaboException("Property " + key + " has value '" + text + "', which is out of range of a long integer");
    }
    return value;
}

long currentTimeMillis() {
    using namespace std::chrono;
    return static_cast<long>(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

double timestampToDouble(long milliseconds) {
    return static_cast<double>(milliseconds) / 1000.0;
}

long timestampFromDouble(double timestamp) {
    return std::lround(timestamp * 1000.0);
}

std::string hexStr(const std::string& bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (unsigned char byte : bytes) {
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 0x0f]);
    }
    return text;
}

std::string newUUID() {
    uuid_t uuid;
    uuid_generate_random(uuid);
    char text[37];
    uuid_unparse_lower(uuid, text);
    return std::string(text);
}

}  // namespace orlo::dabo::util
