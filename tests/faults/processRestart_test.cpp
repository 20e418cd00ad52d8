// Processes killed in the middle of a stream: first a subscribing process,
// then the publishing one. The survivors keep working, and a process started
// in the place of a killed one takes up the stream again.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <signal.h>
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

lumotypes::host::Plugin& plugin() {
    static lumotypes::host::Plugin loaded(LUMOTYPES_KRIN_PLUGIN_PATH);
    return loaded;
}

class ProcessRestartTest : public ::testing::Test {
protected:
    std::unique_ptr<orlo::dabo::ps::Subscriber<Sample>> subscriberAt(const std::string& port) {
        auto factory =
            plugin().factory<lumotypes::host::SubscriberFactory<lumo::soak::Sample>>(
            lumotypes::host::TopicTraits<lumo::soak::Sample>::subscriberFactory);
        return std::unique_ptr<orlo::dabo::ps::Subscriber<Sample>>(
            factory(lumo::soak::uriOf(port, lumo::soak::streamPath), {}, {}, dabo));
    }

    static std::unique_ptr<ChildProcess> publisherProcess(const std::string& port, int subscribers,
                                                          std::uint32_t firstId) {
        auto process = std::make_unique<ChildProcess>(std::vector<std::string>{
            LUMO_SOAK_PUBLISHER_PATH, LUMOTYPES_KRIN_PLUGIN_PATH, port, std::to_string(subscribers),
            std::to_string(firstId)});
        EXPECT_EQ(process->awaitLine("joined"), "joined");
        return process;
    }

    static std::unique_ptr<ChildProcess> subscriberProcess(const std::string& port) {
        auto process = std::make_unique<ChildProcess>(
            std::vector<std::string>{LUMO_SOAK_SUBSCRIBER_PATH, LUMOTYPES_KRIN_PLUGIN_PATH, port});
        EXPECT_EQ(process->awaitLine("registered"), "registered");
        return process;
    }

    lumo::soak::Runtime dabo = lumotypes::host::createRuntime({});
};

TEST_F(ProcessRestartTest, KilledSubscriberProcessLeavesThePublisherAndOtherSubscribersWorkingAndItsSuccessorReceives) {
    const std::string port = "28761";
    auto survivor = subscriberAt(port);
    lumo::soak::SequenceReader reader(*survivor);
    auto doomed = subscriberProcess(port);
    auto publisher = publisherProcess(port, 2, 0);
    ASSERT_TRUE(publisher->send("start 2000"));
    ASSERT_EQ(publisher->awaitLine("started"), "started");
    ASSERT_NE(doomed->awaitLine("receiving"), "");

    EXPECT_EQ(doomed->kill(SIGKILL), 128 + SIGKILL);
    // The stream goes on for the survivor after the death...
    const unsigned long beforeRestart = reader.snapshot().received;
    ASSERT_TRUE(reader.awaitMoreThan(beforeRestart + 1000, std::chrono::seconds(60)));
    // ...and reaches the process started in the killed one's place.
    auto successor = subscriberProcess(port);
    ASSERT_NE(successor->awaitLine("receiving"), "");

    ASSERT_TRUE(publisher->send("stop"));
    std::istringstream stopped(publisher->awaitLine("stopped"));
    std::string word;
    std::uint32_t last = 0;
    unsigned long failed = 1;
    stopped >> word >> last >> failed;
    ASSERT_EQ(word, "stopped");
    EXPECT_EQ(failed, 0u) << "the publisher failed to publish after a subscriber died";
    ASSERT_TRUE(reader.awaitId(last, std::chrono::seconds(60)));
    const lumo::soak::SequenceAccount account = reader.snapshot();
    EXPECT_EQ(account.first, 0u);
    EXPECT_EQ(account.lost, 0u) << "the survivor lost samples when another subscriber died";
    EXPECT_EQ(account.disordered, 0u);

    ASSERT_TRUE(successor->send("quit"));
    EXPECT_EQ(successor->wait(), 0);
    ASSERT_TRUE(publisher->send("quit"));
    EXPECT_EQ(publisher->wait(), 0);
}

TEST_F(ProcessRestartTest, KilledPublisherProcessIsReplacedAndItsSubscribersResumeWithTheNewStream) {
    const std::string port = "28762";
    auto subscriber = subscriberAt(port);
    lumo::soak::SequenceReader reader(*subscriber);
    auto listener = subscriberProcess(port);
    auto doomed = publisherProcess(port, 2, 0);
    ASSERT_TRUE(doomed->send("start 2000"));
    ASSERT_TRUE(reader.awaitMoreThan(500, std::chrono::seconds(60)));
    ASSERT_NE(listener->awaitLine("receiving"), "");

    EXPECT_EQ(doomed->kill(SIGKILL), 128 + SIGKILL);
    // The successor numbers its samples apart from anything the killed one sent.
    const std::uint32_t restartId = 1000000;
    reader.countFrom(restartId);

    // The successor binds the same endpoint; both subscribers reconnect on their own.
    auto successor = publisherProcess(port, 2, restartId);
    ASSERT_TRUE(successor->send("publish 2000 2000"));
    std::istringstream published(successor->awaitLine("published"));
    std::string word;
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    unsigned long failed = 1;
    published >> word >> first >> last >> failed;
    ASSERT_EQ(first, restartId);
    EXPECT_EQ(failed, 0u);
    ASSERT_TRUE(reader.awaitId(last, std::chrono::seconds(60))) << "the subscriber never resumed";
    const lumo::soak::SequenceAccount account = reader.snapshot();
    // Every sample of the new stream arrived once, in order, after the old one.
    EXPECT_EQ(account.countedFrom, 2000u);
    EXPECT_EQ(account.disordered, 0u);

    ASSERT_TRUE(listener->send("await " + std::to_string(last)));
    std::istringstream report(listener->awaitLine("received"));
    unsigned long received = 0;
    unsigned long lost = 0;
    std::uint32_t listenerLast = 0;
    report >> word >> received >> lost >> listenerLast;
    EXPECT_EQ(listenerLast, last) << "the subscribing process never resumed";

    ASSERT_TRUE(listener->send("quit"));
    EXPECT_EQ(listener->wait(), 0);
    ASSERT_TRUE(successor->send("quit"));
    EXPECT_EQ(successor->wait(), 0);
}

}  // namespace
