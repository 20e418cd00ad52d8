#include "tools/demo/Report.h"

#include <cstdio>

namespace lumo::demo {

bool rowPassed(const ReportRow& row) {
    return row.counts.lost == 0 && row.counts.differed == 0 && row.counts.unexpected == 0 && row.counts.verified > 0;
}

bool printReport(const std::vector<ReportRow>& rows, std::ostream& out) {
    char line[256];
    std::snprintf(line, sizeof line, "%-26s %-20s %8s %8s %8s %5s %5s  %s\n", "topic", "path", "sent", "received",
                  "verified", "lost", "diff", "loop latency ms (median / p99 / max)");
    out << line;
    out << std::string(118, '-') << "\n";
    bool passed = true;
    unsigned long sent = 0;
    unsigned long verified = 0;
    for (const auto& row : rows) {
        std::string latency;
        if (row.hasLatency && row.latency.count > 0) {
            char text[80];
            std::snprintf(text, sizeof text, "%.3f / %.3f / %.3f", row.latency.median * 1e3, row.latency.p99 * 1e3,
                          row.latency.max * 1e3);
            latency = text;
        }
        const bool ok = rowPassed(row);
        passed = passed && ok;
        sent += row.counts.sent;
        verified += row.counts.verified;
        std::snprintf(line, sizeof line, "%-26s %-20s %8lu %8lu %8lu %5lu %5lu  %s%s\n", row.topic.c_str(),
                      row.path.c_str(), row.counts.sent, row.counts.received, row.counts.verified, row.counts.lost,
                      row.counts.differed + row.counts.unexpected, latency.c_str(), ok ? "" : "  <-- FAILED");
        out << line;
    }
    out << std::string(118, '-') << "\n";
    if (passed) {
        out << "OK: all " << sent << " samples sent arrived and matched field by field (" << verified
            << " verified).\n";
    } else {
        out << "FAILED: samples were lost or differed, or a topic made no verified round trip (see above).\n";
    }
    return passed;
}

}  // namespace lumo::demo
