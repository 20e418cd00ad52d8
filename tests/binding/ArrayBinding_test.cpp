// Array fields: zero-copy views on the way out, copies on the way in.

#include <gtest/gtest.h>

#include "BindingTestSupport.h"

using namespace lumo::test;
using orlo::dabo::shared_vector;
using lumotypes::krin::FieldStablizationTopicInImpl;

namespace {

std::vector<float> elements(const shared_vector<const float>& view) { return view.toVector(); }

}  // namespace

TEST(ArrayBinding, GetterOnNewEntityIsEmptyWithNullData) {
    FieldStablizationTopicInImpl entity;
    auto view = entity.getGp1_cent_err();
    EXPECT_EQ(view.size(), 0u);
    EXPECT_EQ(view.dataOffset(), 0u);
    EXPECT_EQ(view.dataTotal(), 0u);
    EXPECT_EQ(view.data(), nullptr);
    EXPECT_EQ(view.dataPtr(), nullptr);
}

TEST(ArrayBinding, ViewAfterSetIsTheFieldsOwnStorage) {
    FieldStablizationTopicInImpl entity;
    entity.setGp1_cent_err(floats({1, 2, 3}));
    auto view = entity.getGp1_cent_err();
    EXPECT_EQ(view.size(), 3u);
    EXPECT_EQ(view.dataOffset(), 0u);
    EXPECT_GE(view.dataTotal(), 3u);
    EXPECT_EQ(view.data(), entity.wireMessage().gp1_cent_err().data());
    EXPECT_EQ(elements(view), (std::vector<float>{1, 2, 3}));
}

TEST(ArrayBinding, SetterHonoursOffsetAndCountOfTheValue) {
    auto storage = floats({1, 2, 3, 4, 5});
    shared_vector<const float> tail(storage.dataPtr(), 2, 3, 5);
    FieldStablizationTopicInImpl entity;
    entity.setGp1_cent_err(tail);
    EXPECT_EQ(elements(entity.getGp1_cent_err()), (std::vector<float>{3, 4, 5}));
}

TEST(ArrayBinding, SettingAnEmptyVectorEmptiesTheFieldAndLeavesItOffTheWire) {
    FieldStablizationTopicInImpl entity;
    fillGolden(entity);
    const std::string before = bytesOf(entity);
    entity.setGp1_cent_err(shared_vector<const float>());
    EXPECT_EQ(entity.getGp1_cent_err().size(), 0u);
    const std::string after = bytesOf(entity);
    // The two packed floats of gp1_cent_err were tag, length and 8 bytes.
    EXPECT_EQ(after.size(), before.size() - 10);
    EXPECT_EQ(after.find(unhex("2A 08")), std::string::npos);
}

TEST(ArrayBinding, SwapCopiesTheValueInAndExchangesNothing) {
    FieldStablizationTopicInImpl entity;
    entity.setGp1_cent_err(floats({9, 9, 9}));
    auto v = floats({1, 2, 3, 4});
    const float* vData = v.data();
    const long owners = v.dataPtr().use_count();
    entity.swapGp1_cent_err(v);
    EXPECT_EQ(elements(v), (std::vector<float>{1, 2, 3, 4}));
    EXPECT_EQ(v.data(), vData);
    EXPECT_EQ(v.dataPtr().use_count(), owners);
    auto view = entity.getGp1_cent_err();
    EXPECT_EQ(elements(view), (std::vector<float>{1, 2, 3, 4}));
    EXPECT_NE(view.data(), vData);
}

TEST(ArrayBinding, ViewTakenBeforeShorterSetKeepsItsOldCountAndShowsStaleTail) {
    FieldStablizationTopicInImpl entity;
    entity.setGp1_cent_err(floats({1, 2, 3, 4}));
    auto old = entity.getGp1_cent_err();
    entity.setGp1_cent_err(floats({7, 8}));
    EXPECT_EQ(old.size(), 4u);
    EXPECT_EQ(old.data(), entity.getGp1_cent_err().data());
    EXPECT_EQ(elements(old), (std::vector<float>{7, 8, 3, 4}));
}

TEST(ArrayBinding, ViewDanglesWhenALongerSetOutgrowsTheCapacity) {
    FieldStablizationTopicInImpl entity;
    entity.setGp1_cent_err(floats({1}));
    auto old = entity.getGp1_cent_err();
    const std::size_t capacity = old.dataTotal();
    std::vector<float> longer(capacity + 8, 5.0f);
    entity.setGp1_cent_err(shared_vector<const float>(longer));
    // The field moved to new storage; the old view still points at the old one.
    EXPECT_NE(entity.getGp1_cent_err().data(), old.data());
    EXPECT_EQ(old.size(), 1u);
}

TEST(ArrayBinding, LaterChangesToTheValuesStorageDoNotReachTheEntity) {
    std::shared_ptr<float> storage(new float[3]{1, 2, 3}, std::default_delete<float[]>());
    shared_vector<float> writable(storage, 3);
    shared_vector<const float> value(std::shared_ptr<const float>(storage), 0, 3, 3);
    FieldStablizationTopicInImpl entity;
    entity.setGp1_cent_err(value);
    writable[0] = 100;
    EXPECT_EQ(value[0], 100);
    EXPECT_EQ(elements(entity.getGp1_cent_err()), (std::vector<float>{1, 2, 3}));
}

TEST(ArrayBinding, SettingAFieldItsOwnViewLeavesItUnchanged) {
    FieldStablizationTopicInImpl entity;
    entity.setGp1_cent_err(floats({1, 2, 3, 4, 5}));
    const float* storage = entity.getGp1_cent_err().data();
    entity.setGp1_cent_err(entity.getGp1_cent_err());
    EXPECT_EQ(elements(entity.getGp1_cent_err()), (std::vector<float>{1, 2, 3, 4, 5}));
    EXPECT_EQ(entity.getGp1_cent_err().data(), storage);
}

TEST(ArrayBinding, ArraysOfDifferentLengthsIncludingZeroPassEveryOperation) {
    lumotypes::krin::FieldStablizationTopicOutImpl entity;
    fillGolden(entity);
    entity.setGp1_cmd(floats({1}));
    entity.setGp2_cmd(floats({1, 2, 3, 4, 5, 6, 7}));
    entity.setGp3_cmd(shared_vector<const float>());
    std::vector<float> big(1000, 0.5f);
    entity.setU4_fs_tt(shared_vector<const float>(big));
    EXPECT_TRUE(entity.wireMessage().IsInitialized());
    auto clone = entity.clone();
    lumotypes::krin::FieldStablizationTopicOutImpl copy;
    copy.copy(*clone);
    lumotypes::krin::FieldStablizationTopicOutImpl received;
    ASSERT_TRUE(received.fromByteArray(bytesOf(copy)));
    EXPECT_EQ(received.getGp1_cmd().size(), 1u);
    EXPECT_EQ(received.getGp2_cmd().size(), 7u);
    EXPECT_EQ(received.getGp3_cmd().size(), 0u);
    EXPECT_EQ(received.getU4_fs_tt().size(), 1000u);
    EXPECT_EQ(received.getTt_err().size(), 1u);
}

TEST(ArrayBinding, CloneHasAnIndependentArray) {
    lumotypes::krin::HokuTopicInImpl entity;
    fillGolden(entity);
    auto clone = entity.clone();
    entity.setM4_setpoints_applied(floats({9}));
    EXPECT_EQ(elements(clone->getM4_setpoints_applied()), (std::vector<float>{0.5f, 0.25f}));
    EXPECT_NE(clone->getM4_setpoints_applied().data(), entity.getM4_setpoints_applied().data());
}
