#include "fluids/caches/ParticleCacher.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <new>

#include "exchange/points/PointFormats.h"
#include "fluids/caches/CacheRows.h"
#include "fluids/caches/GridFrameFile.h"
#include "fluids/caches/ParticleExchange.h"
#include "fluids/particles/KindChoices.h"
#include "fluids/particles/PropertyList.h"

namespace orlix {

namespace fs = std::filesystem;

const TypeInfo& ParticleCacher::Type() {
  using namespace cache_rows;
  // By their places in the table of extensions.
  static constexpr Choice kFormats[] = {
      {Format::Cache, "cache", "The engine's own frame files"},
      {1, "prt", "Krakatoa"},
      {2, "bgeo", "Houdini, classic binary"},
      {4, "geo", "Houdini, classic text"},
      {5, "bin", "RealFlow"},
      {6, "pda", "Maya, text"},
      {7, "pdb", "PDB"},
      {8, "pdb32", "PDB of 32 bits"},
      {9, "pdb64", "PDB of 64 bits"},
      {10, "pdc", "Maya"},
      {11, "ptc", "RenderMan point cloud"},
      {12, "pts", "Points of a scanner; only played"},
      {13, "rib", "RenderMan scene; only recorded"},
      {14, "xyz", "Points, a line each"},
      {15, "mc", "Maya cache"},
      {16, "icecache", "Softimage"},
  };
  static constexpr Parameter kParameters[] = {
      GroupListParameter(kGroupsId, "groups",
                         "Whose particles are cached, a kind an entry; a file's particles go by their place in this "
                         "list"),
      ListParameter(kPropertiesId, "properties", kLinkProperty,
                    "Which properties are recorded beside position and velocity; an empty list is all"),
      kMode,
      kRenderOnly,
      kFolderSource,
      kChooseFolder,
      kFolder,
      Stem("What file names begin with; orlix_particle_c4d when empty"),
      Digits(kDigitsId),
      ChoiceParameter(kFormatId, "format", Format::Cache, kFormats,
                      "Kind of the files. Those of other programs hold single precision; played, they fill the first "
                      "population, which goes on being simulated"),
      CompressionRow("How particles are stored"),
      cache_rows::kNumbering,
      FloatParameter(kSpeedId, "speed", 1, "",
                     "Frames that pass in the cache while one passes in the scene; between two of them particles stand "
                     "between their places")
          .Min(0),
      kFrame,
      kFrameOffset,
      kReverse,
      ActiveIn(kActiveInId),
      kFrameText,
      kFolderText,
      DeleteButton(1018),
  };
  static const TypeInfo kType = {
      .id = kParticleCacheTypeId,
      .resource = "zq_cache_particle",
      .className = "C4D_Operator_ParticleCache_Object",
      .label = "POP::Cacher",
      .text =
          "Records particles, one file a frame, and plays them back in place of their emission and motion. Constraints "
          "leave particles out, both when they are recorded and when they are played.",
      .kinds = kLinkCache,
      .parameters = kParameters,
      .common = ConfinedNodeParameters(),
  };
  return kType;
}

ParticleCacher::ParticleCacher(BaseList2D* object, OrlixScene& owner)
    : Cache_OperatorBase(object, owner, kParticleCacheStem) {
  stageMask = StageBit(kStageLoadCache) | StageBit(kStageEmitters) | StageBit(kStageSaveCache);
}

bool ParticleCacher::ReadParameters() {
  if (!Cache_OperatorBase::ReadParameters()) return false;
  speed_ = handler.GetDouble(kSpeedId);
  return true;
}

bool ParticleCacher::ResolveLinks() {
  if (!Cache_OperatorBase::ResolveLinks()) return false;
  targets_.clear(), filter_.keys.clear();
  const InExcludeData* list = handler.GetInExclude(kGroupsId);
  if (list && !list->entries.empty()) targets_ = RetrieveGroups(*scene, handler, kGroupsId, 0);
  if (const InExcludeData* names = handler.GetInExclude(kPropertiesId)) {
    for (const InExcludeData::Entry& entry : names->entries) {
      const auto* property = scene->RetrieveAs<iProperty>(handler.GetDocument()->FindObject(entry.target), NODE_ALL);
      if (property) filter_.keys.push_back(KeyOf(*property));
    }
  }
  return true;
}

void ParticleCacher::ReleaseLinks() {
  targets_.clear(), filter_.keys.clear();
  Cache_OperatorBase::ReleaseLinks();
}

void ParticleCacher::Advise() {
  Cache_OperatorBase::Advise();
  if (format_ == Format::Cache || targets_.size() < 2) return;
  Warn("one-population",
       mode() == CacheMode::Playback
           ? "a file of another program fills the first of its list alone; give each a cache of its own"
           : "files of other programs hold all of its list as one, and play so; give each a cache of its "
             "own");
}

bool ParticleCacher::PlaysBack(const iBase& node) const {
  const InExcludeData* list = handler.GetInExclude(kGroupsId);
  return list && handler.GetChoice(kModeId) == static_cast<int>(CacheMode::Playback) &&
         list->Contains(node.handler.hostObject()->creationNumber());
}

void ParticleCacher::Prepare(iBase*) {
  if (scene->stage == kStageEmitters) return;
  SetFlag(NodeActive, false);
  Release(0);
  if (!TakesPart()) return;
  if (scene->stage == kStageLoadCache && mode() == CacheMode::Playback) {
    format_ == Format::Cache ? TakeHeaders() : SetFlag(NodeActive, HasExchangeFrame());
  }
  if (scene->stage == kStageSaveCache && mode() == CacheMode::Record) {
    if (const Status folder = name_.CheckFolder(true); !folder.ok()) return FailSaving(folder);
    SetFlag(NodeActive, true);
  }
}

// No population stays marked as played back without data.
void ParticleCacher::Release(std::size_t first) {
  for (std::size_t i = first; i < targets_.size(); ++i) {
    targets_[i].group->SetFlag(NodeFromCache, false);
    targets_[i].group->SetKindKept(targets_[i].kind, false);
  }
}

void ParticleCacher::TakeHeaders() {
  HyperFile file;
  fs::path path;
  ParticleFrameHead head;
  if (!OpenFrame(file, path)) return;
  if (const Status read = ReadParticleFrameHead(file, path.string(), head); !read.ok()) {
    return TellUnloaded(read.error().text);
  }
  if (head.entries.size() < targets_.size()) {
    return TellUnloaded(fmt::format("{} holds {} populations, the cache lists {}", path.string(), head.entries.size(),
                                    targets_.size()));
  }
  for (const GroupEntry& target : targets_) {
    target.group->SetFlag(NodeFromCache, true);
    target.group->SetKindKept(target.kind, true);
  }
  SetFlag(NodeActive, true);
}

void ParticleCacher::Process(ProcessData&) {
  if (!IsActive() || !IsDirty()) return;
  if (scene->stage == kStageEmitters && mode() != CacheMode::Record) {
    format_ == Format::Cache ? Load() : LoadExchange();
  }
  if (scene->stage == kStageSaveCache && mode() != CacheMode::Playback) {
    format_ == Format::Cache ? Save() : SaveExchange();
  }
}

void ParticleCacher::Finish() {
  if (scene->stage == kStageEmitters) return;
  FinishPass();
  SetFlag(NodeActive, false);
}

// --- playing ---------------------------------------------------------------------------------------------------------

void ParticleCacher::Load() {
  HyperFile file;
  fs::path path;
  ParticleFrameHead head;
  if (!OpenFrame(file, path)) return Release(0);
  Status status = ReadParticleFrameHead(file, path.string(), head);
  BeginPass();
  for (std::size_t i = 0; status.ok() && i < std::min(targets_.size(), head.entries.size()); ++i) {
    status = LoadEntry(file, path.string(), head.entries[i], targets_[i]);
  }
  FinishPass();
  if (!status.ok()) TellUnloaded(status.error().text);
}

// Between two frames of the cache a particle stands on the line from where the file's frame found it.
void ParticleCacher::Place(ParticleRunData& run, const GridSpace& space, double t) const {
  const auto column = [&](std::int32_t id) -> const ParticleRunColumn* {
    const auto found = std::find_if(run.columns.begin(), run.columns.end(), [id](const auto& c) { return c.id == id; });
    return found == run.columns.end() ? nullptr : &*found;
  };
  const ParticleRunColumn *atFrame = column(PP::FramePosition), *before = column(PP::OldPosition);
  const Vec3D offset = handler.GetMatrix().off * scene->space.simPerHost;
  const bool moved = offset != Vec3D(), sameLattice = space.Equals(scene->space);
  for (std::size_t r = 0; r < run.rows(); ++r) {
    Vec3D& p = run.positions[r];
    if (t != 0) {
      const Vec3D old = atFrame && atFrame->Has(r) ? atFrame->vectors[r]
                        : before && before->Has(r) ? before->vectors[r]
                                                   : p;
      p = old + (p - old) * t;
    }
    if (moved) p += offset;
    if (!sameLattice) p = (p * space.hostPerSim + space.hostMin) * scene->space.simPerHost;
  }
  // Files may know an old position by the frame's start alone.
  if (atFrame && !before) {
    run.columns.push_back(*atFrame);
    run.columns.back().id = PP::OldPosition;
  }
}

Status ParticleCacher::LoadEntry(HyperFile& file, const std::string& fileName, const ParticleEntryHeader& header,
                                 const GroupEntry& target) {
  const double place = PlaceToLoad(speed_);
  const double t = std::clamp(place - std::trunc(place + std::copysign(1e-6, place)), 0.0, 1.0);
  ParticleFactory& factory = target.group->factory(target.kind);
  constexpr std::size_t kMostLists = 1024;
  if (header.sizes.size() > kMostLists) {
    return Status::Fail(ErrorKind::InputFile, fileName + ": damaged: more lists of particles than there can be");
  }
  factory.SetListCount(std::max<std::int32_t>(1, static_cast<std::int32_t>(header.sizes.size())));
  factory.SetFrame(scene->space);
  std::vector<ParticleRefill> refills;
  for (std::int32_t n = 0; n < factory.listCount(); ++n) refills.emplace_back(*factory.list(n), *handler.GetDocument());
  ParticleEntryFacts facts;
  Status status;
  try {
    status = ReadParticleChunk(file, fileName, header, facts, [&](std::int32_t list, ParticleRunData& run) -> Status {
      Place(run, facts.space, t);
      std::vector<std::uint8_t> keep;
      if (!constraints().empty()) {
        std::vector<double> weights(run.rows(), 1.0);
        ParticleList arrived;  // what constraints look at
        ParticleRefill whole(arrived, *handler.GetDocument());
        whole.Put(run);
        whole.End();
        Weigh(arrived, 0, arrived.count(), run.positions.data(), weights.data());
        for (const double weight : weights) keep.push_back(weight != 0);
      }
      refills[static_cast<std::size_t>(list)].Put(run, keep);
      return {};
    });
  } catch (const std::bad_alloc&) {
    status = Status::Fail(ErrorKind::Memory, fileName + ": no memory for its particles");
  }
  for (ParticleRefill& refill : refills) refill.End();
  factory.UpdateBounds(scene->pool());
  target.group->SetKindDirty(target.kind);
  return status;
}

// --- recording -------------------------------------------------------------------------------------------------------

void ParticleCacher::Weigh(ParticleList& list, std::int32_t first, std::int32_t count, const Vec3D* places,
                           double* weights) const {
  std::vector<std::uint8_t> open(static_cast<std::size_t>(count), 1);
  EvaluateChain(constraints(), ParticleRun{&list, first, count, 0, places, weights, open.data()}, this);
}

void ParticleCacher::Save() {
  auto frame = std::make_shared<ParticleFrameData>();
  frame->sceneSpace = scene->space;
  WeighParticles weigh;
  if (!constraints().empty()) {
    weigh = [this](ParticleList& list, const ParticleRows& rows, double* weights) {
      Weigh(list, rows.first, rows.end, rows.positions(), weights);
    };
  }
  // Constraints keep what belongs to a worker by its number.
  WorkerPool alone(1);
  WorkerPool& pool = weigh ? alone : scene->pool();
  for (const GroupEntry& target : targets_) {
    ParticleFactory& factory = target.group->factory(target.kind);
    ParticleEntryData entry;
    entry.facts = {factory.bounds, factory.frame};
    for (std::int32_t n = 0; n < factory.listCount(); ++n) {
      entry.header.sizes.push_back(factory.Count(n));
      entry.lists.push_back(TakeParticleRuns(*factory.list(n), filter_, weigh, *handler.GetDocument(), pool));
    }
    entry.header.present = entry.header.Count() > 0;
    if (!entry.header.present) entry = {};
    frame->entries.push_back(std::move(entry));
  }
  SaveFrame(
      [frame, packed = compression_ == Compression::Packed](HyperFile& file, const std::string& number) {
        return WriteParticleFrame(file, *frame, packed, number);
      },
      scene->WritesBehind());
}

// --- files of other programs -----------------------------------------------------------------------------------------

bool ParticleCacher::HasExchangeFrame() {
  const fs::path path = PathToLoad();
  std::error_code error;
  if (!fs::exists(path, error)) {
    TellMissing(path);
    return false;
  }
  const Result<PointSet> heads = ReadPoints(path, true);
  if (!heads) TellUnloaded(heads.error().text);
  return heads.ok();
}

void ParticleCacher::LoadExchange() {
  Result<PointSet> set = ReadPoints(PathToLoad());
  if (!set) return TellUnloaded(set.error().text);
  DropUnheld(*set);
  const GroupEntry& target = targets_.front();
  ParticleFactory& factory = target.group->factory(target.kind);
  const double place = PlaceToLoad(speed_);
  const double t = std::clamp(place - std::trunc(place + std::copysign(1e-6, place)), 0.0, 1.0);
  factory.SetListCount(1);
  ParticleRefill refill(*factory.list(), *handler.GetDocument());
  const auto bits = static_cast<std::uint16_t>(ParticleFlag::Alive | FlagOfKind(target.kind));
  try {
    for (std::uint64_t begin = 0; begin < set->count; begin += kChunkRows) {
      const auto rows = static_cast<std::size_t>(std::min<std::uint64_t>(kChunkRows, set->count - begin));
      ParticleRunData run = ImportParticles(*set, begin, rows, bits);
      Place(run, scene->space, t);
      refill.Put(run);
    }
  } catch (const std::bad_alloc&) {
    TellUnloaded(PathToLoad().string() + ": no memory for its particles");
  }
  refill.End();
  factory.UpdateBounds(scene->pool());
  target.group->SetKindDirty(target.kind);
}

// A frame without particles is a file, too: played, it is found, and isn't what an earlier run left there.
void ParticleCacher::SaveExchange() {
  auto set = std::make_shared<PointSet>(ExportParticles(targets_, filter_));
  const fs::path path = PathToSave();
  const PointFormat* format = FindPointFormat(path);
  if (!format || !format->write) {
    return Warn("no-writer", "files of " + name_.extension + " are only played; choose another format to record");
  }
  WriteFile([set, path, packed = compression_ == Compression::Packed] { return WritePoints(path, *set, packed); },
            scene->WritesBehind());
}

// --- what it tells ---------------------------------------------------------------------------------------------------

ParticleCacheInfo ParticleCacher::ReadFrameInfo() const {
  ParticleCacheInfo info;
  const fs::path path = PathToLoad();
  if (format_ != Format::Cache) {
    const Result<PointSet> heads = ReadPoints(path, true);
    info.found = heads.ok();
    if (heads) info.counts.push_back(static_cast<std::int64_t>(heads->count));
    return info;
  }
  HyperFile file;
  ParticleFrameHead head;
  info.found =
      file.Open(kFrameFileIdent, path, HyperFile::Mode::Read) && ReadParticleFrameHead(file, path.string(), head).ok();
  for (const ParticleEntryHeader& entry : info.found ? head.entries : std::vector<ParticleEntryHeader>()) {
    info.counts.push_back(entry.Count());
  }
  return info;
}

std::string ParticleCacher::FrameText() const {
  const ParticleCacheInfo info = ReadFrameInfo();
  std::int64_t total = 0;
  for (const std::int64_t count : info.counts) total += count;
  std::string text = fmt::format("Particles: {}\nParticle Groups: {}\n", total, info.counts.size());
  for (std::size_t i = 0; i < info.counts.size(); ++i) {
    text += fmt::format("Particle Group ({}): {}\n", i + 1, info.counts[i]);
  }
  return text;
}

}  // namespace orlix
