#pragma once
// Polygon meshes as OBJ and PLY. The stream's state tells whether the bytes were taken.

#include <ostream>
#include <span>

#include "host/objects/BaseObject.h"

namespace orlix {

// Text with the shortest digits that give each double back.
void WriteObj(const PolygonObject& mesh, std::ostream& out);

// Binary, little endian, single precision; velocities (host units a second, one for each point, or none) as the
// properties vx, vy, vz.
void WritePly(const PolygonObject& mesh, std::span<const Vec3D> velocities, std::ostream& out);

}  // namespace orlix
