// Faults inside one host process: delegators dropped while the runtime's
// thread delivers their samples, runtimes destroyed with events in flight,
// and runtimes whose REGISTERED or UNREGISTERED never comes. The checks are
// that every call returns, every runtime thread ends, and (under the leak
// checker) that nothing is left behind.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "SoakTopic.h"
#include "dabo/DaboException.h"
#include "dabo/ps/DataEventFilter.h"
#include "tools/loader/PluginLoader.h"

namespace {

using lumo::soak::Sample;
using orlo::dabo::krin::detail::EventDelivery;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::KrinDaboTestHooks;

lumo::tools::PluginLoader& plugin() {
    static lumo::tools::PluginLoader loaded(LUMOTYPES_KRIN_PLUGIN_PATH);
    return loaded;
}

std::string uriAt(int port, const char* path) {
    return lumo::soak::uriOf(std::to_string(port), path);
}

orlo::dabo::ps::Publisher<Sample>* newPublisher(const std::string& uri, const lumo::soak::Runtime& dabo) {
    return plugin().factory<std::remove_pointer_t<lumo::soak::PublisherFactory>>("Publisher", lumo::soak::topic)(
        uri, {}, {}, dabo);
}

orlo::dabo::ps::Subscriber<Sample>* newSubscriber(const std::string& uri, const lumo::soak::Runtime& dabo) {
    return plugin().factory<std::remove_pointer_t<lumo::soak::SubscriberFactory>>("Subscriber", lumo::soak::topic)(
        uri, {}, {}, dabo);
}

orlo::dabo::ps::MrvSubscriber<Sample>* newMrvSubscriber(const std::string& uri, const lumo::soak::Runtime& dabo) {
    return plugin().factory<std::remove_pointer_t<lumo::soak::MrvSubscriberFactory>>("MrvSubscriber",
                                                                                      lumo::soak::topic)(
        uri, {}, {}, dabo);
}

/// Publishes on a thread of its own, as fast as it can, until destroyed.
class Flood {
public:
    explicit Flood(std::shared_ptr<orlo::dabo::ps::Publisher<Sample>> publisher)
        : publisher(std::move(publisher)), thread([this] { run(); }) {}
    ~Flood() {
        stopping = true;
        thread.join();
        publisher->close();
    }

private:
    void run() {
        auto sample = publisher->createDataEntity();
        for (std::uint32_t id = 0; !stopping; ++id) {
            lumo::soak::fill(*sample, id, 0.0);
            publisher->publish(*sample, std::chrono::milliseconds(1000));
            if (id % 64 == 0) {
                // Leaves the runtime's thread room to deliver between bursts.
                std::this_thread::yield();
            }
        }
    }

    std::shared_ptr<orlo::dabo::ps::Publisher<Sample>> publisher;
    std::atomic<bool> stopping{false};
    std::thread thread;
};

/// True once `subscriber` has received a sample; the sample stays unread.
bool awaitAnySample(orlo::dabo::ps::Subscriber<Sample>& subscriber) {
    std::promise<void> arrived;
    std::atomic<bool> told{false};
    auto notifier = subscriber.subscribeAsync(orlo::dabo::ps::DataEventFilter<Sample>(),
                                              [&](orlo::dabo::ps::Subscriber<Sample>&) {
                                                  if (!told.exchange(true)) {
                                                      arrived.set_value();
                                                  }
                                              });
    const bool got = arrived.get_future().wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    notifier->close();
    return got;
}

/// A runtime whose thread reports its end.
struct ObservedRuntime {
    std::promise<void> stopped;
    std::future<void> ended = stopped.get_future();
    lumo::soak::Runtime dabo;

    explicit ObservedRuntime(KrinDaboTestHooks hooks = {}) {
        hooks.stopped = [this] { stopped.set_value(); };
        dabo = KrinDabo::create({}, hooks);
    }
};

TEST(RuntimeFaultsTest, HostDroppingDelegatorsWhileTheirSamplesAreDeliveredNeitherCrashesNorHangs) {
    const int port = 28751;
    auto dabo = KrinDabo::create({});
    Flood flood(std::shared_ptr<orlo::dabo::ps::Publisher<Sample>>(newPublisher(uriAt(port, "/faults/drop"), dabo)));
    for (int round = 0; round < 20; ++round) {
        std::unique_ptr<orlo::dabo::ps::Subscriber<Sample>> queued(newSubscriber(uriAt(port, "/faults/drop"), dabo));
        std::unique_ptr<orlo::dabo::ps::MrvSubscriber<Sample>> mostRecent(
            newMrvSubscriber(uriAt(port, "/faults/drop"), dabo));
        // A listener that is at work on the runtime's thread when its subscriber goes.
        std::promise<void> heard;
        std::atomic<bool> told{false};
        auto listener = queued->subscribeAsync(
            orlo::dabo::ps::DataEventFilter<Sample>(),
            [&heard, &told](orlo::dabo::ps::Subscriber<Sample>&, const orlo::dabo::ps::DataEvent<Sample>&) {
                if (!told.exchange(true)) {
                    heard.set_value();
                }
            });
        ASSERT_EQ(heard.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready) << "round " << round;
        // Dropped without close, mid-stream: the queued one closes itself
        // without waiting, the most-recent-value one stays registered until
        // the runtime finds its owner gone.
        queued.reset();
        mostRecent.reset();
        // The handle outlives its subscriber and can still be closed.
        listener->close();
    }
}

TEST(RuntimeFaultsTest, RuntimeReleasedByTheHostWhileEventsAreInFlightStopsItsThread) {
    for (int round = 0; round < 10; ++round) {
        // A port per round: ZeroMQ lets go of a closed endpoint's port in the
        // background, so the next runtime could not bind it at once.
        const int port = 28830 + round;
        ObservedRuntime runtime;
        {
            auto publisher = std::shared_ptr<orlo::dabo::ps::Publisher<Sample>>(
                newPublisher(uriAt(port, "/faults/release"), runtime.dabo));
            std::unique_ptr<orlo::dabo::ps::Subscriber<Sample>> subscriber(
                newSubscriber(uriAt(port, "/faults/release"), runtime.dabo));
            Flood flood(publisher);
            ASSERT_TRUE(awaitAnySample(*subscriber));
            // The subscriber goes first, unread samples and all, while the
            // flood goes on; then the flood; then the host's runtime.
            subscriber.reset();
        }
        runtime.dabo.reset();
        EXPECT_EQ(runtime.ended.wait_for(std::chrono::seconds(30)), std::future_status::ready) << "round " << round;
    }
}

TEST(RuntimeFaultsTest, RuntimeWhoseLastReferenceGoesInsideAnEventEndsOnItsOwnThread) {
    const int port = 28753;
    auto publishing = KrinDabo::create({});
    Flood flood(std::shared_ptr<orlo::dabo::ps::Publisher<Sample>>(
        newPublisher(uriAt(port, "/faults/lastReference"), publishing)));
    for (int round = 0; round < 10; ++round) {
        ObservedRuntime runtime;
        auto* subscriber = newSubscriber(uriAt(port, "/faults/lastReference"), runtime.dabo);
        // From now on the subscriber alone holds its runtime.
        runtime.dabo.reset();
        std::promise<void> dropped;
        std::atomic<bool> once{false};
        // The listener runs on the runtime's thread and drops the host's
        // delegator there; the runtime goes with the subscriber, after the event.
        auto listener = subscriber->subscribeAsync(
            orlo::dabo::ps::DataEventFilter<Sample>(),
            [&](orlo::dabo::ps::Subscriber<Sample>&, const orlo::dabo::ps::DataEvent<Sample>&) {
                if (!once.exchange(true)) {
                    delete subscriber;
                    dropped.set_value();
                }
            });
        ASSERT_EQ(dropped.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
        EXPECT_EQ(runtime.ended.wait_for(std::chrono::seconds(30)), std::future_status::ready) << "round " << round;
        listener->close();
    }
}

TEST(RuntimeFaultsTest, RuntimeThatNeverConfirmsARegistrationMakesEveryFactoryFailAndLeavesNothingBehind) {
    KrinDaboTestHooks hooks;
    hooks.registered = EventDelivery::withheld();
    ObservedRuntime runtime(hooks);
    const std::string uri = uriAt(28754, "/faults/neverRegistered");
    EXPECT_THROW(delete newPublisher(uri, runtime.dabo), orlo::dabo::DaboException);
    try {
        delete newSubscriber(uri, runtime.dabo);
        ADD_FAILURE() << "the subscriber factory returned";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_STREQ(e.what(), "KrinSubscriber did not receive it's subscription socket");
    }
    try {
        delete newMrvSubscriber(uri, runtime.dabo);
        ADD_FAILURE() << "the most-recent-value subscriber factory returned";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_STREQ(e.what(), "KrinMrvSubscriber did not receive it's subscription socket");
    }
    runtime.dabo.reset();
    EXPECT_EQ(runtime.ended.wait_for(std::chrono::seconds(30)), std::future_status::ready);
}

TEST(RuntimeFaultsTest, RuntimeThatNeverConfirmsAnUnregistrationLetsEveryCloseReturn) {
    KrinDaboTestHooks hooks;
    hooks.unregistered = EventDelivery::withheld();
    ObservedRuntime runtime(hooks);
    const std::string uri = uriAt(28755, "/faults/neverUnregistered");
    std::unique_ptr<orlo::dabo::ps::Publisher<Sample>> publisher(newPublisher(uri, runtime.dabo));
    std::unique_ptr<orlo::dabo::ps::Subscriber<Sample>> subscriber(newSubscriber(uri, runtime.dabo));
    std::unique_ptr<orlo::dabo::ps::MrvSubscriber<Sample>> mostRecent(newMrvSubscriber(uri, runtime.dabo));
    // Each close waits out its time-out and goes on; all three at once, so
    // that the test pays for one.
    auto closePublisher = std::async(std::launch::async, [&] { publisher->close(); });
    auto closeSubscriber = std::async(std::launch::async, [&] { subscriber->close(); });
    auto closeMostRecent = std::async(std::launch::async, [&] { mostRecent->close(); });
    for (auto* closing : {&closePublisher, &closeSubscriber, &closeMostRecent}) {
        ASSERT_EQ(closing->wait_for(std::chrono::seconds(30)), std::future_status::ready);
        closing->get();
    }
    EXPECT_THROW(subscriber->read(0), orlo::dabo::IllegalStateException);
    publisher.reset();
    subscriber.reset();
    mostRecent.reset();
    runtime.dabo.reset();
    EXPECT_EQ(runtime.ended.wait_for(std::chrono::seconds(30)), std::future_status::ready);
}

}  // namespace
