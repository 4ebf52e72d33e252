#pragma once
// The tag that lets an object swim: it is carried and turned by a fluid, and does nothing to it. After each simulated
// frame the object moves on by the flow where it is.

#include <map>

#include "fluids/scene/OrlixScene.h"

namespace orlix {

struct CoupleTag {
  static constexpr int kId = 1300087;
  static constexpr int kTakePlaceId = 2000, kRootId = 2001, kTurningId = 2002, kModeId = 2003, kLostFlowId = 2004,
                       kBuoyancyId = 2005, kDampingId = 2006;
  static const TypeInfo& Type();
};

// The objects that tags of this kind move in one scene.
class CoupledObjects {
 public:
  void Move(OrlixScene& scene);
  // Puts objects where the state that was read has them; false when none was read since.
  bool Restore(BaseDocument& document);
  void VisitState(StateVisitor& visitor);

 private:
  // Host units: where the object began, where it was a frame ago, and where it is.
  struct Places {
    LMatrix start, previous, now;
  };
  static void MoveObject(OrlixScene& scene, const BaseObject& tag, BaseObject& object, Places& places);

  bool restored_ = false;  // objects stand where the document has them, not yet where the state that was read has
  std::map<std::uint64_t, Places> places_;  // by the object's creation number
};

}  // namespace orlix
