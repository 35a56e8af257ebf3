#pragma once

#include <cstdint>

/// The stabiliser that a node instance serves. The value is the instance number in every message of the
/// node and its engine, so instances of one variant print the same number.
enum DewarpStabilizationType : uint32_t {
    DewarpStabilizationNone = 0,      ///< capability not recognised
    DewarpStabilizationRealTime = 2,  ///< real time, EIS V2
    DewarpStabilizationLookAhead = 3  ///< look-ahead, EIS V3
};
