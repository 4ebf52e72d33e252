// A plug-in for tests: a force, a constraint and an operator that tell what was called, and what misbehaves when its
// settings ask for it. Built in variants: one as it should be, and some that can't be taken in.

#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "zqapi/ZQPlugin.h"

namespace {

using namespace TESSU_API;  // NOLINT: its own source

enum Misdeed : std::int64_t { kNone, kThrowInPrepare, kThrowInWork, kNotANumber, kThrowInMaking, kIdle };

constexpr std::int32_t kMisdeedId = 1000, kTargetId = 1001, kPassesId = 1002;

// The phases of the last nodes, for the test that loaded the library: a letter each.
std::string phases;

}  // namespace

extern "C" __attribute__((visibility("default"))) const char* TestPluginPhases() { return phases.c_str(); }
extern "C" __attribute__((visibility("default"))) void TestPluginClear() { phases.clear(); }

namespace {

template <class Base>
class Misbehaving : public Base {
 public:
  bool ReadParameters(BaseObject* host) override {
    phases += 'p';
    misdeed_ = host->GetInt(kMisdeedId);
    return true;
  }
  bool ResolveLinks(BaseObject*, ZQServer*) override { return phases += 'l', true; }
  void ReleaseLinks() override { phases += 'r'; }
  bool Prepare(ZQServer*) override {
    phases += 'P';
    if (misdeed_ == kThrowInPrepare) throw std::runtime_error("no wind today");
    return misdeed_ != kIdle;
  }
  bool Setup(ZQServer*) override { return phases += 'S', true; }
  void Finish() override { phases += 'F'; }

 protected:
  // In work, on any thread.
  void Misbehave() const {
    if (misdeed_ == kThrowInWork) throw 7;
  }
  double Number(double v) const { return misdeed_ == kNotANumber ? std::numeric_limits<double>::quiet_NaN() : v; }

  std::int64_t misdeed_ = kNone;
};

class Push final : public Misbehaving<PluginForceData> {
 public:
  bool Evaluate(ProcessDataPlace& data) const override {
    Misbehave();
    if (data.isParticle) {
      const auto& particle = static_cast<ProcessDataParticles&>(data);
      if (!particle.group) throw std::runtime_error("no group");
      if (!(particle.group->GetParticle(particle.index, particle.kind).GetPosition() == data.position))
        throw std::runtime_error("another particle");
    }
    data.force += Vec3D{Number(1), 2, -0.5} * data.weight;
    return true;
  }
};

class Half final : public Misbehaving<PluginConstraintData> {
 public:
  bool Evaluate(const Vec3D&, double& value, std::int32_t) const override {
    Misbehave();
    value = Number(0.25 * value);
    return true;
  }
};

// Counts its sub-steps into the cells of a channel.
class Count final : public Misbehaving<PluginOperatorData> {
 public:
  bool ReadParameters(BaseObject* host) override {
    passes_ = host->GetInt(kPassesId);
    return Misbehaving::ReadParameters(host);
  }
  bool ResolveLinks(BaseObject* host, ZQServer* server) override {
    channel_ = static_cast<ZQScalarChannel*>(FindNodeByKind(server->GetScene(), host->GetLink(kTargetId), KindScalar));
    return Misbehaving::ResolveLinks(host, server);
  }
  bool IsIterated() override { return passes_ > 0; }
  std::int32_t IterationCount() override { return static_cast<std::int32_t>(passes_); }
  bool Setup(ZQServer* server) override {
    ++substeps_;
    hasCells_ = cells_.InitThreads(channel_, server->GetThreadCount(), true);
    return Misbehaving::Setup(server) && hasCells_;
  }
  bool Process(ProcessData& data) override {
    Misbehave();
    if (data.threadIndex == 0) phases += static_cast<char>('0' + data.iteration);
    if (!cells_.BeginThread(data.threadIndex, false)) return true;
    do {
      cells_.SetValue(data.threadIndex, Number(static_cast<double>(substeps_) / 1024));
    } while (cells_.Next(data.threadIndex));
    return true;
  }
  void Reset() override { substeps_ = 0; }
  void SaveState(std::vector<std::uint8_t>& bytes) const override {
    bytes.resize(sizeof substeps_);
    std::memcpy(bytes.data(), &substeps_, sizeof substeps_);
  }
  bool LoadState(const std::uint8_t* bytes, std::size_t size) override {
    if (size != sizeof substeps_) return false;
    std::memcpy(&substeps_, bytes, sizeof substeps_);
    return true;
  }

 private:
  ZQScalarChannel* channel_ = nullptr;
  ZQScalarCellIterator cells_;
  std::int64_t substeps_ = 0, passes_ = 0;
  bool hasCells_ = false;
};

// Can't be made.
class Unmade final : public PluginForceData {
 public:
  Unmade() { throw std::length_error("no room"); }
};

constexpr Row kRows[] = {IntRow(kMisdeedId, "misdeed", 0, "", "What it does wrong").Between(0, 5)};
constexpr Row kCountRows[] = {
    kRows[0],
    LinkRow(kTargetId, "target", LinkChannel, "The channel that counts"),
    IntRow(kPassesId, "passes", 0, "", "Rounds a sub-step; 0 for one without rounds").Between(0, 9),
};
[[maybe_unused]] constexpr NodeType kTypes[] = {
    TypeOf<Push>({.id = 20001001, .resource = "test_push", .label = "Push", .text = "Pushes.", .rows = kRows}),
    TypeOf<Half>({.id = 20001002, .resource = "test_half", .label = "Half", .text = "A quarter.", .rows = kRows}),
    TypeOf<Count>({.id = 20001003,
                   .resource = "test_count",
                   .label = "Count",
                   .text = "Counts.",
                   .rows = kCountRows,
                   .state = State::Saved,
                   .stage = StageChannelsOperators}),
    TypeOf<Unmade>({.id = 20001004, .resource = "test_unmade", .label = "Unmade", .text = "Throws."}),
    TypeOf<Push>({.id = 20001005,
                  .resource = "test_forgetful",
                  .label = "Forgetful",
                  .text = "Keeps what it doesn't save.",
                  .rows = kRows,
                  .state = State::Unsaved}),
};

#ifdef TEST_PLUGIN_old
constexpr Plugin Made() {
  Plugin plugin = MakePlugin("test", kTypes);
  plugin.version -= 1000;
  return plugin;
}
#endif

}  // namespace

#if defined(TEST_PLUGIN_good)
ZQ_PLUGIN("test", kTypes)
#elif defined(TEST_PLUGIN_old)
extern "C" __attribute__((visibility("default"))) const Plugin zq_plugin;
constinit const Plugin zq_plugin = Made();
#elif defined(TEST_PLUGIN_foreign)
// Another library's symbol of this name.
extern "C" __attribute__((visibility("default"))) const double zq_plugin[16];
const double zq_plugin[16] = {1, 2, 3};
#endif
