#include "run/LiquidTotals.h"

#include <fmt/format.h>

#include <algorithm>

namespace orlix {

void LiquidTotals::AfterSubstep(const RunState&, const SubstepReport& report) {
  for (const LiquidReport& liquid : report.liquids) {
    Total& total = totals_[{report.scene, liquid.node}];
    total.last = liquid.surfaceVolume;
    total.most = std::max(total.most, total.last);
    total.lastParticles = liquid.particleVolume;
    total.mostParticles = std::max(total.mostParticles, total.lastParticles);
    total.outside = liquid.outside, total.inWalls = liquid.inWalls;
    total.left += liquid.left;
    for (const ParticleReport& group : report.groups) {
      if (std::ranges::find(liquid.groups, group.group) != liquid.groups.end()) total.lost += group.lostLiquid;
    }
  }
}

std::string LiquidTotals::Text(const std::string& node, const Total& total) {
  std::string text = fmt::format(
      "{}: {:.4g} m^3 of liquid by its surface (at most {:.4g}), {:.4g} by its particles (at "
      "most {:.4g})",
      node, total.last, total.most, total.lastParticles, total.mostParticles);
  if (total.lost > 0) text += fmt::format("; {} particles lost to solids", total.lost);
  if (total.left > 0) text += fmt::format("; {} left the container", total.left);
  if (total.outside > 0) text += fmt::format("; {} stand outside it", total.outside);
  if (total.inWalls > 0) text += fmt::format("; {} stand in walls", total.inWalls);
  return text;
}

}  // namespace orlix
