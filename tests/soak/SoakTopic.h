#pragma once

// What the soak and fault processes share: the topic, its URIs and the
// plug-in's factory signatures. Samples are HokuTopicIn, numbered by
// sample_id; every `mrvEvery`-th sample goes to the most-recent-value topic too.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "dabo/Dabo.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/ps/MrvSubscriber.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/ps/qos/QoS.h"
#include "lumotypes/Lumotypes.h"

namespace lumo::soak {

using Sample = lumotypes::HokuTopicIn;
using QoSList = std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>;
using Runtime = std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>;
using PublisherFactory = orlo::dabo::ps::Publisher<Sample>* (*)(const std::string&, const QoSList&,
                                                                const orlo::dabo::Dabo::Properties&, const Runtime&);
using SubscriberFactory = orlo::dabo::ps::Subscriber<Sample>* (*)(const std::string&, const QoSList&,
                                                                  const orlo::dabo::Dabo::Properties&, const Runtime&);
using MrvSubscriberFactory = orlo::dabo::ps::MrvSubscriber<Sample>* (*)(const std::string&, const QoSList&,
                                                                        const orlo::dabo::Dabo::Properties&,
                                                                        const Runtime&);

constexpr const char* topic = "HokuTopicIn";
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
