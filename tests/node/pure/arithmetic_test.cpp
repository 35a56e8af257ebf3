#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <limits>

#include "utils/checked.h"

TEST(SaturatingConversion, CoversEveryFloat) {
    const float infinity = std::numeric_limits<float>::infinity();
    const std::pair<float, uint32_t> rows[] = {{0.99F, 0},
                                               {1.0F, 1},
                                               {-0.5F, 0},
                                               {-infinity, 0},
                                               {std::nanf(""), 0},
                                               {infinity, ~0U},
                                               {4294967040.0F, 4294967040U},
                                               {4294967296.0F, ~0U}};
    for (const auto& [value, expected] : rows) {
        EXPECT_EQ(Orba::SaturatingUINT32(value), expected) << value;
    }
}

TEST(CheckedArithmetic, AbortsInsteadOfWrapping) {
    EXPECT_EQ(Orba::CheckedAdd(0xFFFFFFFEU, 1U), 0xFFFFFFFFU);
    EXPECT_EQ(Orba::CheckedIndex(7, 8), 7U);
    const auto isAbort = ::testing::KilledBySignal(SIGABRT);
    EXPECT_EXIT(Orba::CheckedAdd(0xFFFFFFFFU, 1U), isAbort, "");
    EXPECT_EXIT(Orba::CheckedAdd(std::numeric_limits<int>::max(), 1), isAbort, "");
    EXPECT_EXIT(Orba::CheckedSub(0U, 1U), isAbort, "");
    EXPECT_EXIT(Orba::CheckedMul(1 << 30, 4), isAbort, "");
    EXPECT_EXIT(Orba::CheckedIndex(8, 8), isAbort, "");
}
