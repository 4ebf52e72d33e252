#pragma once
// JSON values to the values of a container, checked against the parameter's row. Nothing is returned when a mistake was
// found; it then stands in the site's list.
//
//   Bool       true, false, 0, 1              Vector    [x, y, z], or one number for all three
//   Int        a whole number                 String, File   a text
//   Choice     a choice's key or number       Spline    [[x, y], [x, y, "cubic"], {"x": 1, "y": 2, "left": [-1, 0]}]
//   Float      a number                       Gradient  [[position, [r, g, b]], ...]
//
// Keyframes: {"keys": [[frame, value], [frame, value, "linear"], ...]}.

#include <optional>

#include "host/objects/BaseDocument.h"
#include "scene_file/ParameterSite.h"

namespace orlix {

// Every type but links and lists, which need the other objects, and scripts, which may stand in files.
std::optional<Value> ReadValue(const ParameterSite& site, const JsonValue& value);

// Whether the type can be keyframed.
bool CanHaveKeys(ParameterType type);
// A key's interpolation holds until the next key; without one, numbers are linear and choices step.
std::optional<KeyTrack> ReadKeys(const ParameterSite& site, const JsonValue& value);

}  // namespace orlix
