// Bytes from outside never crash a binding: random, truncated and mutated
// byte strings either parse into a well-formed sample or are refused.

#include <gtest/gtest.h>

#include <random>

#include "BindingTestSupport.h"

using namespace lumo::test;

template <typename ST>
class FromByteArray : public ::testing::Test {
protected:
    // A successful parse must hold a sample that goes to bytes and back.
    static void expectParsedSampleIsStable(ST& entity) {
        const std::string bytes = bytesOf(entity);
        ST again;
        ASSERT_TRUE(again.fromByteArray(bytes));
        EXPECT_EQ(hex(bytesOf(again)), hex(bytes));
    }
};
TYPED_TEST_SUITE(FromByteArray, AllBindings);

TYPED_TEST(FromByteArray, RandomByteStringsAreRefusedOrParseIntoAStableSample) {
    std::mt19937 random(1234);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> length(0, 64);
    int accepted = 0;
    for (int i = 0; i < 2000; ++i) {
        std::string bytes(static_cast<std::size_t>(length(random)), '\0');
        for (char& c : bytes) {
            c = static_cast<char>(byte(random));
        }
        TypeParam entity;
        if (entity.fromByteArray(bytes.data(), bytes.size())) {
            ++accepted;
            this->expectParsedSampleIsStable(entity);
        }
    }
    EXPECT_LT(accepted, 100);
}

TYPED_TEST(FromByteArray, EveryTruncationOfAGoodSampleIsRefusedOrIsAWellFormedPrefix) {
    const std::string good = goldenBytes<TypeParam>();
    for (std::size_t length = 0; length < good.size(); ++length) {
        const std::string prefix = good.substr(0, length);
        TypeParam entity;
        if (entity.fromByteArray(prefix)) {
            // Only a cut between fields after the last required one can pass,
            // and then the sample is exactly the prefix.
            EXPECT_EQ(hex(bytesOf(entity)), hex(prefix)) << "length " << length;
        }
    }
    TypeParam entity;
    EXPECT_FALSE(entity.fromByteArray(good.substr(0, 1)));
    EXPECT_TRUE(entity.fromByteArray(good));
}

TYPED_TEST(FromByteArray, SingleByteMutationsOfAGoodSampleNeverCrash) {
    const std::string good = goldenBytes<TypeParam>();
    std::mt19937 random(99);
    std::uniform_int_distribution<int> byte(0, 255);
    for (std::size_t position = 0; position < good.size(); ++position) {
        for (int round = 0; round < 8; ++round) {
            std::string mutated = good;
            mutated[position] = static_cast<char>(byte(random));
            TypeParam entity;
            if (entity.fromByteArray(mutated)) {
                this->expectParsedSampleIsStable(entity);
            }
        }
    }
}
