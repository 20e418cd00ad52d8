#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "tools/demo/DemoContext.h"
#include "tools/demo/Ledger.h"

namespace lumo::demo {

/// The topics that are not part of the loop, each taken once through a
/// publisher and a queued subscriber of its own: a few samples with every
/// field set, compared field by field when they come back.
class RoundTrips {
public:
    /// Every topic of the topic list that the loop does not use, in schema order.
    static const std::vector<std::string>& topics();

    RoundTrips(const DemoContext& context, int samplesPerTopic);

    /// Runs them one after the other; `done` counts the topics finished.
    void run();

    /// The ledgers, in the order of `topics()`.
    const std::vector<std::unique_ptr<Ledger>>& ledgers() const { return topicLedgers; }

    int finished() const { return done.load(); }

private:
    const DemoContext& context;
    int samplesPerTopic;
    std::vector<std::unique_ptr<Ledger>> topicLedgers;
    std::atomic<int> done{0};
};

}  // namespace lumo::demo
