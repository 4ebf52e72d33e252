#pragma once
// From a host object's polygons to a mesh in simulation space.

#include "fluids/meshes/TriMeshSTL.h"
#include "host/objects/BaseObject.h"

namespace orlix {

enum class GeometryChange {
  Failed,  // no points, no triangles, a point that isn't finite, or more than an index holds
  Same,    // read, nothing moved
  Moved
};

// Points go through the matrix and the scale from host units to metres; quads become two triangles. Texture coordinates
// come along where the object has them; with withNormals its normals, too, as unit vectors under kPointNormalId. On
// failure the mesh is as it was.
GeometryChange ReadHostGeometry(const PolygonObject& polygons, const LMatrix& matrix, const Vec3D& simPerHost,
                                TriMeshSTL& mesh, bool withNormals = false);

// The host's matrix with its offset in metres.
LMatrix SimulationMatrix(const LMatrix& hostMatrix, const Vec3D& simPerHost);

// The box of an object's points where it stands, simulation space. False without any.
bool FindBox(const BaseObject& object, const Vec3D& simPerHost, Vec3D& min, Vec3D& max);

}  // namespace orlix
