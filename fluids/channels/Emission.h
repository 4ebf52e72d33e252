#pragma once
// How emission writes into a channel's cells. A caller owns some z layers of the target and writes into no others, so
// that workers never meet and the result is the same for any number of them.

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"

namespace orlix {

enum class EmissionMode : std::int32_t { Add = 0, Set = 1, AddUpTo = 2 };

struct EmissionRule {
  EmissionMode mode = EmissionMode::Add;
  // By trilinear weights into the eight cells round the point instead of into the cell that holds it. The channel's
  // limits aren't applied then.
  bool spread = false;
  bool hasLimit = false;  // of mode AddUpTo; without one it is the channel's valueMax
  double scalarLimit = 0;
  Vec3D vectorLimit;
};

// Layers [begin, end) of an array.
struct OwnedLayers {
  std::int32_t begin = 0, end = 0;
};

// position in simulation space. A channel without a grid takes nothing. Fire takes values of [0, 1] only.
void Emit(ChannelBase_Scalar& channel, double value, const Vec3D& position, const EmissionRule& rule,
          const OwnedLayers& owned);
void Emit(ChannelBase_Vector& channel, const Vec3D& value, const Vec3D& position, const EmissionRule& rule);

}  // namespace orlix
