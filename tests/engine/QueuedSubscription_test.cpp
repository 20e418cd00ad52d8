#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "EngineTestSupport.h"

using namespace orlo::dabo::ps;
using namespace orlo::dabo::ps::queue::detail;
using namespace engine_test;
using std::chrono::milliseconds;

namespace {

constexpr long kNow = 1700000000000L;

using Listener = std::function<void(Subscriber<Reading>&, const DataEvent<Reading>&)>;
using Notifier = std::function<void(Subscriber<Reading>&)>;
using ListenerPredicate = DataEventPredicateAsyncSubscriptionListener<Reading, ReadingImpl>;
using NotifierPredicate = DataEventPredicateAsyncSubscriptionNotifier<Reading, ReadingImpl>;

void deliver(ReadingCore& core, double value) { core.newData(reading(value), at(kNow), 1, kNow); }

}  // namespace

// --- backlog ---

TEST(QueuedSubscriptionTest, ListenerConsumesTheWholeMatchingBacklogBeforeSubscribeAsyncReturns) {
    auto core = ReadingCore::make();
    for (int i = 1; i <= 3; ++i) {
        deliver(*core, i);
    }
    std::vector<double> heard;
    std::thread::id listenerThread;
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(), Listener([&](Subscriber<Reading>&,
                                                                                const DataEvent<Reading>& event) {
                                           listenerThread = std::this_thread::get_id();
                                           heard.push_back(event.getData()->getValue());
                                       }));
    EXPECT_EQ((std::vector<double>{1.0, 2.0, 3.0}), heard);
    EXPECT_EQ(std::this_thread::get_id(), listenerThread);
    EXPECT_TRUE(core->read(0).empty());
}

TEST(QueuedSubscriptionTest, NotifierIsToldOnceOfAMatchingBacklogAndLeavesItQueued) {
    auto core = ReadingCore::make();
    for (int i = 1; i <= 3; ++i) {
        deliver(*core, i);
    }
    int told = 0;
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(), Notifier([&](Subscriber<Reading>&) { ++told; }));
    EXPECT_EQ(1, told);
    EXPECT_EQ(3u, core->read(0).size());
}

TEST(QueuedSubscriptionTest, NotifierMayReadFromItsBacklogCall) {
    auto core = ReadingCore::make();
    deliver(*core, 1.0);
    deliver(*core, 2.0);
    std::size_t readByNotifier = 0;
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(), Notifier([&](Subscriber<Reading>& subscriber) {
                                           readByNotifier = subscriber.read(0).size();
                                       }));
    EXPECT_EQ(2u, readByNotifier);
}

TEST(QueuedSubscriptionTest, SubscribeLeavesTheBacklogForPoll) {
    auto core = ReadingCore::make();
    deliver(*core, 1.0);
    int served = 0;
    auto handle = core->subscribe(DataEventFilter<Reading>(), [&](Subscriber<Reading>&, const DataEvent<Reading>&) {
        ++served;
    });
    EXPECT_EQ(0, served);
    EXPECT_EQ(1u, core->queuedCount());
    EXPECT_EQ(1u, core->poll(0, milliseconds(0)));
    EXPECT_EQ(1, served);
}

// --- handles ---

TEST(QueuedSubscriptionTest, ClosingAHandleTwiceErasesItsEntryOnce) {
    auto core = ReadingCore::make();
    auto created = core->subscribe(DataEventFilter<Reading>({INSTANCE_CREATED}), Listener());
    auto updated = core->subscribe(DataEventFilter<Reading>({INSTANCE_UPDATED}), Listener());
    auto notifier = core->subscribeAsync(DataEventFilter<Reading>({INSTANCE_DISPOSED}),
                                         Notifier([](Subscriber<Reading>&) {}));
    created->close();
    created->close();
    notifier->close();
    notifier->close();
    EXPECT_EQ(1u, core->subscriptionCount());
    EXPECT_EQ(0u, core->predicateCount());
}

TEST(QueuedSubscriptionTest, DestroyingAHandleWithoutClosingItErasesItsEntry) {
    auto core = ReadingCore::make();
    {
        auto sync = core->subscribe(DataEventFilter<Reading>({INSTANCE_CREATED}), Listener());
        auto async = core->subscribeAsync(DataEventFilter<Reading>({INSTANCE_UPDATED}), Listener());
        EXPECT_EQ(1u, core->subscriptionCount());
        EXPECT_EQ(1u, core->predicateCount());
    }
    EXPECT_EQ(0u, core->subscriptionCount());
    EXPECT_EQ(0u, core->predicateCount());
}

TEST(QueuedSubscriptionTest, ClosedListenerHearsNoMoreAndSamplesAreQueuedAgain) {
    auto core = ReadingCore::make();
    int heard = 0;
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(),
                                       Listener([&](Subscriber<Reading>&, const DataEvent<Reading>&) { ++heard; }));
    deliver(*core, 1.0);
    handle->close();
    deliver(*core, 2.0);
    EXPECT_EQ(1, heard);
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriptionTest, HandleKeepsTheCoreAliveAndClosesAfterTheSubscriberWasClosed) {
    std::weak_ptr<ReadingCore> watch;
    std::unique_ptr<Subscription> handle;
    {
        auto core = ReadingCore::make();
        watch = core;
        handle = core->subscribe(DataEventFilter<Reading>(), Listener());
        core->close();
    }
    auto core = watch.lock();
    ASSERT_NE(nullptr, core);
    EXPECT_EQ(1u, core->subscriptionCount());
    handle->close();
    EXPECT_EQ(0u, core->subscriptionCount());
    core.reset();
    handle.reset();
    EXPECT_TRUE(watch.expired());
}

TEST(QueuedSubscriptionTest, RegistrationRefusedByTheFilterCheckLeavesNothingBehind) {
    auto core = ReadingCore::make();
    auto first = core->subscribe(DataEventFilter<Reading>({INSTANCE_CREATED}), Listener());
    EXPECT_THROW(core->subscribe(DataEventFilter<Reading>({INSTANCE_CREATED}), Listener()), std::runtime_error);
    EXPECT_THROW(core->subscribeAsync(DataEventFilter<Reading>({INSTANCE_CREATED}), Listener()), std::runtime_error);
    EXPECT_EQ(1u, core->subscriptionCount());
    EXPECT_EQ(0u, core->predicateCount());
}

// --- order of asynchronous subscriptions ---

TEST(QueuedSubscriptionTest, NotifierSortedBeforeAListenerKeepsTheSampleFromIt) {
    auto core = ReadingCore::make();
    int told = 0;
    int heard = 0;
    core->registerPredicate("a", std::make_shared<NotifierPredicate>(
                                     DataEventFilter<Reading>(), [&](Subscriber<Reading>&) { ++told; }, *core));
    core->registerPredicate("b", std::make_shared<ListenerPredicate>(
                                     DataEventFilter<Reading>(),
                                     [&](Subscriber<Reading>&, const DataEvent<Reading>&) { ++heard; }, *core));
    deliver(*core, 1.0);
    EXPECT_EQ(1, told);
    EXPECT_EQ(0, heard);
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriptionTest, ListenerSortedBeforeANotifierConsumesTheSampleUnnoticed) {
    auto core = ReadingCore::make();
    int told = 0;
    int heard = 0;
    core->registerPredicate("b", std::make_shared<NotifierPredicate>(
                                     DataEventFilter<Reading>(), [&](Subscriber<Reading>&) { ++told; }, *core));
    core->registerPredicate("a", std::make_shared<ListenerPredicate>(
                                     DataEventFilter<Reading>(),
                                     [&](Subscriber<Reading>&, const DataEvent<Reading>&) { ++heard; }, *core));
    deliver(*core, 1.0);
    EXPECT_EQ(0, told);
    EXPECT_EQ(1, heard);
    EXPECT_EQ(0u, core->queuedCount());
}

TEST(QueuedSubscriptionTest, RandomIdsAloneDecideBetweenANotifierAndAListener) {
    auto core = ReadingCore::make();
    int told = 0;
    int heard = 0;
    auto notifier = core->subscribeAsync(DataEventFilter<Reading>(), Notifier([&](Subscriber<Reading>&) { ++told; }));
    auto listener = core->subscribeAsync(DataEventFilter<Reading>(), Listener([&](Subscriber<Reading>&,
                                                                                  const DataEvent<Reading>&) {
                                             ++heard;
                                         }));
    const bool notifierFirst = core->firstPredicateIs<NotifierPredicate>();
    deliver(*core, 1.0);
    EXPECT_EQ(notifierFirst ? 1 : 0, told);
    EXPECT_EQ(notifierFirst ? 0 : 1, heard);
    EXPECT_EQ(notifierFirst ? 1u : 0u, core->queuedCount());
}

// --- overlap rules between kinds ---

TEST(QueuedSubscriptionTest, SubscribeOverlappingAnEarlierSubscribeIsRefused) {
    auto core = ReadingCore::make();
    auto first = core->subscribe(DataEventFilter<Reading>({INSTANCE_CREATED, INSTANCE_UPDATED}), Listener());
    EXPECT_THROW(core->subscribe(DataEventFilter<Reading>({INSTANCE_UPDATED}), Listener()), std::runtime_error);
}

TEST(QueuedSubscriptionTest, SubscribeWithTheFilterOfAnAsyncSubscriptionIsAcceptedUnlessItMatchesAll) {
    auto core = ReadingCore::make();
    auto async = core->subscribeAsync(DataEventFilter<Reading>({INSTANCE_CREATED}), Listener());
    EXPECT_NO_THROW(core->subscribe(DataEventFilter<Reading>({INSTANCE_CREATED}), Listener()));

    auto other = ReadingCore::make();
    const std::set<InstanceEvent> all{INSTANCE_CREATED, INSTANCE_UPDATED, INSTANCE_DISPOSED};
    auto everything = other->subscribeAsync(DataEventFilter<Reading>(all), Listener());
    EXPECT_THROW(other->subscribe(DataEventFilter<Reading>(all), Listener()), std::runtime_error);
}

TEST(QueuedSubscriptionTest, AsyncSubscriptionsMayOverlapEachOther) {
    auto core = ReadingCore::make();
    auto listener = core->subscribeAsync(DataEventFilter<Reading>(), Listener());
    auto notifier = core->subscribeAsync(DataEventFilter<Reading>(), Notifier([](Subscriber<Reading>&) {}));
    EXPECT_NO_THROW(core->subscribeAsync(DataEventFilter<Reading>(), Listener()));
}

// --- delivery ---

TEST(QueuedSubscriptionTest, ClosingTheSubscriberDoesNotStopAListener) {
    auto core = ReadingCore::make();
    int heard = 0;
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(),
                                       Listener([&](Subscriber<Reading>&, const DataEvent<Reading>&) { ++heard; }));
    core->close();
    deliver(*core, 1.0);
    EXPECT_EQ(1, heard);
}

TEST(QueuedSubscriptionTest, NotifierOnTheDeliveringThreadWakesAReaderThatFindsTheSampleQueued) {
    auto core = ReadingCore::make();
    std::promise<std::thread::id> told;
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(), Notifier([&](Subscriber<Reading>&) {
                                           told.set_value(std::this_thread::get_id());
                                       }));
    std::thread::id deliveringThread;
    std::thread delivery([&] {
        deliveringThread = std::this_thread::get_id();
        deliver(*core, 5.0);
    });
    const std::thread::id notifierThread = told.get_future().get();
    auto samples = core->read(0);  // waits for the delivery to finish queueing
    delivery.join();
    EXPECT_EQ(deliveringThread, notifierThread);
    ASSERT_EQ(1u, samples.size());
    EXPECT_EQ(5.0, valueOf(samples[0]));
}

TEST(QueuedSubscriptionTest, ListenerReceivesTheCoreAsItsSubscriber) {
    auto core = ReadingCore::make();
    Subscriber<Reading>* given = nullptr;
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(),
                                       Listener([&](Subscriber<Reading>& subscriber, const DataEvent<Reading>&) {
                                           given = &subscriber;
                                       }));
    deliver(*core, 1.0);
    EXPECT_EQ(static_cast<Subscriber<Reading>*>(core.get()), given);
}

TEST(QueuedSubscriptionTest, EmptyListenerFailsAtItsFirstMatchAndConsumesTheSample) {
    auto core = ReadingCore::make();
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(), Listener());
    CerrCapture cerr;
    deliver(*core, 1.0);
    EXPECT_EQ("Exception occured in listener: bad_function_call\n", cerr.text());
    EXPECT_EQ(0u, core->queuedCount());
}

TEST(QueuedSubscriptionTest, NotifierFailingOnItsBacklogIsNotRegistered) {
    auto core = ReadingCore::make();
    deliver(*core, 1.0);
    EXPECT_THROW(core->subscribeAsync(DataEventFilter<Reading>(), Notifier()), std::bad_function_call);
    EXPECT_EQ(0u, core->predicateCount());
    EXPECT_EQ(1u, core->queuedCount());
}
