#include "exchange/SliceView.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/particles/ParticleGroup.h"
#include "fluids/particles/SeenVelocity.h"
#include "host/description/CurveData.h"
#include "host/pictures/Canvas.h"

namespace orlix {

namespace {

constexpr double kNothing = -1;  // a pixel without a particle
constexpr int kPanelHeight = 320, kMaxPanelWidth = 640, kBarHeight = 10, kLabelHeight = 14, kGap = 8, kFontScale = 2;

// One field as it is seen from the front: x to the right, y up.
struct Panel {
  std::string label;
  int nx = 0, ny = 0;
  std::vector<double> values;
  double high = 0;
  Gradient colours;
};

Gradient Heat() {
  const GradientKnot knots[] = {{0, {0.02, 0.02, 0.05}},
                                {0.3, {0.45, 0.05, 0.1}},
                                {0.6, {0.9, 0.35, 0.05}},
                                {0.85, {1, 0.85, 0.3}},
                                {1, {1, 1, 0.95}}};
  return Gradient(knots);
}
Gradient Grey() {
  const GradientKnot knots[] = {{0, {0.05, 0.06, 0.08}}, {1, {0.97, 0.97, 0.95}}};
  return Gradient(knots);
}
Gradient Sea() {
  const GradientKnot knots[] = {
      {0, {0.03, 0.04, 0.12}}, {0.35, {0.1, 0.35, 0.55}}, {0.7, {0.25, 0.75, 0.55}}, {1, {0.98, 0.95, 0.45}}};
  return Gradient(knots);
}

Panel MakePanel(std::string label, const VecInt3D& dims, Gradient colours, const std::function<double(int, int)>& f) {
  Panel panel{std::move(label), dims.x, dims.y, {}, 0, std::move(colours)};
  panel.values.resize(static_cast<std::size_t>(dims.x) * dims.y);
  for (int j = 0; j < dims.y; ++j) {
    for (int i = 0; i < dims.x; ++i) {
      const double v = f(i, j);
      panel.values[static_cast<std::size_t>(j) * dims.x + i] = v;
      if (std::isfinite(v)) panel.high = std::max(panel.high, v);
    }
  }
  return panel;
}

// The box of the solvers' containers, else of the population. Simulation space.
void BoxOf(OrlixScene& scene, const ParticleFactory& factory, Vec3D& low, Vec3D& high) {
  low = factory.bounds.min, high = factory.bounds.max;
  scene.ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](iBase& node) {
    const auto* solver = dynamic_cast<FluidSolver*>(&node);
    if (!solver || !solver->velocity.grids[0]) return;
    low = solver->velocity.grids[0]->space.simMin;
    high = solver->velocity.grids[0]->space.simMax;
  });
}

// The speeds of the foremost particles.
Panel ParticlePanel(std::string label, const ParticleList& list, const Vec3D& low, const Vec3D& high, double dt) {
  const Vec3D size = high - low;
  const int ny = kPanelHeight / 2;  // fine enough to show waves, coarse enough to leave no gaps
  const double perMetre = ny / size.y;
  const int nx = static_cast<int>(std::clamp(size.x * perMetre, 1.0, 4.0 * kMaxPanelWidth));
  Panel panel = MakePanel(std::move(label), {nx, ny, 1}, Sea(), [](int, int) { return kNothing; });
  std::vector<double> front(panel.values.size(), -std::numeric_limits<double>::infinity());
  list.ForEachChunk(0, list.count(), [&](const ParticleRows& rows) {
    const SeenVelocity velocities(rows, dt);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      const Vec3D at = (rows.positions()[r] - low) * perMetre;
      if (!(at.x >= 0 && at.x < nx && at.y >= 0 && at.y < ny)) continue;
      const std::size_t pixel =
          static_cast<std::size_t>(at.y) * static_cast<std::size_t>(nx) + static_cast<std::size_t>(at.x);
      if (at.z <= front[pixel]) continue;
      front[pixel] = at.z;
      panel.values[pixel] = Length(velocities.Of(r));
      panel.high = std::max(panel.high, panel.values[pixel]);
    }
  });
  return panel;
}

void AddParticlePanels(OrlixScene& scene, std::vector<Panel>& panels) {
  scene.ForEachNode(NODE_PARTICLES, NODE_PARTICLES, [&](iBase& node) {
    auto* group = dynamic_cast<ParticleGroup*>(&node);
    for (std::int32_t kind = 0; group && group->IsEnabled() && kind < kParticleKinds; ++kind) {
      if (group->Count(kind) == 0) continue;
      Vec3D low, high;
      BoxOf(scene, group->factory(kind), low, high);
      if (!(high.x > low.x && high.y > low.y) || !IsFinite(low) || !IsFinite(high)) continue;
      const std::string label =
          fmt::format("{} {} {} m/s", group->Count(kind), kParticleKindLabels[kind], group->handler.hostObject()->name);
      panels.push_back(ParticlePanel(label, *group->list(kind), low, high, group->GetSimulationInfo().substepDuration));
    }
  });
}

std::vector<Panel> CollectPanels(OrlixScene& scene) {
  std::vector<Panel> panels;
  scene.ForEachNode(NODE_CHANNEL, NODE_CHANNEL, [&](iBase& node) {
    const auto* channel = dynamic_cast<ChannelBase_Scalar*>(&node);
    if (!channel || !channel->grid || !node.IsEnabled() || channel->grid->count < 2) return;
    const ScalarGrid& g = *channel->grid;
    const std::string& name = node.handler.hostObject()->name;
    if (g.gridType == kGridTemperature || g.gridType == kGridFire || g.gridType == kGridFuel) {
      panels.push_back(MakePanel(name, g.dims, Heat(), [&](int i, int j) { return g(i, j, g.dims.z / 2); }));
    } else {
      panels.push_back(MakePanel(name + " along z", g.dims, Grey(), [&](int i, int j) {
        double sum = 0;
        for (int k = 0; k < g.dims.z; ++k) sum += g(i, j, k);
        return sum;
      }));
    }
  });
  scene.ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](iBase& node) {
    const auto* solver = dynamic_cast<FluidSolver*>(&node);
    if (!solver || !solver->velocity.grids[2]) return;
    const ScalarGrid &u = *solver->velocity.grids[0], &v = *solver->velocity.grids[1], &w = *solver->velocity.grids[2];
    const VecInt3D n = u.space.dims;
    const int k = n.z / 2;
    panels.push_back(MakePanel("speed m/s", n, Sea(), [&](int i, int j) {
      return Length(Vec3D(u(i, j, k) + u(i + 1, j, k), v(i, j, k) + v(i, j + 1, k), w(i, j, k) + w(i, j, k + 1)) * 0.5);
    }));
  });
  AddParticlePanels(scene, panels);
  return panels;
}

void DrawPanel(Canvas& canvas, const Panel& panel, int left, int width) {
  const auto colourOf = [&](double v) {
    if (v == kNothing) return Vec3D(0.02, 0.02, 0.03);
    return std::isfinite(v) ? panel.colours.ColourAt(panel.high > 0 ? v / panel.high : 0) : Vec3D(1, 0, 1);
  };
  for (int y = 0; y < kPanelHeight; ++y) {
    const int j = std::min(panel.ny - 1, (kPanelHeight - 1 - y) * panel.ny / kPanelHeight);
    for (int x = 0; x < width; ++x) {
      const int i = std::min(panel.nx - 1, x * panel.nx / width);
      canvas.Set(left + x, kGap + y, colourOf(panel.values[static_cast<std::size_t>(j) * panel.nx + i]));
    }
  }
  for (int y = 0; y < kBarHeight; ++y) {
    for (int x = 0; x < width; ++x) {
      canvas.Set(left + x, kPanelHeight + 2 * kGap + y, panel.colours.ColourAt((x + 0.5) / width));
    }
  }
  canvas.Text(left, kPanelHeight + 3 * kGap + kBarHeight, fmt::format("{} 0 - {:.4g}", panel.label, panel.high));
}

}  // namespace

Picture DrawSliceView(OrlixScene& scene) {
  const std::vector<Panel> panels = CollectPanels(scene);
  std::vector<int> widths;
  int total = kGap;
  for (const Panel& panel : panels) {
    const double aspect = static_cast<double>(panel.nx) / panel.ny;
    widths.push_back(std::clamp(static_cast<int>(kPanelHeight * aspect), 96, kMaxPanelWidth));
    total += widths.back() + kGap;
  }
  if (panels.empty()) return {};
  Picture picture(total, kPanelHeight + kBarHeight + kLabelHeight + 4 * kGap);
  for (const char* name : {"R", "G", "B"}) picture.AddChannel(name, 0.012f);
  Canvas canvas(picture, kFontScale);
  int left = kGap;
  for (std::size_t p = 0; p < panels.size(); ++p) {
    DrawPanel(canvas, panels[p], left, widths[p]);
    left += widths[p] + kGap;
  }
  return picture;
}

}  // namespace orlix
