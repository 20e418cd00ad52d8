#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

#include "EngineTestTopics.h"
#include "dabo/ps/DataEntityFactory.h"
#include "dabo/ps/DataEvent.h"
#include "dabo/ps/DataEventFilter.h"
#include "dabo/ps/InstanceEvent.h"
#include "dabo/ps/InstancePublisher.h"
#include "dabo/ps/InstanceState.h"
#include "dabo/ps/LoanedDataEntity.h"
#include "dabo/ps/MrvSubscriber.h"
#include "dabo/ps/Publisher.h"
#include "dabo/ps/Subscriber.h"
#include "dabo/ps/Subscription.h"

// Hosts include these headers without the transport's.
#ifdef ZMQ_VERSION_MAJOR
#error "the public interfaces must not pull in the transport"
#endif

using namespace orlo::dabo::ps;
using engine_test::Reading;
using engine_test::ReadingImpl;

TEST(PublicInterfacesTest, InstanceStateValuesAreFixedAndThirtyTwoBitsWide) {
    static_assert(sizeof(InstanceState) == sizeof(std::int32_t));
    EXPECT_EQ(0, INSTANCE_ALIVE);
    EXPECT_EQ(1, INSTANCE_NOT_ALIVE);
    EXPECT_EQ(2, INSTANCE_ANY);
}

TEST(PublicInterfacesTest, InstanceEventValuesAreFixedAndThirtyTwoBitsWide) {
    static_assert(sizeof(InstanceEvent) == sizeof(std::int32_t));
    EXPECT_EQ(0, INSTANCE_CREATED);
    EXPECT_EQ(1, INSTANCE_UPDATED);
    EXPECT_EQ(2, INSTANCE_DISPOSED);
}

TEST(PublicInterfacesTest, DefaultFilterWantsEverything) {
    DataEventFilter<Reading> filter;
    EXPECT_EQ(nullptr, filter.instance);
    EXPECT_EQ(INSTANCE_ANY, filter.instanceState);
    EXPECT_TRUE(filter.instanceEvents.empty());
}

TEST(PublicInterfacesTest, FilterConstructorsFillTheNamedMembers) {
    DataEventFilter<Reading> byEvents({INSTANCE_CREATED, INSTANCE_DISPOSED});
    EXPECT_EQ(INSTANCE_ANY, byEvents.instanceState);
    EXPECT_EQ((std::set<InstanceEvent>{INSTANCE_CREATED, INSTANCE_DISPOSED}), byEvents.instanceEvents);

    DataEventFilter<Reading> byState(INSTANCE_ALIVE, {INSTANCE_UPDATED});
    EXPECT_EQ(INSTANCE_ALIVE, byState.instanceState);
    EXPECT_EQ(std::set<InstanceEvent>{INSTANCE_UPDATED}, byState.instanceEvents);

    auto instance = std::make_shared<ReadingImpl>(1.0);
    DataEventFilter<Reading> byInstance(instance, INSTANCE_NOT_ALIVE);
    EXPECT_EQ(instance, byInstance.instance);
    EXPECT_EQ(INSTANCE_NOT_ALIVE, byInstance.instanceState);
    EXPECT_TRUE(byInstance.instanceEvents.empty());
}

TEST(PublicInterfacesTest, FilterCopiesShareTheInstanceAndCopyTheRest) {
    DataEventFilter<Reading> original(std::make_shared<ReadingImpl>(1.0), INSTANCE_ALIVE, {INSTANCE_CREATED});
    DataEventFilter<Reading> copy = original;
    original.instanceEvents.insert(INSTANCE_UPDATED);
    EXPECT_EQ(original.instance, copy.instance);
    EXPECT_EQ(std::set<InstanceEvent>{INSTANCE_CREATED}, copy.instanceEvents);
}

TEST(PublicInterfacesTest, InterfacesAreAbstractAndFilterIsConcrete) {
    EXPECT_TRUE(std::is_abstract_v<Subscriber<Reading>>);
    EXPECT_TRUE(std::is_abstract_v<Publisher<Reading>>);
    EXPECT_TRUE(std::is_abstract_v<InstancePublisher<Reading>>);
    EXPECT_TRUE(std::is_abstract_v<MrvSubscriber<Reading>>);
    EXPECT_TRUE(std::is_abstract_v<DataEvent<Reading>>);
    EXPECT_TRUE(std::is_abstract_v<LoanedDataEntity<Reading>>);
    EXPECT_TRUE(std::is_abstract_v<Subscription>);
    EXPECT_TRUE(std::has_virtual_destructor_v<DataEventFilter<Reading>>);
    EXPECT_FALSE(std::is_abstract_v<DataEventFilter<Reading>>);
    EXPECT_TRUE((std::is_base_of_v<DataEntityFactory<Reading>, Subscriber<Reading>>));
    EXPECT_TRUE((std::is_base_of_v<InstancePublisher<Reading>, Publisher<Reading>>));
}
