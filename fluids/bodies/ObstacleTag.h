#pragma once
// The tag that makes a volume an obstacle and holds the settings of its body.

#include "host/description/TypeRegistry.h"

namespace orlix {

struct ObstacleTag {
  enum class MassMode { Mass, Density };

  enum class Inertia { Points, Solid };
  enum class Recording { Off, Frames, Substeps };

  static constexpr int kMassId = 2002, kDensityId = 2003, kLinearMotionScaleId = 2004, kAngularMotionScaleId = 2005,
                       kNoResponseId = 2006, kLinearSleepId = 2007, kMassModeId = 2008, kLinearDampingId = 2009,
                       kAngularDampingId = 2010, kMarginId = 2011, kRestitutionId = 2012, kFrictionId = 2013,
                       kRollingFrictionId = 2014, kAngularSleepId = 2020, kLinearFactorId = 2021,
                       kAngularFactorId = 2022, kVelocityFieldId = 2023, kVelocitySpeedId = 2024,
                       kLinearDampingListId = 2025, kAngularDampingListId = 2026, kRestitutionListId = 2027,
                       kFrictionListId = 2028, kRollingFrictionListId = 2029, kForceScaleId = 2030,
                       kTorqueScaleId = 2031, kStartAsleepId = 2032, kStartAsleepTooId = 2034, kDrivenId = 2040,
                       kInertiaId = 2050, kRecordId = 2051, kReplayId = 2052, kReplayOffsetId = 2053;
  static constexpr double kVelocitySpeed = 1;  // m/s, unless it is set
  static const TypeInfo& Type();
};

}  // namespace orlix
