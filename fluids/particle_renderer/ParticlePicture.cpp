#include "fluids/particle_renderer/ParticlePicture.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <new>

#include "fluids/dynamics/FluidSolver.h"
#include "fluids/particle_renderer/PointColours.h"
#include "fluids/particles/DiffuseClass.h"
#include "fluids/particles/GroupList.h"
#include "fluids/particles/PropertyList.h"

namespace orlix {

namespace {

constexpr std::int32_t kAll = ParticleLook::kAllClasses;

// A population, or one class of it.
struct ShownEntry : GroupEntry {
  std::int32_t diffuseClass = kAll;
  bool Has(std::uint16_t flags) const {
    return diffuseClass == kAll || static_cast<std::int32_t>(ClassOfFlags(flags)) == diffuseClass;
  }
};

// Groups and kinds of one scene that look alike.
struct Shown {
  ParticleLook look;
  const BaseObject* material = nullptr;  // null: the look of a kind
  std::vector<ShownEntry> entries{};
};

bool Names(const InExcludeData* list, std::uint64_t object, std::int32_t kind) {
  return list && std::any_of(list->entries.begin(), list->entries.end(), [&](const InExcludeData::Entry& entry) {
           return entry.target == object && KindOfFlags(entry.flags) == kind;
         });
}

// The first material that names the group and kind, else the first that names none, else null; of the entry's class,
// else of all.
const BaseObject* MaterialOf(const std::vector<BaseObject*>& materials, const ShownEntry& entry) {
  const std::uint64_t object = entry.group->handler.hostObject()->creationNumber();
  const BaseObject* best = nullptr;
  int bestFit = 0;
  for (const BaseObject* material : materials) {
    const InExcludeData* list = material->GetInExclude(ParticleLook::kGroupsId);
    const bool names = Names(list, object, entry.kind), general = !list || list->entries.empty();
    const auto wanted = static_cast<std::int32_t>(material->GetInt(ParticleLook::kClassId));
    if (!(names || general) || (wanted != kAll && wanted != entry.diffuseClass)) continue;
    const int fit = 1 + (names ? 1 : 0) + (wanted != kAll ? 2 : 0);
    if (fit > bestFit) best = material, bestFit = fit;
  }
  return best;
}

std::vector<Shown> FindShown(const std::vector<BaseObject*>& materials, const OrlixScene& scene) {
  std::vector<Shown> all;
  const auto add = [&](const ShownEntry& entry) {
    const BaseObject* material = MaterialOf(materials, entry);
    const auto same = std::find_if(all.begin(), all.end(),
                                   [&](const Shown& shown) { return material && shown.material == material; });
    if (same != all.end()) return same->entries.push_back(entry);
    Shown shown{material ? ParticleLook::Read(*material) : ParticleLook::OfKind(entry.kind), material, {entry}};
    if (shown.look.visible) all.push_back(std::move(shown));
  };
  const bool byClass = std::any_of(materials.begin(), materials.end(), [](const BaseObject* material) {
    return material->GetInt(ParticleLook::kClassId) != kAll;
  });
  scene.ForEachNode(NODE_PARTICLES, NODE_PARTICLES, [&](iBase& node) {
    auto* group = dynamic_cast<ParticleGroup*>(&node);
    for (std::int32_t kind = 0; group && group->IsEnabled() && kind < kParticleKinds; ++kind) {
      if (group->Count(kind) == 0) continue;
      if (kind != PK_Diffuse || !byClass) {
        add({{group, kind}, kAll});
        continue;
      }
      for (std::int32_t c = 0; c < kDiffuseClasses; ++c) add({{group, kind}, c});
    }
  });
  return all;
}

ColourSource SourceOf(const ParticleLook& look, const OrlixScene& scene) {
  ColourSource source;
  source.dt = scene.GetSimulationInfo().substepDuration;
  source.plain = !look.property && look.colourBy == ParticleLook::kPlain;
  if (source.plain) return source;
  source.key = look.colourBy;
  if (look.property) {
    const auto* node = scene.RetrieveAs<iProperty>(look.property, NODE_PARTICLES, RETRIEVE_PROPERTY);
    source.plain = !node;
    if (!node) return source;
    source.key = KeyOf(*node);
    source.type = TypeOf(*node);
  } else {
    source.type = TypeOfProperty(source.key.id);
  }
  source.direct = source.type == PropertyType::Vector &&
                  (source.key.id == PP::Color || look.vectorColours == VectorColours::Direction);
  return source;
}

std::string TitleOf(const ParticleLook& look) {
  if (look.property) return look.property->name;
  const Parameter* row = ParticleLook::Type().Find(ParticleLook::kColourById);
  const auto choice = std::find_if(row->choices.begin(), row->choices.end(),
                                   [&](const Choice& each) { return each.value == look.colourBy; });
  const std::string word = choice == row->choices.end() ? "" : choice->key;
  switch (look.colourBy) {
    case PP::Velocity:
      return word + " m/s";
    case PP::Age:
      return word + " frames";
    case PP::Temperature:
      return word + " k";
    case PP::Radius:
      return word + " m";
    default:
      return word;
  }
}

class CloudMaker {
 public:
  CloudMaker(const OrlixScene& scene, const ParticleLook& look, const ColourSource& source, const ColourTable& colours,
             bool velocities)
      : space_(scene.GetSimulationSpace()), look_(look), source_(source), colours_(colours), velocities_(velocities) {}

  PointCloud Make(const ShownEntry& entry, WorkerPool& workers);
  // Whether any particle so far had the value that its colour comes from.
  bool anyValue() const { return anyValue_; }

 private:
  void Fill(const ParticleRows& rows, const ShownEntry& entry, PointCloud& cloud, std::size_t at);

  const GridSpace& space_;
  const ParticleLook& look_;
  const ColourSource& source_;
  const ColourTable& colours_;
  const bool velocities_;
  std::atomic<bool> anyValue_{false};
};

bool IsShown(const ParticleRows& rows, const ShownEntry& entry, std::int32_t r) {
  return (rows.flags()[r] & ParticleFlag::Alive) != 0 && entry.Has(rows.flags()[r]) && IsFinite(rows.positions()[r]);
}

PointCloud CloudMaker::Make(const ShownEntry& entry, WorkerPool& workers) {
  const ParticleList& list = *entry.group->list(entry.kind);
  PointCloud cloud;
  cloud.lit = look_.shape == ParticleShape::Spheres;
  cloud.leastRadius = static_cast<float>(0.5 * (cloud.lit ? look_.leastSize : look_.dotSize));
  std::vector<std::size_t> starts(static_cast<std::size_t>(list.chunkCount()) + 1);
  std::vector<Vec3D> sums(starts.size());
  ParallelChunks(workers, list, [&](int chunk, const ParticleRows& rows) {
    const auto c = static_cast<std::size_t>(chunk);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      if (IsShown(rows, entry, r)) ++starts[c + 1], sums[c] += rows.positions()[r];
    }
  });
  Vec3D sum;
  for (std::size_t c = 0; c + 1 < starts.size(); ++c) starts[c + 1] += starts[c], sum += sums[c];
  if (starts.back() == 0) return cloud;
  cloud.origin = sum / static_cast<double>(starts.back()) * space_.hostPerSim;
  cloud.points.resize(starts.back());
  if (velocities_) cloud.velocities.resize(starts.back());
  ParallelChunks(workers, list, [&](int chunk, const ParticleRows& rows) {
    Fill(rows, entry, cloud, starts[static_cast<std::size_t>(chunk)]);
  });
  return cloud;
}

void CloudMaker::Fill(const ParticleRows& rows, const ShownEntry& entry, PointCloud& cloud, std::size_t at) {
  const auto radii = rows.Property<double>(PP::Radius);
  const auto ages = rows.Property<double>(PP::Age);
  const ColourValues values(rows, source_);
  const SeenVelocity velocities(rows, source_.dt);
  const double perMetre = space_.hostPerSim.x, size = cloud.lit ? look_.radiusFactor * perMetre : 0;
  Vec3D value;
  bool any = false;
  for (std::int32_t r = rows.begin; r < rows.end; ++r) {
    if (!IsShown(rows, entry, r)) continue;
    PointCloud::Point& point = cloud.points[at];
    point.position = Vec3F(rows.positions()[r] * space_.hostPerSim - cloud.origin);
    point.radius = static_cast<float>(radii.Get(r, look_.defaultRadius * space_.cellSize) * size);
    const bool has = values.Get(r, value);
    any |= has;
    point.colour = has ? colours_.Of(value) : colours_.plain();
    double opacity = look_.opacity;
    if (look_.fadeOut > 0) opacity *= std::clamp(ages.Get(r, look_.fadeOut) / look_.fadeOut, 0.0, 1.0);
    point.opacity = static_cast<float>(opacity);
    if (velocities_) cloud.velocities[at] = Vec3F(velocities.Of(r) * space_.hostPerSim);
    ++at;
  }
  if (any) anyValue_.store(true, std::memory_order_relaxed);
}

void Widen(ParticlePicture& picture, const Vec3D& low, const Vec3D& high) {
  const bool first = picture.low.x > picture.high.x;
  picture.low = first ? low : Min(picture.low, low);
  picture.high = first ? high : Max(picture.high, high);
}

// Of the containers of the scene's solvers. False without one.
bool ContainerBox(const OrlixScene& scene, Vec3D& low, Vec3D& high) {
  bool any = false;
  scene.ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](iBase& node) {
    const auto* solver = dynamic_cast<FluidSolver*>(&node);
    if (!solver || !solver->velocity.grids[0]) return;
    const GridSpace& space = solver->velocity.grids[0]->space;
    low = any ? Min(low, space.hostMin) : space.hostMin;
    high = any ? Max(high, space.hostMax) : space.hostMax;
    any = true;
  });
  return any;
}

void PointBox(const PointCloud& cloud, Vec3D& low, Vec3D& high) {
  low = high = Vec3D(cloud.points.front().position) + cloud.origin;
  for (const PointCloud::Point& point : cloud.points) {
    const Vec3D centre = Vec3D(point.position) + cloud.origin, radius(static_cast<double>(point.radius));
    low = Min(low, centre - radius), high = Max(high, centre + radius);
  }
}

// The values at the ends of the gradient.
ValueRange RangeOf(const Shown& shown, const ColourSource& source, const OrlixScene& scene, WorkerPool& workers) {
  const ParticleLook& look = shown.look;
  Vec3D low, high;
  if (look.byFall && ContainerBox(scene, low, high)) {
    const double height = (high.y - low.y) * scene.GetSimulationSpace().simPerHost.y;
    const double speed = std::sqrt(2 * Length(scene.GetGravity()) * height);
    if (speed > 0) return {0, speed};
  }
  if (look.low != look.high && !look.byFall) return {look.low, look.high};
  ValueRange range;
  for (const ShownEntry& entry : shown.entries) {
    range.Add(RangeOfValues(*entry.group->list(entry.kind), source, workers));
  }
  return range;
}

class PictureMaking {
 public:
  PictureMaking(const OrlixScene& scene, WorkerPool& workers, bool velocities, ParticlePicture& picture)
      : scene_(scene), workers_(workers), velocities_(velocities), picture_(picture) {}

  // Gives whether any particle has the value that its colour comes from.
  bool Add(const Shown& shown) {
    const ColourSource source = SourceOf(shown.look, scene_);
    const ValueRange range =
        source.plain || source.direct ? ValueRange{0, 1} : RangeOf(shown, source, scene_, workers_);
    const ColourTable colours(shown.look, source, range.low, range.high);
    CloudMaker maker(scene_, shown.look, source, colours, velocities_);
    for (const ShownEntry& entry : shown.entries) {
      PointCloud cloud = maker.Make(entry, workers_);
      if (cloud.points.empty()) continue;
      Vec3D low, high;
      if (!ContainerBox(scene_, low, high)) PointBox(cloud, low, high);
      Widen(picture_, low, high);
      picture_.clouds.push_back(std::move(cloud));
    }
    if (shown.look.legend && !source.plain && !source.direct && !range.empty()) {
      picture_.legends.push_back({TitleOf(shown.look), range.low, range.high, shown.look.colours});
    }
    return maker.anyValue() || (!shown.look.property && shown.look.colourBy == ParticleLook::kPlain);
  }

 private:
  const OrlixScene& scene_;
  WorkerPool& workers_;
  const bool velocities_;
  ParticlePicture& picture_;
};

}  // namespace

Result<ParticlePicture> MakeParticlePicture(const BaseDocument& document, const OrlixHook& hook, WorkerPool& workers,
                                            bool velocities, Warnings& warnings, std::int32_t frame) {
  ParticlePicture picture;
  const std::vector<BaseObject*> materials = document.ObjectsOfType(kParticleMaterialId);
  try {
    for (const auto& [key, scene] : hook.scenes()) {
      PictureMaking making(*scene, workers, velocities, picture);
      for (const Shown& shown : FindShown(materials, *scene)) {
        if (making.Add(shown) || !shown.material) continue;
        warnings.Tell(
            {shown.material->Path(), "no-colour-values",
             "no particle has the property \"" + TitleOf(shown.look) +
                 "\", so all have the plain colour; let their emitter give it or choose another \"colour_by\"",
             frame});
      }
    }
  } catch (const std::bad_alloc&) {
    return Result<ParticlePicture>::Fail(ErrorKind::Memory, "no memory for a picture of the particles");
  }
  return picture;
}

}  // namespace orlix
