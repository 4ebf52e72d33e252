#include "host/render/GatherRenderWorld.h"

namespace orlix {

namespace {

// What the document holds for pictures, in tree order.
struct Found {
  const BaseObject* settings = nullptr;
  const BaseObject* camera = nullptr;
  std::vector<const BaseObject*> lights, meshes;
};

bool IsShown(const BaseObject& object) {
  return !object.type().Find(kShownInPicturesId) || object.GetBool(kShownInPicturesId);
}

Found Find(const BaseDocument& document) {
  Found found;
  document.ForEachObject([&](const BaseObject& object) {
    const TypeRole role = object.type().role;
    if (role == TypeRole::RenderSettings && !found.settings) found.settings = &object;
    if (role == TypeRole::Camera && !found.camera) found.camera = &object;
    if (role == TypeRole::Light) found.lights.push_back(&object);
    if (object.Polygons() && IsShown(object)) found.meshes.push_back(&object);
  });
  if (found.settings) {
    const BaseObject* linked = found.settings->GetLink(kRenderCameraId);
    if (linked && linked->type().role == TypeRole::Camera) found.camera = linked;
  }
  return found;
}

Status ReadSurfaces(const std::vector<const BaseObject*>& meshes, SurfaceScene& scene) {
  std::vector<Surface> surfaces;
  for (const BaseObject* mesh : meshes) {
    Surface surface;
    surface.polygons = mesh->Polygons();
    surface.matrix = mesh->GlobalMatrix();
    if (const BaseObject* material = mesh->GetLink(kMaterialId)) {
      if (material->typeId() != kSurfaceMaterialId) continue;
      Result<SurfaceMaterial> read = ReadSurfaceMaterial(*material);
      if (!read) return read.status();
      surface.material = *read;
    }
    surfaces.push_back(surface);
  }
  return scene.Build(surfaces);
}

// From behind the camera, higher and to its left.
Light ShoulderLight(const Camera& camera) {
  Light light;
  light.kind = LightKind::Distant;
  light.direction = Normalized(camera.forward + camera.right * 0.6 - camera.up * 0.8);
  return light;
}

Camera OwnCamera(const GatherOptions& options, const RenderWorld& world) {
  Vec3D low{-1, -1, -1}, high{1, 1, 1}, meshLow, meshHigh;
  const bool hasBox = options.boxLow.x < options.boxHigh.x && options.boxLow.y < options.boxHigh.y &&
                      options.boxLow.z < options.boxHigh.z;
  const bool hasMeshes = world.surfaces.Bounds(meshLow, meshHigh);
  if (hasBox) low = options.boxLow, high = options.boxHigh;
  if (hasMeshes) low = hasBox ? Min(low, meshLow) : meshLow, high = hasBox ? Max(high, meshHigh) : meshHigh;
  return FramingCamera(low, high, world.settings.width, world.settings.height);
}

}  // namespace

Status GatherRenderWorld(const BaseDocument& document, const GatherOptions& options, RenderWorld& world) {
  const Found found = Find(document);
  world.settings = {};
  if (found.settings) {
    Result<RenderSettings> settings = ReadRenderSettings(*found.settings);
    if (!settings) return settings.status();
    world.settings = *settings;
  }
  if (options.width > 0) world.settings.width = options.width;
  if (options.height > 0) world.settings.height = options.height;
  if (Status s = CheckPictureSize(world.settings.width, world.settings.height); !s) return s;

  if (Status s = ReadSurfaces(found.meshes, world.surfaces); !s) return s;
  if (found.camera) {
    Result<Camera> camera = ReadCamera(*found.camera);
    if (!camera) return camera.status();
    world.camera = *camera;
  } else {
    world.camera = OwnCamera(options, world);
  }
  world.lights.clear();
  for (const BaseObject* object : found.lights) {
    Result<Light> light = ReadLight(*object);
    if (!light) return light.status();
    if (light->on) world.lights.push_back(*light);
  }
  if (found.lights.empty()) world.lights.push_back(ShoulderLight(world.camera));
  return {};
}

}  // namespace orlix
