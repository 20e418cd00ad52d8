// Faults inside one host process: delegators dropped while the runtime's
// thread delivers their samples, runtimes destroyed with events in flight,
// runtimes whose REGISTERED or UNREGISTERED never comes, and endpoints bound
// again while ZeroMQ is still releasing them. The checks are that every call
// returns, every runtime thread ends, and (under the leak checker) that
// nothing is left behind.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "../support/CapturingAppender.h"
#include "../support/FreePort.h"
#include "SoakTopic.h"
#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinDabo.h"
#include "dabo/krin/detail/KrinDaboTestHooks.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/ps/DataEventFilter.h"
#include "lumotypes/host/Plugin.h"

namespace {

using lumo::soak::Sample;
using orlo::dabo::krin::detail::EventDelivery;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::KrinDaboTesting;
using orlo::dabo::krin::detail::KrinDaboTestHooks;

lumotypes::host::Plugin& plugin() {
    static lumotypes::host::Plugin loaded(LUMOTYPES_KRIN_PLUGIN_PATH);
    return loaded;
}

std::string uriAt(int port, const char* path) {
    return lumo::soak::uriOf(std::to_string(port), path);
}

orlo::dabo::ps::Publisher<Sample>* newPublisher(const std::string& uri, const lumo::soak::Runtime& dabo) {
    return plugin().factory<lumotypes::host::PublisherFactory<lumo::soak::Sample>>(
            lumotypes::host::TopicTraits<lumo::soak::Sample>::publisherFactory)(
        uri, {}, {}, dabo);
}

orlo::dabo::ps::Subscriber<Sample>* newSubscriber(const std::string& uri, const lumo::soak::Runtime& dabo) {
    return plugin().factory<lumotypes::host::SubscriberFactory<lumo::soak::Sample>>(
            lumotypes::host::TopicTraits<lumo::soak::Sample>::subscriberFactory)(
        uri, {}, {}, dabo);
}

orlo::dabo::ps::MrvSubscriber<Sample>* newMrvSubscriber(const std::string& uri, const lumo::soak::Runtime& dabo) {
    return plugin().factory<lumotypes::host::MrvSubscriberFactory<lumo::soak::Sample>>(
            lumotypes::host::TopicTraits<lumo::soak::Sample>::mrvSubscriberFactory)(
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
        dabo = KrinDaboTesting::create({}, hooks);
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
        std::promise<void> unsubscribed;
        std::atomic<bool> told{false};
        KrinDaboTestHooks hooks;
        hooks.subscriptionObserver = [&](const std::string&, bool subscribed, const std::string&) {
            if (!subscribed && !told.exchange(true)) {
                unsubscribed.set_value();
            }
        };
        ObservedRuntime runtime(hooks);
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
            // The flood ends once the endpoint has seen its subscriber go.
            // ZeroMQ 4.3.4 aborts (session_base.cpp:260) when an endpoint is
            // closed at the very moment a peer drops a connection that is in
            // the middle of sending a multipart message; this test is about
            // the runtime's own shutdown, not about that race of the library.
            ASSERT_EQ(unsubscribed.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready)
                << "round " << round;
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

/// Counts the events a runtime delivers to it.
/// On POLLER_READABLE it reads one whole message, as a subscriber does.
class CountingHandler : public orlo::dabo::krin::detail::EventsHandler {
public:
    bool events(std::shared_ptr<zmq::socket_t>& socket, orlo::dabo::krin::detail::KrinDaboEvent event) override {
        if (event == orlo::dabo::krin::detail::POLLER_READABLE) {
            zmq::message_t frame;
            while (socket->recv(frame, zmq::recv_flags::dontwait) && frame.more()) {
            }
        }
        if (onEvent) {
            onEvent(event);
        }
        {
            std::lock_guard<std::mutex> lock(mutex);
            ++counts[event];
        }
        changed.notify_all();
        return true;
    }
    /// Runs on the runtime's thread at every event, before it is counted.
    std::function<void(orlo::dabo::krin::detail::KrinDaboEvent)> onEvent;

    bool await(orlo::dabo::krin::detail::KrinDaboEvent event, int times,
               std::chrono::milliseconds limit = std::chrono::seconds(30)) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, limit, [&] { return counts[event] >= times; });
    }
    int count(orlo::dabo::krin::detail::KrinDaboEvent event) {
        std::lock_guard<std::mutex> lock(mutex);
        return counts[event];
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::map<orlo::dabo::krin::detail::KrinDaboEvent, int> counts;
};

TEST(RuntimeFaultsTest, PublisherRegisteredUnregisteredAndRegisteredAgainAtOnceOnOneEndpointIsRegisteredEveryTime) {
    using orlo::dabo::krin::detail::EventsHandler;
    using orlo::dabo::krin::detail::POLLER_READABLE;
    using orlo::dabo::krin::detail::REGISTERED;
    constexpr int rounds = 50;
    auto dabo = KrinDabo::create({});
    const std::string endpoint = "tcp://127.0.0.1:" + std::to_string(lumo::test::freePort());
    // Per round a publisher that registers and leaves at once, and one that
    // registers right after it, all in one turn of the runtime's loop: the
    // endpoint is bound, released and bound again while ZeroMQ is still
    // closing the listening socket of the first.
    struct Publisher {
        std::unique_ptr<zmq::socket_t> dealer;
        std::string identity;
        std::shared_ptr<CountingHandler> handler = std::make_shared<CountingHandler>();
        std::weak_ptr<EventsHandler> weak = handler;
    };
    std::vector<Publisher> leaving(rounds);
    std::vector<Publisher> staying(rounds);
    for (auto* publishers : {&leaving, &staying}) {
        for (Publisher& publisher : *publishers) {
            publisher.dealer = dabo->createDealer();
            publisher.identity = orlo::dabo::krin::detail::getSocketIdentity(*publisher.dealer);
        }
    }
    // Leaving without waiting for UNREGISTERED: the calls come from the
    // runtime's own thread, inside an event.
    std::weak_ptr<EventsHandler> noHandler;
    KrinDabo* runtime = dabo.get();
    const auto round = [&, runtime](int i) {
        runtime->registerPublisher(endpoint, leaving[i].identity, leaving[i].weak, {});
        runtime->unregisterPublisher(endpoint, leaving[i].identity, noHandler);
        runtime->registerPublisher(endpoint, staying[i].identity, staying[i].weak, {});
    };
    // Each round starts when the one before has its REGISTERED, and hands
    // the endpoint over: the last round's publisher leaves in the same turn.
    for (int i = 0; i + 1 < rounds; ++i) {
        staying[i].handler->onEvent = [&, i, runtime](orlo::dabo::krin::detail::KrinDaboEvent event) {
            if (event == REGISTERED) {
                runtime->unregisterPublisher(endpoint, staying[i].identity, noHandler);
                round(i + 1);
            }
        };
    }
    auto starter = std::make_shared<CountingHandler>();
    starter->onEvent = [&](orlo::dabo::krin::detail::KrinDaboEvent) { round(0); };
    std::weak_ptr<EventsHandler> starterHandler = starter;
    std::shared_ptr<zmq::socket_t> noSocket;
    dabo->unregisterSubscriber(noSocket, starterHandler);

    ASSERT_TRUE(staying[rounds - 1].handler->await(REGISTERED, 1));
    for (int i = 0; i < rounds; ++i) {
        EXPECT_EQ(staying[i].handler->count(REGISTERED), 1) << "round " << i;
        // A registration that its own unregistration overtakes while its bind
        // waits for the port is dropped with it; one that bound is confirmed.
        EXPECT_LE(leaving[i].handler->count(REGISTERED), 1) << "round " << i;
    }

    // The last publisher's samples reach a subscriber.
    auto subscriber = std::make_shared<CountingHandler>();
    std::weak_ptr<EventsHandler> subscriberHandler = subscriber;
    const std::string frame = orlo::dabo::krin::detail::createFrame0(0x5eba7u);
    dabo->registerSubscriber("krin.ps://127.0.0.1:" + endpoint.substr(endpoint.rfind(':') + 1) + "/faults/rebind",
                             frame, subscriberHandler);
    ASSERT_TRUE(subscriber->await(REGISTERED, 1));
    zmq::socket_t& dealer = *staying[rounds - 1].dealer;
    bool received = false;
    for (int sent = 0; sent < 3000 && !received; ++sent) {
        dealer.send(zmq::buffer(frame), zmq::send_flags::sndmore);
        dealer.send(zmq::str_buffer("header"), zmq::send_flags::sndmore);
        dealer.send(zmq::str_buffer("payload"), zmq::send_flags::none);
        received = subscriber->await(POLLER_READABLE, 1, std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(received);
    for (auto* publishers : {&leaving, &staying}) {
        for (Publisher& publisher : *publishers) {
            publisher.dealer->close();
        }
    }
}

TEST(RuntimeFaultsTest, EndpointReleasedByTheRuntimeButTakenByAnotherSocketMeanwhileFailsAfterItsRetries) {
    using orlo::dabo::krin::detail::REGISTERED;
    using orlo::dabo::krin::detail::UNREGISTERED;
    lumo::test::CaptureLog log("vexa.dabo.krin.runtime", log4cplus::WARN_LOG_LEVEL);
    KrinDaboTestHooks hooks;
    // The register call returns once REGISTERED is out, or given up.
    hooks.registeredBeforeRegisterReturns = true;
    auto dabo = KrinDaboTesting::create({}, hooks);
    const std::string endpoint = "tcp://127.0.0.1:" + std::to_string(lumo::test::freePort());
    auto handler = std::make_shared<CountingHandler>();
    std::weak_ptr<orlo::dabo::krin::detail::EventsHandler> weak = handler;
    auto dealer = dabo->createDealer();
    const std::string identity = orlo::dabo::krin::detail::getSocketIdentity(*dealer);
    dabo->registerPublisher(endpoint, identity, weak, {});
    ASSERT_EQ(handler->count(REGISTERED), 1);
    dabo->unregisterPublisher(endpoint, identity, weak);
    ASSERT_TRUE(handler->await(UNREGISTERED, 1));

    // Another socket takes the port as soon as ZeroMQ has let it go.
    zmq::context_t context(1);
    zmq::socket_t squatter(context, zmq::socket_type::pub);
    squatter.set(zmq::sockopt::linger, 0);
    bool taken = false;
    for (int attempt = 0; attempt < 1000000 && !taken; ++attempt) {
        try {
            squatter.bind(endpoint);
            taken = true;
        } catch (const zmq::error_t&) {
            std::this_thread::yield();
        }
    }
    ASSERT_TRUE(taken);

    try {
        dabo->registerPublisher(endpoint, identity, weak, {});
        FAIL() << "a bind of a port held elsewhere was not refused after the retries";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_EQ(std::string(e.what()).rfind("Failed to bind endpoint " + endpoint + ": Address already in use (", 0),
                  0u);
    }
    EXPECT_EQ(handler->count(REGISTERED), 1);
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Failed to bind endpoint " + endpoint + ": Address already in use"});
    dealer->close();
}

}  // namespace
