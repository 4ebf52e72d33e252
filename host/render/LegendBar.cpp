#include "host/render/LegendBar.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/pictures/Canvas.h"
#include "host/pictures/Srgb.h"

namespace orlix {

namespace {

// Lengths are in units of a dot of the text.
constexpr int kMargin = 6, kBarHeight = 5, kTextGap = 3, kGap = 7, kLeastWidth = 60;
constexpr int kPicturePerDot = 400;  // pixels of the picture's width for a dot of one pixel

Vec3D Limited(const Vec3D& c) { return Min(Max(c, Vec3D()), Vec3D(1.0)); }

// A dark ground makes the bar readable on any picture; it is drawn as it is to look behind the exposure.
void DrawLegend(const Legend& legend, int left, int bottom, int dot, double darken, Canvas& canvas) {
  const std::string low = fmt::format("{:.3g}", legend.low), high = fmt::format("{:.3g}", legend.high);
  const std::string text = low + " - " + high + " " + legend.title;
  const int width = std::max(kLeastWidth * dot, canvas.WidthOf(text));
  const int top = bottom - canvas.TextHeight() - (kTextGap + kBarHeight) * dot;
  const auto shown = [&](const Vec3D& colour) { return LinearToSrgb(Limited(colour) * darken); };
  for (int y = top - 2 * dot; y < bottom + 2 * dot; ++y) {
    for (int x = left - 2 * dot; x < left + width + 2 * dot; ++x) canvas.Set(x, y, Vec3D());
  }
  for (int y = top; y < top + kBarHeight * dot; ++y) {
    for (int x = 0; x < width; ++x) canvas.Set(left + x, y, shown(legend.colours.ColourAt((x + 0.5) / width)));
  }
  canvas.Text(left, bottom - canvas.TextHeight(), text);
}

}  // namespace

void DrawLegends(const std::vector<Legend>& legends, double exposure, Picture& picture) {
  const int dot = std::max(1, (picture.width() + kPicturePerDot / 2) / kPicturePerDot);
  Canvas canvas(picture, dot);
  int bottom = picture.height() - kMargin * dot;
  for (const Legend& legend : legends) {
    const int height = canvas.TextHeight() + (kTextGap + kBarHeight + kGap) * dot;
    if (bottom < height) break;
    DrawLegend(legend, kMargin * dot, bottom, dot, std::exp2(-exposure), canvas);
    bottom -= height;
  }
}

}  // namespace orlix
