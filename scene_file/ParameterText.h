#pragma once
// A parameter's row in words: for messages and for the written reference.

#include <string>

#include "host/description/Parameter.h"
#include "host/description/TypeRegistry.h"

namespace orlix {

// "above 0", "at least 0", "0 to 1"; empty without a range of its own.
std::string RangeText(const Parameter& row);
// Whether a number lies in the row's range.
bool InRange(const Parameter& row, double value);
// What a scene file may write: "a number above 0", "\"soft\", \"hard\" or their numbers 0, 1".
std::string AllowedText(const Parameter& row);
// "a channel or a volume"; "an object" for any.
std::string KindsText(std::uint32_t kinds);
// The default as a scene file would write it; empty for none.
std::string DefaultText(const Parameter& row);
// "shown when document_range is 0"; empty when always shown. Keys are those of type.
std::string ShownText(const TypeInfo& type, const Parameter& row);
// Shortest digits that read back as the same number.
std::string NumberText(double value);
const char* InterpolationKey(KnotInterpolation interpolation);
// What a scene file writes for the type: its alias where it has one, otherwise its short name.
std::string_view WrittenName(const TypeInfo& type);
// "node", "root", ...
const char* RoleText(TypeRole role);

}  // namespace orlix
