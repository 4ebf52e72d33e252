#pragma once
// Sets of values that an object can start from, by name: an ObjectData may be one of these, too.

#include "host/objects/BaseObject.h"

namespace orlix {

class Presets {
 public:
  virtual ~Presets() = default;
  // The choice that names a preset. A reader sets it before all other rows, whatever their order in the file.
  virtual int PresetRow() const = 0;
  // The row was set: writes the preset's values and sets the row back, since they stand in the object by themselves
  // now.
  virtual void ApplyPreset(BaseObject& object) const = 0;
};

}  // namespace orlix
