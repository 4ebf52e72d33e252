#pragma once
// Tells host time in engine terms.

#include <cstdint>

#include "host/objects/BaseDocument.h"

namespace orlix {

class FrameClock {
 public:
  void Attach(const BaseDocument& doc) { document = &doc; }
  // Reads the document's time. With useDocument its range counts (end: the frame of the maximum time plus 1), otherwise
  // the given frames, swapped if start is above end.
  void Update(std::int32_t start, std::int32_t end, bool useDocument);
  void Finish() { lastTime = time, lastFrame = frame; }
  void Reset() { lastFrame = -1, frameOffset = 0, time = 0, lastTime = -0.033; }

  const BaseDocument* document = nullptr;
  std::int32_t frame = 0, lastFrame = 1, frameOffset = 0;
  double fps = 30, frameLength = 1.0 / 30;
  double time = 0, lastTime = 0;  // s
  std::int32_t startFrame = 0, endFrame = 1;
};

}  // namespace orlix
