#pragma once
// The settings of a volume's host object.

#include <span>

#include "host/description/Parameter.h"

namespace orlix {

inline constexpr int kVolumeHasBounds = 1001;
inline constexpr int kVolumeObject = 1003;
inline constexpr int kVolumeShell = 1006;
inline constexpr int kVolumeFlipSign = 1007;
inline constexpr int kVolumePadding = 1008;
inline constexpr int kVolumeThreads = 1010;
inline constexpr int kVolumeHidden = 1018;

std::span<const Parameter> VolumeParameters();

}  // namespace orlix
