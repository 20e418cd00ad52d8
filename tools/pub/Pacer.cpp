#include "tools/pub/Pacer.h"

#include <cassert>

namespace lumo::tools {

Pacer::Pacer(double rate, bool catchUp, Clock::time_point start)
    : period(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1.0 / rate))),
      catchUp(catchUp),
      nextDue(start) {
    assert(rate >= pacerMinRate && rate <= pacerMaxRate);
}

void Pacer::next(Clock::time_point now) {
    nextDue += period;
    // The next sample fell due before this one left: a stall. The one just
    // sent was the overdue one; the schedule starts again from it.
    if (!catchUp && nextDue <= now) {
        nextDue = now + period;
    }
}

}  // namespace lumo::tools
