// Every transport factory of every topic, found by name through the host-side
// loader and used only through the public interfaces, as a host does: a
// publisher, a queued subscriber and a most-recent-value subscriber per topic,
// with one sample travelling from the first to the other two.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "FreePort.h"
#include "dabo/ps/DataEventFilter.h"
#include "dabo/ps/MrvSubscriber.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/ps/qos/QoS.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"

namespace {

using namespace std::chrono_literals;
using lumotypes::host::TopicTraits;

const lumotypes::host::Plugin& plugin() {
    static const lumotypes::host::Plugin loaded(LUMOTYPES_KRIN_PLUGIN_PATH);
    return loaded;
}

/// Publishes a complete sample of `T` until both subscribers hold one: a
/// subscription takes effect some time after the factory returns, and samples
/// sent before it are lost by design. Bounded, and driven by the subscribers'
/// own waits rather than by sleeping.
template <typename T>
void roundTrip() {
    const std::string topic = TopicTraits<T>::name;
    SCOPED_TRACE(topic);
    auto dabo = lumotypes::host::createRuntime({});
    const std::string uri = "krin.ps://127.0.0.1:" + std::to_string(lumo::test::freePort()) + "/host/factories/" + topic;

    auto queued = plugin().subscriber<T>(uri, {}, dabo);
    auto latest = plugin().mrvSubscriber<T>(uri, {}, dabo);
    auto publisher = plugin().publisher<T>(uri, {}, dabo);
    ASSERT_TRUE(queued && latest && publisher);

    // A clone is complete whatever its source, so it parses on the far side.
    const std::unique_ptr<T> sample = publisher->createDataEntity()->clone();
    const orlo::dabo::ps::DataEventFilter<T> everything;
    std::vector<std::shared_ptr<orlo::dabo::ps::DataEvent<T>>> events;
    for (int attempt = 0; attempt < 200 && events.empty(); ++attempt) {
        publisher->publish(*sample, 100ms);
        queued->readDataEvents(everything, events, 1, 50ms);
    }
    ASSERT_EQ(events.size(), 1u) << "no sample reached the queued subscriber";
    EXPECT_TRUE(events.front()->hasValidData());

    std::vector<std::shared_ptr<T>> stored;
    for (int attempt = 0; attempt < 200 && stored.empty(); ++attempt) {
        publisher->publish(*sample, 100ms);
        queued->read(0);  // keep the queue short while waiting for the store
        stored = latest->readMostRecent(10ms);
    }
    EXPECT_FALSE(stored.empty()) << "no sample reached the most-recent-value subscriber";

    publisher->close();
    queued->close();
    latest->close();
}

TEST(TransportFactoriesHostTest, PluginExportsThirtyThreeTransportFactoriesUndecorated) {
    int found = 0;
    lumotypes::host::forEachTopic([&](auto tag) {
        using Traits = TopicTraits<typename decltype(tag)::type>;
        for (const char* name : {Traits::publisherFactory, Traits::subscriberFactory, Traits::mrvSubscriberFactory}) {
            EXPECT_NE(plugin().factory<void()>(name), nullptr) << name;
            ++found;
        }
    });
    EXPECT_EQ(found, 33);
}

#define LUMO_ROUND_TRIP_TEST(Name) \
    TEST(TransportFactoriesHostTest, Name##TravelsFromItsPublisherToBothSubscriberKinds) { roundTrip<lumotypes::Name>(); }
LUMOTYPES_FOR_EACH_TOPIC(LUMO_ROUND_TRIP_TEST)
#undef LUMO_ROUND_TRIP_TEST

}  // namespace
