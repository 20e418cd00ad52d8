#include <gtest/gtest.h>

#include "EngineTestSupport.h"

using namespace engine_test;
using orlo::dabo::IllegalStateException;
using orlo::dabo::ps::queue::detail::STEqual;
using orlo::dabo::ps::queue::detail::STHash;

namespace {

template <typename Call>
std::string messageOf(Call call) {
    try {
        call();
    } catch (const IllegalStateException& e) {
        return e.what();
    }
    return "no exception";
}

const char* const kNotSupported = "data type for instance or value is incorrect. Not a Dabo supported type";

}  // namespace

TEST(InstanceKeyFunctorsTest, EveryKeyHashesToZero) {
    STHash<Sensor, SensorImpl> hash;
    EXPECT_EQ(0u, hash(sensor(1, 1.0)));
    EXPECT_EQ(0u, hash(sensor(99, -4.0)));
}

TEST(InstanceKeyFunctorsTest, KeysOfOneInstanceCompareEqual) {
    STEqual<Sensor, SensorImpl> equal;
    EXPECT_TRUE(equal(sensor(1, 1.0), sensor(1, 2.0)));
    EXPECT_FALSE(equal(sensor(1, 1.0), sensor(2, 1.0)));
}

TEST(InstanceKeyFunctorsTest, TwoKeysOfAnUnkeyedTopicNeverCompareEqual) {
    STEqual<Reading, ReadingImpl> equal;
    auto key = reading(1.0);
    EXPECT_FALSE(equal(key, key));
    EXPECT_FALSE(equal(reading(1.0), reading(1.0)));
}

TEST(InstanceKeyFunctorsTest, ForeignKeyIsRefusedByHashAndEquality) {
    std::unique_ptr<Sensor> foreign = std::make_unique<ForeignSensor>(1, 1.0);
    EXPECT_EQ(kNotSupported, messageOf([&] { STHash<Sensor, SensorImpl>()(foreign); }));
    EXPECT_EQ(kNotSupported, messageOf([&] { STEqual<Sensor, SensorImpl>()(sensor(1, 1.0), foreign); }));
    EXPECT_EQ(kNotSupported, messageOf([&] { STEqual<Sensor, SensorImpl>()(foreign, sensor(1, 1.0)); }));
}

TEST(InstanceKeyFunctorsDeathTest, NullKeyIsAProgrammingError) {
    std::unique_ptr<Sensor> none;
    STEqual<Sensor, SensorImpl> equal;
    EXPECT_DEATH(equal(none, sensor(1, 1.0)), "an instance key is never null");
}
