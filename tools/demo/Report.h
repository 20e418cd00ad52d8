#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tools/demo/LatencyStats.h"
#include "tools/demo/Ledger.h"

namespace lumo::demo {

/// One line of the final table.
struct ReportRow {
    std::string topic;
    /// How the topic travels, e.g. "queued, notifier".
    std::string path;
    TopicCounts counts;
    /// Set for the row whose samples close the loop.
    bool hasLatency = false;
    LatencyStats::Summary latency;
};

/// True if the row lost nothing, found no difference and verified at least one sample.
bool rowPassed(const ReportRow& row);

/// Prints the table and the verdict; returns whether every row passed.
bool printReport(const std::vector<ReportRow>& rows, std::ostream& out);

}  // namespace lumo::demo
