// Life cycle of the queued subscriber and its host-facing factory: topic
// identity, registration handshake, events, close and destruction, against
// the real runtime with its fault hooks.
#include "dabo/krin/detail/ps/subscriber.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CapturingAppender.h"
#include "ReceiveSync.h"
#include "WirePeer.h"
#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinDaboTestHooks.h"
#include "dabo/krin/detail/ps/subscriberDelegator.h"
#include "dabo/krin/detail/ps/subscriber_impl.h"
#include "lumotypes/krin/LumotypesImpl.h"

extern "C" orlo::dabo::ps::Subscriber<lumotypes::RefPos>* generated_krin_Subscriber_lumotypes_RefPos(
    const std::string& uri, const orlo::dabo::krin::detail::ps::QoSList& qos,
    const orlo::dabo::Dabo::Properties& properties, const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo);

namespace {

using namespace std::chrono_literals;
using lumo::test::CaptureLog;
using lumo::test::topicFrameOf;
using lumo::test::WirePeer;
using orlo::dabo::DaboException;
using orlo::dabo::IllegalStateException;
using orlo::dabo::krin::detail::EventDelivery;
using orlo::dabo::krin::detail::getSubscriberId;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::KrinDaboTesting;
using orlo::dabo::krin::detail::KrinDaboEvent;
using orlo::dabo::krin::detail::KrinDaboTestHooks;
using orlo::dabo::krin::detail::POLLER_READABLE;
using orlo::dabo::krin::detail::REGISTERED;
using orlo::dabo::krin::detail::ps::CLOSED;
using orlo::dabo::krin::detail::ps::CREATED;
using orlo::dabo::krin::detail::ps::INITIALIZED;
using orlo::dabo::krin::detail::ps::KrinSubscriber;
using orlo::dabo::krin::detail::ps::PubSubState;
using orlo::dabo::krin::detail::ps::QoSList;

using RefPosSubscriber = KrinSubscriber<lumotypes::RefPos, lumotypes::krin::RefPosImpl>;

/// The subscriber with its inside made visible to the tests.
class ObservedSubscriber : public RefPosSubscriber {
public:
    using RefPosSubscriber::RefPosSubscriber;
    PubSubState currentState() const { return this->state; }
    bool typeHashCheckDisabled() const { return this->disableTypeHashCheck; }
    bool tracing() const { return this->tracingEnabled; }
    int generation() const { return this->writerGeneration; }
    const std::string& frame() const { return this->topicIdFrame; }
    std::uint32_t typeHash() const { return this->dataEntityTypeHash; }
    bool awaitEvent(KrinDaboEvent event) { return this->waitForEvent(event); }
};

/// Every runtime call a subscriber makes, in order, with whether its handler was empty.
class RuntimeCalls {
public:
    KrinDaboTestHooks observe(KrinDaboTestHooks hooks = {}) {
        hooks.callObserver = [this](const std::string& operation, bool handlerEmpty) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                calls.emplace_back(operation, handlerEmpty);
            }
            changed.notify_all();
        };
        return hooks;
    }
    int count(const std::string& operation) const {
        std::lock_guard<std::mutex> lock(mutex);
        return static_cast<int>(std::count_if(calls.begin(), calls.end(),
                                              [&](const auto& call) { return call.first == operation; }));
    }
    std::vector<bool> emptyHandlers(const std::string& operation) const {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<bool> result;
        for (const auto& call : calls) {
            if (call.first == operation) {
                result.push_back(call.second);
            }
        }
        return result;
    }
    void awaitCount(const std::string& operation, int wanted) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] {
            return std::count_if(calls.begin(), calls.end(), [&](const auto& call) { return call.first == operation; }) >=
                   wanted;
        });
    }

private:
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::pair<std::string, bool>> calls;
};

/// A URI whose endpoint nobody serves: connecting to it costs nothing.
std::string quietUri(const std::string& topicPath) { return "krin.ps://127.0.0.1:29999" + topicPath; }

std::vector<std::string> linesStartingWith(const std::vector<std::string>& lines, const std::string& prefix) {
    std::vector<std::string> result;
    for (const auto& line : lines) {
        if (line.rfind(prefix, 0) == 0) {
            result.push_back(line);
        }
    }
    return result;
}

template <typename Exception, typename Call>
std::string messageOf(Call call) {
    try {
        call();
    } catch (const Exception& e) {
        return e.what();
    }
    return "(nothing thrown)";
}

TEST(KrinSubscriberTest, ConstructorWorksOutTheTopicIdentityFromTheUriPath) {
    CaptureLog log("vexa.dabo.krin.subscriber");
    auto dabo = KrinDabo::create({});
    auto subscriber = std::make_shared<ObservedSubscriber>(quietUri("/life/identity"), QoSList{},
                                                           orlo::dabo::Dabo::Properties{}, dabo);
    EXPECT_EQ(subscriber->frame(), topicFrameOf("/life/identity"));
    EXPECT_EQ(subscriber->typeHash(), 0x67C91967u);
    EXPECT_EQ(subscriber->generation(), 1);
    EXPECT_FALSE(subscriber->tracing());
    EXPECT_EQ(subscriber->currentState(), CREATED);
    const auto hash = static_cast<std::uint32_t>(orlo::dabo::util::topicNameHash("/life/identity"));
    EXPECT_EQ(log.traces(), std::vector<std::string>{"KrinSubscriber topicName:/life/identity topicIdHash:" +
                                                     std::to_string(hash) + " topicIdFrame:" +
                                                     getSubscriberId(topicFrameOf("/life/identity"))});
}

TEST(KrinSubscriberTest, InitRegistersAndBecomesInitializedWhenTheSocketArrives) {
    RuntimeCalls calls;
    auto dabo = KrinDaboTesting::create({}, calls.observe());
    auto subscriber = std::make_shared<ObservedSubscriber>(quietUri("/life/init"), QoSList{},
                                                           orlo::dabo::Dabo::Properties{}, dabo);
    subscriber->init();
    EXPECT_EQ(subscriber->currentState(), INITIALIZED);
    EXPECT_EQ(calls.emptyHandlers("registerSubscriber"), std::vector<bool>{false});
}

TEST(KrinSubscriberTest, InitWithoutSharedOwnershipThrowsBadWeakPtrAndStaysCreated) {
    auto dabo = KrinDabo::create({});
    ObservedSubscriber subscriber(quietUri("/life/unowned"), QoSList{}, orlo::dabo::Dabo::Properties{}, dabo);
    EXPECT_THROW(subscriber.init(), std::bad_weak_ptr);
    EXPECT_EQ(subscriber.currentState(), CREATED);
}

TEST(KrinSubscriberTest, SecondCloseOnlyWarnsAndUnregistersAndClosesTheEngineOnce) {
    RuntimeCalls calls;
    auto dabo = KrinDaboTesting::create({}, calls.observe());
    auto subscriber = std::make_shared<ObservedSubscriber>(quietUri("/life/twice"), QoSList{},
                                                           orlo::dabo::Dabo::Properties{}, dabo);
    subscriber->init();
    CaptureLog log("vexa.dabo.krin.subscriber");
    subscriber->close();
    EXPECT_TRUE(log.warnings().empty());
    const auto secondStart = std::chrono::steady_clock::now();
    subscriber->close();
    // At once: far below the 5000 ms that a wait for UNREGISTERED could take.
    EXPECT_LT(std::chrono::steady_clock::now() - secondStart, 1000ms);
    EXPECT_EQ(log.warnings(), std::vector<std::string>{"Publisher already closed"});
    EXPECT_EQ(calls.count("unregisterSubscriber"), 1);
    EXPECT_EQ(linesStartingWith(log.traces(), "Closing KrinSubscriber: ").size(), 1u);
    EXPECT_EQ(subscriber->currentState(), CLOSED);
    EXPECT_EQ(messageOf<IllegalStateException>([&] { subscriber->read(0); }), "Subscriber already closed");
}

TEST(KrinSubscriberTest, CloseAfterFailedInitSkipsUnregisteringAndStillClosesTheEngine) {
    RuntimeCalls calls;
    KrinDaboTestHooks hooks;
    hooks.registered = EventDelivery::withheld();
    auto dabo = KrinDaboTesting::create({}, calls.observe(hooks));
    auto subscriber = std::make_shared<ObservedSubscriber>(quietUri("/life/failedInit"), QoSList{},
                                                           orlo::dabo::Dabo::Properties{}, dabo);
    CaptureLog log("vexa.dabo.krin.subscriber");
    EXPECT_EQ(messageOf<DaboException>([&] { subscriber->init(); }),
              "KrinSubscriber did not receive it's subscription socket");
    EXPECT_EQ(log.errors(), std::vector<std::string>{"KrinSubscriber did not receive it's subscription socket"});
    EXPECT_EQ(subscriber->currentState(), CREATED);

    subscriber->close();
    EXPECT_EQ(calls.count("registerSubscriber"), 1);
    EXPECT_EQ(calls.count("unregisterSubscriber"), 0);
    EXPECT_TRUE(linesStartingWith(log.traces(), "Unregistering").empty());
    EXPECT_EQ(subscriber->currentState(), CLOSED);
    EXPECT_EQ(messageOf<IllegalStateException>([&] { subscriber->read(0); }), "Subscriber already closed");
}

TEST(KrinSubscriberTest, RegisteredBeforeInitWaitsLetsInitReturnInitialized) {
    KrinDaboTestHooks hooks;
    // The event is in before registerSubscriber returns, so before init waits.
    hooks.registeredBeforeRegisterReturns = true;
    auto dabo = KrinDaboTesting::create({}, hooks);
    auto subscriber = std::make_shared<ObservedSubscriber>(quietUri("/life/early"), QoSList{},
                                                           orlo::dabo::Dabo::Properties{}, dabo);
    CaptureLog log("vexa.dabo.krin.subscriber");
    const auto start = std::chrono::steady_clock::now();
    subscriber->init();
    // At once: the wait found the event already there, instead of waiting up to 5000 ms.
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1000ms);
    EXPECT_EQ(subscriber->currentState(), INITIALIZED);
    const auto traces = log.traces();
    ASSERT_EQ(traces.size(), 2u);
    EXPECT_EQ(traces[0], "Register KrinSubscriber: " + getSubscriberId(topicFrameOf("/life/early")));
    EXPECT_EQ(traces[1], "REGISTERED event received for KrinSubscriber: " + getSubscriberId(topicFrameOf("/life/early")));
}

TEST(KrinSubscriberTest, RegisteredAfterTheTimeOutNoLongerReachesTheDroppedSubscriber) {
    RuntimeCalls calls;
    KrinDaboTestHooks hooks;
    hooks.registered = EventDelivery::delayedBy(5500ms);
    auto dabo = KrinDaboTesting::create({}, calls.observe(hooks));
    CaptureLog log("vexa.dabo.krin.subscriber");

    auto late = std::make_shared<ObservedSubscriber>(quietUri("/life/late"), QoSList{},
                                                     orlo::dabo::Dabo::Properties{}, dabo);
    std::weak_ptr<ObservedSubscriber> lateWatch = late;
    auto lateInit = std::async(std::launch::async, [late] { late->init(); });
    calls.awaitCount("registerSubscriber", 1);
    // A witness registered just after: its delayed REGISTERED comes after the dropped one's.
    auto witness = std::make_shared<ObservedSubscriber>(quietUri("/life/witness"), QoSList{},
                                                        orlo::dabo::Dabo::Properties{}, dabo);
    auto witnessInit = std::async(std::launch::async, [witness] { witness->init(); });

    EXPECT_THROW(lateInit.get(), DaboException);
    late.reset();  // what the factory does with a subscriber whose init failed
    EXPECT_TRUE(lateWatch.expired());
    EXPECT_THROW(witnessInit.get(), DaboException);
    ASSERT_TRUE(witness->awaitEvent(REGISTERED));
    // The runtime's thread may still hold the witness from that delivery. A
    // call whose event is delivered at once returns only after that delivery,
    // so once it returns the witness and the runtime end on this thread.
    std::weak_ptr<orlo::dabo::krin::detail::EventsHandler> fence = witness;
    dabo->unregisterPublisher("tcp://127.0.0.1:1", "fence", fence);

    const auto registeredLines = linesStartingWith(log.traces(), "REGISTERED event received for KrinSubscriber: ");
    EXPECT_EQ(registeredLines, std::vector<std::string>{"REGISTERED event received for KrinSubscriber: " +
                                                        getSubscriberId(topicFrameOf("/life/witness"))});
}

TEST(KrinSubscriberTest, UnknownEventDoesNothingAndAnswersTrue) {
    auto dabo = KrinDabo::create({});
    auto subscriber = std::make_shared<ObservedSubscriber>(quietUri("/life/unknown"), QoSList{},
                                                           orlo::dabo::Dabo::Properties{}, dabo);
    CaptureLog log("vexa.dabo.krin.subscriber");
    std::shared_ptr<zmq::socket_t> noSocket;
    EXPECT_TRUE(subscriber->events(noSocket, static_cast<KrinDaboEvent>(7)));
    EXPECT_TRUE(subscriber->events(noSocket, orlo::dabo::krin::detail::NO_EVENT));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(subscriber->currentState(), CREATED);
}

TEST(KrinSubscriberTest, DestroyingAnOpenSubscriberUnregistersWithAnEmptyHandlerWithoutWaiting) {
    RuntimeCalls calls;
    KrinDaboTestHooks hooks;
    // Were the destructor to wait for UNREGISTERED, it would wait the full time-out.
    hooks.unregistered = EventDelivery::withheld();
    auto dabo = KrinDaboTesting::create({}, calls.observe(hooks));
    auto subscriber = std::make_shared<ObservedSubscriber>(quietUri("/life/destroy"), QoSList{},
                                                           orlo::dabo::Dabo::Properties{}, dabo);
    subscriber->init();
    CaptureLog log("vexa.dabo.krin.subscriber");
    auto destruction = std::async(std::launch::async, [&subscriber] { subscriber.reset(); });
    // Far below the event time-out: the destructor did not wait for the event.
    ASSERT_EQ(destruction.wait_for(2500ms), std::future_status::ready);
    destruction.get();
    EXPECT_EQ(calls.emptyHandlers("unregisterSubscriber"), std::vector<bool>{true});
    const std::string id = getSubscriberId(topicFrameOf("/life/destroy"));
    EXPECT_EQ(log.traces(), (std::vector<std::string>{"Closing KrinSubscriber: " + id,
                                                      "Unregistering KrinSubscriber from DABO: " + id}));
}

TEST(KrinSubscriberTest, CloseGoesOnAfterTheTimeOutWhenUnregisteredNeverComes) {
    KrinDaboTestHooks hooks;
    hooks.unregistered = EventDelivery::withheld();
    auto dabo = KrinDaboTesting::create({}, hooks);
    auto subscriber = std::make_shared<ObservedSubscriber>(quietUri("/life/silentRuntime"), QoSList{},
                                                           orlo::dabo::Dabo::Properties{}, dabo);
    subscriber->init();
    CaptureLog log("vexa.dabo.krin.subscriber");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_NO_THROW(subscriber->close());
    const auto elapsed = std::chrono::steady_clock::now() - start;
    // The whole event time-out, and then no more than a generous margin.
    EXPECT_GE(elapsed, 5000ms);
    EXPECT_LT(elapsed, 9000ms);
    EXPECT_EQ(subscriber->currentState(), CLOSED);
    EXPECT_TRUE(log.errors().empty());
    EXPECT_TRUE(log.warnings().empty());
}

TEST(KrinSubscriberTest, CloseWaitsForUnregisteredWhenTheRuntimeConfirms) {
    KrinDaboTestHooks hooks;
    hooks.unregistered = EventDelivery::delayedBy(300ms);
    auto dabo = KrinDaboTesting::create({}, hooks);
    auto subscriber = std::make_shared<ObservedSubscriber>(quietUri("/life/confirmed"), QoSList{},
                                                           orlo::dabo::Dabo::Properties{}, dabo);
    subscriber->init();
    CaptureLog log("vexa.dabo.krin.subscriber");
    const auto start = std::chrono::steady_clock::now();
    subscriber->close();
    const auto elapsed = std::chrono::steady_clock::now() - start;
    // Until the confirmation, 300 ms late, and not the whole 5000 ms time-out.
    EXPECT_GE(elapsed, 300ms);
    EXPECT_LT(elapsed, 4000ms);
    // close returned only after the runtime's confirmation had been handled.
    EXPECT_EQ(linesStartingWith(log.traces(), "UNREGISTERED event received for KrinSubscriber: ").size(), 1u);
    EXPECT_EQ(subscriber->currentState(), CLOSED);
}

TEST(KrinSubscriberTest, TypeHashCheckStaysOnWhenThePropertyIsAbsent) {
    auto dabo = KrinDabo::create({});
    ObservedSubscriber absent(quietUri("/life/check"), QoSList{}, orlo::dabo::Dabo::Properties{}, dabo);
    EXPECT_FALSE(absent.typeHashCheckDisabled());
    ObservedSubscriber off(quietUri("/life/check"), QoSList{},
                           orlo::dabo::Dabo::Properties{{"krin.ps.disableTypeHashCheck", "true"}}, dabo);
    EXPECT_TRUE(off.typeHashCheckDisabled());
    ObservedSubscriber on(quietUri("/life/check"), QoSList{},
                          orlo::dabo::Dabo::Properties{{"krin.ps.disableTypeHashCheck", "false"}}, dabo);
    EXPECT_FALSE(on.typeHashCheckDisabled());
}

TEST(KrinSubscriberTest, UnreadableTypeHashCheckPropertyIsRefusedByTheConstructor) {
    auto dabo = KrinDabo::create({});
    EXPECT_THROW(ObservedSubscriber(quietUri("/life/check"), QoSList{},
                                    orlo::dabo::Dabo::Properties{{"krin.ps.disableTypeHashCheck", "maybe"}}, dabo),
                 DaboException);
}

TEST(KrinSubscriberTest, UriOfAnotherProfileIsRefusedBeforeAnyRuntimeCall) {
    CaptureLog log("vexa.dabo.krin.internal");
    // No runtime at all: any call into it would crash the test.
    EXPECT_EQ(messageOf<DaboException>([] {
                  ObservedSubscriber(
                      "http://127.0.0.1:29999/life/foreign", QoSList{}, orlo::dabo::Dabo::Properties{}, nullptr);
              }),
              "Uri http://127.0.0.1:29999/life/foreign is not Krin PubSub profile");
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Uri http://127.0.0.1:29999/life/foreign is not Krin PubSub profile"});
}

TEST(KrinSubscriberTest, UriThatTheRuntimeRefusesPassesItsExceptionThrough) {
    // A subscriber connects, so "all interfaces" names no peer.
    EXPECT_THROW(ObservedSubscriber("krin.ps://*:45999/life/star", QoSList{}, orlo::dabo::Dabo::Properties{}, nullptr),
                 DaboException);
}

/// A subscriber whose state is driven by hand, with a socket of the test's
/// own that a peer feeds: what a readable event does outside INITIALIZED.
class ReadableOutsideInitializedTest : public ::testing::Test {
protected:
    void SetUp() override {
        socket = std::make_shared<zmq::socket_t>(context, zmq::socket_type::sub);
        socket->set(zmq::sockopt::linger, 0);
        socket->set(zmq::sockopt::subscribe, "");
        socket->connect("tcp://127.0.0.1:" + peer.uri("").substr(std::string("krin.ps://127.0.0.1:").size()));
        // Probe until the subscription has reached the peer, then drop the probes.
        bool joined = false;
        for (int attempt = 0; attempt < 100 && !joined; ++attempt) {
            peer.send({"probe"});
            zmq::pollitem_t item{static_cast<void*>(*socket), 0, ZMQ_POLLIN, 0};
            joined = zmq::poll(&item, 1, 100ms) > 0;
        }
        ASSERT_TRUE(joined);
        drain();
    }

    /// Sends `frames` and waits until they can be read.
    void sendAndAwait(const std::vector<std::string>& frames) {
        peer.send(frames);
        zmq::pollitem_t item{static_cast<void*>(*socket), 0, ZMQ_POLLIN, 0};
        ASSERT_GT(zmq::poll(&item, 1, 10s), 0);
    }

    /// Everything readable now, frame by frame.
    std::vector<std::string> drain() {
        std::vector<std::string> frames;
        zmq::message_t frame;
        while (socket->recv(frame, zmq::recv_flags::dontwait)) {
            frames.push_back(frame.to_string());
        }
        return frames;
    }

    WirePeer peer;
    zmq::context_t context{1};
    std::shared_ptr<zmq::socket_t> socket;
    std::shared_ptr<KrinDabo> dabo = KrinDabo::create({});
};

TEST_F(ReadableOutsideInitializedTest, ReadableBetweenRegisteredAndTheEndOfInitLeavesTheMessageUnreadWithAWarning) {
    auto subscriber = std::make_shared<ObservedSubscriber>(peer.uri("/life/readable"), QoSList{},
                                                           orlo::dabo::Dabo::Properties{}, dabo);
    // As the runtime would: the socket has come, init has not finished.
    subscriber->events(socket, REGISTERED);
    ASSERT_EQ(subscriber->currentState(), CREATED);
    const auto message = lumo::test::goodRefPosMessage("/life/readable", 5);
    sendAndAwait(message);
    CaptureLog log("vexa.dabo.krin.subscriber");
    EXPECT_TRUE(subscriber->events(socket, POLLER_READABLE));
    EXPECT_EQ(log.warnings(),
              std::vector<std::string>{"Read data was called in INITIALIZING or CLOSED state. Ignoring..."});
    EXPECT_EQ(drain(), message);
}

TEST_F(ReadableOutsideInitializedTest, ReadableAfterCloseIsIgnoredWithAWarning) {
    auto subscriber = std::make_shared<ObservedSubscriber>(peer.uri("/life/readableClosed"), QoSList{},
                                                           orlo::dabo::Dabo::Properties{}, dabo);
    subscriber->close();  // never registered: nothing to unregister
    subscriber->events(socket, REGISTERED);
    const auto message = lumo::test::goodRefPosMessage("/life/readableClosed", 6);
    sendAndAwait(message);
    CaptureLog log("vexa.dabo.krin.subscriber");
    EXPECT_TRUE(subscriber->events(socket, POLLER_READABLE));
    EXPECT_EQ(log.warnings(),
              std::vector<std::string>{"Read data was called in INITIALIZING or CLOSED state. Ignoring..."});
    EXPECT_EQ(drain(), message);
}

// --- the host's factory and delegator ---

TEST(KrinSubscriberFactoryTest, UriOfAnotherProfileThrowsBeforeAnyRuntimeCall) {
    // A null runtime: a call into it would crash.
    EXPECT_THROW(generated_krin_Subscriber_lumotypes_RefPos("tcp://127.0.0.1:29999/factory/foreign", QoSList{},
                                                            orlo::dabo::Dabo::Properties{}, nullptr),
                 DaboException);
}

TEST(KrinSubscriberFactoryTest, RuntimeThatNeverSendsRegisteredMakesTheFactoryThrow) {
    RuntimeCalls calls;
    KrinDaboTestHooks hooks;
    hooks.registered = EventDelivery::withheld();
    auto dabo = KrinDaboTesting::create({}, calls.observe(hooks));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(messageOf<DaboException>([&] {
                  generated_krin_Subscriber_lumotypes_RefPos(quietUri("/factory/silent"), QoSList{},
                                                             orlo::dabo::Dabo::Properties{}, dabo);
              }),
              "KrinSubscriber did not receive it's subscription socket");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 5000ms);
    // The dropped subscriber had no socket, so nothing was unregistered.
    EXPECT_EQ(calls.count("unregisterSubscriber"), 0);
}

TEST(KrinSubscriberFactoryTest, ReturnsAnInitializedSubscriberThatReceives) {
    WirePeer peer;
    auto dabo = KrinDabo::create({});
    std::unique_ptr<orlo::dabo::ps::Subscriber<lumotypes::RefPos>> subscriber(generated_krin_Subscriber_lumotypes_RefPos(
        peer.uri("/factory/receives"), QoSList{}, orlo::dabo::Dabo::Properties{}, dabo));
    ASSERT_TRUE(lumo::test::awaitSubscription<lumotypes::RefPos>(
        peer, *subscriber, [](std::uint32_t marker) { return lumo::test::goodRefPosMessage("/factory/receives", marker); },
        [](const lumotypes::RefPos& sample) { return sample.getRefPosX(); }));
    EXPECT_NE(subscriber->createDataEntity(), nullptr);
}

TEST(KrinSubscriberFactoryTest, CloseThroughTheDelegatorThenReadThrowsAndASecondCloseOnlyWarns) {
    auto dabo = KrinDabo::create({});
    std::unique_ptr<orlo::dabo::ps::Subscriber<lumotypes::RefPos>> subscriber(generated_krin_Subscriber_lumotypes_RefPos(
        quietUri("/factory/closed"), QoSList{}, orlo::dabo::Dabo::Properties{}, dabo));
    subscriber->close();
    EXPECT_EQ(messageOf<IllegalStateException>([&] { subscriber->read(1); }), "Subscriber already closed");
    CaptureLog log("vexa.dabo.krin.subscriber");
    subscriber->close();
    EXPECT_EQ(log.warnings(), std::vector<std::string>{"Publisher already closed"});
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST(KrinSubscriberFactoryTest, DeleteWithoutCloseUnregistersWithAnEmptyHandlerAndAwaitsNothing) {
    RuntimeCalls calls;
    KrinDaboTestHooks hooks;
    hooks.unregistered = EventDelivery::withheld();
    auto dabo = KrinDaboTesting::create({}, calls.observe(hooks));
    auto* subscriber = generated_krin_Subscriber_lumotypes_RefPos(quietUri("/factory/deleted"), QoSList{},
                                                                  orlo::dabo::Dabo::Properties{}, dabo);
    auto deletion = std::async(std::launch::async, [subscriber] { delete subscriber; });
    ASSERT_EQ(deletion.wait_for(2500ms), std::future_status::ready);
    EXPECT_EQ(calls.emptyHandlers("unregisterSubscriber"), std::vector<bool>{true});
}

TEST(KrinSubscriberFactoryTest, DelegatorForwardsEveryOperationToTheSubscriber) {
    WirePeer peer;
    auto dabo = KrinDabo::create({});
    auto* raw = generated_krin_Subscriber_lumotypes_RefPos(peer.uri("/factory/forwards"), QoSList{},
                                                           orlo::dabo::Dabo::Properties{}, dabo);
    std::unique_ptr<orlo::dabo::ps::Subscriber<lumotypes::RefPos>> subscriber(raw);
    auto* delegator =
        dynamic_cast<orlo::dabo::krin::detail::ps::KrinSubscriberDelegator<lumotypes::RefPos, lumotypes::krin::RefPosImpl>*>(
            raw);
    ASSERT_NE(delegator, nullptr);
    ASSERT_NE(delegator->impl, nullptr);
    ASSERT_TRUE(lumo::test::awaitSubscription<lumotypes::RefPos>(
        peer, *subscriber, [](std::uint32_t marker) { return lumo::test::goodRefPosMessage("/factory/forwards", marker); },
        [](const lumotypes::RefPos& sample) { return sample.getRefPosX(); }));

    // A notifier through the delegator is told; a poll callback through it runs.
    std::mutex mutex;
    std::condition_variable told;
    int notified = 0;
    auto notifier = subscriber->subscribeAsync(orlo::dabo::ps::DataEventFilter<lumotypes::RefPos>(),
                                               [&](orlo::dabo::ps::Subscriber<lumotypes::RefPos>&) {
                                                   std::lock_guard<std::mutex> lock(mutex);
                                                   ++notified;
                                                   told.notify_all();
                                               });
    int polled = 0;
    auto polling = subscriber->subscribe(orlo::dabo::ps::DataEventFilter<lumotypes::RefPos>(),
                                         [&](orlo::dabo::ps::Subscriber<lumotypes::RefPos>&,
                                             const orlo::dabo::ps::DataEvent<lumotypes::RefPos>& event) {
                                             if (event.getData()->getRefPosX() == 21) {
                                                 ++polled;
                                             }
                                         });
    peer.send(lumo::test::goodRefPosMessage("/factory/forwards", 21));
    {
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(told.wait_for(lock, 10s, [&] { return notified > 0; }));
    }
    notifier->close();
    EXPECT_EQ(subscriber->poll(1, 10s), 1u);
    EXPECT_EQ(polled, 1);
    polling->close();

    peer.send(lumo::test::goodRefPosMessage("/factory/forwards", 22));
    auto before = lumo::test::takeUntil<lumotypes::RefPos>(
        *subscriber, [](const lumotypes::RefPos& sample) { return sample.getRefPosX() == 22; });
    ASSERT_NE(before, nullptr);
    EXPECT_TRUE(subscriber->read(0).empty());
    EXPECT_EQ(subscriber->loanedRead(), nullptr);
}

}  // namespace
