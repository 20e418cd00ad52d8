#pragma once

#include <chrono>

namespace orlo::dabo::ps::qos {

/// Root of the quality-of-service settings. Consumers look for the settings
/// they understand with dynamic_cast and ignore the rest.
class QoS {
public:
    virtual ~QoS();
};

/// A setting that is one duration, in milliseconds.
class DurationBasedQoS : public virtual QoS {
public:
    explicit DurationBasedQoS(long durationMs = 0) : durationMs(durationMs) {}
    explicit DurationBasedQoS(const std::chrono::milliseconds& duration)
        : durationMs(static_cast<long>(duration.count())) {}
    ~DurationBasedQoS() override;

    long getDuration() const { return durationMs; }
    void setDuration(long milliseconds) { durationMs = milliseconds; }

private:
    long durationMs;
};

/// The oldest a sample may be, measured from its source timestamp to its
/// receipt, for a subscriber to accept it.
class Latency : public virtual DurationBasedQoS {
public:
    explicit Latency(long durationMs = 0) : DurationBasedQoS(durationMs) {}
    explicit Latency(const std::chrono::milliseconds& duration) : DurationBasedQoS(duration) {}
    ~Latency() override;
};

/// How long after its latency allowance a queued sample stays readable.
class Deadline : public virtual DurationBasedQoS {
public:
    explicit Deadline(long durationMs = 0) : DurationBasedQoS(durationMs) {}
    explicit Deadline(const std::chrono::milliseconds& duration) : DurationBasedQoS(duration) {}
    ~Deadline() override;
};

}  // namespace orlo::dabo::ps::qos
