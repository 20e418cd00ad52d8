#include "tools/demo/RoundTrips.h"

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <algorithm>

#include "lumotypes/host/Payload.h"
#include "tools/demo/Joining.h"
#include "tools/demo/SampleMaker.h"
#include "tools/demo/TelescopeLoop.h"

namespace lumo::demo {

namespace {

template <typename T>
void roundTripOf(const DemoContext& context, Ledger& ledger, int samples) {
    const std::string topic = lumotypes::host::TopicTraits<T>::name;
    auto logger = log4cplus::Logger::getInstance("lumo.demo.roundtrip");
    auto publisher = context.plugin.publisher<T>(context.uriOf(topic), context.properties, context.runtime);
    auto subscriber =
        context.plugin.subscriber<T>(context.uriOf(topic), context.properties, context.runtime);
    const std::string probe = probeBytes(context.schema, topic);
    ledger.setProbe(probe);
    if (!awaitJoin(*publisher, *subscriber, probe, std::chrono::seconds(20))) {
        LOG4CPLUS_ERROR(logger, topic << ": the subscriber did not join within 20 s");
    }
    for (int index = 0; index < samples; ++index) {
        const std::string bytes = sampleBytes(context.schema, topic, static_cast<unsigned>(index));
        auto sample = publisher->createDataEntity();
        if (!lumotypes::host::fromBytes(*sample, bytes)) {
            LOG4CPLUS_ERROR(logger, topic << ": the plug-in's entity refused sample " << index);
            continue;
        }
        ledger.sent(static_cast<std::uint64_t>(index), bytes);
        publisher->publish(*sample, std::chrono::milliseconds(1000));
    }
    const orlo::dabo::ps::DataEventFilter<T> anything;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (ledger.counts().lost > 0 && std::chrono::steady_clock::now() < deadline) {
        std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<T>>> events;
        subscriber->readDataEvents(anything, events, 16, std::chrono::milliseconds(100));
        for (const auto& event : events) {
            if (event->hasValidData()) {
                ledger.receivedInOrder(lumotypes::host::toBytes(*event->getData()));
            }
        }
    }
    subscriber->close();
    publisher->close();
}

}  // namespace

const std::vector<std::string>& RoundTrips::topics() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> rest;
        const auto& loop = TelescopeLoop::topics();
        for (const std::string& topic : lumotypes::host::topicNames()) {
            if (std::find(loop.begin(), loop.end(), topic) == loop.end()) {
                rest.push_back(topic);
            }
        }
        return rest;
    }();
    return names;
}

RoundTrips::RoundTrips(const DemoContext& context, int samplesPerTopic)
    : context(context), samplesPerTopic(samplesPerTopic) {
    for (const auto& topic : topics()) {
        topicLedgers.push_back(std::make_unique<Ledger>(topic, context.schema));
    }
}

void RoundTrips::run() {
    for (std::size_t i = 0; i < topics().size(); ++i) {
        lumotypes::host::withTopic(topics()[i], [&](auto tag) {
            using T = typename decltype(tag)::type;
            roundTripOf<T>(context, *topicLedgers[i], samplesPerTopic);
        });
        ++done;
    }
}

}  // namespace lumo::demo
