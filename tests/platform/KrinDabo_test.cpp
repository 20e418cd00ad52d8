// The runtime's promises to the objects that register with it: when and on
// which thread events arrive, what happens to handlers that are gone, how
// frames travel, and that it shuts down under load.

#include "dabo/krin/detail/KrinDaboTestHooks.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

#include "../support/CapturingAppender.h"
#include "KrinTestSupport.h"
#include "dabo/DaboException.h"
#include "dabo/krin/detail/KrinHelpers.h"
#include "dabo/util/DaboUtil.h"

namespace {

using namespace orlo::dabo::krin::detail;
using lumo::test::frameOf;
using lumo::test::Message;
using lumo::test::RecordingHandler;
using lumo::test::freePort;
using lumo::test::sampleFrames;
using lumo::test::sendMessage;

/// What the runtime's bound endpoints saw of their subscribers.
class SubscriptionLog {
public:
    void add(bool subscribed, const std::string& filter) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            changes.emplace_back(subscribed, filter);
        }
        changed.notify_all();
    }

    bool waitFor(bool subscribed, const std::string& filter, std::size_t times = 1) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, lumo::test::patience, [&] {
            std::size_t seen = 0;
            for (const auto& change : changes) {
                seen += (change.first == subscribed && change.second == filter) ? 1 : 0;
            }
            return seen >= times;
        });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::pair<bool, std::string>> changes;
};

class KrinDaboTest : public ::testing::Test {
protected:
    KrinDaboTestHooks observing(KrinDaboTestHooks hooks = {}) {
        hooks.subscriptionObserver = [log = subscriptions](const std::string&, bool subscribed,
                                                           const std::string& filter) { log->add(subscribed, filter); };
        return hooks;
    }

    /// Returns once the runtime's thread has worked off every earlier request.
    static void flush(KrinDabo& dabo) {
        auto marker = std::make_shared<RecordingHandler>();
        std::weak_ptr<EventsHandler> handler = marker;
        std::shared_ptr<zmq::socket_t> noSocket;
        dabo.unregisterSubscriber(noSocket, handler);
        ASSERT_TRUE(marker->waitFor(UNREGISTERED));
    }

    /// Flush for a runtime that withholds UNREGISTERED.
    void flushByRegistering(KrinDabo& dabo) {
        auto marker = std::make_shared<RecordingHandler>();
        std::weak_ptr<EventsHandler> handler = marker;
        dabo.registerSubscriber(uriOf(freePort(), "/flush"), frameOf("/flush"), handler);
        ASSERT_TRUE(marker->waitFor(REGISTERED));
    }

    static std::string uriOf(unsigned int port, const std::string& topic) {
        return "krin.ps://127.0.0.1:" + std::to_string(port) + topic;
    }
    static std::string endpointOf(unsigned int port) { return "tcp://127.0.0.1:" + std::to_string(port); }

    std::shared_ptr<SubscriptionLog> subscriptions = std::make_shared<SubscriptionLog>();
};

TEST_F(KrinDaboTest, RegisteredDeliveredBeforeRegisterPublisherReturnsIsAlreadyThereForTheWaiter) {
    KrinDaboTestHooks hooks;
    hooks.registeredBeforeRegisterReturns = true;
    auto dabo = KrinDaboTesting::create({}, hooks);
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = publisher;
    auto dealer = dabo->createDealer();

    dabo->registerPublisher(endpointOf(freePort()), getSocketIdentity(*dealer), handler, {});

    // No waiting: the event is there when the call returns, and it came on the runtime's thread.
    const auto history = publisher->history();
    ASSERT_EQ(history.size(), 1u);
    EXPECT_EQ(history[0].event, REGISTERED);
    EXPECT_EQ(history[0].thread, dabo->eventThreadId());
    EXPECT_NE(history[0].thread, std::this_thread::get_id());
}

TEST_F(KrinDaboTest, PublisherRegistrationIsConfirmedOnTheEventThreadWithAnEmptySocket) {
    auto dabo = KrinDabo::create({});
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = publisher;
    auto dealer = dabo->createDealer();

    dabo->registerPublisher(endpointOf(freePort()), getSocketIdentity(*dealer), handler, {});

    ASSERT_TRUE(publisher->waitFor(REGISTERED));
    EXPECT_EQ(publisher->history()[0].thread, dabo->eventThreadId());
    EXPECT_EQ(publisher->socket(), nullptr);
}

TEST_F(KrinDaboTest, UnregisterPublisherWithAnEmptyHandlerDeliversNothing) {
    auto dabo = KrinDabo::create({});
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = publisher;
    auto dealer = dabo->createDealer();
    const std::string endpoint = endpointOf(freePort());
    dabo->registerPublisher(endpoint, getSocketIdentity(*dealer), handler, {});
    ASSERT_TRUE(publisher->waitFor(REGISTERED));

    std::weak_ptr<EventsHandler> empty;
    dabo->unregisterPublisher(endpoint, getSocketIdentity(*dealer), empty);
    flush(*dabo);

    EXPECT_EQ(publisher->sequence(), std::vector<KrinDaboEvent>{REGISTERED});
}

TEST_F(KrinDaboTest, UnregisterPublisherOfAFailedRegistrationStillConfirms) {
    auto dabo = KrinDabo::create({});
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = publisher;

    dabo->unregisterPublisher(endpointOf(freePort()), "never-registered", handler);

    ASSERT_TRUE(publisher->waitFor(UNREGISTERED));
    EXPECT_EQ(publisher->sequence(), std::vector<KrinDaboEvent>{UNREGISTERED});
}

TEST_F(KrinDaboTest, RegisteredForAHandlerWhoseOwnerIsGoneIsDropped) {
    auto dabo = KrinDabo::create({});
    auto calls = std::make_shared<std::atomic<int>>(0);
    std::weak_ptr<EventsHandler> handler;
    {
        auto subscriber = std::make_shared<RecordingHandler>();
        subscriber->onEvent = [calls](KrinDaboEvent) { ++*calls; };
        handler = subscriber;
    }
    ASSERT_TRUE(handler.expired());

    dabo->registerSubscriber(uriOf(freePort(), "/gone"), frameOf("/gone"), handler);
    auto dealer = dabo->createDealer();
    dabo->registerPublisher(endpointOf(freePort()), getSocketIdentity(*dealer), handler, {});
    flush(*dabo);

    EXPECT_EQ(*calls, 0);
}

TEST_F(KrinDaboTest, ReadableSocketOfAHandlerWhoseOwnerIsGoneIsClosedWithoutAnEvent) {
    auto dabo = KrinDaboTesting::create({}, observing());
    const unsigned int port = freePort();
    const std::string frame = frameOf("/expiring");
    auto dealer = dabo->createDealer();
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> publisherHandler = publisher;
    dabo->registerPublisher(endpointOf(port), getSocketIdentity(*dealer), publisherHandler, {});
    ASSERT_TRUE(publisher->waitFor(REGISTERED));

    auto calls = std::make_shared<std::atomic<int>>(0);
    auto subscriber = std::make_shared<RecordingHandler>();
    subscriber->onEvent = [calls](KrinDaboEvent) { ++*calls; };
    std::weak_ptr<EventsHandler> subscriberHandler = subscriber;
    dabo->registerSubscriber(uriOf(port, "/expiring"), frame, subscriberHandler);
    ASSERT_TRUE(subscriber->waitFor(REGISTERED));
    ASSERT_TRUE(subscriptions->waitFor(true, frame));
    const int callsWhileAlive = *calls;
    subscriber.reset();

    sendMessage(*dealer, sampleFrames(frame, "p", 1));

    // The runtime finds the socket readable, cannot lock the handler, and
    // closes the socket: the endpoint sees the subscription go.
    EXPECT_TRUE(subscriptions->waitFor(false, frame));
    EXPECT_EQ(*calls, callsWhileAlive);
}

TEST_F(KrinDaboTest, SubscriberReceivesItsSocketWithRegisteredBeforeAnyMessage) {
    auto dabo = KrinDaboTesting::create({}, observing());
    const unsigned int port = freePort();
    const std::string frame = frameOf("/ordered");
    auto dealer = dabo->createDealer();
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> publisherHandler = publisher;
    dabo->registerPublisher(endpointOf(port), getSocketIdentity(*dealer), publisherHandler, {});
    ASSERT_TRUE(publisher->waitFor(REGISTERED));

    auto subscriber = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> subscriberHandler = subscriber;
    dabo->registerSubscriber(uriOf(port, "/ordered"), frame, subscriberHandler);
    ASSERT_TRUE(subscriptions->waitFor(true, frame));
    sendMessage(*dealer, sampleFrames(frame, "p", 1));
    ASSERT_TRUE(subscriber->waitForMessages(1));

    const auto events = subscriber->sequence();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0], REGISTERED);
    EXPECT_EQ(events[1], POLLER_READABLE);
    EXPECT_NE(subscriber->socket(), nullptr);
    EXPECT_EQ(subscriber->socket()->get(zmq::sockopt::type), ZMQ_SUB);
}

TEST_F(KrinDaboTest, EachMessageIsOneReadableEventAndArrivesUnchangedAndInOrder) {
    auto dabo = KrinDaboTesting::create({}, observing());
    const unsigned int port = freePort();
    const std::string frame = frameOf("/each");
    auto dealer = dabo->createDealer();
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> publisherHandler = publisher;
    dabo->registerPublisher(endpointOf(port), getSocketIdentity(*dealer), publisherHandler, {});
    ASSERT_TRUE(publisher->waitFor(REGISTERED));
    auto subscriber = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> subscriberHandler = subscriber;
    dabo->registerSubscriber(uriOf(port, "/each"), frame, subscriberHandler);
    ASSERT_TRUE(subscriptions->waitFor(true, frame));

    std::vector<Message> sent;
    for (unsigned int i = 0; i < 50; ++i) {
        sent.push_back(sampleFrames(frame, "p", i));
        sendMessage(*dealer, sent.back());
    }

    ASSERT_TRUE(subscriber->waitForMessages(sent.size()));
    EXPECT_EQ(subscriber->messages(), sent);
    EXPECT_EQ(subscriber->count(POLLER_READABLE), sent.size());
}

TEST_F(KrinDaboTest, FramesOfADealerAreForwardedOnlyWhileItIsRegistered) {
    auto dropped = std::make_shared<RecordingHandler>();  // counts drops as events
    KrinDaboTestHooks hooks;
    hooks.messageDropped = [dropped](const std::string&) {
        std::shared_ptr<zmq::socket_t> none;
        dropped->events(none, NO_EVENT);
    };
    auto dabo = KrinDaboTesting::create({}, observing(hooks));
    const unsigned int port = freePort();
    const std::string frame = frameOf("/gate");
    auto keeper = dabo->createDealer();  // keeps the endpoint bound throughout
    auto dealer = dabo->createDealer();
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> publisherHandler = publisher;
    dabo->registerPublisher(endpointOf(port), getSocketIdentity(*keeper), publisherHandler, {});
    ASSERT_TRUE(publisher->waitFor(REGISTERED));
    auto subscriber = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> subscriberHandler = subscriber;
    dabo->registerSubscriber(uriOf(port, "/gate"), frame, subscriberHandler);
    ASSERT_TRUE(subscriptions->waitFor(true, frame));

    auto gated = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> gatedHandler = gated;
    const std::string identity = getSocketIdentity(*dealer);
    sendMessage(*dealer, sampleFrames(frame, "before", 0));
    ASSERT_TRUE(dropped->waitFor(NO_EVENT, 1));
    dabo->registerPublisher(endpointOf(port), identity, gatedHandler, {});
    ASSERT_TRUE(gated->waitFor(REGISTERED));
    sendMessage(*dealer, sampleFrames(frame, "while", 1));
    dabo->unregisterPublisher(endpointOf(port), identity, gatedHandler);
    ASSERT_TRUE(gated->waitFor(UNREGISTERED));
    sendMessage(*dealer, sampleFrames(frame, "after", 2));
    ASSERT_TRUE(dropped->waitFor(NO_EVENT, 2));
    dabo->registerPublisher(endpointOf(port), identity, gatedHandler, {});
    ASSERT_TRUE(gated->waitFor(REGISTERED, 2));
    sendMessage(*dealer, sampleFrames(frame, "again", 3));

    ASSERT_TRUE(subscriber->waitForMessages(2));
    flush(*dabo);
    EXPECT_EQ(subscriber->messages(),
              (std::vector<Message>{sampleFrames(frame, "while", 1), sampleFrames(frame, "again", 3)}));
}

TEST_F(KrinDaboTest, UnregisteredArrivesWhileTheCallerStillHoldsItsOwnLock) {
    auto dabo = KrinDaboTesting::create({}, observing());
    const unsigned int port = freePort();
    const std::string frame = frameOf("/locked");
    auto dealer = dabo->createDealer();
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> publisherHandler = publisher;
    dabo->registerPublisher(endpointOf(port), getSocketIdentity(*dealer), publisherHandler, {});
    ASSERT_TRUE(publisher->waitFor(REGISTERED));
    auto subscriber = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> subscriberHandler = subscriber;
    dabo->registerSubscriber(uriOf(port, "/locked"), frame, subscriberHandler);
    ASSERT_TRUE(subscriber->waitFor(REGISTERED));

    std::mutex callerMutex;  // stands for a caller's send lock
    std::atomic<bool> callerLockFreeDuringEvent{true};
    std::thread::id eventThread;
    subscriber->onEvent = [&](KrinDaboEvent event) {
        if (event == UNREGISTERED) {
            eventThread = std::this_thread::get_id();
            if (callerMutex.try_lock()) {
                callerMutex.unlock();
            } else {
                callerLockFreeDuringEvent = false;
            }
        }
    };
    std::lock_guard<std::mutex> callerLock(callerMutex);
    auto socket = subscriber->socket();
    dabo->unregisterSubscriber(socket, subscriberHandler);
    dabo->unregisterPublisher(endpointOf(port), getSocketIdentity(*dealer), publisherHandler);

    ASSERT_TRUE(subscriber->waitFor(UNREGISTERED));
    ASSERT_TRUE(publisher->waitFor(UNREGISTERED));
    EXPECT_FALSE(callerLockFreeDuringEvent);
    EXPECT_EQ(eventThread, dabo->eventThreadId());
}

TEST_F(KrinDaboTest, NoReadableEventFollowsUnregistered) {
    auto dabo = KrinDaboTesting::create({}, observing());
    const unsigned int port = freePort();
    const std::string frame = frameOf("/stream");
    auto dealer = dabo->createDealer();
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> publisherHandler = publisher;
    dabo->registerPublisher(endpointOf(port), getSocketIdentity(*dealer), publisherHandler, {});
    ASSERT_TRUE(publisher->waitFor(REGISTERED));
    auto subscriber = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> subscriberHandler = subscriber;
    dabo->registerSubscriber(uriOf(port, "/stream"), frame, subscriberHandler);
    ASSERT_TRUE(subscriptions->waitFor(true, frame));

    std::atomic<bool> sending{true};
    std::atomic<unsigned int> sent{0};
    std::thread sender([&] {
        while (sending) {
            sendMessage(*dealer, sampleFrames(frame, "p", sent++, 64));
        }
    });
    ASSERT_TRUE(subscriber->waitForMessages(10));
    auto socket = subscriber->socket();
    dabo->unregisterSubscriber(socket, subscriberHandler);
    ASSERT_TRUE(subscriber->waitFor(UNREGISTERED));
    sending = false;
    sender.join();
    for (unsigned int i = 0; i < 100; ++i) {
        sendMessage(*dealer, sampleFrames(frame, "late", i, 64));
    }
    flush(*dabo);

    const auto events = subscriber->sequence();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back(), UNREGISTERED);
    EXPECT_EQ(subscriber->count(UNREGISTERED), 1u);
}

TEST_F(KrinDaboTest, DestroyingTheRuntimeWithSubscribersAndMessagesInFlightReturns) {
    auto sendingSide = KrinDaboTesting::create({}, observing());
    const unsigned int port = freePort();
    const std::string frame = frameOf("/busy");
    auto dealer = sendingSide->createDealer();
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> publisherHandler = publisher;
    sendingSide->registerPublisher(endpointOf(port), getSocketIdentity(*dealer), publisherHandler, {});
    ASSERT_TRUE(publisher->waitFor(REGISTERED));

    std::promise<void> stopped;
    KrinDaboTestHooks receivingHooks;
    receivingHooks.stopped = [&stopped] { stopped.set_value(); };
    auto receivingSide = KrinDaboTesting::create({}, receivingHooks);
    std::vector<std::shared_ptr<RecordingHandler>> subscribers;
    std::vector<std::weak_ptr<EventsHandler>> handlers;
    for (int i = 0; i < 3; ++i) {
        subscribers.push_back(std::make_shared<RecordingHandler>());
        handlers.emplace_back(subscribers.back());
        receivingSide->registerSubscriber(uriOf(port, "/busy"), frame, handlers.back());
    }
    ASSERT_TRUE(subscriptions->waitFor(true, frame, 3));

    std::atomic<bool> sending{true};
    std::thread sender([&] {
        for (unsigned int i = 0; sending; ++i) {
            sendMessage(*dealer, sampleFrames(frame, "p", i));
        }
    });
    ASSERT_TRUE(subscribers[0]->waitForMessages(100));

    auto done = stopped.get_future();
    receivingSide.reset();
    EXPECT_EQ(done.wait_for(std::chrono::seconds(0)), std::future_status::ready);

    sending = false;
    sender.join();
    dealer.reset();
    sendingSide.reset();  // with frames still queued on the way to the endpoint
}

/// Owns itself and the runtime, and lets go of both from inside an event,
/// so that the runtime's last reference is dropped on the runtime's thread.
class SelfReleasingHandler : public EventsHandler {
public:
    bool events(std::shared_ptr<zmq::socket_t>&, KrinDaboEvent event) override {
        if (event == REGISTERED) {
            self.reset();
        }
        return true;
    }
    std::shared_ptr<KrinDabo> dabo;
    std::shared_ptr<SelfReleasingHandler> self;
};

TEST_F(KrinDaboTest, RuntimeReleasedByItsOwnEventThreadStopsCleanly) {
    std::promise<void> stopped;
    KrinDaboTestHooks hooks;
    hooks.stopped = [&stopped] { stopped.set_value(); };
    auto handler = std::make_shared<SelfReleasingHandler>();
    handler->dabo = KrinDaboTesting::create({}, hooks);
    handler->self = handler;
    std::weak_ptr<EventsHandler> weak = handler;
    auto dabo = handler->dabo.get();
    handler.reset();

    dabo->registerSubscriber(uriOf(freePort(), "/self"), frameOf("/self"), weak);

    EXPECT_EQ(stopped.get_future().wait_for(lumo::test::patience), std::future_status::ready);
}

TEST_F(KrinDaboTest, FailedBindIsLoggedWithEndpointAndErrorAndNotConfirmed) {
    lumo::test::CaptureLog log("vexa.dabo.krin.runtime");
    const std::string endpoint = endpointOf(freePort());
    auto first = KrinDabo::create({});
    auto second = KrinDabo::create({});
    auto holder = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> holderHandler = holder;
    auto firstDealer = first->createDealer();
    first->registerPublisher(endpoint, getSocketIdentity(*firstDealer), holderHandler, {});
    ASSERT_TRUE(holder->waitFor(REGISTERED));

    auto refused = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> refusedHandler = refused;
    auto secondDealer = second->createDealer();
    try {
        second->registerPublisher(endpoint, getSocketIdentity(*secondDealer), refusedHandler, {});
        FAIL() << "a bind of a port held elsewhere was not refused";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_EQ(std::string(e.what()), "Failed to bind endpoint " + endpoint +
                                             ": Address already in use (another program, or another runtime, holds "
                                             "that port)");
    }
    flush(*second);

    EXPECT_EQ(refused->count(REGISTERED), 0u);
    EXPECT_EQ(log.errors(), std::vector<std::string>{"Failed to bind endpoint " + endpoint + ": Address already in use"});
}

TEST_F(KrinDaboTest, BindToAnUnknownInterfaceIsLoggedAndNotConfirmed) {
    lumo::test::CaptureLog log("vexa.dabo.krin.runtime");
    auto dabo = KrinDabo::create({});
    auto refused = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = refused;
    auto dealer = dabo->createDealer();
    const std::string endpoint = "tcp://no-such-interface0:" + std::to_string(freePort());

    try {
        dabo->registerPublisher(endpoint, getSocketIdentity(*dealer), handler, {});
        FAIL() << "a bind of an unknown interface was not refused";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_EQ(std::string(e.what()), "Failed to bind endpoint " + endpoint +
                                             ": No such device ('no-such-interface0' is neither an IP address nor a "
                                             "network interface of this machine; a publisher binds, so give one of its "
                                             "addresses, an interface name, or * for all)");
    }
    flush(*dabo);

    EXPECT_EQ(refused->count(REGISTERED), 0u);
    ASSERT_EQ(log.errors().size(), 1u);
    EXPECT_EQ(log.errors()[0].rfind("Failed to bind endpoint " + endpoint + ": ", 0), 0u);
}

TEST_F(KrinDaboTest, DealersHaveDistinctIdentities) {
    auto dabo = KrinDabo::create({});
    auto a = dabo->createDealer();
    auto b = dabo->createDealer();
    EXPECT_EQ(a->get(zmq::sockopt::type), ZMQ_DEALER);
    EXPECT_FALSE(getSocketIdentity(*a).empty());
    EXPECT_NE(getSocketIdentity(*a), getSocketIdentity(*b));
    EXPECT_EQ(getSocketIdentity(*a), getSocketIdentity(*a));
}

TEST_F(KrinDaboTest, RegisterSubscriberRefusesAUriToConnectToAllInterfaces) {
    auto dabo = KrinDabo::create({});
    auto subscriber = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = subscriber;
    EXPECT_THROW(dabo->registerSubscriber("krin.ps://*:5555/topic", frameOf("/topic"), handler),
                 orlo::dabo::DaboException);
}

TEST_F(KrinDaboTest, HighWaterMarkPropertyThatIsNoNumberIsRefused) {
    try {
        KrinDabo::create({{"krin.runtime.highWaterMark", "lots"}});
        FAIL() << "no exception";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_STREQ(e.what(), "Property krin.runtime.highWaterMark has value 'lots', which is not an integer");
    }
}

TEST_F(KrinDaboTest, NegativeHighWaterMarkIsRefused) {
    try {
        KrinDabo::create({{"krin.runtime.highWaterMark", "-1"}});
        FAIL() << "no exception";
    } catch (const orlo::dabo::DaboException& e) {
        EXPECT_STREQ(e.what(), "Property krin.runtime.highWaterMark has value '-1', which is not a message count");
    }
}

TEST_F(KrinDaboTest, WithheldRegisteredNeverArrivesButUnregisteredDoes) {
    KrinDaboTestHooks hooks;
    hooks.registered = EventDelivery::withheld();
    auto dabo = KrinDaboTesting::create({}, hooks);
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = publisher;
    auto dealer = dabo->createDealer();
    const std::string endpoint = endpointOf(freePort());

    dabo->registerPublisher(endpoint, getSocketIdentity(*dealer), handler, {});
    dabo->unregisterPublisher(endpoint, getSocketIdentity(*dealer), handler);

    ASSERT_TRUE(publisher->waitFor(UNREGISTERED));
    EXPECT_EQ(publisher->sequence(), std::vector<KrinDaboEvent>{UNREGISTERED});
}

TEST_F(KrinDaboTest, DelayedRegisteredArrivesNoEarlierThanTheDelay) {
    KrinDaboTestHooks hooks;
    hooks.registered = EventDelivery::delayedBy(std::chrono::milliseconds(300));
    auto dabo = KrinDaboTesting::create({}, hooks);
    auto subscriber = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = subscriber;

    const auto start = std::chrono::steady_clock::now();
    dabo->registerSubscriber(uriOf(freePort(), "/late"), frameOf("/late"), handler);
    ASSERT_TRUE(subscriber->waitFor(REGISTERED));

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_NE(subscriber->socket(), nullptr);
}

TEST_F(KrinDaboTest, WithheldUnregisteredNeverArrives) {
    KrinDaboTestHooks hooks;
    hooks.unregistered = EventDelivery::withheld();
    auto dabo = KrinDaboTesting::create({}, hooks);
    auto subscriber = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = subscriber;
    dabo->registerSubscriber(uriOf(freePort(), "/kept"), frameOf("/kept"), handler);
    ASSERT_TRUE(subscriber->waitFor(REGISTERED));

    auto socket = subscriber->socket();
    dabo->unregisterSubscriber(socket, handler);
    flushByRegistering(*dabo);

    EXPECT_EQ(subscriber->sequence(), std::vector<KrinDaboEvent>{REGISTERED});
}

TEST_F(KrinDaboTest, DelayedUnregisteredArrivesNoEarlierThanTheDelay) {
    KrinDaboTestHooks hooks;
    hooks.unregistered = EventDelivery::delayedBy(std::chrono::milliseconds(300));
    auto dabo = KrinDaboTesting::create({}, hooks);
    auto publisher = std::make_shared<RecordingHandler>();
    std::weak_ptr<EventsHandler> handler = publisher;

    const auto start = std::chrono::steady_clock::now();
    dabo->unregisterPublisher(endpointOf(freePort()), "any", handler);
    ASSERT_TRUE(publisher->waitFor(UNREGISTERED));

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
}

}  // namespace
