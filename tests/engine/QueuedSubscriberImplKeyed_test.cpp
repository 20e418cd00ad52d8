#include <gtest/gtest.h>

#include "EngineTestSupport.h"

using namespace orlo::dabo::ps;
using namespace engine_test;
using std::chrono::milliseconds;

namespace {

constexpr long kNow = 1700000000000L;

std::vector<std::shared_ptr<DataEvent<Sensor>>> takeAll(SensorCore& core) {
    std::vector<std::shared_ptr<DataEvent<Sensor>>> taken;
    core.readDataEvents(DataEventFilter<Sensor>(), taken, 0, milliseconds(0));
    return taken;
}

}  // namespace

TEST(QueuedSubscriberImplKeyedTest, FirstSampleOfAKeyCreatesItsInstance) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    core->newData(sensor(2, 1.0), at(kNow), 1, kNow);
    core->newData(sensor(1, 2.0), at(kNow), 1, kNow);
    EXPECT_EQ(2u, core->instanceCount());
    EXPECT_EQ(3u, core->queuedCount());

    auto queue = core->instanceQueue(SensorImpl(1, 0.0));
    ASSERT_NE(nullptr, queue);
    EXPECT_EQ(2u, queue->events.size());
    EXPECT_EQ(1, queue->writerGeneration);
    EXPECT_EQ(2147483647ul, queue->maxEvents);
    ASSERT_NE(nullptr, queue->key);
    EXPECT_EQ(1, queue->key->getId());
    EXPECT_EQ(0.0, queue->key->getValue());  // a key, not the sample
}

TEST(QueuedSubscriberImplKeyedTest, SameWriterGenerationUpdatesAndANewOneCreatesAgain) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    core->newData(sensor(1, 2.0), at(kNow), 1, kNow);
    core->newData(sensor(1, 3.0), at(kNow), 2, kNow);
    core->newData(sensor(1, 4.0), at(kNow), 2, kNow);
    auto events = takeAll(*core);
    ASSERT_EQ(4u, events.size());
    EXPECT_EQ(INSTANCE_CREATED, events[0]->getInstanceEvent());
    EXPECT_EQ(INSTANCE_UPDATED, events[1]->getInstanceEvent());
    EXPECT_EQ(INSTANCE_CREATED, events[2]->getInstanceEvent());
    EXPECT_EQ(INSTANCE_UPDATED, events[3]->getInstanceEvent());
    EXPECT_EQ(2, core->instanceQueue(SensorImpl(1, 0.0))->writerGeneration);
}

TEST(QueuedSubscriberImplKeyedTest, InstanceEventOfAKeyIgnoresOtherInstances) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    core->newData(sensor(2, 1.0), at(kNow), 1, kNow);
    auto events = takeAll(*core);
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ(INSTANCE_CREATED, events[1]->getInstanceEvent());
}

TEST(QueuedSubscriberImplKeyedTest, SampleWithoutWriterDisposesItsInstance) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    core->newData(sensor(1, 2.0), at(kNow), 0, kNow);
    core->newData(sensor(2, 2.0), at(kNow), 0, kNow);
    auto events = takeAll(*core);
    ASSERT_EQ(3u, events.size());
    EXPECT_EQ(INSTANCE_DISPOSED, events[1]->getInstanceEvent());
    EXPECT_EQ(INSTANCE_DISPOSED, events[2]->getInstanceEvent());
    EXPECT_EQ(INSTANCE_NOT_ALIVE, events[1]->getInstanceState());
    EXPECT_EQ(0, core->instanceQueue(SensorImpl(2, 0.0))->writerGeneration);
}

TEST(QueuedSubscriberImplKeyedTest, DisposalOfEverythingQueuesOneKeyOnlyEventPerInstance) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    core->newData(sensor(2, 1.0), at(kNow), 1, kNow);
    core->newData(nullptr, 0.0, 0, kNow);

    EXPECT_EQ(0, core->lastSourceTime());
    EXPECT_EQ(0, core->instanceQueue(SensorImpl(1, 0.0))->writerGeneration);
    EXPECT_EQ(0, core->instanceQueue(SensorImpl(2, 0.0))->writerGeneration);
    auto events = takeAll(*core);
    ASSERT_EQ(4u, events.size());
    std::set<int> disposedKeys;
    for (std::size_t i = 2; i < 4; ++i) {
        EXPECT_EQ(INSTANCE_DISPOSED, events[i]->getInstanceEvent());
        EXPECT_EQ(INSTANCE_NOT_ALIVE, events[i]->getInstanceState());
        EXPECT_EQ(0.0, events[i]->getSourceTimestamp());
        EXPECT_FALSE(events[i]->hasValidData());
        disposedKeys.insert(events[i]->getData()->getId());
    }
    EXPECT_EQ((std::set<int>{1, 2}), disposedKeys);
}

TEST(QueuedSubscriberImplKeyedTest, SampleAfterDisposalOfEverythingCreatesItsInstanceAgain) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    core->newData(nullptr, 0.0, 0, kNow);
    core->newData(sensor(1, 2.0), at(kNow), 1, kNow);
    auto events = takeAll(*core);
    ASSERT_EQ(3u, events.size());
    EXPECT_EQ(INSTANCE_CREATED, events[2]->getInstanceEvent());
    EXPECT_EQ(INSTANCE_ALIVE, events[2]->getInstanceState());
}

TEST(QueuedSubscriberImplKeyedTest, ReadInstanceReturnsTheOldestSampleOfThatInstanceOnly) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    core->newData(sensor(2, 5.0), at(kNow), 1, kNow);
    core->newData(sensor(1, 2.0), at(kNow), 1, kNow);

    auto sample = core->readInstance(SensorImpl(1, 0.0));
    ASSERT_NE(nullptr, sample);
    EXPECT_EQ(1.0, sample->getValue());
    EXPECT_EQ(2u, core->queuedCount());
    EXPECT_EQ(1u, core->instanceQueue(SensorImpl(1, 0.0))->events.size());
}

TEST(QueuedSubscriberImplKeyedTest, ReadInstanceErasesTheInstanceItEmpties) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    ASSERT_NE(nullptr, core->readInstance(SensorImpl(1, 0.0)));
    EXPECT_EQ(0u, core->instanceCount());
    EXPECT_EQ(0u, core->queuedCount());
}

TEST(QueuedSubscriberImplKeyedTest, ReadInstanceErasesAnInstanceFoundEmpty) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    ASSERT_EQ(1u, core->read(0).size());
    EXPECT_EQ(1u, core->instanceCount());  // other reads leave it in place
    EXPECT_EQ(nullptr, core->readInstance(SensorImpl(1, 0.0)));
    EXPECT_EQ(0u, core->instanceCount());
}

TEST(QueuedSubscriberImplKeyedTest, ReadInstanceDiscardsInvalidEventsBeforeTheFirstValidSample) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    core->newData(nullptr, 0.0, 0, kNow);  // key-only disposal, invalid
    core->newData(sensor(1, 3.0), at(kNow), 1, kNow);
    ASSERT_EQ(1.0, core->readInstance(SensorImpl(1, 0.0))->getValue());

    auto sample = core->readInstance(SensorImpl(1, 0.0));
    ASSERT_NE(nullptr, sample);
    EXPECT_EQ(3.0, sample->getValue());
    EXPECT_EQ(0u, core->queuedCount());
    EXPECT_EQ(0u, core->instanceCount());
}

TEST(QueuedSubscriberImplKeyedTest, ReadInstanceOfOnlyInvalidEventsErasesTheInstanceAndReturnsNull) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    ASSERT_EQ(1u, core->read(0).size());
    core->newData(nullptr, 0.0, 0, kNow);
    ASSERT_EQ(1u, core->queuedCount());
    EXPECT_EQ(nullptr, core->readInstance(SensorImpl(1, 0.0)));
    EXPECT_EQ(0u, core->queuedCount());
    EXPECT_EQ(0u, core->instanceCount());
}

TEST(QueuedSubscriberImplKeyedTest, ReadInstanceOfAnUnknownKeyReturnsNull) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    EXPECT_EQ(nullptr, core->readInstance(SensorImpl(9, 0.0)));
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(QueuedSubscriberImplKeyedTest, ReadInstanceCopiesTheSampleIntoTheGivenValue) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 4.5), at(kNow), 1, kNow);
    SensorImpl value;
    ASSERT_TRUE(core->readInstance(SensorImpl(1, 0.0), value));
    EXPECT_EQ(1, value.getId());
    EXPECT_EQ(4.5, value.getValue());
}

TEST(QueuedSubscriberImplKeyedTest, ReadOfTheGlobalListAlsoUnlinksFromTheInstanceQueue) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    core->newData(sensor(1, 2.0), at(kNow), 1, kNow);
    ASSERT_EQ(1u, core->read(1).size());
    EXPECT_EQ(1u, core->instanceQueue(SensorImpl(1, 0.0))->events.size());
    EXPECT_EQ(2.0, core->readInstance(SensorImpl(1, 0.0))->getValue());
}

TEST(QueuedSubscriberImplKeyedTest, EventsTakenFromTheQueuesKeepTheStateFrozenAtTheirRemoval) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    core->newData(sensor(1, 2.0), at(kNow), 0, kNow);
    core->newData(sensor(1, 3.0), at(kNow), 1, kNow);
    auto events = takeAll(*core);  // taken while the instance has a writer
    ASSERT_EQ(3u, events.size());

    // Reading the instance away lets it die; each event then shows what was
    // frozen into it: the instance's state when it was taken.
    core->newData(sensor(1, 4.0), at(kNow), 1, kNow);
    ASSERT_NE(nullptr, core->readInstance(SensorImpl(1, 0.0)));
    ASSERT_EQ(0u, core->instanceCount());
    for (const auto& event : events) {
        EXPECT_EQ(INSTANCE_ALIVE, event->getInstanceState());
    }
}

TEST(QueuedSubscriberImplKeyedTest, EventTakenWhileItsInstanceHasNoWriterFreezesNotAlive) {
    auto core = SensorCore::make();
    core->newData(sensor(1, 1.0), at(kNow), 0, kNow);
    auto events = takeAll(*core);
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(nullptr, core->readInstance(SensorImpl(1, 0.0)));  // found empty: erased
    EXPECT_EQ(INSTANCE_NOT_ALIVE, events[0]->getInstanceState());
}

TEST(QueuedSubscriberImplKeyedTest, FullInstanceQueueLosesItsNewestSampleButOtherInstancesGoOn) {
    auto core = SensorCore::make();
    core->limitInstances(2);
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    core->newData(sensor(1, 2.0), at(kNow), 1, kNow);
    core->newData(sensor(1, 3.0), at(kNow), 1, kNow);
    core->newData(sensor(2, 1.0), at(kNow), 1, kNow);
    EXPECT_EQ(3u, core->queuedCount());
    auto queue = core->instanceQueue(SensorImpl(1, 0.0));
    EXPECT_EQ(2ul, queue->maxEvents);
    ASSERT_EQ(2u, queue->events.size());
    EXPECT_EQ(2.0, queue->events.back()->getData()->getValue());
}

TEST(QueuedSubscriberImplKeyedTest, DroppedKeyedSampleStillCreatesItsInstanceAndSetsItsWriter) {
    auto core = SensorCore::make({std::make_shared<orlo::dabo::ps::qos::Latency>(10)});
    core->newData(sensor(1, 1.0), at(kNow - 500), 3, kNow);
    EXPECT_EQ(0u, core->queuedCount());
    ASSERT_EQ(1u, core->instanceCount());
    EXPECT_EQ(3, core->instanceQueue(SensorImpl(1, 0.0))->writerGeneration);
    core->newData(sensor(1, 2.0), at(kNow), 3, kNow);
    EXPECT_EQ(INSTANCE_UPDATED, core->queuedEvent(0)->getInstanceEvent());
}

TEST(QueuedSubscriberImplKeyedTest, ExpiryOfAKeyedSampleIsRecordedOnItsInstance) {
    auto core = SensorCore::make({std::make_shared<orlo::dabo::ps::qos::Latency>(10),
                                  std::make_shared<orlo::dabo::ps::qos::Deadline>(50)});
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    auto queue = core->instanceQueue(SensorImpl(1, 0.0));
    EXPECT_EQ(kNow + 60, queue->deadlineExpiry);
    EXPECT_TRUE(static_cast<bool>(queue->deadlineCallback));
    EXPECT_EQ(0, core->subscriberExpiry());
}

TEST(QueuedSubscriberImplKeyedTest, ZeroDeadlineWindowLeavesTheInstanceWithoutExpiry) {
    auto core = SensorCore::make({std::make_shared<orlo::dabo::ps::qos::Deadline>(50)});
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    auto queue = core->instanceQueue(SensorImpl(1, 0.0));
    EXPECT_EQ(0, queue->deadlineExpiry);
    EXPECT_FALSE(static_cast<bool>(queue->deadlineCallback));
}

TEST(QueuedSubscriberImplKeyedTest, SweepUnlinksExpiredEventsFromTheirInstanceQueues) {
    auto core = SensorCore::make({std::make_shared<orlo::dabo::ps::qos::Deadline>(50)});
    core->newData(sensor(1, 1.0), at(kNow), 1, kNow);
    core->newData(sensor(1, 2.0), at(kNow + 60), 1, kNow + 60);
    auto queue = core->instanceQueue(SensorImpl(1, 0.0));
    ASSERT_EQ(1u, queue->events.size());
    EXPECT_EQ(2.0, queue->events.front()->getData()->getValue());
}
