#pragma once

#include <optional>
#include <string>
#include <vector>

#include "dabo/Dabo.h"

namespace orlo::dabo::krin::detail {

/// Where and how urgently the runtime's thread runs, read once from the
/// runtime's properties; both off unless set:
///
/// - "krin.runtime.cpuAffinity": the CPUs the thread may run on, such as
///   "2" or "0,2-3".
/// - "krin.runtime.threadPriority": a real-time priority (SCHED_FIFO, 1 to
///   99) for the thread, so that a loop's samples are forwarded ahead of the
///   machine's ordinary work.
///
/// A value that is not one is refused when the runtime is created; so is a
/// setting the system denies (most often a priority without the right to
/// real-time scheduling), by apply(), which the thread calls first.
class ThreadPlacement {
public:
    explicit ThreadPlacement(const orlo::dabo::Dabo::Properties& properties);

    /// Gives the calling thread the settings; throws DaboException when the
    /// system denies one.
    void apply() const;

private:
    std::string affinityText;
    std::vector<int> cpus;
    std::optional<int> priority;
};

}  // namespace orlo::dabo::krin::detail
