// Sustained load across processes: a publishing process (soakPublisher) and
// this process as the subscriber, accounting for every sample_id. The length
// and rate come from LUMO_SOAK_SECONDS and LUMO_SOAK_RATE (scripts/soak.sh
// sets them for a long run; ctest runs a short one). Each test prints its
// figures in a line that starts with "[soak]".

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <future>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "ChildProcess.h"
#include "SequenceReader.h"
#include "SoakTopic.h"
#include "lumotypes/host/Plugin.h"
#include "lumotypes/host/Runtime.h"

namespace {

using lumo::soak::Sample;
using lumo::test::ChildProcess;

long settingOf(const char* name, long fallback) {
    const char* text = std::getenv(name);
    return text != nullptr && *text != '\0' ? std::stol(text) : fallback;
}

struct Published {
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    unsigned long failed = 0;
};

Published parsePublished(const std::string& line) {
    std::istringstream words(line);
    std::string word;
    Published published;
    words >> word >> published.first >> published.last >> published.failed;
    return published;
}

class SoakTest : public ::testing::Test {
protected:
    lumotypes::host::Plugin& plugin() {
        static lumotypes::host::Plugin loaded(LUMOTYPES_KRIN_PLUGIN_PATH);
        return loaded;
    }

    std::unique_ptr<orlo::dabo::ps::Subscriber<Sample>> queuedSubscriber() {
        auto factory =
            plugin().factory<lumotypes::host::SubscriberFactory<lumo::soak::Sample>>(
            lumotypes::host::TopicTraits<lumo::soak::Sample>::subscriberFactory);
        return std::unique_ptr<orlo::dabo::ps::Subscriber<Sample>>(
            factory(lumo::soak::uriOf(port, lumo::soak::streamPath), {}, {}, dabo));
    }

    std::unique_ptr<orlo::dabo::ps::MrvSubscriber<Sample>> mostRecentSubscriber() {
        auto factory = plugin().factory<lumotypes::host::MrvSubscriberFactory<lumo::soak::Sample>>(
            lumotypes::host::TopicTraits<lumo::soak::Sample>::mrvSubscriberFactory);
        return std::unique_ptr<orlo::dabo::ps::MrvSubscriber<Sample>>(
            factory(lumo::soak::uriOf(port, lumo::soak::mrvPath), {}, {}, dabo));
    }

    std::unique_ptr<ChildProcess> startPublisher(int mrvSubscribers) {
        auto publisher = std::make_unique<ChildProcess>(std::vector<std::string>{
            LUMO_SOAK_PUBLISHER_PATH, LUMOTYPES_KRIN_PLUGIN_PATH, port, "1", "0", std::to_string(mrvSubscribers)});
        EXPECT_EQ(publisher->awaitLine("joined"), "joined");
        return publisher;
    }

    const long seconds = settingOf("LUMO_SOAK_SECONDS", 10);
    const long rate = settingOf("LUMO_SOAK_RATE", 10000);
    std::string port;
    lumo::soak::Runtime dabo;
};

TEST_F(SoakTest, SubscriberThatKeepsUpReceivesEverySampleOnceInOrderWithStableMemory) {
    port = "28741";
    // Keeping up is a matter of the average rate: the subscription socket
    // holds five seconds of the stream at 20000 samples per second, so that a
    // busy machine's scheduling pauses do not count as falling behind.
    dabo = lumotypes::host::createRuntime({{"krin.runtime.highWaterMark", "100000"}});
    auto subscriber = queuedSubscriber();
    auto mostRecent = mostRecentSubscriber();
    lumo::soak::SequenceReader reader(*subscriber);
    auto publisher = startPublisher(1);
    const unsigned long count = static_cast<unsigned long>(seconds * rate);
    ASSERT_TRUE(publisher->send("publish " + std::to_string(count) + " " + std::to_string(rate)));

    // Resident memory while the stream runs: the baseline once a quarter has
    // arrived (buffers, pools and the allocator have settled by then), the
    // highest value after it.
    long baselineKiB = -1;
    long peakKiB = -1;
    std::string line;
    const auto start = std::chrono::steady_clock::now();
    while ((line = publisher->readLine(std::chrono::seconds(1))).empty()) {
        const long now = lumo::test::residentKiB();
        if (baselineKiB < 0 && reader.snapshot().received >= count / 4) {
            baselineKiB = now;
        }
        if (baselineKiB >= 0) {
            peakKiB = std::max(peakKiB, now);
        }
        ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(seconds * 4 + 120))
            << "the publisher never finished";
    }
    const Published published = parsePublished(line);
    ASSERT_EQ(published.last - published.first + 1, count) << line;
    ASSERT_TRUE(reader.awaitId(published.last, std::chrono::seconds(60))) << "the last sample never arrived";
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const lumo::soak::SequenceAccount account = reader.snapshot();
    const long endKiB = lumo::test::residentKiB();
    peakKiB = std::max(peakKiB, endKiB);

    const auto stored = mostRecent->readMostRecent(std::chrono::milliseconds(0));
    std::set<std::uint32_t> storedIds;
    for (const auto& sample : stored) {
        storedIds.insert(sample->getSample_id());
    }
    const unsigned long mostRecentSent = (published.last / lumo::soak::mrvEvery) -
                                         (published.first + lumo::soak::mrvEvery - 1) / lumo::soak::mrvEvery + 1;

    std::cout << "[soak] keeping up: " << count << " samples at " << rate << "/s in " << elapsed << " s; received "
              << account.received << ", lost " << account.lost << ", disordered " << account.disordered
              << ", publish failures " << published.failed << "; resident memory " << baselineKiB
              << " KiB at a quarter, peak " << peakKiB << " KiB after it; most-recent store " << stored.size()
              << " elements for " << mostRecentSent << " samples" << std::endl;

    EXPECT_EQ(published.failed, 0u);
    EXPECT_EQ(account.first, published.first);
    EXPECT_EQ(account.received, count);
    EXPECT_EQ(account.lost, 0u);
    EXPECT_EQ(account.disordered, 0u);
    // The read queue gives its memory back: what the process holds after the
    // first quarter stays within a bound that does not grow with the stream.
    ASSERT_GT(baselineKiB, 0);
    EXPECT_LT(peakKiB - baselineKiB, 64L * 1024) << "resident memory kept growing while the samples were read";
    // The topic has no key, so the store keeps every sample: one element each.
    EXPECT_EQ(stored.size(), mostRecentSent);
    EXPECT_EQ(storedIds.size(), stored.size());

    ASSERT_TRUE(publisher->send("quit"));
    EXPECT_EQ(publisher->wait(), 0);
    reader.stop();
    subscriber->close();
    mostRecent->close();
}

TEST_F(SoakTest, SubscriberThatCannotKeepUpCountsAndReportsItsLosses) {
    port = "28742";
    // The default high-water mark: a stalled subscriber overflows it quickly.
    dabo = lumotypes::host::createRuntime({});
    auto subscriber = queuedSubscriber();
    // A notifier that holds the runtime's thread until the burst is out: the
    // subscription socket fills and the publishing side drops what no longer fits.
    std::promise<void> burstSent;
    std::shared_future<void> released = burstSent.get_future().share();
    auto stall = subscriber->subscribeAsync(orlo::dabo::ps::DataEventFilter<Sample>(),
                                            [released](orlo::dabo::ps::Subscriber<Sample>&) { released.wait(); });
    lumo::soak::SequenceReader reader(*subscriber);
    auto publisher = startPublisher(0);
    // Well beyond what the queues and the connection between them can hold.
    const unsigned long burst = 400000;
    ASSERT_TRUE(publisher->send("publish " + std::to_string(burst) + " 0"));
    const Published published = parsePublished(publisher->awaitLine("published", std::chrono::seconds(300)));
    burstSent.set_value();
    // One more sample closes the account: every id before it is received or
    // lost. While the socket drains the backlog it may be dropped as well,
    // so it is sent again (with the next id) until one arrives.
    Published marker;
    bool closed = false;
    for (int attempt = 0; attempt < 600 && !closed; ++attempt) {
        ASSERT_TRUE(publisher->send("publish 1 0"));
        marker = parsePublished(publisher->awaitLine("published", std::chrono::seconds(60)));
        closed = reader.awaitId(marker.last, std::chrono::milliseconds(100));
    }
    ASSERT_TRUE(closed) << "no closing sample ever arrived";
    const lumo::soak::SequenceAccount account = reader.snapshot();
    const unsigned long sent = marker.last - published.first + 1;

    std::cout << "[soak] stalled: " << sent << " samples sent at full speed while the subscriber was held; received "
              << account.received << ", lost " << account.lost << " (counted from the gaps in sample_id), disordered "
              << account.disordered << std::endl;

    EXPECT_EQ(account.first, published.first);
    EXPECT_GT(account.lost, 0u) << "the burst fitted into the buffers; nothing was lost";
    EXPECT_EQ(account.received + account.lost, sent);
    EXPECT_EQ(account.disordered, 0u);

    ASSERT_TRUE(publisher->send("quit"));
    EXPECT_EQ(publisher->wait(), 0);
    reader.stop();
    stall->close();
    subscriber->close();
}

}  // namespace
