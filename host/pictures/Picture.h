#pragma once
// A picture: planes of numbers with names, row by row from the top. Colours are linear Rec. 709, and premultiplied by
// alpha.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "globals/Result.h"

namespace orlix {

inline constexpr int kMaxPictureSide = 65536;
inline constexpr std::int64_t kMaxPicturePixels = std::int64_t(1) << 28;

// Sides of 1 to kMaxPictureSide, and no more than kMaxPicturePixels.
Status CheckPictureSize(std::int64_t width, std::int64_t height);

struct PictureChannel {
  std::string name;           // "R", "G", "B", "A", "Z", "velocity.X", ...
  bool single = false;        // kept with 32 bits in files that can; otherwise with 16
  std::vector<float> values;  // width x height
};

// Where a part stands in the whole picture, pixels from its left upper corner; the whole one's size is 0 for a picture
// that is no part.
struct PicturePart {
  int left = 0, top = 0, wholeWidth = 0, wholeHeight = 0;
};

class Picture {
 public:
  Picture() = default;
  Picture(int width, int height) : width_(width), height_(height) {}

  int width() const { return width_; }
  int height() const { return height_; }
  std::size_t pixelCount() const { return static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_); }

  // Adds a plane that holds value everywhere.
  PictureChannel& AddChannel(std::string name, float value = 0, bool single = false);
  // Adds a plane that has as many values as there are pixels.
  void AddChannel(PictureChannel channel) { channels_.push_back(std::move(channel)); }
  const std::vector<PictureChannel>& channels() const { return channels_; }
  const PictureChannel* Find(std::string_view name) const;
  PictureChannel* Find(std::string_view name);

  PicturePart part;  // OpenEXR files keep it as their data window in a display window

 private:
  int width_ = 0, height_ = 0;
  std::vector<PictureChannel> channels_;
};

// What a file or a reader of statistics wants to know of a plane.
struct ChannelRange {
  std::string name;
  double min = 0, max = 0, mean = 0;  // over the finite values; 0 when there are none
  std::size_t notFinite = 0;
};
std::vector<ChannelRange> RangesOf(const Picture& picture);

}  // namespace orlix
