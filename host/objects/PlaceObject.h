#pragma once
// Puts an object where a matrix says.

#include "host/objects/BaseObject.h"

namespace orlix {

// Sets position, rotation and scale of an object so that its global matrix is this one; axes that are sheared lose the
// shear. An object that stands there already isn't changed. What its parents' axes can't be undone of leaves it alone.
void SetGlobalMatrix(BaseObject& object, const LMatrix& matrix);

}  // namespace orlix
