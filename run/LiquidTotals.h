#pragma once
// What became of each liquid's volume over a run: the last thing that a run tells.

#include <map>
#include <utility>

#include "run/FrameListener.h"

namespace orlix {

class LiquidTotals : public FrameListener {
 public:
  struct Total {
    double most = 0, last = 0;                    // m^3 by the level set
    double mostParticles = 0, lastParticles = 0;  // m^3 by the particles
    std::int64_t outside = 0, inWalls = 0;        // at the end
    std::int64_t left = 0, lost = 0;              // over the run: through open faces, to solids
  };

  void AfterSubstep(const RunState& state, const SubstepReport& report) override;
  // By scene and node, in the order of their names.
  const std::map<std::pair<std::string, std::string>, Total>& totals() const { return totals_; }
  // A line for a liquid.
  static std::string Text(const std::string& node, const Total& total);

 private:
  std::map<std::pair<std::string, std::string>, Total> totals_;
};

}  // namespace orlix
