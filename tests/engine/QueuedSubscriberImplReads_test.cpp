#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "EngineTestSupport.h"

using namespace orlo::dabo::ps;
using namespace engine_test;
using orlo::dabo::DaboException;
using orlo::dabo::IllegalStateException;
using std::chrono::milliseconds;

namespace {

constexpr long kNow = 1700000000000L;

using Events = std::vector<std::shared_ptr<DataEvent<Reading>>>;
using Callback = std::function<void(Subscriber<Reading>&, const DataEvent<Reading>&)>;

/// A latch for the tests' own threads.
class Gate {
public:
    void open() {
        std::lock_guard<std::mutex> lock(mutex);
        opened = true;
        condition.notify_all();
    }
    void await() {
        std::unique_lock<std::mutex> lock(mutex);
        condition.wait(lock, [this] { return opened; });
    }

private:
    std::mutex mutex;
    std::condition_variable condition;
    bool opened = false;
};

void deliver(ReadingCore& core, double value, long writerGeneration = 1) {
    core.newData(reading(value), at(kNow), writerGeneration, kNow);
}

void deliverInvalid(ReadingCore& core) { core.newData(nullptr, at(kNow), 1, kNow); }

template <typename Exception, typename Call>
std::string messageOf(Call call) {
    try {
        call();
    } catch (const Exception& e) {
        return e.what();
    }
    return "no exception";
}

}  // namespace

// --- read ---

TEST(QueuedSubscriberImplReadsTest, ReadZeroOnAnEmptyQueueReturnsNothing) {
    auto core = ReadingCore::make();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(core->read(0).empty());
    // At once: a read never waits.
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(1000));
}

TEST(QueuedSubscriberImplReadsTest, ReadZeroReturnsEverySampleInOrderOfArrival) {
    auto core = ReadingCore::make();
    for (int i = 1; i <= 5; ++i) {
        deliver(*core, i);
    }
    auto samples = core->read(0);
    ASSERT_EQ(5u, samples.size());
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(i + 1.0, valueOf(samples[static_cast<std::size_t>(i)]));
    }
    EXPECT_EQ(0u, core->queuedCount());
}

TEST(QueuedSubscriberImplReadsTest, ReadSkipsAndDiscardsEventsWithoutValidData) {
    auto core = ReadingCore::make();
    deliverInvalid(*core);
    deliver(*core, 1.0);
    deliverInvalid(*core);
    deliver(*core, 2.0);
    deliver(*core, 3.0);
    auto samples = core->read(2);
    ASSERT_EQ(2u, samples.size());
    EXPECT_EQ(1.0, valueOf(samples[0]));
    EXPECT_EQ(2.0, valueOf(samples[1]));
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriberImplReadsTest, ReadOfOnlyInvalidEventsEmptiesTheQueueAndReturnsNothing) {
    auto core = ReadingCore::make();
    deliverInvalid(*core);
    deliverInvalid(*core);
    EXPECT_TRUE(core->read(5).empty());
    EXPECT_EQ(0u, core->queuedCount());
}

TEST(QueuedSubscriberImplReadsTest, ReadHandsOutTheDeliveredObjectItself) {
    auto core = ReadingCore::make();
    auto sample = reading(1.0);
    Reading* delivered = sample.get();
    core->newData(std::move(sample), at(kNow), 1, kNow);
    EXPECT_EQ(delivered, core->read(1).front().get());
}

// --- readInstance ---

TEST(QueuedSubscriberImplReadsTest, ReadInstanceOfAnUnkeyedTopicFindsNothingAndLeavesTheQueue) {
    auto core = ReadingCore::make();
    deliver(*core, 1.0);
    EXPECT_EQ(nullptr, core->readInstance(ReadingImpl(1.0)));
    ReadingImpl value;
    EXPECT_FALSE(core->readInstance(ReadingImpl(1.0), value));
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriberImplReadsTest, ReadInstanceRefusesAForeignInstance) {
    auto core = SensorCore::make();
    EXPECT_EQ("data type for instance or value is incorrect. Not a Dabo supported type",
              messageOf<IllegalStateException>([&] { core->readInstance(ForeignSensor(1, 0.0)); }));
    SensorImpl value;
    EXPECT_EQ("data type for instance or value is incorrect. Not a Dabo supported type",
              messageOf<IllegalStateException>([&] { core->readInstance(ForeignSensor(1, 0.0), value); }));
}

TEST(QueuedSubscriberImplReadsTest, ReadInstanceIntoAForeignValueThrowsOnlyWhenASampleWasFound) {
    auto core = SensorCore::make();
    ForeignSensor value(0, 0.0);
    EXPECT_FALSE(core->readInstance(SensorImpl(1, 0.0), value));

    core->newData(sensor(1, 2.0), at(kNow), 1, kNow);
    EXPECT_EQ("data type for instance or value is incorrect. Not a DDS supported type",
              messageOf<IllegalStateException>([&] { core->readInstance(SensorImpl(1, 0.0), value); }));
    // The sample had already left the queue and is lost.
    EXPECT_EQ(0u, core->queuedCount());
    EXPECT_EQ(0.0, value.getValue());
}

// --- readDataEvents ---

TEST(QueuedSubscriberImplReadsTest, ReadDataEventsWithoutWaitAndWithoutMatchLeavesTheQueueAlone) {
    auto core = ReadingCore::make();
    deliver(*core, 1.0);
    Events events;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0u, core->readDataEvents(DataEventFilter<Reading>({INSTANCE_DISPOSED}), events, 0, milliseconds(0)));
    // At once: a time-out of 0 does not wait for a match.
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(1000));
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(1u, core->queuedCount());
    EXPECT_EQ(0u, core->predicateCount());
}

TEST(QueuedSubscriberImplReadsTest, ReadDataEventsTakesMatchesOfAnyValidityAndLeavesTheRest) {
    auto core = ReadingCore::make();
    deliver(*core, 1.0);        // created
    deliverInvalid(*core);      // updated, no data
    deliver(*core, 2.0, 0);     // disposed
    deliver(*core, 3.0);        // updated
    Events events;
    EXPECT_EQ(2u, core->readDataEvents(DataEventFilter<Reading>({INSTANCE_UPDATED}), events, 0, milliseconds(0)));
    ASSERT_EQ(2u, events.size());
    EXPECT_FALSE(events[0]->hasValidData());
    EXPECT_EQ(3.0, events[1]->getData()->getValue());
    EXPECT_EQ(2u, core->queuedCount());
}

TEST(QueuedSubscriberImplReadsTest, ReadDataEventsStopsAtMaxEvents) {
    auto core = ReadingCore::make();
    for (int i = 1; i <= 4; ++i) {
        deliver(*core, i);
    }
    Events events;
    EXPECT_EQ(3u, core->readDataEvents(DataEventFilter<Reading>(), events, 3, milliseconds(60000)));
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriberImplReadsTest, ReadDataEventsKeepsWhatTheVectorHeldAndCountsOnlyNewEvents) {
    auto core = ReadingCore::make();
    deliver(*core, 1.0);
    Events events;
    core->readDataEvents(DataEventFilter<Reading>(), events, 0, milliseconds(0));
    deliver(*core, 2.0);
    deliver(*core, 3.0);
    EXPECT_EQ(2u, core->readDataEvents(DataEventFilter<Reading>(), events, 0, milliseconds(0)));
    ASSERT_EQ(3u, events.size());
    EXPECT_EQ(1.0, events[0]->getData()->getValue());
}

TEST(QueuedSubscriberImplReadsTest, ReadDataEventsWaitsForTheMissingMatchAndTakesItStraightFromDelivery) {
    auto core = ReadingCore::make();
    deliver(*core, 1.0);
    deliver(*core, 2.0);
    Events events;
    auto reader = std::async(std::launch::async, [&] {
        return core->readDataEvents(DataEventFilter<Reading>(), events, 3, milliseconds(10000));
    });
    core->awaitPredicates(1);
    std::thread delivery([&] { deliver(*core, 3.0); });
    delivery.join();
    EXPECT_EQ(0u, core->queuedCount());  // never queued
    EXPECT_EQ(0u, core->predicateCount());  // gone as soon as it had enough

    EXPECT_EQ(3u, reader.get());
    ASSERT_EQ(3u, events.size());
    EXPECT_EQ(3.0, events[2]->getData()->getValue());
}

TEST(QueuedSubscriberImplReadsTest, ReadDataEventsEndsAtItsTimeoutWithWhatItHas) {
    auto core = ReadingCore::make();
    deliver(*core, 1.0);
    Events events;
    EXPECT_EQ(1u, core->readDataEvents(DataEventFilter<Reading>(), events, 3, milliseconds(20)));
    EXPECT_EQ(0u, core->predicateCount());
    // Later samples are queued again.
    deliver(*core, 2.0);
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriberImplReadsTest, WaitingReaderLetsSamplesItDoesNotWantIntoTheQueue) {
    auto core = ReadingCore::make();
    Events events;
    auto reader = std::async(std::launch::async, [&] {
        return core->readDataEvents(DataEventFilter<Reading>({INSTANCE_DISPOSED}), events, 1, milliseconds(10000));
    });
    core->awaitPredicates(1);
    std::thread delivery([&] {
        deliver(*core, 1.0);
        deliver(*core, 2.0, 0);
    });
    delivery.join();
    EXPECT_EQ(1u, reader.get());
    EXPECT_EQ(INSTANCE_DISPOSED, events.front()->getInstanceEvent());
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriberImplReadsTest, CompetingReadersEachReceiveADifferentSample) {
    auto core = ReadingCore::make();
    Events first;
    Events second;
    auto readerOne = std::async(std::launch::async, [&] {
        return core->readDataEvents(DataEventFilter<Reading>(), first, 1, milliseconds(10000));
    });
    auto readerTwo = std::async(std::launch::async, [&] {
        return core->readDataEvents(DataEventFilter<Reading>(), second, 1, milliseconds(10000));
    });
    core->awaitPredicates(2);
    std::thread delivery([&] {
        deliver(*core, 1.0);
        deliver(*core, 2.0);
    });
    delivery.join();
    EXPECT_EQ(1u, readerOne.get());
    EXPECT_EQ(1u, readerTwo.get());
    EXPECT_EQ(3.0, first.front()->getData()->getValue() + second.front()->getData()->getValue());
    EXPECT_EQ(0u, core->queuedCount());
}

TEST(QueuedSubscriberImplReadsTest, NegativeTimeoutsAreRefusedBeforeAnythingIsSwept) {
    const long now = orlo::dabo::util::currentTimeMillis();
    auto core = ReadingCore::make({std::make_shared<orlo::dabo::ps::qos::Deadline>(1)});
    core->newData(reading(1.0), at(now), 1, now);
    Events events;
    EXPECT_EQ("negative timeout given to readDataEvents", messageOf<DaboException>([&] {
                  core->readDataEvents(DataEventFilter<Reading>(), events, 0, milliseconds(-1));
              }));
    EXPECT_EQ("negative timeout given to poll", messageOf<DaboException>([&] { core->poll(0, milliseconds(-1)); }));
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriberImplReadsTest, ClosedIsReportedBeforeANegativeTimeout) {
    auto core = ReadingCore::make();
    core->close();
    Events events;
    EXPECT_EQ("Subscriber already closed", messageOf<IllegalStateException>([&] {
                  core->readDataEvents(DataEventFilter<Reading>(), events, 0, milliseconds(-1));
              }));
    EXPECT_EQ("Subscriber already closed",
              messageOf<IllegalStateException>([&] { core->poll(0, milliseconds(-1)); }));
}

TEST(QueuedSubscriberImplReadsTest, HugeTimeoutIsNeverConvertedWhenTheResultIsCompleteAtOnce) {
    // Near its largest value a timeout would overflow on its way to the
    // clock's units; a read that needs no wait never converts it.
    auto core = ReadingCore::make();
    deliver(*core, 1.0);
    Events events;
    EXPECT_EQ(1u, core->readDataEvents(DataEventFilter<Reading>(), events, 1, milliseconds::max()));
    deliver(*core, 2.0);
    auto handle = core->subscribe(DataEventFilter<Reading>(), [](Subscriber<Reading>&, const DataEvent<Reading>&) {});
    EXPECT_EQ(1u, core->poll(1, milliseconds::max() / 2));
}

// --- poll ---

TEST(QueuedSubscriberImplReadsTest, PollWithAMatchQueuedReturnsOneWithoutWaiting) {
    auto core = ReadingCore::make();
    std::thread::id callbackThread;
    auto handle = core->subscribe(DataEventFilter<Reading>(), [&](Subscriber<Reading>&, const DataEvent<Reading>&) {
        callbackThread = std::this_thread::get_id();
    });
    deliver(*core, 1.0);
    deliver(*core, 2.0);
    // Had it waited, a poll of ten minutes would not be back yet.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(1u, core->poll(1, milliseconds(600000)));
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(1000));
    EXPECT_EQ(std::this_thread::get_id(), callbackThread);
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriberImplReadsTest, PollWithoutSubscriptionsTakesNothingAndReturnsZeroAtItsTimeout) {
    auto core = ReadingCore::make();
    deliver(*core, 1.0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0u, core->poll(0, milliseconds(100)));
    const auto waited = std::chrono::steady_clock::now() - start;
    // The whole time-out, although nothing could ever be served. Its end is
    // counted in whole milliseconds of the wall clock, so it may come up to
    // one millisecond before 100 of the steady clock have passed.
    EXPECT_GE(waited, milliseconds(99));
    EXPECT_LT(waited, milliseconds(5000));
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriberImplReadsTest, PollWithoutLimitServesEverythingThatArrivesUntilItsTimeout) {
    auto core = ReadingCore::make();
    std::atomic<int> callbacks(0);
    std::atomic<bool> offThread(false);
    const auto pollingThread = std::this_thread::get_id();
    auto handle = core->subscribe(DataEventFilter<Reading>(), [&](Subscriber<Reading>& subscriber,
                                                                 const DataEvent<Reading>&) {
        EXPECT_EQ(static_cast<Subscriber<Reading>*>(core.get()), &subscriber);
        offThread = offThread || std::this_thread::get_id() != pollingThread;
        ++callbacks;
    });
    deliver(*core, 1.0);
    deliver(*core, 2.0);
    std::thread delivery([&] {
        core->awaitPredicates(1);
        for (int i = 3; i <= 5; ++i) {
            deliver(*core, i);
        }
    });
    const auto start = std::chrono::steady_clock::now();
    const unsigned long served = core->poll(0, milliseconds(300));
    const auto polled = std::chrono::steady_clock::now() - start;
    delivery.join();
    // Without a limit it serves for its whole time-out, whatever arrives. Its
    // end is counted in whole milliseconds of the wall clock, so it may come
    // up to one millisecond before 300 of the steady clock have passed.
    EXPECT_GE(polled, milliseconds(299));
    EXPECT_LT(polled, milliseconds(5000));
    EXPECT_EQ(static_cast<unsigned long>(callbacks.load()), served);
    EXPECT_FALSE(offThread.load());
    // What came after the poll ended (on a very slow machine) is queued.
    EXPECT_EQ(5u, served + core->queuedCount());
    EXPECT_GE(served, 2u);
}

TEST(QueuedSubscriberImplReadsTest, PollReceivesASampleThatArrivesDuringItsWait) {
    auto core = ReadingCore::make();
    std::vector<double> served;
    auto handle = core->subscribe(DataEventFilter<Reading>(), [&](Subscriber<Reading>&,
                                                                 const DataEvent<Reading>& event) {
        served.push_back(event.getData()->getValue());
    });
    std::thread delivery([&] {
        core->awaitPredicates(1);
        deliver(*core, 7.0);
    });
    EXPECT_EQ(1u, core->poll(1, milliseconds(10000)));
    delivery.join();
    EXPECT_EQ(std::vector<double>{7.0}, served);
    EXPECT_EQ(0u, core->predicateCount());
}

TEST(QueuedSubscriberImplReadsTest, PollCallbackMayReadTheSubscriberWhileServingNewSamples) {
    auto core = ReadingCore::make();
    std::size_t readInsideCallback = 99;
    auto handle = core->subscribe(DataEventFilter<Reading>({INSTANCE_DISPOSED}),
                                  [&](Subscriber<Reading>& subscriber, const DataEvent<Reading>&) {
                                      readInsideCallback = subscriber.read(0).size();
                                  });
    std::thread delivery([&] {
        core->awaitPredicates(1);
        deliver(*core, 1.0);
        deliver(*core, 2.0, 0);
    });
    EXPECT_EQ(1u, core->poll(1, milliseconds(10000)));
    delivery.join();
    EXPECT_EQ(1u, readInsideCallback);
}

TEST(QueuedSubscriberImplReadsTest, PollCallbackThatThrowsCountsAsServed) {
    auto core = ReadingCore::make();
    auto handle = core->subscribe(DataEventFilter<Reading>(), [](Subscriber<Reading>&, const DataEvent<Reading>&) {
        throw std::runtime_error("host failure");
    });
    deliver(*core, 1.0);
    EXPECT_EQ(1u, core->poll(0, milliseconds(0)));
    std::thread delivery([&] {
        core->awaitPredicates(1);
        deliver(*core, 2.0);
    });
    EXPECT_EQ(1u, core->poll(1, milliseconds(10000)));
    delivery.join();
    EXPECT_EQ(0u, core->queuedCount());
}

TEST(QueuedSubscriberImplReadsTest, EmptyPollCallbackCountsAsServed) {
    auto core = ReadingCore::make();
    auto handle = core->subscribe(DataEventFilter<Reading>(), Callback());
    deliver(*core, 1.0);
    EXPECT_EQ(1u, core->poll(0, milliseconds(0)));
}

TEST(QueuedSubscriberImplReadsTest, PollThatTimesOutDropsTheEventsStillPendingInsteadOfQueueingThem) {
    auto core = ReadingCore::make();
    Gate moreDelivered;
    long pollEnd = 0;
    int callbacks = 0;
    auto handle = core->subscribe(DataEventFilter<Reading>(), [&](Subscriber<Reading>&, const DataEvent<Reading>&) {
        ++callbacks;
        moreDelivered.await();
        // The timeout running out is the subject here: outlast it.
        while (orlo::dabo::util::currentTimeMillis() <= pollEnd) {
            std::this_thread::sleep_for(milliseconds(5));
        }
    });
    std::thread delivery([&] {
        core->awaitPredicates(1);
        deliver(*core, 1.0);  // its callback runs in the poll and holds it up
        deliver(*core, 2.0);  // taken while the poll is busy
        deliver(*core, 3.0);
        moreDelivered.open();
    });
    pollEnd = orlo::dabo::util::currentTimeMillis() + 200;
    const unsigned long served = core->poll(0, milliseconds(100));
    delivery.join();
    EXPECT_EQ(1u, served);
    EXPECT_EQ(1, callbacks);
    EXPECT_EQ(0u, core->queuedCount());
    EXPECT_TRUE(core->read(0).empty());
}

// --- sweep on reads ---

TEST(QueuedSubscriberImplReadsTest, EveryReadSweepsEventsOlderThanTheDeadline) {
    auto core = ReadingCore::make({std::make_shared<orlo::dabo::ps::qos::Deadline>(1000)});
    const long now = orlo::dabo::util::currentTimeMillis();
    // Young enough on arrival, long expired by the time anyone reads.
    core->newData(reading(1.0), at(now - 600000), 1, now - 600000);
    core->newData(reading(2.0), at(now - 600000), 1, now - 600000);
    ASSERT_EQ(2u, core->queuedCount());
    Events events;
    EXPECT_EQ(0u, core->readDataEvents(DataEventFilter<Reading>(), events, 0, milliseconds(0)));
    EXPECT_EQ(0u, core->queuedCount());
}
