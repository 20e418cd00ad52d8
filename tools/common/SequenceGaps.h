#pragma once

#include <cstdint>

namespace lumo::tools {

/// Follows the header's sampleSequence of one stream and tells, per sample,
/// how many were skipped before it: a publisher numbers its samples one by
/// one, so a jump is a loss (or another publisher on the same topic).
class SequenceGaps {
public:
    struct Step {
        /// The sample does not follow the previous one.
        bool gap = false;
        /// Samples skipped before it; 0 for a step back (a restarted publisher).
        std::uint32_t missing = 0;
    };

    Step next(std::uint32_t sequence) {
        const bool first = !seenAny;
        const std::uint32_t previous = last;
        seenAny = true;
        last = sequence;
        if (first || sequence == static_cast<std::uint32_t>(previous + 1)) {
            return {};
        }
        // Unsigned arithmetic, so a counter that wrapped still gives the distance.
        const std::uint32_t skipped = sequence - previous - 1;
        return {true, skipped < 0x80000000u ? skipped : 0};
    }

private:
    bool seenAny = false;
    std::uint32_t last = 0;
};

}  // namespace lumo::tools
