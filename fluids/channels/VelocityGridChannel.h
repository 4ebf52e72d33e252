#pragma once
// The staggered velocity of a solver, in metres a second: each component stands on the faces of its axis.

#include "fluids/channels/VectorChannels.h"

namespace orlix {

class VelocityGridChannel final : public VectorGridChannel {
 public:
  VelocityGridChannel(BaseList2D* solverObject, OrlixScene& owner) : VectorGridChannel(solverObject, owner) {
    channelType = {kGridVelocityU, kGridVelocityV, kGridVelocityW};
  }
  std::int32_t GetNodeSubType() const override { return 46; }
  // Reads keepPrevious from the solver's own row; the values have no limits.
  bool ReadParameters() override;
};

}  // namespace orlix
