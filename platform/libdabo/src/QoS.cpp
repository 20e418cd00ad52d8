#include "dabo/ps/qos/QoS.h"

namespace orlo::dabo::ps::qos {

QoS::~QoS() = default;
DurationBasedQoS::~DurationBasedQoS() = default;
Latency::~Latency() = default;
Deadline::~Deadline() = default;

}  // namespace orlo::dabo::ps::qos
