// The reference-counted array view of the interface.

#include <gtest/gtest.h>

#include <stdexcept>

#include "dabo/utility/shared_vector.h"

using orlo::dabo::freeze;
using orlo::dabo::shared_vector;

TEST(SharedVector, DefaultVectorIsEmptyWithoutStorage) {
    shared_vector<const float> v;
    EXPECT_TRUE(v.empty());
    EXPECT_EQ(v.data(), nullptr);
    EXPECT_EQ(v.begin(), v.end());
}

TEST(SharedVector, VectorFromStdVectorCopiesTheElements) {
    std::vector<float> source{1, 2, 3};
    shared_vector<const float> v(source);
    source[0] = 7;
    EXPECT_EQ(v.size(), 3u);
    EXPECT_EQ(v[0], 1);
    EXPECT_EQ(v.toVector(), (std::vector<float>{1, 2, 3}));
}

TEST(SharedVector, VectorFromPointerAndCountCopiesTheElements) {
    const float source[] = {4, 5};
    shared_vector<const float> v(source, 2);
    EXPECT_NE(v.data(), source);
    EXPECT_EQ(v.toVector(), (std::vector<float>{4, 5}));
}

TEST(SharedVector, NullStorageZeroesOffsetCountAndTotal) {
    shared_vector<float> v(nullptr, 3, 4, 9);
    EXPECT_EQ(v.dataOffset(), 0u);
    EXPECT_EQ(v.size(), 0u);
    EXPECT_EQ(v.dataTotal(), 0u);
}

TEST(SharedVector, ElementsStartAtTheOffset) {
    shared_vector<const float> all{1, 2, 3, 4, 5};
    shared_vector<const float> tail(all.dataPtr(), 2, 3, 5);
    EXPECT_EQ(tail.toVector(), (std::vector<float>{3, 4, 5}));
    EXPECT_EQ(all.slice(1, 2).toVector(), (std::vector<float>{2, 3}));
}

TEST(SharedVector, FreezeMovesTheMembersAcrossAndEmptiesTheSource) {
    shared_vector<float> writable(std::shared_ptr<float>(new float[4]{1, 2, 3, 4}, std::default_delete<float[]>()),
                                  1, 2, 4);
    const float* data = writable.data();
    shared_vector<const float> frozen = freeze(std::move(writable));
    EXPECT_EQ(frozen.data(), data);
    EXPECT_EQ(frozen.dataOffset(), 1u);
    EXPECT_EQ(frozen.size(), 2u);
    EXPECT_EQ(frozen.dataTotal(), 4u);
    EXPECT_EQ(writable.dataPtr(), nullptr);  // NOLINT(bugprone-use-after-move): moved-from state is defined
}

TEST(SharedVector, FreezingAVectorWithAnotherOwnerThrows) {
    shared_vector<float> writable(std::shared_ptr<float>(new float[2]{1, 2}, std::default_delete<float[]>()), 2);
    shared_vector<float> other = writable;
    try {
        freeze(std::move(writable));
        FAIL() << "freeze accepted a shared vector";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Can't freeze non-unique vector");
    }
}

TEST(SharedVectorDeathTest, CountAboveTotalEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::shared_ptr<float> storage(new float[3], std::default_delete<float[]>());
    EXPECT_DEATH(shared_vector<float>(storage, 0, 4, 3),
                 "void orlo::dabo::detail::shared_vector_base<E>::_null_input\\(\\) \\[with E = float\\].*"
                 "m_count <= m_total");
}
