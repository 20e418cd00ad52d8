#include "LogLimiter.h"

#include <iterator>

namespace orlo::dabo::krin::detail {

constexpr std::chrono::milliseconds LogLimiter::defaultInterval;
constexpr std::size_t LogLimiter::maxKeys;

bool LogLimiter::admit(const std::string& key, Clock::time_point now, unsigned long& heldBack) {
    auto found = entries.find(key);
    if (found == entries.end()) {
        if (entries.size() >= maxKeys) {
            forgetQuietKeys(now);
        }
        entries.emplace(key, Entry{now, 0});
        heldBack = 0;
        return true;
    }
    Entry& entry = found->second;
    if (now - entry.lastWritten < interval) {
        ++entry.heldBack;
        return false;
    }
    heldBack = entry.heldBack;
    entry = Entry{now, 0};
    return true;
}

void LogLimiter::forgetQuietKeys(Clock::time_point now) {
    for (auto it = entries.begin(); it != entries.end();) {
        it = now - it->second.lastWritten >= interval ? entries.erase(it) : std::next(it);
    }
    if (entries.size() >= maxKeys) {
        // Every key is busy: starting afresh costs one more full line each.
        entries.clear();
    }
}

}  // namespace orlo::dabo::krin::detail
