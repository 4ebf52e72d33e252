#include "fluids/particle_emitters/ParticleEmissionHandler.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "globals/Hash.h"

namespace orlix {

namespace {

// The rows [begin, end) of a list that a column of the runs goes to, in pieces that lie in one run and one chunk.
// f(rows' chunk, first row, run, first element, count).
template <class F>
void ForEachPiece(const ParticleList& list, std::span<const EmittedRun> runs, std::span<const std::int64_t> starts,
                  std::int32_t base, std::int32_t begin, std::int32_t end, F&& f) {
  auto run =
      static_cast<std::size_t>(std::upper_bound(starts.begin(), starts.end(), begin - base) - starts.begin() - 1);
  for (std::int32_t i = begin; i < end;) {
    const auto from = static_cast<std::size_t>(i - base - starts[run]);
    const std::size_t left = runs[run].positions.size() - from;
    if (left == 0) {
      ++run;
      continue;
    }
    const std::int32_t row = i & (kChunkRows - 1);
    const auto n = static_cast<std::int32_t>(
        std::min<std::size_t>(left, static_cast<std::size_t>(std::min(kChunkRows - row, end - i))));
    f(list.ChunkOf(i), row, runs[run], from, n);
    i += n;
  }
}

}  // namespace

MersenneTwister RandomOfPiece(std::uint32_t seed, std::uint64_t piece) {
  const std::uint64_t words[2] = {seed, piece};
  return MersenneTwister(static_cast<std::uint32_t>(HashBytes(words, sizeof words)));
}

void ParticleEmissionHandler::Resolve(iObject& node, const LinkIds& ids) {
  OrlixScene& scene = node.GetScene();
  scene_ = &scene;
  group = scene.RetrieveAs<ParticleGroup>(node.handler.GetLink(kEmitterGroupId), NODE_PARTICLES);
  kind = std::clamp(node.handler.GetInt(kEmitterKindId), 0, kParticleKinds - 1);
  settings = scene.RetrieveAs<ParticleEmissionSettings>(node.handler.GetLink(ids.settings), NODE_SETTINGS);
  linked_ = group && settings;
  constraints = RetrieveConstraints(scene, node.handler);
  colourShader_ = node.handler.GetObjectLink(ids.colourShader);
  if (colourShader_ && !(colourShader_->data() && colourShader_->data()->AsShader())) colourShader_ = nullptr;
  properties_ = RetrieveProperties(scene, node.handler, ids.properties);
}

void ParticleEmissionHandler::Advise(const iObject& node) const {
  if (!group) node.Warn("no-group", "no particle group is linked: nothing is emitted; link one under group");
  if (!settings) {
    node.Warn("no-settings", "no particle emission settings are linked: nothing is emitted; link some under settings");
  }
  if (colourShader_ && !HasVectors()) {
    node.Warn("no-vector-property",
              "colours need a vector property: colour_shader has no effect; add one, such as a colour, to properties");
  }
  if (const double* age = properties_.data.FindReal(PP::Age); age && *age <= 1) {
    node.Warn("short-life",
              fmt::format("its particles have {} frame{} to live and die at the end of the one that they are "
                          "made in; give the property_age among its properties a larger \"value\", or take it out",
                          *age, *age == 1 ? "" : "s"));
  }
  if (properties_.misfit) {
    node.Warn("property-type", fmt::format("\"{}\" has the number {}, which is of another type: it isn't given; choose "
                                           "another property_id or kind of property",
                                           properties_.misfit->DisplayName(), properties_.misfit->propertyId));
  }
}

void ParticleEmissionHandler::Conclude(const iObject& node, const char* why) const {
  if (emitted_ > 0 || !linked_ || played_) return;
  node.Warn("nothing-emitted",
            why ? why
                : "no particle was emitted in the whole run; see whether its volume has an inside (an open mesh, or "
                  "one whose "
                  "faces are there twice, may have none), its duration and rate, and what its constraints leave");
}

void ParticleEmissionHandler::Release() {
  group = nullptr, settings = nullptr, colourShader_ = nullptr, properties_.misfit = nullptr;
  constraints.clear();
}

bool ParticleEmissionHandler::Begin(iObject& node) {
  weight = 1;
  if (!group || !settings) return false;
  if (!group->list(kind)) return false;
  if (group->KindIsKept(kind)) return played_ = true, false;
  if (const Duration* duration = settings->duration; duration && duration->IsEnabled()) {
    if (!duration->IsActive(node.GetSimulationInfo().time, weight)) return weight = 0, false;
  }
  if (settings->alignment) settings->alignment->Prepare(&node);
  for (Constraint* constraint : constraints) constraint->Prepare(&node);
  properties_.data.flags = static_cast<std::uint16_t>(ParticleFlag::Alive | FlagOfKind(kind));
  properties_.data.SetVector(PP::OldPosition, {});
  if (kind == PK_Vorticity) properties_.data.SetVector(PP::Vorticity, {0, 1, 0});
  if (colourShader_ && HasVectors()) properties_.data.SetVector(PP::Color, {});
  return true;
}

void ParticleEmissionHandler::Ask(const BaseObject& shader, const ShaderSpace& space, const GridSpace& lattice,
                                  std::span<const Vec3D> places, std::span<Vec3D> colours) {
  if (space.kind == Shader::PlaceKind::Space && !space.metres) {
    for (std::size_t i = 0; i < places.size(); ++i) colours[i] = places[i] * lattice.hostPerSim + lattice.hostMin;
    places = colours;
  }
  shader.data()->AsShader()->Colours(shader, space.kind, places, colours);
}

void ParticleEmissionHandler::Complete(EmittedRun& run, const ShaderSpace& space, MersenneTwister& random) const {
  if (colourShader_ && HasVectors()) {
    run.colours.resize(run.positions.size());
    Ask(*colourShader_, space, scene_->GetSimulationSpace(),
        space.kind == Shader::PlaceKind::Space ? run.positions : run.textures, run.colours);
  }
  if (kind == PK_Vorticity && settings->alignment) {
    run.vorticities.resize(run.positions.size());
    for (std::size_t i = 0; i < run.positions.size(); ++i) {
      run.vorticities[i] = Normalized(settings->alignment->GetDirection(run.positions[i], random));
    }
  }
}

std::int64_t ParticleEmissionHandler::Append(std::span<EmittedRun> runs) {
  std::vector<std::int64_t> starts{0};
  const EmittedRun* some = nullptr;
  for (const EmittedRun& run : runs) {
    starts.push_back(starts.back() + static_cast<std::int64_t>(run.positions.size()));
    if (!run.positions.empty()) some = &run;
  }
  const std::int64_t n = starts.back();
  emitted_ += n;
  if (n == 0) return 0;
  if (n > std::numeric_limits<std::int32_t>::max()) throw std::bad_alloc();
  struct Column {
    std::int32_t id;
    CountedVector<Vec3D> EmittedRun::*values;
  };
  std::vector<Column> columns{{PP::OldPosition, &EmittedRun::positions}};
  for (const Column& column : {Column{PP::Color, &EmittedRun::colours}, Column{PP::Vorticity, &EmittedRun::vorticities},
                               Column{PP::Normal, &EmittedRun::normals}, Column{PP::UV, &EmittedRun::textures}}) {
    if ((some->*column.values).empty()) continue;
    properties_.data.SetVector(column.id, {});
    columns.push_back(column);
  }
  const std::int32_t base = List().Append(static_cast<std::int32_t>(n), properties_.data, &scene_->pool());
  starts.pop_back();
  const std::int32_t firstChunk = base >> kChunkShift, end = base + static_cast<std::int32_t>(n);
  ParallelRange(scene_->pool(), firstChunk, ((end - 1) >> kChunkShift) + 1, [&](int from, int to, int) {
    const std::int32_t a = std::max(base, from << kChunkShift);
    const auto b = static_cast<std::int32_t>(std::min<std::int64_t>(end, std::int64_t(to) << kChunkShift));
    ForEachPiece(
        List(), runs, starts, base, a, b,
        [&](ParticleChunk& chunk, std::int32_t row, const EmittedRun& run, std::size_t first, std::int32_t rows) {
          std::copy_n(run.positions.data() + first, rows, chunk.positions + row);
          for (const Column& column : columns) {
            std::copy_n((run.*column.values).data() + first, rows, chunk.column(column.id)->values<Vec3D>() + row);
          }
        });
  });
  for (EmittedRun& run : runs) run = {};
  return n;
}

void ParticleEmissionHandler::End(iObject& node) {
  if (settings && settings->alignment) settings->alignment->Finish();
  if (group && node.IsActive() && node.IsEnabled()) {
    group->SetKindDirty(kind);
    group->AfterStep();
  }
  node.SetFlag(NodeActive, false);
  for (Constraint* constraint : constraints) constraint->Finish();
}

}  // namespace orlix
