#pragma once
// The tag that makes a volume an obstacle and holds the settings of its body.

#include "host/description/TypeRegistry.h"

namespace orlix {

struct ObstacleTag {
  enum class MassMode { Mass, Density };

  static constexpr int kMassId = 2002, kDensityId = 2003, kLinearMotionScaleId = 2004, kAngularMotionScaleId = 2005,
                       kMassModeId = 2008, kDrivenId = 2040;
  static const TypeInfo& Type();
};

}  // namespace orlix
