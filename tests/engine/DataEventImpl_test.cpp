#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "EngineTestSupport.h"

using namespace orlo::dabo::ps;
using namespace engine_test;
using orlo::dabo::ps::queue::DataEventImpl;

namespace {

constexpr long kNow = 1700000000000L;

std::vector<std::shared_ptr<DataEvent<Sensor>>> takeAll(SensorCore& core) {
    std::vector<std::shared_ptr<DataEvent<Sensor>>> taken;
    core.readDataEvents(DataEventFilter<Sensor>(), taken, 0, std::chrono::milliseconds(0));
    return taken;
}

}  // namespace

TEST(DataEventImplTest, UnkeyedEventKeepsItsBuiltStateBeforeAndAfterItIsRead) {
    auto core = ReadingCore::make();
    core->newData(reading(1.0), at(kNow), 1, kNow);
    core->newData(reading(2.0), at(kNow), 0, kNow);
    auto alive = core->queuedEvent(0);
    auto notAlive = core->queuedEvent(1);
    EXPECT_EQ(INSTANCE_ALIVE, alive->getInstanceState());
    EXPECT_EQ(INSTANCE_NOT_ALIVE, notAlive->getInstanceState());

    std::vector<std::shared_ptr<DataEvent<Reading>>> taken;
    ASSERT_EQ(2u, core->readDataEvents(DataEventFilter<Reading>(), taken, 0, std::chrono::milliseconds(0)));
    EXPECT_EQ(INSTANCE_ALIVE, alive->getInstanceState());
    EXPECT_EQ(INSTANCE_NOT_ALIVE, notAlive->getInstanceState());
}

TEST(DataEventImplTest, LinkedKeyedEventReportsNotAliveOnceItsInstanceLosesItsWriter) {
    auto core = SensorCore::make();
    core->newData(sensor(7, 1.0), at(kNow), 1, kNow);
    auto linked = core->queuedEvent(0);
    EXPECT_EQ(INSTANCE_ALIVE, linked->getInstanceState());

    core->newData(nullptr, 0.0, 0, kNow);  // disposal of everything
    EXPECT_EQ(INSTANCE_NOT_ALIVE, linked->getInstanceState());
}

TEST(DataEventImplTest, TakenKeyedEventShowsItsFrozenStateOnlyAfterItsInstanceDies) {
    auto core = SensorCore::make();
    core->newData(sensor(7, 1.0), at(kNow), 1, kNow);
    auto taken = takeAll(*core);
    ASSERT_EQ(1u, taken.size());
    auto event = taken.front();
    EXPECT_EQ(INSTANCE_ALIVE, event->getInstanceState());

    // The instance lives on and its writer goes: the event follows it, not
    // the ALIVE frozen into it when it was taken.
    core->newData(nullptr, 0.0, 0, kNow);
    EXPECT_EQ(INSTANCE_NOT_ALIVE, event->getInstanceState());

    // readInstance finds only the key-only disposal and erases the instance.
    EXPECT_EQ(nullptr, core->readInstance(SensorImpl(7, 0.0)));
    EXPECT_EQ(0u, core->instanceCount());
    EXPECT_EQ(INSTANCE_ALIVE, event->getInstanceState());
}

TEST(DataEventImplTest, EventWithoutStateOrLiveQueueReportsNotAlive) {
    DataEventImpl<Reading, ReadingImpl> event(std::make_shared<ReadingImpl>(1.0), 1.5, true, nullptr,
                                              INSTANCE_CREATED, nullptr);
    EXPECT_EQ(INSTANCE_NOT_ALIVE, event.getInstanceState());
}

TEST(DataEventImplTest, KeyOnlyDisposalHasDataButNoValidData) {
    auto core = SensorCore::make();
    core->newData(sensor(7, 1.0), at(kNow), 1, kNow);
    core->newData(nullptr, 0.0, 0, kNow);
    auto disposal = core->queuedEvent(1);
    EXPECT_EQ(INSTANCE_DISPOSED, disposal->getInstanceEvent());
    ASSERT_NE(nullptr, disposal->getData());
    EXPECT_EQ(7, disposal->getData()->getId());
    EXPECT_FALSE(disposal->hasValidData());
}

TEST(DataEventImplTest, EventWithoutPayloadAnswersNullDataAndNoValidData) {
    DataEventImpl<Reading, ReadingImpl> event(nullptr, 1.5, true, nullptr, INSTANCE_UPDATED, nullptr);
    EXPECT_EQ(nullptr, event.getData());
    EXPECT_FALSE(event.hasValidData());
}

TEST(DataEventImplTest, AccessorsReturnWhatTheEventWasBuiltWith) {
    auto data = std::make_shared<ReadingImpl>(3.0);
    DataEventImpl<Reading, ReadingImpl> event(data, 12.25, true, std::make_unique<InstanceState>(INSTANCE_ALIVE),
                                              INSTANCE_UPDATED, nullptr);
    EXPECT_TRUE(event.hasValidData());
    EXPECT_EQ(data, event.getData());
    EXPECT_EQ(INSTANCE_UPDATED, event.getInstanceEvent());
    EXPECT_EQ(INSTANCE_ALIVE, event.getInstanceState());
    EXPECT_DOUBLE_EQ(12.25, event.getSourceTimestamp());
}

TEST(DataEventImplTest, UnkeyedSamplesMakeNoInstanceEntry) {
    auto core = ReadingCore::make();
    core->newData(reading(1.0), at(kNow), 1, kNow);
    core->newData(reading(1.0), at(kNow), 1, kNow);
    EXPECT_EQ(2u, core->queuedCount());
    EXPECT_EQ(0u, core->instanceCount());
}

TEST(DataEventImplTest, RemovingAnUnkeyedEventFromItsInstanceQueueChangesNothing) {
    DataEventImpl<Reading, ReadingImpl> event(std::make_shared<ReadingImpl>(1.0), 1.5, true, nullptr,
                                              INSTANCE_CREATED, nullptr);
    event.removeFromInstanceQueue();
    // No queue to follow and nothing frozen: the fallback answer stays.
    EXPECT_EQ(INSTANCE_NOT_ALIVE, event.getInstanceState());
}

TEST(DataEventImplTest, StateReadWhileNewWritersArriveNeverReportsALiveInstanceAsNotAlive) {
    auto core = SensorCore::make();
    core->newData(sensor(7, 1.0), at(kNow), 1, kNow);
    auto taken = takeAll(*core);
    ASSERT_EQ(1u, taken.size());
    auto event = taken.front();

    std::atomic<bool> delivered(false);
    std::thread delivery([&] {
        for (long generation = 1; generation <= 2000; ++generation) {
            core->newData(sensor(7, 1.0), at(kNow), generation, kNow);
        }
        delivered = true;
    });
    int notAlive = 0;
    while (!delivered) {
        notAlive += event->getInstanceState() == INSTANCE_NOT_ALIVE ? 1 : 0;
    }
    delivery.join();
    EXPECT_EQ(0, notAlive);
    EXPECT_EQ(INSTANCE_ALIVE, event->getInstanceState());
}
