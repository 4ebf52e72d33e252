#include "run/FrameOrigin.h"

#include <algorithm>
#include <system_error>

#include "fluids/caches/Cache_OperatorBase.h"
#include "globals/Hash.h"
#include "host/description/CurveData.h"
#include "host/files/ByteSource.h"

namespace orlix {

namespace {

namespace fs = std::filesystem;

void Add(StateHash& hash, const std::string& text) {
  hash.AddValue(text.size());
  hash.Add(text.data(), text.size());
}

// By their paths: numbers of objects change when others come and go.
void AddTarget(StateHash& hash, const BaseDocument& document, std::uint64_t target) {
  const BaseObject* object = document.FindObject(target);
  Add(hash, object ? object->Path() : std::string());
}

struct ValueHasher {
  StateHash& hash;
  const BaseDocument& document;
  void operator()(const std::monostate&) const {}
  void operator()(std::int64_t value) const { hash.AddValue(value); }
  void operator()(double value) const { hash.AddValue(value); }
  void operator()(const Vec3D& value) const { hash.AddValue(value); }
  void operator()(const std::string& value) const { Add(hash, value); }
  void operator()(const LinkValue& value) const { AddTarget(hash, document, value.target); }
  void operator()(const SplineValue& value) const {
    for (const SplineKnot& knot : value ? value->knots() : std::vector<SplineKnot>()) {
      for (const double v : {knot.x, knot.y, knot.left.x, knot.left.y, knot.right.x, knot.right.y}) hash.AddValue(v);
      hash.AddValue(knot.interpolation);
    }
  }
  void operator()(const GradientValue& value) const {
    for (const GradientKnot& knot : value ? value->knots() : std::vector<GradientKnot>()) {
      hash.AddValue(knot.position), hash.AddValue(knot.colour), hash.AddValue(knot.interpolation);
    }
  }
  void operator()(const InExcludeValue& value) const {
    for (const auto& entry : value ? value->entries : std::vector<InExcludeData::Entry>()) {
      AddTarget(hash, document, entry.target);
      hash.AddValue(entry.flags);
    }
  }
};

// A file that a row names, by its size and the time of its last change.
void AddFile(StateHash& hash, const fs::path& path) {
  std::error_code error;
  hash.AddValue(fs::file_size(path, error));
  hash.AddValue(fs::last_write_time(path, error).time_since_epoch().count());
}

void AddObject(StateHash& hash, const BaseObject& object) {
  const BaseDocument& document = object.document();
  Add(hash, object.Path());
  Add(hash, object.type().resource);
  hash.AddValue(object.GlobalMatrix());
  object.type().ForEachParameter([&](const Parameter& row) {
    if (!row.HoldsValue() || row.unread) return;
    hash.AddValue(row.id);
    std::visit(ValueHasher{hash, document}, object.Get(row.id));
    if (row.type != ParameterType::File) return;
    if (const std::string name = object.GetString(row.id); !name.empty())
      AddFile(hash, fs::path(document.folder) / name);
  });
}

void AddObjects(StateHash& hash, const BaseDocument& document, const std::set<std::uint64_t>& numbers, bool pictures) {
  hash.AddValue(document.fps);
  document.ForEachObject([&](const BaseObject& object) {
    const TypeRole role = object.type().role;
    const bool always = role == TypeRole::Root;
    const bool shown = role == TypeRole::Light || role == TypeRole::Camera || role == TypeRole::Material ||
                       role == TypeRole::RenderSettings;
    if (always || numbers.contains(object.creationNumber()) || (pictures && shown)) AddObject(hash, object);
  });
}

}  // namespace

std::uint64_t StampOf(const fs::path& frameFile) {
  const std::string extension = frameFile.extension().string();
  if (extension != ".cache" && extension != ".pcache" && extension != ".mcache") {
    StateHash hash;
    AddFile(hash, frameFile);
    return hash.Value();
  }
  ByteSource source;
  unsigned char end[hyper::kEnd];
  if (!source.Open(frameFile).ok() || source.Size() < sizeof end) return 0;
  return source.ReadAt(source.Size() - sizeof end, end, sizeof end) ? HashBytes(end, sizeof end) : 0;
}

FrameOrigin OriginOf(const std::vector<Pass>& passes, const BaseDocument& document, const OrlixHook& hook,
                     std::uint64_t simulation) {
  FrameOrigin origin;
  std::set<std::uint64_t> files, pictures, caches;
  bool simulated = false;
  for (const Pass& pass : passes) {
    (pass.picture ? pictures : files).insert(pass.madeFrom.begin(), pass.madeFrom.end());
    caches.insert(pass.caches.begin(), pass.caches.end());
    simulated |= !pass.StandsAlone();
  }
  for (const auto& [key, scene] : hook.scenes()) {
    scene->ForEachNode(NODE_CACHE, NODE_CACHE, [&](iBase& node) {
      auto* cache = dynamic_cast<Cache_OperatorBase*>(&node);
      if (!cache || !caches.contains(node.handler.hostObject()->creationNumber())) return;
      const fs::path path = cache->PathToLoad();
      origin.caches.push_back({path.lexically_normal().string(), StampOf(path)});
    });
  }
  StateHash ofFiles, ofPictures;
  for (StateHash* hash : {&ofFiles, &ofPictures}) {
    for (const CacheStamp& cache : origin.caches) hash->AddValue(cache.stamp);
    if (simulated) hash->AddValue(simulation);
  }
  AddObjects(ofFiles, document, files, false);
  AddObjects(ofPictures, document, pictures, true);
  origin.files = ofFiles.Value(), origin.pictures = ofPictures.Value();
  return origin;
}

}  // namespace orlix
