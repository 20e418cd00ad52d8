// Recognition of the publish/subscribe profile's URIs.

#include "dabo/krin/UriHelper.h"

#include <gtest/gtest.h>

namespace {

using orlo::dabo::krin::UriHelper;

TEST(UriHelperTest, KrinPsSchemeIsPubSub) {
    EXPECT_TRUE(UriHelper::isPubSubUri("krin.ps://127.0.0.1:5555/LumoMode"));
    EXPECT_TRUE(UriHelper::isPubSubUri("KRIN.PS://host:1/t"));
}

TEST(UriHelperTest, OtherSchemesAreNotPubSub) {
    EXPECT_FALSE(UriHelper::isPubSubUri("krin.rr://host:1/t"));
    EXPECT_FALSE(UriHelper::isPubSubUri("krin://host:1/t"));
    EXPECT_FALSE(UriHelper::isPubSubUri("tcp://host:1"));
    EXPECT_FALSE(UriHelper::isPubSubUri("krin.psx://host:1/t"));
}

TEST(UriHelperTest, TextThatIsNoUriIsNotPubSub) {
    EXPECT_FALSE(UriHelper::isPubSubUri(""));
    EXPECT_FALSE(UriHelper::isPubSubUri("not a uri"));
    EXPECT_FALSE(UriHelper::isPubSubUri("/LumoMode"));
}

}  // namespace
