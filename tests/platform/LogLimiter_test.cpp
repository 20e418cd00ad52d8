#include "dabo/krin/detail/LogLimiter.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using orlo::dabo::krin::detail::LogLimiter;
using std::chrono::milliseconds;

const LogLimiter::Clock::time_point start{};

TEST(LogLimiterTest, FirstOccurrenceIsWrittenThenOneLinePerIntervalTellingHowManyWereHeldBack) {
    LogLimiter limiter(milliseconds(1000));
    unsigned long heldBack = 99;
    EXPECT_TRUE(limiter.admit("peer refused", start, heldBack));
    EXPECT_EQ(heldBack, 0u);
    for (int n = 1; n <= 500; ++n) {
        EXPECT_FALSE(limiter.admit("peer refused", start + milliseconds(n), heldBack));
    }
    EXPECT_TRUE(limiter.admit("peer refused", start + milliseconds(1000), heldBack));
    EXPECT_EQ(heldBack, 500u);
    EXPECT_FALSE(limiter.admit("peer refused", start + milliseconds(1500), heldBack));
    EXPECT_TRUE(limiter.admit("peer refused", start + milliseconds(2000), heldBack));
    EXPECT_EQ(heldBack, 1u);
}

TEST(LogLimiterTest, DifferentKeysAreWrittenEachInFull) {
    LogLimiter limiter(milliseconds(1000));
    EXPECT_TRUE(limiter.admit("one", start));
    EXPECT_TRUE(limiter.admit("other", start));
    EXPECT_FALSE(limiter.admit("one", start));
}

TEST(LogLimiterTest, NoteSaysHowManyWereHeldBackOrNothing) {
    EXPECT_EQ(LogLimiter::heldBackNote(0), "");
    EXPECT_EQ(LogLimiter::heldBackNote(7), " (7 more times since the last report)");
}

}  // namespace
