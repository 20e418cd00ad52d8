#include "dabo/krin/detail/CoLocation.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <optional>

namespace orlo::dabo::krin::detail {

namespace {

struct HostAndPort {
    std::string host;
    std::string port;
};

std::optional<HostAndPort> splitTcpEndpoint(const std::string& endpoint) {
    const std::string scheme = "tcp://";
    const std::size_t colon = endpoint.rfind(':');
    if (endpoint.rfind(scheme, 0) != 0 || colon == std::string::npos || colon < scheme.size()) {
        return std::nullopt;
    }
    std::string host = endpoint.substr(scheme.size(), colon - scheme.size());
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    std::transform(host.begin(), host.end(), host.begin(), [](unsigned char c) { return std::tolower(c); });
    return HostAndPort{host, endpoint.substr(colon + 1)};
}

/// A numeric address as 16 bytes, IPv4 ones mapped into IPv6.
using Address = std::array<unsigned char, 16>;

Address mapped(const in_addr& ipv4) {
    Address address{};
    address[10] = 0xff;
    address[11] = 0xff;
    std::memcpy(address.data() + 12, &ipv4, 4);
    return address;
}

std::optional<Address> numericAddress(const std::string& host) {
    if (host == "localhost") {
        return numericAddress("127.0.0.1");
    }
    in_addr ipv4{};
    if (inet_pton(AF_INET, host.c_str(), &ipv4) == 1) {
        return mapped(ipv4);
    }
    in6_addr ipv6{};
    if (inet_pton(AF_INET6, host.c_str(), &ipv6) == 1) {
        Address address{};
        std::memcpy(address.data(), &ipv6, 16);
        return address;
    }
    return std::nullopt;
}

bool isIpv4(const Address& address) {
    static const unsigned char prefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    return std::memcmp(address.data(), prefix, sizeof prefix) == 0;
}

bool isLoopback(const Address& address) {
    if (isIpv4(address)) {
        return address[12] == 127;
    }
    static const Address ipv6Loopback = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    return address == ipv6Loopback;
}

bool isAddressOfThisHost(const Address& address) {
    if (isLoopback(address)) {
        return true;
    }
    ifaddrs* interfaces = nullptr;
    if (getifaddrs(&interfaces) != 0) {
        return false;
    }
    bool found = false;
    for (const ifaddrs* entry = interfaces; entry != nullptr && !found; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr) {
            continue;
        }
        if (entry->ifa_addr->sa_family == AF_INET) {
            found = mapped(reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr) == address;
        } else if (entry->ifa_addr->sa_family == AF_INET6) {
            found = std::memcmp(&reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr)->sin6_addr, address.data(),
                                16) == 0;
        }
    }
    freeifaddrs(interfaces);
    return found;
}

bool isNameOfThisHost(const std::string& host) {
    char name[256] = {};
    if (gethostname(name, sizeof name - 1) != 0) {
        return false;
    }
    std::string own(name);
    std::transform(own.begin(), own.end(), own.begin(), [](unsigned char c) { return std::tolower(c); });
    return !own.empty() && host == own;
}

}  // namespace

bool reachesListener(const std::string& connectTo, const std::string& bound) {
    const auto target = splitTcpEndpoint(connectTo);
    const auto listener = splitTcpEndpoint(bound);
    if (!target || !listener || target->port != listener->port) {
        return false;
    }
    if (target->host == listener->host) {
        return true;
    }
    const auto targetAddress = numericAddress(target->host);
    // "*" and 0.0.0.0 listen on every IPv4 address, "::" on every address.
    const bool everyIpv4 = listener->host == "*" || listener->host == "0.0.0.0";
    const bool everyAddress = listener->host == "::";
    if (everyIpv4 || everyAddress) {
        if (!targetAddress) {
            return isNameOfThisHost(target->host);
        }
        return (everyAddress || isIpv4(*targetAddress)) && isAddressOfThisHost(*targetAddress);
    }
    const auto listenerAddress = numericAddress(listener->host);
    return targetAddress && listenerAddress && *targetAddress == *listenerAddress;
}

}  // namespace orlo::dabo::krin::detail
