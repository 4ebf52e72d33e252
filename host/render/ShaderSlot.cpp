#include "host/render/ShaderSlot.h"

namespace orlix {

ShaderSlot ShaderSlot::Of(const BaseObject& material, int row) {
  ShaderSlot slot;
  slot.object = material.GetLink(row);
  if (!slot.object || !slot.object->data()) return {};
  slot.shader = slot.object->data()->AsShader();
  slot.surface = dynamic_cast<const SurfaceShader*>(slot.object->data());
  return slot;
}

Vec3D ShaderSlot::Colour(const SurfacePlace& place) const {
  if (surface) return surface->ColourAt(*object, place);
  Vec3D at = place.hasTexture ? Vec3D(place.texture.x, place.texture.y, 0) : place.point;
  const auto kind = place.hasTexture ? Shader::PlaceKind::Texture : Shader::PlaceKind::Space;
  shader->Colours(*object, kind, {&at, 1}, {&at, 1});
  return at;
}

}  // namespace orlix
