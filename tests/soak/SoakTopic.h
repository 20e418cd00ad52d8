#pragma once

// What the soak and fault processes share: the topic and its URIs. Samples are HokuTopicIn, numbered by
// sample_id; every `mrvEvery`-th sample goes to the most-recent-value topic too.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "dabo/Dabo.h"
#include "dabo/ps/MrvSubscriber.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/ps/qos/QoS.h"
#include "lumotypes/Lumotypes.h"
#include "lumotypes/host/Factories.h"

namespace lumo::soak {

using Sample = lumotypes::HokuTopicIn;
using lumotypes::host::QoSList;
using lumotypes::host::Runtime;

constexpr const char* streamPath = "/soak/stream";
constexpr const char* mrvPath = "/soak/mostRecent";
constexpr std::uint32_t mrvEvery = 1000;

inline std::string uriOf(const std::string& port, const char* path) {
    return "krin.ps://127.0.0.1:" + port + path;
}

inline void fill(Sample& sample, std::uint32_t sampleId, double now) {
    sample.setQuality(true);
    sample.setSim(false);
    sample.setTimestamp_utc(now);
    sample.setSample_id(sampleId);
}

}  // namespace lumo::soak
