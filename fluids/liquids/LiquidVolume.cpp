#include "fluids/liquids/LiquidVolume.h"

#include <algorithm>
#include <vector>

namespace orlix {

double LiquidVolume(const GridView<const double>& phi, double width, double cellVolume,
                    const GridView<const float>& open, WorkerPool& pool) {
  const bool hasOpen = open.data && open.dims == phi.dims;
  std::vector<double> layers(std::size_t(std::max(0, phi.dims.z)), 0.0);
  ParallelRange(pool, 0, phi.dims.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      double sum = 0;
      for (std::int64_t c = phi.slab * k; c < phi.slab * (k + 1); ++c) {
        const double inside = std::clamp(0.5 - phi[c] / width, 0.0, 1.0);
        sum += hasOpen ? inside * double(open[c]) : inside;
      }
      layers[std::size_t(k)] = sum;
    }
  });
  double cells = 0;
  for (const double layer : layers) cells += layer;
  return cells * cellVolume;
}

}  // namespace orlix
