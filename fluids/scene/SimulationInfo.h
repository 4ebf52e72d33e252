#pragma once
// The time record of a scene, which every node reads, and what a node's Process receives.

#include <cstdint>

namespace orlix {

class BaseThread;

struct SubstepInfo {
  std::uint8_t substep = 1;       // 1-based number of the current sub-step
  std::uint8_t substepCount = 0;  // sub-steps of this frame, as far as known
  std::uint8_t minSubsteps = 1;
  bool lastSubstep = true;
};

struct SimulationInfo : SubstepInfo {
  std::int32_t frame = 0;          // since the simulation's start
  double frameDuration = 0.033;    // s of simulated time
  double time = 0;                 // s since the start; 0 before the first sub-step ran
  double substepDuration = 0.033;  // s
  double frameElapsed = 0;         // s consumed in this frame, this sub-step included
  std::int32_t fps = 30;
  double substepFraction = 0.033;  // the sub-step as a fraction of the frame
  double frameRemaining = 1.0;     // the fraction of the frame that is still to come
};

struct ProcessData {
  const BaseThread* hostThread = nullptr;  // source of break tests
  bool lastThread = true;
  std::int32_t threadIndex = 0;
};

}  // namespace orlix
