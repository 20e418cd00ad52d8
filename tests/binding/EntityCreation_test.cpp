// Creating entities inside the library, and casting them back to their
// binding class in the transport's and the queue engine's words.

#include <gtest/gtest.h>

#include <log4cplus/appender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <mutex>

#include "BindingTestSupport.h"
#include "dabo/DaboException.h"
#include "dabo/krin/detail/ps/createDataEntity.h"
#include "dabo/krin/detail/ps/obtainImpl.h"
#include "dabo/ps/queue/obtainImpl.h"

using namespace lumo::test;
using lumotypes::krin::CentErrorImpl;
using lumotypes::krin::RefPosImpl;
using lumotypes::krin::SimCentErrorsImpl;
namespace transport = orlo::dabo::krin::detail::ps;
namespace queue = orlo::dabo::ps::queue::detail;

extern "C" void* generated_krin_DataEntity_lumotypes_RefPos();

namespace {

// Keeps every event logged on the logger it is attached to.
class CapturingAppender : public log4cplus::Appender {
public:
    ~CapturingAppender() override { destructorImpl(); }
    void close() override {}

    std::vector<std::pair<log4cplus::LogLevel, std::string>> lines() {
        std::lock_guard<std::mutex> lock(mutex);
        return captured;
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        std::lock_guard<std::mutex> lock(mutex);
        captured.emplace_back(event.getLogLevel(), event.getMessage());
    }

private:
    std::mutex mutex;
    std::vector<std::pair<log4cplus::LogLevel, std::string>> captured;
};

class EntityCreation : public ::testing::Test {
protected:
    void SetUp() override {
        static log4cplus::Initializer initializer;
        logger.addAppender(log4cplus::SharedAppenderPtr(appender));
    }
    void TearDown() override { logger.removeAllAppenders(); }

    log4cplus::Logger logger = log4cplus::Logger::getInstance("vexa.dabo.krin.publisher");
    CapturingAppender* appender = new CapturingAppender();
};

}  // namespace

TEST_F(EntityCreation, CreateDataEntityImplOfSimCentErrorsHasImagerViews) {
    std::unique_ptr<SimCentErrorsImpl> errors = transport::createDataEntityImpl<SimCentErrorsImpl>();
    EXPECT_NE(errors->getImg_gp1_err(), nullptr);
    EXPECT_NE(errors->getImg_pds_err(), nullptr);
    EXPECT_EQ(hex(bytesOf(*errors)), "0A 00 12 00 1A 00 22 00");
}

TEST_F(EntityCreation, CreateDataEntityInternalGivesAnEmptyEntityAsItsTopic) {
    std::shared_ptr<lumotypes::RefPos> refPos = transport::createDataEntityInternal<lumotypes::RefPos, RefPosImpl>();
    ASSERT_NE(refPos, nullptr);
    EXPECT_EQ(refPos->getRefPosX(), 0u);
    EXPECT_TRUE(bytesOf(dynamic_cast<const RefPosImpl&>(*refPos)).empty());
}

TEST_F(EntityCreation, TransportObtainImplRefusesHandWrittenEntityWithKrinTextAndOneErrorLine) {
    ForeignRefPos foreign;
    try {
        transport::obtainImpl<lumotypes::RefPos, RefPosImpl>(foreign, logger);
        FAIL() << "a hand-written entity passed";
    } catch (const orlo::dabo::IllegalStateException& error) {
        EXPECT_STREQ(error.what(), "data type for instance or value is incorrect. Not a Krin supported type");
    }
    const auto lines = appender->lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].first, log4cplus::ERROR_LOG_LEVEL);
    EXPECT_EQ(lines[0].second, "data type for instance or value is incorrect. Not a Krin supported type");
}

TEST_F(EntityCreation, QueueObtainImplRefusesHandWrittenEntityWithDaboTextAndNoLogLine) {
    ForeignRefPos foreign;
    try {
        queue::obtainImpl<lumotypes::RefPos, RefPosImpl>(foreign);
        FAIL() << "a hand-written entity passed";
    } catch (const orlo::dabo::IllegalStateException& error) {
        EXPECT_STREQ(error.what(), "data type for instance or value is incorrect. Not a Dabo supported type");
    }
    EXPECT_TRUE(appender->lines().empty());
}

TEST_F(EntityCreation, ObtainImplReturnsTheSameObjectForEveryWayOfMakingOne) {
    std::shared_ptr<lumotypes::RefPos> internal = transport::createDataEntityInternal<lumotypes::RefPos, RefPosImpl>();
    std::unique_ptr<lumotypes::RefPos> clone = internal->clone();
    std::unique_ptr<lumotypes::RefPos> exported(
        static_cast<lumotypes::RefPos*>(generated_krin_DataEntity_lumotypes_RefPos()));
    for (const lumotypes::RefPos* entity : {internal.get(), clone.get(), exported.get()}) {
        const RefPosImpl& viaTransport = transport::obtainImpl<lumotypes::RefPos, RefPosImpl>(*entity, logger);
        const RefPosImpl& viaQueue = queue::obtainImpl<lumotypes::RefPos, RefPosImpl>(*entity);
        EXPECT_EQ(static_cast<const lumotypes::RefPos*>(&viaTransport), entity);
        EXPECT_EQ(static_cast<const lumotypes::RefPos*>(&viaQueue), entity);
    }
    EXPECT_TRUE(appender->lines().empty());
}

TEST_F(EntityCreation, ObtainImplAcceptsTheImagerViewAsCentErrorImpl) {
    SimCentErrorsImpl errors;
    std::shared_ptr<lumotypes::CentError> view = errors.getImg_gp1_err();
    const CentErrorImpl& viaTransport = transport::obtainImpl<lumotypes::CentError, CentErrorImpl>(*view, logger);
    const CentErrorImpl& viaQueue = queue::obtainImpl<lumotypes::CentError, CentErrorImpl>(*view);
    EXPECT_EQ(static_cast<const lumotypes::CentError*>(&viaTransport), view.get());
    EXPECT_EQ(&viaQueue, &viaTransport);
}
