#include <gtest/gtest.h>

#include "EngineTestSupport.h"
#include "dabo/ps/queue/QueuedSubscriber_impl.h"

using namespace orlo::dabo::ps;
using namespace engine_test;
using orlo::dabo::ps::queue::QueuedSubscriber;
using std::chrono::milliseconds;

namespace {

constexpr long kNow = 1700000000000L;

/// A transport in miniature: it owns the wrapper and feeds the shared core.
class FakeTransportSubscriber : public QueuedSubscriber<Reading, ReadingImpl> {
public:
    using QueuedSubscriber::QueuedSubscriber;
    void deliver(double value) { impl->newData(reading(value), at(kNow), 1, kNow); }
    std::weak_ptr<orlo::dabo::ps::queue::detail::QueuedSubscriberImpl<Reading, ReadingImpl>> core() { return impl; }
};

using Listener = std::function<void(Subscriber<Reading>&, const DataEvent<Reading>&)>;

}  // namespace

TEST(QueuedSubscriberTest, OperationsGoToTheSharedCore) {
    FakeTransportSubscriber subscriber({std::make_shared<orlo::dabo::ps::qos::Latency>(100)});
    EXPECT_NE(nullptr, dynamic_cast<ReadingImpl*>(subscriber.createDataEntity().get()));
    subscriber.deliver(1.0);
    subscriber.deliver(2.0);
    subscriber.deliver(3.0);
    ASSERT_EQ(1u, subscriber.read(1).size());
    ASSERT_NE(nullptr, subscriber.loanedRead());
    std::vector<std::shared_ptr<DataEvent<Reading>>> events;
    EXPECT_EQ(1u, subscriber.readDataEvents(DataEventFilter<Reading>(), events, 0, milliseconds(0)));
    EXPECT_EQ(nullptr, subscriber.readInstance(ReadingImpl()));
    ReadingImpl value;
    EXPECT_FALSE(subscriber.readInstance(ReadingImpl(), value));
    EXPECT_EQ(nullptr, subscriber.loanedReadInstance(ReadingImpl()));

    int polled = 0;
    auto sync = subscriber.subscribe(DataEventFilter<Reading>({INSTANCE_CREATED}),
                                     [&](Subscriber<Reading>&, const DataEvent<Reading>&) { ++polled; });
    int heard = 0;
    auto async = subscriber.subscribeAsync(DataEventFilter<Reading>({INSTANCE_UPDATED}),
                                           Listener([&](Subscriber<Reading>&, const DataEvent<Reading>&) { ++heard; }));
    int told = 0;
    auto notifier = subscriber.subscribeAsync(DataEventFilter<Reading>({INSTANCE_DISPOSED}),
                                              std::function<void(Subscriber<Reading>&)>([&](Subscriber<Reading>&) {
                                                  ++told;
                                              }));
    subscriber.deliver(4.0);
    EXPECT_EQ(1, heard);
    EXPECT_EQ(0u, subscriber.poll(0, milliseconds(0)));
    EXPECT_EQ(0, polled);
    EXPECT_EQ(0, told);
}

TEST(QueuedSubscriberTest, CloseOfTheWrapperClosesTheCore) {
    FakeTransportSubscriber subscriber(QosList{});
    subscriber.close();
    EXPECT_THROW(subscriber.read(0), orlo::dabo::IllegalStateException);
    EXPECT_NO_THROW(subscriber.close());
}

TEST(QueuedSubscriberTest, HandlesOutliveTheWrapperAndKeepTheCoreAlive) {
    std::unique_ptr<Subscription> handle;
    std::weak_ptr<orlo::dabo::ps::queue::detail::QueuedSubscriberImpl<Reading, ReadingImpl>> core;
    {
        auto subscriber = std::make_unique<FakeTransportSubscriber>(QosList{});
        core = subscriber->core();
        handle = subscriber->subscribe(DataEventFilter<Reading>(), Listener());
    }
    EXPECT_FALSE(core.expired());
    handle->close();
    EXPECT_FALSE(core.expired());
    handle.reset();
    EXPECT_TRUE(core.expired());
}

TEST(QueuedSubscriberTest, WrapperWithoutHandlesTakesTheCoreWithIt) {
    std::weak_ptr<orlo::dabo::ps::queue::detail::QueuedSubscriberImpl<Reading, ReadingImpl>> core;
    {
        FakeTransportSubscriber subscriber(QosList{});
        core = subscriber.core();
        subscriber.deliver(1.0);
    }
    EXPECT_TRUE(core.expired());
}
