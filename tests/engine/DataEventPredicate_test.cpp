#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

#include "EngineTestSupport.h"

using namespace orlo::dabo::ps;
using namespace orlo::dabo::ps::queue::detail;
using namespace engine_test;
using orlo::dabo::ps::queue::DataEventImpl;
using std::chrono::milliseconds;

namespace {

constexpr long kNow = 1700000000000L;

using ReadingEvent = DataEventImpl<Reading, ReadingImpl>;
using SensorEvent = DataEventImpl<Sensor, SensorImpl>;
using NoCallback = std::function<void(Subscriber<Reading>&, const DataEvent<Reading>&)>;

std::shared_ptr<DataEvent<Reading>> readingEvent(std::shared_ptr<Reading> data, InstanceEvent event,
                                                 InstanceState state = INSTANCE_ALIVE, bool valid = true) {
    return std::make_shared<ReadingEvent>(std::move(data), 1.0, valid, std::make_unique<InstanceState>(state), event,
                                          nullptr);
}

std::shared_ptr<DataEvent<Sensor>> sensorEvent(int id) {
    return std::make_shared<SensorEvent>(std::make_shared<SensorImpl>(id, 1.0), 1.0, true,
                                         std::make_unique<InstanceState>(INSTANCE_ALIVE), INSTANCE_CREATED, nullptr);
}

/// A predicate with nothing to do, so that `matches` can be asked alone.
template <typename T, typename ST>
struct MatchOnly : DataEventPredicate<T, ST> {
    PredicateOutcome matchAndProcess(const std::shared_ptr<DataEvent<T>>&) override { return NOT_MATCHED; }
};

const std::set<InstanceEvent> kAllEvents{INSTANCE_CREATED, INSTANCE_UPDATED, INSTANCE_DISPOSED};

}  // namespace

// --- matches ---

TEST(DataEventPredicateTest, OpenFilterMatchesEveryEventIncludingThoseWithoutData) {
    MatchOnly<Reading, ReadingImpl> predicate;
    DataEventFilter<Reading> open;
    EXPECT_TRUE(predicate.matches(*readingEvent(std::make_shared<ReadingImpl>(1.0), INSTANCE_CREATED), open));
    EXPECT_TRUE(predicate.matches(*readingEvent(nullptr, INSTANCE_DISPOSED, INSTANCE_NOT_ALIVE, false), open));
    EXPECT_TRUE(predicate.matches(*readingEvent(nullptr, INSTANCE_UPDATED), open));
}

TEST(DataEventPredicateTest, FilterWithAnInstanceOfAnUnkeyedTopicMatchesNothingNotEvenItsOwnSample) {
    MatchOnly<Reading, ReadingImpl> predicate;
    auto sample = std::make_shared<ReadingImpl>(1.0);
    DataEventFilter<Reading> byInstance(sample);
    EXPECT_FALSE(predicate.matches(*readingEvent(sample, INSTANCE_CREATED), byInstance));
    EXPECT_FALSE(predicate.matches(*readingEvent(sample->clone(), INSTANCE_CREATED), byInstance));
}

TEST(DataEventPredicateTest, FilterWithAnInstanceMatchesEventsOfThatKeyOnly) {
    MatchOnly<Sensor, SensorImpl> predicate;
    DataEventFilter<Sensor> byInstance(std::make_shared<SensorImpl>(1, 0.0));
    EXPECT_TRUE(predicate.matches(*sensorEvent(1), byInstance));
    EXPECT_FALSE(predicate.matches(*sensorEvent(2), byInstance));
}

TEST(DataEventPredicateTest, FilterWithAnInstanceRefusesAnEventWithoutData) {
    MatchOnly<Sensor, SensorImpl> predicate;
    DataEventFilter<Sensor> byInstance(std::make_shared<SensorImpl>(1, 0.0));
    SensorEvent empty(nullptr, 1.0, true, nullptr, INSTANCE_CREATED, nullptr);
    EXPECT_FALSE(predicate.matches(empty, byInstance));
}

TEST(DataEventPredicateTest, FilterWithAForeignInstanceIsRefusedWithTheCastText) {
    MatchOnly<Sensor, SensorImpl> predicate;
    DataEventFilter<Sensor> byInstance(std::make_shared<ForeignSensor>(1, 0.0));
    try {
        predicate.matches(*sensorEvent(1), byInstance);
        FAIL() << "no exception";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ("data type for instance or value is incorrect. Not a Dabo supported type", e.what());
    }
}

TEST(DataEventPredicateTest, FilterStateAndEventsMustBothAgree) {
    MatchOnly<Reading, ReadingImpl> predicate;
    auto data = std::make_shared<ReadingImpl>(1.0);
    DataEventFilter<Reading> aliveCreated(INSTANCE_ALIVE, {INSTANCE_CREATED});
    EXPECT_TRUE(predicate.matches(*readingEvent(data, INSTANCE_CREATED, INSTANCE_ALIVE), aliveCreated));
    EXPECT_FALSE(predicate.matches(*readingEvent(data, INSTANCE_CREATED, INSTANCE_NOT_ALIVE), aliveCreated));
    EXPECT_FALSE(predicate.matches(*readingEvent(data, INSTANCE_UPDATED, INSTANCE_ALIVE), aliveCreated));
}

TEST(DataEventPredicateTest, NoPredicateShowsAFilter) {
    std::vector<std::shared_ptr<DataEvent<Reading>>> results;
    std::atomic<unsigned long> counter(0);
    DataEventFilter<Reading> filter;
    DataEventPredicateReadEvents<Reading, ReadingImpl> reader(filter, results, 1, counter);
    auto core = ReadingCore::make();
    DataEventPredicateAsyncSubscriptionListener<Reading, ReadingImpl> listener(filter, NoCallback(), *core);
    EXPECT_EQ(nullptr, reader.getFilter());
    EXPECT_EQ(nullptr, listener.getFilter());
}

// --- read predicates ---

TEST(DataEventPredicateTest, ReadPredicateCollectsMatchesAndSaysWhenItHasEnough) {
    std::vector<std::shared_ptr<DataEvent<Reading>>> results;
    std::atomic<unsigned long> counter(0);
    DataEventFilter<Reading> created({INSTANCE_CREATED});
    DataEventPredicateReadEvents<Reading, ReadingImpl> reader(created, results, 2, counter);
    auto data = std::make_shared<ReadingImpl>(1.0);
    EXPECT_EQ(CONSUMED, reader.matchAndProcess(readingEvent(data, INSTANCE_CREATED)));
    EXPECT_EQ(NOT_MATCHED, reader.matchAndProcess(readingEvent(data, INSTANCE_UPDATED)));
    EXPECT_EQ(CONSUMED_LAST, reader.matchAndProcess(readingEvent(data, INSTANCE_CREATED)));
    EXPECT_EQ(2u, results.size());
    EXPECT_EQ(2u, counter.load());
}

TEST(DataEventPredicateTest, ReadPredicatesWithMaxCountZeroNeverHaveEnough) {
    std::vector<std::shared_ptr<DataEvent<Reading>>> results;
    std::atomic<unsigned long> counter(0);
    std::mutex waitMutex;
    std::condition_variable waitCondition;
    DataEventFilter<Reading> open;
    DataEventPredicateReadEvents<Reading, ReadingImpl> reader(open, results, 0, counter);
    DataEventPredicateReadEventsListener<Reading, ReadingImpl> listener(open, results, 0, counter, waitMutex,
                                                                        waitCondition);
    auto data = std::make_shared<ReadingImpl>(1.0);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(CONSUMED, reader.matchAndProcess(readingEvent(data, INSTANCE_CREATED)));
        EXPECT_EQ(CONSUMED, listener.matchAndProcess(readingEvent(data, INSTANCE_CREATED)));
    }
    EXPECT_EQ(10u, results.size());
}

TEST(DataEventPredicateTest, ReadListenerFinishesWhenItHasEnough) {
    std::vector<std::shared_ptr<DataEvent<Reading>>> results;
    std::atomic<unsigned long> counter(1);
    std::mutex waitMutex;
    std::condition_variable waitCondition;
    DataEventFilter<Reading> open;
    DataEventPredicateReadEventsListener<Reading, ReadingImpl> listener(open, results, 2, counter, waitMutex,
                                                                        waitCondition);
    EXPECT_EQ(CONSUMED_FINISHED, listener.matchAndProcess(readingEvent(nullptr, INSTANCE_CREATED)));
}

// --- poll predicates ---

TEST(DataEventPredicateTest, PollPredicateWithoutSubscriptionsLeavesAllEventsQueued) {
    auto core = ReadingCore::make();
    core->newData(reading(1.0), at(kNow), 1, kNow);
    core->newData(reading(2.0), at(kNow), 1, kNow);
    EXPECT_EQ(0u, core->poll(0, milliseconds(0)));
    EXPECT_EQ(2u, core->queuedCount());

    SubscriptionMap<Reading> none;
    std::atomic<unsigned long> counter(0);
    DataEventPredicatePoll<Reading, ReadingImpl> poller(0, counter, none, *core);
    EXPECT_EQ(NOT_MATCHED, poller.matchAndProcess(core->queuedEvent(0)));
}

TEST(DataEventPredicateTest, SubscriptionWhoseIdSortsFirstTakesEveryEventItMatches) {
    auto core = ReadingCore::make();
    std::vector<std::string> served;
    SubscriptionMap<Reading> subscriptions;
    auto callbackOf = [&](const std::string& name) {
        return [&served, name](Subscriber<Reading>&, const DataEvent<Reading>&) { served.push_back(name); };
    };
    subscriptions.emplace("b", SubscriptionEntry<Reading>("b", DataEventFilter<Reading>(), callbackOf("b")));
    subscriptions.emplace("a", SubscriptionEntry<Reading>("a", DataEventFilter<Reading>(), callbackOf("a")));
    std::atomic<unsigned long> counter(0);
    DataEventPredicatePoll<Reading, ReadingImpl> poller(0, counter, subscriptions, *core);
    auto data = std::make_shared<ReadingImpl>(1.0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(CONSUMED, poller.matchAndProcess(readingEvent(data, INSTANCE_CREATED)));
    }
    EXPECT_EQ((std::vector<std::string>{"a", "a", "a"}), served);
}

TEST(DataEventPredicateTest, PollCallbackFailuresAndEmptyCallbacksCountAsServed) {
    auto core = ReadingCore::make();
    SubscriptionMap<Reading> subscriptions;
    subscriptions.emplace("a", SubscriptionEntry<Reading>("a", DataEventFilter<Reading>({INSTANCE_CREATED}),
                                                          [](Subscriber<Reading>&, const DataEvent<Reading>&) {
                                                              throw std::runtime_error("host failure");
                                                          }));
    subscriptions.emplace("b", SubscriptionEntry<Reading>("b", DataEventFilter<Reading>({INSTANCE_UPDATED}),
                                                          NoCallback()));
    std::atomic<unsigned long> counter(0);
    DataEventPredicatePoll<Reading, ReadingImpl> poller(2, counter, subscriptions, *core);
    auto data = std::make_shared<ReadingImpl>(1.0);
    EXPECT_EQ(CONSUMED, poller.matchAndProcess(readingEvent(data, INSTANCE_CREATED)));
    EXPECT_EQ(CONSUMED_LAST, poller.matchAndProcess(readingEvent(data, INSTANCE_UPDATED)));
}

TEST(DataEventPredicateTest, PollListenerHandsTheEventAndCallbackToThePoller) {
    auto core = ReadingCore::make();
    int calls = 0;
    SubscriptionMap<Reading> subscriptions;
    subscriptions.emplace("a", SubscriptionEntry<Reading>("a", DataEventFilter<Reading>({INSTANCE_CREATED}),
                                                          [&](Subscriber<Reading>&, const DataEvent<Reading>&) {
                                                              ++calls;
                                                          }));
    std::atomic<unsigned long> counter(0);
    std::mutex waitMutex;
    std::condition_variable waitCondition;
    PendingCallbacks<Reading> pending;
    DataEventPredicatePollListener<Reading, ReadingImpl> listener(2, counter, subscriptions, *core, waitMutex,
                                                                  waitCondition, pending);
    auto data = std::make_shared<ReadingImpl>(1.0);
    auto event = readingEvent(data, INSTANCE_CREATED);
    EXPECT_EQ(CONSUMED, listener.matchAndProcess(event));
    EXPECT_EQ(NOT_MATCHED, listener.matchAndProcess(readingEvent(data, INSTANCE_UPDATED)));
    EXPECT_EQ(CONSUMED_FINISHED, listener.matchAndProcess(readingEvent(data, INSTANCE_CREATED)));
    EXPECT_EQ(0, calls);  // never on the delivering thread
    ASSERT_EQ(2u, pending.size());
    EXPECT_EQ(event, std::get<0>(pending.front()));
    std::get<1>(pending.front())(*core, *event);
    EXPECT_EQ(1, calls);
}

// --- asynchronous predicates ---

TEST(DataEventPredicateTest, ListenerThatThrowsIntPrintsTheLineWithoutColonAndTheSampleIsGone) {
    auto core = ReadingCore::make();
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(),
                                       [](Subscriber<Reading>&, const DataEvent<Reading>&) { throw 42; });
    CerrCapture cerr;
    core->newData(reading(1.0), at(kNow), 1, kNow);
    EXPECT_EQ("Exception occurred in listener \n", cerr.text());
    EXPECT_EQ(0u, core->queuedCount());
}

TEST(DataEventPredicateTest, ListenerThatThrowsAStandardExceptionPrintsItsText) {
    auto core = ReadingCore::make();
    auto handle = core->subscribeAsync(
        DataEventFilter<Reading>(),
        [](Subscriber<Reading>&, const DataEvent<Reading>&) { throw std::logic_error("bad listener"); });
    CerrCapture cerr;
    core->newData(reading(1.0), at(kNow), 1, kNow);
    EXPECT_EQ("Exception occured in listener: bad listener\n", cerr.text());
    EXPECT_EQ(0u, core->queuedCount());
}

TEST(DataEventPredicateTest, NotifierThatThrowsARuntimeErrorPrintsItsTextAndTheSampleStaysQueued) {
    auto core = ReadingCore::make();
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(),
                                       [](Subscriber<Reading>&) { throw std::runtime_error("bad notifier"); });
    CerrCapture cerr;
    core->newData(reading(1.0), at(kNow), 1, kNow);
    EXPECT_EQ("Exception occurred in notifier: bad notifier\n", cerr.text());
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(DataEventPredicateTest, NotifierFailureOfAnotherKindLeavesThroughNewDataAndLosesTheSample) {
    auto core = ReadingCore::make();
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(), std::function<void(Subscriber<Reading>&)>());
    EXPECT_THROW(core->newData(reading(1.0), at(kNow), 1, kNow), std::bad_function_call);
    EXPECT_EQ(0u, core->queuedCount());
    // The locks were released on the way out.
    handle->close();
    core->newData(reading(2.0), at(kNow), 1, kNow);
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(DataEventPredicateTest, NotifierIsToldOnlyOfMatchingSamplesAndNeverGetsThem) {
    auto core = ReadingCore::make();
    int told = 0;
    auto handle = core->subscribeAsync(DataEventFilter<Reading>({INSTANCE_UPDATED}),
                                       [&](Subscriber<Reading>& subscriber) {
                                           EXPECT_EQ(static_cast<Subscriber<Reading>*>(core.get()), &subscriber);
                                           ++told;
                                       });
    core->newData(reading(1.0), at(kNow), 1, kNow);  // created
    core->newData(reading(2.0), at(kNow), 1, kNow);  // updated
    EXPECT_EQ(1, told);
    EXPECT_EQ(2u, core->queuedCount());
}

// --- filterCheck ---

TEST(DataEventPredicateTest, MatchAllFilterIsAcceptedOnAnIdleSubscriber) {
    auto core = ReadingCore::make();
    EXPECT_NO_THROW(core->subscribe(DataEventFilter<Reading>(kAllEvents), NoCallback()));
}

TEST(DataEventPredicateTest, MatchAllFilterIsRefusedWhileAnyRegistrationExists) {
    auto core = ReadingCore::make();
    auto notifier = core->subscribeAsync(DataEventFilter<Reading>({INSTANCE_DISPOSED}),
                                         [](Subscriber<Reading>&) {});
    try {
        core->subscribe(DataEventFilter<Reading>(kAllEvents), NoCallback());
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ("filter intersection", e.what());
        EXPECT_EQ(nullptr, dynamic_cast<const orlo::dabo::DaboException*>(&e));
    }
    EXPECT_THROW(core->subscribeAsync(DataEventFilter<Reading>(kAllEvents), NoCallback()), std::runtime_error);
    EXPECT_EQ(0u, core->subscriptionCount());
    EXPECT_EQ(1u, core->predicateCount());
}

TEST(DataEventPredicateTest, MatchAllFilterIsRefusedWhileAReaderWaits) {
    auto core = ReadingCore::make();
    std::vector<std::shared_ptr<DataEvent<Reading>>> events;
    auto reader = std::async(std::launch::async, [&] {
        return core->readDataEvents(DataEventFilter<Reading>(), events, 1, milliseconds(10000));
    });
    core->awaitPredicates(1);
    EXPECT_THROW(core->subscribe(DataEventFilter<Reading>(kAllEvents), NoCallback()), std::runtime_error);
    core->newData(reading(1.0), at(kNow), 1, kNow);  // lets the reader go
    EXPECT_EQ(1u, reader.get());
}

TEST(DataEventPredicateTest, MatchAllFilterIsRefusedWhileAPollWaits) {
    auto core = ReadingCore::make();
    auto polling = std::async(std::launch::async, [&] { return core->poll(1, milliseconds(10000)); });
    core->awaitPredicates(1);
    EXPECT_THROW(core->subscribeAsync(DataEventFilter<Reading>(kAllEvents), NoCallback()), std::runtime_error);
    // A poll without subscriptions takes nothing; a subscription that wants
    // only disposals may join, and its sample ends the wait.
    auto handle = core->subscribe(DataEventFilter<Reading>({INSTANCE_DISPOSED}), NoCallback());
    core->newData(reading(1.0), at(kNow), 0, kNow);
    EXPECT_EQ(1u, polling.get());
}

TEST(DataEventPredicateTest, OpenFilterWithEmptySetIsRefusedOnlyByAnExistingSubscribe) {
    auto core = ReadingCore::make();
    auto notifier = core->subscribeAsync(DataEventFilter<Reading>({INSTANCE_DISPOSED}),
                                         [](Subscriber<Reading>&) {});
    auto listener = core->subscribeAsync(DataEventFilter<Reading>(), NoCallback());
    auto open = core->subscribe(DataEventFilter<Reading>(), NoCallback());
    EXPECT_THROW(core->subscribe(DataEventFilter<Reading>(), NoCallback()), std::runtime_error);
    EXPECT_THROW(core->subscribeAsync(DataEventFilter<Reading>(), NoCallback()), std::runtime_error);
}

TEST(DataEventPredicateTest, SubscribeFiltersWithDisjointEventSetsCoexist) {
    auto core = ReadingCore::make();
    auto created = core->subscribe(DataEventFilter<Reading>({INSTANCE_CREATED}), NoCallback());
    EXPECT_NO_THROW(core->subscribe(DataEventFilter<Reading>({INSTANCE_DISPOSED}), NoCallback()));
}

TEST(DataEventPredicateTest, SubscribeFilterWithAnEmptySetOverlapsEveryOther) {
    auto core = ReadingCore::make();
    auto created = core->subscribe(DataEventFilter<Reading>({INSTANCE_CREATED}), NoCallback());
    EXPECT_THROW(core->subscribe(DataEventFilter<Reading>(), NoCallback()), std::runtime_error);
}

TEST(DataEventPredicateTest, SubscribeFiltersOfDifferentStatesOrInstancesDoNotOverlap) {
    auto core = SensorCore::make();
    using SensorCallback = std::function<void(Subscriber<Sensor>&, const DataEvent<Sensor>&)>;
    auto alive = core->subscribe(DataEventFilter<Sensor>(INSTANCE_ALIVE), SensorCallback());
    EXPECT_NO_THROW(core->subscribe(DataEventFilter<Sensor>(INSTANCE_NOT_ALIVE), SensorCallback()));
    EXPECT_THROW(core->subscribe(DataEventFilter<Sensor>(INSTANCE_ANY), SensorCallback()), std::runtime_error);

    auto other = SensorCore::make();
    auto one = other->subscribe(DataEventFilter<Sensor>(std::make_shared<SensorImpl>(1, 0.0)), SensorCallback());
    EXPECT_NO_THROW(
        other->subscribe(DataEventFilter<Sensor>(std::make_shared<SensorImpl>(2, 0.0)), SensorCallback()));
    EXPECT_THROW(other->subscribe(DataEventFilter<Sensor>(std::make_shared<SensorImpl>(1, 5.0)), SensorCallback()),
                 std::runtime_error);
}
