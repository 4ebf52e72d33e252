#pragma once
// A registry with one type of each role, and a parameter of each type, for tests of the scene reader.

#include "host/description/TypeRegistry.h"
#include "host/objects/BaseObject.h"

namespace orlix::test {

inline constexpr Choice kShapes[] = {{0, "soft", "Soft edge"}, {1, "hard", "Hard edge"}, {7, "none", "No edge"}};
inline constexpr SplineKnot kRamp[] = {{0, 0, KnotInterpolation::Linear, {}, {}},
                                       {1, 1, KnotInterpolation::Linear, {}, {}}};
inline constexpr GradientKnot kFire[] = {{0, {0, 0, 0}}, {1, {1, 0.5, 0}}};

inline constexpr Parameter kScene[] = {
    FloatParameter(1002, "cell_size", 0.2, "m", "Cell edge").Above(0),
    IntParameter(1005, "substeps", 2, "", "Sub-steps").Between(0, 254),
    VectorParameter(1012, "gravity", {0, -9.81, 0}, "m/s2", "Gravity"),
};
inline constexpr Parameter kFluid[] = {
    VectorParameter(1001, "container", {1, 1, 1}, "m", "Edges of the box").Above(0),
    ListParameter(1002, "forces", kLinkForce, "Forces that act"),
    FloatParameter(1003, "accuracy", 0.1, "", "Of the pressure").Between(0, 1),
    BoolParameter(1004, "closed", false, "Walls all round"),
};
inline constexpr Parameter kForce[] = {
    LinkParameter(1001, "density", kLinkChannel, "What rises"),
    FloatParameter(1002, "strength", 1, "m/s2", "How strongly"),
    ChoiceParameter(1003, "shape", 0, kShapes, "Falloff"),
    SplineParameter(1004, "falloff", kRamp, "Over the distance"),
    GradientParameter(1005, "tint", kFire, "Over the age"),
    IntParameter(1006, "seed", 5, "", "Of the noise"),
    StringParameter(1007, "note", "", "A remark"),
    VectorParameter(1008, "axis", {0, 1, 0}, "", "Direction"),
    ButtonParameter(1009, "add", "Adds one"),
    BoolParameter(1010, "active", true, "Acts at all"),
};
inline constexpr Parameter kMesh[] = {FileParameter(1001, "file", "OBJ file")};
inline constexpr Parameter kLight[] = {FloatParameter(1001, "intensity", 1, "", "Factor").Min(0)};

constexpr TypeInfo MakeType(int id, const char* resource, TypeRole role, std::uint32_t kinds,
                            std::span<const Parameter> rows = {}, std::span<const Parameter> common = {}) {
  return {.id = id,
          .resource = resource,
          .text = "A type.",
          .role = role,
          .kinds = kinds,
          .parameters = rows,
          .common = common};
}

inline const TypeInfo kTypes[] = {
    MakeType(1300000, "zq_scene", TypeRole::Root, kLinkRoot, kScene),
    MakeType(1300002, "zq_fluid", TypeRole::Node, kLinkSolver, kFluid),
    MakeType(1300027, "zq_channel_scalar", TypeRole::Node, kLinkChannel),
    MakeType(1300015, "zq_force_buoyancy", TypeRole::Node, kLinkForce, kForce),
    MakeType(900, "mesh", TypeRole::Object, kLinkGeometry | kLinkHostObject, kMesh, TransformParameters()),
    MakeType(901, "c4d_obstacle", TypeRole::Tag, kLinkTag),
    MakeType(902, "light", TypeRole::Light, kLinkLight, kLight),
    MakeType(903, "camera", TypeRole::Camera, kLinkCamera),
};

inline const TypeRegistry& Types() {
  static const TypeRegistry registry = [] {
    TypeRegistry types;
    for (const TypeInfo& type : kTypes) types.Add(type);
    types.AddPlanned(1300003, "zq_fluid_liquid");
    return types;
  }();
  return registry;
}

}  // namespace orlix::test
