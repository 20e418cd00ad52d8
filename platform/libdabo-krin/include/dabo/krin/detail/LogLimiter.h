#pragma once

#include <chrono>
#include <cstddef>
#include <iterator>
#include <string>
#include <unordered_map>

namespace orlo::dabo::krin::detail {

/// Keeps a peer that repeats the same fault from flooding the log: the first
/// occurrence of each key is written in full, then at most one line per
/// interval, which tells how many occurrences were held back meanwhile.
/// Used by the runtime and by the plug-in's subscribers, each on one thread:
/// it takes no lock.
class LogLimiter {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds defaultInterval{10000};
    /// Keys remembered at most; beyond, those quiet for an interval are forgotten.
    static constexpr std::size_t maxKeys = 1024;

    explicit LogLimiter(std::chrono::milliseconds interval = defaultInterval) : interval(interval) {}

    /// Whether to write a line about `key` now. `heldBack` becomes the number
    /// of occurrences not written since the last line about it.
    bool admit(const std::string& key, Clock::time_point now, unsigned long& heldBack) {
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

    void forgetQuietKeys(Clock::time_point now) {
        for (auto it = entries.begin(); it != entries.end();) {
            it = now - it->second.lastWritten >= interval ? entries.erase(it) : std::next(it);
        }
        if (entries.size() >= maxKeys) {
            // Every key is busy: starting afresh costs one more full line each.
            entries.clear();
        }
    }

    std::chrono::milliseconds interval;
    std::unordered_map<std::string, Entry> entries;
};

}  // namespace orlo::dabo::krin::detail
