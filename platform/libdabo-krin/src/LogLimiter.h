#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <unordered_map>

namespace orlo::dabo::krin::detail {

/// Keeps a peer that repeats the same fault from flooding the log: the first
/// occurrence of each key is written in full, then at most one line per
/// interval, which tells how many occurrences were held back meanwhile.
class LogLimiter {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds defaultInterval{10000};
    /// Keys remembered at most; beyond, those quiet for an interval are forgotten.
    static constexpr std::size_t maxKeys = 1024;

    explicit LogLimiter(std::chrono::milliseconds interval = defaultInterval) : interval(interval) {}

    /// Whether to write a line about `key` now. `heldBack` becomes the number
    /// of occurrences not written since the last line about it.
    bool admit(const std::string& key, Clock::time_point now, unsigned long& heldBack);
    bool admit(const std::string& key, Clock::time_point now) {
        unsigned long heldBack = 0;
        return admit(key, now, heldBack);
    }

    /// What a line written after others were held back adds: " (N more
    /// times since the last report)", or nothing.
    static std::string heldBackNote(unsigned long heldBack) {
        return heldBack == 0 ? std::string()
                             : " (" + std::to_string(heldBack) + " more times since the last report)";
    }

private:
    struct Entry {
        Clock::time_point lastWritten;
        unsigned long heldBack = 0;
    };

    void forgetQuietKeys(Clock::time_point now);

    std::chrono::milliseconds interval;
    std::unordered_map<std::string, Entry> entries;
};

}  // namespace orlo::dabo::krin::detail
