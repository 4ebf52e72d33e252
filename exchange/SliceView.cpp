#include "exchange/SliceView.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/dynamics/FluidSolver.h"
#include "host/description/CurveData.h"
#include "host/pictures/Srgb.h"

namespace orlix {

namespace {

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
  return panels;
}

// Five rows of three bits for each character that a label may have.
std::uint16_t Glyph(char c) {
  static constexpr std::uint16_t kDigits[] = {0x7b6f, 0x2492, 0x73e7, 0x73cf, 0x5bc9,
                                              0x79cf, 0x79ef, 0x7249, 0x7bef, 0x7bcf};
  static constexpr std::uint16_t kLetters[] = {0x7bed, 0x6bae, 0x7927, 0x6b6e, 0x79a7, 0x79a4, 0x796f, 0x5bed, 0x7497,
                                               0x126f, 0x5bad, 0x4927, 0x5f6d, 0x5fed, 0x7b6f, 0x7be4, 0x7b79, 0x6bad,
                                               0x79cf, 0x7492, 0x5b6f, 0x5b6a, 0x5bfd, 0x5aad, 0x5a92, 0x72a7};
  if (c >= '0' && c <= '9') return kDigits[c - '0'];
  if (c >= 'a' && c <= 'z') return kLetters[c - 'a'];
  if (c >= 'A' && c <= 'Z') return kLetters[c - 'A'];
  if (c == '.') return 0x0002;
  if (c == '-') return 0x01c0;
  if (c == '+') return 0x05d0;
  if (c == '/') return 0x12a4;
  return 0;
}

class Canvas {
 public:
  Canvas(int width, int height) : picture_(width, height) {
    for (const char* name : {"R", "G", "B"}) picture_.AddChannel(name, 0.012f);
  }
  // The colours are meant as they look; pictures hold linear ones.
  void Set(int x, int y, const Vec3D& shown) {
    if (x < 0 || y < 0 || x >= picture_.width() || y >= picture_.height()) return;
    const Vec3D colour = SrgbToLinear(shown);
    const std::size_t at = static_cast<std::size_t>(y) * picture_.width() + x;
    picture_.Find("R")->values[at] = static_cast<float>(colour.x);
    picture_.Find("G")->values[at] = static_cast<float>(colour.y);
    picture_.Find("B")->values[at] = static_cast<float>(colour.z);
  }
  void Block(int x, int y) {
    for (int n = 0; n < kFontScale * kFontScale; ++n) Set(x + n % kFontScale, y + n / kFontScale, {0.9, 0.9, 0.9});
  }
  void Text(int x, int y, const std::string& text) {
    for (const char c : text) {
      const std::uint16_t glyph = Glyph(c);
      for (int bit = 0; bit < 15; ++bit) {
        if ((glyph >> (14 - bit) & 1) != 0) Block(x + bit % 3 * kFontScale, y + bit / 3 * kFontScale);
      }
      x += 4 * kFontScale;
    }
  }
  Picture Take() { return std::move(picture_); }

 private:
  Picture picture_;
};

void DrawPanel(Canvas& canvas, const Panel& panel, int left, int width) {
  const auto colourOf = [&](double v) {
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
  Canvas canvas(total, kPanelHeight + kBarHeight + kLabelHeight + 4 * kGap);
  int left = kGap;
  for (std::size_t p = 0; p < panels.size(); ++p) {
    DrawPanel(canvas, panels[p], left, widths[p]);
    left += widths[p] + kGap;
  }
  return canvas.Take();
}

}  // namespace orlix
