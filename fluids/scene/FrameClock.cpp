#include "fluids/scene/FrameClock.h"

#include <utility>

namespace orlix {

void FrameClock::Update(std::int32_t start, std::int32_t end, bool useDocument) {
  fps = document->fps;
  frameLength = 1 / fps;
  if (useDocument) {
    startFrame = document->minTime.Frame(fps);
    endFrame = document->maxTime.Frame(fps) + 1;
  } else {
    startFrame = start, endFrame = end;
    if (startFrame > endFrame) std::swap(startFrame, endFrame);
  }
  const double t = document->time().Seconds();
  // One frame back from a finished step is not a move of time.
  const bool oneBack = time == lastTime && t == time - frameLength && t > 0;
  if (!oneBack) time = t;
  frame = document->time().Frame(fps);
  frameOffset = frame - startFrame;
}

}  // namespace orlix
