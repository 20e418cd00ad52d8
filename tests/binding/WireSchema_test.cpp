// The bytes of every topic sample, and what parsing accepts and refuses.

#include <gtest/gtest.h>

#include "BindingTestSupport.h"

namespace wire = generated::krin::lumotypes;
using namespace lumo::test;

template <typename ST>
class WireSchemaAllTopics : public ::testing::Test {};
TYPED_TEST_SUITE(WireSchemaAllTopics, AllBindings);

TYPED_TEST(WireSchemaAllTopics, FixedSampleSerialisesToItsHandWorkedBytes) {
    TypeParam entity;
    fillGolden(entity);
    EXPECT_EQ(hex(bytesOf(entity)), hex(goldenBytes<TypeParam>()));
}

TYPED_TEST(WireSchemaAllTopics, HandWorkedBytesParseAndSerialiseAgainUnchanged) {
    TypeParam entity;
    ASSERT_TRUE(entity.fromByteArray(goldenBytes<TypeParam>()));
    EXPECT_EQ(hex(bytesOf(entity)), hex(goldenBytes<TypeParam>()));
}

TYPED_TEST(WireSchemaAllTopics, ParsingTheEmptyByteStringFails) {
    TypeParam entity;
    EXPECT_FALSE(entity.fromByteArray(std::string()));
}

TEST(WireSchema, DummyHoldingTelM5IsTheTwoBytes0802) {
    lumotypes::krin::DummyImpl dummy;
    dummy.setDummy_param(lumotypes::TEL_M5);
    EXPECT_EQ(hex(bytesOf(dummy)), "08 02");
}

TEST(WireSchema, CompleteRefPosIsAlwaysTwentyBytes) {
    for (std::uint32_t value : {0u, 1u, 0xFFFFFFFFu}) {
        lumotypes::krin::RefPosImpl refPos(value, value, value, value);
        EXPECT_EQ(bytesOf(refPos).size(), 20u);
    }
}

TEST(WireSchema, CompleteCentOptIsFifteenBytes) {
    lumotypes::krin::CentOptImpl centOpt(0xFFFFFFFFu, 1e30f, 0);
    EXPECT_EQ(bytesOf(centOpt).size(), 15u);
}

TEST(WireSchema, CompleteCentErrorIsSeventeenBytes) {
    lumotypes::krin::CentErrorImpl centError(0.0f, 0.0f, 0.0f, false);
    EXPECT_EQ(bytesOf(centError).size(), 17u);
}

TEST(WireSchema, CompleteInterfaceControlArgsAndLumoModeAreFourBytes) {
    lumotypes::krin::InterfaceControlArgsImpl args(lumotypes::TEL_NONE, lumotypes::NONE);
    lumotypes::krin::LumoModeImpl mode(lumotypes::HIGH_ORDER_CASCADE_WITH_HOKU_TT, lumotypes::WFS_PDS);
    EXPECT_EQ(bytesOf(args).size(), 4u);
    EXPECT_EQ(bytesOf(mode).size(), 4u);
}

TEST(WireSchema, SimCentErrorsWithFourCompleteImagersIsSeventySixBytesAndEachSensorElementAddsNineteen) {
    lumotypes::krin::SimCentErrorsImpl errors;
    for (auto view : {errors.getImg_gp1_err(), errors.getImg_gp2_err(), errors.getImg_gp3_err(),
                      errors.getImg_pds_err()}) {
        fillCentError(*view, 1, 2, 3, true);
    }
    EXPECT_EQ(bytesOf(errors).size(), 76u);
    errors.setWfs_gp1_err({centError(1, 2, 3, false)});
    EXPECT_EQ(bytesOf(errors).size(), 76u + 19u);
    errors.setWfs_pds_err({centError(1, 2, 3, false), centError(4, 5, 6, true)});
    EXPECT_EQ(bytesOf(errors).size(), 76u + 3 * 19u);
}

TEST(WireSchema, DummyWithNumberOutsideTheEnumerationFailsToParse) {
    lumotypes::krin::DummyImpl dummy;
    EXPECT_FALSE(dummy.fromByteArray(unhex("08 0F")));
}

TEST(WireSchema, InterfaceControlArgsWithDirectionOutsideTheEnumerationFailsToParse) {
    lumotypes::krin::InterfaceControlArgsImpl args;
    EXPECT_TRUE(args.fromByteArray(unhex("08 01 10 03")));
    EXPECT_FALSE(args.fromByteArray(unhex("08 01 10 04")));
}

TEST(WireSchema, HokuTopicInWithEmptyArraysIsCompleteAndParses) {
    lumotypes::krin::HokuTopicInImpl hoku;
    hoku.setQuality(true);
    hoku.setSim(false);
    hoku.setTimestamp_utc(12.5);
    hoku.setSample_id(3);
    EXPECT_TRUE(hoku.wireMessage().IsInitialized());
    lumotypes::krin::HokuTopicInImpl received;
    EXPECT_TRUE(received.fromByteArray(bytesOf(hoku)));
    EXPECT_EQ(received.getSample_id(), 3u);
}

TEST(WireSchema, SimCentErrorsWithSensorElementMissingFluxFailsToParse) {
    wire::SimCentErrors message;
    for (wire::CentError* img : {message.mutable_img_gp1_err(), message.mutable_img_gp2_err(),
                                 message.mutable_img_gp3_err(), message.mutable_img_pds_err()}) {
        img->set_x_err_in_pixels(1);
        img->set_y_err_in_pixels(1);
        img->set_flux(1);
        img->set_readout_err(false);
    }
    wire::CentError* element = message.add_wfs_gp2_err();
    element->set_x_err_in_pixels(1);
    element->set_y_err_in_pixels(1);
    element->set_readout_err(false);
    std::string bytes = message.SerializePartialAsString();
    lumotypes::krin::SimCentErrorsImpl received;
    EXPECT_FALSE(received.fromByteArray(bytes));
}

TEST(WireSchema, UnknownExtraFieldParsesAndSurvivesReserialisation) {
    // A complete RefPos followed by field 9 as a varint holding 5.
    const std::string bytes = goldenBytes<lumotypes::krin::RefPosImpl>() + unhex("48 05");
    lumotypes::krin::RefPosImpl refPos;
    ASSERT_TRUE(refPos.fromByteArray(bytes));
    EXPECT_EQ(refPos.getCentBoxHeight(), 4u);
    EXPECT_EQ(hex(bytesOf(refPos)), hex(bytes));
}

TEST(WireSchema, ArrayAcceptsUnpackedElementsAsWellAsPacked) {
    lumotypes::krin::HokuTopicOutImpl hoku;
    fillGolden(hoku);
    // hoku_command as one packed element, then one more unpacked (tag 0x2D).
    const std::string bytes = bytesOf(hoku) + unhex("2D 00 00 00 40");
    lumotypes::krin::HokuTopicOutImpl received;
    ASSERT_TRUE(received.fromByteArray(bytes));
    auto command = received.getHoku_command();
    ASSERT_EQ(command.size(), 2u);
    EXPECT_EQ(command[0], 1.0f);
    EXPECT_EQ(command[1], 2.0f);
}
