#include "fluids/channels/VelocityGridChannel.h"

#include <limits>

namespace orlix {

bool VelocityGridChannel::ReadParameters() {
  if (!handler.HasObject()) return false;
  keepPrevious = handler.GetBool(kKeepPreviousId);
  valueMin = Vec3D(std::numeric_limits<double>::lowest());
  valueMax = Vec3D(std::numeric_limits<double>::max());
  return true;
}

}  // namespace orlix
