// A plug-in with a node of each form: a wind for gases and particles alike, a constraint that lets a band of height
// through, and an operator that colours particles by their speed and lets the slow ones go.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "zqapi/ZQPlugin.h"

namespace {

using namespace TESSU_API;  // NOLINT: its own source

// --- a force: accelerates along a direction

class Wind final : public PluginForceData {
 public:
  static constexpr std::int32_t kDirectionId = 1000, kStrengthId = 1001, kDragId = 1002;

  bool ReadParameters(BaseObject* host) override {
    direction_ = host->GetVector(kDirectionId);
    strength_ = host->GetReal(kStrengthId);
    drag_ = host->GetReal(kDragId);
    return true;
  }
  bool ReadsVelocity() override { return drag_ != 0; }
  // batch.Add(n, wind) for each place would do; a loop over one component at a time is what compilers make fast.
  void EvaluateBatch(const ForceBatch& batch) const override {
    const Vec3D wind = direction_ * strength_;
    Blow(wind.x, batch, batch.u, batch.pushX);
    Blow(wind.y, batch, batch.v, batch.pushY);
    Blow(wind.z, batch, batch.w, batch.pushZ);
  }

 private:
  void Blow(double wind, const ForceBatch& batch, const double* velocities, double* pushes) const {
    const std::int32_t count = batch.count;
    const double *weights = batch.weights, drag = drag_;
    if (drag == 0) {
      for (std::int32_t n = 0; n < count; ++n) pushes[n] += wind * weights[n];
    } else {
      for (std::int32_t n = 0; n < count; ++n) pushes[n] += (wind - velocities[n]) * drag * weights[n];
    }
  }

  Vec3D direction_;
  double strength_ = 0, drag_ = 0;
};

constexpr Row kWindRows[] = {
    VectorRow(Wind::kDirectionId, "direction", {1, 0, 0}, "", "Where it blows; its length is a factor"),
    RealRow(Wind::kStrengthId, "strength", 1, "m/s^2", "The acceleration; with a drag the wind's speed in m/s"),
    RealRow(Wind::kDragId, "drag", 0, "1/s",
            "How fast what is blown at takes the wind's speed; 0 accelerates it evenly")
        .Between(0, 1000),
};

// --- a constraint: a band of height

class HeightBand final : public PluginConstraintData {
 public:
  static constexpr std::int32_t kLowId = 1000, kHighId = 1001;

  bool ReadParameters(BaseObject* host) override {
    low_ = host->GetReal(kLowId);
    high_ = host->GetReal(kHighId);
    return true;
  }
  // Simple, for one place at a time; a factor of 0 leaves the place out.
  bool Evaluate(const Vec3D& position, double& value, std::int32_t) const override {
    if (position.y < low_ || position.y > high_) value = 0;
    return true;
  }

 private:
  double low_ = 0, high_ = 0;
};

constexpr Row kHeightBandRows[] = {
    RealRow(HeightBand::kLowId, "low", 0, "m", "Where the band begins, in simulation space"),
    RealRow(HeightBand::kHighId, "high", 1, "m", "Where it ends"),
};

// --- an operator on particles: colours them by their speed, and those that were slow for a while go

class SpeedColour final : public PluginOperatorData {
 public:
  static constexpr std::int32_t kGroupId = 1000, kKindId = 1001, kFastId = 1002, kPatienceId = 1003;

  bool ReadParameters(BaseObject* host) override {
    kind_ = static_cast<std::int32_t>(host->GetInt(kKindId));
    fast_ = host->GetReal(kFastId);
    patience_ = host->GetInt(kPatienceId);
    return true;
  }
  bool ResolveLinks(BaseObject* host, ZQServer* server) override {
    server_ = server;
    group_ = static_cast<ZQParticleGroup*>(FindNodeByKind(server->GetScene(), host->GetLink(kGroupId), KindParticles));
    if (!group_) server->Warn("no-group", "it colours nothing; link a particle group under \"group\"");
    return group_ != nullptr;
  }
  void ReleaseLinks() override { server_ = nullptr, group_ = nullptr; }
  bool Prepare(ZQServer*) override { return group_ && group_->GetCount(kind_) > 0; }
  bool Setup(ZQServer* server) override {
    const SimulationInfo info = server->GetScene()->GetSimulationInfo();
    if (info.lastSubstep) ++frames_;
    letsGo_ = patience_ > 0 && info.lastSubstep && frames_ % patience_ == 0;
    return true;
  }
  bool Process(ProcessData& data) override {
    ForEachRows(group_, kind_, data, [&](const ZQParticleRows& rows) {
      const ZQColumn<Vec3D> colours = rows.NeedVectors(PropertyColor);
      if (!colours) return;
      std::uint16_t* flags = letsGo_ ? rows.EditFlags() : nullptr;
      ForEachBatch(rows, data.threadIndex, [&](const PlaceBatch& places, std::int32_t row) {
        double weights[kBatch];
        std::fill_n(weights, places.count, 1.0);
        server_->Weigh(places, weights);
        for (std::int32_t n = 0; n < places.count; ++n) {
          if (weights[n] == 0) continue;
          const Vec3D v = rows.Velocities()[row + n];
          const double speed = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z), share = std::min(speed / fast_, 1.0);
          colours.Put(row + n, Vec3D{share, share, 1} * weights[n]);
          if (flags && share < 0.01) flags[row + n] = static_cast<std::uint16_t>(flags[row + n] & ~kAlive);
        }
      });
    });
    return true;
  }

  // frames_ is kept from one frame to the next, so checkpoints have it.
  void Reset() override { frames_ = 0; }
  void SaveState(std::vector<std::uint8_t>& bytes) const override {
    bytes.resize(sizeof frames_);
    std::memcpy(bytes.data(), &frames_, sizeof frames_);
  }
  bool LoadState(const std::uint8_t* bytes, std::size_t size) override {
    if (size != sizeof frames_) return false;
    std::memcpy(&frames_, bytes, sizeof frames_);
    return true;
  }

 private:
  ZQServer* server_ = nullptr;
  ZQParticleGroup* group_ = nullptr;
  std::int32_t kind_ = ParticlePassive;
  std::int64_t patience_ = 0, frames_ = 0;
  double fast_ = 1;
  bool letsGo_ = false;
};

constexpr RowChoice kKinds[] = {
    {ParticlePassive, "passive", "Particles that are only carried"},
    {ParticleVorticity, "vorticity", "Particles that swirl a gas"},
    {ParticleLiquid, "liquid", "Particles of a liquid"},
    {ParticleDiffuse, "diffuse", "Foam, spray, dust, embers"},
};
constexpr Row kSpeedColourRows[] = {
    LinkRow(SpeedColour::kGroupId, "group", LinkParticles, "The particles"),
    ChoiceRow(SpeedColour::kKindId, "kind", ParticlePassive, kKinds, "Which of them"),
    RealRow(SpeedColour::kFastId, "fast", 1, "m/s", "The speed that is white; none is blue").Between(1e-6, 1e6),
    IntRow(SpeedColour::kPatienceId, "patience", 0, "frames",
           "At the end of each so many frames those slower than a hundredth of \"fast\" go; 0 keeps all")
        .Between(0, 1000000),
};

// --- what the library holds

constexpr NodeType kTypes[] = {
    TypeOf<Wind>({.id = 20000001,
                  .resource = "example_wind",
                  .label = "Example::Wind",
                  .text = "Wind on gases and particles: an even acceleration, or a drag towards its speed.",
                  .rows = kWindRows}),
    TypeOf<HeightBand>({.id = 20000002,
                        .resource = "example_height_band",
                        .label = "Example::HeightBand",
                        .text = "Confines what uses it to a band of height.",
                        .rows = kHeightBandRows}),
    TypeOf<SpeedColour>({.id = 20000003,
                         .resource = "example_speed_colour",
                         .label = "Example::SpeedColour",
                         .text = "Colours particles by their speed, and lets slow ones go.",
                         .rows = kSpeedColourRows,
                         .state = State::Saved}),
};

}  // namespace

ZQ_PLUGIN("example", kTypes)
