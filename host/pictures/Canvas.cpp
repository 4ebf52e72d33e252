#include "host/pictures/Canvas.h"

#include "host/pictures/Srgb.h"

namespace orlix {

namespace {

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

constexpr Vec3D kTextColour{0.9, 0.9, 0.9};

}  // namespace

Canvas::Canvas(Picture& picture, int scale)
    : picture_(picture),
      red_(picture.Find("R")),
      green_(picture.Find("G")),
      blue_(picture.Find("B")),
      alpha_(picture.Find("A")),
      scale_(scale) {}

void Canvas::Set(int x, int y, const Vec3D& shown) {
  if (x < 0 || y < 0 || x >= picture_.width() || y >= picture_.height()) return;
  const Vec3D colour = SrgbToLinear(shown);
  const std::size_t at =
      static_cast<std::size_t>(y) * static_cast<std::size_t>(picture_.width()) + static_cast<std::size_t>(x);
  red_->values[at] = static_cast<float>(colour.x);
  green_->values[at] = static_cast<float>(colour.y);
  blue_->values[at] = static_cast<float>(colour.z);
  if (alpha_) alpha_->values[at] = 1;
}

void Canvas::Text(int x, int y, std::string_view text) {
  for (const char c : text) {
    const std::uint16_t glyph = Glyph(c);
    for (int bit = 0; bit < 15; ++bit) {
      if ((glyph >> (14 - bit) & 1) == 0) continue;
      for (int n = 0; n < scale_ * scale_; ++n) {
        Set(x + bit % 3 * scale_ + n % scale_, y + bit / 3 * scale_ + n / scale_, kTextColour);
      }
    }
    x += 4 * scale_;
  }
}

}  // namespace orlix
