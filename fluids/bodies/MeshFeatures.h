#pragma once
// What the faces, edges and corners of a mesh are to a body that touches it.
//
// Triangles are tested by pairs, and a contact gets a direction that suits the two. Where a small triangle of a floor
// ends beneath a body's side, that is the side's normal: the body catches on an edge that the floor doesn't have. So
// both meshes are asked how well they could push that way, with all that is around the triangles. What can push along n
// is where the surface goes away from n on all sides: n.d <= 0 for the directions d along the surface. Inside of a face
// and at an edge between level faces that is the normal, at a sharp edge all between those of its faces, at a corner
// more.

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "globals/Vec.h"

namespace orlix {

class MeshFeatures {
 public:
  // Points that lie in one place are one point.
  MeshFeatures(std::span<const Vec3D> points, std::span<const VecInt3D> triangles);

  // Something touches a triangle near a place. All in the mesh's own space, m.
  struct Touch {
    int triangle;
    Vec3D place;
    double reach;   // so far from an edge a place is still on it
    Vec3D towards;  // the middle of what touches, by which the side of a mesh is known that isn't closed
    // What follows from these: -1 on the far side, and what of the triangle is within reach. Where the surface is
    // hollow, faces alone count.
    double side = 1;
    std::array<bool, 3> edges{}, corners{};
  };
  Touch TouchAt(int triangle, const Vec3D& place, double reach, const Vec3D& towards) const;
  // How much a direction, which leads away from the mesh, isn't one in which it can push there; 0 when it is.
  double Misfit(const Touch& touch, const Vec3D& direction) const;
  // The normals of the faces there.
  static constexpr int kMostNormals = 8;
  int NormalsAt(const Touch& touch, std::array<Vec3D, kMostNormals>& normals) const;
  // How far a triangle reaches along a direction.
  double Furthest(int triangle, const Vec3D& direction) const {
    const auto& p = faces_[std::size_t(triangle)].points;
    return std::max({Dot(p[0], direction), Dot(p[1], direction), Dot(p[2], direction)});
  }
  // The point of a triangle that is nearest to a place.
  Vec3D Nearest(int triangle, const Vec3D& place) const;

 private:
  enum class Edge : std::uint8_t { Level, Sharp, Hollow, Free };  // Free: of one triangle, or of more than two
  struct Face {
    Vec3D normal;
    std::array<Vec3D, 3> points;
    std::array<std::int32_t, 3> corners{};
    // Of the edge from a point to the next: the normal of the face behind it, the way into both, and its own.
    std::array<Vec3D, 3> across{}, into{}, intoAcross{}, ways{};
    std::array<Edge, 3> edges{Edge::Free, Edge::Free, Edge::Free};
  };
  struct Corner {
    std::vector<Vec3D> ways;     // to the points around it
    std::vector<Vec3D> normals;  // of the faces around it, each once
    bool hollow = false;         // an edge at it is
  };
  void FindEdges(const std::vector<std::int32_t>& places, std::span<const VecInt3D> triangles);
  void FindCorners();

  std::vector<Face> faces_;
  std::vector<Corner> corners_;
  bool closed_ = false;  // normals lead outwards
};

}  // namespace orlix
