// The binding classes: accessors, clone, copy, keys and bytes.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include <zmq.hpp>

#include "BindingTestSupport.h"

using namespace lumo::test;

extern "C" {
#define LUMO_TEST_DECLARE_FACTORY(T) void* generated_krin_DataEntity_lumotypes_##T();
LUMOTYPES_FOR_EACH_TOPIC(LUMO_TEST_DECLARE_FACTORY)
#undef LUMO_TEST_DECLARE_FACTORY
}

template <typename ST>
struct ExportedFactory;
#define LUMO_TEST_FACTORY(T)                                                     \
    template <>                                                                  \
    struct ExportedFactory<lumotypes::krin::T##Impl> {                           \
        static void* make() { return generated_krin_DataEntity_lumotypes_##T(); } \
    };
LUMOTYPES_FOR_EACH_TOPIC(LUMO_TEST_FACTORY)
#undef LUMO_TEST_FACTORY

// What an entity reads as through its getters: the bytes of its clone, which
// takes every field through them.
template <typename ST>
std::string readBack(const ST& entity) {
    auto clone = entity.clone();
    return hex(bytesOf(dynamic_cast<const ST&>(*clone)));
}

template <typename ST>
class EntityBindingAllTopics : public ::testing::Test {};
TYPED_TEST_SUITE(EntityBindingAllTopics, AllBindings);

TYPED_TEST(EntityBindingAllTopics, FromByteArrayOfNullAndZeroFailsAndLeavesTheEntityEmpty) {
    TypeParam entity;
    fillGolden(entity);
    EXPECT_FALSE(entity.fromByteArray(nullptr, 0));
    EXPECT_EQ(readBack(entity), readBack(TypeParam()));
}

TYPED_TEST(EntityBindingAllTopics, HasNoKeyAndKeyEqualsIsFalseEvenForItself) {
    TypeParam entity;
    fillGolden(entity);
    EXPECT_FALSE(entity.hasKey());
    EXPECT_FALSE(entity.keyEquals(entity));
}

TYPED_TEST(EntityBindingAllTopics, FailedFromByteArrayLosesOldContentAndTheObjectAcceptsGoodBytesAfterwards) {
    TypeParam entity;
    fillGolden(entity);
    const std::string good = bytesOf(entity);
    // A field number 0 is ill-formed; parsing stops there.
    EXPECT_FALSE(entity.fromByteArray(unhex("00 01")));
    EXPECT_EQ(readBack(entity), readBack(TypeParam()));
    EXPECT_TRUE(entity.fromByteArray(good.data(), good.size()));
    EXPECT_EQ(hex(bytesOf(entity)), hex(good));
}

TYPED_TEST(EntityBindingAllTopics, ToByteArrayIntoZmqMessageGivesTheSameBytesAsIntoString) {
    TypeParam entity;
    fillGolden(entity);
    zmq::message_t message(3);
    ASSERT_TRUE(entity.toByteArray(message));
    EXPECT_EQ(hex(message.to_string()), hex(goldenBytes<TypeParam>()));
}

TYPED_TEST(EntityBindingAllTopics, CloneSharesNothingAndSerialisesLikeTheSource) {
    auto entity = std::make_unique<TypeParam>();
    fillGolden(*entity);
    std::unique_ptr<typename TypeParam::Topic> clone = entity->clone();
    const auto& cloneImpl = dynamic_cast<const TypeParam&>(*clone);
    entity.reset();
    EXPECT_EQ(hex(bytesOf(cloneImpl)), hex(goldenBytes<TypeParam>()));
}

TYPED_TEST(EntityBindingAllTopics, ExportedFactoryMakesDistinctEmptyObjectsAtTheTopicsAddress) {
    void* first = ExportedFactory<TypeParam>::make();
    void* second = ExportedFactory<TypeParam>::make();
    ASSERT_NE(first, second);
    auto* firstEntity = static_cast<typename TypeParam::Topic*>(first);
    auto* impl = dynamic_cast<TypeParam*>(firstEntity);
    ASSERT_NE(impl, nullptr);
    EXPECT_EQ(static_cast<void*>(impl), first);
    TypeParam empty;
    EXPECT_EQ(hex(bytesOf(*impl)), hex(bytesOf(empty)));
    delete firstEntity;
    auto* other = dynamic_cast<TypeParam*>(static_cast<typename TypeParam::Topic*>(second));
    fillGolden(*other);
    EXPECT_EQ(hex(bytesOf(*other)), hex(goldenBytes<TypeParam>()));
    delete other;
}

TEST(EntityBinding, FreshRefPosReadsZeroesAndIsNotInitialized) {
    lumotypes::krin::RefPosImpl refPos;
    EXPECT_EQ(refPos.getRefPosX(), 0u);
    EXPECT_EQ(refPos.getRefPosY(), 0u);
    EXPECT_EQ(refPos.getCentBoxWidth(), 0u);
    EXPECT_EQ(refPos.getCentBoxHeight(), 0u);
    EXPECT_FALSE(refPos.wireMessage().IsInitialized());
}

TEST(EntityBinding, RefPosWithOnlyXSetSerialisesToFiveBytesThatDoNotParse) {
    lumotypes::krin::RefPosImpl refPos;
    refPos.setRefPosX(7);
    std::string bytes;
    ASSERT_TRUE(refPos.toByteArray(bytes));
    EXPECT_EQ(hex(bytes), "0D 07 00 00 00");
    lumotypes::krin::RefPosImpl received;
    EXPECT_FALSE(received.fromByteArray(bytes));
}

TEST(EntityBinding, CloneOfIncompleteRefPosIsCompleteAndReadsItsValues) {
    lumotypes::krin::RefPosImpl refPos;
    refPos.setRefPosX(7);
    auto clone = refPos.clone();
    const auto& impl = dynamic_cast<const lumotypes::krin::RefPosImpl&>(*clone);
    const std::string bytes = bytesOf(impl);
    EXPECT_EQ(bytes.size(), 20u);
    lumotypes::krin::RefPosImpl received;
    ASSERT_TRUE(received.fromByteArray(bytes));
    EXPECT_EQ(received.getRefPosX(), 7u);
    EXPECT_EQ(received.getRefPosY(), 0u);
    EXPECT_EQ(received.getCentBoxWidth(), 0u);
    EXPECT_EQ(received.getCentBoxHeight(), 0u);
}

TEST(EntityBinding, CloneKeyOfCompleteCentOptIsEmpty) {
    lumotypes::krin::CentOptImpl centOpt(5, 2.5f, 6);
    auto key = centOpt.cloneKey();
    EXPECT_EQ(key->getOptions(), 0u);
    EXPECT_EQ(key->getThreshold(), 0.0f);
    EXPECT_EQ(key->getNumBrightestPixels(), 0u);
    EXPECT_TRUE(bytesOf(dynamic_cast<const lumotypes::krin::CentOptImpl&>(*key)).empty());
}

TEST(EntityBinding, CopyFromHandWrittenRefPosWorksAndLeavesTargetComplete) {
    ForeignRefPos foreign;
    foreign.x = 10;
    foreign.height = 40;
    lumotypes::krin::RefPosImpl refPos;
    refPos.copy(foreign);
    EXPECT_EQ(refPos.getRefPosX(), 10u);
    EXPECT_EQ(refPos.getCentBoxHeight(), 40u);
    EXPECT_TRUE(refPos.wireMessage().IsInitialized());
    EXPECT_EQ(bytesOf(refPos).size(), 20u);
}

TEST(EntityBinding, CopyFromItselfKeepsValuesAndSetsAllPresenceBits) {
    lumotypes::krin::CentOptImpl centOpt;
    centOpt.setThreshold(3.5f);
    centOpt.copy(centOpt);
    EXPECT_EQ(centOpt.getThreshold(), 3.5f);
    EXPECT_EQ(centOpt.getOptions(), 0u);
    EXPECT_TRUE(centOpt.wireMessage().IsInitialized());
}

TEST(EntityBinding, SetSystemWithFourteenStoresTelNone) {
    lumotypes::krin::InterfaceControlArgsImpl args;
    args.setSystem(static_cast<lumotypes::TelescopeSystem>(14));
    EXPECT_EQ(args.getSystem(), lumotypes::TEL_NONE);
}

TEST(EntityBindingDeathTest, SetSystemOutsideTheEnumerationEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    lumotypes::krin::InterfaceControlArgsImpl args;
    EXPECT_DEATH(args.setSystem(static_cast<lumotypes::TelescopeSystem>(15)),
                 "::generated::krin::lumotypes::TelescopeSystem_IsValid\\(value\\)");
}

TEST(EntityBindingDeathTest, EveryEnumerationSetterAssertsItsWireEnumeration) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    lumotypes::krin::InterfaceControlArgsImpl args;
    lumotypes::krin::DummyImpl dummy;
    lumotypes::krin::LumoModeImpl mode;
    EXPECT_DEATH(args.setSystem(static_cast<lumotypes::TelescopeSystem>(-1)),
                 "void generated::krin::lumotypes::InterfaceControlArgs::_internal_set_system\\("
                 "generated::krin::lumotypes::TelescopeSystem\\).*"
                 "::generated::krin::lumotypes::TelescopeSystem_IsValid\\(value\\)");
    EXPECT_DEATH(args.setDirection(static_cast<lumotypes::DataFlow>(4)),
                 "void generated::krin::lumotypes::InterfaceControlArgs::_internal_set_direction\\("
                 "generated::krin::lumotypes::DataFlow\\).*"
                 "::generated::krin::lumotypes::DataFlow_IsValid\\(value\\)");
    EXPECT_DEATH(dummy.setDummy_param(static_cast<lumotypes::TelescopeSystem>(15)),
                 "void generated::krin::lumotypes::Dummy::_internal_set_dummy_param\\("
                 "generated::krin::lumotypes::TelescopeSystem\\).*"
                 "::generated::krin::lumotypes::TelescopeSystem_IsValid\\(value\\)");
    EXPECT_DEATH(mode.setControlMode(static_cast<lumotypes::CtrlMode>(6)),
                 "void generated::krin::lumotypes::LumoMode::_internal_set_controlmode\\("
                 "generated::krin::lumotypes::CtrlMode\\).*"
                 "::generated::krin::lumotypes::CtrlMode_IsValid\\(value\\)");
    EXPECT_DEATH(mode.setActiveCameraFs(static_cast<lumotypes::Camera>(9)),
                 "void generated::krin::lumotypes::LumoMode::_internal_set_activecamerafs\\("
                 "generated::krin::lumotypes::Camera\\).*"
                 "::generated::krin::lumotypes::Camera_IsValid\\(value\\)");
}

TEST(EntityBinding, FloatAndDoubleSettersKeepNanAndInfinitiesBitForBit) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    lumotypes::krin::HokuTopicOutImpl hoku;
    fillGolden(hoku);
    hoku.setTimestamp_utc(nan);
    hoku.setTimestamp_in_utc(-std::numeric_limits<double>::infinity());
    hoku.setSpare_channel_1(inf);
    hoku.setSpare_channel_2(-inf);
    hoku.setSpare_channel_3(std::numeric_limits<float>::signaling_NaN());
    lumotypes::krin::HokuTopicOutImpl received;
    ASSERT_TRUE(received.fromByteArray(bytesOf(hoku)));
    const auto bits = [](auto value) {
        std::uint64_t result = 0;
        std::memcpy(&result, &value, sizeof value);
        return result;
    };
    EXPECT_TRUE(std::isnan(received.getTimestamp_utc()));
    EXPECT_EQ(bits(received.getTimestamp_utc()), bits(nan));
    EXPECT_EQ(received.getTimestamp_in_utc(), -std::numeric_limits<double>::infinity());
    EXPECT_EQ(received.getSpare_channel_1(), inf);
    EXPECT_EQ(received.getSpare_channel_2(), -inf);
    EXPECT_EQ(bits(received.getSpare_channel_3()), bits(std::numeric_limits<float>::signaling_NaN()));
}

TEST(EntityBinding, TwoFactoryCallsGiveDistinctEmptyObjectsAndDestroyingOneLeavesTheOther) {
    auto* first = static_cast<lumotypes::RefPos*>(generated_krin_DataEntity_lumotypes_RefPos());
    auto* second = static_cast<lumotypes::RefPos*>(generated_krin_DataEntity_lumotypes_RefPos());
    ASSERT_NE(first, second);
    EXPECT_EQ(first->getRefPosX(), 0u);
    second->setRefPosX(3);
    delete first;
    EXPECT_EQ(second->getRefPosX(), 3u);
    EXPECT_NE(dynamic_cast<lumotypes::krin::RefPosImpl*>(second), nullptr);
    delete second;
}
