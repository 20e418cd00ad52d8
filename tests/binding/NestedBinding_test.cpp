// SimCentErrors: live views of the four imagers, detached copies of the four
// sensor sequences.

#include <gtest/gtest.h>

#include "BindingTestSupport.h"

using namespace lumo::test;
using lumotypes::krin::CentErrorImpl;
using lumotypes::krin::SimCentErrorsImpl;

namespace {

void completeImagers(SimCentErrorsImpl& errors) {
    for (auto view : {errors.getImg_gp1_err(), errors.getImg_gp2_err(), errors.getImg_gp3_err(),
                      errors.getImg_pds_err()}) {
        fillCentError(*view, 1, 2, 3, false);
    }
}

}  // namespace

TEST(NestedBinding, NewEntitySerialisesToFourEmptySubMessages) {
    SimCentErrorsImpl errors;
    EXPECT_EQ(hex(bytesOf(errors)), "0A 00 12 00 1A 00 22 00");
    EXPECT_FALSE(errors.wireMessage().IsInitialized());
}

TEST(NestedBinding, ImagerGetterReturnsTheSameLiveViewEveryTime) {
    SimCentErrorsImpl errors;
    auto first = errors.getImg_gp1_err();
    EXPECT_EQ(first, errors.getImg_gp1_err());
    errors.getImg_gp1_err()->setFlux(1.5f);
    EXPECT_EQ(hex(bytesOf(errors)), "0A 05 1D 00 00 C0 3F 12 00 1A 00 22 00");
    EXPECT_EQ(errors.wireMessage().img_gp1_err().flux(), 1.5f);
}

TEST(NestedBinding, SensorGetterReturnsDetachedCopies) {
    SimCentErrorsImpl errors;
    errors.setWfs_gp1_err({centError(1, 1, 1, false)});
    auto first = errors.getWfs_gp1_err();
    auto second = errors.getWfs_gp1_err();
    ASSERT_EQ(first.size(), 1u);
    EXPECT_NE(first[0], second[0]);
    first[0]->setFlux(42);
    EXPECT_EQ(second[0]->getFlux(), 1);
    EXPECT_EQ(errors.wireMessage().wfs_gp1_err(0).flux(), 1);
}

TEST(NestedBinding, SettingAnImagerFromPartialEntityMakesItsOtherFieldsPresent) {
    SimCentErrorsImpl errors;
    auto partial = std::make_shared<CentErrorImpl>();
    partial->setFlux(2);
    errors.setImg_gp2_err(partial);
    const auto& img = errors.wireMessage().img_gp2_err();
    EXPECT_TRUE(img.has_x_err_in_pixels());
    EXPECT_TRUE(img.has_y_err_in_pixels());
    EXPECT_TRUE(img.has_readout_err());
    EXPECT_EQ(img.flux(), 2);
    EXPECT_TRUE(img.IsInitialized());
}

TEST(NestedBinding, SettingASensorFromPartialBindingKeepsTheElementIncomplete) {
    SimCentErrorsImpl errors;
    completeImagers(errors);
    auto partial = std::make_shared<CentErrorImpl>();
    partial->setFlux(2);
    errors.setWfs_gp2_err({partial});
    EXPECT_FALSE(errors.wireMessage().wfs_gp2_err(0).has_x_err_in_pixels());
    EXPECT_FALSE(errors.wireMessage().IsInitialized());
    SimCentErrorsImpl received;
    EXPECT_FALSE(received.fromByteArray(bytesOf(errors)));
}

TEST(NestedBinding, SettingASensorFromForeignEntityMakesTheElementComplete) {
    SimCentErrorsImpl errors;
    completeImagers(errors);
    auto foreign = std::make_shared<ForeignCentError>();
    foreign->flux = 2;
    errors.setWfs_gp2_err({foreign});
    EXPECT_TRUE(errors.wireMessage().wfs_gp2_err(0).IsInitialized());
    SimCentErrorsImpl received;
    ASSERT_TRUE(received.fromByteArray(bytesOf(errors)));
    EXPECT_EQ(received.getWfs_gp2_err().at(0)->getFlux(), 2);
}

TEST(NestedBinding, SettingAnImagerItsOwnViewChangesNothing) {
    SimCentErrorsImpl errors;
    fillCentError(*errors.getImg_gp1_err(), 1, 2, 3, true);
    const std::string before = bytesOf(errors);
    errors.setImg_gp1_err(errors.getImg_gp1_err());
    EXPECT_EQ(hex(bytesOf(errors)), hex(before));
}

TEST(NestedBinding, ViewTakenBeforeFromByteArrayShowsTheNewSample) {
    SimCentErrorsImpl errors;
    auto pds = errors.getImg_pds_err();
    SimCentErrorsImpl source;
    fillGolden(source);
    ASSERT_TRUE(errors.fromByteArray(bytesOf(source)));
    EXPECT_EQ(pds->getFlux(), 4);
    EXPECT_TRUE(pds->getReadout_err());
}

TEST(NestedBinding, SetAfterParseWithoutImagerWritesSubMessageButNotThePresenceBit) {
    SimCentErrorsImpl source;
    completeImagers(source);
    std::string bytes = bytesOf(source);
    // Drop the third imager (tag 0x1A, 17 bytes of content).
    const std::size_t at = bytes.find(unhex("1A 11"));
    ASSERT_NE(at, std::string::npos);
    bytes.erase(at, 19);
    SimCentErrorsImpl errors;
    EXPECT_FALSE(errors.fromByteArray(bytes));
    errors.setImg_gp3_err(centError(5, 6, 7, true));
    EXPECT_EQ(errors.getImg_gp3_err()->getFlux(), 7);
    EXPECT_FALSE(errors.wireMessage().has_img_gp3_err());
    EXPECT_EQ(bytesOf(errors).find(unhex("1A 11")), std::string::npos);
}

TEST(NestedBinding, CloneHoldsTheSameValuesInItsOwnSubMessages) {
    SimCentErrorsImpl errors;
    fillGolden(errors);
    auto clone = errors.clone();
    const auto& cloneImpl = dynamic_cast<const SimCentErrorsImpl&>(*clone);
    EXPECT_EQ(hex(bytesOf(cloneImpl)), hex(goldenBytes<SimCentErrorsImpl>()));
    errors.getImg_gp1_err()->setFlux(99);
    EXPECT_EQ(clone->getImg_gp1_err()->getFlux(), 1);
    EXPECT_NE(clone->getImg_gp1_err(), errors.getImg_gp1_err());
}

TEST(NestedBinding, SettingASensorToAnEmptyVectorEmptiesIt) {
    SimCentErrorsImpl errors;
    errors.setWfs_gp1_err({centError(1, 1, 1, false), centError(2, 2, 2, false)});
    errors.setWfs_gp1_err({});
    EXPECT_TRUE(errors.getWfs_gp1_err().empty());
    EXPECT_EQ(errors.wireMessage().wfs_gp1_err_size(), 0);
}

TEST(NestedBindingDeathTest, SettingASensorWithANullElementEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    SimCentErrorsImpl errors;
    EXPECT_DEATH(errors.setWfs_gp1_err({centError(1, 1, 1, false), nullptr}), "_M_get\\(\\) != nullptr");
}

TEST(NestedBindingDeathTest, SettingAnImagerToNullEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    SimCentErrorsImpl errors;
    EXPECT_DEATH(errors.setImg_gp1_err(nullptr), "_M_get\\(\\) != nullptr");
    EXPECT_DEATH(errors.setImg_gp2_err(nullptr), "_M_get\\(\\) != nullptr");
    EXPECT_DEATH(errors.setImg_gp3_err(nullptr), "_M_get\\(\\) != nullptr");
    EXPECT_DEATH(errors.setImg_pds_err(nullptr), "_M_get\\(\\) != nullptr");
}

TEST(NestedBinding, CopyTakesImagersAndSensorsFromAnyImplementation) {
    SimCentErrorsImpl source;
    fillGolden(source);
    SimCentErrorsImpl target;
    auto view = target.getImg_gp3_err();
    target.copy(source);
    EXPECT_EQ(hex(bytesOf(target)), hex(goldenBytes<SimCentErrorsImpl>()));
    EXPECT_EQ(view->getFlux(), 3);
}
