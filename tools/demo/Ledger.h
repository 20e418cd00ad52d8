#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "tools/common/Schema.h"

namespace lumo::demo {

/// Counts of one topic for the final table.
struct TopicCounts {
    unsigned long sent = 0;
    unsigned long received = 0;
    unsigned long verified = 0;
    unsigned long differed = 0;
    /// Received but never sent, or received twice.
    unsigned long unexpected = 0;
    /// Sent but not received by the end.
    unsigned long lost = 0;
};

/// What was sent on one topic, kept until it comes back, and how what came
/// back compared. Samples are compared by their payload bytes; a sample that
/// differs is compared again field by field through the schema, and the
/// differing fields are reported. Thread-safe: senders and receivers are on
/// different threads.
class Ledger {
public:
    Ledger(std::string topic, tools::Schema& schema);

    const std::string& topic() const { return topicName; }

    /// The bytes of the samples that only find out whether a subscriber has
    /// joined; they are not counted when they arrive.
    void setProbe(const std::string& bytes);
    bool isProbe(const std::string& bytes) const;

    void sent(std::uint64_t key, const std::string& bytes);

    /// Compares what came for `key` with what was sent; false if it differs or
    /// was not expected. A probe returns true and counts nothing.
    bool received(std::uint64_t key, const std::string& bytes);

    /// As `received`, against the oldest sample still expected: for topics
    /// whose samples carry no number of their own.
    bool receivedInOrder(const std::string& bytes);

    /// Waits up to `limit` until everything sent has come back; true if it has.
    bool awaitAll(std::chrono::milliseconds limit);

    /// The counts, with what is still expected counted as lost.
    TopicCounts counts() const;

private:
    bool compare(std::map<std::uint64_t, std::string>::iterator expected, const std::string& bytes);

    std::string topicName;
    tools::Schema& schema;
    mutable std::mutex mutex;
    std::condition_variable drained;
    std::string probe;
    std::map<std::uint64_t, std::string> outstanding;
    TopicCounts tally;
};

}  // namespace lumo::demo
