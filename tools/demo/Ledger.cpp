#include "tools/demo/Ledger.h"

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace lumo::demo {

namespace {

log4cplus::Logger logger() { return log4cplus::Logger::getInstance("lumo.demo.verify"); }

}  // namespace

Ledger::Ledger(std::string topic, tools::Schema& schema) : topicName(std::move(topic)), schema(schema) {}

void Ledger::setProbe(const std::string& bytes) {
    std::lock_guard<std::mutex> lock(mutex);
    probe = bytes;
}

bool Ledger::isProbe(const std::string& bytes) const {
    std::lock_guard<std::mutex> lock(mutex);
    return !probe.empty() && bytes == probe;
}

void Ledger::sent(std::uint64_t key, const std::string& bytes) {
    std::lock_guard<std::mutex> lock(mutex);
    outstanding[key] = bytes;
    ++tally.sent;
}

bool Ledger::received(std::uint64_t key, const std::string& bytes) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!probe.empty() && bytes == probe) {
        return true;
    }
    auto expected = outstanding.find(key);
    if (expected == outstanding.end()) {
        ++tally.received;
        ++tally.unexpected;
        LOG4CPLUS_WARN(logger(), topicName << ": received sample " << key << ", which was not expected");
        return false;
    }
    return compare(expected, bytes);
}

bool Ledger::receivedInOrder(const std::string& bytes) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!probe.empty() && bytes == probe) {
        return true;
    }
    if (outstanding.empty()) {
        ++tally.received;
        ++tally.unexpected;
        LOG4CPLUS_WARN(logger(), topicName << ": received a sample when none was expected");
        return false;
    }
    return compare(outstanding.begin(), bytes);
}

bool Ledger::compare(std::map<std::uint64_t, std::string>::iterator expected, const std::string& bytes) {
    ++tally.received;
    bool same = expected->second == bytes;
    if (same) {
        ++tally.verified;
    } else {
        ++tally.differed;
        const auto* type = schema.find(topicName);
        std::string report = "(no schema to compare with)";
        if (type != nullptr) {
            auto want = schema.newMessage(*type);
            auto got = schema.newMessage(*type);
            want->ParsePartialFromString(expected->second);
            got->ParsePartialFromString(bytes);
            report = tools::differences(*want, *got);
            if (report.empty()) {
                // Equal field by field, though encoded differently: that counts as equal.
                --tally.differed;
                ++tally.verified;
                same = true;
            }
        }
        if (!same) {
            LOG4CPLUS_ERROR(logger(), topicName << ": sample " << expected->first << " differs from what was sent:\n"
                                                << report);
        }
    }
    outstanding.erase(expected);
    if (outstanding.empty()) {
        drained.notify_all();
    }
    return same;
}

bool Ledger::awaitAll(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(mutex);
    return drained.wait_for(lock, limit, [&] { return outstanding.empty(); });
}

TopicCounts Ledger::counts() const {
    std::lock_guard<std::mutex> lock(mutex);
    TopicCounts result = tally;
    result.lost = outstanding.size();
    return result;
}

}  // namespace lumo::demo
