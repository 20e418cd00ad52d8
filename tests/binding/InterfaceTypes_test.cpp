// The abstract topic classes and enumerations hosts program against.

#include <gtest/gtest.h>

#include <type_traits>

#include "BindingTestSupport.h"

namespace wire = generated::krin::lumotypes;

namespace {

template <typename T, typename = void>
struct HasSwapWfs : std::false_type {};
template <typename T>
struct HasSwapWfs<T, std::void_t<decltype(&T::swapWfs_gp1_err)>> : std::true_type {};

template <typename T, typename = void>
struct HasPdsCentErr : std::false_type {};
template <typename T>
struct HasPdsCentErr<T, std::void_t<decltype(&T::getPds_cent_err)>> : std::true_type {};

}  // namespace

TEST(InterfaceTypes, SimCentErrorsSequencesHaveGetAndSetButNoSwapUnlikeArrays) {
    static_assert(!HasSwapWfs<lumotypes::SimCentErrors>::value);
    static_assert(std::is_same_v<decltype(std::declval<lumotypes::SimCentErrors&>().getWfs_gp1_err()),
                                 std::vector<std::shared_ptr<lumotypes::CentError>>>);
    lumotypes::krin::FieldStablizationTopicInImpl entity;
    orlo::dabo::shared_vector<const float> value = lumo::test::floats({1.0f});
    entity.swapGp1_cent_err(value);
    EXPECT_EQ(entity.getGp1_cent_err().size(), 1u);
}

TEST(InterfaceTypes, FieldStablizationTopicOutHasNoPdsCentErrWhileTopicInHasAllFour) {
    static_assert(!HasPdsCentErr<lumotypes::FieldStablizationTopicOut>::value);
    static_assert(HasPdsCentErr<lumotypes::FieldStablizationTopicIn>::value);
    static_assert(std::is_same_v<decltype(&lumotypes::FieldStablizationTopicOut::getGp3_cent_err),
                                 orlo::dabo::shared_vector<const float> (lumotypes::FieldStablizationTopicOut::*)()
                                     const>);
    SUCCEED();
}

TEST(InterfaceTypes, CentErrorHasOneBoolFieldAndRefPosAndCentOptCountersAreUnsigned) {
    // Every field, both ways: the getter's result and the setter's parameter.
#define LUMO_EXPECT_FIELD_TYPE(Topic, Stem, Type)                                                           \
    static_assert(std::is_same_v<decltype(&lumotypes::Topic::get##Stem), Type (lumotypes::Topic::*)() const>, \
                  #Topic "::get" #Stem " returns " #Type);                                                  \
    static_assert(std::is_same_v<decltype(&lumotypes::Topic::set##Stem), void (lumotypes::Topic::*)(Type)>,  \
                  #Topic "::set" #Stem " takes " #Type);
    LUMO_EXPECT_FIELD_TYPE(CentError, X_err_in_pixels, float)
    LUMO_EXPECT_FIELD_TYPE(CentError, Y_err_in_pixels, float)
    LUMO_EXPECT_FIELD_TYPE(CentError, Flux, float)
    LUMO_EXPECT_FIELD_TYPE(CentError, Readout_err, bool)
    LUMO_EXPECT_FIELD_TYPE(RefPos, RefPosX, std::uint32_t)
    LUMO_EXPECT_FIELD_TYPE(RefPos, RefPosY, std::uint32_t)
    LUMO_EXPECT_FIELD_TYPE(RefPos, CentBoxWidth, std::uint32_t)
    LUMO_EXPECT_FIELD_TYPE(RefPos, CentBoxHeight, std::uint32_t)
    LUMO_EXPECT_FIELD_TYPE(CentOpt, Options, std::uint32_t)
    LUMO_EXPECT_FIELD_TYPE(CentOpt, Threshold, float)
    LUMO_EXPECT_FIELD_TYPE(CentOpt, NumBrightestPixels, std::uint32_t)
#undef LUMO_EXPECT_FIELD_TYPE
    // The unsigned range survives, where a signed or float field would not.
    lumotypes::krin::RefPosImpl refPos(0xFFFFFFFFu, 0, 0, 0);
    EXPECT_EQ(refPos.getRefPosX(), 0xFFFFFFFFu);
    lumotypes::krin::CentErrorImpl centError;
    centError.setReadout_err(true);
    EXPECT_TRUE(centError.getReadout_err());
}

TEST(InterfaceTypes, StemsKeepTheWireNamesInnerCaseAndUnderscores) {
    lumotypes::krin::FieldStablizationTopicOutImpl out;
    out.setTimestamp_in_utc(1.25);
    out.setSpare_channel_6(6.5f);
    lumotypes::krin::CentOptImpl centOpt;
    centOpt.setNumBrightestPixels(11);
    EXPECT_EQ(out.getTimestamp_in_utc(), 1.25);
    EXPECT_EQ(out.getSpare_channel_6(), 6.5f);
    EXPECT_EQ(centOpt.getNumBrightestPixels(), 11u);
}

TEST(InterfaceTypes, InterfaceEnumerationsMatchTheWireInNamesAndNumbers) {
    const auto check = [](const google::protobuf::EnumDescriptor* descriptor, int count) {
        EXPECT_EQ(descriptor->value_count(), count) << descriptor->name();
    };
    check(wire::DataFlow_descriptor(), 4);
    check(wire::TelescopeSystem_descriptor(), 15);
    check(wire::CtrlMode_descriptor(), 6);
    check(wire::Camera_descriptor(), 9);
    EXPECT_EQ(lumotypes::NONE, wire::NONE);
    EXPECT_EQ(lumotypes::BIDIRECTIONAL, wire::BIDIRECTIONAL);
    EXPECT_EQ(lumotypes::TEL_ALL, 0);
    EXPECT_EQ(lumotypes::TEL_NONE, wire::TEL_NONE);
    EXPECT_EQ(lumotypes::TEL_NONE, 14);
    EXPECT_EQ(lumotypes::TEL_GP3_WFS, wire::TEL_GP3_WFS);
    EXPECT_EQ(lumotypes::HIGH_ORDER_CASCADE_WITH_HOKU_TT, wire::HIGH_ORDER_CASCADE_WITH_HOKU_TT);
    EXPECT_EQ(lumotypes::CAMERA_NONE, 0);
    EXPECT_EQ(lumotypes::WFS_PDS, wire::WFS_PDS);
    EXPECT_EQ(lumotypes::WFS_PDS, 8);
}

TEST(InterfaceTypes, TopicListNamesTheElevenTopicsInSchemaOrder) {
    std::vector<std::string> names;
#define LUMO_TEST_NAME(T) names.push_back(#T);
    LUMOTYPES_FOR_EACH_TOPIC(LUMO_TEST_NAME)
#undef LUMO_TEST_NAME
    const auto* file = wire::RefPos::descriptor()->file();
    ASSERT_EQ(names.size(), 11u);
    ASSERT_EQ(file->message_type_count(), 11);
    for (int i = 0; i < file->message_type_count(); ++i) {
        EXPECT_EQ(names[static_cast<std::size_t>(i)], file->message_type(i)->name());
    }
}
