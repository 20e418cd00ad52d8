// Instance publishers: made by the delegator, sending through the publisher
// they share, closed by it or on their own, and listed by it while they live.

#include "dabo/krin/detail/ps/instancePublisher.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "CapturingAppender.h"
#include "dabo/DaboException.h"
#include "dabo/krin/detail/ps/createDataEntity.h"
#include "dabo/krin/detail/ps/publisherDelegator.h"
#include "lumotypes/Lumotypes.h"
#include "lumotypes/krin/LumotypesImpl.h"
#include "publisherTestSupport.h"

extern "C" orlo::dabo::ps::Publisher<lumotypes::RefPos>* generated_krin_Publisher_lumotypes_RefPos(
    const std::string& uri, const std::vector<std::shared_ptr<orlo::dabo::ps::qos::QoS>>& qos,
    const orlo::dabo::Dabo::Properties& properties,
    const std::shared_ptr<orlo::dabo::krin::detail::KrinDabo>& dabo);

namespace {

using namespace std::chrono_literals;
using lumo::test::CaptureLog;
using lumo::test::freshTopicUri;
using lumo::test::InspectablePublisher;
using lumo::test::recordedRuntime;
using lumo::test::RuntimeCallLog;
using orlo::dabo::krin::detail::KrinDabo;
using orlo::dabo::krin::detail::ps::createDataEntityInternal;
using orlo::dabo::krin::detail::ps::KrinInstancePublisher;

using RefPosPublisher = InspectablePublisher<lumotypes::RefPos, lumotypes::krin::RefPosImpl>;
using RefPosInstancePublisher = KrinInstancePublisher<lumotypes::RefPos, lumotypes::krin::RefPosImpl>;

/// Reports, as it dies, how many instance publishers it still listed.
class DeathReportingPublisher : public RefPosPublisher {
public:
    DeathReportingPublisher(const std::string& uri, const std::shared_ptr<KrinDabo>& dabo,
                            std::shared_ptr<int> listedAtDeath)
        : RefPosPublisher(uri, {}, {}, dabo), listedAtDeath(std::move(listedAtDeath)) {}
    ~DeathReportingPublisher() override { *listedAtDeath = static_cast<int>(listedInstancePublishers()); }

private:
    std::shared_ptr<int> listedAtDeath;
};

class InstancePublisherTest : public ::testing::Test {
protected:
    void SetUp() override {
        dabo = recordedRuntime(calls);
        publisher = std::make_shared<RefPosPublisher>(freshTopicUri(), orlo::dabo::krin::detail::ps::QoSList{},
                                                      orlo::dabo::Dabo::Properties{}, dabo);
        publisher->init();
    }

    static std::shared_ptr<lumotypes::RefPos> refPos(unsigned int x, unsigned int y) {
        auto entity = createDataEntityInternal<lumotypes::RefPos, lumotypes::krin::RefPosImpl>();
        entity->setRefPosX(x);
        entity->setRefPosY(y);
        entity->setCentBoxWidth(30);
        entity->setCentBoxHeight(40);
        return entity;
    }

    std::unique_ptr<RefPosInstancePublisher> instancePublisherOf(const std::shared_ptr<RefPosPublisher>& owner,
                                                                  unsigned int x) {
        std::shared_ptr<orlo::dabo::krin::detail::ps::KrinPublisher<lumotypes::RefPos, lumotypes::krin::RefPosImpl>>
            base = owner;
        return std::make_unique<RefPosInstancePublisher>(base, *refPos(x, x + 1));
    }

    std::shared_ptr<RuntimeCallLog> calls = std::make_shared<RuntimeCallLog>();
    std::shared_ptr<KrinDabo> dabo;
    std::shared_ptr<RefPosPublisher> publisher;
};

TEST_F(InstancePublisherTest, ConstructionEntersItInThePublishersList) {
    auto first = instancePublisherOf(publisher, 1);
    auto second = instancePublisherOf(publisher, 2);
    EXPECT_EQ(publisher->listedInstancePublishers(), 2u);
}

TEST_F(InstancePublisherTest, PublishSendsThroughThePublisherSharingItsSequence) {
    auto instancePublisher = instancePublisherOf(publisher, 1);
    publisher->publish(*refPos(1, 2), 100ms);
    instancePublisher->publish(*refPos(1, 2), 100ms);
    instancePublisher->publish(7.25, *refPos(1, 2), 100ms);
    EXPECT_EQ(publisher->upcomingSequence(), 3u);
}

TEST_F(InstancePublisherTest, SampleWhoseValuesDifferFromTheInstanceIsPublishedAllTheSame) {
    auto instancePublisher = instancePublisherOf(publisher, 1);
    CaptureLog log("vexa.dabo.krin.publisher");
    instancePublisher->publish(*refPos(99, 98), 100ms);
    EXPECT_TRUE(log.errors().empty());
    EXPECT_EQ(publisher->upcomingSequence(), 1u);
}

TEST_F(InstancePublisherTest, CreateDataEntityTwiceGivesTwoIndependentEntitiesWithTheInstanceValues) {
    auto instancePublisher = instancePublisherOf(publisher, 5);
    auto first = instancePublisher->createDataEntity();
    auto second = instancePublisher->createDataEntity();
    ASSERT_NE(first.get(), second.get());
    EXPECT_EQ(first->getRefPosX(), 5u);
    EXPECT_EQ(first->getRefPosY(), 6u);
    EXPECT_EQ(second->getRefPosX(), 5u);
    EXPECT_EQ(second->getCentBoxHeight(), 40u);
    first->setRefPosX(77);
    EXPECT_EQ(second->getRefPosX(), 5u);
    EXPECT_EQ(instancePublisher->createDataEntity()->getRefPosX(), 5u);
}

TEST_F(InstancePublisherTest, InstanceIsACopyThatLaterChangesToTheGivenValueDoNotReach) {
    auto value = refPos(3, 4);
    std::shared_ptr<orlo::dabo::krin::detail::ps::KrinPublisher<lumotypes::RefPos, lumotypes::krin::RefPosImpl>>
        base = publisher;
    RefPosInstancePublisher instancePublisher(base, *value);
    value->setRefPosX(1000);
    EXPECT_EQ(instancePublisher.createDataEntity()->getRefPosX(), 3u);
}

TEST_F(InstancePublisherTest, ClosingOneInstancePublisherLeavesThePublisherAndItsSiblingsPublishing) {
    auto closing = instancePublisherOf(publisher, 1);
    auto sibling = instancePublisherOf(publisher, 2);
    closing->close();
    closing->close();
    EXPECT_THROW(closing->publish(*refPos(1, 2), 100ms), orlo::dabo::IllegalStateException);
    EXPECT_NO_THROW(sibling->publish(*refPos(2, 3), 100ms));
    EXPECT_NO_THROW(publisher->publish(*refPos(4, 5), 100ms));
    EXPECT_EQ(publisher->upcomingSequence(), 2u);
    // Closed, it stays listed until it dies.
    EXPECT_EQ(publisher->listedInstancePublishers(), 2u);
}

TEST_F(InstancePublisherTest, PublishAfterCloseIsRefusedAsInstanceClosed) {
    auto instancePublisher = instancePublisherOf(publisher, 1);
    instancePublisher->close();
    CaptureLog log("vexa.dabo.krin.publisher");
    try {
        instancePublisher->publish(*refPos(1, 2), 100ms);
        FAIL() << "a closed instance publisher published";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "InstanceKrinPublisher closed");
    }
    try {
        instancePublisher->publish(1.0, *refPos(1, 2), 100ms);
        FAIL() << "a closed instance publisher published";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "InstanceKrinPublisher closed");
    }
    EXPECT_EQ(log.errors(),
              (std::vector<std::string>{"InstanceKrinPublisher closed", "InstanceKrinPublisher closed"}));
}

TEST_F(InstancePublisherTest, CreateDataEntityAfterCloseIsRefusedAsInstanceClosed) {
    auto instancePublisher = instancePublisherOf(publisher, 1);
    instancePublisher->close();
    try {
        instancePublisher->createDataEntity();
        FAIL() << "a closed instance publisher made an entity";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "InstanceKrinPublisher closed");
    }
}

TEST_F(InstancePublisherTest, GetDaboWorksAfterClose) {
    auto instancePublisher = instancePublisherOf(publisher, 1);
    instancePublisher->close();
    EXPECT_EQ(instancePublisher->getDabo().get(), dabo.get());
}

TEST_F(InstancePublisherTest, ClosingThePublisherClosesEveryListedInstancePublisher) {
    auto first = instancePublisherOf(publisher, 1);
    auto second = instancePublisherOf(publisher, 2);
    publisher->close();
    for (auto* instancePublisher : {first.get(), second.get()}) {
        try {
            instancePublisher->publish(*refPos(1, 2), 100ms);
            FAIL() << "an instance publisher of a closed publisher published";
        } catch (const orlo::dabo::IllegalStateException& e) {
            EXPECT_STREQ(e.what(), "InstanceKrinPublisher closed");
        }
    }
}

TEST_F(InstancePublisherTest, PublishAfterThePublisherWasClosedThroughTheDelegatorIsRefusedAsInstanceClosed) {
    std::unique_ptr<orlo::dabo::ps::Publisher<lumotypes::RefPos>> delegator(
        generated_krin_Publisher_lumotypes_RefPos(freshTopicUri(), {}, {}, dabo));
    auto instancePublisher = delegator->createInstancePublisher(*refPos(1, 2));
    delegator->close();
    CaptureLog log("vexa.dabo.krin.publisher");
    try {
        instancePublisher->publish(*refPos(1, 2), 100ms);
        FAIL() << "an instance publisher of a closed publisher published";
    } catch (const orlo::dabo::IllegalStateException& e) {
        EXPECT_STREQ(e.what(), "InstanceKrinPublisher closed");
    }
    EXPECT_EQ(log.errors(), std::vector<std::string>{"InstanceKrinPublisher closed"});
}

TEST_F(InstancePublisherTest, DestroyingAnInstancePublisherRemovesItFromTheList) {
    auto staying = instancePublisherOf(publisher, 1);
    auto leaving = instancePublisherOf(publisher, 2);
    leaving.reset();
    EXPECT_EQ(publisher->listedInstancePublishers(), 1u);
    // The publisher's close reaches only what is still alive.
    publisher->close();
    EXPECT_THROW(staying->publish(*refPos(1, 2), 100ms), orlo::dabo::IllegalStateException);
    staying.reset();
    EXPECT_EQ(publisher->listedInstancePublishers(), 0u);
}

TEST_F(InstancePublisherTest, DestroyingTheInstancePublisherThatHoldsTheLastReferenceDestroysThePublisher) {
    auto listedAtDeath = std::make_shared<int>(-1);
    auto settledRuntime = recordedRuntime(calls, lumo::test::settledRegistration());
    auto owner = std::make_shared<DeathReportingPublisher>(freshTopicUri(), settledRuntime, listedAtDeath);
    owner->init();
    auto instancePublisher = instancePublisherOf(owner, 1);
    owner.reset();
    instancePublisher->publish(*refPos(1, 2), 100ms);
    EXPECT_EQ(*listedAtDeath, -1);
    instancePublisher.reset();
    EXPECT_EQ(*listedAtDeath, 0);
    // It died open, so it unregistered the destructor's way.
    const auto unregistrations = calls->of("unregisterPublisher");
    ASSERT_EQ(unregistrations.size(), 1u);
    EXPECT_TRUE(unregistrations.front().handlerEmpty);
}

TEST(InstancePublisherDeathTest, ConstructionWithAForeignInstanceEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    class HostRefPos : public lumotypes::RefPos {
    public:
        std::unique_ptr<lumotypes::RefPos> clone() const override { return std::make_unique<HostRefPos>(); }
        bool keyEquals(const lumotypes::RefPos&) const override { return false; }
        std::unique_ptr<lumotypes::RefPos> cloneKey() const override { return std::make_unique<HostRefPos>(); }
        bool hasKey() const override { return false; }
        unsigned int getRefPosX() const override { return 0; }
        void setRefPosX(unsigned int) override {}
        unsigned int getRefPosY() const override { return 0; }
        void setRefPosY(unsigned int) override {}
        unsigned int getCentBoxWidth() const override { return 0; }
        void setCentBoxWidth(unsigned int) override {}
        unsigned int getCentBoxHeight() const override { return 0; }
        void setCentBoxHeight(unsigned int) override {}
    };
    const auto constructWithForeignInstance = [] {
        auto calls = std::make_shared<RuntimeCallLog>();
        auto runtime = recordedRuntime(calls);
        auto owner = std::make_shared<RefPosPublisher>(freshTopicUri(), orlo::dabo::krin::detail::ps::QoSList{},
                                                       orlo::dabo::Dabo::Properties{}, runtime);
        owner->init();
        HostRefPos foreign;
        std::shared_ptr<
            orlo::dabo::krin::detail::ps::KrinPublisher<lumotypes::RefPos, lumotypes::krin::RefPosImpl>>
            base = owner;
        RefPosInstancePublisher never(base, foreign);
    };
    EXPECT_DEATH(constructWithForeignInstance(),
                 "data type for instance or value is incorrect. Not a Krin supported type");
}

}  // namespace
