#pragma once

#include <chrono>

namespace lumo::tools {

/// The slowest and fastest rates krin-pub takes: one sample in about eleven
/// days, a million a second.
constexpr double pacerMinRate = 1e-6;
constexpr double pacerMaxRate = 1e6;

/// When the next sample of a fixed rate is due. A stall (the process
/// stopped, the machine busy) leaves samples overdue: by default the schedule
/// then restarts from the moment the stall ended, so the rate resumes with no
/// burst; with `catchUp` the overdue samples all fall due at once, keeping
/// the count over the whole run.
class Pacer {
public:
    using Clock = std::chrono::steady_clock;

    /// `rate` in pacerMinRate .. pacerMaxRate; the first sample is due at `start`.
    Pacer(double rate, bool catchUp, Clock::time_point start);

    Clock::time_point due() const { return nextDue; }

    /// A sample has been sent at `now`: schedules the next one.
    void next(Clock::time_point now);

private:
    Clock::duration period;
    bool catchUp;
    Clock::time_point nextDue;
};

}  // namespace lumo::tools
