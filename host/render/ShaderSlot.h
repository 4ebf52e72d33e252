#pragma once
// A place of a material that a shader fills: its colour multiplies the material's own value.

#include "globals/Vec.h"
#include "host/objects/BaseObject.h"

namespace orlix {

// A point of a surface.
struct SurfacePlace {
  Vec3D point, normal;  // host space; the normal is of unit length
  Vec2D texture;        // where hasTexture
  bool hasTexture = false;
};

// A shader that looks at more than a place: one that sets its sample off the surface, say.
class SurfaceShader {
 public:
  virtual ~SurfaceShader() = default;
  virtual Vec3D ColourAt(const BaseObject& object, const SurfacePlace& place) const = 0;
};

struct ShaderSlot {
  const BaseObject* object = nullptr;  // null: nothing is there
  const Shader* shader = nullptr;
  const SurfaceShader* surface = nullptr;

  explicit operator bool() const { return shader || surface; }
  // What a row of a material links; empty when that gives no colours.
  static ShaderSlot Of(const BaseObject& material, int row);
  // By texture coordinates where the surface has them, otherwise by the place in space.
  Vec3D Colour(const SurfacePlace& place) const;
};

}  // namespace orlix
