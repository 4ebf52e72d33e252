#pragma once
// Whether keyframes change a parameter of an object.

#include <algorithm>

#include "host/objects/BaseDocument.h"

namespace orlix {

inline bool HasTrack(const BaseObject& object, int parameter) {
  const std::vector<KeyTrack>& tracks = object.document().tracks();
  return std::any_of(tracks.begin(), tracks.end(), [&](const KeyTrack& track) {
    return track.object == object.creationNumber() && track.parameter == parameter;
  });
}

}  // namespace orlix
