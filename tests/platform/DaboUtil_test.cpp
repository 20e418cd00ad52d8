// The host's general utilities: hashing, properties, clocks, text, identifiers.

#include "dabo/util/DaboUtil.h"

#include <gtest/gtest.h>

#include <chrono>
#include <regex>
#include <set>

#include "dabo/DaboException.h"

namespace {

using namespace orlo::dabo::util;

std::string longPropertyError(const std::string& value) {
    try {
        getLongProperty({{"k", value}}, "k", 0);
    } catch (const orlo::dabo::DaboException& e) {
        return e.what();
    }
    return "no exception";
}

TEST(DaboUtilTest, TopicNameHashIsThirtyTwoBitFnv1a) {
    EXPECT_EQ(static_cast<std::uint32_t>(topicNameHash("")), 0x811c9dc5u);
    EXPECT_EQ(static_cast<std::uint32_t>(topicNameHash("a")), 0xe40c292cu);
    EXPECT_EQ(static_cast<std::uint32_t>(topicNameHash("foobar")), 0xbf9cf968u);
}

TEST(DaboUtilTest, TopicNameHashIsEqualForEqualPathsAndDiffersForOthers) {
    EXPECT_EQ(topicNameHash("/LumoMode"), topicNameHash(std::string("/Lumo") + "Mode"));
    EXPECT_NE(topicNameHash("/LumoMode"), topicNameHash("LumoMode"));
}

TEST(DaboUtilTest, LongPropertyIsReadOrDefaulted) {
    EXPECT_EQ(getLongProperty({}, "k", 17), 17);
    EXPECT_EQ(getLongProperty({{"k", "42"}}, "k", 0), 42);
    EXPECT_EQ(getLongProperty({{"k", "-7"}}, "k", 0), -7);
    EXPECT_EQ(getLongProperty({{"k", "+5"}}, "k", 0), 5);
    EXPECT_EQ(getLongProperty({{"other", "x"}}, "k", 3), 3);
}

TEST(DaboUtilTest, LongPropertyThatIsNoIntegerNamesKeyAndValue) {
    EXPECT_EQ(longPropertyError(""), "Property k has value '', which is not an integer");
    EXPECT_EQ(longPropertyError("abc"), "Property k has value 'abc', which is not an integer");
    EXPECT_EQ(longPropertyError("12x"), "Property k has value '12x', which is not an integer");
    EXPECT_EQ(longPropertyError(" 12"), "Property k has value ' 12', which is not an integer");
    EXPECT_EQ(longPropertyError("1.5"), "Property k has value '1.5', which is not an integer");
    EXPECT_EQ(longPropertyError("-"), "Property k has value '-', which is not an integer");
}

TEST(DaboUtilTest, LongPropertyBeyondLongIsOutOfRange) {
    EXPECT_EQ(longPropertyError("99999999999999999999"),
              "Property k has value '99999999999999999999', which is out of range of a long integer");
}

TEST(DaboUtilTest, CurrentTimeMillisIsTheWallClock) {
    using namespace std::chrono;
    const long before = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    const long now = currentTimeMillis();
    const long after = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
}

TEST(DaboUtilTest, TimestampsAreSecondsAndRoundTrip) {
    EXPECT_DOUBLE_EQ(timestampToDouble(1500), 1.5);
    EXPECT_EQ(timestampFromDouble(1.5), 1500);
    const long now = 1700000000123;
    EXPECT_EQ(timestampFromDouble(timestampToDouble(now)), now);
}

TEST(DaboUtilTest, HexStrGivesTwoLowerCaseDigitsPerByte) {
    EXPECT_EQ(hexStr(""), "");
    EXPECT_EQ(hexStr(std::string("\x00\x0f\xab\xff", 4)), "000fabff");
}

TEST(DaboUtilTest, NewUuidIsCanonicalAndUniquePerCall) {
    const std::regex canonical("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const std::string uuid = newUUID();
        EXPECT_TRUE(std::regex_match(uuid, canonical)) << uuid;
        seen.insert(uuid);
    }
    EXPECT_EQ(seen.size(), 1000u);
}

}  // namespace
