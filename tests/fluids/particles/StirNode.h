#pragma once
// A node that fills a group, moves its particles and kills some.

#include "fluids/particles/ParticleGroup.h"
#include "tests/support/TestScene.h"

namespace orlix::test {

class StirNode final : public iObject {
 public:
  StirNode(BaseList2D* object, OrlixScene& owner) : iObject(object, owner) { stageMask = StageBit(kStageOperators); }
  static const TypeInfo& Type() {
    static constexpr Parameter kRows[] = {LinkParameter(1, "group", kLinkParticles, "what is stirred"),
                                          IntParameter(2, "born", 3000, "", "particles a sub-step")};
    static const TypeInfo kType = [] {
      TypeInfo type;
      type.id = 9101;
      type.resource = "test_stir";
      type.parameters = kRows;
      type.common = CommonNodeParameters();
      return type;
    }();
    return kType;
  }
  std::int32_t GetNodeBaseType() const override { return NODE_OPERATOR; }
  bool ResolveLinks() override {
    group_ = scene->RetrieveAs<ParticleGroup>(handler.GetLink(1), NODE_PARTICLES);
    return group_ != nullptr;
  }
  void CheckDirty() override {
    iObject::CheckDirty();
    if (scene->HasFlag(TimeMoved)) MarkDirty(false);
  }
  void Setup() override {
    ParticleList& list = *group_->list(PK_Diffuse);
    BaseParticleData data;
    data.flags |= FlagOfKind(PK_Diffuse);
    data.SetReal({90, OwnerOf(*this)}, 4);
    const std::int32_t first = list.Append(handler.GetInt(2), data);
    for (std::int32_t i = first; i < list.count(); ++i) {
      const double t = list.Id(i);
      OrlixParticle(&list, i).SetPosition({std::sin(t), std::cos(t), std::fmod(t * 0.618, 1.0)});
    }
    if (first > 10) list.SetLinks(3, {{1.0f, list.Id(2)}, {0.5f, list.Id(3)}});
    ranges_ = ParticleRanges::Of(list.count(), scene->threadCount);
  }
  void Process(ProcessData& data) override {
    if (!ranges_.Has(data.threadIndex)) return;
    const ParticleList& list = *group_->list(PK_Diffuse);
    list.ForEachChunk(ranges_.begin[data.threadIndex], ranges_.end[data.threadIndex], [&](const ParticleRows& rows) {
      for (std::int32_t r = rows.begin; r < rows.end; ++r) {
        const std::int32_t id = rows.ids()[r];
        rows.EditPositions()[r] = rows.positions()[r] * 1.01 + Vec3D(0.001 * (id % 7));
        rows.EditVelocities()[r] = rows.positions()[r] - Vec3D(1);
        if (id % 5 == 4 && rows.positions()[r].x > 0.5) rows.EditFlags()[r] &= ~ParticleFlag::Alive;
      }
    });
  }
  void Finish() override { group_->SetKindDirty(PK_Diffuse); }
  void VisitOutputs(StateVisitor& visitor) override { group_->VisitOutputs(visitor); }

 private:
  ParticleGroup* group_ = nullptr;
  ParticleRanges ranges_;
};

class StirScene : public TestScene {
 public:
  explicit StirScene(int workers = 1) : TestScene(workers) {
    factory.Add<StirNode>();
    drops = &Add("particlegroup", "Drops");
    stir = &Add("test_stir", "Stir");
    stir->Set(1, LinkTo(*drops));
  }
  ParticleGroup& group() { return *NodeOf<ParticleGroup>(*drops); }
  BaseObject *drops = nullptr, *stir = nullptr;
};

}  // namespace orlix::test
