#pragma once
// Puts an object, or polygons, where a matrix says.

#include "host/objects/BaseObject.h"

namespace orlix {

// Sets position, rotation and scale of an object so that its global matrix is this one; axes that are sheared lose the
// shear. An object that stands there already isn't changed. What its parents' axes can't be undone of leaves it alone.
void SetGlobalMatrix(BaseObject& object, const LMatrix& matrix);

// Turns normals as the matrix turns the surface that they stand on, also where it stretches or mirrors: by its
// cofactors, which are its inverse, transposed, times its determinant. Lengths change.
LMatrix NormalMatrix(const LMatrix& matrix);
// A mirror turns polygons inside out: gives their corners, and what these have, the other order.
void ReverseCorners(PolygonObject& polygons);

}  // namespace orlix
