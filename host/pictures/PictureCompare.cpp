#include "host/pictures/PictureCompare.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "globals/Vec.h"

namespace orlix {

namespace {

// One softened line after the other: weights 1 4 6 4 1 over 16 along and across, borders repeated.
constexpr double kKernel[5] = {1.0 / 16, 4.0 / 16, 6.0 / 16, 4.0 / 16, 1.0 / 16};

class Softened {
 public:
  explicit Softened(const Picture& picture)
      : width_(picture.width()),
        height_(picture.height()),
        planes_{&picture.Find("R")->values, &picture.Find("G")->values, &picture.Find("B")->values} {}

  Vec3D At(int x, int y) const {
    Vec3D sum;
    for (int dy = -2; dy <= 2; ++dy) {
      for (int dx = -2; dx <= 2; ++dx) sum += Shown(x + dx, y + dy) * (kKernel[dx + 2] * kKernel[dy + 2]);
    }
    return sum;
  }

 private:
  Vec3D Shown(int x, int y) const {
    const auto column = static_cast<std::size_t>(std::clamp(x, 0, width_ - 1)),
               row = static_cast<std::size_t>(std::clamp(y, 0, height_ - 1));
    const std::size_t i = row * static_cast<std::size_t>(width_) + column;
    Vec3D colour;
    for (int c = 0; c < 3; ++c) {
      const double v = (*planes_[c])[i];
      colour[c] = std::isnan(v) ? 0 : std::clamp(v, 0.0, 1.0);
    }
    return colour;
  }

  int width_, height_;
  const std::vector<float>* planes_[3];
};

// CIE 1976 L*a*b* of a linear Rec. 709 colour under D65.
Vec3D Lab(const Vec3D& c) {
  const double x = (0.4124564 * c.x + 0.3575761 * c.y + 0.1804375 * c.z) / 0.95047;
  const double y = 0.2126729 * c.x + 0.7151522 * c.y + 0.0721750 * c.z;
  const double z = (0.0193339 * c.x + 0.1191920 * c.y + 0.9503041 * c.z) / 1.08883;
  const auto f = [](double t) { return t > 216.0 / 24389 ? std::cbrt(t) : (24389.0 / 27 * t + 16) / 116; };
  return {116 * f(y) - 16, 500 * (f(x) - f(y)), 200 * (f(y) - f(z))};
}

bool HasColours(const Picture& p) { return p.pixelCount() > 0 && p.Find("R") && p.Find("G") && p.Find("B"); }

}  // namespace

Result<PictureDifference> ComparePictures(const Picture& a, const Picture& b) {
  if (a.width() != b.width() || a.height() != b.height()) {
    return Result<PictureDifference>::Fail(
        ErrorKind::Usage, fmt::format("pictures of {} x {} and {} x {} pixels can't be compared", a.width(), a.height(),
                                      b.width(), b.height()));
  }
  if (!HasColours(a) || !HasColours(b)) {
    return Result<PictureDifference>::Fail(ErrorKind::Usage, "a picture without colours can't be compared");
  }
  const Softened softA(a), softB(b);
  PictureDifference difference;
  double sum = 0;
  std::size_t visible = 0;
  for (int y = 0; y < a.height(); ++y) {
    for (int x = 0; x < a.width(); ++x) {
      const double d = Length(Lab(softA.At(x, y)) - Lab(softB.At(x, y)));
      sum += d;
      difference.largest = std::max(difference.largest, d);
      visible += d > kVisibleDifference;
    }
  }
  const auto pixels = static_cast<double>(a.pixelCount());
  difference.mean = sum / pixels;
  difference.visibleShare = static_cast<double>(visible) / pixels;
  return difference;
}

}  // namespace orlix
