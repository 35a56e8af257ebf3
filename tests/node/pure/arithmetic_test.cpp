#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <limits>

#include "host/lumnodeutils.h"
#include "utils/checked.h"

TEST(SaturatingConversion, CoversEveryFloat) {
    const float infinity = std::numeric_limits<float>::infinity();
    const struct {
        float value;
        uint32_t expected;
    } rows[] = {
        {0.0F, 0},
        {-0.0F, 0},
        {0.99F, 0},
        {1.0F, 1},
        {151.65F, 151},
        {-0.5F, 0},
        {-1e30F, 0},
        {-infinity, 0},
        {std::nanf(""), 0},
        {infinity, ~0U},
        {4294967040.0F, 4294967040U},
        {4294967296.0F, ~0U},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Orba::SaturatingUINT32(row.value), row.expected) << row.value;
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

TEST(NodeUtils, RoundsComparesAndOffsets) {
    EXPECT_EQ(LumNodeUtils::EvenFloorUINT32(1011), 1010U);
    EXPECT_EQ(LumNodeUtils::EvenFloorUINT32(0xFFFFFFFF), 0xFFFFFFFEU);
    EXPECT_EQ(LumNodeUtils::MaxUINT32(3, 9), 9U);
    EXPECT_EQ(LumNodeUtils::MaxUINT32(9, 3), 9U);
    EXPECT_EQ(LumNodeUtils::GetRequestIdOffset(5, 3), 2U);
    EXPECT_EQ(LumNodeUtils::GetRequestIdOffset(5, 5), 5U) << "not beyond the reference: the id itself";
    EXPECT_EQ(LumNodeUtils::GetRequestIdOffset(5, 9), 5U);
}
