#include "host/render/GatherRenderWorld.h"

#include <optional>

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

// The points of each mesh, in host space.
using MeshPoints = std::vector<std::vector<Vec3D>>;

MeshPoints PointsOf(const std::vector<const BaseObject*>& meshes) {
  MeshPoints points;
  for (const BaseObject* mesh : meshes) {
    const LMatrix matrix = mesh->GlobalMatrix();
    std::vector<Vec3D>& own = points.emplace_back();
    if (!mesh->Polygons()) continue;  // no file at that time
    own = mesh->Polygons()->points;
    for (Vec3D& p : own) p = matrix * p;
  }
  return points;
}

// Velocities of the meshes' points, host units a second, by what they did since the frame before; in the first frame,
// by what they will do. Points whose number changes have none. And the camera at both frames. The document's time moves
// there and back.
Status MeasureMotion(BaseDocument& document, const Found& found, MeshPoints& velocities, RenderWorld& world) {
  const std::vector<const BaseObject*>& meshes = found.meshes;
  const BaseTime now = document.time();
  const int frame = now.Frame(document.fps), step = frame > document.minTime.Frame(document.fps) ? -1 : 1;
  if (Status moved = document.SetTime(BaseTime::OfFrame(frame + step, document.fps)); !moved) return moved;
  const MeshPoints there = PointsOf(meshes);
  world.motionSign = step;
  if (found.camera) {
    Result<Camera> camera = ReadCamera(*found.camera);
    if (!camera) return camera.status();
    world.ofNeighbour = *camera;
  }
  if (Status moved = document.SetTime(now); !moved) return moved;
  velocities = PointsOf(meshes);
  for (std::size_t m = 0; m < meshes.size(); ++m) {
    // A mesh that is made anew in each frame knows its velocities, or has none.
    const PolygonObject* polygons = meshes[m]->Polygons();
    if (polygons && !polygons->velocities.empty()) {
      const LMatrix matrix = meshes[m]->GlobalMatrix();
      for (std::size_t i = 0; i < velocities[m].size(); ++i) {
        velocities[m][i] = matrix.Rotate(polygons->velocities[i]);
      }
      continue;
    }
    if (there[m].size() != velocities[m].size()) velocities[m].clear();
    for (std::size_t i = 0; i < velocities[m].size(); ++i) {
      velocities[m][i] = (there[m][i] - velocities[m][i]) * (step * document.fps);
    }
  }
  return {};
}

// Camera and lights at one end of the shutter.
struct ShutterEnd {
  std::optional<Camera> camera;
  std::vector<Light> lights;  // as many as the document's, on or not
};

Status ReadShutterEnd(BaseDocument& document, const Found& found, double frames, ShutterEnd& end) {
  const double frame = document.time().Frame(document.fps) + frames;
  if (Status moved = document.SetTime({frame, document.fps}); !moved) return moved;
  if (found.camera) {
    Result<Camera> camera = ReadCamera(*found.camera);
    if (!camera) return camera.status();
    end.camera = *camera;
  }
  for (const BaseObject* object : found.lights) {
    Result<Light> light = ReadLight(*object);
    if (!light) return light.status();
    end.lights.push_back(*light);
  }
  return {};
}

bool SameView(const Camera& a, const Camera& b) {
  return a.position == b.position && a.forward == b.forward && a.up == b.up && a.halfWidth == b.halfWidth &&
         a.focus == b.focus;
}

// The document's time moves to both ends of the shutter and back.
Status ReadShutter(BaseDocument& document, const Found& found, double shutter, ShutterEnd& open, ShutterEnd& close) {
  const BaseTime now = document.time();
  if (Status read = ReadShutterEnd(document, found, -0.5 * shutter, open); !read) return read;
  if (Status moved = document.SetTime(now); !moved) return moved;
  if (Status read = ReadShutterEnd(document, found, 0.5 * shutter, close); !read) return read;
  return document.SetTime(now);
}

Status ReadSurfaces(const std::vector<const BaseObject*>& meshes, const MeshPoints& velocities, double shutter,
                    SurfaceScene& scene) {
  std::vector<Surface> surfaces;
  for (std::size_t m = 0; m < meshes.size(); ++m) {
    const BaseObject* mesh = meshes[m];
    Surface surface;
    surface.polygons = mesh->Polygons();
    surface.name = mesh->Path();
    surface.matrix = mesh->GlobalMatrix();
    if (const BaseObject* material = mesh->GetLink(kMaterialId)) {
      if (material->typeId() != kSurfaceMaterialId) continue;
      Result<SurfaceMaterial> read = ReadSurfaceMaterial(*material);
      if (!read) return read.status();
      surface.material = *read;
    }
    if (m < velocities.size() && !velocities[m].empty()) surface.velocities = &velocities[m];
    surfaces.push_back(surface);
  }
  return scene.Build(surfaces, shutter);
}

// Over the camera's left shoulder, and a cool fill from its right: what it leaves in the shade stays readable.
void AddOwnLights(const Camera& camera, std::vector<Light>& lights) {
  Light light;
  light.kind = LightKind::Distant;
  light.direction = Normalized(camera.forward + camera.right * 0.6 - camera.up * 0.8);
  lights.push_back(light);
  light.direction = Normalized(camera.forward - camera.right * 1.5 - camera.up * 0.4);
  light.colour = Vec3D{0.6, 0.78, 1} * 0.25;
  lights.push_back(light);
}

bool IsFlat(const std::vector<Vec3D>& points) {
  Vec3D low = points.front(), high = low;
  for (const Vec3D& p : points) low = Min(low, p), high = Max(high, p);
  return low.x == high.x || low.y == high.y || low.z == high.z;
}

// The box and the meshes; floors and other flat ones only where there is nothing else.
Camera OwnCamera(const GatherOptions& options, const Found& found, const RenderWorld& world) {
  Vec3D low{1, 1, 1}, high{0, 0, 0};
  const auto add = [&](const Vec3D& p) {
    const bool first = low.x > high.x;
    low = first ? p : Min(low, p), high = first ? p : Max(high, p);
  };
  if (options.boxLow.x <= options.boxHigh.x) add(options.boxLow), add(options.boxHigh);
  const MeshPoints meshes = PointsOf(found.meshes);
  for (const bool flat : {false, true}) {
    if (flat && low.x <= high.x) break;
    for (const std::vector<Vec3D>& points : meshes) {
      if (points.empty() || IsFlat(points) != flat) continue;
      for (const Vec3D& p : points) add(p);
    }
  }
  if (low.x > high.x) low = {-1, -1, -1}, high = {1, 1, 1};
  return FramingCamera(low, high, world.settings.width, world.settings.height);
}

}  // namespace

Status GatherRenderWorld(BaseDocument& document, const GatherOptions& options, RenderWorld& world) {
  const Found found = Find(document);
  world.settings = {};
  if (found.settings) {
    Result<RenderSettings> settings = ReadRenderSettings(*found.settings);
    if (!settings) return settings.status();
    world.settings = *settings;
  }
  world.sky = {};
  const BaseObject* sky = found.settings ? found.settings->GetLink(kRenderSkyId) : nullptr;
  if (sky && sky->data() && sky->data()->AsShader()) world.sky.Build(*sky, *sky->data()->AsShader());
  if (options.width > 0) world.settings.width = options.width;
  if (options.height > 0) world.settings.height = options.height;
  if (Status s = CheckPictureSize(world.settings.width, world.settings.height); !s) return s;

  MeshPoints velocities;
  if (world.settings.NeedsMotion()) {
    if (Status s = MeasureMotion(document, found, velocities, world); !s) return s;
  }
  ShutterEnd open, close;
  if (world.settings.shutter > 0) {
    if (Status s = ReadShutter(document, found, world.settings.shutter, open, close); !s) return s;
  }
  if (Status s = ReadSurfaces(found.meshes, velocities, world.settings.ShutterSeconds(), world.surfaces); !s) return s;
  if (found.camera) {
    Result<Camera> camera = ReadCamera(*found.camera);
    if (!camera) return camera.status();
    world.camera = *camera;
  } else {
    world.camera = OwnCamera(options, found, world);
  }
  world.closing = world.ofFrame = world.camera;
  if (!found.camera) world.ofNeighbour = world.camera;
  world.cameraMoves = open.camera && !SameView(*open.camera, *close.camera);
  if (world.cameraMoves) world.camera = *open.camera, world.closing = *close.camera;
  world.lights.clear();
  world.lightsMove = false;
  for (std::size_t n = 0; n < found.lights.size(); ++n) {
    Result<Light> light = ReadLight(*found.lights[n]);
    if (!light) return light.status();
    if (n < close.lights.size()) {
      light->move = close.lights[n].position - open.lights[n].position;
      light->turn = close.lights[n].direction - open.lights[n].direction;
      world.lightsMove |= light->move != Vec3D() || light->turn != Vec3D();
    }
    if (light->on) world.lights.push_back(*light);
  }
  if (found.lights.empty()) AddOwnLights(world.camera, world.lights);
  return {};
}

}  // namespace orlix
