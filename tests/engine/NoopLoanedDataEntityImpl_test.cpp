#include <gtest/gtest.h>

#include "EngineTestSupport.h"

using namespace orlo::dabo::ps;
using namespace engine_test;
using orlo::dabo::ps::queue::NoopLoanedDataEntityImpl;

namespace {

constexpr long kNow = 1700000000000L;

}  // namespace

TEST(NoopLoanedDataEntityImplTest, LoanedReadOnAnEmptyQueueReturnsNull) {
    auto core = ReadingCore::make();
    EXPECT_EQ(nullptr, core->loanedRead());
}

TEST(NoopLoanedDataEntityImplTest, LoanedReadDiscardsInvalidEventsAndLendsTheFirstValidSample) {
    auto core = ReadingCore::make();
    core->newData(nullptr, at(kNow), 1, kNow);
    core->newData(reading(2.0), at(kNow), 1, kNow);
    core->newData(reading(3.0), at(kNow), 1, kNow);
    auto loan = core->loanedRead();
    ASSERT_NE(nullptr, loan);
    EXPECT_EQ(2.0, loan->getData().getValue());
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(NoopLoanedDataEntityImplTest, LoanedReadInstanceOfAnUnkeyedTopicReturnsNull) {
    auto core = ReadingCore::make();
    core->newData(reading(1.0), at(kNow), 1, kNow);
    EXPECT_EQ(nullptr, core->loanedReadInstance(ReadingImpl(1.0)));
    EXPECT_EQ(1u, core->queuedCount());
}

TEST(NoopLoanedDataEntityImplTest, LoanedReadInstanceLendsTheOldestSampleOfAKeyedInstance) {
    auto core = SensorCore::make();
    core->newData(sensor(4, 1.5), at(kNow), 1, kNow);
    auto loan = core->loanedReadInstance(SensorImpl(4, 0.0));
    ASSERT_NE(nullptr, loan);
    EXPECT_EQ(1.5, loan->getData().getValue());
    EXPECT_EQ(nullptr, core->loanedReadInstance(SensorImpl(4, 0.0)));
}

TEST(NoopLoanedDataEntityImplTest, DataStaysAvailableAfterClose) {
    auto core = ReadingCore::make();
    core->newData(reading(7.0), at(kNow), 1, kNow);
    auto loan = core->loanedRead();
    ASSERT_NE(nullptr, loan);
    loan->close();
    EXPECT_EQ(7.0, loan->getData().getValue());
    loan->close();
    EXPECT_EQ(0u, core->queuedCount());  // nothing comes back
}

TEST(NoopLoanedDataEntityImplTest, LoanSharesTheSampleAndKeepsItAlive) {
    std::weak_ptr<Reading> watch;
    std::shared_ptr<LoanedDataEntity<Reading>> loan;
    {
        auto sample = std::make_shared<ReadingImpl>(1.0);
        watch = sample;
        loan = std::make_shared<NoopLoanedDataEntityImpl<Reading, ReadingImpl>>(sample);
        EXPECT_EQ(sample.get(), &loan->getData());
    }
    EXPECT_FALSE(watch.expired());
    loan.reset();
    EXPECT_TRUE(watch.expired());
}

TEST(NoopLoanedDataEntityImplTest, LoansReportTheFailuresOfTheReadsBehindThem) {
    auto core = SensorCore::make();
    EXPECT_THROW(core->loanedReadInstance(ForeignSensor(1, 0.0)), orlo::dabo::IllegalStateException);
    core->close();
    EXPECT_THROW(core->loanedRead(), orlo::dabo::IllegalStateException);
}
