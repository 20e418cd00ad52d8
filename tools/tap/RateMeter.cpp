#include "tools/tap/RateMeter.h"

#include <cstdio>

namespace lumo::tools {

RateMeter::RateMeter(std::string topic, Clock::time_point start)
    : topic(std::move(topic)), start(start), intervalStart(start) {}

void RateMeter::record(std::uint32_t sampleSequence) {
    const auto step = sequence.next(sampleSequence);
    if (step.gap) {
        ++gaps;
        missing += step.missing;
    }
    ++samples;
}

void RateMeter::reportDue(Clock::time_point now, std::ostream& out) {
    while (now - intervalStart >= std::chrono::seconds(1)) {
        report(intervalStart + std::chrono::seconds(1), out);
    }
}

void RateMeter::reportRest(Clock::time_point now, std::ostream& out) {
    if (samples > 0) {
        report(now, out);
    }
}

void RateMeter::report(Clock::time_point end, std::ostream& out) {
    const double seconds = std::chrono::duration<double>(end - intervalStart).count();
    const double at = std::chrono::duration<double>(end - start).count();
    char line[200];
    std::snprintf(line, sizeof line, "%s  t=%.1fs  samples %lu  rate %.1f Hz  gaps %lu  missing %lu", topic.c_str(),
                  at, samples, seconds > 0 ? static_cast<double>(samples) / seconds : 0.0, gaps, missing);
    out << line << std::endl;
    intervalStart = end;
    samples = 0;
    gaps = 0;
    missing = 0;
}

}  // namespace lumo::tools
