#pragma once

#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>

#include "tools/common/SequenceGaps.h"

namespace lumo::tools {

/// Counts samples and the gaps in their sequence numbers, and prints one line
/// per elapsed second. Gaps are counted against the previous sample's number,
/// so samples of several publishers on one topic show as gaps too.
class RateMeter {
public:
    using Clock = std::chrono::steady_clock;

    RateMeter(std::string topic, Clock::time_point start);

    void record(std::uint32_t sampleSequence);

    /// Prints a line for every whole second that has passed since the last one.
    void reportDue(Clock::time_point now, std::ostream& out);

    /// Prints the last, partial interval, if it saw anything.
    void reportRest(Clock::time_point now, std::ostream& out);

private:
    void report(Clock::time_point now, std::ostream& out);

    std::string topic;
    Clock::time_point start;
    Clock::time_point intervalStart;
    SequenceGaps sequence;
    unsigned long samples = 0;
    unsigned long gaps = 0;
    unsigned long missing = 0;
};

}  // namespace lumo::tools
