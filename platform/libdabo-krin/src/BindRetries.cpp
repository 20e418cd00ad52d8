#include "BindRetries.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

namespace orlo::dabo::krin::detail {

constexpr std::chrono::milliseconds BindRetries::retryInterval;
constexpr std::chrono::milliseconds BindRetries::retryWindow;

void BindRetries::released(const std::string& endpoint, Clock::time_point now) {
    // Ports released long ago tell nothing any more; forgetting them keeps
    // the map as small as the set of ports in recent use.
    for (auto it = releasedPorts.begin(); it != releasedPorts.end();) {
        it = now - it->second > retryWindow ? releasedPorts.erase(it) : std::next(it);
    }
    releasedPorts[portOf(endpoint)] = now;
}

bool BindRetries::shouldRetry(const std::string& endpoint, int error, Clock::time_point firstAttempt,
                              Clock::time_point now) {
    if (error != EADDRINUSE || now - firstAttempt >= retryWindow) {
        return false;
    }
    const auto found = releasedPorts.find(portOf(endpoint));
    return found != releasedPorts.end() && firstAttempt - found->second <= retryWindow;
}

void BindRetries::add(RuntimeCommand command, Clock::time_point firstAttempt, Clock::time_point now) {
    parked.push_back(Retry{std::move(command), firstAttempt, now + retryInterval});
}

std::vector<BindRetries::Retry> BindRetries::takeDue(Clock::time_point now) {
    std::vector<Retry> due;
    for (auto it = parked.begin(); it != parked.end();) {
        if (it->due <= now) {
            due.push_back(std::move(*it));
            it = parked.erase(it);
        } else {
            ++it;
        }
    }
    return due;
}

std::vector<BindRetries::Retry> BindRetries::takeOf(const std::string& identity) {
    std::vector<Retry> taken;
    for (auto it = parked.begin(); it != parked.end();) {
        if (it->command.identity == identity) {
            taken.push_back(std::move(*it));
            it = parked.erase(it);
        } else {
            ++it;
        }
    }
    return taken;
}

std::vector<BindRetries::Retry> BindRetries::takeAll() {
    std::vector<Retry> taken(std::make_move_iterator(parked.begin()), std::make_move_iterator(parked.end()));
    parked.clear();
    return taken;
}

std::optional<BindRetries::Clock::time_point> BindRetries::nextDue() const {
    if (parked.empty()) {
        return std::nullopt;
    }
    const auto earliest = std::min_element(parked.begin(), parked.end(),
                                           [](const Retry& a, const Retry& b) { return a.due < b.due; });
    return earliest->due;
}

std::string BindRetries::portOf(const std::string& endpoint) {
    const auto colon = endpoint.rfind(':');
    return colon == std::string::npos ? endpoint : endpoint.substr(colon + 1);
}

}  // namespace orlo::dabo::krin::detail
