#pragma once
// Looks of the gas material by name, to start from. Their strengths are given for a tenth of the container, so that
// they fit a room and a mountain.

#include <span>
#include <string>
#include <vector>

#include "host/description/Parameter.h"
#include "host/objects/Presets.h"

namespace orlix {

struct GasPreset {
  const char* name;
  const char* text;
  void (*apply)(BaseObject& material);
};
std::span<const GasPreset> AllGasPresets();
// "none" and the names.
std::vector<Choice> GasPresetChoices();
// Null for a name that isn't there.
const GasPreset* FindGasPreset(const std::string& name);

class GasPresets final : public ObjectData, public Presets {
 public:
  int PresetRow() const override;
  // All rows but links and lists start anew.
  void ApplyPreset(BaseObject& object) const override;
};

}  // namespace orlix
