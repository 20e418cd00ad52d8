// Life cycle of the most-recent-value subscriber and its host-facing factory,
// against the real runtime with its fault hooks.
#include "dabo/krin/detail/ps/mrvSubscriber.h"

#include <gtest/gtest.h>

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
#include "dabo/krin/detail/ps/mrvSubscriberDelegator.h"
#include "dabo/krin/detail/ps/mrvSubscriber_impl.h"
#include "lumotypes/krin/LumotypesImpl.h"

extern "C" orlo::dabo::ps::MrvSubscriber<lumotypes::RefPos>* generated_krin_MrvSubscriber_lumotypes_RefPos(
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
using orlo::dabo::krin::detail::ps::KrinMrvSubscriber;
using orlo::dabo::krin::detail::ps::PubSubState;
using orlo::dabo::krin::detail::ps::QoSList;

using RefPosMrvSubscriber = KrinMrvSubscriber<lumotypes::RefPos, lumotypes::krin::RefPosImpl>;

class ObservedMrvSubscriber : public RefPosMrvSubscriber {
public:
    using RefPosMrvSubscriber::RefPosMrvSubscriber;
    PubSubState currentState() const { return this->state; }
    bool typeHashCheckDisabled() const { return this->disableTypeHashCheck; }
    const std::string& frame() const { return this->topicIdFrame; }
    std::uint32_t typeHash() const { return this->dataEntityTypeHash; }
};

/// Counts the runtime calls that the subscribers make.
class RuntimeCalls {
public:
    KrinDaboTestHooks observe(KrinDaboTestHooks hooks = {}) {
        hooks.callObserver = [this](const std::string& operation, bool handlerEmpty) {
            std::lock_guard<std::mutex> lock(mutex);
            calls.emplace_back(operation, handlerEmpty);
        };
        return hooks;
    }
    int count(const std::string& operation) const {
        std::lock_guard<std::mutex> lock(mutex);
        int result = 0;
        for (const auto& call : calls) {
            result += call.first == operation ? 1 : 0;
        }
        return result;
    }

private:
    mutable std::mutex mutex;
    std::vector<std::pair<std::string, bool>> calls;
};

std::string quietUri(const std::string& topicPath) { return "krin.ps://127.0.0.1:29998" + topicPath; }

template <typename Exception, typename Call>
std::string messageOf(Call call) {
    try {
        call();
    } catch (const Exception& e) {
        return e.what();
    }
    return "(nothing thrown)";
}

TEST(KrinMrvSubscriberTest, ConstructorWorksOutTheTopicIdentityAndReadsTheTypeHashProperty) {
    CaptureLog log("vexa.dabo.krin.subscriber");
    auto dabo = KrinDabo::create({});
    ObservedMrvSubscriber subscriber(quietUri("/mrv/identity"), QoSList{}, orlo::dabo::Dabo::Properties{}, dabo);
    EXPECT_EQ(subscriber.frame(), topicFrameOf("/mrv/identity"));
    EXPECT_EQ(subscriber.typeHash(), 0x67C91967u);
    EXPECT_FALSE(subscriber.typeHashCheckDisabled());
    EXPECT_EQ(subscriber.currentState(), CREATED);
    const auto hash = static_cast<std::uint32_t>(orlo::dabo::util::topicNameHash("/mrv/identity"));
    EXPECT_EQ(log.traces(), std::vector<std::string>{"KrinMrvSubscriber topicName:/mrv/identity topicIdHash:" +
                                                     std::to_string(hash) + " topicIdFrame:" +
                                                     getSubscriberId(topicFrameOf("/mrv/identity"))});
    ObservedMrvSubscriber unchecked(quietUri("/mrv/identity"), QoSList{},
                                    orlo::dabo::Dabo::Properties{{"krin.ps.disableTypeHashCheck", "true"}}, dabo);
    EXPECT_TRUE(unchecked.typeHashCheckDisabled());
}

TEST(KrinMrvSubscriberTest, InitThrowsWhenTheSocketNeverArrives) {
    KrinDaboTestHooks hooks;
    hooks.registered = EventDelivery::withheld();
    auto dabo = KrinDaboTesting::create({}, hooks);
    auto subscriber = std::make_shared<ObservedMrvSubscriber>(quietUri("/mrv/noSocket"), QoSList{},
                                                              orlo::dabo::Dabo::Properties{}, dabo);
    CaptureLog log("vexa.dabo.krin.subscriber");
    EXPECT_EQ(messageOf<DaboException>([&] { subscriber->init(); }),
              "KrinMrvSubscriber did not receive it's subscription socket");
    EXPECT_EQ(log.errors(), std::vector<std::string>{"KrinMrvSubscriber did not receive it's subscription socket"});
    EXPECT_EQ(subscriber->currentState(), CREATED);
}

TEST(KrinMrvSubscriberTest, CloseThenReadMostRecentThrowsAndASecondCloseOnlyWarns) {
    RuntimeCalls calls;
    auto dabo = KrinDaboTesting::create({}, calls.observe());
    auto subscriber = std::make_shared<ObservedMrvSubscriber>(quietUri("/mrv/closed"), QoSList{},
                                                              orlo::dabo::Dabo::Properties{}, dabo);
    subscriber->init();
    EXPECT_EQ(subscriber->currentState(), INITIALIZED);
    CaptureLog log("vexa.dabo.krin.subscriber");
    subscriber->close();
    const std::string id = getSubscriberId(topicFrameOf("/mrv/closed"));
    EXPECT_EQ(log.traces(), (std::vector<std::string>{"Closing KrinMrvSubscriber: " + id,
                                                      "Unregistering subscriber from DABO: " + id,
                                                      "UNREGISTERED event received for KrinMrvSubscriber: " + id}));
    EXPECT_EQ(subscriber->currentState(), CLOSED);
    EXPECT_EQ(messageOf<IllegalStateException>([&] { subscriber->readMostRecent(0ms); }),
              "KrinMrvSubscriber already closed");
    EXPECT_EQ(messageOf<IllegalStateException>([&] { subscriber->readMostRecent(-1ms); }),
              "KrinMrvSubscriber already closed");
    subscriber->close();
    EXPECT_EQ(log.warnings(), std::vector<std::string>{"Publisher already closed"});
    EXPECT_EQ(calls.count("unregisterSubscriber"), 1);
}

TEST(KrinMrvSubscriberTest, DroppingTheSubscriberWithoutCloseDoesNotUnregister) {
    RuntimeCalls calls;
    auto dabo = KrinDaboTesting::create({}, calls.observe());
    auto subscriber = std::make_shared<ObservedMrvSubscriber>(quietUri("/mrv/dropped"), QoSList{},
                                                              orlo::dabo::Dabo::Properties{}, dabo);
    subscriber->init();
    CaptureLog log("vexa.dabo.krin.subscriber");
    subscriber.reset();
    EXPECT_EQ(calls.count("unregisterSubscriber"), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST(KrinMrvSubscriberTest, UnknownEventDoesNothingAndAnswersTrue) {
    auto dabo = KrinDabo::create({});
    auto subscriber = std::make_shared<ObservedMrvSubscriber>(quietUri("/mrv/unknown"), QoSList{},
                                                              orlo::dabo::Dabo::Properties{}, dabo);
    CaptureLog log("vexa.dabo.krin.subscriber");
    std::shared_ptr<zmq::socket_t> noSocket;
    EXPECT_TRUE(subscriber->events(noSocket, static_cast<KrinDaboEvent>(7)));
    EXPECT_TRUE(log.lines().empty());
}

TEST(KrinMrvSubscriberTest, ReadableAfterCloseIsIgnoredWithAWarning) {
    auto dabo = KrinDabo::create({});
    auto subscriber = std::make_shared<ObservedMrvSubscriber>(quietUri("/mrv/readableClosed"), QoSList{},
                                                              orlo::dabo::Dabo::Properties{}, dabo);
    subscriber->init();
    subscriber->close();
    CaptureLog log("vexa.dabo.krin.subscriber");
    std::shared_ptr<zmq::socket_t> anySocket;
    EXPECT_TRUE(subscriber->events(anySocket, POLLER_READABLE));
    EXPECT_EQ(log.warnings(),
              std::vector<std::string>{"Read data was called in INITIALIZING or CLOSED state. Ignoring..."});
}

TEST(KrinMrvSubscriberTest, SamplesArrivingWhileCloseWaitsAreStoredAndReadableUntilCloseEnds) {
    WirePeer peer;
    // Declared before the subscriber, which shares its socket: the socket must close before its context.
    lumo::test::PeerSocket socket(peer);
    KrinDaboTestHooks hooks;
    // close waits for a confirmation that never comes: its time-out is the window.
    hooks.unregistered = EventDelivery::withheld();
    auto dabo = KrinDaboTesting::create({}, hooks);
    const std::string topicPath = "/mrv/closing";
    auto subscriber = std::make_shared<ObservedMrvSubscriber>(quietUri(topicPath), QoSList{},
                                                              orlo::dabo::Dabo::Properties{}, dabo);
    subscriber->init();

    // From here the test plays the runtime's thread, with a socket of its own that the peer feeds.
    ASSERT_TRUE(socket.joined);
    subscriber->events(socket.socket, REGISTERED);

    auto closing = std::async(std::launch::async, [subscriber] { subscriber->close(); });
    peer.send(lumo::test::goodRefPosMessage(topicPath, 31));
    ASSERT_TRUE(socket.awaitReadable());
    subscriber->events(socket.socket, POLLER_READABLE);
    ASSERT_NE(closing.wait_for(0ms), std::future_status::ready) << "close did not wait";
    const auto stored = subscriber->readMostRecent(0ms);
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored.front()->getRefPosX(), 31u);
    closing.get();
    EXPECT_EQ(subscriber->currentState(), CLOSED);
    EXPECT_THROW(subscriber->readMostRecent(0ms), IllegalStateException);
}

TEST(KrinMrvSubscriberTest, FactoryWithUriOfAnotherProfileThrowsBeforeAnyRuntimeCall) {
    EXPECT_THROW(generated_krin_MrvSubscriber_lumotypes_RefPos("http://127.0.0.1:29998/mrv/foreign", QoSList{},
                                                               orlo::dabo::Dabo::Properties{}, nullptr),
                 DaboException);
}

TEST(KrinMrvSubscriberTest, FactoryReturnsASubscriberWhoseDelegatorForwardsReadsAndClose) {
    WirePeer peer;
    RuntimeCalls calls;
    auto dabo = KrinDaboTesting::create({}, calls.observe());
    const std::string topicPath = "/mrv/factory";
    std::unique_ptr<orlo::dabo::ps::MrvSubscriber<lumotypes::RefPos>> subscriber(
        generated_krin_MrvSubscriber_lumotypes_RefPos(peer.uri(topicPath), QoSList{}, orlo::dabo::Dabo::Properties{},
                                                      dabo));
    auto message = [&](std::uint32_t marker) { return lumo::test::goodRefPosMessage(topicPath, marker); };
    auto markerOf = [](const lumotypes::RefPos& sample) { return sample.getRefPosX(); };
    ASSERT_TRUE(lumo::test::awaitMrvSubscription<lumotypes::RefPos>(peer, *subscriber, message, markerOf));
    peer.send(message(42));
    ASSERT_NE(lumo::test::readStoreUntil<lumotypes::RefPos>(
                  *subscriber, [](const lumotypes::RefPos& sample) { return sample.getRefPosX() == 42; }),
              nullptr);
    // A read removes nothing.
    const auto first = subscriber->readMostRecent(0ms);
    EXPECT_EQ(subscriber->readMostRecent(0ms), first);
    subscriber->close();
    EXPECT_EQ(calls.count("unregisterSubscriber"), 1);
    EXPECT_THROW(subscriber->readMostRecent(0ms), IllegalStateException);
}

TEST(KrinMrvSubscriberTest, DeletingTheDelegatorWithoutCloseLeavesTheSubscriptionRegistered) {
    RuntimeCalls calls;
    auto dabo = KrinDaboTesting::create({}, calls.observe());
    auto* subscriber = generated_krin_MrvSubscriber_lumotypes_RefPos(quietUri("/mrv/deleted"), QoSList{},
                                                                     orlo::dabo::Dabo::Properties{}, dabo);
    delete subscriber;
    EXPECT_EQ(calls.count("unregisterSubscriber"), 0);
}

}  // namespace
