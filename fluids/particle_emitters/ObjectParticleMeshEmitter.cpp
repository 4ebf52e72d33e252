#include "fluids/particle_emitters/ObjectParticleMeshEmitter.h"

#include <algorithm>
#include <cmath>

#include "fluids/particle_emitters/EmissionForecast.h"

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 5;
constexpr std::int64_t kBlock = 1024;  // attempts

}  // namespace

const TypeInfo& ObjectParticleMeshEmitter::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kEmitterGroupId, "group", kLinkParticles, "Particle group that gets the particles; required"),
      EmitterKindParameter(),
      LinkParameter(kVolumeId, "volume", kLinkVolume, "Volume over whose mesh it scatters; required"),
      LinkParameter(kSettingsId, "settings", kLinkSettings, "Particle emission settings; required"),
      ListParameter(kPropertiesId, "properties", kLinkProperty, "Properties that the particles start with"),
      IntParameter(kIterationsId, "iterations", 0, "", "Extra rounds of scattering").Min(0).Hidden(),
      IntParameter(kSampleInSpaceId, "sample_in_space", 1, "",
                   "1: shaders go by the place in space; 0: by the mesh's texture coordinates")
          .Between(0, 1),
      IntParameter(kSampleLocalId, "sample_local", 0, "",
                   "1: the place in space is given in metres; 0: in host units, as objects stand")
          .Between(0, 1)
          .ShownWhen(kSampleInSpaceId, Relation::Is, 1),
      IntParameter(kUvChannelId, "uv_channel", 0, "",
                   "Channel of texture coordinates; below 1 the mesh's aren't read for shaders")
          .ShownWhen(kSampleInSpaceId, Relation::Is, 0),
      BoolParameter(kWriteNormalId, "write_normal", false, "Gives particles the normal of their triangle"),
      BoolParameter(kWriteUvId, "write_uv", false, "Gives particles their texture coordinates"),
      LinkParameter(kColourShaderId, "colour_shader", kLinkShader, "Gives the particles their colours"),
      LinkParameter(kDensityShaderId, "density_shader", kLinkShader, "A mask: where it is dark nothing is emitted"),
      FloatParameter(kDensityThresholdId, "density_threshold", 0.01, "",
                     "Red of the mask below which a place is refused"),
      BoolParameter(kInvertCurvatureId, "invert_curvature", false, "Emits below the limit of the curvature"),
      FloatParameter(kCurvatureLimitId, "curvature_limit", 0.0, "",
                     "A hundredth of the curvature from which a place emits; 0 is no test. It takes a mesh whose "
                     "points carry curvature")
          .Min(0)
          .Fallback(0.2),
      FloatParameter(kMinimumDistanceId, "minimum_distance", 0.25, "cells",
                     "Least distance from particles that are there")
          .Min(0),
  };
  static const TypeInfo kType = {
      .id = 1300007,
      .resource = "zq_particlemeshemitter",
      .className = "C4D_ParticleMeshEmitter_Object",
      .label = "Emitter::Particle On Mesh",
      .text =
          "Scatters particles over a volume's mesh, so many a second. Every triangle is equally likely: small ones get "
          "more particles for their area.",
      .kinds = kLinkEmitter,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

ObjectParticleMeshEmitter::ObjectParticleMeshEmitter(BaseList2D* object, OrlixScene& owner) : iObject(object, owner) {
  stageMask = StageBit(kStageEmitters);
  priority = kPriority;
}

void ObjectParticleMeshEmitter::ExtendBounds(Vec3D& min, Vec3D& max) {
  if (!volume_ || !volume_->HasLevelSet() || !handler_.settings) return;
  const Duration* duration = handler_.settings->duration;
  if (duration && duration->IsEnabled() && !duration->IsActive(simulationInfo->time)) return;
  volume_->ExtendBounds(min, max);
}

bool ObjectParticleMeshEmitter::ReadParameters() {
  stageMask = StageBit(kStageEmitters);
  priority = kPriority;
  if (!iObject::ReadParameters()) return false;
  sampleInSpace_ = handler.GetInt(kSampleInSpaceId) != 0;
  sampleLocal_ = handler.GetInt(kSampleLocalId) != 0;
  uvChannel_ = handler.GetInt(kUvChannelId);
  writeNormal_ = handler.GetBool(kWriteNormalId);
  writeTexture_ = handler.GetBool(kWriteUvId);
  densityThreshold_ = handler.GetDouble(kDensityThresholdId);
  invertCurvature_ = handler.GetBool(kInvertCurvatureId);
  curvatureLimit_ = handler.GetDouble(kCurvatureLimitId) * 100;
  minimumDistance_ = handler.GetDouble(kMinimumDistanceId) * GetSimulationSpace().simPerVoxel.x;
  return true;
}

bool ObjectParticleMeshEmitter::ResolveLinks() {
  const bool resolved = iObject::ResolveLinks();
  volume_ = scene->RetrieveAs<VolumeMesh>(handler.GetLink(kVolumeId), NODE_VOLUME, RETRIEVE_VOLUME);
  handler_.Resolve(*this, {kSettingsId, kPropertiesId, kColourShaderId});
  densityShader_ = handler.GetObjectLink(kDensityShaderId);
  if (densityShader_ && !(densityShader_->data() && densityShader_->data()->AsShader())) densityShader_ = nullptr;
  return resolved && volume_;
}

void ObjectParticleMeshEmitter::Advise() {
  handler_.Advise(*this);
  if (!volume_) Warn("no-volume", "no volume with a mesh is linked: nothing is emitted; link one under volume");
  if ((writeNormal_ || writeTexture_) && !handler_.HasVectors()) {
    Warn("no-vector-property-for-normals",
         "normals and texture coordinates need a vector property: write_normal and write_uv have no effect; add one to "
         "properties");
  }
}

void ObjectParticleMeshEmitter::Conclude() {
  handler_.Conclude(*this, slow_ && !tried_
                               ? "no particle was emitted in the whole run: its count comes to less than one; raise "
                                 "\"count\", or set \"count_per_step\""
                               : nullptr);
}

// What only the mesh tells.
void ObjectParticleMeshEmitter::AdviseOnMesh() const {
  if (densityShader_ && !sampleInSpace_ && !HasTexture()) {
    Warn("no-texture",
         "the mesh's texture coordinates aren't read: density_shader has no effect; set uv_channel to 1 and use a mesh "
         "with texture coordinates, or sample_in_space");
  }
  if (curvatureLimit_ > 0 && !curvature_) {
    Warn("no-curvature", "the mesh's points carry no curvature: curvature_limit has no effect; set it to 0");
  }
}

// What the settings ask for in the document's frames, one sub-step each, as far as it lives that long.
MemoryNeed ObjectParticleMeshEmitter::MemoryFor(const VecInt3D&) const {
  const ParticleEmissionSettings* settings = SettingsOf(*this, kSettingsId);
  const BaseDocument* document = scene->GetHostDocument();
  if (!settings || !document) return {};
  double seconds = document->maxTime.Seconds() - document->minTime.Seconds() + 1.0 / document->fps;
  const GivenProperties given = RetrieveProperties(*scene, handler, kPropertiesId);
  if (const double* age = given.data.FindReal(PP::Age)) seconds = std::min(seconds, (*age + 1) / document->fps);
  const auto* duration =
      scene->RetrieveAs<Duration>(settings->handler.GetLink(ParticleEmissionSettings::kActiveInId), NODE_HELPER);
  if (duration && duration->repeats == 0 && duration->length > 0) seconds = std::min(seconds, duration->length);
  const double each = settings->countPerStep ? settings->Count() * document->fps : settings->Count();
  return MemoryOfParticles(*this, each * seconds, kPropertiesId);
}

void ObjectParticleMeshEmitter::ReleaseLinks() {
  handler_.Release();
  volume_ = nullptr, densityShader_ = nullptr;
  SetFlag(NodeActive, false);
  iObject::ReleaseLinks();
}

void ObjectParticleMeshEmitter::CheckDirty() {
  iObject::CheckDirty();
  if (IsEnabled() && (scene->HasFlag(TimeMoved) || handler_.SettingsAreDirty())) MarkDirty(false);
}

// Of this sub-step, all rounds together. The part of a particle that is left goes to the next one: a rate is kept
// whatever the sub-steps.
std::int64_t ObjectParticleMeshEmitter::Attempts() {
  // A frame's length has the rounding of a float: 1000 a second are 10 in 0.01 s all the same.
  constexpr double kMost = 9e15, kRounding = 1e-6;
  const double owed =
      std::min(handler_.settings->CountIn(simulationInfo->substepDuration) * handler_.weight, kMost) + owed_;
  const double count = std::floor(owed * (1 + kRounding));
  owed_ = std::max(0.0, owed - count);
  const double rounds = 1.0 + std::max(handler.GetInt(kIterationsId), 0);
  return count > 0 ? static_cast<std::int64_t>(count * rounds) : 0;
}

void ObjectParticleMeshEmitter::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  if (!volume_ || volume_->Mesh().TriangleCount() == 0) return;
  if (!handler_.Begin(*this)) return;
  attempts_ = Attempts();
  const bool asked = handler_.settings->Count() > 0 && handler_.weight > 0;
  slow_ |= attempts_ <= 0 && asked, tried_ |= attempts_ > 0;
  if (attempts_ <= 0) return;
  curvature_ = curvatureLimit_ > 0 ? volume_->Mesh().pointAttributes.Find<double>(PP::Curvature) : nullptr;
  AdviseOnMesh();
  handler_.group->EnsureTree(handler_.kind, false, 0);
  SetFlag(NodeActive, true);
}

void ObjectParticleMeshEmitter::Setup() {
  runs_.clear();
  nextBlock_.store(0);
  if (!IsActive()) return;
  runs_.resize(static_cast<std::size_t>((attempts_ + kBlock - 1) / kBlock));
  scratch_.resize(WorkerPool::kMaxWorkers);
}

void ObjectParticleMeshEmitter::Process(ProcessData& data) {
  if (!IsActive()) return;
  const auto seed = static_cast<std::uint32_t>(GetNodeSubType() + std::int64_t(scene->seed) + simulationInfo->frame);
  for (std::size_t block; (block = nextBlock_.fetch_add(1, std::memory_order_relaxed)) < runs_.size();) {
    if (data.hostThread && data.hostThread->TestBreak()) return;
    MersenneTwister random = RandomOfPiece(seed, std::uint64_t(simulationInfo->substep) << 48 | block);
    Draw(std::min(kBlock, attempts_ - static_cast<std::int64_t>(block) * kBlock), random, data.threadIndex);
    KeepByMask(data.threadIndex);
    Write(runs_[block], data.threadIndex);
    handler_.Complete(runs_[block], ShaderSpaceNow(), random);
    if (!writeTexture_) runs_[block].textures = {};
  }
}

// Uniform over triangles, uniform in each (Turk 1990).
void ObjectParticleMeshEmitter::Draw(std::int64_t count, MersenneTwister& random, std::int32_t worker) {
  const TriMeshSTL& mesh = volume_->Mesh();
  std::vector<Attempt>& attempts = scratch_[static_cast<std::size_t>(worker)].attempts;
  attempts.clear();
  const std::int32_t last = mesh.TriangleCount() - 1;
  for (std::int64_t n = 0; n < count; ++n) {
    Attempt attempt;
    attempt.triangle = std::min(static_cast<std::int32_t>(random.Uniform() * (last + 1.0)), last);
    double a = random.Uniform(), b = random.Uniform();
    if (a + b > 1) a = 1 - a, b = 1 - b;
    attempt.weights = {a, b, 1 - a - b};
    const VecInt3D corners = mesh.Triangles()[static_cast<std::size_t>(attempt.triangle)];
    const auto point = [&](std::int32_t corner) { return mesh.Points()[static_cast<std::size_t>(corner)]; };
    attempt.place = point(corners.x) * attempt.weights.x + point(corners.y) * attempt.weights.y +
                    point(corners.z) * attempt.weights.z;
    if (!mesh.textureCoordinates.empty()) {
      for (int corner = 0; corner < 3; ++corner) {
        const Vec2D uv = mesh.textureCoordinates[static_cast<std::size_t>(attempt.triangle) * 3 + corner];
        attempt.texture += Vec3D(uv.x, uv.y, 0) * attempt.weights[corner];
      }
    }
    if (Passes(attempt, worker)) attempts.push_back(attempt);
  }
}

bool ObjectParticleMeshEmitter::Passes(const Attempt& attempt, std::int32_t worker) {
  if (handler_.group->NearestCount(handler_.kind, attempt.place, minimumDistance_, worker) > 0) return false;
  double amount = 1;
  EvaluateChain(handler_.constraints, attempt.place, amount, this, worker);
  if (amount == 0) return false;
  if (!curvature_) return true;
  const VecInt3D corners = volume_->Mesh().Triangles()[static_cast<std::size_t>(attempt.triangle)];
  double curvature = 0;
  for (int corner = 0; corner < 3; ++corner) {
    curvature += (*curvature_)[static_cast<std::size_t>(corners[corner])] * attempt.weights[corner];
  }
  return invertCurvature_ ? !(curvature > curvatureLimit_) : !(curvatureLimit_ > curvature);
}

void ObjectParticleMeshEmitter::KeepByMask(std::int32_t worker) {
  Scratch& scratch = scratch_[static_cast<std::size_t>(worker)];
  if (!densityShader_ || (!sampleInSpace_ && !HasTexture())) return;
  scratch.places.clear();
  for (const Attempt& attempt : scratch.attempts) {
    scratch.places.push_back(sampleInSpace_ ? attempt.place : attempt.texture);
  }
  scratch.colours.resize(scratch.places.size());
  ParticleEmissionHandler::Ask(*densityShader_, ShaderSpaceNow(), GetSimulationSpace(), scratch.places,
                               scratch.colours);
  std::size_t kept = 0;
  for (std::size_t n = 0; n < scratch.attempts.size(); ++n) {
    if (!(scratch.colours[n].x < densityThreshold_)) scratch.attempts[kept++] = scratch.attempts[n];
  }
  scratch.attempts.resize(kept);
}

void ObjectParticleMeshEmitter::Write(EmittedRun& run, std::int32_t worker) const {
  const std::vector<Attempt>& attempts = scratch_[static_cast<std::size_t>(worker)].attempts;
  const TriMeshSTL& mesh = volume_->Mesh();
  for (const Attempt& attempt : attempts) {
    run.positions.push_back(attempt.place);
    if (!handler_.HasVectors()) continue;
    run.textures.push_back(attempt.texture);
    if (!writeNormal_) continue;
    const VecInt3D corners = mesh.Triangles()[static_cast<std::size_t>(attempt.triangle)];
    const Vec3D origin = mesh.Points()[static_cast<std::size_t>(corners.x)];
    run.normals.push_back(Normalized(Cross(mesh.Points()[static_cast<std::size_t>(corners.y)] - origin,
                                           mesh.Points()[static_cast<std::size_t>(corners.z)] - origin)));
  }
}

void ObjectParticleMeshEmitter::Finish() {
  if (IsActive()) handler_.Append(runs_);
  handler_.End(*this);
  runs_.clear();
}

}  // namespace orlix
