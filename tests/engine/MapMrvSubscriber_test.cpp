#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "EngineTestTopics.h"
#include "dabo/ps/queue/MapMrvSubscriber_impl.h"

using namespace engine_test;
using orlo::dabo::DaboException;
using orlo::dabo::IllegalStateException;
using orlo::dabo::ps::queue::MapMrvSubscriber;
using std::chrono::milliseconds;

namespace {

/// Writes into the store the way the transport does.
template <typename T, typename ST>
class Store : public MapMrvSubscriber<T, ST> {
public:
    using MapMrvSubscriber<T, ST>::storeSample;
    std::size_t size() {
        std::lock_guard<std::mutex> lock(this->mutex);
        return this->store.size();
    }
};

template <typename Exception, typename Call>
std::string messageOf(Call call) {
    try {
        call();
    } catch (const Exception& e) {
        return e.what();
    }
    return "no exception";
}

std::vector<double> valuesOf(const std::vector<std::shared_ptr<Reading>>& samples) {
    std::vector<double> values;
    for (const auto& sample : samples) {
        values.push_back(sample->getValue());
    }
    std::sort(values.begin(), values.end());
    return values;
}

}  // namespace

TEST(MapMrvSubscriberTest, FreshStoreReadWithoutTimeoutIsEmpty) {
    Store<Reading, ReadingImpl> store;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(store.readMostRecent(milliseconds(0)).empty());
    // At once: a time-out of 0 is no sleep.
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(1000));
}

TEST(MapMrvSubscriberTest, ReadSleepsTheFullTimeoutAlthoughSamplesAreThere) {
    Store<Reading, ReadingImpl> store;
    store.storeSample(std::make_shared<ReadingImpl>(1.0));
    const auto start = std::chrono::steady_clock::now();
    auto samples = store.readMostRecent(milliseconds(100));
    const auto slept = std::chrono::steady_clock::now() - start;
    EXPECT_GE(slept, milliseconds(100));
    EXPECT_LT(slept, milliseconds(5000));
    ASSERT_EQ(1u, samples.size());
    EXPECT_EQ(1.0, samples[0]->getValue());
}

TEST(MapMrvSubscriberTest, ReadsWithoutNewSamplesReturnTheSameSamples) {
    Store<Reading, ReadingImpl> store;
    store.storeSample(std::make_shared<ReadingImpl>(1.0));
    store.storeSample(std::make_shared<ReadingImpl>(2.0));
    auto first = store.readMostRecent(milliseconds(0));
    auto second = store.readMostRecent(milliseconds(0));
    ASSERT_EQ(2u, first.size());
    std::sort(first.begin(), first.end());
    std::sort(second.begin(), second.end());
    EXPECT_EQ(first, second);
}

TEST(MapMrvSubscriberTest, LaterSampleOfAKeyReplacesTheEarlierOne) {
    Store<Sensor, SensorImpl> store;
    store.storeSample(std::make_shared<SensorImpl>(1, 1.0));
    store.storeSample(std::make_shared<SensorImpl>(2, 5.0));
    store.storeSample(std::make_shared<SensorImpl>(1, 2.0));
    EXPECT_EQ(2u, store.size());
    auto samples = store.readMostRecent(milliseconds(0));
    ASSERT_EQ(2u, samples.size());
    for (const auto& sample : samples) {
        EXPECT_EQ(sample->getId() == 1 ? 2.0 : 5.0, sample->getValue());
    }
}

TEST(MapMrvSubscriberTest, UnkeyedSamplesAreNeverReplaced) {
    Store<Reading, ReadingImpl> store;
    for (int i = 1; i <= 3; ++i) {
        store.storeSample(std::make_shared<ReadingImpl>(i));
        // One more element with every sample: the store grows by exactly one.
        EXPECT_EQ(static_cast<std::size_t>(i), store.size());
    }
    EXPECT_EQ((std::vector<double>{1.0, 2.0, 3.0}), valuesOf(store.readMostRecent(milliseconds(0))));
}

TEST(MapMrvSubscriberTest, ReadAfterCloseThrowsAlsoWithANegativeTimeout) {
    Store<Reading, ReadingImpl> store;
    store.storeSample(std::make_shared<ReadingImpl>(1.0));
    store.close();
    EXPECT_EQ("KrinMrvSubscriber already closed",
              messageOf<IllegalStateException>([&] { store.readMostRecent(milliseconds(0)); }));
    EXPECT_EQ("KrinMrvSubscriber already closed",
              messageOf<IllegalStateException>([&] { store.readMostRecent(milliseconds(-5)); }));
    EXPECT_EQ(1u, store.size());  // the store survives closing
}

TEST(MapMrvSubscriberTest, NegativeTimeoutIsRefused) {
    Store<Reading, ReadingImpl> store;
    EXPECT_EQ("negative timeout given to Mrv subscriber readMostRecent",
              messageOf<DaboException>([&] { store.readMostRecent(milliseconds(-1)); }));
}

TEST(MapMrvSubscriberTest, ResultKeepsItsSamplesWhenTheStoreReplacesThem) {
    Store<Sensor, SensorImpl> store;
    store.storeSample(std::make_shared<SensorImpl>(1, 1.0));
    auto before = store.readMostRecent(milliseconds(0));
    store.storeSample(std::make_shared<SensorImpl>(1, 2.0));
    ASSERT_EQ(1u, before.size());
    EXPECT_EQ(1.0, before[0]->getValue());
}
