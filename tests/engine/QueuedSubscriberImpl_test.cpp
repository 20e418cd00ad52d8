#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "EngineTestSupport.h"

using namespace orlo::dabo::ps;
using namespace engine_test;
using orlo::dabo::IllegalStateException;
using orlo::dabo::ps::qos::Deadline;
using orlo::dabo::ps::qos::Latency;
using orlo::dabo::ps::qos::QoS;
using std::chrono::milliseconds;

namespace {

constexpr long kNow = 1700000000000L;

QosList qosOf(long latencyMs, long deadlineMs) {
    return {std::make_shared<Latency>(latencyMs), std::make_shared<Deadline>(deadlineMs)};
}

std::vector<std::shared_ptr<DataEvent<Reading>>> takeAll(ReadingCore& core) {
    std::vector<std::shared_ptr<DataEvent<Reading>>> taken;
    core.readDataEvents(DataEventFilter<Reading>(), taken, 0, milliseconds(0));
    return taken;
}

}  // namespace

// --- quality of service ---

TEST(QueuedSubscriberImplTest, SubscriberWithoutQosNeverDropsOrSweepsBySampleAge) {
    auto core = ReadingCore::make();
    EXPECT_EQ(0, core->latencyMs());
    EXPECT_EQ(0, core->deadlineMs());
    core->newData(reading(1.0), at(1000), 1, kNow);  // a sample from 1970
    core->newData(reading(2.0), at(2000), 1, kNow);
    auto samples = core->read(0);
    ASSERT_EQ(2u, samples.size());
    EXPECT_EQ(1.0, valueOf(samples[0]));
}

TEST(QueuedSubscriberImplTest, LatencyKeepsSampleExactlyAtTheLimitAndDropsOneMillisecondOlder) {
    auto core = ReadingCore::make({std::make_shared<Latency>(100)});
    core->newData(reading(1.0), at(kNow - 100), 1, kNow);
    EXPECT_EQ(1u, core->queuedCount());
    core->newData(reading(2.0), at(kNow - 101), 1, kNow);
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriberImplTest, DeadlineKeepsSampleExactlyAtTheLimitAndDropsOneMillisecondOlder) {
    auto core = ReadingCore::make({std::make_shared<Deadline>(100)});
    core->newData(reading(1.0), at(kNow - 100), 1, kNow);
    EXPECT_EQ(1u, core->queuedCount());
    core->newData(reading(2.0), at(kNow - 101), 1, kNow);
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriberImplTest, ZeroLatencyWithDeadlineRecordsNoExpiryButStillChecksAgeAndSweeps) {
    auto core = ReadingCore::make(qosOf(0, 50));
    EXPECT_EQ(0, core->windowMs());

    core->newData(reading(1.0), at(kNow), 1, kNow);
    EXPECT_EQ(0, core->subscriberExpiry());
    core->newData(reading(2.0), at(kNow - 51), 1, kNow);  // too old on arrival
    EXPECT_EQ(1u, core->queuedCount());

    // Arriving 51 ms later, the next sample sweeps the first one away.
    core->newData(reading(3.0), at(kNow + 51), 1, kNow + 51);
    EXPECT_EQ(1u, core->queuedCount());
    EXPECT_EQ(3.0, core->queuedEvent(0)->getData()->getValue());
    EXPECT_EQ(0, core->subscriberExpiry());
}

TEST(QueuedSubscriberImplTest, LatencyAndDeadlineTogetherRecordTheExpiryOfTheNextSample) {
    auto core = ReadingCore::make(qosOf(10, 50));
    EXPECT_EQ(60, core->windowMs());
    core->newData(reading(1.0), at(kNow), 1, kNow);
    EXPECT_EQ(kNow + 60, core->subscriberExpiry());
}

TEST(QueuedSubscriberImplTest, LaterLatencyEntryWinsOverEarlierOne) {
    auto core = ReadingCore::make({std::make_shared<Latency>(10), std::make_shared<Latency>(300)});
    EXPECT_EQ(300, core->latencyMs());
    core->newData(reading(1.0), at(kNow - 200), 1, kNow);
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriberImplTest, NullAndUnknownQosEntriesAreIgnored) {
    struct OtherQos : QoS {};
    auto core = ReadingCore::make({nullptr, std::make_shared<OtherQos>(), std::make_shared<Deadline>(40)});
    EXPECT_EQ(0, core->latencyMs());
    EXPECT_EQ(40, core->deadlineMs());
}

// --- instance events of unkeyed samples ---

TEST(QueuedSubscriberImplTest, FirstSampleIsCreatedAndLaterOnesAreUpdated) {
    auto core = ReadingCore::make();
    core->newData(reading(1.0), at(kNow), 1, kNow);
    core->newData(reading(2.0), at(kNow), 1, kNow);
    auto events = takeAll(*core);
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ(INSTANCE_CREATED, events[0]->getInstanceEvent());
    EXPECT_EQ(INSTANCE_UPDATED, events[1]->getInstanceEvent());
    EXPECT_EQ(INSTANCE_ALIVE, events[1]->getInstanceState());
}

TEST(QueuedSubscriberImplTest, SampleDroppedByLatencyStillMakesTheNextOneUpdated) {
    auto core = ReadingCore::make({std::make_shared<Latency>(100)});
    core->newData(reading(1.0), at(kNow - 500), 1, kNow);
    EXPECT_EQ(0u, core->queuedCount());
    EXPECT_EQ(kNow - 500, core->lastSourceTime());
    core->newData(reading(2.0), at(kNow), 1, kNow);
    EXPECT_EQ(INSTANCE_UPDATED, core->queuedEvent(0)->getInstanceEvent());
}

TEST(QueuedSubscriberImplTest, SampleStampedZeroMakesTheNextOneCreatedAgain) {
    auto core = ReadingCore::make();
    core->newData(reading(1.0), 0.0, 1, kNow);
    EXPECT_EQ(0, core->lastSourceTime());
    core->newData(reading(2.0), at(kNow), 1, kNow);
    EXPECT_EQ(INSTANCE_CREATED, core->queuedEvent(0)->getInstanceEvent());
    EXPECT_EQ(INSTANCE_CREATED, core->queuedEvent(1)->getInstanceEvent());
}

TEST(QueuedSubscriberImplTest, SampleWithoutWriterIsQueuedAsDisposedAndNotAlive) {
    auto core = ReadingCore::make();
    core->newData(reading(1.0), at(kNow), 0, kNow);
    auto event = core->queuedEvent(0);
    EXPECT_EQ(INSTANCE_DISPOSED, event->getInstanceEvent());
    EXPECT_EQ(INSTANCE_NOT_ALIVE, event->getInstanceState());
    EXPECT_TRUE(event->hasValidData());
}

TEST(QueuedSubscriberImplTest, NullSampleFromAWriterIsQueuedWithoutTimeChecksOrValidData) {
    auto core = ReadingCore::make({std::make_shared<Latency>(10)});
    core->newData(nullptr, at(kNow - 1000), 1, kNow);
    ASSERT_EQ(1u, core->queuedCount());
    EXPECT_FALSE(core->queuedEvent(0)->hasValidData());
    EXPECT_EQ(0, core->lastSourceTime());
}

// --- disposal of everything ---

TEST(QueuedSubscriberImplTest, DisposalOfEverythingOnAnIdleSubscriberQueuesNothing) {
    auto core = ReadingCore::make();
    core->newData(nullptr, 0.0, 0, kNow);
    EXPECT_EQ(0u, core->queuedCount());
}

TEST(QueuedSubscriberImplTest, DisposalOfEverythingAfterUnkeyedSamplesQueuesOneKeylessEvent) {
    auto core = ReadingCore::make();
    core->newData(reading(1.0), at(kNow), 1, kNow);
    core->newData(nullptr, 0.0, 0, kNow);
    ASSERT_EQ(2u, core->queuedCount());
    auto disposal = core->queuedEvent(1);
    EXPECT_EQ(INSTANCE_DISPOSED, disposal->getInstanceEvent());
    EXPECT_EQ(INSTANCE_NOT_ALIVE, disposal->getInstanceState());
    EXPECT_EQ(nullptr, disposal->getData());
    EXPECT_EQ(0.0, disposal->getSourceTimestamp());
    EXPECT_EQ(0, core->lastSourceTime());

    // The writer is forgotten: the next sample starts over.
    core->newData(reading(2.0), at(kNow), 1, kNow);
    EXPECT_EQ(INSTANCE_CREATED, core->queuedEvent(2)->getInstanceEvent());
}

TEST(QueuedSubscriberImplTest, DisposalEventIsSweptUnreadAndBlocksNothingBehindIt) {
    // Real time here, since reads sweep against the clock; a minute of
    // deadline keeps the samples themselves young throughout.
    const long now = orlo::dabo::util::currentTimeMillis();
    auto core = ReadingCore::make({std::make_shared<Deadline>(60000)});
    core->newData(reading(1.0), at(now), 1, now);
    core->newData(nullptr, 0.0, 0, now);  // stamped 0.0, but behind a young sample
    core->newData(reading(3.0), at(now), 1, now);
    ASSERT_EQ(3u, core->queuedCount());

    auto first = core->read(1);
    ASSERT_EQ(1u, first.size());
    EXPECT_EQ(1.0, valueOf(first[0]));

    // Now first in line, the disposal goes with the next sweep, unread, and
    // the sample behind it is served.
    std::vector<std::shared_ptr<DataEvent<Reading>>> rest;
    core->readDataEvents(DataEventFilter<Reading>(), rest, 0, milliseconds(0));
    ASSERT_EQ(1u, rest.size());
    EXPECT_EQ(3.0, rest[0]->getData()->getValue());
    EXPECT_EQ(0u, core->queuedCount());
}

// --- overflow ---

TEST(QueuedSubscriberImplTest, FullQueueLosesTheNewestSampleAndKeepsTheOldest) {
    auto core = ReadingCore::make();
    core->limitQueue(2);
    core->newData(reading(1.0), at(kNow), 1, kNow);
    core->newData(reading(2.0), at(kNow), 1, kNow);
    core->newData(reading(3.0), at(kNow), 1, kNow);
    EXPECT_EQ(2u, core->queuedCount());
    auto samples = core->read(0);
    ASSERT_EQ(2u, samples.size());
    EXPECT_EQ(1.0, valueOf(samples[0]));
    EXPECT_EQ(2.0, valueOf(samples[1]));
    // The lost sample was never queued: nothing is left behind.
    EXPECT_EQ(0u, core->queuedCount());
    EXPECT_TRUE(core->read(0).empty());
}

TEST(QueuedSubscriberImplTest, ListenerStillReceivesSamplesThatAFullQueueWouldLose) {
    auto core = ReadingCore::make();
    core->limitQueue(0);
    int heard = 0;
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(),
                                       [&](Subscriber<Reading>&, const DataEvent<Reading>&) { ++heard; });
    core->newData(reading(1.0), at(kNow), 1, kNow);
    EXPECT_EQ(1, heard);
    EXPECT_EQ(0u, core->queuedCount());
    core->newData(reading(2.0), at(kNow), 1, kNow);
    EXPECT_EQ(2, heard);
    EXPECT_EQ(0u, core->queuedCount());
}

// --- listeners ---

TEST(QueuedSubscriberImplTest, SampleConsumedByAListenerIsNeitherQueuedNorRead) {
    auto core = ReadingCore::make();
    std::vector<double> heard;
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(),
                                       [&](Subscriber<Reading>&, const DataEvent<Reading>& event) {
                                           heard.push_back(event.getData()->getValue());
                                       });
    core->newData(reading(1.0), at(kNow), 1, kNow);
    EXPECT_EQ(std::vector<double>{1.0}, heard);
    EXPECT_EQ(0u, core->queuedCount());
    EXPECT_TRUE(core->read(0).empty());
}

TEST(QueuedSubscriberImplTest, ListenerRunsOnTheDeliveringThread) {
    auto core = ReadingCore::make();
    std::thread::id listenerThread;
    auto handle = core->subscribeAsync(DataEventFilter<Reading>(),
                                       [&](Subscriber<Reading>&, const DataEvent<Reading>&) {
                                           listenerThread = std::this_thread::get_id();
                                       });
    std::thread::id deliveringThread;
    std::thread delivery([&] {
        deliveringThread = std::this_thread::get_id();
        core->newData(reading(1.0), at(kNow), 1, kNow);
    });
    delivery.join();
    EXPECT_EQ(deliveringThread, listenerThread);
    EXPECT_TRUE(core->read(0).empty());
}

// --- state and closing ---

TEST(QueuedSubscriberImplTest, CreateDataEntityGivesANewEntityOfTheBindingClass) {
    auto core = ReadingCore::make();
    auto first = core->createDataEntity();
    auto second = core->createDataEntity();
    EXPECT_NE(nullptr, dynamic_cast<ReadingImpl*>(first.get()));
    EXPECT_NE(first, second);
}

TEST(QueuedSubscriberImplTest, EveryOperationButCloseThrowsAfterClose) {
    auto core = ReadingCore::make();
    core->close();
    const std::string text = "Subscriber already closed";
    std::vector<std::shared_ptr<DataEvent<Reading>>> events;
    auto expectClosed = [&](auto call) {
        try {
            call();
            ADD_FAILURE() << "no exception";
        } catch (const IllegalStateException& e) {
            EXPECT_EQ(text, e.what());
        }
    };
    expectClosed([&] { core->createDataEntity(); });
    expectClosed([&] { core->read(0); });
    expectClosed([&] { core->readInstance(ReadingImpl()); });
    expectClosed([&] {
        ReadingImpl value;
        core->readInstance(ReadingImpl(), value);
    });
    expectClosed([&] { core->loanedRead(); });
    expectClosed([&] { core->loanedReadInstance(ReadingImpl()); });
    expectClosed([&] { core->readDataEvents(DataEventFilter<Reading>(), events, 0, milliseconds(0)); });
    expectClosed([&] { core->poll(0, milliseconds(0)); });
    expectClosed([&] { core->subscribe(DataEventFilter<Reading>(), nullptr); });
    expectClosed([&] {
        core->subscribeAsync(DataEventFilter<Reading>(),
                             std::function<void(Subscriber<Reading>&, const DataEvent<Reading>&)>());
    });
    expectClosed([&] {
        core->subscribeAsync(DataEventFilter<Reading>(), std::function<void(Subscriber<Reading>&)>());
    });
}

TEST(QueuedSubscriberImplTest, SecondCloseDoesNothing) {
    auto core = ReadingCore::make();
    core->close();
    EXPECT_NO_THROW(core->close());
}

TEST(QueuedSubscriberImplTest, ClosedCoreStillAcceptsDeliveredSamples) {
    auto core = ReadingCore::make();
    core->close();
    core->newData(reading(1.0), at(kNow), 1, kNow);
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriberImplTest, PollAlreadyWaitingWhenClosedRunsToItsTimeoutAndReturnsItsCount) {
    auto core = ReadingCore::make();
    int served = 0;
    auto handle = core->subscribe(DataEventFilter<Reading>(),
                                  [&](Subscriber<Reading>&, const DataEvent<Reading>&) { ++served; });
    auto polling = std::async(std::launch::async, [&] { return core->poll(0, milliseconds(300)); });
    core->awaitPredicates(1);

    core->close();
    EXPECT_THROW(core->read(0), IllegalStateException);
    core->newData(reading(1.0), at(kNow), 1, kNow);

    const unsigned long count = polling.get();
    EXPECT_EQ(static_cast<unsigned long>(served), count);
    // The sample either reached the poll or, had the poll already ended, the queue.
    EXPECT_EQ(1u, count + core->queuedCount());
}
