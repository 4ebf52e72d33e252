#pragma once
// Draws on a picture: pixels, and small text for labels.

#include <string_view>

#include "globals/Vec.h"
#include "host/pictures/Picture.h"

namespace orlix {

class Canvas {
 public:
  // The picture has R, G and B; A, where there is one, becomes 1 where something is drawn. scale: pixels of a dot of
  // the text.
  Canvas(Picture& picture, int scale);

  // Colours are meant as they look on a display; pictures hold linear ones. Nothing happens outside the picture.
  void Set(int x, int y, const Vec3D& shown);
  // Letters, digits and ". - + /"; capitals look like the others, anything else is a blank. x and y: upper left corner.
  void Text(int x, int y, std::string_view text);
  int WidthOf(std::string_view text) const { return static_cast<int>(text.size()) * 4 * scale_; }
  int TextHeight() const { return 5 * scale_; }

 private:
  Picture& picture_;
  PictureChannel *red_, *green_, *blue_, *alpha_;
  int scale_;
};

}  // namespace orlix
